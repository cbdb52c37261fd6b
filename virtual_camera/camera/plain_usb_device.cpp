#include "plain_usb_device.h"

namespace vcam {

namespace {

struct Kind
{
    std::string_view name;
    std::uint8_t deviceClass[3];
    std::uint8_t interfaceClass[3];
    std::uint16_t product;
    bool saneConfiguration;
};

constexpr Kind kKinds[] = {
    {"mouse", {0, 0, 0}, {0x03, 1, 2}, 0x0101, true},
    {"hub", {0x09, 0, 1}, {0x09, 0, 0}, 0x0102, true},
    {"disk", {0, 0, 0}, {0x08, 6, 0x50}, 0x0103, true},
    {"iad", {0xEF, 2, 1}, {0x0E, 1, 0}, 0x0104, true},
    {"broken", {0xEF, 2, 1}, {0xFF, 0, 0}, 0x0105, false},
};

Bytes DeviceBytes(const Kind& kind)
{
    return {18,
            usb::kDeviceType,
            0x00,
            0x02,
            kind.deviceClass[0],
            kind.deviceClass[1],
            kind.deviceClass[2],
            64,
            0x09,
            0x12,
            static_cast<std::uint8_t>(kind.product & 0xFF),
            static_cast<std::uint8_t>(kind.product >> 8),
            0x00,
            0x01,
            1,
            2,
            3,
            1};
}

Bytes ConfigurationBytes(const Kind& kind)
{
    if (!kind.saneConfiguration) {
        return {9, usb::kConfigurationType, 0xFF, 0x7F, 40, 1, 0, 0x80, 250, 0, 0x24};
    }
    return {9,
            usb::kConfigurationType,
            25,
            0,
            1,
            1,
            0,
            0x80,
            50,
            9,
            usb::kInterfaceType,
            0,
            0,
            1,
            kind.interfaceClass[0],
            kind.interfaceClass[1],
            kind.interfaceClass[2],
            0,
            7,
            usb::kEndpointType,
            0x81,
            3,
            8,
            0,
            10};
}

} // namespace

PlainUsbDevice::PlainUsbDevice(UsbDescriptors descriptors)
    : m_descriptors(std::move(descriptors)), m_zero(m_descriptors)
{
}

UsbResult PlainUsbDevice::Control(const SetupPacket& setup, std::vector<std::uint8_t>& data)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return {m_zero.Handle(setup, data).refused ? UsbStatus::Stall : UsbStatus::Done};
}

UsbResult PlainUsbDevice::BulkOut(std::uint8_t, const std::uint8_t*, std::size_t)
{
    return {UsbStatus::Stall};
}

UsbResult PlainUsbDevice::BulkIn(std::uint8_t, std::uint8_t*, std::size_t, std::size_t&)
{
    return {UsbStatus::Nak};
}

void PlainUsbDevice::BusReset()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_zero.Reset();
}

void PlainUsbDevice::SetListener(std::function<void()>)
{
}

std::shared_ptr<PlainUsbDevice> MakePlainDevice(std::string_view name)
{
    for (const Kind& kind : kKinds) {
        if (kind.name == name) {
            return std::make_shared<PlainUsbDevice>(
                UsbDescriptors(DeviceBytes(kind), ConfigurationBytes(kind),
                               {"Some Maker", std::string(name), "0001"}));
        }
    }
    return nullptr;
}

} // namespace vcam
