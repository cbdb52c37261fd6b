#include "event_protocol.h"

#include <algorithm>

namespace vcam {

namespace {

constexpr std::size_t kMaxWaiting = 1024; // then the oldest event is lost

template <typename T>
void Disturb(Field<T> field, std::vector<std::uint8_t>& bytes)
{
    field.Store(bytes.data(), static_cast<T>(field.Load(bytes.data()) ^ 0x0101));
}

} // namespace

EventProtocol::EventProtocol(const CameraConfig& config, CameraMemory& memory, FaultPlan& faults)
    : m_config(config), m_memory(memory), m_faults(faults)
{
}

void EventProtocol::Drop()
{
    m_items.clear();
    m_packets.clear();
}

void EventProtocol::Update(const WriteEffects& effects)
{
    if (effects.eventsChanged && !m_memory.EventsEnabled()) {
        Drop();
    }
    if (effects.testEvent) {
        std::vector<std::uint8_t> data(m_config.eventLength);
        for (std::size_t i = 0; i < data.size(); ++i) {
            data[i] = static_cast<std::uint8_t>(i);
        }
        Send(kTestEvent.id, m_memory.NowNs(), data);
    }
}

void EventProtocol::Notify(CameraEvent event, std::uint64_t blockId, std::uint64_t timestamp)
{
    const auto index = static_cast<std::uint32_t>(event);
    if (m_memory.Get(cam::EventNotification(index)) == 0) {
        return;
    }
    std::uint8_t data[sizeof blockId];
    StoreLe(data, blockId);
    Send(kEvents[index].id, timestamp, data);
}

bool EventProtocol::Send(std::uint16_t id, std::uint64_t timestamp,
                         std::span<const std::uint8_t> data)
{
    if (!m_memory.EventsEnabled()) {
        return false;
    }
    const std::size_t room = m_config.eventLength - gencp::kHeaderSize;
    const std::size_t size = std::min(room, event::kItemHeaderSize + data.size());
    Item item(std::max(size, event::kItemHeaderSize));
    const std::size_t whole = m_config.multiEvent ? item.size() : 0;
    event::kItemSize.Store(item.data(), static_cast<std::uint16_t>(whole));
    event::kId.Store(item.data(), id);
    event::kTimestamp.Store(item.data(), timestamp);
    std::copy_n(data.begin(), item.size() - event::kItemHeaderSize,
                item.begin() + event::kItemHeaderSize);
    m_items.push_back(std::move(item));
    if (m_items.size() > kMaxWaiting) {
        m_items.pop_front();
    }
    return true;
}

// One event, or as many of those that wait as a packet can carry.
void EventProtocol::_MakePacket()
{
    std::vector<std::uint8_t> bytes(gencp::kHeaderSize);
    do {
        const Item& item = m_items.front();
        bytes.insert(bytes.end(), item.begin(), item.end());
        m_items.pop_front();
    } while (m_config.multiEvent && !m_items.empty() &&
             bytes.size() + m_items.front().size() <= m_config.eventLength);
    gencp::kPrefixField.Store(bytes.data(), event::kPrefix);
    gencp::kCommand.Store(bytes.data(), event::kCommand);
    gencp::kLength.Store(bytes.data(),
                         static_cast<std::uint16_t>(bytes.size() - gencp::kHeaderSize));
    gencp::kRequestId.Store(bytes.data(), static_cast<std::uint16_t>(m_packetNumber));
    _SpoilAndQueue(std::move(bytes));
    ++m_packetNumber;
}

const Fault* EventProtocol::_Fire(const char* name)
{
    return m_faults.Empty() ? nullptr : m_faults.FireAt(name, m_packetNumber);
}

void EventProtocol::_SpoilAndQueue(std::vector<std::uint8_t> bytes)
{
    _SpoilFields(bytes);
    _SpoilLength(bytes);
    if (_Fire("event-lost") != nullptr) {
        return;
    }
    if (_Fire("event-doubled") != nullptr) {
        _Queue(bytes);
    }
    _Queue(bytes);
    if (const Fault* fault = _Fire("event-late")) {
        const auto delay = std::clamp<std::int64_t>(fault->Value(1000), 0, 600000);
        m_packets.back().readyAt = Clock::now() + std::chrono::milliseconds(delay);
    }
    m_packets.back().halts = _Fire("event-stalled") != nullptr;
}

void EventProtocol::_SpoilFields(std::vector<std::uint8_t>& bytes)
{
    if (_Fire("event-wrong-prefix") != nullptr) {
        Disturb(gencp::kPrefixField, bytes);
    }
    if (_Fire("event-wrong-command") != nullptr) {
        Disturb(gencp::kCommand, bytes);
    }
    if (_Fire("event-wrong-length") != nullptr) {
        Disturb(gencp::kLength, bytes);
    }
    if (const Fault* fault = _Fire("event-item-size")) {
        event::kItemSize.Store(bytes.data() + gencp::kHeaderSize,
                               static_cast<std::uint16_t>(fault->Value(0)));
    }
}

void EventProtocol::_SpoilLength(std::vector<std::uint8_t>& bytes)
{
    const auto sizeOf = [](const Fault& fault, std::int64_t otherwise) {
        return static_cast<std::size_t>(std::clamp<std::int64_t>(fault.Value(otherwise), 0, 65536));
    };
    if (const Fault* fault = _Fire("event-short")) {
        bytes.resize(std::min(bytes.size(), sizeOf(*fault, 10)));
    }
    if (_Fire("event-empty") != nullptr) {
        bytes.clear();
    }
    if (const Fault* fault = _Fire("event-long")) {
        bytes.resize(bytes.size() + sizeOf(*fault, 4));
    }
}

void EventProtocol::_Queue(const std::vector<std::uint8_t>& bytes)
{
    Packet packet;
    packet.bytes = bytes;
    packet.transfer.size = bytes.size();
    m_packets.push_back(std::move(packet));
}

UsbResult EventProtocol::BulkIn(HostRequest request, std::size_t packetSize)
{
    for (;;) {
        if (m_packets.empty() && m_items.empty()) {
            return {UsbStatus::Nak};
        }
        if (m_packets.empty()) {
            _MakePacket();
            continue;
        }
        Packet& packet = m_packets.front();
        if (packet.readyAt > Clock::now()) {
            return {UsbStatus::Nak, packet.readyAt};
        }
        if (packet.halts) {
            m_packets.pop_front();
            return {UsbStatus::Stall};
        }
        if (packet.transfer.sent == 0) {
            packet.transfer.emptyEnd = packet.bytes.size() % packetSize == 0 &&
                                       packet.bytes.size() != m_config.eventLength;
        }
        const auto copy = [&packet](std::size_t offset, std::uint8_t* target, std::size_t size) {
            std::copy_n(packet.bytes.data() + offset, size, target);
        };
        const Moved moved = MovePackets(packet.transfer, request, packetSize, copy);
        if (packet.transfer.AllSent()) {
            m_packets.pop_front();
        }
        if (moved != Moved::Transfer) {
            return {moved == Moved::Overflow ? UsbStatus::Overflow : UsbStatus::Done};
        }
    }
}

} // namespace vcam
