#include "tool_description.h"

#include <gtest/gtest.h>

#include "tool_error.h"

namespace {

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
