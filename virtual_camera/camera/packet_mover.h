// The packet rules of bulk IN: how a transfer of the device falls into a request of the host.
#ifndef VCAM_PACKET_MOVER_H
#define VCAM_PACKET_MOVER_H

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace vcam {

// What the device has to send as one transfer.
struct DeviceTransfer
{
    std::size_t size = 0;
    // A whole number of packets that is not what the host expects is ended by an empty packet.
    bool emptyEnd = false;
    std::size_t sent = 0;

    bool AllSent() const { return sent == size && !emptyEnd; }
};

enum class Moved
{
    Request,  // the request is complete: full, or ended by a short or empty packet
    Transfer, // the transfer is over, the request still open: the next transfer goes on in it
    Overflow, // a packet did not fit; it is lost
};

// Host side of one request.
struct HostRequest
{
    std::uint8_t* buffer;
    std::size_t capacity;
    std::size_t& filled;

    std::size_t Room() const { return capacity - filled; }
};

// Copies whole packets by "copy(offset in transfer, target, size)" until one side is done.
template <typename Copy>
Moved MovePackets(DeviceTransfer& transfer, HostRequest request, std::size_t packetSize, Copy copy)
{
    const std::size_t left = transfer.size - transfer.sent;
    if (left == 0) {
        transfer.emptyEnd = false; // the empty packet itself
        return Moved::Request;
    }
    const bool all = left <= request.Room();
    const std::size_t size = all ? left : request.Room() / packetSize * packetSize;
    copy(transfer.sent, request.buffer + request.filled, size);
    transfer.sent += size;
    request.filled += size;
    if (all && left % packetSize != 0) {
        return Moved::Request; // its last packet was short
    }
    if (request.Room() == 0 && request.capacity != 0) {
        return Moved::Request;
    }
    if (all) {
        if (!transfer.emptyEnd) {
            return Moved::Transfer;
        }
        transfer.emptyEnd = false;
        return Moved::Request;
    }
    // The controller sees the start of a packet for which there is no room and drops all of it.
    const std::size_t lost = std::min(packetSize, transfer.size - transfer.sent);
    transfer.sent += lost;
    return Moved::Overflow;
}

} // namespace vcam

#endif
