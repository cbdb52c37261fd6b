// The stream channel under a misbehaving camera and bus: what can recover does, what cannot ends
// cleanly.

#include "producer_fixture.h"

#include <chrono>

namespace {

class StreamFault : public ProducerTest
{
};

struct Case
{
    const char* fault; // at the image with block id 3
    uint64_t behind;   // images after that one that may still carry its traces
};

std::string CaseName(const ::testing::TestParamInfo<Case>& tested)
{
    std::string name = tested.param.fault;
    std::erase_if(name, [](char c) { return !isalnum(static_cast<unsigned char>(c)); });
    return name;
}

class RecoverableFault : public StreamFault, public ::testing::WithParamInterface<Case>
{
};

// Images away from the faulty one are exact; the stream goes on.
TEST_P(RecoverableFault, StreamGoesOnWithExactImages)
{
    const vusb::Camera camera(std::string("width=640,height=480,fps=100,faults=") +
                              GetParam().fault);
    const auto session = OpenSession();
    const OpenCamera opened(session);
    ImageStream stream(opened, camera.PayloadSize(), 64); // none is lost while the machine is busy
    stream.Start();
    ExpectExactImages(stream, camera, 0, 3);
    uint64_t exactAfterwards = 0;
    for (int i = 0; i < 40 && exactAfterwards < 10; ++i) {
        const auto image = stream.Next(kImageTimeout);
        ASSERT_TRUE(image) << "the stream has ended";
        const uint64_t frame = image->frameId;
        if (frame > 3 + GetParam().behind && frame < 1000) {
            EXPECT_TRUE(IsExact(*image, camera)) << "frame " << frame;
            ++exactAfterwards;
        }
        stream.Queue(image->buffer);
    }
    EXPECT_EQ(exactAfterwards, 10u);
    EXPECT_GE(camera.Stats().faults_played, 1u);
}

INSTANTIATE_TEST_SUITE_P(
    Faults, RecoverableFault,
    ::testing::Values(
        Case{"leader-lost@3*1", 1}, Case{"leader-short@3*1", 1}, Case{"leader-long@3*1", 1},
        Case{"leader-doubled@3*1", 1}, Case{"leader-magic@3*1", 0}, Case{"leader-id@3*1", 0},
        Case{"payload-lost@3*1", 1}, Case{"payload-short@3*1", 1}, Case{"payload-long@3*1", 1},
        Case{"payload-doubled@3*1", 1}, Case{"payload-corrupt@3*1", 0}, Case{"trailer-lost@3*1", 1},
        Case{"trailer-short@3*1", 1}, Case{"trailer-long@3*1", 1}, Case{"trailer-doubled@3*1", 1},
        Case{"trailer-status@3*1", 0}, Case{"zero-length-leader@3*1", 1},
        Case{"zero-length-payload@3*1", 1}, Case{"zero-length-trailer@3*1", 1},
        Case{"stream-late@3*1:300", 0}, Case{"stream-late-payload@3*1:300", 0},
        Case{"stream-late-trailer@3*1:300", 0}, Case{"stream-late@3*1:3300", 0},
        Case{"transfer-timeout@9*1", 1}, Case{"transfer-error@9*1", 1},
        Case{"transfer-overflow@9*1", 1}),
    CaseName);

class EndpointStall : public StreamFault, public ::testing::WithParamInterface<const char*>
{
};

// This camera has its data still, once the halt is cleared.
TEST_P(EndpointStall, EveryThirtyImages_EveryImageComesExact)
{
    const std::string fault = GetParam();
    const vusb::Camera camera("width=64,height=64,faults=" + fault + "@29*1+" + fault + "@59*1+" +
                              fault + "@89*1");
    const auto session = OpenSession();
    const OpenCamera opened(session);
    ImageStream stream(opened, camera.PayloadSize(), 16);
    const Triggers triggers(opened);
    stream.Start();
    ExpectExactImages(stream, camera, 0, 120, &triggers);
    EXPECT_EQ(camera.Stats().faults_played, 3u);
    stream.Stop();
}

INSTANTIATE_TEST_SUITE_P(Places, EndpointStall,
                         ::testing::Values("stream-stall", "stream-stall-payload",
                                           "stream-stall-trailer"),
                         [](const auto& tested) {
                             std::string name = tested.param;
                             std::erase(name, '-');
                             return name;
                         });

class EndlessFailure : public StreamFault, public ::testing::WithParamInterface<const char*>
{
};

// Twenty attempts a second at last, not as many as a processor makes.
TEST_P(EndlessFailure, CostsNoProcessorAndTheNextStartWorks)
{
    const vusb::Camera camera("width=64,height=64");
    const auto session = OpenSession();
    const OpenCamera opened(session);
    ImageStream stream(opened, camera.PayloadSize());
    camera.SetFaults(GetParam());
    const uint64_t before = vusb_call_count("libusb_submit_transfer");
    const auto begin = std::chrono::steady_clock::now();
    stream.Start();
    while (vusb_call_count("libusb_submit_transfer") - before < 57) {
        EXPECT_FALSE(stream.Next(100));
    }
    EXPECT_GT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(2));
    const auto stopping = std::chrono::steady_clock::now();
    stream.Stop();
    EXPECT_LT(std::chrono::steady_clock::now() - stopping, std::chrono::seconds(3));
    camera.SetFaults("");
    stream.Rewind();
    stream.Start();
    EXPECT_TRUE(stream.Next());
}

INSTANTIATE_TEST_SUITE_P(Kinds, EndlessFailure,
                         ::testing::Values("transfer-stall", "transfer-overflow", "transfer-error"),
                         [](const auto& tested) {
                             std::string name = tested.param;
                             std::erase(name, '-');
                             return name;
                         });

// The camera is left with its endpoint halted, as by a process that was killed.
TEST_F(StreamFault, HaltLeftBehind_TheNextStartClearsIt)
{
    const vusb::Camera camera("width=64,height=64,faults=stream-stall@2*1");
    const auto session = OpenSession();
    const OpenCamera opened(session);
    ImageStream stream(opened, camera.PayloadSize());
    ASSERT_EQ(vusb_fail_call("libusb_clear_halt", 0, 0, -1), 0);
    stream.Start();
    while (const auto image = stream.Next(300)) {
        stream.Queue(image->buffer);
    }
    stream.Stop();
    vusb_clear_scripts();
    stream.Rewind();
    stream.Start();
    EXPECT_TRUE(stream.Next());
}

class TerminalFault : public StreamFault, public ::testing::WithParamInterface<Case>
{
};

// Streaming ends silently; the stop answers within its waits and a new start works.
TEST_P(TerminalFault, StopIsBoundedAndTheNextStartWorks)
{
    const vusb::Camera camera("width=64,height=64,fps=200");
    const auto session = OpenSession();
    const OpenCamera opened(session);
    ImageStream stream(opened, camera.PayloadSize());
    camera.SetFaults(GetParam().fault);
    stream.Start();
    while (const auto image = stream.Next(300)) {
        stream.Queue(image->buffer);
    }
    camera.SetFaults("");
    const auto begin = std::chrono::steady_clock::now();
    stream.Stop();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
    stream.Rewind();
    stream.Start();
    EXPECT_TRUE(stream.Next());
}

INSTANTIATE_TEST_SUITE_P(Faults, TerminalFault,
                         ::testing::Values(Case{"transfer-cancelled@9*1", 0},
                                           Case{"stream-silent@3", 0}),
                         CaseName);

TEST_F(StreamFault, ResubmitFails_EndsSilentlyAndTheNextStartWorks)
{
    const vusb::Camera camera("width=64,height=64,fps=200");
    const auto session = OpenSession();
    const OpenCamera opened(session);
    ImageStream stream(opened, camera.PayloadSize());
    ASSERT_EQ(vusb_fail_call("libusb_submit_transfer", 10, 1, -1), 0);
    stream.Start();
    while (const auto image = stream.Next(300)) {
        stream.Queue(image->buffer);
    }
    stream.Stop();
    stream.Rewind();
    stream.Start();
    EXPECT_TRUE(stream.Next());
}

struct StartFailure
{
    const char* function;
    int result;
};

class FailingStart : public StreamFault, public ::testing::WithParamInterface<StartFailure>
{
};

TEST_P(FailingStart, LeavesNothingBehindAndTheNextStartWorks)
{
    const vusb::Camera camera("width=64,height=64,fps=200");
    const auto session = OpenSession();
    const OpenCamera opened(session);
    ImageStream stream(opened, camera.PayloadSize());
    ASSERT_EQ(vusb_fail_call(GetParam().function, 0, 1, GetParam().result), 0);
    EXPECT_EQ(StatusOf([&] { stream.Start(); }), GC_ERR_ERROR);
    vusb_live_objects live{};
    vusb_get_live_objects(&live);
    EXPECT_EQ(live.transfers, 0u);
    stream.Start();
    EXPECT_TRUE(stream.Next());
}

INSTANTIATE_TEST_SUITE_P(Calls, FailingStart,
                         ::testing::Values(StartFailure{"libusb_alloc_transfer", 0},
                                           StartFailure{"libusb_submit_transfer", -1},
                                           StartFailure{"libusb_submit_transfer", -4},
                                           StartFailure{"libusb_submit_transfer", -11}),
                         [](const auto& tested) {
                             return std::string(tested.param.function) + "_" +
                                    std::to_string(-tested.param.result);
                         });

class UnplugWhileStreaming : public StreamFault, public ::testing::WithParamInterface<const char*>
{
};

TEST_P(UnplugWhileStreaming, EverythingClosesAndTheReplugStreamsAgain)
{
    const vusb::Camera camera("width=640,height=480,fps=100");
    auto session = OpenSession();
    {
        const OpenCamera opened(session);
        ImageStream stream(opened, camera.PayloadSize());
        camera.SetFaults(std::string(GetParam()) + "@5");
        stream.Start();
        EXPECT_TRUE(zr_test::WaitUntil([&] {
            while (const auto image = stream.Next(100)) {
                stream.Queue(image->buffer);
            }
            return !camera.IsPlugged();
        }));
    }
    camera.SetFaults("");
    camera.Replug();
    session.ReopenInterface({.update_ms = kUpdateTime});
    const OpenCamera opened(session);
    ImageStream stream(opened, camera.PayloadSize());
    stream.Start();
    const auto image = stream.Next();
    ASSERT_TRUE(image);
    EXPECT_TRUE(IsExact(*image, camera));
}

INSTANTIATE_TEST_SUITE_P(Moments, UnplugWhileStreaming,
                         ::testing::Values("unplug-at-leader", "unplug-at-payload",
                                           "unplug-in-payload", "unplug-at-trailer"),
                         [](const auto& tested) {
                             std::string name = tested.param;
                             std::erase(name, '-');
                             return name;
                         });

} // namespace
