#include "tool_view_picture.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace {

Raster Uniform(size_t width, size_t height, uint16_t value)
{
    return {width, height, 1, 8, std::vector<uint16_t>(width * height, value)};
}

TEST(ViewPicture, WithoutOverlay_IsTheImage)
{
    ViewState state;
    state.showOverlay = false;
    const Picture picture = ComposeView(Uniform(600, 400, 77), state);
    EXPECT_EQ(picture.width, 600u);
    EXPECT_TRUE(
        std::all_of(picture.rgb.begin(), picture.rgb.end(), [](auto v) { return v == 77; }));
}

TEST(ViewPicture, Overlay_CoversTheTopLineAndTheCornerOnly)
{
    const Picture picture = ComposeView(Uniform(600, 400, 77), {});
    const auto at = [&](size_t x, size_t y) { return picture.rgb[(y * picture.width + x) * 3]; };
    EXPECT_NE(at(599, 0), 77) << "the header";
    EXPECT_NE(at(590, 390), 77) << "the histogram";
    EXPECT_EQ(at(10, 390), 77) << "the image";
    EXPECT_EQ(at(300, 100), 77) << "the image";
}

TEST(ViewPicture, SmallImages_AreEnlarged)
{
    const Picture picture = ComposeView(Uniform(64, 48, 1), {});
    EXPECT_EQ(picture.width, 512u);
    EXPECT_EQ(picture.height, 384u);
}

TEST(ViewPicture, ExtremeShapes_AreNoTrouble)
{
    EXPECT_EQ(ComposeView(Uniform(1, 1, 1), {}).width, 480u);
    EXPECT_EQ(ComposeView(Uniform(2000, 1, 1), {}).height, 1u);
    EXPECT_EQ(ComposeView(Uniform(1, 2000, 1), {}).width, 480u);
}

TEST(Painter, TextOutsideThePicture_IsCutOff)
{
    Picture picture{10, 10, std::vector<uint8_t>(300)};
    Painter(picture).Text(8, 8, 3, "W?\xC3", {255, 255, 255});
    Painter(picture).Fill(9, 9, 100, 100, {1, 2, 3}, 256);
    EXPECT_EQ(picture.rgb[297], 1);
}

TEST(TerminalPicture, OneCharacterHoldsTwoPixels)
{
    const Raster raster{1, 2, 3, 8, {255, 0, 0, 0, 0, 255}};
    EXPECT_EQ(TerminalPicture(raster, 1, 10), "\x1b[38;2;255;0;0;48;2;0;0;255m\u2580\x1b[0m\n");
}

TEST(TerminalPicture, KeepsProportionsWithinItsLimits)
{
    const std::string wide = TerminalPicture(Uniform(400, 100, 9), 40, 100);
    EXPECT_EQ(std::count(wide.begin(), wide.end(), '\n'), 5);
    const std::string high = TerminalPicture(Uniform(100, 400, 9), 40, 10);
    EXPECT_EQ(std::count(high.begin(), high.end(), '\n'), 10);
}

TEST(TerminalPicture, DeepImages_AreReduced)
{
    EXPECT_EQ(TerminalPicture({1, 1, 1, 12, {0xABC}}, 1, 1),
              "\x1b[38;2;171;171;171;48;2;171;171;171m\u2580\x1b[0m\n");
}

} // namespace
