// Who handles events, who waits for whom, and how one is woken: the rules of libusb for several
// threads and several contexts.

#include "bus_async.h"
#include "wait.h"

namespace {

class BusEvents : public BusStreaming
{
protected:
    // Until the thread handles events of the default context and finds nothing to do.
    static void AwaitHandler(const zr_test::WatchedThread& handler)
    {
        EXPECT_TRUE(handler.UntilAsleep());
        EXPECT_EQ(1, libusb_event_handler_active(nullptr));
    }

    static timeval Long() { return {20, 0}; }
};

struct HotplugLog
{
    std::vector<libusb_hotplug_event> events;
    std::vector<std::uint16_t> vendors;
    int answer = 0;

    static int LIBUSB_CALL Note(libusb_context*, libusb_device* device, libusb_hotplug_event event,
                                void* user)
    {
        auto& self = *static_cast<HotplugLog*>(user);
        libusb_device_descriptor descriptor{};
        libusb_get_device_descriptor(device, &descriptor);
        self.events.push_back(event);
        self.vendors.push_back(descriptor.idVendor);
        return self.answer;
    }

    libusb_hotplug_callback_handle
    Register(libusb_context* context, int vendor = LIBUSB_HOTPLUG_MATCH_ANY, int flags = 0,
             int wanted = LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED | LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT)
    {
        libusb_hotplug_callback_handle handle = 0;
        EXPECT_EQ(0, libusb_hotplug_register_callback(
                         context, wanted, flags, vendor, LIBUSB_HOTPLUG_MATCH_ANY,
                         LIBUSB_HOTPLUG_MATCH_ANY, Note, this, &handle));
        return handle;
    }
};

int HandleNow(libusb_context* context)
{
    timeval none{0, 0};
    return libusb_handle_events_timeout(context, &none);
}

} // namespace

TEST_F(BusEvents, PrivateContexts_EachHasItsOwnDevicesAndEvents)
{
    libusb_device_handle* first = Streaming();
    libusb_context* own = nullptr;
    ASSERT_EQ(0, libusb_init(&own));
    libusb_device** list = nullptr;
    ASSERT_EQ(1, libusb_get_device_list(own, &list));
    libusb_device_handle* second = nullptr;
    EXPECT_EQ(0, libusb_open(list[0], &second));
    EXPECT_NE(libusb_get_device(first), libusb_get_device(second));
    libusb_free_device_list(list, 1);
    Async read(first, kStreamIn, 65536, 1000);
    ASSERT_EQ(0, libusb_submit_transfer(read.transfer));
    timeval little{0, 20000};
    EXPECT_EQ(0, libusb_handle_events_timeout(own, &little));
    EXPECT_EQ(0, read.completions);
    EXPECT_EQ(0, HandleNow(nullptr));
    EXPECT_EQ(1, read.completions);
    libusb_close(second);
    libusb_exit(own);
}

TEST_F(BusEvents, Follower_IsWokenByTheLeadersCompletion)
{
    Async read(Streaming("faults=stream-late@0:1500"), kStreamIn, 65536, 0);
    ASSERT_EQ(0, libusb_submit_transfer(read.transfer));
    zr_test::WatchedThread leader([&read] {
        while (read.completions == 0) {
            timeval tv = Long();
            libusb_handle_events_timeout(nullptr, &tv);
        }
    });
    AwaitHandler(leader);
    const auto start = std::chrono::steady_clock::now();
    libusb_lock_event_waiters(nullptr);
    while (read.completions == 0 && libusb_event_handler_active(nullptr) != 0) {
        timeval tv = Long();
        EXPECT_EQ(0, libusb_wait_for_event(nullptr, &tv));
    }
    libusb_unlock_event_waiters(nullptr);
    leader.Join();
    EXPECT_EQ(1, read.completions);
    EXPECT_GT(10s, std::chrono::steady_clock::now() - start);
}

// What completes between the look at the flag and the wait is not missed: the lock covers both.
TEST_F(BusEvents, Follower_MissesNothingBetweenLookAndWait)
{
    Async read(Streaming("faults=stream-late@0:40"), kStreamIn, 65536, 0);
    ASSERT_EQ(0, libusb_submit_transfer(read.transfer));
    libusb_lock_event_waiters(nullptr);
    std::promise<void> looked;
    zr_test::WatchedThread leader([&looked] {
        libusb_lock_events(nullptr);
        timeval tv = Long();
        libusb_handle_events_locked(nullptr, &tv);
        looked.get_future().wait(); // still somebody to wait for
        libusb_unlock_events(nullptr);
    });
    EXPECT_TRUE(zr_test::WaitUntil([&read] { return read.completions != 0; }));
    AwaitHandler(leader);
    timeval tv = Long();
    EXPECT_EQ(0, libusb_wait_for_event(nullptr, &tv)); // the leader itself ends after it only
    looked.set_value();
    libusb_unlock_event_waiters(nullptr);
    leader.Join();
}

TEST_F(BusEvents, Follower_TimesOut)
{
    libusb_lock_events(nullptr);
    std::thread follower([] {
        libusb_lock_event_waiters(nullptr);
        timeval tv{0, 20000};
        EXPECT_EQ(1, libusb_wait_for_event(nullptr, &tv));
        libusb_unlock_event_waiters(nullptr);
    });
    follower.join();
    libusb_unlock_events(nullptr);
}

TEST_F(BusEvents, HandleEvents_WhileAnotherDoes_ReturnsWhenSomethingHasCompleted)
{
    Async read(Streaming("faults=stream-late@0:1500"), kStreamIn, 65536, 0);
    ASSERT_EQ(0, libusb_submit_transfer(read.transfer));
    zr_test::WatchedThread leader([] {
        timeval tv = Long();
        libusb_handle_events_timeout(nullptr, &tv);
    });
    AwaitHandler(leader);
    timeval tv = Long();
    EXPECT_EQ(0, libusb_handle_events_timeout(nullptr, &tv));
    EXPECT_EQ(1, read.completions);
    leader.Join();
    EXPECT_NE(std::this_thread::get_id(), read.thread);
}

TEST_F(BusEvents, LeadershipPassesOn)
{
    libusb_device_handle* handle = Streaming();
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([&stop] {
            while (!stop) {
                timeval tv{0, 2000};
                libusb_handle_events_timeout(nullptr, &tv);
            }
        });
    }
    for (int n = 0; n < 100; ++n) {
        EXPECT_EQ((Bytes{0, 0, 1, 0}), ReadMem(handle, 0, 4));
    }
    stop = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST_F(BusEvents, Interrupt_IsKeptForTheNextHandler)
{
    libusb_interrupt_event_handler(nullptr);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(0, libusb_handle_events(nullptr));
    EXPECT_GT(5s, std::chrono::steady_clock::now() - start);
}

TEST_F(BusEvents, Submission_DoesNotEndTheHandlersWait)
{
    Async read(Streaming("faults=stream-silent"), kStreamIn, 65536, 0);
    std::atomic<bool> returned{false};
    zr_test::WatchedThread handler([&returned] {
        timeval tv = Long();
        libusb_handle_events_timeout(nullptr, &tv);
        returned = true;
    });
    AwaitHandler(handler);
    ASSERT_EQ(0, libusb_submit_transfer(read.transfer));
    AwaitHandler(handler);
    EXPECT_FALSE(returned);
    libusb_interrupt_event_handler(nullptr);
    handler.Join();
    libusb_cancel_transfer(read.transfer);
    HandleFor(100ms);
}

TEST_F(BusEvents, Close_MakesTheHandlerStepBack)
{
    vusb::Camera camera;
    libusb_device_handle* handle = Open();
    std::atomic<int> turns{0};
    std::atomic<bool> stop{false};
    zr_test::WatchedThread handler([&] {
        while (!stop) {
            timeval tv = Long();
            libusb_handle_events_timeout(nullptr, &tv);
            ++turns;
        }
    });
    AwaitHandler(handler);
    EXPECT_EQ(0, turns);
    Close(handle);
    EXPECT_TRUE(zr_test::WaitUntil([&turns] { return turns != 0; }));
    stop = true;
    libusb_interrupt_event_handler(nullptr);
    handler.Join();
    EXPECT_EQ(1, libusb_event_handling_ok(nullptr));
}

TEST_F(BusEvents, Close_WaitsForACallbackThatRuns)
{
    struct Case
    {
        std::promise<void> entered;
        std::atomic<bool> left{false};
    } state;
    libusb_device_handle* handle = Streaming();
    libusb_transfer* transfer = libusb_alloc_transfer(0);
    unsigned char buffer[1024];
    const auto callback = [](libusb_transfer* done) {
        auto& self = *static_cast<Case*>(done->user_data);
        self.entered.set_value();
        zr_test::LetPass(60ms, "a callback that takes its time");
        self.left = true;
    };
    libusb_fill_bulk_transfer(transfer, handle, kStreamIn, buffer, sizeof buffer, callback, &state,
                              0);
    ASSERT_EQ(0, libusb_submit_transfer(transfer));
    std::thread handler([] { HandleFor(500ms); });
    state.entered.get_future().wait();
    Close(handle);
    EXPECT_TRUE(state.left);
    handler.join();
    libusb_free_transfer(transfer);
}

TEST_F(BusEvents, Close_WithinACallback)
{
    libusb_device_handle* handle = Streaming();
    libusb_transfer* transfer = libusb_alloc_transfer(0);
    unsigned char buffer[1024];
    const auto callback = [](libusb_transfer* done) { libusb_close(done->dev_handle); };
    libusb_fill_bulk_transfer(transfer, handle, kStreamIn, buffer, sizeof buffer, callback, nullptr,
                              0);
    ASSERT_EQ(0, libusb_submit_transfer(transfer));
    HandleFor(500ms);
    std::erase(m_open, handle);
    libusb_free_transfer(transfer);
}

// --- hot plug ------------------------------------------------------------------------------

TEST_F(BusEvents, Hotplug_WakesAHandlerThatSleeps)
{
    HotplugLog log;
    const auto id = log.Register(nullptr);
    zr_test::WatchedThread handler([] {
        timeval tv = Long();
        libusb_handle_events_timeout(nullptr, &tv);
    });
    AwaitHandler(handler);
    vusb::Camera camera;
    handler.Join();
    EXPECT_EQ(std::vector{LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED}, log.events);
    libusb_hotplug_deregister_callback(nullptr, id);
}

TEST_F(BusEvents, Hotplug_Filters)
{
    vusb::Camera first("vid=100");
    HotplugLog log;
    const auto id = log.Register(nullptr, 200, LIBUSB_HOTPLUG_ENUMERATE);
    EXPECT_TRUE(log.events.empty());
    vusb::Camera second("vid=200");
    first.Unplug();
    HandleNow(nullptr);
    second.Unplug();
    HandleNow(nullptr);
    EXPECT_EQ((std::vector<std::uint16_t>{200, 200}), log.vendors);
    EXPECT_EQ((std::vector{LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED, LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT}),
              log.events);
    libusb_hotplug_deregister_callback(nullptr, id);
    HotplugLog departures;
    departures.Register(nullptr, LIBUSB_HOTPLUG_MATCH_ANY, LIBUSB_HOTPLUG_ENUMERATE,
                        LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT);
    EXPECT_TRUE(departures.events.empty());
}

TEST_F(BusEvents, Hotplug_AnswerOtherThanZero_DeregistersTheCallback)
{
    HotplugLog log;
    log.answer = 1;
    log.Register(nullptr);
    vusb::Camera first;
    vusb::Camera second;
    HandleNow(nullptr);
    EXPECT_EQ(1U, log.events.size());
    EXPECT_EQ(LIBUSB_ERROR_INVALID_PARAM,
              libusb_hotplug_register_callback(nullptr, 0, 0, -1, -1, -1, HotplugLog::Note, &log,
                                               nullptr));
}

TEST_F(BusEvents, Hotplug_EveryContextThatAsks)
{
    libusb_context* own = nullptr;
    ASSERT_EQ(0, libusb_init(&own));
    HotplugLog mine;
    HotplugLog common;
    mine.Register(own);
    common.Register(nullptr);
    vusb::Camera camera;
    HandleNow(own);
    EXPECT_EQ(1U, mine.events.size());
    EXPECT_EQ(0U, common.events.size());
    HandleNow(nullptr);
    EXPECT_EQ(1U, common.events.size());
    libusb_exit(own);
}

// --- cancel and order ----------------------------------------------------------------------

TEST_F(BusEvents, Cancel_KeepsWhatHasCome_AndTheRestGoesToTheNext)
{
    libusb_device_handle* handle = Streaming("faults=leader-lost@0+stream-late-in-payload@0:150");
    Async first(handle, kStreamIn, 2048, 0);
    Async second(handle, kStreamIn, 2048, 0);
    ASSERT_EQ(0, libusb_submit_transfer(first.transfer));
    ASSERT_EQ(0, libusb_submit_transfer(second.transfer));
    HandleFor(20ms);
    EXPECT_EQ(0, first.completions);
    EXPECT_EQ(0, libusb_cancel_transfer(first.transfer));
    while (second.completions == 0) {
        HandleFor(100ms);
    }
    EXPECT_EQ(LIBUSB_TRANSFER_CANCELLED, first.transfer->status);
    EXPECT_EQ(1024, first.transfer->actual_length);
    EXPECT_EQ(1024 + 32, second.transfer->actual_length); // and the trailer behind it
    Bytes image(first.buffer.begin(), first.buffer.begin() + 1024);
    image.insert(image.end(), second.buffer.begin(), second.buffer.begin() + 1024);
    EXPECT_EQ(-1, vusb_compare_image(m_camera, 0, image.data(), image.size()));
}

TEST_F(BusEvents, CancelAll_InOrderOfSubmission)
{
    libusb_device_handle* handle = Streaming("faults=stream-silent");
    std::vector<std::unique_ptr<Async>> reads;
    std::vector<int> order;
    for (int i = 0; i < 20; ++i) {
        reads.push_back(std::make_unique<Async>(handle, kStreamIn, 1024, 0));
        reads.back()->onDone = [&order, i] { order.push_back(i); };
        ASSERT_EQ(0, libusb_submit_transfer(reads.back()->transfer));
    }
    for (auto read = reads.rbegin(); read != reads.rend(); ++read) {
        EXPECT_EQ(0, libusb_cancel_transfer((*read)->transfer));
    }
    HandleFor(100ms);
    ASSERT_EQ(20U, order.size());
    EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
}

TEST_F(BusEvents, StallInPayload_TransferTellsWhatCameBefore)
{
    libusb_device_handle* handle = Streaming("faults=leader-lost@0+stream-stall-in-payload@0");
    Async read(handle, kStreamIn, 2048, 0);
    ASSERT_EQ(0, libusb_submit_transfer(read.transfer));
    HandleFor(100ms);
    EXPECT_EQ(LIBUSB_TRANSFER_STALL, read.transfer->status);
    EXPECT_EQ(1024, read.transfer->actual_length);
    EXPECT_EQ(0, libusb_clear_halt(handle, kStreamIn));
    ASSERT_EQ(0, libusb_submit_transfer(read.transfer));
    HandleFor(100ms);
    EXPECT_EQ(LIBUSB_TRANSFER_COMPLETED, read.transfer->status);
    EXPECT_EQ(1024 + 32, read.transfer->actual_length);
}

TEST_F(BusEvents, Transfer_OfNoLength_Overflows)
{
    Async read(Streaming(), kStreamIn, 0, 1000);
    ASSERT_EQ(0, libusb_submit_transfer(read.transfer));
    HandleFor(100ms);
    EXPECT_EQ(LIBUSB_TRANSFER_OVERFLOW, read.transfer->status);
}
