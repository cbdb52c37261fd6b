#include "zip_reader.h"

#include "zip_archive.h"

#include <algorithm>
#include <ctime>
#include <gtest/gtest.h>
#include <string>

namespace {

using Bytes = std::vector<uint8_t>;

Bytes BytesOf(const std::string& text)
{
    return {text.begin(), text.end()};
}

Bytes SmallArchive()
{
    return ZipArchive("camera.xml", "<RegisterDescription/>");
}

// Writes `count` bytes of `value` at `offset` of the directory's entry.
void ChangeEntry(Bytes& zip, ptrdiff_t offset, size_t count, uint8_t value)
{
    const Bytes signature = {'P', 'K', 1, 2};
    const auto entry = std::search(zip.begin(), zip.end(), signature.begin(), signature.end());
    ASSERT_NE(entry, zip.end());
    std::fill_n(entry + offset, count, value);
}

constexpr ptrdiff_t kEntrySizes = 20; // of the data, then of the content
constexpr ptrdiff_t kEntryContentSize = 24;
constexpr ptrdiff_t kEntryNameLength = 28;
constexpr ptrdiff_t kEntryExtraLength = 30;
constexpr ptrdiff_t kEntryOffset = 42;

// Fails like this and leaves the content alone.
void ExpectFailure(const Bytes& archive, ZipResult expected)
{
    Bytes content = {1, 2, 3};
    EXPECT_EQ(ExtractFirstMember(archive, content), expected);
    EXPECT_EQ(content, (Bytes{1, 2, 3}));
}

TEST(ZipReader, FirstMember_IsExtracted)
{
    const std::string text = "<RegisterDescription/>" + std::string(5000, ' ');
    Bytes content;
    EXPECT_EQ(ExtractFirstMember(ZipArchive("camera.xml", text), content), ZipResult::Extracted);
    EXPECT_EQ(content, BytesOf(text));
}

TEST(ZipReader, EmptyMember_IsExtracted)
{
    Bytes content = {1};
    EXPECT_EQ(ExtractFirstMember(ZipArchive("camera.xml", ""), content), ZipResult::Extracted);
    EXPECT_EQ(content, Bytes());
}

TEST(ZipReader, NoBytesOrOtherBytes_AreNoArchive)
{
    ExpectFailure({}, ZipResult::NoArchive);
    ExpectFailure(Bytes(100, 'x'), ZipResult::NoArchive);
}

TEST(ZipReader, CutAnywhere_Fails)
{
    const Bytes zip = SmallArchive();
    for (size_t size = 0; size < zip.size(); ++size) {
        Bytes content;
        EXPECT_NE(ExtractFirstMember(std::span(zip).first(size), content), ZipResult::Extracted)
            << size;
    }
}

TEST(ZipReader, ArchiveWithoutMembers_HasNoMember)
{
    ExpectFailure(ZipArchive("", ""), ZipResult::NoMember);
}

TEST(ZipReader, DamagedMember_Fails)
{
    Bytes zip = ZipArchive("camera.xml", "<RegisterDescription>some text that is long enough</>");
    for (size_t i = 42; i < 60; ++i) {
        zip[i] ^= 0x5A;
    }
    ExpectFailure(zip, ZipResult::Damaged);
}

TEST(ZipReader, MemberOfAbsurdSize_FailsWithoutAllocatingIt)
{
    Bytes zip = SmallArchive();
    ChangeEntry(zip, kEntryContentSize, 4, 0xF0);
    ExpectFailure(zip, ZipResult::Damaged);
}

// Found by fuzzing: behind the data's end zeros were expanded until the claimed size was reached.
TEST(ZipReader, MemberThatDataOfItsSizeCannotExpandTo_FailsAtOnce)
{
    Bytes zip = SmallArchive();
    // Times 16 MiB: still a size that a description file might have.
    ChangeEntry(zip, kEntryContentSize + 3, 1, 0x0F);
    const std::clock_t begin = std::clock();
    ExpectFailure(zip, ZipResult::Damaged);
    EXPECT_LT(std::clock() - begin, CLOCKS_PER_SEC / 10) << "processor time, whoever else runs";
}

TEST(ZipReader, MemberThatExpandsAsFarAsCanBe_IsExtracted)
{
    const std::string zeros(8U << 20U, '\0'); // some 1028-fold
    Bytes content;
    EXPECT_EQ(ExtractFirstMember(ZipArchive("zeros.xml", zeros), content), ZipResult::Extracted);
    EXPECT_EQ(content.size(), zeros.size());
}

TEST(ZipReader, ExtraFieldsBeyondTheDirectory_AreNotReadFromForeignMemory)
{
    Bytes zip = SmallArchive();
    ChangeEntry(zip, kEntrySizes, 8, 0xFF);       // to be found in the extra fields
    ChangeEntry(zip, kEntryExtraLength, 2, 0xFF); // that are as long as can be
    ExpectFailure(zip, ZipResult::NoArchive);
    ChangeEntry(zip, kEntryNameLength, 2, 0xFF); // behind a name that is so as well
    ExpectFailure(zip, ZipResult::NoArchive);
}

TEST(ZipReader, MemberOffsetFarBeyondTheArchive_Fails)
{
    Bytes zip = SmallArchive();
    ChangeEntry(zip, kEntryOffset, 4, 0xF0);
    ExpectFailure(zip, ZipResult::NoArchive);
}

TEST(ZipReader, DirectoryThatClaimsASize_IsZerosAndNoForeignMemory)
{
    const std::string name = "camera.xml";
    const std::string text = "<RegisterDescription/>" + std::string(500, 'x');
    Bytes zip = ZipArchive(name, text);
    for (auto found = zip.begin();
         (found = std::search(found, zip.end(), name.begin(), name.end())) != zip.end();) {
        found[static_cast<ptrdiff_t>(name.size()) - 1] = '/'; // what ends like this is a directory
    }
    Bytes content;
    EXPECT_EQ(ExtractFirstMember(zip, content), ZipResult::Extracted);
    EXPECT_EQ(content, Bytes(text.size(), 0));
}

} // namespace
