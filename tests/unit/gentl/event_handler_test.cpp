#include "wait.h"
#include "zr_event_handler.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <gtest/gtest.h>
#include <list>
#include <thread>
#include <time.h>
#include <vector>

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

TEST(EventHandler, WaitForEvent_BitSet_ReturnsItWithoutWaitingEachTime)
{
    ZrEventHandler_U3V event(1);
    event.SetEvent(1);
    EXPECT_EQ(event.WaitForEvent(10'000), 1u);
    EXPECT_EQ(event.WaitForEvent(10'000), 1u); // manual reset
    event.ResetEvent(1);
    EXPECT_EQ(event.WaitForEvent(0), 0u);
}

TEST(EventHandler, SetEvent_NoAcceptedBit_DoesNothing)
{
    ZrEventHandler_U3V event(1);
    event.SetEvent(2);
    event.SetEvent(0);
    EXPECT_EQ(event.WaitForEvent(0), 0u);
}

TEST(EventHandler, SetEvent_OneAcceptedBit_SetsAllGivenBits)
{
    ZrEventHandler_U3V event(1);
    event.SetEvent(3);
    EXPECT_EQ(event.WaitForEvent(0), 3u);
    event.ResetEvent(2); // not accepted: stays
    EXPECT_EQ(event.WaitForEvent(0), 3u);
    event.ResetEvent(3);
    EXPECT_EQ(event.WaitForEvent(0), 0u);
}

TEST(EventHandler, KillBits_AreAlwaysAccepted)
{
    ZrEventHandler_U3V event(0);
    event.SetEvent(0x80000000u);
    EXPECT_EQ(event.WaitForEvent(0), 0x80000000u);
    event.Kill();
    EXPECT_EQ(event.WaitForEvent(0), 0xF0000000u);
    event.ResetEvent(0xF0000000u);
    EXPECT_EQ(event.WaitForEvent(0), 0u);
}

TEST(EventHandler, Kill_WithAnotherBitSet_KeepsIt)
{
    ZrEventHandler_U3V event(1);
    event.SetEvent(1);
    event.Kill();
    EXPECT_EQ(event.WaitForEvent(0), 0xF0000001u);
}

TEST(EventHandler, WaitForEvent_ZeroTimeout_ReturnsAtOnce)
{
    ZrEventHandler_U3V event(1);
    const auto start = Clock::now();
    EXPECT_EQ(event.WaitForEvent(0), 0u);
    EXPECT_LT(Clock::now() - start, 10s);
}

TEST(EventHandler, WaitForEvent_NegativeTimeout_ReturnsAtOnce)
{
    ZrEventHandler_U3V event(1);
    const auto start = Clock::now();
    for (const int32_t timeout : {-1, -999, -1000, -1001, INT32_MIN}) {
        EXPECT_EQ(event.WaitForEvent(timeout), 0u) << timeout;
    }
    EXPECT_LT(Clock::now() - start, 10s);
}

// Processor time of a thousand negative waits, the least of several measurements.
int64_t CostOfNegativeWaits(ZrEventHandler_U3V& event)
{
    const auto now = [] {
        timespec time{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
    };
    int64_t least = INT64_MAX;
    for (int measurement = 0; measurement < 10; ++measurement) {
        const int64_t start = now();
        for (int i = 0; i < 1000; ++i) {
            event.WaitForEvent(-1);
        }
        least = std::min(least, now() - start);
    }
    return least;
}

// The discovery worker asks so all the time. A timer of the kernel for each question would
// cost sixty to a thousand times a look, and disturb whatever else runs there.
TEST(EventHandler, WaitForEvent_NegativeTimeout_IsAsCheapAsALook)
{
    ZrEventHandler_U3V event(1);
    const int64_t unset = CostOfNegativeWaits(event);
    event.SetEvent(1);
    EXPECT_LT(unset, 20 * CostOfNegativeWaits(event));
}

// Waits on a thread of its own, from the constructor on.
class Waiter
{
public:
    explicit Waiter(ZrEventHandler_U3V& event)
        : m_thread([this, &event] {
              m_result = event.WaitForEvent(60'000);
              m_done = true;
          })
    {
        EXPECT_TRUE(m_thread.UntilAsleep());
    }
    bool IsDone() const { return m_done; }
    uint32_t Result() const { return m_result; }

private:
    std::atomic<bool> m_done{false};
    std::atomic<uint32_t> m_result{0};
    zr_test::WatchedThread m_thread;
};

TEST(EventHandler, WakeFor_ABitThatIsLongTaken_DoesNotEndAnotherWait)
{
    ZrEventHandler_U3V event(1);
    ASSERT_TRUE(event.MarkEvent(1));
    ASSERT_EQ(event.WaitForEvent(0), 1u);
    event.ResetEvent(1);
    const Waiter waiter(event);
    event.WakeFor(1);
    zr_test::LetPass(50ms, "nothing wakes it");
    EXPECT_FALSE(waiter.IsDone());
    event.SetEvent(1);
    EXPECT_TRUE(zr_test::WaitUntil([&waiter] { return waiter.IsDone(); }));
    EXPECT_EQ(waiter.Result(), 1u);
}

TEST(EventHandler, WaitForEvent_SetAndResetMeanwhile_EndsEarlyWithNothing)
{
    ZrEventHandler_U3V event(1);
    const Waiter waiter(event);
    ASSERT_TRUE(event.MarkEvent(1));
    event.ResetEvent(1);
    event.WakeFor(1);
    EXPECT_TRUE(zr_test::WaitUntil([&waiter] { return waiter.IsDone(); }));
    EXPECT_EQ(waiter.Result(), 0u);
}

TEST(EventHandler, MarkEvent_NoAcceptedBit_IsRefused)
{
    ZrEventHandler_U3V event(1);
    EXPECT_FALSE(event.MarkEvent(2));
    EXPECT_TRUE(event.MarkEvent(3));
    EXPECT_EQ(event.WaitForEvent(0), 3u);
}

TEST(EventHandler, WaitForEvent_NothingSet_WaitsTheTimeout)
{
    ZrEventHandler_U3V event(1);
    const auto start = Clock::now();
    EXPECT_EQ(event.WaitForEvent(30), 0u);
    EXPECT_GE(Clock::now() - start, 25ms);
}

TEST(EventHandler, WaitForEvent_SetMeanwhile_ReturnsTheState)
{
    ZrEventHandler_U3V event(16);
    zr_test::WatchedThread waiter([&] { EXPECT_EQ(event.WaitForEvent(60'000), 16u); });
    EXPECT_TRUE(waiter.UntilAsleep());
    event.SetEvent(16);
}

TEST(EventHandler, SetEvent_TwoWaitersAsleep_WakesOne)
{
    // A waiter whose time is over before it sleeps sees the bit as well, so that a round on a busy
    // machine may count two. If SetEvent woke everybody, every round would.
    bool onlyOne = false;
    for (int round = 0; round < 20 && !onlyOne; ++round) {
        ZrEventHandler_U3V event(1);
        std::atomic<int> woken{0};
        std::list<zr_test::WatchedThread> waiters;
        for (int i = 0; i < 2; ++i) {
            waiters.emplace_back([&] { woken += event.WaitForEvent(150) == 1u; });
        }
        for (const auto& waiter : waiters) {
            EXPECT_TRUE(waiter.UntilAsleep());
        }
        event.SetEvent(1);
        waiters.clear();
        EXPECT_GE(woken, 1);
        onlyOne = woken == 1;
    }
    EXPECT_TRUE(onlyOne);
}

TEST(EventHandler, Kill_ManyWaiters_ReleasesAllOfThem)
{
    ZrEventHandler_U3V event(1);
    std::list<zr_test::WatchedThread> waiters;
    std::atomic<int> aborted{0};
    for (int i = 0; i < 4; ++i) {
        waiters.emplace_back([&] { aborted += event.WaitForEvent(60'000) == 0xF0000000u; });
    }
    for (const auto& waiter : waiters) {
        EXPECT_TRUE(waiter.UntilAsleep());
    }
    const auto start = Clock::now();
    event.Kill();
    waiters.clear();
    EXPECT_EQ(aborted, 4);
    EXPECT_LT(Clock::now() - start, 10s);
}

TEST(EventHandler, SetEvent_BetweenLookAndSleep_IsNeverLost)
{
    // Each hand-over would take the full time-out if one wake-up were lost.
    ZrEventHandler_U3V ping(1);
    ZrEventHandler_U3V pong(1);
    constexpr int kRounds = 2'000;
    const auto play = [](ZrEventHandler_U3V& wait, ZrEventHandler_U3V& tell) {
        int lost = 0;
        for (int i = 0; i < kRounds; ++i) {
            lost += wait.WaitForEvent(5'000) != 1;
            wait.ResetEvent(1);
            tell.SetEvent(1);
        }
        return lost;
    };
    int otherLost = 0;
    std::thread other([&] { otherLost = play(ping, pong); });
    ping.SetEvent(1);
    const int lost = play(pong, ping);
    other.join();
    EXPECT_EQ(lost + otherLost, 0);
}

} // namespace
