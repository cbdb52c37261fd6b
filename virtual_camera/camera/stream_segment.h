// One transfer of an image on the stream endpoint, or an obstacle in front of one.
#ifndef VCAM_STREAM_SEGMENT_H
#define VCAM_STREAM_SEGMENT_H

#include <chrono>
#include <deque>
#include <vector>

#include "packet_mover.h"
#include "usb_device.h"

namespace vcam {

struct Segment
{
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

    Kind kind = Kind::Other;
    std::vector<std::uint8_t> bytes; // leader and trailer; payload is made on the way
    std::size_t payloadOffset = 0;
    DeviceTransfer transfer;
    Gate gate = Gate::Open;
    std::chrono::milliseconds delay{0};
    Clock::time_point readyAt{};
    bool delayArmed = false;
};

using SegmentList = std::deque<Segment>;

} // namespace vcam

#endif
