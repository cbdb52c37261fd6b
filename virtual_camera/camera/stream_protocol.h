// The stream channel: images as the host has programmed them, transfer by transfer.
#ifndef VCAM_STREAM_PROTOCOL_H
#define VCAM_STREAM_PROTOCOL_H

#include <deque>
#include <vector>

#include "camera_memory.h"
#include "packet_mover.h"
#include "pattern_generator.h"
#include "usb_device.h"

namespace vcam {

struct StreamCounts
{
    std::uint64_t started = 0;
    std::uint64_t sent = 0;
    std::uint64_t dropped = 0;
    std::uint64_t bytes = 0;
    std::uint64_t overflows = 0;
};

// Not thread-safe: its owner, the camera, locks.
class StreamProtocol
{
public:
    StreamProtocol(const CameraConfig& config, CameraMemory& memory, FaultPlan& faults);

    // The host has written registers that matter here.
    void Update(const WriteEffects& effects);
    // Fills a request on the stream endpoint. A Stall means that the endpoint halts from now on.
    UsbResult BulkIn(HostRequest request, std::size_t packetSize);
    // Forgets the image under way (stream disabled, reset).
    void Drop();
    const StreamCounts& Counts() const { return m_counts; }

private:
    enum class Kind
    {
        Leader,
        Payload,
        Trailer,
        Other
    };
    enum class Gate
    {
        Open,
        Stall,
        Unplug
    };

    // One transfer of an image, and what stands in its way.
    struct Segment
    {
        Kind kind = Kind::Other;
        std::vector<std::uint8_t> bytes; // leader and trailer; payload is made on the way
        std::size_t payloadOffset = 0;
        DeviceTransfer transfer;
        Gate gate = Gate::Open;
        std::chrono::milliseconds delay{0};
        Clock::time_point readyAt{};
        bool delayArmed = false;
    };

    void _Start();
    bool _NextImage(UsbResult& result);
    bool _IsDue(UsbResult& result);
    void _PlanImage();
    void _PlanLeader();
    void _PlanPayload();
    void _PlanTrailer();
    void _PlanPayloadFaults(std::vector<Segment>& segments);
    Segment _Block(Kind kind, std::vector<std::uint8_t> bytes, std::size_t planned) const;
    Segment _PayloadPiece(std::size_t offset, std::size_t planned) const;
    std::vector<std::uint8_t> _Leader();
    std::vector<std::uint8_t> _Trailer();
    void _Append(Segment segment, const char* lost, const char* doubled);
    void _Guard(const char* stall, const char* late, const char* unplug, const char* empty);
    bool _PassGate(Segment& segment, UsbResult& result);
    Moved _Move(Segment& segment, HostRequest request, std::size_t packetSize);
    void _Copy(const Segment& segment, std::size_t offset, std::uint8_t* target, std::size_t size);
    void _FinishSegment(Kind kind);
    void _FinishImage();
    const Fault* _Fire(const char* name);
    std::size_t _FaultSize(const Fault* fault, std::int64_t otherwise) const;

    const CameraConfig& m_config;
    CameraMemory& m_memory;
    FaultPlan& m_faults;
    PatternGenerator m_pattern;
    ImageGeometry m_geometry;
    bool m_running = false;
    bool m_imageOpen = false;
    std::uint64_t m_block = 0;  // id of the image under way or next
    std::uint64_t m_images = 0; // completed in this run
    std::uint64_t m_triggers = 0;
    std::uint64_t m_timestamp = 0;
    Clock::time_point m_base{}; // when image m_baseBlock began
    std::uint64_t m_baseBlock = 0;
    std::size_t m_corruptAt = 0;
    bool m_corrupt = false;
    bool m_unplugged = false;
    std::deque<Segment> m_segments;
    StreamCounts m_counts;
};

} // namespace vcam

#endif
