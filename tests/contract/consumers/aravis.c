/*
 * As Aravis does: lists, closes interface and System, opens both again and the camera without an
 * update; starts before anything is queued; a thread of its own registers the event, queues, waits
 * for ever and is ended by EventKill.
 */
#include <pthread.h>

#include "consumer.h"

enum
{
    BUFFERS = 5, /* more than the camera sends while the thread works on one */
    IMAGES = 20,
};

static struct
{
    char interface[256];
    char device[256];
    TL_HANDLE tl;
    IF_HANDLE iface;
    DEV_HANDLE dev;
    PORT_HANDLE remote;
    DS_HANDLE stream;
    BUFFER_HANDLE buffers[BUFFERS];
    void* memory[BUFFERS];
    size_t payload;
} state;

/* What the thread and the main program tell each other. The thread checks nothing itself: it keeps
 * the first call that went wrong. */
static struct
{
    pthread_mutex_t lock;
    pthread_cond_t changed;
    int images;
    int event_is_there;
    EVENT_HANDLE event;
    GC_ERROR status;
    const char* failed;
    uint64_t width;
    uint64_t height;
} worker = {.lock = PTHREAD_MUTEX_INITIALIZER, .changed = PTHREAD_COND_INITIALIZER};

static void list(void)
{
    INFO_DATATYPE type;
    uint32_t count = 0;
    char text[256];
    REQUIRE(gentl.GCInitLib());
    REQUIRE(gentl.TLOpen(&state.tl));
    REQUIRE(gentl.TLUpdateInterfaceList(state.tl, NULL, 100));
    REQUIRE(gentl.TLGetNumInterfaces(state.tl, &count));
    CHECK_EQUAL(count, 1, "one interface");
    ASK(state.interface, TLGetInterfaceID, state.tl, 0);
    ASK(text, TLGetInterfaceInfo, state.tl, state.interface, INTERFACE_INFO_TLTYPE, &type);
    CHECK_TEXT(text, "U3V", "its transport layer");
    REQUIRE(gentl.TLOpenInterface(state.tl, state.interface, &state.iface));
    ASK(text, TLGetInterfaceInfo, state.tl, state.interface, INTERFACE_INFO_DISPLAYNAME, &type);
    REQUIRE(gentl.IFUpdateDeviceList(state.iface, NULL, 100));
    REQUIRE(gentl.IFGetNumDevices(state.iface, &count));
    CHECK_EQUAL(count, 1, "one camera");
    ASK(state.device, IFGetDeviceID, state.iface, 0);
    ASK(text, TLGetInfo, state.tl, TL_INFO_VENDOR, &type);
    static const DEVICE_INFO_CMD commands[] = {DEVICE_INFO_ID, DEVICE_INFO_MODEL,
                                               DEVICE_INFO_VENDOR, DEVICE_INFO_SERIAL_NUMBER};
    for (size_t i = 0; i < sizeof commands / sizeof commands[0]; i++) {
        ASK(text, IFGetDeviceInfo, state.iface, state.device, commands[i], &type);
        CHECK(text[0] != '\0' && type == INFO_DATATYPE_STRING, "is a text: %s", text);
    }
    REQUIRE(gentl.IFClose(state.iface));
    REQUIRE(gentl.TLClose(state.tl));
}

static void open_without_update(void)
{
    INFO_DATATYPE type;
    char text[256];
    struct file_place place;
    REQUIRE(gentl.TLOpen(&state.tl));
    REQUIRE(gentl.TLOpenInterface(state.tl, state.interface, &state.iface));
    ASK(text, TLGetInterfaceInfo, state.tl, state.interface, INTERFACE_INFO_DISPLAYNAME, &type);
    REQUIRE(gentl.IFOpenDevice(state.iface, state.device, DEVICE_ACCESS_CONTROL, &state.dev));
    REQUIRE(gentl.DevGetPort(state.dev, &state.remote));
    free(read_description(state.remote, &place));
}

/* The size variable was never set; behind the eight bytes of the answer lies something else. */
static void timestamp_frequency(void)
{
    struct
    {
        uint64_t frequency;
        uint64_t behind;
    } answer = {0, 0x5A5A5A5A5A5A5A5A};
    INFO_DATATYPE type = INFO_DATATYPE_UNKNOWN;
    size_t size = (size_t)0xA5A5A5A5A5A5A5A5;
    REQUIRE(gentl.DevGetInfo(state.dev, DEVICE_INFO_TIMESTAMP_FREQUENCY, &type, &answer.frequency,
                             &size));
    CHECK_EQUAL(answer.frequency, 1000000000, "ticks a second");
    CHECK_EQUAL(answer.behind, 0x5A5A5A5A5A5A5A5A, "nothing behind them is written");
    CHECK_EQUAL(type, INFO_DATATYPE_UINT64, "their type");
}

static void open_stream(void)
{
    uint32_t count = 0;
    char id[256];
    size_t size = sizeof id;
    REQUIRE(gentl.DevGetNumDataStreams(state.dev, &count));
    CHECK_EQUAL(count, 1, "one stream");
    REQUIRE(gentl.DevGetDataStreamID(state.dev, 0, id, &size));
    REQUIRE(gentl.DevOpenDataStream(state.dev, id, &state.stream));
    timestamp_frequency();
}

static void announce(int native)
{
    for (int i = 0; i < BUFFERS; i++) {
        BUFFER_HANDLE buffer = UNINITIALISED;
        if (native) {
            REQUIRE(gentl.DSAllocAndAnnounceBuffer(state.stream, state.payload, NULL, &buffer));
        } else {
            state.memory[i] = malloc(state.payload);
            REQUIRE(gentl.DSAnnounceBuffer(state.stream, state.memory[i], state.payload, NULL,
                                           &buffer));
        }
        CHECK(buffer != UNINITIALISED && buffer != NULL, "the handle is written");
        state.buffers[i] = buffer;
    }
}

static void note(GC_ERROR status, const char* call)
{
    pthread_mutex_lock(&worker.lock);
    if (status != GC_ERR_SUCCESS && worker.failed == NULL) {
        worker.failed = call;
        worker.status = status;
    }
    pthread_mutex_unlock(&worker.lock);
}
#define NOTE(call) note(call, #call)

static uint64_t buffer_number(BUFFER_HANDLE buffer, BUFFER_INFO_CMD command)
{
    INFO_DATATYPE type;
    uint64_t value = 0;
    size_t size = sizeof value;
    NOTE(gentl.DSGetBufferInfo(state.stream, buffer, command, &type, &value, &size));
    return value;
}

static void look_at(BUFFER_HANDLE buffer)
{
    const size_t payload_type = buffer_number(buffer, BUFFER_INFO_PAYLOADTYPE);
    buffer_number(buffer, BUFFER_INFO_CONTAINS_CHUNKDATA);
    const uint64_t frame = buffer_number(buffer, BUFFER_INFO_FRAMEID);
    buffer_number(buffer, BUFFER_INFO_TIMESTAMP_NS);
    const size_t size = buffer_number(buffer, BUFFER_INFO_DATA_SIZE);
    buffer_number(buffer, BUFFER_INFO_SIZE_FILLED);
    const void* const base = (const void*)(uintptr_t)buffer_number(buffer, BUFFER_INFO_BASE);
    uint32_t parts = 0;
    /* A success would mean parts, and with none of them no image. */
    if (gentl.DSGetNumBufferParts(state.stream, buffer, &parts) == GC_ERR_SUCCESS) {
        note(GC_ERR_ERROR, "an image without parts has some");
    }
    buffer_number(buffer, BUFFER_INFO_IMAGEOFFSET);
    buffer_number(buffer, BUFFER_INFO_PIXELFORMAT);
    worker.width = buffer_number(buffer, BUFFER_INFO_WIDTH);
    worker.height = buffer_number(buffer, BUFFER_INFO_HEIGHT);
    buffer_number(buffer, BUFFER_INFO_XOFFSET);
    buffer_number(buffer, BUFFER_INFO_YOFFSET);
    buffer_number(buffer, BUFFER_INFO_XPADDING);
    buffer_number(buffer, BUFFER_INFO_YPADDING);
    if (payload_type != PAYLOAD_TYPE_IMAGE || size != state.payload ||
        bus.compare_image(camera, frame, base, size) != -1) {
        note(GC_ERR_ERROR, "the image is what the camera sent");
    }
}

static void* take_images(void* unused)
{
    EVENT_NEW_BUFFER_DATA data;
    NOTE(gentl.GCRegisterEvent(state.stream, EVENT_NEW_BUFFER, &worker.event));
    pthread_mutex_lock(&worker.lock);
    worker.event_is_there = 1;
    pthread_cond_signal(&worker.changed);
    pthread_mutex_unlock(&worker.lock);
    for (int i = 0; i < BUFFERS; i++) {
        NOTE(gentl.DSQueueBuffer(state.stream, state.buffers[i]));
    }
    for (;;) {
        size_t size = sizeof data;
        const GC_ERROR status = gentl.EventGetData(worker.event, &data, &size, GENTL_INFINITE);
        if (status == GC_ERR_ABORT) {
            break;
        }
        note(status, "EventGetData");
        look_at(data.BufferHandle);
        NOTE(gentl.DSQueueBuffer(state.stream, data.BufferHandle));
        pthread_mutex_lock(&worker.lock);
        worker.images++;
        pthread_cond_signal(&worker.changed);
        pthread_mutex_unlock(&worker.lock);
    }
    NOTE(gentl.GCUnregisterEvent(state.stream, EVENT_NEW_BUFFER));
    NOTE(gentl.DSFlushQueue(state.stream, ACQ_QUEUE_ALL_DISCARD));
    return unused;
}

/* Until so many images have come, or the event is registered for 0; not for ever. */
static int worker_has(int images)
{
    struct timespec end;
    clock_gettime(CLOCK_REALTIME, &end);
    end.tv_sec += PATIENCE_MS / 1000;
    pthread_mutex_lock(&worker.lock);
    int late = 0;
    while (!late && worker.failed == NULL && (!worker.event_is_there || worker.images < images)) {
        late = pthread_cond_timedwait(&worker.changed, &worker.lock, &end) != 0;
    }
    pthread_mutex_unlock(&worker.lock);
    return !late;
}

static void stream(int native)
{
    pthread_t thread;
    worker.images = 0;
    worker.event_is_there = 0;
    write_register(state.remote, ACQUISITION_MODE, 0);
    announce(native);
    REQUIRE(gentl.DSStartAcquisition(state.stream, ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE));
    if (pthread_create(&thread, NULL, take_images, NULL) != 0) {
        tap_bail_out("no thread");
    }
    CHECK(worker_has(0), "the event is registered");
    write_register(state.remote, ACQUISITION, 1);
    CHECK(worker_has(IMAGES), "%d images come", IMAGES);
    write_register(state.remote, ACQUISITION, 0);
    REQUIRE(gentl.DSStopAcquisition(state.stream, ACQ_STOP_FLAGS_DEFAULT));
    REQUIRE(gentl.EventKill(worker.event));
    pthread_join(thread, NULL);
    CHECK(worker.failed == NULL, "%s: %d", worker.failed != NULL ? worker.failed : "the thread",
          (int)worker.status);
    CHECK_EQUAL(gentl.EventKill(worker.event), GC_ERR_INVALID_HANDLE,
                "a kill after the event has gone harms nobody");
    for (int i = 0; i < BUFFERS; i++) {
        REQUIRE(gentl.DSRevokeBuffer(state.stream, state.buffers[i], NULL, NULL));
        free(state.memory[i]);
        state.memory[i] = NULL;
    }
}

int main(int count, char** arguments)
{
    consumer_begin(count, arguments, RTLD_LAZY | RTLD_LOCAL, "width=320,height=240,fps=100");
    state.payload = bus.payload_size(camera);
    list();
    open_without_update();
    open_stream();
    stream(0);
    stream(1);
    CHECK(worker.width == 320 && worker.height == 240, "of the camera's size");
    REQUIRE(gentl.DSClose(state.stream));
    REQUIRE(gentl.DevClose(state.dev));
    REQUIRE(gentl.IFClose(state.iface));
    REQUIRE(gentl.TLClose(state.tl));
    return consumer_end(); /* it never closes the library */
}
