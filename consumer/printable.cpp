#include "printable.h"

namespace consumer {

std::string Printable(std::string_view text)
{
    std::string clean;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        clean += byte < 0x20 || byte == 0x7F ? '?' : c;
    }
    return clean;
}

} // namespace consumer
