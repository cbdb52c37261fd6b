#include "zr_gentl_module_base.h"

#include <atomic>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "test_module.h"

namespace {

constexpr size_t kRoom = 64;

class ModuleBaseTest : public testing::Test
{
protected:
    ModuleBaseTest()
    {
        auto& info = module.PortInfo();
        info.id = "the id";
        info.vendor = "the vendor";
        info.model = "the model";
        info.tlType = "U3V";
        info.module = "TLDevice";
        info.version = "1.2.3";
        info.portName = "DevicePort";
    }

    TestModule module{"TLDevice", "dev-1"};
    int type = -1;
    char buffer[kRoom];
    size_t size = kRoom;
};

TEST(ModuleBaseSlots, VirtualOperations_StandInTheirOrder)
{
    using M = ZrGenTLModuleBase;
    EXPECT_EQ(SlotOf(&M::IsPortImplemented), 2u);
    EXPECT_EQ(SlotOf(&M::ReadPort), 3u);
    EXPECT_EQ(SlotOf(&M::WritePort), 4u);
    EXPECT_EQ(SlotOf(&M::ReadPortStacked), 5u);
    EXPECT_EQ(SlotOf(&M::WritePortStacked), 6u);
    EXPECT_EQ(SlotOf(&M::GetPortURL), 7u);
    EXPECT_EQ(SlotOf(&M::GetPortInfo), 8u);
    EXPECT_EQ(SlotOf(&M::GetNumPortURLs), 9u);
    EXPECT_EQ(SlotOf(&M::GetPortURLInfo), 10u);
    EXPECT_EQ(SlotOf(&M::IsEventImplemented), 11u);
}

TEST(ModuleBasePortInfo, Defaults_AreEmptyStringsAndBigEndianOnly)
{
    const _ZR_GENTL_PORT_INFO info;
    for (const auto* text : {&info.id, &info.vendor, &info.model, &info.tlType, &info.module,
                             &info.version, &info.portName}) {
        EXPECT_EQ(*text, "");
    }
    EXPECT_FALSE(info.littleEndian);
    EXPECT_TRUE(info.bigEndian);
    EXPECT_FALSE(info.accessRead);
    EXPECT_FALSE(info.accessWrite);
    EXPECT_FALSE(info.accessNA);
    EXPECT_FALSE(info.accessNI);
}

TEST_F(ModuleBaseTest, Identity_IsWhatTheConstructorGot)
{
    EXPECT_EQ(module.GetId(), "dev-1");
    EXPECT_EQ(module.GetName(), "TLDevice");
    EXPECT_EQ(module.GetParent(), nullptr);
    TestModule child("TLDataStream", "ds", &module);
    EXPECT_EQ(child.GetParent(), &module);
}

TEST_F(ModuleBaseTest, GetPortInfo_Strings)
{
    const std::pair<int, const char*> rows[] = {
        {0, "the id"},   {1, "the vendor"}, {2, "the model"},   {3, "U3V"},
        {4, "TLDevice"}, {11, "1.2.3"},     {12, "DevicePort"},
    };
    for (const auto& [cmd, text] : rows) {
        size = kRoom;
        EXPECT_EQ(module.GetPortInfo(cmd, &type, buffer, &size), 0) << cmd;
        EXPECT_EQ(type, 1);
        EXPECT_EQ(size, strlen(text) + 1);
        EXPECT_STREQ(buffer, text);
    }
}

TEST_F(ModuleBaseTest, GetPortInfo_Flags)
{
    bool _ZR_GENTL_PORT_INFO::*const flags[] = {
        &_ZR_GENTL_PORT_INFO::littleEndian, &_ZR_GENTL_PORT_INFO::bigEndian,
        &_ZR_GENTL_PORT_INFO::accessRead,   &_ZR_GENTL_PORT_INFO::accessWrite,
        &_ZR_GENTL_PORT_INFO::accessNA,     &_ZR_GENTL_PORT_INFO::accessNI,
    };
    for (int set = 0; set < 6; ++set) {
        for (int i = 0; i < 6; ++i) {
            module.PortInfo().*flags[i] = i == set;
        }
        for (int i = 0; i < 6; ++i) {
            size = kRoom;
            buffer[0] = 'x';
            EXPECT_EQ(module.GetPortInfo(5 + i, &type, buffer, &size), 0);
            EXPECT_EQ(type, 11);
            EXPECT_EQ(size, 1u);
            EXPECT_EQ(buffer[0], i == set ? 1 : 0) << set << " " << i;
        }
    }
}

TEST_F(ModuleBaseTest, GetPortInfo_OtherCommands_AreNotImplementedButTheBufferIsCleared)
{
    for (const int cmd : {-1, 13, 1000, 1001, INT32_MAX, INT32_MIN}) {
        size = kRoom;
        memset(buffer, 'x', sizeof buffer);
        EXPECT_EQ(module.GetPortInfo(cmd, &type, buffer, &size), -1003) << cmd;
        EXPECT_EQ(std::string(buffer, kRoom), std::string(kRoom, '\0'));
        EXPECT_EQ(size, kRoom);
    }
}

TEST_F(ModuleBaseTest, GetPortInfo_NullTypeOrSize_IsInvalidParameter)
{
    buffer[0] = 'x';
    EXPECT_EQ(module.GetPortInfo(0, nullptr, buffer, &size), -1009);
    EXPECT_EQ(module.GetPortInfo(0, &type, buffer, nullptr), -1009);
    EXPECT_EQ(buffer[0], 'x');
    EXPECT_EQ(size, kRoom);
}

TEST_F(ModuleBaseTest, GetPortInfo_NullBuffer_IsSizeQuery)
{
    size = 0;
    EXPECT_EQ(module.GetPortInfo(3, &type, nullptr, &size), 0);
    EXPECT_EQ(type, 1);
    EXPECT_EQ(size, 4u);
}

TEST_F(ModuleBaseTest, GetPortInfo_OneByteShort_IsTooSmallAndStillTellsTheSize)
{
    size = 3;
    memset(buffer, 'x', sizeof buffer);
    EXPECT_EQ(module.GetPortInfo(3, &type, buffer, &size), -1016);
    EXPECT_EQ(type, 1);
    EXPECT_EQ(size, 4u);
    EXPECT_EQ(std::string(buffer, 4), std::string("\0\0\0x", 4)); // cleared, and not beyond
}

TEST_F(ModuleBaseTest, GetPortInfo_SizeZeroWithBuffer_LeavesTheBuffer)
{
    size = 0;
    buffer[0] = 'x';
    EXPECT_EQ(module.GetPortInfo(3, &type, buffer, &size), -1016);
    EXPECT_EQ(buffer[0], 'x');
}

TEST_F(ModuleBaseTest, GetPortInfo_LargerBuffer_IsZeroBeyondTheString)
{
    memset(buffer, 'x', sizeof buffer);
    EXPECT_EQ(module.GetPortInfo(3, &type, buffer, &size), 0);
    EXPECT_EQ(std::string(buffer, kRoom), "U3V" + std::string(kRoom - 3, '\0'));
}

TEST_F(ModuleBaseTest, GetNumPortURLs_CountsTheList)
{
    uint32_t count = 99;
    EXPECT_EQ(module.GetNumPortURLs(nullptr), -1009);
    EXPECT_EQ(module.GetNumPortURLs(&count), 0);
    EXPECT_EQ(count, 0u);
    module.SetUrlList({"first", "second"});
    EXPECT_EQ(module.GetNumPortURLs(&count), 0);
    EXPECT_EQ(count, 2u);
    module.SetUrlList({"other"});
    EXPECT_EQ(module.GetNumPortURLs(&count), 0);
    EXPECT_EQ(count, 1u);
}

TEST_F(ModuleBaseTest, GetPortURLInfo_Url_IsAString)
{
    module.SetUrlList({"first", "second"});
    EXPECT_EQ(module.GetPortURLInfo(1, URL_INFO_URL, &type, buffer, &size), 0);
    EXPECT_STREQ(buffer, "second");
    EXPECT_EQ(type, 1);
    EXPECT_EQ(size, 7u);
    size = 6;
    EXPECT_EQ(module.GetPortURLInfo(1, URL_INFO_URL, &type, buffer, &size), -1016);
    EXPECT_EQ(size, 7u);
    EXPECT_EQ(module.GetPortURLInfo(1, URL_INFO_URL, &type, nullptr, &size), 0);
}

TEST_F(ModuleBaseTest, GetPortURLInfo_ChecksPointersThenCommandThenIndex)
{
    EXPECT_EQ(module.GetPortURLInfo(5, URL_INFO_SCHEME, nullptr, buffer, &size), -1009);
    EXPECT_EQ(module.GetPortURLInfo(5, URL_INFO_SCHEME, &type, buffer, nullptr), -1009);
    EXPECT_EQ(module.GetPortURLInfo(5, URL_INFO_SCHEMA_VER_MAJOR, &type, buffer, &size), -1003);
    EXPECT_EQ(module.GetPortURLInfo(0, URL_INFO_FILENAME, &type, buffer, &size), -1003);
    EXPECT_EQ(module.GetPortURLInfo(0, URL_INFO_URL, &type, buffer, &size), -1017);
    module.SetUrlList({"first"});
    EXPECT_EQ(module.GetPortURLInfo(1, URL_INFO_URL, &type, buffer, &size), -1017);
    EXPECT_EQ(module.GetPortURLInfo(UINT32_MAX, URL_INFO_URL, &type, buffer, &size), -1017);
}

TEST_F(ModuleBaseTest, GetPortURL_IsTheFirstUrl)
{
    EXPECT_EQ(module.GetPortURL(buffer, &size), -1017);
    EXPECT_EQ(module.GetPortURL(buffer, nullptr), -1009);
    module.SetUrlList({"first", "second"});
    EXPECT_EQ(module.GetPortURL(buffer, &size), 0);
    EXPECT_STREQ(buffer, "first");
    EXPECT_EQ(module.GetPortURL(nullptr, &size), 0);
    EXPECT_EQ(size, 6u);
}

class StackedTest : public ModuleBaseTest, public testing::WithParamInterface<char>
{
protected:
    GC_ERROR Access(S_PORT_REGISTER_STACK_ENTRY* entries, size_t* count)
    {
        return GetParam() == 'r' ? module.ReadPortStacked(entries, count)
                                 : module.WritePortStacked(entries, count);
    }
};

TEST_P(StackedTest, NullArguments_AreInvalidParameters)
{
    S_PORT_REGISTER_STACK_ENTRY entry{};
    size_t count = 1;
    EXPECT_EQ(Access(nullptr, &count), -1009);
    EXPECT_EQ(Access(&entry, nullptr), -1009);
    count = 0;
    EXPECT_EQ(Access(nullptr, &count), -1009);
    EXPECT_TRUE(module.accesses.empty());
}

TEST_P(StackedTest, NoEntries_IsSuccess)
{
    S_PORT_REGISTER_STACK_ENTRY entry{};
    size_t count = 0;
    EXPECT_EQ(Access(&entry, &count), 0);
    EXPECT_TRUE(module.accesses.empty());
}

TEST_P(StackedTest, ThreeEntries_AreDoneInOrderAndNothingIsWrittenBack)
{
    // One byte off: a consumer's array is packed and may lie anywhere.
    alignas(8) char storage[1 + 3 * sizeof(S_PORT_REGISTER_STACK_ENTRY)];
    auto* entries = reinterpret_cast<S_PORT_REGISTER_STACK_ENTRY*>(storage + 1);
    for (size_t i = 0; i < 3; ++i) {
        const S_PORT_REGISTER_STACK_ENTRY entry{0x100 * (i + 1), buffer + i, 4 + i};
        memcpy(storage + 1 + i * sizeof entry, &entry, sizeof entry);
    }
    const std::string before(storage, sizeof storage);
    size_t count = 3;
    EXPECT_EQ(Access(entries, &count), 0);
    EXPECT_EQ(count, 3u);
    EXPECT_EQ(std::string(storage, sizeof storage), before);
    const char kind = GetParam();
    EXPECT_EQ(module.accesses, (std::vector<TestModule::Access_>{{kind, 0x100, buffer, 4},
                                                                 {kind, 0x200, buffer + 1, 5},
                                                                 {kind, 0x300, buffer + 2, 6}}));
}

TEST_P(StackedTest, SecondFails_ReturnsItsStatusAndLeavesTheThird)
{
    S_PORT_REGISTER_STACK_ENTRY entries[3] = {{1, buffer, 4}, {2, buffer, 4}, {3, buffer, 4}};
    size_t count = 3;
    module.results = {0, -1015, 0};
    EXPECT_EQ(Access(entries, &count), -1015);
    EXPECT_EQ(module.accesses.size(), 2u);
    EXPECT_EQ(count, 3u);
    EXPECT_EQ(size_t{entries[1].Size}, 4u);
}

INSTANTIATE_TEST_SUITE_P(ReadAndWrite, StackedTest, testing::Values('r', 'w'));

TEST_F(ModuleBaseTest, RegisterEvent_IdNotServedByTheModule_IsNotImplemented)
{
    void* handle = this;
    EXPECT_EQ(module.RegisterEvent(EVENT_NEW_BUFFER, &handle), -1003);
    EXPECT_EQ(module.RegisterEvent(EVENT_NEW_BUFFER, nullptr), -1003);
    EXPECT_EQ(handle, this);
}

TEST_F(ModuleBaseTest, RegisterEvent_IdsOfTheFactory_MakeThatEvent)
{
    for (const int id : {0, 1, 4, 5, 4000, 5000}) {
        module.events = {id};
        void* handle = nullptr;
        EXPECT_EQ(module.RegisterEvent(id, &handle), 0) << id;
        ZrGenTLEvent* const event = module.FindEventById(id, false);
        ASSERT_NE(event, nullptr);
        EXPECT_EQ(handle, event);
        EXPECT_EQ(event->GetType(), id);
        EXPECT_EQ(module.FindEventByHandle(handle), event);
    }
}

TEST_F(ModuleBaseTest, RegisterEvent_IdWithoutClass_IsNotImplemented)
{
    for (const int id : {2, 3, 6, 1000, 3999, 4001, -1}) {
        module.events = {id};
        void* handle = nullptr;
        EXPECT_EQ(module.RegisterEvent(id, &handle), -1003) << id;
        EXPECT_EQ(module.RegisterEvent(id, nullptr), -1003) << id;
        EXPECT_EQ(handle, nullptr);
        EXPECT_EQ(module.FindEventById(id, false), nullptr);
    }
}

TEST_F(ModuleBaseTest, RegisterEvent_Twice_IsInUse)
{
    module.events = {1};
    void* first = nullptr;
    void* second = nullptr;
    EXPECT_EQ(module.RegisterEvent(1, &first), 0);
    EXPECT_EQ(module.RegisterEvent(1, &second), -1004);
    EXPECT_EQ(module.RegisterEvent(1, nullptr), -1004);
    EXPECT_EQ(second, nullptr);
}

TEST_F(ModuleBaseTest, RegisterEvent_NullHandlePointer_RegistersNothing)
{
    module.events = {1};
    EXPECT_EQ(module.RegisterEvent(1, nullptr), -1009);
    EXPECT_EQ(module.FindEventById(1, false), nullptr);
    EXPECT_EQ(module.UnregisterEvent(1), -1002);
}

TEST_F(ModuleBaseTest, RegisterEvent_ManyThreadsAtOnce_OneWins)
{
    module.events = {1};
    for (int round = 0; round < 20; ++round) {
        std::atomic<int> won{0};
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([&] {
                void* handle = nullptr;
                won += module.RegisterEvent(1, &handle) == 0;
            });
        }
        for (auto& thread : threads) {
            thread.join();
        }
        EXPECT_EQ(won, 1);
        EXPECT_EQ(module.UnregisterEvent(1), 0);
        EXPECT_EQ(module.UnregisterEvent(1), -1002);
    }
}

TEST_F(ModuleBaseTest, UnregisterEvent_NotServed_IsNotImplemented_NeverRegistered_IsNotInitialized)
{
    EXPECT_EQ(module.UnregisterEvent(1), -1003);
    module.events = {1};
    EXPECT_EQ(module.UnregisterEvent(1), -1002);
}

TEST_F(ModuleBaseTest, UnregisterEvent_FreesTheEventAndAllowsANewOne)
{
    module.events = {1, 4};
    void* first = nullptr;
    void* other = nullptr;
    ASSERT_EQ(module.RegisterEvent(1, &first), 0);
    ASSERT_EQ(module.RegisterEvent(4, &other), 0);
    EXPECT_EQ(module.UnregisterEvent(1), 0);
    EXPECT_EQ(module.FindEventById(1, false), nullptr);
    EXPECT_EQ(module.FindEventByHandle(other), other);
    EXPECT_EQ(module.RegisterEvent(1, &first), 0);
}

// Whoever revokes a buffer looks for its entries in the events it finds; those of an event that is
// no longer found have to be gone by then. With a call inside, so that the event itself stays.
TEST_F(ModuleBaseTest, UnregisterEvent_OnceNotFound_TheEventHasForgottenItsEntries)
{
    module.events = {1};
    int entry = 0;
    int remembered = 0;
    for (int i = 0; i < 300; ++i) {
        void* handle = nullptr;
        ASSERT_EQ(module.RegisterEvent(1, &handle), 0);
        auto inside = module.PinEventById(1);
        inside->Signal(&entry);
        std::thread unregister([&] { module.UnregisterEvent(1); });
        while (module.FindEventById(1, false) != nullptr) {
        }
        remembered += inside->GetNumInQueue() != 0;
        inside.Reset();
        unregister.join();
    }
    EXPECT_EQ(remembered, 0);
}

TEST_F(ModuleBaseTest, UnregisterEvent_WaiterInside_IsReleasedWithAbortFirst)
{
    module.events = {1};
    void* handle = nullptr;
    ASSERT_EQ(module.RegisterEvent(1, &handle), 0);
    std::atomic<bool> entered{false};
    GC_ERROR answer = 0;
    std::thread waiter([&] {
        const auto event = module.PinEventByHandle(handle);
        entered = true;
        answer = event->GetData(nullptr, &size, 30'000);
    });
    while (!entered) {
        std::this_thread::yield();
    }
    EXPECT_EQ(module.UnregisterEvent(1), 0);
    waiter.join();
    EXPECT_EQ(answer, -1012);
}

TEST_F(ModuleBaseTest, FindEventById_Remove_TakesItOut)
{
    module.events = {0, 1, 4};
    void* handles[3] = {};
    ASSERT_EQ(module.RegisterEvent(0, &handles[0]), 0);
    ASSERT_EQ(module.RegisterEvent(1, &handles[1]), 0);
    ASSERT_EQ(module.RegisterEvent(4, &handles[2]), 0);
    EXPECT_EQ(module.FindEventById(1, true), handles[1]);
    EXPECT_EQ(module.FindEventById(1, true), nullptr);
    EXPECT_EQ(module.FindEventByHandle(handles[1]), nullptr);
    EXPECT_EQ(module.FindEventByHandle(handles[0]), handles[0]);
    EXPECT_EQ(module.FindEventByHandle(handles[2]), handles[2]);
    ZrGenTLEvent::Destroy(static_cast<ZrGenTLEvent*>(handles[1]));
}

TEST_F(ModuleBaseTest, FindEvent_NullOrUnknown_IsNull)
{
    module.events = {1};
    void* handle = nullptr;
    ASSERT_EQ(module.RegisterEvent(1, &handle), 0);
    EXPECT_EQ(module.FindEventByHandle(nullptr), nullptr);
    EXPECT_EQ(module.FindEventByHandle(this), nullptr);
    EXPECT_FALSE(module.PinEventByHandle(this));
    EXPECT_FALSE(module.PinEventById(4));
    EXPECT_EQ(module.PinEventById(1).Get(), handle);
}

TEST(ModuleBaseDestruction, EventsStillRegistered_AreFreed)
{
    auto module = std::make_unique<TestModule>();
    module->events = {0, 1};
    void* handle = nullptr;
    EXPECT_EQ(module->RegisterEvent(0, &handle), 0);
    EXPECT_EQ(module->RegisterEvent(1, &handle), 0);
    module.reset(); // the leak checker watches
}

TEST_F(ModuleBaseTest, EventUsedThroughItsHandleWhileUnregistered_IsSafe)
{
    module.events = {1};
    std::atomic<bool> stop{false};
    std::atomic<void*> handle{nullptr};
    std::vector<std::thread> users;
    for (int i = 0; i < 3; ++i) {
        users.emplace_back([&] {
            while (!stop) {
                if (const auto event = module.PinEventByHandle(handle)) {
                    size_t room = 0;
                    event->GetData(nullptr, &room, 1);
                    event->Flush();
                }
            }
        });
    }
    for (int round = 0; round < 200; ++round) {
        void* made = nullptr;
        ASSERT_EQ(module.RegisterEvent(1, &made), 0);
        handle = made;
        std::this_thread::yield();
        ASSERT_EQ(module.UnregisterEvent(1), 0);
    }
    stop = true;
    for (auto& user : users) {
        user.join();
    }
}

} // namespace
