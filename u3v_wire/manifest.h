#pragma once

#include "field.h"

#include <algorithm>
#include <array>

// The manifest table: the number of entries, then one entry for each of the camera's files.
namespace manifest_wire {

inline constexpr Field<uint64_t> kEntryCount{0};
inline constexpr size_t kEntriesOffset = kEntryCount.End();
inline constexpr size_t kEntrySize = 64;

// Entry.
inline constexpr Field<uint16_t> kFileVersionSubMinor{0};
inline constexpr Field<uint8_t> kFileVersionMinor{2};
inline constexpr Field<uint8_t> kFileVersionMajor{3};
inline constexpr Field<uint32_t> kSchema{4};
inline constexpr Field<uint64_t> kRegisterAddress{8};
inline constexpr Field<uint64_t> kFileSize{16};
inline constexpr size_t kSha1Offset = 24;
inline constexpr size_t kSha1Size = 20;

// Parts of kSchema.
inline constexpr uint32_t kFileTypeMask = 0x7;
inline constexpr unsigned kFileFormatShift = 10;
inline constexpr uint32_t kFileFormatMask = 0x3F;
inline constexpr unsigned kSchemaMinorShift = 16;
inline constexpr unsigned kSchemaMajorShift = 24;

inline constexpr uint8_t kDeviceDescription = 0; // file type
inline constexpr uint8_t kPlainXml = 0;          // file format
inline constexpr uint8_t kZippedXml = 1;         // file format

} // namespace manifest_wire

// One file of the manifest, as the camera describes it: nothing in it has been checked.
struct ManifestEntry
{
    uint8_t fileVersionMajor;
    uint8_t fileVersionMinor;
    uint16_t fileVersionSubMinor;
    uint8_t fileType;
    uint8_t fileFormat;
    uint8_t schemaMajor;
    uint8_t schemaMinor;
    uint64_t registerAddress;
    uint64_t fileSize;
    std::array<uint8_t, manifest_wire::kSha1Size> sha1; // all zero where the camera names none
};

constexpr ManifestEntry
ParseManifestEntry(std::span<const uint8_t, manifest_wire::kEntrySize> bytes)
{
    namespace wire = manifest_wire;
    const uint32_t schema = Load<uint32_t>(bytes, wire::kSchema);
    ManifestEntry entry{};
    entry.fileVersionMajor = Load(bytes, wire::kFileVersionMajor);
    entry.fileVersionMinor = Load(bytes, wire::kFileVersionMinor);
    entry.fileVersionSubMinor = Load(bytes, wire::kFileVersionSubMinor);
    entry.fileType = static_cast<uint8_t>(schema & wire::kFileTypeMask);
    entry.fileFormat =
        static_cast<uint8_t>(schema >> wire::kFileFormatShift & wire::kFileFormatMask);
    entry.schemaMajor = static_cast<uint8_t>(schema >> wire::kSchemaMajorShift);
    entry.schemaMinor = static_cast<uint8_t>(schema >> wire::kSchemaMinorShift);
    entry.registerAddress = Load(bytes, wire::kRegisterAddress);
    entry.fileSize = Load(bytes, wire::kFileSize);
    std::ranges::copy(bytes.subspan(wire::kSha1Offset, wire::kSha1Size), entry.sha1.begin());
    return entry;
}
