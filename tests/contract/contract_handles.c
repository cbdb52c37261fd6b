/*
 * The contract of every exported function towards its handle and towards the order of calls: before
 * initialisation, with a null, a foreign and a stale handle. Every call is made on a thread of its
 * own, whose last error is empty to begin with, so that what the call records is seen exactly.
 */
#include <pthread.h>
#include <stdio.h>
#include <string.h>

#include "producer.h"
#include "session.h"
#include "tap.h"

enum shell
{
    SHELL_SYSTEM,
    SHELL_INTERFACE,
    SHELL_DEVICE,
    SHELL_STREAM,
    SHELL_PORT,  /* any module */
    SHELL_EVENT, /* an event of any module */
    SHELL_STUB,  /* declared by the standard, not served: looks at no argument */
    SHELL_LIBRARY
};

/* What the calls below write to. One call at a time. */
static struct
{
    INFO_DATATYPE type;
    size_t size;
    uint32_t count;
    bool8_t changed;
    void* handle;
    void* other;
    char buffer[2048];
} out;

/* One caller per export: the handle in question and otherwise harmless arguments. */
#define CALLER(function, ...)                                                                      \
    static GC_ERROR call_##function(void* h)                                                       \
    {                                                                                              \
        (void)h;                                                                                   \
        return gentl.function(__VA_ARGS__);                                                        \
    }
CALLER(GCCloseLib)
CALLER(GCGetInfo, TL_INFO_ID, &out.type, out.buffer, &out.size)
CALLER(TLOpen, &out.handle)
CALLER(TLClose, h)
CALLER(TLGetInfo, h, TL_INFO_ID, &out.type, out.buffer, &out.size)
CALLER(TLGetNumInterfaces, h, &out.count)
CALLER(TLGetInterfaceID, h, 0, out.buffer, &out.size)
CALLER(TLGetInterfaceInfo, h, "x", INTERFACE_INFO_ID, &out.type, out.buffer, &out.size)
CALLER(TLOpenInterface, h, "x", &out.handle)
CALLER(TLUpdateInterfaceList, h, &out.changed, 10)
CALLER(IFClose, h)
CALLER(IFGetInfo, h, INTERFACE_INFO_ID, &out.type, out.buffer, &out.size)
CALLER(IFGetNumDevices, h, &out.count)
CALLER(IFGetDeviceID, h, 0, out.buffer, &out.size)
CALLER(IFUpdateDeviceList, h, &out.changed, 10)
CALLER(IFGetDeviceInfo, h, "x", DEVICE_INFO_ID, &out.type, out.buffer, &out.size)
CALLER(IFOpenDevice, h, "x", DEVICE_ACCESS_CONTROL, &out.handle)
CALLER(DevGetPort, h, &out.handle)
CALLER(DevGetNumDataStreams, h, &out.count)
CALLER(DevGetDataStreamID, h, 0, out.buffer, &out.size)
CALLER(DevOpenDataStream, h, "0", &out.handle)
CALLER(DevGetInfo, h, DEVICE_INFO_ID, &out.type, out.buffer, &out.size)
CALLER(DevClose, h)
CALLER(DSAnnounceBuffer, h, out.buffer, sizeof out.buffer, NULL, &out.handle)
CALLER(DSAllocAndAnnounceBuffer, h, 64, NULL, &out.handle)
CALLER(DSFlushQueue, h, ACQ_QUEUE_OUTPUT_DISCARD)
CALLER(DSStartAcquisition, h, ACQ_START_FLAGS_DEFAULT, 1)
CALLER(DSStopAcquisition, h, ACQ_STOP_FLAGS_DEFAULT)
CALLER(DSGetInfo, h, STREAM_INFO_ID, &out.type, out.buffer, &out.size)
CALLER(DSGetBufferID, h, 0, &out.handle)
CALLER(DSClose, h)
CALLER(DSRevokeBuffer, h, out.buffer, &out.handle, &out.other)
CALLER(DSQueueBuffer, h, out.buffer)
CALLER(DSGetBufferInfo, h, out.buffer, BUFFER_INFO_SIZE, &out.type, out.buffer, &out.size)
CALLER(GCReadPort, h, 0, out.buffer, &out.size)
CALLER(GCWritePort, h, 0, out.buffer, &out.size)
CALLER(GCReadPortStacked, h, (PORT_REGISTER_STACK_ENTRY*)out.buffer, &out.size)
CALLER(GCWritePortStacked, h, (PORT_REGISTER_STACK_ENTRY*)out.buffer, &out.size)
CALLER(GCGetPortURL, h, out.buffer, &out.size)
CALLER(GCGetPortInfo, h, PORT_INFO_ID, &out.type, out.buffer, &out.size)
CALLER(GCGetNumPortURLs, h, &out.count)
CALLER(GCGetPortURLInfo, h, 0, URL_INFO_URL, &out.type, out.buffer, &out.size)
CALLER(GCRegisterEvent, h, EVENT_NEW_BUFFER, &out.handle)
CALLER(GCUnregisterEvent, h, EVENT_NEW_BUFFER)
CALLER(EventGetData, h, out.buffer, &out.size, 0)
CALLER(EventGetDataInfo, h, out.buffer, 16, EVENT_DATA_ID, &out.type, out.buffer, &out.size)
CALLER(EventGetInfo, h, EVENT_EVENT_TYPE, &out.type, out.buffer, &out.size)
CALLER(EventFlush, h)
CALLER(EventKill, h)
CALLER(DSGetBufferChunkData, h, NULL, NULL, NULL)
CALLER(DSGetNumBufferParts, h, NULL, NULL)
CALLER(DSGetBufferPartInfo, h, NULL, 0, BUFFER_PART_INFO_BASE, NULL, NULL, NULL)
CALLER(IFGetParentTL, h, NULL)
CALLER(DevGetParentIF, h, NULL)
CALLER(DSGetParentDev, h, NULL)
CALLER(ZrForceIPConfig)
CALLER(ZrSetIPConfig)

struct export_row
{
    const char* name;
    enum shell shell;
    GC_ERROR (*call)(void* handle);
};

#define ROW(shell, function)                                                                       \
    {                                                                                              \
#function, SHELL_##shell, call_##function                                                  \
    }
static const struct export_row exports[] = {
    ROW(LIBRARY, GCCloseLib),
    ROW(LIBRARY, GCGetInfo),
    ROW(LIBRARY, TLOpen),
    ROW(SYSTEM, TLClose),
    ROW(SYSTEM, TLGetInfo),
    ROW(SYSTEM, TLGetNumInterfaces),
    ROW(SYSTEM, TLGetInterfaceID),
    ROW(SYSTEM, TLGetInterfaceInfo),
    ROW(SYSTEM, TLOpenInterface),
    ROW(SYSTEM, TLUpdateInterfaceList),
    ROW(INTERFACE, IFClose),
    ROW(INTERFACE, IFGetInfo),
    ROW(INTERFACE, IFGetNumDevices),
    ROW(INTERFACE, IFGetDeviceID),
    ROW(INTERFACE, IFUpdateDeviceList),
    ROW(INTERFACE, IFGetDeviceInfo),
    ROW(INTERFACE, IFOpenDevice),
    ROW(DEVICE, DevGetPort),
    ROW(DEVICE, DevGetNumDataStreams),
    ROW(DEVICE, DevGetDataStreamID),
    ROW(DEVICE, DevOpenDataStream),
    ROW(DEVICE, DevGetInfo),
    ROW(DEVICE, DevClose),
    ROW(STREAM, DSAnnounceBuffer),
    ROW(STREAM, DSAllocAndAnnounceBuffer),
    ROW(STREAM, DSFlushQueue),
    ROW(STREAM, DSStartAcquisition),
    ROW(STREAM, DSStopAcquisition),
    ROW(STREAM, DSGetInfo),
    ROW(STREAM, DSGetBufferID),
    ROW(STREAM, DSClose),
    ROW(STREAM, DSRevokeBuffer),
    ROW(STREAM, DSQueueBuffer),
    ROW(STREAM, DSGetBufferInfo),
    ROW(PORT, GCReadPort),
    ROW(PORT, GCWritePort),
    ROW(PORT, GCReadPortStacked),
    ROW(PORT, GCWritePortStacked),
    ROW(PORT, GCGetPortURL),
    ROW(PORT, GCGetPortInfo),
    ROW(PORT, GCGetNumPortURLs),
    ROW(PORT, GCGetPortURLInfo),
    ROW(PORT, GCRegisterEvent),
    ROW(PORT, GCUnregisterEvent),
    ROW(EVENT, EventGetData),
    ROW(EVENT, EventGetDataInfo),
    ROW(EVENT, EventGetInfo),
    ROW(EVENT, EventFlush),
    ROW(EVENT, EventKill),
    ROW(STUB, DSGetBufferChunkData),
    ROW(STUB, DSGetNumBufferParts),
    ROW(STUB, DSGetBufferPartInfo),
    ROW(STUB, IFGetParentTL),
    ROW(STUB, DevGetParentIF),
    ROW(STUB, DSGetParentDev),
    ROW(STUB, ZrForceIPConfig),
    ROW(STUB, ZrSetIPConfig),
};
static const size_t export_count = sizeof exports / sizeof exports[0];

struct observed_call
{
    const struct export_row* row;
    void* handle;
    GC_ERROR result;
    GC_ERROR code_before;
    GC_ERROR code_after;
    char text_after[64];
};

static void* make_call(void* argument)
{
    struct observed_call* call = argument;
    size_t size = sizeof call->text_after;
    gentl.GCGetLastError(&call->code_before, call->text_after, &size);
    call->result = call->row->call(call->handle);
    size = sizeof call->text_after;
    memset(call->text_after, '?', sizeof call->text_after);
    gentl.GCGetLastError(&call->code_after, call->text_after, &size);
    return NULL;
}

static struct observed_call observe(const struct export_row* row, void* handle)
{
    struct observed_call call = {.row = row, .handle = handle};
    memset(&out, 0, sizeof out);
    out.size = sizeof out.buffer;
    pthread_t thread;
    if (pthread_create(&thread, NULL, make_call, &call) != 0) {
        tap_bail_out("no thread");
    }
    pthread_join(thread, NULL);
    return call;
}

/* The call fails with a status, which becomes the thread's last error; or, for the one function
 * that is quiet about an unknown handle, does not. */
static void expect_failure(const struct export_row* row, void* handle, GC_ERROR status,
                           const char* situation)
{
    struct observed_call call = observe(row, handle);
    int recorded = !(row->call == call_EventKill && status == GC_ERR_INVALID_HANDLE);
    CHECK_EQUAL(call.result, status, "%s, %s: status", row->name, situation);
    CHECK_EQUAL(call.code_before, 0, "%s, %s: a new thread has no error", row->name, situation);
    CHECK_EQUAL(call.code_after, recorded ? status : 0, "%s, %s: last error", row->name, situation);
    CHECK_TEXT(call.text_after, status_text(recorded ? status : 0), "%s, %s: its text", row->name,
               situation);
}

static void everything_fails_uninitialised(const char* situation, void* handle)
{
    for (size_t i = 0; i < export_count; i++) {
        expect_failure(&exports[i], handle, GC_ERR_NOT_INITIALIZED, situation);
    }
}

static const struct export_row* row_of(const char* name)
{
    for (size_t i = 0; i < export_count; i++) {
        if (strcmp(exports[i].name, name) == 0) {
            return &exports[i];
        }
    }
    tap_bail_out("no row for %s", name);
}

/* Whether the function may be called at all with something that is not its handle. */
static int takes_handle(const struct export_row* row)
{
    return row->shell != SHELL_LIBRARY && row->shell != SHELL_STUB;
}

static void unknown_handle_everywhere(void* handle, const char* situation)
{
    for (size_t i = 0; i < export_count; i++) {
        if (takes_handle(&exports[i])) {
            expect_failure(&exports[i], handle, GC_ERR_INVALID_HANDLE, situation);
        }
    }
}

static void stubs_answer_not_implemented(void* handle, const char* situation)
{
    for (size_t i = 0; i < export_count; i++) {
        if (exports[i].shell == SHELL_STUB) {
            expect_failure(&exports[i], handle, GC_ERR_NOT_IMPLEMENTED, situation);
        }
    }
}

/* Handles of other kinds, alive while this runs. A port function takes every module. */
static void foreign_handles(const struct session* session)
{
    const struct
    {
        const char* name;
        enum shell kind;
        void* handle;
    } handles[] = {
        {"a system handle", SHELL_SYSTEM, session->system},
        {"an interface handle", SHELL_INTERFACE, session->interface},
        {"a device handle", SHELL_DEVICE, session->device},
        {"a stream handle", SHELL_STREAM, session->stream},
        {"a remote device handle", SHELL_PORT, session->remote},
        {"an event handle", SHELL_EVENT, session->event},
        {"a buffer handle", SHELL_LIBRARY, session->buffers[0]},
    };
    for (size_t h = 0; h < sizeof handles / sizeof handles[0]; h++) {
        int is_module = handles[h].kind != SHELL_EVENT && handles[h].kind != SHELL_LIBRARY;
        for (size_t i = 0; i < export_count; i++) {
            int served = exports[i].shell == handles[h].kind ||
                         (exports[i].shell == SHELL_PORT && is_module);
            if (takes_handle(&exports[i]) && !served) {
                expect_failure(&exports[i], handles[h].handle, GC_ERR_INVALID_HANDLE,
                               handles[h].name);
            }
        }
    }
}

/* The module that a handle named is gone; each function of its kind says so. */
static void stale_handle(enum shell kind, void* handle, const char* situation)
{
    for (size_t i = 0; i < export_count; i++) {
        int concerned = exports[i].shell == kind || (exports[i].shell == SHELL_PORT &&
                                                     kind != SHELL_EVENT && kind != SHELL_LIBRARY);
        /* The system object outlives its closing; TLClose knows it and says that it is not open. */
        if (concerned && exports[i].call == call_TLClose) {
            expect_failure(&exports[i], handle, GC_ERR_ERROR, situation);
        } else if (concerned) {
            expect_failure(&exports[i], handle, GC_ERR_INVALID_HANDLE, situation);
        }
    }
}

/* Second opening, and lists that have not been asked for, before anything is open below. */
static void opening_rules(void)
{
    CHECK_EQUAL(gentl.GCInitLib(), GC_ERR_RESOURCE_IN_USE, "GCInitLib twice");
    GC_ERROR code = 0;
    char text[64];
    size_t size = sizeof text;
    CHECK_EQUAL(gentl.GCGetLastError(&code, text, &size), 0, "last error after it");
    CHECK_EQUAL(code, GC_ERR_RESOURCE_IN_USE, "its code");
    CHECK_TEXT(text, "GC_ERR_RESOURCE_IN_USE", "its text");
    CHECK_EQUAL(size, sizeof "GC_ERR_RESOURCE_IN_USE", "its size counts the zero");

    int occupied = 0;
    TL_HANDLE handle = &occupied;
    CHECK_EQUAL(gentl.TLOpen(&handle), GC_ERR_INVALID_HANDLE, "TLOpen into an occupied variable");
    CHECK(handle == &occupied, "which stays as it was");
}

static void last_error_arguments(void)
{
    GC_ERROR code = 42;
    char text[64] = "untouched";
    size_t size = 3;
    CHECK_EQUAL(gentl.GCGetLastError(NULL, text, &size), GC_ERR_INVALID_PARAMETER,
                "GCGetLastError without a code pointer");
    CHECK_EQUAL(gentl.GCGetLastError(&code, text, NULL), GC_ERR_INVALID_PARAMETER,
                "GCGetLastError without a size pointer");
    gentl.TLGetNumInterfaces(NULL, NULL); /* leaves "GC_ERR_INVALID_HANDLE" */
    size = strlen("GC_ERR_INVALID_HANDLE");
    CHECK_EQUAL(gentl.GCGetLastError(&code, text, &size), GC_ERR_BUFFER_TOO_SMALL,
                "GCGetLastError without room for the zero");
    CHECK(code == 42 && size == 21 && strcmp(text, "untouched") == 0, "writes nothing then");
    CHECK_EQUAL(gentl.GCGetLastError(&code, NULL, &size), 0, "GCGetLastError as a size query");
    CHECK_EQUAL(size, 22, "gives the size");
    CHECK_EQUAL(code, GC_ERR_INVALID_HANDLE, "and the code");
    gentl.GCGetInfo(TL_INFO_ID, &out.type, NULL, &size);
    gentl.GCGetLastError(&code, NULL, &size);
    CHECK_EQUAL(code, GC_ERR_INVALID_HANDLE, "a success leaves the last error in place");
}

static void open_handles(struct session* session)
{
    unknown_handle_everywhere(NULL, "null handle");
    unknown_handle_everywhere(session, "an address of the consumer's");
    unknown_handle_everywhere((void*)UINTPTR_MAX, "an address that cannot be");
    unknown_handle_everywhere((char*)session->stream + 1, "one byte into a module");
    stubs_answer_not_implemented(NULL, "null handle");
    stubs_answer_not_implemented(session->stream, "a live handle");
    foreign_handles(session);
}

static void close_from_below(struct session* session)
{
    void* const event = session->event;
    CHECK_EQUAL(gentl.GCUnregisterEvent(session->stream, EVENT_NEW_BUFFER), 0, "unregister");
    stale_handle(SHELL_EVENT, event, "an unregistered event");
    CHECK_EQUAL(gentl.DSClose(session->stream), 0, "DSClose");
    /* The stream object lives as long as its device; closed, it can be opened again. */
    expect_failure(row_of("DSClose"), session->stream, GC_ERR_NOT_INITIALIZED, "a closed stream");
    CHECK_EQUAL(gentl.DevClose(session->device), 0, "DevClose");
    session_free_memory(session);
    stale_handle(SHELL_STREAM, session->stream, "a stream of a closed device");
    stale_handle(SHELL_PORT, session->remote, "the port of a closed device");
    stale_handle(SHELL_DEVICE, session->device, "a closed device");
    CHECK_EQUAL(gentl.IFClose(session->interface), 0, "IFClose");
    stale_handle(SHELL_INTERFACE, session->interface, "a closed interface");
    CHECK_EQUAL(gentl.TLClose(session->system), 0, "TLClose");
    stale_handle(SHELL_SYSTEM, session->system, "a closed system");
}

/* A parent takes its children with it, whatever they were doing. */
static void close_from_above(void)
{
    struct session session;
    session_open(&session, 2);
    CHECK_EQUAL(gentl.TLClose(session.system), 0, "TLClose with everything open");
    session_free_memory(&session);
    stale_handle(SHELL_EVENT, session.event, "an event below a closed system");
    stale_handle(SHELL_STREAM, session.stream, "a stream below a closed system");
    stale_handle(SHELL_DEVICE, session.device, "a device below a closed system");
    stale_handle(SHELL_INTERFACE, session.interface, "an interface below a closed system");
    session_open(&session, 2);
    CHECK_EQUAL(gentl.GCCloseLib(), 0, "GCCloseLib with everything open");
    session_free_memory(&session);
    everything_fails_uninitialised("after GCCloseLib, with a stream of before", session.stream);
}

int main(int count, char** arguments)
{
    if (count != 2) {
        tap_bail_out("usage: %s <zr_u3v_tl.cti>", arguments[0]);
    }
    void* const library = producer_load(arguments[1]);
    virtual_bus_find(library);
    bus.reset();
    bus.add_camera("");

    everything_fails_uninitialised("before GCInitLib", NULL);
    CHECK_EQUAL(gentl.GCInitLib(), 0, "GCInitLib");
    opening_rules();
    last_error_arguments();
    unknown_handle_everywhere(NULL, "null handle with nothing open");

    struct session session;
    session_open(&session, 2);
    open_handles(&session);
    close_from_below(&session);
    close_from_above();
    CHECK_EQUAL(gentl.GCInitLib(), 0, "GCInitLib after GCCloseLib");
    CHECK_EQUAL(gentl.GCCloseLib(), 0, "GCCloseLib");
    CHECK_EQUAL(bus.violations(NULL), 0, "no rule of libusb was broken");
    producer_unload(library);
    return tap_finish();
}
