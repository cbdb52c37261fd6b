#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "tool_raster.h"

// A picture for the screen: red, green, blue, one byte each.
struct Picture
{
    size_t width = 0;
    size_t height = 0;
    std::vector<uint8_t> rgb;
};

struct Colour
{
    uint8_t red;
    uint8_t green;
    uint8_t blue;
};

// An image in 8 bits and colour, each pixel `scale` times as wide and high.
Picture PictureOf(const Raster& image, size_t scale);

// Paints on a picture; what lies outside is cut off.
class Painter
{
public:
    explicit Painter(Picture& picture) : m_picture(picture) {}

    // `opacity` from 0 (nothing) to 256 (covers).
    void Fill(size_t x, size_t y, size_t width, size_t height, Colour colour, unsigned opacity);
    // Glyphs of 5 x 7 dots, each dot `scale` wide; returns the width taken. Letters become capital,
    // and what the font has not is a box.
    size_t Text(size_t x, size_t y, size_t scale, std::string_view text, Colour colour);
    static size_t TextWidth(size_t scale, std::string_view text);
    static size_t TextHeight(size_t scale) { return 7 * scale; }

private:
    void _glyph(size_t x, size_t y, size_t scale, char c, Colour colour);

    Picture& m_picture;
};
