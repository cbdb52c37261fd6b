#include "zr_gentl_ring.h"

#include <gtest/gtest.h>
#include <vector>

namespace {

using Ring = ZrGenTLRing<int>;

std::vector<int> Entries(const Ring& ring)
{
    return ring.Copy<std::vector<int>>();
}

// Entries from `first` on, with the front somewhere in the middle of the memory.
Ring Wrapped(int first, int count)
{
    Ring ring;
    for (int i = 0; i < 10; ++i) {
        ring.push_back(-1);
        ring.pop_front();
    }
    for (int i = 0; i < count; ++i) {
        ring.push_back(first + i);
    }
    return ring;
}

} // namespace

TEST(Ring, EntriesComeAndGo_StayInOrderOverTheEndOfTheMemory)
{
    Ring ring = Wrapped(0, 12);
    for (int i = 0; i < 100; ++i) {
        ASSERT_EQ(ring[0], i);
        ring.pop_front();
        ring.push_back(12 + i);
    }
    EXPECT_EQ(ring.size(), 12u);
    EXPECT_EQ(ring[11], 111);
}

TEST(Ring, MoreEntriesThanRoom_GrowsInOrder)
{
    const Ring ring = Wrapped(0, 100);
    ASSERT_EQ(ring.size(), 100u);
    for (size_t i = 0; i < 100; ++i) {
        EXPECT_EQ(ring[i], static_cast<int>(i));
    }
}

TEST(Ring, Erase_TakesOneOutAndKeepsTheOrder)
{
    Ring ring = Wrapped(0, 10);
    ring.erase(9);
    ring.erase(4);
    ring.erase(0);
    EXPECT_EQ(Entries(ring), (std::vector<int>{1, 2, 3, 5, 6, 7, 8}));
}

TEST(Ring, EraseIf_TakesAllThatMatchOut)
{
    Ring ring = Wrapped(0, 10);
    ring.erase_if([](int entry) { return entry % 3 == 0; });
    EXPECT_EQ(Entries(ring), (std::vector<int>{1, 2, 4, 5, 7, 8}));
    ring.erase_if([](int) { return true; });
    EXPECT_TRUE(ring.empty());
}

TEST(Ring, ClearedOrNew_IsEmptyAndUsable)
{
    Ring ring;
    EXPECT_TRUE(ring.empty());
    EXPECT_TRUE(Entries(ring).empty());
    ring.Reserve();
    EXPECT_TRUE(ring.empty());
    ring.push_back(1);
    ring.clear();
    EXPECT_TRUE(ring.empty());
    ring.push_back(2);
    EXPECT_EQ(Entries(ring), (std::vector<int>{2}));
}
