#include "handle_table.h"

#include <atomic>
#include <gtest/gtest.h>
#include <set>
#include <thread>
#include <vector>

namespace standard_tl {
namespace {

class Thing : public Object
{
};

class OtherThing : public Object
{
};

TEST(HandleTable, Find_KnownHandle_GivesTheObject)
{
    HandleTable table;
    Thing thing;
    table.Add(thing);
    EXPECT_NE(thing.Handle(), nullptr);
    const auto pin = table.Find<Thing>(thing.Handle());
    ASSERT_TRUE(pin);
    EXPECT_EQ(&*pin, &thing);
}

TEST(HandleTable, Find_NullUnknownAndOtherKind_AreEmpty)
{
    HandleTable table;
    Thing thing;
    table.Add(thing);
    EXPECT_FALSE(table.Find<Thing>(nullptr));
    EXPECT_FALSE(table.Find<Thing>(&thing));
    EXPECT_FALSE(table.Find<OtherThing>(thing.Handle()));
    EXPECT_TRUE(table.Remove(thing.Handle())) << "a refused look-up has left nobody inside";
}

TEST(HandleTable, Remove_Twice_IsRefused)
{
    HandleTable table;
    Thing thing;
    table.Add(thing);
    EXPECT_TRUE(table.Remove(thing.Handle()));
    EXPECT_FALSE(table.Remove(thing.Handle()));
    EXPECT_FALSE(table.Remove(nullptr));
}

TEST(HandleTable, Add_PlaceUsedAgain_OldHandleStaysUnknown)
{
    HandleTable table;
    std::set<void*> handles;
    for (int i = 0; i < 10000; ++i) {
        Thing thing;
        table.Add(thing);
        EXPECT_TRUE(handles.insert(thing.Handle()).second);
        EXPECT_TRUE(table.Remove(thing.Handle()));
        EXPECT_FALSE(table.Find<Thing>(thing.Handle()));
    }
}

TEST(HandleTable, Add_Many_AllAreFound)
{
    HandleTable table;
    std::vector<Thing> things(9000);
    for (Thing& thing : things) {
        table.Add(thing);
    }
    for (Thing& thing : things) {
        const auto pin = table.Find<Thing>(thing.Handle());
        ASSERT_TRUE(pin);
        EXPECT_EQ(&*pin, &thing);
    }
}

TEST(HandleTable, Remove_SomebodyInside_WaitsAndLetsNobodyIn)
{
    HandleTable table;
    Thing thing;
    table.Add(thing);
    std::atomic<bool> isRemoved = false;
    std::thread closer;
    {
        const auto pin = table.Find<Thing>(thing.Handle());
        closer = std::thread([&] {
            table.Remove(thing.Handle());
            isRemoved = true;
        });
        // The closer has begun as soon as nobody gets in any more.
        while (table.Find<Thing>(thing.Handle())) {
            std::this_thread::yield();
        }
        EXPECT_FALSE(isRemoved);
    }
    closer.join();
    EXPECT_TRUE(isRemoved);
}

TEST(HandleTable, ManyThreads_ObjectsComeAndGo_NobodyIsInsideADeadOne)
{
    HandleTable table;
    struct Guarded : Object
    {
        std::atomic<bool> isAlive = true;
    };
    std::atomic<void*> handle = nullptr;
    std::atomic<bool> isOver = false;
    std::vector<std::thread> users;
    for (int i = 0; i < 3; ++i) {
        users.emplace_back([&] {
            while (!isOver) {
                const auto pin = table.Find<Guarded>(handle);
                EXPECT_TRUE(!pin || pin->isAlive);
            }
        });
    }
    for (int i = 0; i < 3000; ++i) {
        auto object = std::make_unique<Guarded>();
        table.Add(*object);
        handle = object->Handle();
        EXPECT_TRUE(table.Remove(object->Handle()));
        object->isAlive = false;
    }
    isOver = true;
    for (std::thread& user : users) {
        user.join();
    }
}

} // namespace
} // namespace standard_tl
