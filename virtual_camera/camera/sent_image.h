// One image on its way to the host: what it is called and what it consists of.
#ifndef VCAM_SENT_IMAGE_H
#define VCAM_SENT_IMAGE_H

#include "image_geometry.h"

namespace vcam {

struct SentImage
{
    std::uint64_t frame = 0;   // counts from 0 in every run: content and faults go by it
    std::uint64_t blockId = 0; // what the wire says
    std::uint64_t timestamp = 0;
    ImageGeometry geometry;
    std::uint32_t rows = 0; // of this image, at most the height that the leader announces
    std::size_t size = 0;   // bytes of payload
};

} // namespace vcam

#endif
