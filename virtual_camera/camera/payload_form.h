// What the payload of an image consists of beside its pixels, and what leader and trailer say about
// it: chunks, a container, nothing at all.
#ifndef VCAM_PAYLOAD_FORM_H
#define VCAM_PAYLOAD_FORM_H

#include "sent_image.h"

namespace vcam {

// The chunks that an image can carry; also their place among the camera's registers.
enum class Chunk : std::uint32_t
{
    Image,
    FrameId,
    Timestamp,
    ExposureTime,
    UserBytes,
};
constexpr std::uint32_t kChunkCount = 5;

struct ChunkName
{
    const char* name;
    std::uint32_t id; // on the wire
};

// In the order of the enumeration.
std::span<const ChunkName> ChunkNames();

struct PayloadForm
{
    std::uint16_t type = 1;         // as the leader says; an image with chunks is one with chunks
    std::uint32_t chunks = 0;       // a bit for every enabled chunk
    std::uint32_t userBytes = 0;    // length of the chunk of that name
    bool userBytesVary = false;     // from nothing to this length
    std::uint32_t exposureBits = 0; // IEEE 754 single

    bool HasImage() const;
    bool HasChunks() const;
    std::size_t LeaderSize() const; // without padding
    std::size_t TrailerSize() const;
    // The most bytes that an image of this geometry can take.
    std::size_t LargestSize(const ImageGeometry& geometry) const;
    // Puts together what surrounds the pixels. Frame, timestamp, geometry and rows are set.
    void Compose(SentImage& image) const;
};

} // namespace vcam

#endif
