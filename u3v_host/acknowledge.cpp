#include "acknowledge.h"

#include <algorithm>

#include "packets.h"
#include "status.h"

namespace wire = control_wire;

namespace u3v_host {

namespace {

Acknowledge Damaged(const char* fault)
{
    return {.kind = Acknowledge::Kind::Damaged, .fault = fault};
}

// The answer to our command, by everything but its status.
Acknowledge JudgeOurs(std::span<const uint8_t> packet, const ExpectedAcknowledge& expected)
{
    const std::span<const uint8_t> body = packet.subspan(wire::kAckHeaderSize);
    const size_t length = Load(packet, wire::kAckLength);
    const uint16_t status = Load(packet, wire::kAckStatus);
    if (length > body.size()) {
        return Damaged("it is shorter than it says");
    }
    if (status == gencp_status::kSuccess && expected.dataSize != 0 && length != expected.dataSize) {
        return Damaged("it has another length than was asked for");
    }
    return {.kind = Acknowledge::Kind::Answer, .status = status, .data = body.first(length)};
}

} // namespace

Acknowledge JudgeAcknowledge(std::span<const uint8_t> packet, const ExpectedAcknowledge& expected)
{
    const Acknowledge other{.kind = Acknowledge::Kind::Other};
    if (packet.empty()) {
        return other; // the end of an earlier packet that filled its last USB packet
    }
    const bool whole = packet.size() >= wire::kAckHeaderSize;
    if (!whole || Load(packet, wire::kAckPrefix) != wire::kPrefix) {
        return expected.othersMayCome ? other
                                      : Damaged(whole ? "wrong prefix" : "shorter than a header");
    }
    if (Load(packet, wire::kAckRequestId) != expected.requestId) {
        return expected.othersMayCome ? other : Damaged("wrong request id");
    }
    const uint16_t command = Load(packet, wire::kAckCommandId);
    if (command == wire::kPendingAck) {
        return {.kind = Acknowledge::Kind::Pending,
                .pendingTime = std::chrono::milliseconds(Load(packet, wire::kPendingTimeout))};
    }
    return command == expected.commandId ? JudgeOurs(packet, expected)
                                         : Damaged("wrong command id");
}

Patience::Patience(const ControlLimits& limits, std::chrono::milliseconds responseTime,
                   TimePoint now)
    : m_end(now + std::max(limits.pendingTime, responseTime)), m_time(responseTime),
      m_deadline(now + responseTime), m_pendingLeft(limits.pendingRounds),
      m_othersLeft(limits.otherPackets)
{
}

bool Patience::ForPending(std::chrono::milliseconds named, TimePoint now)
{
    if (m_pendingLeft == 0 || now >= m_end) {
        return false;
    }
    --m_pendingLeft;
    m_time = named.count() != 0 ? named : m_time;
    m_deadline = std::min(now + m_time, m_end);
    return true;
}

bool Patience::ForOther()
{
    return m_othersLeft != 0 && m_othersLeft-- != 0;
}

std::chrono::milliseconds ResponseTime(uint32_t named, const ControlLimits& limits)
{
    const std::chrono::milliseconds time(named);
    return named == 0 ? limits.defaultTime : std::min(time, limits.maximumTime);
}

} // namespace u3v_host
