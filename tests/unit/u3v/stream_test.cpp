#include "no_threads.h"
#include "u3v_fixture.h"
#include "u3v_stream.h"
#include "wait.h"

#include <chrono>
#include <optional>
#include <system_error>
#include <thread>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace {

constexpr uint32_t kForEver = 0xFFFFFFFF;

// The leader as the USB3 Vision standard lays it out, with a different value in every field.
Bytes Leader(uint8_t id, size_t size = 52)
{
    Bytes leader = {
        0x55, 0x33, 0x56, 0x4C, 0x00, 0x00, 0x34, 0x00, // magic, reserved, size
        id,   0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x10, // block id
        0x00, 0x00, 0x01, 0x00,                         // reserved, payload type
        0x08, 0x07, 0x06, 0x05, 0x04, 0x03, 0x02, 0x01, // time stamp
        0x01, 0x00, 0x08, 0x01,                         // pixel format
        0x80, 0x02, 0x00, 0x00, 0xE0, 0x01, 0x00, 0x00, // size x, y
        0x11, 0x00, 0x00, 0x00, 0x22, 0x00, 0x00, 0x00, // offset x, y
        0x33, 0x44, 0x00, 0x00,                         // padding x, reserved
    };
    leader.resize(size);
    return leader;
}

class StreamTest : public CameraTest
{
protected:
    StreamTest()
    {
        camera.memory[kSirm + 0x10] = Little(52, 4);
        camera.memory[kSirm + 0x14] = Little(32, 4);
        SetPayload(1000);
        EXPECT_EQ(control.OpenControl(), 0);
        U3V_StreamTimings timings;
        // Short, but long enough for a busy machine to deliver a completion in time.
        timings.stopWait = 150;
        timings.lastResort = 1000;
        timings.eventWait = 10;
        timings.eventPause = 1;
        stream.emplace(&device, &control, timings);
        stream->SetTransferSize(400);
        usb.ClearJournal();
        camera.writes.clear();
    }

    void SetPayload(uint64_t size) { camera.memory[kSirm + 0x08] = Little(size, 8); }

    void Open()
    {
        ASSERT_EQ(stream->OpenStream(), 0);
        stream->SetTransferSize(400);
        usb.ClearJournal();
        camera.writes.clear();
    }

    void Start(uint32_t images = kForEver)
    {
        Open();
        ASSERT_EQ(stream->AcquisitionStart(images), 0);
    }

    // One image of 1000 bytes in transfers of 400: two whole ones, the aligned rest, the trailer.
    void PlayImage(uint8_t id)
    {
        usb.Complete(LIBUSB_TRANSFER_COMPLETED, Leader(id));
        usb.Complete(LIBUSB_TRANSFER_COMPLETED, Bytes(400, id));
        usb.Complete(LIBUSB_TRANSFER_COMPLETED, Bytes(400, static_cast<uint8_t>(id + 1)));
        usb.Complete(LIBUSB_TRANSFER_COMPLETED, Bytes(192, static_cast<uint8_t>(id + 2)));
        usb.Complete(LIBUSB_TRANSFER_COMPLETED, Bytes(32, 0xFF));
    }

    uint16_t Get(uint32_t timeout = 3000)
    {
        return stream->GetImage(image.data(), image.size(), timeout, &header);
    }

    // Stops quietly; a pending transfer ends by its own time-out.
    uint16_t Stop()
    {
        CaptureStdout();
        usb.transferTimesOutAfter = 1;
        const uint16_t status = stream->AcquisitionStop(&acquired, &lost);
        printed = GetCapturedStdout();
        return status;
    }

    void TearDown() override
    {
        usb.transferTimesOutAfter = 1;
        CaptureStdout();
        stream.reset();
        GetCapturedStdout();
        CameraTest::TearDown();
    }

    std::vector<std::string> Submitted() { return usb.Journal("submit_transfer"); }
    // The requests of the transfer after the first `count` of the acquisition have been drained.
    std::string NextRequest()
    {
        EXPECT_TRUE(usb.AwaitDrained());
        EXPECT_TRUE(usb.AwaitPending());
        return std::to_string(usb.LastSubmitted().length);
    }

    U3V_Control control{&device};
    std::optional<U3V_Stream> stream;
    Bytes image = Bytes(1000);
    IMAGE_HEADER header{};
    uint64_t acquired = 99;
    uint64_t lost = 99;
    std::string printed;
};

TEST(StreamTimings, Defaults_AreTheProducts)
{
    const U3V_StreamTimings timings;
    EXPECT_EQ(timings.transferTimeout, 3000U);
    EXPECT_EQ(timings.stopWait, 3000);
    EXPECT_EQ(timings.lastResort, 5000);
    EXPECT_EQ(timings.eventWait, 1000U);
    EXPECT_EQ(timings.retryPause, 50U);
    // Longer than the transfer's own time-out, and with the event thread's last turn not beyond the
    // last resort.
    EXPECT_EQ(timings.TransferWait(), 4000);
}

TEST_F(StreamTest, Defaults)
{
    U3V_Stream fresh(&device, &control);
    EXPECT_EQ(fresh.TransferSize(), 0x100000U);
    EXPECT_FALSE(fresh.IsAcquiring());
}

TEST_F(StreamTest, OpenStream_NoStreamInterface)
{
    device.StreamInterface = 0;
    EXPECT_EQ(stream->OpenStream(), 0xC014);
    EXPECT_THAT(usb.Journal(), IsEmpty());
}

TEST_F(StreamTest, OpenStream_ClaimFails_Logs)
{
    const LogCapture lines;
    camera.claimResults[2] = LIBUSB_ERROR_BUSY;
    EXPECT_EQ(stream->OpenStream(), 0xC006);
    EXPECT_THAT(lines.Lines(), ElementsAre("[ERROR   ] OpenStream GC_ERR_RESOURCE_IN_USE"));
    EXPECT_THAT(usb.Journal(), ElementsAre("claim_interface 2"));
}

TEST_F(StreamTest, OpenStream_NoSirm)
{
    camera.memory[kSbrm + 0x04] = Little(~1ULL, 8);
    EXPECT_EQ(stream->OpenStream(), 0xC014);
    EXPECT_EQ(stream->EnableStream(true), 0xC016);
    EXPECT_EQ(usb.Count("bulk ep=0x01"), 1U);
}

TEST_F(StreamTest, OpenStream_ReadsTheseRegistersInThisOrder)
{
    EXPECT_EQ(stream->OpenStream(), 0);
    const auto sent = usb.Journal("bulk ep=0x01");
    ASSERT_EQ(sent.size(), 4U);
    EXPECT_THAT(sent[0], HasSubstr("04 00 01 00 00 00 00 00 00 00 08 00"));
    EXPECT_THAT(sent[1], HasSubstr("20 00 01 00 00 00 00 00 00 00 08 00"));
    EXPECT_THAT(sent[2], HasSubstr("28 00 01 00 00 00 00 00 00 00 04 00"));
    EXPECT_THAT(sent[3], HasSubstr("00 00 02 00 00 00 00 00 00 00 04 00"));
    EXPECT_EQ(stream->BufferCount(), 4U);
}

TEST_F(StreamTest, OpenStream_AnyReadFails_ReturnsItsStatusAndStaysClosed)
{
    for (const uint64_t address : {kSbrm + 0x04, kSbrm + 0x20, kSbrm + 0x28, kSirm}) {
        camera.refusal = {{address, 0x8006}};
        EXPECT_EQ(stream->OpenStream(), 0x8006);
        EXPECT_EQ(stream->EnableStream(true), 0xC016);
    }
}

TEST_F(StreamTest, EnableStream_ChangesBitZeroOnly)
{
    Open();
    camera.memory[kSirm + 0x04] = Little(0xF0F0F0F0, 4);
    EXPECT_EQ(stream->EnableStream(true), 0);
    EXPECT_EQ(camera.writes.back(), std::make_pair(kSirm + 0x04, Little(0xF0F0F0F1, 4)));
    EXPECT_TRUE(stream->IsAcquiring());
    EXPECT_EQ(stream->EnableStream(false), 0);
    EXPECT_EQ(camera.writes.back(), std::make_pair(kSirm + 0x04, Little(0xF0F0F0F0, 4)));
    EXPECT_FALSE(stream->IsAcquiring());
}

TEST_F(StreamTest, EnableStream_ReadOrWriteFails_ReturnsItAndKeepsTheState)
{
    Open();
    camera.refusal = {{kSirm + 0x04, 0x8007}};
    EXPECT_EQ(stream->EnableStream(true), 0x8007);
    EXPECT_FALSE(stream->IsAcquiring());
}

TEST_F(StreamTest, EnableStream_WriteAloneFails_ReturnsItAndKeepsTheState)
{
    Open();
    const auto refuseTheWrite = [&] {
        // Request ids: seven accesses opened the control channel, four the stream, then two each.
        const auto request = static_cast<uint8_t>(12 + usb.Count("bulk ep=0x01"));
        Bytes read = {0x55, 0x33, 0x56, 0x43, 0, 0, 1, 8, 4, 0, request, 0, 0, 0, 0, 0};
        Bytes write = {0x55, 0x33, 0x56, 0x43, 4, 0x80, 3, 8, 0, 0, 0, 0};
        write[10] = static_cast<uint8_t>(request + 1);
        camera.replies.push_back({0, read});
        camera.replies.push_back({0, write});
    };
    refuseTheWrite();
    EXPECT_EQ(stream->EnableStream(true), 0x8004);
    EXPECT_FALSE(stream->IsAcquiring());
    EXPECT_EQ(stream->EnableStream(true), 0);
    refuseTheWrite();
    EXPECT_EQ(stream->EnableStream(false), 0x8004);
    EXPECT_TRUE(stream->IsAcquiring());
}

TEST_F(StreamTest, Start_NotOpened_WritesTheCameraRegisterAndNothingElse)
{
    EXPECT_EQ(stream->AcquisitionStart(1), 0xC016);
    EXPECT_THAT(camera.writes, ElementsAre(std::make_pair(uint64_t{0x50014}, Little(0, 4))));
    EXPECT_EQ(usb.Count("bulk ep=0x01"), 1U);
}

TEST_F(StreamTest, Start_ProgramsTheCameraInThisOrder)
{
    Start();
    using Write = std::pair<uint64_t, Bytes>;
    EXPECT_THAT(camera.writes,
                ElementsAre(Write{0x50014, Little(0, 4)}, Write{kSirm + 0x04, Little(0, 4)},
                            Write{kSirm + 0x18, Little(52, 4)}, Write{kSirm + 0x1C, Little(400, 4)},
                            Write{kSirm + 0x20, Little(2, 4)}, Write{kSirm + 0x24, Little(192, 4)},
                            Write{kSirm + 0x28, Little(16, 4)}, Write{kSirm + 0x2C, Little(32, 4)},
                            Write{kSirm + 0x04, Little(1, 4)}, Write{0x50014, Little(1, 4)}));
    EXPECT_TRUE(stream->IsAcquiring());
}

TEST_F(StreamTest, Start_AlignmentExponentZero_IsTakenAsOne)
{
    camera.memory[kSirm] = Little(0x00FFFFFF, 4);
    camera.memory[kSirm + 0x10] = Little(0, 4);
    SetPayload(401);
    Start();
    EXPECT_EQ(camera.memory[kSirm + 0x18], Little(2, 4));
    EXPECT_EQ(camera.memory[kSirm + 0x28], Little(2, 4));
}

TEST_F(StreamTest, Start_FirstTransfer_Is64KiBOnTheStreamEndpointWithThreeSeconds)
{
    Start();
    EXPECT_THAT(Submitted(), ElementsAre("submit_transfer ep=0x83 length=65536 timeout=3000"));
    EXPECT_EQ(usb.Journal("alloc_transfer"), std::vector<std::string>{"alloc_transfer packets=0"});
    const libusb_transfer transfer = usb.LastSubmitted();
    EXPECT_EQ(transfer.dev_handle, device.Handle());
    EXPECT_EQ(transfer.type, LIBUSB_TRANSFER_TYPE_BULK);
    EXPECT_EQ(transfer.flags, 0);
}

TEST_F(StreamTest, EventThread_ServesTheDefaultContextWithItsWait)
{
    Start();
    usb.AwaitPending();
    Stop();
    ASSERT_GT(usb.Count("handle_events"), 0U);
    EXPECT_EQ(usb.Journal("handle_events")[0], "handle_events context=null seconds=0.010000");
}

TEST_F(StreamTest, EventThread_BusFailsAtOnce_DoesNotSpin)
{
    Start();
    usb.handleEventsResult = LIBUSB_ERROR_NO_DEVICE;
    usb.ClearJournal();
    zr_test::LetPass(std::chrono::milliseconds(50), "a few calls, not thousands");
    EXPECT_LE(usb.Count("handle_events"), 60U);
    usb.handleEventsResult = 0;
}

TEST_F(StreamTest, Start_RequiredSizesUnreadable_ReturnsTheStatus)
{
    Open();
    for (const uint64_t offset : {0x08U, 0x10U, 0x14U}) {
        camera.refusal = {{kSirm + offset, 0x8005}};
        EXPECT_EQ(stream->AcquisitionStart(1), 0x8005);
        EXPECT_FALSE(stream->IsAcquiring());
    }
    EXPECT_EQ(usb.Count("alloc_transfer"), 0U);
}

TEST_F(StreamTest, Start_PlanWritesRefused_StreamsAllTheSame)
{
    Open();
    for (const uint64_t offset : {0x18U, 0x1CU, 0x20U, 0x24U, 0x28U, 0x2CU}) {
        camera.refusal[kSirm + offset] = 0x8004;
    }
    camera.refusal[0x50014] = 0x8003;
    EXPECT_EQ(stream->AcquisitionStart(kForEver), 0);
    EXPECT_EQ(usb.Count("bulk ep=0x81"), 15U);
    PlayImage(1);
    EXPECT_EQ(Get(), 0);
}

TEST_F(StreamTest, Start_EnableRefused_ReturnsTheStatusAndLeavesNothing)
{
    Open();
    camera.refusal = {{kSirm + 0x04, 0x8004}};
    EXPECT_EQ(stream->AcquisitionStart(1), 0x8004);
    EXPECT_FALSE(stream->IsAcquiring());
    EXPECT_EQ(usb.Count("alloc_transfer"), 0U);
    EXPECT_EQ(usb.Count("handle_events"), 0U);
    camera.refusal.clear();
    EXPECT_EQ(stream->AcquisitionStart(kForEver), 0);
}

TEST_F(StreamTest, Start_AllocTransferFails_IsMinus11AndLaterStartsWork)
{
    Open();
    usb.failAllocTransfer = true;
    EXPECT_EQ(stream->AcquisitionStart(1), 0xFFF5);
    EXPECT_TRUE(stream->IsAcquiring());
    usb.failAllocTransfer = false;
    EXPECT_EQ(stream->AcquisitionStart(kForEver), 0);
    PlayImage(1);
    EXPECT_EQ(Get(), 0);
}

TEST_F(StreamTest, Start_SubmitFails_ReturnsItFreesAndEndsTheThread)
{
    Open();
    usb.FailNextSubmit(LIBUSB_ERROR_NO_DEVICE);
    EXPECT_EQ(stream->AcquisitionStart(1), 0xFFFC);
    EXPECT_EQ(usb.liveTransfers.load(), 0);
    usb.ClearJournal();
    zr_test::LetPass(std::chrono::milliseconds(40), "nobody serves the bus any more");
    EXPECT_EQ(usb.Count("handle_events"), 0U);
    // Still acquiring: a stop waits, switches the camera off and answers.
    EXPECT_EQ(Stop(), 0);
    EXPECT_EQ(printed, "DS_STATUS_IMAGE_TIMEOUT\n\n\n");
    EXPECT_EQ(acquired, 0U);
    EXPECT_EQ(camera.memory[0x50014], Little(0, 4));
    EXPECT_FALSE(stream->IsAcquiring());
}

TEST_F(StreamTest, Start_NoThreadToBeHad_ThrowsAndMayBeTriedAgain)
{
    Open();
    {
        const NoMoreThreads exhausted;
        ASSERT_TRUE(exhausted.InForce());
        EXPECT_THROW(stream->AcquisitionStart(kForEver), std::system_error);
    }
    EXPECT_EQ(usb.liveTransfers.load(), 0);
    EXPECT_EQ(stream->AcquisitionStart(kForEver), 0);
    PlayImage(1);
    EXPECT_EQ(Get(), 0);
}

TEST_F(StreamTest, Start_PayloadThatNoMemoryHolds_ThrowsAndLeavesNothing)
{
    for (const uint64_t payload :
         {uint64_t{UINT64_MAX}, uint64_t{1} << 63, uint64_t{1} << 32, uint64_t{1} << 40}) {
        SetPayload(payload);
        Open();
        EXPECT_THROW(stream->AcquisitionStart(1), std::bad_alloc) << payload;
        EXPECT_FALSE(stream->IsAcquiring());
    }
    SetPayload(1000);
    EXPECT_EQ(stream->AcquisitionStart(kForEver), 0);
}

TEST_F(StreamTest, Start_BufferCountThatNoProcessHas_Throws)
{
    Open();
    stream->SetBufferCount(UINT32_MAX);
    EXPECT_THROW(stream->AcquisitionStart(1), std::bad_alloc);
}

TEST_F(StreamTest, Start_LeaderThatNoMemoryHolds_ThrowsAfterTheThreadStartedAndEndsIt)
{
    camera.memory[kSirm + 0x10] = Little(UINT32_MAX, 4);
    camera.memory[kSirm + 0x14] = Little(UINT32_MAX, 4);
    Open();
    try {
        stream->AcquisitionStart(kForEver); // a machine with more than 8 GiB starts
        EXPECT_TRUE(usb.AwaitPending());
    } catch (const std::bad_alloc&) {
        EXPECT_EQ(usb.liveTransfers.load(), 0);
        EXPECT_TRUE(stream->IsAcquiring());
    }
    EXPECT_EQ(Stop(), 0);
}

TEST_F(StreamTest, Image_ReadRequests_FollowThePlan)
{
    Start();
    PlayImage(1);
    EXPECT_EQ(Get(), 0);
    ASSERT_TRUE(usb.AwaitDrained());
    usb.AwaitPending();
    EXPECT_THAT(Submitted(), ElementsAre("submit_transfer ep=0x83 length=65536 timeout=3000",
                                         "submit_transfer ep=0x83 length=400 timeout=3000",
                                         "submit_transfer ep=0x83 length=400 timeout=3000",
                                         "submit_transfer ep=0x83 length=200 timeout=3000",
                                         "submit_transfer ep=0x83 length=32 timeout=3000",
                                         "submit_transfer ep=0x83 length=52 timeout=3000"));
}

TEST_F(StreamTest, Image_BytesAndHeader_AreTheCameras)
{
    Start();
    PlayImage(7);
    EXPECT_EQ(Get(), 0);
    EXPECT_EQ(Bytes(image.begin(), image.begin() + 400), Bytes(400, 7));
    EXPECT_EQ(Bytes(image.begin() + 400, image.begin() + 800), Bytes(400, 8));
    EXPECT_EQ(Bytes(image.begin() + 800, image.begin() + 992), Bytes(192, 9));
    EXPECT_EQ(+header.nBlockId, 0x1000000000000007U);
    EXPECT_EQ(+header.nTimestamp, 0x0102030405060708U);
    EXPECT_EQ(+header.nPixelFormat, 0x01080001U);
    EXPECT_EQ(+header.nSizeX, 640U);
    EXPECT_EQ(+header.nSizeY, 480U);
    EXPECT_EQ(+header.nOffsetX, 0x11U);
    EXPECT_EQ(+header.nOffsetY, 0x22U);
    EXPECT_EQ(+header.nPaddingX, 0x4433);
    EXPECT_EQ(+header.nMissingBytes, 0U);
}

TEST_F(StreamTest, Image_OfWholeTransfersOnly_HasNoFinalTransfer)
{
    SetPayload(1200);
    image.resize(1200);
    Start();
    usb.Complete(LIBUSB_TRANSFER_COMPLETED, Leader(1));
    for (const uint8_t part : Bytes{1, 2, 3}) {
        usb.Complete(LIBUSB_TRANSFER_COMPLETED, Bytes(400, part));
    }
    usb.Complete(LIBUSB_TRANSFER_COMPLETED, Bytes(32));
    EXPECT_EQ(Get(), 0);
    EXPECT_EQ(image[0], 1);
    EXPECT_EQ(image[400], 2);
    EXPECT_EQ(image[1199], 3);
    ASSERT_TRUE(usb.AwaitDrained());
    EXPECT_EQ(Submitted()[4], "submit_transfer ep=0x83 length=32 timeout=3000");
}

TEST_F(StreamTest, Image_SmallerThanATransfer_IsReadInOnePiece)
{
    SetPayload(192);
    image.resize(192);
    Start();
    usb.Complete(LIBUSB_TRANSFER_COMPLETED, Leader(1));
    EXPECT_EQ(NextRequest(), "192");
    usb.Complete(LIBUSB_TRANSFER_COMPLETED, Bytes(192, 5));
    EXPECT_EQ(NextRequest(), "32");
    usb.Complete(LIBUSB_TRANSFER_COMPLETED, Bytes(32));
    EXPECT_EQ(Get(), 0);
    EXPECT_EQ(image, Bytes(192, 5));
}

TEST_F(StreamTest, Image_TransferSizeZero_IsReadInOnePiece)
{
    SetPayload(192);
    Open();
    stream->SetTransferSize(0);
    ASSERT_EQ(stream->AcquisitionStart(kForEver), 0);
    usb.Complete(LIBUSB_TRANSFER_COMPLETED, Leader(1));
    EXPECT_EQ(NextRequest(), "192");
    usb.Complete(LIBUSB_TRANSFER_COMPLETED, Bytes(192, 5));
    EXPECT_EQ(NextRequest(), "32");
}

TEST_F(StreamTest, Image_TransferSizeBeyondAnyLength_NeverAsksForMoreThanTheImage)
{
    Open();
    stream->SetTransferSize(UINT32_MAX);
    ASSERT_EQ(stream->AcquisitionStart(kForEver), 0);
    usb.Complete(LIBUSB_TRANSFER_COMPLETED, Leader(1));
    EXPECT_EQ(NextRequest(), "1000");
}

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
    Start(1);
    PlayImage(1);
    ASSERT_TRUE(usb.AwaitDrained());
    stream->RequestStop();
    zr_test::LetPass(std::chrono::milliseconds(200), "longer than stopWait");
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(Stop(), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(140));
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

TEST_F(StreamTest, GetImage_BeforeStartAndAfterStop_TimesOut)
{
    EXPECT_EQ(Get(10), 0xC018);
    Start();
    PlayImage(1);
    EXPECT_TRUE(usb.AwaitDrained());
    EXPECT_EQ(Stop(), 0);
    EXPECT_EQ(Get(10), 0xC018);
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
