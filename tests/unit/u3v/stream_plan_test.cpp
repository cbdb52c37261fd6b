#include "u3v_stream_plan.h"

#include <gtest/gtest.h>
#include <string>

namespace {

struct PlanRow
{
    const char* name;
    uint64_t payload;
    uint32_t leader, trailer, transferSize;
    uint8_t exponent;
    // expected
    uint32_t planLeader, planTrailer, count, final1, final2;
};

class PlanTest : public testing::TestWithParam<PlanRow>
{
};

TEST_P(PlanTest, Sizes)
{
    const PlanRow& row = GetParam();
    const auto plan =
        U3V_PlanStream(row.payload, row.leader, row.trailer, row.transferSize, row.exponent);
    EXPECT_EQ(plan.payload, row.payload);
    EXPECT_EQ(plan.transferSize, row.transferSize);
    EXPECT_EQ(plan.leader, row.planLeader);
    EXPECT_EQ(plan.trailer, row.planTrailer);
    EXPECT_EQ(plan.transferCount, row.count);
    EXPECT_EQ(plan.finalTransfer1, row.final1);
    EXPECT_EQ(plan.finalTransfer2, row.final2);
}

INSTANTIATE_TEST_SUITE_P(
    Table, PlanTest,
    testing::Values(
        PlanRow{"ThreeWhole", 3 * 4096, 52, 32, 4096, 4, 52, 32, 3, 0, 0},
        PlanRow{"AlignedRest", 2 * 4096 + 512, 52, 32, 4096, 4, 52, 32, 2, 512, 0},
        PlanRow{"UnalignedRest", 4096 + 1000, 52, 32, 4096, 4, 52, 32, 1, 992, 16},
        PlanRow{"RestBelowAlignment", 4096 + 15, 52, 32, 4096, 4, 52, 32, 1, 0, 16},
        PlanRow{"RestOfOneByte", 1, 52, 32, 4096, 1, 52, 32, 0, 0, 2},
        PlanRow{"RestOneBelowAUnit", 1023, 52, 32, 4096, 10, 1024, 1024, 0, 0, 1024},
        PlanRow{"RestOfOneUnit", 1024, 52, 32, 4096, 10, 1024, 1024, 0, 1024, 0},
        PlanRow{"BelowOneTransfer", 4095, 52, 32, 4096, 10, 1024, 1024, 0, 3072, 1024},
        PlanRow{"Mebibyte", 640 * 480, 52, 32, 0x100000, 10, 1024, 1024, 0, 307200, 0},
        PlanRow{"LeaderAboveAlignment", 0, 2000, 1500, 4096, 10, 2000, 1500, 0, 0, 0},
        PlanRow{"NoSizesAtAll", 0, 0, 0, 0, 1, 2, 2, 0, 0, 0},
        PlanRow{"NoTransferSize", 1000, 52, 32, 0, 4, 52, 32, 0, 992, 16},
        PlanRow{"NoAlignment", 1000, 52, 32, 4096, 0, 52, 32, 0, 1000, 0},
        PlanRow{"LargestExponent", 1, 52, 32, 4096, 31, 1U << 31, 1U << 31, 0, 0, 1U << 31},
        PlanRow{"LargestExponentLargeRest", 0xFFFFFFFF, 52, 32, 0, 31, 1U << 31, 1U << 31, 0,
                1U << 31, 1U << 31},
        PlanRow{"ExponentBeyondTheRegisters", 1, 52, 32, 4096, 32, 1U << 31, 1U << 31, 0, 0,
                1U << 31},
        PlanRow{"ExponentBeyondAnyShift", 1, 52, 32, 4096, 255, 1U << 31, 1U << 31, 0, 0, 1U << 31},
        PlanRow{"HostilePayload", UINT64_MAX, UINT32_MAX, UINT32_MAX, 1, 1, UINT32_MAX, UINT32_MAX,
                0xFFFFFFFF, 0, 0},
        PlanRow{"CountCutTo32Bits", 0x100000001, 52, 32, 1, 4, 52, 32, 1, 0, 0}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(StreamPlan, NextPayload_NeverGoesBeyondTheImage)
{
    const auto plan = U3V_PlanStream(1000, 52, 32, 400, 4);
    EXPECT_EQ(plan.NextPayload(0), 400U);
    EXPECT_EQ(plan.NextPayload(400), 400U);
    EXPECT_EQ(plan.NextPayload(800), 200U);
    EXPECT_EQ(plan.NextPayload(1000), 0U);
    EXPECT_EQ(plan.NextPayload(5000), 0U);
    EXPECT_EQ(U3V_PlanStream(300, 52, 32, 400, 4).NextPayload(0), 300U);
    EXPECT_EQ(U3V_PlanStream(300, 52, 32, 0, 4).NextPayload(0), 300U);
}

TEST(PacketKind, DistinctSizes_AreToldApart)
{
    const auto plan = U3V_PlanStream(1000, 52, 32, 400, 4); // final 1: 192
    EXPECT_EQ(U3V_KindOfPacket(plan, 52), U3V_PacketKind::Leader);
    EXPECT_EQ(U3V_KindOfPacket(plan, 400), U3V_PacketKind::Payload);
    EXPECT_EQ(U3V_KindOfPacket(plan, 192), U3V_PacketKind::Final1);
    EXPECT_EQ(U3V_KindOfPacket(plan, 32), U3V_PacketKind::Trailer);
    for (const uint32_t other : {0U, 1U, 31U, 33U, 51U, 53U, 191U, 399U, 401U, UINT32_MAX}) {
        EXPECT_EQ(U3V_KindOfPacket(plan, other), U3V_PacketKind::Other) << other;
    }
}

TEST(PacketKind, CoincidingSizes_AreDecidedInOrder)
{
    U3V_StreamPlan plan{};
    plan.leader = plan.transferSize = plan.finalTransfer1 = plan.trailer = 64;
    EXPECT_EQ(U3V_KindOfPacket(plan, 64), U3V_PacketKind::Leader);
    plan.leader = 52;
    EXPECT_EQ(U3V_KindOfPacket(plan, 64), U3V_PacketKind::Payload);
    plan.transferSize = 128;
    EXPECT_EQ(U3V_KindOfPacket(plan, 64), U3V_PacketKind::Final1);
    plan.finalTransfer1 = 0;
    EXPECT_EQ(U3V_KindOfPacket(plan, 64), U3V_PacketKind::Trailer);
}

TEST(PacketKind, EmptyPacketWithoutFinalTransfer_IsTakenForIt)
{
    const auto plan = U3V_PlanStream(800, 52, 32, 400, 4);
    EXPECT_EQ(U3V_KindOfPacket(plan, 0), U3V_PacketKind::Final1);
}

} // namespace
