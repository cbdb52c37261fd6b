// Cuts an image into the transfers that the host has programmed, and spoils them as the fault list
// says.
#ifndef VCAM_IMAGE_PLANNER_H
#define VCAM_IMAGE_PLANNER_H

#include "camera_memory.h"
#include "sent_image.h"
#include "stream_segment.h"

namespace vcam {

// Not thread-safe: its owner, the stream, is locked by the camera.
class ImagePlanner
{
public:
    // Plans the image that "image" holds at each call.
    ImagePlanner(const CameraConfig& config, const CameraMemory& memory, FaultPlan& faults,
                 const SentImage& image);

    // Its transfers in their order; empty when faults swallow all of them.
    SegmentList Plan();

private:
    const Fault* _Fire(const char* name);
    void _PlanLeader();
    void _PlanPayload();
    void _PlanTrailer();
    SegmentList _Pieces() const;
    Segment _Piece(std::size_t offset, std::size_t planned) const;
    std::size_t _SentSize() const;
    void _SpoilFirst(SegmentList& pieces);
    void _SpoilLast(SegmentList& pieces);
    void _LosePiece(SegmentList& pieces);
    void _LosePacket(SegmentList& pieces);
    void _InterruptPayload(SegmentList& pieces);
    std::vector<std::uint8_t> _Leader();
    std::vector<std::uint8_t> _Trailer();
    Segment _Block(Segment::Kind kind, std::vector<std::uint8_t> bytes, std::size_t planned) const;
    std::size_t _PaddedSize(std::size_t own, std::size_t required, std::size_t planned) const;
    std::size_t _Aligned(std::size_t size) const;
    void _Append(Segment segment, const char* lost, const char* doubled);
    void _Guard(const char* stall, const char* late, const char* unplug, const char* empty);

    const CameraConfig& m_config;
    const CameraMemory& m_memory;
    FaultPlan& m_faults;
    const std::size_t m_packetSize;
    const SentImage& m_image;
    std::size_t m_validSize = 0; // as the trailer says
    SegmentList m_segments;
};

// A size that a fault's value gives; bounded, as the text form is not.
std::size_t FaultSize(const Fault& fault, std::int64_t otherwise);

} // namespace vcam

#endif
