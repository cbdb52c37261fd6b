#include "session.h"

#include <stdlib.h>
#include <string.h>

#include "producer.h"
#include "tap.h"

/* The camera's payload size, in its own register space. */
static const uint64_t payload_size_register = 0x5000C;

#define REQUIRE(call)                                                                              \
    do {                                                                                           \
        GC_ERROR status = (call);                                                                  \
        if (!CHECK_EQUAL(status, GC_ERR_SUCCESS, "%s", #call)) {                                   \
            tap_bail_out("nothing below can work");                                                \
        }                                                                                          \
    } while (0)

uint32_t session_read_register(const struct session* session, uint64_t address)
{
    uint32_t value = 0;
    size_t size = sizeof value;
    REQUIRE(gentl.GCReadPort(session->remote, address, &value, &size));
    return value;
}

/* On a busy machine a pass may take longer than was given to it; a later update finds it done. */
GC_ERROR session_update_device_list(IF_HANDLE interface, bool8_t* changed)
{
    GC_ERROR status = GC_ERR_TIMEOUT;
    for (int i = 0; i < 200 && status == GC_ERR_TIMEOUT; i++) {
        status = gentl.IFUpdateDeviceList(interface, changed, SESSION_DISCOVERY_MS);
    }
    return status;
}

void session_open_device(struct session* session)
{
    memset(session, 0, sizeof *session);
    char id[256] = "";
    size_t size = sizeof id;
    REQUIRE(gentl.TLOpen(&session->system));
    REQUIRE(gentl.TLUpdateInterfaceList(session->system, NULL, 0));
    REQUIRE(gentl.TLGetInterfaceID(session->system, 0, id, &size));
    REQUIRE(gentl.TLOpenInterface(session->system, id, &session->interface));
    REQUIRE(session_update_device_list(session->interface, NULL));
    size = sizeof id;
    REQUIRE(gentl.IFGetDeviceID(session->interface, 0, id, &size));
    REQUIRE(gentl.IFOpenDevice(session->interface, id, DEVICE_ACCESS_EXCLUSIVE, &session->device));
    REQUIRE(gentl.DevGetPort(session->device, &session->remote));
}

void session_open_stream(struct session* session)
{
    char id[256] = "";
    size_t size = sizeof id;
    REQUIRE(gentl.DevGetDataStreamID(session->device, 0, id, &size));
    REQUIRE(gentl.DevOpenDataStream(session->device, id, &session->stream));
    REQUIRE(gentl.GCRegisterEvent(session->stream, EVENT_NEW_BUFFER, &session->event));
    session->payload_size = session_read_register(session, payload_size_register);
}

void session_announce(struct session* session, size_t buffer_count)
{
    for (size_t i = 0; i < buffer_count; i++) {
        void* const user = &session->buffers[i];
        session->buffers[i] = NULL;
        session->memory[i] = NULL;
        if (i % 2 == 0) {
            session->memory[i] = malloc(session->payload_size);
            REQUIRE(gentl.DSAnnounceBuffer(session->stream, session->memory[i],
                                           session->payload_size, user, &session->buffers[i]));
        } else {
            REQUIRE(gentl.DSAllocAndAnnounceBuffer(session->stream, session->payload_size, user,
                                                   &session->buffers[i]));
        }
    }
    session->buffer_count = buffer_count;
}

void session_revoke(struct session* session)
{
    for (size_t i = 0; i < session->buffer_count; i++) {
        void* base = NULL;
        void* user = NULL;
        REQUIRE(gentl.DSRevokeBuffer(session->stream, session->buffers[i], &base, &user));
        CHECK(user == &session->buffers[i], "revoking gives the private pointer back");
        CHECK(session->memory[i] == NULL || base == session->memory[i], "and the memory");
        free(session->memory[i]);
        session->memory[i] = NULL;
    }
    session->buffer_count = 0;
}

void session_free_memory(struct session* session)
{
    for (size_t i = 0; i < session->buffer_count; i++) {
        free(session->memory[i]);
        session->memory[i] = NULL;
    }
}

void session_open(struct session* session, size_t buffer_count)
{
    session_open_device(session);
    session_open_stream(session);
    session_announce(session, buffer_count);
}

void session_close(struct session* session)
{
    REQUIRE(gentl.GCUnregisterEvent(session->stream, EVENT_NEW_BUFFER));
    session_revoke(session);
    REQUIRE(gentl.DSClose(session->stream));
    REQUIRE(gentl.DevClose(session->device));
    REQUIRE(gentl.IFClose(session->interface));
    REQUIRE(gentl.TLClose(session->system));
}
