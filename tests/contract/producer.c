#include "producer.h"

#include <dlfcn.h>
#include <stdlib.h>
#include <string.h>

#include "tap.h"

struct gentl_functions gentl;
struct virtual_bus bus;

/* A data pointer becomes a function pointer: POSIX allows what C has no cast for. */
static void resolve(void* library, const char* name, void* function)
{
    void* address = dlsym(library, name);
    if (address == NULL) {
        tap_bail_out("%s is not there: %s", name, dlerror());
    }
    memcpy(function, &address, sizeof address);
}

#define ZR_RESOLVE(name) resolve(library, #name, &gentl.name);

void* producer_load_any(const char* path, int flags)
{
    void* library = dlopen(path, flags);
    if (library == NULL) {
        tap_bail_out("cannot load the producer: %s", dlerror());
    }
    ZR_GENTL_FUNCTIONS(ZR_RESOLVE)
    return library;
}

void* producer_load(const char* path)
{
    void* library = producer_load_any(path, RTLD_NOW | RTLD_LOCAL);
    ZR_OWN_FUNCTIONS(ZR_RESOLVE)
    return library;
}

void producer_unload(void* library)
{
    memset(&gentl, 0, sizeof gentl);
    /* A leak is reported after this; only a loaded library has names and lines for it. */
    if (getenv("ZR_KEEP_PRODUCER") != NULL) {
        return;
    }
    if (dlclose(library) != 0) {
        tap_bail_out("cannot unload the producer: %s", dlerror());
    }
}

void virtual_bus_find(void* library)
{
    resolve(library, "vusb_reset", &bus.reset);
    resolve(library, "vusb_add_camera", &bus.add_camera);
    resolve(library, "vusb_unplug", &bus.unplug);
    resolve(library, "vusb_compare_image", &bus.compare_image);
    resolve(library, "vusb_payload_size", &bus.payload_size);
    resolve(library, "vusb_description_file", &bus.description_file);
    resolve(library, "vusb_violations", &bus.violations);
}

const char* status_text(GC_ERROR status)
{
    static const struct
    {
        GC_ERROR status;
        const char* text;
    } texts[] = {
        {0, "No Error"},
        {-1001, "GC_ERR_ERROR"},
        {-1002, "GC_ERR_NOT_INITIALIZED"},
        {-1003, "GC_ERR_NOT_IMPLEMENTED"},
        {-1004, "GC_ERR_RESOURCE_IN_USE"},
        {-1005, "GC_ERR_ACCESS_DENIED"},
        {-1006, "GC_ERR_INVALID_HANDLE"},
        {-1007, "GC_ERR_INVALID_ID"},
        {-1008, "GC_ERR_NO_DATA"},
        {-1009, "GC_ERR_INVALID_PARAMETER"},
        {-1010, "GC_ERR_IO"},
        {-1011, "GC_ERR_TIMEOUT"},
        {-1012, "GC_ERR_ABORT"},
        {-1013, "GC_ERR_INVALID_BUFFER"},
        {-1014, "GC_ERR_NOT_AVAILABLE"},
        {-1015, "GC_ERR_INVALID_ADDRESS"},
        {-1016, "GC_ERR_BUFFER_TOO_SMALL"},
        {-1017, "GC_ERR_INVALID_INDEX"},
    };
    for (size_t i = 0; i < sizeof texts / sizeof texts[0]; i++) {
        if (texts[i].status == status) {
            return texts[i].text;
        }
    }
    return "";
}
