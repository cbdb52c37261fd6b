#pragma once

#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "acknowledge.h"
#include "error.h"
#include "field.h"
#include "registers.h"
#include "usb_context.h"
#include "usb_owners.h"
#include "wakeup.h"
#include "zr_sync.h"

namespace u3v_host {

class EventLoop;
class GoneNotice;

// The bulk endpoints of the control interface.
struct ControlEndpoints
{
    uint8_t out;
    uint8_t in;
    uint16_t maxPacketSize; // of the IN endpoint, bytes
};

// Reads and writes a camera's memory in exchanges of a command and its acknowledge, one at a time.
// Any thread may call, except within a callback of libusb, where it is refused with an Error.
//
// A read that is not answered, or comes back damaged, is repeated; a write never: nobody knows
// whether it was done. What is refused is not repeated. Errors name operation, address, length and
// reason.
class ControlChannel
{
public:
    // The interface is claimed. Sends nothing; takes any camera's smallest transfers until
    // SetTransferLimits.
    ControlChannel(UsbHandle handle, const ControlEndpoints& endpoints, EventLoop& loop,
                   GoneNotice& gone, const ControlLimits& limits = {});
    ~ControlChannel();
    ControlChannel(const ControlChannel&) = delete;
    ControlChannel& operator=(const ControlChannel&) = delete;

    // While the camera is opened, before other threads know the channel.
    void SetTransferLimits(uint32_t maximumCommand, uint32_t maximumAcknowledge);
    void SetResponseTime(uint32_t milliseconds);
    void ReadAwayOldAnswers();

    // Any length; `done` says in either case how many bytes were. Throws Error.
    void Read(uint64_t address, std::span<uint8_t> destination, size_t& done);
    void Write(uint64_t address, std::span<const uint8_t> source, size_t& done);

    // One register. Throws Error.
    template <std::unsigned_integral T>
    T Read(Register<T> reg)
    {
        std::array<uint8_t, sizeof(T)> bytes{};
        size_t done = 0;
        Read(reg.address, bytes, done);
        return Load<T>(bytes, Field<T>{0});
    }
    template <std::unsigned_integral T>
    void Write(Register<T> reg, T value)
    {
        std::array<uint8_t, sizeof(T)> bytes{};
        Store<T>(bytes, Field<T>{0}, value);
        size_t done = 0;
        Write(reg.address, bytes, done);
    }

private:
    // One of the two transfers, with its memory.
    struct Direction
    {
        UsbTransferPtr transfer;
        std::vector<uint8_t> buffer;
    };
    struct Request
    {
        uint16_t command;
        uint64_t address;
        std::span<uint8_t> destination;  // of a read
        std::span<const uint8_t> source; // of a write

        size_t Size() const { return destination.size() + source.size(); }
    };
    enum class Failure : uint8_t
    {
        None,
        Refused,  // by the camera, with a status
        Silent,   // no answer in time
        Pending,  // promised, again and again, and never came
        Damaged,  // by its content or on the bus
        Refusing, // the system does not take the transfer
        Misused,  // by the caller
        Gone,
    };
    struct Outcome
    {
        Failure failure = Failure::None;
        uint16_t status = 0;
        int usbError = 0;
        const char* fault = "";

        bool MayRepeat() const { return failure == Failure::Silent || failure == Failure::Damaged; }
    };
    enum class Waited : uint8_t
    {
        Came,    // the transfer of the answer has ended, in whatever way
        TooLong, // until the deadline
        NotSent, // the transfer of the command has failed
    };
    class Turn;

    void _check(const Request& request) const;
    void _run(const Request& request, unsigned attempts);
    Outcome _exchange(const Request& request);
    size_t _encode(const Request& request);
    Outcome _awaitAnswer(const Request& request);
    Outcome _takePacket(const Request& request, Patience& patience, bool& again);
    void _clearHalts();
    Error _error(const Request& request, const Outcome& outcome) const;

    Direction _makeDirection(uint8_t endpoint);
    size_t _answerRoom(size_t dataSize) const;
    Outcome _submit(Direction& direction, size_t size) ZR_EXCLUDES(m_mutex);
    Outcome _result(const Direction& direction);
    Waited _awaitIn(Patience::TimePoint deadline) ZR_EXCLUDES(m_mutex);
    void _settle() ZR_EXCLUDES(m_mutex);
    bool& _inFlight(const Direction& direction) ZR_REQUIRES(m_mutex);
    static void LIBUSB_CALL _completed(libusb_transfer* transfer);

    const UsbHandle m_handle;
    const ControlEndpoints m_endpoints;
    EventLoop& m_loop;
    GoneNotice& m_gone;
    const ControlLimits m_limits;
    std::chrono::milliseconds m_responseTime;
    size_t m_maximumRead;
    size_t m_maximumWrite;

    // These belong to whoever has the turn.
    uint16_t m_requestId;
    bool m_othersMayCome = true; // a command was given up, or somebody before us has left answers
    Direction m_out;
    Direction m_in;

    Mutex m_mutex;
    const std::unique_ptr<Wakeup> m_wakeup; // a transfer has ended, or the turn is free
    bool m_turnTaken ZR_GUARDED_BY(m_mutex) = false;
    bool m_outInFlight ZR_GUARDED_BY(m_mutex) = false;
    bool m_inInFlight ZR_GUARDED_BY(m_mutex) = false;
};

} // namespace u3v_host
