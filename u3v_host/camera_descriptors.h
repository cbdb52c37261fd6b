#pragma once

#include <cstdint>
#include <libusb.h>
#include <optional>

#include "control_channel.h"
#include "descriptors.h"

namespace u3v_host {

// A bulk IN endpoint and the interface it belongs to.
struct InEndpoint
{
    uint8_t interfaceNumber;
    uint8_t address;
    uint16_t maxPacketSize; // bytes
};

// Where a camera's interfaces lie.
struct CameraDescriptors
{
    uint8_t configuration; // bConfigurationValue
    uint8_t controlInterface;
    std::optional<ControlEndpoints> control; // nothing: it cannot be opened
    std::optional<InEndpoint> event;
    std::optional<InEndpoint> stream;
    DeviceInformation info;
};

// Nothing when the device is no USB3 Vision camera. Pure; the descriptors are the device's word.
std::optional<CameraDescriptors> FindCamera(const libusb_device_descriptor& device,
                                            const libusb_config_descriptor& configuration);

} // namespace u3v_host
