// One device on one connected USB/IP socket: takes the host's requests and answers them as a host
// controller with the device behind it would.
#ifndef VCAM_DEVICE_LINK_H
#define VCAM_DEVICE_LINK_H

#include <atomic>
#include <deque>
#include <map>
#include <memory>
#include <vector>

#include "file_descriptor.h"
#include "usb_device.h"

namespace vcam {

// How the host has treated the stream endpoint.
struct LinkCounts
{
    std::uint64_t requests = 0;  // of all endpoints
    std::uint64_t unlinked = 0;  // cancelled by the host
    std::uint64_t maxQueued = 0; // requests that waited at once on an IN endpoint
    std::uint64_t maxBytes = 0;  // and their bytes
    std::uint64_t starved = 0;   // times the host had no request there in the middle of an image
    std::uint64_t malformed = 0; // records that are none of the protocol: the connection ends
};

// Run() belongs to one thread, everything else may be called from any.
class DeviceLink
{
public:
    enum class End
    {
        HostLeft,   // the other end has closed the connection
        DeviceLeft, // the device has gone away by itself
        Stopped,    // Stop()
        Malformed,  // the host does not speak the protocol
    };
    // Says whether an image is under way, to tell a starved stream from an idle one.
    using Busy = std::function<bool()>;

    DeviceLink(UsbDevice& device, FileDescriptor socket, Busy busy);
    ~DeviceLink();
    DeviceLink(const DeviceLink&) = delete;
    DeviceLink& operator=(const DeviceLink&) = delete;

    End Run();
    void Stop();
    // After Run().
    const LinkCounts& Counts() const { return m_counts; }

private:
    // A request of the host on an IN endpoint.
    struct Request
    {
        std::uint32_t sequence = 0;
        std::uint32_t flags = 0;
        std::uint32_t packetCount = 0;
        std::size_t capacity = 0;
    };
    // The requests of one IN endpoint, answered in their order. Only the first is being filled.
    struct Pipe
    {
        std::deque<Request> queue;
        std::size_t bytes = 0; // of all that wait
        std::unique_ptr<std::uint8_t[]> buffer;
        std::size_t bufferSize = 0;
        std::size_t filled = 0;
        Clock::time_point retryAt = Clock::time_point::max();
        // A short read where the host wanted none: so many requests behind it wait until the host
        // has taken them back, but not for ever.
        std::size_t held = 0;
        Clock::time_point heldUntil{};
    };

    // The answer to a request on endpoint 0, or on one that takes data, that is not due yet. One
    // that never comes waits to be cancelled.
    struct Parked
    {
        Request request;
        Clock::time_point dueAt;
        std::size_t actual = 0;
        std::vector<std::uint8_t> data;
    };

    bool _Wait(bool more);
    Clock::time_point _NextTime() const;
    bool _Receive();
    bool _TakeRecords();
    std::size_t _RecordSize(const std::uint8_t* record) const;
    bool _TakeRecord(const std::uint8_t* record, std::size_t size);
    bool _Control(const std::uint8_t* record, std::size_t size);
    bool _BulkOut(const std::uint8_t* record, std::size_t size);
    bool _Queue(const std::uint8_t* record);
    bool _Unlink(const std::uint8_t* record);
    bool _TakeBack(std::uint32_t wanted, std::int32_t& status);
    bool _AnswerParked();
    bool _Pump(bool& more);
    bool _PumpPipe(std::uint8_t endpoint, Pipe& pipe, bool& more);
    bool _Finish(std::uint8_t endpoint, Pipe& pipe, UsbStatus status);
    void _Pop(Pipe& pipe, std::size_t index);
    bool _AnswerSubmit(const Request& request, std::int32_t status, std::size_t actual,
                       const std::uint8_t* data, std::size_t size);
    bool _Send(const std::uint8_t* header, const std::uint8_t* data, std::size_t size);
    bool _EndAs(End end);
    void _Drain();

    UsbDevice& m_device;
    FileDescriptor m_socket;
    const Busy m_busy;
    // Outlives the link: the device may still be about to call its listener.
    std::shared_ptr<WakeUp> m_wakeUp = std::make_shared<WakeUp>();
    std::atomic<bool> m_stop{false};
    End m_end = End::HostLeft;
    std::vector<std::uint8_t> m_input;
    std::size_t m_inputSize = 0;
    std::map<std::uint8_t, Pipe> m_pipes; // by endpoint address
    std::vector<Parked> m_parked;
    LinkCounts m_counts;
};

} // namespace vcam

#endif
