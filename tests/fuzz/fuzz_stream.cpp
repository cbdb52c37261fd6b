// Stream completions as a script of status and length, over streaming registers of every size.

#include "fuzz_camera.h"
#include "fuzz_input.h"

#include <chrono>
#include <thread>

#include "u3v_control.h"
#include "u3v_stream.h"

namespace {

constexpr uint64_t kLargest = 40000; // bytes that are really allocated

// Small enough to be had, or so large that nobody has it: what lies between only measures memory.
uint64_t TakeSize(FuzzInput& input)
{
    return input.Below(16) == 0 ? (uint64_t{1} << (40 + input.Below(24))) + input.Byte()
                                : input.Take<uint16_t>() % kLargest;
}

U3V_StreamTimings ShortTimings()
{
    U3V_StreamTimings timings;
    timings.stopWait = 2;
    timings.lastResort = 2000;
    timings.eventWait = 5;
    timings.eventPause = 1;
    timings.retryPause = 0;
    return timings;
}

// Lengths that the plan knows come more often than those that it does not.
size_t TakeLength(FuzzInput& input, const std::vector<size_t>& known)
{
    return input.Below(4) == 0 ? input.Take<uint16_t>()
                               : known[input.Below(static_cast<unsigned>(known.size()))];
}

void Play(FuzzInput& input, const std::vector<size_t>& known)
{
    FakeUsb& usb = FakeUsb::Instance();
    for (unsigned completions = input.Below(40); completions > 0; --completions) {
        const unsigned status = input.Below(12);
        const size_t length = TakeLength(input, known);
        Bytes bytes = input.Bytes(std::min<size_t>(length, 64));
        bytes.resize(length);
        if (status > LIBUSB_TRANSFER_OVERFLOW) {
            usb.Complete(LIBUSB_TRANSFER_COMPLETED, bytes);
        } else if (status == 0 && input.Below(4) == 0) {
            usb.CompleteLying(bytes, input.Take<int16_t>());
        } else {
            usb.Complete(static_cast<libusb_transfer_status>(status), bytes);
        }
        if (input.Below(16) == 0) {
            usb.FailNextSubmit(-1 - static_cast<int>(input.Below(12)));
        }
    }
}

void Acquire(FuzzInput& input, U3V_Stream& stream, const std::vector<size_t>& known)
{
    stream.SetTransferSize(input.Below(8) == 0 ? input.Take<uint32_t>()
                                               : input.Take<uint16_t>() % 4096U);
    stream.SetBufferCount(input.Below(8) == 0 ? input.Take<uint32_t>() : input.Below(6));
    Play(input, known);
    uint16_t started = U3V_STATUS_EXCEPTION;
    try {
        started = stream.AcquisitionStart(input.Flag() ? 0xFFFFFFFF : input.Below(4));
    } catch (const std::bad_alloc&) {
        started = U3V_STATUS_EXCEPTION; // what the flat interface makes of it
    }
    if (started == U3V_STATUS_SUCCESS) {
        std::vector<uint8_t> image(input.Take<uint16_t>() % kLargest);
        IMAGE_HEADER header{};
        for (unsigned images = input.Below(4); images > 0; --images) {
            stream.GetImage(image.data(), image.size(), 1, &header);
        }
    }
    uint64_t acquired = 0;
    uint64_t lost = 0;
    stream.AcquisitionStop(&acquired, &lost);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzQuietStdout();
    FuzzInput input(data, size);
    {
        fuzz::OpenedCamera camera;
        FakeUsb::Instance().transferTimesOutAfter = 1; // ms; nothing waits longer than that
        const uint64_t payload = TakeSize(input);
        const auto leader = static_cast<uint32_t>(TakeSize(input) % kLargest);
        const auto trailer = static_cast<uint32_t>(TakeSize(input) % kLargest);
        camera.Usb().memory[fuzz::kSirm] = {0, 0, 0, static_cast<uint8_t>(input.Below(12))};
        camera.Usb().memory[fuzz::kSirm + 0x08] = fuzz::Little(payload, 8);
        camera.Usb().memory[fuzz::kSirm + 0x10] = fuzz::Little(leader, 4);
        camera.Usb().memory[fuzz::kSirm + 0x14] = fuzz::Little(trailer, 4);
        U3V_Control control(&camera.Device());
        control.OpenControl();
        U3V_Stream stream(&camera.Device(), &control, ShortTimings());
        FuzzDemand(stream.OpenStream() == U3V_STATUS_SUCCESS, "the stream opens");
        const std::vector<size_t> known = {leader, trailer, 52, 32, 0, 1024, payload % kLargest};
        for (unsigned rounds = 1 + input.Below(3); rounds > 0; --rounds) {
            Acquire(input, stream, known);
        }
    }
    FuzzDemand(fuzz::NothingLeft(), "nothing of libusb is left");
    return 0;
}
