#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "camera_descriptors.h"
#include "usb_context.h"

namespace u3v_host {

// The devices of the bus, referenced. Nothing when the system does not tell.
std::optional<std::vector<UsbDevice>> ListDevices(const std::shared_ptr<UsbContext>& context);

// What a device's descriptors say, without a transfer. False when they cannot be had; `camera` is
// nothing when it is some other device.
bool Examine(libusb_device* device, std::optional<CameraDescriptors>& camera);

} // namespace u3v_host
