#include "tool_image_file.h"

#include <gtest/gtest.h>
#include <sstream>

#include "scratch_folder.h"
#include "tool_error.h"
#include "tool_image_writer.h"

namespace {

std::string Contents(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

TEST(ImagePath, SeveralImages_AreNumbered)
{
    EXPECT_EQ(ImagePath("a/image.png", {1, 1, 9, 77}), "a/image.png");
    EXPECT_EQ(ImagePath("a/image.png", {3, 10, 9, 77}), "a/image-00003.png");
    EXPECT_EQ(ImagePath("a/{n}-{id}.png", {3, 10, 9, 77}), "a/00003-9.png");
    EXPECT_EQ(ImagePath("{id}.png", {1, 1, 9, 77}), "9.png");
    EXPECT_EQ(ImagePath("{index}_{frame}_{timestamp}.png", {3, 10, 9, 77}), "00003_9_77.png");
}

TEST(ImageFormat, NamesAreKnown)
{
    EXPECT_EQ(ParseImageFormat("png"), ImageFormat::Png);
    EXPECT_EQ(ParseImageFormat("raw"), ImageFormat::Raw);
    EXPECT_FALSE(ParseImageFormat("gif"));
    EXPECT_FALSE(ParseImageFormat(""));
    EXPECT_EQ(ImageFormatNames().find("png"), 0u);
}

TEST(ImageFile, Pgm_HasItsOwnMaximumAndTheHighByteFirst)
{
    const ScratchFolder folder;
    const auto path = folder.Path() / "a.pgm";
    WriteRaster(path, {2, 1, 1, 12, {0xABC, 1}}, ImageFormat::Pgm);
    EXPECT_EQ(Contents(path), std::string("P5\n2 1\n4095\n\x0A\xBC\0\x01", 16));
}

TEST(ImageFile, Ppm_IsColourWhateverTheImage)
{
    const ScratchFolder folder;
    const auto path = folder.Path() / "a.ppm";
    WriteRaster(path, {1, 1, 1, 8, {7}}, ImageFormat::Ppm);
    EXPECT_EQ(Contents(path), "P6\n1 1\n255\n\7\7\7");
}

TEST(ImageFile, Raw_IsThePayload)
{
    const ScratchFolder folder;
    const std::vector<uint8_t> bytes{1, 2, 3, 4, 5};
    // A pixel format that nothing here can show.
    WriteImage(folder.Path() / "a.raw", {bytes, 1, 1, 0x01080099}, {ImageFormat::Raw, true, false});
    EXPECT_EQ(Contents(folder.Path() / "a.raw"), "\1\2\3\4\5");
}

TEST(ImageFile, FolderThatIsMissing_IsToldAndLeavesNothing)
{
    const ScratchFolder folder;
    const Raster raster{1, 1, 1, 8, {7}};
    for (const ImageFormat format : {ImageFormat::Png, ImageFormat::Pgm}) {
        EXPECT_THROW(WriteRaster(folder.Path() / "no/a.png", raster, format), ToolError);
    }
    EXPECT_TRUE(std::filesystem::is_empty(folder.Path()));
}

TEST(ImageFile, FullDisk_IsTold)
{
    const Raster raster{64, 64, 1, 8, std::vector<uint16_t>(64 * 64, 7)};
    EXPECT_THROW(WriteRaster("/dev/full", raster, ImageFormat::Pgm), ToolError);
    EXPECT_THROW(WriteRaster("/dev/full", raster, ImageFormat::Png), ToolError);
    EXPECT_TRUE(std::filesystem::exists("/dev/full"));
}

Image ImageOf(const std::vector<uint8_t>& bytes, uint64_t frame)
{
    return {.bytes = bytes, .width = 2, .height = 2, .pixelFormat = 0x01080001, .frameId = frame};
}

TEST(ImageWriter, WritesEveryImageInOrder)
{
    const ScratchFolder folder;
    ImageWriter writer((folder.Path() / "i.raw").string(), 50, {ImageFormat::Raw, true, false});
    for (uint8_t i = 0; i < 50; i++) {
        writer.Put(ImageOf({i, i, i, i}, i));
    }
    writer.Finish();
    EXPECT_EQ(Contents(folder.Path() / "i-00001.raw"), std::string(4, '\0'));
    EXPECT_EQ(Contents(folder.Path() / "i-00050.raw"), std::string(4, '\x31'));
}

TEST(ImageWriter, FailureOnItsThread_ComesOutHere)
{
    ImageWriter writer("/nowhere/at/all.raw", 1, {ImageFormat::Raw, true, false});
    writer.Put(ImageOf({1, 2, 3, 4}, 0));
    EXPECT_THROW(writer.Finish(), ToolError);
    EXPECT_THROW(writer.Put(ImageOf({1, 2, 3, 4}, 0)), ToolError);
}

} // namespace
