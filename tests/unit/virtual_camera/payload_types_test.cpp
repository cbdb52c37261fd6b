// What an image can be beside plain pixels: chunks, a container, something that nobody knows.

#include "image_reader.h"

namespace {

struct ChunkData
{
    std::uint64_t id;
    Bytes data;

    bool operator==(const ChunkData&) const = default;
};

// From the end of the valid payload backwards, as a host reads them; the last one comes first.
std::vector<ChunkData> Chunks(const ImageParts& image)
{
    std::vector<ChunkData> chunks;
    std::size_t end = image.ValidSize();
    while (end >= 8) {
        const std::uint64_t id = Get(image.payload, end - 8, 4);
        const std::uint64_t length = Get(image.payload, end - 4, 4);
        if (length > end - 8) {
            ADD_FAILURE() << "a chunk of " << length << " bytes at " << end;
            break;
        }
        chunks.push_back({id, image.Part(end - 8 - length, length)});
        end -= 8 + length;
    }
    EXPECT_EQ(0U, end);
    return chunks;
}

Bytes Number(std::uint64_t value, int size)
{
    Bytes bytes;
    Put(bytes, value, size);
    return bytes;
}

} // namespace

TEST(PayloadTypes, ImageWithChunks_ImageFirstThenTheOthers)
{
    CameraHost host(std::string(kSmall) + "chunks=1,chunk-bytes=5");
    EXPECT_EQ(36U, host.Read32(0x20014)); // the trailer that chunks need
    host.StartWhole();
    ReadImage(host);
    const ImageParts image = ReadImage(host);
    EXPECT_EQ(0x4001U, image.PayloadType());
    EXPECT_EQ(52U, Get(image.leader, 6, 2));
    ASSERT_EQ(36U, image.trailer.size());
    EXPECT_EQ(36U, Get(image.trailer, 6, 2));
    EXPECT_EQ(33U, image.Rows());
    EXPECT_NE(0U, Get(image.trailer, 32, 4)); // the layout's id
    const std::vector<ChunkData> chunks = Chunks(image);
    ASSERT_EQ(5U, chunks.size());
    EXPECT_EQ((ChunkData{0x1000, host.Expected(1)}), chunks[4]);
    EXPECT_EQ((ChunkData{0x1001, Number(1, 8)}), chunks[3]);
    EXPECT_EQ((ChunkData{0x1002, Number(Get(image.leader, 20, 8), 8)}), chunks[2]);
    EXPECT_EQ((ChunkData{0x1003, Number(0x459C4000, 4)}), chunks[1]); // 5000.0
    EXPECT_EQ((ChunkData{0x1004, {1, 2, 3, 4, 5}}), chunks[0]);
    EXPECT_EQ(host.Read64(0x20008), image.ValidSize());
}

TEST(PayloadTypes, Chunks_SwitchedByRegisters)
{
    CameraHost host(kSmall);
    EXPECT_EQ(2112U, host.Read64(0x20008));
    EXPECT_EQ(0U, host.Write32(0x50100, 1));
    EXPECT_EQ(2112U + 8 + 16 + 16 + 12, host.Read64(0x20008));
    EXPECT_EQ(0U, host.Write32(0x50114, 0)); // no frame id
    EXPECT_EQ(0U, host.Write32(0x5011C, 0)); // no exposure time
    EXPECT_EQ(2112U + 8 + 16, host.Read32(0x5000C));
    EXPECT_EQ(0x8004U, host.Write32(0x50110, 0)); // an image without the image is none
    EXPECT_EQ(0x8002U, host.Write32(0x50104, 5)); // there is no sixth chunk
    host.StartWhole();
    EXPECT_EQ(0x8006U, host.Write32(0x50100, 0));
    EXPECT_EQ(0x8006U, host.Write32(0x50114, 1));
    EXPECT_EQ(2U, Chunks(ReadImage(host)).size());
}

TEST(PayloadTypes, ChunkLayoutId_ChangesWithTheLayoutOnly)
{
    const auto layoutId = [](const std::string& options) {
        CameraHost host(kSmall + options);
        host.StartWhole();
        return Get(ReadImage(host).trailer, 32, 4);
    };
    EXPECT_EQ(layoutId("chunks=1"), layoutId("chunks=1,seed=7"));
    EXPECT_NE(layoutId("chunks=1"), layoutId("chunks=1,chunk-bytes=4"));
}

TEST(PayloadTypes, ChunksOfVaryingLength_EndTheImageEarly)
{
    CameraHost host(std::string(kSmall) + "chunks=1,chunk-bytes=1000,chunk-bytes-vary=1");
    const std::uint64_t largest = host.Read64(0x20008);
    host.StartWhole();
    std::set<std::uint64_t> sizes;
    for (std::uint64_t frame = 0; frame < 20; ++frame) {
        const ImageParts image = ReadImage(host);
        EXPECT_EQ(image.payload.size(), image.ValidSize());
        EXPECT_EQ(host.Expected(frame), Chunks(image).back().data);
        sizes.insert(image.ValidSize());
    }
    EXPECT_LT(10U, sizes.size());
    EXPECT_LE(*sizes.rbegin(), largest);
}

TEST(PayloadTypes, ShortImageWithChunks_ChunksFollowTheRowsThatCame)
{
    CameraHost host(std::string(kSmall) + "chunks=1,faults=image-short@0:10");
    host.StartWhole();
    const ImageParts image = ReadImage(host);
    EXPECT_EQ(10U, image.Rows());
    const std::vector<ChunkData> chunks = Chunks(image);
    const Bytes expected = host.Expected(0);
    EXPECT_EQ(Bytes(expected.begin(), expected.begin() + 640), chunks.back().data);
    EXPECT_EQ(4U, chunks.size());
}

TEST(PayloadTypes, ChunksAlone_NoImage)
{
    CameraHost host(std::string(kSmall) + "payload=chunk,chunk-bytes=3");
    EXPECT_EQ(16U + 16 + 12 + 11, host.Read64(0x20008));
    host.StartWhole();
    const ImageParts image = ReadImage(host);
    EXPECT_EQ(0x4000U, image.PayloadType());
    EXPECT_EQ(28U, Get(image.leader, 6, 2));
    EXPECT_EQ(Bytes(24), Bytes(image.leader.begin() + 28, image.leader.end())); // padding
    EXPECT_EQ(32U, Get(image.trailer, 6, 2));
    EXPECT_NE(0U, Get(image.trailer, 28, 4)); // the layout's id
    EXPECT_EQ(4U, Chunks(image).size());
}

TEST(PayloadTypes, ChunkFaults_LengthAndCut)
{
    CameraHost host(std::string(kSmall) + "chunks=1,faults=chunk-length@0+chunk-cut@1:3");
    host.StartWhole();
    const ImageParts nonsense = ReadImage(host);
    EXPECT_EQ(0xFFFFFFFFU, Get(nonsense.payload, nonsense.ValidSize() - 4, 4));
    const ImageParts cut = ReadImage(host);
    EXPECT_EQ(nonsense.ValidSize() - 3, cut.ValidSize());
    EXPECT_EQ(cut.ValidSize(), cut.payload.size());
    EXPECT_EQ(4U, Chunks(ReadImage(host)).size());
}

TEST(PayloadTypes, GenDC_DescriptorThenThePixels)
{
    CameraHost host(std::string(kSmall) + "payload=gendc,offset-x=5,format=Mono8");
    host.StartWhole();
    ReadImage(host);
    const ImageParts image = ReadImage(host);
    EXPECT_EQ(0x000BU, image.PayloadType());
    EXPECT_EQ(28U, Get(image.leader, 6, 2));
    EXPECT_EQ(28U, Get(image.trailer, 6, 2));
    EXPECT_EQ(Bytes({'G', 'N', 'D', 'C'}), image.Part(0, 4));
    EXPECT_EQ(0x1000U, Get(image.payload, 8, 2));
    const std::uint64_t dataSize = Get(image.payload, 32, 8);
    const std::uint64_t dataOffset = Get(image.payload, 40, 8);
    EXPECT_EQ(image.ValidSize(), dataOffset + dataSize);
    const std::size_t component = Get(image.payload, 56, 8);
    EXPECT_EQ(0x2000U, Get(image.payload, component, 2));
    EXPECT_EQ(5U, Get(image.payload, component + 16, 4));
    EXPECT_EQ(0x01080001U, Get(image.payload, component + 40, 4));
    const std::size_t part = Get(image.payload, component + 48, 8);
    EXPECT_EQ(0x4200U, Get(image.payload, part, 2));
    EXPECT_EQ(64U, Get(image.payload, part + 40, 4));
    EXPECT_EQ(33U, Get(image.payload, part + 44, 4));
    EXPECT_EQ(part + 56, Get(image.payload, 48, 4)); // where the descriptor ends
    EXPECT_EQ(host.Expected(1),
              image.Part(Get(image.payload, part + 32, 8), Get(image.payload, part + 24, 8)));
}

TEST(PayloadTypes, UnknownNumber_IsSentAsItIs)
{
    CameraHost host(std::string(kSmall) + "payload=0x7ABC,chunks=1");
    host.StartWhole();
    const ImageParts image = ReadImage(host);
    EXPECT_EQ(0x7ABCU, image.PayloadType());
    EXPECT_EQ(host.Expected(0), image.payload);
}

TEST(PayloadTypes, PaddingOfRows_LeaderSaysSoAndThePictureIsTheSame)
{
    CameraHost plain(std::string(kSmall) + "pattern=ramp");
    CameraHost padded(std::string(kSmall) + "pattern=ramp,padding-x=3,offset-x=7,offset-y=9");
    plain.StartWhole();
    padded.StartWhole();
    const ImageParts image = ReadImage(padded);
    EXPECT_EQ(67U * 33, image.ValidSize());
    EXPECT_EQ(3U, Get(image.leader, 48, 2));
    EXPECT_EQ(7U, Get(image.leader, 40, 4));
    EXPECT_EQ(9U, Get(image.leader, 44, 4));
    const ImageParts narrow = ReadImage(plain);
    for (std::size_t y = 0; y < 33; ++y) {
        EXPECT_EQ(narrow.Part(y * 64, 64), image.Part(y * 67, 64));
        EXPECT_EQ(Bytes(3), image.Part(y * 67 + 64, 3));
    }
    EXPECT_EQ(padded.Expected(0), image.payload);
}
