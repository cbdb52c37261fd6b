// Closing while other threads are inside, and everything at once.

#include <atomic>
#include <functional>
#include <thread>

#include "stream_fixture.h"

namespace standard_tl {
namespace {

// Threads that run until the test ends them.
class Crowd
{
public:
    explicit Crowd(std::vector<std::function<void()>> jobs)
    {
        for (auto& job : jobs) {
            m_threads.emplace_back([this, job = std::move(job)] {
                while (!m_isOver) {
                    job();
                }
            });
        }
    }
    ~Crowd()
    {
        m_isOver = true;
        for (std::thread& thread : m_threads) {
            thread.join();
        }
    }

private:
    std::atomic<bool> m_isOver = false;
    std::vector<std::thread> m_threads;
};

class ClosingTest : public StreamTest
{
protected:
    // A thread that waits for an image until the event ends, and the closing that ends it.
    void ExpectWaitEnds(const std::function<GC_ERROR()>& close)
    {
        EVENT_HANDLE event = NewBuffer();
        std::atomic<bool> isWaiting = false;
        std::atomic<GC_ERROR> result = 0;
        std::thread waiter([&] {
            EVENT_NEW_BUFFER_DATA data{};
            size_t size = sizeof(data);
            isWaiting = true;
            result = EventGetData(event, &data, &size, GENTL_INFINITE);
        });
        while (!isWaiting) {
            std::this_thread::yield();
        }
        EXPECT_EQ(close(), GC_ERR_SUCCESS);
        waiter.join();
        // A waiter that had not begun yet finds the handle gone.
        EXPECT_TRUE(result == GC_ERR_ABORT || result == GC_ERR_INVALID_HANDLE ||
                    result == GC_ERR_NOT_INITIALIZED)
            << result;
    }
};

TEST_F(ClosingTest, CloseStream_SomebodyWaitsForAnImage_EndsTheWait)
{
    ExpectWaitEnds([this] { return DSClose(Stream()); });
}

TEST_F(ClosingTest, CloseDevice_SomebodyWaitsForAnImage_EndsTheWait)
{
    ExpectWaitEnds([this] { return DevClose(Device()); });
}

TEST_F(ClosingTest, CloseInterface_SomebodyWaitsForAnImage_EndsTheWait)
{
    ExpectWaitEnds([this] { return IFClose(Interface()); });
}

TEST_F(ClosingTest, CloseSystem_SomebodyWaitsForAnImage_EndsTheWait)
{
    ExpectWaitEnds([this] { return TLClose(System()); });
}

TEST_F(ClosingTest, CloseLib_SomebodyWaitsForAnImage_EndsTheWait)
{
    ExpectWaitEnds([] { return GCCloseLib(); });
}

TEST_F(ClosingTest, CloseStream_FromTwoThreads_OneSucceeds)
{
    for (int i = 0; i < 100; ++i) {
        DS_HANDLE stream = nullptr;
        ASSERT_EQ(DevOpenDataStream(Device(), "Stream0", &stream), GC_ERR_SUCCESS);
        std::atomic<int> closed = 0;
        const auto close = [&] { closed += DSClose(stream) == GC_ERR_SUCCESS; };
        std::thread other(close);
        close();
        other.join();
        EXPECT_EQ(closed, 1);
    }
}

TEST_F(ClosingTest, CloseDeviceAndItsStream_AtTheSameTime_BothEnd)
{
    for (int i = 0; i < 100; ++i) {
        DEV_HANDLE device = nullptr;
        DS_HANDLE stream = nullptr;
        ASSERT_EQ(IFOpenDevice(Interface(), "CAM1", DEVICE_ACCESS_CONTROL, &device),
                  GC_ERR_SUCCESS);
        ASSERT_EQ(DevOpenDataStream(device, "Stream0", &stream), GC_ERR_SUCCESS);
        std::thread other([stream] { DSClose(stream); });
        EXPECT_EQ(DevClose(device), GC_ERR_SUCCESS);
        other.join();
        EXPECT_FALSE(camera.mode);
    }
}

// The calls may fail in whatever way; nothing crashes, nothing hangs, and everything works after.
TEST_F(ClosingTest, CloseAndOpenStream_OthersUseIt_NothingBreaks)
{
    std::atomic<DS_HANDLE> stream = nullptr;
    std::atomic<EVENT_HANDLE> event = nullptr;
    std::atomic<BUFFER_HANDLE> buffer = nullptr;
    {
        Crowd crowd({[&] {
                         EVENT_NEW_BUFFER_DATA data{};
                         size_t size = sizeof(data);
                         if (EventGetData(event, &data, &size, 1) == GC_ERR_SUCCESS) {
                             DSQueueBuffer(stream, data.BufferHandle);
                         }
                     },
                     [&] {
                         size_t size = 0;
                         DSGetInfo(stream, STREAM_INFO_NUM_QUEUED, nullptr, nullptr, &size);
                         DSGetBufferInfo(stream, buffer, BUFFER_INFO_BASE, nullptr, nullptr, &size);
                         uint8_t bytes[64];
                         size = sizeof(bytes);
                         GCReadPort(stream, 0x1000, bytes, &size);
                     },
                     [&] {
                         DSFlushQueue(stream, ACQ_QUEUE_ALL_TO_INPUT);
                         DSQueueBuffer(stream, buffer);
                         DSRevokeBuffer(stream, buffer, nullptr, nullptr);
                     },
                     [&] {
                         DSStartAcquisition(stream, 0, GENTL_INFINITE);
                         DSStopAcquisition(stream, ACQ_STOP_FLAGS_KILL);
                         EventKill(event);
                     }});
        for (int i = 0; i < 30; ++i) {
            DS_HANDLE opened = nullptr;
            ASSERT_EQ(DevOpenDataStream(Device(), "Stream0", &opened), GC_ERR_SUCCESS);
            EVENT_HANDLE registered = nullptr;
            ASSERT_EQ(GCRegisterEvent(opened, EVENT_NEW_BUFFER, &registered), GC_ERR_SUCCESS);
            BUFFER_HANDLE announced = nullptr;
            ASSERT_EQ(DSAllocAndAnnounceBuffer(opened, 64, nullptr, &announced), GC_ERR_SUCCESS);
            stream = opened;
            event = registered;
            buffer = announced;
            for (int image = 0; image < 5; ++image) {
                Send();
                std::this_thread::yield();
            }
            ASSERT_EQ(DSClose(opened), GC_ERR_SUCCESS);
        }
    }
    Prepare(1);
    Start();
    EXPECT_TRUE(Send());
    EXPECT_NE(Next(), nullptr);
}

TEST_F(ClosingTest, RegisterAndUnregister_EventsCome_NothingBreaks)
{
    Device();
    {
        Crowd crowd({[&] { bus.TellChange(); },
                     [&] {
                         EVENT_HANDLE event = nullptr;
                         if (GCRegisterEvent(Interface(), EVENT_FEATURE_INVALIDATE, &event) ==
                             GC_ERR_SUCCESS) {
                             char name[256];
                             size_t size = sizeof(name);
                             EventGetData(event, name, &size, 1);
                             GCUnregisterEvent(Interface(), EVENT_FEATURE_INVALIDATE);
                         }
                     }});
        for (int i = 0; i < 200; ++i) {
            GCUnregisterEvent(Interface(), EVENT_FEATURE_INVALIDATE);
            std::this_thread::yield();
        }
    }
    const EVENT_HANDLE event = Register(Interface(), EVENT_FEATURE_INVALIDATE);
    bus.TellChange();
    char name[256] = {};
    size_t size = sizeof(name);
    EXPECT_EQ(EventGetData(event, name, &size, 60'000), GC_ERR_SUCCESS);
    EXPECT_STRNE(name, "");
}

TEST_F(ClosingTest, CloseAndInitLib_OthersOpenAndUse_NothingBreaks)
{
    std::atomic<TL_HANDLE> system = nullptr;
    Crowd crowd({[&] {
                     TL_HANDLE opened = nullptr;
                     if (TLOpen(&opened) == GC_ERR_SUCCESS) {
                         system = opened;
                     }
                     IF_HANDLE interface = nullptr;
                     if (TLOpenInterface(system, "ZRK-USB", &interface) == GC_ERR_SUCCESS) {
                         IFUpdateDeviceList(interface, nullptr, 0);
                         IFClose(interface);
                     }
                 },
                 [&] {
                     uint32_t count = 0;
                     TLGetNumInterfaces(system, &count);
                     size_t size = 0;
                     GCGetInfo(TL_INFO_ID, nullptr, nullptr, &size);
                     TLClose(system);
                 }});
    for (int i = 0; i < 100; ++i) {
        GCCloseLib();
        EXPECT_EQ(GCInitLib(), GC_ERR_SUCCESS);
    }
}

} // namespace
} // namespace standard_tl
