#include "tool_console.h"

#include <gtest/gtest.h>

#include "tool_producer.h"

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

TEST(GenTLError, TellsCallCodeAndLastError)
{
    const GenTLError error("GCReadPort", GC_ERR_IO, "no\tanswer");
    EXPECT_STREQ(error.what(), "GCReadPort failed: GC_ERR_IO (-1010), last error \"no?answer\"");
    EXPECT_EQ(error.Code(), ExitCode::Failure);
    EXPECT_EQ(GenTLErrorName(GC_ERR_AMBIGUOUS), "GC_ERR_AMBIGUOUS");
    EXPECT_EQ(GenTLErrorName(-10001), "GC_ERR_-10001");
}

} // namespace
