// What applications of today do, call by call, where it is unusual.

#include <thread>

#include "stream_fixture.h"

namespace standard_tl {
namespace {

using ConsumersTest = StreamTest;

// Lists, closes interface and System, opens both again and the camera without an update.
TEST_F(ConsumersTest, OpensACameraThatItListedBeforeItClosedEverything)
{
    TL_HANDLE system = reinterpret_cast<TL_HANDLE>(0x5A5A5A5A5A5A5A5A);
    IF_HANDLE interface = system;
    DEV_HANDLE device = system;
    char id[64];
    for (int round = 0; round < 2; ++round) {
        ASSERT_EQ(TLOpen(&system), GC_ERR_SUCCESS);
        ASSERT_EQ(TLUpdateInterfaceList(system, nullptr, GENTL_INFINITE), GC_ERR_SUCCESS);
        size_t size = sizeof(id);
        ASSERT_EQ(TLGetInterfaceID(system, 0, id, &size), GC_ERR_SUCCESS);
        ASSERT_EQ(TLOpenInterface(system, id, &interface), GC_ERR_SUCCESS);
        if (round == 0) {
            ASSERT_EQ(IFUpdateDeviceList(interface, nullptr, GENTL_INFINITE), GC_ERR_SUCCESS);
            ASSERT_EQ(IFClose(interface), GC_ERR_SUCCESS);
            ASSERT_EQ(TLClose(system), GC_ERR_SUCCESS);
        }
    }
    EXPECT_EQ(IFOpenDevice(interface, "CAM1", DEVICE_ACCESS_EXCLUSIVE, &device), GC_ERR_SUCCESS);
}

// Starts, then queues; a thread waits for ever, is killed, and the event may be gone by then.
TEST_F(ConsumersTest, StartsBeforeItQueuesAndKillsAThreadThatWaitsForEver)
{
    const auto buffers = Announce(3);
    EVENT_HANDLE event = NewBuffer();
    Start();
    for (BUFFER_HANDLE buffer : buffers) {
        Queue(buffer);
    }
    std::thread worker([&] {
        EVENT_NEW_BUFFER_DATA data{};
        size_t size = sizeof(data);
        while (EventGetData(event, &data, &size, GENTL_INFINITE) == GC_ERR_SUCCESS) {
            DSQueueBuffer(Stream(), data.BufferHandle);
        }
    });
    for (int sent = 0; sent < 20;) {
        sent += Send() ? 1 : 0;
    }
    Stop();
    EXPECT_EQ(EventKill(event), GC_ERR_SUCCESS);
    worker.join();
    EXPECT_EQ(GCUnregisterEvent(Stream(), EVENT_NEW_BUFFER), GC_ERR_SUCCESS);
    EXPECT_EQ(EventKill(event), GC_ERR_INVALID_HANDLE);
    Flush(ACQ_QUEUE_ALL_DISCARD);
}

// Opens with exclusive access, control, read in turn until one works.
TEST_F(ConsumersTest, TriesOneAccessAfterTheOther)
{
    camera.openFailure = u3v_host::Error(u3v_host::ErrorKind::AccessDenied, "LIBUSB_ERROR_ACCESS");
    DEV_HANDLE device = nullptr;
    for (const DEVICE_ACCESS_FLAGS flag :
         {DEVICE_ACCESS_EXCLUSIVE, DEVICE_ACCESS_CONTROL, DEVICE_ACCESS_READONLY}) {
        EXPECT_EQ(IFOpenDevice(Interface(), "CAM1", flag, &device), GC_ERR_ACCESS_DENIED);
    }
}

// Revokes index 0 until there is none.
TEST_F(ConsumersTest, RevokesTheFirstBufferUntilItFails)
{
    Prepare(4);
    Start();
    Send();
    Stop(ACQ_STOP_FLAGS_KILL);
    Flush(ACQ_QUEUE_ALL_DISCARD);
    BUFFER_HANDLE buffer = nullptr;
    int revoked = 0;
    while (DSGetBufferID(Stream(), 0, &buffer) == GC_ERR_SUCCESS) {
        ASSERT_EQ(DSRevokeBuffer(Stream(), buffer, nullptr, nullptr), GC_ERR_SUCCESS);
        ++revoked;
    }
    EXPECT_EQ(revoked, 4);
}

// Queues everything by a flush right before the start.
TEST_F(ConsumersTest, FlushesAllToInputRightBeforeTheStart)
{
    const auto buffers = Announce(3);
    for (int round = 0; round < 3; ++round) {
        Flush(ACQ_QUEUE_ALL_TO_INPUT);
        EXPECT_EQ(Queued(), 3U);
        Start();
        EXPECT_TRUE(Send());
        EXPECT_NE(Next(), nullptr);
        EXPECT_TRUE(Send());
        Stop(ACQ_STOP_FLAGS_KILL);
    }
}

// Flushes input to output, then output to nothing, before it revokes.
TEST_F(ConsumersTest, FlushesInputToOutputThenOutputToNothing)
{
    const auto buffers = Prepare(3);
    Start();
    Send();
    Stop();
    Flush(ACQ_QUEUE_INPUT_TO_OUTPUT);
    EXPECT_EQ(Awaiting(), 3U);
    Flush(ACQ_QUEUE_OUTPUT_DISCARD);
    for (BUFFER_HANDLE buffer : buffers) {
        EXPECT_EQ(DSRevokeBuffer(Stream(), buffer, nullptr, nullptr), GC_ERR_SUCCESS);
    }
}

// Polls with a millisecond, chunk data by flag and list, updates all the time.
TEST_F(ConsumersTest, PollsAndUpdatesAllTheTime)
{
    Prepare(2);
    Start();
    for (uint64_t id = 1; id <= 5; ++id) {
        EXPECT_EQ(Next(1), nullptr);
        EXPECT_TRUE(Send(id));
        const BUFFER_HANDLE buffer = Next(1);
        ASSERT_NE(buffer, nullptr);
        EXPECT_FALSE(Info<bool8_t>(buffer, BUFFER_INFO_CONTAINS_CHUNKDATA));
        EXPECT_EQ(IFUpdateDeviceList(Interface(), nullptr, 1000), GC_ERR_SUCCESS);
        Queue(buffer);
    }
}

} // namespace
} // namespace standard_tl
