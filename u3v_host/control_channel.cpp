#include "control_channel.h"

#include <algorithm>
#include <new>
#include <string>
#include <unistd.h>
#include <utility>

#include "event_loop.h"
#include "failure_kind.h"
#include "gone_notice.h"
#include "packets.h"
#include "status.h"
#include "text.h"

namespace wire = control_wire;

namespace u3v_host {

namespace {

using Clock = std::chrono::steady_clock;

// Exchanges that every camera takes: one 64-bit register.
constexpr size_t kSmallest = sizeof(uint64_t);
// What a camera names as its maximum is believed between one 32-bit register and this.
constexpr uint32_t kLargestTransfer = 0x10000;
constexpr unsigned kOldPackets = 64;

// The data that fits a transfer of so many bytes behind its header, in whole 32-bit registers.
size_t DataIn(uint32_t transferSize, size_t headerSize)
{
    constexpr size_t kWord = sizeof(uint32_t);
    const size_t believed = std::clamp<size_t>(transferSize, headerSize + kWord, kLargestTransfer);
    return (believed - headerSize) / kWord * kWord;
}

size_t RoundUp(size_t size, size_t unit)
{
    return (size + unit - 1) / unit * unit;
}

// Not the one that an earlier process has begun with: its answers may still wait in the camera.
uint16_t FirstRequestId()
{
    const auto ticks = Clock::now().time_since_epoch().count();
    return static_cast<uint16_t>(ticks ^ ticks >> 16 ^ getpid());
}

} // namespace

// The right to use the transfers, for a scope.
class ControlChannel::Turn
{
public:
    explicit Turn(ControlChannel& channel) : m_channel(channel)
    {
        Locker lock(m_channel.m_mutex);
        while (m_channel.m_turnTaken) {
            m_channel.m_wakeup->Wait(m_channel.m_mutex, Deadline::max());
        }
        m_channel.m_turnTaken = true;
    }
    ~Turn()
    {
        Locker lock(m_channel.m_mutex);
        m_channel.m_turnTaken = false;
        m_channel.m_wakeup->NotifyAll();
    }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

private:
    ControlChannel& m_channel;
};

ControlChannel::ControlChannel(UsbHandle handle, const ControlEndpoints& endpoints, EventLoop& loop,
                               GoneNotice& gone, const ControlLimits& limits)
    : m_handle(std::move(handle)), m_endpoints(endpoints), m_loop(loop), m_gone(gone),
      m_limits(limits), m_responseTime(limits.defaultTime), m_maximumRead(kSmallest),
      m_maximumWrite(kSmallest), m_requestId(FirstRequestId()),
      m_out(_makeDirection(endpoints.out)), m_in(_makeDirection(endpoints.in)),
      m_wakeup(loop.MakeWakeup())
{
    m_out.buffer.resize(wire::kWriteDataOffset + m_maximumWrite);
    m_in.buffer.resize(RoundUp(wire::kAckHeaderSize + kSmallest, m_endpoints.maxPacketSize));
}

ControlChannel::~ControlChannel() = default;

ControlChannel::Direction ControlChannel::_makeDirection(uint8_t endpoint)
{
    Direction direction{UsbTransferPtr(libusb_alloc_transfer(0)), {}};
    if (direction.transfer == nullptr) {
        throw std::bad_alloc();
    }
    // The waiting has its own deadlines, which go on after a late answer was read away.
    libusb_fill_bulk_transfer(direction.transfer.get(), m_handle.get(), endpoint, nullptr, 0,
                              _completed, this, 0);
    return direction;
}

void ControlChannel::SetTransferLimits(uint32_t maximumCommand, uint32_t maximumAcknowledge)
{
    const Turn turn(*this);
    m_maximumRead = DataIn(maximumAcknowledge, wire::kAckHeaderSize);
    m_maximumWrite = DataIn(maximumCommand, wire::kWriteDataOffset);
    m_out.buffer.resize(wire::kWriteDataOffset + m_maximumWrite);
    m_in.buffer.resize(RoundUp(wire::kAckHeaderSize + m_maximumRead, m_endpoints.maxPacketSize));
}

void ControlChannel::SetResponseTime(uint32_t milliseconds)
{
    m_responseTime = ResponseTime(milliseconds, m_limits);
}

void ControlChannel::ReadAwayOldAnswers()
{
    const Turn turn(*this);
    for (unsigned i = 0; i < kOldPackets && !m_gone.IsGone(); ++i) {
        const bool submitted = _submit(m_in, m_in.buffer.size()).failure == Failure::None;
        const bool came = submitted && _awaitIn(Clock::now() + m_limits.drainTime) == Waited::Came;
        _settle();
        _result(m_in); // notices that the camera has gone
        _clearHalts();
        if (!came) {
            return;
        }
    }
}

void ControlChannel::Read(uint64_t address, std::span<uint8_t> destination, size_t& done)
{
    done = 0;
    _check({wire::kReadCommand, address, destination, {}});
    while (done < destination.size()) {
        const size_t size = std::min(m_maximumRead, destination.size() - done);
        _run({wire::kReadCommand, address + done, destination.subspan(done, size), {}},
             m_limits.readAttempts);
        done += size;
    }
}

void ControlChannel::Write(uint64_t address, std::span<const uint8_t> source, size_t& done)
{
    done = 0;
    _check({wire::kWriteCommand, address, {}, source});
    while (done < source.size()) {
        const size_t size = std::min(m_maximumWrite, source.size() - done);
        _run({wire::kWriteCommand, address + done, {}, source.subspan(done, size)}, 1);
        done += size;
    }
}

// What must not even be tried.
void ControlChannel::_check(const Request& request) const
{
    if (request.Size() != 0 && request.address + (request.Size() - 1) < request.address) {
        throw _error(request, {Failure::Refused, gencp_status::kInvalidAddress});
    }
    if (m_loop.IsServing()) {
        throw _error(request, {Failure::Misused, 0, 0, "called within a callback of libusb"});
    }
    if (m_loop.IsForked()) {
        throw _error(request, {Failure::Misused, 0, 0, "the camera was opened before the fork"});
    }
}

void ControlChannel::_run(const Request& request, unsigned attempts)
{
    const Turn turn(*this);
    Outcome outcome;
    do {
        outcome = _exchange(request);
    } while (outcome.MayRepeat() && --attempts > 0);
    if (outcome.failure != Failure::None) {
        throw _error(request, outcome);
    }
}

// The answer's transfer waits before the command goes out: a camera that is quick finds it there.
ControlChannel::Outcome ControlChannel::_exchange(const Request& request)
{
    if (m_gone.IsGone()) {
        return {Failure::Gone};
    }
    const size_t size = _encode(request);
    Outcome outcome = _submit(m_in, _answerRoom(request.destination.size()));
    if (outcome.failure == Failure::None) {
        outcome = _submit(m_out, size);
    }
    if (outcome.failure == Failure::None) {
        outcome = _awaitAnswer(request);
    }
    _settle();
    _clearHalts();
    m_othersMayCome = outcome.failure != Failure::None && outcome.failure != Failure::Refused;
    return outcome;
}

size_t ControlChannel::_encode(const Request& request)
{
    m_requestId = std::max<uint16_t>(static_cast<uint16_t>(m_requestId + 1), 1); // never 0
    const bool isRead = request.command == wire::kReadCommand;
    const std::span<uint8_t> packet(m_out.buffer);
    Store(packet, wire::kCommandPrefix, wire::kPrefix);
    Store(packet, wire::kCommandFlags, wire::kFlagRequestAck);
    Store(packet, wire::kCommandId, request.command);
    Store(packet, wire::kCommandRequestId, m_requestId);
    Store(packet, wire::kCommandAddress, request.address);
    size_t size = wire::kReadCommandSize;
    if (isRead) {
        Store(packet, wire::kReadReserved, uint16_t{0});
        Store(packet, wire::kReadLength, static_cast<uint16_t>(request.destination.size()));
    } else {
        std::ranges::copy(request.source, packet.begin() + wire::kWriteDataOffset);
        size = wire::kWriteDataOffset + request.source.size();
    }
    Store(packet, wire::kCommandLength, static_cast<uint16_t>(size - wire::kCommandHeaderSize));
    return size;
}

// Whole USB packets, so that none can overflow. One that is exactly filled ends the transfer, also
// where the camera sends no empty packet behind it.
size_t ControlChannel::_answerRoom(size_t dataSize) const
{
    const size_t exact = std::max(wire::kAckHeaderSize + dataSize, wire::kLongAckSize);
    const size_t whole = RoundUp(exact, m_endpoints.maxPacketSize);
    // Others may be longer than ours, and have to come in one piece.
    return m_othersMayCome && whole != exact ? m_in.buffer.size() : whole;
}

ControlChannel::Outcome ControlChannel::_awaitAnswer(const Request& request)
{
    Patience patience(m_limits, m_responseTime, Clock::now());
    Outcome outcome;
    bool again = true;
    while (again && outcome.failure == Failure::None) {
        switch (_awaitIn(patience.Deadline())) {
        case Waited::TooLong: return {Failure::Silent};
        case Waited::NotSent: return _result(m_out);
        case Waited::Came: break;
        }
        outcome = _takePacket(request, patience, again);
        if (again) {
            outcome = _submit(m_in, _answerRoom(request.destination.size()));
        }
    }
    return outcome;
}

// `again`: it was not the answer, and another packet is worth waiting for.
ControlChannel::Outcome ControlChannel::_takePacket(const Request& request, Patience& patience,
                                                    bool& again)
{
    again = false;
    const Outcome outcome = _result(m_in);
    if (outcome.failure != Failure::None) {
        return outcome;
    }
    const auto received = static_cast<size_t>(m_in.transfer->actual_length);
    const Acknowledge ack =
        JudgeAcknowledge(std::span(m_in.buffer).first(received),
                         {static_cast<uint16_t>(request.command + 1), m_requestId,
                          request.destination.size(), m_othersMayCome});
    switch (ack.kind) {
    case Acknowledge::Kind::Damaged: return {Failure::Damaged, 0, 0, ack.fault};
    case Acknowledge::Kind::Pending:
        again = patience.ForPending(ack.pendingTime, Clock::now());
        return again ? Outcome{} : Outcome{Failure::Pending};
    case Acknowledge::Kind::Other:
        again = patience.ForOther();
        return again ? Outcome{} : Outcome{Failure::Damaged, 0, 0, "it answers other commands"};
    case Acknowledge::Kind::Answer: break;
    }
    if (ack.status != gencp_status::kSuccess) {
        return {Failure::Refused, ack.status};
    }
    std::copy_n(ack.data.begin(), request.destination.size(), request.destination.begin());
    return {};
}

bool& ControlChannel::_inFlight(const Direction& direction)
{
    return &direction == &m_out ? m_outInFlight : m_inInFlight;
}

ControlChannel::Outcome ControlChannel::_submit(Direction& direction, size_t size)
{
    libusb_transfer& transfer = *direction.transfer;
    transfer.buffer = direction.buffer.data();
    transfer.length = static_cast<int>(size);
    transfer.status = LIBUSB_TRANSFER_COMPLETED;
    Locker lock(m_mutex);
    const int result = libusb_submit_transfer(&transfer);
    _inFlight(direction) = result == LIBUSB_SUCCESS;
    if (result == LIBUSB_ERROR_NO_DEVICE) {
        m_gone.Set();
        return {Failure::Gone};
    }
    return result == LIBUSB_SUCCESS ? Outcome{} : Outcome{Failure::Refusing, 0, result};
}

// Of a transfer that has ended.
ControlChannel::Outcome ControlChannel::_result(const Direction& direction)
{
    switch (const libusb_transfer_status status = direction.transfer->status) {
    case LIBUSB_TRANSFER_COMPLETED: return {};
    case LIBUSB_TRANSFER_NO_DEVICE: m_gone.Set(); return {Failure::Gone};
    default: return {Failure::Damaged, 0, 0, TransferStatusName(status)};
    }
}

ControlChannel::Waited ControlChannel::_awaitIn(Patience::TimePoint deadline)
{
    Locker lock(m_mutex);
    while (m_inInFlight) {
        if (!m_outInFlight && m_out.transfer->status != LIBUSB_TRANSFER_COMPLETED) {
            return Waited::NotSent;
        }
        if (Clock::now() >= deadline) {
            return Waited::TooLong;
        }
        m_wakeup->Wait(m_mutex, deadline);
    }
    return Waited::Came;
}

// Nothing is in flight afterwards.
void ControlChannel::_settle()
{
    Locker lock(m_mutex);
    for (const Direction* direction : {&m_out, &m_in}) {
        if (_inFlight(*direction)) {
            libusb_cancel_transfer(direction->transfer.get());
        }
    }
    while (m_outInFlight || m_inInFlight) {
        m_wakeup->Wait(m_mutex, Deadline::max());
    }
}

void ControlChannel::_clearHalts()
{
    for (const Direction* direction : {&m_out, &m_in}) {
        switch (direction->transfer->status) {
        case LIBUSB_TRANSFER_STALL:
        case LIBUSB_TRANSFER_ERROR:
        case LIBUSB_TRANSFER_OVERFLOW:
            libusb_clear_halt(m_handle.get(), direction->transfer->endpoint);
            direction->transfer->status = LIBUSB_TRANSFER_COMPLETED;
            break;
        default: break;
        }
    }
}

// Notified under the lock: once it is free, the channel may be destroyed.
void LIBUSB_CALL ControlChannel::_completed(libusb_transfer* transfer)
{
    auto& channel = *static_cast<ControlChannel*>(transfer->user_data);
    Locker lock(channel.m_mutex);
    const bool isOut = transfer == channel.m_out.transfer.get();
    channel._inFlight(isOut ? channel.m_out : channel.m_in) = false;
    // The command's own way out is of no interest while the answer is still to come.
    if (!isOut || transfer->status != LIBUSB_TRANSFER_COMPLETED || !channel.m_inInFlight) {
        channel.m_wakeup->NotifyAll();
    }
}

Error ControlChannel::_error(const Request& request, const Outcome& outcome) const
{
    const std::string what = (request.command == wire::kReadCommand ? "reading " : "writing ") +
                             std::to_string(request.Size()) + " bytes at " +
                             HexText(request.address) + " failed: ";
    switch (outcome.failure) {
    case Failure::Refused:
        return {KindOfStatus(outcome.status),
                what + "the camera answers " + StatusText(outcome.status)};
    case Failure::Silent:
        return {ErrorKind::Timeout, what + "the camera does not answer within " +
                                        std::to_string(m_responseTime.count()) + " ms"};
    case Failure::Pending:
        return {ErrorKind::Timeout, what + "the camera asks for more time without end"};
    case Failure::Damaged:
        return {ErrorKind::Io, what + "the exchange was damaged (" + outcome.fault + ')'};
    case Failure::Refusing:
        return {KindOfUsbError(outcome.usbError), what + libusb_error_name(outcome.usbError)};
    case Failure::Gone:
        return {ErrorKind::Io, what + "the camera is gone (LIBUSB_ERROR_NO_DEVICE)"};
    default: return {ErrorKind::Io, what + outcome.fault};
    }
}

} // namespace u3v_host
