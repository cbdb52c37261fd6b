// What a consumer does again and again allocates nothing: images, events, register accesses.
// Counted over the whole process but for the USB stack's own calls; a single allocation is a
// failure.

#include <array>
#include <functional>
#include <string>
#include <vector>

#include "allocation_count.h"
#include "producer_session.h"
#include "usb_tap.h"

namespace {

constexpr uint64_t kTriggerMode = 0x501EC;
constexpr uint64_t kRounds = 300; // far more than any list or block holds

class SteadyState : public ProducerTest
{
protected:
    void SetUp() override
    {
        ProducerTest::SetUp();
        ASSERT_TRUE(allocation_count::Works());
    }
};

// What the call allocates when repeated, without what the first few times have built up.
uint64_t AllocationsOf(const std::function<void()>& call, uint64_t warm = 20)
{
    for (uint64_t i = 0; i < warm; ++i) {
        call();
    }
    const uint64_t before = allocation_count::Total();
    for (uint64_t i = 0; i < kRounds; ++i) {
        call();
    }
    return allocation_count::Total() - before;
}

GC_ERROR ReadPort(PORT_HANDLE port, uint64_t address, size_t size)
{
    std::array<uint8_t, 1024> data{};
    return GCReadPort(port, address, data.data(), &size);
}

struct RegisterRow
{
    uint64_t address;
    size_t size;
};

void ExpectFreeReads(PORT_HANDLE port, const std::vector<RegisterRow>& rows)
{
    for (const RegisterRow& row : rows) {
        EXPECT_EQ(ReadPort(port, row.address, row.size), GC_ERR_SUCCESS) << std::hex << row.address;
        EXPECT_EQ(AllocationsOf([&] { ReadPort(port, row.address, row.size); }), 0u)
            << std::hex << row.address;
    }
}

} // namespace

TEST_F(SteadyState, Images_AllocateNothing)
{
    const vusb::Camera device("width=640,height=480,pattern=still");
    const Producer producer;
    const OpenCamera camera(producer);
    const ImageStream images(camera.Stream(), device.PayloadSize(), 4);
    const Triggers triggers(camera);
    ASSERT_EQ(images.Start(), GC_ERR_SUCCESS);
    triggers.Fire(2);
    uint64_t delivered = 0;
    const auto turn = [&] {
        const auto image = images.Next();
        ASSERT_TRUE(image.has_value());
        ASSERT_EQ(images.Queue(image->handle), GC_ERR_SUCCESS);
        ++delivered;
        triggers.Fire(1);
    };
    EXPECT_EQ(AllocationsOf(turn), 0u);
    EXPECT_EQ(delivered, 20 + kRounds);
    // Images again without triggers: the stop waits for the transfer in flight.
    const uint32_t off = 0;
    EXPECT_EQ(camera.Write(kTriggerMode, &off, sizeof(off)), GC_ERR_SUCCESS);
    EXPECT_EQ(images.Stop(), GC_ERR_SUCCESS);
}

TEST_F(SteadyState, EventsThatTimeOut_AllocateNothing)
{
    const vusb::Camera device;
    const Producer producer;
    const OpenCamera camera(producer);
    const ImageStream images(camera.Stream(), device.PayloadSize(), 2);
    const auto wait = [&] { EXPECT_FALSE(images.Next(0).has_value()); };
    EXPECT_EQ(AllocationsOf(wait), 0u);
}

TEST_F(SteadyState, BufferQueries_AllocateNothing)
{
    const vusb::Camera device;
    const Producer producer;
    const OpenCamera camera(producer);
    const ImageStream images(camera.Stream(), device.PayloadSize(), 2);
    const auto ask = [&] {
        images.Base(images.Handles()[1]);
        images.SizeFilled(images.Handles()[1]);
        images.IsIncomplete(images.Handles()[1]);
    };
    EXPECT_EQ(AllocationsOf(ask), 0u);
}

TEST_F(SteadyState, CameraRegisters_AllocateNothing)
{
    const vusb::Camera device;
    const Producer producer;
    const OpenCamera camera(producer);
    ExpectFreeReads(camera.Port(), {{0x50000, 4}, {0x50000, 64}, {0x4, 64}, {0x60000, 1024}});
    uint32_t value = 7;
    const auto write = [&] {
        EXPECT_EQ(camera.Write(0x60000, &value, sizeof(value)), GC_ERR_SUCCESS);
    };
    EXPECT_EQ(AllocationsOf(write), 0u);
}

// The System's path register is left out: it asks the file system anew each time.
TEST_F(SteadyState, VirtualRegisters_AllocateNothing)
{
    const vusb::Camera device("vendor=A vendor with a long name,model=A model with a long name");
    const Producer producer;
    const OpenCamera camera(producer);
    constexpr size_t kText = 256;
    ExpectFreeReads(producer.System(), {{0x50000, kText},
                                        {0x50100, kText},
                                        {0x50200, kText},
                                        {0x50300, kText},
                                        {0x50504, 4},
                                        {0x5050C, 4},
                                        {0x50514, kText},
                                        {0x50614, 4}});
    ExpectFreeReads(producer.Interface(), {{0x60000, kText},
                                           {0x60104, 4},
                                           {0x6010C, kText},
                                           {0x6020C, kText},
                                           {0x6030C, kText},
                                           {0x6040C, 4},
                                           {0x60410, 4}});
    ExpectFreeReads(camera.Device(), {{0x70000, kText},
                                      {0x70100, kText},
                                      {0x70200, kText},
                                      {0x70300, 4},
                                      {0x70304, 4},
                                      {0x70308, kText},
                                      {0x70408, 4},
                                      {0x7041C, kText}});
    ExpectFreeReads(camera.Stream(),
                    {{0x80000, kText}, {0x80100, 4}, {0x80104, 4}, {0x80108, 4}, {0x8010C, 8}});
}

TEST_F(SteadyState, FailingCalls_AllocateNothing)
{
    const vusb::Camera device;
    const Producer producer;
    const OpenCamera camera(producer);
    const auto fail = [&] {
        EXPECT_EQ(ReadPort(nullptr, 0, 4), GC_ERR_INVALID_HANDLE);
        EXPECT_EQ(ReadPort(camera.Stream(), 0x12345, 4), GC_ERR_NOT_IMPLEMENTED);
        EXPECT_EQ(DSQueueBuffer(camera.Stream(), nullptr), GC_ERR_INVALID_HANDLE);
    };
    EXPECT_EQ(AllocationsOf(fail), 0u);
}
