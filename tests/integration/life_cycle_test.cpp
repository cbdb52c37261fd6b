// Opening, starting, stopping and closing in every order, from one thread and from several.

#include "producer_session.h"

#include <atomic>
#include <chrono>
#include <thread>

namespace {

class LifeCycle : public ProducerTest
{
protected:
    // Takes images until none comes for a moment; every one of them is whole.
    static uint64_t Drain(const ImageStream& stream, const vusb::Camera& camera)
    {
        uint64_t images = 0;
        while (const auto image = stream.Next(50)) {
            EXPECT_EQ(vusb_compare_image(camera.Id(), stream.FrameId(image->handle),
                                         stream.Base(image->handle), camera.PayloadSize()),
                      -1);
            ++images;
        }
        return images;
    }
};

TEST_F(LifeCycle, StopAndRestart200Times_EveryRoundDelivers)
{
    const vusb::Camera camera("width=64,height=64");
    const Producer producer;
    const OpenCamera opened(producer);
    ImageStream stream(opened.Stream(), camera.PayloadSize());
    for (int round = 0; round < 200; ++round) {
        ASSERT_EQ(stream.Start(), GC_ERR_SUCCESS);
        ASSERT_TRUE(stream.Next()) << "round " << round;
        ASSERT_EQ(stream.Stop(round % 2 == 0 ? ACQ_STOP_FLAGS_DEFAULT : ACQ_STOP_FLAGS_KILL),
                  GC_ERR_SUCCESS);
        if (round % 3 == 0) {
            ASSERT_EQ(stream.Stop(), GC_ERR_SUCCESS) << "a second stop";
        }
        stream.Rewind();
    }
}

TEST_F(LifeCycle, StopBeforeStart_IsSuccess)
{
    const vusb::Camera camera("width=64,height=64");
    const Producer producer;
    const OpenCamera opened(producer);
    EXPECT_EQ(DSStopAcquisition(opened.Stream(), ACQ_STOP_FLAGS_DEFAULT), GC_ERR_SUCCESS);
    EXPECT_EQ(DSStopAcquisition(opened.Stream(), ACQ_STOP_FLAGS_KILL), GC_ERR_SUCCESS);
}

TEST_F(LifeCycle, RestartAfterALimitedAcquisition_Delivers)
{
    const vusb::Camera camera("width=64,height=64");
    const Producer producer;
    const OpenCamera opened(producer);
    ImageStream stream(opened.Stream(), camera.PayloadSize());
    ASSERT_EQ(stream.Start(3), GC_ERR_SUCCESS);
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(stream.Next());
    }
    EXPECT_EQ(stream.Stop(), GC_ERR_SUCCESS);
    stream.Rewind();
    ASSERT_EQ(stream.Start(), GC_ERR_SUCCESS);
    EXPECT_TRUE(stream.Next());
}

TEST_F(LifeCycle, StartWhileAcquiring_RestartsTheStream)
{
    const vusb::Camera camera("width=64,height=64");
    const Producer producer;
    const OpenCamera opened(producer);
    ImageStream stream(opened.Stream(), camera.PayloadSize());
    ASSERT_EQ(stream.Start(), GC_ERR_SUCCESS);
    ASSERT_TRUE(stream.Next());
    ASSERT_EQ(stream.Start(), GC_ERR_SUCCESS);
    EXPECT_TRUE(stream.Next());
}

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
        TL_HANDLE system = nullptr;
        ASSERT_EQ(TLOpen(&system), GC_ERR_SUCCESS);
        ASSERT_EQ(TLUpdateInterfaceList(system, nullptr, 0), GC_ERR_SUCCESS);
        IF_HANDLE iface = nullptr;
        ASSERT_EQ(TLOpenInterface(system, "ZRK-USB-3-IF ID", &iface), GC_ERR_SUCCESS);
        ASSERT_EQ(IFUpdateDeviceList(iface, nullptr, 25 * kUpdateTime), GC_ERR_SUCCESS);
        DEV_HANDLE device = nullptr;
        ASSERT_EQ(IFOpenDevice(iface, "120900000001", DEVICE_ACCESS_EXCLUSIVE, &device),
                  GC_ERR_SUCCESS);
        DS_HANDLE stream = nullptr;
        ASSERT_EQ(DevOpenDataStream(device, "0", &stream), GC_ERR_SUCCESS);
        BUFFER_HANDLE buffer = nullptr;
        ASSERT_EQ(DSAllocAndAnnounceBuffer(stream, camera.PayloadSize(), nullptr, &buffer),
                  GC_ERR_SUCCESS);
        EVENT_HANDLE event = nullptr;
        ASSERT_EQ(GCRegisterEvent(stream, EVENT_NEW_BUFFER, &event), GC_ERR_SUCCESS);
        ASSERT_EQ(DSQueueBuffer(stream, buffer), GC_ERR_SUCCESS);
        ASSERT_EQ(DSStartAcquisition(stream, 0, GENTL_INFINITE), GC_ERR_SUCCESS);
        switch (closing) {
        case Stream: ASSERT_EQ(DSClose(stream), GC_ERR_SUCCESS); [[fallthrough]];
        case Device: ASSERT_EQ(DevClose(device), GC_ERR_SUCCESS); [[fallthrough]];
        case Interface: ASSERT_EQ(IFClose(iface), GC_ERR_SUCCESS); [[fallthrough]];
        case System: ASSERT_EQ(TLClose(system), GC_ERR_SUCCESS); [[fallthrough]];
        case Library: ASSERT_EQ(GCCloseLib(), GC_ERR_SUCCESS);
        }
        vusb_live_objects live{};
        vusb_get_live_objects(&live);
        EXPECT_EQ(live.handles, 0u) << closing;
        EXPECT_EQ(live.transfers, 0u) << closing;
        EXPECT_EQ(live.contexts, 0u) << closing;
        ASSERT_EQ(GCInitLib(), GC_ERR_SUCCESS);
    }
}

TEST_F(LifeCycle, ClosingTheDevice_ReleasesAWaiterWithAbort)
{
    const vusb::Camera camera("width=64,height=64,fps=1");
    const Producer producer;
    OpenCamera opened(producer);
    EVENT_HANDLE event = nullptr;
    ASSERT_EQ(GCRegisterEvent(opened.Stream(), EVENT_NEW_BUFFER, &event), GC_ERR_SUCCESS);
    GC_ERROR status = GC_ERR_SUCCESS;
    std::thread waiter([&] {
        EVENT_NEW_BUFFER_DATA data{};
        size_t size = sizeof(data);
        status = EventGetData(event, &data, &size, 20000);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(DevClose(opened.Device()), GC_ERR_SUCCESS);
    waiter.join();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(2));
    EXPECT_EQ(status, GC_ERR_ABORT);
    opened.Forget();
}

TEST_F(LifeCycle, RevokeAndAnnounceBetweenAcquisitions_Works)
{
    const vusb::Camera camera("width=64,height=64");
    const Producer producer;
    const OpenCamera opened(producer);
    for (int round = 0; round < 20; ++round) {
        const ImageStream stream(opened.Stream(), camera.PayloadSize(),
                                 1 + static_cast<size_t>(round) % 5);
        ASSERT_EQ(stream.Start(), GC_ERR_SUCCESS);
        ASSERT_TRUE(stream.Next());
    }
}

TEST_F(LifeCycle, DiscardAndRevokeWhileImagesArrive_NeverTouchesFreedMemory)
{
    const vusb::Camera camera("width=256,height=256");
    const Producer producer;
    const OpenCamera opened(producer);
    const ImageStream stream(opened.Stream(), camera.PayloadSize(), 2);
    ASSERT_EQ(stream.Start(), GC_ERR_SUCCESS);
    for (int round = 0; round < 100; ++round) {
        ASSERT_EQ(DSFlushQueue(opened.Stream(), ACQ_QUEUE_ALL_DISCARD), GC_ERR_SUCCESS);
        for (BUFFER_HANDLE handle : stream.Handles()) {
            const GC_ERROR status = stream.Queue(handle);
            ASSERT_TRUE(status == GC_ERR_SUCCESS || status == GC_ERR_RESOURCE_IN_USE);
        }
        static_cast<void>(stream.Next(5));
    }
    ASSERT_EQ(DSFlushQueue(opened.Stream(), ACQ_QUEUE_ALL_DISCARD), GC_ERR_SUCCESS);
}

// A joined thread may still stand in the process's list for a moment.
size_t ThreadCountAtRest(size_t expected)
{
    for (int i = 0; i < 200 && ThreadCount() != expected; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return ThreadCount();
}

TEST_F(LifeCycle, ManyRounds_ThreadsAndDescriptorsStayFlat)
{
    const vusb::Camera camera("width=64,height=64");
    const auto streamOnce = [&camera] {
        const Producer producer;
        const OpenCamera opened(producer);
        const ImageStream stream(opened.Stream(), camera.PayloadSize());
        ASSERT_EQ(stream.Start(), GC_ERR_SUCCESS);
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
    TL_HANDLE system = nullptr;
    ASSERT_EQ(TLOpen(&system), GC_ERR_SUCCESS);
    ASSERT_EQ(TLUpdateInterfaceList(system, nullptr, 0), GC_ERR_SUCCESS);
    IF_HANDLE iface = nullptr;
    ASSERT_EQ(TLOpenInterface(system, "ZRK-USB-3-IF ID", &iface), GC_ERR_SUCCESS);
    EXPECT_EQ(IFUpdateDeviceList(iface, nullptr, GENTL_INFINITE), GC_ERR_TIMEOUT);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(IFClose(iface), GC_ERR_SUCCESS);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(1));
    EXPECT_EQ(TLClose(system), GC_ERR_SUCCESS);
}

} // namespace
