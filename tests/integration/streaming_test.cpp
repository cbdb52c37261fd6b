// Images: every byte, in order, none lost, in all formats and sizes, with slow and fast consumers
// and cameras.

#include "producer_session.h"

#include <chrono>
#include <cstring>
#include <thread>

namespace {

class Streaming : public ProducerTest
{
protected:
    // Streams `count` images at full speed, every byte checked.
    static void ExpectStream(const std::string& options, uint64_t count)
    {
        const vusb::Camera camera(options);
        const Producer producer;
        const OpenCamera opened(producer);
        const Triggers triggers(opened);
        const ImageStream stream(opened.Stream(), camera.PayloadSize());
        ASSERT_EQ(stream.Start(), GC_ERR_SUCCESS);
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
    const Producer producer;
    const OpenCamera opened(producer);
    ImageStream stream(opened.Stream(), camera.PayloadSize());
    ASSERT_EQ(stream.Start(), GC_ERR_SUCCESS);
    const auto image = stream.Next();
    ASSERT_TRUE(image);
    EXPECT_EQ(stream.Info<size_t>(image->handle, BUFFER_INFO_WIDTH), 320u);
    EXPECT_EQ(stream.Info<size_t>(image->handle, BUFFER_INFO_HEIGHT), 200u);
    EXPECT_EQ(stream.Info<uint64_t>(image->handle, BUFFER_INFO_PIXELFORMAT), 0x01100005u);
    EXPECT_EQ(stream.Info<size_t>(image->handle, BUFFER_INFO_PAYLOADTYPE),
              size_t{PAYLOAD_TYPE_IMAGE});
    EXPECT_EQ(stream.SizeFilled(image->handle), camera.PayloadSize());
    EXPECT_FALSE(stream.IsIncomplete(image->handle));
    EXPECT_TRUE(stream.Info<bool8_t>(image->handle, BUFFER_INFO_NEW_DATA));
    EXPECT_FALSE(stream.Info<bool8_t>(image->handle, BUFFER_INFO_IS_QUEUED));
    EXPECT_FALSE(stream.Info<bool8_t>(image->handle, BUFFER_INFO_IS_ACQUIRING));
    EXPECT_EQ(image->userPointer, stream.Info<void*>(image->handle, BUFFER_INFO_USER_PTR));
    EXPECT_NE(stream.Info<uint64_t>(image->handle, BUFFER_INFO_TIMESTAMP), 0u);
}

TEST_F(Streaming, ProducerAllocatedBuffers_AreFilledAndFreed)
{
    const vusb::Camera camera("width=64,height=64,fps=5");
    const Producer producer;
    const OpenCamera opened(producer);
    BUFFER_HANDLE buffer = nullptr;
    ASSERT_EQ(DSAllocAndAnnounceBuffer(opened.Stream(), camera.PayloadSize(), nullptr, &buffer),
              GC_ERR_SUCCESS);
    EVENT_HANDLE event = nullptr;
    ASSERT_EQ(GCRegisterEvent(opened.Stream(), EVENT_NEW_BUFFER, &event), GC_ERR_SUCCESS);
    ASSERT_EQ(DSQueueBuffer(opened.Stream(), buffer), GC_ERR_SUCCESS);
    ASSERT_EQ(DSStartAcquisition(opened.Stream(), ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE),
              GC_ERR_SUCCESS);
    EVENT_NEW_BUFFER_DATA data{};
    size_t size = sizeof(data);
    ASSERT_EQ(EventGetData(event, &data, &size, kImageTimeout), GC_ERR_SUCCESS);
    EXPECT_EQ(data.BufferHandle, buffer);
    void* base = nullptr;
    INFO_DATATYPE type = INFO_DATATYPE_UNKNOWN;
    size = sizeof(base);
    ASSERT_EQ(DSGetBufferInfo(opened.Stream(), buffer, BUFFER_INFO_BASE, &type, &base, &size),
              GC_ERR_SUCCESS);
    EXPECT_EQ(vusb_compare_image(camera.Id(), 0, base, camera.PayloadSize()), -1);
    EXPECT_EQ(DSStopAcquisition(opened.Stream(), ACQ_STOP_FLAGS_DEFAULT), GC_ERR_SUCCESS);
    EXPECT_EQ(DSRevokeBuffer(opened.Stream(), buffer, nullptr, nullptr), GC_ERR_SUCCESS);
}

TEST_F(Streaming, SlowCamera_EveryImageComesAtItsRate)
{
    const vusb::Camera camera("width=64,height=64,fps=20");
    const Producer producer;
    const OpenCamera opened(producer);
    const ImageStream stream(opened.Stream(), camera.PayloadSize());
    ASSERT_EQ(stream.Start(), GC_ERR_SUCCESS);
    const auto begin = std::chrono::steady_clock::now();
    ExpectExactImages(stream, camera, 0, 20);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(850));
}

TEST_F(Streaming, ConsumerWithoutQueuedBuffers_GetsTheNextImageWithinAMomentOfQueueing)
{
    const vusb::Camera camera("width=64,height=64,fps=200");
    const Producer producer;
    const OpenCamera opened(producer);
    const ImageStream stream(opened.Stream(), camera.PayloadSize(), 1);
    ASSERT_EQ(stream.Start(), GC_ERR_SUCCESS);
    const auto first = stream.Next();
    ASSERT_TRUE(first);
    EXPECT_FALSE(stream.Next(50)) << "no buffer is queued";
    ASSERT_EQ(stream.Queue(first->handle), GC_ERR_SUCCESS);
    EXPECT_TRUE(stream.Next(100)) << "an image was waiting";
}

// A consumer that falls behind sees the latest content of the channel's cycling buffers: whole
// images, never torn ones.
TEST_F(Streaming, ConsumerSlowerThanCamera_GetsWholeImages)
{
    const vusb::Camera camera("width=256,height=256,fps=0");
    const Producer producer;
    const OpenCamera opened(producer);
    const ImageStream stream(opened.Stream(), camera.PayloadSize(), 2);
    ASSERT_EQ(stream.Start(), GC_ERR_SUCCESS);
    for (int i = 0; i < 40; ++i) {
        const auto image = stream.Next();
        ASSERT_TRUE(image);
        const uint64_t frame = stream.FrameId(image->handle);
        EXPECT_EQ(vusb_compare_image(camera.Id(), frame, stream.Base(image->handle),
                                     camera.PayloadSize()),
                  -1);
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        ASSERT_EQ(stream.Queue(image->handle), GC_ERR_SUCCESS);
    }
}

TEST_F(Streaming, TwoCamerasAtOnce_BothExact)
{
    const vusb::Camera first("width=320,height=240,guid=120900000001,seed=1");
    const vusb::Camera second("width=400,height=300,guid=120900000002,seed=2");
    const Producer producer;
    ASSERT_EQ(producer.DeviceIds().size(), 2u);
    const OpenCamera openFirst(producer, 0);
    const OpenCamera openSecond(producer, 1);
    const Triggers triggersFirst(openFirst);
    const Triggers triggersSecond(openSecond);
    const ImageStream streamFirst(openFirst.Stream(), first.PayloadSize(), 8);
    const ImageStream streamSecond(openSecond.Stream(), second.PayloadSize(), 8);
    ASSERT_EQ(streamFirst.Start(), GC_ERR_SUCCESS);
    ASSERT_EQ(streamSecond.Start(), GC_ERR_SUCCESS);
    std::thread other([&] { ExpectExactImages(streamSecond, second, 0, 300, &triggersSecond); });
    ExpectExactImages(streamFirst, first, 0, 300, &triggersFirst);
    other.join();
}

// Never a byte beyond the announced memory: what fits is there, and the buffer says that it is not
// the whole image.
TEST_F(Streaming, ImageLargerThanTheBuffer_IsCutAndIncomplete)
{
    const vusb::Camera camera("width=640,height=480,fps=5");
    const Producer producer;
    const OpenCamera opened(producer);
    constexpr size_t kSmall = 100000;
    constexpr uint8_t kGuard = 0xA5;
    std::vector<uint8_t> memory(kSmall + 4096, kGuard);
    BUFFER_HANDLE buffer = nullptr;
    ASSERT_EQ(DSAnnounceBuffer(opened.Stream(), memory.data(), kSmall, nullptr, &buffer),
              GC_ERR_SUCCESS);
    EVENT_HANDLE event = nullptr;
    ASSERT_EQ(GCRegisterEvent(opened.Stream(), EVENT_NEW_BUFFER, &event), GC_ERR_SUCCESS);
    ASSERT_EQ(DSQueueBuffer(opened.Stream(), buffer), GC_ERR_SUCCESS);
    ASSERT_EQ(DSStartAcquisition(opened.Stream(), ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE),
              GC_ERR_SUCCESS);
    EVENT_NEW_BUFFER_DATA data{};
    size_t size = sizeof(data);
    ASSERT_EQ(EventGetData(event, &data, &size, kImageTimeout), GC_ERR_SUCCESS);
    EXPECT_EQ(DSStopAcquisition(opened.Stream(), ACQ_STOP_FLAGS_DEFAULT), GC_ERR_SUCCESS);

    const auto reference = camera.Expected(0);
    EXPECT_EQ(memcmp(memory.data(), reference.data(), kSmall), 0);
    EXPECT_EQ(memory[kSmall], kGuard);
    bool8_t incomplete = false;
    INFO_DATATYPE type = INFO_DATATYPE_UNKNOWN;
    size = sizeof(incomplete);
    ASSERT_EQ(DSGetBufferInfo(opened.Stream(), buffer, BUFFER_INFO_IS_INCOMPLETE, &type,
                              &incomplete, &size),
              GC_ERR_SUCCESS);
    EXPECT_TRUE(incomplete);
    size_t filled = 0;
    size = sizeof(filled);
    ASSERT_EQ(
        DSGetBufferInfo(opened.Stream(), buffer, BUFFER_INFO_SIZE_FILLED, &type, &filled, &size),
        GC_ERR_SUCCESS);
    EXPECT_EQ(filled, kSmall);
}

TEST_F(Streaming, LimitedAcquisitionOfThree_DeliversThreeAndStopsItself)
{
    const vusb::Camera camera("width=64,height=64,fps=50");
    const Producer producer;
    const OpenCamera opened(producer);
    const ImageStream stream(opened.Stream(), camera.PayloadSize());
    ASSERT_EQ(stream.Start(3), GC_ERR_SUCCESS);
    ExpectExactImages(stream, camera, 0, 3);
    EXPECT_FALSE(stream.Next(200));
    EXPECT_EQ(stream.Stop(), GC_ERR_SUCCESS);
    uint64_t delivered = 0;
    size_t size = sizeof(delivered);
    INFO_DATATYPE type = INFO_DATATYPE_UNKNOWN;
    EXPECT_EQ(DSGetInfo(opened.Stream(), STREAM_INFO_NUM_DELIVERED, &type, &delivered, &size),
              GC_ERR_SUCCESS);
    EXPECT_EQ(delivered, 3u);
}

} // namespace
