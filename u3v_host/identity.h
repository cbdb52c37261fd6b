#pragma once

#include <compare>
#include <cstdint>
#include <libusb.h>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace u3v_host {

// Where a device is plugged in. In the order of bus and port path.
struct UsbPlace
{
    uint8_t bus;
    std::vector<uint8_t> ports; // from the root hub on
    uint8_t address;

    // As the kernel names the device: "2-1.4".
    std::string Text() const;
    auto operator<=>(const UsbPlace&) const = default;
};

UsbPlace PlaceOf(libusb_device* device);

// Ids are compared without regard to case (of ASCII letters).
bool IsSameId(std::string_view left, std::string_view right);

// The id of a camera that has just come, by its GUID (empty: not known) and its place: one that
// none of those present has. It holds no ':' and no ';'.
std::string MakeId(std::string_view guid, std::string_view place,
                   std::span<const std::string> present);

} // namespace u3v_host
