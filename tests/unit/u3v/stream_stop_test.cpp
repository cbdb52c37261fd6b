// The ends of an acquisition, from several threads too, and what it leaves behind.

#include "stream_fixture.h"
#include "wait.h"

#include <chrono>
#include <thread>

using testing::HasSubstr;
using testing::IsEmpty;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace {

TEST_F(StreamTest, LimitedAcquisition_StopsAfterTheTrailerAndLogsTheCountAskedFor)
{
    const LogCapture lines;
    Start(1);
    PlayImage(1);
    EXPECT_EQ(Get(), 0);
    ASSERT_TRUE(usb.AwaitDrained());
    EXPECT_EQ(usb.liveTransfers.load(), 0);
    EXPECT_EQ(Submitted().size(), 5U);
    EXPECT_THAT(lines.Lines(),
                testing::Contains("[DEBUG   ] image_callback m_nNumImagesAcquired: 1 "));
    EXPECT_EQ(Stop(), 0); // waits in vain: the end came before
    EXPECT_EQ(printed, "DS_STATUS_IMAGE_TIMEOUT\n\n\n");
    EXPECT_EQ(acquired, 1U);
    EXPECT_EQ(lost, 0U);
}

TEST_F(StreamTest, RequestStop_ThenACompletion_TheStopFindsItDone)
{
    Start();
    CaptureStdout();
    stream->RequestStop();
    EXPECT_TRUE(stream->IsAcquiring());
    usb.Complete(LIBUSB_TRANSFER_TIMED_OUT);
    EXPECT_TRUE(usb.AwaitDrained());
    EXPECT_EQ(GetCapturedStdout(), "Timeout (normal)\n");
    EXPECT_EQ(Submitted().size(), 1U);
    EXPECT_EQ(Stop(), 0);
    EXPECT_EQ(printed, "\n\n"); // and not DS_STATUS_IMAGE_TIMEOUT
    EXPECT_FALSE(stream->IsAcquiring());
}

TEST_F(StreamTest, RequestStop_StreamingHasEnded_TheWaitOfTheStopCountsFromTheRequest)
{
    MakeStream(1500);
    Start(1);
    PlayImage(1);
    ASSERT_TRUE(usb.AwaitDrained());
    stream->RequestStop();
    zr_test::LetPass(std::chrono::milliseconds(1550), "longer than stopWait");
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(Stop(), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(1400));
    EXPECT_EQ(printed, "DS_STATUS_IMAGE_TIMEOUT\n\n\n");
}

TEST_F(StreamTest, RequestStop_NothingRuns_ChangesNothing)
{
    stream->RequestStop();
    Start();
    EXPECT_EQ(Stop(), 0);
    stream->RequestStop();
    EXPECT_EQ(stream->AcquisitionStart(1), 0);
    PlayImage(1);
    EXPECT_EQ(Get(), 0);
}

TEST_F(StreamTest, RequestStop_WhileAnotherStops_DoesNotWait)
{
    Start(1);
    PlayImage(1);
    ASSERT_TRUE(usb.AwaitDrained());
    CaptureStdout();
    std::thread stopper([&] { EXPECT_EQ(stream->AcquisitionStop(&acquired, &lost), 0); });
    while (stream->IsAcquiring()) {
        stream->RequestStop();
    }
    stopper.join();
    GetCapturedStdout();
}

TEST_F(StreamTest, NoImagesToAcquire_EndsAtTheFirstCompletion)
{
    Start(0);
    CaptureStdout();
    usb.Complete(LIBUSB_TRANSFER_TIMED_OUT);
    EXPECT_TRUE(usb.AwaitDrained());
    GetCapturedStdout();
    EXPECT_EQ(usb.liveTransfers.load(), 0);
}

TEST_F(StreamTest, GetImage_BeforeStartAndAfterStop_TimesOut)
{
    EXPECT_EQ(Get(10), 0xC018);
    Start();
    PlayImage(1);
    EXPECT_TRUE(usb.AwaitDrained());
    EXPECT_EQ(Stop(), 0);
    EXPECT_EQ(Get(10), 0xC018);
}

TEST_F(StreamTest, UnreadImages_StopAndRestart_FirstImageIsTheNewOne)
{
    Start();
    for (const uint8_t id : Bytes{1, 2, 3}) {
        PlayImage(id);
    }
    ASSERT_TRUE(usb.AwaitDrained());
    EXPECT_EQ(Stop(), 0);
    EXPECT_EQ(acquired, 3U);
    EXPECT_EQ(Get(10), 0xC018);
    EXPECT_EQ(image, Bytes(1000)) << "nothing is written";
    EXPECT_EQ(+header.nBlockId, 0U);

    usb.transferTimesOutAfter = 0;
    ASSERT_EQ(stream->AcquisitionStart(kForEver), 0);
    EXPECT_EQ(Get(10), 0xC018) << "not even as an image without content";
    PlayImage(4);
    EXPECT_EQ(Get(), 0);
    EXPECT_EQ(image[0], 4);
    EXPECT_EQ(+header.nBlockId, 0x1000000000000004U);
    EXPECT_EQ(Get(10), 0xC018);
    ASSERT_TRUE(usb.AwaitDrained());
    EXPECT_EQ(Stop(), 0);
    EXPECT_EQ(acquired, 1U);
}

TEST_F(StreamTest, Stop_NotAcquiring_LeavesOutputsAndCamera)
{
    Open();
    EXPECT_EQ(Stop(), 0);
    EXPECT_EQ(acquired, 99U);
    EXPECT_EQ(lost, 99U);
    EXPECT_THAT(usb.Journal("bulk"), IsEmpty());
    EXPECT_EQ(printed, "");
}

TEST_F(StreamTest, Stop_TransferInFlight_IsNotCancelledButAwaited)
{
    Start();
    PlayImage(1);
    EXPECT_EQ(Get(), 0);
    ASSERT_TRUE(usb.AwaitDrained());
    ASSERT_TRUE(usb.AwaitPending());
    EXPECT_EQ(Stop(), 0);
    EXPECT_THAT(printed, testing::MatchesRegex("(Timeout .normal.\n)+\n\n"));
    EXPECT_EQ(acquired, 1U);
    EXPECT_EQ(lost, 0U);
    EXPECT_EQ(usb.liveTransfers.load(), 0);
    EXPECT_FALSE(stream->IsAcquiring());
    using Write = std::pair<uint64_t, Bytes>;
    ASSERT_GE(camera.writes.size(), 2U);
    EXPECT_EQ(camera.writes.end()[-2], (Write{0x50014, Little(0, 4)}));
    EXPECT_EQ(camera.writes.end()[-1], (Write{kSirm + 0x04, Little(0, 4)}));
}

TEST_F(StreamTest, Stop_DisableRefused_ReturnsItAndCanBeRepeated)
{
    Start();
    camera.refusal = {{kSirm + 0x04, 0x8007}};
    EXPECT_EQ(Stop(), 0x8007);
    EXPECT_TRUE(stream->IsAcquiring());
    EXPECT_EQ(acquired, 99U);
    camera.refusal.clear();
    EXPECT_EQ(Stop(), 0);
    EXPECT_EQ(acquired, 0U);
}

TEST_F(StreamTest, Stop_DisableRefusedThenClosed_LeavesNothing)
{
    Start();
    camera.refusal = {{kSirm + 0x04, 0x8007}};
    EXPECT_EQ(Stop(), 0x8007);
    stream.reset();
    EXPECT_EQ(usb.liveTransfers.load(), 0);
}

TEST_F(StreamTest, Stop_FromTwoThreads_SecondFindsNothingToStop)
{
    Start();
    usb.transferTimesOutAfter = 5;
    CaptureStdout();
    uint64_t others[2] = {77, 77};
    uint16_t otherStatus = 1;
    std::thread other([&] { otherStatus = stream->AcquisitionStop(&others[0], &others[1]); });
    const uint16_t status = stream->AcquisitionStop(&acquired, &lost);
    other.join();
    GetCapturedStdout();
    EXPECT_EQ(status, 0);
    EXPECT_EQ(otherStatus, 0);
    EXPECT_TRUE((acquired == 0 && others[0] == 77) || (acquired == 99 && others[0] == 0));
}

TEST_F(StreamTest, StartAndStop_ManyTimes_NeverLosesTheWakeUp)
{
    Open();
    for (int i = 0; i < 40; ++i) {
        ASSERT_EQ(stream->AcquisitionStart(kForEver), 0);
        PlayImage(static_cast<uint8_t>(i));
        ASSERT_EQ(Get(), 0);
        ASSERT_EQ(Stop(), 0);
        ASSERT_THAT(printed, testing::Not(HasSubstr("DS_STATUS_IMAGE_TIMEOUT")));
    }
}

TEST_F(StreamTest, StartWhileAcquiring_EndsTheRunningAcquisitionFirst)
{
    Start();
    PlayImage(1);
    EXPECT_TRUE(usb.AwaitDrained());
    CaptureStdout();
    usb.transferTimesOutAfter = 1;
    EXPECT_EQ(stream->AcquisitionStart(kForEver), 0);
    usb.transferTimesOutAfter = 0;
    GetCapturedStdout();
    EXPECT_EQ(usb.liveTransfers.load(), 1);
    EXPECT_EQ(Get(10), 0xC018); // the earlier acquisition's image went with it
    PlayImage(2);
    EXPECT_EQ(Get(), 0);
    EXPECT_EQ(image[0], 2);
}

TEST_F(StreamTest, Close_WhileAcquiring_WaitsForTheTransferThenReleases)
{
    Start();
    usb.transferTimesOutAfter = 20;
    CaptureStdout();
    stream.reset();
    GetCapturedStdout();
    EXPECT_EQ(usb.liveTransfers.load(), 0);
    const auto journal = usb.Journal();
    EXPECT_EQ(journal.back(), "release_interface 2");
    EXPECT_EQ(journal[journal.size() - 2], "free_transfer");
    EXPECT_EQ(stream, std::nullopt);
}

TEST_F(StreamTest, Close_StreamInterfaceZero_IsNotReleased)
{
    device.StreamInterface = 0;
    stream.reset();
    EXPECT_EQ(usb.Count("release_interface"), 0U);
}

TEST_F(StreamTest, GetImage_AgainstStartAndStop_IsSafe)
{
    Open();
    std::atomic<bool> done = false;
    std::atomic<int> torn = 0;
    std::thread reader([&] {
        Bytes mine(1000);
        IMAGE_HEADER own{};
        while (!done) {
            if (stream->GetImage(mine.data(), mine.size(), 1, &own) == 0) {
                torn += mine[0] != mine[399] || mine[0] != (own.nBlockId & 0xFF);
            }
        }
    });
    for (int i = 0; i < 20; ++i) {
        ASSERT_EQ(stream->AcquisitionStart(kForEver), 0);
        for (uint8_t id = 1; id < 10; ++id) {
            PlayImage(id);
        }
        ASSERT_TRUE(usb.AwaitDrained());
        ASSERT_EQ(Stop(), 0);
    }
    done = true;
    reader.join();
    EXPECT_EQ(torn, 0);
}

TEST_F(StreamTest, TransferNeverGivenBack_IsKeptWithItsHandleUntilItCompletes)
{
    Start();
    ASSERT_TRUE(usb.AwaitPending());
    CaptureStdout();
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(stream->AcquisitionStop(&acquired, &lost), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(3));
    EXPECT_EQ(GetCapturedStdout(), "DS_STATUS_IMAGE_TIMEOUT\n\n\n");
    EXPECT_EQ(usb.liveTransfers.load(), 1);
    stream.reset();
    CloseDevice();
    EXPECT_EQ(usb.openHandles.load(), 1); // the transfer needs it

    // Another stream's event thread delivers it after all; then it can go.
    usb.Complete(LIBUSB_TRANSFER_COMPLETED, Bytes(32));
    timeval wait{1, 0};
    libusb_handle_events_timeout(nullptr, &wait);
    EXPECT_EQ(usb.liveTransfers.load(), 0);
    U3V_StreamSession::ReapOrphans();
    EXPECT_EQ(usb.openHandles.load(), 0);
}

// What the other cameras of the machine need: four transfers of a megabyte.
constexpr size_t kReserve = 4 * 0x100000;

class DeviceMemoryTest : public StreamTest
{
protected:
    // Starts with `bytes` of device memory beside the reserve and takes an image.
    void Stream(size_t bytes, uint32_t buffers = 4)
    {
        usb.deviceMemoryLeft = bytes;
        Open();
        stream->SetBufferCount(buffers);
        ASSERT_EQ(stream->AcquisitionStart(kForEver), 0);
        ASSERT_TRUE(usb.AwaitPending());
        const libusb_transfer first = usb.LastSubmitted();
        leaderThere = usb.IsDeviceMemory(first.buffer, static_cast<size_t>(first.length));
        usb.Complete(LIBUSB_TRANSFER_COMPLETED, Leader(1));
        ASSERT_TRUE(usb.AwaitDrained());
        ASSERT_TRUE(usb.AwaitPending());
        const libusb_transfer payload = usb.LastSubmitted();
        payloadThere = usb.IsDeviceMemory(payload.buffer, static_cast<size_t>(payload.length));
        left = usb.deviceMemoryLeft;
        PlayImage(7);
        ASSERT_EQ(Get(), 0);
        EXPECT_EQ(image[0], 7);
        EXPECT_EQ(image[991], 9);
        ASSERT_EQ(Stop(), 0);
        EXPECT_TRUE(usb.deviceMemory.empty());
        EXPECT_EQ(usb.deviceMemoryLeft, bytes);
    }

    bool leaderThere = false;
    bool payloadThere = false;
    size_t left = 0;
};

TEST_F(DeviceMemoryTest, Plenty_IsReadIntoAndGivenBackAtTheStop)
{
    Stream(64 * 0x100000);
    EXPECT_TRUE(leaderThere);
    EXPECT_TRUE(payloadThere);
}

TEST_F(DeviceMemoryTest, ForThreeImagesOnly_HoweverManyBuffers)
{
    Stream(64 * 0x100000, 100);
    EXPECT_GT(left, 64 * 0x100000 - 0x10000 - 4 * 1000 - 4 * 400);
}

TEST_F(DeviceMemoryTest, None_OrdinaryMemoryServes)
{
    Stream(0);
    EXPECT_FALSE(leaderThere);
    EXPECT_FALSE(payloadThere);
}

TEST_F(DeviceMemoryTest, NotEvenTheReserve_NoneIsTaken)
{
    Stream(kReserve - 1);
    EXPECT_FALSE(leaderThere);
    EXPECT_EQ(left, kReserve - 1);
}

TEST_F(DeviceMemoryTest, LittleBesideTheReserve_ReserveStaysFree)
{
    Stream(kReserve + 0x10000 + 500);
    EXPECT_TRUE(leaderThere);
    EXPECT_FALSE(payloadThere);
    EXPECT_GE(left, kReserve);
}

TEST_F(DeviceMemoryTest, SubmitFails_IsGivenBackAtOnce)
{
    usb.deviceMemoryLeft = 64 * 0x100000;
    Open();
    usb.FailNextSubmit(LIBUSB_ERROR_IO);
    EXPECT_NE(stream->AcquisitionStart(kForEver), 0);
    EXPECT_TRUE(usb.deviceMemory.empty());
}

TEST_F(DeviceMemoryTest, StreamGoesWithoutAStop_IsGivenBackBeforeTheDeviceCloses)
{
    usb.deviceMemoryLeft = 64 * 0x100000;
    Start();
    ASSERT_TRUE(usb.AwaitPending());
    usb.transferTimesOutAfter = 1;
    CaptureStdout();
    stream.reset();
    GetCapturedStdout();
    EXPECT_TRUE(usb.deviceMemory.empty());
    CloseDevice(); // what is misused by then is found by TearDown
}

} // namespace
