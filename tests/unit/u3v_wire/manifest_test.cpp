#include "manifest.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

// A table of one entry: file version 3.2.258, schema 1.0, zipped, at 0x40302010, 8000 bytes.
constexpr uint8_t kTable[] = {
    0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, // entries
    0x02, 0x01, 0x02, 0x03,                         // version: sub-minor, minor, major
    0x00, 0x04, 0x00, 0x01,                         // schema 1.0, zip, device description
    0x10, 0x20, 0x30, 0x40, 0x00, 0x00, 0x00, 0x00, // address
    0x40, 0x1F, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, // size
    0xA0, 0xA1, 0xA2, 0xA3, 0xA4, 0xA5, 0xA6, 0xA7, // SHA-1
    0xA8, 0xA9, 0xAA, 0xAB, 0xAC, 0xAD, 0xAE, 0xAF, //
    0xB0, 0xB1, 0xB2, 0xB3,                         //
    0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, // reserved
    0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, //
    0xFF, 0xFF, 0xFF, 0xFF,
};
static_assert(sizeof(kTable) == manifest_wire::kEntriesOffset + manifest_wire::kEntrySize);

TEST(Manifest, TableOfOneEntry_IsParsed)
{
    const std::span table(kTable);
    EXPECT_EQ(Load<uint64_t>(table, manifest_wire::kEntryCount), 1U);
    const ManifestEntry entry = ParseManifestEntry(table.subspan<manifest_wire::kEntriesOffset>());
    EXPECT_EQ(entry.fileVersionMajor, 3);
    EXPECT_EQ(entry.fileVersionMinor, 2);
    EXPECT_EQ(entry.fileVersionSubMinor, 0x0102);
    EXPECT_EQ(entry.fileType, manifest_wire::kDeviceDescription);
    EXPECT_EQ(entry.fileFormat, manifest_wire::kZippedXml);
    EXPECT_EQ(entry.schemaMajor, 1);
    EXPECT_EQ(entry.schemaMinor, 0);
    EXPECT_EQ(entry.registerAddress, 0x40302010U);
    EXPECT_EQ(entry.fileSize, 8000U);
    EXPECT_THAT(entry.sha1,
                testing::ElementsAre(0xA0, 0xA1, 0xA2, 0xA3, 0xA4, 0xA5, 0xA6, 0xA7, 0xA8, 0xA9,
                                     0xAA, 0xAB, 0xAC, 0xAD, 0xAE, 0xAF, 0xB0, 0xB1, 0xB2, 0xB3));
}

TEST(Manifest, EachPartOfTheSchemaWord_StandsForItself)
{
    const auto schema = [](uint8_t b0, uint8_t b1, uint8_t b2, uint8_t b3) {
        std::array<uint8_t, manifest_wire::kEntrySize> bytes{};
        bytes[4] = b0;
        bytes[5] = b1;
        bytes[6] = b2;
        bytes[7] = b3;
        const ManifestEntry entry = ParseManifestEntry(bytes);
        return std::array<int, 4>{entry.fileType, entry.fileFormat, entry.schemaMinor,
                                  entry.schemaMajor};
    };
    EXPECT_THAT(schema(0x07, 0, 0, 0), testing::ElementsAre(7, 0, 0, 0));
    EXPECT_THAT(schema(0xF8, 0x03, 0, 0), testing::ElementsAre(0, 0, 0, 0)); // bits of nobody
    EXPECT_THAT(schema(0, 0xFC, 0, 0), testing::ElementsAre(0, 63, 0, 0));
    EXPECT_THAT(schema(0, 0, 0xFE, 0), testing::ElementsAre(0, 0, 254, 0));
    EXPECT_THAT(schema(0, 0, 0, 0xFD), testing::ElementsAre(0, 0, 0, 253));
}

} // namespace
