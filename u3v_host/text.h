#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace u3v_host {

// Texts as cameras and kernel give them, made safe to show: valid UTF-8, what is not becomes
// U+FFFD; control characters (C0, DEL, C1) become blanks. Each ends at the first zero.
std::string CleanUtf8(std::span<const uint8_t> bytes);
std::string CleanUtf8(std::string_view text);
std::string
CleanUtf16(std::span<const uint8_t> bytes); // little-endian; a last odd byte is left out

// The text with everything but letters, digits, '_', '-' and '.' made '_', and no '.' in front.
std::string FileNameText(std::string_view text);

// "0x", then upper-case digits, at least so many.
std::string HexText(uint64_t value, unsigned digits = 1);

} // namespace u3v_host
