#include "event_packet.h"

#include <gtest/gtest.h>
#include <vector>

namespace u3v_host {
namespace {

using Bytes = std::vector<uint8_t>;

void Put(Bytes& bytes, uint64_t value, size_t size)
{
    for (size_t i = 0; i < size; ++i) {
        bytes.push_back(static_cast<uint8_t>(value >> 8 * i));
    }
}

Bytes Item(uint16_t size, uint16_t id, uint64_t timestamp, const Bytes& data)
{
    Bytes item;
    Put(item, size, 2);
    Put(item, id, 2);
    Put(item, timestamp, 8);
    item.insert(item.end(), data.begin(), data.end());
    return item;
}

Bytes Packet(const Bytes& body, uint32_t prefix = 0x45563355, uint16_t command = 0x0C00)
{
    Bytes packet;
    Put(packet, prefix, 4);
    Put(packet, 0, 2);
    Put(packet, command, 2);
    Put(packet, body.size(), 2);
    Put(packet, 7, 2);
    packet.insert(packet.end(), body.begin(), body.end());
    return packet;
}

std::vector<uint16_t> Ids(const Bytes& packet, bool multiEvent)
{
    std::vector<uint16_t> ids;
    EventPacket events(packet, multiEvent);
    while (const auto event = events.Next()) {
        ids.push_back(event->id);
    }
    return ids;
}

using IdList = std::vector<uint16_t>;

TEST(EventPacket, Next_OneEvent_HasIdTimestampAndDataFromTheReservedFieldOn)
{
    const Bytes item = Item(0, 0x9001, 0x1122334455667788, {1, 2, 3});
    const Bytes packet = Packet(item);
    EventPacket events(packet, false);
    const auto event = events.Next();
    ASSERT_TRUE(event);
    EXPECT_EQ(event->id, 0x9001);
    EXPECT_EQ(event->timestamp, 0x1122334455667788U);
    EXPECT_EQ(Bytes(event->data.begin(), event->data.end()), item);
    EXPECT_FALSE(events.Next());
    EXPECT_FALSE(events.Next());
}

TEST(EventPacket, Next_OneEventWhoseReservedFieldIsNotZero_IsOneEvent)
{
    EXPECT_EQ(Ids(Packet(Item(4711, 0x9001, 1, {1, 2})), false), (IdList{0x9001}));
}

TEST(EventPacket, Next_EventWithoutData_IsOne)
{
    EXPECT_EQ(Ids(Packet(Item(0, 0x9001, 1, {})), false), (IdList{0x9001}));
    EXPECT_EQ(Ids(Packet(Item(12, 0x9001, 1, {})), true), (IdList{0x9001}));
}

TEST(EventPacket, Next_SeveralEvents_ComeInOrderWithTheirOwnData)
{
    Bytes body = Item(14, 0x9001, 1, {1, 2});
    const Bytes second = Item(13, 0x9002, 2, {3});
    body.insert(body.end(), second.begin(), second.end());
    const Bytes packet = Packet(body);
    EXPECT_EQ(Ids(packet, true), (IdList{0x9001, 0x9002}));
    EventPacket events(packet, true);
    EXPECT_EQ(events.Next()->data.size(), 14U);
    const auto last = events.Next();
    EXPECT_EQ(Bytes(last->data.begin(), last->data.end()), second);
}

TEST(EventPacket, Next_LastOfSeveralIsCutOff_TheOthersAreWhole)
{
    Bytes body = Item(12, 0x9001, 1, {});
    const Bytes second = Item(20, 0x9002, 2, {3});
    body.insert(body.end(), second.begin(), second.end());
    EXPECT_EQ(Ids(Packet(body), true), (IdList{0x9001}));
}

TEST(EventPacket, Next_SizeBelowItsOwnHead_EndsThePacket)
{
    for (const int size : {0, 1, 11}) {
        EXPECT_EQ(Ids(Packet(Item(static_cast<uint16_t>(size), 0x9001, 1, {1, 2})), true), IdList{})
            << size;
    }
}

TEST(EventPacket, Next_NoEventPacket_GivesNone)
{
    const Bytes item = Item(12, 0x9001, 1, {});
    EXPECT_EQ(Ids(Packet(item, 0x43563355), false), IdList{});
    EXPECT_EQ(Ids(Packet(item, 0x45563355, 0x0C01), false), IdList{});
}

TEST(EventPacket, Next_PacketCutOffAnywhere_GivesNone)
{
    const Bytes whole = Packet(Item(12, 0x9001, 1, {}));
    for (size_t size = 0; size < whole.size(); ++size) {
        const Bytes cut(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size));
        EXPECT_EQ(Ids(cut, false), IdList{}) << size;
        EXPECT_EQ(Ids(cut, true), IdList{}) << size;
    }
}

TEST(EventPacket, Next_MoreBytesThanThePacketSays_AreIgnored)
{
    Bytes packet = Packet(Item(12, 0x9001, 1, {}));
    packet.resize(1024);
    EventPacket events(packet, false);
    EXPECT_EQ(events.Next()->data.size(), 12U);
}

} // namespace
} // namespace u3v_host
