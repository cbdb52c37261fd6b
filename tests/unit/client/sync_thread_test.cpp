#include "wait.h"
#include "zr_sync_thread.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <gtest/gtest.h>
#include <pthread.h>
#include <stdexcept>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;

// What a test function and its thread share.
struct Job
{
    std::atomic<bool> release{false};
    std::atomic<bool> entered{false};
    std::atomic<bool> done{false};
    std::atomic<pthread_t> self{};
};

void RunJob(void* argument)
{
    auto* job = static_cast<Job*>(argument);
    job->self = pthread_self();
    job->entered = true;
    zr_test::WaitUntil([job] { return job->release.load(); });
    job->done = true;
}

TEST(SyncThread, Join_FunctionStillRuns_WaitsForIt)
{
    Job job;
    ZrSync_U3V::thread worker(&RunJob, &job);
    zr_test::WatchedThread joiner([&] {
        worker.join();
        EXPECT_TRUE(job.done);
    });
    EXPECT_TRUE(joiner.UntilAsleep());
    EXPECT_FALSE(joiner.HasEnded());
    job.release = true;
}

TEST(SyncThread, Join_Twice_SecondReturnsAtOnce)
{
    Job job;
    job.release = true;
    ZrSync_U3V::thread worker(&RunJob, &job);
    worker.join();
    EXPECT_TRUE(job.done);
    job.done = false;
    worker.join();
    EXPECT_FALSE(job.done) << "the function has run again";
}

TEST(SyncThread, Join_FunctionReturned_ReturnsAtOnce)
{
    Job job;
    job.release = true;
    ZrSync_U3V::thread worker(&RunJob, &job);
    ASSERT_TRUE(zr_test::WaitUntil([&] { return job.done.load(); }));
    zr_test::LetPass(20ms, "the function comes back from its last line");
    worker.join();
    EXPECT_TRUE(job.done);
}

// A function that has returned on a thread that has not ended: the thread-local object holds it.
TEST(SyncThread, Join_FunctionReturnedThreadStillEnds_DoesNotWaitForTheThread)
{
    static Job job; // outlives the detached thread
    struct Lingerer
    {
        ~Lingerer()
        {
            job.entered = true;
            zr_test::WaitUntil([] { return job.release.load(); });
            job.done = true;
        }
    };
    {
        ZrSync_U3V::thread worker(
            [](void*) {
                thread_local Lingerer lingerer;
                static_cast<void>(&lingerer);
            },
            nullptr);
        ASSERT_TRUE(zr_test::WaitUntil([&] { return job.entered.load(); }));
        worker.join();
        EXPECT_FALSE(job.done);
    }
    job.release = true;
    ASSERT_TRUE(zr_test::WaitUntil([&] { return job.done.load(); }));
    zr_test::LetPass(20ms, "the detached thread comes to its end, for the leak checker");
}

TEST(SyncThread, Destructor_FunctionStillRuns_DetachesAndLetsItEnd)
{
    static Job job; // outlives the detached thread
    {
        ZrSync_U3V::thread worker(&RunJob, &job);
        ASSERT_TRUE(zr_test::WaitUntil([&] { return job.entered.load(); }));
    }
    EXPECT_FALSE(job.done);
    pthread_attr_t attributes; // of the thread, which is still there
    ASSERT_EQ(pthread_getattr_np(job.self, &attributes), 0);
    int state = PTHREAD_CREATE_JOINABLE;
    EXPECT_EQ(pthread_attr_getdetachstate(&attributes, &state), 0);
    EXPECT_EQ(state, PTHREAD_CREATE_DETACHED);
    pthread_attr_destroy(&attributes);
    job.release = true;
    ASSERT_TRUE(zr_test::WaitUntil([&] { return job.done.load(); }));
    zr_test::LetPass(20ms, "the detached thread comes to its end, for the leak checker");
}

TEST(SyncThreadDeathTest, Function_ThrowsException_EndsTheProcess)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            const rlimit noCore{};
            setrlimit(RLIMIT_CORE, &noCore);
            ZrSync_U3V::thread worker([](void*) { throw std::runtime_error("out of the thread"); },
                                      nullptr);
            worker.join();
            zr_test::LetPass(5s, "nobody comes here");
        },
        testing::KilledBySignal(SIGABRT), "");
}

TEST(SyncThreadDeathTest, Constructor_NoThreadCanBeMade_JoinReturnsAndFunctionIsNotCalled)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    // Root is not bound by the limit on processes; a stack larger than the address space is.
    EXPECT_EXIT(
        {
            pthread_attr_t attributes;
            pthread_attr_init(&attributes);
            pthread_attr_setstacksize(&attributes, size_t{1} << 62);
            const bool limited = pthread_setattr_default_np(&attributes) == 0;
            std::atomic<bool> called{false};
            ZrSync_U3V::thread worker(
                [](void* flag) { *static_cast<std::atomic<bool>*>(flag) = true; }, &called);
            worker.join();
            _exit(limited && !called ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

} // namespace
