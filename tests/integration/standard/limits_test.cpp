// docs/known-limits.md once more, for the standard producer: the cameras and faults with which the
// exact one gives no image, a damaged one, or does not open.

#include "standard_camera.h"

namespace standard_tests {
namespace {

struct LimitRow
{
    const char* name;
    const char* options;
};

class NoLimit : public StandardProducer, public ::testing::WithParamInterface<LimitRow>
{
};

TEST_P(NoLimit, EveryImageIsWhole)
{
    Open(GetParam().options);
    Announce();
    images->Start();
    ExpectWhole(0, 5);
    EXPECT_EQ(Lost(), 0U);
}

INSTANTIATE_TEST_SUITE_P(
    Cameras, NoLimit,
    ::testing::Values(
        LimitRow{"LeaderAndTrailerOfOneSize", "width=64,height=48,leader=64,trailer=64"},
        LimitRow{"LeaderShorterThanTheAlignment", "width=64,height=48,alignment=6"},
        LimitRow{"TrailerShorterThanTheAlignment", "width=64,height=48,alignment=6,leader=128"},
        LimitRow{"LeaderShorterThanRequired",
                 "width=64,height=48,leader=64,faults=leader-short:52"},
        LimitRow{"RestOfTheTrailersSize", "width=8,height=4"},
        LimitRow{"ImageSmallerThanTheAlignment", "width=4,height=1"},
        LimitRow{"PayloadNoMultipleOfTheAlignment", "width=10,height=10"},
        LimitRow{"OddPayloadWithoutAlignment", "width=11,height=7,alignment=0"},
        LimitRow{"SuchARestBehindWholePackets", "width=257,height=4"},
        LimitRow{"RestOfTheLeadersSize", "width=8,height=8,leader=64"},
        LimitRow{"StrictReadCommands", "width=64,height=48,strict=1"},
        LimitRow{"PendingAcknowledgeToARead", "width=64,height=48,faults=pending%r0x1D8"},
        LimitRow{"AcknowledgesBelow268Bytes", "width=64,height=48,max-acknowledge=128"}),
    [](const auto& tested) { return std::string(tested.param.name); });

using Limits = StandardProducer;

TEST_F(Limits, AcknowledgesBelow268Bytes_LongerReadsAreCut)
{
    Open("max-acknowledge=128");
    std::vector<uint8_t> bytes(1000);
    EXPECT_EQ(opened->TryRead(0, bytes.data(), bytes.size()), GC_ERR_SUCCESS);
    std::vector<uint8_t> first(64);
    EXPECT_EQ(opened->TryRead(0, first.data(), first.size()), GC_ERR_SUCCESS);
    EXPECT_TRUE(std::equal(first.begin(), first.end(), bytes.begin()));
}

TEST_F(Limits, PayloadShorterThanRequired_ImageIsIncompleteAndNothingLiesOverIt)
{
    Open("width=64,height=48,faults=payload-short@3*1:1024");
    Announce();
    images->Start();
    ExpectWhole(0, 3);
    const auto image = Next();
    ASSERT_TRUE(image);
    EXPECT_EQ(image->frameId, 3U);
    EXPECT_TRUE(image->isIncomplete);
    ASSERT_EQ(image->bytes.size(), 64U * 48U - 1024U);
    EXPECT_TRUE(std::equal(image->bytes.begin(), image->bytes.end(), camera->Expected(3).begin()));
    Queue(*image);
    ExpectWhole(4, 3);
}

TEST_F(Limits, AcknowledgeLost_ReadIsRepeated)
{
    Open("response-ms=200");
    camera->SetFaults("reply-missing@0*1");
    uint32_t value = 0;
    EXPECT_EQ(opened->TryRead(0, &value, sizeof(value)), GC_ERR_SUCCESS);
    EXPECT_GT(camera->Stats().faults_played, 0U);
}

TEST_F(Limits, AcknowledgeDoubled_TheSecondIsReadAway)
{
    Open("width=640");
    camera->SetFaults("reply-doubled@0*1");
    for (int access = 0; access < 20; ++access) {
        uint32_t width = 0;
        EXPECT_EQ(opened->TryRead(camera_features::kWidth, &width, sizeof(width)), GC_ERR_SUCCESS);
        EXPECT_EQ(width, 640U);
    }
    EXPECT_GT(camera->Stats().faults_played, 0U);
}

} // namespace
} // namespace standard_tests
