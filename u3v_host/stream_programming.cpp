#include "stream_programming.h"

#include <algorithm>
#include <array>
#include <span>
#include <string>

#include "error.h"
#include "field.h"
#include "registers.h"
#include "stream_link.h"

namespace u3v_host {

namespace {

constexpr size_t kBlockSize = sirm::kMaximumTrailerSize.address + sizeof(uint32_t);
constexpr uint64_t kProgrammed = sirm::kMaximumLeaderSize.address; // from here on by the host
constexpr uint32_t kLargestTransfer = 64 * 1024 * 1024;

using Block = std::array<uint8_t, kBlockSize>;

template <class T>
T Get(const Block& block, Register<T> reg)
{
    return Load(block, Field<T>{static_cast<size_t>(reg.address)});
}

template <class T>
void Set(Block& block, Register<T> reg, T value)
{
    Store(block, Field<T>{static_cast<size_t>(reg.address)}, value);
}

Block ReadBlock(StreamLink& link)
{
    Block block{};
    link.ReadRegisters(link.SirmAddress(), block);
    return block;
}

StreamPlan PlanOf(const Block& block)
{
    return {.payload = Get(block, sirm::kRequiredPayloadSize),
            .leader = Get(block, sirm::kMaximumLeaderSize),
            .transferSize = Get(block, sirm::kPayloadTransferSize),
            .transferCount = Get(block, sirm::kPayloadTransferCount),
            .final1 = Get(block, sirm::kFinalTransfer1Size),
            .final2 = Get(block, sirm::kFinalTransfer2Size),
            .trailer = Get(block, sirm::kMaximumTrailerSize)};
}

void SetPlan(Block& block, const StreamPlan& plan)
{
    Set(block, sirm::kMaximumLeaderSize, plan.leader);
    Set(block, sirm::kPayloadTransferSize, plan.transferSize);
    Set(block, sirm::kPayloadTransferCount, plan.transferCount);
    Set(block, sirm::kFinalTransfer1Size, plan.final1);
    Set(block, sirm::kFinalTransfer2Size, plan.final2);
    Set(block, sirm::kMaximumTrailerSize, plan.trailer);
}

// All six at once; register by register where the camera does not take that, leaving out those that
// it refuses. A camera that is gone or silent is no camera that refuses.
bool TryWrite(StreamLink& link, uint64_t offset, std::span<const uint8_t> bytes)
{
    try {
        link.WriteRegisters(link.SirmAddress() + offset, bytes);
        return true;
    } catch (const Error& error) {
        if (error.Kind() == ErrorKind::Io || error.Kind() == ErrorKind::Timeout) {
            throw;
        }
        return false;
    }
}

void WriteOneByOne(StreamLink& link, const Block& block)
{
    for (uint64_t offset = kProgrammed; offset < kBlockSize; offset += sizeof(uint32_t)) {
        TryWrite(link, offset, std::span(block).subspan(offset, sizeof(uint32_t)));
    }
}

void RequireReceivable(const StreamPlan& plan)
{
    if (std::max({plan.leader, plan.transferSize, plan.final1, plan.final2, plan.trailer}) >
        kLargestTransfer) {
        throw Error(ErrorKind::InvalidParameter,
                    "the camera keeps transfer sizes above " + std::to_string(kLargestTransfer));
    }
}

} // namespace

StreamPlan ProgramStream(StreamLink& link, uint32_t transferSize)
{
    Block block = ReadBlock(link);
    if ((Get(block, sirm::kControl) & sirm::kStreamEnable) != 0) {
        EnableStream(link, false);
        block = ReadBlock(link);
    }
    const uint32_t exponent = Get(block, sirm::kInfo) >> sirm::kAlignmentShift;
    const StreamPlan wanted = PlanStream({.payload = Get(block, sirm::kRequiredPayloadSize),
                                          .leader = Get(block, sirm::kRequiredLeaderSize),
                                          .trailer = Get(block, sirm::kRequiredTrailerSize),
                                          .alignmentExponent = static_cast<uint8_t>(exponent)},
                                         transferSize);
    SetPlan(block, wanted);
    TryWrite(link, kProgrammed, std::span(block).subspan(kProgrammed));
    StreamPlan plan = PlanOf(ReadBlock(link));
    if (plan != wanted) {
        WriteOneByOne(link, block);
        plan = PlanOf(ReadBlock(link));
    }
    RequireReceivable(plan);
    return plan;
}

void EnableStream(StreamLink& link, bool enable)
{
    std::array<uint8_t, sizeof(uint32_t)> value{};
    Store(value, Field<uint32_t>{0}, enable ? sirm::kStreamEnable : 0U);
    link.WriteRegisters(sirm::kControl.At(link.SirmAddress()).address, value);
}

} // namespace u3v_host
