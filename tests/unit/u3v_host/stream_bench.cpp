#include "stream_bench.h"

#include <algorithm>
#include <atomic>
#include <thread>

#include "packets.h"

namespace stream_bench {

using testing::AssertionFailure;
using testing::AssertionResult;
using testing::AssertionSuccess;

uint8_t ByteAt(uint64_t id, uint64_t offset)
{
    return static_cast<uint8_t>(id * 31 + offset + (offset >> 8U) * 7);
}

// ---- camera

void ScriptedCamera::_sendBorder(std::vector<uint8_t> bytes, uint32_t planned)
{
    if (m_style.padsBorders) {
        bytes.resize(planned);
    }
    m_endpoint.Send(bytes, planned);
}

std::vector<std::vector<uint8_t>> ScriptedCamera::_pieces(const Shot& shot) const
{
    const uint64_t valid = shot.valid.value_or(m_style.payload);
    std::vector<uint8_t> bytes(valid);
    for (uint64_t i = 0; i < valid; ++i) {
        bytes[i] = ByteAt(shot.id, i);
    }
    if (m_style.padsPayload && !shot.valid) {
        bytes.resize(m_plan.Capacity());
    }
    std::vector<std::vector<uint8_t>> pieces;
    for (uint64_t offset = 0; offset < m_plan.Capacity();) {
        const uint64_t piece = m_plan.PieceLeft(offset);
        const auto from = std::min<uint64_t>(offset, bytes.size());
        const auto to = std::min<uint64_t>(offset + piece, bytes.size());
        pieces.emplace_back(bytes.begin() + static_cast<ptrdiff_t>(from),
                            bytes.begin() + static_cast<ptrdiff_t>(to));
        offset += piece;
    }
    return pieces;
}

void ScriptedCamera::Send(const Shot& shot)
{
    if (!shot.noLeader) {
        std::vector<uint8_t> leader(52);
        Store(leader, leader_wire::kMagic, leader_wire::kMagicValue);
        Store(leader, leader_wire::kLeaderSize, uint16_t{52});
        Store(leader, leader_wire::kBlockId, shot.id);
        Store(leader, leader_wire::kPayloadType, payload_type::kImage);
        Store(leader, leader_wire::kTimestamp, shot.id * 1000);
        Store(leader, leader_wire::kSizeX, uint32_t{640});
        Store(leader, leader_wire::kSizeY, uint32_t{480});
        _sendBorder(leader, m_plan.leader);
    }
    bool ended = false;
    const auto pieces = _pieces(shot);
    size_t offset = 0;
    for (size_t i = 0; i < pieces.size(); ++i) {
        auto piece = pieces[i];
        const size_t planned = m_plan.PieceLeft(offset);
        offset += planned;
        if (shot.stallBeforePiece == i) {
            m_endpoint.SendFailure(LIBUSB_TRANSFER_STALL);
        }
        if (shot.missingPiece == i || (piece.empty() && ended && !m_style.sendsEmpty)) {
            continue;
        }
        if (shot.missingPacket && *shot.missingPacket / 4 == i) {
            const size_t at = *shot.missingPacket % 4 * 1024;
            if (at + 1024 <= piece.size()) {
                const auto from = piece.begin() + static_cast<ptrdiff_t>(at);
                piece.erase(from, from + 1024);
            }
        }
        // A piece that ends on the boundary of an alignment leaves nothing to tell the end by.
        ended = ended || piece.size() < planned;
        const bool endsExactly = piece.empty() && !m_style.sendsEmpty;
        if (!endsExactly) {
            m_endpoint.Send(piece, planned);
        }
    }
    if (!shot.noTrailer) {
        std::vector<uint8_t> trailer(32);
        Store(trailer, trailer_wire::kMagic, trailer_wire::kMagicValue);
        Store(trailer, trailer_wire::kTrailerSize, uint16_t{32});
        Store(trailer, trailer_wire::kBlockId, shot.id);
        Store(trailer, trailer_wire::kStatus, shot.status);
        Store(trailer, trailer_wire::kValidPayloadSize, shot.valid.value_or(m_style.payload));
        Store(trailer, trailer_wire::kSizeY, uint32_t{480});
        _sendBorder(trailer, m_plan.trailer);
    }
}

// ---- sink

Sink::Sink(size_t targets, size_t size)
{
    constexpr size_t kGuard = 16;
    for (size_t i = 0; i < targets; ++i) {
        m_buffers.push_back(std::make_unique<Buffer>(
            Buffer{.memory = std::vector<uint8_t>(size + kGuard, 0xEE), .size = size}));
        m_free.push_back(m_buffers.back().get());
    }
}

bool Sink::Take(Target& target)
{
    if (m_free.empty()) {
        target = {};
        return discards;
    }
    Buffer* const buffer = m_free.front();
    m_free.pop_front();
    buffer->out = true;
    target = {buffer, buffer->memory.data(), buffer->size};
    return true;
}

Sink::Buffer& Sink::_buffer(const Target& target)
{
    auto& buffer = *static_cast<Buffer*>(target.owner);
    EXPECT_TRUE(buffer.out) << "given back twice";
    EXPECT_TRUE(std::all_of(buffer.memory.begin() + static_cast<ptrdiff_t>(buffer.size),
                            buffer.memory.end(), [](uint8_t byte) { return byte == 0xEE; }))
        << "written beyond the target";
    buffer.out = false;
    return buffer;
}

bool Sink::Deliver(const Target& target, const Image& image)
{
    if (target.owner == nullptr) {
        ++lost;
        return true;
    }
    Buffer& buffer = _buffer(target);
    EXPECT_LE(image.filled, buffer.size);
    const auto end = buffer.memory.begin() + static_cast<ptrdiff_t>(image.filled);
    images.push_back({image, {buffer.memory.begin(), end}, {end, buffer.memory.end()}});
    if (keeps) {
        m_kept.push_back(&buffer);
    } else {
        m_free.push_back(&buffer);
    }
    return images.size() < limit;
}

void Sink::GiveBack(const Target& target)
{
    if (target.owner == nullptr) {
        return;
    }
    Buffer& buffer = _buffer(target);
    givenBack.push_back(&buffer);
    m_free.push_back(&buffer);
}

bool Sink::Holds(const uint8_t* byte) const
{
    return std::any_of(m_buffers.begin(), m_buffers.end(), [byte](const auto& buffer) {
        return byte >= buffer->memory.data() && byte < buffer->memory.data() + buffer->size;
    });
}

void Sink::Requeue()
{
    m_free.insert(m_free.end(), m_kept.begin(), m_kept.end());
    m_kept.clear();
}

bool Link::RunJob()
{
    if (m_jobs.empty()) {
        return false;
    }
    const auto job = m_jobs.front();
    m_jobs.pop_front();
    job();
    return true;
}

// ---- bench

Bench::Bench(const CameraStyle& cameraStyle, size_t targets, std::optional<size_t> targetSize)
    : style(cameraStyle), plan(u3v_host::PlanStream({.payload = style.payload,
                                                     .leader = style.leader,
                                                     .trailer = style.trailer,
                                                     .alignmentExponent = style.alignmentExponent},
                                                    kTransferSize)),
      link(style.hostPacket), sink(targets, targetSize.value_or(style.payload)),
      camera(style, plan, endpoint),
      session(std::make_shared<u3v_host::StreamSession>(
          link, sink, plan,
          u3v_host::StreamDepth{.images = 4, .bytes = 64 * 1024, .transfers = 64}))
{
    session->Begin();
}

Bench::~Bench()
{
    if (!endpoint.keepsTransfers) {
        EXPECT_TRUE(End(true));
    }
}

bool Bench::End(bool kill)
{
    std::atomic<bool> ended = false;
    std::thread bus([&] {
        while (!ended) {
            endpoint.Step();
            std::this_thread::yield();
        }
    });
    const bool result = session->End(kill);
    ended = true;
    bus.join();
    return result;
}

void Bench::Run()
{
    do {
        endpoint.Run();
    } while (link.RunJob());
}

void Bench::Send(uint64_t first, uint64_t count)
{
    for (uint64_t id = first; id < first + count; ++id) {
        camera.Send({.id = id});
    }
    Run();
}

const Delivered* Bench::Find(uint64_t id) const
{
    const auto found = std::find_if(sink.images.begin(), sink.images.end(),
                                    [id](const Delivered& one) { return one.image.blockId == id; });
    return found == sink.images.end() ? nullptr : &*found;
}

AssertionResult Bench::IsWhole(uint64_t id, std::optional<uint64_t> valid) const
{
    const Delivered* const found = Find(id);
    if (found == nullptr) {
        return AssertionFailure() << "image " << id << " was not delivered";
    }
    const uint64_t size = valid.value_or(style.payload);
    if (!found->image.complete || found->image.filled != size || found->image.dataSize != size) {
        return AssertionFailure() << "image " << id << ": complete " << found->image.complete
                                  << ", filled " << found->image.filled << " of " << size;
    }
    for (uint64_t i = 0; i < size; ++i) {
        if (found->bytes[i] != ByteAt(id, i)) {
            return AssertionFailure() << "image " << id << " differs at " << i;
        }
    }
    return AssertionSuccess();
}

AssertionResult Bench::IsIncomplete(uint64_t id) const
{
    const Delivered* const found = Find(id);
    if (found == nullptr) {
        return AssertionFailure() << "image " << id << " was not delivered";
    }
    return found->image.complete ? AssertionFailure() << "image " << id << " is called complete"
                                 : AssertionSuccess();
}

} // namespace stream_bench
