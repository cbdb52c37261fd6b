#pragma once

#include <string>
#include <string_view>

namespace consumer {

// What cameras call themselves goes to terminals: the text with '?' for every control character
// (C0, C1, delete), for what breaks lines or turns the direction of writing, and for every byte
// that is no UTF-8.
std::string Printable(std::string_view text);
// The same for texts of several lines: line feeds and tabs stay, and a carriage return in front of
// a line feed goes.
std::string PrintableLines(std::string_view text);

} // namespace consumer
