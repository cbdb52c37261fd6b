#include "tool_pixel_format.h"

#include <algorithm>

#include "tool_console.h"
#include "tool_error.h"

namespace {

using Layout = PixelFormat::Layout;
using Meaning = PixelFormat::Meaning;

// Codes of the Pixel Format Naming Convention, 32 bits. Bits 16 to 23 are the bits per pixel.
constexpr PixelFormat kFormats[] = {
    {"Mono8", 0x01080001, Layout::Bytes8, Meaning::Grey, 8},
    {"Mono10", 0x01100003, Layout::Words16, Meaning::Grey, 10},
    {"Mono12", 0x01100005, Layout::Words16, Meaning::Grey, 12},
    {"Mono14", 0x01100025, Layout::Words16, Meaning::Grey, 14},
    {"Mono16", 0x01100007, Layout::Words16, Meaning::Grey, 16},
    {"Mono10p", 0x010A0046, Layout::PackedLsb, Meaning::Grey, 10},
    {"Mono12p", 0x010C0047, Layout::PackedLsb, Meaning::Grey, 12},
    {"Mono12Packed", 0x010C0006, Layout::Packed12Gev, Meaning::Grey, 12},
    {"BayerGR8", 0x01080008, Layout::Bytes8, Meaning::BayerGr, 8},
    {"BayerRG8", 0x01080009, Layout::Bytes8, Meaning::BayerRg, 8},
    {"BayerGB8", 0x0108000A, Layout::Bytes8, Meaning::BayerGb, 8},
    {"BayerBG8", 0x0108000B, Layout::Bytes8, Meaning::BayerBg, 8},
    {"BayerGR10", 0x0110000C, Layout::Words16, Meaning::BayerGr, 10},
    {"BayerRG10", 0x0110000D, Layout::Words16, Meaning::BayerRg, 10},
    {"BayerGB10", 0x0110000E, Layout::Words16, Meaning::BayerGb, 10},
    {"BayerBG10", 0x0110000F, Layout::Words16, Meaning::BayerBg, 10},
    {"BayerGR12", 0x01100010, Layout::Words16, Meaning::BayerGr, 12},
    {"BayerRG12", 0x01100011, Layout::Words16, Meaning::BayerRg, 12},
    {"BayerGB12", 0x01100012, Layout::Words16, Meaning::BayerGb, 12},
    {"BayerBG12", 0x01100013, Layout::Words16, Meaning::BayerBg, 12},
    {"BayerGR12p", 0x010C0057, Layout::PackedLsb, Meaning::BayerGr, 12},
    {"BayerRG12p", 0x010C0059, Layout::PackedLsb, Meaning::BayerRg, 12},
    {"BayerGB12p", 0x010C0055, Layout::PackedLsb, Meaning::BayerGb, 12},
    {"BayerBG12p", 0x010C0053, Layout::PackedLsb, Meaning::BayerBg, 12},
    {"BayerGR16", 0x0110002E, Layout::Words16, Meaning::BayerGr, 16},
    {"BayerRG16", 0x0110002F, Layout::Words16, Meaning::BayerRg, 16},
    {"BayerGB16", 0x01100030, Layout::Words16, Meaning::BayerGb, 16},
    {"BayerBG16", 0x01100031, Layout::Words16, Meaning::BayerBg, 16},
    {"RGB8", 0x02180014, Layout::Bytes8, Meaning::Rgb, 8},
    {"BGR8", 0x02180015, Layout::Bytes8, Meaning::Bgr, 8},
    {"YUV422_8", 0x02100032, Layout::Yuyv, Meaning::Yuv, 8},
    {"YUV422_8_UYVY", 0x0210001F, Layout::Uyvy, Meaning::Yuv, 8},
};

// Larger than any sensor; keeps every product below within 64 bits.
constexpr uint64_t kMaximumSide = 1U << 20U;

size_t SamplesPerPixel(const PixelFormat& format)
{
    return format.meaning == Meaning::Rgb || format.meaning == Meaning::Bgr ? 3 : 1;
}

// Sample `index` of a bit stream; `bits` is at most 16, so three bytes always hold it.
uint16_t PackedSample(std::span<const uint8_t> bytes, size_t index, unsigned bits)
{
    const size_t first = index * bits;
    uint32_t window = 0;
    for (unsigned i = 0; i < 3 && first / 8 + i < bytes.size(); i++) {
        window |= uint32_t{bytes[first / 8 + i]} << (8 * i);
    }
    return static_cast<uint16_t>((window >> (first % 8)) & ((1U << bits) - 1));
}

// Two samples of 12 bits: eight high bits of the first, the low nibbles of both, eight high bits.
uint16_t Gev12Sample(std::span<const uint8_t> bytes, size_t index)
{
    const size_t triple = index / 2 * 3;
    const uint8_t low = triple + 1 < bytes.size() ? bytes[triple + 1] : 0;
    if (index % 2 == 0) {
        return static_cast<uint16_t>(uint32_t{bytes[triple]} << 4U | (low & 0x0FU));
    }
    return static_cast<uint16_t>(uint32_t{bytes[triple + 2]} << 4U | uint32_t{low} >> 4U);
}

// `bytes` holds at least `count` samples: the caller has compared them.
std::vector<uint16_t> Samples(const PixelFormat& format, std::span<const uint8_t> bytes,
                              size_t count)
{
    std::vector<uint16_t> samples(count);
    const uint32_t mask = (1U << format.bits) - 1; // whatever a camera leaves in the unused bits
    for (size_t i = 0; i < count; i++) {
        switch (format.layout) {
        case Layout::Words16:
            samples[i] =
                static_cast<uint16_t>((bytes[2 * i] | uint32_t{bytes[2 * i + 1]} << 8U) & mask);
            break;
        case Layout::PackedLsb: samples[i] = PackedSample(bytes, i, format.bits); break;
        case Layout::Packed12Gev: samples[i] = Gev12Sample(bytes, i); break;
        default: samples[i] = bytes[i]; break;
        }
    }
    return samples;
}

uint16_t Clamped(int value)
{
    return static_cast<uint16_t>(std::clamp(value, 0, 255));
}

// Full-range BT.601 in 1/65536, as the PFNC has YUV.
void StoreYuv(int y, int u, int v, uint16_t* rgb)
{
    constexpr int kHalf = 1 << 15;
    const int red = 91881 * (v - 128);
    const int green = -22554 * (u - 128) - 46802 * (v - 128);
    const int blue = 116130 * (u - 128);
    rgb[0] = Clamped(y + ((red + kHalf) >> 16));
    rgb[1] = Clamped(y + ((green + kHalf) >> 16));
    rgb[2] = Clamped(y + ((blue + kHalf) >> 16));
}

Raster DecodeYuv(const PixelFormat& format, const RawImage& image)
{
    Raster raster{image.width, image.height, 3, 8, {}};
    const size_t pixels = raster.width * raster.height;
    raster.samples.resize(pixels * 3);
    // Where luminance begins in a group of four bytes; chrominance takes the other places.
    const size_t luma = format.layout == Layout::Yuyv ? 0 : 1;
    for (size_t i = 0; i < pixels; i++) {
        const size_t group = i / 2 * 4;
        const size_t blue = group + 1 - luma;
        const size_t red = blue + 2;
        const int v = red < image.bytes.size() ? image.bytes[red] : 128; // half a group at the end
        StoreYuv(image.bytes[2 * i + luma], image.bytes[blue], v, &raster.samples[3 * i]);
    }
    return raster;
}

// Which colour of the filter lies over a pixel: 0 red, 1 green, 2 blue.
unsigned FilterColour(Meaning meaning, size_t x, size_t y)
{
    const bool redInEvenRow = meaning == Meaning::BayerGr || meaning == Meaning::BayerRg;
    const bool greenFirst = meaning == Meaning::BayerGr || meaning == Meaning::BayerGb;
    const bool isGreen = ((x + y) % 2 == 0) == greenFirst;
    const bool inRedRow = (y % 2 == 0) == redInEvenRow;
    return isGreen ? 1 : inRedRow ? 0 : 2;
}

// Each missing colour is the mean of its neighbours among the eight around. At the border there are
// fewer, so each one is looked at.
void DemosaicBorder(const Raster& mosaic, Meaning meaning, size_t x, size_t y, uint16_t* rgb)
{
    uint32_t sum[3] = {};
    uint32_t count[3] = {};
    for (size_t ny = y - (y > 0 ? 1 : 0); ny <= std::min(y + 1, mosaic.height - 1); ny++) {
        for (size_t nx = x - (x > 0 ? 1 : 0); nx <= std::min(x + 1, mosaic.width - 1); nx++) {
            const unsigned colour = FilterColour(meaning, nx, ny);
            sum[colour] += mosaic.samples[mosaic.Index(nx, ny)];
            count[colour]++;
        }
    }
    for (unsigned colour = 0; colour < 3; colour++) {
        rgb[colour] = static_cast<uint16_t>(sum[colour] / std::max<uint32_t>(count[colour], 1));
    }
    rgb[FilterColour(meaning, x, y)] = mosaic.samples[mosaic.Index(x, y)];
}

uint16_t MeanOfTwo(uint32_t a, uint32_t b)
{
    return static_cast<uint16_t>((a + b) / 2);
}

uint16_t MeanOfFour(uint32_t a, uint32_t b, uint32_t c, uint32_t d)
{
    return static_cast<uint16_t>((a + b + c + d) / 4);
}

// The same for a row that has neighbours on all sides, from the second sample to the last but one:
// what lies around a sample repeats every other column, and this is where the time goes in an image
// of millions.
void DemosaicInside(const Raster& mosaic, Meaning meaning, size_t y, uint16_t* rgb)
{
    const uint16_t* const row = &mosaic.samples[mosaic.Index(0, y)];
    const uint16_t* const above = row - mosaic.width;
    const uint16_t* const below = row + mosaic.width;
    for (size_t x = 1; x + 1 < mosaic.width; x++) {
        uint16_t* const pixel = rgb + 3 * x;
        const unsigned own = FilterColour(meaning, x, y);
        pixel[own] = row[x];
        if (own == 1) { // green: one colour beside it, the other one above and below
            const unsigned colour = FilterColour(meaning, x + 1, y);
            pixel[colour] = MeanOfTwo(row[x - 1], row[x + 1]);
            pixel[2 - colour] = MeanOfTwo(above[x], below[x]);
        } else { // green on four sides, the other colour at four corners
            pixel[1] = MeanOfFour(row[x - 1], row[x + 1], above[x], below[x]);
            pixel[2 - own] = MeanOfFour(above[x - 1], above[x + 1], below[x - 1], below[x + 1]);
        }
    }
}

Raster Demosaiced(const Raster& mosaic, Meaning meaning)
{
    Raster raster{mosaic.width, mosaic.height, 3, mosaic.bits, {}};
    raster.samples.resize(mosaic.samples.size() * 3);
    for (size_t y = 0; y < mosaic.height; y++) {
        const bool isInside = y > 0 && y + 1 < mosaic.height && mosaic.width > 2;
        uint16_t* const row = &raster.samples[raster.Index(0, y)];
        if (isInside) {
            DemosaicInside(mosaic, meaning, y, row);
        }
        for (size_t x = 0; x < mosaic.width; x += isInside ? mosaic.width - 1 : 1) {
            DemosaicBorder(mosaic, meaning, x, y, row + 3 * x);
        }
    }
    return raster;
}

} // namespace

std::span<const PixelFormat> PixelFormats()
{
    return kFormats;
}

const PixelFormat* FindPixelFormat(uint64_t code)
{
    const auto* const found =
        std::find_if(std::begin(kFormats), std::end(kFormats),
                     [code](const PixelFormat& format) { return format.code == code; });
    return found == std::end(kFormats) ? nullptr : found;
}

std::string PixelFormatName(uint64_t code)
{
    const PixelFormat* const format = FindPixelFormat(code);
    return format != nullptr ? format->name
                             : Format("0x%08llX", static_cast<unsigned long long>(code));
}

// 0 for what cannot be an image: an unknown format, or sides that no sensor has.
size_t ImageBytes(const RawImage& image)
{
    const PixelFormat* const format = FindPixelFormat(image.pixelFormat);
    if (format == nullptr || image.width > kMaximumSide || image.height > kMaximumSide) {
        return 0;
    }
    return (image.width * image.height * format->BitsPerPixel() + 7) / 8;
}

// Sizes come from the camera and are held against the bytes that are there before anything is read.
Raster Decode(const RawImage& image, bool demosaic)
{
    const PixelFormat* const format = FindPixelFormat(image.pixelFormat);
    if (format == nullptr) {
        throw ToolError(ExitCode::Failure, "pixel format " + PixelFormatName(image.pixelFormat) +
                                               " cannot be shown; raw files keep it as it is");
    }
    const size_t needed = ImageBytes(image);
    if (needed == 0 || needed > image.bytes.size()) {
        throw ToolError(ExitCode::Failure,
                        Format("an image of %llu x %llu pixels %s does not fit its %zu bytes",
                               static_cast<unsigned long long>(image.width),
                               static_cast<unsigned long long>(image.height), format->name,
                               image.bytes.size()));
    }
    if (format->meaning == Meaning::Yuv) {
        return DecodeYuv(*format, image);
    }
    const size_t perPixel = SamplesPerPixel(*format);
    Raster raster{image.width, image.height, static_cast<unsigned>(perPixel), format->bits,
                  Samples(*format, image.bytes, image.width * image.height * perPixel)};
    if (format->meaning == Meaning::Bgr) {
        for (size_t i = 0; i < raster.samples.size(); i += 3) {
            std::swap(raster.samples[i], raster.samples[i + 2]);
        }
    }
    return format->IsBayer() && demosaic ? Demosaiced(raster, format->meaning) : raster;
}
