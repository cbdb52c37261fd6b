/*
 * The producer comes and goes in a living process: after use, closed or not, unloading leaves no
 * thread and no mapping behind, and a later load starts from nothing.
 */
#include <dirent.h>
#include <dlfcn.h>
#include <pthread.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

#include "producer.h"
#include "session.h"
#include "tap.h"

static int thread_count(void)
{
    int count = 0;
    DIR* const folder = opendir("/proc/self/task");
    if (folder == NULL) {
        tap_bail_out("no /proc");
    }
    for (struct dirent* entry = readdir(folder); entry != NULL; entry = readdir(folder)) {
        count += entry->d_name[0] != '.';
    }
    closedir(folder);
    return count;
}

/* A thread that was joined may be seen for a moment longer. */
static int settled_thread_count(int wanted)
{
    for (int i = 0; i < 2000 && thread_count() != wanted; i++) {
        nanosleep(&(struct timespec){.tv_nsec = 5000000}, NULL); /* until: it has left the list */
    }
    return thread_count();
}

static void* end_at_once(void* argument)
{
    return argument;
}

/* With a first thread a sanitizer may start one of its own, which is none of the library's. */
static void settle_the_runtime(void)
{
    pthread_t thread;
    if (pthread_create(&thread, NULL, end_at_once, NULL) != 0) {
        tap_bail_out("no thread");
    }
    pthread_join(thread, NULL);
}

static int is_mapped(const char* name)
{
    char line[1024];
    int found = 0;
    FILE* const maps = fopen("/proc/self/maps", "r");
    while (fgets(line, sizeof line, maps) != NULL) {
        found |= strstr(line, name) != NULL;
    }
    fclose(maps);
    return found;
}

static void use(int images)
{
    struct session session;
    EVENT_NEW_BUFFER_DATA data;
    CHECK_EQUAL(gentl.GCInitLib(), 0, "GCInitLib");
    session_open(&session, 2);
    if (images > 0) {
        gentl.DSFlushQueue(session.stream, ACQ_QUEUE_ALL_TO_INPUT);
        CHECK_EQUAL(gentl.DSStartAcquisition(session.stream, 0, GENTL_INFINITE), 0, "start");
        size_t size = sizeof data;
        CHECK_EQUAL(gentl.EventGetData(session.event, &data, &size, SESSION_WAIT_MS), 0, "image");
    }
    CHECK_EQUAL(gentl.GCCloseLib(), 0, "GCCloseLib closes everything");
    session_free_memory(&session);
}

int main(int count, char** arguments)
{
    if (count != 2) {
        tap_bail_out("usage: %s <zr_u3v_tl.cti>", arguments[0]);
    }
    settle_the_runtime();
    for (int round = 0; round < 3; round++) {
        void* const library = producer_load(arguments[1]);
        virtual_bus_find(library);
        bus.reset();
        bus.add_camera("");
        const int threads = thread_count();
        if (round == 1) {
            CHECK_EQUAL(gentl.GCGetInfo(0, NULL, NULL, NULL), GC_ERR_NOT_INITIALIZED,
                        "a new load starts from nothing");
        }
        use(round);
        CHECK_EQUAL(settled_thread_count(threads), threads, "no thread is left");
        producer_unload(library);
        CHECK(!is_mapped("libzr_u3v_tl"), "the library has left the process");
    }
    return tap_finish();
}
