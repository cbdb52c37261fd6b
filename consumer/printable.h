#pragma once

#include <string>
#include <string_view>

namespace consumer {

// The text without control characters: what cameras call themselves goes to terminals.
std::string Printable(std::string_view text);

} // namespace consumer
