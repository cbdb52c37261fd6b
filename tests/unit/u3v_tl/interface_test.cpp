// The Interface module: identity, discovery, the device list, opening and closing of devices.

#include <algorithm>
#include <chrono>
#include <cstring>
#include <thread>

#include "tl_fixture.h"
#include "wait.h"
#include "zr_u3v_controller.h"
#include "zr_u3v_device.h"
#include "zr_u3v_interface.h"

namespace {

using Errors = std::vector<std::string>;
using Journal = std::vector<std::string>;

FakeU3V& Fake()
{
    return FakeU3V::Instance();
}

class Interface : public InterfaceTest
{
protected:
    uint32_t Count()
    {
        uint32_t count = 99;
        EXPECT_EQ(IFGetNumDevices(m_iface, &count), 0);
        return count;
    }

    std::string Id(uint32_t index)
    {
        char id[64] = {};
        size_t size = sizeof(id);
        EXPECT_EQ(IFGetDeviceID(m_iface, index, id, &size), 0);
        return id;
    }

    bool Changed()
    {
        bool8_t changed = false;
        EXPECT_EQ(UpdateUntilDone(&changed), 0);
        return changed;
    }

    TextAnswer DeviceText(const char* id, DEVICE_INFO_CMD cmd)
    {
        return ReadText([&](auto... out) { return IFGetDeviceInfo(m_iface, id, cmd, out...); });
    }

    int32_t AccessStatus(const char* id)
    {
        int32_t value = -1;
        INFO_DATATYPE type = 0;
        size_t size = sizeof(value);
        EXPECT_EQ(IFGetDeviceInfo(m_iface, id, DEVICE_INFO_ACCESS_STATUS, &type, &value, &size), 0);
        EXPECT_EQ(type, INFO_DATATYPE_INT32);
        EXPECT_EQ(size, 4u);
        return value;
    }

    ZrU3VInterface& Module()
    {
        return *static_cast<ZrU3VInterface*>(g_Controller.GetInterfaceModule(m_iface));
    }
};

// ---- identity

TEST_F(Interface, GetInfo_Strings_AreItsRecord)
{
    const auto info = [this](INTERFACE_INFO_CMD cmd) {
        return ReadText([&](auto... out) { return IFGetInfo(m_iface, cmd, out...); });
    };
    EXPECT_EQ(info(0), Text("ZRK-USB-3-IF ID"));
    EXPECT_EQ(info(1), Text("ZRK-USB-3-IF"));
    EXPECT_EQ(info(2), Text("U3V"));
    // While it is open, the System answers through it.
    EXPECT_EQ(ReadText([this](auto... out) {
                  return TLGetInterfaceInfo(m_tl, kInterfaceIdText, 1, out...);
              }),
              Text("ZRK-USB-3-IF"));
}

TEST_F(Interface, GetInfo_UnknownCommandAndNulls)
{
    char buffer[3] = {1, 2, 3};
    INFO_DATATYPE type = 0;
    size_t size = 2;
    TraceCapture trace;
    EXPECT_EQ(IFGetInfo(m_iface, 3, &type, buffer, &size), -1003);
    EXPECT_EQ(std::string(buffer, 3), std::string("\0\0\3", 3));
    EXPECT_EQ(IFGetInfo(m_iface, 0, nullptr, buffer, &size), -1009);
    EXPECT_EQ(IFGetInfo(m_iface, 0, &type, buffer, nullptr), -1009);
    EXPECT_EQ(trace.Errors(),
              (Errors{"GetInfo GC_ERR_NOT_IMPLEMENTED :3", "IFGetInfo Failed:-1003",
                      "GetInfo GC_ERR_INVALID_PARAMETER", "IFGetInfo Failed:-1009",
                      "GetInfo GC_ERR_INVALID_PARAMETER", "IFGetInfo Failed:-1009"}));
}

TEST_F(Interface, PortInfo_IsTheInterfaces)
{
    const auto info = [this](PORT_INFO_CMD cmd) {
        return ReadText([&](auto... out) { return GCGetPortInfo(m_iface, cmd, out...); });
    };
    EXPECT_EQ(info(PORT_INFO_ID), Text("ZRK-USB-3-IF ID"));
    EXPECT_EQ(info(PORT_INFO_VENDOR), Text("ZRK-ORVANE GmbH"));
    EXPECT_EQ(info(PORT_INFO_MODEL), Text("U3VTL"));
    EXPECT_EQ(info(PORT_INFO_TLTYPE), Text("U3V"));
    EXPECT_EQ(info(PORT_INFO_MODULE), Text("TLInterface"));
    EXPECT_EQ(info(PORT_INFO_VERSION), Text(ZR_EXACT_VERSION));
    EXPECT_EQ(info(PORT_INFO_PORTNAME), Text("InterfacePort"));
}

TEST_F(Interface, Events_ErrorOnly)
{
    EVENT_HANDLE event = nullptr;
    for (const EVENT_TYPE id : {1, 2, 3, 4, 5, 1000, 4000, 5000}) {
        EXPECT_EQ(GCRegisterEvent(m_iface, id, &event), -1003) << id;
    }
    EXPECT_EQ(GCRegisterEvent(m_iface, EVENT_ERROR, &event), 0);
    EXPECT_NE(event, nullptr);
    EXPECT_EQ(GCUnregisterEvent(m_iface, EVENT_ERROR), 0);
}

// ---- device list

TEST_F(Interface, NumDevices_BeforeAnyUpdate_Zero)
{
    EXPECT_EQ(Count(), 0u);
    EXPECT_EQ(Fake().Journal(), (Journal{"U3V_DiscoveryOpen"}));
}

TEST_F(Interface, NumDevices_NullCount_InvalidParameter)
{
    TraceCapture trace;
    EXPECT_EQ(IFGetNumDevices(m_iface, nullptr), -1009);
    EXPECT_EQ(trace.Errors(),
              (Errors{"GetNumDevices GC_ERR_INVALID_PARAMETER", "IFGetNumDevices Failed:-1009"}));
}

TEST_F(Interface, Update_TwoCameras_ChangedOnceAndCountedFromOne)
{
    EXPECT_TRUE(Changed());
    EXPECT_EQ(Count(), 2u);
    EXPECT_EQ(Id(0), "GUID-A");
    EXPECT_EQ(Id(1), "GUID-B");
    EXPECT_GE(Fake().CountOf("U3V_GetDeviceInfo 1"), 1u);
    EXPECT_EQ(Fake().CountOf("U3V_GetDeviceInfo 0"), 0u);
    EXPECT_EQ(Fake().CountOf("U3V_GetDeviceInfo 3"), 0u);
    EXPECT_FALSE(Changed());
}

TEST_F(Interface, Update_OrderSwapped_Changed)
{
    EXPECT_TRUE(Changed());
    Fake().SetCameras({FakeU3V::MakeCamera("GUID-B", "V", "M", "1"),
                       FakeU3V::MakeCamera("GUID-A", "V", "M", "1")});
    EXPECT_TRUE(Changed());
    EXPECT_EQ(Id(0), "GUID-B");
}

TEST_F(Interface, Update_CameraAddedOrGone_Changed)
{
    EXPECT_TRUE(Changed());
    Fake().SetCameras({FakeU3V::MakeCamera("GUID-A", "V", "M", "1")});
    EXPECT_TRUE(Changed());
    EXPECT_EQ(Count(), 1u);
    Fake().SetCameras({});
    EXPECT_TRUE(Changed());
    EXPECT_EQ(Count(), 0u);
    EXPECT_FALSE(Changed());
}

TEST_F(Interface, Update_SameIdOtherCaseAndFields_NotChangedButTakenOver)
{
    EXPECT_TRUE(Changed());
    U3V_DEVICE_INFO first = FakeU3V::MakeCamera("guid-a", "NewVendor", "NewModel", "9");
    first.InUse = 1;
    Fake().SetCameras({first, FakeU3V::MakeCamera("GUID-B", "V", "M", "1")});
    EXPECT_FALSE(Changed());
    EXPECT_EQ(Id(0), "guid-a");
    EXPECT_EQ(DeviceText("guid-a", DEVICE_INFO_VENDOR), Text("NewVendor"));
    EXPECT_EQ(AccessStatus("guid-a"), 3);
}

TEST_F(Interface, Update_DiscoveryFails_TracedListEmpty)
{
    TraceCapture trace;
    std::vector<_ZR_U3V_DEVICE_INFO> list;
    Fake().Script("U3V_DiscoveryDevices", {0xC005});
    Module()._discoverDevices(list);
    EXPECT_TRUE(list.empty());
    EXPECT_EQ(trace.Errors(), (Errors{"_discoverDevices Failed! U3V_DiscoveryDevices:49157"}));
}

TEST_F(Interface, Update_OneRecordFails_TracedAndSkipped)
{
    TraceCapture trace;
    std::vector<_ZR_U3V_DEVICE_INFO> list;
    Fake().Script("U3V_GetDeviceInfo", {0x8002});
    Module()._discoverDevices(list);
    ASSERT_EQ(list.size(), 1u);
    EXPECT_EQ(list[0].id, "GUID-B");
    EXPECT_EQ(trace.Errors(), (Errors{"_discoverDevices Failed! U3V_GetDeviceInfo:32770"}));
}

TEST_F(Interface, Update_NoCamera_NoRecordAskedFor)
{
    Fake().SetCameras({});
    UpdateDevices();
    EXPECT_EQ(Fake().CountOf("U3V_GetDeviceInfo"), 0u);
}

TEST_F(Interface, Update_WorkerTooSlow_TimeoutListAndFlagStay)
{
    UpdateDevices();
    Fake().SetCameras({});
    Fake().OnCall("U3V_DiscoveryDevices",
                  [] { zr_test::LetPass(std::chrono::milliseconds(60), "a pass takes its time"); });
    bool8_t changed = true;
    uint32_t countBefore = 0;
    TraceCapture trace;
    // The first may still find the end of the passes before.
    GC_ERROR status = 0;
    for (int attempt = 0; attempt < 50 && status == 0; ++attempt) {
        changed = true;
        countBefore = Count();
        status = IFUpdateDeviceList(m_iface, &changed, 5);
    }
    EXPECT_EQ(status, -1011);
    EXPECT_TRUE(changed);
    EXPECT_EQ(Count(), countBefore);
    // The worker may still have been inside the update before when its cameras went, and have said
    // so: what counts is what the caller's own call says, last.
    Errors errors = trace.Errors();
    errors.erase(errors.begin(), errors.end() - std::min<ptrdiff_t>(2, std::ssize(errors)));
    EXPECT_EQ(errors,
              (Errors{"UpdateDeviceList GC_ERR_TIMEOUT", "IFUpdateDeviceList Failed:-1011"}));
}

// The strings of several cameras take their time, or one camera's hang.
TEST_F(Interface, Update_TimeBelowAPass_RepeatedItSucceeds)
{
    Fake().OnCall("U3V_DiscoveryDevices",
                  [] { zr_test::LetPass(std::chrono::milliseconds(80), "a pass takes its time"); });
    for (const uint64_t time : {100u, 30u}) {
        GC_ERROR status = -1011;
        for (int attempt = 0; attempt < 200 && status == -1011; ++attempt) {
            status = IFUpdateDeviceList(m_iface, nullptr, time);
        }
        EXPECT_EQ(status, 0) << time;
        EXPECT_EQ(Count(), 2u);
    }
}

TEST_F(Interface, Update_BesideALongOne_ReturnsWithinItsOwnTime)
{
    std::thread longOne([&] { static_cast<void>(IFUpdateDeviceList(m_iface, nullptr, 60'000)); });
    while (Fake().CountOf("U3V_DiscoveryDevices") < 2) { // its first pass is over
        std::this_thread::yield();
    }
    const auto start = std::chrono::steady_clock::now();
    bool8_t changed = true;
    EXPECT_EQ(IFUpdateDeviceList(m_iface, &changed, 100), -1011); // its turn would come later
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
    EXPECT_TRUE(changed);
    EXPECT_EQ(IFUpdateDeviceList(m_iface, nullptr, 0), 0); // what the long one has found so far
    EXPECT_EQ(Count(), 2u);
    EXPECT_EQ(IFClose(m_iface), 0); // ends the long one
    longOne.join();
}

TEST_F(Interface, Update_TimeZero_SuccessWithoutAPass)
{
    bool8_t changed = true;
    EXPECT_EQ(IFUpdateDeviceList(m_iface, &changed, 0), 0);
    EXPECT_FALSE(changed);
    EXPECT_EQ(Count(), 0u);
    EXPECT_EQ(Fake().CountOf("U3V_DiscoveryDevices"), 0u);
}

TEST_F(Interface, GetDeviceID_Arguments)
{
    UpdateDevices();
    char id[12];
    memset(id, 'x', sizeof(id));
    size_t size = 9;
    EXPECT_EQ(IFGetDeviceID(m_iface, 1, id, &size), 0);
    EXPECT_EQ(size, 7u);
    EXPECT_EQ(std::string(id, 12), std::string("GUID-B\0\0\0xxx", 12));
    TraceCapture trace;
    EXPECT_EQ(IFGetDeviceID(m_iface, 2, id, &size), -1017);
    EXPECT_EQ(IFGetDeviceID(m_iface, 0, id, nullptr), -1009);
    size = 6;
    EXPECT_EQ(IFGetDeviceID(m_iface, 0, id, &size), -1016);
    EXPECT_EQ(trace.Errors(),
              (Errors{"GetDeviceID GC_ERR_INVALID_INDEX", "IFGetDeviceID Failed:-1017",
                      "GetDeviceID GC_ERR_INVALID_PARAMETER", "IFGetDeviceID Failed:-1009",
                      "IFGetDeviceID Failed:-1016"}));
}

// ---- records

TEST_F(Interface, Record_EveryField)
{
    U3V_DEVICE_INFO camera = FakeU3V::MakeCamera("G", "V", "M", "1.0");
    strcpy(camera.UserDefinedName, "left");
    strcpy(camera.SerialNumber, "S-1");
    Fake().SetCameras({camera});
    UpdateDevices();
    EXPECT_EQ(DeviceText("G", 0), Text("G"));
    EXPECT_EQ(DeviceText("G", 1), Text("V"));
    EXPECT_EQ(DeviceText("G", 2), Text("M"));
    EXPECT_EQ(DeviceText("G", 3), Text("U3V"));
    EXPECT_EQ(DeviceText("G", 4), Text("M-V-1.0"));
    EXPECT_EQ(AccessStatus("G"), 1);
    EXPECT_EQ(DeviceText("G", 6), Text("left"));
    EXPECT_EQ(DeviceText("G", 7), Text("S-1"));
    EXPECT_EQ(DeviceText("G", 8), Text("1.0"));
    _ZR_U3V_DEVICE_INFO record;
    ASSERT_TRUE(Module()._findDeviceInfoByIndex(0, record));
    EXPECT_EQ(record.reserved64, 0u);
    EXPECT_EQ(record.reserved32, 0u);
}

TEST_F(Interface, Record_FieldWithoutZero_EndsWithTheField)
{
    U3V_DEVICE_INFO camera = FakeU3V::MakeCamera("G", "V", "M", "1");
    memset(camera.VendorName, 'v', sizeof(camera.VendorName));
    Fake().SetCameras({camera});
    UpdateDevices();
    EXPECT_EQ(DeviceText("G", DEVICE_INFO_VENDOR),
              Text(std::string(sizeof(camera.VendorName), 'v')));
}

TEST_F(Interface, Record_InUse_NoAccess)
{
    U3V_DEVICE_INFO camera = FakeU3V::MakeCamera("G", "V", "M", "1");
    camera.InUse = 1;
    Fake().SetCameras({camera});
    UpdateDevices();
    EXPECT_EQ(AccessStatus("G"), 3);
}

TEST_F(Interface, DeviceInfo_LetterCaseIgnored)
{
    UpdateDevices();
    EXPECT_EQ(DeviceText("guid-b", DEVICE_INFO_ID), Text("GUID-B"));
}

TEST_F(Interface, DeviceInfo_TimestampFrequencyAndBeyond)
{
    UpdateDevices();
    INFO_DATATYPE type = 0;
    size_t size = 0;
    TraceCapture trace;
    EXPECT_EQ(IFGetDeviceInfo(m_iface, "GUID-A", 9, &type, nullptr, &size), -1014);
    EXPECT_EQ(trace.Errors().front(), "_getDeviceInfo GC_ERR_NOT_AVAILABLE :9");
    for (const DEVICE_INFO_CMD cmd : {10, 1000}) {
        trace.Clear();
        EXPECT_EQ(IFGetDeviceInfo(m_iface, "GUID-A", cmd, &type, nullptr, &size), -1003);
        EXPECT_EQ(trace.Errors().front(),
                  "_getDeviceInfo GC_ERR_NOT_IMPLEMENTED :" + std::to_string(cmd));
    }
}

TEST_F(Interface, DeviceInfo_BadArguments_EachItsOwnLine)
{
    UpdateDevices();
    INFO_DATATYPE type = 0;
    size_t size = 0;
    TraceCapture trace;
    EXPECT_EQ(IFGetDeviceInfo(m_iface, "none", 0, &type, nullptr, nullptr), -1009);
    EXPECT_EQ(trace.Errors().front(), "GetDeviceInfo GC_ERR_INVALID_PARAMETER");
    trace.Clear();
    EXPECT_EQ(IFGetDeviceInfo(m_iface, "none", 0, nullptr, nullptr, &size), -1007);
    EXPECT_EQ(trace.Errors().front(), "_getDeviceInfo GC_ERR_INVALID_ID");
    EXPECT_EQ(IFGetDeviceInfo(m_iface, nullptr, 0, &type, nullptr, &size), -1007);
    trace.Clear();
    EXPECT_EQ(IFGetDeviceInfo(m_iface, "GUID-A", 0, nullptr, nullptr, &size), -1009);
    EXPECT_EQ(trace.Errors().front(), "_getDeviceInfo GC_ERR_INVALID_PARAMETER");
}

// ---- devices

class InterfaceDevices : public Interface
{
protected:
    void SetUp() override
    {
        Interface::SetUp();
        Fake().PokeManifest(1, 0x20000, 64, false);
        UpdateDevices();
    }

    GC_ERROR Open(const char* id, DEV_HANDLE* device)
    {
        return IFOpenDevice(m_iface, id, DEVICE_ACCESS_EXCLUSIVE, device);
    }
};

TEST_F(InterfaceDevices, OpenDevice_BeforeAnUpdate_InvalidId)
{
    ASSERT_EQ(IFClose(m_iface), 0);
    ASSERT_EQ(TLOpenInterface(m_tl, kInterfaceIdText, &m_iface), 0);
    DEV_HANDLE device = nullptr;
    TraceCapture trace;
    EXPECT_EQ(Open("GUID-A", &device), -1007);
    EXPECT_EQ(trace.Errors(),
              (Errors{"OpenDevice GC_ERR_INVALID_ID", "IFOpenDevice Failed:-1007"}));
    EXPECT_EQ(Open(nullptr, &device), -1007);
    EXPECT_EQ(device, nullptr);
}

TEST_F(InterfaceDevices, OpenDevice_Twice_InUseUntilClosed)
{
    DEV_HANDLE device = nullptr;
    DEV_HANDLE second = nullptr;
    ASSERT_EQ(Open("GUID-A", &device), 0);
    TraceCapture trace;
    EXPECT_EQ(Open("GUID-A", &second), -1004);
    EXPECT_EQ(trace.Errors(),
              (Errors{"OpenDevice GC_ERR_RESOURCE_IN_USE", "IFOpenDevice Failed:-1004"}));
    EXPECT_EQ(second, nullptr);
    EXPECT_EQ(DevClose(device), 0);
    EXPECT_EQ(Open("GUID-A", &second), 0);
}

TEST_F(InterfaceDevices, OpenDevice_OtherLetterCase_FoundAndAlsoInUse)
{
    DEV_HANDLE device = nullptr;
    DEV_HANDLE second = nullptr;
    ASSERT_EQ(Open("guid-a", &device), 0);
    EXPECT_EQ(Open("Guid-A", &second), -1004);
    EXPECT_EQ(Open("GUID-A", &second), -1004);
    EXPECT_EQ(Open("GUID-B", &second), 0);
}

TEST_F(InterfaceDevices, OpenDevice_NullHandle_InvalidParameterNothingOpened)
{
    EXPECT_EQ(Open("GUID-A", nullptr), -1009);
    EXPECT_EQ(Fake().CountOf("U3V_OpenDevice"), 0u);
}

TEST_F(InterfaceDevices, OpenDevice_OpenFails_ItsErrorNothingKept)
{
    Fake().Script("U3V_OpenDevice", {0xC005});
    DEV_HANDLE device = nullptr;
    EXPECT_NE(Open("GUID-A", &device), 0);
    EXPECT_EQ(device, nullptr);
    EXPECT_EQ(Fake().OpenHandles(), 0);
    EXPECT_EQ(Open("GUID-A", &device), 0); // not in use
}

TEST_F(InterfaceDevices, DeviceInfo_OpenDevice_AnswersItself)
{
    DEV_HANDLE device = nullptr;
    ASSERT_EQ(Open("GUID-A", &device), 0);
    INFO_DATATYPE type = 0;
    size_t size = 0;
    TraceCapture trace;
    EXPECT_EQ(IFGetDeviceInfo(m_iface, "GUID-A", 1000, &type, nullptr, &size), -1003);
    // Not the list's "_getDeviceInfo".
    EXPECT_EQ(trace.Errors().front(), "GetInfo GC_ERR_NOT_IMPLEMENTED :1000");
}

TEST_F(InterfaceDevices, CloseDevice_Unknown_InvalidHandle)
{
    int other = 0;
    TraceCapture trace;
    EXPECT_EQ(Module().CloseDevice(&other), -1006);
    EXPECT_EQ(Module().CloseDevice(nullptr), -1006);
    EXPECT_EQ(trace.Errors(),
              (Errors{"CloseDevice GC_ERR_INVALID_HANDLE", "CloseDevice GC_ERR_INVALID_HANDLE"}));
}

TEST_F(InterfaceDevices, CloseDevice_CloseFails_NeitherListedNorDestroyed)
{
    DEV_HANDLE handle = nullptr;
    ASSERT_EQ(Open("GUID-A", &handle), 0);
    auto* const device = static_cast<ZrU3VDevice*>(g_Controller.GetDeviceModule(handle));
    ASSERT_EQ(device->Close(), 0); // behind its parent's back
    EXPECT_EQ(Module().CloseDevice(handle), -1001);
    EXPECT_EQ(device->GetId(), "GUID-A"); // still alive
    EXPECT_EQ(Module().CloseDevice(handle), -1006);
    delete device;
}

// ---- opening and closing

TEST_F(InterfaceDevices, Close_DevicesThenDiscovery)
{
    DEV_HANDLE device = nullptr;
    ASSERT_EQ(Open("GUID-A", &device), 0);
    EXPECT_EQ(IFClose(m_iface), 0);
    PORT_HANDLE port = nullptr;
    EXPECT_EQ(DevGetPort(device, &port), -1006);
    EXPECT_EQ(Fake().OpenHandles(), 0);
    EXPECT_EQ(Fake().Journal().back(), "U3V_DiscoveryClose");
}

TEST_F(Interface, Open_DiscoveryOpenFails_Ignored)
{
    ASSERT_EQ(IFClose(m_iface), 0);
    Fake().Script("U3V_DiscoveryOpen", {0xC001});
    EXPECT_EQ(TLOpenInterface(m_tl, kInterfaceIdText, &m_iface), 0);
}

TEST_F(SystemTest, InterfaceModule_OpenTwiceAndCloseTwice)
{
    ZrU3VInterface iface({"other", "other", "U3V"}, nullptr);
    TraceCapture trace;
    EXPECT_EQ(iface.Close(), -1001);
    EXPECT_EQ(iface.Open(), 0);
    EXPECT_EQ(iface.Open(), -1004);
    EXPECT_EQ(iface.Close(), 0);
    EXPECT_EQ(iface.Close(), -1001);
    EXPECT_EQ(trace.Errors(),
              (Errors{"Close GC_ERR_ERROR", "Open GC_ERR_RESOURCE_IN_USE", "Close GC_ERR_ERROR"}));
    EXPECT_EQ(FakeU3V::Instance().Journal(), (Journal{"U3V_DiscoveryOpen", "U3V_DiscoveryClose"}));
}

TEST_F(Interface, Close_AfterARequestWithoutEnd_ReturnsWithinAPass)
{
    Fake().OnCall("U3V_DiscoveryDevices",
                  [] { zr_test::LetPass(std::chrono::milliseconds(20), "a pass takes its time"); });
    EXPECT_EQ(IFUpdateDeviceList(m_iface, nullptr, GENTL_INFINITE), -1011);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(IFClose(m_iface), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
}

} // namespace
