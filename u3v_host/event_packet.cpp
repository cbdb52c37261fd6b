#include "event_packet.h"

#include "packets.h"

namespace wire = event_wire;

namespace u3v_host {

EventPacket::EventPacket(std::span<const uint8_t> packet, bool multiEvent)
    : m_multiEvent(multiEvent)
{
    const bool isEvent = packet.size() >= wire::kHeaderSize &&
                         Load(packet, wire::kPacketPrefix) == wire::kPrefix &&
                         Load(packet, wire::kCommandId) == wire::kEventCommand;
    const size_t length = Load(packet, wire::kLength);
    if (isEvent && length <= packet.size() - wire::kHeaderSize) {
        m_left = packet.subspan(wire::kHeaderSize, length);
    }
}

std::optional<CameraEvent> EventPacket::Next()
{
    const size_t size = m_multiEvent ? Load(m_left, wire::kItemSize) : m_left.size();
    if (size < wire::kDataOffset || size > m_left.size()) {
        m_left = {};
        return std::nullopt;
    }
    const auto item = m_left.first(size);
    m_left = m_left.subspan(size);
    return CameraEvent{Load(item, wire::kEventId), Load(item, wire::kTimestamp), item};
}

} // namespace u3v_host
