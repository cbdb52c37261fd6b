// Pure sizes; that each verdict is what really happens is tested against the producer itself (the
// doctor's tests on the virtual camera).

#include "tool_stream_check.h"

#include <gtest/gtest.h>

namespace {

StreamNeeds Needs(uint64_t payload, uint32_t leader, uint32_t trailer, unsigned exponent)
{
    return {payload, leader, trailer, exponent, 8};
}

struct Case
{
    const char* name;
    StreamNeeds needs;
    size_t problems;
    bool isFatal;
    const char* text;
};

class StreamCheck : public ::testing::TestWithParam<Case>
{
};

TEST_P(StreamCheck, TellsWhatIsServed)
{
    const auto problems = CheckStream(GetParam().needs);
    ASSERT_EQ(problems.size(), GetParam().problems);
    if (!problems.empty()) {
        EXPECT_EQ(problems[0].isFatal, GetParam().isFatal);
        EXPECT_NE(problems[0].text.find(GetParam().text), std::string::npos) << problems[0].text;
        EXPECT_FALSE(problems[0].remedy.empty());
    }
}

INSTANTIATE_TEST_SUITE_P(
    Cameras, StreamCheck,
    ::testing::Values(
        Case{"Served", Needs(3072, 52, 32, 3), 0, false, ""},
        Case{"NoAlignmentIsTwo", Needs(88, 52, 32, 0), 0, false, ""},
        Case{"TrailerOfTheAlignment", Needs(3072, 52, 32, 5), 0, false, ""},
        Case{"PaddedHeads", Needs(3072, 128, 64, 6), 0, false, ""},
        Case{"WholeTransfers", Needs(1048576, 52, 32, 3), 0, false, ""},
        Case{"SameHeads", Needs(3072, 64, 64, 3), 1, true, "cannot be told apart"},
        Case{"ShortLeaderAndTrailer", Needs(3072, 52, 32, 6), 2, true, "the leader of 52 bytes"},
        Case{"ShortTrailer", Needs(3072, 128, 32, 6), 1, true, "the trailer of 32 bytes"},
        Case{"TinyImage", Needs(4, 52, 32, 3), 1, true, "smaller than the alignment"},
        Case{"Empty", Needs(0, 52, 32, 3), 1, true, "0 bytes"},
        Case{"Rest", Needs(100, 52, 32, 3), 1, false, "last 4 bytes"},
        Case{"OddWithoutAlignment", Needs(77, 52, 32, 0), 1, false, "last 1 bytes"},
        Case{"RestOfTheLeader", Needs(64, 64, 32, 3), 1, false, "taken for a leader"},
        Case{"RestOfTheTrailer", Needs(32, 52, 32, 3), 1, true, "taken for pixels"},
        Case{"RestBehindTransfers", Needs((1U << 20U) + 32, 52, 32, 3), 1, true,
             "taken for pixels"},
        Case{"AbsurdAlignment", Needs(3072, 52, 32, 255), 4, true, "no alignment"}),
    [](const auto& one) { return std::string(one.param.name); });

} // namespace
