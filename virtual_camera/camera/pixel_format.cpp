#include "pixel_format.h"

#include <algorithm>
#include <iterator>

namespace vcam {

namespace {

constexpr PixelFormat kFormats[] = {
    {"Mono8", 0x01080001},    {"Mono10", 0x01100003},   {"Mono12", 0x01100005},
    {"Mono12p", 0x010C0047},  {"Mono16", 0x01100007},   {"BayerGR8", 0x01080008},
    {"BayerRG8", 0x01080009}, {"BayerGB8", 0x0108000A}, {"BayerBG8", 0x0108000B},
    {"RGB8", 0x02180014},     {"BGR8", 0x02180015},     {"YUV422_8", 0x02100032},
};

template <typename Predicate>
const PixelFormat* FindIf(Predicate matches)
{
    const auto* found = std::find_if(std::begin(kFormats), std::end(kFormats), matches);
    return found == std::end(kFormats) ? nullptr : found;
}

} // namespace

std::span<const PixelFormat> PixelFormats()
{
    return kFormats;
}

const PixelFormat* FindPixelFormat(std::string_view name)
{
    return FindIf([name](const PixelFormat& format) { return name == format.name; });
}

const PixelFormat* FindPixelFormat(std::uint32_t code)
{
    return FindIf([code](const PixelFormat& format) { return code == format.code; });
}

std::size_t ImageBytes(const PixelFormat& format, std::uint32_t width, std::uint32_t height)
{
    return (std::size_t{width} * height * format.BitsPerPixel() + 7) / 8;
}

} // namespace vcam
