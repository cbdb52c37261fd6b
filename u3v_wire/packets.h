#pragma once

#include "field.h"

// Packets of the control, event and streaming interface: where each field lies and which values the
// protocol words have. Sizes and offsets are bytes.

// Commands and acknowledges of the control interface.
namespace control_wire {

inline constexpr uint32_t kPrefix = 0x43563355; // "U3VC"

inline constexpr uint16_t kFlagRequestAck = 0x4000;
inline constexpr uint16_t kFlagResend = 0x8000;

inline constexpr uint16_t kReadCommand = 0x0800;
inline constexpr uint16_t kReadAck = 0x0801;
inline constexpr uint16_t kWriteCommand = 0x0802;
inline constexpr uint16_t kWriteAck = 0x0803;
inline constexpr uint16_t kPendingAck = 0x0805;

// Command. Its length field counts what follows the header.
inline constexpr Field<uint32_t> kCommandPrefix{0};
inline constexpr Field<uint16_t> kCommandFlags{4};
inline constexpr Field<uint16_t> kCommandId{6};
inline constexpr Field<uint16_t> kCommandLength{8};
inline constexpr Field<uint16_t> kCommandRequestId{10};
inline constexpr size_t kCommandHeaderSize = kCommandRequestId.End();
inline constexpr Field<uint64_t> kCommandAddress{12};
inline constexpr Field<uint16_t> kReadReserved{20};
inline constexpr Field<uint16_t> kReadLength{22};
inline constexpr size_t kReadCommandSize = kReadLength.End();
inline constexpr size_t kWriteDataOffset = kCommandAddress.End();

// Acknowledge. Its length field counts what follows the header.
inline constexpr Field<uint32_t> kAckPrefix{0};
inline constexpr Field<uint16_t> kAckStatus{4};
inline constexpr Field<uint16_t> kAckCommandId{6};
inline constexpr Field<uint16_t> kAckLength{8};
inline constexpr Field<uint16_t> kAckRequestId{10};
inline constexpr size_t kAckHeaderSize = kAckRequestId.End();
inline constexpr size_t kReadAckDataOffset = kAckHeaderSize;
inline constexpr Field<uint16_t> kBytesWritten{14};   // write acknowledge, where supported
inline constexpr Field<uint16_t> kPendingTimeout{14}; // pending acknowledge, ms
inline constexpr size_t kLongAckSize = 16;            // with bytes written, or pending

} // namespace control_wire

// Events of the camera: the header of a command with a prefix of its own, then items. There is one
// item in a packet unless the camera has the multi-event capability.
namespace event_wire {

inline constexpr uint32_t kPrefix = 0x45563355; // "U3VE"
inline constexpr uint16_t kEventCommand = 0x0C00;

inline constexpr Field<uint32_t> kPacketPrefix{0};
inline constexpr Field<uint16_t> kFlags{4};
inline constexpr Field<uint16_t> kCommandId{6};
inline constexpr Field<uint16_t> kLength{8}; // of all items
inline constexpr Field<uint16_t> kRequestId{10};
inline constexpr size_t kHeaderSize = kRequestId.End();

// Item.
inline constexpr Field<uint16_t> kItemSize{0}; // reserved without the multi-event capability
inline constexpr Field<uint16_t> kEventId{2};
inline constexpr Field<uint64_t> kTimestamp{4};
inline constexpr size_t kDataOffset = kTimestamp.End();

} // namespace event_wire

// What a block on the streaming interface carries, as its leader says.
namespace payload_type {

inline constexpr uint16_t kImage = 0x0001;
inline constexpr uint16_t kGenDC = 0x000B;
inline constexpr uint16_t kChunks = 0x4000; // chunks only
inline constexpr uint16_t kImageWithChunks = 0x4001;

} // namespace payload_type

// The leader of a block. The fields from kPixelFormat on are an image's.
namespace leader_wire {

inline constexpr uint32_t kMagicValue = 0x4C563355; // "U3VL"

inline constexpr Field<uint32_t> kMagic{0};
inline constexpr Field<uint16_t> kLeaderSize{6};
inline constexpr Field<uint64_t> kBlockId{8};
inline constexpr Field<uint16_t> kPayloadType{18};
inline constexpr Field<uint64_t> kTimestamp{20}; // ns
inline constexpr Field<uint32_t> kPixelFormat{28};
inline constexpr Field<uint32_t> kSizeX{32};
inline constexpr Field<uint32_t> kSizeY{36};
inline constexpr Field<uint32_t> kOffsetX{40};
inline constexpr Field<uint32_t> kOffsetY{44};
inline constexpr Field<uint16_t> kPaddingX{48};
inline constexpr size_t kImageSize = 52; // with two reserved bytes at the end

} // namespace leader_wire

// The trailer of a block.
namespace trailer_wire {

inline constexpr uint32_t kMagicValue = 0x54563355; // "U3VT"

inline constexpr Field<uint32_t> kMagic{0};
inline constexpr Field<uint16_t> kTrailerSize{6};
inline constexpr Field<uint64_t> kBlockId{8};
inline constexpr Field<uint16_t> kStatus{16}; // success, data discarded or data overrun
inline constexpr Field<uint64_t> kValidPayloadSize{20};
inline constexpr Field<uint32_t> kSizeY{28};
inline constexpr size_t kImageSize = kSizeY.End();
inline constexpr Field<uint32_t> kChunkLayoutId{32};
inline constexpr size_t kImageWithChunksSize = kChunkLayoutId.End();

} // namespace trailer_wire

// Behind the data of each chunk. Chunks are read from the end of the valid payload backwards.
namespace chunk_wire {

inline constexpr Field<uint32_t> kChunkId{0};
inline constexpr Field<uint32_t> kChunkLength{4}; // of the data in front
inline constexpr size_t kTrailerSize = kChunkLength.End();

} // namespace chunk_wire
