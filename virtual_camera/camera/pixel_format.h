// The pixel formats the camera can send.
#ifndef VCAM_PIXEL_FORMAT_H
#define VCAM_PIXEL_FORMAT_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace vcam {

struct PixelFormat
{
    const char* name;
    std::uint32_t code; // PFNC, 32 bit

    std::uint32_t BitsPerPixel() const { return (code >> 16) & 0xFF; }
};

std::span<const PixelFormat> PixelFormats();
const PixelFormat* FindPixelFormat(std::string_view name);
const PixelFormat* FindPixelFormat(std::uint32_t code);

// Bytes of an image without padding; the last byte of a packed image may be half used.
std::size_t ImageBytes(const PixelFormat& format, std::uint32_t width, std::uint32_t height);

} // namespace vcam

#endif
