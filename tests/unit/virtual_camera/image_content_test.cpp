// Image content: deterministic, different wherever a mix-up could hide, valid for its pixel format.

#include <set>

#include "camera_host.h"

namespace {

Bytes Image(const std::string& options, std::uint64_t frame)
{
    return CameraHost(options).Expected(frame);
}

} // namespace

TEST(ImageContent, Bytes_AnyPieceEqualsTheWhole)
{
    const vcam::PixelFormat* format = vcam::FindPixelFormat("Mono8");
    vcam::PatternGenerator generator;
    generator.Configure({200, 100, 0, 0, format, 10}, vcam::Pattern::Bytes, 7);
    Bytes whole(20010);
    generator.Fill(3, 0, whole.data(), whole.size());
    for (const std::size_t offset : {0U, 1U, 4095U, 4096U, 4097U, 12000U, 19999U, 20005U}) {
        Bytes piece(std::min<std::size_t>(5000, whole.size() - offset));
        generator.Fill(3, offset, piece.data(), piece.size());
        EXPECT_TRUE(std::equal(piece.begin(), piece.end(),
                               whole.begin() + static_cast<std::ptrdiff_t>(offset)))
            << offset;
    }
    EXPECT_EQ(Bytes(10), Bytes(whole.end() - 10, whole.end()));
}

TEST(ImageContent, Bytes_FramesSeedsAndPiecesDiffer)
{
    std::set<Bytes> pieces;
    for (const char* options : {"seed=1", "seed=2"}) {
        for (std::uint64_t frame = 0; frame < 50; ++frame) {
            const Bytes image = Image(options, frame);
            for (std::size_t at = 0; at + 4096 <= image.size(); at += 65536) {
                pieces.insert(Bytes(image.begin() + static_cast<std::ptrdiff_t>(at),
                                    image.begin() + static_cast<std::ptrdiff_t>(at) + 64));
            }
        }
    }
    EXPECT_LE(2U * 50 * 5 - 3, pieces.size()); // two may share a place by chance
}

TEST(ImageContent, Bytes_NoShiftLooksLikeTheImage)
{
    const Bytes image = Image("width=640,height=100", 1);
    for (std::size_t shift = 1; shift < 5000; ++shift) {
        unsigned equal = 0;
        for (std::size_t i = 0; i < 64; ++i) {
            equal += image[i] == image[i + shift] ? 1U : 0U;
        }
        ASSERT_GT(16U, equal) << shift;
    }
}

TEST(ImageContent, Still_IsTheSameImageWhateverTheTargetHeld)
{
    const vcam::PixelFormat* format = vcam::FindPixelFormat("Mono8");
    vcam::PatternGenerator generator;
    generator.Configure({200, 100, 0, 0, format, 10}, vcam::Pattern::Still, 7);
    vcam::PatternGenerator moving;
    moving.Configure({200, 100, 0, 0, format, 10}, vcam::Pattern::Bytes, 7);
    Bytes wanted(20010);
    moving.Fill(0, 0, wanted.data(), wanted.size());
    for (const int before : {0, 0xFF}) {
        Bytes image(20010, static_cast<std::uint8_t>(before));
        for (const std::uint64_t frame : {0U, 1U, 9U}) {
            generator.Fill(frame, 0, image.data(), 5000);
            generator.Fill(frame, 5000, image.data() + 5000, image.size() - 5000);
            EXPECT_EQ(wanted, image) << before << " " << frame;
        }
    }
}

TEST(ImageContent, WideFormats_KeepUnusedBitsClear)
{
    for (const auto& [format, mask] : {std::pair{"Mono10", 0xFCU}, std::pair{"Mono12", 0xF0U}}) {
        for (const char* pattern : {"bytes", "ramp", "scene"}) {
            const Bytes image = Image(
                std::string("width=64,height=48,format=") + format + ",pattern=" + pattern, 2);
            for (std::size_t i = 1; i < image.size(); i += 2) {
                ASSERT_EQ(0, image[i] & mask) << format << pattern << i;
            }
        }
    }
}

TEST(ImageContent, Ramp_Mono8_CountsAlongRowsColumnsAndFrames)
{
    const Bytes image = Image("width=320,height=20,pattern=ramp,seed=0", 5);
    for (std::size_t y = 0; y < 20; ++y) {
        for (std::size_t x = 0; x < 320; ++x) {
            ASSERT_EQ(static_cast<std::uint8_t>(x + y + 5), image[y * 320 + x]);
        }
    }
}

TEST(ImageContent, Ramp_Mono12p_TwoPixelsInThreeBytes)
{
    const Bytes wide = Image("width=6,height=3,pattern=ramp,format=Mono12", 9);
    const Bytes packed = Image("width=6,height=3,pattern=ramp,format=Mono12p", 9);
    ASSERT_EQ(27U, packed.size());
    for (std::size_t i = 0; i < 18; ++i) {
        const std::size_t at = i * 3 / 2;
        const std::uint64_t value =
            i % 2 == 0 ? Get(packed, at, 2) & 0xFFF : Get(packed, at, 2) >> 4;
        EXPECT_EQ(Get(wide, 2 * i, 2), value) << i;
    }
}

TEST(ImageContent, Scene_Bayer_TakesEachPixelFromTheColorImage)
{
    const Bytes rgb = Image("width=64,height=48,pattern=scene,format=RGB8", 4);
    const Bytes bgr = Image("width=64,height=48,pattern=scene,format=BGR8", 4);
    const std::pair<const char*, const char*> tiles[] = {
        {"BayerRG8", "RGGB"}, {"BayerGR8", "GRBG"}, {"BayerGB8", "GBRG"}, {"BayerBG8", "BGGR"}};
    for (const auto& [format, tile] : tiles) {
        const Bytes bayer =
            Image(std::string("width=64,height=48,pattern=scene,format=") + format, 4);
        for (std::size_t i = 0; i < bayer.size(); ++i) {
            const char color = tile[(i % 64 & 1) + 2 * (i / 64 & 1)];
            const std::size_t channel = color == 'R' ? 0 : color == 'G' ? 1 : 2;
            ASSERT_EQ(rgb[3 * i + channel], bayer[i]) << format << i;
            ASSERT_EQ(rgb[3 * i + channel], bgr[3 * i + 2 - channel]);
        }
    }
}

TEST(ImageContent, Scene_MovesAndIsTheSameAgain)
{
    for (const vcam::PixelFormat& format : vcam::PixelFormats()) {
        const std::string options =
            std::string("width=65,height=49,pattern=scene,format=") + format.name;
        const Bytes image = Image(options, 10);
        EXPECT_EQ((65U * 49 * format.BitsPerPixel() + 7) / 8, image.size()) << format.name;
        EXPECT_EQ(image, Image(options, 10)) << format.name;
        EXPECT_NE(image, Image(options, 12)) << format.name;
    }
}

TEST(ImageContent, Scene_HasContrast)
{
    const Bytes image = Image("width=320,height=240,pattern=scene", 0);
    const auto [low, high] = std::minmax_element(image.begin(), image.end());
    EXPECT_GT(40, *low);
    EXPECT_LT(180, *high);
    EXPECT_LT(100U, std::set<std::uint8_t>(image.begin(), image.end()).size());
}

TEST(ImageContent, Scene_SmallestSizes_Work)
{
    for (const char* size : {"width=1,height=1", "width=3,height=2", "width=1,height=200"}) {
        EXPECT_FALSE(Image(std::string("pattern=scene,") + size, 3).empty());
    }
}
