#include "payload_form.h"

#include "camera_layout.h"

namespace vcam {

namespace {

constexpr ChunkName kChunks[kChunkCount] = {{"Image", 0x1000},
                                            {"FrameID", 0x1001},
                                            {"Timestamp", 0x1002},
                                            {"ExposureTime", 0x1003},
                                            {"UserBytes", 0x1004}};

bool Has(std::uint32_t chunks, Chunk chunk)
{
    return (chunks >> static_cast<std::uint32_t>(chunk) & 1U) != 0;
}

template <typename T>
void Put(std::vector<std::uint8_t>& to, T value)
{
    to.resize(to.size() + sizeof(T));
    StoreLe(to.data() + to.size() - sizeof(T), value);
}

// What stands behind the data of every chunk.
void PutChunkTrailer(std::vector<std::uint8_t>& to, Chunk chunk, std::size_t length)
{
    Put(to, kChunks[static_cast<std::size_t>(chunk)].id);
    Put(to, static_cast<std::uint32_t>(length));
}

template <typename T>
void PutChunk(std::vector<std::uint8_t>& to, Chunk chunk, T value)
{
    Put(to, value);
    PutChunkTrailer(to, chunk, sizeof(T));
}

std::uint32_t UserBytesOf(const PayloadForm& form, std::uint64_t frame)
{
    return form.userBytesVary ? static_cast<std::uint32_t>(frame * 29 % (form.userBytes + 1ULL))
                              : form.userBytes;
}

void PutChunks(const PayloadForm& form, SentImage& image)
{
    std::vector<std::uint8_t>& to = image.tail;
    if (form.HasImage()) {
        PutChunkTrailer(to, Chunk::Image, image.pixelBytes);
    }
    if (Has(form.chunks, Chunk::FrameId)) {
        PutChunk(to, Chunk::FrameId, image.frame);
    }
    if (Has(form.chunks, Chunk::Timestamp)) {
        PutChunk(to, Chunk::Timestamp, image.timestamp);
    }
    if (Has(form.chunks, Chunk::ExposureTime)) {
        PutChunk(to, Chunk::ExposureTime, form.exposureBits);
    }
    if (Has(form.chunks, Chunk::UserBytes)) {
        const std::uint32_t length = UserBytesOf(form, image.frame);
        for (std::uint32_t i = 0; i < length; ++i) {
            to.push_back(static_cast<std::uint8_t>(image.frame + i));
        }
        PutChunkTrailer(to, Chunk::UserBytes, length);
    }
}

// A container with one component (the intensity) of one part (the image): its descriptor, and the
// pixels behind it.
void PutContainer(SentImage& image)
{
    std::vector<std::uint8_t>& to = image.head;
    to.resize(gendc::kDataOffset);
    std::uint8_t* container = to.data();
    gendc::kSignature.Store(container, gendc::kSignatureValue);
    gendc::kVersion.Store(container, gendc::kVersion11);
    gendc::kHeaderType.Store(container, gendc::kContainerType);
    gendc::kHeaderSize.Store(container, static_cast<std::uint32_t>(gendc::kContainerSize));
    gendc::kContainerId.Store(container, image.frame);
    gendc::kDataSize.Store(container, image.pixelBytes);
    gendc::kDataStart.Store(container, gendc::kDataOffset);
    gendc::kDescriptorSize.Store(container, static_cast<std::uint32_t>(gendc::kAllHeaders));
    gendc::kComponentCount.Store(container, 1);
    gendc::kComponentOffset.Store(container, gendc::kContainerSize);

    std::uint8_t* component = container + gendc::kContainerSize;
    gendc::kType.Store(component, gendc::kComponentType);
    gendc::kSize.Store(component, static_cast<std::uint32_t>(gendc::kComponentSize));
    gendc::kRegionX.Store(component, image.geometry.offsetX);
    gendc::kRegionY.Store(component, image.geometry.offsetY);
    gendc::kTimestamp.Store(component, image.timestamp);
    gendc::kTypeId.Store(component, gendc::kIntensity);
    gendc::kComponentFormat.Store(component, image.geometry.format->code);
    gendc::kPartCount.Store(component, 1);
    gendc::kPartOffset.Store(component, gendc::kContainerSize + gendc::kComponentSize);

    std::uint8_t* part = component + gendc::kComponentSize;
    gendc::kType.Store(part, gendc::kPart2DType);
    gendc::kSize.Store(part, static_cast<std::uint32_t>(gendc::kPartSize));
    gendc::kPartFormat.Store(part, image.geometry.format->code);
    gendc::kPartDataSize.Store(part, image.pixelBytes);
    gendc::kPartDataOffset.Store(part, gendc::kDataOffset);
    gendc::kDimensionX.Store(part, image.geometry.width);
    gendc::kDimensionY.Store(part, image.rows);
    gendc::kPartPaddingX.Store(part, image.geometry.paddingX);
}

} // namespace

std::span<const ChunkName> ChunkNames()
{
    return kChunks;
}

bool PayloadForm::HasImage() const
{
    return type != stream::kChunkPayload;
}

bool PayloadForm::HasChunks() const
{
    return type == stream::kImageChunkPayload || type == stream::kChunkPayload;
}

std::size_t PayloadForm::LeaderSize() const
{
    const bool isBare = type == stream::kChunkPayload || type == stream::kGenDCPayload;
    return isBare ? stream::kBareLeaderSize : stream::kLeaderSize;
}

std::size_t PayloadForm::TrailerSize() const
{
    switch (type) {
    case stream::kImageChunkPayload: return stream::kChunkTrailerSize;
    case stream::kGenDCPayload: return stream::kBareTrailerSize;
    default: return stream::kTrailerSize;
    }
}

std::size_t PayloadForm::LargestSize(const ImageGeometry& geometry) const
{
    PayloadForm longest = *this;
    longest.userBytesVary = false;
    SentImage image;
    image.geometry = geometry;
    image.rows = geometry.height;
    longest.Compose(image);
    return image.Size();
}

void PayloadForm::Compose(SentImage& image) const
{
    const bool isWhole = image.rows == image.geometry.height;
    const std::size_t pixels =
        isWhole ? image.geometry.Payload() : image.geometry.Bytes(image.rows);
    image.pixelBytes = HasImage() ? pixels : 0;
    image.payloadType = type;
    image.leaderSize = LeaderSize();
    image.trailerSize = TrailerSize();
    image.layoutId = chunks << 24 | userBytes;
    image.head.clear();
    image.tail.clear();
    if (type == stream::kGenDCPayload) {
        PutContainer(image);
    }
    if (HasChunks()) {
        PutChunks(*this, image);
    }
}

} // namespace vcam
