/*
 * As Harvesters does: builds the System's node map at once, keeps its interfaces open and updates
 * them all the time, announces memory of its own, polls with a millisecond, reads chunk data where
 * there is some, and stops by KILL.
 */
#include "consumer.h"

enum
{
    BUFFERS = 4,
    IMAGES = 20,
    UPDATES = 20,
    LARGEST = 1 << 20,
    CHUNK_OF_THE_IMAGE = 0x1000, /* ids of the simulated camera */
    CHUNK_OF_THE_USER = 0x1004,
};

static TL_HANDLE tl;
static IF_HANDLE iface;
static DEV_HANDLE dev;
static PORT_HANDLE remote;
static DS_HANDLE stream;
static EVENT_HANDLE event;
static char device_id[256];
static uint8_t memory[BUFFERS][LARGEST];
static BUFFER_HANDLE buffers[BUFFERS];

static void open_system(void)
{
    INFO_DATATYPE type;
    char text[1024];
    REQUIRE(gentl.GCInitLib());
    REQUIRE(gentl.TLOpen(&tl));
    check_description(tl, "TLPort");
    for (TL_INFO_CMD command = TL_INFO_ID; command <= TL_INFO_DISPLAYNAME; command++) {
        ASK(text, TLGetInfo, tl, command, &type);
    }
}

/* Every text and number of the camera, at each update. */
static void update(void)
{
    bool8_t changed = 0;
    uint32_t count = 0;
    INFO_DATATYPE type;
    char answer[256];
    REQUIRE(gentl.IFUpdateDeviceList(iface, &changed, 1000));
    REQUIRE(gentl.IFGetNumDevices(iface, &count));
    CHECK_EQUAL(count, 1, "one camera");
    ASK(device_id, IFGetDeviceID, iface, 0);
    for (DEVICE_INFO_CMD command = DEVICE_INFO_ID; command <= DEVICE_INFO_TIMESTAMP_FREQUENCY;
         command++) {
        ASK(answer, IFGetDeviceInfo, iface, device_id, command, &type);
    }
}

static void open_interface(void)
{
    bool8_t changed = 0;
    char id[256];
    REQUIRE(gentl.TLUpdateInterfaceList(tl, &changed, 1000));
    ASK(id, TLGetInterfaceID, tl, 0);
    REQUIRE(gentl.TLOpenInterface(tl, id, &iface));
    check_description(iface, "InterfacePort");
    for (int i = 0; i < UPDATES; i++) {
        update();
    }
}

static void open_camera(void)
{
    char id[256];
    struct file_place place;
    REQUIRE(gentl.IFOpenDevice(iface, device_id, DEVICE_ACCESS_EXCLUSIVE, &dev));
    REQUIRE(gentl.DevGetPort(dev, &remote));
    check_description(dev, "DevicePort");
    free(read_description(remote, &place));
    ASK(id, DevGetDataStreamID, dev, 0);
    REQUIRE(gentl.DevOpenDataStream(dev, id, &stream));
    check_description(stream, "StreamPort");
}

static void announce(void)
{
    INFO_DATATYPE type;
    size_t payload = 0;
    size_t size = sizeof payload;
    REQUIRE(gentl.DSGetInfo(stream, STREAM_INFO_PAYLOAD_SIZE, &type, &payload, &size));
    CHECK(payload <= LARGEST, "payload: %zu bytes", payload);
    for (int i = 0; i < BUFFERS; i++) {
        REQUIRE(gentl.DSAnnounceBuffer(stream, memory[i], payload, NULL, &buffers[i]));
        REQUIRE(gentl.DSQueueBuffer(stream, buffers[i]));
    }
}

/* A time-out is no error, as often as it comes. */
static BUFFER_HANDLE next_buffer(void)
{
    EVENT_NEW_BUFFER_DATA data = {NULL, NULL};
    GC_ERROR status = GC_ERR_TIMEOUT;
    for (int i = 0; status == GC_ERR_TIMEOUT && i < PATIENCE_MS; i++) {
        size_t size = sizeof data;
        status = gentl.EventGetData(event, &data, &size, 1);
    }
    REQUIRE(status);
    return data.BufferHandle;
}

static void read_chunks(BUFFER_HANDLE buffer)
{
    SINGLE_CHUNK_DATA chunks[16];
    size_t count = 0;
    REQUIRE(gentl.DSGetBufferChunkData(stream, buffer, NULL, &count));
    CHECK(count >= 2 && count <= 16, "%zu chunks", count);
    REQUIRE(gentl.DSGetBufferChunkData(stream, buffer, chunks, &count));
    CHECK_EQUAL(chunks[0].ChunkID, CHUNK_OF_THE_IMAGE, "the image comes first");
    CHECK_EQUAL(chunks[0].ChunkLength, 320 * 240, "as a whole");
    int found = 0;
    for (size_t i = 0; i < count; i++) {
        found |= chunks[i].ChunkID == CHUNK_OF_THE_USER && chunks[i].ChunkLength == 16;
    }
    CHECK(found, "and the others behind it");
}

static void take_image(int with_chunks)
{
    const BUFFER_HANDLE buffer = next_buffer();
    INFO_DATATYPE type;
    bool8_t has_chunks = 0;
    size_t payload_type = 0;
    size_t size = sizeof has_chunks;
    REQUIRE(gentl.DSGetBufferInfo(stream, buffer, BUFFER_INFO_CONTAINS_CHUNKDATA, &type,
                                  &has_chunks, &size));
    CHECK_EQUAL(has_chunks, with_chunks, "the buffer tells whether it has chunks");
    if (has_chunks) {
        read_chunks(buffer);
    }
    size = sizeof payload_type;
    REQUIRE(gentl.DSGetBufferInfo(stream, buffer, BUFFER_INFO_PAYLOADTYPE, &type, &payload_type,
                                  &size));
    CHECK_EQUAL(payload_type, PAYLOAD_TYPE_IMAGE, "an image");
    check_image(stream, buffer, with_chunks);
    REQUIRE(gentl.DSQueueBuffer(stream, buffer));
    update();
}

static void acquire(int with_chunks)
{
    announce();
    REQUIRE(gentl.GCRegisterEvent(stream, EVENT_NEW_BUFFER, &event));
    REQUIRE(gentl.DSStartAcquisition(stream, ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE));
    write_register(remote, ACQUISITION, 1);
    for (int i = 0; i < IMAGES; i++) {
        take_image(with_chunks);
    }
    write_register(remote, ACQUISITION, 0);
    REQUIRE(gentl.DSStopAcquisition(stream, ACQ_STOP_FLAGS_KILL));
    REQUIRE(gentl.EventFlush(event));
    REQUIRE(gentl.GCUnregisterEvent(stream, EVENT_NEW_BUFFER));
    REQUIRE(gentl.DSFlushQueue(stream, ACQ_QUEUE_ALL_DISCARD));
    for (int i = 0; i < BUFFERS; i++) {
        void* base = NULL;
        void* user = NULL;
        REQUIRE(gentl.DSRevokeBuffer(stream, buffers[i], &base, &user));
        CHECK(base == memory[i], "its memory comes back");
    }
}

static void stream_a_camera(const char* options, int with_chunks)
{
    CHECK(bus.unplug(camera) == 0 && (camera = bus.add_camera(options)) >= 0, "%s", options);
    update();
    open_camera();
    acquire(with_chunks);
    REQUIRE(gentl.DSClose(stream));
    REQUIRE(gentl.DevClose(dev));
}

int main(int count, char** arguments)
{
    consumer_begin(count, arguments, RTLD_NOW | RTLD_LOCAL, "width=320,height=240,fps=50");
    open_system();
    open_interface();
    stream_a_camera("width=320,height=240,fps=200", 0);
    stream_a_camera("guid=2,width=320,height=240,chunks=1,chunk-bytes=16", 1);
    REQUIRE(gentl.IFClose(iface));
    REQUIRE(gentl.TLClose(tl));
    REQUIRE(gentl.GCCloseLib());
    return consumer_end();
}
