#pragma once

#include "field.h"

#include <optional>

// How a USB3 Vision device shows itself in its USB descriptors.
namespace usb_identity {

// Device descriptor: a device of several functions, told by interface associations.
inline constexpr uint8_t kDeviceClass = 0xEF;
inline constexpr uint8_t kDeviceSubClass = 0x02;
inline constexpr uint8_t kDeviceProtocol = 0x01;

// Interface association and interfaces of USB3 Vision; the protocol byte tells an interface's role.
// The association has the control interface's triple.
inline constexpr uint8_t kVisionClass = 0xEF;
inline constexpr uint8_t kVisionSubClass = 0x05;
inline constexpr uint8_t kControlProtocol = 0x00;
inline constexpr uint8_t kEventProtocol = 0x01;
inline constexpr uint8_t kStreamProtocol = 0x02;

inline constexpr uint8_t kEndpointIn = 0x80; // bit of an endpoint's address

} // namespace usb_identity

// The class-specific device information descriptor inside the control interface's extra bytes. From
// kDeviceGUID to kUserDefinedName the bytes are string indices.
namespace device_info_wire {

inline constexpr Field<uint8_t> kLength{0};
inline constexpr Field<uint8_t> kDescriptorType{1};
inline constexpr Field<uint8_t> kDescriptorSubtype{2};
inline constexpr Field<uint32_t> kGenCPVersion{3}; // major << 16 | minor
inline constexpr Field<uint32_t> kU3VVersion{7};   // major << 16 | minor
inline constexpr Field<uint8_t> kDeviceGUID{11};
inline constexpr Field<uint8_t> kVendorName{12};
inline constexpr Field<uint8_t> kModelName{13};
inline constexpr Field<uint8_t> kFamilyName{14};
inline constexpr Field<uint8_t> kDeviceVersion{15};
inline constexpr Field<uint8_t> kManufacturerInfo{16};
inline constexpr Field<uint8_t> kSerialNumber{17};
inline constexpr Field<uint8_t> kUserDefinedName{18};
inline constexpr Field<uint8_t> kSpeedSupport{19};
inline constexpr size_t kSize = kSpeedSupport.End();

inline constexpr uint8_t kType = 0x24;    // class-specific, of an interface
inline constexpr uint8_t kSubtype = 0x01; // device information

// Bits of kSpeedSupport.
inline constexpr uint8_t kLowSpeed = 1U << 0U;
inline constexpr uint8_t kFullSpeed = 1U << 1U;
inline constexpr uint8_t kHighSpeed = 1U << 2U;
inline constexpr uint8_t kSuperSpeed = 1U << 3U;

} // namespace device_info_wire

// The descriptor's content. An index of 0 names no string.
struct DeviceInformation
{
    uint32_t genCPVersion;
    uint32_t u3vVersion;
    uint8_t deviceGUID;
    uint8_t vendorName;
    uint8_t modelName;
    uint8_t familyName;
    uint8_t deviceVersion;
    uint8_t manufacturerInfo;
    uint8_t serialNumber;
    uint8_t userDefinedName;
    uint8_t speedSupport;
};

// Finds the device information among the descriptors in an interface's extra bytes. Nothing when
// there is none of full length. A descriptor that is shorter than its own head or longer than what
// is left ends the search: where the next one begins is not known then.
constexpr std::optional<DeviceInformation> FindDeviceInformation(std::span<const uint8_t> extra)
{
    namespace wire = device_info_wire;
    while (extra.size() >= wire::kDescriptorType.End()) {
        const size_t length = Load(extra, wire::kLength);
        if (length < wire::kDescriptorType.End() || length > extra.size()) {
            return std::nullopt;
        }
        const std::span<const uint8_t> one = extra.first(length);
        if (length >= wire::kSize && Load(one, wire::kDescriptorType) == wire::kType &&
            Load(one, wire::kDescriptorSubtype) == wire::kSubtype) {
            return DeviceInformation{
                Load(one, wire::kGenCPVersion),  Load(one, wire::kU3VVersion),
                Load(one, wire::kDeviceGUID),    Load(one, wire::kVendorName),
                Load(one, wire::kModelName),     Load(one, wire::kFamilyName),
                Load(one, wire::kDeviceVersion), Load(one, wire::kManufacturerInfo),
                Load(one, wire::kSerialNumber),  Load(one, wire::kUserDefinedName),
                Load(one, wire::kSpeedSupport),
            };
        }
        extra = extra.subspan(length);
    }
    return std::nullopt;
}
