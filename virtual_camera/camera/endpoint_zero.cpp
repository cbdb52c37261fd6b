#include "endpoint_zero.h"

#include "little_endian.h"

namespace vcam {

namespace {

enum Request : std::uint8_t
{
    kGetStatus = 0,
    kClearFeature = 1,
    kSetFeature = 3,
    kSetAddress = 5,
    kGetDescriptor = 6,
    kGetConfiguration = 8,
    kSetConfiguration = 9,
    kGetInterface = 10,
    kSetInterface = 11,
    kSetSel = 48,
    kSetIsochDelay = 49,
};

constexpr std::uint16_t kEndpointHalt = 0;
constexpr ControlOutcome kAccepted{};

ControlOutcome Refused()
{
    ControlOutcome outcome;
    outcome.refused = true;
    return outcome;
}

ControlOutcome Restarted()
{
    ControlOutcome outcome;
    outcome.restarted = true;
    return outcome;
}

} // namespace

SetupPacket SetupPacket::Parse(const std::uint8_t* eightBytes)
{
    return {eightBytes[0], eightBytes[1], LoadLe<std::uint16_t>(eightBytes + 2),
            LoadLe<std::uint16_t>(eightBytes + 4), LoadLe<std::uint16_t>(eightBytes + 6)};
}

EndpointZero::EndpointZero(const UsbDescriptors& descriptors) : m_descriptors(descriptors)
{
}

void EndpointZero::Reset()
{
    m_halted.clear();
    m_configuration = 1;
}

ControlOutcome EndpointZero::Handle(const SetupPacket& setup, Bytes& data)
{
    constexpr std::uint8_t kTypeMask = 0x60;
    constexpr std::uint8_t kRecipientMask = 0x1F;
    if ((setup.requestType & kTypeMask) != 0) {
        return Refused(); // neither class nor vendor requests
    }
    ControlOutcome outcome;
    switch (setup.requestType & kRecipientMask) {
    case 0: outcome = _HandleDevice(setup, data); break;
    case 1: outcome = _HandleInterface(setup, data); break;
    case 2: outcome = _HandleEndpoint(setup, data); break;
    default: outcome = Refused(); break;
    }
    if (setup.IsIn() && data.size() > setup.length) {
        data.resize(setup.length);
    }
    return outcome;
}

ControlOutcome EndpointZero::_HandleDevice(const SetupPacket& setup, Bytes& data)
{
    switch (setup.request) {
    case kGetStatus: data = {0, 0}; return kAccepted;
    case kGetDescriptor: {
        const auto bytes = m_descriptors.Get(static_cast<std::uint8_t>(setup.value >> 8),
                                             static_cast<std::uint8_t>(setup.value & 0xFF));
        data = bytes.value_or(Bytes{});
        return bytes ? kAccepted : Refused();
    }
    case kGetConfiguration: data = {m_configuration}; return kAccepted;
    case kSetConfiguration:
        if (setup.value > 1) {
            return Refused();
        }
        m_configuration = static_cast<std::uint8_t>(setup.value);
        m_halted.clear();
        return Restarted();
    case kSetAddress:
    case kSetSel:
    case kSetIsochDelay:
    case kSetFeature: // link states of SuperSpeed; nothing here sleeps
    case kClearFeature: return kAccepted;
    default: return Refused();
    }
}

ControlOutcome EndpointZero::_HandleInterface(const SetupPacket& setup, Bytes& data)
{
    if (setup.index >= m_descriptors.InterfaceCount()) {
        return Refused();
    }
    switch (setup.request) {
    case kGetStatus: data = {0, 0}; return kAccepted;
    case kGetInterface: data = {0}; return kAccepted;
    case kSetInterface: return setup.value == 0 ? Restarted() : Refused();
    case kSetFeature:
    case kClearFeature: return kAccepted; // function suspend
    default: return Refused();
    }
}

ControlOutcome EndpointZero::_HandleEndpoint(const SetupPacket& setup, Bytes& data)
{
    const auto endpoint = static_cast<std::uint8_t>(setup.index);
    if ((endpoint & 0x0F) != 0 && !m_descriptors.HasEndpoint(endpoint)) {
        return Refused();
    }
    ControlOutcome outcome;
    switch (setup.request) {
    case kGetStatus:
        data = {static_cast<std::uint8_t>(IsHalted(endpoint) ? 1 : 0), 0};
        return outcome;
    case kClearFeature:
        outcome.refused = setup.value != kEndpointHalt;
        outcome.haltCleared = outcome.refused ? std::uint8_t{0} : endpoint;
        m_halted.erase(outcome.haltCleared);
        return outcome;
    case kSetFeature:
        outcome.refused = setup.value != kEndpointHalt;
        if (!outcome.refused) {
            Halt(endpoint);
        }
        return outcome;
    default: return Refused();
    }
}

} // namespace vcam
