// The stream channel: images as the host has programmed them, transfer by transfer.
#ifndef VCAM_STREAM_PROTOCOL_H
#define VCAM_STREAM_PROTOCOL_H

#include "event_protocol.h"
#include "image_planner.h"
#include "pattern_generator.h"

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
    StreamProtocol(const CameraConfig& config, CameraMemory& memory, FaultPlan& faults,
                   EventProtocol& events);

    // The host has written registers that matter here.
    void Update(const WriteEffects& effects);
    // Fills a request on the stream endpoint. A Stall means that the endpoint halts from now on.
    UsbResult BulkIn(HostRequest request, std::size_t packetSize);
    // Forgets the image under way (stream disabled, reset).
    void Drop();
    // The host has cleared the halt of the endpoint.
    void HaltCleared();
    // How long the device is to be suspended from now on; asked once.
    std::chrono::milliseconds TakeSuspension();
    const StreamCounts& Counts() const { return m_counts; }

private:
    void _Start();
    bool _NextImage(UsbResult& result);
    bool _IsDue(UsbResult& result);
    void _BeginImage();
    std::uint32_t _Rows();
    void _SpoilChunks();
    void _Skip(std::uint64_t frames);
    void _LoseFrames(std::uint64_t frames);
    bool _PassGate(Segment& segment, UsbResult& result);
    Moved _Move(Segment& segment, HostRequest request, std::size_t packetSize);
    void _Copy(const Segment& segment, std::size_t offset, std::uint8_t* target, std::size_t size);
    void _CopyPayload(std::size_t place, std::uint8_t* target, std::size_t size);
    void _FinishSegment(Segment::Kind kind);
    void _FinishImage();
    const Fault* _Fire(const char* name);

    const CameraConfig& m_config;
    CameraMemory& m_memory;
    FaultPlan& m_faults;
    EventProtocol& m_events;
    SentImage m_image; // the one under way
    ImagePlanner m_planner;
    PatternGenerator m_pattern;
    PayloadForm m_form;
    ImageGeometry m_geometry;
    bool m_running = false;
    bool m_imageOpen = false;
    std::uint64_t m_frame = 0;  // number of the image under way or next
    std::uint64_t m_blockId;    // and its name on the wire
    std::uint64_t m_images = 0; // completed in this run
    std::uint64_t m_triggers = 0;
    std::uint64_t m_timestamp = 0;
    Clock::time_point m_base{}; // when image m_baseFrame began
    std::uint64_t m_baseFrame = 0;
    std::size_t m_corruptAt = 0;
    bool m_corrupt = false;
    bool m_unplugged = false;
    std::chrono::milliseconds m_suspension{0};
    SegmentList m_segments;
    StreamCounts m_counts;
};

} // namespace vcam

#endif
