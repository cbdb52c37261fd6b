// One image on its way to the host: what it is called and what it consists of.
#ifndef VCAM_SENT_IMAGE_H
#define VCAM_SENT_IMAGE_H

#include <vector>

#include "image_geometry.h"

namespace vcam {

struct SentImage
{
    std::uint64_t frame = 0;   // counts from 0 in every run: content and faults go by it
    std::uint64_t blockId = 0; // what the wire says
    std::uint64_t timestamp = 0;
    ImageGeometry geometry;
    std::uint32_t rows = 0; // of this image, at most the height that the leader announces

    std::uint16_t payloadType = 1;
    std::size_t leaderSize = 0; // without padding
    std::size_t trailerSize = 0;
    std::uint32_t layoutId = 0; // of the chunks

    // The payload: what stands before the pixels, the pixels, what stands behind them.
    std::vector<std::uint8_t> head;
    std::size_t pixelBytes = 0;
    std::vector<std::uint8_t> tail;

    std::size_t Size() const { return head.size() + pixelBytes + tail.size(); }
};

} // namespace vcam

#endif
