// What the shells of the exported functions do around an operation: kinds of handles, failures of
// the operation, exceptions, the library's own functions.

#include <chrono>
#include <new>
#include <thread>

#include "failing_allocation.h"
#include "tl_fixture.h"
#include "wait.h"
#include "zr_u3v_controller.h"
#include "zr_u3v_device.h"
#include "zr_u3v_interface.h"

namespace {

using Errors = std::vector<std::string>;

class OpenTree : public InterfaceTest
{
protected:
    void SetUp() override
    {
        InterfaceTest::SetUp();
        FakeU3V::Instance().PokeManifest(1, 0x20000, 64, false);
        UpdateDevices();
        ASSERT_EQ(IFOpenDevice(m_iface, "GUID-A", DEVICE_ACCESS_EXCLUSIVE, &m_device), 0);
        ASSERT_EQ(DevGetPort(m_device, &m_remote), 0);
        char id[64] = {};
        size_t size = sizeof(id);
        ASSERT_EQ(DevGetDataStreamID(m_device, 0, id, &size), 0);
        ASSERT_EQ(DevOpenDataStream(m_device, id, &m_stream), 0);
    }

    DEV_HANDLE m_device = nullptr;
    PORT_HANDLE m_remote = nullptr;
    DS_HANDLE m_stream = nullptr;
};

// What the stand-in was called for, without what the interface's own thread asks it for all the
// while.
std::vector<std::string> CallsForTheCamera()
{
    std::vector<std::string> calls = FakeU3V::Instance().Journal();
    std::erase_if(calls, [](const std::string& call) {
        return call == "U3V_DiscoveryDevices" || call.find("U3V_GetDeviceInfo") == 0;
    });
    return calls;
}

// ---- a handle of another kind is as good as none

TEST_F(OpenTree, SystemFunction_OtherKinds_InvalidHandle)
{
    for (void* const handle : {m_iface, m_device, m_remote, m_stream}) {
        uint32_t count = 0;
        EXPECT_EQ(TLGetNumInterfaces(handle, &count), -1006);
        EXPECT_EQ(TLClose(handle), -1006);
    }
    INFO_DATATYPE type = 0;
    size_t size = 0;
    EXPECT_EQ(TLGetInfo(m_iface, TL_INFO_ID, &type, nullptr, &size), -1006);
}

TEST_F(OpenTree, InterfaceFunction_OtherKinds_InvalidHandle)
{
    for (void* const handle : {m_tl, m_device, m_remote, m_stream}) {
        uint32_t count = 0;
        EXPECT_EQ(IFGetNumDevices(handle, &count), -1006);
        EXPECT_EQ(IFClose(handle), -1006);
    }
}

TEST_F(OpenTree, DeviceFunction_OtherKinds_InvalidHandle)
{
    for (void* const handle : {m_tl, m_iface, m_remote, m_stream}) {
        uint32_t count = 0;
        EXPECT_EQ(DevGetNumDataStreams(handle, &count), -1006);
        EXPECT_EQ(DevClose(handle), -1006);
    }
}

TEST_F(OpenTree, StreamFunction_OtherKinds_InvalidHandle)
{
    for (void* const handle : {m_tl, m_iface, m_device, m_remote}) {
        EXPECT_EQ(DSFlushQueue(handle, ACQ_QUEUE_ALL_DISCARD), -1006);
        EXPECT_EQ(DSClose(handle), -1006);
    }
}

TEST_F(OpenTree, PortFunction_AnyModule_ReachesItsPort)
{
    for (void* const handle : {m_tl, m_iface, m_device, m_remote, m_stream}) {
        uint32_t count = 0;
        EXPECT_EQ(GCGetNumPortURLs(handle, &count), 0);
        EXPECT_EQ(count, 1u);
    }
}

// ---- the operation fails: traced with the function's name, recorded

struct FailureRow
{
    const char* name;
    GC_ERROR status;
    GC_ERROR (*call)(void* tl, void* iface, void* device, void* stream);
};

const FailureRow kFailures[] = {
    {"TLGetInfo", -1009,
     [](void* tl, void*, void*, void*) { return TLGetInfo(tl, 0, nullptr, nullptr, nullptr); }},
    {"TLGetNumInterfaces", -1009,
     [](void* tl, void*, void*, void*) { return TLGetNumInterfaces(tl, nullptr); }},
    {"TLGetInterfaceID", -1009,
     [](void* tl, void*, void*, void*) { return TLGetInterfaceID(tl, 0, nullptr, nullptr); }},
    {"TLGetInterfaceInfo", -1009,
     [](void* tl, void*, void*, void*) {
         return TLGetInterfaceInfo(tl, kInterfaceIdText, 0, nullptr, nullptr, nullptr);
     }},
    {"TLOpenInterface", -1007,
     [](void* tl, void*, void*, void*) { return TLOpenInterface(tl, "none", nullptr); }},
    {"IFGetInfo", -1009,
     [](void*, void* i, void*, void*) { return IFGetInfo(i, 0, nullptr, nullptr, nullptr); }},
    {"IFGetNumDevices", -1009,
     [](void*, void* i, void*, void*) { return IFGetNumDevices(i, nullptr); }},
    {"IFGetDeviceID", -1009,
     [](void*, void* i, void*, void*) { return IFGetDeviceID(i, 0, nullptr, nullptr); }},
    {"IFUpdateDeviceList", -1011,
     [](void*, void* i, void*, void*) {
         // Passes that last longer than the wait; the first update may still find the end of
         // others.
         FakeU3V::Instance().OnCall("U3V_DiscoveryDevices", [] {
             zr_test::LetPass(std::chrono::milliseconds(100), "a pass takes longer than the wait");
         });
         GC_ERROR status = 0;
         for (int attempt = 0; attempt < 50 && status == 0; ++attempt) {
             status = IFUpdateDeviceList(i, nullptr, 1);
         }
         return status;
     }},
    {"IFGetDeviceInfo", -1009,
     [](void*, void* i, void*, void*) {
         return IFGetDeviceInfo(i, "GUID-B", 0, nullptr, nullptr, nullptr);
     }},
    {"IFOpenDevice", -1004,
     [](void*, void* i, void*, void*) { return IFOpenDevice(i, "GUID-A", 4, nullptr); }},
    {"DevGetPort", -1009, [](void*, void*, void* d, void*) { return DevGetPort(d, nullptr); }},
    {"DevGetNumDataStreams", -1009,
     [](void*, void*, void* d, void*) { return DevGetNumDataStreams(d, nullptr); }},
    {"DevGetDataStreamID", -1009,
     [](void*, void*, void* d, void*) { return DevGetDataStreamID(d, 0, nullptr, nullptr); }},
    {"DevGetInfo", -1009,
     [](void*, void*, void* d, void*) { return DevGetInfo(d, 0, nullptr, nullptr, nullptr); }},
    {"DSGetInfo", -1009,
     [](void*, void*, void*, void* s) { return DSGetInfo(s, 0, nullptr, nullptr, nullptr); }},
    {"DSAnnounceBuffer", -1009,
     [](void*, void*, void*, void* s) {
         return DSAnnounceBuffer(s, nullptr, 0, nullptr, nullptr);
     }},
    {"DSAllocAndAnnounceBuffer", -1009,
     [](void*, void*, void*, void* s) {
         return DSAllocAndAnnounceBuffer(s, 64, nullptr, nullptr);
     }},
    {"GCReadPort", -1009,
     [](void* tl, void*, void*, void*) { return GCReadPort(tl, 0x10000, nullptr, nullptr); }},
    {"GCWritePort", -1009,
     [](void* tl, void*, void*, void*) { return GCWritePort(tl, 0x5050C, nullptr, nullptr); }},
    {"GCReadPortStacked", -1009,
     [](void* tl, void*, void*, void*) { return GCReadPortStacked(tl, nullptr, nullptr); }},
    {"GCWritePortStacked", -1009,
     [](void* tl, void*, void*, void*) { return GCWritePortStacked(tl, nullptr, nullptr); }},
    {"GCGetPortURL", -1009,
     [](void* tl, void*, void*, void*) { return GCGetPortURL(tl, nullptr, nullptr); }},
    {"GCGetPortInfo", -1009,
     [](void* tl, void*, void*, void*) { return GCGetPortInfo(tl, 0, nullptr, nullptr, nullptr); }},
    {"GCGetNumPortURLs", -1009,
     [](void* tl, void*, void*, void*) { return GCGetNumPortURLs(tl, nullptr); }},
    {"GCGetPortURLInfo", -1003,
     [](void* tl, void*, void*, void*) {
         INFO_DATATYPE type = 0;
         size_t size = 0;
         return GCGetPortURLInfo(tl, 0, URL_INFO_FILENAME, &type, nullptr, &size);
     }},
    {"GCUnregisterEvent", -1003,
     [](void* tl, void*, void*, void*) { return GCUnregisterEvent(tl, EVENT_ERROR); }},
};

void PrintTo(const FailureRow& row, std::ostream* out)
{
    *out << row.name;
}

class FailingOperation : public OpenTree, public ::testing::WithParamInterface<FailureRow>
{
};

TEST_P(FailingOperation, ValidHandle_LastLineAndLastErrorAreTheStatus)
{
    const FailureRow& row = GetParam();
    TraceCapture trace;
    EXPECT_EQ(row.call(m_tl, m_iface, m_device, m_stream), row.status);
    ASSERT_FALSE(trace.Errors().empty());
    EXPECT_EQ(trace.Errors().back(),
              std::string(row.name) + " Failed:" + std::to_string(row.status));
    EXPECT_EQ(ReadLastError().code, row.status);
}

INSTANTIATE_TEST_SUITE_P(Exports, FailingOperation, ::testing::ValuesIn(kFailures),
                         [](const ::testing::TestParamInfo<FailureRow>& row) {
                             return std::string(row.param.name);
                         });

TEST_F(OpenTree, RegisterEvent_Refused_LineCarriesTheEventId)
{
    TraceCapture trace;
    EVENT_HANDLE event = nullptr;
    EXPECT_EQ(GCRegisterEvent(m_iface, EVENT_MODULE, &event), -1003);
    EXPECT_EQ(trace.Errors(), (Errors{"GCRegisterEvent Failed:-1003 iEventID:5"}));
    EXPECT_EQ(ReadLastError(), (LastError{-1003, "GC_ERR_NOT_IMPLEMENTED"}));
}

TEST_F(OpenTree, EventFunctions_FailingOperation_TracedAndRecorded)
{
    EVENT_HANDLE event = nullptr;
    ASSERT_EQ(GCRegisterEvent(m_iface, EVENT_ERROR, &event), 0);
    TraceCapture trace;
    EXPECT_EQ(EventGetData(event, nullptr, nullptr, 0), -1009);
    EXPECT_EQ(EventGetDataInfo(event, nullptr, 0, 0, nullptr, nullptr, nullptr), -1009);
    EXPECT_EQ(EventGetInfo(event, 0, nullptr, nullptr, nullptr), -1009);
    EXPECT_EQ(trace.Errors(), (Errors{"EventGetData Failed:-1009", "EventGetDataInfo Failed:-1009",
                                      "EventGetInfo Failed:-1009"}));
    EXPECT_EQ(ReadLastError().code, -1009);
    trace.Clear();
    EXPECT_EQ(EventKill(event), 0);
    EXPECT_EQ(EventFlush(event), 0);
    EXPECT_EQ(trace.Errors(), Errors{});
}

TEST_F(OpenTree, EventKill_StaleHandle_LeavesTheLastErrorAlone)
{
    EVENT_HANDLE event = nullptr;
    ASSERT_EQ(GCRegisterEvent(m_iface, EVENT_ERROR, &event), 0);
    ASSERT_EQ(GCUnregisterEvent(m_iface, EVENT_ERROR), 0);
    LeaveParameterError(m_tl);
    EXPECT_EQ(EventKill(event), -1006);
    EXPECT_EQ(ReadLastError(), (LastError{-1009, "GC_ERR_INVALID_PARAMETER"}));
    EXPECT_EQ(EventFlush(event), -1006);
    EXPECT_EQ(ReadLastError(), (LastError{-1006, "GC_ERR_INVALID_HANDLE"}));
}

TEST_F(OpenTree, Success_TracesOnlyTheEntryAndKeepsTheLastError)
{
    LeaveParameterError(m_tl);
    TraceCapture trace;
    uint32_t count = 0;
    EXPECT_EQ(TLGetNumInterfaces(m_tl, &count), 0);
    EXPECT_EQ(trace.Lines(), (std::vector<TracedLine>{
                                 DebugLine("TLGetNumInterfaces Entry! hTL:" + HandleText(m_tl))}));
    EXPECT_EQ(ReadLastError(), (LastError{-1009, "GC_ERR_INVALID_PARAMETER"}));
}

TEST_F(OpenTree, NotImplementedStub_ValidHandle_StillNotImplemented)
{
    TraceCapture trace;
    EXPECT_EQ(IFGetParentTL(m_iface, nullptr), -1003);
    EXPECT_EQ(DevGetParentIF(m_device, nullptr), -1003);
    EXPECT_EQ(DSGetParentDev(m_stream, nullptr), -1003);
    EXPECT_EQ(trace.Errors(), Errors{});
    EXPECT_EQ(ReadLastError(), (LastError{-1003, "GC_ERR_NOT_IMPLEMENTED"}));
}

// ---- closing a child

TEST_F(OpenTree, Close_ChildrenThroughTheirParents_HandlesGone)
{
    EXPECT_EQ(DSClose(m_stream), 0);
    EXPECT_EQ(DevClose(m_device), 0);
    EXPECT_EQ(DevClose(m_device), -1006);
    EXPECT_EQ(IFClose(m_iface), 0);
    EXPECT_EQ(IFClose(m_iface), -1006);
    EXPECT_EQ(TLClose(m_tl), 0);
    uint32_t count = 0;
    EXPECT_EQ(TLGetNumInterfaces(m_tl, &count), -1006);
}

// The stream ends while the remote device can still be used; then both are gone before the camera's
// channels close.
TEST_F(OpenTree, DevClose_StreamThenRemoteDeviceThenCamera)
{
    using Statuses = std::vector<GC_ERROR>;
    const auto ask = [&] {
        uint32_t count = 0;
        INFO_DATATYPE type = 0;
        size_t size = 0;
        return Statuses{DSGetInfo(m_stream, STREAM_INFO_ID, &type, nullptr, &size),
                        GCGetNumPortURLs(m_remote, &count), DevGetNumDataStreams(m_device, &count)};
    };
    EXPECT_EQ(ask(), (Statuses{0, 0, 0}));
    Statuses closingStream;
    Statuses closingControl;
    FakeU3V::Instance().OnCall("U3V_CloseStream", [&] { closingStream = ask(); });
    FakeU3V::Instance().OnCall("U3V_CloseControl", [&] { closingControl = ask(); });
    FakeU3V::Instance().ClearJournal();
    EXPECT_EQ(DevClose(m_device), 0);
    EXPECT_EQ(closingStream, (Statuses{-1006, 0, -1006}));
    EXPECT_EQ(closingControl, (Statuses{-1006, -1006, -1006}));
    EXPECT_EQ(CallsForTheCamera(),
              (std::vector<std::string>{"U3V_CloseStream", "U3V_CloseControl", "U3V_CloseDevice"}));
}

TEST_F(SystemTest, IFClose_NoParent_Error)
{
    ZrU3VInterface orphan({"orphan", "orphan", "U3V"}, nullptr);
    ASSERT_EQ(orphan.Open(), 0);
    TraceCapture trace;
    EXPECT_EQ(IFClose(&orphan), -1001);
    EXPECT_EQ(trace.Errors(), (Errors{"IFClose Failed: GC_ERR_ERROR"}));
    EXPECT_EQ(ReadLastError(), (LastError{-1001, "GC_ERR_ERROR"}));
}

TEST_F(SystemTest, DevClose_NoParent_Error)
{
    FakeU3V::Instance().PokeManifest(1, 0x20000, 64, false);
    _ZR_U3V_DEVICE_INFO info;
    info.id = "GUID-A";
    ZrU3VDevice orphan(info, nullptr);
    ASSERT_EQ(orphan.Open(DEVICE_ACCESS_EXCLUSIVE), 0);
    TraceCapture trace;
    EXPECT_EQ(DevClose(&orphan), -1001);
    EXPECT_EQ(trace.Errors(), (Errors{"DevClose Failed: GC_ERR_ERROR"}));
    EXPECT_EQ(ReadLastError(), (LastError{-1001, "GC_ERR_ERROR"}));
}

// ---- the library's own functions

TEST_F(LibraryTest, CloseLib_NotInitialized_BothNamesTraced)
{
    TraceCapture trace;
    EXPECT_EQ(GCCloseLib(), -1002);
    EXPECT_EQ(trace.Lines(), (std::vector<TracedLine>{DebugLine("GCCloseLib Entry!"),
                                                      ErrorLine("Close GC_ERR_NOT_INITIALIZED"),
                                                      ErrorLine("GCCloseLib Failed:-1002")}));
    EXPECT_EQ(ReadLastError(), (LastError{-1002, "GC_ERR_NOT_INITIALIZED"}));
}

TEST_F(LibraryTest, GetInfo_NotInitialized_BothNamesTraced)
{
    TraceCapture trace;
    EXPECT_EQ(GCGetInfo(TL_INFO_VENDOR, nullptr, nullptr, nullptr), -1002);
    EXPECT_EQ(trace.Lines(), (std::vector<TracedLine>{DebugLine("GCGetInfo Entry! iInfoCmd:1"),
                                                      ErrorLine("GetInfo GC_ERR_NOT_INITIALIZED"),
                                                      ErrorLine("GCGetInfo Failed:-1002")}));
    EXPECT_EQ(ReadLastError(), (LastError{-1002, "GC_ERR_NOT_INITIALIZED"}));
}

TEST_F(LibraryTest, TLOpen_NotInitialized_AnsweredByTheShell)
{
    TraceCapture trace;
    TL_HANDLE tl = nullptr;
    EXPECT_EQ(TLOpen(&tl), -1002);
    EXPECT_EQ(trace.Lines(), (std::vector<TracedLine>{DebugLine("TLOpen Entry!"),
                                                      ErrorLine("TLOpen GC_ERR_NOT_INITIALIZED")}));
    EXPECT_EQ(tl, nullptr);
}

TEST_F(LibraryTest, InitLib_Twice_SecondInUse)
{
    TraceCapture trace;
    EXPECT_EQ(GCInitLib(), 0);
    EXPECT_EQ(trace.Lines(), (std::vector<TracedLine>{DebugLine("GCInitLib Entry!")}));
    trace.Clear();
    EXPECT_EQ(GCInitLib(), -1004);
    EXPECT_EQ(trace.Lines(), (std::vector<TracedLine>{DebugLine("GCInitLib Entry!"),
                                                      ErrorLine("Init GC_ERR_RESOURCE_IN_USE"),
                                                      ErrorLine("GCInitLib Failed:-1004")}));
    EXPECT_EQ(ReadLastError(), (LastError{-1004, "GC_ERR_RESOURCE_IN_USE"}));
    EXPECT_EQ(GCCloseLib(), 0);
    EXPECT_EQ(GCInitLib(), 0);
}

TEST_F(LibraryTest, GetLastError_BeforeInit_Works)
{
    size_t size = 0;
    GC_ERROR code = 1;
    TraceCapture trace;
    EXPECT_EQ(GCGetLastError(&code, nullptr, &size), 0);
    EXPECT_EQ(trace.Lines(), (std::vector<TracedLine>{DebugLine("GCGetLastError Entry!")}));
}

TEST_F(SystemTest, GetLastError_OwnFailure_TracedNotRecorded)
{
    LeaveParameterError(m_tl);
    char text[4] = {};
    size_t size = sizeof(text);
    GC_ERROR code = 0;
    TraceCapture trace;
    EXPECT_EQ(GCGetLastError(&code, text, &size), -1016);
    EXPECT_EQ(trace.Lines(), (std::vector<TracedLine>{DebugLine("GCGetLastError Entry!"),
                                                      ErrorLine("GCGetLastError Failed:-1016")}));
    EXPECT_EQ(ReadLastError(), (LastError{-1009, "GC_ERR_INVALID_PARAMETER"}));
}

TEST_F(SystemTest, GetInfo_OfTheLibrary_IsTheSystems)
{
    EXPECT_EQ(ReadText([](auto... out) { return GCGetInfo(TL_INFO_VENDOR, out...); }),
              Text("ZRK-ORVANE GmbH"));
    TraceCapture trace;
    INFO_DATATYPE type = 0;
    size_t size = 0;
    EXPECT_EQ(GCGetInfo(11, &type, nullptr, &size), -1003);
    EXPECT_EQ(trace.Errors(),
              (Errors{"GetInfo GC_ERR_NOT_IMPLEMENTED :11", "GCGetInfo Failed:-1003"}));
}

// ---- exceptions: none leaves a C function but GCInitLib's

TEST_F(LibraryTest, InitLib_NoMemory_ThrowsAndLeavesNothing)
{
    if (!FailingAllocations::Possible()) {
        GTEST_SKIP() << "operator new is the sanitizer\'s";
    }
    for (int nth = 0;; ++nth) {
        bool threw = false;
        {
            const FailingAllocations failing(nth);
            try {
                EXPECT_EQ(GCInitLib(), 0);
            } catch (const std::bad_alloc&) {
                threw = true;
            }
        }
        if (!threw) {
            EXPECT_GT(nth, 0);
            break;
        }
        EXPECT_EQ(GCCloseLib(), -1002);
    }
}

// Whatever allocation fails, the call answers OUT_OF_MEMORY and throws nothing; without one to fail
// it succeeds in the end.
template <class Call>
void ExpectOutOfMemoryUntilSuccess(Call call)
{
    for (int nth = 0; nth < 200; ++nth) {
        GC_ERROR status = 0;
        bool refused = false;
        {
            const FailingAllocations failing(nth);
            status = call();
            refused = FailingAllocations::Refused();
        }
        if (!refused) {
            EXPECT_EQ(status, 0);
            EXPECT_GT(nth, 0) << "nothing was allocated";
            return;
        }
        EXPECT_EQ(status, -1021) << "allocation " << nth;
    }
    FAIL() << "does not come to an end";
}

TEST_F(LibraryTest, TLOpen_NoMemory_OutOfMemoryAndOpensLater)
{
    if (!FailingAllocations::Possible()) {
        GTEST_SKIP() << "operator new is the sanitizer\'s";
    }
    ASSERT_EQ(GCInitLib(), 0);
    ASSERT_EQ(TLClose(nullptr), -1006); // the thread has its error record
    TL_HANDLE tl = nullptr;
    ExpectOutOfMemoryUntilSuccess([&] {
        EXPECT_EQ(tl, nullptr);
        return TLOpen(&tl);
    });
    EXPECT_NE(tl, nullptr);
}

TEST_F(SystemTest, UpdateInterfaceList_NoMemory_OutOfMemory)
{
    if (!FailingAllocations::Possible()) {
        GTEST_SKIP() << "operator new is the sanitizer\'s";
    }
    LeaveParameterError(m_tl);
    ExpectOutOfMemoryUntilSuccess([&] { return TLUpdateInterfaceList(m_tl, nullptr, 0); });
}

TEST_F(SystemTest, OpenInterface_NoMemory_OutOfMemoryAndOpensLater)
{
    if (!FailingAllocations::Possible()) {
        GTEST_SKIP() << "operator new is the sanitizer\'s";
    }
    LeaveParameterError(m_tl);
    ASSERT_EQ(TLUpdateInterfaceList(m_tl, nullptr, 0), 0);
    IF_HANDLE iface = nullptr;
    ExpectOutOfMemoryUntilSuccess([&] {
        EXPECT_EQ(iface, nullptr);
        return TLOpenInterface(m_tl, kInterfaceIdText, &iface);
    });
    EXPECT_NE(iface, nullptr);
}

// What is called for every image needs no memory.
TEST_F(OpenTree, EventGetInfo_NoMemory_NeedsNone)
{
    if (!FailingAllocations::Possible()) {
        GTEST_SKIP() << "operator new is the sanitizer\'s";
    }
    EVENT_HANDLE event = nullptr;
    ASSERT_EQ(GCRegisterEvent(m_iface, EVENT_ERROR, &event), 0);
    int32_t value = 0;
    INFO_DATATYPE type = 0;
    size_t size = sizeof(value);
    const FailingAllocations failing(0);
    EXPECT_EQ(EventGetInfo(event, EVENT_EVENT_TYPE, &type, &value, &size), 0);
    EXPECT_FALSE(FailingAllocations::Refused());
}

void ThrowOnModuleFailure(unsigned /*level*/, const char* /*line*/, const char* message)
{
    if (std::string(message) == "GetNumInterfaces GC_ERR_INVALID_PARAMETER") {
        throw 7;
    }
}

TEST_F(SystemTest, Operation_AnotherException_Error)
{
    SetTraceHook(&ThrowOnModuleFailure);
    EXPECT_EQ(TLGetNumInterfaces(m_tl, nullptr), -1001);
    SetTraceHook(nullptr);
    EXPECT_EQ(ReadLastError(), (LastError{-1001, "GC_ERR_ERROR"}));
}

} // namespace
