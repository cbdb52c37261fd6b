/*
 * What the programs share that make the calls of today's applications, in their order: the producer
 * that is named on the command line, in front of a simulated bus with one camera, and short ways to
 * check. Each program stands for one application and fails where the producer answers otherwise
 * than that application needs.
 */
#ifndef ZR_TESTS_CONTRACT_CONSUMER_H
#define ZR_TESTS_CONTRACT_CONSUMER_H

#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "producer.h"
#include "tap.h"

/* A call that has to succeed: nothing below could be meaningful. */
#define REQUIRE(call)                                                                              \
    do {                                                                                           \
        if (!CHECK_EQUAL(call, GC_ERR_SUCCESS, "%s", #call)) {                                     \
            tap_bail_out("last error: %s", consumer_last_error());                                 \
        }                                                                                          \
    } while (0)

/* An info query as most make it: the size first, then the answer into an array. */
#define ASK(answer, function, ...)                                                                 \
    do {                                                                                           \
        size_t needed = 0;                                                                         \
        REQUIRE(gentl.function(__VA_ARGS__, NULL, &needed));                                       \
        CHECK(needed <= sizeof answer, "the answer has %zu bytes", needed);                        \
        REQUIRE(gentl.function(__VA_ARGS__, answer, &needed));                                     \
    } while (0)

/* A handle variable that nobody has set: it holds what was there before. */
#define UNINITIALISED ((void*)(uintptr_t)0xA5A5A5A5A5A5A5A5)

/* How long is waited for something that has to come. */
enum
{
    PATIENCE_MS = 30000
};

/* Registers of the simulated camera, as its description file has them. */
enum
{
    ACQUISITION_MODE = 0x50010,
    ACQUISITION = 0x50014, /* 1 starts, 0 stops */
};

/* The camera on the bus. */
extern int camera;

/* Loads the producer of the command line with these flags of dlopen and plugs one camera. */
void consumer_begin(int count, char** arguments, int flags, const char* camera_options);
/* What the library broke of libusb's rules is checked; the exit status of the program. */
int consumer_end(void);

/* The text of this thread's last error. */
const char* consumer_last_error(void);

void write_register(PORT_HANDLE remote, uint64_t address, uint32_t value);

/* Where a URL "local:name;address;length" says the description file lies. */
struct file_place
{
    char name[256];
    uint64_t address;
    size_t length;
};
struct file_place split_url(const char* url);
/* The file behind a port's first URL, ended by a zero; for free(). */
char* read_description(PORT_HANDLE port, struct file_place* place);
/* Every name that the file refers to is defined in it, and its port has the name that the producer
 * gives. */
void check_description(PORT_HANDLE port, const char* wanted_port);

/* Every byte of the image is what the camera sent as this frame; chunks lie behind it or do not. */
void check_image(DS_HANDLE stream, BUFFER_HANDLE buffer, int with_chunks);

#endif
