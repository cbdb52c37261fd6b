#pragma once

// A stream channel on the stand-in for libusb, and the images that its camera plays.

#include "u3v_fixture.h"
#include "u3v_stream.h"

#include <optional>

inline constexpr uint32_t kForEver = 0xFFFFFFFF;

// The leader as the USB3 Vision standard lays it out, with a different value in every field.
inline Bytes Leader(uint8_t id, size_t size = 52)
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
        // Short, but long enough for a busy machine to deliver a completion in time.
        MakeStream(150);
    }

    void MakeStream(int32_t stopWait) // ms
    {
        U3V_StreamTimings timings;
        timings.stopWait = stopWait;
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
        testing::internal::CaptureStdout();
        usb.transferTimesOutAfter = 1;
        const uint16_t status = stream->AcquisitionStop(&acquired, &lost);
        printed = testing::internal::GetCapturedStdout();
        return status;
    }

    void TearDown() override
    {
        usb.transferTimesOutAfter = 1;
        testing::internal::CaptureStdout();
        stream.reset();
        testing::internal::GetCapturedStdout();
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
