#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>

// Registers that every USB3 Vision camera has. A register's width is its type. The ABRM lies at
// address 0; SBRM, SIRM and EIRM are offsets from a base that the camera names.

template <std::unsigned_integral T>
struct Register
{
    uint64_t address;

    // The same register in a block that begins at `base`. A hostile base only wraps around.
    constexpr Register At(uint64_t base) const { return {base + address}; }
};

// A text of fixed size, ended by a zero where it is shorter.
struct TextRegister
{
    uint64_t address;
    static constexpr size_t kSize = 64;
};

// Technology-agnostic bootstrap registers.
namespace abrm {

inline constexpr Register<uint32_t> kGenCPVersion{0x000}; // major << 16 | minor
inline constexpr TextRegister kManufacturerName{0x004};
inline constexpr TextRegister kModelName{0x044};
inline constexpr TextRegister kFamilyName{0x084};
inline constexpr TextRegister kDeviceVersion{0x0C4};
inline constexpr TextRegister kManufacturerInfo{0x104};
inline constexpr TextRegister kSerialNumber{0x144};
inline constexpr TextRegister kUserDefinedName{0x184}; // can be written
inline constexpr Register<uint64_t> kDeviceCapability{0x1C4};
inline constexpr Register<uint32_t> kMaximumDeviceResponseTime{0x1CC}; // ms
inline constexpr Register<uint64_t> kManifestTableAddress{0x1D0};
inline constexpr Register<uint64_t> kSbrmAddress{0x1D8};
inline constexpr Register<uint64_t> kDeviceConfiguration{0x1E0}; // can be written
inline constexpr Register<uint32_t> kHeartbeatTimeout{0x1E8};
inline constexpr Register<uint32_t> kMessageChannelId{0x1EC};
inline constexpr Register<uint64_t> kTimestamp{0x1F0};
inline constexpr Register<uint32_t> kTimestampLatch{0x1F8};
inline constexpr Register<uint64_t> kTimestampIncrement{0x1FC};
inline constexpr Register<uint32_t> kAccessPrivilege{0x204};
inline constexpr Register<uint32_t> kProtocolEndianness{0x208};
inline constexpr Register<uint32_t> kImplementationEndianness{0x20C};

// Bits of kDeviceCapability.
inline constexpr uint64_t kHasUserDefinedName = 1U << 0U;
inline constexpr uint64_t kHasAccessPrivilege = 1U << 1U;
inline constexpr uint64_t kHasMessageChannel = 1U << 2U;
inline constexpr uint64_t kHasTimestamp = 1U << 3U;
inline constexpr unsigned kStringEncodingShift = 4; // four bits: 0 ASCII, 1 UTF-8, 2 UTF-16
inline constexpr uint64_t kStringEncodingMask = 0xF;
inline constexpr uint64_t kHasFamilyName = 1U << 8U;
inline constexpr uint64_t kHasSbrm = 1U << 9U;
inline constexpr uint64_t kHasEndianness = 1U << 10U;
inline constexpr uint64_t kHasWrittenLength = 1U << 11U;
inline constexpr uint64_t kHasMultiEvent = 1U << 12U;

} // namespace abrm

// Technology-specific bootstrap registers.
namespace sbrm {

inline constexpr Register<uint32_t> kU3VVersion{0x00}; // major << 16 | minor
inline constexpr Register<uint64_t> kU3VCPCapability{0x04};
inline constexpr Register<uint64_t> kU3VCPConfiguration{0x0C};
inline constexpr Register<uint32_t> kMaximumCommandTransfer{0x14};
inline constexpr Register<uint32_t> kMaximumAcknowledgeTransfer{0x18};
inline constexpr Register<uint32_t> kNumberOfStreamChannels{0x1C};
inline constexpr Register<uint64_t> kSirmAddress{0x20};
inline constexpr Register<uint32_t> kSirmLength{0x28};
inline constexpr Register<uint64_t> kEirmAddress{0x2C};
inline constexpr Register<uint32_t> kEirmLength{0x34};
inline constexpr Register<uint64_t> kIidc2Address{0x38};
inline constexpr Register<uint32_t> kCurrentSpeed{0x40};

// Bits of kU3VCPCapability.
inline constexpr uint64_t kSirmAvailable = 1U << 0U;
inline constexpr uint64_t kEirmAvailable = 1U << 1U;
inline constexpr uint64_t kIidc2Available = 1U << 2U;

// Bits of kCurrentSpeed.
inline constexpr uint32_t kHighSpeed = 1U << 2U;
inline constexpr uint32_t kSuperSpeed = 1U << 3U;

} // namespace sbrm

// Streaming interface registers. Those from kMaximumLeaderSize on are programmed by the host and
// locked while the stream is enabled.
namespace sirm {

inline constexpr Register<uint32_t> kInfo{0x00};
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

inline constexpr unsigned kAlignmentShift = 24;     // kInfo, bits 24..31: a power of two
inline constexpr uint32_t kStreamEnable = 1U << 0U; // bit of kControl

} // namespace sirm

// Event interface registers.
namespace eirm {

inline constexpr Register<uint32_t> kControl{0x00};
inline constexpr Register<uint32_t> kMaximumEventTransferLength{0x04};
inline constexpr Register<uint32_t> kEventTestControl{0x08};

inline constexpr uint32_t kEventEnable = 1U << 0U; // bit of kControl

} // namespace eirm
