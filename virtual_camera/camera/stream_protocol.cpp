#include "stream_protocol.h"

#include <algorithm>
#include <cmath>

namespace vcam {

StreamProtocol::StreamProtocol(const CameraConfig& config, CameraMemory& memory, FaultPlan& faults)
    : m_config(config), m_memory(memory), m_faults(faults)
{
}

void StreamProtocol::Update(const WriteEffects& effects)
{
    if (!effects.streamChanged) {
        return;
    }
    m_triggers += effects.trigger ? 1 : 0;
    const bool enabled = m_memory.StreamEnabled();
    if (!enabled) {
        Drop();
    }
    const bool running = enabled && m_memory.Get(cam::kAcquisition) != 0;
    if (running && !m_running) {
        _Start();
    }
    if (effects.frameRateChanged) {
        m_base = Clock::now();
        m_baseBlock = m_block;
    }
    m_running = running;
}

void StreamProtocol::_Start()
{
    m_geometry = m_memory.Geometry();
    m_pattern.Configure(m_geometry, static_cast<Pattern>(m_memory.Get(cam::kTestPattern)),
                        m_config.seed);
    m_block = 0;
    m_images = 0;
    m_triggers = 0;
    m_base = Clock::now();
    m_baseBlock = 0;
    // An image that was still under way belongs to the run before.
    m_segments.clear();
    m_imageOpen = false;
}

void StreamProtocol::Drop()
{
    m_segments.clear();
    m_imageOpen = false;
    m_running = false;
}

UsbResult StreamProtocol::BulkIn(HostRequest request, std::size_t packetSize)
{
    UsbResult result;
    for (;;) {
        if (m_unplugged) {
            return {UsbStatus::NoDevice};
        }
        if (m_segments.empty() && !_NextImage(result)) {
            return result;
        }
        Segment& segment = m_segments.front();
        if (!_PassGate(segment, result)) {
            return result;
        }
        if (segment.transfer.AllSent()) {
            m_segments.pop_front(); // an obstacle that has been passed
            continue;
        }
        const Moved moved = _Move(segment, request, packetSize);
        if (moved == Moved::Overflow) {
            ++m_counts.overflows;
            return {UsbStatus::Overflow};
        }
        if (moved == Moved::Request) {
            return {UsbStatus::Done};
        }
    }
}

Moved StreamProtocol::_Move(Segment& segment, HostRequest request, std::size_t packetSize)
{
    if (segment.transfer.sent == 0 && segment.transfer.size % packetSize != 0) {
        segment.transfer.emptyEnd = false; // its last packet will be short anyway
    }
    const std::size_t before = request.filled;
    const auto copy = [this, &segment](std::size_t offset, std::uint8_t* target, std::size_t size) {
        _Copy(segment, offset, target, size);
    };
    const Moved moved = MovePackets(segment.transfer, request, packetSize, copy);
    m_counts.bytes += request.filled - before;
    if (segment.transfer.AllSent()) {
        const Kind kind = segment.kind;
        m_segments.pop_front();
        _FinishSegment(kind);
    }
    return moved;
}

void StreamProtocol::_Copy(const Segment& segment, std::size_t offset, std::uint8_t* target,
                           std::size_t size)
{
    if (segment.kind != Kind::Payload) {
        std::copy_n(segment.bytes.data() + offset, size, target);
        return;
    }
    const std::size_t place = segment.payloadOffset + offset;
    m_pattern.Fill(m_block, place, target, size);
    if (m_corrupt && m_corruptAt >= place && m_corruptAt - place < size) {
        target[m_corruptAt - place] = static_cast<std::uint8_t>(~target[m_corruptAt - place]);
    }
}

void StreamProtocol::_FinishSegment(Kind kind)
{
    if (kind == Kind::Trailer) {
        ++m_counts.sent;
        m_unplugged = m_config.unplugAfter != 0 && m_counts.sent == m_config.unplugAfter;
    }
    if (m_segments.empty()) {
        _FinishImage();
    }
}

void StreamProtocol::_FinishImage()
{
    m_imageOpen = false;
    ++m_block;
    ++m_images;
    constexpr std::uint32_t kSingle = 1;
    constexpr std::uint32_t kMulti = 2;
    const std::uint32_t mode = m_memory.Get(cam::kAcquisitionMode);
    const bool last =
        mode == kSingle || (mode == kMulti && m_images >= m_memory.Get(cam::kFrameCount));
    if (last) {
        m_memory.Set(cam::kAcquisition, std::uint32_t{0});
        m_running = false;
    }
}

// Begins the next image when there is one; else tells how long to wait.
bool StreamProtocol::_NextImage(UsbResult& result)
{
    if (m_imageOpen) {
        _FinishImage(); // its last transfers were lost
    }
    result = {UsbStatus::Nak};
    if (!m_running || !_IsDue(result)) {
        return false;
    }
    const Fault* silent = m_faults.Find("stream-silent");
    if (silent != nullptr && m_block >= silent->first) {
        return false;
    }
    _PlanImage();
    // An image of which nothing is sent at all: time passes, or this would never end.
    result.retryAt = Clock::now() + std::chrono::milliseconds(1);
    return !m_segments.empty();
}

// Frame m_baseBlock + k is there 1 / rate seconds after the one before. Who reads too slowly finds
// "depth" frames waiting; what comes beyond is either dropped or has never been exposed.
bool StreamProtocol::_IsDue(UsbResult& result)
{
    m_timestamp = m_memory.NowNs();
    if (m_memory.Get(cam::kTriggerMode) != 0) {
        const bool triggered = m_triggers != 0;
        m_triggers -= triggered ? 1 : 0;
        return triggered;
    }
    const double rate = static_cast<double>(m_memory.FrameRate());
    if (rate <= 0) {
        return true;
    }
    const auto now = Clock::now();
    const double elapsed = std::chrono::duration<double>(now - m_base).count();
    const auto exposed = m_baseBlock + static_cast<std::uint64_t>(std::max(0.0, elapsed * rate));
    if (exposed <= m_block) {
        const double at = static_cast<double>(m_block + 1 - m_baseBlock) / rate;
        result.retryAt =
            m_base +
            std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(at)) +
            std::chrono::microseconds(1);
        return false;
    }
    if (exposed - m_block > m_config.depth) {
        if (m_config.drop) {
            const std::uint64_t oldest = exposed - m_config.depth;
            m_counts.dropped += oldest - m_block;
            m_block = oldest;
        } else {
            m_base = now; // the clock starts anew behind the frame that waits
            m_baseBlock = m_block + 1;
        }
    }
    return true;
}

const Fault* StreamProtocol::_Fire(const char* name)
{
    return m_faults.Empty() ? nullptr : m_faults.FireAt(name, m_block);
}

std::size_t StreamProtocol::_FaultSize(const Fault* fault, std::int64_t otherwise) const
{
    return static_cast<std::size_t>(std::clamp<std::int64_t>(fault->Value(otherwise), 0, 1 << 26));
}

void StreamProtocol::_PlanImage()
{
    m_imageOpen = true;
    ++m_counts.started;
    const Fault* corrupt = _Fire("payload-corrupt");
    m_corrupt = corrupt != nullptr;
    m_corruptAt = m_corrupt ? _FaultSize(corrupt, 0) : 0;
    _PlanLeader();
    _PlanPayload();
    _PlanTrailer();
}

StreamProtocol::Segment StreamProtocol::_Block(Kind kind, std::vector<std::uint8_t> bytes,
                                               std::size_t planned) const
{
    Segment segment;
    segment.kind = kind;
    segment.transfer.size = bytes.size();
    segment.transfer.emptyEnd = bytes.size() < planned;
    segment.bytes = std::move(bytes);
    return segment;
}

void StreamProtocol::_Append(Segment segment, const char* lost, const char* doubled)
{
    if (_Fire(lost) != nullptr) {
        return;
    }
    if (_Fire(doubled) != nullptr) {
        Segment twin = segment;
        twin.kind = segment.kind == Kind::Payload ? Kind::Payload : Kind::Other;
        m_segments.push_back(std::move(twin));
    }
    m_segments.push_back(std::move(segment));
}

// Puts an obstacle before the next transfer: a segment of its own that carries nothing, or a packet
// without data.
void StreamProtocol::_Guard(const char* stall, const char* late, const char* unplug,
                            const char* empty)
{
    const auto add = [this](Gate gate, std::chrono::milliseconds delay) {
        Segment obstacle;
        obstacle.gate = gate;
        obstacle.delay = delay;
        m_segments.push_back(std::move(obstacle));
    };
    if (const Fault* fault = _Fire(late)) {
        add(Gate::Open, std::chrono::milliseconds(_FaultSize(fault, 1000)));
    }
    if (_Fire(stall) != nullptr) {
        add(Gate::Stall, {});
    }
    if (_Fire(unplug) != nullptr) {
        add(Gate::Unplug, {});
    }
    if (_Fire(empty) != nullptr) {
        Segment packet;
        packet.transfer.emptyEnd = true;
        m_segments.push_back(std::move(packet));
    }
}

// False when the request has to wait, or ends here. Obstacles that are passed disappear.
bool StreamProtocol::_PassGate(Segment& segment, UsbResult& result)
{
    if (segment.gate == Gate::Unplug) {
        m_unplugged = true;
        result = {UsbStatus::NoDevice};
        return false;
    }
    if (segment.gate == Gate::Stall) {
        m_segments.pop_front();
        result = {UsbStatus::Stall};
        return false;
    }
    if (segment.delay.count() != 0 && !segment.delayArmed) {
        segment.delayArmed = true;
        segment.readyAt = Clock::now() + segment.delay;
    }
    if (segment.delayArmed && Clock::now() < segment.readyAt) {
        result = {UsbStatus::Nak, segment.readyAt};
        return false;
    }
    return true;
}

void StreamProtocol::_PlanLeader()
{
    _Guard("stream-stall", "stream-late", "unplug-at-leader", "zero-length-leader");
    std::vector<std::uint8_t> leader = _Leader();
    if (const Fault* fault = _Fire("leader-short")) {
        leader.resize(std::min(leader.size(), _FaultSize(fault, 20)));
    }
    if (const Fault* fault = _Fire("leader-long")) {
        leader.resize(std::max(leader.size(), _FaultSize(fault, 100)));
    }
    _Append(_Block(Kind::Leader, std::move(leader), m_memory.Get(sirm::kMaxLeader)), "leader-lost",
            "leader-doubled");
}

std::vector<std::uint8_t> StreamProtocol::_Leader()
{
    std::vector<std::uint8_t> leader(
        std::max<std::size_t>(m_config.leaderSize, stream::kLeaderSize));
    std::uint8_t* at = leader.data();
    const bool badMagic = _Fire("leader-magic") != nullptr;
    const bool badId = _Fire("leader-id") != nullptr;
    stream::kMagic.Store(at, badMagic ? ~stream::kLeaderMagic : stream::kLeaderMagic);
    stream::kSize.Store(at, static_cast<std::uint16_t>(stream::kLeaderSize));
    stream::kBlockId.Store(at, badId ? m_block + 1000 : m_block);
    stream::kPayloadType.Store(at, stream::kImagePayload);
    stream::kTimestamp.Store(at, m_timestamp);
    stream::kPixelFormat.Store(at, m_geometry.format->code);
    stream::kSizeX.Store(at, m_geometry.width);
    stream::kSizeY.Store(at, m_geometry.height);
    stream::kOffsetX.Store(at, m_geometry.offsetX);
    stream::kOffsetY.Store(at, m_geometry.offsetY);
    stream::kPaddingX.Store(at, 0);
    return leader;
}

StreamProtocol::Segment StreamProtocol::_PayloadPiece(std::size_t offset, std::size_t planned) const
{
    const std::size_t payload = m_geometry.Payload();
    Segment segment;
    segment.kind = Kind::Payload;
    segment.payloadOffset = offset;
    segment.transfer.size = offset < payload ? std::min(planned, payload - offset) : 0;
    segment.transfer.emptyEnd = segment.transfer.size < planned;
    return segment;
}

void StreamProtocol::_PlanPayload()
{
    _Guard("stream-stall-payload", "stream-late-payload", "unplug-at-payload",
           "zero-length-payload");
    std::vector<Segment> segments;
    const std::size_t transfer = m_memory.Get(sirm::kTransferSize);
    std::size_t offset = 0;
    // The count is the host's: nothing is planned beyond the image but one empty transfer each.
    for (std::uint32_t i = m_memory.Get(sirm::kTransferCount); i > 0 && transfer != 0; --i) {
        if (offset >= m_geometry.Payload()) {
            break;
        }
        segments.push_back(_PayloadPiece(offset, transfer));
        offset += transfer;
    }
    for (const std::size_t final : {m_memory.Get(sirm::kFinal1), m_memory.Get(sirm::kFinal2)}) {
        if (final != 0) {
            segments.push_back(_PayloadPiece(offset, final));
            offset += final;
        }
    }
    if (!segments.empty() && _Fire("payload-lost") == nullptr) {
        _PlanPayloadFaults(segments);
        std::move(segments.begin(), segments.end(), std::back_inserter(m_segments));
    }
}

void StreamProtocol::_PlanPayloadFaults(std::vector<Segment>& segments)
{
    DeviceTransfer& first = segments.front().transfer;
    if (const Fault* fault = _Fire("payload-short")) {
        first.size -= std::min(first.size, _FaultSize(fault, 16));
        first.emptyEnd = true;
    }
    if (const Fault* fault = _Fire("payload-long")) {
        first.size += _FaultSize(fault, 16);
    }
    if (_Fire("payload-doubled") != nullptr) {
        segments.insert(segments.begin(), segments.front());
    }
    if (_Fire("unplug-in-payload") != nullptr) {
        Segment gate;
        gate.gate = Gate::Unplug;
        segments.front().transfer.size /= 2;
        segments.front().transfer.emptyEnd = false;
        segments.insert(segments.begin() + 1, gate);
    }
}

void StreamProtocol::_PlanTrailer()
{
    _Guard("stream-stall-trailer", "stream-late-trailer", "unplug-at-trailer",
           "zero-length-trailer");
    std::vector<std::uint8_t> trailer = _Trailer();
    if (const Fault* fault = _Fire("trailer-short")) {
        trailer.resize(std::min(trailer.size(), _FaultSize(fault, 12)));
    }
    if (const Fault* fault = _Fire("trailer-long")) {
        trailer.resize(std::max(trailer.size(), _FaultSize(fault, 100)));
    }
    _Append(_Block(Kind::Trailer, std::move(trailer), m_memory.Get(sirm::kMaxTrailer)),
            "trailer-lost", "trailer-doubled");
}

std::vector<std::uint8_t> StreamProtocol::_Trailer()
{
    std::vector<std::uint8_t> trailer(
        std::max<std::size_t>(m_config.trailerSize, stream::kTrailerSize));
    std::uint8_t* at = trailer.data();
    const Fault* status = _Fire("trailer-status");
    const std::int64_t code = status == nullptr ? 0 : status->Value(stream::kDataDiscarded);
    stream::kMagic.Store(at, stream::kTrailerMagic);
    stream::kSize.Store(at, static_cast<std::uint16_t>(stream::kTrailerSize));
    stream::kBlockId.Store(at, m_block);
    stream::kTrailerStatus.Store(at, static_cast<std::uint16_t>(code));
    stream::kValidPayload.Store(at, m_geometry.Payload());
    stream::kTrailerSizeY.Store(at, m_geometry.height);
    return trailer;
}

} // namespace vcam
