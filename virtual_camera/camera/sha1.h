// SHA-1, which the manifest table carries for every description file.
#ifndef VCAM_SHA1_H
#define VCAM_SHA1_H

#include <array>
#include <cstdint>
#include <span>

namespace vcam {

std::array<std::uint8_t, 20> Sha1(std::span<const std::uint8_t> data);

} // namespace vcam

#endif
