// The standard descriptors of a device as real bytes, made once when it is plugged in.
#ifndef VCAM_USB_DESCRIPTORS_H
#define VCAM_USB_DESCRIPTORS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "camera_config.h"
#include "fault_plan.h"

namespace vcam {

using Bytes = std::vector<std::uint8_t>;

namespace usb {
constexpr std::uint8_t kControlOut = 0x01;
constexpr std::uint8_t kControlIn = 0x81;
constexpr std::uint8_t kEventIn = 0x82;
constexpr std::uint8_t kStreamIn = 0x83;
constexpr std::uint8_t kDeviceType = 1;
constexpr std::uint8_t kConfigurationType = 2;
constexpr std::uint8_t kStringType = 3;
constexpr std::uint8_t kInterfaceType = 4;
constexpr std::uint8_t kEndpointType = 5;
constexpr std::uint8_t kQualifierType = 6;
constexpr std::uint8_t kAssociationType = 11;
constexpr std::uint8_t kBosType = 15;
constexpr std::uint8_t kCapabilityType = 16;
constexpr std::uint8_t kCameraInfoType = 0x24;
constexpr std::uint8_t kCompanionType = 0x30;
} // namespace usb

enum class UsbSpeed
{
    High,
    Super,
    SuperPlus
};

class UsbDescriptors
{
public:
    // A camera. The fault list may spoil what it says about itself.
    UsbDescriptors(const CameraConfig& config, const FaultPlan& faults);
    // Any other device: its bytes as given (no BOS when empty).
    UsbDescriptors(Bytes device, Bytes configuration, std::vector<std::string> strings);

    // The answer to GET_DESCRIPTOR; none: the request is refused.
    std::optional<Bytes> Get(std::uint8_t type, std::uint8_t index) const;

    const Bytes& Device() const { return m_device; }
    const Bytes& Configuration() const { return m_configuration; }
    bool HighSpeed() const { return m_highSpeed; }
    UsbSpeed Speed() const { return m_speed; }
    // A string descriptor's text in UTF-8; empty when there is none.
    std::string Text(std::uint8_t index) const;
    std::size_t PacketSize() const { return m_highSpeed ? 512 : 1024; }
    bool DeviceFails() const { return m_deviceFails; }
    bool ConfigurationFails() const { return m_configurationFails; }
    std::uint8_t InterfaceCount() const; // as far as the bytes reach
    bool HasEndpoint(std::uint8_t address) const;

private:
    std::uint8_t _AddString(const std::string& text);
    void _MakeDevice(const CameraConfig& config);
    void _MakeBos();
    void _MakeConfiguration(const CameraConfig& config, const FaultPlan& faults);
    void _AppendControlInterface(const CameraConfig& config, const FaultPlan& faults,
                                 std::uint8_t number);
    void _AppendInterface(std::uint8_t number, std::uint8_t endpoints, std::uint8_t protocol);
    void _AppendEndpoint(std::uint8_t address, std::uint8_t burst);
    Bytes _CameraInfo(const CameraConfig& config);
    void _Spoil(const FaultPlan& faults);
    Bytes _String(std::uint8_t index) const;
    Bytes _Qualifier() const;

    Bytes m_device;
    Bytes m_configuration;
    Bytes m_bos;
    std::vector<std::string> m_strings; // the first has index 1
    bool m_highSpeed = false;
    UsbSpeed m_speed = UsbSpeed::High;
    bool m_deviceFails = false;
    bool m_configurationFails = false;
    bool m_stringsFail = false;
    bool m_stringsOdd = false;
};

} // namespace vcam

#endif
