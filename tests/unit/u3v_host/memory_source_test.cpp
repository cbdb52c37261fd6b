#include <cstring>
#include <libusb.h>
#include <unistd.h>

#include "bus_camera.h"
#include "memory_source.h"

namespace u3v_host {
namespace {

using std::chrono::nanoseconds;

class MemorySourceTest : public BusTest
{
protected:
    void SetUp() override
    {
        m_context = UsbContext::Make();
        m_handle =
            OwnHandle(libusb_open_device_with_vid_pid(m_context->Native(), 0x1209, 1), m_context);
        ASSERT_NE(m_handle, nullptr);
    }
    void TearDown() override
    {
        m_handle.reset();
        m_context.reset();
    }
    static uint64_t BlocksOut()
    {
        vusb_live_objects live{};
        vusb_get_live_objects(&live);
        return live.dev_mem_blocks;
    }

    const vusb::Camera m_camera;
    std::shared_ptr<UsbContext> m_context;
    UsbHandle m_handle;
    DeviceMemorySpeed m_fast{[](std::span<const uint8_t>) { return nanoseconds(1); }};
};

TEST_F(MemorySourceTest, Allocate_ThereIsDeviceMemory_GivesIt)
{
    MemorySource source(m_handle, m_fast);
    const uint64_t before = MemorySource::DeviceMemoryInUse();
    auto block = source.Allocate(640 * 480);
    EXPECT_TRUE(block->IsDeviceMemory());
    EXPECT_EQ(block->Size(), 640U * 480U);
    std::memset(block->Data(), 1, block->Size());
    EXPECT_EQ(MemorySource::DeviceMemoryInUse() - before, 640U * 480U);
    EXPECT_EQ(BlocksOut(), 1U);
    block.reset();
    EXPECT_EQ(MemorySource::DeviceMemoryInUse(), before);
    EXPECT_EQ(BlocksOut(), 0U);
}

TEST_F(MemorySourceTest, Allocate_LessThanTheReserveWouldStayFree_GivesOrdinaryMemory)
{
    MemorySource source(m_handle, m_fast);
    source.Allocate(4096); // the measurement is over
    // The block itself, and then not the whole reserve.
    vusb_fail_call("libusb_dev_mem_alloc", 4, 1, 0);
    const auto block = source.Allocate(4096);
    EXPECT_FALSE(block->IsDeviceMemory());
    EXPECT_EQ(BlocksOut(), 0U);
    EXPECT_TRUE(source.Allocate(4096)->IsDeviceMemory()); // as soon as there is some again
}

TEST_F(MemorySourceTest, Allocate_TheReserve_IsFourMebibytes)
{
    MemorySource source(m_handle, m_fast);
    source.Allocate(4096);
    vusb_journal_clear();
    source.Allocate(4096);
    uint64_t reserve = 0;
    for (const vusb_call& call : vusb::Calls("libusb_dev_mem_alloc")) {
        reserve += call.arguments[0];
    }
    EXPECT_GE(reserve - 4096, uint64_t{4} << 20);
}

TEST_F(MemorySourceTest, Allocate_NoDeviceMemory_GivesPageAlignedOrdinaryMemory)
{
    vusb_fail_call("libusb_dev_mem_alloc", 0, 0, 0);
    MemorySource source(m_handle, m_fast);
    for (const size_t size : {size_t{1}, size_t{4096}, size_t{307200}}) {
        const auto block = source.Allocate(size);
        EXPECT_FALSE(block->IsDeviceMemory());
        EXPECT_EQ(block->Size(), size);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(block->Data()) %
                      static_cast<uintptr_t>(sysconf(_SC_PAGESIZE)),
                  0U);
        std::memset(block->Data(), 1, size);
    }
    EXPECT_EQ(MemorySource::DeviceMemoryInUse(), 0U);
}

TEST_F(MemorySourceTest, Allocate_MoreThanThereIs_IsBadAlloc)
{
    vusb_fail_call("libusb_dev_mem_alloc", 0, 0, 0);
    MemorySource source(m_handle, m_fast);
    EXPECT_THROW(source.Allocate(SIZE_MAX), std::bad_alloc);
#ifndef ZR_SANITIZED // their allocators end the process instead
    EXPECT_THROW(source.Allocate(SIZE_MAX / 2), std::bad_alloc);
#endif
}

// Device memory is the first that is timed, ordinary memory the second.
DeviceMemorySpeed::Timer Times(nanoseconds device, nanoseconds ordinary, int& measured)
{
    return [=, &measured](std::span<const uint8_t>) {
        return measured++ % 2 == 0 ? device : ordinary;
    };
}

TEST_F(MemorySourceTest, Allocate_DeviceMemoryBelowAThirdOfTheSpeed_GivesOrdinaryMemory)
{
    int measured = 0;
    DeviceMemorySpeed speed(Times(nanoseconds(301), nanoseconds(100), measured));
    MemorySource source(m_handle, speed);
    EXPECT_FALSE(source.Allocate(4096)->IsDeviceMemory());
}

TEST_F(MemorySourceTest, Allocate_DeviceMemoryAThirdOfTheSpeed_GivesIt)
{
    int measured = 0;
    DeviceMemorySpeed speed(Times(nanoseconds(300), nanoseconds(100), measured));
    MemorySource source(m_handle, speed);
    EXPECT_TRUE(source.Allocate(4096)->IsDeviceMemory());
}

TEST_F(MemorySourceTest, Allocate_AnyNumberOfTimes_MeasuresOnce)
{
    int measured = 0;
    DeviceMemorySpeed speed(Times(nanoseconds(1), nanoseconds(1), measured));
    MemorySource source(m_handle, speed);
    MemorySource other(m_handle, speed);
    source.Allocate(4096);
    source.Allocate(4096);
    other.Allocate(4096);
    EXPECT_EQ(measured, 2);
}

TEST_F(MemorySourceTest, Allocate_NothingToMeasureYet_MeasuresAtTheNextBlock)
{
    int measured = 0;
    DeviceMemorySpeed speed(Times(nanoseconds(1), nanoseconds(1), measured));
    MemorySource source(m_handle, speed);
    vusb_fail_call("libusb_dev_mem_alloc", 0, 1, 0);
    EXPECT_FALSE(source.Allocate(4096)->IsDeviceMemory());
    EXPECT_EQ(measured, 0);
    EXPECT_TRUE(source.Allocate(4096)->IsDeviceMemory());
}

TEST_F(MemorySourceTest, TimeToRead_OrdinaryMemory_IsAboutTheSameForEqualBlocks)
{
    const std::vector<uint8_t> first(0x40000, 1);
    const std::vector<uint8_t> second(0x40000, 2);
    EXPECT_GT(TimeToRead(first), nanoseconds(0));
    // Whatever else the machine does may take its time once, not each time.
    EXPECT_TRUE(Eventually([&] { return TimeToRead(first) < 3 * TimeToRead(second); }));
}

TEST_F(MemorySourceTest, Block_CameraIsClosed_StaysUntilItIsFreed)
{
    auto opened = OpenOnly();
    auto block = opened->AllocateBuffer(4096);
    ASSERT_TRUE(block->IsDeviceMemory());
    EXPECT_EQ(opened->DeviceMemoryInUse(), 4096U);
    opened.reset();
    CloseList();
    std::memset(block->Data(), 1, block->Size());
    EXPECT_EQ(BlocksOut(), 1U);
    block.reset();
    EXPECT_EQ(BlocksOut(), 0U);
}

TEST_F(MemorySourceTest, Block_CameraIsUnplugged_CanBeFreed)
{
    auto opened = OpenOnly();
    auto block = opened->AllocateBuffer(4096);
    m_camera.Unplug();
    block.reset();
    EXPECT_EQ(BlocksOut(), 0U);
}

} // namespace
} // namespace u3v_host
