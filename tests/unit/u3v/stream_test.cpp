// The stream channel when all goes well: opening, starting, images.

#include "no_threads.h"
#include "stream_fixture.h"

#include <chrono>
#include <system_error>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

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
    const auto passed =
        zr_test::LetPass(std::chrono::milliseconds(50), "a few calls, not thousands");
    EXPECT_LE(usb.Count("handle_events"), 20 + 2 * static_cast<size_t>(passed.count()));
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

// The camera sends what it was programmed with, so the reads keep to that.
TEST_F(StreamTest, TransferSize_SetWhileStreaming_CountsFromTheNextStart)
{
    Start();
    usb.Complete(LIBUSB_TRANSFER_COMPLETED, Leader(1));
    EXPECT_EQ(NextRequest(), "400");
    stream->SetTransferSize(200);
    EXPECT_EQ(stream->TransferSize(), 200U);
    for (const uint8_t part : Bytes{1, 2}) {
        usb.Complete(LIBUSB_TRANSFER_COMPLETED, Bytes(400, part));
    }
    usb.Complete(LIBUSB_TRANSFER_COMPLETED, Bytes(192, 3));
    usb.Complete(LIBUSB_TRANSFER_COMPLETED, Bytes(32));
    EXPECT_EQ(Get(), 0);
    EXPECT_EQ(image[400], 2);
    PlayImage(4);
    EXPECT_EQ(Get(), 0);
    EXPECT_EQ(image[0], 4);

    EXPECT_EQ(Stop(), 0);
    usb.transferTimesOutAfter = 0;
    ASSERT_EQ(stream->AcquisitionStart(kForEver), 0);
    usb.Complete(LIBUSB_TRANSFER_COMPLETED, Leader(5));
    EXPECT_EQ(NextRequest(), "200");
    using Write = std::pair<uint64_t, Bytes>;
    EXPECT_THAT(camera.writes, testing::Contains(Write{kSirm + 0x1C, Little(200, 4)}));
}

TEST_F(StreamTest, Image_TransferSizeBeyondAnyLength_NeverAsksForMoreThanTheImage)
{
    Open();
    stream->SetTransferSize(UINT32_MAX);
    ASSERT_EQ(stream->AcquisitionStart(kForEver), 0);
    usb.Complete(LIBUSB_TRANSFER_COMPLETED, Leader(1));
    EXPECT_EQ(NextRequest(), "1000");
}

} // namespace
