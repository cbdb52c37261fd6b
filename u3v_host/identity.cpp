#include "identity.h"

#include <algorithm>
#include <array>

namespace u3v_host {

namespace {

char Lower(char character)
{
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a')
                                                : character;
}

// Consumers write ids into texts of their own, where these two separate.
std::string WithoutSeparators(std::string_view text)
{
    std::string clean(text);
    std::ranges::replace_if(
        clean, [](char one) { return one == ':' || one == ';'; }, '_');
    return clean;
}

std::string_view WithoutBlanksAround(std::string_view text)
{
    const size_t first = text.find_first_not_of(' ');
    return first == std::string_view::npos
               ? std::string_view()
               : text.substr(first, text.find_last_not_of(' ') - first + 1);
}

} // namespace

std::string UsbPlace::Text() const
{
    std::string text = std::to_string(bus);
    char separator = '-';
    for (const uint8_t port : ports) {
        text += separator + std::to_string(port);
        separator = '.';
    }
    // Only a root hub has no port.
    return ports.empty() ? text + "-0." + std::to_string(address) : text;
}

UsbPlace PlaceOf(libusb_device* device)
{
    std::array<uint8_t, 7> ports{}; // as deep as USB goes
    const int depth = libusb_get_port_numbers(device, ports.data(), static_cast<int>(ports.size()));
    return {libusb_get_bus_number(device),
            {ports.begin(), ports.begin() + std::clamp(depth, 0, static_cast<int>(ports.size()))},
            libusb_get_device_address(device)};
}

bool IsSameId(std::string_view left, std::string_view right)
{
    return std::ranges::equal(left, right, {}, Lower, Lower);
}

std::string MakeId(std::string_view guid, std::string_view place,
                   std::span<const std::string> present)
{
    const std::string_view known = WithoutBlanksAround(guid);
    const std::string suffix = '@' + WithoutSeparators(place);
    std::string id = known.empty() ? "usb" + suffix : WithoutSeparators(known);
    while (std::ranges::any_of(present, [&id](const auto& one) { return IsSameId(one, id); })) {
        id += suffix;
    }
    return id;
}

} // namespace u3v_host
