// The control channel: commands of the host in, acknowledges out.
#ifndef VCAM_CONTROL_PROTOCOL_H
#define VCAM_CONTROL_PROTOCOL_H

#include <deque>
#include <span>
#include <vector>

#include "camera_memory.h"
#include "error_counts.h"
#include "packet_mover.h"
#include "usb_device.h"

namespace vcam {

// What a command has brought about beside its acknowledges.
struct CommandOutcome
{
    bool haltOut = false;
    bool refused = false; // not even taken
    bool unplug = false;
    WriteEffects effects;
};

// Not thread-safe: its owner, the camera, locks.
class ControlProtocol
{
public:
    ControlProtocol(const CameraConfig& config, CameraMemory& memory, FaultPlan& faults,
                    ErrorCounts& errors);

    CommandOutcome Command(std::span<const std::uint8_t> command);
    // Fills a request on the IN endpoint. A Stall means that the endpoint halts from now on.
    UsbResult BulkIn(HostRequest request, std::size_t packetSize);
    // Forgets acknowledges that have not been fetched (halt cleared, reset).
    void Drop();
    std::uint64_t Transactions() const { return m_transactions; }

private:
    struct Acknowledge
    {
        std::vector<std::uint8_t> bytes;
        Clock::time_point readyAt;
        bool halts = false;
        DeviceTransfer transfer;
    };
    struct Header
    {
        std::uint16_t command;
        std::uint16_t requestId;
        std::uint64_t address;
        std::size_t size; // bytes to read or write
    };

    std::uint16_t _CheckHeader(std::span<const std::uint8_t> command, Header& header);
    std::uint16_t _CheckRead(std::span<const std::uint8_t> command, Header& header);
    std::uint16_t _CheckAccess(const Header& header, std::size_t size, std::size_t limit);
    std::uint16_t _CheckWrite(std::span<const std::uint8_t> command, Header& header);
    std::uint16_t _Execute(std::span<const std::uint8_t> command, const Header& header,
                           std::vector<std::uint8_t>& data, WriteEffects& effects);
    const Fault* _Fire(const char* name, const Header& header);
    void _Answer(const Header& header, std::uint16_t status, const std::vector<std::uint8_t>& data);
    void _PlayContentFaults(const Header& header, std::vector<std::uint8_t>& ack);
    void _QueuePending(const Header& header);
    void _QueueReply(const Header& header, std::vector<std::uint8_t> ack);
    void _Queue(std::vector<std::uint8_t> bytes, std::chrono::milliseconds delay);
    void _NoteError(const char* kind) { ++m_errors[kind]; }

    const CameraConfig& m_config;
    CameraMemory& m_memory;
    FaultPlan& m_faults;
    ErrorCounts& m_errors;
    std::deque<Acknowledge> m_queue;
    std::vector<std::uint8_t> m_endless; // the pending acknowledge that is repeated, or empty
    std::uint64_t m_transactions = 0;
};

} // namespace vcam

#endif
