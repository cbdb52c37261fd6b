#include "acknowledge.h"

#include <gtest/gtest.h>
#include <vector>

namespace u3v_host {
namespace {

using Bytes = std::vector<uint8_t>;
using Kind = Acknowledge::Kind;
using std::chrono::milliseconds;

constexpr uint16_t kReadAck = 0x0801;
constexpr uint16_t kPending = 0x0805;
constexpr uint16_t kId = 0x1234;

Bytes Packet(uint16_t status, uint16_t command, uint16_t length, uint16_t id, const Bytes& body)
{
    const auto low = [](uint16_t value) { return static_cast<uint8_t>(value); };
    const auto high = [](uint16_t value) { return static_cast<uint8_t>(value >> 8); };
    Bytes packet{0x55,         0x33,          0x56,        0x43,         low(status), high(status),
                 low(command), high(command), low(length), high(length), low(id),     high(id)};
    packet.insert(packet.end(), body.begin(), body.end());
    return packet;
}

ExpectedAcknowledge Read(size_t size, bool othersMayCome = false)
{
    return {kReadAck, kId, size, othersMayCome};
}

TEST(Acknowledge, Judge_AnswerToARead_HasItsData)
{
    const Bytes packet = Packet(0, kReadAck, 4, kId, {1, 2, 3, 4});
    const Acknowledge ack = JudgeAcknowledge(packet, Read(4));
    EXPECT_EQ(ack.kind, Kind::Answer);
    EXPECT_EQ(ack.status, 0);
    EXPECT_EQ(Bytes(ack.data.begin(), ack.data.end()), (Bytes{1, 2, 3, 4}));
}

TEST(Acknowledge, Judge_PacketLongerThanItSays_IsTakenAsItSays)
{
    const Bytes packet = Packet(0, kReadAck, 4, kId, {1, 2, 3, 4, 0, 0, 0});
    const Acknowledge ack = JudgeAcknowledge(packet, Read(4));
    EXPECT_EQ(ack.kind, Kind::Answer);
    EXPECT_EQ(ack.data.size(), 4U);
}

TEST(Acknowledge, Judge_RefusedRead_IsAnAnswerWithoutData)
{
    const Bytes packet = Packet(0x8003, kReadAck, 0, kId, {});
    const Acknowledge ack = JudgeAcknowledge(packet, Read(4));
    EXPECT_EQ(ack.kind, Kind::Answer);
    EXPECT_EQ(ack.status, 0x8003);
}

TEST(Acknowledge, Judge_WriteAcknowledge_MayHaveNoBody)
{
    const ExpectedAcknowledge expected{0x0803, kId, 0, false};
    EXPECT_EQ(JudgeAcknowledge(Packet(0, 0x0803, 0, kId, {}), expected).kind, Kind::Answer);
    EXPECT_EQ(JudgeAcknowledge(Packet(0, 0x0803, 4, kId, {0, 0, 4, 0}), expected).kind,
              Kind::Answer);
}

TEST(Acknowledge, Judge_Pending_NamesItsTime)
{
    const Acknowledge ack =
        JudgeAcknowledge(Packet(0, kPending, 4, kId, {0, 0, 0xF4, 0x01}), Read(4));
    EXPECT_EQ(ack.kind, Kind::Pending);
    EXPECT_EQ(ack.pendingTime, milliseconds(500));
}

TEST(Acknowledge, Judge_PendingOfAnotherCommand_IsNoneOfOurs)
{
    const Bytes packet = Packet(0, kPending, 4, kId - 1, {0, 0, 0xF4, 0x01});
    EXPECT_EQ(JudgeAcknowledge(packet, Read(4, true)).kind, Kind::Other);
}

TEST(Acknowledge, Judge_EmptyPacket_IsReadAway)
{
    EXPECT_EQ(JudgeAcknowledge({}, Read(4)).kind, Kind::Other);
}

struct DamagedCase
{
    const char* what;
    Bytes packet;
    const char* fault;
    bool mayBelongToOthers;
};

class Damaged : public ::testing::TestWithParam<DamagedCase>
{
};

TEST_P(Damaged, Judge_Damaged_SaysWhat)
{
    const Bytes exact = GetParam().packet; // exactly sized, for sanitizers
    const Acknowledge ack = JudgeAcknowledge(exact, Read(4));
    EXPECT_EQ(ack.kind, Kind::Damaged) << GetParam().what;
    EXPECT_STREQ(ack.fault, GetParam().fault) << GetParam().what;
}

TEST_P(Damaged, Judge_WhatMayBelongToAnEarlierCommand_IsReadAwayThen)
{
    const Acknowledge ack = JudgeAcknowledge(GetParam().packet, Read(4, true));
    EXPECT_EQ(ack.kind, GetParam().mayBelongToOthers ? Kind::Other : Kind::Damaged)
        << GetParam().what;
}

const Bytes kData{1, 2, 3, 4};

INSTANTIATE_TEST_SUITE_P(
    Acknowledge, Damaged,
    ::testing::Values(
        DamagedCase{"one byte", {0x55}, "shorter than a header", true},
        DamagedCase{"eleven bytes", Bytes(11, 0x55), "shorter than a header", true},
        DamagedCase{"another prefix", Bytes(16, 0), "wrong prefix", true},
        DamagedCase{"another request", Packet(0, kReadAck, 4, kId + 1, kData), "wrong request id",
                    true},
        DamagedCase{"another command", Packet(0, 0x0803, 4, kId, kData), "wrong command id", false},
        DamagedCase{"our own command", Packet(0, 0x0800, 4, kId, kData), "wrong command id", false},
        DamagedCase{"cut off", Packet(0, kReadAck, 4, kId, {1, 2, 3}), "it is shorter than it says",
                    false},
        DamagedCase{"less than asked for", Packet(0, kReadAck, 3, kId, {1, 2, 3}),
                    "it has another length than was asked for", false},
        DamagedCase{"more than asked for", Packet(0, kReadAck, 5, kId, {1, 2, 3, 4, 5}),
                    "it has another length than was asked for", false},
        DamagedCase{"says it is huge", Packet(0, kReadAck, 0xFFFF, kId, kData),
                    "it is shorter than it says", false}));

class PatienceTest : public ::testing::Test
{
protected:
    ControlLimits m_limits{
        .pendingTime = milliseconds(1000), .pendingRounds = 3, .otherPackets = 2};
    Patience::TimePoint m_now{};
};

TEST_F(PatienceTest, Deadline_WithoutPending_IsTheResponseTime)
{
    const Patience patience(m_limits, milliseconds(200), m_now);
    EXPECT_EQ(patience.Deadline(), m_now + milliseconds(200));
}

TEST_F(PatienceTest, ForPending_NamedTime_MovesTheDeadline)
{
    Patience patience(m_limits, milliseconds(200), m_now);
    EXPECT_TRUE(patience.ForPending(milliseconds(500), m_now + milliseconds(100)));
    EXPECT_EQ(patience.Deadline(), m_now + milliseconds(600));
}

TEST_F(PatienceTest, ForPending_NamedTimeZero_KeepsTheOneBefore)
{
    Patience patience(m_limits, milliseconds(200), m_now);
    EXPECT_TRUE(patience.ForPending(milliseconds(0), m_now + milliseconds(100)));
    EXPECT_EQ(patience.Deadline(), m_now + milliseconds(300));
    EXPECT_TRUE(patience.ForPending(milliseconds(50), m_now + milliseconds(200)));
    EXPECT_TRUE(patience.ForPending(milliseconds(0), m_now + milliseconds(240)));
    EXPECT_EQ(patience.Deadline(), m_now + milliseconds(290));
}

TEST_F(PatienceTest, ForPending_TooOften_EndsIt)
{
    Patience patience(m_limits, milliseconds(200), m_now);
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(patience.ForPending(milliseconds(1), m_now));
    }
    EXPECT_FALSE(patience.ForPending(milliseconds(1), m_now));
}

TEST_F(PatienceTest, ForPending_TooLong_EndsIt)
{
    Patience patience(m_limits, milliseconds(200), m_now);
    EXPECT_TRUE(patience.ForPending(milliseconds(65535), m_now + milliseconds(999)));
    EXPECT_EQ(patience.Deadline(), m_now + milliseconds(1000));
    EXPECT_FALSE(patience.ForPending(milliseconds(1), m_now + milliseconds(1000)));
}

TEST_F(PatienceTest, ForOther_TooOften_EndsIt)
{
    Patience patience(m_limits, milliseconds(200), m_now);
    EXPECT_TRUE(patience.ForOther());
    EXPECT_TRUE(patience.ForOther());
    EXPECT_FALSE(patience.ForOther());
    EXPECT_FALSE(patience.ForOther());
    EXPECT_EQ(patience.Deadline(), m_now + milliseconds(200));
}

TEST(ResponseTime, NamedByTheCamera_IsBelievedWhereItMakesSense)
{
    const ControlLimits limits;
    EXPECT_EQ(ResponseTime(200, limits), milliseconds(200));
    EXPECT_EQ(ResponseTime(0, limits), milliseconds(3000));
    EXPECT_EQ(ResponseTime(60001, limits), milliseconds(60000));
    EXPECT_EQ(ResponseTime(0xFFFFFFFF, limits), milliseconds(60000));
}

} // namespace
} // namespace u3v_host
