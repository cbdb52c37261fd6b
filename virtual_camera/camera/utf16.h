// UTF-8 as UTF-16, which string descriptors are written in.
#ifndef VCAM_UTF16_H
#define VCAM_UTF16_H

#include <string>
#include <string_view>

namespace vcam {

// A byte that is no UTF-8 stands for itself, so that a text can be spoilt byte by byte.
std::u16string ToUtf16(std::string_view text);

} // namespace vcam

#endif
