#include "description_url.h"

#include <algorithm>
#include <charconv>
#include <string_view>

#include "printable.h"

namespace consumer {

namespace {

[[noreturn]] void RefuseUrl(const std::string& url)
{
    throw Error("unexpected URL " + Printable(url));
}

// Nothing but digits: "0x10" and " 10" are no addresses of a URL.
uint64_t Hexadecimal(const std::string& digits, const std::string& url)
{
    uint64_t value = 0;
    const char* const end = digits.data() + digits.size();
    const auto result = std::from_chars(digits.data(), end, value, 16);
    if (result.ec != std::errc() || result.ptr != end) {
        RefuseUrl(url);
    }
    return value;
}

// A per cent sign that no two digits follow stands for itself.
std::string PercentDecoded(const std::string& text)
{
    std::string decoded;
    for (size_t i = 0; i < text.size(); i++) {
        unsigned value = 0;
        if (text[i] == '%' && i + 2 < text.size() &&
            std::from_chars(&text[i + 1], &text[i + 3], value, 16).ptr == &text[i + 3]) {
            decoded += static_cast<char>(value);
            i += 2;
        } else {
            decoded += text[i];
        }
    }
    return decoded;
}

DescriptionUrl ParseFileUrl(const std::string& url)
{
    DescriptionUrl parsed;
    parsed.scheme = "file";
    parsed.path = PercentDecoded(url.substr(std::string_view("file:///").size()));
    // Both "file:////a/b" and "file:///a/b" are met in the field.
    parsed.path.insert(0, parsed.path.starts_with('/') ? "" : "/");
    parsed.name = SafeFileName(parsed.path);
    return parsed;
}

// Split from the back: behind the name nothing comes from the camera.
DescriptionUrl ParseLocalUrl(const std::string& url)
{
    constexpr size_t kName = std::string_view("local:").size();
    const size_t length = url.rfind(';');
    const size_t address = length == std::string::npos ? length : url.rfind(';', length - 1);
    if (address == std::string::npos || address < kName) {
        RefuseUrl(url);
    }
    DescriptionUrl parsed;
    parsed.scheme = "local";
    parsed.name = SafeFileName(PercentDecoded(url.substr(kName, address - kName)));
    parsed.address = Hexadecimal(url.substr(address + 1, length - address - 1), url);
    parsed.length = Hexadecimal(url.substr(length + 1, url.find('?', length) - length - 1), url);
    if (parsed.length > kLongestDescription) {
        throw Error("the description file is said to have " + std::to_string(parsed.length) +
                    " bytes");
    }
    return parsed;
}

} // namespace

std::string SafeFileName(const std::string& name)
{
    constexpr size_t kMaximum = 128;
    constexpr std::string_view kHarmless = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"
                                           "0123456789._-";
    std::string safe = name.substr(name.find_last_of("/\\") + 1);
    std::replace_if(
        safe.begin(), safe.end(),
        [&](char c) { return kHarmless.find(c) == std::string_view::npos; }, '_');
    safe.erase(0, safe.size() - std::min(safe.size(), kMaximum));
    return safe.erase(0, std::min(safe.size(), safe.find_first_not_of(".-")));
}

DescriptionUrl ParseDescriptionUrl(const std::string& url)
{
    if (url.starts_with("file:///")) {
        return ParseFileUrl(url);
    }
    if (url.starts_with("local:")) {
        return ParseLocalUrl(url);
    }
    RefuseUrl(url);
}

std::string FirstUrl(const Producer& producer, PORT_HANDLE port)
{
    return producer.Text("GCGetPortURLInfo", [&](INFO_DATATYPE* type, void* text, size_t* size) {
        return producer.GCGetPortURLInfo(port, 0, URL_INFO_URL, type, text, size);
    });
}

} // namespace consumer
