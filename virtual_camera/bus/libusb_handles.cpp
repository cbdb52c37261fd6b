// libusb-1.0 ABI: opened devices, their interfaces and endpoints.

#include <algorithm>
#include <cstring>

#include "event_handling.h"
#include "libusb_abi.h"
#include "transfer_engine.h"

using namespace vbus;

namespace {

template <typename T>
std::uint64_t Number(T value)
{
    return static_cast<std::uint64_t>(value);
}

int CheckHandle(const libusb_device_handle* handle)
{
    if (handle == nullptr) {
        Violate("null-handle");
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    if (!Bus().IsLive(handle)) {
        Violate("stale-handle");
        return LIBUSB_ERROR_NO_DEVICE;
    }
    Bus().Tick();
    return handle->device->attachment->plugged ? LIBUSB_SUCCESS : LIBUSB_ERROR_NO_DEVICE;
}

// Runs "body(handle, attachment)" under the bus lock for a handle whose device is there.
template <typename Body>
int WithHandle(libusb_device_handle* handle, Body body)
{
    const BusLock lock = Bus().Guard();
    const int error = CheckHandle(handle);
    return error != LIBUSB_SUCCESS ? error : int{body(*handle, *handle->device->attachment)};
}

bool Fires(const Attachment& attachment, const char* fault)
{
    std::int64_t ignored = 0;
    return attachment.camera && attachment.camera->FireFault(fault, ignored);
}

int Open(libusb_device* device, libusb_device_handle** handle)
{
    const BusLock lock = Bus().Guard();
    if (handle == nullptr || !Bus().IsLive(device)) {
        Violate(device == nullptr ? "null-handle" : "stale-device");
        return device == nullptr ? LIBUSB_ERROR_INVALID_PARAM : LIBUSB_ERROR_NO_DEVICE;
    }
    Bus().Tick();
    const Attachment& attachment = *device->attachment;
    if (!attachment.plugged || Fires(attachment, "open-no-device")) {
        return LIBUSB_ERROR_NO_DEVICE;
    }
    if (Fires(attachment, "open-permission")) {
        return LIBUSB_ERROR_ACCESS;
    }
    if (Fires(attachment, "open-busy")) {
        return LIBUSB_ERROR_BUSY;
    }
    *handle = Bus().OpenHandle(device);
    return LIBUSB_SUCCESS;
}

void Close(libusb_device_handle* handle)
{
    BusLock lock = Bus().Guard();
    if (handle == nullptr) {
        return; // allowed
    }
    if (!Bus().IsLive(handle)) {
        Violate("stale-handle");
        return;
    }
    libusb_context* context = handle->device->context;
    WithEventsOwned(lock, context, [handle] {
        if (handle->inFlight != 0) {
            Violate("close-in-flight");
            TransferEngine::Instance().CancelAll(handle); // nobody follows the dead handle
        }
        Bus().CloseHandle(handle);
    });
    WakeHandler(*context);
}

// Another process has claimed it: the kernel's driver for such is usbfs.
bool ClaimedElsewhere(const Attachment& attachment)
{
    return attachment.camera && attachment.camera->HasFault("claimed-elsewhere");
}

bool KeptByAChild(Attachment& attachment, int interface)
{
    std::erase_if(attachment.kept, [](const KeptInterfaces& kept) { return !kept.file.IsHeld(); });
    return std::any_of(attachment.kept.begin(), attachment.kept.end(),
                       [&](const KeptInterfaces& kept) { return kept.numbers.count(interface); });
}

// usbfs itself does not count.
bool DriverActive(const Attachment& attachment, int interface)
{
    return !attachment.driver.empty() && attachment.driverDetached.count(interface) == 0 &&
           !ClaimedElsewhere(attachment);
}

int DetachDriver(Attachment& attachment, int interface)
{
    if (!DriverActive(attachment, interface)) {
        return LIBUSB_ERROR_NOT_FOUND;
    }
    if (Fires(attachment, "detach-fails")) {
        return LIBUSB_ERROR_OTHER;
    }
    attachment.driverDetached.insert(interface);
    return LIBUSB_SUCCESS;
}

int Claim(libusb_device_handle& handle, Attachment& attachment, int interface)
{
    if (!attachment.configuration.HasInterface(interface)) {
        return LIBUSB_ERROR_NOT_FOUND;
    }
    if (Fires(attachment, "claim-busy") || ClaimedElsewhere(attachment) ||
        KeptByAChild(attachment, interface)) {
        return LIBUSB_ERROR_BUSY;
    }
    if (Fires(attachment, "claim-fails")) {
        return LIBUSB_ERROR_IO;
    }
    if (DriverActive(attachment, interface) &&
        (!handle.autoDetach || DetachDriver(attachment, interface) != LIBUSB_SUCCESS)) {
        return LIBUSB_ERROR_BUSY;
    }
    const auto [claim, isNew] = attachment.claims.try_emplace(interface, &handle);
    if (!isNew && claim->second != &handle) {
        return LIBUSB_ERROR_BUSY;
    }
    handle.claimed.insert(interface);
    return LIBUSB_SUCCESS;
}

int Release(libusb_device_handle& handle, Attachment& attachment, int interface)
{
    if (handle.claimed.erase(interface) == 0) {
        return LIBUSB_ERROR_NOT_FOUND;
    }
    attachment.claims.erase(interface);
    if (handle.autoDetach) {
        attachment.driverDetached.erase(interface);
    }
    return LIBUSB_SUCCESS;
}

// A control request that blocks. "data": what is sent, or what has come; returns its length or an
// error.
int ControlTransfer(libusb_device_handle* handle, const vcam::SetupPacket& setup,
                    unsigned char* data, unsigned timeout)
{
    if (data == nullptr && setup.length != 0) {
        Violate("bad-buffer");
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    {
        const BusLock lock = Bus().Guard();
        const int error = CheckHandle(handle);
        if (error != LIBUSB_SUCCESS) {
            return error;
        }
    }
    std::vector<unsigned char> buffer(LIBUSB_CONTROL_SETUP_SIZE + setup.length);
    libusb_fill_control_setup(buffer.data(), setup.requestType, setup.request, setup.value,
                              setup.index, setup.length);
    if (!setup.IsIn()) {
        std::copy_n(data, setup.length, buffer.begin() + LIBUSB_CONTROL_SETUP_SIZE);
    }
    int transferred = 0;
    const int error = TransferEngine::Instance().Synchronous(
        handle, 0, LIBUSB_TRANSFER_TYPE_CONTROL, buffer.data(), static_cast<int>(buffer.size()),
        &transferred, timeout);
    if (error == LIBUSB_SUCCESS && setup.IsIn()) {
        std::copy_n(buffer.begin() + LIBUSB_CONTROL_SETUP_SIZE, transferred, data);
    }
    return error == LIBUSB_SUCCESS ? transferred : error;
}

int ReadString(libusb_device_handle* handle, std::uint8_t index, std::vector<std::uint8_t>& bytes)
{
    constexpr std::uint16_t kStringType = LIBUSB_DT_STRING << 8;
    constexpr std::uint16_t kEnglish = 0x0409;
    constexpr unsigned kTimeout = 1000; // libusb's own
    bytes.resize(255);
    const int size = ControlTransfer(handle,
                                     {LIBUSB_ENDPOINT_IN, LIBUSB_REQUEST_GET_DESCRIPTOR,
                                      static_cast<std::uint16_t>(kStringType | index), kEnglish,
                                      static_cast<std::uint16_t>(bytes.size())},
                                     bytes.data(), kTimeout);
    bytes.resize(static_cast<std::size_t>(std::max(size, 0)));
    return std::min(size, int{LIBUSB_SUCCESS});
}

int StringAscii(libusb_device_handle* handle, std::uint8_t index, unsigned char* data, int length)
{
    if (index == 0) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    if (data == nullptr || length <= 0) {
        Violate("bad-buffer");
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    std::vector<std::uint8_t> bytes;
    const int error = ReadString(handle, index, bytes);
    if (error != LIBUSB_SUCCESS) {
        return error;
    }
    if (bytes.size() < 2 || bytes[1] != LIBUSB_DT_STRING || bytes[0] > bytes.size()) {
        return LIBUSB_ERROR_IO;
    }
    int written = 0;
    for (std::size_t at = 2; at + 1 < bytes[0] && written < length - 1; at += 2) {
        const bool isAscii = bytes[at] < 0x80 && bytes[at + 1] == 0;
        data[written++] = isAscii ? bytes[at] : '?';
    }
    data[written] = 0;
    return written;
}

// Not a transfer for libusb: the kernel does it, and does not let one wait.
int ClearHalt(libusb_device_handle* handle, unsigned char endpoint)
{
    std::shared_ptr<Attachment> attachment;
    {
        const BusLock lock = Bus().Guard();
        const int error = CheckHandle(handle);
        if (error != LIBUSB_SUCCESS) {
            return error;
        }
        attachment = handle->device->attachment;
        if (attachment->configuration.InterfaceOf(endpoint) < 0) {
            return LIBUSB_ERROR_NOT_FOUND;
        }
        if (handle->device->context->IsOwnedHere()) {
            Violate("sync-in-callback"); // the real one does it, and holds up every other transfer
        }
    }
    std::vector<std::uint8_t> none;
    const vcam::UsbResult result = attachment->device->Control(
        {LIBUSB_RECIPIENT_ENDPOINT, LIBUSB_REQUEST_CLEAR_FEATURE, 0, endpoint, 0}, none);
    switch (result.status) {
    case vcam::UsbStatus::Done: return LIBUSB_SUCCESS;
    case vcam::UsbStatus::NoDevice: return LIBUSB_ERROR_NO_DEVICE;
    case vcam::UsbStatus::Stall: return LIBUSB_ERROR_PIPE;
    default: return LIBUSB_ERROR_OTHER;
    }
}

int Reset(libusb_device_handle* handle)
{
    std::shared_ptr<Attachment> attachment;
    {
        const BusLock lock = Bus().Guard();
        const int error = CheckHandle(handle);
        if (error != LIBUSB_SUCCESS) {
            return error == LIBUSB_ERROR_NO_DEVICE ? LIBUSB_ERROR_NOT_FOUND : error;
        }
        attachment = handle->device->attachment;
    }
    attachment->device->BusReset();
    return LIBUSB_SUCCESS;
}

libusb_device_handle* OpenByIds(libusb_context* context, int vendor, int product)
{
    libusb_device* found = nullptr;
    {
        const BusLock lock = Bus().Guard();
        context = Bus().Resolve(context);
        if (context == nullptr) {
            return nullptr;
        }
        for (libusb_device* device : Bus().Devices(context)) {
            libusb_device_descriptor descriptor{};
            ParseDevice(device->attachment->device->Descriptors().Device(), descriptor);
            if (found == nullptr && descriptor.idVendor == vendor &&
                descriptor.idProduct == product) {
                found = device;
            }
        }
    }
    libusb_device_handle* handle = nullptr;
    return found != nullptr && Open(found, &handle) == LIBUSB_SUCCESS ? handle : nullptr;
}

} // namespace

int LIBUSB_CALL libusb_open(libusb_device* device, libusb_device_handle** handle)
{
    return Recorded(__func__, device, {Argument(handle)}, [&] { return Open(device, handle); });
}

void LIBUSB_CALL libusb_close(libusb_device_handle* handle)
{
    Recorded(__func__, handle, {}, [&] { Close(handle); });
}

libusb_device_handle* LIBUSB_CALL libusb_open_device_with_vid_pid(libusb_context* context,
                                                                  uint16_t vendor_id,
                                                                  uint16_t product_id)
{
    return Recorded(__func__, context, {vendor_id, product_id},
                    [&] { return OpenByIds(context, vendor_id, product_id); });
}

int LIBUSB_CALL libusb_wrap_sys_device(libusb_context* context, intptr_t, libusb_device_handle**)
{
    return Recorded(__func__, context, {}, [] { return int{LIBUSB_ERROR_NOT_SUPPORTED}; });
}

libusb_device* LIBUSB_CALL libusb_get_device(libusb_device_handle* handle)
{
    return Recorded(__func__, handle, {}, [&]() -> libusb_device* {
        const BusLock lock = Bus().Guard();
        const int error = CheckHandle(handle);
        return error == LIBUSB_SUCCESS || Bus().IsLive(handle) ? handle->device : nullptr;
    });
}

int LIBUSB_CALL libusb_get_configuration(libusb_device_handle* handle, int* config)
{
    return Recorded(__func__, handle, {Argument(config)}, [&] {
        return WithHandle(handle, [config](libusb_device_handle&, Attachment&) {
            *config = 1;
            return LIBUSB_SUCCESS;
        });
    });
}

int LIBUSB_CALL libusb_set_configuration(libusb_device_handle* handle, int configuration)
{
    return Recorded(__func__, handle, {Number(configuration)}, [&] {
        return WithHandle(handle, [&](libusb_device_handle&, Attachment& attachment) {
            if (!attachment.claims.empty() || (!attachment.driver.empty() && configuration != 1)) {
                return LIBUSB_ERROR_BUSY;
            }
            return configuration == 1 || configuration == -1 ? LIBUSB_SUCCESS
                                                             : LIBUSB_ERROR_NOT_FOUND;
        });
    });
}

int LIBUSB_CALL libusb_claim_interface(libusb_device_handle* handle, int interface_number)
{
    return Recorded(__func__, handle, {Number(interface_number)}, [&] {
        return WithHandle(handle, [&](libusb_device_handle& owner, Attachment& attachment) {
            return Claim(owner, attachment, interface_number);
        });
    });
}

int LIBUSB_CALL libusb_release_interface(libusb_device_handle* handle, int interface_number)
{
    return Recorded(__func__, handle, {Number(interface_number)}, [&] {
        return WithHandle(handle, [&](libusb_device_handle& owner, Attachment& attachment) {
            return Release(owner, attachment, interface_number);
        });
    });
}

int LIBUSB_CALL libusb_set_interface_alt_setting(libusb_device_handle* handle, int interface_number,
                                                 int alternate_setting)
{
    return Recorded(__func__, handle, {Number(interface_number), Number(alternate_setting)}, [&] {
        return WithHandle(handle, [&](libusb_device_handle& owner, Attachment&) {
            const bool found = owner.claimed.count(interface_number) != 0 && alternate_setting == 0;
            return found ? LIBUSB_SUCCESS : LIBUSB_ERROR_NOT_FOUND;
        });
    });
}

int LIBUSB_CALL libusb_clear_halt(libusb_device_handle* handle, unsigned char endpoint)
{
    return Recorded(__func__, handle, {endpoint}, [&] { return ClearHalt(handle, endpoint); });
}

int LIBUSB_CALL libusb_reset_device(libusb_device_handle* handle)
{
    return Recorded(__func__, handle, {}, [&] { return Reset(handle); });
}

int LIBUSB_CALL libusb_alloc_streams(libusb_device_handle* handle, uint32_t num_streams,
                                     unsigned char*, int)
{
    return Recorded(__func__, handle, {num_streams},
                    [] { return int{LIBUSB_ERROR_NOT_SUPPORTED}; });
}

int LIBUSB_CALL libusb_free_streams(libusb_device_handle* handle, unsigned char*, int)
{
    return Recorded(__func__, handle, {}, [] { return int{LIBUSB_ERROR_NOT_SUPPORTED}; });
}

int LIBUSB_CALL libusb_kernel_driver_active(libusb_device_handle* handle, int interface_number)
{
    return Recorded(__func__, handle, {Number(interface_number)}, [&] {
        return WithHandle(handle, [&](libusb_device_handle&, Attachment& attachment) {
            return DriverActive(attachment, interface_number) ? 1 : 0;
        });
    });
}

int LIBUSB_CALL libusb_detach_kernel_driver(libusb_device_handle* handle, int interface_number)
{
    return Recorded(__func__, handle, {Number(interface_number)}, [&] {
        return WithHandle(handle, [&](libusb_device_handle&, Attachment& attachment) {
            return DetachDriver(attachment, interface_number);
        });
    });
}

int LIBUSB_CALL libusb_attach_kernel_driver(libusb_device_handle* handle, int interface_number)
{
    return Recorded(__func__, handle, {Number(interface_number)}, [&] {
        return WithHandle(handle, [&](libusb_device_handle&, Attachment& attachment) {
            if (attachment.claims.count(interface_number) != 0) {
                return LIBUSB_ERROR_BUSY;
            }
            return attachment.driverDetached.erase(interface_number) != 0 ? LIBUSB_SUCCESS
                                                                          : LIBUSB_ERROR_NOT_FOUND;
        });
    });
}

int LIBUSB_CALL libusb_set_auto_detach_kernel_driver(libusb_device_handle* handle, int enable)
{
    return Recorded(__func__, handle, {Number(enable)}, [&] {
        return WithHandle(handle, [&](libusb_device_handle& owner, Attachment&) {
            owner.autoDetach = enable != 0;
            return LIBUSB_SUCCESS;
        });
    });
}

unsigned char* LIBUSB_CALL libusb_dev_mem_alloc(libusb_device_handle* handle, size_t length)
{
    return Recorded(__func__, handle, {length}, [&]() -> unsigned char* {
        const BusLock lock = Bus().Guard();
        return CheckHandle(handle) == LIBUSB_SUCCESS ? Bus().AllocateDeviceMemory(handle, length)
                                                     : nullptr;
    });
}

int LIBUSB_CALL libusb_dev_mem_free(libusb_device_handle* handle, unsigned char* buffer,
                                    size_t length)
{
    return Recorded(__func__, handle, {Argument(buffer), length}, [&]() -> int {
        const BusLock lock = Bus().Guard();
        if (Bus().FreeDeviceMemory(buffer, length)) {
            return LIBUSB_SUCCESS;
        }
        Violate("foreign-pointer");
        return LIBUSB_ERROR_INVALID_PARAM;
    });
}

int LIBUSB_CALL libusb_get_string_descriptor_ascii(libusb_device_handle* handle, uint8_t desc_index,
                                                   unsigned char* data, int length)
{
    return Recorded(__func__, handle, {desc_index, Argument(data), Number(length)},
                    [&] { return StringAscii(handle, desc_index, data, length); });
}

int LIBUSB_CALL libusb_control_transfer(libusb_device_handle* handle, uint8_t request_type,
                                        uint8_t bRequest, uint16_t wValue, uint16_t wIndex,
                                        unsigned char* data, uint16_t wLength, unsigned int timeout)
{
    return Recorded(__func__, handle, {request_type, bRequest, wValue, wIndex}, [&] {
        return ControlTransfer(handle, {request_type, bRequest, wValue, wIndex, wLength}, data,
                               timeout);
    });
}
