#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "description_url.h"
#include "tool_consumer.h"

// A description document of a port: where it is and what it holds.
struct Description
{
    std::string url;
    std::string name;      // consumer::SafeFileName of the name in the URL
    std::string contents;  // as it lies there, possibly a zip archive
    uint64_t address = 0;  // 0 for a file on the disk
    bool isZipped = false; // by the archive's own mark, whatever the name says
};

// Reads the document behind the first URL of a port.
Description FetchDescription(const Producer& api, PORT_HANDLE port);

bool IsZipArchive(const std::string& contents);
// The first file of the archive. Throws ToolError when it is damaged or unreasonably large.
std::string Unzip(const std::string& archive);
