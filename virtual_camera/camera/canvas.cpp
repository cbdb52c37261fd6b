#include "canvas.h"

#include <string_view>

#include "little_endian.h"

namespace vcam {

namespace {

unsigned Luma(Color c)
{
    return (77U * c.r + 150U * c.g + 29U * c.b) >> 8;
}

// The luma widened to so many bits; the lower bits repeat the upper ones.
std::uint16_t Wide(Color c, unsigned bits)
{
    const unsigned full = Luma(c) * 257U;
    return static_cast<std::uint16_t>(full >> (16 - bits));
}

template <typename PutPixel>
void ForEach(const Canvas& canvas, PutPixel put)
{
    for (int y = 0; y < canvas.Height(); ++y) {
        for (int x = 0; x < canvas.Width(); ++x) {
            put(canvas.At(x, y), x, y);
        }
    }
}

void PutUnpacked(const Canvas& canvas, unsigned bits, std::uint8_t* out)
{
    ForEach(canvas, [&out, bits](Color c, int, int) {
        StoreLe<std::uint16_t>(out, Wide(c, bits));
        out += 2;
    });
}

// Two pixels in three bytes, lowest bits first; rows follow each other without a gap.
void PutPacked12(const Canvas& canvas, std::uint8_t* out)
{
    bool second = false;
    ForEach(canvas, [&](Color c, int, int) {
        const unsigned value = Wide(c, 12);
        if (second) {
            *out = static_cast<std::uint8_t>(*out | (value << 4));
            *++out = static_cast<std::uint8_t>(value >> 4);
            ++out;
        } else {
            *out++ = static_cast<std::uint8_t>(value);
            *out = static_cast<std::uint8_t>(value >> 8);
        }
        second = !second;
    });
}

// Where red lies in the 2 x 2 cell of the filter: x in bit 0, y in bit 1.
int RedPlace(std::string_view name)
{
    if (name == "BayerRG8") {
        return 0;
    }
    if (name == "BayerGR8") {
        return 1;
    }
    return name == "BayerGB8" ? 2 : 3;
}

void PutBayer(const Canvas& canvas, int red, std::uint8_t* out)
{
    ForEach(canvas, [&out, red](Color c, int x, int y) {
        const int place = ((x & 1) | (y & 1) << 1) ^ red;
        *out++ = place == 0 ? c.r : place == 3 ? c.b : c.g;
    });
}

void PutColor(const Canvas& canvas, bool redFirst, std::uint8_t* out)
{
    ForEach(canvas, [&out, redFirst](Color c, int, int) {
        *out++ = redFirst ? c.r : c.b;
        *out++ = c.g;
        *out++ = redFirst ? c.b : c.r;
    });
}

// Luma and, alternating, the two color differences.
void PutYuv(const Canvas& canvas, std::uint8_t* out)
{
    ForEach(canvas, [&out](Color c, int x, int) {
        const int u = (-43 * c.r - 85 * c.g + 128 * c.b) / 256 + 128;
        const int v = (128 * c.r - 107 * c.g - 21 * c.b) / 256 + 128;
        *out++ = static_cast<std::uint8_t>(Luma(c));
        *out++ = static_cast<std::uint8_t>((x & 1) == 0 ? u : v);
    });
}

} // namespace

Canvas::Canvas(int width, int height)
    : m_width(width), m_height(height),
      m_pixels(static_cast<std::size_t>(width) * static_cast<std::size_t>(height))
{
}

void Canvas::Blend(int x, int y, Color color, int weight)
{
    if (x >= 0 && y >= 0 && x < m_width && y < m_height) {
        Color& pixel = At(x, y);
        pixel = Mix(pixel, color, weight);
    }
}

void Convert(const Canvas& canvas, const PixelFormat& format, std::uint8_t* image)
{
    const std::string_view name = format.name;
    if (name == "Mono8") {
        ForEach(canvas,
                [&image](Color c, int, int) { *image++ = static_cast<std::uint8_t>(Luma(c)); });
    } else if (name == "Mono12p") {
        PutPacked12(canvas, image);
    } else if (name.starts_with("Mono")) {
        PutUnpacked(canvas, name == "Mono10" ? 10 : name == "Mono12" ? 12 : 16, image);
    } else if (name.starts_with("Bayer")) {
        PutBayer(canvas, RedPlace(name), image);
    } else if (name == "YUV422_8") {
        PutYuv(canvas, image);
    } else {
        PutColor(canvas, name == "RGB8", image);
    }
}

} // namespace vcam
