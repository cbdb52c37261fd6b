// Streams of cameras that lose, cut, stall and leave.

#include "standard_camera.h"

namespace standard_tests {
namespace {

constexpr uint64_t kImages = 20;
constexpr uint64_t kFaulty = 5;

// What a fault in block 5 does to that image.
enum class Fate
{
    Whole,
    Incomplete,
    Lost,
};

struct FaultRow
{
    const char* name;
    const char* faults;
    Fate fate;
};

class StreamFaults : public StandardProducer, public ::testing::WithParamInterface<FaultRow>
{
};

TEST_P(StreamFaults, OneImageIsHit_TheOthersAreWhole)
{
    Open(std::string("width=320,height=240,faults=") + GetParam().faults);
    Announce();
    images->Start();
    uint64_t next = 0;
    while (next < kImages) {
        const auto image = Next();
        ASSERT_TRUE(image) << "nothing behind block " << next;
        ASSERT_GE(image->frameId, next);
        EXPECT_TRUE(image->frameId == next || (next == kFaulty && GetParam().fate == Fate::Lost))
            << "block " << next << " is missing";
        const bool isHit = image->frameId == kFaulty && GetParam().fate == Fate::Incomplete;
        EXPECT_EQ(image->isIncomplete, isHit) << image->frameId;
        EXPECT_LE(image->bytes.size(), camera->PayloadSize());
        EXPECT_TRUE(IsExact(*image)) << image->frameId;
        next = image->frameId + 1;
        Queue(*image);
    }
    EXPECT_EQ(Lost(), GetParam().fate == Fate::Lost ? 1U : 0U);
    images->Stop();
}

INSTANTIATE_TEST_SUITE_P(
    Standard, StreamFaults,
    ::testing::Values(FaultRow{"LeaderLost", "leader-lost@5", Fate::Lost},
                      FaultRow{"TrailerLost", "trailer-lost@5", Fate::Incomplete},
                      FaultRow{"PayloadLost", "payload-lost@5", Fate::Incomplete},
                      FaultRow{"TrailerTellsDiscarded", "trailer-status@5:0xA100",
                               Fate::Incomplete},
                      FaultRow{"TrailerTellsOverrun", "trailer-status@5:0xA101", Fate::Incomplete},
                      FaultRow{"BlockJump", "block-jump@5:1", Fate::Lost},
                      FaultRow{"LateInThePayload", "stream-late-in-payload@5:30", Fate::Whole}),
    [](const auto& tested) { return std::string(tested.param.name); });

using StreamTrouble = StandardProducer;

TEST_F(StreamTrouble, BlockIdsJump_TheGapIsCountedAndResetAtTheStart)
{
    Open("width=64,height=64,faults=block-jump@3:7");
    Announce();
    images->Start();
    EXPECT_TRUE(NextWithId(10));
    EXPECT_EQ(Lost(), 7U);
    images->Stop();
    camera->SetFaults("");
    images->Rewind();
    images->Start();
    EXPECT_TRUE(Next());
    EXPECT_EQ(Lost(), 0U);
}

TEST_F(StreamTrouble, EndpointStalls_ImagesGoOn)
{
    for (const char* fault : {"stream-stall@4", "stream-stall-payload@4",
                              "stream-stall-in-payload@4", "stream-stall-trailer@4"}) {
        Open(std::string("width=320,height=240,faults=") + fault);
        Announce();
        images->Start();
        uint64_t whole = 0;
        while (whole < 20) {
            const auto image = Next();
            ASSERT_TRUE(image) << fault << " after " << whole;
            if (!image->isIncomplete) {
                EXPECT_TRUE(IsExact(*image)) << fault << " " << image->frameId;
                ++whole;
            }
            Queue(*image);
        }
        images.reset();
        opened.reset();
        session.reset();
        camera->Unplug();
    }
}

TEST_F(StreamTrouble, Unplugged_WhileStreaming_FilledImagesAreDeliveredAndAllElseEnds)
{
    Open("width=320,height=240");
    Announce();
    EVENT_HANDLE error = Register(opened->Device(), EVENT_ERROR);
    images->Start();
    EXPECT_TRUE(Next());
    EXPECT_TRUE(Eventually(
        [this] { return opened->Stream().Info<size_t>(STREAM_INFO_NUM_AWAIT_DELIVERY) == 3; }));
    std::vector<std::vector<unsigned char>> expected;
    for (uint64_t id = 1; id <= 3; ++id) {
        expected.push_back(camera->Expected(id));
    }
    camera->Unplug();
    EXPECT_FALSE(Record(error).empty());
    EXPECT_TRUE(Eventually([this] { return !IsGrabbing(); }));
    for (const auto& bytes : expected) {
        const auto image = Next();
        ASSERT_TRUE(image);
        EXPECT_TRUE(std::ranges::equal(image->bytes, bytes));
    }
    EXPECT_THROW(images->Stop(), consumer::GenTLError) << "the camera cannot be told any more";
    EXPECT_EQ(Gentl().DSStopAcquisition(opened->Stream().Handle(), ACQ_STOP_FLAGS_DEFAULT),
              GC_ERR_SUCCESS);
    EXPECT_EQ(Gentl().DSStartAcquisition(opened->Stream().Handle(), ACQ_START_FLAGS_DEFAULT, 1),
              GC_ERR_IO);
}

TEST_F(StreamTrouble, UnpluggedAndReplugged_OpensAndStreamsAgain)
{
    Open("width=320,height=240");
    Announce();
    images->Start();
    EXPECT_TRUE(Next());
    camera->Unplug();
    EXPECT_TRUE(Eventually([this] { return !IsGrabbing(); }));
    EXPECT_THROW(images->Stop(), consumer::GenTLError) << "the camera cannot be told any more";
    images.reset();
    opened.reset();
    camera->Replug();
    session->Update({.update_ms = 1000});
    opened.emplace(*session, 0, DEVICE_ACCESS_EXCLUSIVE);
    Announce();
    images->Start();
    ExpectWhole(0, 10);
}

} // namespace
} // namespace standard_tests
