#pragma once

#include <concepts>
#include <cstdint>

// Camera registers that this layer reads and writes. A register's width is its type; the SBRM and
// SIRM tables hold offsets from a base that the camera names.

template <std::unsigned_integral T>
struct Register
{
    uint64_t address;

    // The same register in a block that begins at `base`. A hostile base only wraps around.
    constexpr Register At(uint64_t base) const { return {base + address}; }
};

// Technology-agnostic bootstrap registers, at address 0.
namespace abrm {
inline constexpr Register<uint64_t> kDeviceCapability{0x1C4};
inline constexpr Register<uint64_t> kMaximumDeviceResponseTime{0x1CC}; // low half: ms
inline constexpr Register<uint64_t> kSbrmAddress{0x1D8};
inline constexpr Register<uint64_t> kDeviceConfiguration{0x1E0};
} // namespace abrm

// Technology-specific bootstrap registers.
namespace sbrm {
inline constexpr Register<uint64_t> kU3VCPCapability{0x04};
inline constexpr Register<uint32_t> kMaximumCommandTransfer{0x14};
inline constexpr Register<uint32_t> kMaximumAcknowledgeTransfer{0x18};
inline constexpr Register<uint32_t> kNumberOfStreamChannels{0x1C};
inline constexpr Register<uint64_t> kSirmAddress{0x20};
inline constexpr Register<uint32_t> kSirmLength{0x28};
inline constexpr uint64_t kSirmAvailable = 1; // bit of kU3VCPCapability
} // namespace sbrm

// Streaming interface registers.
namespace sirm {
inline constexpr Register<uint32_t> kInfo{0x00}; // bits 24..31: alignment exponent
inline constexpr Register<uint32_t> kControl{0x04};
inline constexpr Register<uint64_t> kRequiredPayloadSize{0x08};
inline constexpr Register<uint32_t> kRequiredLeaderSize{0x10};
inline constexpr Register<uint32_t> kRequiredTrailerSize{0x14};
inline constexpr Register<uint32_t> kMaximumLeaderSize{0x18};
inline constexpr Register<uint32_t> kPayloadTransferSize{0x1C};
inline constexpr Register<uint32_t> kPayloadTransferCount{0x20};
inline constexpr Register<uint32_t> kFinalTransfer1Size{0x24};
inline constexpr Register<uint32_t> kFinalTransfer2Size{0x28};
inline constexpr Register<uint32_t> kMaximumTrailerSize{0x2C};
inline constexpr uint32_t kStreamEnable = 1; // bit of kControl
inline constexpr unsigned kAlignmentShift = 24;
} // namespace sirm

// The camera's own register that starts (1) and stops (0) its sensor.
inline constexpr Register<uint32_t> kCameraAcquisition{0x50014};
