/*
 * As rc_genicam_api does: binds the library deeply, loads the documents of all modules, tries one
 * access after the other, takes whatever access it gets, looks whether there is an image before it
 * asks for its size, waits for ever, and revokes the first buffer until there is none.
 */
#define _GNU_SOURCE /* RTLD_DEEPBIND */
#include "consumer.h"

enum
{
    BUFFERS = 4,
    IMAGES = 20,
};

static TL_HANDLE tl;
static IF_HANDLE iface;
static DEV_HANDLE dev;
static PORT_HANDLE remote;
static DS_HANDLE stream;
static EVENT_HANDLE event;

/* Into an array of a fixed size, at once. */
static void text_of_system(TL_INFO_CMD command)
{
    INFO_DATATYPE type = INFO_DATATYPE_UNKNOWN;
    char text[1024];
    size_t size = sizeof text;
    REQUIRE(gentl.TLGetInfo(tl, command, &type, text, &size));
    CHECK(type == INFO_DATATYPE_STRING && text[0] != '\0' && text[size - 1] == '\0', "%s", text);
}

static void open_interface(void)
{
    bool8_t changed = 0;
    uint32_t count = 0;
    char id[256];
    size_t size = sizeof id;
    REQUIRE(gentl.GCInitLib());
    REQUIRE(gentl.TLOpen(&tl));
    text_of_system(TL_INFO_ID);
    text_of_system(TL_INFO_VENDOR);
    text_of_system(TL_INFO_MODEL);
    text_of_system(TL_INFO_VERSION);
    text_of_system(TL_INFO_TLTYPE);
    text_of_system(TL_INFO_NAME);
    text_of_system(TL_INFO_PATHNAME);
    text_of_system(TL_INFO_DISPLAYNAME);
    REQUIRE(gentl.TLUpdateInterfaceList(tl, &changed, 10));
    REQUIRE(gentl.TLGetNumInterfaces(tl, &count));
    CHECK_EQUAL(count, 1, "one interface");
    REQUIRE(gentl.TLGetInterfaceID(tl, 0, id, &size));
    REQUIRE(gentl.TLOpenInterface(tl, id, &iface));
}

/* Exclusive, control, read: the first that works. */
static void open_device(void)
{
    static const DEVICE_ACCESS_FLAGS accesses[] = {DEVICE_ACCESS_EXCLUSIVE, DEVICE_ACCESS_CONTROL,
                                                   DEVICE_ACCESS_READONLY};
    bool8_t changed = 0;
    char id[256];
    size_t size = sizeof id;
    GC_ERROR status = GC_ERR_ERROR;
    REQUIRE(gentl.IFUpdateDeviceList(iface, &changed, 1000));
    CHECK(changed, "the list has changed");
    REQUIRE(gentl.IFGetDeviceID(iface, 0, id, &size));
    for (size_t i = 0; status != GC_ERR_SUCCESS && i < sizeof accesses / sizeof accesses[0]; i++) {
        status = gentl.IFOpenDevice(iface, id, accesses[i], &dev);
    }
    CHECK_EQUAL(status, GC_ERR_SUCCESS, "one of the accesses works");
    REQUIRE(gentl.DevGetPort(dev, &remote));
}

static void open_stream(void)
{
    char id[256];
    size_t size = sizeof id;
    REQUIRE(gentl.DevGetDataStreamID(dev, 0, id, &size));
    REQUIRE(gentl.DevOpenDataStream(dev, id, &stream));
}

static void load_documents(void)
{
    check_description(tl, "TLPort");
    check_description(iface, "InterfacePort");
    check_description(dev, "DevicePort");
    check_description(stream, "StreamPort");
    check_description(remote, "Device");
}

static void announce(void)
{
    INFO_DATATYPE type;
    bool8_t defines = 0;
    size_t payload = 0;
    size_t minimum = 0;
    size_t size = sizeof defines;
    REQUIRE(gentl.DSGetInfo(stream, STREAM_INFO_DEFINES_PAYLOADSIZE, &type, &defines, &size));
    CHECK(defines, "the stream knows the payload's size");
    size = sizeof payload;
    REQUIRE(gentl.DSGetInfo(stream, STREAM_INFO_PAYLOAD_SIZE, &type, &payload, &size));
    CHECK_EQUAL(payload, bus.payload_size(camera), "which is the camera's");
    size = sizeof minimum;
    REQUIRE(gentl.DSGetInfo(stream, STREAM_INFO_BUF_ANNOUNCE_MIN, &type, &minimum, &size));
    CHECK(minimum <= BUFFERS, "%d buffers are enough", BUFFERS);
    for (int i = 0; i < BUFFERS; i++) {
        BUFFER_HANDLE buffer = NULL;
        REQUIRE(gentl.DSAllocAndAnnounceBuffer(stream, payload, NULL, &buffer));
        REQUIRE(gentl.DSQueueBuffer(stream, buffer));
    }
}

static uint64_t buffer_number(BUFFER_HANDLE buffer, BUFFER_INFO_CMD command)
{
    INFO_DATATYPE type;
    uint64_t value = 0;
    size_t size = sizeof value;
    REQUIRE(gentl.DSGetBufferInfo(stream, buffer, command, &type, &value, &size));
    return value;
}

static void take_image(void)
{
    EVENT_NEW_BUFFER_DATA data;
    size_t size = sizeof data;
    uint32_t parts = 99;
    REQUIRE(gentl.EventGetData(event, &data, &size, GENTL_INFINITE));
    const BUFFER_HANDLE buffer = data.BufferHandle;
    CHECK(buffer_number(buffer, BUFFER_INFO_IS_INCOMPLETE) == 0, "the image is whole");
    if (gentl.DSGetNumBufferParts(stream, buffer, &parts) == GC_ERR_SUCCESS) {
        CHECK(parts > 0, "an image with parts has some");
    }
    CHECK(buffer_number(buffer, BUFFER_INFO_IMAGEPRESENT) != 0, "there is an image");
    CHECK_EQUAL(buffer_number(buffer, BUFFER_INFO_WIDTH), 320, "its width");
    CHECK_EQUAL(buffer_number(buffer, BUFFER_INFO_HEIGHT), 240, "its height");
    CHECK_EQUAL(buffer_number(buffer, BUFFER_INFO_PIXEL_ENDIANNESS), PIXELENDIANNESS_LITTLE,
                "its byte order");
    CHECK_EQUAL(buffer_number(buffer, BUFFER_INFO_PIXELFORMAT), 0x01080001, "Mono8");
    check_image(stream, buffer, 0);
    REQUIRE(gentl.DSQueueBuffer(stream, buffer));
}

static void revoke_first_until_there_is_none(void)
{
    BUFFER_HANDLE buffer = NULL;
    int revoked = 0;
    while (gentl.DSGetBufferID(stream, 0, &buffer) == GC_ERR_SUCCESS && revoked <= BUFFERS) {
        REQUIRE(gentl.DSRevokeBuffer(stream, buffer, NULL, NULL));
        revoked++;
    }
    CHECK_EQUAL(revoked, BUFFERS, "each buffer once");
}

static void acquire(void)
{
    announce();
    REQUIRE(gentl.GCRegisterEvent(stream, EVENT_NEW_BUFFER, &event));
    REQUIRE(gentl.DSStartAcquisition(stream, ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE));
    write_register(remote, ACQUISITION, 1);
    for (int i = 0; i < IMAGES; i++) {
        take_image();
    }
    write_register(remote, ACQUISITION, 0); /* before the producer stops */
    REQUIRE(gentl.DSStopAcquisition(stream, ACQ_STOP_FLAGS_DEFAULT));
    REQUIRE(gentl.GCUnregisterEvent(stream, EVENT_NEW_BUFFER));
    REQUIRE(gentl.DSFlushQueue(stream, ACQ_QUEUE_ALL_DISCARD));
    revoke_first_until_there_is_none();
}

int main(int count, char** arguments)
{
    consumer_begin(count, arguments, RTLD_NOW | RTLD_LOCAL | RTLD_DEEPBIND, "width=320,height=240");
    open_interface();
    open_device();
    open_stream();
    load_documents();
    acquire();
    acquire();
    REQUIRE(gentl.DSClose(stream));
    REQUIRE(gentl.DevClose(dev));
    REQUIRE(gentl.IFClose(iface));
    REQUIRE(gentl.TLClose(tl));
    REQUIRE(gentl.GCCloseLib());
    return consumer_end();
}
