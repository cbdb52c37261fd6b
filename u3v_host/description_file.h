#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

namespace u3v_host {

// One device description file of the camera's manifest.
struct DescriptionFile
{
    std::string name; // letters, digits, '_', '-', '.', with its ending ".xml" or ".zip"
    uint64_t address;
    uint64_t size;
    bool zipped;
    uint8_t schemaMajor;
    uint8_t schemaMinor;
    uint8_t fileMajor;
    uint8_t fileMinor;
    uint16_t fileSubMinor;
    std::optional<std::array<uint8_t, 20>> sha1; // where the manifest has one
};

} // namespace u3v_host
