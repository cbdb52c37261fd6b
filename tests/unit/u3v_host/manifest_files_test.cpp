#include "manifest_files.h"

#include <gtest/gtest.h>

namespace u3v_host {
namespace {

ManifestEntry Entry(uint8_t schemaMajor, uint8_t schemaMinor, uint8_t major, uint8_t minor,
                    uint16_t subMinor, bool zipped, uint64_t address)
{
    ManifestEntry entry{};
    entry.fileVersionMajor = major;
    entry.fileVersionMinor = minor;
    entry.fileVersionSubMinor = subMinor;
    entry.fileFormat = zipped ? 1 : 0;
    entry.schemaMajor = schemaMajor;
    entry.schemaMinor = schemaMinor;
    entry.registerAddress = address;
    entry.fileSize = 100;
    return entry;
}

// Addresses, in the order of the files.
std::vector<uint64_t> Ranked(const std::vector<ManifestEntry>& entries)
{
    std::vector<uint64_t> addresses;
    for (const DescriptionFile& file : DescriptionFilesOf(entries, "Camera")) {
        addresses.push_back(file.address);
    }
    return addresses;
}

using Addresses = std::vector<uint64_t>;

TEST(ManifestFiles, Order_HigherKnownSchema_ComesFirst)
{
    EXPECT_EQ(Ranked({Entry(1, 0, 9, 0, 0, true, 1), Entry(1, 1, 1, 0, 0, false, 2)}),
              (Addresses{2, 1}));
}

TEST(ManifestFiles, Order_SchemaBeyondGenApi3_ComesLastTheNearestFirst)
{
    EXPECT_EQ(Ranked({Entry(2, 0, 9, 0, 0, true, 1), Entry(1, 2, 9, 0, 0, true, 2),
                      Entry(1, 0, 1, 0, 0, false, 3)}),
              (Addresses{3, 2, 1}));
}

TEST(ManifestFiles, Order_SameSchema_HigherFileVersionFirst)
{
    EXPECT_EQ(Ranked({Entry(1, 1, 1, 2, 3, true, 1), Entry(1, 1, 2, 0, 0, false, 2),
                      Entry(1, 1, 1, 3, 0, false, 3), Entry(1, 1, 1, 2, 300, false, 4)}),
              (Addresses{2, 3, 4, 1}));
}

TEST(ManifestFiles, Order_SameVersion_ZippedBeforePlain)
{
    EXPECT_EQ(Ranked({Entry(1, 1, 1, 0, 0, false, 1), Entry(1, 1, 1, 0, 0, true, 2)}),
              (Addresses{2, 1}));
}

TEST(ManifestFiles, Order_NothingToTellThemApart_IsTheManifests)
{
    EXPECT_EQ(Ranked({Entry(1, 1, 1, 0, 0, true, 7), Entry(1, 1, 1, 0, 0, true, 3)}),
              (Addresses{7, 3}));
}

TEST(ManifestFiles, Choice_OtherTypesAndFormats_AreLeftOut)
{
    ManifestEntry otherType = Entry(1, 1, 1, 0, 0, false, 1);
    otherType.fileType = 1;
    ManifestEntry otherFormat = Entry(1, 1, 1, 0, 0, false, 2);
    otherFormat.fileFormat = 2;
    EXPECT_EQ(Ranked({otherType, otherFormat, Entry(1, 1, 1, 0, 0, false, 3)}), (Addresses{3}));
}

TEST(ManifestFiles, Choice_FileThatCannotBe_IsLeftOut)
{
    ManifestEntry empty = Entry(1, 1, 1, 0, 0, false, 1);
    empty.fileSize = 0;
    ManifestEntry huge = Entry(1, 1, 1, 0, 0, false, 2);
    huge.fileSize = (uint64_t{256} << 20) + 1;
    ManifestEntry beyond = Entry(1, 1, 1, 0, 0, false, 0xFFFFFFFFFFFFFFFF);
    EXPECT_EQ(Ranked({empty, huge, beyond}), Addresses{});
}

TEST(ManifestFiles, Name_CameraAndVersion_AreHarmlessCharacters)
{
    const std::vector<ManifestEntry> entries{Entry(1, 1, 1, 2, 3, true, 1),
                                             Entry(1, 1, 1, 2, 3, false, 2)};
    const auto files = DescriptionFilesOf(entries, ".bashrc;100/ä");
    ASSERT_EQ(files.size(), 2U);
    EXPECT_EQ(files[0].name, "_bashrc_100____1_2_3.zip");
    EXPECT_EQ(files[1].name, "_bashrc_100____1_2_3.xml");
}

TEST(ManifestFiles, Name_CameraWithoutName_IsTheVersion)
{
    const std::vector<ManifestEntry> entries{Entry(1, 1, 1, 2, 3, false, 1)};
    EXPECT_EQ(DescriptionFilesOf(entries, "")[0].name, "1_2_3.xml");
}

TEST(ManifestFiles, Name_EndlessCameraName_IsCut)
{
    const std::vector<ManifestEntry> entries{Entry(1, 1, 1, 0, 0, false, 1)};
    EXPECT_LE(DescriptionFilesOf(entries, std::string(5000, 'x'))[0].name.size(), 128U);
}

TEST(ManifestFiles, Fields_OfAnEntry_ArePassedOn)
{
    const std::vector<ManifestEntry> entries{Entry(1, 1, 2, 3, 4, true, 0x1000)};
    const DescriptionFile file = DescriptionFilesOf(entries, "C").at(0);
    EXPECT_EQ(file.address, 0x1000U);
    EXPECT_EQ(file.size, 100U);
    EXPECT_TRUE(file.zipped);
    EXPECT_EQ(file.schemaMajor, 1);
    EXPECT_EQ(file.schemaMinor, 1);
    EXPECT_EQ(file.fileMajor, 2);
    EXPECT_EQ(file.fileMinor, 3);
    EXPECT_EQ(file.fileSubMinor, 4);
}

TEST(ManifestFiles, Sha1_AllZero_IsNone)
{
    ManifestEntry entry = Entry(1, 1, 1, 0, 0, false, 1);
    EXPECT_FALSE(DescriptionFilesOf({&entry, 1}, "C")[0].sha1.has_value());
    entry.sha1[19] = 1;
    ASSERT_TRUE(DescriptionFilesOf({&entry, 1}, "C")[0].sha1.has_value());
    EXPECT_EQ(DescriptionFilesOf({&entry, 1}, "C")[0].sha1->at(19), 1);
}

} // namespace
} // namespace u3v_host
