// Descriptor bytes of a device as the structures of the libusb ABI, with libusb's own leniency.
#ifndef VBUS_DESCRIPTOR_PARSER_H
#define VBUS_DESCRIPTOR_PARSER_H

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <span>
#include <vector>

#include "libusb_abi.h"

namespace vbus {

using ByteSpan = std::span<const std::uint8_t>;

// A configuration with everything its pointers point to.
class ParsedConfiguration
{
public:
    // A libusb error code; 0 when "Config" may be used.
    int Parse(ByteSpan bytes);
    libusb_config_descriptor* Config() { return &m_config; }
    // The interface that has this endpoint, or -1.
    int InterfaceOf(std::uint8_t endpoint) const;
    bool HasInterface(int number) const;
    int PacketSizeOf(std::uint8_t endpoint) const;

private:
    int _ParseInterfaces(ByteSpan bytes);
    int _ParseInterface(ByteSpan& bytes, libusb_interface& interface);
    int _ParseSetting(ByteSpan& bytes, libusb_interface_descriptor& setting);
    int _ParseEndpoint(ByteSpan& bytes, libusb_endpoint_descriptor& endpoint);
    int _TakeExtra(ByteSpan& bytes, const unsigned char*& extra, int& length);
    template <typename Visit>
    const libusb_endpoint_descriptor* _FindEndpoint(std::uint8_t address, Visit visit) const;

    libusb_config_descriptor m_config{};
    std::vector<libusb_interface> m_interfaces;
    std::deque<std::vector<libusb_interface_descriptor>> m_settings;
    std::deque<std::vector<libusb_endpoint_descriptor>> m_endpoints;
    // Each piece in a block of its own, so that a host that reads beyond one is caught by its
    // tools.
    std::vector<std::unique_ptr<std::uint8_t[]>> m_extras;
};

int ParseDevice(ByteSpan bytes, libusb_device_descriptor& descriptor);

} // namespace vbus

#endif
