#include "png_image.h"

#include <png.h>
#include <stdexcept>

namespace {
constexpr uint64_t kMono8 = 0x01080001;
constexpr uint64_t kRgb8 = 0x02180014;

png_uint_32 PngFormatOf(uint64_t pixelFormat)
{
    switch (pixelFormat) {
    case kMono8: return PNG_FORMAT_GRAY;
    case kRgb8: return PNG_FORMAT_RGB;
    default: throw std::runtime_error("no PNG for pixel format " + std::to_string(pixelFormat));
    }
}
} // namespace

void WritePng(const std::string& path, const uint8_t* pixels, size_t width, size_t height,
              uint64_t pixelFormat)
{
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(width);
    image.height = static_cast<png_uint_32>(height);
    image.format = PngFormatOf(pixelFormat);
    // Stride 0: the lines follow each other without padding.
    if (png_image_write_to_file(&image, path.c_str(), 0, pixels, 0, nullptr) == 0) {
        throw std::runtime_error(path + ": " + image.message);
    }
}
