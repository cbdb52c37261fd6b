// What a buffer tells of itself and of the image in it.

#include <algorithm>

#include "stream_fixture.h"

namespace standard_tl {
namespace {

constexpr uint16_t kImage = 0x0001;
constexpr uint16_t kGenDc = 0x000B;
constexpr uint16_t kChunks = 0x4000;
constexpr uint16_t kImageWithChunks = 0x4001;

class BufferInfoTest : public StreamTest
{
protected:
    // A delivered buffer with such a payload.
    BUFFER_HANDLE Deliver(const u3v_host::Image& image, const std::vector<uint8_t>& bytes)
    {
        Prepare(1, 64);
        Start();
        EXPECT_TRUE(Receiver().Send(bytes, image));
        return Next();
    }
    BUFFER_HANDLE Deliver(uint16_t payloadType)
    {
        u3v_host::Image image = fake_host::Receiver::SomeImage();
        image.payloadType = payloadType;
        return Deliver(image, std::vector<uint8_t>(32, 0xC3));
    }
    size_t PayloadType(BUFFER_HANDLE buffer)
    {
        return Info<size_t>(buffer, BUFFER_INFO_PAYLOADTYPE);
    }
};

struct InfoExpectation
{
    BUFFER_INFO_CMD command;
    INFO_DATATYPE type;
    uint64_t value;
};

void ExpectInfo(const InfoExpectation& row, const Answer& answer)
{
    SCOPED_TRACE(row.command);
    EXPECT_EQ(answer.code, GC_ERR_SUCCESS);
    EXPECT_EQ(answer.type, row.type);
    uint64_t value = 0;
    memcpy(&value, answer.bytes.data(), std::min(answer.bytes.size(), sizeof(value)));
    EXPECT_EQ(value, row.value);
    const bool isWide = row.type == INFO_DATATYPE_UINT64 || row.type == INFO_DATATYPE_SIZET ||
                        row.type == INFO_DATATYPE_PTR;
    EXPECT_EQ(answer.bytes.size(), row.type == INFO_DATATYPE_BOOL8 ? 1U : isWide ? 8U : 4U);
}

TEST_F(BufferInfoTest, CompleteImage_EveryCommand_HasTypeAndValueOfTheStandard)
{
    u3v_host::Image image = fake_host::Receiver::SomeImage();
    image.blockId = 0x123456789A;
    image.offsetX = 16;
    image.offsetY = 24;
    image.paddingX = 3;
    image.height = 4;
    image.deliveredHeight = 2;
    const BUFFER_HANDLE buffer = Deliver(image, std::vector<uint8_t>(20, 0xC3));
    const InfoExpectation rows[] = {
        {BUFFER_INFO_SIZE, INFO_DATATYPE_SIZET, 64},
        {BUFFER_INFO_USER_PTR, INFO_DATATYPE_PTR, 0},
        {BUFFER_INFO_TIMESTAMP, INFO_DATATYPE_UINT64, 1234567890123},
        {BUFFER_INFO_NEW_DATA, INFO_DATATYPE_BOOL8, 1},
        {BUFFER_INFO_IS_QUEUED, INFO_DATATYPE_BOOL8, 0},
        {BUFFER_INFO_IS_ACQUIRING, INFO_DATATYPE_BOOL8, 0},
        {BUFFER_INFO_IS_INCOMPLETE, INFO_DATATYPE_BOOL8, 0},
        {BUFFER_INFO_SIZE_FILLED, INFO_DATATYPE_SIZET, 20},
        {BUFFER_INFO_WIDTH, INFO_DATATYPE_SIZET, 8},
        {BUFFER_INFO_HEIGHT, INFO_DATATYPE_SIZET, 4},
        {BUFFER_INFO_XOFFSET, INFO_DATATYPE_SIZET, 16},
        {BUFFER_INFO_YOFFSET, INFO_DATATYPE_SIZET, 24},
        {BUFFER_INFO_XPADDING, INFO_DATATYPE_SIZET, 3},
        {BUFFER_INFO_YPADDING, INFO_DATATYPE_SIZET, 0},
        {BUFFER_INFO_FRAMEID, INFO_DATATYPE_UINT64, 0x123456789A},
        {BUFFER_INFO_IMAGEPRESENT, INFO_DATATYPE_BOOL8, 1},
        {BUFFER_INFO_IMAGEOFFSET, INFO_DATATYPE_SIZET, 0},
        {BUFFER_INFO_PAYLOADTYPE, INFO_DATATYPE_SIZET, PAYLOAD_TYPE_IMAGE},
        {BUFFER_INFO_PIXELFORMAT, INFO_DATATYPE_UINT64, 0x01080001},
        {BUFFER_INFO_PIXELFORMAT_NAMESPACE, INFO_DATATYPE_UINT64, PIXELFORMAT_NAMESPACE_PFNC_32BIT},
        {BUFFER_INFO_DELIVERED_IMAGEHEIGHT, INFO_DATATYPE_SIZET, 2},
        {BUFFER_INFO_PIXEL_ENDIANNESS, INFO_DATATYPE_INT32, PIXELENDIANNESS_LITTLE},
        {BUFFER_INFO_DATA_SIZE, INFO_DATATYPE_SIZET, 20},
        {BUFFER_INFO_TIMESTAMP_NS, INFO_DATATYPE_UINT64, 1234567890123},
        {BUFFER_INFO_DATA_LARGER_THAN_BUFFER, INFO_DATATYPE_BOOL8, 0},
        {BUFFER_INFO_CONTAINS_CHUNKDATA, INFO_DATATYPE_BOOL8, 0},
        {BUFFER_INFO_IS_COMPOSITE, INFO_DATATYPE_BOOL8, 0},
    };
    for (const InfoExpectation& row : rows) {
        ExpectInfo(row, BufferInfo(buffer, row.command));
    }
    EXPECT_EQ(BufferInfo(buffer, BUFFER_INFO_BASE).type, INFO_DATATYPE_PTR);
    EXPECT_EQ(*Info<uint8_t*>(buffer, BUFFER_INFO_BASE), 0xC3);
    EXPECT_EQ(BufferInfo(buffer, BUFFER_INFO_TLTYPE).Text(), "U3V");
    for (const BUFFER_INFO_CMD command : {BUFFER_INFO_DELIVERED_CHUNKPAYLOADSIZE,
                                          BUFFER_INFO_CHUNKLAYOUTID, BUFFER_INFO_FILENAME}) {
        EXPECT_EQ(BufferInfo(buffer, command).code, GC_ERR_NOT_AVAILABLE) << command;
    }
    EXPECT_EQ(BufferInfo(buffer, 32).code, GC_ERR_NOT_IMPLEMENTED);
    EXPECT_NE(TheLastError().text.find("command 32"), std::string::npos);
}

// What always answers, whatever happened to the buffer.
void ExpectNoImage(const std::function<Answer(BUFFER_INFO_CMD)>& ask)
{
    for (BUFFER_INFO_CMD command = 0; command <= BUFFER_INFO_IS_COMPOSITE; ++command) {
        const Answer answer = ask(command);
        switch (command) {
        case BUFFER_INFO_BASE:
        case BUFFER_INFO_SIZE:
        case BUFFER_INFO_USER_PTR:
        case BUFFER_INFO_TLTYPE:
        case BUFFER_INFO_IS_QUEUED:
        case BUFFER_INFO_IS_ACQUIRING: EXPECT_EQ(answer.code, GC_ERR_SUCCESS) << command; break;
        case BUFFER_INFO_NEW_DATA:
        case BUFFER_INFO_IS_INCOMPLETE:
        case BUFFER_INFO_SIZE_FILLED:
        case BUFFER_INFO_IMAGEPRESENT:
        case BUFFER_INFO_DATA_LARGER_THAN_BUFFER:
        case BUFFER_INFO_CONTAINS_CHUNKDATA:
        case BUFFER_INFO_IS_COMPOSITE:
            EXPECT_EQ(answer.code, GC_ERR_SUCCESS) << command;
            EXPECT_EQ(answer.bytes, std::vector<uint8_t>(answer.bytes.size())) << command;
            break;
        default: EXPECT_EQ(answer.code, GC_ERR_NOT_AVAILABLE) << command;
        }
    }
}

TEST_F(BufferInfoTest, BeforeTheFirstImage_WhatThereIsAlwaysAnswers)
{
    const BUFFER_HANDLE buffer = Announce(1)[0];
    ExpectNoImage([&](BUFFER_INFO_CMD command) { return BufferInfo(buffer, command); });
    Queue(buffer);
    ExpectNoImage([&](BUFFER_INFO_CMD command) { return BufferInfo(buffer, command); });
}

TEST_F(BufferInfoTest, QueuedAgain_TellsNothingOfTheOldImage)
{
    const BUFFER_HANDLE buffer = Deliver(kImageWithChunks);
    EXPECT_TRUE(Info<bool8_t>(buffer, BUFFER_INFO_NEW_DATA));
    Queue(buffer);
    ExpectNoImage([&](BUFFER_INFO_CMD command) { return BufferInfo(buffer, command); });
}

TEST_F(BufferInfoTest, Flags_OnTheWay_TellWhereTheBufferIs)
{
    const BUFFER_HANDLE buffer = Prepare(1)[0];
    EXPECT_TRUE(IsQueued(buffer));
    EXPECT_FALSE(Info<bool8_t>(buffer, BUFFER_INFO_IS_ACQUIRING));
    Start();
    EXPECT_TRUE(IsQueued(buffer));
    EXPECT_TRUE(Info<bool8_t>(buffer, BUFFER_INFO_IS_ACQUIRING));
    EXPECT_EQ(Info<size_t>(buffer, BUFFER_INFO_SIZE_FILLED), 0U);
    Send();
    EXPECT_TRUE(IsQueued(buffer)) << "in the output queue";
    EXPECT_TRUE(Info<bool8_t>(buffer, BUFFER_INFO_NEW_DATA));
    EXPECT_FALSE(Info<bool8_t>(buffer, BUFFER_INFO_IS_ACQUIRING));
    Next();
    EXPECT_FALSE(IsQueued(buffer));
    EXPECT_TRUE(Info<bool8_t>(buffer, BUFFER_INFO_NEW_DATA));
}

TEST_F(BufferInfoTest, IncompleteImage_IsMarkedAndTellsWhatCame)
{
    u3v_host::Image image = fake_host::Receiver::SomeImage();
    image.complete = false;
    const BUFFER_HANDLE buffer = Deliver(image, std::vector<uint8_t>(7));
    EXPECT_TRUE(Info<bool8_t>(buffer, BUFFER_INFO_IS_INCOMPLETE));
    EXPECT_EQ(Info<size_t>(buffer, BUFFER_INFO_SIZE_FILLED), 7U);
    EXPECT_TRUE(Info<bool8_t>(buffer, BUFFER_INFO_IMAGEPRESENT));
}

TEST_F(BufferInfoTest, ImageLargerThanTheBuffer_IsMarked)
{
    const BUFFER_HANDLE buffer =
        Deliver(fake_host::Receiver::SomeImage(), std::vector<uint8_t>(100));
    EXPECT_TRUE(Info<bool8_t>(buffer, BUFFER_INFO_DATA_LARGER_THAN_BUFFER));
    EXPECT_TRUE(Info<bool8_t>(buffer, BUFFER_INFO_IS_INCOMPLETE));
    EXPECT_EQ(Info<size_t>(buffer, BUFFER_INFO_SIZE_FILLED), 64U);
    EXPECT_EQ(Info<size_t>(buffer, BUFFER_INFO_DATA_SIZE), 64U);
}

// ---- payload types

TEST_F(BufferInfoTest, PayloadTypes_AreThoseOfTheStandard)
{
    struct Payload
    {
        uint16_t sent;
        size_t type;
        bool isImage;
        bool hasChunks;
    };
    const Payload payloads[] = {{kImage, PAYLOAD_TYPE_IMAGE, true, false},
                                {kImageWithChunks, PAYLOAD_TYPE_IMAGE, true, true},
                                {kChunks, PAYLOAD_TYPE_CHUNK_ONLY, false, true},
                                {kGenDc, PAYLOAD_TYPE_GENDC, false, false},
                                {0, PAYLOAD_TYPE_RAW_DATA, false, false},
                                {0x0002, PAYLOAD_TYPE_RAW_DATA, false, false},
                                {0x7FFF, PAYLOAD_TYPE_RAW_DATA, false, true}};
    const BUFFER_HANDLE buffer = Prepare(1)[0];
    Start();
    for (const Payload& payload : payloads) {
        SCOPED_TRACE(payload.sent);
        u3v_host::Image image = fake_host::Receiver::SomeImage();
        image.payloadType = payload.sent;
        image.chunkLayoutId = 77;
        ASSERT_TRUE(Send(image));
        ASSERT_EQ(Next(), buffer);
        EXPECT_EQ(PayloadType(buffer), payload.type);
        EXPECT_EQ(Info<bool8_t>(buffer, BUFFER_INFO_IMAGEPRESENT), payload.isImage);
        EXPECT_EQ(Info<bool8_t>(buffer, BUFFER_INFO_CONTAINS_CHUNKDATA), payload.hasChunks);
        const GC_ERROR ofImage = payload.isImage ? GC_ERR_SUCCESS : GC_ERR_NOT_AVAILABLE;
        for (const BUFFER_INFO_CMD command :
             {BUFFER_INFO_WIDTH, BUFFER_INFO_PIXELFORMAT, BUFFER_INFO_PIXEL_ENDIANNESS,
              BUFFER_INFO_IMAGEOFFSET, BUFFER_INFO_DELIVERED_IMAGEHEIGHT}) {
            EXPECT_EQ(BufferInfo(buffer, command).code, ofImage) << command;
        }
        const GC_ERROR ofChunks = payload.hasChunks ? GC_ERR_SUCCESS : GC_ERR_NOT_AVAILABLE;
        EXPECT_EQ(BufferInfo(buffer, BUFFER_INFO_CHUNKLAYOUTID).code, ofChunks);
        EXPECT_EQ(BufferInfo(buffer, BUFFER_INFO_DELIVERED_CHUNKPAYLOADSIZE).code, ofChunks);
        EXPECT_EQ(BufferInfo(buffer, BUFFER_INFO_TIMESTAMP).code, GC_ERR_SUCCESS);
        Queue(buffer);
    }
}

// ---- chunks

std::vector<uint8_t> TwoChunks()
{
    std::vector<uint8_t> bytes(32, 0xC3);
    const std::vector<uint8_t> rest{1, 0, 0, 0, 32, 0, 0, 0, // the image
                                    9, 9, 9, 9, 5,  0, 0, 0, 4, 0, 0, 0};
    bytes.insert(bytes.end(), rest.begin(), rest.end());
    return bytes;
}

TEST_F(BufferInfoTest, ChunkData_ImageWithChunks_ListsImageAndChunks)
{
    u3v_host::Image image = fake_host::Receiver::SomeImage();
    image.payloadType = kImageWithChunks;
    const BUFFER_HANDLE buffer = Deliver(image, TwoChunks());
    size_t count = 0;
    EXPECT_EQ(DSGetBufferChunkData(Stream(), buffer, nullptr, &count), GC_ERR_SUCCESS);
    EXPECT_EQ(count, 2U);
    SINGLE_CHUNK_DATA chunks[3] = {};
    count = 3;
    EXPECT_EQ(DSGetBufferChunkData(Stream(), buffer, chunks, &count), GC_ERR_SUCCESS);
    EXPECT_EQ(count, 2U);
    EXPECT_EQ(uint64_t{chunks[1].ChunkID}, 5U);
    EXPECT_EQ(ptrdiff_t{chunks[1].ChunkOffset}, 40);
    EXPECT_EQ(size_t{chunks[1].ChunkLength}, 4U);
    EXPECT_EQ(Info<size_t>(buffer, BUFFER_INFO_DELIVERED_CHUNKPAYLOADSIZE), 52U);
}

TEST_F(BufferInfoTest, ChunkData_TooLittleRoomOrNull_IsTold)
{
    u3v_host::Image image = fake_host::Receiver::SomeImage();
    image.payloadType = kImageWithChunks;
    const BUFFER_HANDLE buffer = Deliver(image, TwoChunks());
    SINGLE_CHUNK_DATA chunk = {7, 7, 7};
    size_t count = 1;
    EXPECT_EQ(DSGetBufferChunkData(Stream(), buffer, &chunk, &count), GC_ERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(count, 2U);
    EXPECT_EQ(uint64_t{chunk.ChunkID}, 7U);
    EXPECT_EQ(DSGetBufferChunkData(Stream(), buffer, &chunk, nullptr), GC_ERR_INVALID_PARAMETER);
}

TEST_F(BufferInfoTest, ChunkData_Nonsense_IsParsingError)
{
    const BUFFER_HANDLE buffer = Deliver(kChunks);
    size_t count = 0;
    EXPECT_EQ(DSGetBufferChunkData(Stream(), buffer, nullptr, &count), GC_ERR_PARSING_CHUNK_DATA);
}

TEST_F(BufferInfoTest, ChunkData_WithoutChunks_IsNoData)
{
    const BUFFER_HANDLE buffer = Deliver(kImage);
    size_t count = 0;
    EXPECT_EQ(DSGetBufferChunkData(Stream(), buffer, nullptr, &count), GC_ERR_NO_DATA);
    Queue(buffer);
    EXPECT_EQ(DSGetBufferChunkData(Stream(), buffer, nullptr, &count), GC_ERR_NO_DATA);
}

// ---- parts and stacked queries

TEST_F(BufferInfoTest, Parts_AreNoData)
{
    const BUFFER_HANDLE buffer = Deliver(kImage);
    uint32_t parts = 7;
    EXPECT_EQ(DSGetNumBufferParts(Stream(), buffer, &parts), GC_ERR_NO_DATA);
    size_t size = 0;
    EXPECT_EQ(
        DSGetBufferPartInfo(Stream(), buffer, 0, BUFFER_PART_INFO_BASE, nullptr, nullptr, &size),
        GC_ERR_NO_DATA);
    DS_BUFFER_PART_INFO_STACKED infos[2] = {};
    EXPECT_EQ(DSGetBufferPartInfoStacked(Stream(), buffer, infos, 2), GC_ERR_SUCCESS);
    EXPECT_EQ(GC_ERROR{infos[0].iResult}, GC_ERR_NO_DATA);
    EXPECT_EQ(GC_ERROR{infos[1].iResult}, GC_ERR_NO_DATA);
    EXPECT_EQ(DSGetBufferPartInfoStacked(Stream(), buffer, nullptr, 2), GC_ERR_INVALID_PARAMETER);
}

TEST_F(BufferInfoTest, InfoStacked_EachEntryHasItsOwnResult)
{
    const BUFFER_HANDLE buffer = Deliver(kImage);
    size_t width = 0;
    uint64_t frame = 0;
    uint8_t tooSmall = 0;
    DS_BUFFER_INFO_STACKED infos[] = {
        {BUFFER_INFO_WIDTH, 0, &width, sizeof(width), 1}, {BUFFER_INFO_FILENAME, 0, nullptr, 0, 1},
        {BUFFER_INFO_FRAMEID, 0, &frame, SIZE_MAX, 1},    {BUFFER_INFO_HEIGHT, 0, &tooSmall, 1, 1},
        {BUFFER_INFO_HEIGHT, 0, nullptr, 0, 1},           {99, 0, nullptr, 0, 1},
    };
    EXPECT_EQ(DSGetBufferInfoStacked(Stream(), buffer, infos, std::size(infos)), GC_ERR_SUCCESS);
    const GC_ERROR results[] = {GC_ERR_SUCCESS, GC_ERR_NOT_AVAILABLE,
                                GC_ERR_SUCCESS, GC_ERR_BUFFER_TOO_SMALL,
                                GC_ERR_SUCCESS, GC_ERR_NOT_IMPLEMENTED};
    for (size_t i = 0; i < std::size(infos); ++i) {
        EXPECT_EQ(GC_ERROR{infos[i].iResult}, results[i]) << i;
    }
    EXPECT_EQ(width, 8U);
    EXPECT_EQ(INFO_DATATYPE{infos[0].iType}, INFO_DATATYPE_SIZET);
    EXPECT_EQ(frame, 1U);
    EXPECT_EQ(size_t{infos[2].iSize}, 8U);
    EXPECT_EQ(size_t{infos[3].iSize}, 8U);
    EXPECT_EQ(size_t{infos[4].iSize}, 8U);
    EXPECT_EQ(DSGetBufferInfoStacked(Stream(), buffer, infos, 0), GC_ERR_SUCCESS);
    EXPECT_EQ(DSGetBufferInfoStacked(Stream(), buffer, nullptr, 1), GC_ERR_INVALID_PARAMETER);
}

} // namespace
} // namespace standard_tl
