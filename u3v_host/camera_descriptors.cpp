#include "camera_descriptors.h"

#include <algorithm>
#include <span>
#include <tuple>

namespace u3v_host {

namespace {

using Bytes = std::span<const uint8_t>;

Bytes Extra(const unsigned char* bytes, int length)
{
    return bytes == nullptr || length <= 0 ? Bytes() : Bytes(bytes, static_cast<size_t>(length));
}

// An interface association of USB3 Vision among descriptors.
bool HasAssociation(Bytes extra)
{
    constexpr Field<uint8_t> kLength{0};
    constexpr Field<uint8_t> kType{1};
    constexpr Field<uint8_t> kClass{4};
    constexpr Field<uint8_t> kSubClass{5};
    constexpr Field<uint8_t> kProtocol{6};
    constexpr uint8_t kAssociation = 0x0B;
    while (extra.size() > kType.offset && extra[0] > kType.offset && extra[0] <= extra.size()) {
        const Bytes one = extra.first(Load(extra, kLength));
        if (Load(one, kType) == kAssociation && Load(one, kClass) == usb_identity::kVisionClass &&
            Load(one, kSubClass) == usb_identity::kVisionSubClass &&
            Load(one, kProtocol) == usb_identity::kControlProtocol) {
            return true;
        }
        extra = extra.subspan(one.size());
    }
    return false;
}

// libusb leaves a descriptor that it does not know with whatever it follows.
bool HasAssociation(const libusb_interface_descriptor& setting)
{
    const std::span endpoints(setting.endpoint,
                              setting.endpoint == nullptr ? 0 : setting.bNumEndpoints);
    return HasAssociation(Extra(setting.extra, setting.extra_length)) ||
           std::ranges::any_of(endpoints, [](const libusb_endpoint_descriptor& endpoint) {
               return HasAssociation(Extra(endpoint.extra, endpoint.extra_length));
           });
}

// The first setting of each interface; USB3 Vision has no others.
template <class Visit>
void ForEachSetting(const libusb_config_descriptor& configuration, Visit visit)
{
    for (int i = 0; configuration.interface != nullptr && i < configuration.bNumInterfaces; ++i) {
        const libusb_interface& one = configuration.interface[i];
        if (one.altsetting != nullptr && one.num_altsetting > 0) {
            visit(one.altsetting[0]);
        }
    }
}

bool IsMarked(const libusb_device_descriptor& device, const libusb_config_descriptor& configuration)
{
    using namespace usb_identity;
    bool marked = std::tuple(device.bDeviceClass, device.bDeviceSubClass, device.bDeviceProtocol) ==
                      std::tuple(kDeviceClass, kDeviceSubClass, kDeviceProtocol) ||
                  HasAssociation(Extra(configuration.extra, configuration.extra_length));
    ForEachSetting(configuration, [&marked](const libusb_interface_descriptor& setting) {
        marked = marked || HasAssociation(setting);
    });
    return marked;
}

const libusb_interface_descriptor* FindInterface(const libusb_config_descriptor& configuration,
                                                 uint8_t protocol)
{
    using namespace usb_identity;
    const libusb_interface_descriptor* found = nullptr;
    ForEachSetting(configuration, [&](const libusb_interface_descriptor& setting) {
        if (found == nullptr && setting.bInterfaceClass == kVisionClass &&
            setting.bInterfaceSubClass == kVisionSubClass &&
            setting.bInterfaceProtocol == protocol) {
            found = &setting;
        }
    });
    return found;
}

uint16_t PacketSize(const libusb_endpoint_descriptor& endpoint)
{
    constexpr uint16_t kSizeBits = 0x7FF;
    return static_cast<uint16_t>(endpoint.wMaxPacketSize & kSizeBits);
}

// The first bulk endpoint of that direction that can carry anything.
const libusb_endpoint_descriptor* FindEndpoint(const libusb_interface_descriptor& setting,
                                               uint8_t direction)
{
    for (int i = 0; setting.endpoint != nullptr && i < setting.bNumEndpoints; ++i) {
        const libusb_endpoint_descriptor& endpoint = setting.endpoint[i];
        const bool isBulk =
            (endpoint.bmAttributes & LIBUSB_TRANSFER_TYPE_MASK) == LIBUSB_TRANSFER_TYPE_BULK;
        if (isBulk && (endpoint.bEndpointAddress & usb_identity::kEndpointIn) == direction &&
            PacketSize(endpoint) != 0) {
            return &endpoint;
        }
    }
    return nullptr;
}

std::optional<InEndpoint> FindIn(const libusb_config_descriptor& configuration, uint8_t protocol)
{
    const auto* setting = FindInterface(configuration, protocol);
    const auto* endpoint =
        setting == nullptr ? nullptr : FindEndpoint(*setting, usb_identity::kEndpointIn);
    if (endpoint == nullptr) {
        return std::nullopt;
    }
    return InEndpoint{setting->bInterfaceNumber, endpoint->bEndpointAddress, PacketSize(*endpoint)};
}

std::optional<ControlEndpoints> FindControl(const libusb_interface_descriptor& setting)
{
    const auto* out = FindEndpoint(setting, 0);
    const auto* in = FindEndpoint(setting, usb_identity::kEndpointIn);
    if (out == nullptr || in == nullptr) {
        return std::nullopt;
    }
    return ControlEndpoints{out->bEndpointAddress, in->bEndpointAddress, PacketSize(*in)};
}

} // namespace

std::optional<CameraDescriptors> FindCamera(const libusb_device_descriptor& device,
                                            const libusb_config_descriptor& configuration)
{
    const auto* control = FindInterface(configuration, usb_identity::kControlProtocol);
    if (control == nullptr || !IsMarked(device, configuration)) {
        return std::nullopt;
    }
    const auto info = FindDeviceInformation(Extra(control->extra, control->extra_length));
    if (!info) {
        return std::nullopt;
    }
    return CameraDescriptors{configuration.bConfigurationValue,
                             control->bInterfaceNumber,
                             FindControl(*control),
                             FindIn(configuration, usb_identity::kEventProtocol),
                             FindIn(configuration, usb_identity::kStreamProtocol),
                             *info};
}

} // namespace u3v_host
