// Every export with a handle: its entry line, what it answers before the library is initialised and
// for a handle that names nothing, and what becomes the thread's last error.

#include <ostream>

#include "tl_fixture.h"

namespace {

// How a function resolves its handle; it decides the line and the status of one that is not found.
enum class Shell
{
    Standard,
    Event,
    EventKill,
    Port,
    RegisterEvent,
    CloseSystem,
    Stub
};

struct EntryRow
{
    const char* name;
    Shell shell;
    // The entry line after the name; "<h>" stands for the handle.
    const char* entry;
    GC_ERROR (*call)(void* handle);
};

void PrintTo(const EntryRow& row, std::ostream* out)
{
    *out << row.name;
}

// No function may follow these: they are compared only.
void* const kForeign = reinterpret_cast<void*>(uintptr_t{0x7F00ABCD1234});
void* const kOther = reinterpret_cast<void*>(uintptr_t{0x600000C0DE});

const EntryRow kRows[] = {
    {"GCReadPort", Shell::Port, " Entry! hPort:<h> iAddress:0x50000abcd",
     [](void* h) { return GCReadPort(h, 0x50000ABCD, nullptr, nullptr); }},
    {"GCWritePort", Shell::Port, " Entry! hPort:<h> iAddress:0x5050c",
     [](void* h) { return GCWritePort(h, 0x5050C, nullptr, nullptr); }},
    {"GCReadPortStacked", Shell::Port, " Entry! hPort:<h>",
     [](void* h) { return GCReadPortStacked(h, nullptr, nullptr); }},
    {"GCWritePortStacked", Shell::Port, " Entry! hPort:<h>",
     [](void* h) { return GCWritePortStacked(h, nullptr, nullptr); }},
    {"GCGetPortURL", Shell::Port, " Entry! hPort:<h>",
     [](void* h) { return GCGetPortURL(h, nullptr, nullptr); }},
    {"GCGetPortInfo", Shell::Port, " Entry! hPort:<h> iInfoCmd:12",
     [](void* h) { return GCGetPortInfo(h, 12, nullptr, nullptr, nullptr); }},
    {"GCGetNumPortURLs", Shell::Port, " Entry! hPort:<h>",
     [](void* h) { return GCGetNumPortURLs(h, nullptr); }},
    {"GCGetPortURLInfo", Shell::Port, " Entry! hPort:<h> iURLIndex:3 iInfoCmd:7",
     [](void* h) { return GCGetPortURLInfo(h, 3, 7, nullptr, nullptr, nullptr); }},
    {"GCRegisterEvent", Shell::RegisterEvent, " Entry! hEventSrc:<h> iEventID:4",
     [](void* h) { return GCRegisterEvent(h, 4, nullptr); }},
    {"GCUnregisterEvent", Shell::Port, " Entry! hEventSrc:<h> iEventID:4",
     [](void* h) { return GCUnregisterEvent(h, 4); }},
    {"EventGetData", Shell::Event, " Entry! hEvent:<h> Timeout:4294967297",
     [](void* h) { return EventGetData(h, nullptr, nullptr, 0x100000001); }},
    {"EventGetDataInfo", Shell::Event, " Entry! hEvent:<h> iInfoCmd:1",
     [](void* h) { return EventGetDataInfo(h, nullptr, 0, 1, nullptr, nullptr, nullptr); }},
    {"EventGetInfo", Shell::Event, " Entry! hEvent:<h> iInfoCmd:-5",
     [](void* h) { return EventGetInfo(h, -5, nullptr, nullptr, nullptr); }},
    {"EventFlush", Shell::Event, " Entry! hEvent:<h>", [](void* h) { return EventFlush(h); }},
    {"EventKill", Shell::EventKill, " Entry! hEvent:<h>", [](void* h) { return EventKill(h); }},
    {"TLClose", Shell::CloseSystem, " Entry! hTL:<h>", [](void* h) { return TLClose(h); }},
    {"TLGetInfo", Shell::Standard, " Entry! hTL:<h> iInfoCmd:11",
     [](void* h) { return TLGetInfo(h, 11, nullptr, nullptr, nullptr); }},
    {"TLGetNumInterfaces", Shell::Standard, " Entry! hTL:<h>",
     [](void* h) { return TLGetNumInterfaces(h, nullptr); }},
    {"TLGetInterfaceID", Shell::Standard, " Entry! hTL:<h> iIndex:2",
     [](void* h) { return TLGetInterfaceID(h, 2, nullptr, nullptr); }},
    {"TLGetInterfaceInfo", Shell::Standard, " Entry! hTL:<h> sIfaceID:some id iInfoCmd:1",
     [](void* h) { return TLGetInterfaceInfo(h, "some id", 1, nullptr, nullptr, nullptr); }},
    {"TLOpenInterface", Shell::Standard, " Entry! hTL:<h> sIfaceID:some id",
     [](void* h) { return TLOpenInterface(h, "some id", nullptr); }},
    {"TLUpdateInterfaceList", Shell::Standard, " Entry! hTL:<h> iTimeout:-1",
     [](void* h) { return TLUpdateInterfaceList(h, nullptr, GENTL_INFINITE); }},
    {"IFClose", Shell::Standard, " Entry! hIface:<h>", [](void* h) { return IFClose(h); }},
    {"IFGetInfo", Shell::Standard, " Entry! hIface:<h> iInfoCmd:2",
     [](void* h) { return IFGetInfo(h, 2, nullptr, nullptr, nullptr); }},
    {"IFGetNumDevices", Shell::Standard, " Entry! hIface:<h>",
     [](void* h) { return IFGetNumDevices(h, nullptr); }},
    {"IFGetDeviceID", Shell::Standard, " Entry! hIface:<h> iIndex:6",
     [](void* h) { return IFGetDeviceID(h, 6, nullptr, nullptr); }},
    {"IFUpdateDeviceList", Shell::Standard, " Entry! hIface:<h> iTimeout:250",
     [](void* h) { return IFUpdateDeviceList(h, nullptr, 250); }},
    {"IFGetDeviceInfo", Shell::Standard, " Entry! hIface:<h> sDeviceID:cam iInfoCmd:5",
     [](void* h) { return IFGetDeviceInfo(h, "cam", 5, nullptr, nullptr, nullptr); }},
    {"IFOpenDevice", Shell::Standard, " Entry! hIface:<h> sDeviceID:cam iOpenFlags:4",
     [](void* h) { return IFOpenDevice(h, "cam", 4, nullptr); }},
    {"DevGetPort", Shell::Standard, " Entry! hDevice:<h>",
     [](void* h) { return DevGetPort(h, nullptr); }},
    {"DevGetNumDataStreams", Shell::Standard, " Entry! hDevice:<h>",
     [](void* h) { return DevGetNumDataStreams(h, nullptr); }},
    {"DevGetDataStreamID", Shell::Standard, " Entry! hDevice:<h> iIndex:1",
     [](void* h) { return DevGetDataStreamID(h, 1, nullptr, nullptr); }},
    {"DevOpenDataStream", Shell::Standard, " Entry! hDevice:<h> sDataStreamID:stream",
     [](void* h) { return DevOpenDataStream(h, "stream", nullptr); }},
    {"DevGetInfo", Shell::Standard, " Entry! hDevice:<h> iInfoCmd:9",
     [](void* h) { return DevGetInfo(h, 9, nullptr, nullptr, nullptr); }},
    {"DevClose", Shell::Standard, " Entry! hDevice:<h>", [](void* h) { return DevClose(h); }},
    {"DSAnnounceBuffer", Shell::Standard,
     " Entry! hDataStream:<h> pBuffer:0x600000c0de iSize:4096 pPrivate:(nil) ",
     [](void* h) { return DSAnnounceBuffer(h, kOther, 4096, nullptr, nullptr); }},
    {"DSAllocAndAnnounceBuffer", Shell::Standard,
     " Entry! hDataStream:<h> iSize:4096 pPrivate:0x600000c0de ",
     [](void* h) { return DSAllocAndAnnounceBuffer(h, 4096, kOther, nullptr); }},
    {"DSFlushQueue", Shell::Standard, " Entry! hDataStream:<h> iOperation:3",
     [](void* h) { return DSFlushQueue(h, 3); }},
    {"DSStartAcquisition", Shell::Standard,
     " Entry! hDataStream:<h> iStartFlags:1 iNumToAcquire:-1",
     [](void* h) { return DSStartAcquisition(h, 1, GENTL_INFINITE); }},
    {"DSStopAcquisition", Shell::Standard, " Entry! hDataStream:<h> iStopFlags:1",
     [](void* h) { return DSStopAcquisition(h, 1); }},
    {"DSGetInfo", Shell::Standard, " Entry! hDataStream:<h> iInfoCmd:8",
     [](void* h) { return DSGetInfo(h, 8, nullptr, nullptr, nullptr); }},
    {"DSGetBufferID", Shell::Standard, " Entry! hDataStream:<h> iIndex:2",
     [](void* h) { return DSGetBufferID(h, 2, nullptr); }},
    {"DSClose", Shell::Standard, " Entry! hDataStream:<h>", [](void* h) { return DSClose(h); }},
    {"DSRevokeBuffer", Shell::Standard, " Entry! hDataStream:<h> hBuffer:0xC0DE",
     [](void* h) { return DSRevokeBuffer(h, kOther, nullptr, nullptr); }},
    {"DSQueueBuffer", Shell::Standard, " Entry! hDataStream:<h> hBuffer:0xC0DE",
     [](void* h) { return DSQueueBuffer(h, kOther); }},
    {"DSGetBufferInfo", Shell::Standard, " Entry! hDataStream:<h> hBuffer:0xC0DE iInfoCmd:9",
     [](void* h) { return DSGetBufferInfo(h, kOther, 9, nullptr, nullptr, nullptr); }},
    {"DSGetBufferChunkData", Shell::Stub, " Entry! hDataStream:<h> hBuffer:0xC0DE",
     [](void* h) {
         return DSGetBufferChunkData(h, kOther, static_cast<SINGLE_CHUNK_DATA*>(kOther),
                                     static_cast<size_t*>(kOther));
     }},
    {"DSGetNumBufferParts", Shell::Stub, " Entry! hDataStream:<h> hBuffer:0xC0DE",
     [](void* h) { return DSGetNumBufferParts(h, kOther, static_cast<uint32_t*>(kOther)); }},
    {"DSGetBufferPartInfo", Shell::Stub,
     " Entry! hDataStream:<h> hBuffer:0xC0DE iPartIndex:5 iInfoCmd:6",
     [](void* h) {
         return DSGetBufferPartInfo(h, kOther, 5, 6, static_cast<INFO_DATATYPE*>(kOther), kOther,
                                    static_cast<size_t*>(kOther));
     }},
    {"IFGetParentTL", Shell::Stub, " Entry! hIface:<h>",
     [](void* h) { return IFGetParentTL(h, static_cast<TL_HANDLE*>(kOther)); }},
    {"DevGetParentIF", Shell::Stub, " Entry! hDevice:<h>",
     [](void* h) { return DevGetParentIF(h, static_cast<IF_HANDLE*>(kOther)); }},
    {"DSGetParentDev", Shell::Stub, " Entry! hDataStream:<h>",
     [](void* h) { return DSGetParentDev(h, static_cast<DEV_HANDLE*>(kOther)); }},
    {"ZrForceIPConfig", Shell::Stub, " Entry", [](void*) { return ZrForceIPConfig(); }},
    {"ZrSetIPConfig", Shell::Stub, " Entry", [](void*) { return ZrSetIPConfig(); }},
};

std::string EntryLine(const EntryRow& row, const std::string& handle)
{
    std::string line = std::string(row.name) + row.entry;
    if (const size_t at = line.find("<h>"); at != std::string::npos) {
        line.replace(at, 3, handle);
    }
    return line;
}

GC_ERROR NotFoundStatus(Shell shell)
{
    return shell == Shell::Stub ? -1003 : -1006;
}

std::vector<TracedLine> NotFoundLines(const EntryRow& row, const std::string& handle)
{
    const std::string name = row.name;
    std::vector<TracedLine> lines = {DebugLine(EntryLine(row, handle))};
    switch (row.shell) {
    case Shell::Standard:
        lines.push_back(ErrorLine(name + " Failed: GC_ERR_INVALID_HANDLE"));
        break;
    case Shell::Event:
    case Shell::EventKill: lines.push_back(ErrorLine(name + " GC_ERR_INVALID_HANDLE")); break;
    case Shell::Port: lines.push_back(ErrorLine(name + " Failed:-1006")); break;
    case Shell::RegisterEvent:
        lines.push_back(ErrorLine("GCRegisterEvent Failed:-1006 iEventID:4"));
        break;
    case Shell::CloseSystem:
        lines.push_back(ErrorLine("CloseSystemModule Failed: GC_ERR_INVALID_HANDLE"));
        lines.push_back(ErrorLine("TLClose Failed:-1006"));
        break;
    case Shell::Stub: break;
    }
    return lines;
}

LastError NotFoundLastError(Shell shell)
{
    switch (shell) {
    case Shell::EventKill: return {-1009, "GC_ERR_INVALID_PARAMETER"}; // what was there before
    case Shell::Stub: return {-1003, "GC_ERR_NOT_IMPLEMENTED"};
    default: return {-1006, "GC_ERR_INVALID_HANDLE"};
    }
}

std::string RowName(const ::testing::TestParamInfo<EntryRow>& row)
{
    return row.param.name;
}

void ExpectNotInitialized(const EntryRow& row)
{
    TraceCapture trace;
    EXPECT_EQ(row.call(kForeign), -1002);
    const std::vector<TracedLine> expected = {
        DebugLine(EntryLine(row, "0xABCD1234")),
        ErrorLine(std::string(row.name) + " GC_ERR_NOT_INITIALIZED")};
    EXPECT_EQ(trace.Lines(), expected);
    EXPECT_EQ(ReadLastError(), (LastError{-1002, "GC_ERR_NOT_INITIALIZED"}));
}

class EntryTable : public InterfaceTest, public ::testing::WithParamInterface<EntryRow>
{
protected:
    // Calls with a handle that names nothing and compares everything that can be seen.
    void ExpectNotFound(void* handle, const std::string& handleText)
    {
        const EntryRow& row = GetParam();
        LeaveParameterError(m_tl);
        TraceCapture trace;
        EXPECT_EQ(row.call(handle), NotFoundStatus(row.shell));
        EXPECT_EQ(trace.Lines(), NotFoundLines(row, handleText));
        EXPECT_EQ(ReadLastError(), NotFoundLastError(row.shell));
    }
};

TEST_P(EntryTable, ForeignHandle_AnsweredTracedAndRecordedAsItsShellSays)
{
    ExpectNotFound(kForeign, "0xABCD1234");
}

TEST_P(EntryTable, NullHandle_AnsweredLikeForeign)
{
    ExpectNotFound(nullptr, "0x0");
}

// The handle was an interface's, and on it an event's.
TEST_P(EntryTable, StaleHandle_AnsweredLikeForeign)
{
    EVENT_HANDLE event = nullptr;
    ASSERT_EQ(GCRegisterEvent(m_iface, EVENT_ERROR, &event), GC_ERR_SUCCESS);
    ASSERT_EQ(IFClose(m_iface), GC_ERR_SUCCESS);
    ExpectNotFound(m_iface, HandleText(m_iface));
    ExpectNotFound(event, HandleText(event));
}

TEST_P(EntryTable, AfterCloseLib_NotInitialized)
{
    ASSERT_EQ(GCCloseLib(), GC_ERR_SUCCESS);
    ExpectNotInitialized(GetParam());
}

INSTANTIATE_TEST_SUITE_P(Exports, EntryTable, ::testing::ValuesIn(kRows), RowName);

class EntryTableUninitialized : public LibraryTest, public ::testing::WithParamInterface<EntryRow>
{
};

TEST_P(EntryTableUninitialized, BeforeInitLib_NotInitializedTracedAndRecorded)
{
    ExpectNotInitialized(GetParam());
}

INSTANTIATE_TEST_SUITE_P(Exports, EntryTableUninitialized, ::testing::ValuesIn(kRows), RowName);

// ---- a NULL text is traced as "NULL"

class EntryText : public InterfaceTest
{
protected:
    static std::string EntryOf(const std::vector<TracedLine>& lines)
    {
        return lines.empty() ? std::string() : lines.front().message;
    }
};

TEST_F(EntryText, NullTexts_TracedAsNull)
{
    TraceCapture trace;
    EXPECT_EQ(TLGetInterfaceInfo(kForeign, nullptr, 1, nullptr, nullptr, nullptr), -1006);
    EXPECT_EQ(EntryOf(trace.Lines()),
              "TLGetInterfaceInfo Entry! hTL:0xABCD1234 sIfaceID:NULL iInfoCmd:1");
    trace.Clear();
    EXPECT_EQ(TLOpenInterface(kForeign, nullptr, nullptr), -1006);
    EXPECT_EQ(EntryOf(trace.Lines()), "TLOpenInterface Entry! hTL:0xABCD1234 sIfaceID:NULL");
    trace.Clear();
    EXPECT_EQ(IFGetDeviceInfo(kForeign, nullptr, 5, nullptr, nullptr, nullptr), -1006);
    EXPECT_EQ(EntryOf(trace.Lines()),
              "IFGetDeviceInfo Entry! hIface:0xABCD1234 sDeviceID:NULL iInfoCmd:5");
    trace.Clear();
    EXPECT_EQ(IFOpenDevice(kForeign, nullptr, 4, nullptr), -1006);
    EXPECT_EQ(EntryOf(trace.Lines()),
              "IFOpenDevice Entry! hIface:0xABCD1234 sDeviceID:NULL iOpenFlags:4");
    trace.Clear();
    EXPECT_EQ(DevOpenDataStream(kForeign, nullptr, nullptr), -1006);
    EXPECT_EQ(EntryOf(trace.Lines()),
              "DevOpenDataStream Entry! hDevice:0xABCD1234 sDataStreamID:NULL");
}

} // namespace
