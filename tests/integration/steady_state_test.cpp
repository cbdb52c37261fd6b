// What a consumer does again and again allocates nothing: images, events, register accesses.
// Counted over the whole process but for the USB stack's own calls; a single allocation is a
// failure.

#include <array>
#include <functional>
#include <string>
#include <vector>

#include "allocation_count.h"
#include "lock_count.h"
#include "producer_fixture.h"
#include "usb_tap.h"

namespace {

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
    return Gentl().GCReadPort(port, address, data.data(), &size);
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

TEST_F(SteadyState, Images_AllocateNothing)
{
    const vusb::Camera device("width=640,height=480,pattern=still");
    const auto session = OpenSession();
    const OpenCamera camera(session);
    ImageStream images(camera, device.PayloadSize(), 4);
    const Triggers triggers(camera);
    images.Start();
    triggers.Fire(2);
    uint64_t delivered = 0;
    const auto turn = [&] {
        const auto image = images.Next();
        ASSERT_TRUE(image.has_value());
        images.Queue(image->buffer);
        ++delivered;
        triggers.Fire(1);
    };
    EXPECT_EQ(AllocationsOf(turn), 0u);
    EXPECT_EQ(delivered, 20 + kRounds);
    // Images again without triggers: the stop waits for the transfer in flight.
    camera.Write<uint32_t>(camera_features::kTriggerMode, 0);
    images.Stop();
}

// From the channel's image to the consumer's event; each lock is a chance to wait for somebody.
TEST_F(SteadyState, Images_TakeTwentyLocksOfTheAcquisitionThreadAtMost)
{
    const vusb::Camera device("width=64,height=64,pattern=still");
    const auto session = OpenSession();
    const OpenCamera camera(session);
    ImageStream images(camera, device.PayloadSize(), 4);
    const Triggers triggers(camera);
    images.Start();
    triggers.Fire(2);
    const auto turn = [&] {
        const auto image = images.Next();
        ASSERT_TRUE(image.has_value());
        images.Queue(image->buffer);
        triggers.Fire(1);
    };
    lock_count::Begin(reinterpret_cast<const void*>(Gentl().GCInitLib));
    for (uint64_t i = 0; i < kRounds; ++i) {
        turn();
    }
    const uint64_t locks = lock_count::OfWaitingThreads();
    EXPECT_GE(locks, 10 * kRounds) << "not counted at all";
    EXPECT_LE(locks, 20 * kRounds);
    RecordProperty("locks_of_an_image", std::to_string(locks / kRounds));
    camera.Write<uint32_t>(camera_features::kTriggerMode, 0);
    images.Stop();
}

TEST_F(SteadyState, EventsThatTimeOut_AllocateNothing)
{
    const vusb::Camera device;
    const auto session = OpenSession();
    const OpenCamera camera(session);
    ImageStream images(camera, device.PayloadSize(), 2);
    const auto wait = [&] { EXPECT_FALSE(images.Next(0).has_value()); };
    EXPECT_EQ(AllocationsOf(wait), 0u);
}

TEST_F(SteadyState, BufferQueries_AllocateNothing)
{
    const vusb::Camera device;
    const auto session = OpenSession();
    const OpenCamera camera(session);
    ImageStream images(camera, device.PayloadSize(), 2);
    const auto ask = [&] {
        BUFFER_HANDLE const buffer = images.Buffers()[1];
        images.Info<void*>(buffer, BUFFER_INFO_BASE);
        images.Info<size_t>(buffer, BUFFER_INFO_SIZE_FILLED);
        images.Info<bool8_t>(buffer, BUFFER_INFO_IS_INCOMPLETE);
    };
    EXPECT_EQ(AllocationsOf(ask), 0u);
}

TEST_F(SteadyState, CameraRegisters_AllocateNothing)
{
    const vusb::Camera device;
    const auto session = OpenSession();
    const OpenCamera camera(session);
    ExpectFreeReads(camera.Port(), {{0x50000, 4}, {0x50000, 64}, {0x4, 64}, {0x60000, 1024}});
    const uint32_t value = 7;
    const auto write = [&] { camera.Write(0x60000, value); };
    EXPECT_EQ(AllocationsOf(write), 0u);
}

// The System's path register is left out: it asks the file system anew each time.
TEST_F(SteadyState, VirtualRegisters_AllocateNothing)
{
    const vusb::Camera device("vendor=A vendor with a long name,model=A model with a long name");
    const auto session = OpenSession();
    const OpenCamera camera(session);
    constexpr size_t kText = 256;
    ExpectFreeReads(session.System(), {{0x50000, kText},
                                       {0x50100, kText},
                                       {0x50200, kText},
                                       {0x50300, kText},
                                       {0x50504, 4},
                                       {0x5050C, 4},
                                       {0x50514, kText},
                                       {0x50614, 4}});
    ExpectFreeReads(session.Interface(), {{0x60000, kText},
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
    ExpectFreeReads(camera.Stream().Handle(),
                    {{0x80000, kText}, {0x80100, 4}, {0x80104, 4}, {0x80108, 4}, {0x8010C, 8}});
}

TEST_F(SteadyState, FailingCalls_AllocateNothing)
{
    const vusb::Camera device;
    const auto session = OpenSession();
    const OpenCamera camera(session);
    const auto fail = [&] {
        EXPECT_EQ(ReadPort(nullptr, 0, 4), GC_ERR_INVALID_HANDLE);
        EXPECT_EQ(ReadPort(camera.Stream().Handle(), 0x12345, 4), GC_ERR_NOT_IMPLEMENTED);
        EXPECT_EQ(Gentl().DSQueueBuffer(camera.Stream().Handle(), nullptr), GC_ERR_INVALID_HANDLE);
    };
    EXPECT_EQ(AllocationsOf(fail), 0u);
}

} // namespace
