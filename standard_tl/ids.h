#pragma once

#include <algorithm>
#include <string_view>

namespace standard_tl {

// Ids are compared without regard to case (of ASCII letters).
inline bool AreSameIds(std::string_view left, std::string_view right)
{
    const auto lower = [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    };
    return std::ranges::equal(left, right, {}, lower, lower);
}

} // namespace standard_tl
