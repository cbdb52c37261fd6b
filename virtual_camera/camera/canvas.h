// A picture in RGB, and its conversion to any pixel format of the camera.
#ifndef VCAM_CANVAS_H
#define VCAM_CANVAS_H

#include <cstdint>
#include <vector>

#include "pixel_format.h"

namespace vcam {

struct Color
{
    std::uint8_t r = 0;
    std::uint8_t g = 0;
    std::uint8_t b = 0;
};

// Mixes from a to b; weight 0..256.
inline Color Mix(Color a, Color b, int weight)
{
    const auto one = [weight](int from, int to) {
        return static_cast<std::uint8_t>(from + (to - from) * weight / 256);
    };
    return {one(a.r, b.r), one(a.g, b.g), one(a.b, b.b)};
}

class Canvas
{
public:
    Canvas(int width, int height);

    int Width() const { return m_width; }
    int Height() const { return m_height; }
    Color& At(int x, int y) { return m_pixels[Index(x, y)]; }
    const Color& At(int x, int y) const { return m_pixels[Index(x, y)]; }
    // Lays a color over a pixel; outside the canvas nothing happens. Weight 0..256.
    void Blend(int x, int y, Color color, int weight);

private:
    std::size_t Index(int x, int y) const
    {
        return static_cast<std::size_t>(y) * static_cast<std::size_t>(m_width) +
               static_cast<std::size_t>(x);
    }

    int m_width;
    int m_height;
    std::vector<Color> m_pixels;
};

// Writes the picture as ImageBytes() bytes of the pixel format.
void Convert(const Canvas& canvas, const PixelFormat& format, std::uint8_t* image);

} // namespace vcam

#endif
