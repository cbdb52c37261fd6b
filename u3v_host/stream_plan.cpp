#include "stream_plan.h"

#include <algorithm>
#include <limits>
#include <string>

#include "error.h"
#include "packets.h"

namespace u3v_host {

namespace {

// A packet of the bus. Whatever lands in the application's memory is a multiple of it, so that a
// packet that comes out of place cannot overflow a transfer.
constexpr uint32_t kPacket = 1024;
constexpr unsigned kMaximumExponent = 24;               // 16 MiB, larger than any transfer
constexpr uint32_t kMaximumBorder = 1024 * 1024;        // leader or trailer, without the alignment
constexpr uint64_t kMaximumPayload = uint64_t{1} << 46; // 64 TiB: sums stay far from overflow

constexpr uint64_t RoundUp(uint64_t value, uint64_t unit)
{
    return (value + unit - 1) / unit * unit;
}
constexpr uint64_t RoundDown(uint64_t value, uint64_t unit)
{
    return value / unit * unit;
}

void Require(bool holds, const char* what, uint64_t value)
{
    if (!holds) {
        throw Error(ErrorKind::InvalidParameter, std::string("the camera asks for ") + what +
                                                     " of " + std::to_string(value) +
                                                     ", which no transfer can carry");
    }
}

} // namespace

uint64_t StreamPlan::PieceLeft(uint64_t offset) const
{
    if (offset < FullBytes()) {
        return transferSize - offset % transferSize;
    }
    const uint64_t behindFirst = FullBytes() + final1;
    return offset < behindFirst ? behindFirst - offset : Capacity() - std::min(offset, Capacity());
}

StreamPlan PlanStream(const StreamSizes& sizes, uint32_t transferSize)
{
    Require(sizes.alignmentExponent <= kMaximumExponent, "an alignment exponent",
            sizes.alignmentExponent);
    Require(sizes.leader <= kMaximumBorder, "a leader size", sizes.leader);
    Require(sizes.trailer <= kMaximumBorder, "a trailer size", sizes.trailer);
    Require(sizes.payload <= kMaximumPayload, "a payload size", sizes.payload);
    const uint32_t alignment = 1U << sizes.alignmentExponent;
    const uint32_t unit = std::max(alignment, kPacket);
    const uint64_t transfer = RoundUp(std::max(transferSize, 1U), unit);
    const uint64_t count = sizes.payload / transfer;
    Require(count <= std::numeric_limits<uint32_t>::max(), "a payload size", sizes.payload);
    const uint64_t rest = sizes.payload % transfer;
    const uint64_t final1 = RoundDown(rest, unit);
    const auto border = [alignment](size_t least, uint32_t required) {
        return static_cast<uint32_t>(RoundUp(std::max<uint64_t>(least, required), alignment));
    };
    return {.payload = sizes.payload,
            .leader = border(leader_wire::kImageSize, sizes.leader),
            .transferSize = static_cast<uint32_t>(transfer),
            .transferCount = static_cast<uint32_t>(count),
            .final1 = static_cast<uint32_t>(final1),
            .final2 = static_cast<uint32_t>(RoundUp(rest - final1, alignment)),
            .trailer = border(trailer_wire::kImageSize, sizes.trailer)};
}

} // namespace u3v_host
