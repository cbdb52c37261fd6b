#include "tool_console.h"

#include <gtest/gtest.h>

namespace {

TEST(Console, ControlCharactersOfACamera_DoNotReachTheTerminal)
{
    EXPECT_EQ(Printable("a\x1b[31m\n\x7f"), "a?[31m??");
    EXPECT_EQ(Printable(std::string("\0\t\r", 3)), "???");
    EXPECT_EQ(Printable("Caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80"),
              "Caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80");
}

// U+009B is the same as ESC [ to a terminal, as one byte or as two.
TEST(Console, C1ControlCharacters_DoNotReachTheTerminal)
{
    for (int code = 0x80; code < 0xA0; code++) {
        const std::string raw(1, static_cast<char>(code));
        EXPECT_EQ(Printable(raw + "31m"), "?31m") << code;
        EXPECT_EQ(Printable("\xC2" + raw + "31m"), "?31m") << code;
    }
    EXPECT_EQ(Printable("\xC2\xA0"), "\xC2\xA0");
}

TEST(Console, BytesThatAreNoUtf8_DoNotReachTheTerminal)
{
    const std::pair<const char*, const char*> table[] = {
        {"M\xFCller", "M?ller"},      {"\xC0\x9B", "??"},      // over-long
        {"\xC1\xBF", "??"},           {"\xE0\x82\x9B", "???"}, // over-long
        {"\xF0\x80\x82\x9B", "????"},                          // over-long
        {"\xED\xA0\x80", "???"},                               // half of a surrogate pair
        {"\xF4\x90\x80\x80", "????"},                          // beyond the last character
        {"\xF5\x80\x80\x80", "????"}, {"\xC3", "?"},           // cut
        {"\xE2\x82", "??"},           {"\xC3\x1b[0m", "??[0m"},
        {"\xE2\x82\x1b", "???"},
    };
    for (const auto& [text, clean] : table) {
        EXPECT_EQ(Printable(text), clean);
    }
}

TEST(Console, WhatTurnsTheDirectionOfWriting_DoesNotReachTheTerminal)
{
    EXPECT_EQ(Printable("a\xE2\x80\xAE"
                        "b"),
              "a?b");
    EXPECT_EQ(Printable("\xE2\x80\xA8\xE2\x81\xA6\xE2\x80\x8F"), "???");
    EXPECT_EQ(Printable("\xE2\x80\x8D\xE2\x80\xAF"), "\xE2\x80\x8D\xE2\x80\xAF");
}

TEST(Console, Lines_KeepLineFeedsAndTabsOnly)
{
    EXPECT_EQ(PrintableLines("<a>\r\n\t<b/>\n</a>\r"), "<a>\n\t<b/>\n</a>?");
    EXPECT_EQ(PrintableLines("\r\r\n\x1b"), "?\n?");
    EXPECT_EQ(PrintableLines(""), "");
}

TEST(Console, FormattedTexts_HaveAnyLength)
{
    EXPECT_EQ(Format("%s", std::string(5000, 'x').c_str()), std::string(5000, 'x'));
    EXPECT_EQ(Format("%d-%s", 7, ""), "7-");
}

} // namespace
