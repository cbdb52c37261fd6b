#include "zr_gentl_thread_discovery.h"

#include <atomic>
#include <chrono>
#include <climits>
#include <functional>
#include <gtest/gtest.h>
#include <new>
#include <thread>
#include <vector>

#include "test_module.h"
#include "wait.h"
#include <zr_u3v_tl/gentl.h>

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// Of a request, in which a pass surely ends; it is waited for to its end.
constexpr uint64_t kTime = 1000; // ms

class TestDiscovery : public ZrGenTLThreadDiscovery
{
public:
    ~TestDiscovery() override
    {
        release = true;
        RequestExit();
        WaitForExit();
    }
    void DoDiscovery() override
    {
        const int number = ++entered;
        zr_test::WaitUntil([&] { return number <= allowed || release; });
        if (fail) {
            ++passes;
            throw std::bad_alloc();
        }
        zr_test::LetPass(passTime, "a pass takes its time");
        ++passes;
    }
    void WaitForEntered(int count) const
    {
        zr_test::WaitUntil([&] { return entered >= count; });
    }

    using ZrGenTLThreadDiscovery::m_doneEvent;
    using ZrGenTLThreadDiscovery::m_requestEvent;

    std::atomic<int> entered{0};
    std::atomic<int> passes{0};
    std::atomic<int> turns{0};
    std::chrono::milliseconds passTime = 1ms;
    std::atomic<int> allowed{INT_MAX}; // passes that may end; later ones are held
    std::atomic<bool> release{false};
    std::atomic<bool> fail{false};

protected:
    uint32_t _waitForRequest() override
    {
        ++turns;
        return ZrGenTLThreadDiscovery::_waitForRequest();
    }
};

using zr_test::WaitUntil;

TEST(Discovery, VirtualOperations_StandInTheirOrder)
{
    EXPECT_EQ(SlotOf(&ZrGenTLThreadDiscovery::Start), 2u);
    EXPECT_EQ(SlotOf(&ZrGenTLThreadDiscovery::Run), 3u);
    EXPECT_EQ(SlotOf(&ZrGenTLThreadDiscovery::DoDiscovery), 4u);
}

TEST(Discovery, Start_Twice_SecondIsRefused)
{
    TestDiscovery discovery;
    EXPECT_TRUE(discovery.Start());
    EXPECT_FALSE(discovery.Start());
    EXPECT_TRUE(discovery.IsRunning());
}

TEST(Discovery, Request_RepeatsPassesForTheWholeTime)
{
    TestDiscovery discovery;
    ASSERT_TRUE(discovery.Start());
    EXPECT_FALSE(discovery.IsFirstDiscoveryCompleted());
    EXPECT_TRUE(discovery.RequestAndWaitDiscovery(kTime));
    EXPECT_TRUE(discovery.IsFirstDiscoveryCompleted());
    EXPECT_GT(discovery.passes, 3);
}

TEST(Discovery, Request_WorkerIdle_RunsNoPassAndPolls)
{
    TestDiscovery discovery;
    ASSERT_TRUE(discovery.Start());
    WaitUntil([&] { return discovery.turns > 100; });
    EXPECT_EQ(discovery.passes, 0);
}

TEST(Discovery, Terminate_WorkerIdle_EndsIt)
{
    TestDiscovery discovery;
    ASSERT_TRUE(discovery.Start());
    WaitUntil([&] { return discovery.turns > 0; });
    EXPECT_TRUE(discovery.Terminate(0));
    EXPECT_TRUE(discovery.Wait(-1));
    EXPECT_FALSE(discovery.IsRunning());
}

TEST(Discovery, Request_OnePassLongerThanTheTime_ReturnsWhenTheTimeIsOver)
{
    TestDiscovery discovery;
    discovery.allowed = 0;
    ASSERT_TRUE(discovery.Start());
    EXPECT_FALSE(discovery.RequestAndWaitDiscovery(20)); // not one pass completed
    discovery.allowed = INT_MAX;
    WaitUntil([&] { return discovery.IsFirstDiscoveryCompleted(); });
}

TEST(Discovery, Request_TimedOutAfterOnePass_IsTrue)
{
    TestDiscovery discovery;
    discovery.allowed = 1; // the second pass runs over
    ASSERT_TRUE(discovery.Start());
    EXPECT_TRUE(discovery.RequestAndWaitDiscovery(kTime));
    EXPECT_EQ(discovery.passes, 1);
}

TEST(Discovery, Request_Zero_IsTrueAtOnceWithNoPassAndNothingLeftBehind)
{
    TestDiscovery discovery;
    ASSERT_TRUE(discovery.Start());
    const auto start = Clock::now();
    for (int i = 0; i < 20; ++i) {
        EXPECT_TRUE(discovery.RequestAndWaitDiscovery(0));
    }
    EXPECT_LT(Clock::now() - start, 10s);
    const int turns = discovery.turns;
    WaitUntil([&] { return discovery.turns > turns + 10; });
    EXPECT_EQ(discovery.entered, 0);
    EXPECT_EQ(discovery.m_requestEvent.WaitForEvent(0), 0u);
    EXPECT_EQ(discovery.m_doneEvent.WaitForEvent(0), 0u);
}

TEST(Discovery, Request_ZeroWithoutWorker_IsTrue)
{
    TestDiscovery discovery;
    EXPECT_TRUE(discovery.RequestAndWaitDiscovery(0));
}

TEST(Discovery, Request_ZeroAfterAnother_ClearsTheCompletedFlag)
{
    TestDiscovery discovery;
    ASSERT_TRUE(discovery.Start());
    ASSERT_TRUE(discovery.RequestAndWaitDiscovery(kTime));
    EXPECT_TRUE(discovery.RequestAndWaitDiscovery(0));
    EXPECT_FALSE(discovery.IsFirstDiscoveryCompleted());
}

TEST(Discovery, Request_NoWorker_TimesOutFalse)
{
    TestDiscovery discovery;
    EXPECT_FALSE(discovery.RequestAndWaitDiscovery(10));
}

TEST(Discovery, Request_WithoutEnd_ReturnsAtOnceAndTheWorkerGoesOnUntilExit)
{
    TestDiscovery discovery;
    ASSERT_TRUE(discovery.Start());
    discovery.allowed = 0;
    const auto start = Clock::now();
    EXPECT_FALSE(discovery.RequestAndWaitDiscovery(GENTL_INFINITE));
    EXPECT_LT(Clock::now() - start, 10s);
    discovery.release = true;
    WaitUntil([&] { return discovery.passes > 5; });
    EXPECT_TRUE(discovery.IsFirstDiscoveryCompleted());
    discovery.RequestExit();
    const int passes = discovery.passes;
    discovery.WaitForExit();
    EXPECT_LE(discovery.passes, passes + 1);
    EXPECT_FALSE(discovery.IsRunning());
}

TEST(Discovery, Request_TimeBeyond32Bits_WaitsTheLowBits)
{
    TestDiscovery discovery;
    discovery.allowed = 0;
    ASSERT_TRUE(discovery.Start());
    const auto start = Clock::now();
    EXPECT_FALSE(discovery.RequestAndWaitDiscovery((uint64_t{1} << 32) + 20));
    EXPECT_GE(Clock::now() - start, 15ms);
    EXPECT_LT(Clock::now() - start, 10s);
}

TEST(Discovery, NewRequest_WhileOneWithoutEndRuns_EndsIt)
{
    TestDiscovery discovery;
    ASSERT_TRUE(discovery.Start());
    discovery.RequestAndWaitDiscovery(GENTL_INFINITE);
    discovery.WaitForEntered(1);
    EXPECT_TRUE(discovery.RequestAndWaitDiscovery(kTime));
    const int turns = discovery.turns;
    WaitUntil([&] { return discovery.turns > turns + 5; }); // polling again: both are over
    const int passes = discovery.passes;
    zr_test::LetPass(20ms, "no pass more");
    EXPECT_EQ(discovery.passes, passes);
}

TEST(Discovery, NewRequest_WhileALongOneRuns_IsServedAfterIt)
{
    TestDiscovery discovery;
    ASSERT_TRUE(discovery.Start());
    const auto start = Clock::now();
    std::thread first([&] {
        EXPECT_TRUE(discovery.RequestAndWaitDiscovery(3000));
        EXPECT_GE(Clock::now() - start, 2995ms);
    });
    discovery.WaitForEntered(2); // the first pass is over: what follows does not count for others
    EXPECT_FALSE(discovery.RequestAndWaitDiscovery(20));
    EXPECT_LT(Clock::now() - start, 2500ms); // within its own time, not in the other one's
    first.join();
    WaitUntil([&] { return discovery.m_requestEvent.WaitForEvent(0) == 0; }); // its turn has come
}

TEST(Discovery, TimeBelowAPass_Repeated_SucceedsWithThePassThatEndsMeanwhile)
{
    TestDiscovery discovery;
    discovery.allowed = 0;
    ASSERT_TRUE(discovery.Start());
    EXPECT_FALSE(discovery.RequestAndWaitDiscovery(5));
    discovery.WaitForEntered(1);
    EXPECT_FALSE(discovery.RequestAndWaitDiscovery(5));
    discovery.allowed = INT_MAX;
    EXPECT_TRUE(discovery.RequestAndWaitDiscovery(20'000)); // the pass of the first request
}

TEST(Discovery, TimeBelowAPass_BackToBack_SucceedsAgainAndAgain)
{
    TestDiscovery discovery;
    discovery.passTime = 40ms;
    ASSERT_TRUE(discovery.Start());
    const auto start = Clock::now();
    for (int succeeded = 0; succeeded < 4 && Clock::now() - start < 20s;) {
        succeeded += discovery.RequestAndWaitDiscovery(15) ? 1 : 0;
    }
    EXPECT_LT(Clock::now() - start, 20s);
}

TEST(Discovery, DoneBit_OfAnEarlierRequest_IsFoundAndTaken)
{
    TestDiscovery discovery;
    discovery.allowed = 0;
    ASSERT_TRUE(discovery.Start());
    EXPECT_FALSE(discovery.RequestAndWaitDiscovery(5));
    discovery.WaitForEntered(1);
    zr_test::LetPass(10ms, "the time of the request is over: its first pass is its last");
    discovery.allowed = 1;
    WaitUntil([&] { return discovery.m_doneEvent.WaitForEvent(0) == 16; });
    EXPECT_TRUE(discovery.RequestAndWaitDiscovery(20'000));
    EXPECT_EQ(discovery.passes, 1); // its own passes have only begun
    EXPECT_EQ(discovery.m_doneEvent.WaitForEvent(0), 0u);
    EXPECT_FALSE(discovery.RequestAndWaitDiscovery(20)); // taken once, by one request
}

TEST(Discovery, RequestExit_LeavesExactlyTheKillBits)
{
    TestDiscovery discovery;
    discovery.m_requestEvent.SetEvent(1);
    discovery.RequestExit();
    EXPECT_EQ(discovery.m_requestEvent.WaitForEvent(0), 0xF0000000u);
    EXPECT_FALSE(discovery.RequestAndWaitDiscovery(50)); // cannot bring the request bit back
    EXPECT_EQ(discovery.m_requestEvent.WaitForEvent(0), 0xF0000000u);
    EXPECT_TRUE(discovery.RequestAndWaitDiscovery(0));
}

TEST(Discovery, RequestExit_ReleasesAWaitingRequester)
{
    TestDiscovery discovery;
    discovery.allowed = 0;
    ASSERT_TRUE(discovery.Start());
    std::thread requester([&] { EXPECT_FALSE(discovery.RequestAndWaitDiscovery(60'000)); });
    discovery.WaitForEntered(1);
    const auto start = Clock::now();
    discovery.RequestExit();
    requester.join();
    EXPECT_LT(Clock::now() - start, 10s);
    discovery.release = true;
    discovery.WaitForExit();
    EXPECT_EQ(discovery.entered, 1);
}

TEST(Discovery, KillAlone_WithTheRequestBitSet_KeepsPollingUntilTheBitIsReset)
{
    TestDiscovery discovery;
    discovery.m_requestEvent.SetEvent(1);
    discovery.m_requestEvent.Kill();
    EXPECT_EQ(discovery.m_requestEvent.WaitForEvent(0), 0xF0000001u);
    ASSERT_TRUE(discovery.Start());
    WaitUntil([&] { return discovery.turns > 50; });
    EXPECT_TRUE(discovery.IsRunning());
    EXPECT_EQ(discovery.entered, 0);
    discovery.m_requestEvent.ResetEvent(1);
    discovery.WaitForExit();
    EXPECT_FALSE(discovery.IsRunning());
}

TEST(Discovery, Start_AfterExit_ServesRequestsAgain)
{
    TestDiscovery discovery;
    for (int i = 0; i < 20; ++i) {
        ASSERT_TRUE(discovery.Start());
        const int passes = discovery.passes;
        discovery.RequestAndWaitDiscovery(3);
        WaitUntil([&] { return discovery.passes > passes; });
        discovery.RequestExit();
        discovery.WaitForExit();
        EXPECT_FALSE(discovery.IsRunning());
    }
}

TEST(Discovery, PassThrows_IsNotCountedAndTheWorkerLives)
{
    TestDiscovery discovery;
    discovery.fail = true;
    ASSERT_TRUE(discovery.Start());
    discovery.RequestAndWaitDiscovery(10);
    WaitUntil([&] { return discovery.passes > 0; });
    EXPECT_FALSE(discovery.IsFirstDiscoveryCompleted());
    discovery.fail = false;
    EXPECT_TRUE(discovery.RequestAndWaitDiscovery(kTime));
}

TEST(Discovery, ManyRequestersAtOnce_AllComeBack)
{
    TestDiscovery discovery;
    ASSERT_TRUE(discovery.Start());
    std::vector<std::thread> requesters;
    const auto start = Clock::now();
    for (int i = 0; i < 4; ++i) {
        requesters.emplace_back([&] {
            for (uint64_t k = 0; k < 20; ++k) {
                discovery.RequestAndWaitDiscovery(k % 4);
                discovery.IsFirstDiscoveryCompleted();
            }
        });
    }
    for (auto& requester : requesters) {
        requester.join();
    }
    EXPECT_LT(Clock::now() - start, 20s);
    EXPECT_TRUE(discovery.RequestAndWaitDiscovery(kTime));
}

} // namespace
