#include "wait.h"
#include "zr_gentl_buffer_queue.h"

#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <memory>
#include <thread>
#include <vector>

namespace {

constexpr auto kInput = ZR_BUFFER_LIST_INPUT;
constexpr auto kOutput = ZR_BUFFER_LIST_OUTPUT;
constexpr auto kAnnounced = ZR_BUFFER_LIST_ANNOUNCED;
constexpr auto kInvalid = static_cast<ZR_BUFFER_TYPE_LIST>(3);
constexpr auto kFarOut = static_cast<ZR_BUFFER_TYPE_LIST>(0xFFFFFFFF);

using Buffers = std::deque<ZrGenTLBuffer*>;

class BufferQueueTest : public testing::TestWithParam<ZR_BUFFER_TYPE_LIST>
{
protected:
    uint8_t memory[3] = {};
    ZrGenTLBuffer a{&memory[0], 10, false, nullptr, nullptr};
    ZrGenTLBuffer b{&memory[1], 30, false, nullptr, nullptr};
    ZrGenTLBuffer c{&memory[2], 20, false, nullptr, nullptr};
    ZrGenTLBufferQueue queue;

    ~BufferQueueTest() override { queue.Clear(kAnnounced, false); } // the buffers are ours

    void AddAll(ZR_BUFFER_TYPE_LIST list)
    {
        for (auto* buffer : {&a, &b, &c}) {
            EXPECT_TRUE(queue.Add(list, buffer));
        }
    }
};

TEST_P(BufferQueueTest, Add_AppendsToThatListOnly)
{
    AddAll(GetParam());
    for (const auto list : {kInput, kOutput, kAnnounced}) {
        EXPECT_EQ(queue.GetCount(list), list == GetParam() ? 3u : 0u);
    }
    EXPECT_EQ(queue.Copy(GetParam()), (Buffers{&a, &b, &c}));
}

TEST_P(BufferQueueTest, GetFront_PopsOnRequest)
{
    EXPECT_EQ(queue.GetFront(GetParam(), true), nullptr);
    AddAll(GetParam());
    EXPECT_EQ(queue.GetFront(GetParam(), false), &a);
    EXPECT_EQ(queue.GetFront(GetParam(), false), &a);
    EXPECT_EQ(queue.GetFront(GetParam(), true), &a);
    EXPECT_EQ(queue.GetFront(GetParam(), true), &b);
    EXPECT_EQ(queue.GetCount(GetParam()), 1u);
}

TEST_P(BufferQueueTest, FindByBuffer_ComparesTheBase)
{
    AddAll(GetParam());
    ZrGenTLBuffer twin(&memory[1], 5, false, nullptr, nullptr);
    queue.Add(GetParam(), &twin);
    EXPECT_EQ(queue.FindByBuffer(GetParam(), &memory[1], false), &b);
    EXPECT_EQ(queue.FindByBuffer(GetParam(), &memory[1], true), &b);
    EXPECT_EQ(queue.FindByBuffer(GetParam(), &memory[1], true), &twin);
    EXPECT_EQ(queue.FindByBuffer(GetParam(), &memory[1], true), nullptr);
    EXPECT_EQ(queue.Copy(GetParam()), (Buffers{&a, &c}));
}

TEST_P(BufferQueueTest, FindByBuffer_NullBase_FindsNothing)
{
    ZrGenTLBuffer baseless(nullptr, 5, false, nullptr, nullptr);
    queue.Add(GetParam(), &baseless);
    EXPECT_EQ(queue.FindByBuffer(GetParam(), nullptr, true), nullptr);
    EXPECT_EQ(queue.GetCount(GetParam()), 1u);
    queue.Clear(GetParam(), false);
}

TEST_P(BufferQueueTest, FindByHandle_ComparesTheAddress)
{
    AddAll(GetParam());
    EXPECT_EQ(queue.FindByHandle(GetParam(), nullptr, true), nullptr);
    EXPECT_EQ(queue.FindByHandle(GetParam(), this, true), nullptr);
    EXPECT_EQ(queue.FindByHandle(GetParam(), &b, false), &b);
    EXPECT_EQ(queue.FindByHandle(GetParam(), &b, true), &b);
    EXPECT_EQ(queue.FindByHandle(GetParam(), &b, true), nullptr);
    EXPECT_EQ(queue.Copy(GetParam()), (Buffers{&a, &c}));
}

TEST_P(BufferQueueTest, FindByIndex_CountsFromTheFront)
{
    EXPECT_EQ(queue.FindByIndex(GetParam(), 0, true), nullptr);
    AddAll(GetParam());
    EXPECT_EQ(queue.FindByIndex(GetParam(), 2, false), &c);
    EXPECT_EQ(queue.FindByIndex(GetParam(), queue.GetCount(GetParam()), true), nullptr);
    EXPECT_EQ(queue.FindByIndex(GetParam(), UINT32_MAX, true), nullptr);
    EXPECT_EQ(queue.FindByIndex(GetParam(), 1, true), &b);
    EXPECT_EQ(queue.Copy(GetParam()), (Buffers{&a, &c}));
}

TEST_P(BufferQueueTest, GetBiggestSize_IsTheLargestLow32Bits)
{
    EXPECT_EQ(queue.GetBiggestSize(GetParam()), 0u);
    AddAll(GetParam());
    EXPECT_EQ(queue.GetBiggestSize(GetParam()), 30u);
    ZrGenTLBuffer huge(&memory[0], (size_t{1} << 32) + 7, false, nullptr, nullptr);
    queue.Add(GetParam(), &huge);
    EXPECT_EQ(queue.GetBiggestSize(GetParam()), 30u);
    ZrGenTLBuffer large(&memory[0], 0xFFFFFFFF, false, nullptr, nullptr);
    queue.Add(GetParam(), &large);
    EXPECT_EQ(queue.GetBiggestSize(GetParam()), 0xFFFFFFFFu);
    queue.Clear(GetParam(), false);
}

TEST_P(BufferQueueTest, Clear_WithoutDeletion_LeavesTheBuffers)
{
    AddAll(GetParam());
    queue.Clear(GetParam(), false);
    EXPECT_EQ(queue.GetCount(GetParam()), 0u);
    EXPECT_EQ(a.GetSize(), 10u);
}

TEST_P(BufferQueueTest, Clear_WithDeletion_FreesEachOnceAndLeavesNoAddressBehind)
{
    for (int i = 0; i < 3; ++i) {
        auto* buffer = new ZrGenTLBuffer(nullptr, 8, true, nullptr, nullptr);
        queue.Add(GetParam(), buffer);
        queue.Add(GetParam(), buffer);
        queue.Add(kInput, buffer);
    }
    queue.Add(kOutput, &a);
    if (GetParam() != kOutput) {
        queue.Clear(GetParam(), true);
        EXPECT_EQ(queue.Copy(kOutput), (Buffers{&a}));
    } else {
        queue.FindByHandle(kOutput, &a, true);
        queue.Clear(GetParam(), true);
    }
    EXPECT_EQ(queue.GetCount(GetParam()), 0u);
    EXPECT_EQ(queue.GetCount(kInput), 0u);
}

TEST_P(BufferQueueTest, Clear_WithDeletion_WaitsForTheCallInsideABuffer)
{
    auto* buffer = new ZrGenTLBuffer(nullptr, 8, true, nullptr, nullptr);
    queue.Add(GetParam(), buffer);
    auto inside = queue.PinByHandle(GetParam(), buffer);
    ASSERT_TRUE(inside);
    zr_test::WatchedThread clearer([&] { queue.Clear(GetParam(), true); });
    while (queue.GetCount(GetParam()) != 0) { // out of the list: nobody else can find it
        std::this_thread::yield();
    }
    EXPECT_TRUE(clearer.UntilAsleep());
    EXPECT_FALSE(clearer.HasEnded());
    EXPECT_EQ(inside->GetSize(), 8u);
    inside.Reset();
    clearer.Join();
}

TEST_P(BufferQueueTest, PinByHandle_HoldsTheBuffer)
{
    AddAll(GetParam());
    EXPECT_FALSE(queue.PinByHandle(GetParam(), nullptr));
    EXPECT_FALSE(queue.PinByHandle(GetParam(), this));
    auto pinned = queue.PinByHandle(GetParam(), &b);
    ASSERT_EQ(pinned.Get(), &b);
    std::atomic<bool> shut{false};
    std::thread closer([&] {
        b.Gate().ShutAndWait();
        shut = true;
    });
    while (queue.PinByHandle(GetParam(), &b)) {
        std::this_thread::yield();
    }
    EXPECT_FALSE(shut);
    pinned.Reset();
    closer.join();
}

TEST_P(BufferQueueTest, PinFront_IsTheFirstUnlessItIsBeingClosed)
{
    EXPECT_FALSE(queue.PinFront(GetParam()));
    AddAll(GetParam());
    EXPECT_EQ(queue.PinFront(GetParam()).Get(), &a);
    EXPECT_EQ(queue.GetFront(GetParam(), true), &a);
    EXPECT_EQ(queue.PinFront(GetParam()).Get(), &b);
    b.Gate().ShutAndWait();
    EXPECT_FALSE(queue.PinFront(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(Lists, BufferQueueTest, testing::Values(kInput, kOutput, kAnnounced));

TEST_F(BufferQueueTest, Add_NullOrInvalidList_ChangesNothing)
{
    EXPECT_FALSE(queue.Add(kInput, nullptr));
    EXPECT_FALSE(queue.Add(kInvalid, &a));
    EXPECT_FALSE(queue.Add(kFarOut, &a));
    for (const auto list : {kInput, kOutput, kAnnounced}) {
        EXPECT_EQ(queue.GetCount(list), 0u);
    }
}

TEST_F(BufferQueueTest, InvalidList_GivesEmptyResults)
{
    AddAll(kInput);
    for (const auto list : {kInvalid, kFarOut}) {
        EXPECT_EQ(queue.GetFront(list, true), nullptr);
        EXPECT_EQ(queue.FindByBuffer(list, memory, true), nullptr);
        EXPECT_EQ(queue.FindByHandle(list, &a, true), nullptr);
        EXPECT_EQ(queue.FindByIndex(list, 0, true), nullptr);
        EXPECT_EQ(queue.GetCount(list), 0u);
        EXPECT_EQ(queue.GetBiggestSize(list), 0u);
        EXPECT_FALSE(queue.PinByHandle(list, &a));
        EXPECT_FALSE(queue.PinFront(list));
        EXPECT_TRUE(queue.Copy(list).empty());
        queue.Clear(list, true);
        queue.MoveTo(list, kInput, true);
        queue.MoveTo(kInput, list, true);
        queue.FlushTo(list, kInput, true);
        queue.FlushTo(kInput, list, true);
    }
    EXPECT_EQ(queue.Copy(kInput), (Buffers{&a, &b, &c}));
}

TEST_F(BufferQueueTest, MoveTo_EmptySource_DoesNothing)
{
    queue.MoveTo(kOutput, kInput, true);
    EXPECT_EQ(queue.GetCount(kOutput), 0u);
}

TEST_F(BufferQueueTest, MoveTo_WithAndWithoutPop)
{
    AddAll(kInput);
    queue.MoveTo(kOutput, kInput, false);
    EXPECT_EQ(queue.Copy(kInput), (Buffers{&a, &b, &c}));
    queue.MoveTo(kOutput, kInput, true);
    queue.MoveTo(kOutput, kInput, true);
    EXPECT_EQ(queue.Copy(kInput), (Buffers{&c}));
    EXPECT_EQ(queue.Copy(kOutput), (Buffers{&a, &a, &b}));
}

TEST_F(BufferQueueTest, MoveTo_SameList_TakesFrontToBack)
{
    AddAll(kInput);
    queue.MoveTo(kInput, kInput, true);
    EXPECT_EQ(queue.Copy(kInput), (Buffers{&b, &c, &a}));
    queue.MoveTo(kInput, kInput, false);
    EXPECT_EQ(queue.Copy(kInput), (Buffers{&b, &c, &a, &b}));
}

TEST_F(BufferQueueTest, FlushTo_KeepsOrderAndClearsOnRequest)
{
    AddAll(kAnnounced);
    queue.Add(kInput, &c);
    queue.FlushTo(kInput, kAnnounced, false);
    EXPECT_EQ(queue.Copy(kInput), (Buffers{&c, &a, &b, &c}));
    EXPECT_EQ(queue.Copy(kAnnounced), (Buffers{&a, &b, &c}));
    queue.FlushTo(kOutput, kInput, true);
    EXPECT_EQ(queue.GetCount(kInput), 0u);
    EXPECT_EQ(queue.Copy(kOutput), (Buffers{&c, &a, &b, &c}));
}

TEST_F(BufferQueueTest, FlushTo_SameList_DoublesItOrEmptiesIt)
{
    AddAll(kInput);
    queue.FlushTo(kInput, kInput, false);
    EXPECT_EQ(queue.Copy(kInput), (Buffers{&a, &b, &c, &a, &b, &c}));
    queue.FlushTo(kInput, kInput, true);
    EXPECT_EQ(queue.GetCount(kInput), 0u);
}

// Freed once, the leak checker and ASan see; that each is freed, its gate shows: it waits for the
// call inside.
TEST(BufferQueueDestruction, BuffersStillQueued_AreFreedOnce)
{
    auto queue = std::make_unique<ZrGenTLBufferQueue>();
    std::vector<Pinned<ZrGenTLBuffer>> inside;
    for (int i = 0; i < 3; ++i) {
        auto* buffer = new ZrGenTLBuffer(nullptr, 8, true, nullptr, nullptr);
        queue->Add(ZR_BUFFER_LIST_ANNOUNCED, buffer);
        queue->Add(ZR_BUFFER_LIST_INPUT, buffer);
        queue->Add(ZR_BUFFER_LIST_OUTPUT, buffer);
        inside.push_back(queue->PinByHandle(ZR_BUFFER_LIST_ANNOUNCED, buffer));
        ASSERT_TRUE(inside.back());
    }
    zr_test::WatchedThread destroyer([&] { queue.reset(); });
    while (!inside.empty()) {
        EXPECT_TRUE(destroyer.UntilAsleep());
        EXPECT_FALSE(destroyer.HasEnded()) << inside.size() << " not waited for";
        inside.pop_back();
    }
}

TEST_F(BufferQueueTest, AcquisitionAndConsumersAtOnce_LoseNothing)
{
    constexpr int kRounds = 3000;
    std::atomic<int> taken{0};
    std::thread acquisition([&] {
        while (taken < kRounds) {
            taken += queue.GetFront(kInput, true) != nullptr;
        }
    });
    for (int i = 0; i < kRounds; ++i) {
        queue.Add(kInput, &a);
        queue.GetCount(kInput);
        queue.FindByHandle(kInput, &b, true);
    }
    acquisition.join();
    EXPECT_EQ(queue.GetCount(kInput), 0u);
}

} // namespace
