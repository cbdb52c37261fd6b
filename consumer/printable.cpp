#include "printable.h"

#include <algorithm>

namespace consumer {

namespace {

struct Character
{
    size_t length = 0; // bytes; 0: no UTF-8
    char32_t code = 0;
};

// Bytes that the first one of a character announces, itself included.
size_t AnnouncedLength(unsigned char first)
{
    if (first < 0x80) {
        return 1;
    }
    if (first < 0xC2 || first > 0xF4) {
        return 0;
    }
    return first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
}

// The character at the front of a text that is not empty. Over-long forms and halves of surrogate
// pairs are none: some terminals take them for what they imitate.
Character FrontOf(std::string_view text)
{
    constexpr char32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
    const auto first = static_cast<unsigned char>(text[0]);
    const size_t length = AnnouncedLength(first);
    if (length == 0 || length > text.size()) {
        return {};
    }
    char32_t code = length == 1 ? first : first & (0x7FU >> length);
    for (size_t i = 1; i < length; i++) {
        const auto next = static_cast<unsigned char>(text[i]);
        if ((next & 0xC0U) != 0x80) {
            return {};
        }
        code = code << 6U | (next & 0x3FU);
    }
    const bool isSurrogate = code >= 0xD800 && code <= 0xDFFF;
    const bool isOne = code >= kLeast[length] && code <= 0x10FFFF && !isSurrogate;
    return isOne ? Character{length, code} : Character{};
}

bool SteersTerminal(char32_t code)
{
    const auto isWithin = [code](char32_t from, char32_t to) { return code >= from && code <= to; };
    return isWithin(0x00, 0x1F) || isWithin(0x7F, 0x9F) || // C0, delete, C1
           isWithin(0x200E, 0x200F) || isWithin(0x2028, 0x202E) || isWithin(0x2066, 0x2069);
}

std::string Cleaned(std::string_view text, std::string_view kept)
{
    std::string clean;
    while (!text.empty()) {
        const Character front = FrontOf(text);
        const size_t length = std::max<size_t>(front.length, 1);
        const bool isKept = kept.find(text[0]) != std::string_view::npos ||
                            (front.length != 0 && !SteersTerminal(front.code));
        clean += isKept ? text.substr(0, length) : "?";
        text.remove_prefix(length);
    }
    return clean;
}

} // namespace

std::string Printable(std::string_view text)
{
    return Cleaned(text, "");
}

std::string PrintableLines(std::string_view text)
{
    std::string lines(text);
    for (size_t at = lines.find("\r\n"); at != std::string::npos; at = lines.find("\r\n", at)) {
        lines.erase(at, 1);
    }
    return Cleaned(lines, "\n\t");
}

} // namespace consumer
