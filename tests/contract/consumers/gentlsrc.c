/*
 * As GStreamer's gentlsrc does: its handle variables hold what they held before, it flushes the
 * input to the output and the output to nothing, and it never closes the library: the process ends
 * with it.
 */
#include "consumer.h"

enum
{
    BUFFERS = 3,
    ROUNDS = 3,
    IMAGES = 10,
};

/* Set once, at the program's start, and never reset: what is not written shows at the next call. */
static TL_HANDLE tl = UNINITIALISED;
static IF_HANDLE iface = UNINITIALISED;
static DEV_HANDLE dev = UNINITIALISED;
static PORT_HANDLE remote = UNINITIALISED;
static DS_HANDLE stream = UNINITIALISED;
static EVENT_HANDLE event = UNINITIALISED;
static BUFFER_HANDLE buffers[BUFFERS] = {UNINITIALISED, UNINITIALISED, UNINITIALISED};

/* Of a pipeline's second run: the library is initialised already. */
static void initialise(int round)
{
    const GC_ERROR status = gentl.GCInitLib();
    CHECK_EQUAL(status, round == 0 ? GC_ERR_SUCCESS : GC_ERR_RESOURCE_IN_USE, "GCInitLib, run %d",
                round);
}

static void open_all(void)
{
    bool8_t changed = 0;
    char id[256];
    size_t size = sizeof id;
    REQUIRE(gentl.TLOpen(&tl));
    REQUIRE(gentl.TLUpdateInterfaceList(tl, &changed, 5000));
    REQUIRE(gentl.TLGetInterfaceID(tl, 0, id, &size));
    REQUIRE(gentl.TLOpenInterface(tl, id, &iface));
    REQUIRE(gentl.IFUpdateDeviceList(iface, &changed, 5000));
    size = sizeof id;
    REQUIRE(gentl.IFGetDeviceID(iface, 0, id, &size));
    REQUIRE(gentl.IFOpenDevice(iface, id, DEVICE_ACCESS_EXCLUSIVE, &dev));
    REQUIRE(gentl.DevGetPort(dev, &remote));
    size = sizeof id;
    REQUIRE(gentl.DevGetDataStreamID(dev, 0, id, &size));
    REQUIRE(gentl.DevOpenDataStream(dev, id, &stream));
}

static void acquire(void)
{
    for (int i = 0; i < BUFFERS; i++) {
        REQUIRE(
            gentl.DSAllocAndAnnounceBuffer(stream, bus.payload_size(camera), NULL, &buffers[i]));
        REQUIRE(gentl.DSQueueBuffer(stream, buffers[i]));
    }
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
    REQUIRE(gentl.DSFlushQueue(stream, ACQ_QUEUE_INPUT_TO_OUTPUT));
    REQUIRE(gentl.DSFlushQueue(stream, ACQ_QUEUE_OUTPUT_DISCARD));
    for (int i = 0; i < BUFFERS; i++) {
        REQUIRE(gentl.DSRevokeBuffer(stream, buffers[i], NULL, NULL));
    }
}

static void close_all(void)
{
    REQUIRE(gentl.GCUnregisterEvent(stream, EVENT_NEW_BUFFER));
    REQUIRE(gentl.DSClose(stream));
    REQUIRE(gentl.DevClose(dev));
    REQUIRE(gentl.IFClose(iface));
    REQUIRE(gentl.TLClose(tl));
}

int main(int count, char** arguments)
{
    consumer_begin(count, arguments, RTLD_LAZY | RTLD_LOCAL, "width=320,height=240");
    for (int round = 0; round < ROUNDS; round++) {
        initialise(round);
        open_all();
        acquire();
        close_all();
    }
    return consumer_end(); /* with the library as it is */
}
