#include "steady_condition.h"

#include <gtest/gtest.h>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

TEST(SteadyCondition, Wait_NobodySignals_ReturnsAtTheDeadlineAndNotMuchBefore)
{
    Mutex mutex;
    SteadyCondition condition;
    const auto deadline = Clock::now() + std::chrono::milliseconds(20);
    Locker lock(mutex);
    while (Clock::now() < deadline) {
        condition.Wait(mutex, deadline);
    }
    EXPECT_GE(Clock::now(), deadline);
}

TEST(SteadyCondition, Wait_ForEver_EndsWithABroadcast)
{
    Mutex mutex;
    SteadyCondition condition;
    bool done = false;
    std::thread other([&] {
        Locker lock(mutex);
        done = true;
        condition.Broadcast();
    });
    {
        Locker lock(mutex);
        while (!done) {
            condition.Wait(mutex, SteadyCondition::Deadline::max());
        }
    }
    other.join();
    EXPECT_TRUE(done);
}

TEST(SteadyCondition, Wait_DeadlineInThePast_ReturnsAtOnce)
{
    Mutex mutex;
    SteadyCondition condition;
    const auto started = Clock::now();
    Locker lock(mutex);
    condition.Wait(mutex, started - std::chrono::hours(1));
    condition.Wait(mutex, SteadyCondition::Deadline::min());
    EXPECT_LT(Clock::now() - started, std::chrono::seconds(5));
}

} // namespace
