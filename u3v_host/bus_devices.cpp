#include "bus_devices.h"

#include "usb_owners.h"

namespace u3v_host {

std::optional<std::vector<UsbDevice>> ListDevices(const std::shared_ptr<UsbContext>& context)
{
    libusb_device** list = nullptr;
    const ssize_t count = libusb_get_device_list(context->Native(), &list);
    if (count < 0) {
        return std::nullopt;
    }
    constexpr auto kFree = [](libusb_device** one) { libusb_free_device_list(one, 1); };
    const std::unique_ptr<libusb_device*, decltype(kFree)> owner(list, kFree);
    std::vector<UsbDevice> devices;
    devices.reserve(static_cast<size_t>(count));
    for (ssize_t i = 0; i < count; ++i) {
        devices.push_back(ReferenceDevice(list[i], context));
    }
    return devices;
}

bool Examine(libusb_device* device, std::optional<CameraDescriptors>& camera)
{
    libusb_device_descriptor descriptor{};
    if (libusb_get_device_descriptor(device, &descriptor) != LIBUSB_SUCCESS) {
        return false;
    }
    libusb_config_descriptor* raw = nullptr;
    int result = libusb_get_active_config_descriptor(device, &raw);
    if (result == LIBUSB_ERROR_NOT_FOUND) { // not configured yet
        result = libusb_get_config_descriptor(device, 0, &raw);
    }
    if (result != LIBUSB_SUCCESS) {
        return false;
    }
    const UsbConfigPtr configuration(raw);
    camera = FindCamera(descriptor, *configuration);
    return true;
}

} // namespace u3v_host
