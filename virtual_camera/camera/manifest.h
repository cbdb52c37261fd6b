// The list of description files that a camera offers, and its text form.
#ifndef VCAM_MANIFEST_H
#define VCAM_MANIFEST_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vcam {

struct FileVersion
{
    std::uint8_t major = 1;
    std::uint8_t minor = 0;
    std::uint16_t subMinor = 0;
};

struct ManifestEntry
{
    FileVersion schema{1, 1, 0};
    FileVersion file;
    bool zip = false;
    bool hash = true;
    // What makes no sense, by name.
    bool wrongHash = false;
    bool empty = false;       // size 0
    bool huge = false;        // a size that no host can want
    bool nowhere = false;     // an address outside of the memory
    bool wrongType = false;   // no device description
    bool wrongFormat = false; // neither plain nor zip
};

// "SCHEMA[/FILE][/word ...]" joined by '+': "1.1/2.0.3/zip+1.0/1.0.0". Words: zip, no-hash,
// wrong-hash, empty, huge, nowhere, wrong-type, wrong-format. Nothing when the text is not of this
// form; no entry for the word "none".
std::optional<std::vector<ManifestEntry>> ParseManifest(std::string_view text);

} // namespace vcam

#endif
