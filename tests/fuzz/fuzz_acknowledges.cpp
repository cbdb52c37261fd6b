// Acknowledges: every byte and every result of the control channel's IN endpoint.

#include "fuzz_camera.h"
#include "fuzz_input.h"

#include "u3v_control.h"

namespace {

constexpr unsigned kMaximumReplies = 64;

// Mostly an acknowledge in order with one thing wrong, since random bytes end at the prefix.
FakeReply TakeReply(FuzzInput& input, uint16_t expectedId)
{
    FakeReply reply;
    const unsigned kind = input.Below(8);
    if (kind == 0) {
        reply.result = -static_cast<int>(input.Below(13));
        reply.bytes = input.Bytes(input.Below(64));
        return reply;
    }
    if (kind == 1) {
        reply.bytes = input.Bytes(input.Byte());
        return reply;
    }
    constexpr uint16_t kCommands[] = {0x0801, 0x0803, 0x0805, 0x0800};
    const uint16_t command = kCommands[input.Below(4)];
    const auto status = static_cast<uint16_t>(input.Below(4) == 0 ? input.Take<uint16_t>() : 0);
    const auto id =
        static_cast<uint16_t>(expectedId + (input.Below(4) == 0 ? input.Take<int8_t>() : 0));
    const unsigned payload = input.Byte() * (input.Flag() ? 4U : 1U);
    reply.bytes = fuzz::Little(0x43563355, 4);
    for (const uint16_t field : {status, command, static_cast<uint16_t>(payload), id}) {
        const Bytes bytes = fuzz::Little(field, 2);
        reply.bytes.insert(reply.bytes.end(), bytes.begin(), bytes.end());
    }
    Bytes content = input.Bytes(input.Byte());
    content.resize(payload);
    reply.bytes.insert(reply.bytes.end(), content.begin(), content.end());
    return reply;
}

void Read(FuzzInput& input, U3V_Control& control)
{
    const auto length = static_cast<int16_t>(input.Take<uint16_t>() % 1100);
    // Exactly as large as asked for, so that a byte too many is seen.
    std::vector<uint8_t> destination(static_cast<size_t>(length), 0xA5);
    const uint16_t status = control.ReadMem(input.Take<uint64_t>(), destination.data(), length);
    FuzzDemand(status == U3V_STATUS_SUCCESS ||
                   std::all_of(destination.begin(), destination.end(),
                               [](uint8_t byte) { return byte == 0xA5; }),
               "a failing read leaves its destination alone");
}

void Write(FuzzInput& input, U3V_Control& control)
{
    const auto length = static_cast<int16_t>(input.Take<uint16_t>() % 1100);
    std::vector<uint8_t> source = input.Bytes(static_cast<size_t>(length));
    source.resize(static_cast<size_t>(length));
    control.WriteMem(input.Take<uint64_t>(), source.data(), length);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzQuietStdout();
    FuzzInput input(data, size);
    {
        fuzz::OpenedCamera camera;
        U3V_ControlLimits limits;
        limits.pendingRounds = 8;
        U3V_Control control(&camera.Device(), limits);
        const bool hostileFromTheStart = input.Below(4) == 0;
        uint16_t id = 1;
        if (!hostileFromTheStart) {
            FuzzDemand(control.OpenControl() == U3V_STATUS_SUCCESS, "an orderly camera opens");
            id = 8; // of the exchange after the bootstrap registers
        }
        const unsigned replies = input.Below(kMaximumReplies);
        for (unsigned i = 0; i < replies; ++i) {
            camera.Usb().replies.push_back(TakeReply(input, id));
            id = static_cast<uint16_t>(id + input.Below(2));
        }
        if (hostileFromTheStart) {
            control.OpenControl();
        }
        for (unsigned operations = input.Below(16); operations > 0; --operations) {
            input.Flag() ? Read(input, control) : Write(input, control);
        }
    }
    FuzzDemand(fuzz::NothingLeft(), "nothing of libusb is left");
    return 0;
}
