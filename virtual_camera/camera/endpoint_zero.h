// The standard requests of endpoint 0 and the halt state of the other endpoints.
#ifndef VCAM_ENDPOINT_ZERO_H
#define VCAM_ENDPOINT_ZERO_H

#include <set>

#include "usb_descriptors.h"
#include "usb_device.h"

namespace vcam {

// What a request has changed and the device has to follow.
struct ControlOutcome
{
    bool refused = false;
    std::uint8_t haltCleared = 0; // endpoint address
    bool restarted = false;       // configuration or alternate setting set: all endpoints anew
};

// Not thread-safe: its owner, the device, locks.
class EndpointZero
{
public:
    explicit EndpointZero(const UsbDescriptors& descriptors);

    ControlOutcome Handle(const SetupPacket& setup, Bytes& data);
    void Reset();
    void Halt(std::uint8_t endpoint) { m_halted.insert(endpoint); }
    bool IsHalted(std::uint8_t endpoint) const { return m_halted.count(endpoint) != 0; }

private:
    ControlOutcome _HandleDevice(const SetupPacket& setup, Bytes& data);
    ControlOutcome _HandleInterface(const SetupPacket& setup, Bytes& data);
    ControlOutcome _HandleEndpoint(const SetupPacket& setup, Bytes& data);

    const UsbDescriptors& m_descriptors;
    std::set<std::uint8_t> m_halted;
    std::uint8_t m_configuration = 1; // the host has configured it by the time anybody looks
};

} // namespace vcam

#endif
