/* A consumer outside the source tree, built by pkg-config and by CMake: linked with the installed
 * library, on the virtual bus. Takes images, and holds the producer to what
 * docs/other-applications.md tells about it. Ends with the number of answers that were different.
 * With nothing but what is installed, on purpose.
 */
#include <stdio.h>
#include <string.h>
#include <zr_u3v_tl/gentl.h>
#include <zr_u3v_tl/u3v_lib.h>

static int failures = 0;

static void expect(long long found, long long wanted, const char* what)
{
    if (found != wanted) {
        fprintf(stderr, "not ok: %s: %lld instead of %lld\n", what, found, wanted);
        failures++;
    }
}

static void lists(TL_HANDLE system, IF_HANDLE* interface)
{
    uint32_t count = 99;
    expect(TLOpenInterface(system, "ZRK-USB-3-IF ID", interface), GC_ERR_INVALID_ID,
           "no interface before the update");
    expect(TLUpdateInterfaceList(system, NULL, 100), 0, "TLUpdateInterfaceList");
    expect(TLOpenInterface(system, "ZRK-USB-3-IF ID", interface), 0, "TLOpenInterface");
    expect(IFUpdateDeviceList(*interface, NULL, 0), 0, "a search of no time");
    expect(IFGetNumDevices(*interface, &count), 0, "IFGetNumDevices");
    expect(count, 0, "finds nothing");
    expect(IFUpdateDeviceList(*interface, NULL, 300), 0, "IFUpdateDeviceList");
    expect(IFGetNumDevices(*interface, &count), 0, "IFGetNumDevices");
    expect(count, 1, "one camera");
    expect(IFClose(*interface), 0, "IFClose");
    *interface = NULL;
    expect(TLOpenInterface(system, "ZRK-USB-3-IF ID", interface), 0, "opened again");
    expect(IFGetNumDevices(*interface, &count), 0, "IFGetNumDevices");
    expect(count, 0, "the list went with the interface");
    expect(IFUpdateDeviceList(*interface, NULL, 300), 0, "IFUpdateDeviceList");
}

static GC_ERROR info(DS_HANDLE stream, BUFFER_HANDLE buffer, BUFFER_INFO_CMD command,
                     INFO_DATATYPE* type)
{
    char value[64];
    size_t size = sizeof value;
    return DSGetBufferInfo(stream, buffer, command, type, value, &size);
}

static void buffer_infos(DS_HANDLE stream, BUFFER_HANDLE buffer)
{
    static const struct
    {
        BUFFER_INFO_CMD command;
        INFO_DATATYPE type;
    } known[] = {{BUFFER_INFO_BASE, INFO_DATATYPE_PTR},
                 {BUFFER_INFO_USER_PTR, INFO_DATATYPE_PTR},
                 {BUFFER_INFO_SIZE, INFO_DATATYPE_SIZET},
                 {BUFFER_INFO_SIZE_FILLED, INFO_DATATYPE_SIZET},
                 {BUFFER_INFO_TIMESTAMP, INFO_DATATYPE_UINT64},
                 {BUFFER_INFO_FRAMEID, INFO_DATATYPE_UINT64},
                 {BUFFER_INFO_WIDTH, INFO_DATATYPE_SIZET},
                 {BUFFER_INFO_HEIGHT, INFO_DATATYPE_SIZET},
                 {BUFFER_INFO_PIXELFORMAT, INFO_DATATYPE_UINT64},
                 {BUFFER_INFO_PAYLOADTYPE, INFO_DATATYPE_SIZET},
                 {BUFFER_INFO_NEW_DATA, INFO_DATATYPE_BOOL8},
                 {BUFFER_INFO_IS_QUEUED, INFO_DATATYPE_BOOL8},
                 {BUFFER_INFO_IS_ACQUIRING, INFO_DATATYPE_BOOL8},
                 {BUFFER_INFO_IS_INCOMPLETE, INFO_DATATYPE_BOOL8},
                 {BUFFER_INFO_TLTYPE, INFO_DATATYPE_STRING}};
    unsigned answered = 0;
    for (BUFFER_INFO_CMD command = BUFFER_INFO_BASE; command <= BUFFER_INFO_IS_COMPOSITE;
         command++) {
        INFO_DATATYPE type = INFO_DATATYPE_UNKNOWN;
        const GC_ERROR status = info(stream, buffer, command, &type);
        if (status == GC_ERR_SUCCESS) {
            answered++;
        } else {
            expect(status, GC_ERR_NOT_IMPLEMENTED, "a buffer info that is not there");
        }
    }
    expect(answered, sizeof known / sizeof known[0], "buffer infos that are there");
    for (size_t i = 0; i < sizeof known / sizeof known[0]; i++) {
        INFO_DATATYPE type = INFO_DATATYPE_UNKNOWN;
        expect(info(stream, buffer, known[i].command, &type), 0, "a buffer info that is there");
        expect(type, known[i].type, "its type");
    }
}

static void images(DS_HANDLE stream, EVENT_HANDLE event)
{
    EVENT_NEW_BUFFER_DATA data = {NULL, NULL};
    size_t size = sizeof data;
    expect(EventGetData(event, &data, &size, GENTL_INFINITE), GC_ERR_TIMEOUT,
           "an endless wait returns at once");
    expect(DSStartAcquisition(stream, ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE), 0,
           "DSStartAcquisition");
    for (int i = 0; i < 5; i++) {
        size = sizeof data;
        expect(EventGetData(event, &data, &size, 5000), 0, "an image");
        buffer_infos(stream, data.BufferHandle);
        expect(DSQueueBuffer(stream, data.BufferHandle), 0, "DSQueueBuffer");
    }
    BUFFER_HANDLE late = NULL;
    expect(DSAllocAndAnnounceBuffer(stream, 64, NULL, &late), GC_ERR_BUSY,
           "announcing while it runs");
    expect(DSStopAcquisition(stream, ACQ_STOP_FLAGS_DEFAULT), 0, "DSStopAcquisition");
    expect(EventKill(event), 0, "EventKill");
    expect(EventGetData(event, &data, &size, 5000), GC_ERR_ABORT, "a killed event");
}

static void stream_of(DEV_HANDLE device)
{
    DS_HANDLE stream = NULL;
    EVENT_HANDLE event = NULL;
    BUFFER_HANDLE buffer = NULL;
    BUFFER_HANDLE taken = device;
    bool8_t defines = 1;
    size_t size = sizeof defines;
    INFO_DATATYPE type = INFO_DATATYPE_UNKNOWN;
    expect(DevOpenDataStream(device, "0", &stream), 0, "DevOpenDataStream");
    expect(DSGetInfo(stream, STREAM_INFO_DEFINES_PAYLOADSIZE, &type, &defines, &size), 0,
           "DSGetInfo");
    expect(defines, 0, "defines no payload size");
    expect(DSGetInfo(stream, STREAM_INFO_PAYLOAD_SIZE, &type, &defines, &size),
           GC_ERR_NOT_IMPLEMENTED, "nor tells one");
    expect(GCRegisterEvent(stream, EVENT_NEW_BUFFER, &event), 0, "GCRegisterEvent");
    expect(DSStartAcquisition(stream, 0, GENTL_INFINITE), GC_ERR_INVALID_BUFFER,
           "start without a buffer");
    expect(DSAllocAndAnnounceBuffer(stream, 640 * 480, NULL, &taken), GC_ERR_INVALID_PARAMETER,
           "a taken handle");
    for (int i = 0; i < 4; i++) {
        buffer = NULL;
        expect(DSAllocAndAnnounceBuffer(stream, 640 * 480, NULL, &buffer), 0,
               "DSAllocAndAnnounceBuffer");
        expect(DSQueueBuffer(stream, buffer), 0, "DSQueueBuffer");
    }
    images(stream, event);
    expect(GCUnregisterEvent(stream, EVENT_NEW_BUFFER), 0, "GCUnregisterEvent");
    expect(DSClose(stream), 0, "DSClose");
}

int main(void)
{
    TL_HANDLE system = &failures;
    IF_HANDLE interface = NULL;
    DEV_HANDLE device = NULL;
    DEV_HANDLE second = NULL;
    char id[64] = "";
    size_t size = sizeof id;
    expect(GCInitLib(), 0, "GCInitLib");
    expect(TLOpen(&system), GC_ERR_INVALID_HANDLE, "TLOpen into a taken variable");
    system = NULL;
    expect(TLOpen(&system), 0, "TLOpen");
    lists(system, &interface);
    expect(IFGetDeviceID(interface, 0, id, &size), 0, "IFGetDeviceID");
    expect(IFOpenDevice(interface, id, DEVICE_ACCESS_EXCLUSIVE, &device), 0, "IFOpenDevice");
    expect(IFOpenDevice(interface, id, DEVICE_ACCESS_READONLY, &second), GC_ERR_RESOURCE_IN_USE,
           "a second opening");
    stream_of(device);
    expect(DevClose(device), 0, "DevClose");
    expect(IFClose(interface), 0, "IFClose");
    expect(TLClose(system), 0, "TLClose");
    expect(GCCloseLib(), 0, "GCCloseLib");
    /* The flat interface is linked as well. */
    expect(U3V_CloseDevice(NULL), U3V_STATUS_INVALID_HANDLE, "U3V_CloseDevice of nothing");
    printf("%d answers differ\n", failures);
    return failures == 0 ? 0 : 1;
}
