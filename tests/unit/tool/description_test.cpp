#include "tool_description.h"

#include <gtest/gtest.h>

#include "tool_error.h"

namespace {

TEST(DescriptionUrl, Local_HasNameAddressAndLengthInHexadecimal)
{
    const DescriptionUrl url = ParseDescriptionUrl("local:Camera_v1.zip;100000;4a2F");
    EXPECT_EQ(url.scheme, "local");
    EXPECT_EQ(url.name, "Camera_v1.zip");
    EXPECT_EQ(url.address, 0x100000u);
    EXPECT_EQ(url.length, 0x4A2Fu);
}

TEST(DescriptionUrl, NameWithFolders_BecomesANameOnly)
{
    EXPECT_EQ(ParseDescriptionUrl("local:../../etc/passwd;0;1").name, "passwd");
    EXPECT_EQ(ParseDescriptionUrl("local:///a.xml;0;1").name, "a.xml");
}

TEST(DescriptionUrl, SchemaVersionBehindTheLength_IsLeftOut)
{
    EXPECT_EQ(ParseDescriptionUrl("local:a.xml;10;20?SchemaVersion=1.1.0").length, 0x20u);
}

TEST(DescriptionUrl, File_IsDecoded)
{
    EXPECT_EQ(ParseDescriptionUrl("file:///tmp/a%20b.xml").name, "/tmp/a b.xml");
    EXPECT_EQ(ParseDescriptionUrl("file:////tmp/a.xml").name, "/tmp/a.xml");
    EXPECT_EQ(ParseDescriptionUrl("file:///tmp/50%").name, "/tmp/50%");
}

TEST(DescriptionUrl, AnythingElse_IsRefused)
{
    for (const char* const url :
         {"", "local", "local:", "local:a", "local:a;1", "local:a;x;1", "local:a;1;",
          "http://a/b.xml", "local:a;1;fffffffffffffffff", "local:a;1;FFFFFFFFFFFFFFFF", "file:"}) {
        EXPECT_THROW(ParseDescriptionUrl(url), ToolError) << url;
    }
}

// "hello" stored in "a.xml", written down byte by byte from the archive format.
std::string StoredArchive()
{
    const std::string name = "a.xml";
    const std::string crc("\x86\xa6\x10\x36", 4);
    const std::string sizes("\x05\0\0\0\x05\0\0\0", 8);
    const std::string common =
        std::string("\x0a\0\0\0\0\0\0\0\x21\0", 10) + crc + sizes + std::string("\x05\0\0\0", 4);
    const std::string local = "PK\x03\x04" + common + name + "hello";
    const std::string central = std::string("PK\x01\x02\x0a\0", 6) + common +
                                std::string(10, '\0') + std::string(4, '\0') + name;
    std::string end("PK\x05\x06\0\0\0\0\x01\0\x01\0", 12);
    end += static_cast<char>(central.size());
    end += std::string("\0\0\0", 3);
    end += static_cast<char>(local.size());
    end += std::string("\0\0\0\0\0", 5);
    return local + central + end;
}

TEST(Unzip, AFile_ComesBack)
{
    ASSERT_TRUE(IsZipArchive(StoredArchive()));
    EXPECT_EQ(Unzip(StoredArchive()), "hello");
}

TEST(Unzip, DamagedData_IsRefused)
{
    std::string archive = StoredArchive();
    archive[archive.find("hello")] = 'j'; // the check sum no longer fits
    EXPECT_THROW(Unzip(archive), ToolError);
}

TEST(Unzip, CutAnywhere_IsRefused)
{
    const std::string archive = StoredArchive();
    for (size_t size = 0; size < archive.size(); size++) {
        EXPECT_THROW(Unzip(archive.substr(0, size)), ToolError) << size;
    }
}

} // namespace
