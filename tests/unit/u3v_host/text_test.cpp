#include "text.h"

#include <gtest/gtest.h>
#include <vector>

namespace u3v_host {
namespace {

using Bytes = std::vector<uint8_t>;

struct Utf8Case
{
    const char* what;
    std::string bytes;
    std::string text;
};

class Utf8 : public ::testing::TestWithParam<Utf8Case>
{
};

TEST_P(Utf8, CleanUtf8_EachKindOfBytes_BecomesAText)
{
    EXPECT_EQ(CleanUtf8(GetParam().bytes), GetParam().text) << GetParam().what;
}

using namespace std::string_literals;
const std::string kReplaced = "\xEF\xBF\xBD";

INSTANTIATE_TEST_SUITE_P(
    Text, Utf8,
    ::testing::Values(Utf8Case{"nothing", "", ""}, Utf8Case{"plain", "Camera 1", "Camera 1"},
                      Utf8Case{"ends at the first zero", "abc\0def"s, "abc"},
                      Utf8Case{"begins with a zero", "\0abc"s, ""},
                      Utf8Case{"two, three and four bytes", "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x93\xB7",
                               "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x93\xB7"},
                      Utf8Case{"C0 control characters", "a\n\t\x1B[31m", "a   [31m"},
                      Utf8Case{"DEL", "a\x7F", "a "},
                      Utf8Case{"C1 control characters", "a\xC2\x80\xC2\x9B\xC2\x9F", "a   "},
                      Utf8Case{"first behind C1", "\xC2\xA0", "\xC2\xA0"},
                      Utf8Case{"Latin-1", "M\xFCller", "M" + kReplaced + "ller"},
                      Utf8Case{"over-long slash", "\xC0\xAF", kReplaced + kReplaced},
                      Utf8Case{"over-long zero of three bytes", "\xE0\x80\x80",
                               kReplaced + kReplaced + kReplaced},
                      Utf8Case{"over-long of four bytes", "\xF0\x80\x80\xAF",
                               kReplaced + kReplaced + kReplaced + kReplaced},
                      Utf8Case{"smallest of each length", "\xC2\xA0\xE0\xA0\x80\xF0\x90\x80\x80",
                               "\xC2\xA0\xE0\xA0\x80\xF0\x90\x80\x80"},
                      Utf8Case{"a surrogate", "\xED\xA0\x80", kReplaced + kReplaced + kReplaced},
                      Utf8Case{"beyond the last character", "\xF4\x90\x80\x80",
                               kReplaced + kReplaced + kReplaced + kReplaced},
                      Utf8Case{"the last character", "\xF4\x8F\xBF\xBF", "\xF4\x8F\xBF\xBF"},
                      Utf8Case{"five bytes", "\xF8\x88\x80\x80\x80",
                               kReplaced + kReplaced + kReplaced + kReplaced + kReplaced},
                      Utf8Case{"cut off", "a\xE2\x82", "a" + kReplaced + kReplaced},
                      Utf8Case{"no continuation", "\xE2\x28\xA1", kReplaced + "(" + kReplaced},
                      Utf8Case{"the replacement itself", "\xEF\xBF\xBD!", kReplaced + "!"}));

TEST(Text, CleanUtf8_NotEnded_ReadsNoFurther)
{
    const Bytes bytes{'a', 'b'}; // exactly sized: a sanitizer sees a step beyond
    EXPECT_EQ(CleanUtf8(std::span<const uint8_t>(bytes)), "ab");
}

struct Utf16Case
{
    const char* what;
    Bytes bytes;
    std::string text;
};

class Utf16 : public ::testing::TestWithParam<Utf16Case>
{
};

TEST_P(Utf16, CleanUtf16_EachKindOfUnits_BecomesAText)
{
    EXPECT_EQ(CleanUtf16(GetParam().bytes), GetParam().text) << GetParam().what;
}

INSTANTIATE_TEST_SUITE_P(
    Text, Utf16,
    ::testing::Values(Utf16Case{"nothing", {}, ""}, Utf16Case{"half a unit", {'a'}, ""},
                      Utf16Case{"plain", {'a', 0, 'b', 0}, "ab"},
                      Utf16Case{"an odd byte at the end", {'a', 0, 'b'}, "a"},
                      Utf16Case{"ends at the first zero", {'a', 0, 0, 0, 'b', 0}, "a"},
                      Utf16Case{"beyond ASCII", {0xE4, 0, 0xAC, 0x20}, "\xC3\xA4\xE2\x82\xAC"},
                      Utf16Case{"a pair", {0x3D, 0xD8, 0xF7, 0xDC}, "\xF0\x9F\x93\xB7"},
                      Utf16Case{"half a pair", {0x3D, 0xD8, 'a', 0}, kReplaced + "a"},
                      Utf16Case{"half a pair at the end", {0x3D, 0xD8}, kReplaced},
                      Utf16Case{
                          "the other half first", {0xF7, 0xDC, 0x3D, 0xD8}, kReplaced + kReplaced},
                      Utf16Case{"control characters", {0x0A, 0, 0x9B, 0}, "  "}));

TEST(Text, FileNameText_AnyText_HasHarmlessCharactersOnly)
{
    EXPECT_EQ(FileNameText("Model-X_1.2"), "Model-X_1.2");
    EXPECT_EQ(FileNameText("a b;c:d/e\\f"), "a_b_c_d_e_f");
    EXPECT_EQ(FileNameText("../../etc"), "_._.._etc");
    EXPECT_EQ(FileNameText(".hidden"), "_hidden");
    EXPECT_EQ(FileNameText("\xC3\xA4"), "__");
    EXPECT_EQ(FileNameText(""), "");
}

TEST(Text, HexText_Numbers_AreUpperCaseWithPrefix)
{
    EXPECT_EQ(HexText(0), "0x0");
    EXPECT_EQ(HexText(0xABCDEF), "0xABCDEF");
    EXPECT_EQ(HexText(0x1, 4), "0x0001");
    EXPECT_EQ(HexText(0xFFFFFFFFFFFFFFFF), "0xFFFFFFFFFFFFFFFF");
}

} // namespace
} // namespace u3v_host
