#pragma once

#include <string>

namespace standard_tl::producer {

// What the producer says of itself. No id holds ':' or ';', which part the words of a URL.
inline constexpr const char* kId = "ZRK-U3V-STANDARD";
inline constexpr const char* kVendor = "ZRK-ORVANE GmbH";
inline constexpr const char* kModel = "U3V Standard";
inline constexpr const char* kDisplayName = "ZRK-ORVANE USB3 Vision";
inline constexpr const char* kVersion = ZR_STANDARD_VERSION;
inline constexpr const char* kTlType = "U3V";

inline constexpr unsigned kGenTlMajor = 1;
inline constexpr unsigned kGenTlMinor = 6;
inline constexpr unsigned kSfncMajor = 1;
inline constexpr unsigned kSfncMinor = 1;
inline constexpr unsigned kSfncSubMinor = 1;

inline constexpr const char* kInterfaceId = "ZRK-USB";
inline constexpr const char* kInterfaceDisplayName = "USB";

// The file that the process has loaded: absolute, and under the name by which it was asked for.
// Lives for ever.
const char* FilePath();
const char* FileName();

} // namespace standard_tl::producer
