/* Lists the cameras and takes images from the first one: every call an application needs, in the
 * order in which the producer wants them. Linked with the library:
 *     cc list_and_grab.c $(pkg-config --cflags --libs zr_u3v_tl) -o list_and_grab
 * An application that serves several producers loads the .cti file with dlopen instead; the calls
 * are the same (examples/python does it). Everything is in this file, on purpose: it is to be
 * copied.
 */
#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <zr_u3v_tl/gentl.h>

#define BUFFERS 8
#define DISCOVERY_MS 500
#define IMAGE_WAIT_MS 5000

/* Registers that every USB3 Vision camera has. A feature browser would read "PayloadSize" by the
 * camera's description file; these come without one. */
#define SBRM_ADDRESS 0x1D8
#define SIRM_ADDRESS_IN_SBRM 0x20
#define PAYLOAD_SIZE_IN_SIRM 0x08

/* Each call answers a status; the text to it is kept per thread. */
static void check(GC_ERROR status, const char* call)
{
    if (status == GC_ERR_SUCCESS) {
        return;
    }
    GC_ERROR code = GC_ERR_SUCCESS;
    char text[1024] = "";
    size_t size = sizeof text;
    GCGetLastError(&code, text, &size);
    fprintf(stderr, "%s failed: %d %s\n", call, status, text);
    GCCloseLib(); /* closes whatever is still open */
    exit(1);
}
#define CALL(function, ...) check(function(__VA_ARGS__), #function)

static uint64_t read_register(PORT_HANDLE camera, uint64_t address)
{
    uint64_t value = 0;
    size_t size = sizeof value; /* in: bytes wanted, out: bytes read; so it is set for every call */
    CALL(GCReadPort, camera, address, &value, &size);
    return value;
}

static void print_camera(IF_HANDLE interface, const char* id)
{
    char model[256] = "";
    char serial[256] = "";
    size_t modelSize = sizeof model;
    size_t serialSize = sizeof serial;
    INFO_DATATYPE type = INFO_DATATYPE_UNKNOWN;
    CALL(IFGetDeviceInfo, interface, id, DEVICE_INFO_MODEL, &type, model, &modelSize);
    CALL(IFGetDeviceInfo, interface, id, DEVICE_INFO_SERIAL_NUMBER, &type, serial, &serialSize);
    printf("camera %s: %s, serial number %s\n", id, model, serial);
}

/* Handles start as NULL: several calls refuse a variable that looks taken. */
static DEV_HANDLE open_first_camera(TL_HANDLE system)
{
    IF_HANDLE interface = NULL;
    DEV_HANDLE device = NULL;
    char interfaceId[256] = "";
    char id[256] = "";
    size_t size = sizeof interfaceId;
    uint32_t count = 0;
    /* Lists are empty until they are updated, and the device list belongs to this one handle: the
     * interface that searches is the interface that opens. */
    CALL(TLUpdateInterfaceList, system, NULL, DISCOVERY_MS);
    CALL(TLGetInterfaceID, system, 0, interfaceId, &size);
    CALL(TLOpenInterface, system, interfaceId, &interface);
    CALL(IFUpdateDeviceList, interface, NULL, DISCOVERY_MS); /* takes its whole time */
    CALL(IFGetNumDevices, interface, &count);
    for (uint32_t i = count; i > 0; i--) { /* the first one last, so that its id stays */
        size = sizeof id;
        CALL(IFGetDeviceID, interface, i - 1, id, &size);
        print_camera(interface, id);
    }
    CALL(IFOpenDevice, interface, id, DEVICE_ACCESS_EXCLUSIVE, &device); /* none: invalid id */
    return device;
}

static size_t buffer_size_of(DEV_HANDLE device)
{
    PORT_HANDLE camera = NULL;
    CALL(DevGetPort, device, &camera);
    const uint64_t sbrm = read_register(camera, SBRM_ADDRESS);
    const uint64_t sirm = read_register(camera, sbrm + SIRM_ADDRESS_IN_SBRM);
    return (size_t)read_register(camera, sirm + PAYLOAD_SIZE_IN_SIRM);
}

/* For answers of up to 8 bytes: smaller ones leave the upper bytes 0. */
static uint64_t buffer_info(DS_HANDLE stream, BUFFER_HANDLE buffer, BUFFER_INFO_CMD command)
{
    uint64_t value = 0;
    size_t size = sizeof value;
    INFO_DATATYPE type = INFO_DATATYPE_UNKNOWN;
    CALL(DSGetBufferInfo, stream, buffer, command, &type, &value, &size);
    return value;
}

static void grab(DS_HANDLE stream, EVENT_HANDLE newBuffer)
{
    CALL(DSStartAcquisition, stream, ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE);
    for (int i = 0; i < 10; i++) {
        EVENT_NEW_BUFFER_DATA data = {NULL, NULL};
        size_t size = sizeof data;
        /* A finite time: GENTL_INFINITE would return at once. */
        CALL(EventGetData, newBuffer, &data, &size, IMAGE_WAIT_MS);
        BUFFER_HANDLE buffer = data.BufferHandle;
        printf("image %" PRIu64 ": %" PRIu64 " x %" PRIu64 ", %" PRIu64 " bytes%s\n",
               buffer_info(stream, buffer, BUFFER_INFO_FRAMEID),
               buffer_info(stream, buffer, BUFFER_INFO_WIDTH),
               buffer_info(stream, buffer, BUFFER_INFO_HEIGHT),
               buffer_info(stream, buffer, BUFFER_INFO_SIZE_FILLED),
               buffer_info(stream, buffer, BUFFER_INFO_IS_INCOMPLETE) ? ", incomplete" : "");
        CALL(DSQueueBuffer, stream, buffer); /* back to the producer */
    }
    CALL(DSStopAcquisition, stream, ACQ_STOP_FLAGS_DEFAULT);
}

int main(void)
{
    TL_HANDLE system = NULL;
    DS_HANDLE stream = NULL;
    EVENT_HANDLE newBuffer = NULL;
    char streamId[64] = "";
    size_t size = sizeof streamId;
    CALL(GCInitLib);
    CALL(TLOpen, &system);
    DEV_HANDLE device = open_first_camera(system);
    CALL(DevGetDataStreamID, device, 0, streamId, &size);
    CALL(DevOpenDataStream, device, streamId, &stream);
    CALL(GCRegisterEvent, stream, EVENT_NEW_BUFFER, &newBuffer);
    for (int i = 0; i < BUFFERS; i++) {
        BUFFER_HANDLE buffer = NULL; /* anew each time: a handle in it is refused */
        CALL(DSAllocAndAnnounceBuffer, stream, buffer_size_of(device), NULL, &buffer);
        CALL(DSQueueBuffer, stream, buffer);
    }
    grab(stream, newBuffer);
    CALL(DSFlushQueue, stream, ACQ_QUEUE_ALL_DISCARD);
    CALL(GCUnregisterEvent, stream, EVENT_NEW_BUFFER);
    CALL(DSClose, stream);
    CALL(DevClose, device);
    CALL(TLClose, system); /* with it the interface */
    CALL(GCCloseLib);
    return 0;
}
