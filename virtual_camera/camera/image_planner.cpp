#include "image_planner.h"

#include <algorithm>

namespace vcam {

namespace {

// The host's numbers may be anything.
constexpr std::size_t kMaxUnused = 65536;
constexpr std::size_t kMaxBlock = 65536;

Segment Obstacle(Segment::Gate gate, std::chrono::milliseconds delay = {})
{
    Segment obstacle;
    obstacle.gate = gate;
    obstacle.delay = delay;
    return obstacle;
}

// Cuts the transfer that holds this payload byte in two, without a mark on the wire: whole packets
// before, the rest behind. Returns the place of the rest, where something may be put in between.
SegmentList::iterator SplitAt(SegmentList& pieces, std::size_t offset, std::size_t packetSize)
{
    const auto holds = [offset](const Segment& piece) {
        return offset >= piece.payloadOffset && offset - piece.payloadOffset < piece.transfer.size;
    };
    const auto found = std::find_if(pieces.begin(), pieces.end(), holds);
    if (found == pieces.end()) {
        return found;
    }
    const std::size_t head = (offset - found->payloadOffset) / packetSize * packetSize;
    if (head == 0) {
        return found;
    }
    Segment rest = *found;
    rest.payloadOffset += head;
    rest.transfer.size -= head;
    found->transfer.size = head;
    found->transfer.emptyEnd = false;
    return pieces.insert(found + 1, std::move(rest));
}

} // namespace

std::size_t FaultSize(const Fault& fault, std::int64_t otherwise)
{
    return static_cast<std::size_t>(std::clamp<std::int64_t>(fault.Value(otherwise), 0, 1 << 26));
}

ImagePlanner::ImagePlanner(const CameraConfig& config, const CameraMemory& memory,
                           FaultPlan& faults, const SentImage& image)
    : m_config(config), m_memory(memory), m_faults(faults),
      m_packetSize(config.highSpeed ? 512 : 1024), m_image(image)
{
}

SegmentList ImagePlanner::Plan()
{
    m_validSize = m_image.Size();
    m_segments.clear();
    _PlanLeader();
    _PlanPayload();
    _PlanTrailer();
    return std::move(m_segments);
}

const Fault* ImagePlanner::_Fire(const char* name)
{
    return m_faults.Empty() ? nullptr : m_faults.FireAt(name, m_image.frame);
}

// --- leader and trailer --------------------------------------------------------------------

void ImagePlanner::_PlanLeader()
{
    _Guard("stream-stall", "stream-late", "unplug-at-leader", "zero-length-leader");
    std::vector<std::uint8_t> leader = _Leader();
    if (const Fault* fault = _Fire("leader-short")) {
        leader.resize(std::min(leader.size(), FaultSize(*fault, 20)));
    }
    if (const Fault* fault = _Fire("leader-long")) {
        leader.resize(std::max(leader.size(), FaultSize(*fault, 100)));
    }
    _Append(_Block(Segment::Kind::Leader, std::move(leader), m_memory.Get(sirm::kMaxLeader)),
            "leader-lost", "leader-doubled");
}

std::vector<std::uint8_t> ImagePlanner::_Leader()
{
    std::vector<std::uint8_t> leader(
        _PaddedSize(m_image.leaderSize, m_config.leaderSize, m_memory.Get(sirm::kMaxLeader)));
    std::uint8_t* at = leader.data();
    const ImageGeometry& geometry = m_image.geometry;
    const bool badMagic = _Fire("leader-magic") != nullptr;
    const bool badId = _Fire("leader-id") != nullptr;
    stream::kMagic.Store(at, badMagic ? ~stream::kLeaderMagic : stream::kLeaderMagic);
    stream::kSize.Store(at, static_cast<std::uint16_t>(m_image.leaderSize));
    stream::kBlockId.Store(at, m_image.blockId + (badId ? 1000 : 0));
    stream::kPayloadType.Store(at, m_image.payloadType);
    stream::kTimestamp.Store(at, m_image.timestamp);
    if (m_image.leaderSize < stream::kLeaderSize) {
        return leader;
    }
    stream::kPixelFormat.Store(at, geometry.format->code);
    stream::kSizeX.Store(at, geometry.width);
    stream::kSizeY.Store(at, geometry.height);
    stream::kOffsetX.Store(at, geometry.offsetX);
    stream::kOffsetY.Store(at, geometry.offsetY);
    stream::kPaddingX.Store(at, geometry.paddingX);
    return leader;
}

void ImagePlanner::_PlanTrailer()
{
    _Guard("stream-stall-trailer", "stream-late-trailer", "unplug-at-trailer",
           "zero-length-trailer");
    std::vector<std::uint8_t> trailer = _Trailer();
    if (const Fault* fault = _Fire("trailer-short")) {
        trailer.resize(std::min(trailer.size(), FaultSize(*fault, 12)));
    }
    if (const Fault* fault = _Fire("trailer-long")) {
        trailer.resize(std::max(trailer.size(), FaultSize(*fault, 100)));
    }
    _Append(_Block(Segment::Kind::Trailer, std::move(trailer), m_memory.Get(sirm::kMaxTrailer)),
            "trailer-lost", "trailer-doubled");
}

std::vector<std::uint8_t> ImagePlanner::_Trailer()
{
    std::vector<std::uint8_t> trailer(
        _PaddedSize(m_image.trailerSize, m_config.trailerSize, m_memory.Get(sirm::kMaxTrailer)));
    std::uint8_t* at = trailer.data();
    const bool badMagic = _Fire("trailer-magic") != nullptr;
    const bool badId = _Fire("trailer-id") != nullptr;
    const Fault* status = _Fire("trailer-status");
    const Fault* valid = _Fire("trailer-valid-size");
    const std::int64_t code = status == nullptr ? 0 : status->Value(stream::kDataDiscarded);
    stream::kMagic.Store(at, badMagic ? ~stream::kTrailerMagic : stream::kTrailerMagic);
    stream::kSize.Store(at, static_cast<std::uint16_t>(m_image.trailerSize));
    stream::kBlockId.Store(at, m_image.blockId + (badId ? 1000 : 0));
    stream::kTrailerStatus.Store(at, static_cast<std::uint16_t>(code));
    stream::kValidPayload.Store(at, valid == nullptr ? m_validSize
                                                     : static_cast<std::uint64_t>(valid->Value(0)));
    if (m_image.payloadType == stream::kChunkPayload) {
        stream::kLayoutId.Store(at, m_image.layoutId);
    } else if (m_image.trailerSize >= stream::kTrailerSize) {
        stream::kTrailerSizeY.Store(at, m_image.rows);
    }
    if (m_image.trailerSize >= stream::kChunkTrailerSize) {
        stream::kImageLayoutId.Store(at, m_image.layoutId);
    }
    return trailer;
}

// How long a leader or trailer is on the wire: what is padded never exceeds what the host expects.
std::size_t ImagePlanner::_PaddedSize(std::size_t own, std::size_t required,
                                      std::size_t planned) const
{
    switch (m_config.padding) {
    case Padding::Own: return own;
    case Padding::Required: return std::max(own, required);
    default: return std::max(own, std::min({_Aligned(own), planned, kMaxBlock}));
    }
}

std::size_t ImagePlanner::_Aligned(std::size_t size) const
{
    const std::size_t alignment = m_memory.Alignment();
    const std::size_t over = size % alignment;
    return over == 0 ? size : size + (alignment - over);
}

Segment ImagePlanner::_Block(Segment::Kind kind, std::vector<std::uint8_t> bytes,
                             std::size_t planned) const
{
    Segment segment;
    segment.kind = kind;
    segment.transfer.size = bytes.size();
    segment.transfer.emptyEnd = bytes.size() < planned;
    segment.bytes = std::move(bytes);
    return segment;
}

void ImagePlanner::_Append(Segment segment, const char* lost, const char* doubled)
{
    if (_Fire(lost) != nullptr) {
        return;
    }
    if (_Fire(doubled) != nullptr) {
        Segment twin = segment;
        twin.kind = Segment::Kind::Other;
        m_segments.push_back(std::move(twin));
    }
    m_segments.push_back(std::move(segment));
}

// Puts an obstacle before the next transfer: a segment of its own that carries nothing, or a packet
// without data.
void ImagePlanner::_Guard(const char* stall, const char* late, const char* unplug,
                          const char* empty)
{
    if (const Fault* fault = _Fire(late)) {
        m_segments.push_back(
            Obstacle(Segment::Gate::Open, std::chrono::milliseconds(FaultSize(*fault, 1000))));
    }
    if (_Fire(stall) != nullptr) {
        m_segments.push_back(Obstacle(Segment::Gate::Stall));
    }
    if (_Fire(unplug) != nullptr) {
        m_segments.push_back(Obstacle(Segment::Gate::Unplug));
    }
    if (_Fire(empty) != nullptr) {
        Segment packet;
        packet.transfer.emptyEnd = true;
        m_segments.push_back(std::move(packet));
    }
}

// --- payload -------------------------------------------------------------------------------

void ImagePlanner::_PlanPayload()
{
    _Guard("stream-stall-payload", "stream-late-payload", "unplug-at-payload",
           "zero-length-payload");
    SegmentList pieces = _Pieces();
    if (pieces.empty() || _Fire("payload-lost") != nullptr) {
        return;
    }
    _SpoilFirst(pieces);
    _SpoilLast(pieces);
    _LosePiece(pieces);
    _LosePacket(pieces);
    _InterruptPayload(pieces);
    std::move(pieces.begin(), pieces.end(), std::back_inserter(m_segments));
}

// The payload in transfers as programmed. Those that a short image does not need are left out or
// empty, as the camera is made.
SegmentList ImagePlanner::_Pieces() const
{
    SegmentList pieces;
    const std::size_t sent = _SentSize();
    std::size_t offset = 0;
    const auto add = [&](std::size_t planned) {
        if (planned != 0 && (offset < sent || m_config.emptyUnused)) {
            pieces.push_back(_Piece(offset, planned));
        }
        offset += planned;
    };
    const std::size_t transfer = m_memory.Get(sirm::kTransferSize);
    const std::size_t count = transfer == 0 ? 0 : m_memory.Get(sirm::kTransferCount);
    const std::size_t unused = m_config.emptyUnused ? kMaxUnused : 0;
    for (std::size_t i = 0; i < count && (offset < sent || i < unused); ++i) {
        add(transfer);
    }
    add(m_memory.Get(sirm::kFinal1));
    add(m_memory.Get(sirm::kFinal2));
    return pieces;
}

std::size_t ImagePlanner::_SentSize() const
{
    return m_config.padding == Padding::All ? _Aligned(m_image.Size()) : m_image.Size();
}

Segment ImagePlanner::_Piece(std::size_t offset, std::size_t planned) const
{
    const std::size_t sent = _SentSize();
    Segment segment;
    segment.kind = Segment::Kind::Payload;
    segment.payloadOffset = offset;
    segment.transfer.size = offset < sent ? std::min(planned, sent - offset) : 0;
    segment.transfer.emptyEnd = segment.transfer.size < planned;
    return segment;
}

void ImagePlanner::_SpoilFirst(SegmentList& pieces)
{
    DeviceTransfer& first = pieces.front().transfer;
    if (const Fault* fault = _Fire("payload-short")) {
        first.size -= std::min(first.size, FaultSize(*fault, 16));
        first.emptyEnd = true;
    }
    if (const Fault* fault = _Fire("payload-long")) {
        first.size += FaultSize(*fault, 16);
    }
    if (_Fire("payload-doubled") != nullptr) {
        pieces.push_front(pieces.front());
    }
    if (_Fire("unplug-in-payload") != nullptr) {
        pieces.front().transfer.size /= 2;
        pieces.front().transfer.emptyEnd = false;
        pieces.insert(pieces.begin() + 1, Obstacle(Segment::Gate::Unplug));
    }
}

void ImagePlanner::_SpoilLast(SegmentList& pieces)
{
    if (const Fault* fault = _Fire("image-long")) {
        pieces.back().transfer.size += FaultSize(*fault, 16);
        m_validSize += FaultSize(*fault, 16);
    }
}

void ImagePlanner::_LosePiece(SegmentList& pieces)
{
    if (const Fault* fault = _Fire("payload-piece-lost")) {
        const std::size_t index = std::min(FaultSize(*fault, 0), pieces.size() - 1);
        pieces.erase(pieces.begin() + static_cast<std::ptrdiff_t>(index));
    }
}

// Without a mark: what follows moves up, as when a camera's memory has run over.
void ImagePlanner::_LosePacket(SegmentList& pieces)
{
    const Fault* fault = _Fire("payload-packet-lost");
    if (fault == nullptr) {
        return;
    }
    const auto rest = SplitAt(pieces, FaultSize(*fault, 0) * m_packetSize, m_packetSize);
    if (rest == pieces.end()) {
        return;
    }
    const std::size_t lost = std::min(m_packetSize, rest->transfer.size);
    rest->payloadOffset += lost;
    rest->transfer.size -= lost;
    if (rest->transfer.size == 0) {
        pieces.erase(rest);
    }
}

void ImagePlanner::_InterruptPayload(SegmentList& pieces)
{
    const auto interrupt = [&](Segment obstacle) {
        pieces.insert(SplitAt(pieces, m_image.Size() / 2, m_packetSize), std::move(obstacle));
    };
    if (const Fault* fault = _Fire("stream-late-in-payload")) {
        interrupt(
            Obstacle(Segment::Gate::Open, std::chrono::milliseconds(FaultSize(*fault, 1000))));
    }
    if (_Fire("stream-stall-in-payload") != nullptr) {
        interrupt(Obstacle(Segment::Gate::Stall));
    }
}

} // namespace vcam
