#include "u3v_stream_plan.h"

#include <algorithm>

namespace {
// The last power of two that the plan's registers hold.
constexpr unsigned kMaximumExponent = 31;
} // namespace

uint64_t U3V_StreamPlan::NextPayload(uint64_t received) const
{
    const uint64_t remaining = payload - std::min(received, payload);
    // Without payload transfers the whole image is one read.
    return transferSize == 0 ? remaining : std::min<uint64_t>(transferSize, remaining);
}

U3V_StreamPlan U3V_PlanStream(uint64_t payload, uint32_t requiredLeader, uint32_t requiredTrailer,
                              uint32_t transferSize, uint8_t alignmentExponent)
{
    const uint32_t alignment = 1U << std::min<unsigned>(alignmentExponent, kMaximumExponent);
    U3V_StreamPlan plan{};
    plan.payload = payload;
    plan.transferSize = transferSize;
    plan.leader = std::max(requiredLeader, alignment);
    plan.trailer = std::max(requiredTrailer, alignment);
    plan.transferCount =
        transferSize == 0 ? 0 : static_cast<uint32_t>(payload / transferSize); // 32-bit register
    const auto rest = static_cast<uint32_t>(transferSize == 0 ? payload : payload % transferSize);
    plan.finalTransfer1 = rest & ~(alignment - 1);
    plan.finalTransfer2 = rest != plan.finalTransfer1 ? alignment : 0;
    return plan;
}

U3V_PacketKind U3V_KindOfPacket(const U3V_StreamPlan& plan, uint32_t length)
{
    // Quirk Q64: magic and status of leader and trailer are not looked at, and an empty packet is a
    // final transfer when none is planned.
    if (length == plan.leader) {
        return U3V_PacketKind::Leader;
    }
    if (length == plan.transferSize) {
        return U3V_PacketKind::Payload;
    }
    if (length == plan.finalTransfer1) {
        return U3V_PacketKind::Final1;
    }
    if (length == plan.trailer) {
        return U3V_PacketKind::Trailer;
    }
    return U3V_PacketKind::Other;
}
