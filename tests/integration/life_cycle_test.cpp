// Opening, starting, stopping and closing in every order, from one thread and from several.

#include "producer_fixture.h"

#include <atomic>
#include <chrono>
#include <thread>

namespace {

constexpr const char* kInterfaceId = "ZRK-USB-3-IF ID";
constexpr const char* kCameraId = "120900000001";

class LifeCycle : public ProducerTest
{
protected:
    // Takes images until none comes for a moment; every one of them is whole.
    static uint64_t Drain(ImageStream& stream, const vusb::Camera& camera)
    {
        uint64_t images = 0;
        while (const auto image = stream.Next(50)) {
            EXPECT_TRUE(IsExact(*image, camera));
            ++images;
        }
        return images;
    }
};

TEST_F(LifeCycle, StopAndRestart200Times_EveryRoundDelivers)
{
    const vusb::Camera camera("width=64,height=64");
    const auto session = OpenSession();
    const OpenCamera opened(session);
    ImageStream stream(opened, camera.PayloadSize());
    for (int round = 0; round < 200; ++round) {
        stream.Start();
        ASSERT_TRUE(stream.Next()) << "round " << round;
        stream.Stop(round % 2 == 0 ? ACQ_STOP_FLAGS_DEFAULT : ACQ_STOP_FLAGS_KILL);
        if (round % 3 == 0) {
            EXPECT_NO_THROW(stream.Stop()) << "a second stop";
        }
        stream.Rewind();
    }
}

TEST_F(LifeCycle, StopBeforeStart_IsSuccess)
{
    const vusb::Camera camera("width=64,height=64");
    const auto session = OpenSession();
    const OpenCamera opened(session);
    EXPECT_EQ(Gentl().DSStopAcquisition(opened.Stream().Handle(), ACQ_STOP_FLAGS_DEFAULT),
              GC_ERR_SUCCESS);
    EXPECT_EQ(Gentl().DSStopAcquisition(opened.Stream().Handle(), ACQ_STOP_FLAGS_KILL),
              GC_ERR_SUCCESS);
}

TEST_F(LifeCycle, RestartAfterALimitedAcquisition_Delivers)
{
    const vusb::Camera camera("width=64,height=64");
    const auto session = OpenSession();
    const OpenCamera opened(session);
    ImageStream stream(opened, camera.PayloadSize());
    stream.Start(3);
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(stream.Next());
    }
    stream.Stop();
    stream.Rewind();
    stream.Start();
    EXPECT_TRUE(stream.Next());
}

TEST_F(LifeCycle, CountAbove32Bits_CameraSendsItsLowBits_StopAndRestartWork)
{
    const vusb::Camera camera("width=64,height=64");
    const auto session = OpenSession();
    const OpenCamera opened(session);
    ImageStream stream(opened, camera.PayloadSize());
    stream.Start((uint64_t{1} << 32) + 2);
    EXPECT_TRUE(stream.Next());
    EXPECT_TRUE(stream.Next());
    EXPECT_FALSE(stream.Next(300));
    EXPECT_NO_THROW(stream.Stop());
    stream.Rewind();
    stream.Start();
    EXPECT_TRUE(stream.Next());
}

TEST_F(LifeCycle, StartWhileAcquiring_RestartsTheStream)
{
    const vusb::Camera camera("width=64,height=64");
    const auto session = OpenSession();
    const OpenCamera opened(session);
    ImageStream stream(opened, camera.PayloadSize());
    stream.Start();
    ASSERT_TRUE(stream.Next());
    stream.Start();
    EXPECT_TRUE(stream.Next());
}

void UpdateUntilListed(IF_HANDLE interface, uint32_t cameras)
{
    EXPECT_TRUE(zr_test::WaitUntil([interface, cameras] {
        uint32_t count = 0;
        Gentl().IFUpdateDeviceList(interface, nullptr, kUpdateTime);
        return Gentl().IFGetNumDevices(interface, &count) == GC_ERR_SUCCESS && count == cameras;
    }));
}

// Handles without owners: here some are closed by what they came from.
struct RawStream
{
    TL_HANDLE system = nullptr;
    IF_HANDLE interface = nullptr;
    DEV_HANDLE device = nullptr;
    DS_HANDLE stream = nullptr;
    EVENT_HANDLE event = nullptr;

    RawStream()
    {
        EXPECT_EQ(Gentl().TLOpen(&system), GC_ERR_SUCCESS);
        EXPECT_EQ(Gentl().TLUpdateInterfaceList(system, nullptr, 0), GC_ERR_SUCCESS);
        EXPECT_EQ(Gentl().TLOpenInterface(system, kInterfaceId, &interface), GC_ERR_SUCCESS);
        UpdateUntilListed(interface, 1);
        EXPECT_EQ(Gentl().IFOpenDevice(interface, kCameraId, DEVICE_ACCESS_EXCLUSIVE, &device),
                  GC_ERR_SUCCESS);
        EXPECT_EQ(Gentl().DevOpenDataStream(device, "0", &stream), GC_ERR_SUCCESS);
        EXPECT_EQ(Gentl().GCRegisterEvent(stream, EVENT_NEW_BUFFER, &event), GC_ERR_SUCCESS);
    }
};

TEST_F(LifeCycle, CloseInEveryState_LeavesNothing)
{
    const vusb::Camera camera("width=64,height=64");
    enum Closing
    {
        Stream,
        Device,
        Interface,
        System,
        Library
    };
    for (const Closing closing : {Stream, Device, Interface, System, Library}) {
        const RawStream raw;
        BUFFER_HANDLE buffer = nullptr;
        ASSERT_EQ(
            Gentl().DSAllocAndAnnounceBuffer(raw.stream, camera.PayloadSize(), nullptr, &buffer),
            GC_ERR_SUCCESS);
        ASSERT_EQ(Gentl().DSQueueBuffer(raw.stream, buffer), GC_ERR_SUCCESS);
        ASSERT_EQ(Gentl().DSStartAcquisition(raw.stream, 0, GENTL_INFINITE), GC_ERR_SUCCESS);
        switch (closing) {
        case Stream: ASSERT_EQ(Gentl().DSClose(raw.stream), GC_ERR_SUCCESS); [[fallthrough]];
        case Device: ASSERT_EQ(Gentl().DevClose(raw.device), GC_ERR_SUCCESS); [[fallthrough]];
        case Interface: ASSERT_EQ(Gentl().IFClose(raw.interface), GC_ERR_SUCCESS); [[fallthrough]];
        case System: ASSERT_EQ(Gentl().TLClose(raw.system), GC_ERR_SUCCESS); [[fallthrough]];
        case Library: ASSERT_EQ(Gentl().GCCloseLib(), GC_ERR_SUCCESS);
        }
        vusb_live_objects live{};
        vusb_get_live_objects(&live);
        EXPECT_EQ(live.handles, 0u) << closing;
        EXPECT_EQ(live.transfers, 0u) << closing;
        EXPECT_EQ(live.contexts, 0u) << closing;
        ASSERT_EQ(Gentl().GCInitLib(), GC_ERR_SUCCESS);
    }
}

TEST_F(LifeCycle, ClosingTheDevice_ReleasesAWaiterWithAbort)
{
    const vusb::Camera camera("width=64,height=64,fps=1");
    const RawStream raw;
    GC_ERROR status = GC_ERR_SUCCESS;
    zr_test::WatchedThread waiter([&] {
        EVENT_NEW_BUFFER_DATA data{};
        size_t size = sizeof(data);
        status = Gentl().EventGetData(raw.event, &data, &size, 60000);
    });
    EXPECT_TRUE(waiter.UntilAsleep());
    EXPECT_EQ(Gentl().DevClose(raw.device), GC_ERR_SUCCESS);
    waiter.Join();
    EXPECT_EQ(status, GC_ERR_ABORT);
    EXPECT_EQ(Gentl().TLClose(raw.system), GC_ERR_SUCCESS);
}

TEST_F(LifeCycle, RevokeAndAnnounceBetweenAcquisitions_Works)
{
    const vusb::Camera camera("width=64,height=64");
    const auto session = OpenSession();
    const OpenCamera opened(session);
    for (int round = 0; round < 20; ++round) {
        ImageStream stream(opened, camera.PayloadSize(), 1 + static_cast<size_t>(round) % 5);
        stream.Start();
        ASSERT_TRUE(stream.Next());
    }
}

TEST_F(LifeCycle, DiscardAndRevokeWhileImagesArrive_NeverTouchesFreedMemory)
{
    const vusb::Camera camera("width=256,height=256");
    const auto session = OpenSession();
    const OpenCamera opened(session);
    ImageStream stream(opened, camera.PayloadSize(), 2);
    stream.Start();
    for (int round = 0; round < 100; ++round) {
        ASSERT_EQ(Gentl().DSFlushQueue(opened.Stream().Handle(), ACQ_QUEUE_ALL_DISCARD),
                  GC_ERR_SUCCESS);
        for (BUFFER_HANDLE buffer : stream.Buffers()) {
            const GC_ERROR status = StatusOf([&] { stream.Queue(buffer); });
            ASSERT_TRUE(status == GC_ERR_SUCCESS || status == GC_ERR_RESOURCE_IN_USE);
        }
        static_cast<void>(stream.Next(5));
    }
    ASSERT_EQ(Gentl().DSFlushQueue(opened.Stream().Handle(), ACQ_QUEUE_ALL_DISCARD),
              GC_ERR_SUCCESS);
}

// A joined thread may still stand in the process's list for a moment.
size_t ThreadCountAtRest(size_t expected)
{
    zr_test::WaitUntil([expected] { return ThreadCount() == expected; }, std::chrono::seconds(10));
    return ThreadCount();
}

TEST_F(LifeCycle, ManyRounds_ThreadsAndDescriptorsStayFlat)
{
    const vusb::Camera camera("width=64,height=64");
    const auto streamOnce = [&camera] {
        const auto session = OpenSession();
        const OpenCamera opened(session);
        ImageStream stream(opened, camera.PayloadSize());
        stream.Start();
        ASSERT_TRUE(stream.Next());
    };
    streamOnce(); // a sanitizer starts a thread of its own beside the first one
    const size_t threads = ThreadCountAtRest(1);
    const size_t descriptors = DescriptorCount();
    for (int round = 0; round < 30; ++round) {
        streamOnce();
    }
    EXPECT_EQ(ThreadCountAtRest(threads), threads);
    EXPECT_EQ(DescriptorCount(), descriptors);
}

TEST_F(LifeCycle, UpdateWithoutEnd_TimesOutAndTheInterfaceClosesWithinAPass)
{
    const vusb::Camera camera("guid=120900000001");
    std::optional<consumer::Session> session(std::in_place, Gentl());
    EXPECT_EQ(Gentl().IFUpdateDeviceList(session->Interface(), nullptr, GENTL_INFINITE),
              GC_ERR_TIMEOUT);
    const auto begin = std::chrono::steady_clock::now();
    session.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
}

// A silent camera ends when its transfer times out, up to 3 s later: all of them at once, not one
// after the other.
TEST_F(LifeCycle, CloseLib_ManySilentCameras_EndSideBySide)
{
    const vusb::Camera cameras("width=16,height=16,count=12,faults=stream-silent");
    TL_HANDLE system = nullptr;
    ASSERT_EQ(Gentl().TLOpen(&system), GC_ERR_SUCCESS);
    ASSERT_EQ(Gentl().TLUpdateInterfaceList(system, nullptr, 0), GC_ERR_SUCCESS);
    IF_HANDLE interface = nullptr;
    ASSERT_EQ(Gentl().TLOpenInterface(system, kInterfaceId, &interface), GC_ERR_SUCCESS);
    UpdateUntilListed(interface, 12);
    for (uint32_t index = 0; index < 12; ++index) {
        char id[64];
        size_t size = sizeof(id);
        ASSERT_EQ(Gentl().IFGetDeviceID(interface, index, id, &size), GC_ERR_SUCCESS);
        DEV_HANDLE device = nullptr;
        ASSERT_EQ(Gentl().IFOpenDevice(interface, id, DEVICE_ACCESS_EXCLUSIVE, &device),
                  GC_ERR_SUCCESS);
        DS_HANDLE stream = nullptr;
        ASSERT_EQ(Gentl().DevOpenDataStream(device, "0", &stream), GC_ERR_SUCCESS);
        BUFFER_HANDLE buffer = nullptr;
        ASSERT_EQ(Gentl().DSAllocAndAnnounceBuffer(stream, 256, nullptr, &buffer), GC_ERR_SUCCESS);
        ASSERT_EQ(Gentl().DSQueueBuffer(stream, buffer), GC_ERR_SUCCESS);
        ASSERT_EQ(Gentl().DSStartAcquisition(stream, 0, GENTL_INFINITE), GC_ERR_SUCCESS);
    }
    const auto begin = std::chrono::steady_clock::now();
    ASSERT_EQ(Gentl().GCCloseLib(), GC_ERR_SUCCESS);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(9));
    ASSERT_EQ(Gentl().GCInitLib(), GC_ERR_SUCCESS);
}

} // namespace
