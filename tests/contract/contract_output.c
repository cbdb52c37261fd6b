/*
 * What the library prints into a process that is not its own: the few texts about a stream's end,
 * which have always been there, on standard output; on standard error nothing, whatever happens.
 */
#define _GNU_SOURCE /* memfd_create */
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include "producer.h"
#include "session.h"
#include "tap.h"

struct capture
{
    int file;
    int descriptor;
    int saved;
    char text[4096];
};

static void capture_begin(struct capture* capture, int descriptor)
{
    fflush(NULL);
    capture->descriptor = descriptor;
    capture->file = memfd_create("capture", MFD_CLOEXEC);
    capture->saved = fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    if (capture->file < 0 || capture->saved < 0 || dup2(capture->file, descriptor) < 0) {
        tap_bail_out("cannot redirect descriptor %d", descriptor);
    }
}

static void capture_end(struct capture* capture)
{
    fflush(NULL);
    dup2(capture->saved, capture->descriptor);
    close(capture->saved);
    const ssize_t size = pread(capture->file, capture->text, sizeof capture->text - 1, 0);
    capture->text[size > 0 ? size : 0] = '\0';
    close(capture->file);
}

static void take_image(const struct session* session)
{
    EVENT_NEW_BUFFER_DATA data;
    size_t size = sizeof data;
    CHECK_EQUAL(gentl.EventGetData(session->event, &data, &size, SESSION_WAIT_MS), 0, "image");
    gentl.DSQueueBuffer(session->stream, data.BufferHandle);
}

static void wait_until_silent(const struct session* session)
{
    EVENT_NEW_BUFFER_DATA data;
    size_t size = sizeof data;
    while (gentl.EventGetData(session->event, &data, &size, 200) == 0) {
    }
}

/* One life of the library, with an acquisition; the camera may go in the middle of it. */
static void live(int camera, int unplugged)
{
    struct session session;
    CHECK_EQUAL(gentl.GCInitLib(), 0, "GCInitLib");
    session_open(&session, 4);
    gentl.DSFlushQueue(session.stream, ACQ_QUEUE_ALL_TO_INPUT);
    CHECK_EQUAL(gentl.DSStartAcquisition(session.stream, 0, GENTL_INFINITE), 0, "start");
    for (int i = 0; i < 5; i++) {
        take_image(&session);
    }
    if (unplugged) {
        bus.unplug(camera);
        wait_until_silent(&session);
    }
    gentl.DSStopAcquisition(session.stream, ACQ_STOP_FLAGS_DEFAULT);
    /* Mistakes of the consumer, and what a failing camera answers, are told by status alone. */
    size_t size = 4;
    uint32_t value = 0;
    gentl.GCReadPort(session.remote, ~0ULL, &value, &size);
    gentl.GCReadPort(&value, 0, &value, &size);
    gentl.DSQueueBuffer(session.stream, &value);
    gentl.EventKill(&value);
    gentl.GCInitLib();
    CHECK_EQUAL(gentl.GCCloseLib(), 0, "GCCloseLib");
    session_free_memory(&session);
}

/* Whether the camera goes while a transfer is under way or between two, is chance. */
static const char* either(const char* found, const char* one, const char* other)
{
    return strcmp(found, other) == 0 ? other : one;
}

static void check_output(int camera, int unplugged, const char* wanted, const char* or_else,
                         const char* what)
{
    struct capture output;
    struct capture errors;
    capture_begin(&output, STDOUT_FILENO);
    capture_begin(&errors, STDERR_FILENO);
    live(camera, unplugged);
    capture_end(&errors);
    capture_end(&output);
    CHECK_TEXT(output.text, either(output.text, wanted, or_else), "standard output of %s", what);
    CHECK_TEXT(errors.text, "", "standard error of %s", what);
}

int main(int count, char** arguments)
{
    if (count != 2) {
        tap_bail_out("usage: %s <zr_u3v_tl.cti>", arguments[0]);
    }
    void* const library = producer_load(arguments[1]);
    virtual_bus_find(library);
    bus.reset();
    const int camera = bus.add_camera("width=64,height=48,fps=100");
    check_output(camera, 0, "\n\n", "\n\n", "an acquisition");
    check_output(camera, 1, "No Device\nDS_STATUS_IMAGE_TIMEOUT\n\n\n",
                 "Unable to submit URB. libusb error code: -4\nDS_STATUS_IMAGE_TIMEOUT\n\n\n",
                 "a camera that is unplugged");
    return tap_finish();
}
