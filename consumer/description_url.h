#pragma once

#include <cstdint>

#include "producer.h"

namespace consumer {

// Far above any real description file; a camera that names more bytes is broken or hostile.
inline constexpr uint64_t kLongestDescription = 64U << 20U;

// The parts of "local:<name>;<address>;<length>", both numbers hexadecimal, or of "file:///<path>".
struct DescriptionUrl
{
    std::string scheme;
    std::string name; // SafeFileName of the name in it
    std::string path; // of a file only: the decoded path
    uint64_t address = 0;
    uint64_t length = 0;
};

// Throws Error for any other text, and for a length beyond what a description can have. The camera
// chooses the name and may write what it likes into it, semicolons included.
DescriptionUrl ParseDescriptionUrl(const std::string& url);

// What is left of a name that a camera has chosen, for the name of a file: of its last component
// the letters, digits, '.', '_' and '-' of ASCII, everything else as '_'; nothing hidden and no
// option (no '.' or '-' in front), at most 128 characters, the last ones. Empty when nothing is
// left.
std::string SafeFileName(const std::string& name);

// The first URL of a port. Throws GenTLError.
std::string FirstUrl(const Producer& producer, PORT_HANDLE port);

} // namespace consumer
