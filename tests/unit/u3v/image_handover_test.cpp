#include "u3v_image_handover.h"
#include "wait.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <deque>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <set>
#include <span>
#include <thread>
#include <vector>

namespace {

class HandoverTest : public testing::Test
{
protected:
    static constexpr uint32_t kSize = 64;

    void Begin(size_t count, size_t size = kSize, size_t transferSize = kSize)
    {
        UsbBlockSource source(nullptr);
        cycle = std::make_shared<U3V_ImageCycle>(source, count, size, transferSize);
        payload = handover.Begin(cycle);
    }

    // As the bus does: `bytes` arrive at `offset`.
    static void Receive(U3V_PayloadInProgress& image, size_t offset, std::span<const uint8_t> bytes)
    {
        const std::span<uint8_t> place = image.ReadAt(offset);
        ASSERT_LE(bytes.size(), place.size());
        std::copy(bytes.begin(), bytes.end(), place.begin());
        image.Written(offset, bytes.size());
    }

    // An image whose bytes and header all say `id`.
    void Publish(uint8_t id)
    {
        IMAGE_HEADER leader{};
        leader.nBlockId = id;
        PublishBytes(id, &leader);
    }

    void PublishBytes(uint8_t value, const IMAGE_HEADER* leader)
    {
        const std::span<uint8_t> place = payload.ReadAt(0);
        std::fill(place.begin(), place.end(), value);
        payload.Written(0, place.size());
        handover.Publish(cycle, payload, leader);
    }

    uint16_t Get(uint32_t timeout = 0)
    {
        return handover.GetImage(data, sizeof(data), timeout, header);
    }

    U3V_ImageHandover handover;
    std::shared_ptr<U3V_ImageCycle> cycle;
    U3V_PayloadInProgress payload;
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
    uint16_t status = 0xC018;
    for (int attempt = 0; attempt < 1000 && status == 0xC018; ++attempt) {
        status = Get(static_cast<uint32_t>(-999)); // no deadline but in a second's last millisecond
    }
    EXPECT_EQ(status, 0xC01B);
    Publish(1);
    EXPECT_EQ(Get(static_cast<uint32_t>(-999)), 0); // an image that is there needs no deadline
}

TEST_F(HandoverTest, GetImage_ArrivesDuringTheWait)
{
    Begin(2);
    zr_test::WatchedThread reader([&] { EXPECT_EQ(Get(60000), 0); });
    EXPECT_TRUE(reader.UntilAsleep());
    EXPECT_FALSE(reader.HasEnded());
    Publish(7);
    reader.Join();
    EXPECT_EQ(+header.nBlockId, 7U);
}

TEST_F(HandoverTest, GetImage_WaitBegunBeforeTheAcquisition_GetsItsFirstImage)
{
    zr_test::WatchedThread reader([&] { EXPECT_EQ(Get(60000), 0); });
    EXPECT_TRUE(reader.UntilAsleep());
    EXPECT_FALSE(reader.HasEnded());
    Begin(2);
    Publish(7);
    reader.Join();
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
    PublishBytes(2, nullptr);
    EXPECT_EQ(Get(), 0);
    EXPECT_EQ(+header.nBlockId, 1U);
    EXPECT_EQ(data[0], 2);
}

TEST_F(HandoverTest, MissingBytes_AreNeverSet)
{
    Begin(1);
    IMAGE_HEADER leader{};
    leader.nMissingBytes = 77;
    PublishBytes(2, &leader);
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
    const std::shared_ptr<U3V_ImageCycle> old = cycle;
    U3V_PayloadInProgress late = payload;
    Begin(2);
    handover.Publish(old, late, nullptr);
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

// One buffer, so three blocks: two that are being copied out and the newest. The images are large,
// for the copies to last, and go into memory that has yet to be had.
TEST_F(HandoverTest, Publish_EveryBlockInUse_WaitsForAReader)
{
    constexpr size_t kLarge = 48U << 20U;
    Begin(1, kLarge, kLarge);
    for (uint8_t id = 1; id <= 3; ++id) { // touches the blocks
        Publish(id);
        ASSERT_EQ(Get(), U3V_STATUS_IMAGE_MISSING_PACKETS);
    }
    std::atomic<int> torn = 0;
    const auto read = [&] {
        const std::unique_ptr<uint8_t, decltype(&std::free)> mine(
            static_cast<uint8_t*>(std::malloc(kLarge)), &std::free);
        IMAGE_HEADER own{};
        ASSERT_EQ(handover.GetImage(mine.get(), kLarge, 60'000, own), 0);
        torn += !std::all_of(mine.get(), mine.get() + kLarge,
                             [&](uint8_t byte) { return byte == (own.nBlockId & 0xFF); });
    };
    std::vector<std::thread> readers;
    for (uint8_t id = 4; id <= 9; ++id) {
        readers.emplace_back(read);
        Publish(id);
    }
    for (auto& reader : readers) {
        reader.join();
    }
    EXPECT_EQ(torn, 0);
}

TEST_F(HandoverTest, EndAndBeginDuringReads_AreSafe)
{
    std::atomic<bool> done = false;
    std::atomic<int> torn = 0;
    std::thread reader([&] {
        uint8_t mine[kSize];
        IMAGE_HEADER own{};
        while (!done) {
            if (handover.GetImage(mine, sizeof(mine), 1, own) == 0) {
                torn += !std::all_of(mine, mine + kSize,
                                     [&](uint8_t byte) { return byte == own.nBlockId; });
            }
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
    EXPECT_EQ(torn, 0);
    Begin(3);
    Publish(5);
    EXPECT_EQ(Get(), 0);
    EXPECT_EQ(data[0], 5);
}

// What the hand-over has to look like: one payload block that every image is received into and
// copied from, into the buffer whose turn it is, which a reader copies out.
class CopyingModel
{
public:
    CopyingModel(size_t count, size_t size) : m_payload(size), m_buffers(count) {}

    void Receive(size_t offset, std::span<const uint8_t> bytes)
    {
        std::copy(bytes.begin(), bytes.end(), m_payload.begin() + static_cast<ptrdiff_t>(offset));
    }
    void Publish(const IMAGE_HEADER* header)
    {
        auto& [image, kept] = m_buffers[m_front];
        image = m_payload;
        kept = header != nullptr ? +header->nBlockId : kept;
        m_ready.push_back(m_front);
        m_front = (m_front + 1) % m_buffers.size();
    }
    size_t Ready() const { return m_ready.size(); }
    std::pair<std::vector<uint8_t>, uint64_t> Take()
    {
        const size_t taken = m_ready.front();
        m_ready.pop_front();
        return m_buffers[taken];
    }

private:
    std::vector<uint8_t> m_payload;
    std::vector<std::pair<std::vector<uint8_t>, uint64_t>> m_buffers;
    std::deque<size_t> m_ready;
    size_t m_front = 0;
};

struct Shape
{
    size_t buffers;
    size_t size;
    size_t transfer;
};

class HandoverLikeCopying : public HandoverTest, public testing::WithParamInterface<Shape>
{
protected:
    // Some reads at and beyond where the last one ended, some again, some cut short, some left out.
    void ReceiveSomething(CopyingModel& model)
    {
        const Shape& shape = GetParam();
        for (size_t offset = 0; offset < shape.size; offset += shape.transfer) {
            const size_t length = std::min(shape.transfer, shape.size - offset);
            for (auto tries = random() % 3; tries > 0; --tries) {
                std::vector<uint8_t> bytes(random() % 2 != 0 ? length : random() % (length + 1));
                std::generate(bytes.begin(), bytes.end(),
                              [this] { return static_cast<uint8_t>(random()); });
                Receive(payload, offset, bytes);
                model.Receive(offset, bytes);
            }
        }
    }

    void ExpectSameAnswer(CopyingModel& model)
    {
        std::vector<uint8_t> image(GetParam().size);
        if (model.Ready() == 0) {
            EXPECT_EQ(handover.GetImage(image.data(), image.size(), 0, header), 0xC018);
            return;
        }
        const auto [expected, id] = model.Take();
        ASSERT_EQ(handover.GetImage(image.data(), image.size(), 0, header), 0);
        ASSERT_EQ(image, expected);
        ASSERT_EQ(+header.nBlockId, id);
    }

    std::mt19937 random{4711};
};

TEST_P(HandoverLikeCopying, IncompleteRepeatedAndOverwrittenImages_CannotBeToldApart)
{
    const Shape& shape = GetParam();
    Begin(shape.buffers, shape.size, shape.transfer);
    CopyingModel model(shape.buffers, shape.size);
    for (uint64_t step = 0; step < 3000 && !HasFatalFailure(); ++step) {
        if (random() % 2 == 0) {
            ReceiveSomething(model);
            IMAGE_HEADER leader{};
            leader.nBlockId = step;
            const IMAGE_HEADER* const sent = random() % 4 != 0 ? &leader : nullptr;
            handover.Publish(cycle, payload, sent);
            model.Publish(sent);
        }
        // In stretches faster or slower than the images come.
        for (auto reads = random() % (step / 500 % 2 + 2); reads > 0; --reads) {
            ExpectSameAnswer(model);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Shapes, HandoverLikeCopying,
                         testing::Values(Shape{1, 64, 64}, Shape{1, 100, 16}, Shape{2, 64, 20},
                                         Shape{3, 1, 1}, Shape{5, 1000, 256}, Shape{8, 77, 100}));

TEST_F(HandoverTest, ImagesLargerThanASegment_AreWholeAgain)
{
    constexpr size_t kTransfer = 0x100000;
    constexpr size_t kImage = 2 * kTransfer + 12345;
    Begin(2, kImage, kTransfer);
    std::vector<uint8_t> sent(kImage);
    for (size_t i = 0; i < kImage; ++i) {
        sent[i] = static_cast<uint8_t>(i * 7 + i / kTransfer);
    }
    for (size_t offset = 0; offset < kImage; offset += kTransfer) {
        Receive(payload, offset,
                std::span(sent).subspan(offset, std::min(kTransfer, kImage - offset)));
    }
    handover.Publish(cycle, payload, nullptr);
    std::vector<uint8_t> received(kImage);
    ASSERT_EQ(handover.GetImage(received.data(), kImage, 0, header), 0);
    EXPECT_EQ(received, sent);
    std::vector<uint8_t> part(kTransfer + 5, 0);
    handover.Publish(cycle, payload, nullptr); // again: nothing of it came
    ASSERT_EQ(handover.GetImage(part.data(), kTransfer + 1, 0, header), 0xC019);
    EXPECT_TRUE(std::equal(part.begin(), part.begin() + kTransfer + 1, sent.begin()));
    EXPECT_EQ(part[kTransfer + 1], 0);
}

TEST_F(HandoverTest, ReaderThatKeepsUp_SeesTheSameFewBlocks)
{
    Begin(16);
    std::set<const uint8_t*> places;
    for (uint8_t id = 0; id < 100; ++id) {
        places.insert(payload.ReadAt(0).data());
        Publish(id);
        ASSERT_EQ(Get(), 0);
    }
    EXPECT_LE(places.size(), 3U);
}

} // namespace
