#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <libusb.h>
#include <mutex>
#include <vector>

// One bulk IN endpoint of a bus that does nothing by itself: the test says when a packet moves. It
// stands in for libusb in programs that link no other.
namespace stream_bus {

struct Packet
{
    std::vector<uint8_t> bytes;
    libusb_transfer_status failure = LIBUSB_TRANSFER_COMPLETED; // the transfer ends with it
};

class Endpoint
{
public:
    static constexpr size_t kPacketSize = 1024;

    Endpoint();
    ~Endpoint();
    Endpoint(const Endpoint&) = delete;
    Endpoint& operator=(const Endpoint&) = delete;

    // The camera sends `bytes` in a transfer for which `programmed` bytes were planned: whole
    // packets, then a short or empty one unless it fills what was planned.
    void Send(const std::vector<uint8_t>& bytes, size_t programmed);
    void SendFailure(libusb_transfer_status failure);

    // Moves one packet, or ends one cancelled transfer. False when neither can be done.
    bool Step();
    // Steps until nothing moves any more.
    void Run();
    // How many packets still go to a cancelled transfer before it ends.
    size_t packetsBeforeCancel = 0;

    size_t Waiting() const { return m_packets.size(); } // packets of the camera
    size_t Pending() const { return m_pending.size(); } // transfers of the host
    // Where the host's transfers of that length are received.
    std::vector<const uint8_t*> BuffersOfLength(int length) const;

    // What the host sees.
    int refuse = 0;                // result of submissions instead of taking them
    size_t refuseAbove = SIZE_MAX; // LIBUSB_ERROR_NO_MEM beyond so many transfers in flight
    bool gone = false;
    bool keepsTransfers = false; // cancelled transfers never come back
    size_t haltsCleared = 0;
    size_t mostPending = 0;
    size_t submitted = 0;

    int Submit(libusb_transfer* transfer);
    int Cancel(libusb_transfer* transfer);
    void ClearHalt();

private:
    struct HostTransfer
    {
        libusb_transfer* transfer;
        bool cancelled;
    };
    bool _move();
    bool _movePacket();
    bool _endCancelled();
    void _complete(size_t index, libusb_transfer_status status);

    std::mutex m_mutex; // a stream may be ended by one thread while another moves packets
    std::deque<Packet> m_packets;
    std::deque<HostTransfer> m_pending;
    libusb_transfer* m_completed = nullptr;
    bool m_halted = false;
};

} // namespace stream_bus
