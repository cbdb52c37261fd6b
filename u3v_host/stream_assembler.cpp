#include "stream_assembler.h"

#include <algorithm>
#include <cstring>

#include "packets.h"

namespace u3v_host {

using Phase = StreamPosition::Phase;

namespace {

// What is read at once to find a leader: enough to make way, little to copy, and never a leader
// together with its trailer, which would have to wait there for the next image.
constexpr uint64_t kLongestSeek = uint64_t{64} * 1024;

constexpr StreamPosition At(Phase phase)
{
    return {.phase = phase};
}

Image ReadLeader(std::span<const uint8_t> leader)
{
    Image image{};
    image.blockId = Load(leader, leader_wire::kBlockId);
    image.timestamp = Load(leader, leader_wire::kTimestamp);
    image.payloadType = Load(leader, leader_wire::kPayloadType);
    image.pixelFormat = Load(leader, leader_wire::kPixelFormat);
    image.width = Load(leader, leader_wire::kSizeX);
    image.height = Load(leader, leader_wire::kSizeY);
    image.offsetX = Load(leader, leader_wire::kOffsetX);
    image.offsetY = Load(leader, leader_wire::kOffsetY);
    image.paddingX = Load(leader, leader_wire::kPaddingX);
    image.deliveredHeight = image.height;
    return image;
}

void ReadTrailer(std::span<const uint8_t> trailer, Image& image)
{
    image.hasTrailer = true;
    image.status = Load(trailer, trailer_wire::kStatus);
    image.validPayload = Load(trailer, trailer_wire::kValidPayloadSize);
    image.deliveredHeight = Load(trailer, trailer_wire::kSizeY);
    image.chunkLayoutId = Load(trailer, trailer_wire::kChunkLayoutId);
}

} // namespace

StreamAssembler::StreamAssembler(const StreamPlan& plan, size_t packetSize, ImageSink& sink)
    : m_plan(plan), m_packet(packetSize), m_sink(sink)
{
}

// ---- planning

StreamPlace StreamAssembler::PlaceAt(const StreamPosition& position) const
{
    StreamPlace place{.phase = position.phase, .trailer = false, .offset = 0, .expected = 0};
    switch (position.phase) {
    case Phase::Seek: place.expected = std::min(kLongestSeek, m_plan.Capacity() / 2); break;
    case Phase::Leader: place.expected = m_plan.leader; break;
    case Phase::LeaderRest:
    case Phase::TrailerRest: place.expected = position.rest; break;
    case Phase::Payload:
        place.offset = position.offset;
        place.expected = position.ended ? 0 : m_plan.PieceLeft(position.offset);
        if (place.expected == 0) {
            place.trailer = true;
            place.expected = m_plan.trailer;
        }
        break;
    }
    return place;
}

StreamPosition StreamAssembler::Behind(const StreamPlace& place) const
{
    switch (place.phase) {
    case Phase::Seek: return At(Phase::Seek);
    case Phase::Leader:
    case Phase::LeaderRest: return At(Phase::Payload);
    case Phase::TrailerRest: return At(Phase::Leader);
    case Phase::Payload: break;
    }
    if (place.trailer) {
        return At(Phase::Leader);
    }
    return {.phase = Phase::Payload, .offset = place.offset + place.expected};
}

bool StreamAssembler::Reserve(size_t ahead)
{
    if (m_reserved.Size() > ahead) {
        return true;
    }
    Target target{};
    if (m_reserved.IsFull() || !m_sink.Take(target)) {
        return false;
    }
    m_reserved.Push(target);
    return true;
}

const Target& StreamAssembler::TargetAhead(size_t ahead) const
{
    return ahead == 0 ? m_target : m_reserved[ahead - 1];
}

// ---- whole transfers

bool StreamAssembler::Accept(const StreamPlace& place, std::span<const uint8_t> data)
{
    if (place.phase != m_position.phase) {
        return false;
    }
    if (place.phase == Phase::Leader) {
        if (!_isLeader(data) || !_begin(data)) {
            return false;
        }
        m_position = At(Phase::Payload);
        return true;
    }
    if (place.phase != Phase::Payload) {
        return false;
    }
    if (!place.trailer) {
        return _acceptPayload(place, data);
    }
    if (!_isOwnTrailer(data)) {
        return false;
    }
    _finish(data);
    m_position = At(Phase::Leader);
    return true;
}

bool StreamAssembler::_acceptPayload(const StreamPlace& place, std::span<const uint8_t> data)
{
    const bool isShort = data.size() < place.expected;
    const bool isUnexpected = place.offset != m_position.offset || data.size() > place.expected ||
                              (m_position.ended && !data.empty()) ||
                              (isShort && _holdsBorder(data));
    if (isUnexpected) {
        return false;
    }
    m_sendsEmpty = m_sendsEmpty || m_position.ended;
    _store(place.offset, data);
    if (!m_position.ended) {
        m_contiguous = place.offset + data.size();
    }
    m_position.offset = place.offset + place.expected;
    m_position.ended = m_position.ended || (isShort && m_plan.PieceLeft(m_position.offset) != 0);
    return true;
}

bool StreamAssembler::LeavesOutTransfers() const
{
    return m_position.phase == Phase::Payload && m_position.ended && !m_sendsEmpty;
}

// ---- packets

bool StreamAssembler::Feed(std::span<const uint8_t> packet)
{
    if (packet.empty()) {
        _skipEmpty();
        return true;
    }
    switch (m_position.phase) {
    case Phase::LeaderRest: _skip(packet, Phase::Payload); return true;
    case Phase::TrailerRest: _skip(packet, Phase::Leader); return true;
    case Phase::Payload: return _feedPayload(packet);
    default: return _feedBetween(packet);
    }
}

// Padding ends with its size, or with a short packet before.
void StreamAssembler::_skip(std::span<const uint8_t> packet, Phase next)
{
    m_position.rest -= std::min<uint64_t>(m_position.rest, packet.size());
    if (m_position.rest == 0 || packet.size() < m_packet) {
        m_position = At(next);
    }
}

void StreamAssembler::_skipEmpty()
{
    switch (m_position.phase) {
    case Phase::LeaderRest: m_position = At(Phase::Payload); break;
    case Phase::TrailerRest: m_position = At(Phase::Leader); break;
    case Phase::Payload:
        m_sendsEmpty = m_sendsEmpty || m_position.ended;
        m_position.ended = true;
        break;
    default: break;
    }
}

bool StreamAssembler::_feedPayload(std::span<const uint8_t> packet)
{
    if (_isOwnTrailer(packet)) {
        _finish(packet);
        const bool isWhole = packet.size() < m_packet || packet.size() >= m_plan.trailer;
        m_position = At(isWhole ? Phase::Leader : Phase::TrailerRest);
        m_position.rest = isWhole ? 0 : m_plan.trailer - packet.size();
        return true;
    }
    if (_isLeader(packet) || _isTrailer(packet)) {
        _close();
        m_position = At(Phase::Leader);
        return _feedBetween(packet);
    }
    _append(packet);
    return true;
}

bool StreamAssembler::_feedBetween(std::span<const uint8_t> packet)
{
    if (_isLeader(packet)) {
        if (!_begin(packet)) {
            return false;
        }
        const bool isWhole = packet.size() < m_packet || packet.size() >= m_plan.leader;
        m_position = At(isWhole ? Phase::Payload : Phase::LeaderRest);
        m_position.rest = isWhole ? 0 : m_plan.leader - packet.size();
        return true;
    }
    if (_isTrailer(packet)) {
        _strayTrailer(packet);
    }
    m_position = At(Phase::Seek);
    return true;
}

// Bytes behind the end, or behind the last planned one, belong to nobody knows what.
void StreamAssembler::_append(std::span<const uint8_t> data)
{
    const uint64_t left = m_position.ended ? 0 : m_plan.PieceLeft(m_position.offset);
    if (left == 0) {
        m_gap = true;
        return;
    }
    const auto taken = data.first(std::min<uint64_t>(data.size(), left));
    _store(m_position.offset, taken);
    m_position.offset += taken.size();
    m_contiguous = m_position.offset;
    m_position.ended = data.size() < m_packet && taken.size() < left;
}

void StreamAssembler::Interrupt()
{
    if (m_open) {
        _close();
    }
    m_position = At(Phase::Seek);
}

void StreamAssembler::Abandon()
{
    if (m_open) {
        m_open = false;
        m_sink.GiveBack(m_target);
    }
    while (m_reserved.Size() != 0) {
        m_sink.GiveBack(m_reserved.Pop());
    }
    m_position = At(Phase::Leader);
}

// ---- images

bool StreamAssembler::_begin(std::span<const uint8_t> leader)
{
    if (!Reserve(0)) {
        return false;
    }
    m_target = m_reserved.Pop();
    m_image = ReadLeader(leader);
    m_open = true;
    m_contiguous = 0;
    m_gap = false;
    ++m_started;
    _countGap(m_image.blockId);
    return true;
}

void StreamAssembler::_store(uint64_t offset, std::span<const uint8_t> data)
{
    if (offset >= m_target.size || data.empty() || data.data() == m_target.data + offset) {
        return;
    }
    const size_t fitting = std::min<uint64_t>(data.size(), m_target.size - offset);
    memmove(m_target.data + offset, data.data(), fitting);
}

void StreamAssembler::_finish(std::span<const uint8_t> trailer)
{
    ReadTrailer(trailer, m_image);
    _close();
}

// A valid payload size that no plan can carry, or none at all, says nothing.
void StreamAssembler::_close()
{
    const uint64_t most = std::max(m_plan.payload, m_plan.Capacity());
    const bool makesSense =
        m_image.hasTrailer && m_image.validPayload != 0 && m_image.validPayload <= most;
    const uint64_t meant = makesSense ? m_image.validPayload : m_plan.payload;
    m_image.largerThanTarget = meant > m_target.size;
    m_image.dataSize = std::min<uint64_t>(meant, m_target.size);
    m_image.filled = std::min<uint64_t>(m_contiguous, m_image.dataSize);
    m_image.complete = m_image.hasTrailer && m_image.status == 0 && !m_gap &&
                       m_contiguous >= meant && !m_image.largerThanTarget;
    m_open = false;
    m_wanted = m_sink.Deliver(m_target, m_image) && m_wanted;
}

// The trailer of an image whose leader did not come. That of an image that was interrupted has been
// counted with it.
void StreamAssembler::_strayTrailer(std::span<const uint8_t> trailer)
{
    const uint64_t blockId = Load(trailer, trailer_wire::kBlockId);
    if (m_anyId && blockId == m_lastId) {
        return;
    }
    _countGap(blockId);
    m_sink.Lost(1);
}

// Ids that go back have started again or have wrapped.
void StreamAssembler::_countGap(uint64_t blockId)
{
    if (m_anyId && blockId > m_lastId && blockId - m_lastId > 1) {
        m_sink.Lost(blockId - m_lastId - 1);
    }
    m_anyId = true;
    m_lastId = blockId;
}

// ---- telling packets apart

bool StreamAssembler::_isLeader(std::span<const uint8_t> data) const
{
    return data.size() >= leader_wire::kPayloadType.End() &&
           data.size() <= WholePackets(m_plan.leader, m_packet) &&
           Load(data, leader_wire::kMagic) == leader_wire::kMagicValue;
}

bool StreamAssembler::_isTrailer(std::span<const uint8_t> data) const
{
    return data.size() >= trailer_wire::kValidPayloadSize.End() &&
           data.size() <= WholePackets(m_plan.trailer, m_packet) &&
           Load(data, trailer_wire::kMagic) == trailer_wire::kMagicValue;
}

bool StreamAssembler::_isOwnTrailer(std::span<const uint8_t> data) const
{
    return m_open && _isTrailer(data) && Load(data, trailer_wire::kBlockId) == m_image.blockId;
}

// Whether a transfer that ended short begins or ends with a leader or a trailer.
bool StreamAssembler::_holdsBorder(std::span<const uint8_t> data) const
{
    if (data.empty()) {
        return false;
    }
    const auto last = data.subspan((data.size() - 1) / m_packet * m_packet);
    const auto first = data.first(std::min(data.size(), m_packet));
    return _isTrailer(first) || _isLeader(first) || _isTrailer(last) || _isLeader(last);
}

} // namespace u3v_host
