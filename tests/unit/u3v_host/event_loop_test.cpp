#include "event_loop.h"

#include <ctime>
#include <dirent.h>
#include <libusb.h>

#include "bus_camera.h"
#include "gone_notice.h"
#include "wakeup.h"

namespace u3v_host {
namespace {

class EventLoopTest : public BusTest
{
protected:
    EventLoop& Loop()
    {
        if (m_loop == nullptr) {
            m_loop = std::make_unique<EventLoop>();
        }
        return *m_loop;
    }
    void TearDown() override { m_loop.reset(); }

    std::unique_ptr<EventLoop> m_loop;
};

std::chrono::nanoseconds ProcessorTime()
{
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

TEST_F(EventLoopTest, Post_Tasks_RunInOrderOnOneThread)
{
    std::vector<int> order;
    std::vector<std::thread::id> threads;
    std::atomic<bool> done = false;
    for (int i = 0; i < 10; ++i) {
        Loop().Post(this, [&, i] {
            order.push_back(i);
            threads.push_back(std::this_thread::get_id());
        });
    }
    Loop().Post(this, [&] { done = true; });
    ASSERT_TRUE(Eventually([&] { return done.load(); }));
    EXPECT_EQ(order, (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9}));
    for (const auto& thread : threads) {
        EXPECT_EQ(thread, threads[0]);
        EXPECT_NE(thread, std::this_thread::get_id());
    }
}

TEST_F(EventLoopTest, Post_WithDelay_RunsThenAndHoldsUpNoOther)
{
    std::atomic<int> ran = 0;
    const auto begin = std::chrono::steady_clock::now();
    std::atomic<std::chrono::steady_clock::duration> after{};
    Loop().Post(
        this,
        [&] {
            after = std::chrono::steady_clock::now() - begin;
            ++ran;
        },
        30ms);
    Loop().Post(this, [&] { ++ran; });
    EXPECT_TRUE(Eventually([&] { return ran == 2; }));
    EXPECT_GE(after.load(), 30ms);
}

TEST_F(EventLoopTest, Post_WithinATask_RunsToo)
{
    std::atomic<bool> done = false;
    Loop().Post(this, [&] { Loop().Post(this, [&] { done = true; }); });
    EXPECT_TRUE(Eventually([&] { return done.load(); }));
}

TEST_F(EventLoopTest, Forget_TasksThatWait_NeverRun)
{
    const int other = 0;
    std::atomic<bool> go = false;
    std::atomic<bool> ran = false;
    std::atomic<bool> done = false;
    Loop().Post(&other, [&] { zr_test::WaitUntil([&] { return go.load(); }); }); // the loop is busy
    Loop().Post(this, [&] { ran = true; });
    Loop().Post(
        this, [&] { ran = true; }, 1ms);
    Loop().Post(
        &other, [&] { done = true; }, 20ms);
    Loop().Forget(this);
    go = true;
    EXPECT_TRUE(Eventually([&] { return done.load(); }));
    EXPECT_FALSE(ran);
}

TEST_F(EventLoopTest, Forget_TaskIsRunning_WaitsForItsEnd)
{
    std::atomic<bool> inside = false;
    std::atomic<bool> left = false;
    Loop().Post(this, [&] {
        inside = true;
        zr_test::LetPass(50ms, "the task takes its time");
        left = true;
    });
    ASSERT_TRUE(Eventually([&] { return inside.load(); }));
    Loop().Forget(this);
    EXPECT_TRUE(left);
}

TEST_F(EventLoopTest, Forget_WithinTheTask_Returns)
{
    std::atomic<bool> done = false;
    Loop().Post(this, [&] {
        Loop().Forget(this);
        done = true;
    });
    EXPECT_TRUE(Eventually([&] { return done.load(); }));
}

TEST_F(EventLoopTest, Destructor_TasksThatWait_NeverRun)
{
    std::atomic<bool> ran = false;
    Loop().Post(
        this, [&] { ran = true; }, 10s);
    m_loop.reset();
    EXPECT_FALSE(ran);
}

TEST_F(EventLoopTest, Loop_NothingHappens_CostsNoProcessor)
{
    Loop();
    EXPECT_TRUE(Eventually([] { // the machine may take some time for itself, not each time
        const auto calls = vusb_call_count("libusb_handle_events_timeout_completed");
        const auto before = ProcessorTime();
        zr_test::LetPass(200ms, "nothing happens");
        return vusb_call_count("libusb_handle_events_timeout_completed") - calls <= 1 &&
               ProcessorTime() - before < 20ms;
    }));
}

TEST_F(EventLoopTest, Loop_EventsCannotBeServed_CostsNoProcessorAndEnds)
{
    vusb_fail_call("libusb_handle_events_timeout_completed", 0, 0, LIBUSB_ERROR_IO);
    Loop();
    const auto passed = zr_test::LetPass(100ms, "a few calls, not thousands");
    EXPECT_LT(vusb_call_count("libusb_handle_events_timeout_completed"),
              20 + static_cast<uint64_t>(passed.count()) / 2);
    std::atomic<bool> done = false;
    Loop().Post(this, [&] { done = true; });
    EXPECT_TRUE(Eventually([&] { return done.load(); }));
}

TEST_F(EventLoopTest, Constructor_LibusbFails_Throws)
{
    vusb_fail_call("libusb_init", 0, 1, LIBUSB_ERROR_NO_MEM);
    const Error error = Failure([] { const EventLoop loop; });
    EXPECT_EQ(error.Kind(), ErrorKind::ResourceExhausted);
    EXPECT_STREQ(error.what(), "libusb cannot be initialised: LIBUSB_ERROR_NO_MEM");
}

// ---- waiting

class WakeupTest : public EventLoopTest
{
protected:
    void SetUp() override { m_wakeup = Loop().MakeWakeup(); }
    void TearDown() override
    {
        m_loop.reset();
        m_wakeup.reset();
    }
    void Set()
    {
        {
            Locker lock(m_mutex);
            m_set = true;
        }
        m_wakeup->NotifyAll();
    }
    bool AwaitSet(Deadline deadline)
    {
        Locker lock(m_mutex);
        while (!m_set && std::chrono::steady_clock::now() < deadline) {
            m_wakeup->Wait(m_mutex, deadline);
        }
        return m_set;
    }

    std::unique_ptr<Wakeup> m_wakeup;
    Mutex m_mutex;
    bool m_set = false;
};

TEST_F(WakeupTest, Wait_NobodyNotifies_EndsAtTheDeadline)
{
    const auto deadline = In(20ms);
    EXPECT_FALSE(AwaitSet(deadline));
    EXPECT_GE(std::chrono::steady_clock::now(), deadline);
}

TEST_F(WakeupTest, Wait_DeadlineInThePast_ReturnsAtOnce)
{
    Locker lock(m_mutex);
    m_wakeup->Wait(m_mutex, Deadline::min());
    int attempt = 0;
    std::thread([&] { attempt = pthread_mutex_trylock(m_mutex.Native()); }).join();
    EXPECT_EQ(attempt, EBUSY) << "it came back without the lock";
}

TEST_F(WakeupTest, Wait_ForEver_EndsWhenNotified)
{
    std::thread other([this] { Set(); });
    EXPECT_TRUE(AwaitSet(Deadline::max()));
    other.join();
}

TEST_F(WakeupTest, NotifyAll_SeveralWait_WakesThemAll)
{
    std::vector<std::thread> threads;
    std::atomic<int> woken = 0;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            EXPECT_TRUE(AwaitSet(Deadline::max()));
            ++woken;
        });
    }
    Set();
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(woken, 4);
}

TEST_F(WakeupTest, Wait_WithinATask_ServesEventsMeanwhile)
{
    const vusb::Camera camera;
    std::atomic<bool> arrived = false;
    const auto callback = [](libusb_context*, libusb_device*, libusb_hotplug_event,
                             void* flag) -> int {
        *static_cast<std::atomic<bool>*>(flag) = true;
        return 0;
    };
    ASSERT_EQ(libusb_hotplug_register_callback(
                  Loop().Context()->Native(), LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED,
                  LIBUSB_HOTPLUG_NO_FLAGS, LIBUSB_HOTPLUG_MATCH_ANY, LIBUSB_HOTPLUG_MATCH_ANY,
                  LIBUSB_HOTPLUG_MATCH_ANY, callback, &arrived, nullptr),
              LIBUSB_SUCCESS);
    std::atomic<bool> waits = false;
    std::atomic<bool> done = false;
    Loop().Post(this, [&] {
        waits = true;
        EXPECT_TRUE(AwaitSet(Deadline::max()));
        done = true;
    });
    ASSERT_TRUE(Eventually([&] { return waits.load(); }));
    camera.Unplug();
    camera.Replug();
    EXPECT_TRUE(Eventually([&] { return arrived.load(); }));
    EXPECT_FALSE(done);
    Set();
    EXPECT_TRUE(Eventually([&] { return done.load(); }));
}

TEST_F(WakeupTest, Wait_WithinATask_EndsAtTheDeadline)
{
    std::atomic<bool> done = false;
    Loop().Post(this, [&] {
        EXPECT_FALSE(AwaitSet(In(20ms)));
        done = true;
    });
    EXPECT_TRUE(Eventually([&] { return done.load(); }));
}

// ---- who serves: the one who waits, else one who waits too, else the library's thread

// Tells on which thread the bus' callbacks arrive.
class ServingTest : public WakeupTest
{
protected:
    void SetUp() override
    {
        WakeupTest::SetUp();
        ASSERT_EQ(libusb_hotplug_register_callback(
                      Loop().Context()->Native(), LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED,
                      LIBUSB_HOTPLUG_NO_FLAGS, LIBUSB_HOTPLUG_MATCH_ANY, LIBUSB_HOTPLUG_MATCH_ANY,
                      LIBUSB_HOTPLUG_MATCH_ANY, _onArrival, this, nullptr),
                  LIBUSB_SUCCESS);
    }
    static uint64_t Calls() { return vusb_call_count("libusb_handle_events_timeout_completed"); }
    // Who is told that the camera has arrived; nobody within a long time: no thread.
    std::thread::id ServerOfAnArrival()
    {
        m_server = std::thread::id();
        m_camera.Unplug();
        m_camera.Replug();
        EXPECT_TRUE(Eventually([&] { return m_server.load() != std::thread::id(); }));
        return m_server;
    }
    bool Serves(const std::thread& thread)
    {
        return Eventually([&] { return ServerOfAnArrival() == thread.get_id(); });
    }

private:
    static int _onArrival(libusb_context*, libusb_device*, libusb_hotplug_event, void* self)
    {
        static_cast<ServingTest*>(self)->m_server = std::this_thread::get_id();
        return 0;
    }

    const vusb::Camera m_camera;
    std::atomic<std::thread::id> m_server{};
};

TEST_F(ServingTest, NobodyWaits_TheLibrarysThreadServes)
{
    EXPECT_NE(ServerOfAnArrival(), std::this_thread::get_id());
}

TEST_F(ServingTest, SomebodyWaits_HeServesHimself)
{
    std::thread waiter([this] { EXPECT_TRUE(AwaitSet(Deadline::max())); });
    EXPECT_TRUE(Serves(waiter));
    Set();
    waiter.join();
}

TEST_F(ServingTest, TheWaiterHasGone_TheLibrarysThreadServesAgain)
{
    std::thread waiter([this] { EXPECT_FALSE(AwaitSet(In(20ms))); });
    const auto id = waiter.get_id();
    waiter.join();
    EXPECT_NE(ServerOfAnArrival(), id);
}

TEST_F(ServingTest, SeveralWait_WhenTheLeaderGoesAnotherServes)
{
    const auto other = Loop().MakeWakeup();
    std::atomic<bool> ends = false;
    std::thread leader([this] { EXPECT_TRUE(AwaitSet(Deadline::max())); });
    EXPECT_TRUE(Serves(leader));
    std::thread follower([&] {
        Mutex mutex;
        Locker lock(mutex);
        while (!ends) {
            other->Wait(mutex, Deadline::max());
        }
    });
    Set();
    leader.join();
    EXPECT_TRUE(Serves(follower));
    ends = true;
    other->NotifyAll();
    follower.join();
}

TEST_F(ServingTest, TaskPostedWhileSomebodyServes_RunsOnTheLibrarysThread)
{
    std::thread waiter([this] { EXPECT_TRUE(AwaitSet(Deadline::max())); });
    for (int i = 0; i < 200; ++i) {
        std::atomic<bool> ran = false;
        Loop().Post(this, [&] {
            EXPECT_NE(std::this_thread::get_id(), waiter.get_id());
            ran = true;
        });
        ASSERT_TRUE(Eventually([&] { return ran.load(); })) << i;
    }
    Set();
    waiter.join();
}

// The library's thread was called away, and sleeps on an alarm for its turn that never comes.
TEST_F(ServingTest, DelayedTaskWhileSomebodyServes_RunsInTime)
{
    ASSERT_NE(ServerOfAnArrival(), std::this_thread::get_id());
    std::thread waiter([this] { EXPECT_TRUE(AwaitSet(Deadline::max())); });
    EXPECT_TRUE(Serves(waiter));
    std::atomic<bool> ran = false;
    Loop().Post(
        this, [&] { ran = true; }, 30ms);
    EXPECT_TRUE(Eventually([&] { return ran.load(); }));
    Set();
    waiter.join();
}

// Posting races with waits that begin and end, each of which sets the library's thread's alarm.
TEST_F(ServingTest, TasksPostedWhileWaitsComeAndGo_NoneIsForgotten)
{
    std::atomic<bool> ends = false;
    std::thread waiter([&] {
        while (!ends) {
            AwaitSet(In(1ms));
        }
    });
    std::atomic<int> ran = 0;
    const auto limit = In(60s); // for all of them
    for (int i = 1; i <= 2000 && std::chrono::steady_clock::now() < limit; ++i) {
        Loop().Post(this, [&] { ++ran; });
        while (ran < i && std::chrono::steady_clock::now() < limit) {
            std::this_thread::yield();
        }
    }
    ends = true;
    waiter.join();
    Loop().Forget(this);
    EXPECT_EQ(ran, 2000);
}

TEST_F(ServingTest, SomebodyWaitsLong_CostsNoProcessor)
{
    std::thread waiter([this] { EXPECT_TRUE(AwaitSet(Deadline::max())); });
    ASSERT_TRUE(Serves(waiter));
    EXPECT_TRUE(Eventually([] { // the machine may take some time for itself, not each time
        const uint64_t calls = Calls();
        const auto before = ProcessorTime();
        zr_test::LetPass(200ms, "somebody waits, and nothing happens");
        return Calls() - calls <= 1 && ProcessorTime() - before < 20ms;
    }));
    Set();
    waiter.join();
}

// A consumer that comes back at once leaves the library's thread asleep: it is not called away each
// time. On a busy machine he may be late, not always.
TEST_F(ServingTest, WaitAfterWait_TheLibrarysThreadStaysOut)
{
    EXPECT_TRUE(Eventually([this] {
        AwaitSet(In(1ms));
        const uint64_t before = vusb_call_count("libusb_interrupt_event_handler");
        for (int i = 0; i < 20; ++i) {
            AwaitSet(In(1ms));
        }
        return vusb_call_count("libusb_interrupt_event_handler") - before <= 5;
    }));
}

TEST_F(ServingTest, FollowerIsCancelled_OthersServe)
{
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "AddressSanitizer takes the stack of a cancelled thread for overwritten";
#endif
    const auto other = Loop().MakeWakeup();
    std::thread leader([this] { EXPECT_TRUE(AwaitSet(Deadline::max())); });
    EXPECT_TRUE(Serves(leader));
    std::thread follower([&] {
        Mutex mutex;
        Locker lock(mutex);
        for (;;) {
            other->Wait(mutex, Deadline::max());
        }
    });
    const auto id = follower.get_id();
    pthread_cancel(follower.native_handle());
    follower.join();
    EXPECT_TRUE(Serves(leader));
    Set();
    leader.join();
    EXPECT_NE(ServerOfAnArrival(), id);
}

TEST_F(WakeupTest, Wakeup_OutlivesTheLoop_StillWakes)
{
    m_loop.reset();
    std::thread other([this] { Set(); });
    EXPECT_TRUE(AwaitSet(Deadline::max()));
    other.join();
}

// ---- the notice that a camera has gone

TEST_F(EventLoopTest, GoneNotice_SetSeveralTimes_TellsOnce)
{
    GoneNotice notice(Loop());
    std::atomic<int> calls = 0;
    notice.Listen([&] { ++calls; });
    EXPECT_FALSE(notice.IsGone());
    for (int i = 0; i < 3; ++i) {
        notice.Set();
    }
    EXPECT_TRUE(notice.IsGone());
    std::atomic<bool> done = false;
    Loop().Post(this, [&] { done = true; });
    ASSERT_TRUE(Eventually([&] { return done.load(); }));
    EXPECT_EQ(calls, 1);
}

TEST_F(EventLoopTest, GoneNotice_ListenAfterwards_IsTold)
{
    GoneNotice notice(Loop());
    notice.Set();
    std::atomic<int> calls = 0;
    notice.Listen([&] { ++calls; });
    EXPECT_TRUE(Eventually([&] { return calls == 1; }));
}

TEST_F(EventLoopTest, GoneNotice_ListenerEndsItself_Returns)
{
    GoneNotice notice(Loop());
    std::atomic<bool> done = false;
    notice.Listen([&] {
        notice.Listen({});
        done = true;
    });
    notice.Set();
    EXPECT_TRUE(Eventually([&] { return done.load(); }));
}

} // namespace
} // namespace u3v_host
