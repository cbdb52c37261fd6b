#include "usb_block.h"

#include "fake_libusb.h"

#include <gtest/gtest.h>
#include <unistd.h>

namespace {

constexpr size_t kMebibyte = 0x100000;
constexpr size_t kReserve = 4 * kMebibyte;

class UsbBlockTest : public testing::Test
{
protected:
    UsbBlockTest() { m_usb.Reset(); }
    ~UsbBlockTest() override
    {
        EXPECT_TRUE(m_usb.deviceMemory.empty());
        EXPECT_FALSE(m_usb.deviceMemoryMisused);
        m_usb.Reset();
    }

    UsbHandlePtr Open()
    {
        libusb_device_handle* handle = nullptr;
        EXPECT_EQ(libusb_open(&m_usb.AddDevice("camera"), &handle), 0);
        return {handle, libusb_close};
    }

    FakeUsb& m_usb = FakeUsb::Instance();
};

TEST_F(UsbBlockTest, Allocate_AnySize_IsABlock)
{
    for (const size_t size : {size_t{0}, size_t{1}, kMebibyte}) {
        const UsbBlock block = UsbBlock::Allocate(size);
        EXPECT_NE(block.Data(), nullptr);
        EXPECT_EQ(block.Size(), size);
        EXPECT_EQ(block.Bytes().size(), size);
        EXPECT_FALSE(block.IsDeviceMemory());
    }
}

TEST_F(UsbBlockTest, AllocateZeroed_HoldsZeros)
{
    const UsbBlock block = UsbBlock::AllocateZeroed(4096);
    EXPECT_EQ(Bytes(block.Bytes().begin(), block.Bytes().end()), Bytes(4096));
}

TEST_F(UsbBlockTest, AllocatePages_BeginsOnAPage)
{
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    for (const size_t size : {size_t{0}, size_t{1}, page, page + 1, kMebibyte}) {
        const UsbBlock block = UsbBlock::AllocatePages(size);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(block.Data()) % page, 0U);
        EXPECT_EQ(block.Size(), size);
    }
    EXPECT_THROW(UsbBlock::AllocatePages(SIZE_MAX), std::bad_alloc);
}

TEST_F(UsbBlockTest, Move_LeavesAnEmptyBlock)
{
    UsbBlock first = UsbBlock::Allocate(10);
    uint8_t* const data = first.Data();
    UsbBlock second(std::move(first));
    EXPECT_EQ(second.Data(), data);
    EXPECT_EQ(first.Size(), 0U); // NOLINT: a moved-from block is empty
    EXPECT_EQ(first.Data(), nullptr);
    first = std::move(second);
    EXPECT_EQ(first.Data(), data);
    EXPECT_EQ(first.Size(), 10U);
    EXPECT_EQ(second.Size(), 0U); // NOLINT: likewise
}

TEST_F(UsbBlockTest, AllocateForDevice_GivesWhatLibusbGives)
{
    m_usb.deviceMemoryLeft = kMebibyte;
    const UsbHandlePtr device = Open();
    const UsbBlock block = UsbBlock::AllocateForDevice(device, kMebibyte);
    EXPECT_TRUE(block.IsDeviceMemory());
    EXPECT_TRUE(m_usb.IsDeviceMemory(block.Data(), kMebibyte));
    const UsbBlock refused = UsbBlock::AllocateForDevice(device, 1);
    EXPECT_EQ(refused.Data(), nullptr);
    EXPECT_FALSE(refused.IsDeviceMemory());
}

TEST_F(UsbBlockTest, AllocateForDevice_NoDeviceOrNoSize_IsNone)
{
    m_usb.deviceMemoryLeft = kMebibyte;
    EXPECT_EQ(UsbBlock::AllocateForDevice(nullptr, 1).Data(), nullptr);
    EXPECT_EQ(UsbBlock::AllocateForDevice(Open(), 0).Data(), nullptr);
}

TEST_F(UsbBlockTest, DeviceMemory_KeepsItsDeviceOpen)
{
    m_usb.deviceMemoryLeft = kMebibyte;
    UsbHandlePtr device = Open();
    {
        const UsbBlock block = UsbBlock::AllocateForDevice(device, 1);
        device.reset();
        EXPECT_EQ(m_usb.openHandles, 1);
    }
    EXPECT_EQ(m_usb.openHandles, 0);
}

TEST_F(UsbBlockTest, Source_LeavesItsReserveToOthersThenGivesOrdinaryMemory)
{
    m_usb.deviceMemoryLeft = kReserve + kMebibyte;
    const UsbHandlePtr device = Open();
    {
        UsbBlockSource source(device);
        EXPECT_TRUE(source.Allocate(kMebibyte).IsDeviceMemory());
        const UsbBlock last = source.Allocate(kMebibyte);
        EXPECT_TRUE(last.IsDeviceMemory());
        EXPECT_FALSE(source.AllocateOrdinary(1).IsDeviceMemory());
        EXPECT_FALSE(source.Allocate(1).IsDeviceMemory());
        EXPECT_EQ(m_usb.deviceMemoryLeft, 0U);
    }
    EXPECT_EQ(m_usb.deviceMemoryLeft, kReserve + kMebibyte);
}

TEST_F(UsbBlockTest, Source_LessThanTheReserve_GivesOrdinaryMemory)
{
    m_usb.deviceMemoryLeft = kReserve - 1;
    const UsbHandlePtr device = Open();
    UsbBlockSource source(device);
    EXPECT_FALSE(source.Allocate(1).IsDeviceMemory());
}

} // namespace
