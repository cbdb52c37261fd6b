#include "tool_pixel_format.h"

#include <gtest/gtest.h>

#include "tool_error.h"

namespace {

using Bytes = std::vector<uint8_t>;
using Samples = std::vector<uint16_t>;

constexpr uint64_t kMono8 = 0x01080001;
constexpr uint64_t kMono10 = 0x01100003;
constexpr uint64_t kMono10p = 0x010A0046;
constexpr uint64_t kMono12p = 0x010C0047;
constexpr uint64_t kMono12Packed = 0x010C0006;
constexpr uint64_t kBayerRg8 = 0x01080009;
constexpr uint64_t kRgb8 = 0x02180014;
constexpr uint64_t kBgr8 = 0x02180015;
constexpr uint64_t kYuv422 = 0x02100032;
constexpr uint64_t kYuv422Uyvy = 0x0210001F;

Raster DecodeBytes(uint64_t format, size_t width, size_t height, const Bytes& bytes,
                   bool demosaic = true)
{
    return Decode({bytes, width, height, format}, demosaic);
}

TEST(PixelFormat, Mono8_IsTaken)
{
    const Raster raster = DecodeBytes(kMono8, 2, 2, {1, 2, 3, 255});
    EXPECT_EQ(raster.channels, 1u);
    EXPECT_EQ(raster.bits, 8u);
    EXPECT_EQ(raster.samples, (Samples{1, 2, 3, 255}));
}

TEST(PixelFormat, Mono10_IsLittleEndianWords)
{
    const Raster raster = DecodeBytes(kMono10, 2, 1, {0xFF, 0x03, 0x01, 0x02});
    EXPECT_EQ(raster.bits, 10u);
    EXPECT_EQ(raster.samples, (Samples{0x3FF, 0x201}));
}

TEST(PixelFormat, Mono12p_FillsBytesFromTheLowestBit)
{
    // 0xABC, 0x123, 0x456 as a bit stream.
    EXPECT_EQ(DecodeBytes(kMono12p, 3, 1, {0xBC, 0x3A, 0x12, 0x56, 0x04}).samples,
              (Samples{0xABC, 0x123, 0x456}));
}

TEST(PixelFormat, Mono10p_FillsBytesFromTheLowestBit)
{
    // 0x3FF, 0x000, 0x2AA, 0x155: 4 samples in 5 bytes.
    EXPECT_EQ(DecodeBytes(kMono10p, 4, 1, {0xFF, 0x03, 0xA0, 0x6A, 0x55}).samples,
              (Samples{0x3FF, 0x000, 0x2AA, 0x155}));
}

TEST(PixelFormat, PackedRows_GoOnWhereTheLastOneEnded)
{
    EXPECT_EQ(DecodeBytes(kMono12p, 1, 2, {0xBC, 0x3A, 0x12}).samples, (Samples{0xABC, 0x123}));
}

TEST(PixelFormat, Mono12Packed_HasTheLowNibblesInTheMiddle)
{
    EXPECT_EQ(DecodeBytes(kMono12Packed, 2, 1, {0xAB, 0x3C, 0x12}).samples,
              (Samples{0xABC, 0x123}));
}

TEST(PixelFormat, Bgr_BecomesRgb)
{
    EXPECT_EQ(DecodeBytes(kRgb8, 1, 1, {1, 2, 3}).samples, (Samples{1, 2, 3}));
    EXPECT_EQ(DecodeBytes(kBgr8, 2, 1, {1, 2, 3, 4, 5, 6}).samples, (Samples{3, 2, 1, 6, 5, 4}));
}

TEST(PixelFormat, Yuv422_GreyStaysGrey)
{
    EXPECT_EQ(DecodeBytes(kYuv422, 2, 1, {10, 128, 200, 128}).samples,
              (Samples{10, 10, 10, 200, 200, 200}));
    EXPECT_EQ(DecodeBytes(kYuv422Uyvy, 2, 1, {128, 10, 128, 200}).samples,
              (Samples{10, 10, 10, 200, 200, 200}));
}

TEST(PixelFormat, Yuv422_PureColours)
{
    // BT.601, full range: red is 76, 85, 255 and blue 29, 255, 107, each but for rounding.
    const Samples red = DecodeBytes(kYuv422, 2, 1, {76, 85, 76, 255}).samples;
    EXPECT_NEAR(red[0], 254, 1);
    EXPECT_NEAR(red[1], 0, 1);
    EXPECT_NEAR(red[2], 0, 1);
    const Samples blue = DecodeBytes(kYuv422, 2, 1, {29, 255, 29, 107}).samples;
    EXPECT_NEAR(blue[0], 0, 1);
    EXPECT_NEAR(blue[1], 0, 1);
    EXPECT_NEAR(blue[2], 254, 1);
}

TEST(PixelFormat, Yuv422_OddWidthEndsWithHalfAGroup)
{
    EXPECT_EQ(DecodeBytes(kYuv422, 1, 1, {50, 128}).samples, (Samples{50, 50, 50}));
}

TEST(PixelFormat, Bayer_UniformColourComesOutEverywhere)
{
    // RG/GB with red 200, green 100, blue 50 under its filters.
    const Bytes mosaic{200, 100, 200, 100, 100, 50, 100, 50, 200, 100, 200, 100, 100, 50, 100, 50};
    const Raster raster = DecodeBytes(kBayerRg8, 4, 4, mosaic);
    ASSERT_EQ(raster.channels, 3u);
    for (size_t i = 0; i < 16; i++) {
        EXPECT_EQ(raster.samples[3 * i], 200) << i;
        EXPECT_EQ(raster.samples[3 * i + 1], 100) << i;
        EXPECT_EQ(raster.samples[3 * i + 2], 50) << i;
    }
}

TEST(PixelFormat, Bayer_EveryPhaseFindsItsRed)
{
    const struct
    {
        uint64_t format;
        size_t red; // place of the red filter in the first two by two pixels
    } phases[] = {{0x01080009, 0}, {0x01080008, 1}, {0x0108000A, 2}, {0x0108000B, 3}};
    for (const auto& phase : phases) {
        Bytes mosaic(4, 0);
        mosaic[phase.red] = 240;
        const Raster raster = DecodeBytes(phase.format, 2, 2, mosaic);
        for (size_t i = 0; i < 4; i++) {
            EXPECT_EQ(raster.samples[3 * i], 240) << PixelFormatName(phase.format);
            EXPECT_EQ(raster.samples[3 * i + 1], 0) << PixelFormatName(phase.format);
            EXPECT_EQ(raster.samples[3 * i + 2], 0) << PixelFormatName(phase.format);
        }
    }
}

// The colours of the four formats' cells, row by row, and the rule as it is written down: what a
// pixel lacks is the mean of that colour among its up to eight neighbours.
uint16_t Demosaiced(const Bytes& mosaic, size_t width, size_t height, const char* cell, size_t x,
                    size_t y, char colour)
{
    const auto filter = [&](size_t column, size_t row) { return cell[row % 2 * 2 + column % 2]; };
    if (filter(x, y) == colour) {
        return mosaic[y * width + x];
    }
    unsigned sum = 0;
    unsigned count = 0;
    for (size_t row = 0; row < height; row++) {
        for (size_t column = 0; column < width; column++) {
            const bool isNear = row + 1 >= y && row <= y + 1 && column + 1 >= x && column <= x + 1;
            if (isNear && filter(column, row) == colour) {
                sum += mosaic[row * width + column];
                count++;
            }
        }
    }
    return static_cast<uint16_t>(count == 0 ? 0 : sum / count);
}

TEST(PixelFormat, Bayer_EverySampleIsTheMeanOfItsNeighbours)
{
    const std::pair<uint64_t, const char*> formats[] = {
        {0x01080008, "GRBG"}, {0x01080009, "RGGB"}, {0x0108000A, "GBRG"}, {0x0108000B, "BGGR"}};
    const std::pair<size_t, size_t> sizes[] = {{1, 1}, {1, 5}, {5, 1}, {2, 2}, {2, 6},
                                               {3, 3}, {6, 2}, {7, 5}, {8, 6}};
    uint32_t random = 1;
    for (const auto& [format, cell] : formats) {
        for (const auto& [width, height] : sizes) {
            Bytes mosaic(width * height);
            for (uint8_t& byte : mosaic) {
                random = random * 1664525 + 1013904223;
                byte = static_cast<uint8_t>(random >> 24U);
            }
            const Raster raster = DecodeBytes(format, width, height, mosaic);
            for (size_t i = 0; i < raster.samples.size(); i++) {
                const size_t pixel = i / 3;
                EXPECT_EQ(raster.samples[i], Demosaiced(mosaic, width, height, cell, pixel % width,
                                                        pixel / width, "RGB"[i % 3]))
                    << cell << " " << width << "x" << height << " sample " << i;
            }
        }
    }
}

TEST(PixelFormat, Bayer_WithoutDemosaicingStaysAMosaic)
{
    const Raster raster = DecodeBytes(kBayerRg8, 2, 1, {1, 2}, false);
    EXPECT_EQ(raster.channels, 1u);
    EXPECT_EQ(raster.samples, (Samples{1, 2}));
}

TEST(PixelFormat, Bayer_OnePixelIsNoTrouble)
{
    EXPECT_EQ(DecodeBytes(kBayerRg8, 1, 1, {9}).samples, (Samples{9, 0, 0}));
}

TEST(PixelFormat, ImageLargerThanItsBytes_IsRefused)
{
    for (const PixelFormat& format : PixelFormats()) {
        const Bytes bytes((4 * 3 * format.BitsPerPixel() + 7) / 8 - 1);
        EXPECT_THROW(DecodeBytes(format.code, 4, 3, bytes), ToolError) << format.name;
    }
}

TEST(PixelFormat, AbsurdDimensions_AreRefused)
{
    const Bytes bytes(16);
    for (const uint64_t side : {uint64_t{0}, uint64_t{1} << 32U, ~uint64_t{0}}) {
        EXPECT_THROW(Decode({bytes, side, 2, kMono8}, true), ToolError) << side;
        EXPECT_THROW(Decode({bytes, 2, side, kMono8}, true), ToolError) << side;
    }
}

TEST(PixelFormat, UnknownFormat_IsRefusedByItsNumber)
{
    const Bytes bytes(16);
    EXPECT_EQ(PixelFormatName(0x01080099), "0x01080099");
    EXPECT_THROW(Decode({bytes, 1, 1, 0x01080099}, true), ToolError);
}

// Every format decodes what exactly fits, odd sizes included; the sanitizers watch.
TEST(PixelFormat, EveryFormat_TakesExactlyItsBytes)
{
    for (const PixelFormat& format : PixelFormats()) {
        for (const size_t width : {1U, 2U, 3U, 5U}) {
            const Bytes bytes((width * 3 * format.BitsPerPixel() + 7) / 8, 0x5A);
            const Raster raster = DecodeBytes(format.code, width, 3, bytes);
            EXPECT_EQ(raster.samples.size(), width * 3 * raster.channels) << format.name;
            for (const uint16_t sample : raster.samples) {
                EXPECT_LE(sample, raster.Maximum()) << format.name;
            }
        }
    }
}

TEST(Raster, ReducedAndConverted)
{
    EXPECT_EQ(ReducedTo8({1, 1, 1, 12, {0xABC}}).samples, (Samples{0xAB}));
    EXPECT_EQ(AsColour({1, 1, 1, 8, {7}}).samples, (Samples{7, 7, 7}));
    EXPECT_EQ(AsGrey({1, 1, 3, 8, {255, 255, 255}}).samples, (Samples{255}));
    EXPECT_NEAR(AsGrey({1, 1, 3, 8, {255, 0, 0}}).samples[0], 76, 1);
}

TEST(Raster, HistogramCountsEachChannel)
{
    const auto histogram = Histogram({2, 1, 3, 10, {0, 4, 1023, 3, 4, 0}});
    ASSERT_EQ(histogram.size(), 3u);
    EXPECT_EQ(histogram[0][0], 2u);
    EXPECT_EQ(histogram[1][1], 2u);
    EXPECT_EQ(histogram[2][255], 1u);
    EXPECT_EQ(histogram[2][0], 1u);
}

} // namespace
