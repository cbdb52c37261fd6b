#include "usb_descriptors.h"

#include <algorithm>

#include "little_endian.h"
#include "utf16.h"

namespace vcam {

namespace {

constexpr std::uint8_t kMiscClass = 0xEF;
constexpr std::uint8_t kVisionSubClass = 0x05;
constexpr std::uint8_t kControlProtocol = 0;
constexpr std::uint8_t kEventProtocol = 1;
constexpr std::uint8_t kStreamProtocol = 2;
constexpr std::size_t kTotalLength = 2; // offsets within the configuration descriptor
constexpr std::size_t kNumInterfaces = 4;
constexpr std::size_t kInfoSize = 20;
constexpr std::uint8_t kHighSpeedBit = 1U << 2;
constexpr std::uint8_t kSuperSpeedBit = 1U << 3;
constexpr std::uint8_t kSuperSpeedPlusBit = 1U << 4;

void Append(Bytes& to, std::initializer_list<unsigned> bytes)
{
    for (const unsigned byte : bytes) {
        to.push_back(static_cast<std::uint8_t>(byte));
    }
}

void SetTotalLength(Bytes& configuration)
{
    StoreLe(configuration.data() + kTotalLength, static_cast<std::uint16_t>(configuration.size()));
}

// Calls "visit(offset, type)" for every descriptor of a configuration, as far as they make sense.
template <typename Visit>
void ForEachDescriptor(const Bytes& configuration, Visit visit)
{
    for (std::size_t at = 0; at + 2 <= configuration.size();) {
        const std::size_t length = configuration[at];
        if (length < 2 || at + length > configuration.size()) {
            return;
        }
        visit(at, configuration[at + 1]);
        at += length;
    }
}

} // namespace

UsbDescriptors::UsbDescriptors(Bytes device, Bytes configuration, std::vector<std::string> strings)
    : m_device(std::move(device)), m_configuration(std::move(configuration)),
      m_strings(std::move(strings)), m_highSpeed(true)
{
}

UsbDescriptors::UsbDescriptors(const CameraConfig& config, const FaultPlan& faults)
    : m_highSpeed(config.highSpeed), m_speed(config.highSpeed        ? UsbSpeed::High
                                             : config.superSpeedPlus ? UsbSpeed::SuperPlus
                                                                     : UsbSpeed::Super),
      m_deviceFails(faults.Find("device-descriptor-fails") != nullptr),
      m_configurationFails(faults.Find("config-fails") != nullptr),
      m_stringsFail(faults.Find("strings-fail") != nullptr),
      m_stringsOdd(faults.Find("strings-odd") != nullptr)
{
    _MakeDevice(config);
    _MakeBos();
    _MakeConfiguration(config, faults);
    _Spoil(faults);
}

std::uint8_t UsbDescriptors::_AddString(const std::string& text)
{
    m_strings.push_back(text);
    return static_cast<std::uint8_t>(m_strings.size());
}

void UsbDescriptors::_MakeDevice(const CameraConfig& config)
{
    const unsigned fastVersion = m_speed == UsbSpeed::SuperPlus ? 0x0310 : 0x0300;
    const unsigned usbVersion = m_highSpeed ? 0x0200 : fastVersion;
    const unsigned packet0 = m_highSpeed ? 64 : 9; // SuperSpeed: a power of two
    Append(m_device, {18, usb::kDeviceType, usbVersion & 0xFF, usbVersion >> 8, kMiscClass, 0x02,
                      0x01, packet0, config.vendorId & 0xFFU, unsigned{config.vendorId} >> 8,
                      config.productId & 0xFFU, unsigned{config.productId} >> 8, 0x00, 0x01});
    Append(m_device, {_AddString(config.vendor)});
    Append(m_device, {_AddString(config.model)});
    Append(m_device, {_AddString(config.serial)});
    Append(m_device, {1});
}

void UsbDescriptors::_MakeBos()
{
    if (m_highSpeed) {
        return;
    }
    Append(m_bos, {5, usb::kBosType, 22, 0, 2});
    // USB 2.0 extension: link power management.
    Append(m_bos, {7, usb::kCapabilityType, 2, 0x02, 0, 0, 0});
    // SuperSpeed: full, high and super speed; fully functional from high speed on; exit latencies.
    Append(m_bos, {10, usb::kCapabilityType, 3, 0, 0x0E, 0, 2, 10, 0x20, 0x00});
}

void UsbDescriptors::_MakeConfiguration(const CameraConfig& config, const FaultPlan& faults)
{
    const bool control = faults.Find("no-control-interface") == nullptr;
    const bool stream = faults.Find("no-stream-interface") == nullptr;
    const unsigned interfaces =
        (control ? 1U : 0U) + (config.events ? 1U : 0U) + (stream ? 1U : 0U);
    const unsigned power = m_highSpeed ? 250 : 112; // 500 mA, 896 mA
    Append(m_configuration, {9, usb::kConfigurationType, 0, 0, interfaces, 1, 0, 0x80, power});
    Append(m_configuration, {8, usb::kAssociationType, 0, interfaces, kMiscClass, kVisionSubClass,
                             0, _AddString("USB3 Vision")});
    std::uint8_t number = 0;
    if (control) {
        _AppendControlInterface(config, faults, number++);
    }
    if (config.events) {
        _AppendInterface(number++, 1, kEventProtocol);
        _AppendEndpoint(usb::kEventIn, 0);
    }
    if (stream) {
        _AppendInterface(number++, 1, kStreamProtocol);
        _AppendEndpoint(usb::kStreamIn, 15);
    }
    SetTotalLength(m_configuration);
}

void UsbDescriptors::_AppendControlInterface(const CameraConfig& config, const FaultPlan& faults,
                                             std::uint8_t number)
{
    _AppendInterface(number, 2, kControlProtocol);
    const Bytes info = _CameraInfo(config);
    if (faults.Find("info-missing") == nullptr && faults.Find("info-at-end") == nullptr) {
        m_configuration.insert(m_configuration.end(), info.begin(), info.end());
    }
    _AppendEndpoint(usb::kControlOut, 0);
    _AppendEndpoint(usb::kControlIn, 0);
}

void UsbDescriptors::_AppendInterface(std::uint8_t number, std::uint8_t endpoints,
                                      std::uint8_t protocol)
{
    Append(m_configuration, {9, usb::kInterfaceType, number, 0, endpoints, kMiscClass,
                             kVisionSubClass, protocol, 0});
}

void UsbDescriptors::_AppendEndpoint(std::uint8_t address, std::uint8_t burst)
{
    constexpr unsigned kBulk = 2;
    Append(m_configuration,
           {7, usb::kEndpointType, address, kBulk, static_cast<unsigned>(PacketSize() & 0xFF),
            static_cast<unsigned>(PacketSize() >> 8), 0});
    if (!m_highSpeed) {
        Append(m_configuration, {6, usb::kCompanionType, burst, 0, 0, 0});
    }
}

// Versions, then the indices of the strings, then the speeds.
Bytes UsbDescriptors::_CameraInfo(const CameraConfig& config)
{
    const unsigned plus = m_speed == UsbSpeed::SuperPlus ? kSuperSpeedPlusBit : 0;
    const unsigned speeds = m_highSpeed ? kHighSpeedBit : kHighSpeedBit | kSuperSpeedBit | plus;
    Bytes info;
    Append(info, {kInfoSize, usb::kCameraInfoType, 1, 0, 0, 1, 0, 0, 0, 1, 0});
    Append(info, {_AddString(config.guid)});
    Append(info, {m_device[14], m_device[15]}); // vendor and model are the device's own strings
    Append(info, {_AddString(config.family)});
    Append(info, {_AddString(config.version)});
    Append(info, {_AddString(config.info)});
    Append(info, {m_device[16]});
    Append(info, {_AddString(config.user)});
    Append(info, {speeds});
    return info;
}

void UsbDescriptors::_Spoil(const FaultPlan& faults)
{
    Bytes& all = m_configuration;
    std::size_t info = 0;
    std::size_t control = 0;
    ForEachDescriptor(all, [&](std::size_t at, std::uint8_t type) {
        info = type == usb::kCameraInfoType ? at : info;
        control = control == 0 && type == usb::kInterfaceType ? at : control;
    });
    const auto shortened = [&](const char* name, bool tellsTruth) {
        const Fault* fault = faults.Find(name);
        if (fault == nullptr || info == 0) {
            return;
        }
        const auto size =
            static_cast<std::ptrdiff_t>(std::clamp<std::int64_t>(fault->Value(5), 2, 20));
        const auto start = all.begin() + static_cast<std::ptrdiff_t>(info);
        all.erase(start + size, start + static_cast<std::ptrdiff_t>(kInfoSize));
        all[info] = static_cast<std::uint8_t>(tellsTruth ? size : 20);
    };
    shortened("info-short", true);
    shortened("info-lies", false);
    if (const Fault* fault = faults.Find("info-at-end")) {
        const auto size =
            static_cast<std::size_t>(std::clamp<std::int64_t>(fault->Value(5), 2, 20));
        Append(all, {kInfoSize, usb::kCameraInfoType});
        all.resize(all.size() + size - 2);
    }
    SetTotalLength(all);
    if (const Fault* fault = faults.Find("descriptor-endpoints")) {
        all[control + 4] = static_cast<std::uint8_t>(fault->Value(255));
    }
    if (const Fault* fault = faults.Find("descriptor-interfaces")) {
        all[kNumInterfaces] = static_cast<std::uint8_t>(fault->Value(255));
    }
    if (faults.Find("descriptor-zero-length") != nullptr) {
        all[control] = 0;
    }
    if (const Fault* fault = faults.Find("descriptor-cut")) {
        const auto size =
            static_cast<std::size_t>(std::clamp<std::int64_t>(fault->Value(20), 0, 65535));
        all.resize(std::min(all.size(), size));
    }
    if (const Fault* fault = faults.Find("descriptor-total"); fault != nullptr && all.size() >= 4) {
        StoreLe(all.data() + kTotalLength, static_cast<std::uint16_t>(fault->Value(0xFFFF)));
    }
}

std::optional<Bytes> UsbDescriptors::Get(std::uint8_t type, std::uint8_t index) const
{
    const auto unlessEmpty = [](const Bytes& bytes) {
        return bytes.empty() ? std::nullopt : std::optional<Bytes>(bytes);
    };
    switch (type) {
    case usb::kDeviceType: return m_deviceFails ? std::nullopt : unlessEmpty(m_device);
    case usb::kConfigurationType:
        return m_configurationFails || index != 0 ? std::nullopt : unlessEmpty(m_configuration);
    case usb::kBosType: return unlessEmpty(m_bos);
    case usb::kQualifierType:
        return m_highSpeed && m_device.size() >= 18 ? unlessEmpty(_Qualifier()) : std::nullopt;
    case usb::kStringType:
        return m_stringsFail || index > m_strings.size() ? std::nullopt
                                                         : unlessEmpty(_String(index));
    default: return std::nullopt;
    }
}

Bytes UsbDescriptors::_String(std::uint8_t index) const
{
    if (m_stringsOdd && index != 0) {
        return {3, usb::kStringType + 4, 'x'};
    }
    if (index == 0) {
        return {4, usb::kStringType, 0x09, 0x04}; // English (United States)
    }
    const std::u16string text = ToUtf16(m_strings[index - 1U]).substr(0, 126);
    Bytes bytes{static_cast<std::uint8_t>(2 + 2 * text.size()), usb::kStringType};
    for (const char16_t c : text) {
        bytes.push_back(static_cast<std::uint8_t>(c & 0xFF));
        bytes.push_back(static_cast<std::uint8_t>(c >> 8));
    }
    return bytes;
}

std::string UsbDescriptors::Text(std::uint8_t index) const
{
    const bool has = index != 0 && index <= m_strings.size() && !m_stringsFail && !m_stringsOdd;
    return has ? m_strings[index - 1U] : std::string();
}

// What the device would be at the other speed (full speed): the same without a configuration.
Bytes UsbDescriptors::_Qualifier() const
{
    Bytes bytes{10, usb::kQualifierType};
    bytes.insert(bytes.end(), m_device.begin() + 2, m_device.begin() + 8);
    Append(bytes, {1, 0});
    return bytes;
}

std::uint8_t UsbDescriptors::InterfaceCount() const
{
    std::uint8_t count = 0;
    ForEachDescriptor(m_configuration, [&count](std::size_t, std::uint8_t type) {
        count = static_cast<std::uint8_t>(count + (type == usb::kInterfaceType ? 1 : 0));
    });
    return count;
}

bool UsbDescriptors::HasEndpoint(std::uint8_t address) const
{
    bool has = false;
    ForEachDescriptor(m_configuration, [&](std::size_t at, std::uint8_t type) {
        has = has || (type == usb::kEndpointType && at + 2 < m_configuration.size() &&
                      m_configuration[at + 2] == address);
    });
    return has;
}

} // namespace vcam
