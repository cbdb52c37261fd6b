#include "registers.h"

#include <gtest/gtest.h>
#include <vector>

namespace {

// A register as a table shows it: where, and how many bytes.
struct Place
{
    uint64_t address;
    size_t size;
};

template <class T>
constexpr Place PlaceOf(Register<T> reg)
{
    return {reg.address, sizeof(T)};
}

constexpr Place PlaceOf(TextRegister reg)
{
    return {reg.address, TextRegister::kSize};
}

// The blocks have no holes: each register begins where the one before it ends.
void ExpectTable(const std::vector<Place>& table, const std::vector<uint64_t>& addresses,
                 uint64_t end)
{
    ASSERT_EQ(table.size(), addresses.size());
    for (size_t i = 0; i < table.size(); ++i) {
        EXPECT_EQ(table[i].address, addresses[i]) << "register " << i;
        const uint64_t next = i + 1 < table.size() ? table[i + 1].address : end;
        EXPECT_EQ(table[i].address + table[i].size, next) << "register " << i;
    }
}

TEST(Registers, Abrm_IsTheWholeBlock)
{
    ExpectTable({PlaceOf(abrm::kGenCPVersion),
                 PlaceOf(abrm::kManufacturerName),
                 PlaceOf(abrm::kModelName),
                 PlaceOf(abrm::kFamilyName),
                 PlaceOf(abrm::kDeviceVersion),
                 PlaceOf(abrm::kManufacturerInfo),
                 PlaceOf(abrm::kSerialNumber),
                 PlaceOf(abrm::kUserDefinedName),
                 PlaceOf(abrm::kDeviceCapability),
                 PlaceOf(abrm::kMaximumDeviceResponseTime),
                 PlaceOf(abrm::kManifestTableAddress),
                 PlaceOf(abrm::kSbrmAddress),
                 PlaceOf(abrm::kDeviceConfiguration),
                 PlaceOf(abrm::kHeartbeatTimeout),
                 PlaceOf(abrm::kMessageChannelId),
                 PlaceOf(abrm::kTimestamp),
                 PlaceOf(abrm::kTimestampLatch),
                 PlaceOf(abrm::kTimestampIncrement),
                 PlaceOf(abrm::kAccessPrivilege),
                 PlaceOf(abrm::kProtocolEndianness),
                 PlaceOf(abrm::kImplementationEndianness)},
                {0x000, 0x004, 0x044, 0x084, 0x0C4, 0x104, 0x144, 0x184, 0x1C4, 0x1CC, 0x1D0,
                 0x1D8, 0x1E0, 0x1E8, 0x1EC, 0x1F0, 0x1F8, 0x1FC, 0x204, 0x208, 0x20C},
                0x210);
}

TEST(Registers, Sbrm_IsTheWholeBlock)
{
    ExpectTable({PlaceOf(sbrm::kU3VVersion), PlaceOf(sbrm::kU3VCPCapability),
                 PlaceOf(sbrm::kU3VCPConfiguration), PlaceOf(sbrm::kMaximumCommandTransfer),
                 PlaceOf(sbrm::kMaximumAcknowledgeTransfer), PlaceOf(sbrm::kNumberOfStreamChannels),
                 PlaceOf(sbrm::kSirmAddress), PlaceOf(sbrm::kSirmLength),
                 PlaceOf(sbrm::kEirmAddress), PlaceOf(sbrm::kEirmLength),
                 PlaceOf(sbrm::kIidc2Address), PlaceOf(sbrm::kCurrentSpeed)},
                {0x00, 0x04, 0x0C, 0x14, 0x18, 0x1C, 0x20, 0x28, 0x2C, 0x34, 0x38, 0x40}, 0x44);
}

TEST(Registers, Sirm_IsTheWholeBlock)
{
    ExpectTable({PlaceOf(sirm::kInfo), PlaceOf(sirm::kControl), PlaceOf(sirm::kRequiredPayloadSize),
                 PlaceOf(sirm::kRequiredLeaderSize), PlaceOf(sirm::kRequiredTrailerSize),
                 PlaceOf(sirm::kMaximumLeaderSize), PlaceOf(sirm::kPayloadTransferSize),
                 PlaceOf(sirm::kPayloadTransferCount), PlaceOf(sirm::kFinalTransfer1Size),
                 PlaceOf(sirm::kFinalTransfer2Size), PlaceOf(sirm::kMaximumTrailerSize)},
                {0x00, 0x04, 0x08, 0x10, 0x14, 0x18, 0x1C, 0x20, 0x24, 0x28, 0x2C}, 0x30);
}

TEST(Registers, Eirm_IsTheWholeBlock)
{
    ExpectTable({PlaceOf(eirm::kControl), PlaceOf(eirm::kMaximumEventTransferLength),
                 PlaceOf(eirm::kEventTestControl)},
                {0x00, 0x04, 0x08}, 0x0C);
}

TEST(Registers, Bits_AreTheStandards)
{
    EXPECT_EQ(abrm::kHasUserDefinedName, 0x0001U);
    EXPECT_EQ(abrm::kHasAccessPrivilege, 0x0002U);
    EXPECT_EQ(abrm::kHasMessageChannel, 0x0004U);
    EXPECT_EQ(abrm::kHasTimestamp, 0x0008U);
    EXPECT_EQ(abrm::kStringEncodingMask << abrm::kStringEncodingShift, 0x00F0U);
    EXPECT_EQ(abrm::kHasFamilyName, 0x0100U);
    EXPECT_EQ(abrm::kHasSbrm, 0x0200U);
    EXPECT_EQ(abrm::kHasEndianness, 0x0400U);
    EXPECT_EQ(abrm::kHasWrittenLength, 0x0800U);
    EXPECT_EQ(abrm::kHasMultiEvent, 0x1000U);
    EXPECT_EQ(sbrm::kSirmAvailable, 1U);
    EXPECT_EQ(sbrm::kEirmAvailable, 2U);
    EXPECT_EQ(sbrm::kIidc2Available, 4U);
    EXPECT_EQ(sbrm::kHighSpeed, 4U);
    EXPECT_EQ(sbrm::kSuperSpeed, 8U);
    EXPECT_EQ(sirm::kStreamEnable, 1U);
    EXPECT_EQ(uint32_t{0x06123456} >> sirm::kAlignmentShift, 6U);
    EXPECT_EQ(eirm::kEventEnable, 1U);
}

TEST(Registers, At_AddsTheBase)
{
    EXPECT_EQ(sirm::kMaximumTrailerSize.At(0x20000).address, 0x2002CU);
    EXPECT_EQ(sbrm::kSirmAddress.At(UINT64_MAX).address, 0x1FU); // a hostile base wraps around
}

} // namespace
