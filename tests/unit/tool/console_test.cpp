#include "tool_console.h"

#include <gtest/gtest.h>

namespace {

TEST(Console, FormattedTexts_HaveAnyLength)
{
    EXPECT_EQ(Format("%s", std::string(5000, 'x').c_str()), std::string(5000, 'x'));
    EXPECT_EQ(Format("%d-%s", 7, ""), "7-");
}

} // namespace
