#include "zr_gentl_thread.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <gtest/gtest.h>
#include <list>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

#include "no_threads.h"
#include "test_module.h"
#include "wait.h"

namespace {

using namespace std::chrono_literals;

class TestThread : public ZrGenTLThreadBase
{
public:
    explicit TestThread(std::function<void(TestThread&)> body) : m_body(std::move(body)) {}
    ~TestThread() override { Wait(-1); }
    void Run() override
    {
        ++runs;
        m_body(*this);
    }
    std::atomic<int> runs{0};
    std::atomic<bool> release{false};

    static void UntilReleased(TestThread& self)
    {
        zr_test::WaitUntil([&self] { return self.release.load(); });
    }

private:
    std::function<void(TestThread&)> m_body;
};

void Nothing(TestThread& /*self*/)
{
}

void WaitUntilEnded(ZrGenTLThreadBase& thread)
{
    zr_test::WaitUntil([&thread] { return !thread.IsRunning(); });
}

TEST(ThreadBase, VirtualOperations_StandInTheirOrder)
{
    EXPECT_EQ(SlotOf(&ZrGenTLThreadBase::Start), 2u);
    EXPECT_EQ(SlotOf(&ZrGenTLThreadBase::Run), 3u);
}

TEST(ThreadBase, Start_RunsOnceAndIsRunningMeanwhile)
{
    TestThread thread(&TestThread::UntilReleased);
    EXPECT_FALSE(thread.IsRunning());
    EXPECT_TRUE(thread.Start());
    EXPECT_TRUE(thread.IsRunning());
    thread.release = true;
    EXPECT_TRUE(thread.Wait(0)); // the time-out is ignored
    EXPECT_FALSE(thread.IsRunning());
    EXPECT_EQ(thread.runs, 1);
}

TEST(ThreadBaseDeathTest, Start_NoThreadCanBeMade_IsFalseAndCanBeTriedAgain)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    // In a process of its own, because the default stack size is everybody's.
    EXPECT_EXIT(
        {
            TestThread thread(&Nothing);
            bool right = true;
            {
                const NoMoreThreads exhausted;
                right = exhausted.InForce() && !thread.Start();
                right = !thread.IsRunning() && thread.Wait(-1) && thread.Terminate(0) && right;
            }
            right = thread.Start() && thread.Wait(-1) && thread.runs == 1 && right;
            _exit(right ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST(ThreadBase, Run_TakesNoneOfTheProcessesSignals_TheStarterStillDoes)
{
    sigset_t inside;
    sigset_t before;
    sigset_t after;
    sigemptyset(&inside);
    pthread_sigmask(SIG_SETMASK, nullptr, &before);
    TestThread thread(
        [&inside](TestThread& /*self*/) { pthread_sigmask(SIG_SETMASK, nullptr, &inside); });
    ASSERT_TRUE(thread.Start());
    EXPECT_TRUE(thread.Wait(-1));
    pthread_sigmask(SIG_SETMASK, nullptr, &after);
    for (const int signal : {SIGTERM, SIGINT, SIGUSR1, SIGCHLD, SIGALRM, SIGPIPE, SIGHUP}) {
        EXPECT_EQ(sigismember(&inside, signal), 1) << signal;
        EXPECT_EQ(sigismember(&after, signal), sigismember(&before, signal)) << signal;
    }
    for (const int own : {SIGSEGV, SIGBUS, SIGABRT}) {
        EXPECT_EQ(sigismember(&inside, own), 0) << own;
    }
}

TEST(ThreadBase, Wait_NeverStarted_ReturnsAtOnce)
{
    TestThread thread(&Nothing);
    EXPECT_TRUE(thread.Wait(-1));
    EXPECT_TRUE(thread.Wait(1000));
}

TEST(ThreadBase, Wait_Twice_ReturnsAtOnce)
{
    TestThread thread(&Nothing);
    EXPECT_TRUE(thread.Start());
    EXPECT_TRUE(thread.Wait(-1));
    EXPECT_TRUE(thread.Wait(-1));
}

TEST(ThreadBase, Wait_ManyThreads_AllReturnAfterTheEnd)
{
    TestThread thread(&TestThread::UntilReleased);
    ASSERT_TRUE(thread.Start());
    std::atomic<int> early{0};
    std::list<zr_test::WatchedThread> waiters;
    for (int i = 0; i < 4; ++i) {
        waiters.emplace_back([&] {
            thread.Wait(-1);
            early += thread.IsRunning();
        });
    }
    for (const auto& waiter : waiters) {
        EXPECT_TRUE(waiter.UntilAsleep());
    }
    thread.release = true;
    waiters.clear();
    EXPECT_EQ(early, 0);
}

TEST(ThreadBase, Wait_OnTheThreadItself_ReturnsAtOnce)
{
    std::atomic<bool> result{false};
    std::atomic<bool> current{false};
    TestThread thread([&](TestThread& self) {
        result = self.Wait(-1);
        current = self.IsCurrentThread();
    });
    EXPECT_FALSE(thread.IsCurrentThread());
    ASSERT_TRUE(thread.Start());
    EXPECT_FALSE(thread.IsCurrentThread());
    EXPECT_TRUE(thread.Wait(-1));
    EXPECT_TRUE(result);
    EXPECT_TRUE(current);
    EXPECT_FALSE(thread.IsCurrentThread());
}

TEST(ThreadBase, Wait_OnTheThreadItselfWhileAnotherJoins_DoesNotDeadlock)
{
    std::atomic<bool> go{false};
    TestThread thread([&](TestThread& self) {
        zr_test::WaitUntil([&go] { return go.load(); });
        self.Wait(-1);
    });
    ASSERT_TRUE(thread.Start());
    zr_test::WatchedThread other([&] { thread.Wait(-1); });
    EXPECT_TRUE(other.UntilAsleep());
    go = true;
}

TEST(ThreadBase, Start_WhileRunning_IsRefused)
{
    TestThread thread(&TestThread::UntilReleased);
    ASSERT_TRUE(thread.Start());
    EXPECT_FALSE(thread.Start());
    thread.release = true;
    thread.Wait(-1);
    EXPECT_EQ(thread.runs, 1);
}

TEST(ThreadBase, Start_AfterAnUnjoinedEnd_JoinsAndRunsAgain)
{
    TestThread thread(&Nothing);
    for (int i = 1; i <= 50; ++i) {
        ASSERT_TRUE(thread.Start());
        WaitUntilEnded(thread);
        ASSERT_EQ(thread.runs, i);
    }
}

TEST(ThreadBase, StartAndWaitFromManyThreads_NeverDeadlocksOrJoinsTwice)
{
    TestThread thread(&Nothing);
    std::vector<std::thread> users;
    for (int i = 0; i < 4; ++i) {
        users.emplace_back([&] {
            for (int k = 0; k < 100; ++k) {
                thread.Start();
                thread.Wait(-1);
                thread.IsCurrentThread();
            }
        });
    }
    for (auto& user : users) {
        user.join();
    }
    EXPECT_FALSE(thread.IsRunning());
    EXPECT_GT(thread.runs, 0);
}

TEST(ThreadBase, Terminate_EndsAThreadInACancellationPoint)
{
    // Not in a call that ThreadSanitizer intercepts: it does not see the locks of a thread that is
    // unwound out of one.
    TestThread thread([](TestThread&) {
        for (;;) {
            pthread_testcancel();
            sched_yield();
        }
    });
    ASSERT_TRUE(thread.Start());
    while (thread.runs == 0) {
        std::this_thread::yield();
    }
    EXPECT_TRUE(thread.Terminate(0));
    EXPECT_TRUE(thread.Wait(-1));
    EXPECT_FALSE(thread.IsRunning());
    EXPECT_TRUE(thread.Terminate(0)); // nothing left to end
}

TEST(ThreadBase, Terminate_NeverStarted_IsTrue)
{
    TestThread thread(&Nothing);
    EXPECT_TRUE(thread.Terminate(0));
}

TEST(ThreadBase, Destructor_EndedButNotJoined_LeaksNoThread)
{
    class Bare : public ZrGenTLThreadBase
    {
    public:
        void Run() override { done = true; }
        std::atomic<bool> done{false};
    };
    for (int i = 0; i < 20; ++i) {
        Bare bare;
        ASSERT_TRUE(bare.Start());
        WaitUntilEnded(bare);
    }
}

} // namespace
