#define _GNU_SOURCE /* RTLD_DEEPBIND */
#include "consumer.h"

int camera = -1;

static void* library;

/* Sanitizers cannot bear a library that is bound deeply. */
static int possible_flags(int flags)
{
#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
    return flags & ~RTLD_DEEPBIND;
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return flags & ~RTLD_DEEPBIND;
#endif
    return flags;
}

void consumer_begin(int count, char** arguments, int flags, const char* camera_options)
{
    if (count != 2) {
        tap_bail_out("usage: %s <producer.cti>", arguments[0]);
    }
    library = producer_load_any(arguments[1], possible_flags(flags));
    virtual_bus_find(library);
    bus.reset();
    camera = bus.add_camera(camera_options);
    CHECK(camera >= 0, "a camera with %s", camera_options);
}

int consumer_end(void)
{
    CHECK_EQUAL(bus.violations(NULL), 0, "no rule of libusb was broken");
    return tap_finish();
}

const char* consumer_last_error(void)
{
    static char text[1024];
    GC_ERROR code = GC_ERR_SUCCESS;
    size_t size = sizeof text;
    return gentl.GCGetLastError(&code, text, &size) == GC_ERR_SUCCESS ? text : "none";
}

void write_register(PORT_HANDLE remote, uint64_t address, uint32_t value)
{
    size_t size = sizeof value;
    REQUIRE(gentl.GCWritePort(remote, address, &value, &size));
}

struct file_place split_url(const char* url)
{
    struct file_place place = {.name = ""};
    const char* const first = strchr(url, ';');
    const char* const second = first != NULL ? strchr(first + 1, ';') : NULL;
    if (strncmp(url, "local:", 6) != 0 || second == NULL) {
        tap_bail_out("no local URL: %s", url);
    }
    snprintf(place.name, sizeof place.name, "%.*s", (int)(first - url - 6), url + 6);
    char* end = NULL;
    place.address = strtoull(first + 1, &end, 16);
    CHECK(end == second, "the address of %s is hexadecimal", url);
    place.length = strtoull(second + 1, &end, 16);
    CHECK(end > second + 1 && (*end == '\0' || *end == '?'), "and so is the length");
    return place;
}

char* read_description(PORT_HANDLE port, struct file_place* place)
{
    char url[1024];
    size_t size = sizeof url;
    REQUIRE(gentl.GCGetPortURL(port, url, &size));
    *place = split_url(url);
    char* const file = malloc(place->length + 1);
    if (file == NULL) {
        tap_bail_out("no memory for %s", url);
    }
    size = place->length;
    REQUIRE(gentl.GCReadPort(port, place->address, file, &size));
    CHECK_EQUAL(size, place->length, "%s is read as a whole", place->name);
    file[place->length] = '\0';
    return file;
}

/* Whether some node of the file has the name; the element is "Port" or any. */
static int is_defined(const char* file, const char* element, const char* name, size_t length)
{
    char wanted[512];
    snprintf(wanted, sizeof wanted, "%s Name=\"%.*s\"", element, (int)length, name);
    return strstr(file, wanted) != NULL;
}

void check_description(PORT_HANDLE port, const char* wanted_port)
{
    char name[256];
    INFO_DATATYPE type = INFO_DATATYPE_UNKNOWN;
    ASK(name, GCGetPortInfo, port, PORT_INFO_PORTNAME, &type);
    CHECK_TEXT(name, wanted_port, "the port's name");
    struct file_place place;
    char* const file = read_description(port, &place);
    CHECK(is_defined(file, "<Port", name, strlen(name)), "%s has that port", place.name);
    unsigned references = 0;
    for (const char* at = strstr(file, "<p"); at != NULL; at = strstr(at + 1, "<p")) {
        const char* const begin = strchr(at, '>');
        const size_t length = begin != NULL ? strcspn(begin + 1, "<") : 0;
        if (at[2] < 'A' || at[2] > 'Z' || length == 0) {
            continue;
        }
        references++;
        if (!is_defined(file, "", begin + 1, length)) {
            CHECK(0, "%s refers to %.*s", place.name, (int)length, begin + 1);
        }
    }
    CHECK(references > 0, "%s: %u references, each leads to a node", place.name, references);
    free(file);
}

void check_image(DS_HANDLE stream, BUFFER_HANDLE buffer, int with_chunks)
{
    void* base = NULL;
    size_t filled = 0;
    uint64_t frame = 0;
    bool8_t incomplete = 1;
    size_t size = sizeof base;
    REQUIRE(gentl.DSGetBufferInfo(stream, buffer, BUFFER_INFO_BASE, NULL, &base, &size));
    size = sizeof filled;
    REQUIRE(gentl.DSGetBufferInfo(stream, buffer, BUFFER_INFO_SIZE_FILLED, NULL, &filled, &size));
    size = sizeof frame;
    REQUIRE(gentl.DSGetBufferInfo(stream, buffer, BUFFER_INFO_FRAMEID, NULL, &frame, &size));
    size = sizeof incomplete;
    REQUIRE(
        gentl.DSGetBufferInfo(stream, buffer, BUFFER_INFO_IS_INCOMPLETE, NULL, &incomplete, &size));
    const size_t image = bus.payload_size(camera);
    CHECK(!incomplete && (with_chunks ? filled > image : filled == image), "image %llu is whole",
          (unsigned long long)frame);
    CHECK_EQUAL(bus.compare_image(camera, frame, base, image), -1, "and every byte is right");
}
