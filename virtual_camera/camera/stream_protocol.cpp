#include "stream_protocol.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace vcam {

StreamProtocol::StreamProtocol(const CameraConfig& config, CameraMemory& memory, FaultPlan& faults,
                               EventProtocol& events)
    : m_config(config), m_memory(memory), m_faults(faults), m_events(events),
      m_planner(config, memory, faults, m_image), m_blockId(config.firstBlock)
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
        m_baseFrame = m_frame;
    }
    m_running = running;
}

void StreamProtocol::_Start()
{
    m_geometry = m_memory.Geometry();
    m_form = m_memory.Form();
    m_pattern.Configure(m_geometry, static_cast<Pattern>(m_memory.Get(cam::kTestPattern)),
                        m_config.seed);
    m_frame = 0;
    m_blockId = m_config.keepBlockIds ? m_blockId : m_config.firstBlock;
    m_images = 0;
    m_triggers = 0;
    m_base = Clock::now();
    m_baseFrame = 0;
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

void StreamProtocol::HaltCleared()
{
    if (m_config.haltEndsImage && m_imageOpen) {
        m_segments.clear();
        _FinishImage();
    }
}

std::chrono::milliseconds StreamProtocol::TakeSuspension()
{
    return std::exchange(m_suspension, std::chrono::milliseconds(0));
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
        const Segment::Kind kind = segment.kind;
        m_segments.pop_front();
        _FinishSegment(kind);
    }
    return moved;
}

void StreamProtocol::_Copy(const Segment& segment, std::size_t offset, std::uint8_t* target,
                           std::size_t size)
{
    if (segment.kind != Segment::Kind::Payload) {
        std::copy_n(segment.bytes.data() + offset, size, target);
        return;
    }
    const std::size_t place = segment.payloadOffset + offset;
    _CopyPayload(place, target, size);
    if (m_corrupt && m_corruptAt >= place && m_corruptAt - place < size) {
        target[m_corruptAt - place] = static_cast<std::uint8_t>(~target[m_corruptAt - place]);
    }
}

// Head, pixels and tail one after the other; what is asked for beyond them is zero.
void StreamProtocol::_CopyPayload(std::size_t place, std::uint8_t* target, std::size_t size)
{
    const auto take = [&](std::size_t from, std::size_t count, const auto& copy) {
        if (size != 0 && place < from + count) {
            const std::size_t length = std::min(size, from + count - place);
            copy(place - from, length);
            place += length;
            target += length;
            size -= length;
        }
    };
    const auto bytesOf = [&](const std::vector<std::uint8_t>& bytes) {
        return [&](std::size_t at, std::size_t length) {
            std::copy_n(bytes.data() + at, length, target);
        };
    };
    const std::size_t pixels = m_image.head.size();
    const std::size_t tail = pixels + m_image.pixelBytes;
    take(0, pixels, bytesOf(m_image.head));
    take(pixels, m_image.pixelBytes, [&](std::size_t at, std::size_t length) {
        m_pattern.Fill(m_image.frame, at, target, length);
    });
    take(tail, m_image.tail.size(), bytesOf(m_image.tail));
    std::fill_n(target, size, std::uint8_t{0});
}

void StreamProtocol::_FinishSegment(Segment::Kind kind)
{
    if (kind == Segment::Kind::Trailer) {
        ++m_counts.sent;
        m_unplugged = m_config.unplugAfter != 0 && m_counts.sent == m_config.unplugAfter;
    }
    if (m_segments.empty()) {
        _FinishImage();
    }
}

// Goes on to a later frame. Ids may start again behind a last one.
void StreamProtocol::_Skip(std::uint64_t frames)
{
    m_frame += frames;
    m_blockId += frames;
    const std::uint64_t last = m_config.lastBlock;
    if (last != 0 && m_blockId > last) {
        const std::uint64_t wrapped = std::min(m_config.wrapBlock, last);
        m_blockId = wrapped + (m_blockId - last - 1) % (last - wrapped + 1);
    }
}

void StreamProtocol::_LoseFrames(std::uint64_t frames)
{
    m_counts.dropped += frames;
    _Skip(frames);
}

void StreamProtocol::_FinishImage()
{
    m_imageOpen = false;
    _Skip(1);
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
    if (silent != nullptr && m_frame >= silent->first) {
        return false;
    }
    if (const Fault* fault = _Fire("block-jump")) {
        const std::size_t lost = FaultSize(*fault, 1);
        _LoseFrames(lost);
        m_baseFrame += lost; // the next one is still due a period later
    }
    if (_Fire("block-restart") != nullptr) {
        m_blockId = m_config.firstBlock;
    }
    if (const Fault* fault = _Fire("suspend")) {
        m_suspension = std::chrono::milliseconds(FaultSize(*fault, 200));
    }
    _BeginImage();
    // An image of which nothing is sent at all: time passes, or this would never end.
    result.retryAt = Clock::now() + std::chrono::milliseconds(1);
    return !m_segments.empty();
}

// Frame m_baseFrame + k is there 1 / rate seconds after the one before. Who reads too slowly finds
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
    const auto exposed = m_baseFrame + static_cast<std::uint64_t>(std::max(0.0, elapsed * rate));
    if (exposed <= m_frame) {
        const double at = static_cast<double>(m_frame + 1 - m_baseFrame) / rate;
        result.retryAt =
            m_base +
            std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(at)) +
            std::chrono::microseconds(1);
        return false;
    }
    if (exposed - m_frame > m_config.depth) {
        if (m_config.drop) {
            const std::uint64_t oldest = exposed - m_config.depth;
            _LoseFrames(oldest - m_frame);
        } else {
            m_base = now; // the clock starts anew behind the frame that waits
            m_baseFrame = m_frame + 1;
        }
    }
    return true;
}

const Fault* StreamProtocol::_Fire(const char* name)
{
    return m_faults.Empty() ? nullptr : m_faults.FireAt(name, m_frame);
}

// How many of the rows that the leader announces this image has.
std::uint32_t StreamProtocol::_Rows()
{
    const std::uint32_t height = m_geometry.height;
    if (const Fault* fault = _Fire("image-short")) {
        return std::min(height, static_cast<std::uint32_t>(FaultSize(*fault, height / 2)));
    }
    if (m_config.minHeight == 0 || m_config.minHeight >= height) {
        return height;
    }
    // Any fixed function of the number that jumps about.
    return m_config.minHeight +
           static_cast<std::uint32_t>(m_frame * 7919 % (height - m_config.minHeight + 1));
}

void StreamProtocol::_SpoilChunks()
{
    std::vector<std::uint8_t>& tail = m_image.tail;
    const Fault* length = _Fire("chunk-length");
    if (length != nullptr && tail.size() >= sizeof(std::uint32_t)) {
        StoreLe(tail.data() + tail.size() - sizeof(std::uint32_t),
                static_cast<std::uint32_t>(length->Value(0xFFFFFFFF)));
    }
    if (const Fault* fault = _Fire("chunk-cut")) {
        tail.resize(tail.size() - std::min(tail.size(), FaultSize(*fault, 3)));
    }
}

void StreamProtocol::_BeginImage()
{
    m_imageOpen = true;
    ++m_counts.started;
    const Fault* corrupt = _Fire("payload-corrupt");
    m_corrupt = corrupt != nullptr;
    m_corruptAt = m_corrupt ? FaultSize(*corrupt, 0) : 0;
    m_image.frame = m_frame;
    m_image.blockId = m_blockId;
    m_image.timestamp = m_timestamp;
    m_image.geometry = m_geometry;
    m_image.rows = _Rows();
    m_form.Compose(m_image);
    m_events.Notify(CameraEvent::ExposureStart, m_blockId, m_timestamp);
    m_events.Notify(CameraEvent::ExposureEnd, m_blockId, m_timestamp);
    _SpoilChunks();
    m_segments = m_planner.Plan();
}

// False when the request has to wait, or ends here. Obstacles that are passed disappear.
bool StreamProtocol::_PassGate(Segment& segment, UsbResult& result)
{
    if (segment.gate == Segment::Gate::Unplug) {
        m_unplugged = true;
        result = {UsbStatus::NoDevice};
        return false;
    }
    if (segment.gate == Segment::Gate::Stall) {
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

} // namespace vcam
