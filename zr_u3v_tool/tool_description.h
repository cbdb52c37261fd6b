#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tool_consumer.h"

// A description document of a port: where it is and what it holds.
struct Description
{
    std::string url;
    std::string name;      // SafeFileName of the name in the URL
    std::string contents;  // as it lies there, possibly a zip archive
    uint64_t address = 0;  // 0 for a file on the disk
    bool isZipped = false; // by the archive's own mark, whatever the name says
};

// The parts of "local:<name>;<address>;<length>", both numbers hexadecimal, or of "file:///<path>".
struct DescriptionUrl
{
    std::string scheme;
    std::string name; // SafeFileName of the name in it
    std::string path; // of a file only: the decoded path
    uint64_t address = 0;
    uint64_t length = 0;
};

// Throws ToolError for any other text, and for a length beyond what a description can have. The
// camera chooses the name and may write what it likes into it, semicolons included.
DescriptionUrl ParseDescriptionUrl(const std::string& url);

// What is left of a name that a camera has chosen, for the name of a file: of its last component
// the letters, digits, '.', '_' and '-' of ASCII, everything else as '_'; nothing hidden and no
// option (no '.' or '-' in front), at most 128 characters, the last ones. Empty when nothing is
// left.
std::string SafeFileName(const std::string& name);

// The first URL of a port.
std::string DescriptionUrlOf(const Producer& api, PORT_HANDLE port);
// Reads the document behind the first URL of a port.
Description FetchDescription(const Producer& api, PORT_HANDLE port);

bool IsZipArchive(const std::string& contents);
// The first file of the archive. Throws ToolError when it is damaged or unreasonably large.
std::string Unzip(const std::string& archive);
