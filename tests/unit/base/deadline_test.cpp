#include "zr_deadline.h"

#include <gtest/gtest.h>

namespace {

struct DeadlineRow
{
    const char* name;
    timespec now;
    int32_t timeout_ms;
    timespec expected;
};

class DeadlineTest : public testing::TestWithParam<DeadlineRow>
{
};

TEST_P(DeadlineTest, ZrDeadlineFrom_Row_GivesThatMoment)
{
    const timespec deadline = ZrDeadlineFrom(GetParam().now, GetParam().timeout_ms);
    EXPECT_EQ(deadline.tv_sec, GetParam().expected.tv_sec);
    EXPECT_EQ(deadline.tv_nsec, GetParam().expected.tv_nsec);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, DeadlineTest,
    testing::Values(
        DeadlineRow{"Zero", {100, 5}, 0, {100, 5}},
        DeadlineRow{"MillisecondsOnly", {100, 5}, 250, {100, 250'000'005}},
        DeadlineRow{"SecondsAndMilliseconds", {100, 0}, 2'750, {102, 750'000'000}},
        DeadlineRow{"CarryBeyondASecond", {100, 600'000'000}, 500, {101, 100'000'000}},
        // Exactly a full second is not carried: the deadline is then not a valid time.
        DeadlineRow{"ExactlyASecondStays", {100, 500'000'000}, 500, {100, 1'000'000'000}},
        DeadlineRow{"OneNanosecondMoreIsCarried", {100, 500'000'001}, 500, {101, 1}},
        DeadlineRow{"MinusOne", {100, 2'000'000}, -1, {100, 1'000'000}},
        DeadlineRow{"MinusOneBelowZeroNanoseconds", {100, 0}, -1, {100, -1'000'000}},
        DeadlineRow{"NegativeSeconds", {100, 0}, -2'500, {98, -500'000'000}},
        DeadlineRow{"Largest", {0, 0}, INT32_MAX, {2'147'483, 647'000'000}},
        DeadlineRow{"Smallest", {3'000'000, 0}, INT32_MIN, {3'000'000 - 2'147'483, -648'000'000}}),
    [](const auto& row) { return row.param.name; });

TEST(Deadline, ZrDeadlineAfter_OneSecond_IsARealtimeSecondAway)
{
    timespec before{};
    clock_gettime(CLOCK_REALTIME, &before);
    const timespec deadline = ZrDeadlineAfter(1000);
    timespec after{};
    clock_gettime(CLOCK_REALTIME, &after);
    EXPECT_GE(deadline.tv_sec, before.tv_sec + 1);
    EXPECT_LE(deadline.tv_sec, after.tv_sec + 1);
}

} // namespace
