#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "camera_info.h"
#include "identity.h"

namespace u3v_host {

// What the kernel's device tree tells of a device without opening it. Reads below `root`, which is
// "/" but for tests. What is not there is empty or false.
class KernelRecords
{
public:
    explicit KernelRecords(const std::filesystem::path& root);

    // Manufacturer, product and serial number as vendor, model and serial.
    CameraInfo Texts(const UsbPlace& place) const;
    // Whether a process has claimed the interface.
    bool IsClaimed(const UsbPlace& place, uint8_t configuration, uint8_t interfaceNumber) const;

private:
    std::string _attribute(const UsbPlace& place, const char* name) const;

    const std::filesystem::path m_devices;
};

} // namespace u3v_host
