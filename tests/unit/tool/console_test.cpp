#include "tool_console.h"

#include <gtest/gtest.h>

namespace {

TEST(Console, ControlCharactersOfACamera_DoNotReachTheTerminal)
{
    EXPECT_EQ(Printable("a\x1b[31m\n\x7f"), "a?[31m??");
    EXPECT_EQ(Printable("Caf\xC3\xA9"), "Caf\xC3\xA9");
}

TEST(Console, FormattedTexts_HaveAnyLength)
{
    EXPECT_EQ(Format("%s", std::string(5000, 'x').c_str()), std::string(5000, 'x'));
    EXPECT_EQ(Format("%d-%s", 7, ""), "7-");
}

} // namespace
