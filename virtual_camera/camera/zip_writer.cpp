#include "zip_writer.h"

#include <algorithm>
#include <array>

#include "little_endian.h"

namespace vcam {

namespace {

// Deflate fills bytes from the lowest bit; code words alone go in with their highest bit first.
class BitWriter
{
public:
    void Bits(std::uint32_t value, unsigned count)
    {
        for (unsigned i = 0; i < count; ++i) {
            if (m_used == 0) {
                m_bytes.push_back(0);
            }
            m_bytes.back() =
                static_cast<std::uint8_t>(m_bytes.back() | ((value >> i) & 1U) << m_used);
            m_used = (m_used + 1) % 8;
        }
    }

    void Code(std::uint32_t code, unsigned count)
    {
        for (unsigned i = count; i > 0; --i) {
            Bits(code >> (i - 1), 1);
        }
    }

    std::vector<std::uint8_t> Take() { return std::move(m_bytes); }

private:
    std::vector<std::uint8_t> m_bytes;
    unsigned m_used = 0;
};

// The fixed literal and length codes.
void PutSymbol(BitWriter& out, unsigned symbol)
{
    if (symbol < 144) {
        out.Code(0x30 + symbol, 8);
    } else if (symbol < 256) {
        out.Code(0x190 + symbol - 144, 9);
    } else if (symbol < 280) {
        out.Code(symbol - 256, 7);
    } else {
        out.Code(0xC0 + symbol - 280, 8);
    }
}

struct ExtraCode
{
    unsigned symbol;
    unsigned base;
    unsigned bits;
};

// Both tables follow one rule: from some code on, every "step" codes carry one more extra bit.
ExtraCode FindCode(unsigned value, unsigned first, unsigned step)
{
    ExtraCode code{0, first, 0};
    for (;;) {
        const unsigned span = 1U << code.bits;
        if (value < code.base + span) {
            return code;
        }
        code.base += span;
        ++code.symbol;
        code.bits = code.symbol < 2 * step ? 0 : code.symbol / step - 1;
    }
}

constexpr std::size_t kMinMatch = 3;
constexpr std::size_t kMaxMatch = 257; // 258 has a code of its own, which is not needed
constexpr std::size_t kWindow = 32768;

void PutMatch(BitWriter& out, std::size_t length, std::size_t distance)
{
    const ExtraCode lengthCode = FindCode(static_cast<unsigned>(length), kMinMatch, 4);
    PutSymbol(out, 257 + lengthCode.symbol);
    out.Bits(static_cast<unsigned>(length) - lengthCode.base, lengthCode.bits);
    const ExtraCode distanceCode = FindCode(static_cast<unsigned>(distance), 1, 2);
    out.Code(distanceCode.symbol, 5);
    out.Bits(static_cast<unsigned>(distance) - distanceCode.base, distanceCode.bits);
}

// Remembers, by a hash of three bytes, where such a triple was last seen.
class MatchFinder
{
public:
    explicit MatchFinder(std::span<const std::uint8_t> data) : m_data(data) { m_last.fill(kNone); }

    // Returns the length of the match found for this place (0: none) and notes the place.
    std::size_t Find(std::size_t at, std::size_t& distance)
    {
        if (at + kMinMatch > m_data.size()) {
            return 0;
        }
        std::size_t& last = m_last[Hash(at)];
        const std::size_t candidate = last;
        last = at;
        if (candidate == kNone || at - candidate > kWindow) {
            return 0;
        }
        distance = at - candidate;
        const std::size_t length = Common(candidate, at);
        return length < kMinMatch ? 0 : length;
    }

private:
    static constexpr std::size_t kNone = ~std::size_t{0};

    std::size_t Hash(std::size_t at) const
    {
        return (m_data[at] * 506832829U + m_data[at + 1] * 2654435U + m_data[at + 2] * 40503U) %
               m_last.size();
    }

    std::size_t Common(std::size_t a, std::size_t b) const
    {
        const std::size_t limit = std::min(kMaxMatch, m_data.size() - b);
        std::size_t length = 0;
        while (length < limit && m_data[a + length] == m_data[b + length]) {
            ++length;
        }
        return length;
    }

    std::span<const std::uint8_t> m_data;
    std::array<std::size_t, 8191> m_last{};
};

class ByteWriter
{
public:
    template <typename T>
    void Put(T value)
    {
        m_bytes.resize(m_bytes.size() + sizeof(T));
        StoreLe<T>(m_bytes.data() + m_bytes.size() - sizeof(T), value);
    }
    void Put(std::span<const std::uint8_t> data)
    {
        m_bytes.insert(m_bytes.end(), data.begin(), data.end());
    }
    void Put(const std::string& text) { m_bytes.insert(m_bytes.end(), text.begin(), text.end()); }
    std::uint32_t Size() const { return static_cast<std::uint32_t>(m_bytes.size()); }
    std::vector<std::uint8_t> Take() { return std::move(m_bytes); }

private:
    std::vector<std::uint8_t> m_bytes;
};

struct Member
{
    const std::string& name;
    std::uint32_t crc;
    std::uint32_t packed;
    std::uint32_t size;
};

// What local and central header have in common: from "version needed" to the extra length.
void PutMemberFields(ByteWriter& out, const Member& member)
{
    out.Put<std::uint16_t>(20);     // needs version 2.0
    out.Put<std::uint16_t>(0);      // no flags
    out.Put<std::uint16_t>(8);      // deflated
    out.Put<std::uint16_t>(0);      // 00:00:00
    out.Put<std::uint16_t>(0x5821); // 2024-01-01, the same for every build
    out.Put(member.crc);
    out.Put(member.packed);
    out.Put(member.size);
    out.Put(static_cast<std::uint16_t>(member.name.size()));
    out.Put<std::uint16_t>(0);
}

void PutCentralDirectory(ByteWriter& out, const Member& member)
{
    const std::uint32_t start = out.Size();
    out.Put<std::uint32_t>(0x02014B50);
    out.Put<std::uint16_t>(20);
    PutMemberFields(out, member);
    out.Put<std::uint16_t>(0); // no comment
    out.Put<std::uint16_t>(0); // disk 0
    out.Put<std::uint16_t>(1); // text
    out.Put<std::uint32_t>(0);
    out.Put<std::uint32_t>(0); // the local header stands at the very beginning
    out.Put(member.name);
    const std::uint32_t length = out.Size() - start;
    out.Put<std::uint32_t>(0x06054B50);
    out.Put<std::uint32_t>(0); // disk numbers
    out.Put<std::uint16_t>(1);
    out.Put<std::uint16_t>(1);
    out.Put(length);
    out.Put(start);
    out.Put<std::uint16_t>(0);
}

} // namespace

std::uint32_t Crc32(std::span<const std::uint8_t> data)
{
    std::uint32_t crc = ~0U;
    for (const std::uint8_t byte : data) {
        crc ^= byte;
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc >> 1) ^ ((crc & 1U) != 0 ? 0xEDB88320U : 0U);
        }
    }
    return ~crc;
}

std::vector<std::uint8_t> Deflate(std::span<const std::uint8_t> data)
{
    BitWriter out;
    out.Bits(1, 1); // the last block
    out.Bits(1, 2); // with the fixed codes
    MatchFinder finder(data);
    for (std::size_t at = 0; at < data.size();) {
        std::size_t distance = 0;
        const std::size_t length = finder.Find(at, distance);
        if (length == 0) {
            PutSymbol(out, data[at]);
            ++at;
            continue;
        }
        PutMatch(out, length, distance);
        at += length;
    }
    PutSymbol(out, 256);
    return out.Take();
}

std::vector<std::uint8_t> ZipArchive(const std::string& member, std::span<const std::uint8_t> data)
{
    const std::vector<std::uint8_t> packed = Deflate(data);
    const Member fields{member, Crc32(data), static_cast<std::uint32_t>(packed.size()),
                        static_cast<std::uint32_t>(data.size())};
    ByteWriter out;
    out.Put<std::uint32_t>(0x04034B50);
    PutMemberFields(out, fields);
    out.Put(member);
    out.Put(std::span<const std::uint8_t>(packed));
    PutCentralDirectory(out, fields);
    return out.Take();
}

} // namespace vcam
