#include "zr_client_text.h"

#include <gtest/gtest.h>

TEST(ClientText, Strnicmp_LettersOfOtherCase_AreEqual)
{
    EXPECT_EQ(_strnicmp("LOCAL:x", "local:y", 6), 0);
    EXPECT_NE(_strnicmp("LOCAL:x", "local:y", 7), 0);
    EXPECT_LT(_strnicmp("abc", "ABD", 3), 0);
    EXPECT_GT(_strnicmp("b", "A", 1), 0);
}

TEST(ClientText, Strnicmp_EndOfTextBeforeCount_EndsTheCompare)
{
    EXPECT_EQ(_strnicmp("ab", "AB", 100), 0);
    EXPECT_LT(_strnicmp("ab", "abc", 100), 0);
    EXPECT_EQ(_strnicmp("x", "y", 0), 0);
}

TEST(ClientText, Strnicmp_NullText_CountsAsEmpty)
{
    EXPECT_EQ(_strnicmp(nullptr, "", 3), 0);
    EXPECT_LT(_strnicmp(nullptr, "a", 3), 0);
    EXPECT_GT(_strnicmp("a", nullptr, 3), 0);
}

TEST(ClientText, UriDecode_Escapes_BecomeBytes)
{
    EXPECT_EQ(UriDecode("my%20cam%2Fa%c3%A9.xml"), "my cam/a\xC3\xA9.xml");
    EXPECT_EQ(UriDecode("%00x"), std::string("\0x", 2));
    EXPECT_EQ(UriDecode(""), "");
}

TEST(ClientText, UriDecode_IncompleteEscape_StaysAsItIs)
{
    EXPECT_EQ(UriDecode("100%"), "100%");
    EXPECT_EQ(UriDecode("a%2"), "a%2");
    EXPECT_EQ(UriDecode("a%zz%4g"), "a%zz%4g");
    EXPECT_EQ(UriDecode("%%41"), "%A");
}

TEST(ClientText, GetFileNameFromUrl_IsThePartAfterTheLastSlash)
{
    EXPECT_EQ(getFileNameFromURL("file:///a/b/cam.xml"), "cam.xml");
    EXPECT_EQ(getFileNameFromURL("cam.xml"), "cam.xml");
    EXPECT_EQ(getFileNameFromURL("file:///a/"), "");
    EXPECT_EQ(getFileNameFromURL(""), "");
}

TEST(ClientText, Printable_ControlCharacters_BecomeQuestionMarks)
{
    EXPECT_EQ(Printable("a\x1B[2Jb\n\x7F"), "a?[2Jb??");
    EXPECT_EQ(Printable("gr\xC3\xB6n %s %n"), "gr\xC3\xB6n %s %n");
    EXPECT_EQ(Printable(nullptr), "");
}

TEST(ClientText, Printable_C1ControlCharacters_BecomeQuestionMarks)
{
    for (int code = 0x80; code < 0xA0; ++code) {
        const char raw[] = {static_cast<char>(code), '\0'};
        EXPECT_EQ(Printable(raw), "?") << code;
        EXPECT_EQ(Printable((std::string("\xC2") + raw).c_str()), "\xC2?") << code;
        EXPECT_EQ(Printable((std::string("\xC3") + raw).c_str()), std::string("\xC3") + raw);
    }
    EXPECT_EQ(Printable("\xE0\x82\x9B"), "\xE0??"); // over-long
    EXPECT_EQ(Printable("\xF0\x80\x82\x9B"), "\xF0???");
    EXPECT_EQ(Printable("\xE2\x82\xAC\x9B \xF0\x9F\x98\x80\x9B"),
              "\xE2\x82\xAC? \xF0\x9F\x98\x80?");
}
