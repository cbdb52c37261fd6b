// libusb-1.0 ABI: the library itself, contexts, device lists, hot plug.

#include <cstdarg>

#include "libusb_abi.h"
#include "virtual_bus_state.h"

using namespace vbus;

namespace {

struct ErrorText
{
    int code;
    const char* name;
    const char* text;
};

constexpr ErrorText kErrors[] = {
    {LIBUSB_SUCCESS, "LIBUSB_SUCCESS", "Success"},
    {LIBUSB_ERROR_IO, "LIBUSB_ERROR_IO", "Input/Output Error"},
    {LIBUSB_ERROR_INVALID_PARAM, "LIBUSB_ERROR_INVALID_PARAM", "Invalid parameter"},
    {LIBUSB_ERROR_ACCESS, "LIBUSB_ERROR_ACCESS", "Access denied (insufficient permissions)"},
    {LIBUSB_ERROR_NO_DEVICE, "LIBUSB_ERROR_NO_DEVICE",
     "No such device (it may have been disconnected)"},
    {LIBUSB_ERROR_NOT_FOUND, "LIBUSB_ERROR_NOT_FOUND", "Entity not found"},
    {LIBUSB_ERROR_BUSY, "LIBUSB_ERROR_BUSY", "Resource busy"},
    {LIBUSB_ERROR_TIMEOUT, "LIBUSB_ERROR_TIMEOUT", "Operation timed out"},
    {LIBUSB_ERROR_OVERFLOW, "LIBUSB_ERROR_OVERFLOW", "Overflow"},
    {LIBUSB_ERROR_PIPE, "LIBUSB_ERROR_PIPE", "Pipe error"},
    {LIBUSB_ERROR_INTERRUPTED, "LIBUSB_ERROR_INTERRUPTED",
     "System call interrupted (perhaps due to signal)"},
    {LIBUSB_ERROR_NO_MEM, "LIBUSB_ERROR_NO_MEM", "Insufficient memory"},
    {LIBUSB_ERROR_NOT_SUPPORTED, "LIBUSB_ERROR_NOT_SUPPORTED",
     "Operation not supported or unimplemented on this platform"},
    {LIBUSB_ERROR_OTHER, "LIBUSB_ERROR_OTHER", "Other error"},
};

const ErrorText* FindError(int code)
{
    for (const ErrorText& error : kErrors) {
        if (error.code == code) {
            return &error;
        }
    }
    return nullptr;
}

template <typename T>
std::uint64_t Number(T value)
{
    return static_cast<std::uint64_t>(value);
}

// A list as libusb hands it out: a block of pointers with a null at its end.
ssize_t MakeList(libusb_context* context, libusb_device*** list)
{
    const BusLock lock = Bus().Guard();
    context = Bus().Resolve(context);
    if (context == nullptr || list == nullptr) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    Bus().Tick();
    const std::vector<libusb_device*> devices = Bus().Devices(context);
    auto** block =
        static_cast<libusb_device**>(std::calloc(devices.size() + 1, sizeof(libusb_device*)));
    if (block == nullptr) {
        return LIBUSB_ERROR_NO_MEM;
    }
    for (std::size_t i = 0; i < devices.size(); ++i) {
        Bus().Reference(devices[i]);
        block[i] = devices[i];
    }
    *list = block;
    return static_cast<ssize_t>(devices.size());
}

int CheckDevice(libusb_device* device)
{
    if (Bus().IsLive(device)) {
        return LIBUSB_SUCCESS;
    }
    Violate("stale-device");
    return LIBUSB_ERROR_NO_DEVICE;
}

int nextHotplugId = 1; // under the bus lock

int RegisterHotplug(libusb_context* context, HotplugCallback callback, int flags,
                    libusb_hotplug_callback_handle* handle)
{
    std::vector<libusb_device*> present;
    {
        const BusLock lock = Bus().Guard();
        context = Bus().Resolve(context);
        constexpr int kAll = LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED | LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT;
        if (context == nullptr || callback.function == nullptr || callback.events == 0 ||
            (callback.events & ~kAll) != 0) {
            return LIBUSB_ERROR_INVALID_PARAM;
        }
        callback.id = nextHotplugId++;
        context->callbacks.push_back(callback);
        if (handle != nullptr) {
            *handle = callback.id;
        }
        if ((flags & LIBUSB_HOTPLUG_ENUMERATE) != 0) {
            present = Bus().Devices(context);
        }
        for (libusb_device* device : present) {
            Bus().Reference(device);
        }
    }
    for (libusb_device* device : present) {
        libusb_device_descriptor descriptor{};
        ParseDevice(device->attachment->device->Descriptors().Device(), descriptor);
        if (callback.Wants(LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED, descriptor)) {
            callback.function(context, device, LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED,
                              callback.userData);
        }
        const BusLock lock = Bus().Guard();
        Bus().Unreference(device);
    }
    return LIBUSB_SUCCESS;
}

} // namespace

int LIBUSB_CALL libusb_init(libusb_context** context)
{
    return Recorded(__func__, context, {}, [&] {
        const BusLock lock = Bus().Guard();
        libusb_context* opened = Bus().OpenContext(context == nullptr);
        if (context != nullptr) {
            *context = opened;
        }
        return int{LIBUSB_SUCCESS};
    });
}

void LIBUSB_CALL libusb_exit(libusb_context* context)
{
    Recorded(__func__, context, {}, [&] {
        const BusLock lock = Bus().Guard();
        if (libusb_context* resolved = Bus().Resolve(context)) {
            Bus().CloseContext(resolved);
        }
    });
}

void LIBUSB_CALL libusb_set_debug(libusb_context* context, int level)
{
    Recorded(__func__, context, {Number(level)}, [] {});
}

void LIBUSB_CALL libusb_set_log_cb(libusb_context* context, libusb_log_cb, int mode)
{
    Recorded(__func__, context, {Number(mode)}, [] {}); // this bus logs nothing
}

int LIBUSB_CALL libusb_set_option(libusb_context* context, enum libusb_option option, ...)
{
    return Recorded(__func__, context, {Number(option)}, [&]() -> int {
        const bool known = option == LIBUSB_OPTION_LOG_LEVEL || option == LIBUSB_OPTION_USE_USBDK ||
                           option == LIBUSB_OPTION_NO_DEVICE_DISCOVERY;
        if (!known) {
            return LIBUSB_ERROR_INVALID_PARAM;
        }
        return option == LIBUSB_OPTION_LOG_LEVEL ? LIBUSB_SUCCESS : LIBUSB_ERROR_NOT_SUPPORTED;
    });
}

const struct libusb_version* LIBUSB_CALL libusb_get_version(void)
{
    static const libusb_version version = {1, 0, 26, 0, "-virtual", "virtual USB bus"};
    return Recorded(__func__, nullptr, {}, [] { return &version; });
}

int LIBUSB_CALL libusb_has_capability(uint32_t capability)
{
    return Recorded(__func__, nullptr, {capability}, [capability] {
        return capability == LIBUSB_CAP_HAS_CAPABILITY || capability == LIBUSB_CAP_HAS_HOTPLUG ||
                       capability == LIBUSB_CAP_SUPPORTS_DETACH_KERNEL_DRIVER
                   ? 1
                   : 0;
    });
}

// Both are also asked for codes of transfers and for nonsense: no script, no journal entry.
const char* LIBUSB_CALL libusb_error_name(int code)
{
    const ErrorText* error = FindError(code);
    return error == nullptr ? "**UNKNOWN**" : error->name;
}

const char* LIBUSB_CALL libusb_strerror(int code)
{
    const ErrorText* error = FindError(code);
    return error == nullptr ? FindError(LIBUSB_ERROR_OTHER)->text : error->text;
}

int LIBUSB_CALL libusb_setlocale(const char* locale)
{
    return Recorded(__func__, locale, {}, [locale]() -> int {
        return locale == nullptr ? LIBUSB_ERROR_INVALID_PARAM : LIBUSB_SUCCESS;
    });
}

ssize_t LIBUSB_CALL libusb_get_device_list(libusb_context* context, libusb_device*** list)
{
    return Recorded(__func__, context, {Argument(list)}, [&] { return MakeList(context, list); });
}

void LIBUSB_CALL libusb_free_device_list(libusb_device** list, int unreference)
{
    Recorded(__func__, list, {Number(unreference)}, [&] {
        if (list == nullptr) {
            return;
        }
        const BusLock lock = Bus().Guard();
        for (libusb_device** device = list; unreference != 0 && *device != nullptr; ++device) {
            if (CheckDevice(*device) == LIBUSB_SUCCESS) {
                Bus().Unreference(*device);
            }
        }
        std::free(list);
    });
}

libusb_device* LIBUSB_CALL libusb_ref_device(libusb_device* device)
{
    return Recorded(__func__, device, {}, [device] {
        const BusLock lock = Bus().Guard();
        if (CheckDevice(device) == LIBUSB_SUCCESS) {
            Bus().Reference(device);
        }
        return device;
    });
}

void LIBUSB_CALL libusb_unref_device(libusb_device* device)
{
    Recorded(__func__, device, {}, [device] {
        const BusLock lock = Bus().Guard();
        if (device != nullptr && CheckDevice(device) == LIBUSB_SUCCESS) {
            Bus().Unreference(device);
        }
    });
}

int LIBUSB_CALL libusb_hotplug_register_callback(libusb_context* context, int events, int flags,
                                                 int vendor_id, int product_id, int dev_class,
                                                 libusb_hotplug_callback_fn function,
                                                 void* user_data,
                                                 libusb_hotplug_callback_handle* handle)
{
    return Recorded(__func__, context, {Number(events), Number(flags)}, [&] {
        return RegisterHotplug(context,
                               {0, events, vendor_id, product_id, dev_class, function, user_data},
                               flags, handle);
    });
}

void LIBUSB_CALL libusb_hotplug_deregister_callback(libusb_context* context,
                                                    libusb_hotplug_callback_handle handle)
{
    Recorded(__func__, context, {Number(handle)}, [&] {
        const BusLock lock = Bus().Guard();
        if (libusb_context* resolved = Bus().Resolve(context)) {
            std::erase_if(resolved->callbacks, [handle](const HotplugCallback& callback) {
                return callback.id == handle;
            });
        }
    });
}

void* LIBUSB_CALL libusb_hotplug_get_user_data(libusb_context* context,
                                               libusb_hotplug_callback_handle handle)
{
    return Recorded(__func__, context, {Number(handle)}, [&]() -> void* {
        const BusLock lock = Bus().Guard();
        libusb_context* resolved = Bus().Resolve(context);
        if (resolved == nullptr) {
            return nullptr;
        }
        for (const HotplugCallback& callback : resolved->callbacks) {
            if (callback.id == handle) {
                return callback.userData;
            }
        }
        return nullptr;
    });
}
