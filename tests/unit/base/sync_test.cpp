#include "zr_sync.h"

#include <atomic>
#include <cerrno>
#include <gtest/gtest.h>
#include <thread>

#include "wait.h"
#include "zr_deadline.h"

namespace {

TEST(Sync, Mutex_ManyThreads_ExcludesThem)
{
    Mutex mutex;
    int counter = 0;
    const auto work = [&] {
        for (int i = 0; i < 10'000; ++i) {
            Locker lock(mutex);
            ++counter;
        }
    };
    std::thread first(work);
    std::thread second(work);
    first.join();
    second.join();
    EXPECT_EQ(counter, 20'000);
}

TEST(Sync, RecursiveMutex_TakenTwiceByItsHolder_IsFreeAfterTwoReleases)
{
    RecursiveMutex mutex;
    mutex.Lock();
    mutex.Lock();
    int attempt = 0;
    const auto tryIt = [&] {
        attempt = pthread_mutex_trylock(mutex.Native());
        if (attempt == 0) {
            pthread_mutex_unlock(mutex.Native());
        }
    };
    mutex.Unlock();
    std::thread(tryIt).join();
    EXPECT_EQ(attempt, EBUSY);
    mutex.Unlock();
    std::thread(tryIt).join();
    EXPECT_EQ(attempt, 0);
}

TEST(Sync, TimedWait_NobodySignals_ReportsTimeout)
{
    Mutex mutex;
    Condition condition;
    Locker lock(mutex);
    EXPECT_EQ(condition.TimedWait(mutex, ZrDeadlineAfter(-1000)), ETIMEDOUT);
}

TEST(Sync, TimedWait_InvalidDeadline_ReportsInvalid)
{
    Mutex mutex;
    Condition condition;
    Locker lock(mutex);
    EXPECT_EQ(condition.TimedWait(mutex, timespec{0, 1'000'000'000}), EINVAL);
}

TEST(Sync, Broadcast_TwoWaiters_WakesBoth)
{
    Mutex mutex;
    Condition condition;
    bool open = false;
    std::atomic<int> woken = 0;
    const auto wait = [&] {
        Locker lock(mutex);
        while (!open) {
            condition.Wait(mutex);
            ++woken;
        }
    };
    zr_test::WatchedThread first(wait);
    zr_test::WatchedThread second(wait);
    EXPECT_TRUE(first.UntilAsleep());
    EXPECT_TRUE(second.UntilAsleep());
    {
        Locker lock(mutex);
        open = true;
        condition.Broadcast();
    }
    first.Join();
    second.Join();
    EXPECT_GE(woken, 2);
}

} // namespace
