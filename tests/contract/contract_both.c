/*
 * Two producers in one process, loaded so that every symbol of the first is visible to the second:
 * each answers for itself, both list the same cameras, one has to leave what the other has opened,
 * both stream at the same time, and when the one is closed the other goes on.
 */
#include <dlfcn.h>
#include <stdlib.h>
#include <string.h>

#include "producer.h"
#include "session.h"
#include "tap.h"

enum
{
    BUFFERS = 4,
    IMAGES = 50,
    ACQUISITION = 0x50014,
};

struct side
{
    const char* file; /* without its folder */
    struct gentl_functions call;
    TL_HANDLE tl;
    IF_HANDLE iface;
    DEV_HANDLE dev;
    PORT_HANDLE remote;
    DS_HANDLE stream;
    EVENT_HANDLE event;
    int camera; /* of the bus */
};

#define REQUIRE(side, function, ...)                                                               \
    do {                                                                                           \
        if (!CHECK_EQUAL((side)->call.function(__VA_ARGS__), GC_ERR_SUCCESS, "%s: %s",             \
                         (side)->file, #function)) {                                               \
            tap_bail_out("nothing below can work");                                                \
        }                                                                                          \
    } while (0)

static void load(struct side* side, const char* path)
{
    const char* const slash = strrchr(path, '/');
    side->file = slash != NULL ? slash + 1 : path;
    void* const library = producer_load_any(path, RTLD_NOW | RTLD_GLOBAL);
    side->call = gentl;
    virtual_bus_find(library);
}

static void check_who_answers(const struct side* side)
{
    char name[256] = "";
    char path[4096] = "";
    size_t size = sizeof name;
    INFO_DATATYPE type;
    REQUIRE(side, TLGetInfo, side->tl, TL_INFO_NAME, &type, name, &size);
    CHECK_TEXT(name, side->file, "the file that answers");
    size = sizeof path;
    REQUIRE(side, TLGetInfo, side->tl, TL_INFO_PATHNAME, &type, path, &size);
    CHECK(strstr(path, ".cti") != NULL || strstr(path, ".so") != NULL, "from %s", path);
}

/* Some need more than one update. */
static void list(struct side* side, uint32_t cameras)
{
    char id[256];
    size_t size = sizeof id;
    uint32_t count = 0;
    REQUIRE(side, TLUpdateInterfaceList, side->tl, NULL, 100);
    REQUIRE(side, TLGetInterfaceID, side->tl, 0, id, &size);
    REQUIRE(side, TLOpenInterface, side->tl, id, &side->iface);
    for (int i = 0; i < 200 && count < cameras; i++) {
        side->call.IFUpdateDeviceList(side->iface, NULL, SESSION_DISCOVERY_MS);
        REQUIRE(side, IFGetNumDevices, side->iface, &count);
    }
    CHECK_EQUAL(count, cameras, "%s lists them all", side->file);
}

static GC_ERROR open_device(struct side* side, const char* guid)
{
    side->dev = NULL;
    return side->call.IFOpenDevice(side->iface, guid, DEVICE_ACCESS_EXCLUSIVE, &side->dev);
}

static void write_acquisition(const struct side* side, uint32_t value)
{
    size_t size = sizeof value;
    REQUIRE(side, GCWritePort, side->remote, ACQUISITION, &value, &size);
}

static void start(struct side* side)
{
    char id[64];
    size_t size = sizeof id;
    REQUIRE(side, DevGetPort, side->dev, &side->remote);
    REQUIRE(side, DevGetDataStreamID, side->dev, 0, id, &size);
    REQUIRE(side, DevOpenDataStream, side->dev, id, &side->stream);
    REQUIRE(side, GCRegisterEvent, side->stream, EVENT_NEW_BUFFER, &side->event);
    for (int i = 0; i < BUFFERS; i++) {
        BUFFER_HANDLE buffer = NULL;
        REQUIRE(side, DSAllocAndAnnounceBuffer, side->stream, bus.payload_size(side->camera), NULL,
                &buffer);
        REQUIRE(side, DSQueueBuffer, side->stream, buffer);
    }
    REQUIRE(side, DSStartAcquisition, side->stream, ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE);
    write_acquisition(side, 1);
}

static void take_image(const struct side* side)
{
    EVENT_NEW_BUFFER_DATA data;
    size_t size = sizeof data;
    INFO_DATATYPE type;
    void* base = NULL;
    uint64_t frame = 0;
    REQUIRE(side, EventGetData, side->event, &data, &size, SESSION_WAIT_MS);
    size = sizeof base;
    REQUIRE(side, DSGetBufferInfo, side->stream, data.BufferHandle, BUFFER_INFO_BASE, &type, &base,
            &size);
    size = sizeof frame;
    REQUIRE(side, DSGetBufferInfo, side->stream, data.BufferHandle, BUFFER_INFO_FRAMEID, &type,
            &frame, &size);
    CHECK_EQUAL(bus.compare_image(side->camera, frame, base, bus.payload_size(side->camera)), -1,
                "%s: image %llu is the camera's", side->file, (unsigned long long)frame);
    REQUIRE(side, DSQueueBuffer, side->stream, data.BufferHandle);
}

static void close_all(struct side* side)
{
    write_acquisition(side, 0);
    REQUIRE(side, DSStopAcquisition, side->stream, ACQ_STOP_FLAGS_DEFAULT);
    REQUIRE(side, GCUnregisterEvent, side->stream, EVENT_NEW_BUFFER);
    REQUIRE(side, DSClose, side->stream);
    REQUIRE(side, DevClose, side->dev);
    REQUIRE(side, IFClose, side->iface);
    REQUIRE(side, TLClose, side->tl);
    REQUIRE(side, GCCloseLib);
    CHECK_EQUAL(side->call.TLOpen(&side->tl), GC_ERR_NOT_INITIALIZED, "%s is closed", side->file);
}

int main(int count, char** arguments)
{
    if (count != 4) {
        tap_bail_out("usage: %s <first.cti> <second.cti> <what the second says to a taken camera>",
                     arguments[0]);
    }
    struct side first = {.camera = 0};
    struct side second = {.camera = 0};
    load(&first, arguments[1]);
    load(&second, arguments[2]);
    CHECK(first.call.TLOpen != second.call.TLOpen, "each has functions of its own");
    bus.reset();
    first.camera = bus.add_camera("guid=120900000001,width=320,height=240,fps=100");
    second.camera = bus.add_camera("guid=120900000002,width=64,height=48,fps=100,seed=9");
    REQUIRE(&first, GCInitLib);
    CHECK_EQUAL(second.call.TLOpen(&second.tl), GC_ERR_NOT_INITIALIZED, "each by itself");
    REQUIRE(&second, GCInitLib);
    REQUIRE(&first, TLOpen, &first.tl);
    REQUIRE(&second, TLOpen, &second.tl);
    check_who_answers(&first);
    check_who_answers(&second);
    list(&first, 2);
    list(&second, 2);
    CHECK_EQUAL(open_device(&first, "120900000001"), GC_ERR_SUCCESS, "one opens a camera");
    CHECK_EQUAL(open_device(&second, "120900000001"), atoi(arguments[3]), "the other cannot");
    CHECK_EQUAL(open_device(&second, "120900000002"), GC_ERR_SUCCESS, "but another one");
    start(&first);
    start(&second);
    for (int i = 0; i < IMAGES; i++) {
        take_image(&first);
        take_image(&second);
    }
    close_all(&first);
    for (int i = 0; i < IMAGES; i++) {
        take_image(&second);
    }
    close_all(&second);
    CHECK_EQUAL(bus.violations(NULL), 0, "no rule of libusb was broken");
    return tap_finish();
}
