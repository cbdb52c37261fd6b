#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

// An image as this program works on it: samples side by side, grey (1 channel) or red, green, blue
// (3 channels), each with `bits` significant bits.
struct Raster
{
    size_t width = 0;
    size_t height = 0;
    unsigned channels = 1;
    unsigned bits = 8;
    std::vector<uint16_t> samples;

    size_t Index(size_t x, size_t y, unsigned channel = 0) const
    {
        return (y * width + x) * channels + channel;
    }
    uint16_t Maximum() const { return static_cast<uint16_t>((1U << bits) - 1); }
};

// Same picture with 8 significant bits.
Raster ReducedTo8(Raster image);
// Grey from colour (by luminance) and colour from grey; an image that already is so comes back.
Raster AsGrey(Raster image);
Raster AsColour(Raster image);
// How often each of 256 brightness steps occurs, a channel at a time: result[channel][step].
std::vector<std::vector<uint32_t>> Histogram(const Raster& image);
