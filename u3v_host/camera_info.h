#pragma once

#include <cstdint>
#include <string>

namespace u3v_host {

// What is known of a listed camera. All texts are UTF-8 without control characters; what a camera
// does not tell is empty.
struct CameraInfo
{
    std::string id; // unique on the bus, stays while the camera is plugged in
    std::string vendor;
    std::string model;
    std::string family;
    std::string version;
    std::string manufacturerInfo;
    std::string serial;
    std::string userDefinedName;

    // "vendor model (serial)", with the user-defined name instead of the serial where there is one.
    std::string DisplayName() const;

    bool operator==(const CameraInfo&) const = default;
};

// Whether a camera can be opened, asked afresh. The values are what the modules above answer.
enum class AccessStatus : int32_t
{
    Unknown = 0,
    ReadWrite = 1,
    NoAccess = 3,      // no permission
    Busy = 4,          // another process has claimed the control interface
    OpenReadWrite = 5, // in this process
    OpenReadOnly = 6,
};

enum class OpenMode : uint8_t
{
    ReadWrite,
    ReadOnly,
};

} // namespace u3v_host
