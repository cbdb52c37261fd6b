/*
 * The main job through the exported functions alone: discovery, opening, registers, the description
 * file, acquisition without end, acquisition of three images, the flush operations, stop, close;
 * and all of it a second time in the same process.
 */
#include <stdlib.h>
#include <string.h>

#include "producer.h"
#include "session.h"
#include "tap.h"

enum
{
    BUFFERS = SESSION_MAX_BUFFERS,
    IMAGES = 50,
    MANUFACTURER_NAME = 0x004, /* bootstrap registers of the camera */
    USER_DEFINED_NAME = 0x184,
    NAME_LENGTH = 64,
    DOCUMENT_ADDRESS = 0x10000,
};

/* Slow enough for a loaded machine: buffers and stream channel together hold a third of a second,
 * and within that no image may be lost. */
static const char camera_options[] = "width=320,height=240,fps=50";

static int camera;

static void text_of_system(TL_HANDLE system, TL_INFO_CMD command, const char* wanted)
{
    INFO_DATATYPE type = 0;
    char text[256] = "";
    size_t size = sizeof text;
    CHECK_EQUAL(gentl.TLGetInfo(system, command, &type, text, &size), 0, "TLGetInfo %d", command);
    CHECK_EQUAL(type, INFO_DATATYPE_STRING, "is a string");
    CHECK_TEXT(text, wanted, "with the producer's identity");
    CHECK_EQUAL(size, strlen(wanted) + 1, "whose size counts the zero");
}

static void system_rules(TL_HANDLE system)
{
    text_of_system(system, TL_INFO_ID, "ZrGenTLU3V");
    text_of_system(system, TL_INFO_VENDOR, "ZRK-ORVANE GmbH");
    text_of_system(system, TL_INFO_MODEL, "U3VTL");
    text_of_system(system, TL_INFO_VERSION, ZR_EXACT_VERSION);
    text_of_system(system, TL_INFO_TLTYPE, "U3V");
    text_of_system(system, TL_INFO_NAME, "zr_u3v_tl.cti");
    text_of_system(system, TL_INFO_DISPLAYNAME, "ZRK-ORVANE U3VTL");
    INFO_DATATYPE type = 0;
    uint32_t version = 0;
    size_t size = sizeof version;
    CHECK_EQUAL(gentl.GCGetInfo(TL_INFO_GENTL_VER_MINOR, &type, &version, &size), 0, "GCGetInfo");
    CHECK(version == 3 && type == INFO_DATATYPE_UINT32, "GenTL 1.3, as unsigned 32 bit");
    CHECK_EQUAL(gentl.TLGetInfo(system, 11, &type, &version, &size), GC_ERR_NOT_IMPLEMENTED,
                "a command behind the last");
    CHECK_EQUAL(gentl.TLGetInfo(system, TL_INFO_ID, NULL, NULL, &size), GC_ERR_INVALID_PARAMETER,
                "TLGetInfo without a type");
}

static void interface_list_rules(TL_HANDLE system)
{
    uint32_t count = 99;
    bool8_t changed = 0;
    IF_HANDLE interface = NULL;
    CHECK_EQUAL(gentl.TLGetNumInterfaces(system, &count), 0, "TLGetNumInterfaces");
    CHECK_EQUAL(count, 0, "no interface before the first update");
    CHECK_EQUAL(gentl.TLOpenInterface(system, "ZRK-USB-3-IF ID", &interface), GC_ERR_INVALID_ID,
                "nor can it be opened");
    CHECK_EQUAL(gentl.TLUpdateInterfaceList(system, &changed, 0), 0, "TLUpdateInterfaceList");
    CHECK(changed, "the first update changes the list");
    CHECK_EQUAL(gentl.TLUpdateInterfaceList(system, &changed, 0), 0, "TLUpdateInterfaceList");
    CHECK(!changed, "the second does not");
    gentl.TLGetNumInterfaces(system, &count);
    CHECK_EQUAL(count, 1, "one interface stands for the whole bus");
    char id[64] = "";
    size_t size = sizeof id;
    CHECK_EQUAL(gentl.TLGetInterfaceID(system, 1, id, &size), GC_ERR_INVALID_INDEX,
                "no second one");
    size = sizeof id;
    CHECK_EQUAL(gentl.TLGetInterfaceID(system, 0, id, &size), 0, "TLGetInterfaceID");
    CHECK_TEXT(id, "ZRK-USB-3-IF ID", "its id");
    CHECK_EQUAL(gentl.TLOpenInterface(system, "zrk-usb-3-if id", &interface), GC_ERR_INVALID_ID,
                "letter case counts");
    CHECK_EQUAL(gentl.TLGetNumInterfaces(system, NULL), GC_ERR_INVALID_PARAMETER, "no count");
}

static void system_and_interface(void)
{
    TL_HANDLE system = NULL;
    IF_HANDLE interface = NULL;
    IF_HANDLE second = NULL;
    uint32_t count = 99;
    CHECK_EQUAL(gentl.TLOpen(&system), 0, "TLOpen");
    system_rules(system);
    interface_list_rules(system);
    CHECK_EQUAL(gentl.TLOpenInterface(system, "ZRK-USB-3-IF ID", &interface), 0, "open interface");
    CHECK_EQUAL(gentl.TLOpenInterface(system, "ZRK-USB-3-IF ID", &second), GC_ERR_RESOURCE_IN_USE,
                "once");
    CHECK_EQUAL(gentl.IFGetNumDevices(interface, &count), 0, "IFGetNumDevices");
    CHECK_EQUAL(count, 0, "no device before the first update");
    bool8_t changed = 0;
    CHECK_EQUAL(session_update_device_list(interface, &changed), 0, "update");
    gentl.IFGetNumDevices(interface, &count);
    CHECK(changed && count == 1, "finds the camera");
    CHECK_EQUAL(session_update_device_list(interface, &changed), 0, "again");
    CHECK(!changed, "finds nothing new");
    CHECK_EQUAL(gentl.IFClose(interface), 0, "IFClose");
    CHECK_EQUAL(gentl.TLClose(system), 0, "TLClose");
}

static void device_text(const struct session* session, DEVICE_INFO_CMD command, char* text)
{
    INFO_DATATYPE type = 0;
    size_t size = NAME_LENGTH;
    CHECK_EQUAL(gentl.DevGetInfo(session->device, command, &type, text, &size), 0, "DevGetInfo %d",
                command);
    CHECK_EQUAL(type, INFO_DATATYPE_STRING, "is a string");
}

static void registers(const struct session* session)
{
    char vendor[NAME_LENGTH] = "";
    char in_camera[NAME_LENGTH] = "";
    size_t size = sizeof in_camera;
    device_text(session, DEVICE_INFO_VENDOR, vendor);
    CHECK_EQUAL(gentl.GCReadPort(session->remote, MANUFACTURER_NAME, in_camera, &size), 0,
                "read a register of the camera");
    CHECK_TEXT(in_camera, vendor, "the vendor is the one that discovery found");

    char before[NAME_LENGTH] = "";
    char after[NAME_LENGTH] = "";
    char name[NAME_LENGTH] = "left line, top";
    size = NAME_LENGTH;
    gentl.GCReadPort(session->remote, USER_DEFINED_NAME, before, &size);
    CHECK_EQUAL(gentl.GCWritePort(session->remote, USER_DEFINED_NAME, name, &size), 0,
                "write a register of the camera");
    CHECK_EQUAL(gentl.GCReadPort(session->remote, USER_DEFINED_NAME, after, &size), 0, "read it");
    CHECK_TEXT(after, name, "and find what was written");
    gentl.GCWritePort(session->remote, USER_DEFINED_NAME, before, &size);
    CHECK_EQUAL(gentl.GCReadPort(session->remote, 0, NULL, &size), GC_ERR_INVALID_PARAMETER,
                "read without a buffer");
}

/* Fetches the document behind a port's first URL; the caller frees it. */
static char* fetch_document(PORT_HANDLE port, size_t* length)
{
    char url[1024] = "";
    size_t size = sizeof url;
    unsigned long long address = 0;
    unsigned long long bytes = 0;
    INFO_DATATYPE type = 0;
    CHECK_EQUAL(gentl.GCGetPortURLInfo(port, 0, URL_INFO_URL, &type, url, &size), 0, "port URL");
    const char* const numbers = strchr(url, ';');
    if (!CHECK(strncmp(url, "local:", 6) == 0 && numbers != NULL, "is local: %s", url)) {
        tap_bail_out("no document");
    }
    char* rest = NULL;
    address = strtoull(numbers + 1, &rest, 16);
    bytes = strtoull(rest + 1, NULL, 16);
    char* const document = calloc(bytes + 1, 1);
    *length = (size_t)bytes;
    CHECK_EQUAL(gentl.GCReadPort(port, address, document, length), 0, "document is read");
    return document;
}

static void documents(const struct session* session)
{
    void* const modules[] = {session->system, session->interface, session->device, session->stream};
    for (size_t i = 0; i < sizeof modules / sizeof modules[0]; i++) {
        size_t length = 0;
        char* const document = fetch_document(modules[i], &length);
        CHECK(strstr(document, "<RegisterDescription") != NULL, "it describes registers");
        CHECK(strlen(document) == length && document[length - 1] != 0, "to its last byte");
        free(document);
    }
    size_t length = 0;
    char* const file = fetch_document(session->remote, &length);
    const size_t wanted = bus.description_file(camera, NULL, 0);
    char* const original = malloc(wanted);
    bus.description_file(camera, original, wanted);
    CHECK_EQUAL(length, wanted, "the camera's file has its length");
    CHECK(length == wanted && memcmp(file, original, wanted) == 0, "and every byte of it");
    free(original);
    free(file);
}

static uint64_t buffer_number(const struct session* session, BUFFER_HANDLE buffer,
                              BUFFER_INFO_CMD command)
{
    INFO_DATATYPE type = 0;
    uint64_t value = 0;
    size_t size = sizeof value;
    GC_ERROR status = gentl.DSGetBufferInfo(session->stream, buffer, command, &type, &value, &size);
    if (status != 0) {
        CHECK_EQUAL(status, 0, "DSGetBufferInfo %d", command);
    }
    return value;
}

static size_t stream_number(const struct session* session, STREAM_INFO_CMD command)
{
    INFO_DATATYPE type = 0;
    size_t value = 0;
    size_t size = sizeof value;
    CHECK_EQUAL(gentl.DSGetInfo(session->stream, command, &type, &value, &size), 0, "DSGetInfo %d",
                command);
    return value;
}

static GC_ERROR next_buffer(const struct session* session, EVENT_NEW_BUFFER_DATA* data,
                            uint64_t timeout)
{
    size_t size = sizeof *data;
    memset(data, 0, sizeof *data);
    return gentl.EventGetData(session->event, data, &size, timeout);
}

/* One image as it was sent: complete, with its number, and the same byte for byte. */
static int image_is_right(const struct session* session, const EVENT_NEW_BUFFER_DATA* data,
                          uint64_t frame)
{
    const void* base = NULL;
    size_t size = sizeof base;
    INFO_DATATYPE type = 0;
    gentl.DSGetBufferInfo(session->stream, data->BufferHandle, BUFFER_INFO_BASE, &type, &base,
                          &size);
    return data->pUserPointer != NULL &&
           *(BUFFER_HANDLE*)data->pUserPointer == data->BufferHandle &&
           buffer_number(session, data->BufferHandle, BUFFER_INFO_FRAMEID) == frame &&
           buffer_number(session, data->BufferHandle, BUFFER_INFO_SIZE_FILLED) ==
               session->payload_size &&
           buffer_number(session, data->BufferHandle, BUFFER_INFO_IS_INCOMPLETE) == 0 &&
           bus.compare_image(camera, frame, base, session->payload_size) == -1;
}

static void queue_all(const struct session* session)
{
    for (size_t i = 0; i < session->buffer_count; i++) {
        CHECK_EQUAL(gentl.DSQueueBuffer(session->stream, session->buffers[i]), 0, "queue");
    }
}

/* The numbers of the images follow each other from the first one on; the camera chooses that. */
static void acquire(const struct session* session, uint64_t limit, unsigned images)
{
    unsigned right = 0;
    uint64_t first = 0;
    queue_all(session);
    CHECK_EQUAL(gentl.DSStartAcquisition(session->stream, ACQ_START_FLAGS_DEFAULT, limit), 0,
                "start");
    for (unsigned i = 0; i < images; i++) {
        EVENT_NEW_BUFFER_DATA data;
        if (!CHECK_EQUAL(next_buffer(session, &data, SESSION_WAIT_MS), 0, "image %u comes", i)) {
            break;
        }
        if (i == 0) {
            first = buffer_number(session, data.BufferHandle, BUFFER_INFO_FRAMEID);
        }
        right += (unsigned)image_is_right(session, &data, first + i);
        if (limit == GENTL_INFINITE) {
            CHECK_EQUAL(gentl.DSQueueBuffer(session->stream, data.BufferHandle), 0, "queue again");
        }
    }
    CHECK_EQUAL(right, images, "all images are right, in order, none lost");
}

static void stop(const struct session* session)
{
    CHECK_EQUAL(gentl.DSStopAcquisition(session->stream, ACQ_STOP_FLAGS_DEFAULT), 0, "stop");
    CHECK_EQUAL(gentl.DSFlushQueue(session->stream, ACQ_QUEUE_ALL_DISCARD), 0, "discard all");
    CHECK_EQUAL(stream_number(session, STREAM_INFO_NUM_QUEUED), 0, "nothing stays queued");
    CHECK_EQUAL(stream_number(session, STREAM_INFO_NUM_AWAIT_DELIVERY), 0, "nothing waits");
}

static void acquisition(const struct session* session)
{
    CHECK_EQUAL(gentl.DSStartAcquisition(session->stream, 0, 0), GC_ERR_INVALID_PARAMETER,
                "start of no image");
    acquire(session, GENTL_INFINITE, IMAGES);
    CHECK_EQUAL(gentl.DSStopAcquisition(session->stream, 2), GC_ERR_NOT_IMPLEMENTED, "odd stop");
    stop(session);

    const size_t delivered = stream_number(session, STREAM_INFO_NUM_DELIVERED);
    acquire(session, 3, 3);
    EVENT_NEW_BUFFER_DATA data;
    CHECK_EQUAL(next_buffer(session, &data, 300), GC_ERR_TIMEOUT, "no fourth image");
    CHECK_EQUAL(stream_number(session, STREAM_INFO_NUM_DELIVERED), delivered + 3, "three more");
    stop(session);
}

static void expect_queues(const struct session* session, size_t queued, size_t waiting)
{
    CHECK_EQUAL(stream_number(session, STREAM_INFO_NUM_QUEUED), queued, "buffers queued");
    CHECK_EQUAL(stream_number(session, STREAM_INFO_NUM_AWAIT_DELIVERY), waiting, "waiting");
}

static void flush(const struct session* session, ACQ_QUEUE_TYPE operation, size_t queued,
                  size_t waiting)
{
    CHECK_EQUAL(gentl.DSFlushQueue(session->stream, operation), 0, "flush operation %d", operation);
    expect_queues(session, queued, waiting);
}

static void flush_operations(const struct session* session)
{
    EVENT_NEW_BUFFER_DATA data;
    queue_all(session);
    expect_queues(session, BUFFERS, 0);
    CHECK_EQUAL(gentl.DSQueueBuffer(session->stream, session->buffers[0]), GC_ERR_RESOURCE_IN_USE,
                "a queued buffer is not queued twice");
    void* base = NULL;
    CHECK_EQUAL(gentl.DSRevokeBuffer(session->stream, session->buffers[0], &base, NULL),
                GC_ERR_BUSY, "nor revoked");
    flush(session, ACQ_QUEUE_INPUT_TO_OUTPUT, 0, BUFFERS);
    for (size_t i = 0; i < BUFFERS; i++) {
        CHECK_EQUAL(next_buffer(session, &data, 0), 0, "delivery of a flushed buffer");
        CHECK(data.BufferHandle == session->buffers[i], "in the order of queueing");
    }
    CHECK_EQUAL(next_buffer(session, &data, 0), GC_ERR_TIMEOUT, "then none");
    flush(session, ACQ_QUEUE_UNQUEUED_TO_INPUT, BUFFERS, 0);
    flush(session, ACQ_QUEUE_INPUT_TO_OUTPUT, 0, BUFFERS);
    flush(session, ACQ_QUEUE_OUTPUT_DISCARD, 0, 0);
    flush(session, ACQ_QUEUE_ALL_TO_INPUT, BUFFERS, 0);
    flush(session, ACQ_QUEUE_ALL_DISCARD, 0, 0);
    CHECK_EQUAL(gentl.DSFlushQueue(session->stream, 5), GC_ERR_NOT_IMPLEMENTED, "no sixth one");
}

static void event_rules(const struct session* session)
{
    EVENT_NEW_BUFFER_DATA data;
    EVENT_HANDLE second = NULL;
    size_t size = sizeof data - 1;
    CHECK_EQUAL(gentl.EventGetData(session->event, &data, &size, 0), GC_ERR_BUFFER_TOO_SMALL,
                "a buffer one byte short");
    CHECK_EQUAL(size, sizeof data, "is told the size");
    CHECK_EQUAL(gentl.GCRegisterEvent(session->stream, EVENT_NEW_BUFFER, &second),
                GC_ERR_RESOURCE_IN_USE, "registering twice");
    CHECK_EQUAL(gentl.GCRegisterEvent(session->stream, EVENT_ERROR, &second),
                GC_ERR_NOT_IMPLEMENTED, "an event the stream has not");
    CHECK_EQUAL(gentl.EventKill(session->event), 0, "kill");
    CHECK_EQUAL(next_buffer(session, &data, SESSION_WAIT_MS), GC_ERR_ABORT, "aborts every wait");
    CHECK_EQUAL(gentl.EventFlush(session->event), 0, "until a flush");
    CHECK_EQUAL(next_buffer(session, &data, 0), GC_ERR_TIMEOUT, "waits again");
}

static void announce_rules(struct session* session)
{
    BUFFER_HANDLE handle = NULL;
    BUFFER_HANDLE occupied = session;
    CHECK_EQUAL(gentl.DSStartAcquisition(session->stream, 0, 1), GC_ERR_INVALID_BUFFER,
                "start without a buffer");
    session_announce(session, BUFFERS);
    CHECK_EQUAL(gentl.DSAnnounceBuffer(session->stream, session->memory[0], 1, NULL, &handle),
                GC_ERR_RESOURCE_IN_USE, "the same memory twice");
    CHECK_EQUAL(gentl.DSAllocAndAnnounceBuffer(session->stream, 64, NULL, &occupied),
                GC_ERR_INVALID_PARAMETER, "an occupied handle variable");
    CHECK_EQUAL(gentl.DSGetBufferID(session->stream, BUFFERS, &handle), GC_ERR_INVALID_INDEX,
                "no buffer behind the last");
    CHECK_EQUAL(stream_number(session, STREAM_INFO_NUM_ANNOUNCED), BUFFERS, "announced");
}

static void whole_job(void)
{
    struct session session;
    CHECK_EQUAL(gentl.GCInitLib(), 0, "GCInitLib");
    system_and_interface();
    session_open_device(&session);
    registers(&session);
    session_open_stream(&session);
    CHECK_EQUAL(session.payload_size, bus.payload_size(camera), "the camera's payload size");
    documents(&session);
    announce_rules(&session);
    event_rules(&session);
    flush_operations(&session);
    acquisition(&session);
    flush_operations(&session);
    session_close(&session);
    CHECK_EQUAL(gentl.GCCloseLib(), 0, "GCCloseLib");
}

int main(int count, char** arguments)
{
    if (count != 2) {
        tap_bail_out("usage: %s <zr_u3v_tl.cti>", arguments[0]);
    }
    void* const library = producer_load(arguments[1]);
    virtual_bus_find(library);
    bus.reset();
    camera = bus.add_camera(camera_options);
    whole_job();
    whole_job();
    CHECK_EQUAL(bus.violations(NULL), 0, "no rule of libusb was broken");
    producer_unload(library);
    return tap_finish();
}
