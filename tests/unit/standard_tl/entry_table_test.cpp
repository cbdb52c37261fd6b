// Every exported function that takes a handle, with handles that it must not follow.

#include "standard_fixture.h"

#include <set>

namespace standard_tl {
namespace {

// What kind of object a function's first handle names.
enum class HandleKind
{
    Port, // any module
    Event,
    System,
    Interface,
    Device,
    Stream,
};

struct EntryRow
{
    const char* name;
    HandleKind kind;
    GC_ERROR (*call)(void* handle);
};

size_t g_size;
uint32_t g_number;
uint64_t g_bytes;
void* g_handle;

#define CALL(function, kind, ...)                                                                  \
    {                                                                                              \
#function, HandleKind::kind,                                                               \
            [](void* h) { return function(h __VA_OPT__(, ) __VA_ARGS__); }                         \
    }
// The same for functions of a buffer.
#define BUFFER(function, ...)                                                                      \
    {                                                                                              \
#function, HandleKind::Stream,                                                             \
            [](void* h) { return function(h, nullptr __VA_OPT__(, ) __VA_ARGS__); }                \
    }
#define INFO 0, nullptr, nullptr, &g_size

const EntryRow kEntryRows[] = {
    CALL(GCReadPort, Port, 0, &g_bytes, &g_size),
    CALL(GCWritePort, Port, 0, &g_bytes, &g_size),
    CALL(GCReadPortStacked, Port, nullptr, &g_size),
    CALL(GCWritePortStacked, Port, nullptr, &g_size),
    CALL(GCGetPortInfo, Port, INFO),
    CALL(GCGetPortURL, Port, nullptr, &g_size),
    CALL(GCGetNumPortURLs, Port, &g_number),
    CALL(GCGetPortURLInfo, Port, 0, INFO),
    CALL(GCRegisterEvent, Port, EVENT_ERROR, &g_handle),
    CALL(GCUnregisterEvent, Port, EVENT_ERROR),
    CALL(EventGetData, Event, &g_bytes, &g_size, 0),
    CALL(EventGetDataInfo, Event, &g_bytes, 8, INFO),
    CALL(EventGetInfo, Event, INFO),
    CALL(EventFlush, Event),
    CALL(EventKill, Event),
    CALL(TLClose, System),
    CALL(TLGetInfo, System, INFO),
    CALL(TLGetNumInterfaces, System, &g_number),
    CALL(TLGetInterfaceID, System, 0, nullptr, &g_size),
    CALL(TLGetInterfaceInfo, System, "ZRK-USB", INFO),
    CALL(TLOpenInterface, System, "ZRK-USB", &g_handle),
    CALL(TLUpdateInterfaceList, System, nullptr, 0),
    CALL(IFClose, Interface),
    CALL(IFGetInfo, Interface, INFO),
    CALL(IFGetParentTL, Interface, &g_handle),
    CALL(IFUpdateDeviceList, Interface, nullptr, 0),
    CALL(IFGetNumDevices, Interface, &g_number),
    CALL(IFGetDeviceID, Interface, 0, nullptr, &g_size),
    CALL(IFGetDeviceInfo, Interface, "CAM1", INFO),
    CALL(IFOpenDevice, Interface, "CAM1", DEVICE_ACCESS_CONTROL, &g_handle),
    CALL(DevClose, Device),
    CALL(DevGetInfo, Device, INFO),
    CALL(DevGetParentIF, Device, &g_handle),
    CALL(DevGetPort, Device, &g_handle),
    CALL(DevGetNumDataStreams, Device, &g_number),
    CALL(DevGetDataStreamID, Device, 0, nullptr, &g_size),
    CALL(DevOpenDataStream, Device, "Stream0", &g_handle),
    CALL(DSClose, Stream),
    CALL(DSGetInfo, Stream, INFO),
    CALL(DSGetParentDev, Stream, &g_handle),
    CALL(DSStartAcquisition, Stream, 0, GENTL_INFINITE),
    CALL(DSStopAcquisition, Stream, 0),
    CALL(DSFlushQueue, Stream, ACQ_QUEUE_ALL_DISCARD),
    CALL(DSGetNumFlows, Stream, &g_number),
    CALL(DSGetFlowInfo, Stream, 0, INFO),
    CALL(DSAnnounceBuffer, Stream, &g_bytes, 8, nullptr, &g_handle),
    CALL(DSAllocAndAnnounceBuffer, Stream, 8, nullptr, &g_handle),
    CALL(DSAnnounceCompositeBuffer, Stream, 0, nullptr, nullptr, nullptr, &g_handle),
    CALL(DSGetBufferID, Stream, 0, &g_handle),
    BUFFER(DSRevokeBuffer, nullptr, nullptr),
    BUFFER(DSQueueBuffer),
    BUFFER(DSGetBufferInfo, INFO),
    BUFFER(DSGetBufferInfoStacked, nullptr, 0),
    BUFFER(DSGetBufferChunkData, nullptr, &g_size),
    BUFFER(DSGetNumBufferParts, &g_number),
    BUFFER(DSGetBufferPartInfo, 0, INFO),
    BUFFER(DSGetBufferPartInfoStacked, nullptr, 0),
    BUFFER(DSGetNumBufferSegments, &g_number),
    BUFFER(DSGetBufferSegmentInfo, 0, INFO),
};

#undef CALL
#undef BUFFER
#undef INFO

class EntryTable : public StandardTest
{
protected:
    void ExpectRefused(const EntryRow& row, void* handle, const char* what)
    {
        SCOPED_TRACE(std::string(row.name) + " with " + what);
        EXPECT_EQ(row.call(handle), GC_ERR_INVALID_HANDLE);
        const LastError last = TheLastError();
        EXPECT_EQ(last.code, GC_ERR_INVALID_HANDLE);
        EXPECT_EQ(last.text.find(std::string(row.name) + ": GC_ERR_INVALID_HANDLE: "), 0U)
            << last.text;
    }
};

// The five without a handle: GCInitLib, GCCloseLib, GCGetInfo, GCGetLastError, TLOpen.
TEST_F(EntryTable, Rows_AreAllFunctionsWithAHandle)
{
    std::set<std::string> names;
    for (const EntryRow& row : kEntryRows) {
        names.insert(row.name);
    }
    EXPECT_EQ(names.size(), 64U - 5U);
}

TEST_F(EntryTable, BeforeInitLib_EveryFunction_IsNotInitialized)
{
    void* const stream = Stream();
    ASSERT_EQ(GCCloseLib(), GC_ERR_SUCCESS);
    for (const EntryRow& row : kEntryRows) {
        EXPECT_EQ(row.call(stream), GC_ERR_NOT_INITIALIZED) << row.name;
        EXPECT_EQ(TheLastError().text,
                  std::string(row.name) + ": GC_ERR_NOT_INITIALIZED: GCInitLib comes first");
    }
    EXPECT_EQ(TLOpen(&g_handle), GC_ERR_NOT_INITIALIZED);
}

TEST_F(EntryTable, NullHandle_EveryFunction_IsInvalidHandle)
{
    for (const EntryRow& row : kEntryRows) {
        ExpectRefused(row, nullptr, "NULL");
    }
}

TEST_F(EntryTable, MadeUpHandle_EveryFunction_IsInvalidHandle)
{
    for (const EntryRow& row : kEntryRows) {
        ExpectRefused(row, &g_bytes, "an address");
        ExpectRefused(row, reinterpret_cast<void*>(UINTPTR_MAX), "all bits");
        ExpectRefused(row, reinterpret_cast<void*>(1), "1");
    }
}

TEST_F(EntryTable, StaleHandle_EveryFunction_IsInvalidHandle)
{
    DS_HANDLE stream = Stream();
    EVENT_HANDLE event = Register(stream, EVENT_NEW_BUFFER);
    DEV_HANDLE device = Device();
    IF_HANDLE interface = Interface();
    TL_HANDLE system = System();
    ASSERT_EQ(TLClose(system), GC_ERR_SUCCESS);
    for (const EntryRow& row : kEntryRows) {
        for (void* const stale : {system, interface, device, stream, event}) {
            ExpectRefused(row, stale, "a stale one");
        }
    }
}

TEST_F(EntryTable, HandleOfAnotherKind_EveryFunction_IsInvalidHandle)
{
    Stream();
    EVENT_HANDLE event = Register(Stream(), EVENT_NEW_BUFFER);
    BUFFER_HANDLE buffer = nullptr;
    ASSERT_EQ(DSAllocAndAnnounceBuffer(Stream(), 8, nullptr, &buffer), GC_ERR_SUCCESS);
    const std::pair<HandleKind, void*> handles[] = {{HandleKind::Event, event},
                                                    {HandleKind::System, System()},
                                                    {HandleKind::Interface, Interface()},
                                                    {HandleKind::Device, Device()},
                                                    {HandleKind::Stream, Stream()}};
    for (const EntryRow& row : kEntryRows) {
        ExpectRefused(row, buffer, "a buffer");
        for (const auto& [kind, handle] : handles) {
            const bool isPort = row.kind == HandleKind::Port && kind != HandleKind::Event;
            if (kind != row.kind && !isPort) {
                ExpectRefused(row, handle, "another kind");
            }
        }
    }
}

TEST_F(EntryTable, BufferOfNoOrAnotherStream_EveryFunction_IsInvalidHandle)
{
    fake_host::Camera& other = bus.Plug("CAM2");
    ASSERT_EQ(IFUpdateDeviceList(Interface(), nullptr, GENTL_INFINITE), GC_ERR_SUCCESS);
    DEV_HANDLE device = nullptr;
    DS_HANDLE stream = nullptr;
    BUFFER_HANDLE buffer = nullptr;
    ASSERT_EQ(IFOpenDevice(Interface(), "CAM2", DEVICE_ACCESS_CONTROL, &device), GC_ERR_SUCCESS);
    ASSERT_EQ(DevOpenDataStream(device, "Stream0", &stream), GC_ERR_SUCCESS);
    ASSERT_EQ(DSAllocAndAnnounceBuffer(stream, 8, nullptr, &buffer), GC_ERR_SUCCESS);
    EXPECT_TRUE(other.mode.has_value());
    size_t size = 0;
    EXPECT_EQ(DSGetBufferInfo(Stream(), buffer, 0, nullptr, nullptr, &size), GC_ERR_INVALID_HANDLE);
    EXPECT_EQ(DSQueueBuffer(Stream(), buffer), GC_ERR_INVALID_HANDLE);
    EXPECT_EQ(DSRevokeBuffer(Stream(), buffer, nullptr, nullptr), GC_ERR_INVALID_HANDLE);
    EXPECT_EQ(DSQueueBuffer(stream, buffer), GC_ERR_SUCCESS);
}

} // namespace
} // namespace standard_tl
