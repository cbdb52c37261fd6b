#include "chunk_parser.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace standard_tl {
namespace {

std::vector<uint8_t> LittleEndian(uint32_t number)
{
    return {static_cast<uint8_t>(number), static_cast<uint8_t>(number >> 8),
            static_cast<uint8_t>(number >> 16), static_cast<uint8_t>(number >> 24)};
}

void Append(std::vector<uint8_t>& payload, const std::vector<uint8_t>& bytes)
{
    payload.insert(payload.end(), bytes.begin(), bytes.end());
}

// A chunk as a camera sends it: data, id, length; the length can be told wrong.
struct SentChunk
{
    uint32_t id;
    size_t size;
    int64_t wrong = 0;
};

std::vector<uint8_t> PayloadOf(const std::vector<SentChunk>& chunks)
{
    std::vector<uint8_t> payload;
    for (const SentChunk& chunk : chunks) {
        payload.resize(payload.size() + chunk.size, 0xAA);
        Append(payload, LittleEndian(chunk.id));
        Append(payload,
               LittleEndian(static_cast<uint32_t>(static_cast<int64_t>(chunk.size) + chunk.wrong)));
    }
    return payload;
}

TEST(ChunkParser, ImageAndTwoChunks_AreListedInTheirOrder)
{
    const auto payload = PayloadOf({{1, 100}, {0x12345678, 4}, {3, 0}});
    ASSERT_EQ(CountChunks(payload), 3U);
    SINGLE_CHUNK_DATA chunks[3];
    ListChunks(payload, chunks);
    EXPECT_EQ(uint64_t{chunks[0].ChunkID}, 1U);
    EXPECT_EQ(ptrdiff_t{chunks[0].ChunkOffset}, 0);
    EXPECT_EQ(size_t{chunks[0].ChunkLength}, 100U);
    EXPECT_EQ(uint64_t{chunks[1].ChunkID}, 0x12345678U);
    EXPECT_EQ(ptrdiff_t{chunks[1].ChunkOffset}, 108);
    EXPECT_EQ(size_t{chunks[1].ChunkLength}, 4U);
    EXPECT_EQ(uint64_t{chunks[2].ChunkID}, 3U);
    EXPECT_EQ(ptrdiff_t{chunks[2].ChunkOffset}, 120);
    EXPECT_EQ(size_t{chunks[2].ChunkLength}, 0U);
}

TEST(ChunkParser, Counts)
{
    struct Row
    {
        const char* what;
        std::vector<uint8_t> payload;
        std::optional<size_t> count;
    };
    auto cut = PayloadOf({{1, 10}, {2, 10}});
    cut.erase(cut.begin());
    auto extended = PayloadOf({{1, 10}});
    extended.push_back(0);
    const Row rows[] = {
        {"nothing", {}, 0},
        {"one empty chunk", PayloadOf({{7, 0}}), 1},
        {"shorter than a trailer", {1, 2, 3, 4, 5, 6, 7}, std::nullopt},
        {"length one too large", PayloadOf({{1, 10, 1}}), std::nullopt},
        {"length one too small", PayloadOf({{1, 10, -1}}), std::nullopt},
        {"length of all bits", PayloadOf({{1, 10, 0xFFFFFFFF - 10}}), std::nullopt},
        {"first byte missing", cut, std::nullopt},
        {"a byte too many", extended, std::nullopt},
        {"wrong one in the middle", PayloadOf({{1, 10}, {2, 10, 3}, {3, 10}}), std::nullopt},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(CountChunks(row.payload), row.count) << row.what;
    }
}

TEST(ChunkParser, PayloadChangesBetweenCountAndList_NothingOutsideIsTouched)
{
    auto payload = PayloadOf({{1, 10}, {2, 10}});
    ASSERT_EQ(CountChunks(payload), 2U);
    payload.assign(payload.size(), 0xFF);
    SINGLE_CHUNK_DATA chunks[2];
    ListChunks(payload, chunks);
    EXPECT_EQ(size_t{chunks[0].ChunkLength}, 0U);
    EXPECT_EQ(size_t{chunks[1].ChunkLength}, 0U);
}

} // namespace
} // namespace standard_tl
