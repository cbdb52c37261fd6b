#include "sha1.h"

#include <bit>
#include <vector>

namespace vcam {

namespace {

using State = std::array<std::uint32_t, 5>;

constexpr std::size_t kBlock = 64;

std::uint32_t LoadBe32(const std::uint8_t* at)
{
    return std::uint32_t{at[0]} << 24 | std::uint32_t{at[1]} << 16 | std::uint32_t{at[2]} << 8 |
           at[3];
}

std::uint32_t RoundValue(unsigned round, std::uint32_t b, std::uint32_t c, std::uint32_t d)
{
    switch (round / 20) {
    case 0: return ((b & c) | (~b & d)) + 0x5A827999U;
    case 1: return (b ^ c ^ d) + 0x6ED9EBA1U;
    case 2: return ((b & c) | (b & d) | (c & d)) + 0x8F1BBCDCU;
    default: return (b ^ c ^ d) + 0xCA62C1D6U;
    }
}

void AddBlock(State& state, const std::uint8_t* block)
{
    std::array<std::uint32_t, 80> words{};
    for (std::size_t i = 0; i < words.size(); ++i) {
        words[i] = i < 16
                       ? LoadBe32(block + 4 * i)
                       : std::rotl(words[i - 3] ^ words[i - 8] ^ words[i - 14] ^ words[i - 16], 1);
    }
    State work = state;
    for (unsigned round = 0; round < words.size(); ++round) {
        const std::uint32_t next = std::rotl(work[0], 5) +
                                   RoundValue(round, work[1], work[2], work[3]) + work[4] +
                                   words[round];
        work = {next, work[0], std::rotl(work[1], 30), work[2], work[3]};
    }
    for (std::size_t i = 0; i < state.size(); ++i) {
        state[i] += work[i];
    }
}

// The message followed by 0x80, zeros and its length in bits, to a whole number of blocks.
std::vector<std::uint8_t> Padded(std::span<const std::uint8_t> data)
{
    std::vector<std::uint8_t> padded(data.begin(), data.end());
    padded.push_back(0x80);
    padded.resize((padded.size() + 8 + kBlock - 1) / kBlock * kBlock);
    const std::uint64_t bits = std::uint64_t{data.size()} * 8;
    for (std::size_t i = 0; i < 8; ++i) {
        padded[padded.size() - 1 - i] = static_cast<std::uint8_t>(bits >> (8 * i));
    }
    return padded;
}

} // namespace

std::array<std::uint8_t, 20> Sha1(std::span<const std::uint8_t> data)
{
    State state{0x67452301U, 0xEFCDAB89U, 0x98BADCFEU, 0x10325476U, 0xC3D2E1F0U};
    const std::vector<std::uint8_t> padded = Padded(data);
    for (std::size_t at = 0; at < padded.size(); at += kBlock) {
        AddBlock(state, padded.data() + at);
    }
    std::array<std::uint8_t, 20> digest{};
    for (std::size_t i = 0; i < digest.size(); ++i) {
        digest[i] = static_cast<std::uint8_t>(state[i / 4] >> (24 - 8 * (i % 4)));
    }
    return digest;
}

} // namespace vcam
