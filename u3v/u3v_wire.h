#pragma once

#include <algorithm>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <span>

// Packets of the USB3 Vision control and streaming protocols: where each field lies and which
// values the protocol words have. Everything on the wire is little-endian; nothing is ever cast to
// a struct, so neither alignment nor host byte order matter.

// A field of a packet: its width is its type.
template <std::unsigned_integral T>
struct Field
{
    size_t offset;
    constexpr size_t End() const { return offset + sizeof(T); }
};

// The field's value; a field that the packet is too short for reads as zero.
template <std::unsigned_integral T>
constexpr T Load(std::span<const uint8_t> packet, Field<T> field)
{
    if (packet.size() < field.End()) {
        return 0;
    }
    uint64_t value = 0;
    for (size_t i = sizeof(T); i > 0; --i) {
        value = value << 8U | packet[field.offset + i - 1];
    }
    return static_cast<T>(value);
}

// Stores a value; a field beyond the packet's end is left out.
template <std::unsigned_integral T>
constexpr void Store(std::span<uint8_t> packet, Field<T> field, T value)
{
    if (packet.size() < field.End()) {
        return;
    }
    uint64_t rest = value;
    for (size_t i = 0; i < sizeof(T); ++i) {
        packet[field.offset + i] = static_cast<uint8_t>(rest);
        rest >>= 8U;
    }
}

// Commands and acknowledges of the control channel.
namespace control_wire {

inline constexpr uint32_t kPrefix = 0x43563355; // "U3VC"
inline constexpr uint16_t kFlagRequestAck = 0x4000;

inline constexpr uint16_t kReadCommand = 0x0800;
inline constexpr uint16_t kReadAck = 0x0801;
inline constexpr uint16_t kWriteCommand = 0x0802;
inline constexpr uint16_t kWriteAck = 0x0803;
inline constexpr uint16_t kPendingAck = 0x0805;

// Command.
inline constexpr Field<uint32_t> kCommandPrefix{0};
inline constexpr Field<uint16_t> kCommandFlags{4};
inline constexpr Field<uint16_t> kCommandId{6};
inline constexpr Field<uint16_t> kCommandLength{8};
inline constexpr Field<uint16_t> kCommandRequestId{10};
inline constexpr Field<uint64_t> kCommandAddress{12};
inline constexpr Field<uint16_t> kReadReserved{20};
inline constexpr Field<uint16_t> kReadLength{22};
inline constexpr size_t kReadCommandSize = kReadLength.End();
inline constexpr size_t kWriteDataOffset = kCommandAddress.End();

// Acknowledge.
inline constexpr Field<uint32_t> kAckPrefix{0};
inline constexpr Field<uint16_t> kAckStatus{4};
inline constexpr Field<uint16_t> kAckCommandId{6};
inline constexpr Field<uint16_t> kAckLength{8};
inline constexpr Field<uint16_t> kAckRequestId{10};
inline constexpr Field<uint16_t> kPendingTimeout{14}; // ms
inline constexpr size_t kAckHeaderSize = kAckRequestId.End();
inline constexpr size_t kLongAckSize = 16; // with reserved and bytes written, or pending

// Sizes of the host's side: one buffer for every acknowledge, and the data that fits.
inline constexpr size_t kAckBufferSize = 1024;
inline constexpr size_t kMaximumRead = kAckBufferSize - kAckHeaderSize;
inline constexpr size_t kMaximumWrite = 1024;

} // namespace control_wire

// The leader of an image. Magic, leader size and payload type are on the wire too, but the receiver
// tells packets by their length alone.
namespace leader_wire {

inline constexpr Field<uint64_t> kBlockId{8};
inline constexpr Field<uint64_t> kTimestamp{20};
inline constexpr Field<uint32_t> kPixelFormat{28};
inline constexpr Field<uint32_t> kSizeX{32};
inline constexpr Field<uint32_t> kSizeY{36};
inline constexpr Field<uint32_t> kOffsetX{40};
inline constexpr Field<uint32_t> kOffsetY{44};
inline constexpr Field<uint16_t> kPaddingX{48};

} // namespace leader_wire

// The class-specific device information descriptor inside a configuration.
namespace device_info_wire {

inline constexpr size_t kTypeOffset = 1;
inline constexpr uint8_t kType = 0x24;
inline constexpr Field<uint32_t> kGenCPVersion{3};
inline constexpr Field<uint32_t> kU3VVersion{7};
inline constexpr Field<uint8_t> kDeviceGUID{11};
inline constexpr Field<uint8_t> kVendorName{12};
inline constexpr Field<uint8_t> kModelName{13};
inline constexpr Field<uint8_t> kFamilyName{14};
inline constexpr Field<uint8_t> kDeviceVersion{15};
inline constexpr Field<uint8_t> kManufacturerInfo{16};
inline constexpr Field<uint8_t> kSerialNumber{17};
inline constexpr Field<uint8_t> kUserDefinedName{18};
inline constexpr Field<uint8_t> kSpeedSupport{19};

} // namespace device_info_wire
