#include "tool_raster.h"

namespace {

// Weights of ITU-R BT.601 in 1/65536; they add up to 65536.
constexpr uint32_t kRed = 19595;
constexpr uint32_t kGreen = 38470;
constexpr uint32_t kBlue = 7471;

} // namespace

// The upper bits stay: bright stays bright.
Raster ReducedTo8(Raster image)
{
    if (image.bits > 8) {
        const unsigned shift = image.bits - 8;
        for (uint16_t& sample : image.samples) {
            sample = static_cast<uint16_t>(sample >> shift);
        }
        image.bits = 8;
    }
    return image;
}

Raster AsGrey(Raster image)
{
    if (image.channels == 1) {
        return image;
    }
    // In place: a grey sample is written where the reading has passed already.
    const size_t pixels = image.width * image.height;
    for (size_t i = 0; i < pixels; i++) {
        const uint16_t* const rgb = &image.samples[3 * i];
        const uint32_t sum = kRed * rgb[0] + kGreen * rgb[1] + kBlue * rgb[2];
        image.samples[i] = static_cast<uint16_t>(sum >> 16U);
    }
    image.samples.resize(pixels);
    image.channels = 1;
    return image;
}

Raster AsColour(Raster image)
{
    if (image.channels == 3) {
        return image;
    }
    std::vector<uint16_t> colour;
    colour.reserve(image.samples.size() * 3);
    for (const uint16_t sample : image.samples) {
        colour.insert(colour.end(), 3, sample);
    }
    image.samples = std::move(colour);
    image.channels = 3;
    return image;
}

// 256 classes whatever the depth; channels take turns in the samples.
std::vector<std::vector<uint32_t>> Histogram(const Raster& image)
{
    std::vector<std::vector<uint32_t>> counts(image.channels, std::vector<uint32_t>(256));
    const unsigned shift = image.bits > 8 ? image.bits - 8 : 0;
    unsigned channel = 0;
    for (const uint16_t sample : image.samples) {
        counts[channel][(sample >> shift) & 0xFFU]++;
        channel = channel + 1 == image.channels ? 0 : channel + 1;
    }
    return counts;
}
