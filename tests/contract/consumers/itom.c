/*
 * As itom's GenICam plugin does: takes the description file's name for the name of a file of its
 * own, and announces memory of its own where the producer has none to give.
 */
#include "consumer.h"

enum
{
    BUFFERS = 3,
    IMAGES = 20,
};

static TL_HANDLE tl;
static IF_HANDLE iface;
static DEV_HANDLE dev;
static PORT_HANDLE remote;
static DS_HANDLE stream;
static EVENT_HANDLE event;
static BUFFER_HANDLE buffers[BUFFERS];
static void* memory[BUFFERS];

static void open_device(void)
{
    bool8_t changed = 0;
    char id[256];
    size_t size = sizeof id;
    REQUIRE(gentl.GCInitLib());
    REQUIRE(gentl.TLOpen(&tl));
    REQUIRE(gentl.TLUpdateInterfaceList(tl, &changed, 1000));
    REQUIRE(gentl.TLGetInterfaceID(tl, 0, id, &size));
    REQUIRE(gentl.TLOpenInterface(tl, id, &iface));
    REQUIRE(gentl.IFUpdateDeviceList(iface, &changed, 3000));
    size = sizeof id;
    REQUIRE(gentl.IFGetDeviceID(iface, 0, id, &size));
    REQUIRE(gentl.IFOpenDevice(iface, id, DEVICE_ACCESS_EXCLUSIVE, &dev));
    REQUIRE(gentl.DevGetPort(dev, &remote));
}

static void check_file_name(PORT_HANDLE port)
{
    struct file_place place;
    free(read_description(port, &place));
    const size_t harmless =
        strspn(place.name, "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
                           "0123456789._- ");
    CHECK(place.name[0] != '\0' && place.name[harmless] == '\0', "a file may be called %s",
          place.name);
}

static void open_stream(void)
{
    char id[256];
    size_t size = sizeof id;
    REQUIRE(gentl.DevGetDataStreamID(dev, 0, id, &size));
    REQUIRE(gentl.DevOpenDataStream(dev, id, &stream));
    check_file_name(tl);
    check_file_name(iface);
    check_file_name(dev);
    check_file_name(stream);
    check_file_name(remote);
}

/* Whatever the failure was, the stream takes memory of the application's afterwards. */
static void announce(size_t asked_for)
{
    for (int i = 0; i < BUFFERS; i++) {
        memory[i] = NULL;
        const GC_ERROR status =
            gentl.DSAllocAndAnnounceBuffer(stream, asked_for, NULL, &buffers[i]);
        if (status != GC_ERR_SUCCESS) {
            CHECK_EQUAL(status, GC_ERR_OUT_OF_MEMORY, "so much memory is not to be had: %s",
                        consumer_last_error());
            memory[i] = malloc(bus.payload_size(camera));
            REQUIRE(gentl.DSAnnounceBuffer(stream, memory[i], bus.payload_size(camera), NULL,
                                           &buffers[i]));
        }
        CHECK((memory[i] != NULL) == (asked_for > bus.payload_size(camera)), "whose memory it is");
        REQUIRE(gentl.DSQueueBuffer(stream, buffers[i]));
    }
}

static void acquire(size_t asked_for)
{
    announce(asked_for);
    REQUIRE(gentl.GCRegisterEvent(stream, EVENT_NEW_BUFFER, &event));
    REQUIRE(gentl.DSStartAcquisition(stream, ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE));
    write_register(remote, ACQUISITION, 1);
    for (int i = 0; i < IMAGES; i++) {
        EVENT_NEW_BUFFER_DATA data;
        size_t size = sizeof data;
        REQUIRE(gentl.EventGetData(event, &data, &size, PATIENCE_MS));
        check_image(stream, data.BufferHandle, 0);
        REQUIRE(gentl.DSQueueBuffer(stream, data.BufferHandle));
    }
    write_register(remote, ACQUISITION, 0);
    REQUIRE(gentl.DSStopAcquisition(stream, ACQ_STOP_FLAGS_DEFAULT));
    REQUIRE(gentl.GCUnregisterEvent(stream, EVENT_NEW_BUFFER));
    REQUIRE(gentl.DSFlushQueue(stream, ACQ_QUEUE_ALL_DISCARD));
    for (int i = 0; i < BUFFERS; i++) {
        REQUIRE(gentl.DSRevokeBuffer(stream, buffers[i], NULL, NULL));
        free(memory[i]);
    }
}

int main(int count, char** arguments)
{
    consumer_begin(count, arguments, RTLD_NOW | RTLD_LOCAL,
                   "width=320,height=240,model=C:\\; <&>/../x");
    open_device();
    open_stream();
    acquire(bus.payload_size(camera));
    acquire(SIZE_MAX);
    REQUIRE(gentl.DSClose(stream));
    REQUIRE(gentl.DevClose(dev));
    REQUIRE(gentl.IFClose(iface));
    REQUIRE(gentl.TLClose(tl));
    REQUIRE(gentl.GCCloseLib());
    return consumer_end();
}
