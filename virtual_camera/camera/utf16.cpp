#include "utf16.h"

#include <cstdint>

namespace vcam {

namespace {

struct CodePoint
{
    std::uint32_t value;
    std::size_t bytes; // that it takes
};

CodePoint TakeCodePoint(std::string_view text)
{
    const auto byte = [text](std::size_t i) { return static_cast<std::uint8_t>(text[i]); };
    const std::uint8_t first = byte(0);
    const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : first >= 0xC2 ? 2 : 1;
    if (length == 1 || length > text.size() || first > 0xF4) {
        return {first, 1};
    }
    std::uint32_t value = first & (0x7FU >> length);
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80) {
            return {first, 1};
        }
        value = value << 6 | (byte(i) & 0x3FU);
    }
    return {value, length};
}

} // namespace

std::u16string ToUtf16(std::string_view text)
{
    std::u16string wide;
    while (!text.empty()) {
        const CodePoint point = TakeCodePoint(text);
        text.remove_prefix(point.bytes);
        if (point.value < 0x10000) {
            wide += static_cast<char16_t>(point.value);
        } else {
            wide += static_cast<char16_t>(0xD800 + ((point.value - 0x10000) >> 10 & 0x3FF));
            wide += static_cast<char16_t>(0xDC00 + (point.value & 0x3FF));
        }
    }
    return wide;
}

} // namespace vcam
