/*
 * As GenICam.jl does: lists and opens as others do, queues everything by a flush right before each
 * start, and leaves the stop to a finaliser, which runs on whatever thread, by KILL, and sometimes
 * when nothing runs any more.
 */
#include <pthread.h>

#include "consumer.h"

enum
{
    BUFFERS = 3,
    ROUNDS = 5,
    IMAGES = 10,
};

static TL_HANDLE tl = UNINITIALISED;
static IF_HANDLE iface = UNINITIALISED;
static DEV_HANDLE dev = UNINITIALISED;
static PORT_HANDLE remote = UNINITIALISED;
static DS_HANDLE stream = UNINITIALISED;
static EVENT_HANDLE event = UNINITIALISED;
static BUFFER_HANDLE buffers[BUFFERS];
static char interface_id[256];
static char device_id[256];

static void list(void)
{
    uint32_t count = 0;
    REQUIRE(gentl.GCInitLib());
    REQUIRE(gentl.TLOpen(&tl));
    REQUIRE(gentl.TLUpdateInterfaceList(tl, NULL, 1000));
    REQUIRE(gentl.TLGetNumInterfaces(tl, &count));
    ASK(interface_id, TLGetInterfaceID, tl, count - 1);
    REQUIRE(gentl.TLOpenInterface(tl, interface_id, &iface));
    REQUIRE(gentl.IFUpdateDeviceList(iface, NULL, 1000));
    REQUIRE(gentl.IFGetNumDevices(iface, &count));
    ASK(device_id, IFGetDeviceID, iface, count - 1);
    REQUIRE(gentl.IFClose(iface));
}

static void open_all(void)
{
    char id[256];
    struct file_place place;
    REQUIRE(gentl.TLOpenInterface(tl, interface_id, &iface));
    REQUIRE(gentl.IFOpenDevice(iface, device_id, DEVICE_ACCESS_EXCLUSIVE, &dev));
    REQUIRE(gentl.DevGetPort(dev, &remote));
    free(read_description(remote, &place));
    ASK(id, DevGetDataStreamID, dev, 0);
    REQUIRE(gentl.DevOpenDataStream(dev, id, &stream));
    REQUIRE(gentl.GCRegisterEvent(stream, EVENT_NEW_BUFFER, &event));
    for (int i = 0; i < BUFFERS; i++) {
        buffers[i] = UNINITIALISED;
        REQUIRE(
            gentl.DSAllocAndAnnounceBuffer(stream, bus.payload_size(camera), NULL, &buffers[i]));
    }
}

static void* finalise(void* status)
{
    *(GC_ERROR*)status = gentl.DSStopAcquisition(stream, ACQ_STOP_FLAGS_KILL);
    return NULL;
}

static void stop_on_another_thread(const char* situation)
{
    pthread_t thread;
    GC_ERROR status = GC_ERR_ERROR;
    if (pthread_create(&thread, NULL, finalise, &status) != 0) {
        tap_bail_out("no thread");
    }
    pthread_join(thread, NULL);
    CHECK_EQUAL(status, GC_ERR_SUCCESS, "stop by another thread, %s", situation);
}

/* Every buffer of the round before is queued again, wherever it was; the images start anew. */
static void acquire(void)
{
    REQUIRE(gentl.DSFlushQueue(stream, ACQ_QUEUE_ALL_TO_INPUT));
    REQUIRE(gentl.DSStartAcquisition(stream, ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE));
    write_register(remote, ACQUISITION, 1);
    for (int i = 0; i < IMAGES; i++) {
        EVENT_NEW_BUFFER_DATA data;
        uint64_t frame = 0;
        size_t size = sizeof data;
        REQUIRE(gentl.EventGetData(event, &data, &size, PATIENCE_MS));
        size = sizeof frame;
        REQUIRE(gentl.DSGetBufferInfo(stream, data.BufferHandle, BUFFER_INFO_FRAMEID, NULL, &frame,
                                      &size));
        CHECK_EQUAL(frame, i, "the images of this round, in order");
        check_image(stream, data.BufferHandle, 0);
        if (i + 1 < IMAGES) {
            REQUIRE(gentl.DSQueueBuffer(stream, data.BufferHandle));
        }
    }
    write_register(remote, ACQUISITION, 0);
    stop_on_another_thread("while images come");
}

int main(int count, char** arguments)
{
    consumer_begin(count, arguments, RTLD_LAZY | RTLD_LOCAL, "width=320,height=240");
    list();
    open_all();
    for (int i = 0; i < ROUNDS; i++) {
        acquire();
    }
    stop_on_another_thread("when nothing runs");
    REQUIRE(gentl.DSFlushQueue(stream, ACQ_QUEUE_ALL_DISCARD));
    for (int i = 0; i < BUFFERS; i++) {
        REQUIRE(gentl.DSRevokeBuffer(stream, buffers[i], NULL, NULL));
    }
    REQUIRE(gentl.GCUnregisterEvent(stream, EVENT_NEW_BUFFER));
    REQUIRE(gentl.DSClose(stream));
    REQUIRE(gentl.DevClose(dev));
    REQUIRE(gentl.IFClose(iface));
    REQUIRE(gentl.TLClose(tl));
    REQUIRE(gentl.GCCloseLib());
    return consumer_end();
}
