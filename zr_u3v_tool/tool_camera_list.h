#pragma once

#include <string>
#include <vector>

#include "tool_consumer.h"

// One camera as the producer lists it. Strings are the camera's own and not yet fit for a terminal.
struct CameraRecord
{
    std::string id; // the GUID; empty for a camera that could not be opened to ask it
    std::string vendor;
    std::string model;
    std::string serial;
    std::string userName;
    std::string displayName;
    std::string version;
    std::string tlType;
    DEVICE_ACCESS_STATUS access = DEVICE_ACCESS_STATUS_UNKNOWN;
};

// "read/write", "no access", ...
const char* AccessName(DEVICE_ACCESS_STATUS access);

// The cameras of a session as of its last update.
std::vector<CameraRecord> ListCameras(const Session& session);

// The camera whose GUID, serial number or user name is `wanted`, or "#n" for the n-th of the list;
// without a wish the only one. Throws ToolError (NoCamera).
CameraRecord SelectCamera(const Session& session, const std::string& wanted);
