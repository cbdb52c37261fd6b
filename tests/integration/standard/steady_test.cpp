// What an application does again and again allocates nothing. Counted over the whole process but
// for the USB stack's own calls.

#include "allocation_count.h"
#include "standard_camera.h"
#include "usb_tap.h"

namespace standard_tests {
namespace {

constexpr int kRounds = 300; // far more than any queue or list holds

class SteadyWork : public StandardProducer
{
protected:
    void SetUp() override
    {
        StandardProducer::SetUp();
        ASSERT_TRUE(allocation_count::Works());
    }
    // Allocations of repeated calls, without what the first few have built up.
    static uint64_t AllocationsOf(const std::function<void()>& call)
    {
        for (int i = 0; i < 20; ++i) {
            call();
        }
        const uint64_t before = allocation_count::Total();
        for (int i = 0; i < kRounds; ++i) {
            call();
        }
        return allocation_count::Total() - before;
    }
};

TEST_F(SteadyWork, Images_OfEitherMemory_AllocateNothing)
{
    Open("width=640,height=480,pattern=still");
    for (const BufferMemory memory : {BufferMemory::OfProducer, BufferMemory::OfConsumer}) {
        Announce(4, memory);
        images->Start();
        const auto turn = [this] {
            const auto image = Next();
            ASSERT_TRUE(image);
            Queue(*image);
        };
        EXPECT_EQ(AllocationsOf(turn), 0U);
        images.reset();
    }
}

TEST_F(SteadyWork, WaitsThatTimeOut_AllocateNothing)
{
    Open("");
    Announce();
    EXPECT_EQ(AllocationsOf([this] { EXPECT_FALSE(images->Next(0)); }), 0U);
}

// Those that have no answer, too: applications ask them with every image.
TEST_F(SteadyWork, BufferQueries_AllocateNothing)
{
    Open("width=64,height=64");
    Announce();
    images->Start();
    const auto image = Next();
    ASSERT_TRUE(image);
    const auto ask = [&] {
        for (BUFFER_INFO_CMD command = 0; command <= BUFFER_INFO_IS_COMPOSITE + 1; ++command) {
            uint64_t value = 0;
            size_t size = sizeof(value);
            Gentl().DSGetBufferInfo(opened->Stream().Handle(), image->buffer, command, nullptr,
                                    &value, &size);
        }
        uint32_t parts = 0;
        EXPECT_EQ(Gentl().DSGetNumBufferParts(opened->Stream().Handle(), image->buffer, &parts),
                  GC_ERR_NO_DATA);
    };
    EXPECT_EQ(AllocationsOf(ask), 0U);
}

TEST_F(SteadyWork, CameraRegisters_AllocateNothing)
{
    Open("");
    const auto access = [this] {
        uint32_t value = 0;
        EXPECT_EQ(opened->TryRead(camera_features::kWidth, &value, sizeof(value)), GC_ERR_SUCCESS);
        EXPECT_EQ(opened->TryWrite(camera_features::kWidth, &value, sizeof(value)), GC_ERR_SUCCESS);
    };
    EXPECT_EQ(AllocationsOf(access), 0U);
}

TEST_F(SteadyWork, CountsOfTheStream_AllocateNothing)
{
    Open("");
    const auto ask = [this] {
        opened->Stream().Info<uint64_t>(STREAM_INFO_NUM_DELIVERED);
        opened->Stream().Info<size_t>(STREAM_INFO_NUM_QUEUED);
        opened->Stream().Info<bool8_t>(STREAM_INFO_IS_GRABBING);
    };
    EXPECT_EQ(AllocationsOf(ask), 0U);
}

TEST_F(SteadyWork, RemoteEvents_AllocateNothing)
{
    Open("events=1");
    EVENT_HANDLE event = Register(opened->Device(), EVENT_REMOTE_DEVICE);
    const auto turn = [&] {
        {
            const allocation_count::Uncounted sending;
            ASSERT_TRUE(camera->SendEvent(0x9000, {1, 2, 3, 4}));
        }
        std::array<uint8_t, 64> record{};
        size_t size = record.size();
        ASSERT_EQ(Gentl().EventGetData(event, record.data(), &size, kImageTimeout), GC_ERR_SUCCESS);
    };
    // Every entry of the queue gets its memory once.
    for (int i = 0; i < 100; ++i) {
        turn();
    }
    EXPECT_EQ(AllocationsOf(turn), 0U);
}

} // namespace
} // namespace standard_tests
