#include "packets.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vector>

// Every packet is written out byte by byte, so that a field at a wrong place cannot hide behind a
// store and a load that agree.

namespace {

using Bytes = std::vector<uint8_t>;

TEST(ControlWire, ReadCommand_StandsByteByByte)
{
    namespace wire = control_wire;
    Bytes packet(wire::kReadCommandSize);
    Store(packet, wire::kCommandPrefix, wire::kPrefix);
    Store(packet, wire::kCommandFlags, wire::kFlagRequestAck);
    Store(packet, wire::kCommandId, wire::kReadCommand);
    Store(packet, wire::kCommandLength, uint16_t{12});
    Store(packet, wire::kCommandRequestId, uint16_t{0x0201});
    Store(packet, wire::kCommandAddress, uint64_t{0x1716151413121110});
    Store(packet, wire::kReadLength, uint16_t{0x0140});
    const Bytes expected = {
        0x55, 0x33, 0x56, 0x43,                         // "U3VC"
        0x00, 0x40,                                     // request acknowledge
        0x00, 0x08,                                     // read memory
        0x0C, 0x00,                                     // length
        0x01, 0x02,                                     // request id
        0x10, 0x11, 0x12, 0x13, 0x14, 0x15, 0x16, 0x17, // address
        0x00, 0x00,                                     // reserved
        0x40, 0x01,                                     // count
    };
    EXPECT_EQ(packet, expected);
    EXPECT_EQ(wire::kCommandHeaderSize, 12U);
    EXPECT_EQ(packet.size() - wire::kCommandHeaderSize, 12U);
}

TEST(ControlWire, WriteCommand_StandsByteByByte)
{
    namespace wire = control_wire;
    Bytes packet(wire::kWriteDataOffset);
    Store(packet, wire::kCommandPrefix, wire::kPrefix);
    Store(packet, wire::kCommandFlags, wire::kFlagResend);
    Store(packet, wire::kCommandId, wire::kWriteCommand);
    Store(packet, wire::kCommandLength, uint16_t{10});
    Store(packet, wire::kCommandRequestId, uint16_t{0xFFFF});
    Store(packet, wire::kCommandAddress, uint64_t{0x1E0});
    packet.insert(packet.end(), {0xAB, 0xCD});
    const Bytes expected = {0x55, 0x33, 0x56, 0x43, 0x00, 0x80, 0x02, 0x08, 0x0A, 0x00, 0xFF,
                            0xFF, 0xE0, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0xAB, 0xCD};
    EXPECT_EQ(packet, expected);
}

TEST(ControlWire, ReadAcknowledge_IsHeaderAndBytes)
{
    namespace wire = control_wire;
    const Bytes ack = {0x55, 0x33, 0x56, 0x43, 0x03, 0x80, 0x01, 0x08,
                       0x04, 0x00, 0x34, 0x12, 0xDE, 0xAD, 0xBE, 0xEF};
    EXPECT_EQ(Load(ack, wire::kAckPrefix), wire::kPrefix);
    EXPECT_EQ(Load(ack, wire::kAckStatus), 0x8003);
    EXPECT_EQ(Load(ack, wire::kAckCommandId), wire::kReadAck);
    EXPECT_EQ(Load(ack, wire::kAckLength), 4);
    EXPECT_EQ(Load(ack, wire::kAckRequestId), 0x1234);
    EXPECT_EQ(ack[wire::kReadAckDataOffset], 0xDE);
}

TEST(ControlWire, LongAcknowledges_NameBytesWrittenAndTimeoutAtTheEnd)
{
    namespace wire = control_wire;
    const Bytes written = {0x55, 0x33, 0x56, 0x43, 0x00, 0x00, 0x03, 0x08,
                           0x04, 0x00, 0x01, 0x00, 0x00, 0x00, 0x40, 0x02};
    EXPECT_EQ(Load(written, wire::kAckCommandId), wire::kWriteAck);
    EXPECT_EQ(Load(written, wire::kBytesWritten), 0x0240);
    const Bytes pending = {0x55, 0x33, 0x56, 0x43, 0x00, 0x00, 0x05, 0x08,
                           0x04, 0x00, 0x01, 0x00, 0x00, 0x00, 0xE8, 0x03};
    EXPECT_EQ(Load(pending, wire::kAckCommandId), wire::kPendingAck);
    EXPECT_EQ(Load(pending, wire::kPendingTimeout), 1000);
    EXPECT_EQ(pending.size(), wire::kLongAckSize);
}

TEST(EventWire, PacketOfOneItem_StandsByteByByte)
{
    namespace wire = event_wire;
    const Bytes packet = {
        0x55, 0x33, 0x56, 0x45,                         // "U3VE"
        0x00, 0x40,                                     // flags
        0x00, 0x0C,                                     // event
        0x10, 0x00,                                     // length
        0x02, 0x01,                                     // request id
        0x10, 0x00,                                     // item: size
        0x04, 0x90,                                     // event id
        0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, // timestamp
        0xAA, 0xBB, 0xCC, 0xDD,                         // data
    };
    EXPECT_EQ(Load(packet, wire::kPacketPrefix), wire::kPrefix);
    EXPECT_EQ(Load(packet, wire::kFlags), 0x4000);
    EXPECT_EQ(Load(packet, wire::kCommandId), wire::kEventCommand);
    EXPECT_EQ(Load(packet, wire::kLength), packet.size() - wire::kHeaderSize);
    EXPECT_EQ(Load(packet, wire::kRequestId), 0x0102);
    const auto item = std::span<const uint8_t>(packet).subspan(wire::kHeaderSize);
    EXPECT_EQ(Load(item, wire::kItemSize), item.size());
    EXPECT_EQ(Load(item, wire::kEventId), 0x9004);
    EXPECT_EQ(Load(item, wire::kTimestamp), 0x0807060504030201U);
    EXPECT_EQ(item[wire::kDataOffset], 0xAA);
}

TEST(LeaderWire, ImageLeader_StandsByteByByte)
{
    namespace wire = leader_wire;
    const Bytes leader = {
        0x55, 0x33, 0x56, 0x4C,                         // "U3VL"
        0x00, 0x00,                                     // reserved
        0x34, 0x00,                                     // leader size
        0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, // block id
        0x00, 0x00,                                     // reserved
        0x01, 0x40,                                     // payload type
        0x11, 0x12, 0x13, 0x14, 0x15, 0x16, 0x17, 0x18, // timestamp
        0x01, 0x00, 0x08, 0x01,                         // pixel format
        0x80, 0x02, 0x00, 0x00,                         // size x
        0xE0, 0x01, 0x00, 0x00,                         // size y
        0x10, 0x00, 0x00, 0x00,                         // offset x
        0x20, 0x00, 0x00, 0x00,                         // offset y
        0x03, 0x00,                                     // padding x
        0x00, 0x00,                                     // reserved
    };
    EXPECT_EQ(leader.size(), wire::kImageSize);
    EXPECT_EQ(Load(leader, wire::kMagic), wire::kMagicValue);
    EXPECT_EQ(Load(leader, wire::kLeaderSize), wire::kImageSize);
    EXPECT_EQ(Load(leader, wire::kBlockId), 0x0807060504030201U);
    EXPECT_EQ(Load(leader, wire::kPayloadType), payload_type::kImageWithChunks);
    EXPECT_EQ(Load(leader, wire::kTimestamp), 0x1817161514131211U);
    EXPECT_EQ(Load(leader, wire::kPixelFormat), 0x01080001U);
    EXPECT_EQ(Load(leader, wire::kSizeX), 640U);
    EXPECT_EQ(Load(leader, wire::kSizeY), 480U);
    EXPECT_EQ(Load(leader, wire::kOffsetX), 16U);
    EXPECT_EQ(Load(leader, wire::kOffsetY), 32U);
    EXPECT_EQ(Load(leader, wire::kPaddingX), 3);
}

TEST(PayloadType, Codes_AreTheProtocols)
{
    EXPECT_EQ(payload_type::kImage, 0x0001);
    EXPECT_EQ(payload_type::kGenDC, 0x000B);
    EXPECT_EQ(payload_type::kChunks, 0x4000);
    EXPECT_EQ(payload_type::kImageWithChunks, 0x4001);
}

TEST(TrailerWire, TrailerWithChunks_StandsByteByByte)
{
    namespace wire = trailer_wire;
    const Bytes trailer = {
        0x55, 0x33, 0x56, 0x54,                         // "U3VT"
        0x00, 0x00,                                     // reserved
        0x24, 0x00,                                     // trailer size
        0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, // block id
        0x00, 0xA1,                                     // status
        0x00, 0x00,                                     // reserved
        0x21, 0x22, 0x23, 0x24, 0x25, 0x26, 0x27, 0x28, // valid payload size
        0xE0, 0x01, 0x00, 0x00,                         // size y
        0x44, 0x33, 0x22, 0x11,                         // chunk layout id
    };
    EXPECT_EQ(wire::kImageSize, 32U);
    EXPECT_EQ(trailer.size(), wire::kImageWithChunksSize);
    EXPECT_EQ(Load(trailer, wire::kMagic), wire::kMagicValue);
    EXPECT_EQ(Load(trailer, wire::kTrailerSize), wire::kImageWithChunksSize);
    EXPECT_EQ(Load(trailer, wire::kBlockId), 0x0807060504030201U);
    EXPECT_EQ(Load(trailer, wire::kStatus), 0xA100);
    EXPECT_EQ(Load(trailer, wire::kValidPayloadSize), 0x2827262524232221U);
    EXPECT_EQ(Load(trailer, wire::kSizeY), 480U);
    EXPECT_EQ(Load(trailer, wire::kChunkLayoutId), 0x11223344U);
}

TEST(ChunkWire, Trailer_IsIdThenLength)
{
    const Bytes trailer = {0x44, 0x33, 0x22, 0x11, 0x08, 0x00, 0x00, 0x00};
    EXPECT_EQ(trailer.size(), chunk_wire::kTrailerSize);
    EXPECT_EQ(Load(trailer, chunk_wire::kChunkId), 0x11223344U);
    EXPECT_EQ(Load(trailer, chunk_wire::kChunkLength), 8U);
}

} // namespace
