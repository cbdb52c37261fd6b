#pragma once

#include <cstddef>
#include <cstdint>

// Camera memory as the remote device reads it: USB3 Vision bootstrap registers (ABRM) and the
// manifest table.

namespace Abrm {
inline constexpr uint64_t kUserDefinedName = 0x184;
inline constexpr uint64_t kManifestTableAddress = 0x1D0;
inline constexpr uint64_t kAccessPrivilege = 0x204;
// Read in one piece from the user-defined name on; the text ends at its first zero.
inline constexpr size_t kUserDefinedNameReadLength = 512;
} // namespace Abrm

#pragma pack(push, 1)

// One file of the manifest.
struct ManifestEntry
{
    uint32_t fileVersion;
    uint32_t fileFormat;
    uint64_t registerAddress;
    uint64_t fileSize;
    uint8_t sha1[20];
    uint8_t reserved[20];
};
static_assert(sizeof(ManifestEntry) == 64);
static_assert(offsetof(ManifestEntry, fileFormat) == 4);
static_assert(offsetof(ManifestEntry, registerAddress) == 8);
static_assert(offsetof(ManifestEntry, fileSize) == 16);

// The start of the manifest table: the number of entries and the first of them.
struct ManifestTableHead
{
    uint64_t entryCount;
    ManifestEntry firstEntry;
};
static_assert(sizeof(ManifestTableHead) == 72);

#pragma pack(pop)

// Bit of ManifestEntry::fileFormat.
inline constexpr uint32_t kManifestFormatZip = 1u << 10;

// Camera memory is little-endian, and so is every machine this library is built for.
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__);
