// Images: every byte, in order, none lost, in all formats and sizes, with slow and fast consumers
// and cameras.

#include "producer_fixture.h"

#include <chrono>
#include <cstring>
#include <future>
#include <thread>

namespace {

class Streaming : public ProducerTest
{
protected:
    // Streams `count` images at full speed, every byte checked.
    static void ExpectStream(const std::string& options, uint64_t count)
    {
        const vusb::Camera camera(options);
        const auto session = OpenSession();
        const OpenCamera opened(session);
        const Triggers triggers(opened);
        ImageStream stream(opened, camera.PayloadSize());
        stream.Start();
        ExpectExactImages(stream, camera, 0, count, &triggers);
        EXPECT_EQ(vusb_camera_errors(camera.Id(), nullptr), 0u);
    }
};

TEST_F(Streaming, TenThousandImagesOf640x480_ArriveExactAndInOrder)
{
    ExpectStream("width=640,height=480,format=Mono8", 10000);
}

TEST_F(Streaming, ThousandImagesOf2048x1536_ArriveExactAndInOrder)
{
    ExpectStream("width=2048,height=1536,format=Mono8", 1000);
}

struct Geometry
{
    const char* name;
    const char* options;
};

class StreamingGeometry : public Streaming, public ::testing::WithParamInterface<Geometry>
{
};

TEST_P(StreamingGeometry, EveryByteIsExact)
{
    ExpectStream(GetParam().options, 20);
}

INSTANTIATE_TEST_SUITE_P(
    Formats, StreamingGeometry,
    ::testing::Values(
        Geometry{"Mono8", "width=320,height=240,format=Mono8"},
        Geometry{"Mono10", "width=320,height=240,format=Mono10"},
        Geometry{"Mono12", "width=320,height=240,format=Mono12"},
        Geometry{"Mono12p", "width=320,height=240,format=Mono12p"},
        Geometry{"Mono16", "width=320,height=240,format=Mono16"},
        Geometry{"BayerRG8", "width=320,height=240,format=BayerRG8"},
        Geometry{"BayerGB8", "width=320,height=240,format=BayerGB8"},
        Geometry{"BayerGR8", "width=320,height=240,format=BayerGR8"},
        Geometry{"BayerBG8", "width=320,height=240,format=BayerBG8"},
        Geometry{"RGB8", "width=320,height=240,format=RGB8"},
        Geometry{"BGR8", "width=320,height=240,format=BGR8"},
        Geometry{"YUV422_8", "width=320,height=240,format=YUV422_8"},
        // The transfer plan: less than one transfer, exactly one, exactly three, three and a rest.
        Geometry{"SmallerThanOneTransfer", "width=64,height=64"},
        Geometry{"OneTransfer", "width=1024,height=1024"},
        Geometry{"ThreeTransfers", "width=1024,height=3072"},
        Geometry{"ThreeTransfersAndARest", "width=1024,height=3100"},
        Geometry{"LargeAlignment", "width=1024,height=3100,alignment=5"},
        Geometry{"LargerLeaderAndTrailer", "width=640,height=480,leader=128,trailer=64"},
        Geometry{"HighSpeed", "width=640,height=480,high-speed=1"}),
    [](const auto& tested) { return std::string(tested.param.name); });

TEST_F(Streaming, BufferDescription_IsTheLeaders)
{
    const vusb::Camera camera("width=320,height=200,format=Mono12");
    const auto session = OpenSession();
    const OpenCamera opened(session);
    ImageStream stream(opened, camera.PayloadSize());
    stream.Start();
    const auto image = stream.Next();
    ASSERT_TRUE(image);
    EXPECT_EQ(image->width, 320u);
    EXPECT_EQ(image->height, 200u);
    EXPECT_EQ(image->pixelFormat, 0x01100005u);
    EXPECT_EQ(image->bytes.size(), camera.PayloadSize());
    EXPECT_FALSE(image->isIncomplete);
    EXPECT_NE(image->timestamp, 0u);
    BUFFER_HANDLE const buffer = image->buffer;
    EXPECT_EQ(stream.Info<size_t>(buffer, BUFFER_INFO_PAYLOADTYPE), size_t{PAYLOAD_TYPE_IMAGE});
    EXPECT_TRUE(stream.Info<bool8_t>(buffer, BUFFER_INFO_NEW_DATA));
    EXPECT_FALSE(stream.Info<bool8_t>(buffer, BUFFER_INFO_IS_QUEUED));
    EXPECT_FALSE(stream.Info<bool8_t>(buffer, BUFFER_INFO_IS_ACQUIRING));
}

TEST_F(Streaming, UserPointer_ComesWithTheEventAndAsBufferInfo)
{
    const vusb::Camera camera("width=64,height=64,fps=50");
    const auto session = OpenSession();
    const OpenCamera opened(session);
    ImageStream stream(opened, camera.PayloadSize());
    stream.Start();
    EVENT_NEW_BUFFER_DATA data{};
    size_t size = sizeof(data);
    ASSERT_EQ(Gentl().EventGetData(stream.NewBufferEvent(), &data, &size, kImageTimeout),
              GC_ERR_SUCCESS);
    EXPECT_EQ(data.pUserPointer, &stream);
    EXPECT_EQ(stream.Info<void*>(data.BufferHandle, BUFFER_INFO_USER_PTR), &stream);
}

TEST_F(Streaming, ProducerAllocatedBuffers_AreFilledAndFreed)
{
    const vusb::Camera camera("width=64,height=64,fps=5");
    const auto session = OpenSession();
    const OpenCamera opened(session);
    consumer::Acquisition stream(opened.Stream(), camera.PayloadSize(), 1,
                                 consumer::BufferMemory::OfProducer);
    stream.Start();
    const auto image = stream.Next(kImageTimeout);
    ASSERT_TRUE(image);
    EXPECT_EQ(image->frameId, 0u);
    EXPECT_TRUE(IsExact(*image, camera));
}

TEST_F(Streaming, SlowCamera_EveryImageComesAtItsRate)
{
    const vusb::Camera camera("width=64,height=64,fps=20");
    const auto session = OpenSession();
    const OpenCamera opened(session);
    ImageStream stream(opened, camera.PayloadSize(), 20); // as many as images: none is lost
    stream.Start();
    const auto begin = std::chrono::steady_clock::now();
    ExpectExactImages(stream, camera, 0, 20);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(850));
}

TEST_F(Streaming, ConsumerWithoutQueuedBuffers_GetsTheNextImageWithinAMomentOfQueueing)
{
    const vusb::Camera camera("width=64,height=64,fps=200");
    const auto session = OpenSession();
    const OpenCamera opened(session);
    ImageStream stream(opened, camera.PayloadSize(), 1);
    stream.Start();
    const auto first = stream.Next();
    ASSERT_TRUE(first);
    EXPECT_FALSE(stream.Next(50)) << "no buffer is queued";
    stream.Queue(first->buffer);
    EXPECT_TRUE(stream.Next());
}

// A consumer that falls behind sees the latest content of the channel's cycling buffers: whole
// images, never torn ones.
TEST_F(Streaming, ConsumerSlowerThanCamera_GetsWholeImages)
{
    const vusb::Camera camera("width=256,height=256,fps=0");
    const auto session = OpenSession();
    const OpenCamera opened(session);
    ImageStream stream(opened, camera.PayloadSize(), 2);
    stream.Start();
    for (int i = 0; i < 40; ++i) {
        const auto image = stream.Next();
        ASSERT_TRUE(image);
        EXPECT_TRUE(IsExact(*image, camera));
        zr_test::LetPass(std::chrono::milliseconds(5), "slower than the camera");
        stream.Queue(image->buffer);
    }
}

TEST_F(Streaming, TwoCamerasAtOnce_BothExact)
{
    const vusb::Camera first("width=320,height=240,guid=120900000001,seed=1");
    const vusb::Camera second("width=400,height=300,guid=120900000002,seed=2");
    const auto session = OpenSession();
    ASSERT_EQ(session.CameraIds().size(), 2u);
    const OpenCamera openFirst(session, 0);
    const OpenCamera openSecond(session, 1);
    const Triggers triggersFirst(openFirst);
    const Triggers triggersSecond(openSecond);
    ImageStream streamFirst(openFirst, first.PayloadSize(), 8);
    ImageStream streamSecond(openSecond, second.PayloadSize(), 8);
    streamFirst.Start();
    streamSecond.Start();
    auto other = std::async(std::launch::async, [&] {
        ExpectExactImages(streamSecond, second, 0, 300, &triggersSecond);
    });
    ExpectExactImages(streamFirst, first, 0, 300, &triggersFirst);
    other.get();
}

// Never a byte beyond the announced memory: what fits is there, and the buffer says that it is not
// the whole image.
TEST_F(Streaming, ImageLargerThanTheBuffer_IsCutAndIncomplete)
{
    const vusb::Camera camera("width=640,height=480,fps=5");
    const auto session = OpenSession();
    const OpenCamera opened(session);
    constexpr size_t kSmall = 100000;
    constexpr uint8_t kGuard = 0xA5;
    // The buffer is said to end where the guard begins.
    std::vector<uint8_t> memory(kSmall + 4096, kGuard);
    BUFFER_HANDLE buffer = nullptr;
    ImageStream stream(opened, camera.PayloadSize(), 0);
    ASSERT_EQ(
        Gentl().DSAnnounceBuffer(opened.Stream().Handle(), memory.data(), kSmall, nullptr, &buffer),
        GC_ERR_SUCCESS);
    stream.Queue(buffer);
    stream.Start();
    const auto image = stream.Next();
    ASSERT_TRUE(image);
    stream.Stop();
    const auto reference = camera.Expected(0);
    EXPECT_EQ(memcmp(memory.data(), reference.data(), kSmall), 0);
    EXPECT_EQ(memory[kSmall], kGuard);
    EXPECT_TRUE(image->isIncomplete);
    EXPECT_EQ(image->bytes.size(), kSmall);
}

TEST_F(Streaming, LimitedAcquisitionOfThree_DeliversThreeAndStopsItself)
{
    const vusb::Camera camera("width=64,height=64,fps=50");
    const auto session = OpenSession();
    const OpenCamera opened(session);
    ImageStream stream(opened, camera.PayloadSize());
    stream.Start(3);
    ExpectExactImages(stream, camera, 0, 3);
    EXPECT_FALSE(stream.Next(200));
    stream.Stop();
    EXPECT_EQ(opened.Stream().Info<uint64_t>(STREAM_INFO_NUM_DELIVERED), 3u);
}

} // namespace
