#pragma once

// What the producer says of itself.
namespace Producer {
inline constexpr const char* kId = "ZrGenTLU3V";
inline constexpr const char* kVendor = "ZRK-ORVANE GmbH";
inline constexpr const char* kModel = "U3VTL";
inline constexpr const char* kVersion = ZR_EXACT_VERSION;
inline constexpr const char* kTLType = "U3V";
inline constexpr const char* kFileName = "zr_u3v_tl.cti";
inline constexpr const char* kDisplayName = "ZRK-ORVANE U3VTL";
inline constexpr int kGenTLMajor = 1;
inline constexpr int kGenTLMinor = 3;

inline constexpr const char* kInterfaceId = "ZRK-USB-3-IF ID";
inline constexpr const char* kInterfaceDisplayName = "ZRK-USB-3-IF";
} // namespace Producer
