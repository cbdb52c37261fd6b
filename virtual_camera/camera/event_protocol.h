// The event channel: what the camera tells the host without being asked.
#ifndef VCAM_EVENT_PROTOCOL_H
#define VCAM_EVENT_PROTOCOL_H

#include <deque>
#include <span>
#include <vector>

#include "camera_events.h"
#include "camera_memory.h"
#include "packet_mover.h"
#include "usb_device.h"

namespace vcam {

// Not thread-safe: its owner, the camera, locks.
class EventProtocol
{
public:
    EventProtocol(const CameraConfig& config, CameraMemory& memory, FaultPlan& faults);

    // The host has written registers that matter here.
    void Update(const WriteEffects& effects);
    // An event of an image, if the host wants to be told.
    void Notify(CameraEvent event, std::uint64_t blockId, std::uint64_t timestamp);
    // Any event; false when events are switched off. Data that do not fit a packet are cut.
    bool Send(std::uint16_t id, std::uint64_t timestamp, std::span<const std::uint8_t> data);
    // Fills a request on the event endpoint. A Stall means that the endpoint halts from now on.
    UsbResult BulkIn(HostRequest request, std::size_t packetSize);
    // Forgets what has not been fetched (events disabled, reset).
    void Drop();
    bool HasSomething() const { return !m_items.empty() || !m_packets.empty(); }

private:
    using Item = std::vector<std::uint8_t>;
    struct Packet
    {
        std::vector<std::uint8_t> bytes;
        Clock::time_point readyAt{};
        bool halts = false;
        DeviceTransfer transfer;
    };

    void _MakePacket();
    const Fault* _Fire(const char* name);
    void _SpoilAndQueue(std::vector<std::uint8_t> bytes);
    void _Queue(const std::vector<std::uint8_t>& bytes);
    void _SpoilFields(std::vector<std::uint8_t>& bytes);
    void _SpoilLength(std::vector<std::uint8_t>& bytes);

    const CameraConfig& m_config;
    CameraMemory& m_memory;
    FaultPlan& m_faults;
    std::deque<Item> m_items;
    std::deque<Packet> m_packets; // on their way
    std::uint64_t m_packetNumber = 0;
};

} // namespace vcam

#endif
