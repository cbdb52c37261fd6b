#include "text.h"

#include <array>
#include <cstdio>
#include <optional>

namespace u3v_host {

namespace {

constexpr char32_t kReplacement = 0xFFFD;
constexpr char32_t kLargest = 0x10FFFF;

constexpr bool IsSurrogate(char32_t character)
{
    return character >= 0xD800 && character <= 0xDFFF;
}

constexpr bool IsControl(char32_t character)
{
    return character < 0x20 || (character >= 0x7F && character <= 0x9F);
}

void AppendTail(std::string& text, char32_t character, unsigned shift)
{
    for (;; shift -= 6) {
        text += static_cast<char>(0x80U | (character >> shift & 0x3FU));
        if (shift == 0) {
            return;
        }
    }
}

void Append(std::string& text, char32_t character)
{
    if (IsControl(character)) {
        text += ' ';
    } else if (character < 0x80) {
        text += static_cast<char>(character);
    } else if (character < 0x800) {
        text += static_cast<char>(0xC0U | character >> 6U);
        AppendTail(text, character, 0);
    } else if (character < 0x10000) {
        text += static_cast<char>(0xE0U | character >> 12U);
        AppendTail(text, character, 6);
    } else {
        text += static_cast<char>(0xF0U | character >> 18U);
        AppendTail(text, character, 12);
    }
}

struct Form // of a UTF-8 sequence, by its first byte
{
    uint8_t mask;
    uint8_t lead;
    size_t length;
    char32_t smallest; // what is below it has a shorter form
};
constexpr std::array<Form, 4> kForms{
    {{0x80, 0x00, 1, 0}, {0xE0, 0xC0, 2, 0x80}, {0xF0, 0xE0, 3, 0x800}, {0xF8, 0xF0, 4, 0x10000}}};

// The sequence's value; nothing when the bytes are not of that form.
std::optional<char32_t> Decode(std::span<const uint8_t> bytes, const Form& form)
{
    if ((bytes[0] & form.mask) != form.lead || bytes.size() < form.length) {
        return std::nullopt;
    }
    char32_t value = bytes[0] & static_cast<uint8_t>(~form.mask);
    for (size_t i = 1; i < form.length; ++i) {
        if ((bytes[i] & 0xC0U) != 0x80U) {
            return std::nullopt;
        }
        value = value << 6U | (bytes[i] & 0x3FU);
    }
    if (value < form.smallest || value > kLargest || IsSurrogate(value)) {
        return std::nullopt;
    }
    return value;
}

// The first character, and how many bytes it takes: one where they are no UTF-8.
char32_t DecodeFirst(std::span<const uint8_t> bytes, size_t& taken)
{
    for (const Form& form : kForms) {
        if (const auto value = Decode(bytes, form)) {
            taken = form.length;
            return *value;
        }
    }
    taken = 1;
    return kReplacement;
}

char32_t Unit(std::span<const uint8_t> bytes, size_t index)
{
    return static_cast<char32_t>(bytes[2 * index] | bytes[2 * index + 1] << 8U);
}

constexpr bool IsPair(char32_t high, char32_t low)
{
    return high >= 0xD800 && high <= 0xDBFF && low >= 0xDC00 && low <= 0xDFFF;
}

bool IsFileNameCharacter(char character)
{
    return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
           (character >= '0' && character <= '9') || character == '_' || character == '-' ||
           character == '.';
}

} // namespace

std::string CleanUtf8(std::span<const uint8_t> bytes)
{
    std::string text;
    size_t taken = 0;
    for (size_t at = 0; at < bytes.size() && bytes[at] != 0; at += taken) {
        Append(text, DecodeFirst(bytes.subspan(at), taken));
    }
    return text;
}

std::string CleanUtf8(std::string_view text)
{
    return CleanUtf8({reinterpret_cast<const uint8_t*>(text.data()), text.size()});
}

std::string CleanUtf16(std::span<const uint8_t> bytes)
{
    std::string text;
    const size_t units = bytes.size() / 2;
    for (size_t i = 0; i < units && Unit(bytes, i) != 0; ++i) {
        const char32_t unit = Unit(bytes, i);
        if (i + 1 < units && IsPair(unit, Unit(bytes, i + 1))) {
            ++i;
            Append(text, 0x10000 + ((unit - 0xD800) << 10U) + (Unit(bytes, i) - 0xDC00));
        } else {
            Append(text, IsSurrogate(unit) ? kReplacement : unit);
        }
    }
    return text;
}

std::string FileNameText(std::string_view text)
{
    std::string name;
    for (const char character : text) {
        name +=
            IsFileNameCharacter(character) && !(name.empty() && character == '.') ? character : '_';
    }
    return name;
}

std::string HexText(uint64_t value, unsigned digits)
{
    std::array<char, 24> text{};
    std::snprintf(text.data(), text.size(), "0x%0*llX", static_cast<int>(digits),
                  static_cast<unsigned long long>(value));
    return text.data();
}

} // namespace u3v_host
