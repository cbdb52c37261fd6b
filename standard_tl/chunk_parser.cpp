#include "chunk_parser.h"

#include "packets.h"

namespace standard_tl {
namespace {

struct Chunk
{
    uint32_t id;
    size_t offset;
    size_t length;
};

// The last chunk of what is left.
std::optional<Chunk> LastChunk(Bytes left)
{
    if (left.size() < chunk_wire::kTrailerSize) {
        return std::nullopt;
    }
    const Bytes trailer = left.last(chunk_wire::kTrailerSize);
    const size_t room = left.size() - trailer.size();
    const uint32_t length = Load(trailer, chunk_wire::kChunkLength);
    if (length > room) {
        return std::nullopt;
    }
    return Chunk{Load(trailer, chunk_wire::kChunkId), room - length, length};
}

} // namespace

std::optional<size_t> CountChunks(Bytes payload)
{
    size_t count = 0;
    while (!payload.empty()) {
        const auto chunk = LastChunk(payload);
        if (!chunk) {
            return std::nullopt;
        }
        payload = payload.first(chunk->offset);
        ++count;
    }
    return count;
}

// The camera may be writing into the payload meanwhile: what does not fit any more is left out.
void ListChunks(Bytes payload, std::span<SINGLE_CHUNK_DATA> chunks)
{
    for (size_t i = chunks.size(); i > 0; --i) {
        const auto chunk = LastChunk(payload);
        if (!chunk) {
            chunks[i - 1] = {};
            continue;
        }
        chunks[i - 1] = {chunk->id, static_cast<ptrdiff_t>(chunk->offset), chunk->length};
        payload = payload.first(chunk->offset);
    }
}

} // namespace standard_tl
