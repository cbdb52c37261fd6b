#include <gtest/gtest.h>
#include <printable.h>

namespace {

using consumer::Printable;

TEST(Printable, ControlCharactersOfACamera_DoNotReachTheTerminal)
{
    EXPECT_EQ(Printable("a\x1b[31m\n\x7f"), "a?[31m??");
    EXPECT_EQ(Printable("Caf\xC3\xA9"), "Caf\xC3\xA9");
}

} // namespace
