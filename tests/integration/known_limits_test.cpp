// docs/known-limits.md line by line: which cameras the stream channel serves, which it cannot, and
// what a consumer then sees. The receiver tells transfers apart by their exact lengths.

#include "producer_fixture.h"

#include <chrono>
#include <csignal>
#include <cstring>
#include <optional>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr uint64_t kSilence = 700; // ms without an image: at 50 images per second none will come

class KnownLimits : public ProducerTest
{
};

struct Shape
{
    const char* name;
    const char* options;
    size_t payload;
};

std::string ShapeName(const ::testing::TestParamInfo<Shape>& info)
{
    return info.param.name;
}

// One camera, opened, streaming at a rate that any machine follows, and with buffers for more than
// a second in which it does not.
class Streaming
{
public:
    explicit Streaming(const std::string& options)
        : m_camera("fps=50," + options), m_opened(m_session),
          m_stream(m_opened, m_camera.PayloadSize(), 64)
    {
        m_stream.Start();
    }

    const vusb::Camera& Camera() const { return m_camera; }
    ImageStream& Stream() { return m_stream; }
    // The bytes of the next image that has come as a complete one.
    std::vector<unsigned char> Image()
    {
        const auto image = m_stream.Next();
        if (!image) {
            ADD_FAILURE() << "no image";
            return std::vector<unsigned char>(m_camera.PayloadSize());
        }
        EXPECT_FALSE(image->isIncomplete);
        EXPECT_EQ(image->bytes.size(), m_camera.PayloadSize());
        m_frame = image->frameId;
        return {image->bytes.begin(), image->bytes.end()};
    }
    uint64_t Frame() const { return m_frame; }

private:
    vusb::Camera m_camera;
    consumer::Session m_session = OpenSession();
    OpenCamera m_opened;
    ImageStream m_stream;
    uint64_t m_frame = 0;
};

bool StartsWithTrailer(const std::vector<unsigned char>& image)
{
    return std::memcmp(image.data(), "U3VT", 4) == 0;
}

class Served : public KnownLimits, public ::testing::WithParamInterface<Shape>
{
};

TEST_P(Served, EveryImageIsExact)
{
    Streaming session(GetParam().options);
    ASSERT_EQ(session.Camera().PayloadSize(), GetParam().payload);
    ExpectExactImages(session.Stream(), session.Camera(), 0, 5);
}

INSTANTIATE_TEST_SUITE_P(
    Cameras, Served,
    ::testing::Values(Shape{"SmallAlignment", "width=64,height=48", 3072},
                      Shape{"NoAlignmentIsTakenAsTwo", "width=11,height=8,alignment=0", 88},
                      Shape{"AlignmentOfTheTrailersSize", "width=64,height=48,alignment=5", 3072},
                      Shape{"LargeAlignmentWithPaddedDistinctSizes",
                            "width=64,height=48,alignment=6,leader=128,trailer=64", 3072},
                      Shape{"WholeTransfersOnly", "width=1024,height=1024", 1048576},
                      Shape{"TransfersAndARest", "width=1024,height=1025", 1049600},
                      Shape{"TrailerWithChunkField", "width=64,height=48,trailer=36", 3072}),
    ShapeName);

class NoImage : public KnownLimits, public ::testing::WithParamInterface<Shape>
{
};

TEST_P(NoImage, AcquisitionStartsAndNothingComes)
{
    Streaming session(GetParam().options);
    ASSERT_EQ(session.Camera().PayloadSize(), GetParam().payload);
    EXPECT_FALSE(session.Stream().Next(kSilence));
    EXPECT_GT(session.Camera().Stats().stream_bytes, 0u) << "the camera has sent something";
    session.Stream().Stop();
}

INSTANTIATE_TEST_SUITE_P(
    Cameras, NoImage,
    ::testing::Values(
        Shape{"LeaderAndTrailerOfOneSize", "width=64,height=48,leader=64,trailer=64", 3072},
        Shape{"LeaderShorterThanTheAlignment", "width=64,height=48,alignment=6", 3072},
        Shape{"TrailerShorterThanTheAlignment", "width=64,height=48,alignment=6,leader=128", 3072},
        Shape{"LeaderShorterThanRequired", "width=64,height=48,leader=64,faults=leader-short:52",
              3072},
        Shape{"RestOfTheTrailersSize", "width=8,height=4", 32},
        Shape{"ImageSmallerThanTheAlignment", "width=4,height=1", 4}),
    ShapeName);

TEST_F(KnownLimits, PayloadNoMultipleOfTheAlignment_TheLastBytesAreMissing)
{
    Streaming session("width=10,height=10"); // 96 bytes and a rest of 4
    const auto image = session.Image();
    const auto sent = session.Camera().Expected(session.Frame());
    EXPECT_TRUE(std::equal(image.begin(), image.begin() + 96, sent.begin()));
    EXPECT_EQ(std::vector<unsigned char>(image.begin() + 96, image.end()),
              std::vector<unsigned char>(4, 0));
}

TEST_F(KnownLimits, OddPayloadWithoutAlignment_TheLastByteIsMissing)
{
    Streaming session("width=11,height=7,alignment=0");
    const auto image = session.Image();
    const auto sent = session.Camera().Expected(session.Frame());
    EXPECT_TRUE(std::equal(image.begin(), image.begin() + 76, sent.begin()));
    EXPECT_EQ(image[76], 0);
}

TEST_F(KnownLimits, SuchARestBehindWholePackets_TheTrailerLiesOverTheImage)
{
    Streaming session("width=257,height=4"); // 1024 bytes, one whole packet, and a rest of 4
    const auto image = session.Image();
    EXPECT_TRUE(StartsWithTrailer(image));
    const auto sent = session.Camera().Expected(session.Frame());
    EXPECT_TRUE(std::equal(image.begin() + 32, image.end(), sent.begin() + 32));
}

TEST_F(KnownLimits, RestOfTheLeadersSize_PixelsAreTakenForALeader)
{
    Streaming session("width=8,height=8,leader=64");
    const auto image = session.Image();
    EXPECT_TRUE(StartsWithTrailer(image));
    const auto first = session.Camera().Expected(0);
    uint64_t pixels = 0;
    std::memcpy(&pixels, first.data() + 8, sizeof pixels); // where a leader has its block id
    EXPECT_EQ(session.Frame(), pixels);
}

TEST_F(KnownLimits, PayloadShorterThanRequired_TheTrailerLiesOverTheImage)
{
    Streaming session("width=64,height=48,faults=payload-short:16");
    EXPECT_TRUE(StartsWithTrailer(session.Image()));
}

TEST_F(KnownLimits, StrictReadCommands_TheCameraIsListedButDoesNotOpen)
{
    const vusb::Camera camera("strict=1");
    const auto session = OpenSession();
    const auto ids = session.CameraIds();
    ASSERT_EQ(ids.size(), 1u);
    EXPECT_NE(StatusOfOpening(session, ids[0]), GC_ERR_SUCCESS);
    EXPECT_GT(vusb_camera_errors(camera.Id(), "bad-length"), 0u);
}

TEST_F(KnownLimits, PendingAcknowledgeToARead_TheCameraDoesNotOpen)
{
    const vusb::Camera camera("faults=pending%r0x1D8");
    const auto session = OpenSession();
    const auto ids = session.CameraIds();
    ASSERT_EQ(ids.size(), 1u);
    EXPECT_NE(StatusOfOpening(session, ids[0]), GC_ERR_SUCCESS);
    EXPECT_GT(camera.Stats().faults_played, 0u);
}

// ---- faults of a camera that is served: each comes with its fourth image

using Bytes = std::vector<unsigned char>;

class OneFault : public KnownLimits
{
protected:
    void TearDown() override
    {
        m_session.reset();
        KnownLimits::TearDown();
    }

    // Takes the three images before the fault, and then the one that has it.
    Bytes ImageWith(const std::string& fault, const std::string& value = "")
    {
        m_session.emplace("width=64,height=48,faults=" + fault + "@3*1" + value);
        ExpectExactImages(m_session->Stream(), m_session->Camera(), 0, 3);
        return m_session->Image();
    }
    uint64_t Frame() const { return m_session->Frame(); }
    Bytes Sent(uint64_t frame) { return m_session->Camera().Expected(frame); }
    // From the image after the fault on, everything is right again.
    void ExpectTheNextIsExact()
    {
        ExpectExactImages(m_session->Stream(), m_session->Camera(), 4, 2);
    }

private:
    std::optional<Streaming> m_session;
};

TEST_F(OneFault, LeaderLost_TheImageBeforeUnderAnEarlierNumber)
{
    const Bytes image = ImageWith("leader-lost");
    EXPECT_EQ(image, Sent(2));
    EXPECT_EQ(Frame(), 0u); // of the buffer's earlier image: it had none
    ExpectTheNextIsExact();
}

TEST_F(OneFault, PayloadTruncated_TheTrailerThenTheImageThenTheOneBefore)
{
    const Bytes image = ImageWith("payload-short", ":1024"); // by so many bytes
    EXPECT_EQ(Frame(), 3u);
    EXPECT_TRUE(StartsWithTrailer(image));
    const Bytes sent = Sent(3);
    const Bytes before = Sent(2);
    EXPECT_TRUE(std::equal(image.begin() + 32, image.begin() + 2048, sent.begin() + 32));
    EXPECT_TRUE(std::equal(image.begin() + 2048, image.end(), before.begin() + 2048));
    ExpectTheNextIsExact();
}

TEST_F(OneFault, PayloadLost_TheTrailerOverTheImageBefore)
{
    const Bytes image = ImageWith("payload-lost");
    EXPECT_EQ(Frame(), 3u);
    EXPECT_TRUE(StartsWithTrailer(image));
    const Bytes before = Sent(2);
    EXPECT_TRUE(std::equal(image.begin() + 32, image.end(), before.begin() + 32));
    ExpectTheNextIsExact();
}

TEST_F(OneFault, TrailerWithAStatus_TheImageAsIfTheCameraWereContent)
{
    const Bytes image = ImageWith("trailer-status", ":0xA101");
    EXPECT_EQ(image, Sent(3));
    EXPECT_EQ(Frame(), 3u);
    ExpectTheNextIsExact();
}

TEST_F(KnownLimits, SubmitRefused_StreamingEndsWithoutAWordUntilTheNextStart)
{
    Streaming session("width=64,height=48");
    ASSERT_TRUE(session.Stream().Next());
    ASSERT_EQ(vusb_fail_call("libusb_submit_transfer", 0, 1, -1), 0);
    while (session.Stream().Next(kSilence)) {
    }
    session.Stream().Stop();
    session.Stream().Rewind();
    session.Stream().Start();
    EXPECT_TRUE(session.Stream().Next());
}

// ---- the control channel

TEST_F(KnownLimits, AcknowledgesBelow268Bytes_LongerReadsFail)
{
    const vusb::Camera camera("max-acknowledge=128");
    const auto session = OpenSession();
    const OpenCamera opened(session);
    Bytes bytes(257);
    EXPECT_EQ(opened.TryRead(0, bytes.data(), 116), GC_ERR_SUCCESS);
    EXPECT_EQ(opened.TryRead(0, bytes.data(), 117), GC_ERR_IO);
    EXPECT_EQ(opened.TryRead(0, bytes.data(), 256), GC_ERR_IO);
    EXPECT_EQ(opened.TryRead(0, bytes.data(), 257), GC_ERR_IO);
}

TEST_F(KnownLimits, AcknowledgeLost_TheAccessFailsAndIsNotRepeated)
{
    const vusb::Camera camera("response-ms=200");
    const auto session = OpenSession();
    const OpenCamera opened(session);
    const uint64_t before = camera.Stats().control_transactions;
    camera.SetFaults("reply-missing@0*1");
    uint32_t value = 0;
    EXPECT_EQ(opened.TryRead(0, &value, sizeof(value)), GC_ERR_IO);
    EXPECT_EQ(camera.Stats().control_transactions, before + 1);
    EXPECT_EQ(opened.TryRead(0, &value, sizeof(value)), GC_ERR_SUCCESS);
}

// Each answer is taken for that to the command after it, whatever is asked.
TEST_F(KnownLimits, AcknowledgeDoubled_AccessesFailUntilTheSecondOpening)
{
    const vusb::Camera camera("guid=120900000001");
    const auto session = OpenSession();
    std::optional<OpenCamera> opened(session);
    camera.SetFaults("reply-doubled@0*1");
    uint32_t value = 0;
    EXPECT_EQ(opened->TryRead(0, &value, sizeof(value)), GC_ERR_SUCCESS);
    for (int access = 0; access < 20; ++access) {
        EXPECT_EQ(opened->TryRead(0, &value, sizeof(value)), GC_ERR_IO) << access;
    }
    opened.reset();
    EXPECT_EQ(StatusOfOpening(session, "120900000001"), GC_ERR_ERROR);
    EXPECT_EQ(StatusOfOpening(session, "120900000001"), GC_ERR_SUCCESS);
}

// ---- a process that forks

// Waits for its end, and is ended with the test at the latest.
class Child
{
public:
    explicit Child(pid_t pid) : m_pid(pid) {}
    ~Child() { End(); }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    void End()
    {
        if (m_pid > 0) {
            kill(m_pid, SIGKILL);
            EXPECT_EQ(waitpid(std::exchange(m_pid, 0), nullptr, 0) > 0, true);
        }
    }

private:
    pid_t m_pid;
};

pid_t Fork()
{
    const pid_t pid = fork();
    if (pid == 0) {
        for (;;) {
            pause();
        }
    }
    return pid;
}

pid_t Spawn()
{
    pid_t pid = 0;
    char name[] = "sleep";
    char seconds[] = "1000";
    char* const arguments[] = {name, seconds, nullptr};
    return posix_spawnp(&pid, name, nullptr, nullptr, arguments, environ) == 0 ? pid : -1;
}

TEST_F(KnownLimits, ChildForkedWhileTheCameraIsOpen_ItDoesNotOpenAgainUntilTheChildEnds)
{
    const vusb::Camera camera("guid=120900000001");
    const auto session = OpenSession();
    std::optional<OpenCamera> opened(session);
    const pid_t pid = Fork();
    ASSERT_GT(pid, 0);
    Child child(pid);
    opened.reset();
    EXPECT_EQ(StatusOfOpening(session, "120900000001"), GC_ERR_ERROR);
    EXPECT_EQ(StatusOfOpening(session, "120900000001"), GC_ERR_ERROR);
    child.End();
    EXPECT_EQ(StatusOfOpening(session, "120900000001"), GC_ERR_SUCCESS);
}

TEST_F(KnownLimits, ChildForkedBefore_OrProgramStartedMeanwhile_HoldsNothing)
{
    const vusb::Camera camera("guid=120900000001");
    const auto session = OpenSession();
    const pid_t before = Fork();
    ASSERT_GT(before, 0);
    const Child child(before);
    std::optional<OpenCamera> opened(session);
    const pid_t started = Spawn();
    ASSERT_GT(started, 0);
    const Child program(started);
    opened.reset();
    // The system lets the spawning thread go on a moment before the program has lost its files.
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    GC_ERROR status = GC_ERR_ERROR;
    while (status != GC_ERR_SUCCESS && std::chrono::steady_clock::now() < end) {
        status = StatusOfOpening(session, "120900000001");
    }
    EXPECT_EQ(status, GC_ERR_SUCCESS);
}

// ---- what an image says about itself

TEST_F(KnownLimits, SizeFilled_IsTheBuffersSize)
{
    const vusb::Camera camera("width=64,height=48,fps=100");
    const auto session = OpenSession();
    const OpenCamera opened(session);
    ImageStream stream(opened, camera.PayloadSize() + 1000);
    stream.Start();
    const auto image = stream.Next();
    ASSERT_TRUE(image);
    EXPECT_EQ(image->bytes.size(), camera.PayloadSize() + 1000);
}

} // namespace
