#include "stream_plan.h"

#include <gtest/gtest.h>

#include "error.h"

namespace u3v_host {
namespace {

TEST(StreamPlan, Plan_ExampleOfTheStandardSizes_IsCutIntoFullTransfersAndTwoRests)
{
    const StreamPlan plan =
        PlanStream({.payload = 307200, .leader = 52, .trailer = 32, .alignmentExponent = 3}, 65536);
    EXPECT_EQ(plan, (StreamPlan{.payload = 307200,
                                .leader = 56,
                                .transferSize = 65536,
                                .transferCount = 4,
                                .final1 = 45056,
                                .final2 = 0,
                                .trailer = 32}));
}

TEST(StreamPlan, Plan_SmallRequiredSizes_LeaderIsAtLeast52AndTrailerAtLeast32)
{
    const StreamPlan plan =
        PlanStream({.payload = 1, .leader = 0, .trailer = 0, .alignmentExponent = 0}, 65536);
    EXPECT_EQ(plan.leader, 52U);
    EXPECT_EQ(plan.trailer, 32U);
    EXPECT_EQ(plan.final1, 0U);
    EXPECT_EQ(plan.final2, 1U);
}

// Every alignment with payloads around every border of it.
TEST(StreamPlan, Plan_AllAlignmentsPayloadsAndTransferSizes_KeepsEveryRule)
{
    for (uint8_t exponent = 0; exponent <= 20; ++exponent) {
        const uint64_t alignment = uint64_t{1} << exponent;
        for (const uint32_t transfer : {1U, 1000U, 1024U, 4096U, 65536U, 1048576U}) {
            for (const uint64_t base : {uint64_t{0}, alignment, uint64_t{1024}, uint64_t{transfer},
                                        uint64_t{transfer} * 3, uint64_t{307200}}) {
                for (const int64_t delta : {-1, 0, 1, 7, 511, 1023}) {
                    const auto payload = base + static_cast<uint64_t>(delta);
                    if (base == 0 && delta < 0) {
                        continue;
                    }
                    const StreamPlan plan = PlanStream({.payload = payload,
                                                        .leader = 52,
                                                        .trailer = 36,
                                                        .alignmentExponent = exponent},
                                                       transfer);
                    const uint64_t unit = std::max<uint64_t>(alignment, 1024);
                    SCOPED_TRACE(testing::Message() << "alignment " << alignment << " payload "
                                                    << payload << " transfer " << transfer);
                    ASSERT_EQ(plan.transferSize % unit, 0U);
                    ASSERT_GE(plan.transferSize, transfer);
                    ASSERT_EQ(plan.final1 % unit, 0U);
                    ASSERT_EQ(plan.final2 % alignment, 0U);
                    ASSERT_EQ(plan.leader % alignment, 0U);
                    ASSERT_EQ(plan.trailer % alignment, 0U);
                    ASSERT_GE(plan.Capacity(), payload);
                    ASSERT_LT(plan.Capacity() - payload, alignment);
                    ASSERT_LT(plan.final1 + plan.final2, plan.transferSize + unit);
                    ASSERT_EQ(plan.FullBytes(), payload / plan.transferSize * plan.transferSize);
                    ASSERT_LE(plan.final2, unit);
                }
            }
        }
    }
}

TEST(StreamPlan, PieceLeft_WalksOverEveryTransferOnce)
{
    const StreamPlan plan =
        PlanStream({.payload = 10001, .leader = 52, .trailer = 32, .alignmentExponent = 2}, 4096);
    EXPECT_EQ(plan.PieceLeft(0), 4096U);
    EXPECT_EQ(plan.PieceLeft(1024), 3072U);
    EXPECT_EQ(plan.PieceLeft(4096), 4096U);
    EXPECT_EQ(plan.PieceLeft(8192), 1024U);
    EXPECT_EQ(plan.PieceLeft(9216), 788U);
    EXPECT_EQ(plan.PieceLeft(10004), 0U);
    EXPECT_EQ(plan.PieceLeft(UINT64_MAX), 0U);
}

struct Impossible
{
    const char* name;
    StreamSizes sizes;
};

class StreamPlanImpossible : public testing::TestWithParam<Impossible>
{
};

TEST_P(StreamPlanImpossible, Plan_SizesThatNoTransferCarries_IsRefusedWithAText)
{
    try {
        PlanStream(GetParam().sizes, 1048576);
        FAIL() << "a plan was made";
    } catch (const Error& error) {
        EXPECT_EQ(error.Kind(), ErrorKind::InvalidParameter);
        EXPECT_NE(std::string(error.what()).find(GetParam().name), std::string::npos)
            << error.what();
    }
}

INSTANTIATE_TEST_SUITE_P(
    Sizes, StreamPlanImpossible,
    testing::Values(
        Impossible{"payload size",
                   {.payload = UINT64_MAX, .leader = 52, .trailer = 32, .alignmentExponent = 0}},
        Impossible{"leader size",
                   {.payload = 1, .leader = UINT32_MAX, .trailer = 32, .alignmentExponent = 0}},
        Impossible{"trailer size",
                   {.payload = 1, .leader = 52, .trailer = UINT32_MAX, .alignmentExponent = 0}},
        Impossible{"alignment exponent",
                   {.payload = 1, .leader = 52, .trailer = 32, .alignmentExponent = 255}}));

} // namespace
} // namespace u3v_host
