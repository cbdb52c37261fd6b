#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace u3v_host {

// An event that the camera has sent. `data` begins with the reserved (or size) field of the event,
// as event adapters count addresses. Valid during the call only.
struct CameraEvent
{
    uint16_t id;
    uint64_t timestamp; // ns
    std::span<const uint8_t> data;
};

// Takes a packet of the event interface apart, event by event. What is not whole, and what is no
// event packet, gives none. Pure.
class EventPacket
{
public:
    // `multiEvent`: the camera's capability. The packet outlives the object.
    EventPacket(std::span<const uint8_t> packet, bool multiEvent);

    // Nothing after the last one.
    std::optional<CameraEvent> Next();

private:
    std::span<const uint8_t> m_left;
    const bool m_multiEvent;
};

} // namespace u3v_host
