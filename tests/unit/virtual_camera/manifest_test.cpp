// The table of description files: several of them, of several versions, and nonsense.

#include "camera_host.h"
#include "sha1.h"

namespace {

struct Entry
{
    std::uint64_t fileVersion;
    std::uint64_t format;
    std::uint64_t address;
    std::uint64_t size;
    Bytes digest;
};

std::vector<Entry> Entries(CameraHost& host)
{
    const std::uint64_t table = host.Read64(0x1D0);
    std::vector<Entry> entries;
    const std::uint64_t count = host.Read64(table);
    for (std::uint64_t i = 0; i < count; ++i) {
        const Bytes bytes = host.ReadMem(table + 8 + 64 * i, 64);
        entries.push_back({Get(bytes, 0, 4), Get(bytes, 4, 4), Get(bytes, 8, 8), Get(bytes, 16, 8),
                           Bytes(bytes.begin() + 24, bytes.begin() + 44)});
    }
    return entries;
}

Bytes FileOf(CameraHost& host, const Entry& entry)
{
    Bytes file;
    while (file.size() < entry.size) {
        const std::size_t count = std::min<std::size_t>(1000, entry.size - file.size());
        const Bytes piece = host.ReadMem(entry.address + file.size(), count);
        file.insert(file.end(), piece.begin(), piece.end());
    }
    return file;
}

std::string TextOf(CameraHost& host, const Entry& entry)
{
    const Bytes file = FileOf(host, entry);
    return {file.begin(), file.end()};
}

} // namespace

TEST(Manifest, SeveralEntries_EachWithItsVersionsAndItsOwnFile)
{
    CameraHost host("manifest=1.1/2.3.4+1.0/1.2+2.0.1/9.0.1/zip");
    const std::vector<Entry> entries = Entries(host);
    ASSERT_EQ(3U, entries.size());
    EXPECT_EQ(0x02030004U, entries[0].fileVersion);
    EXPECT_EQ(0x01010000U, entries[0].format);
    EXPECT_EQ(0x01020000U, entries[1].fileVersion);
    EXPECT_EQ(0x01000000U, entries[1].format);
    EXPECT_EQ(0x09000001U, entries[2].fileVersion);
    EXPECT_EQ(0x02000400U, entries[2].format);
    EXPECT_NE(std::string::npos, TextOf(host, entries[0])
                                     .find("MajorVersion=\"2\" MinorVersion=\"3\" "
                                           "SubMinorVersion=\"4\""));
    const std::string old = TextOf(host, entries[1]);
    EXPECT_NE(std::string::npos, old.find("SchemaMajorVersion=\"1\" SchemaMinorVersion=\"0\""));
    EXPECT_NE(std::string::npos, old.find("genicam.org/GenApi/Version_1_0\""));
    EXPECT_EQ(0x04034B50U, Get(FileOf(host, entries[2]), 0, 4));
    for (const Entry& entry : entries) {
        const auto digest = vcam::Sha1(FileOf(host, entry));
        EXPECT_EQ(Bytes(digest.begin(), digest.end()), entry.digest);
    }
}

TEST(Manifest, Hash_MissingOrWrong)
{
    CameraHost host("manifest=1.1/1.0.0/no-hash+1.1/1.0.0/wrong-hash");
    const std::vector<Entry> entries = Entries(host);
    EXPECT_EQ(Bytes(20), entries[0].digest);
    const auto digest = vcam::Sha1(FileOf(host, entries[1]));
    EXPECT_NE(Bytes(digest.begin(), digest.end()), entries[1].digest);
    EXPECT_NE(Bytes(20), entries[1].digest);
}

TEST(Manifest, Nonsense_EachIsWhatItsWordSays)
{
    CameraHost host(
        "manifest=1.1/empty+1.1/huge+1.1/nowhere+1.1/wrong-type+1.1/wrong-format+1.1/1.0.0");
    const std::vector<Entry> entries = Entries(host);
    ASSERT_EQ(6U, entries.size());
    EXPECT_EQ(0U, entries[0].size);
    EXPECT_EQ(1ULL << 62, entries[1].size);
    EXPECT_EQ(0x8003U, host.StatusOfRead(entries[2].address, 4));
    EXPECT_EQ(1U, entries[3].format & 7);
    EXPECT_EQ(5U, entries[4].format >> 10 & 0x3F);
    EXPECT_EQ(0U, entries[5].format & 0xFFFF);
    EXPECT_NE("", TextOf(host, entries[5]));
}

TEST(Manifest, None_NoTable)
{
    CameraHost host("manifest=none");
    EXPECT_EQ(0U, host.Read64(0x1D0));
}

TEST(Manifest, Zip_IsForTheOneEntryWithoutAList)
{
    CameraHost host("zip=1");
    EXPECT_EQ(0x01010400U, Entries(host).at(0).format);
    CameraHost listed("zip=1,manifest=1.1");
    EXPECT_EQ(0x01010000U, Entries(listed).at(0).format);
    EXPECT_EQ(0x01000000U, Entries(listed).at(0).fileVersion);
}
