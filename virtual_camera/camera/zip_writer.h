// A zip archive with one deflated member, as cameras serve their description file.
#ifndef VCAM_ZIP_WRITER_H
#define VCAM_ZIP_WRITER_H

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace vcam {

std::uint32_t Crc32(std::span<const std::uint8_t> data);

// A raw deflate stream: one block with the fixed codes.
std::vector<std::uint8_t> Deflate(std::span<const std::uint8_t> data);

std::vector<std::uint8_t> ZipArchive(const std::string& member, std::span<const std::uint8_t> data);

} // namespace vcam

#endif
