#include "zr_gentl_controller.h"

#include <atomic>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <thread>
#include <type_traits>

#include "test_module.h"

namespace {

class ControllerTest : public testing::Test
{
protected:
    ControllerTest()
    {
        for (auto* module : {&system, &interface, &device, &stream, &remote}) {
            EXPECT_TRUE(controller.RegisterModule(module));
        }
    }
    TestModule system{"TLSystem"};
    TestModule interface {
        "TLInterface"
    };
    TestModule device{"TLDevice"};
    TestModule stream{"TLDataStream"};
    TestModule remote{"Device"};
    TestModule stranger{"TLDevice"};
    ZrGenTLController controller;

    int type = -1;
    char buffer[64] = {};
    size_t size = sizeof buffer;
};

TEST_F(ControllerTest, RegisterModule_Null_IsRefused)
{
    EXPECT_FALSE(controller.RegisterModule(nullptr));
    EXPECT_EQ(controller.UnregisterModule(nullptr), nullptr);
}

TEST_F(ControllerTest, UnregisterModule_ReturnsItOnce)
{
    EXPECT_EQ(controller.UnregisterModule(&stranger), nullptr);
    EXPECT_EQ(controller.UnregisterModule(&device), &device);
    EXPECT_EQ(controller.UnregisterModule(&device), nullptr);
    EXPECT_EQ(controller.GetDeviceModule(&device), nullptr);
    EXPECT_EQ(controller.GetDataStreamModule(&stream), &stream);
}

TEST_F(ControllerTest, UnregisterAllModule_ForgetsEveryHandleAndDestroysNothing)
{
    int destroyed = 0;
    device.destroyed = &destroyed;
    controller.UnregisterAllModule();
    EXPECT_EQ(destroyed, 0);
    device.destroyed = nullptr;
    EXPECT_EQ(controller.GetSystemModule(&system), nullptr);
    EXPECT_EQ(controller.GetDeviceModule(&device), nullptr);
    EXPECT_EQ(controller.ReadPort(&device, 0, buffer, &size), -1006);
}

TEST_F(ControllerTest, GetModule_OnlyTheRightKindIsFound)
{
    using Getter = ZrGenTLModuleBase* (ZrGenTLController::*)(void*);
    const Getter getters[] = {
        &ZrGenTLController::GetSystemModule, &ZrGenTLController::GetInterfaceModule,
        &ZrGenTLController::GetDeviceModule, &ZrGenTLController::GetDataStreamModule,
        &ZrGenTLController::GetRemoteDeviceModule};
    const char* const names[] = {"TLSystem", "TLInterface", "TLDevice", "TLDataStream", "Device"};
    TestModule* const modules[] = {&system, &interface, &device, &stream, &remote};
    for (size_t wanted = 0; wanted < 5; ++wanted) {
        for (size_t given = 0; given < 5; ++given) {
            ZrGenTLModuleBase* const expected = wanted == given ? modules[given] : nullptr;
            EXPECT_EQ((controller.*getters[wanted])(modules[given]), expected);
            EXPECT_EQ(controller.PinModule(modules[given], names[wanted]).Get(), expected);
        }
        EXPECT_EQ((controller.*getters[wanted])(nullptr), nullptr);
        EXPECT_EQ((controller.*getters[wanted])(&stranger), nullptr);
        EXPECT_FALSE(controller.PinModule(nullptr, names[wanted]));
        EXPECT_FALSE(controller.PinModule(&stranger, names[wanted]));
    }
}

TEST_F(ControllerTest, PortCalls_UnknownHandle_IsInvalidHandle)
{
    S_PORT_REGISTER_STACK_ENTRY entry{};
    size_t count = 1;
    uint32_t urls = 0;
    for (void* handle : {static_cast<void*>(nullptr), static_cast<void*>(&stranger)}) {
        EXPECT_EQ(controller.ReadPort(handle, 0, buffer, &size), -1006);
        EXPECT_EQ(controller.WritePort(handle, 0, buffer, &size), -1006);
        EXPECT_EQ(controller.ReadPortStacked(handle, &entry, &count), -1006);
        EXPECT_EQ(controller.WritePortStacked(handle, &entry, &count), -1006);
        EXPECT_EQ(controller.GetPortURL(handle, buffer, &size), -1006);
        EXPECT_EQ(controller.GetPortInfo(handle, 0, &type, buffer, &size), -1006);
        EXPECT_EQ(controller.GetNumPortURLs(handle, &urls), -1006);
        EXPECT_EQ(controller.GetPortURLInfo(handle, 0, 0, &type, buffer, &size), -1006);
        EXPECT_EQ(controller.RegisterEvent(handle, 1, nullptr), -1006);
        EXPECT_EQ(controller.UnregisterEvent(handle, 1), -1006);
    }
    EXPECT_TRUE(stranger.accesses.empty());
}

TEST_F(ControllerTest, PortCalls_PortNotImplemented_IsNotImplemented)
{
    stream.portImplemented = false;
    S_PORT_REGISTER_STACK_ENTRY entry{};
    size_t count = 1;
    uint32_t urls = 0;
    EXPECT_EQ(controller.ReadPort(&stream, 0, buffer, &size), -1003);
    EXPECT_EQ(controller.WritePort(&stream, 0, buffer, &size), -1003);
    EXPECT_EQ(controller.ReadPortStacked(&stream, &entry, &count), -1003);
    EXPECT_EQ(controller.WritePortStacked(&stream, &entry, &count), -1003);
    EXPECT_EQ(controller.GetPortURL(&stream, buffer, &size), -1003);
    EXPECT_EQ(controller.GetPortInfo(&stream, 0, &type, buffer, &size), -1003);
    EXPECT_EQ(controller.GetNumPortURLs(&stream, &urls), -1003);
    EXPECT_EQ(controller.GetPortURLInfo(&stream, 0, 0, &type, buffer, &size), -1003);
    EXPECT_TRUE(stream.accesses.empty());
    stream.events = {1};
    void* handle = nullptr;
    EXPECT_EQ(controller.RegisterEvent(&stream, 1, &handle), 0); // not a port call
}

TEST_F(ControllerTest, PortCalls_AnyKind_ReachTheModule)
{
    for (auto* module : {&system, &interface, &device, &stream, &remote}) {
        module->results = {-1010, -1015, -1001, -1002};
        size = 4;
        EXPECT_EQ(controller.ReadPort(module, 0x100, buffer, &size), -1010);
        size = 8;
        EXPECT_EQ(controller.WritePort(module, 0x200, buffer, &size), -1015);
        S_PORT_REGISTER_STACK_ENTRY entry{0x300, buffer, 2};
        size_t count = 1;
        EXPECT_EQ(controller.ReadPortStacked(module, &entry, &count), -1001);
        EXPECT_EQ(controller.WritePortStacked(module, &entry, &count), -1002);
        EXPECT_EQ(module->accesses, (std::vector<TestModule::Access_>{{'r', 0x100, buffer, 4},
                                                                      {'w', 0x200, buffer, 8},
                                                                      {'r', 0x300, buffer, 2},
                                                                      {'w', 0x300, buffer, 2}}));
    }
}

TEST_F(ControllerTest, UrlAndInfoCalls_ReachTheModule)
{
    remote.SetUrlList({"first", "second"});
    uint32_t urls = 0;
    EXPECT_EQ(controller.GetNumPortURLs(&remote, &urls), 0);
    EXPECT_EQ(urls, 2u);
    EXPECT_EQ(controller.GetPortURL(&remote, buffer, &size), 0);
    EXPECT_STREQ(buffer, "first");
    size = sizeof buffer;
    EXPECT_EQ(controller.GetPortURLInfo(&remote, 1, 0, &type, buffer, &size), 0);
    EXPECT_STREQ(buffer, "second");
    size = sizeof buffer;
    EXPECT_EQ(controller.GetPortInfo(&remote, 4, &type, buffer, &size), 0);
    EXPECT_STREQ(buffer, "Device");
}

TEST_F(ControllerTest, GetPortURLInfo_AnyOtherCommandNumber_IsNotImplemented)
{
    remote.SetUrlList({"first"});
    for (const int cmd : {1, 10, 1000, 2000, -1, INT32_MAX, INT32_MIN}) {
        EXPECT_EQ(controller.GetPortURLInfo(&remote, 0, cmd, &type, buffer, &size), -1003) << cmd;
    }
    EXPECT_EQ(controller.GetPortURLInfo(&remote, 0, 1, nullptr, buffer, &size), -1009);
}

TEST_F(ControllerTest, Events_AreRegisteredOnAnyModuleAndFoundByHandle)
{
    device.events = {4};
    stream.events = {1};
    void* first = nullptr;
    void* second = nullptr;
    EXPECT_EQ(controller.RegisterEvent(&device, 1, &first), -1003);
    EXPECT_EQ(controller.RegisterEvent(&device, 4, &first), 0);
    EXPECT_EQ(controller.RegisterEvent(&stream, 1, &second), 0);
    EXPECT_EQ(controller.RegisterEvent(&stream, 1, &second), -1004);
    EXPECT_EQ(controller.FindEventModule(first), first);
    EXPECT_EQ(controller.FindEventModule(second), second);
    EXPECT_EQ(controller.PinEvent(second).Get(), second);
    EXPECT_EQ(controller.FindEventModule(nullptr), nullptr);
    EXPECT_EQ(controller.FindEventModule(this), nullptr);
    EXPECT_EQ(controller.FindEventModule(&device), nullptr);
    EXPECT_EQ(controller.UnregisterEvent(&device, 4), 0);
    EXPECT_EQ(controller.UnregisterEvent(&device, 4), -1002);
    EXPECT_EQ(controller.FindEventModule(first), nullptr);
}

TEST_F(ControllerTest, FindEventModule_ModuleNoLongerRegistered_FindsNothing)
{
    stream.events = {1};
    void* handle = nullptr;
    ASSERT_EQ(controller.RegisterEvent(&stream, 1, &handle), 0);
    controller.UnregisterModule(&stream);
    EXPECT_EQ(controller.FindEventModule(handle), nullptr);
    EXPECT_FALSE(controller.PinEvent(handle));
}

// The last of them is searched last, whether the list fits on the stack or not.
TEST_F(ControllerTest, PinEvent_AnyNumberOfModules_FindsTheLastOnesEvent)
{
    std::vector<std::unique_ptr<TestModule>> modules;
    for (int i = 0; i < 70; ++i) {
        auto& module = *modules.emplace_back(std::make_unique<TestModule>("TLDataStream"));
        module.events = {1};
        ASSERT_TRUE(controller.RegisterModule(&module));
        void* event = nullptr;
        ASSERT_EQ(controller.RegisterEvent(&module, 1, &event), 0);
        EXPECT_EQ(controller.PinEvent(event).Get(), event) << i;
    }
    for (const auto& module : modules) {
        controller.UnregisterModule(module.get());
    }
}

TEST_F(ControllerTest, PinEvent_OtherModulesComeAndGo_AlwaysFindsTheEvent)
{
    remote.events = {4}; // the last one registered
    void* handle = nullptr;
    ASSERT_EQ(controller.RegisterEvent(&remote, 4, &handle), 0);
    std::atomic<bool> stop{false};
    std::thread churn([&] {
        while (!stop) {
            controller.UnregisterModule(&system);
            controller.UnregisterModule(&device);
            controller.RegisterModule(&system);
            controller.RegisterModule(&device);
        }
    });
    for (int i = 0; i < 3000; ++i) {
        ASSERT_EQ(controller.PinEvent(handle).Get(), handle);
    }
    stop = true;
    churn.join();
}

TEST_F(ControllerTest, PinEvent_ModuleDestroyedMeanwhile_TouchesNothingFreed)
{
    std::atomic<bool> stop{false};
    std::atomic<void*> event{nullptr};
    std::atomic<void*> handle{nullptr};
    std::thread user([&] {
        while (!stop) {
            controller.PinEvent(event);
            size_t room = sizeof buffer;
            controller.ReadPort(handle, 0, buffer, &room);
        }
    });
    for (int i = 0; i < 300; ++i) {
        auto module = std::make_unique<TestModule>("TLDataStream");
        module->events = {1};
        controller.RegisterModule(module.get());
        handle = module.get();
        void* made = nullptr;
        ASSERT_EQ(controller.RegisterEvent(module.get(), 1, &made), 0);
        event = made;
        std::this_thread::yield();
        // What a closing module does: out of the look-up, then wait for the calls inside.
        controller.UnregisterModule(module.get());
        module->Gate().ShutAndWait();
    }
    stop = true;
    user.join();
}

struct TextRow
{
    int code;
    const char* text;
};
constexpr TextRow kTexts[] = {
    {0, "No Error"},
    {-1001, "GC_ERR_ERROR"},
    {-1002, "GC_ERR_NOT_INITIALIZED"},
    {-1003, "GC_ERR_NOT_IMPLEMENTED"},
    {-1004, "GC_ERR_RESOURCE_IN_USE"},
    {-1005, "GC_ERR_ACCESS_DENIED"},
    {-1006, "GC_ERR_INVALID_HANDLE"},
    {-1007, "GC_ERR_INVALID_ID"},
    {-1008, "GC_ERR_NO_DATA"},
    {-1009, "GC_ERR_INVALID_PARAMETER"},
    {-1010, "GC_ERR_IO"},
    {-1011, "GC_ERR_TIMEOUT"},
    {-1012, "GC_ERR_ABORT"},
    {-1013, "GC_ERR_INVALID_BUFFER"},
    {-1014, "GC_ERR_NOT_AVAILABLE"},
    {-1015, "GC_ERR_INVALID_ADDRESS"},
    {-1016, "GC_ERR_BUFFER_TOO_SMALL"},
    {-1017, "GC_ERR_INVALID_INDEX"},
    {-1018, "GC_ERR_PARSING_CHUNK_DATA"},
    {-1019, "GC_ERR_INVALID_VALUE"},
    {-1020, "GC_ERR_RESOURCE_EXHAUSTED"},
    {-1021, "GC_ERR_OUT_OF_MEMORY"},
    {-1022, "GC_ERR_BUSY"},
    {-10000, "GC_ERR_CUSTOM_ID"},
    {-1023, ""},
    {-1000, ""},
    {-10001, ""},
    {1, ""},
    {INT32_MIN, ""},
};

TEST_F(ControllerTest, GetLastError_EveryCode_HasItsText)
{
    for (const auto& row : kTexts) {
        controller.SetLastError(row.code);
        int code = 1234;
        size = sizeof buffer;
        EXPECT_EQ(controller.GetLastError(&code, buffer, &size), 0);
        EXPECT_EQ(code, row.code);
        EXPECT_STREQ(buffer, row.text);
        EXPECT_EQ(size, strlen(row.text) + 1);
        EXPECT_EQ(ZrGenTLController::_getErrorTxt(row.code), row.text);
    }
}

TEST_F(ControllerTest, GetLastError_ThreadNeverFailed_IsNoError)
{
    int code = 1234;
    EXPECT_EQ(controller.GetLastError(&code, buffer, &size), 0);
    EXPECT_EQ(code, 0);
    EXPECT_STREQ(buffer, "No Error");
    EXPECT_EQ(size, 9u);
}

TEST_F(ControllerTest, GetLastError_NullArguments_AreInvalidParameters)
{
    int code = 1234;
    EXPECT_EQ(controller.GetLastError(nullptr, buffer, &size), -1009);
    EXPECT_EQ(controller.GetLastError(&code, buffer, nullptr), -1009);
    EXPECT_EQ(code, 1234);
    EXPECT_EQ(size, sizeof buffer);
}

TEST_F(ControllerTest, GetLastError_NullText_IsSizeQueryWithCode)
{
    controller.SetLastError(-1010);
    int code = 1234;
    size = 0;
    EXPECT_EQ(controller.GetLastError(&code, nullptr, &size), 0);
    EXPECT_EQ(code, -1010);
    EXPECT_EQ(size, 10u);
}

TEST_F(ControllerTest, GetLastError_NoRoomForTheZero_WritesNothingAtAll)
{
    controller.SetLastError(-1010);
    int code = 1234;
    size = 9;
    memset(buffer, 'x', sizeof buffer);
    EXPECT_EQ(controller.GetLastError(&code, buffer, &size), -1016);
    EXPECT_EQ(size, 9u);
    EXPECT_EQ(code, 1234);
    EXPECT_EQ(buffer[0], 'x');
    size = 10;
    EXPECT_EQ(controller.GetLastError(&code, buffer, &size), 0);
    EXPECT_EQ(buffer[10], 'x');
}

TEST_F(ControllerTest, SetLastError_OnThreadA_IsNotSeenByThreadB)
{
    controller.SetLastError(-1004);
    controller.SetLastError(-1004);
    std::thread([&] {
        int code = 1234;
        EXPECT_EQ(controller.GetLastError(&code, buffer, &size), 0);
        EXPECT_EQ(code, 0);
    }).join();
}

TEST(ControllerType, Destructor_IsItsOnlyVirtualOperation)
{
    using C = ZrGenTLController;
    EXPECT_TRUE(std::has_virtual_destructor_v<C>);
    EXPECT_TRUE(IsVirtual(&ZrGenTLModuleBase::ReadPort)); // what a virtual one looks like
    const bool anyVirtual[] = {
        IsVirtual(&C::RegisterModule),
        IsVirtual(&C::UnregisterModule),
        IsVirtual(&C::UnregisterAllModule),
        IsVirtual(&C::GetSystemModule),
        IsVirtual(&C::GetInterfaceModule),
        IsVirtual(&C::GetDeviceModule),
        IsVirtual(&C::GetDataStreamModule),
        IsVirtual(&C::GetRemoteDeviceModule),
        IsVirtual(&C::PinModule),
        IsVirtual(&C::ReadPort),
        IsVirtual(&C::WritePort),
        IsVirtual(&C::ReadPortStacked),
        IsVirtual(&C::WritePortStacked),
        IsVirtual(&C::GetPortURL),
        IsVirtual(&C::GetPortInfo),
        IsVirtual(&C::GetNumPortURLs),
        IsVirtual(&C::GetPortURLInfo),
        IsVirtual(&C::RegisterEvent),
        IsVirtual(&C::UnregisterEvent),
        IsVirtual(&C::FindEventModule),
        IsVirtual(&C::PinEvent),
        IsVirtual(&C::SetLastError),
        IsVirtual(&C::GetLastError),
    };
    for (const bool isVirtual : anyVirtual) {
        EXPECT_FALSE(isVirtual);
    }
}

} // namespace
