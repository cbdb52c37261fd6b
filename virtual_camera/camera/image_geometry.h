// Size and pixel format of the images that the camera makes at present.
#ifndef VCAM_IMAGE_GEOMETRY_H
#define VCAM_IMAGE_GEOMETRY_H

#include "pixel_format.h"

namespace vcam {

struct ImageGeometry
{
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint32_t offsetX = 0;
    std::uint32_t offsetY = 0;
    const PixelFormat* format = nullptr; // never null in a camera that runs
    std::size_t extra = 0;               // bytes of the payload behind the image
    std::uint16_t paddingX = 0;          // bytes behind every row

    // With padding every row begins at a byte of its own.
    std::size_t RowBytes() const { return ImageBytes(*format, width, 1) + paddingX; }
    std::size_t Bytes(std::uint32_t rows) const
    {
        return paddingX == 0 ? ImageBytes(*format, width, rows) : RowBytes() * rows;
    }
    std::size_t Payload() const { return Bytes(height) + extra; }
    bool operator==(const ImageGeometry&) const = default;
};

} // namespace vcam

#endif
