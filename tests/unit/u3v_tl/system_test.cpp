// The System module: identity, interface list, opening and closing of its interface.

#include <climits>
#include <cstdlib>
#include <cstring>

#include "tl_fixture.h"
#include "zr_u3v_controller.h"
#include "zr_u3v_interface.h"
#include "zr_u3v_system.h"

namespace {

using Errors = std::vector<std::string>;

std::string OwnPath()
{
    char path[PATH_MAX] = {};
    return realpath("/proc/self/exe", path) != nullptr ? path : "";
}

// ---- information

TEST_F(SystemTest, GetInfo_Strings_AreTheProducersIdentity)
{
    const auto info = [this](TL_INFO_CMD cmd) {
        return ReadText([&](auto... out) { return TLGetInfo(m_tl, cmd, out...); });
    };
    EXPECT_EQ(info(0), Text("ZrGenTLU3V"));
    EXPECT_EQ(info(1), Text("ZRK-ORVANE GmbH"));
    EXPECT_EQ(info(2), Text("U3VTL"));
    EXPECT_EQ(info(3), Text(ZR_EXACT_VERSION));
    EXPECT_EQ(info(4), Text("U3V"));
    EXPECT_EQ(info(5), Text("zr_u3v_tl.cti"));
    EXPECT_EQ(info(6), Text(OwnPath()));
    EXPECT_EQ(info(7), Text("ZRK-ORVANE U3VTL"));
}

struct IntegerInfo
{
    TL_INFO_CMD cmd;
    INFO_DATATYPE type;
    int32_t value;
};

TEST_F(SystemTest, GetInfo_Integers_TypeSizeAndValue)
{
    for (const IntegerInfo& row :
         {IntegerInfo{8, 5, 0}, IntegerInfo{9, 6, 1}, IntegerInfo{10, 6, 3}}) {
        int32_t value = -1;
        INFO_DATATYPE type = 0;
        size_t size = sizeof(value);
        EXPECT_EQ(TLGetInfo(m_tl, row.cmd, &type, &value, &size), 0);
        EXPECT_EQ(type, row.type);
        EXPECT_EQ(size, 4u);
        EXPECT_EQ(value, row.value);
    }
}

TEST_F(SystemTest, GetInfo_UnknownCommand_NotImplementedAfterClearing)
{
    for (const TL_INFO_CMD cmd : {11, 1000, -1}) {
        char buffer[4] = {1, 2, 3, 4};
        INFO_DATATYPE type = 0;
        size_t size = 3;
        TraceCapture trace;
        EXPECT_EQ(TLGetInfo(m_tl, cmd, &type, buffer, &size), -1003);
        EXPECT_EQ(std::string(buffer, 4), std::string("\0\0\0\4", 4));
        EXPECT_EQ(trace.Errors().front(), "GetInfo GC_ERR_NOT_IMPLEMENTED :" + std::to_string(cmd));
    }
}

TEST_F(SystemTest, GetInfo_NullTypeOrSize_InvalidParameterBufferUntouched)
{
    char buffer[4] = {1, 2, 3, 4};
    INFO_DATATYPE type = 0;
    size_t size = sizeof(buffer);
    TraceCapture trace;
    EXPECT_EQ(TLGetInfo(m_tl, 0, nullptr, buffer, &size), -1009);
    EXPECT_EQ(TLGetInfo(m_tl, 0, &type, buffer, nullptr), -1009);
    EXPECT_EQ(trace.Errors(),
              (Errors{"GetInfo GC_ERR_INVALID_PARAMETER", "TLGetInfo Failed:-1009",
                      "GetInfo GC_ERR_INVALID_PARAMETER", "TLGetInfo Failed:-1009"}));
    EXPECT_EQ(std::string(buffer, 4), "\1\2\3\4");
}

TEST_F(SystemTest, GetInfo_BufferTooSmall_ClearedAndSizeTold)
{
    char buffer[12];
    memset(buffer, 'x', sizeof(buffer));
    INFO_DATATYPE type = 0;
    size_t size = 10; // "ZrGenTLU3V" without its zero
    EXPECT_EQ(TLGetInfo(m_tl, TL_INFO_ID, &type, buffer, &size), -1016);
    EXPECT_EQ(size, 11u);
    EXPECT_EQ(std::string(buffer, 12), std::string(10, '\0') + "xx");
    size = 0;
    EXPECT_EQ(TLGetInfo(m_tl, TL_INFO_ID, &type, nullptr, &size), 0);
    EXPECT_EQ(size, 11u);
}

TEST_F(SystemTest, PortInfo_IsTheSystems)
{
    const auto info = [this](PORT_INFO_CMD cmd) {
        return ReadText([&](auto... out) { return GCGetPortInfo(m_tl, cmd, out...); });
    };
    EXPECT_EQ(info(PORT_INFO_ID), Text("ZrGenTLU3V"));
    EXPECT_EQ(info(PORT_INFO_VENDOR), Text("ZRK-ORVANE GmbH"));
    EXPECT_EQ(info(PORT_INFO_MODEL), Text("U3VTL"));
    EXPECT_EQ(info(PORT_INFO_TLTYPE), Text("U3V"));
    EXPECT_EQ(info(PORT_INFO_MODULE), Text("TLSystem"));
    EXPECT_EQ(info(PORT_INFO_VERSION), Text(ZR_EXACT_VERSION));
    EXPECT_EQ(info(PORT_INFO_PORTNAME), Text("TLPort"));
}

TEST_F(SystemTest, Events_NoneImplemented)
{
    for (const EVENT_TYPE id : {0, 1, 2, 3, 4, 5, 1000, 4000, 5000}) {
        EVENT_HANDLE event = nullptr;
        EXPECT_EQ(GCRegisterEvent(m_tl, id, &event), -1003) << id;
        EXPECT_EQ(event, nullptr);
    }
}

// ---- interface list

TEST_F(SystemTest, GetNumInterfaces_RightAfterOpen_Zero)
{
    uint32_t count = 99;
    EXPECT_EQ(TLGetNumInterfaces(m_tl, &count), 0);
    EXPECT_EQ(count, 0u);
}

TEST_F(SystemTest, GetNumInterfaces_NullCount_InvalidParameter)
{
    TraceCapture trace;
    EXPECT_EQ(TLGetNumInterfaces(m_tl, nullptr), -1009);
    EXPECT_EQ(trace.Errors().front(), "GetNumInterfaces GC_ERR_INVALID_PARAMETER");
}

TEST_F(SystemTest, UpdateInterfaceList_FirstChangesSecondDoesNot)
{
    bool8_t changed = false;
    uint32_t count = 0;
    EXPECT_EQ(TLUpdateInterfaceList(m_tl, &changed, GENTL_INFINITE), 0);
    EXPECT_TRUE(changed);
    EXPECT_EQ(TLGetNumInterfaces(m_tl, &count), 0);
    EXPECT_EQ(count, 1u);
    EXPECT_EQ(TLUpdateInterfaceList(m_tl, &changed, 0), 0);
    EXPECT_FALSE(changed);
    EXPECT_EQ(TLUpdateInterfaceList(m_tl, nullptr, 0), 0);
    EXPECT_EQ(TLGetNumInterfaces(m_tl, &count), 0);
    EXPECT_EQ(count, 1u);
}

TEST_F(SystemTest, UpdateInterfaceList_SurvivesCloseOfTheSystem)
{
    ASSERT_EQ(TLUpdateInterfaceList(m_tl, nullptr, 0), 0);
    ASSERT_EQ(TLClose(m_tl), 0);
    m_tl = nullptr;
    ASSERT_EQ(TLOpen(&m_tl), 0);
    uint32_t count = 0;
    EXPECT_EQ(TLGetNumInterfaces(m_tl, &count), 0);
    EXPECT_EQ(count, 1u);
}

_ZR_U3V_INTERFACE_INFO Record(const std::string& id, const std::string& name = "name")
{
    return {id, name, "U3V"};
}

class InterfaceList : public LibraryTest
{
protected:
    bool Update(const std::vector<_ZR_U3V_INTERFACE_INFO>& list)
    {
        bool changed = false;
        m_system._updateInterfaceList(list, &changed);
        return changed;
    }

    std::string Ids()
    {
        std::string ids;
        _ZR_U3V_INTERFACE_INFO record;
        for (uint32_t i = 0; m_system._findInterfaceInfoByIndex(i, record); ++i) {
            ids += record.id;
        }
        return ids;
    }

    ZrU3VSystem m_system;
};

TEST_F(InterfaceList, Update_GoneRecordsLeave_NewOnesAreAppended_OrderKept)
{
    EXPECT_TRUE(Update({Record("a"), Record("b"), Record("c")}));
    EXPECT_EQ(Ids(), "abc");
    EXPECT_FALSE(Update({Record("c"), Record("a"), Record("b")}));
    EXPECT_EQ(Ids(), "abc");
    EXPECT_TRUE(Update({Record("d"), Record("c")}));
    EXPECT_EQ(Ids(), "cd");
    EXPECT_TRUE(Update({Record("c")}));
    EXPECT_TRUE(Update({}));
    EXPECT_EQ(Ids(), "");
    EXPECT_FALSE(Update({}));
}

TEST_F(InterfaceList, Update_ConsecutiveRecordsGone_AllErased)
{
    Update({Record("a"), Record("b"), Record("c"), Record("d")});
    EXPECT_TRUE(Update({Record("d")}));
    EXPECT_EQ(Ids(), "d");
}

TEST_F(InterfaceList, Update_SameIdOtherStrings_NeitherChangedNorUpdated)
{
    Update({Record("a", "old")});
    EXPECT_FALSE(Update({Record("a", "new")}));
    _ZR_U3V_INTERFACE_INFO record;
    ASSERT_TRUE(m_system._findInterfaceInfoById("a", record));
    EXPECT_EQ(record.displayName, "old");
}

TEST_F(InterfaceList, Update_IdInOtherCase_IsAnotherInterface)
{
    Update({Record("a")});
    EXPECT_TRUE(Update({Record("A")}));
    EXPECT_EQ(Ids(), "A");
}

TEST_F(InterfaceList, Update_NullFlag_Accepted)
{
    m_system._updateInterfaceList({Record("a")}, nullptr);
    EXPECT_EQ(Ids(), "a");
}

TEST_F(InterfaceList, Find_NullIdAndOtherLength_NotFound)
{
    Update({Record("abc")});
    _ZR_U3V_INTERFACE_INFO record;
    EXPECT_FALSE(m_system._findInterfaceInfoById(nullptr, record));
    EXPECT_FALSE(m_system._findInterfaceInfoById("ab", record));
    EXPECT_FALSE(m_system._findInterfaceInfoById("abcd", record));
    EXPECT_FALSE(m_system._findInterfaceInfoById("ABC", record));
    EXPECT_FALSE(m_system._findInterfaceInfoByIndex(1, record));
    EXPECT_TRUE(m_system._findInterfaceInfoById("abc", record));
    EXPECT_EQ(record.tlType, "U3V");
}

TEST_F(SystemTest, GetInterfaceID_OneListed_IndexZeroOnly)
{
    ASSERT_EQ(TLUpdateInterfaceList(m_tl, nullptr, 0), 0);
    char id[32];
    memset(id, 'x', sizeof(id));
    size_t size = 20;
    EXPECT_EQ(TLGetInterfaceID(m_tl, 0, id, &size), 0);
    EXPECT_EQ(size, 16u);
    // All of the announced room is cleared first, nothing behind it.
    EXPECT_EQ(std::string(id, 32), "ZRK-USB-3-IF ID" + std::string(5, '\0') + std::string(12, 'x'));
    TraceCapture trace;
    EXPECT_EQ(TLGetInterfaceID(m_tl, 1, id, &size), -1017);
    EXPECT_EQ(TLGetInterfaceID(m_tl, 0, id, nullptr), -1009);
    EXPECT_EQ(trace.Errors(),
              (Errors{"GetInterfaceID GC_ERR_INVALID_INDEX", "TLGetInterfaceID Failed:-1017",
                      "GetInterfaceID GC_ERR_INVALID_PARAMETER", "TLGetInterfaceID Failed:-1009"}));
}

TEST_F(SystemTest, GetInterfaceInfo_FromTheList_ThreeStrings)
{
    ASSERT_EQ(TLUpdateInterfaceList(m_tl, nullptr, 0), 0);
    const auto info = [this](INTERFACE_INFO_CMD cmd) {
        return ReadText(
            [&](auto... out) { return TLGetInterfaceInfo(m_tl, kInterfaceIdText, cmd, out...); });
    };
    EXPECT_EQ(info(0), Text("ZRK-USB-3-IF ID"));
    EXPECT_EQ(info(1), Text("ZRK-USB-3-IF"));
    EXPECT_EQ(info(2), Text("U3V"));
}

TEST_F(SystemTest, GetInterfaceInfo_UnknownCommand_ClosedNotAvailable_OpenNotImplemented)
{
    ASSERT_EQ(TLUpdateInterfaceList(m_tl, nullptr, 0), 0);
    INFO_DATATYPE type = 0;
    char buffer[2] = {1, 1};
    size_t size = sizeof(buffer);
    TraceCapture trace;
    EXPECT_EQ(TLGetInterfaceInfo(m_tl, kInterfaceIdText, 3, &type, buffer, &size), -1014);
    EXPECT_EQ(trace.Errors().front(), "_getInterfaceInfo GC_ERR_NOT_AVAILABLE :3");
    EXPECT_EQ(buffer[0], 0);
    IF_HANDLE iface = nullptr;
    ASSERT_EQ(TLOpenInterface(m_tl, kInterfaceIdText, &iface), 0);
    trace.Clear();
    EXPECT_EQ(TLGetInterfaceInfo(m_tl, kInterfaceIdText, 3, &type, buffer, &size), -1003);
    EXPECT_EQ(trace.Errors().front(), "GetInfo GC_ERR_NOT_IMPLEMENTED :3");
}

TEST_F(SystemTest, GetInterfaceInfo_BadArguments_EachItsOwnLine)
{
    ASSERT_EQ(TLUpdateInterfaceList(m_tl, nullptr, 0), 0);
    INFO_DATATYPE type = 0;
    size_t size = 0;
    TraceCapture trace;
    EXPECT_EQ(TLGetInterfaceInfo(m_tl, "none", 0, &type, nullptr, nullptr), -1009);
    EXPECT_EQ(trace.Errors().front(), "GetInterfaceInfo GC_ERR_INVALID_PARAMETER");
    trace.Clear();
    EXPECT_EQ(TLGetInterfaceInfo(m_tl, "none", 0, nullptr, nullptr, &size), -1007);
    EXPECT_EQ(trace.Errors().front(), "_getInterfaceInfo GC_ERR_INVALID_ID");
    EXPECT_EQ(TLGetInterfaceInfo(m_tl, nullptr, 0, &type, nullptr, &size), -1007);
    EXPECT_EQ(TLGetInterfaceInfo(m_tl, "zrk-usb-3-if id", 0, &type, nullptr, &size), -1007);
    trace.Clear();
    EXPECT_EQ(TLGetInterfaceInfo(m_tl, kInterfaceIdText, 0, nullptr, nullptr, &size), -1009);
    EXPECT_EQ(trace.Errors().front(), "_getInterfaceInfo GC_ERR_INVALID_PARAMETER");
}

// ---- opening and closing

TEST_F(SystemTest, Open_HandleNotNull_InvalidHandleAndUnchanged)
{
    int other = 0;
    TL_HANDLE tl = &other;
    TraceCapture trace;
    EXPECT_EQ(TLOpen(&tl), -1006);
    EXPECT_EQ(tl, &other);
    EXPECT_EQ(trace.Errors(),
              (Errors{"OpenSystemModule Failed: GC_ERR_INVALID_HANDLE", "TLOpen Failed:-1006"}));
}

TEST_F(SystemTest, Open_NullPointer_InvalidParameter)
{
    TraceCapture trace;
    EXPECT_EQ(TLOpen(nullptr), -1009);
    EXPECT_EQ(trace.Errors().back(), "TLOpen Failed:-1009");
}

TEST_F(SystemTest, Open_AlreadyOpen_InUseAndNoHandle)
{
    TL_HANDLE again = nullptr;
    TraceCapture trace;
    EXPECT_EQ(TLOpen(&again), -1004);
    EXPECT_EQ(again, nullptr);
    EXPECT_EQ(trace.Errors(), (Errors{"Open GC_ERR_RESOURCE_IN_USE", "TLOpen Failed:-1004"}));
}

TEST_F(SystemTest, Close_NotOpen_Error)
{
    ASSERT_EQ(TLClose(m_tl), 0);
    TraceCapture trace;
    EXPECT_EQ(TLClose(m_tl), -1001);
    EXPECT_EQ(trace.Errors(), (Errors{"Close GC_ERR_ERROR", "TLClose Failed:-1001"}));
}

TEST_F(SystemTest, Close_HandleOfAnEarlierOpening_ClosesIt)
{
    ASSERT_EQ(TLClose(m_tl), 0);
    TL_HANDLE again = nullptr;
    ASSERT_EQ(TLOpen(&again), 0);
    EXPECT_EQ(again, m_tl);
    EXPECT_EQ(TLClose(m_tl), 0);
    EXPECT_EQ(TLClose(again), -1001);
}

TEST_F(SystemTest, Close_ClosesItsInterfaceAndForgetsTheHandles)
{
    IF_HANDLE iface = nullptr;
    ASSERT_EQ(TLUpdateInterfaceList(m_tl, nullptr, 0), 0);
    ASSERT_EQ(TLOpenInterface(m_tl, kInterfaceIdText, &iface), 0);
    EXPECT_EQ(TLClose(m_tl), 0);
    uint32_t count = 0;
    EXPECT_EQ(IFGetNumDevices(iface, &count), -1006);
    EXPECT_EQ(GCGetNumPortURLs(m_tl, &count), -1006);
    EXPECT_EQ(FakeU3V::Instance().CountOf("U3V_DiscoveryClose"), 1u);
}

TEST_F(SystemTest, OpenInterface_BeforeAnyUpdate_InvalidId)
{
    IF_HANDLE iface = nullptr;
    TraceCapture trace;
    EXPECT_EQ(TLOpenInterface(m_tl, kInterfaceIdText, &iface), -1007);
    EXPECT_EQ(trace.Errors(),
              (Errors{"OpenInterface GC_ERR_INVALID_ID", "TLOpenInterface Failed:-1007"}));
    EXPECT_EQ(iface, nullptr);
}

TEST_F(SystemTest, OpenInterface_OtherCaseOrNull_InvalidId)
{
    ASSERT_EQ(TLUpdateInterfaceList(m_tl, nullptr, 0), 0);
    IF_HANDLE iface = nullptr;
    EXPECT_EQ(TLOpenInterface(m_tl, "zrk-usb-3-if id", &iface), -1007);
    EXPECT_EQ(TLOpenInterface(m_tl, nullptr, &iface), -1007);
}

TEST_F(SystemTest, OpenInterface_NullHandle_InvalidParameterNothingOpened)
{
    ASSERT_EQ(TLUpdateInterfaceList(m_tl, nullptr, 0), 0);
    EXPECT_EQ(TLOpenInterface(m_tl, kInterfaceIdText, nullptr), -1009);
    EXPECT_EQ(FakeU3V::Instance().Journal(), std::vector<std::string>{});
}

TEST_F(SystemTest, OpenInterface_Twice_InUseUntilClosed)
{
    ASSERT_EQ(TLUpdateInterfaceList(m_tl, nullptr, 0), 0);
    IF_HANDLE iface = nullptr;
    IF_HANDLE second = nullptr;
    ASSERT_EQ(TLOpenInterface(m_tl, kInterfaceIdText, &iface), 0);
    TraceCapture trace;
    EXPECT_EQ(TLOpenInterface(m_tl, kInterfaceIdText, &second), -1004);
    EXPECT_EQ(trace.Errors(),
              (Errors{"OpenInterface GC_ERR_RESOURCE_IN_USE", "TLOpenInterface Failed:-1004"}));
    EXPECT_EQ(second, nullptr);
    EXPECT_EQ(IFClose(iface), 0);
    EXPECT_EQ(TLOpenInterface(m_tl, kInterfaceIdText, &second), 0);
}

TEST_F(SystemTest, CloseInterface_Unknown_InvalidHandle)
{
    auto& system = *static_cast<ZrU3VSystem*>(g_Controller.GetSystemModule(m_tl));
    int other = 0;
    TraceCapture trace;
    EXPECT_EQ(system.CloseInterface(&other), -1006);
    EXPECT_EQ(system.CloseInterface(nullptr), -1006);
    EXPECT_EQ(trace.Errors(), (Errors{"CloseInterface GC_ERR_INVALID_HANDLE",
                                      "CloseInterface GC_ERR_INVALID_HANDLE"}));
}

TEST_F(SystemTest, CloseInterface_CloseFails_NeitherListedNorDestroyed)
{
    auto& system = *static_cast<ZrU3VSystem*>(g_Controller.GetSystemModule(m_tl));
    ASSERT_EQ(TLUpdateInterfaceList(m_tl, nullptr, 0), 0);
    IF_HANDLE handle = nullptr;
    ASSERT_EQ(TLOpenInterface(m_tl, kInterfaceIdText, &handle), 0);
    auto* const iface = static_cast<ZrU3VInterface*>(g_Controller.GetInterfaceModule(handle));
    ASSERT_EQ(iface->Close(), 0); // behind its parent's back
    EXPECT_EQ(system.CloseInterface(handle), -1001);
    EXPECT_EQ(iface->GetId(), kInterfaceIdText); // still alive
    EXPECT_EQ(system.CloseInterface(handle), -1006);
    delete iface;
}

TEST(SystemModule, Destruction_StillOpen_Closes)
{
    FakeU3V::Instance().Reset();
    {
        ZrU3VSystem system;
        ASSERT_EQ(system.Open(), 0);
        ASSERT_EQ(system.UpdateInterfaceList(nullptr, 0), 0);
        void* iface = nullptr;
        ASSERT_EQ(system.OpenInterface(kInterfaceIdText, &iface), 0);
    }
    EXPECT_EQ(FakeU3V::Instance().CountOf("U3V_DiscoveryClose"), 1u);
}

// ---- the controller's life cycle

TEST_F(LibraryTest, Controller_NotInitialized_EveryOperationItsOwnLine)
{
    void* handle = nullptr;
    TraceCapture trace;
    EXPECT_FALSE(g_Controller.IsInitialized());
    EXPECT_EQ(g_Controller.Close(), -1002);
    EXPECT_EQ(g_Controller.GetInfo(0, nullptr, nullptr, nullptr), -1002);
    EXPECT_EQ(g_Controller.OpenSystemModule(&handle), -1002);
    EXPECT_EQ(g_Controller.OpenSystemModule(nullptr), -1002);
    EXPECT_EQ(g_Controller.CloseSystemModule(nullptr), -1002);
    EXPECT_EQ(trace.Errors(),
              (Errors{"Close GC_ERR_NOT_INITIALIZED", "GetInfo GC_ERR_NOT_INITIALIZED",
                      "OpenSystemModule GC_ERR_NOT_INITIALIZED",
                      "OpenSystemModule GC_ERR_NOT_INITIALIZED",
                      "CloseSystemModule GC_ERR_NOT_INITIALIZED"}));
}

TEST_F(LibraryTest, Controller_InitCloseInit_FreshSystem)
{
    ASSERT_EQ(g_Controller.Init(), 0);
    EXPECT_TRUE(g_Controller.IsInitialized());
    TraceCapture trace;
    EXPECT_EQ(g_Controller.Init(), -1004);
    EXPECT_EQ(trace.Errors(), (Errors{"Init GC_ERR_RESOURCE_IN_USE"}));
    void* system = nullptr;
    ASSERT_EQ(g_Controller.OpenSystemModule(&system), 0);
    EXPECT_EQ(g_Controller.GetSystemModule(system), system);
    ASSERT_EQ(TLUpdateInterfaceList(system, nullptr, 0), 0);
    ASSERT_EQ(g_Controller.Close(), 0);
    EXPECT_FALSE(g_Controller.IsInitialized());
    EXPECT_EQ(g_Controller.GetSystemModule(system), nullptr);

    ASSERT_EQ(g_Controller.Init(), 0);
    system = nullptr;
    ASSERT_EQ(g_Controller.OpenSystemModule(&system), 0);
    uint32_t count = 99;
    EXPECT_EQ(TLGetNumInterfaces(system, &count), 0); // nothing left of the old list
    EXPECT_EQ(count, 0u);
}

TEST_F(LibraryTest, Controller_Close_ForgetsModulesThatStillExist)
{
    ASSERT_EQ(g_Controller.Init(), 0);
    ZrU3VInterface orphan({"orphan", "orphan", "U3V"}, nullptr);
    ASSERT_EQ(orphan.Open(), 0);
    ASSERT_EQ(g_Controller.GetInterfaceModule(&orphan), &orphan);
    ASSERT_EQ(g_Controller.Close(), 0);
    EXPECT_EQ(g_Controller.GetInterfaceModule(&orphan), nullptr);
}

TEST_F(LibraryTest, Controller_SystemNotOpened_NotRegistered)
{
    ASSERT_EQ(g_Controller.Init(), 0);
    EXPECT_EQ(ReadText([](auto... out) { return GCGetInfo(TL_INFO_ID, out...); }),
              Text("ZrGenTLU3V"));
    int other = 0;
    TraceCapture trace;
    EXPECT_EQ(g_Controller.CloseSystemModule(&other), -1006);
    EXPECT_EQ(trace.Errors(), (Errors{"CloseSystemModule Failed: GC_ERR_INVALID_HANDLE"}));
}

} // namespace
