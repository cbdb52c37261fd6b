#include "zr_gentl_module_container.h"

#include <atomic>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <thread>

#include "test_module.h"

namespace {

class ModuleContainerTest : public testing::Test
{
protected:
    TestModule a{"TLDevice", "a"};
    TestModule b{"TLDevice", "b"};
    TestModule c{"TLDataStream", "b"};
    ZrGenTLModuleContainer container;

    void AddAll()
    {
        container.Add(&a);
        container.Add(&b);
        container.Add(&c);
    }
};

TEST_F(ModuleContainerTest, Add_Null_IsRefused)
{
    EXPECT_FALSE(container.Add(nullptr));
    EXPECT_EQ(container.GetCount(), 0u);
}

TEST_F(ModuleContainerTest, Add_Twice_GivesTwoEntries)
{
    EXPECT_TRUE(container.Add(&a));
    EXPECT_TRUE(container.Add(&a));
    EXPECT_EQ(container.GetCount(), 2u);
}

TEST_F(ModuleContainerTest, FindByIndex_CountsFromZeroInOrderOfAddition)
{
    AddAll();
    EXPECT_EQ(container.FindByIndex(0, false), &a);
    EXPECT_EQ(container.FindByIndex(2, false), &c);
    EXPECT_EQ(container.FindByIndex(3, false), nullptr);
    EXPECT_EQ(container.FindByIndex(UINT32_MAX, true), nullptr);
    EXPECT_EQ(container.GetCount(), 3u);
}

TEST_F(ModuleContainerTest, FindByIndex_RemovesTheOnlyEntry)
{
    container.Add(&a);
    EXPECT_EQ(container.FindByIndex(0, true), &a);
    EXPECT_EQ(container.GetCount(), 0u);
}

TEST_F(ModuleContainerTest, FindByIndex_Remove_ClosesUpInOrder)
{
    AddAll();
    EXPECT_EQ(container.FindByIndex(1, true), &b);
    EXPECT_EQ(container.FindByIndex(0, false), &a);
    EXPECT_EQ(container.FindByIndex(1, false), &c);
}

TEST_F(ModuleContainerTest, FindById_FirstMatchWins)
{
    AddAll();
    EXPECT_EQ(container.FindById("b", true), &b);
    EXPECT_EQ(container.FindById("b", true), &c);
    EXPECT_EQ(container.FindById("b", false), nullptr);
    EXPECT_EQ(container.GetCount(), 1u);
}

TEST_F(ModuleContainerTest, FindById_ComparesLengthAndBytes)
{
    TestModule longer("TLDevice", "id-1");
    TestModule empty("TLDevice", "");
    container.Add(&longer);
    EXPECT_EQ(container.FindById("id-", false), nullptr);
    EXPECT_EQ(container.FindById("id-12", false), nullptr);
    EXPECT_EQ(container.FindById("ID-1", false), nullptr);
    EXPECT_EQ(container.FindById("", false), nullptr);
    container.Add(&empty);
    EXPECT_EQ(container.FindById("", false), &empty);
}

TEST_F(ModuleContainerTest, FindById_Null_MatchesNothing)
{
    AddAll();
    EXPECT_EQ(container.FindById(nullptr, true), nullptr);
    EXPECT_EQ(container.GetCount(), 3u);
}

TEST_F(ModuleContainerTest, FindByHandle_ComparesAddresses)
{
    AddAll();
    int stranger = 0;
    EXPECT_EQ(container.FindByHandle(&stranger, true), nullptr);
    EXPECT_EQ(container.FindByHandle(nullptr, true), nullptr);
    EXPECT_EQ(container.GetCount(), 3u);
    EXPECT_EQ(container.FindByHandle(&b, false), &b);
    EXPECT_EQ(container.FindByHandle(&b, true), &b);
    EXPECT_EQ(container.FindByHandle(&b, true), nullptr);
}

TEST_F(ModuleContainerTest, FindByHandle_NeverCallsIntoTheModule)
{
    // The memory of a module that is gone: any look into it is an error that ASan sees.
    auto gone = std::make_unique<TestModule>();
    container.Add(&a);
    container.Add(gone.get());
    void* const handle = gone.get();
    gone.reset();
    EXPECT_EQ(container.FindByHandle(handle, true), handle);
    EXPECT_EQ(container.GetCount(), 1u);
}

TEST_F(ModuleContainerTest, FindByHandleAndName_BothMustMatch)
{
    AddAll();
    EXPECT_EQ(container.FindByHandleAndName(&c, "TLDevice", true), nullptr);
    EXPECT_EQ(container.FindByHandleAndName(&c, "TLDataStrea", true), nullptr);
    EXPECT_EQ(container.FindByHandleAndName(&c, "", true), nullptr);
    EXPECT_EQ(container.FindByHandleAndName(&c, nullptr, true), nullptr);
    EXPECT_EQ(container.FindByHandleAndName(this, "TLDevice", true), nullptr);
    EXPECT_EQ(container.GetCount(), 3u);
    EXPECT_EQ(container.FindByHandleAndName(&c, "TLDataStream", false), &c);
    EXPECT_EQ(container.FindByHandleAndName(&c, "TLDataStream", true), &c);
    EXPECT_EQ(container.GetCount(), 2u);
}

TEST_F(ModuleContainerTest, Clear_False_LeavesTheModulesAlive)
{
    int destroyed = 0;
    a.destroyed = &destroyed;
    AddAll();
    container.Clear(false);
    EXPECT_EQ(container.GetCount(), 0u);
    EXPECT_EQ(destroyed, 0);
    a.destroyed = nullptr;
}

TEST_F(ModuleContainerTest, Clear_True_DestroysEachOnce)
{
    int destroyed = 0;
    for (int i = 0; i < 3; ++i) {
        auto* module = new TestModule;
        module->destroyed = &destroyed;
        container.Add(module);
        container.Add(module);
    }
    container.Clear(true);
    EXPECT_EQ(destroyed, 3);
    EXPECT_EQ(container.GetCount(), 0u);
}

TEST_F(ModuleContainerTest, Pins_HoldTheModuleUntilReleased)
{
    AddAll();
    using Pin = std::function<Pinned<ZrGenTLModuleBase>()>;
    for (const Pin& pin :
         {Pin([&] { return container.PinById("b"); }), Pin([&] { return container.PinByIndex(1); }),
          Pin([&] { return container.PinByHandle(&b); }),
          Pin([&] { return container.PinByHandleAndName(&b, "TLDevice"); })}) {
        auto pinned = pin();
        ASSERT_EQ(pinned.Get(), &b);
        std::atomic<bool> closed{false};
        std::thread closer([&] {
            b.Gate().ShutAndWait();
            closed = true;
        });
        while (pin()) {
            std::this_thread::yield();
        }
        EXPECT_FALSE(closed);
        pinned.Reset();
        closer.join();
        b.Gate().Reopen();
    }
    EXPECT_EQ(container.GetCount(), 3u);
}

TEST_F(ModuleContainerTest, Pins_NoSuchEntry_AreEmpty)
{
    AddAll();
    EXPECT_FALSE(container.PinById("x"));
    EXPECT_FALSE(container.PinById(nullptr));
    EXPECT_FALSE(container.PinByIndex(3));
    EXPECT_FALSE(container.PinByHandle(this));
    EXPECT_FALSE(container.PinByHandleAndName(&a, "TLSystem"));
}

TEST_F(ModuleContainerTest, GetHandles_AreTheAddressesInOrder)
{
    AddAll();
    EXPECT_EQ(container.GetHandles(), (std::vector<void*>{&a, &b, &c}));
}

TEST_F(ModuleContainerTest, ManyThreads_AddAndRemove_CountEndsRight)
{
    const auto work = [this](TestModule& module) {
        for (int i = 0; i < 1000; ++i) {
            container.Add(&module);
            container.FindById("b", false);
            container.PinByHandle(&module);
            EXPECT_EQ(container.FindByHandle(&module, true), &module);
        }
    };
    std::thread first([&] { work(a); });
    std::thread second([&] { work(b); });
    first.join();
    second.join();
    EXPECT_EQ(container.GetCount(), 0u);
}

} // namespace
