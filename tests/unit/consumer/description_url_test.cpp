// What a camera and its user name as the place of a description file, taken apart.

#include <description_url.h>
#include <gtest/gtest.h>

namespace {

using consumer::DescriptionUrl;
using consumer::ParseDescriptionUrl;
using consumer::SafeFileName;

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

// What a camera writes into its model must not become address and length.
TEST(DescriptionUrl, SemicolonsInTheName_StayInTheName)
{
    const DescriptionUrl url =
        ParseDescriptionUrl("local:.bashrc;100000;200?_v1.0.xml;A0;B0?SchemaVersion=1.1.0");
    EXPECT_EQ(url.name, "bashrc_100000_200__v1.0.xml");
    EXPECT_EQ(url.address, 0xA0u);
    EXPECT_EQ(url.length, 0xB0u);
    EXPECT_EQ(ParseDescriptionUrl("local:;;;1;2").name, "__");
}

TEST(SafeFileName, OrdinaryNames_StayAsTheyAre)
{
    for (const char* const name : {"Camera_v1.0.xml", "a-b_c.d.zip", "x", "0"}) {
        EXPECT_EQ(SafeFileName(name), name);
    }
}

TEST(SafeFileName, AnythingElse_IsReduced)
{
    const std::pair<std::string, std::string> table[] = {
        {"Virtual U3V_v1.0.xml", "Virtual_U3V_v1.0.xml"},
        {".bashrc", "bashrc"},
        {"..", ""},
        {".", ""},
        {"", ""},
        {"-rf.xml", "rf.xml"},
        {".-.x", "x"},
        {"../../etc/passwd", "passwd"},
        {"a/..", ""},
        {"C:\\x\\a.xml", "a.xml"},
        {"a\n\x1b[31m.xml", "a___31m.xml"},
        {"$(reboot);`x`&|<>*?'\"", "__reboot___x_________"},
        {"M\xC3\xBCller.xml", "M__ller.xml"},
        {"a\xC0\xAF\xC0\xAE.xml", "a____.xml"},
        {std::string("a\0b", 3), "a_b"},
    };
    for (const auto& [name, safe] : table) {
        EXPECT_EQ(SafeFileName(name), safe) << name;
    }
}

TEST(SafeFileName, EveryByte_LeavesOnlyHarmlessOnes)
{
    for (int byte = 0; byte < 256; byte++) {
        const std::string safe = SafeFileName(std::string(1, static_cast<char>(byte)) + "x");
        EXPECT_EQ(safe.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"
                                         "0123456789._-"),
                  std::string::npos)
            << byte;
        EXPECT_TRUE(safe == "x" || (safe.size() == 2 && safe[1] == 'x')) << byte;
        EXPECT_FALSE(safe.starts_with('.') || safe.starts_with('-')) << byte;
    }
}

TEST(SafeFileName, LongNames_KeepTheirEnd)
{
    EXPECT_EQ(SafeFileName(std::string(500, 'a') + ".xml"), std::string(124, 'a') + ".xml");
    EXPECT_EQ(SafeFileName(std::string(500, '.') + "xml"), "xml");
}

TEST(DescriptionUrl, NameIsDecodedBeforeItIsReduced)
{
    EXPECT_EQ(ParseDescriptionUrl("local:Virtual%20U3V.xml;0;1").name, "Virtual_U3V.xml");
    EXPECT_EQ(ParseDescriptionUrl("local:%2e%2e%2fa%2Fb.xml;0;1").name, "b.xml");
}

TEST(DescriptionUrl, SchemaVersionBehindTheLength_IsLeftOut)
{
    EXPECT_EQ(ParseDescriptionUrl("local:a.xml;10;20?SchemaVersion=1.1.0").length, 0x20u);
}

TEST(DescriptionUrl, File_IsDecoded)
{
    EXPECT_EQ(ParseDescriptionUrl("file:///tmp/a%20b.xml").path, "/tmp/a b.xml");
    EXPECT_EQ(ParseDescriptionUrl("file:///tmp/a%20b.xml").name, "a_b.xml");
    EXPECT_EQ(ParseDescriptionUrl("file:////tmp/a.xml").path, "/tmp/a.xml");
    EXPECT_EQ(ParseDescriptionUrl("file:///tmp/50%").path, "/tmp/50%");
}

TEST(DescriptionUrl, AnythingElse_IsRefused)
{
    for (const char* const url :
         {"", "local", "local:", "local:a", "local:a;1", "local;1;2", "local:;1", "local", ";1;2",
          "local:a;x;1", "local:a;1;", "http://a/b.xml", "local:a;1;fffffffffffffffff",
          "local:a;1;FFFFFFFFFFFFFFFF", "file:"}) {
        EXPECT_THROW(ParseDescriptionUrl(url), consumer::Error) << url;
    }
}

} // namespace
