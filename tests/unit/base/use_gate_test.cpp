#include "use_gate.h"
#include "wait.h"

#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

namespace {

using namespace std::chrono_literals;

struct Gated
{
    UseGate& Gate() { return gate; }
    UseGate gate;
    int value = 7;
};
using PinnedGated = Pinned<Gated>;

TEST(UseGate, TryEnter_Open_IsAllowedManyTimes)
{
    UseGate gate;
    EXPECT_TRUE(gate.TryEnter());
    EXPECT_TRUE(gate.TryEnter());
    gate.Leave();
    gate.Leave();
    gate.ShutAndWait();
}

TEST(UseGate, TryEnter_Shut_IsRefusedUntilReopened)
{
    UseGate gate;
    gate.ShutAndWait();
    EXPECT_FALSE(gate.TryEnter());
    gate.ShutAndWait();
    gate.Reopen();
    EXPECT_TRUE(gate.TryEnter());
    gate.Leave();
}

TEST(UseGate, ShutAndWait_SomebodyInside_ReturnsWhenTheLastLeft)
{
    UseGate gate;
    ASSERT_TRUE(gate.TryEnter());
    ASSERT_TRUE(gate.TryEnter());
    zr_test::WatchedThread owner([&] { gate.ShutAndWait(); });
    while (gate.TryEnter()) { // until the owner has shut it
        gate.Leave();
        std::this_thread::yield();
    }
    gate.Leave();
    EXPECT_TRUE(owner.UntilAsleep());
    EXPECT_FALSE(owner.HasEnded());
    gate.Leave();
    owner.Join();
}

TEST(Pinned, NullOrShut_IsEmpty)
{
    EXPECT_FALSE(PinnedGated());
    EXPECT_FALSE(PinnedGated::TryPin(nullptr));
    Gated object;
    object.gate.ShutAndWait();
    EXPECT_FALSE(PinnedGated::TryPin(&object));
}

TEST(Pinned, MovesAndReset_LeaveTheGateExactlyOnce)
{
    Gated object;
    {
        PinnedGated first = PinnedGated::TryPin(&object);
        EXPECT_EQ(first->value, 7);
        EXPECT_EQ((*first).value, 7);
        EXPECT_EQ(first.Get(), &object);
        PinnedGated second(std::move(first));
        EXPECT_FALSE(first); // NOLINT: a moved-from reference is empty
        PinnedGated third = PinnedGated::TryPin(&object);
        third = std::move(second);
        auto& self = third;
        third = std::move(self);
        EXPECT_TRUE(third);
        third.Reset();
        third.Reset();
        EXPECT_FALSE(third);
    }
    object.gate.ShutAndWait(); // would hang if an entry were left
}

TEST(UseGate, ObjectDestroyedWhileOthersTryToUseIt_IsNeverUsedAfterwards)
{
    for (int round = 0; round < 50; ++round) {
        Mutex mutex; // the look-up's lock
        auto object = std::make_unique<Gated>();
        std::vector<std::thread> users;
        for (int i = 0; i < 3; ++i) {
            users.emplace_back([&] {
                for (;;) {
                    PinnedGated pinned;
                    {
                        Locker lock(mutex);
                        pinned = PinnedGated::TryPin(object.get());
                    }
                    if (!pinned) {
                        return;
                    }
                    EXPECT_EQ(pinned->value, 7);
                }
            });
        }
        std::unique_ptr<Gated> taken;
        {
            Locker lock(mutex);
            taken = std::move(object);
        }
        taken->gate.ShutAndWait();
        taken.reset();
        for (auto& user : users) {
            user.join();
        }
    }
}

} // namespace
