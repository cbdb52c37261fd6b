#include "u3v_image_handover.h"

#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <thread>

namespace {

class HandoverTest : public testing::Test
{
protected:
    static constexpr uint32_t kSize = 64;

    void Begin(size_t count, uint32_t size = kSize)
    {
        U3V_ImageHandover::Buffers buffers;
        for (size_t i = 0; i < count; ++i) {
            buffers.push_back(std::make_shared<U3V_Buffer>(size));
        }
        token = handover.Begin(std::move(buffers));
    }

    // An image whose bytes and header all say `id`.
    void Publish(uint8_t id)
    {
        IMAGE_HEADER leader{};
        leader.nBlockId = id;
        const std::vector<uint8_t> image(kSize, id);
        handover.Publish(token, image, &leader);
    }

    uint16_t Get(uint32_t timeout = 0)
    {
        return handover.GetImage(data, sizeof(data), timeout, header);
    }

    U3V_ImageHandover handover;
    uint64_t token = 0;
    uint8_t data[kSize] = {};
    IMAGE_HEADER header{};
};

TEST_F(HandoverTest, GetImage_InOrder)
{
    Begin(4);
    Publish(1);
    Publish(2);
    EXPECT_EQ(Get(), 0);
    EXPECT_EQ(data[0], 1);
    EXPECT_EQ(data[kSize - 1], 1);
    EXPECT_EQ(+header.nBlockId, 1U);
    EXPECT_EQ(Get(), 0);
    EXPECT_EQ(+header.nBlockId, 2U);
    EXPECT_EQ(Get(), 0xC018);
}

TEST_F(HandoverTest, GetImage_NothingWithinTheTimeout)
{
    Begin(4);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(Get(60), 0xC018);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(50));
}

TEST_F(HandoverTest, GetImage_NegativeTimeout_EndsAtOnce)
{
    Begin(4);
    // Seconds in the past, or a deadline that is none: which one depends on the moment.
    EXPECT_EQ(Get(static_cast<uint32_t>(-5000)), 0xC018);
    const uint16_t status = Get(static_cast<uint32_t>(-999));
    EXPECT_TRUE(status == 0xC018 || status == 0xC01B) << status;
    Publish(1);
    EXPECT_EQ(Get(static_cast<uint32_t>(-999)), 0); // an image that is there needs no deadline
}

TEST_F(HandoverTest, GetImage_ArrivesDuringTheWait)
{
    Begin(2);
    std::thread event([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        Publish(7);
    });
    EXPECT_EQ(Get(5000), 0);
    EXPECT_EQ(+header.nBlockId, 7U);
    event.join();
}

TEST_F(HandoverTest, GetImage_WaitBegunBeforeTheAcquisition_GetsItsFirstImage)
{
    std::thread event([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        Begin(2);
        Publish(7);
    });
    EXPECT_EQ(Get(5000), 0);
    event.join();
    EXPECT_EQ(+header.nBlockId, 7U);
}

TEST_F(HandoverTest, SlowReader_IsAnsweredOncePerImageWithOverwrittenContent)
{
    Begin(3);
    for (uint8_t id = 1; id <= 5; ++id) {
        Publish(id); // 1 and 2 are overwritten by 4 and 5
    }
    for (const int expected : {4, 5, 3, 4, 5}) {
        EXPECT_EQ(Get(), 0);
        EXPECT_EQ(+header.nBlockId, static_cast<uint64_t>(expected));
        EXPECT_EQ(data[0], expected);
    }
    EXPECT_EQ(Get(), 0xC018);
}

TEST_F(HandoverTest, ManyUnreadImages_AreAllAnswered)
{
    Begin(2);
    for (int i = 0; i < 1001; ++i) {
        Publish(static_cast<uint8_t>(i));
    }
    for (int i = 0; i < 1001; ++i) {
        ASSERT_EQ(Get(), 0);
        ASSERT_EQ(data[0], static_cast<uint8_t>(i % 2 == 0 ? 1000 : 999));
    }
    EXPECT_EQ(Get(), 0xC018);
}

TEST_F(HandoverTest, NoBuffers_DropsTheImage)
{
    Begin(0);
    Publish(1);
    EXPECT_EQ(Get(), 0xC018);
}

TEST_F(HandoverTest, BuffersOfNoBytes_AreAnsweredWithTheHeaderAlone)
{
    Begin(2, 0);
    Publish(1);
    data[0] = 9;
    EXPECT_EQ(Get(), 0);
    EXPECT_EQ(+header.nBlockId, 1U);
    EXPECT_EQ(data[0], 9);
}

TEST_F(HandoverTest, LostLeader_KeepsTheHeaderOfTheBuffersEarlierImage)
{
    Begin(1);
    Publish(1);
    EXPECT_EQ(Get(), 0);
    const std::vector<uint8_t> image(kSize, 2);
    handover.Publish(token, image, nullptr);
    EXPECT_EQ(Get(), 0);
    EXPECT_EQ(+header.nBlockId, 1U);
    EXPECT_EQ(data[0], 2);
}

TEST_F(HandoverTest, MissingBytes_AreNeverSet)
{
    Begin(1);
    IMAGE_HEADER leader{};
    leader.nMissingBytes = 77;
    const std::vector<uint8_t> image(kSize, 2);
    handover.Publish(token, image, &leader);
    EXPECT_EQ(Get(), 0);
    EXPECT_EQ(+header.nMissingBytes, 0U);
}

TEST_F(HandoverTest, DestinationTooSmall_GetsWhatFitsAndMissingPackets)
{
    Begin(2);
    Publish(5);
    EXPECT_EQ(handover.GetImage(data, 10, 0, header), 0xC019);
    EXPECT_EQ(data[9], 5);
    EXPECT_EQ(data[10], 0);
    EXPECT_EQ(+header.nBlockId, 5U);
    EXPECT_EQ(+header.nMissingBytes, 0U);
    EXPECT_EQ(Get(), 0xC018); // taken all the same
    Publish(6);
    EXPECT_EQ(handover.GetImage(data, kSize, 0, header), 0);
}

TEST_F(HandoverTest, End_DropsReadyImages)
{
    Begin(2);
    Publish(1);
    handover.End();
    EXPECT_EQ(Get(), 0xC018);
}

TEST_F(HandoverTest, LateImageOfAnEndedAcquisition_IsIgnored)
{
    Begin(2);
    const uint64_t old = token;
    Begin(2);
    const std::vector<uint8_t> image(kSize, 9);
    handover.Publish(old, image, nullptr);
    EXPECT_EQ(Get(), 0xC018);
}

TEST_F(HandoverTest, ConcurrentReaders_NeitherTearNorDouble)
{
    constexpr int kImages = 300;
    Begin(4);
    std::atomic<int> taken = 0;
    std::atomic<int> torn = 0;
    std::atomic<bool> done = false;
    std::vector<std::thread> readers;
    for (int i = 0; i < 3; ++i) {
        readers.emplace_back([&] {
            uint8_t mine[kSize];
            IMAGE_HEADER own{};
            while (!done) {
                if (handover.GetImage(mine, sizeof(mine), 5, own) == 0) {
                    ++taken;
                    torn += mine[0] != mine[kSize - 1] || mine[0] != (own.nBlockId & 0xFF);
                }
            }
        });
    }
    for (int i = 0; i < kImages; ++i) {
        Publish(static_cast<uint8_t>(i));
    }
    while (taken < kImages) {
        std::this_thread::yield();
    }
    done = true;
    for (auto& reader : readers) {
        reader.join();
    }
    EXPECT_EQ(taken, kImages);
    EXPECT_EQ(torn, 0);
}

TEST_F(HandoverTest, EndAndBeginDuringReads_AreSafe)
{
    std::atomic<bool> done = false;
    std::thread reader([&] {
        uint8_t mine[kSize];
        IMAGE_HEADER own{};
        while (!done) {
            handover.GetImage(mine, sizeof(mine), 1, own);
        }
    });
    for (int i = 0; i < 200; ++i) {
        Begin(3);
        Publish(1);
        Publish(2);
        handover.End();
    }
    done = true;
    reader.join();
}

} // namespace
