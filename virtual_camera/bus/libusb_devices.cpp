// libusb-1.0 ABI: what a device says about itself without being opened.

#include <algorithm>
#include <cstring>

#include "libusb_abi.h"
#include "virtual_bus_state.h"

using namespace vbus;

namespace {

// Runs "body(attachment)" for a device that exists; another pointer is noted and answered
// "missing".
template <typename Result, typename Body>
Result WithDevice(libusb_device* device, Result missing, Body body)
{
    const BusLock lock = Bus().Guard();
    if (!Bus().IsLive(device)) {
        Violate("stale-device");
        return missing;
    }
    return body(*device->attachment);
}

int FillDeviceDescriptor(const Attachment& attachment, libusb_device_descriptor& descriptor)
{
    const vcam::UsbDescriptors& descriptors = attachment.device->Descriptors();
    return descriptors.DeviceFails() ? int{LIBUSB_ERROR_IO}
                                     : ParseDevice(descriptors.Device(), descriptor);
}

int HandOutConfiguration(const Attachment& attachment, libusb_config_descriptor** config)
{
    const vcam::UsbDescriptors& descriptors = attachment.device->Descriptors();
    if (descriptors.ConfigurationFails()) {
        return LIBUSB_ERROR_IO;
    }
    auto parsed = std::make_unique<ParsedConfiguration>();
    const int error = parsed->Parse(descriptors.Configuration());
    if (error == LIBUSB_SUCCESS) {
        *config = parsed->Config();
        Bus().configurations[*config] = std::move(parsed);
    }
    return error;
}

template <typename T>
T* Allocated(std::size_t size)
{
    return static_cast<T*>(std::calloc(1, size));
}

// The BOS as one block per capability, as its structure wants it.
int HandOutBos(ByteSpan bytes, libusb_bos_descriptor** bos)
{
    if (bytes.size() < LIBUSB_DT_BOS_SIZE || bytes[1] != LIBUSB_DT_BOS) {
        return LIBUSB_ERROR_IO;
    }
    const std::size_t count = bytes[4];
    // NOLINTNEXTLINE(bugprone-sizeof-expression): it ends in an array of pointers
    const std::size_t pointers = count * sizeof(libusb_bos_dev_capability_descriptor*);
    auto* result = Allocated<libusb_bos_descriptor>(sizeof(libusb_bos_descriptor) + pointers);
    if (result == nullptr) {
        return LIBUSB_ERROR_NO_MEM;
    }
    result->bLength = bytes[0];
    result->bDescriptorType = bytes[1];
    result->wTotalLength = static_cast<std::uint16_t>(bytes[2] | bytes[3] << 8);
    std::size_t at = LIBUSB_DT_BOS_SIZE;
    std::uint8_t filled = 0;
    while (filled < count && at + 3 <= bytes.size() && bytes[at] >= 3 &&
           at + bytes[at] <= bytes.size()) {
        auto* capability = Allocated<libusb_bos_dev_capability_descriptor>(bytes[at]);
        std::memcpy(capability, bytes.data() + at, bytes[at]);
        result->dev_capability[filled++] = capability;
        at += bytes[at];
    }
    result->bNumDeviceCaps = filled;
    *bos = result;
    return LIBUSB_SUCCESS;
}

// A capability as a structure of its own: the same bytes, if it is of that type and long enough.
template <typename T>
int HandOutCapability(const libusb_bos_dev_capability_descriptor* capability, int type,
                      std::size_t size, T** result)
{
    if (capability == nullptr || capability->bDevCapabilityType != type) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    if (capability->bLength < size) {
        return LIBUSB_ERROR_IO;
    }
    *result = Allocated<T>(sizeof(T));
    return *result == nullptr ? LIBUSB_ERROR_NO_MEM : LIBUSB_SUCCESS;
}

int SpeedOf(vcam::UsbSpeed speed)
{
    switch (speed) {
    case vcam::UsbSpeed::High: return LIBUSB_SPEED_HIGH;
    case vcam::UsbSpeed::SuperPlus: return LIBUSB_SPEED_SUPER_PLUS;
    default: return LIBUSB_SPEED_SUPER;
    }
}

std::uint32_t Le32(const std::uint8_t* at)
{
    return vcam::LoadLe<std::uint32_t>(at);
}

} // namespace

int LIBUSB_CALL libusb_get_device_descriptor(libusb_device* device,
                                             struct libusb_device_descriptor* descriptor)
{
    return Recorded(__func__, device, {Argument(descriptor)}, [&] {
        return WithDevice(device, int{LIBUSB_ERROR_NO_DEVICE}, [&](const Attachment& attachment) {
            return descriptor == nullptr ? int{LIBUSB_ERROR_INVALID_PARAM}
                                         : FillDeviceDescriptor(attachment, *descriptor);
        });
    });
}

int LIBUSB_CALL libusb_get_active_config_descriptor(libusb_device* device,
                                                    struct libusb_config_descriptor** config)
{
    return Recorded(__func__, device, {Argument(config)}, [&] {
        return WithDevice(device, int{LIBUSB_ERROR_NO_DEVICE}, [&](const Attachment& attachment) {
            return HandOutConfiguration(attachment, config);
        });
    });
}

int LIBUSB_CALL libusb_get_config_descriptor(libusb_device* device, uint8_t config_index,
                                             struct libusb_config_descriptor** config)
{
    return Recorded(__func__, device, {config_index, Argument(config)}, [&] {
        return WithDevice(device, int{LIBUSB_ERROR_NO_DEVICE}, [&](const Attachment& attachment) {
            return config_index != 0 ? int{LIBUSB_ERROR_NOT_FOUND}
                                     : HandOutConfiguration(attachment, config);
        });
    });
}

int LIBUSB_CALL libusb_get_config_descriptor_by_value(libusb_device* device,
                                                      uint8_t bConfigurationValue,
                                                      struct libusb_config_descriptor** config)
{
    return Recorded(__func__, device, {bConfigurationValue, Argument(config)}, [&] {
        return WithDevice(device, int{LIBUSB_ERROR_NO_DEVICE}, [&](const Attachment& attachment) {
            return bConfigurationValue != 1 ? int{LIBUSB_ERROR_NOT_FOUND}
                                            : HandOutConfiguration(attachment, config);
        });
    });
}

void LIBUSB_CALL libusb_free_config_descriptor(struct libusb_config_descriptor* config)
{
    Recorded(__func__, config, {}, [config] {
        const BusLock lock = Bus().Guard();
        if (config != nullptr && Bus().configurations.erase(config) == 0) {
            Violate("foreign-pointer");
        }
    });
}

int LIBUSB_CALL libusb_get_ss_endpoint_companion_descriptor(
    libusb_context* context, const struct libusb_endpoint_descriptor* endpoint,
    struct libusb_ss_endpoint_companion_descriptor** companion)
{
    return Recorded(__func__, context, {Argument(endpoint)}, [&]() -> int {
        const unsigned char* at = endpoint->extra;
        int left = endpoint->extra_length;
        while (left >= 2 && at[0] >= 2 && at[0] <= left) {
            if (at[1] == LIBUSB_DT_SS_ENDPOINT_COMPANION) {
                if (at[0] < LIBUSB_DT_SS_ENDPOINT_COMPANION_SIZE) {
                    return LIBUSB_ERROR_IO;
                }
                *companion = Allocated<libusb_ss_endpoint_companion_descriptor>(
                    sizeof(libusb_ss_endpoint_companion_descriptor));
                if (*companion == nullptr) {
                    return LIBUSB_ERROR_NO_MEM;
                }
                **companion = {at[0], at[1], at[2], at[3],
                               static_cast<std::uint16_t>(at[4] | at[5] << 8)};
                return LIBUSB_SUCCESS;
            }
            left -= at[0];
            at += at[0];
        }
        return LIBUSB_ERROR_NOT_FOUND;
    });
}

void LIBUSB_CALL libusb_free_ss_endpoint_companion_descriptor(
    struct libusb_ss_endpoint_companion_descriptor* companion)
{
    Recorded(__func__, companion, {}, [companion] { std::free(companion); });
}

int LIBUSB_CALL libusb_get_bos_descriptor(libusb_device_handle* handle,
                                          struct libusb_bos_descriptor** bos)
{
    return Recorded(__func__, handle, {Argument(bos)}, [&]() -> int {
        const BusLock lock = Bus().Guard();
        if (!Bus().IsLive(handle)) {
            Violate(handle == nullptr ? "null-handle" : "stale-handle");
            return LIBUSB_ERROR_NO_DEVICE;
        }
        const Attachment& attachment = *handle->device->attachment;
        const auto bytes = attachment.device->Descriptors().Get(LIBUSB_DT_BOS, 0);
        if (!attachment.plugged) {
            return LIBUSB_ERROR_NO_DEVICE;
        }
        return bytes ? HandOutBos(*bytes, bos) : int{LIBUSB_ERROR_PIPE};
    });
}

void LIBUSB_CALL libusb_free_bos_descriptor(struct libusb_bos_descriptor* bos)
{
    Recorded(__func__, bos, {}, [bos] {
        for (int i = 0; bos != nullptr && i < bos->bNumDeviceCaps; ++i) {
            std::free(bos->dev_capability[i]);
        }
        std::free(bos);
    });
}

int LIBUSB_CALL libusb_get_usb_2_0_extension_descriptor(
    libusb_context* context, struct libusb_bos_dev_capability_descriptor* capability,
    struct libusb_usb_2_0_extension_descriptor** extension)
{
    return Recorded(__func__, context, {Argument(capability)}, [&] {
        const int error = HandOutCapability(capability, LIBUSB_BT_USB_2_0_EXTENSION,
                                            LIBUSB_BT_USB_2_0_EXTENSION_SIZE, extension);
        if (error == LIBUSB_SUCCESS) {
            const std::uint8_t* data = capability->dev_capability_data;
            **extension = {capability->bLength, capability->bDescriptorType,
                           capability->bDevCapabilityType, Le32(data)};
        }
        return error;
    });
}

void LIBUSB_CALL
libusb_free_usb_2_0_extension_descriptor(struct libusb_usb_2_0_extension_descriptor* extension)
{
    Recorded(__func__, extension, {}, [extension] { std::free(extension); });
}

int LIBUSB_CALL libusb_get_ss_usb_device_capability_descriptor(
    libusb_context* context, struct libusb_bos_dev_capability_descriptor* capability,
    struct libusb_ss_usb_device_capability_descriptor** result)
{
    return Recorded(__func__, context, {Argument(capability)}, [&] {
        const int error = HandOutCapability(capability, LIBUSB_BT_SS_USB_DEVICE_CAPABILITY,
                                            LIBUSB_BT_SS_USB_DEVICE_CAPABILITY_SIZE, result);
        if (error == LIBUSB_SUCCESS) {
            const std::uint8_t* data = capability->dev_capability_data;
            **result = {capability->bLength,
                        capability->bDescriptorType,
                        capability->bDevCapabilityType,
                        data[0],
                        vcam::LoadLe<std::uint16_t>(data + 1),
                        data[3],
                        data[4],
                        vcam::LoadLe<std::uint16_t>(data + 5)};
        }
        return error;
    });
}

void LIBUSB_CALL libusb_free_ss_usb_device_capability_descriptor(
    struct libusb_ss_usb_device_capability_descriptor* capability)
{
    Recorded(__func__, capability, {}, [capability] { std::free(capability); });
}

int LIBUSB_CALL libusb_get_container_id_descriptor(
    libusb_context* context, struct libusb_bos_dev_capability_descriptor* capability,
    struct libusb_container_id_descriptor** container)
{
    return Recorded(__func__, context, {Argument(capability)}, [&] {
        const int error = HandOutCapability(capability, LIBUSB_BT_CONTAINER_ID,
                                            LIBUSB_BT_CONTAINER_ID_SIZE, container);
        if (error == LIBUSB_SUCCESS) {
            std::memcpy(*container, capability, LIBUSB_BT_CONTAINER_ID_SIZE);
        }
        return error;
    });
}

void LIBUSB_CALL
libusb_free_container_id_descriptor(struct libusb_container_id_descriptor* container)
{
    Recorded(__func__, container, {}, [container] { std::free(container); });
}

uint8_t LIBUSB_CALL libusb_get_bus_number(libusb_device* device)
{
    return Recorded(__func__, device, {}, [device] {
        return WithDevice(device, std::uint8_t{0},
                          [](const Attachment& attachment) { return attachment.bus; });
    });
}

uint8_t LIBUSB_CALL libusb_get_port_number(libusb_device* device)
{
    return Recorded(__func__, device, {}, [device] {
        return WithDevice(device, std::uint8_t{0},
                          [](const Attachment& attachment) { return attachment.ports.back(); });
    });
}

int LIBUSB_CALL libusb_get_port_numbers(libusb_device* device, uint8_t* port_numbers,
                                        int port_numbers_len)
{
    return Recorded(__func__, device, {Argument(port_numbers)}, [&] {
        return WithDevice(device, int{LIBUSB_ERROR_NO_DEVICE}, [&](const Attachment& attachment) {
            const auto depth = static_cast<int>(attachment.ports.size());
            if (port_numbers_len <= 0) {
                return int{LIBUSB_ERROR_INVALID_PARAM};
            }
            if (port_numbers == nullptr || port_numbers_len < depth) {
                return int{LIBUSB_ERROR_OVERFLOW};
            }
            std::copy(attachment.ports.begin(), attachment.ports.end(), port_numbers);
            return depth;
        });
    });
}

int LIBUSB_CALL libusb_get_port_path(libusb_context*, libusb_device* device, uint8_t* path,
                                     uint8_t path_length)
{
    return libusb_get_port_numbers(device, path, path_length);
}

libusb_device* LIBUSB_CALL libusb_get_parent(libusb_device* device)
{
    return Recorded(__func__, device, {},
                    []() -> libusb_device* { return nullptr; }); // a root port
}

uint8_t LIBUSB_CALL libusb_get_device_address(libusb_device* device)
{
    return Recorded(__func__, device, {}, [device] {
        return WithDevice(device, std::uint8_t{0},
                          [](const Attachment& attachment) { return attachment.address; });
    });
}

int LIBUSB_CALL libusb_get_device_speed(libusb_device* device)
{
    return Recorded(__func__, device, {}, [device] {
        return WithDevice(device, int{LIBUSB_SPEED_UNKNOWN}, [](const Attachment& attachment) {
            return SpeedOf(attachment.device->Descriptors().Speed());
        });
    });
}

int LIBUSB_CALL libusb_get_max_packet_size(libusb_device* device, unsigned char endpoint)
{
    return Recorded(__func__, device, {endpoint}, [&] {
        return WithDevice(device, int{LIBUSB_ERROR_OTHER}, [&](const Attachment& attachment) {
            return attachment.configuration.PacketSizeOf(endpoint);
        });
    });
}

int LIBUSB_CALL libusb_get_max_iso_packet_size(libusb_device* device, unsigned char endpoint)
{
    return libusb_get_max_packet_size(device, endpoint);
}
