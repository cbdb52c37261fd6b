// A USB device as seen from its endpoints: what any way of attaching it, in-process or over USB/IP,
// uses.
#ifndef VCAM_USB_DEVICE_H
#define VCAM_USB_DEVICE_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <vector>

namespace vcam {

class UsbDescriptors;

using Clock = std::chrono::steady_clock;

enum class UsbStatus
{
    Done,     // the request is complete
    Nak,      // nothing (more) for now; ask again at retryAt or when the listener is called
    Stall,    // the endpoint is halted, or the control request is refused
    Overflow, // the next packet is larger than the room left; it is lost
    NoDevice, // the device has gone away by itself
    Error,    // nothing answers on the wire
};

struct UsbResult
{
    UsbStatus status = UsbStatus::Done;
    // Of Nak: when time alone may help. Of a control request that is done: its answer takes until
    // then (max: it is there).
    Clock::time_point retryAt = Clock::time_point::max();
};

// The eight bytes that open a control transfer.
struct SetupPacket
{
    std::uint8_t requestType = 0;
    std::uint8_t request = 0;
    std::uint16_t value = 0;
    std::uint16_t index = 0;
    std::uint16_t length = 0;

    bool IsIn() const { return (requestType & 0x80) != 0; }
    static SetupPacket Parse(const std::uint8_t* eightBytes);
};

// All functions may be called from several threads. One request at a time is under way on each
// endpoint; who attaches the device queues the others.
class UsbDevice
{
public:
    virtual ~UsbDevice() = default;

    virtual const UsbDescriptors& Descriptors() const = 0;
    // A control request on endpoint 0. OUT: "data" is what the host sends; IN: it is filled, at
    // most to setup.length. Nak: it is never answered.
    virtual UsbResult Control(const SetupPacket& setup, std::vector<std::uint8_t>& data) = 0;
    // One whole transfer of the host. Nak: nothing has been taken.
    virtual UsbResult BulkOut(std::uint8_t endpoint, const std::uint8_t* data,
                              std::size_t size) = 0;
    // Goes on filling a request of the host: "filled" counts what earlier calls for the same
    // request have put into the buffer. Packets that were taken stay taken when the request is
    // given up.
    virtual UsbResult BulkIn(std::uint8_t endpoint, std::uint8_t* buffer, std::size_t capacity,
                             std::size_t& filled) = 0;
    // The bus resets the port: everything but the plug itself starts anew.
    virtual void BusReset() = 0;
    // The listener is called, without any lock of the device, when a request that got Nak may
    // succeed.
    virtual void SetListener(std::function<void()> listener) = 0;
    // Whether the device has gone away by itself (every request is answered with NoDevice).
    virtual bool Gone() const { return false; }
    // How long it stays away then; negative: it does not come
    // back.
    virtual std::chrono::milliseconds ReturnsAfter() const { return std::chrono::milliseconds(-1); }
};

} // namespace vcam

#endif
