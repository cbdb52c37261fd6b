/* Everything from the system down to queued buffers, opened on the first camera of the bus. */
#ifndef ZR_TESTS_CONTRACT_SESSION_H
#define ZR_TESTS_CONTRACT_SESSION_H

#include <zr_u3v_tl/gentl.h>

#define SESSION_MAX_BUFFERS 8

struct session
{
    TL_HANDLE system;
    IF_HANDLE interface;
    DEV_HANDLE device;
    PORT_HANDLE remote;
    DS_HANDLE stream;
    EVENT_HANDLE event; /* EVENT_NEW_BUFFER on the stream */
    size_t payload_size;
    size_t buffer_count;
    BUFFER_HANDLE buffers[SESSION_MAX_BUFFERS]; /* the even ones are the session's own memory */
    void* memory[SESSION_MAX_BUFFERS];
};

/* How long one discovery request lasts, and how long a test waits for something that is to come. */
enum
{
    SESSION_DISCOVERY_MS = 50,
    SESSION_WAIT_MS = 10000
};

/* The library has to be initialised. Each step is a check; one that fails ends the program. */
void session_open(struct session* session, size_t buffer_count);
/* Revokes and closes everything; the library stays initialised. */
void session_close(struct session* session);

/* The parts of the above. */
void session_open_device(struct session* session);
void session_open_stream(struct session* session);
void session_announce(struct session* session, size_t buffer_count);
void session_revoke(struct session* session);

/* For a session whose modules were closed without revoking. */
void session_free_memory(struct session* session);

/* `changed` as the call that succeeds has it; may be NULL. */
GC_ERROR session_update_device_list(IF_HANDLE interface, bool8_t* changed);

uint32_t session_read_register(const struct session* session, uint64_t address);

#endif
