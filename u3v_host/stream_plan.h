#pragma once

#include <cstddef>
#include <cstdint>

namespace u3v_host {

// What the camera asks for: bytes of payload, leader and trailer of one image, and what every
// transfer is a multiple of.
struct StreamSizes
{
    uint64_t payload;
    uint32_t leader;
    uint32_t trailer;
    uint8_t alignmentExponent; // alignment is 2 to this power
};

// How one image is cut into transfers; what the streaming interface is programmed with.
struct StreamPlan
{
    uint64_t payload; // bytes that the camera asks for
    uint32_t leader;
    uint32_t transferSize; // bytes of each full payload transfer
    uint32_t transferCount;
    uint32_t final1; // 0: there is none
    uint32_t final2; // 0: there is none
    uint32_t trailer;

    // Payload bytes that all transfers together may carry.
    uint64_t Capacity() const { return FullBytes() + final1 + final2; }
    uint64_t FullBytes() const { return uint64_t{transferSize} * transferCount; }
    // Bytes from `offset` to the end of the payload transfer that it lies in; 0 at the capacity.
    uint64_t PieceLeft(uint64_t offset) const;

    bool operator==(const StreamPlan&) const = default;
};

// Payload transfers of `transferSize` bytes or the next larger size that the alignment allows.
// Throws Error (InvalidParameter) for sizes that no plan can carry.
StreamPlan PlanStream(const StreamSizes& sizes, uint32_t transferSize);

// `bytes` in whole packets, at least one.
constexpr size_t WholePackets(size_t bytes, size_t packet)
{
    const size_t packets = (bytes + packet - 1) / packet;
    return (packets == 0 ? 1 : packets) * packet;
}

} // namespace u3v_host
