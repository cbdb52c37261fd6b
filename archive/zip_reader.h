#pragma once

#include <cstdint>
#include <span>
#include <vector>

// How reading an archive ended.
enum class ZipResult
{
    Extracted,
    NoArchive, // these bytes are none
    NoMember,  // it is empty
    Damaged,   // the first member cannot be extracted, or claims a size that cannot be
};

// Extracts the first member of a zip archive that lies in memory. Every byte of `archive` may be
// hostile. `content` is touched only by success, and is at most 256 MiB then. Allocation failure is
// std::bad_alloc.
ZipResult ExtractFirstMember(std::span<const uint8_t> archive, std::vector<uint8_t>& content);
