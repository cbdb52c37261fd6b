// The stream channel when packets or the bus are not as they should be.

#include "stream_fixture.h"
#include "wait.h"

#include <chrono>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace {

TEST_F(StreamTest, ShortPacket_IsReadAgainIntoTheSamePlace)
{
    Start();
    usb.Complete(LIBUSB_TRANSFER_COMPLETED, Leader(1));
    usb.Complete(LIBUSB_TRANSFER_COMPLETED, Bytes(400, 1));
    EXPECT_EQ(NextRequest(), "400");
    const unsigned char* place = usb.LastSubmitted().buffer;
    usb.Complete(LIBUSB_TRANSFER_COMPLETED, Bytes(17, 9));
    EXPECT_EQ(NextRequest(), "400");
    EXPECT_EQ(usb.LastSubmitted().buffer, place);
}

TEST_F(StreamTest, TimeoutAndUnknownStatus_ArePrintedAndKeepThePlan)
{
    Start();
    CaptureStdout();
    usb.Complete(LIBUSB_TRANSFER_COMPLETED, Leader(1));
    usb.Complete(LIBUSB_TRANSFER_TIMED_OUT, Bytes(52));
    usb.Complete(LIBUSB_TRANSFER_STALL);
    usb.Complete(LIBUSB_TRANSFER_OVERFLOW);
    usb.Complete(LIBUSB_TRANSFER_ERROR);
    EXPECT_EQ(NextRequest(), "400");
    EXPECT_EQ(GetCapturedStdout(), "Timeout (normal)\nUnknown transfer code: 4\n"
                                   "Unknown transfer code: 6\nUnknown transfer code: 1\n");
}

TEST(RetryPause, GrowsToTheLongestAndBeginsAnew)
{
    U3V_RetryPause pause(50, 1000);
    for (const int expected : {1, 2, 4, 8, 16, 32, 50, 50, 50}) {
        EXPECT_EQ(pause.Next(false).count(), expected);
    }
    pause.Reset();
    EXPECT_EQ(pause.Next(false).count(), 1);
    EXPECT_EQ(pause.Next(false).count(), 2);
    U3V_RetryPause none(0, 1000);
    EXPECT_EQ(none.Next(false).count(), 0);
    EXPECT_EQ(none.Next(false).count(), 0);
}

// The rest of an image whose leader was lost comes as overflows.
TEST(RetryPause, AsManyOverflowsAsAnImageHasPackets_CostNoTime)
{
    U3V_RetryPause pause(50, 1024);
    EXPECT_EQ(pause.Next(false).count(), 1);
    for (const int expected : {0, 0, 0, 2, 4}) {
        EXPECT_EQ(pause.Next(true).count(), expected);
    }
    pause.Reset();
    for (const int expected : {0, 0, 0, 1, 2}) {
        EXPECT_EQ(pause.Next(true).count(), expected);
    }
}

TEST_F(StreamTest, FailedCompletion_HaltIsClearedBeforeTheTransferGoesOutAgain)
{
    Start();
    for (const auto status :
         {LIBUSB_TRANSFER_STALL, LIBUSB_TRANSFER_OVERFLOW, LIBUSB_TRANSFER_ERROR}) {
        ASSERT_TRUE(usb.AwaitPending());
        usb.ClearJournal();
        CaptureStdout();
        usb.Complete(status);
        ASSERT_TRUE(usb.AwaitDrained());
        ASSERT_TRUE(usb.AwaitPending());
        GetCapturedStdout();
        auto journal = usb.Journal();
        std::erase_if(journal, [](const auto& line) { return line.starts_with("handle_events"); });
        EXPECT_THAT(journal,
                    ElementsAre("interrupt_event_handler context=null", "clear_halt ep=0x83",
                                "submit_transfer ep=0x83 length=65536 timeout=3000"));
    }
}

TEST_F(StreamTest, Timeout_IsNoFailure)
{
    Start();
    usb.ClearJournal();
    CaptureStdout();
    usb.Complete(LIBUSB_TRANSFER_TIMED_OUT);
    ASSERT_TRUE(usb.AwaitDrained());
    ASSERT_TRUE(usb.AwaitPending());
    GetCapturedStdout();
    EXPECT_EQ(Submitted().size(), 1U);
    EXPECT_EQ(usb.Count("clear_halt"), 0U);
}

TEST_F(StreamTest, StallsBetweenThePackets_LoseNothing)
{
    Start();
    CaptureStdout();
    for (uint8_t id = 1; id < 4; ++id) {
        usb.Complete(LIBUSB_TRANSFER_STALL);
        usb.Complete(LIBUSB_TRANSFER_COMPLETED, Leader(id));
        usb.Complete(LIBUSB_TRANSFER_STALL);
        usb.Complete(LIBUSB_TRANSFER_COMPLETED, Bytes(400, id));
        usb.Complete(LIBUSB_TRANSFER_COMPLETED, Bytes(400, id));
        usb.Complete(LIBUSB_TRANSFER_STALL);
        usb.Complete(LIBUSB_TRANSFER_STALL);
        usb.Complete(LIBUSB_TRANSFER_COMPLETED, Bytes(192, id));
        usb.Complete(LIBUSB_TRANSFER_STALL);
        usb.Complete(LIBUSB_TRANSFER_COMPLETED, Bytes(32));
        EXPECT_EQ(Get(), 0);
        EXPECT_EQ(header.nBlockId & 0xFF, id);
        EXPECT_EQ(Bytes(image.begin(), image.begin() + 992), Bytes(992, id));
    }
    GetCapturedStdout();
}

// 1, 2, 4, 8, 16, 32 and then 50 ms: what a bus that stalls for ever may cost.
TEST_F(StreamTest, StallForEver_IsTriedTwentyTimesASecond)
{
    Start();
    CaptureStdout();
    usb.ClearJournal();
    const auto begin = std::chrono::steady_clock::now();
    usb.StallForEver(true);
    EXPECT_TRUE(zr_test::WaitUntil([this] { return Submitted().size() >= 12; }));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(63 + 6 * 50));
    EXPECT_GE(usb.Count("clear_halt"), 12U);
    usb.StallForEver(false);
    GetCapturedStdout();
}

TEST_F(StreamTest, Stop_WhileStalling_EndsWithTheNextCompletion)
{
    for (const bool paused : {false, true}) {
        Start();
        CaptureStdout();
        usb.StallForEver(paused);
        EXPECT_TRUE(zr_test::WaitUntil([&] { return !paused || Submitted().size() >= 4; }));
        usb.StallForEver(true);
        EXPECT_EQ(stream->AcquisitionStop(&acquired, &lost), 0);
        usb.StallForEver(false);
        EXPECT_THAT(GetCapturedStdout(),
                    testing::MatchesRegex("(Unknown transfer code: 4\n)+\n\n"));
        EXPECT_EQ(usb.liveTransfers.load(), 0);
        EXPECT_EQ(stream->AcquisitionStart(kForEver), 0); // and it streams again
        PlayImage(1);
        EXPECT_EQ(Get(), 0);
        EXPECT_EQ(Stop(), 0);
    }
}

TEST_F(StreamTest, Close_WhileStalling_LeavesNothing)
{
    Start();
    CaptureStdout();
    usb.StallForEver(true);
    stream.reset();
    usb.StallForEver(false);
    GetCapturedStdout();
    EXPECT_EQ(usb.liveTransfers.load(), 0);
}

TEST_F(StreamTest, LimitReachedByAFailedCompletion_EndsWithoutAPause)
{
    Start(0);
    CaptureStdout();
    usb.Complete(LIBUSB_TRANSFER_STALL);
    EXPECT_TRUE(usb.AwaitDrained());
    GetCapturedStdout();
    EXPECT_EQ(usb.liveTransfers.load(), 0);
    EXPECT_EQ(usb.Count("interrupt_event_handler"), 0U);
}

TEST_F(StreamTest, StartAndStop_ClearTheHaltWhileTheStreamIsDisabled)
{
    Start();
    auto journal = usb.Journal();
    std::erase_if(journal, [](const auto& line) { return line.starts_with("handle_events"); });
    const auto place = [&](size_t from, const std::string& beginning) {
        const auto found =
            std::find_if(journal.begin() + static_cast<std::ptrdiff_t>(from), journal.end(),
                         [&](const std::string& line) { return line.starts_with(beginning); });
        return static_cast<size_t>(found - journal.begin());
    };
    // Between the plan's last write and the one that enables the stream.
    const size_t cleared = place(0, "clear_halt ep=0x83");
    ASSERT_LT(cleared, journal.size());
    EXPECT_THAT(journal[cleared - 2], HasSubstr("2c 00 02 00 00 00 00 00 20 00 00 00"));
    EXPECT_THAT(journal[cleared + 1], HasSubstr("04 00 02 00 00 00 00 00 00 00 04 00"));
    EXPECT_LT(cleared, place(0, "submit_transfer"));
    EXPECT_EQ(usb.Count("clear_halt"), 1U);

    usb.ClearJournal();
    EXPECT_EQ(Stop(), 0);
    EXPECT_EQ(usb.Journal().back(), "clear_halt ep=0x83");
    EXPECT_EQ(usb.Count("clear_halt"), 1U);
}

TEST_F(StreamTest, Stop_DisableRefused_HaltIsClearedAllTheSame)
{
    Start();
    camera.refusal = {{kSirm + 0x04, 0x8007}};
    EXPECT_EQ(Stop(), 0x8007);
    EXPECT_EQ(usb.Journal().back(), "clear_halt ep=0x83");
}

TEST_F(StreamTest, Start_NotOpened_ClearsNoHalt)
{
    EXPECT_EQ(stream->AcquisitionStart(1), 0xC016);
    EXPECT_EQ(usb.Count("clear_halt"), 0U);
}

TEST_F(StreamTest, CancelledAndNoDevice_ArePrintedAndEndSilently)
{
    for (const auto& [status, text] : {std::pair{LIBUSB_TRANSFER_CANCELLED, "Cancelled\n"},
                                       std::pair{LIBUSB_TRANSFER_NO_DEVICE, "No Device\n"}}) {
        Start();
        CaptureStdout();
        usb.Complete(status);
        EXPECT_TRUE(usb.AwaitDrained());
        EXPECT_EQ(GetCapturedStdout(), text);
        EXPECT_EQ(usb.liveTransfers.load(), 0);
        EXPECT_EQ(Submitted().size(), 1U);
        EXPECT_EQ(Stop(), 0);
        EXPECT_EQ(printed, "DS_STATUS_IMAGE_TIMEOUT\n\n\n");
    }
}

TEST_F(StreamTest, ResubmitFails_IsPrintedAndStreamingEnds)
{
    Start();
    CaptureStdout();
    usb.FailNextSubmit(LIBUSB_ERROR_NO_DEVICE);
    usb.Complete(LIBUSB_TRANSFER_COMPLETED, Leader(1));
    EXPECT_TRUE(usb.AwaitDrained());
    EXPECT_EQ(GetCapturedStdout(), "Unable to submit URB. libusb error code: -4\n");
    EXPECT_EQ(Get(20), 0xC018);
    EXPECT_EQ(Stop(), 0);
}

// The next leader belongs to the image that follows it, also where both share the one buffer.
TEST_F(StreamTest, OneBuffer_LeaderUnderWay_ReadyImageKeepsItsHeader)
{
    Open();
    stream->SetBufferCount(1);
    ASSERT_EQ(stream->AcquisitionStart(kForEver), 0);
    PlayImage(3);
    usb.Complete(LIBUSB_TRANSFER_COMPLETED, Leader(4));
    ASSERT_TRUE(usb.AwaitDrained());
    EXPECT_EQ(Get(), 0);
    EXPECT_EQ(+header.nBlockId, 0x1000000000000003U);
    EXPECT_EQ(image[0], 3);
}

TEST_F(StreamTest, LeaderLost_ImageKeepsTheHeaderOfItsBuffer)
{
    Open();
    stream->SetBufferCount(1);
    ASSERT_EQ(stream->AcquisitionStart(kForEver), 0);
    PlayImage(3);
    EXPECT_EQ(Get(), 0);
    usb.Complete(LIBUSB_TRANSFER_COMPLETED, Bytes(32)); // a trailer with nothing before it
    header = {};
    EXPECT_EQ(Get(), 0);
    EXPECT_EQ(+header.nBlockId, 0x1000000000000003U);
    EXPECT_EQ(image[0], 3);
}

TEST_F(StreamTest, LeaderLost_NeverTakesTheHeaderOfAnotherBuffersImage)
{
    Open();
    stream->SetBufferCount(2);
    ASSERT_EQ(stream->AcquisitionStart(kForEver), 0);
    PlayImage(3);
    PlayImage(4);
    usb.Complete(LIBUSB_TRANSFER_COMPLETED, Bytes(32)); // into the first image's buffer
    EXPECT_TRUE(usb.AwaitDrained());
    EXPECT_EQ(Get(), 0);
    EXPECT_EQ(Get(), 0);
    EXPECT_EQ(+header.nBlockId, 0x1000000000000004U);
    EXPECT_EQ(Get(), 0);
    EXPECT_EQ(+header.nBlockId, 0x1000000000000003U);
}

TEST_F(StreamTest, TrailerLost_NextLeaderStartsTheImageAgain)
{
    camera.memory[kSirm + 0x14] = Little(64, 4); // room for a leader where the trailer is awaited
    Start();
    usb.Complete(LIBUSB_TRANSFER_COMPLETED, Leader(1));
    usb.Complete(LIBUSB_TRANSFER_COMPLETED, Bytes(400, 1));
    usb.Complete(LIBUSB_TRANSFER_COMPLETED, Bytes(400, 1));
    usb.Complete(LIBUSB_TRANSFER_COMPLETED, Bytes(192, 1));
    usb.Complete(LIBUSB_TRANSFER_COMPLETED, Leader(2));
    EXPECT_EQ(NextRequest(), "400");
    usb.Complete(LIBUSB_TRANSFER_COMPLETED, Bytes(400, 2));
    usb.Complete(LIBUSB_TRANSFER_COMPLETED, Bytes(400, 2));
    usb.Complete(LIBUSB_TRANSFER_COMPLETED, Bytes(192, 2));
    usb.Complete(LIBUSB_TRANSFER_COMPLETED, Bytes(64));
    EXPECT_EQ(Get(), 0);
    EXPECT_EQ(+header.nBlockId, 0x1000000000000002U);
    EXPECT_EQ(image[0], 2);
    EXPECT_EQ(Get(20), 0xC018);
}

TEST_F(StreamTest, LeaderOfAFewBytes_IsReadAsFarAsItGoes)
{
    camera.memory[kSirm + 0x10] = Little(20, 4);
    Start();
    usb.Complete(LIBUSB_TRANSFER_COMPLETED, Leader(9, 20));
    usb.Complete(LIBUSB_TRANSFER_COMPLETED, Bytes(32));
    EXPECT_EQ(Get(), 0);
    EXPECT_EQ(+header.nBlockId, 0x1000000000000009U);
    EXPECT_EQ(+header.nTimestamp, 0U);
    EXPECT_EQ(+header.nSizeX, 0U);
}

TEST_F(StreamTest, PayloadBeforeAnyLeader_StaysInsideTheBlock)
{
    SetPayload(1200);
    Start();
    for (int i = 0; i < 10; ++i) {
        usb.Complete(LIBUSB_TRANSFER_COMPLETED, Bytes(400, static_cast<uint8_t>(i)));
    }
    EXPECT_TRUE(usb.AwaitDrained());
    EXPECT_TRUE(usb.AwaitPending());
    EXPECT_THAT(Submitted(), testing::Contains("submit_transfer ep=0x83 length=32 timeout=3000"));
}

TEST_F(StreamTest, BusThatLiesAboutTheLength_IsNotBelievedBeyondTheRequest)
{
    Start();
    usb.Complete(LIBUSB_TRANSFER_COMPLETED, Leader(1));
    usb.Complete(LIBUSB_TRANSFER_COMPLETED, Bytes(400));
    usb.Complete(LIBUSB_TRANSFER_COMPLETED, Bytes(400));
    EXPECT_EQ(NextRequest(), "200");
    usb.CompleteLying(Bytes(10), 400); // more than the 200 that were asked for
    EXPECT_EQ(NextRequest(), "200");
}

TEST_F(StreamTest, NoBuffers_CountsImagesAndHandsNoneOver)
{
    Open();
    stream->SetBufferCount(0);
    ASSERT_EQ(stream->AcquisitionStart(kForEver), 0);
    PlayImage(1);
    EXPECT_TRUE(usb.AwaitDrained());
    EXPECT_EQ(Get(20), 0xC018);
    EXPECT_EQ(Stop(), 0);
    EXPECT_EQ(acquired, 1U);
}

TEST_F(StreamTest, ImageOfNoBytes_IsHandedOver)
{
    SetPayload(0);
    Start();
    usb.Complete(LIBUSB_TRANSFER_COMPLETED, Leader(1));
    EXPECT_EQ(NextRequest(), "0");
    usb.Complete(LIBUSB_TRANSFER_COMPLETED, {});
    EXPECT_EQ(NextRequest(), "32");
    usb.Complete(LIBUSB_TRANSFER_COMPLETED, Bytes(32));
    EXPECT_EQ(Get(), 0);
}

} // namespace
