// Transfers through the ABI: when they complete, with what, and which misuse is noted.

#include "bus_async.h"
#include "wait.h"

namespace {

using BusTransfers = BusStreaming;

} // namespace

TEST_F(BusTransfers, Async_CompletesOnlyInEventHandling)
{
    Async read(Streaming(), kStreamIn, 65536, 1000);
    ASSERT_EQ(0, libusb_submit_transfer(read.transfer));
    zr_test::LetPass(20ms, "time enough for a completion that must not come by itself");
    EXPECT_EQ(0, read.completions);
    EXPECT_EQ(0, HandleFor(100ms));
    EXPECT_EQ(1, read.completions);
    EXPECT_EQ(std::this_thread::get_id(), read.thread);
    EXPECT_EQ(LIBUSB_TRANSFER_COMPLETED, read.transfer->status);
    EXPECT_EQ(52, read.transfer->actual_length);
}

TEST_F(BusTransfers, Async_OneEndpoint_InOrderOfSubmission)
{
    libusb_device_handle* handle = Streaming();
    Async leader(handle, kStreamIn, 65536, 1000);
    Async payload(handle, kStreamIn, 2048, 1000);
    Async trailer(handle, kStreamIn, 32, 1000);
    for (Async* read : {&leader, &payload, &trailer}) {
        ASSERT_EQ(0, libusb_submit_transfer(read->transfer));
    }
    while (trailer.completions == 0) {
        HandleFor(100ms);
    }
    EXPECT_EQ(52, leader.transfer->actual_length);
    EXPECT_EQ(2048, payload.transfer->actual_length);
    EXPECT_EQ(-1, vusb_compare_image(m_camera, 0, payload.buffer.data(), 2048));
    EXPECT_EQ(32, trailer.transfer->actual_length);
}

TEST_F(BusTransfers, Resubmitting_OnePassEnds)
{
    Async read(Streaming(), kStreamIn, 65536, 1000);
    read.resubmit = true;
    ASSERT_EQ(0, libusb_submit_transfer(read.transfer));
    HandleFor(1000ms);
    EXPECT_LE(1, read.completions);
    EXPECT_GT(4, read.completions);
    read.resubmit = false;
    HandleFor(100ms);
}

TEST_F(BusTransfers, Timeout_NothingComes_TimedOut)
{
    Async read(Streaming("faults=stream-silent"), kStreamIn, 65536, 40);
    const auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(0, libusb_submit_transfer(read.transfer));
    while (read.completions == 0) {
        HandleFor(500ms);
    }
    const auto time = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(LIBUSB_TRANSFER_TIMED_OUT, read.transfer->status);
    EXPECT_LE(40ms, time);
    EXPECT_GT(400ms, time);
}

TEST_F(BusTransfers, Timeout_PartlyFilled_TellsWhatHasCome)
{
    Async read(Streaming("faults=leader-lost@0,stream-late-trailer@0"), kStreamIn, 4096, 40);
    ASSERT_EQ(0, libusb_submit_transfer(read.transfer));
    while (read.completions == 0) {
        HandleFor(500ms);
    }
    EXPECT_EQ(LIBUSB_TRANSFER_TIMED_OUT, read.transfer->status);
    EXPECT_EQ(2048, read.transfer->actual_length);
}

TEST_F(BusTransfers, Timeout_Zero_WaitsUntilCancelled)
{
    Async read(Streaming("faults=stream-silent"), kStreamIn, 65536, 0);
    ASSERT_EQ(0, libusb_submit_transfer(read.transfer));
    HandleFor(50ms);
    EXPECT_EQ(0, read.completions);
    EXPECT_EQ(0, libusb_cancel_transfer(read.transfer));
    EXPECT_EQ(LIBUSB_ERROR_NOT_FOUND, libusb_cancel_transfer(read.transfer));
    EXPECT_EQ(0, read.completions);
    HandleFor(50ms);
    EXPECT_EQ(1, read.completions);
    EXPECT_EQ(LIBUSB_TRANSFER_CANCELLED, read.transfer->status);
    EXPECT_EQ(LIBUSB_ERROR_NOT_FOUND, libusb_cancel_transfer(read.transfer));
}

TEST_F(BusTransfers, Unplug_PendingCompletesWithNoDevice)
{
    Async read(Streaming("faults=stream-silent"), kStreamIn, 65536, 0);
    ASSERT_EQ(0, libusb_submit_transfer(read.transfer));
    zr_test::WatchedThread events([&read] {
        while (read.completions == 0) {
            HandleFor(60s);
        }
    });
    EXPECT_TRUE(events.UntilAsleep());
    vusb_unplug(m_camera);
    events.Join();
    EXPECT_EQ(LIBUSB_TRANSFER_NO_DEVICE, read.transfer->status);
    EXPECT_EQ(LIBUSB_ERROR_NO_DEVICE, libusb_submit_transfer(read.transfer));
}

TEST_F(BusTransfers, Completions_Scripted)
{
    const std::pair<const char*, libusb_transfer_status> cases[] = {
        {"transfer-error", LIBUSB_TRANSFER_ERROR},
        {"transfer-timeout", LIBUSB_TRANSFER_TIMED_OUT},
        {"transfer-cancelled", LIBUSB_TRANSFER_CANCELLED},
        {"transfer-stall", LIBUSB_TRANSFER_STALL},
        {"transfer-no-device", LIBUSB_TRANSFER_NO_DEVICE},
        {"transfer-overflow", LIBUSB_TRANSFER_OVERFLOW}};
    libusb_device_handle* handle = Streaming();
    for (const auto& [fault, status] : cases) {
        EXPECT_EQ(0, vusb_set_faults(m_camera, (std::string(fault) + "@1").c_str()));
        Async read(handle, kStreamIn, 65536, 1000);
        for (const libusb_transfer_status expected : {LIBUSB_TRANSFER_COMPLETED, status}) {
            ASSERT_EQ(0, libusb_submit_transfer(read.transfer));
            HandleFor(500ms);
            EXPECT_EQ(expected, read.transfer->status) << fault;
        }
    }
}

TEST_F(BusTransfers, Stall_UntilHaltIsCleared)
{
    libusb_device_handle* handle = Streaming("faults=stream-stall@0");
    Bytes buffer(65536);
    EXPECT_EQ(LIBUSB_ERROR_PIPE, ReadStream(handle, buffer));
    buffer.resize(65536);
    EXPECT_EQ(LIBUSB_ERROR_PIPE, ReadStream(handle, buffer));
    EXPECT_EQ(LIBUSB_ERROR_NOT_FOUND, libusb_clear_halt(handle, 0x8A));
    EXPECT_EQ(0, libusb_clear_halt(handle, kStreamIn));
    buffer.resize(65536);
    EXPECT_EQ(0, ReadStream(handle, buffer));
    EXPECT_EQ(52U, buffer.size());
}

TEST_F(BusTransfers, Overflow_PacketLargerThanRequest)
{
    libusb_device_handle* handle = Streaming();
    Bytes buffer(51);
    EXPECT_EQ(LIBUSB_ERROR_OVERFLOW, ReadStream(handle, buffer));
    EXPECT_EQ(1U, vusb::Calls("libusb_bulk_transfer").size() % 2); // odd: commands come in pairs
}

TEST_F(BusTransfers, Submit_ScriptedByFaultAndByCall)
{
    libusb_device_handle* handle = Streaming("faults=submit-fails@1:-11,alloc-fails@1");
    Async read(handle, kStreamIn, 65536, 1000);
    EXPECT_EQ(nullptr, libusb_alloc_transfer(0));
    ASSERT_EQ(0, libusb_submit_transfer(read.transfer));
    HandleFor(500ms);
    EXPECT_EQ(LIBUSB_ERROR_NO_MEM, libusb_submit_transfer(read.transfer));
    vusb_fail_call("libusb_submit_transfer", 0, 1, LIBUSB_ERROR_IO);
    EXPECT_EQ(LIBUSB_ERROR_IO, libusb_submit_transfer(read.transfer));
}

TEST_F(BusTransfers, Submit_UnknownEndpoint_NotFound)
{
    Async read(Streaming(), 0x8A, 64, 1000);
    EXPECT_EQ(LIBUSB_ERROR_NOT_FOUND, libusb_submit_transfer(read.transfer));
}

TEST_F(BusTransfers, Synchronous_TimesOut)
{
    libusb_device_handle* handle = Streaming("faults=stream-silent");
    Bytes buffer(64);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(LIBUSB_ERROR_TIMEOUT, ReadStream(handle, buffer, 30));
    EXPECT_LE(30ms, std::chrono::steady_clock::now() - start);
}

TEST_F(BusTransfers, Synchronous_LateReply_ArrivesWithinTheTimeout)
{
    vusb::Camera camera("faults=reply-late:40");
    libusb_device_handle* handle = OpenAndClaim();
    EXPECT_EQ((Bytes{0, 0, 1, 0}), ReadMem(handle, 0, 4));
}

TEST_F(BusTransfers, Synchronous_WhileAnotherThreadHandlesEvents)
{
    libusb_device_handle* handle = Streaming("faults=stream-silent");
    Async read(handle, kStreamIn, 65536, 0);
    ASSERT_EQ(0, libusb_submit_transfer(read.transfer));
    std::atomic<bool> stop{false};
    std::thread events([&stop] {
        while (!stop) {
            HandleFor(200ms);
        }
    });
    for (int i = 0; i < 200; ++i) {
        ASSERT_EQ((Bytes{0, 0, 1, 0}), ReadMem(handle, 0, 4));
    }
    stop = true;
    libusb_cancel_transfer(read.transfer);
    events.join();
    HandleFor(10ms);
    EXPECT_EQ(1, read.completions);
}

TEST_F(BusTransfers, Synchronous_FromWithinACallback_Busy)
{
    m_expectClean = false;
    struct Case
    {
        libusb_device_handle* handle;
        int bulk = 0;
        int events = 0;
    } result{Streaming()};
    libusb_transfer* transfer = libusb_alloc_transfer(0);
    unsigned char buffer[1024];
    const auto callback = [](libusb_transfer* done) {
        auto& self = *static_cast<Case*>(done->user_data);
        unsigned char byte[64];
        int received = 0;
        self.bulk = libusb_bulk_transfer(self.handle, kStreamIn, byte, 64, &received, 10);
        self.events = libusb_handle_events(nullptr);
    };
    libusb_fill_bulk_transfer(transfer, result.handle, kStreamIn, buffer, sizeof buffer, callback,
                              &result, 1000);
    libusb_submit_transfer(transfer);
    HandleFor(500ms);
    EXPECT_EQ(int{LIBUSB_ERROR_BUSY}, result.bulk);
    EXPECT_EQ(int{LIBUSB_ERROR_BUSY}, result.events);
    EXPECT_EQ(1U, vusb_violations("sync-in-callback"));
    libusb_free_transfer(transfer);
}

TEST_F(BusTransfers, ClearHaltInCallback_IsDoneButAViolation)
{
    m_expectClean = false;
    struct Case
    {
        libusb_device_handle* handle;
        int cleared = -1;
    } result{Streaming("faults=stream-stall@0")};
    libusb_transfer* transfer = libusb_alloc_transfer(0);
    unsigned char buffer[1024];
    const auto callback = [](libusb_transfer* done) {
        auto& self = *static_cast<Case*>(done->user_data);
        self.cleared = libusb_clear_halt(self.handle, kStreamIn);
    };
    libusb_fill_bulk_transfer(transfer, result.handle, kStreamIn, buffer, sizeof buffer, callback,
                              &result, 1000);
    libusb_submit_transfer(transfer);
    HandleFor(500ms);
    EXPECT_EQ(0, result.cleared);
    EXPECT_EQ(1U, vusb_violations("sync-in-callback"));
    libusb_free_transfer(transfer);
}

TEST_F(BusTransfers, ControlTransfer_DescriptorsAndRefusals)
{
    vusb::Camera camera;
    libusb_device_handle* handle = Open();
    unsigned char data[64];
    EXPECT_EQ(18, libusb_control_transfer(handle, 0x80, 6, 0x0100, 0, data, sizeof data, 100));
    EXPECT_EQ(18, data[0]);
    EXPECT_EQ(LIBUSB_ERROR_PIPE,
              libusb_control_transfer(handle, 0xC0, 1, 0, 0, data, sizeof data, 100));
}

TEST_F(BusTransfers, ControlTransfer_Asynchronous)
{
    vusb::Camera camera;
    libusb_device_handle* handle = Open();
    Async get(handle, 0, 8 + 18, 1000);
    get.transfer->type = LIBUSB_TRANSFER_TYPE_CONTROL;
    libusb_fill_control_setup(get.buffer.data(), 0x80, 6, 0x0100, 0, 18);
    ASSERT_EQ(0, libusb_submit_transfer(get.transfer));
    EXPECT_EQ(0, get.completions);
    HandleFor(100ms);
    EXPECT_EQ(18, get.transfer->actual_length);
    EXPECT_EQ(18, get.buffer[8]);
}

TEST_F(BusTransfers, HandleEventsCompleted_ReturnsWhenTheFlagIsSet)
{
    vusb::Camera camera;
    int completed = 1;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(0, libusb_handle_events_completed(nullptr, &completed));
    EXPECT_GT(1s, std::chrono::steady_clock::now() - start);
}

TEST_F(BusTransfers, Interrupt_WakesTheHandler)
{
    zr_test::WatchedThread events([] { EXPECT_EQ(0, libusb_handle_events(nullptr)); });
    EXPECT_TRUE(events.UntilAsleep());
    const auto start = std::chrono::steady_clock::now();
    libusb_interrupt_event_handler(nullptr);
    events.Join();
    EXPECT_GT(5s, std::chrono::steady_clock::now() - start);
}

TEST_F(BusTransfers, EventLock_OneOwner)
{
    EXPECT_EQ(0, libusb_try_lock_events(nullptr));
    EXPECT_EQ(1, libusb_event_handler_active(nullptr));
    int other = 0;
    std::thread([&other] { other = libusb_try_lock_events(nullptr); }).join();
    EXPECT_EQ(1, other);
    timeval tv{0, 1000};
    EXPECT_EQ(0, libusb_handle_events_locked(nullptr, &tv));
    libusb_unlock_events(nullptr);
    EXPECT_EQ(0, libusb_event_handler_active(nullptr));
}

TEST_F(BusTransfers, NextTimeout_OfTheEarliestTransfer)
{
    timeval tv{};
    EXPECT_EQ(0, libusb_get_next_timeout(nullptr, &tv));
    Async read(Streaming("faults=stream-silent"), kStreamIn, 64, 1500);
    libusb_submit_transfer(read.transfer);
    EXPECT_EQ(1, libusb_get_next_timeout(nullptr, &tv));
    EXPECT_EQ(1, tv.tv_sec);
    libusb_cancel_transfer(read.transfer);
    HandleFor(10ms);
}

TEST_F(BusTransfers, Violations_CloseAndFreeInFlight)
{
    m_expectClean = false;
    libusb_device_handle* handle = Streaming("faults=stream-silent");
    Async read(handle, kStreamIn, 65536, 0);
    ASSERT_EQ(0, libusb_submit_transfer(read.transfer));
    EXPECT_EQ(LIBUSB_ERROR_BUSY, libusb_submit_transfer(read.transfer));
    EXPECT_EQ(1U, vusb_violations("submit-in-flight"));
    libusb_free_transfer(read.transfer);
    EXPECT_EQ(1U, vusb_violations("free-in-flight"));
    Close(handle);
    EXPECT_EQ(1U, vusb_violations("close-in-flight"));
    HandleFor(100ms);
    EXPECT_EQ(1, read.completions);
    EXPECT_EQ(LIBUSB_TRANSFER_CANCELLED, read.transfer->status);
}

TEST_F(BusTransfers, Violations_DoubleFreeBadBufferNullHandleNotClaimed)
{
    m_expectClean = false;
    libusb_transfer* transfer = libusb_alloc_transfer(0);
    EXPECT_EQ(LIBUSB_ERROR_INVALID_PARAM, libusb_submit_transfer(transfer));
    EXPECT_EQ(1U, vusb_violations("null-handle"));
    libusb_free_transfer(transfer);
    libusb_free_transfer(transfer);
    EXPECT_EQ(1U, vusb_violations("double-free"));
    EXPECT_EQ(LIBUSB_ERROR_INVALID_PARAM, libusb_submit_transfer(transfer));
    EXPECT_EQ(1U, vusb_violations("stale-transfer"));
    vusb::Camera camera;
    libusb_device_handle* handle = Open();
    int sent = 0;
    EXPECT_EQ(LIBUSB_ERROR_INVALID_PARAM,
              libusb_bulk_transfer(handle, kControlOut, nullptr, 24, &sent, 100));
    EXPECT_EQ(1U, vusb_violations("bad-buffer"));
    EXPECT_EQ(0, Send(handle, ReadCommand(0, 4)));
    EXPECT_EQ(1U, vusb_violations("not-claimed"));
}

TEST_F(BusTransfers, FreeFlags_AreFollowed)
{
    libusb_device_handle* handle = Streaming();
    libusb_transfer* transfer = libusb_alloc_transfer(0);
    auto* buffer = static_cast<unsigned char*>(std::malloc(1024));
    std::atomic<int> completions{0};
    const auto count = [](libusb_transfer* done) {
        ++*static_cast<std::atomic<int>*>(done->user_data);
    };
    libusb_fill_bulk_transfer(transfer, handle, kStreamIn, buffer, 1024, count, &completions, 1000);
    transfer->flags = LIBUSB_TRANSFER_FREE_BUFFER | LIBUSB_TRANSFER_FREE_TRANSFER;
    ASSERT_EQ(0, libusb_submit_transfer(transfer));
    HandleFor(100ms);
    EXPECT_EQ(1, completions);
}
