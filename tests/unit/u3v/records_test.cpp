#include "u3v_common.h"
#include "u3v_deviceinfo.h"

#include <gtest/gtest.h>

TEST(StatusFromUsb, NegativeCode_KeepsItsLow16Bits)
{
    EXPECT_EQ(U3V_StatusFromUsb(0), 0);
    EXPECT_EQ(U3V_StatusFromUsb(-11), 0xFFF5);
    EXPECT_EQ(U3V_StatusFromUsb(-4), 0xFFFC);
}

TEST(FieldText, WithoutTerminator_EndsWithTheField)
{
    const char field[4] = {'a', 'b', 'c', 'd'};
    const char shorter[4] = {'a', 0, 'c', 0};
    EXPECT_EQ(U3V_FieldText(field), "abcd");
    EXPECT_EQ(U3V_FieldText(shorter), "a");
}

TEST(RequireMemory, MoreThanTheMachineHas_IsBadAlloc)
{
    EXPECT_NO_THROW(U3V_RequireMemory(1U << 20U));
    EXPECT_THROW(U3V_RequireMemory(UINT64_MAX), std::bad_alloc);
}

TEST(DeviceInfoRecord, Layout_IsPackedWithTheRecordInFront)
{
    EXPECT_EQ(sizeof(U3V_DEVICE_INFO), 471U);
    EXPECT_EQ(offsetof(U3V_DEVICE_INFO, GenCPVersion), 0U);
    EXPECT_EQ(offsetof(U3V_DEVICE_INFO, U3VVersion), 4U);
    EXPECT_EQ(offsetof(U3V_DEVICE_INFO, DeviceGUID), 8U);
    EXPECT_EQ(offsetof(U3V_DEVICE_INFO, VendorName), 21U);
    EXPECT_EQ(offsetof(U3V_DEVICE_INFO, ModelName), 85U);
    EXPECT_EQ(offsetof(U3V_DEVICE_INFO, FamilyName), 149U);
    EXPECT_EQ(offsetof(U3V_DEVICE_INFO, DeviceVersion), 213U);
    EXPECT_EQ(offsetof(U3V_DEVICE_INFO, ManufacturerInfo), 277U);
    EXPECT_EQ(offsetof(U3V_DEVICE_INFO, SerialNumber), 341U);
    EXPECT_EQ(offsetof(U3V_DEVICE_INFO, UserDefinedName), 405U);
    EXPECT_EQ(offsetof(U3V_DEVICE_INFO, SpeedSupport), 469U);
    EXPECT_EQ(offsetof(U3V_DEVICE_INFO, InUse), 470U);
    U3V_DeviceInfo info(nullptr, nullptr);
    const void* whole = &info;
    const void* record = static_cast<U3V_DEVICE_INFO*>(&info);
    EXPECT_EQ(whole, record);
}

TEST(ImageHeader, Layout_IsPacked)
{
    EXPECT_EQ(sizeof(IMAGE_HEADER), 42U);
    EXPECT_EQ(offsetof(IMAGE_HEADER, nBlockId), 0U);
    EXPECT_EQ(offsetof(IMAGE_HEADER, nTimestamp), 8U);
    EXPECT_EQ(offsetof(IMAGE_HEADER, nPixelFormat), 16U);
    EXPECT_EQ(offsetof(IMAGE_HEADER, nSizeX), 20U);
    EXPECT_EQ(offsetof(IMAGE_HEADER, nSizeY), 24U);
    EXPECT_EQ(offsetof(IMAGE_HEADER, nOffsetX), 28U);
    EXPECT_EQ(offsetof(IMAGE_HEADER, nOffsetY), 32U);
    EXPECT_EQ(offsetof(IMAGE_HEADER, nPaddingX), 36U);
    EXPECT_EQ(offsetof(IMAGE_HEADER, nMissingBytes), 38U);
}
