#include "control_protocol.h"

#include <algorithm>

namespace vcam {

namespace {

constexpr std::uint16_t kAckOf = 1; // an acknowledge's id is its command's plus one

std::vector<std::uint8_t> MakeAck(std::uint16_t status, std::uint16_t id, std::uint16_t requestId,
                                  std::span<const std::uint8_t> data)
{
    std::vector<std::uint8_t> ack(gencp::kHeaderSize + data.size());
    gencp::kPrefixField.Store(ack.data(), gencp::kPrefix);
    gencp::kStatus.Store(ack.data(), status);
    gencp::kCommand.Store(ack.data(), id);
    gencp::kLength.Store(ack.data(), static_cast<std::uint16_t>(data.size()));
    gencp::kRequestId.Store(ack.data(), requestId);
    std::copy(data.begin(), data.end(), ack.data() + gencp::kHeaderSize);
    return ack;
}

template <typename T>
void Disturb(Field<T> field, std::vector<std::uint8_t>& ack)
{
    field.Store(ack.data(), static_cast<T>(field.Load(ack.data()) ^ 0x0101));
}

} // namespace

ControlProtocol::ControlProtocol(const CameraConfig& config, CameraMemory& memory,
                                 FaultPlan& faults, ErrorCounts& errors)
    : m_config(config), m_memory(memory), m_faults(faults), m_errors(errors)
{
}

void ControlProtocol::Drop()
{
    m_queue.clear();
    m_endless.clear();
}

const Fault* ControlProtocol::_Fire(const char* name, const Header& header)
{
    const char direction = header.command == gencp::kWriteMem ? 'w' : 'r';
    return m_faults.FireOnCommand(name, direction, header.address, header.size);
}

CommandOutcome ControlProtocol::Command(std::span<const std::uint8_t> command)
{
    CommandOutcome outcome;
    if (command.size() < gencp::kHeaderSize ||
        gencp::kPrefixField.Load(command.data()) != gencp::kPrefix) {
        _NoteError("bad-prefix"); // not ours to answer
        return outcome;
    }
    Header header{};
    std::uint16_t status = _CheckHeader(command, header);
    outcome.refused = _Fire("command-not-taken", header) != nullptr;
    if (outcome.refused) {
        return outcome;
    }
    ++m_transactions;
    m_endless.clear();
    outcome.haltOut = _Fire("command-stalled", header) != nullptr;
    outcome.unplug = _Fire("unplug-at-command", header) != nullptr;
    if (outcome.haltOut || outcome.unplug) {
        return outcome;
    }
    std::vector<std::uint8_t> data;
    if (const Fault* fault = _Fire("reply-error", header)) {
        status = static_cast<std::uint16_t>(fault->Value(0x8FFF));
    } else if (status == gencp::kSuccess) {
        status = _Execute(command, header, data, outcome.effects);
    }
    if ((gencp::kFlags.Load(command.data()) & gencp::kRequestAck) != 0) {
        _Answer(header, status, data);
    }
    return outcome;
}

std::uint16_t ControlProtocol::_CheckHeader(std::span<const std::uint8_t> command, Header& header)
{
    header.command = gencp::kCommand.Load(command.data());
    header.requestId = gencp::kRequestId.Load(command.data());
    if ((gencp::kFlags.Load(command.data()) & gencp::kResend) != 0) {
        _NoteError("resend");
        return gencp::kResendNotSupported;
    }
    switch (header.command) {
    case gencp::kReadMem: return _CheckRead(command, header);
    case gencp::kWriteMem: return _CheckWrite(command, header);
    default: _NoteError("unknown-command"); return gencp::kNotImplemented;
    }
}

std::uint16_t ControlProtocol::_CheckRead(std::span<const std::uint8_t> command, Header& header)
{
    const bool strictMismatch =
        m_config.strict && gencp::kLength.Load(command.data()) != gencp::kReadLength;
    if (command.size() != gencp::kReadCommandSize || strictMismatch) {
        _NoteError("bad-length");
        return gencp::kInvalidHeader;
    }
    header.address = gencp::kAddress.Load(command.data());
    header.size = gencp::kReadCount.Load(command.data());
    return _CheckAccess(header, header.size + gencp::kHeaderSize, m_config.maxAcknowledge);
}

std::uint16_t ControlProtocol::_CheckAccess(const Header& header, std::size_t size,
                                            std::size_t limit)
{
    if (header.size == 0 || size > limit) {
        _NoteError("bad-count");
        return gencp::kInvalidParameter;
    }
    const bool aligned = header.address % m_config.accessAlignment == 0 &&
                         header.size % m_config.accessAlignment == 0;
    return aligned ? gencp::kSuccess : gencp::kBadAlignment;
}

std::uint16_t ControlProtocol::_CheckWrite(std::span<const std::uint8_t> command, Header& header)
{
    const std::size_t length = gencp::kLength.Load(command.data());
    if (command.size() < gencp::kWriteData || command.size() != gencp::kHeaderSize + length) {
        _NoteError("bad-length");
        return gencp::kInvalidHeader;
    }
    header.address = gencp::kAddress.Load(command.data());
    header.size = command.size() - gencp::kWriteData;
    return _CheckAccess(header, command.size(), m_config.maxCommand);
}

std::uint16_t ControlProtocol::_Execute(std::span<const std::uint8_t> command, const Header& header,
                                        std::vector<std::uint8_t>& data, WriteEffects& effects)
{
    std::uint16_t status = gencp::kSuccess;
    if (header.command == gencp::kReadMem) {
        data.resize(header.size);
        status = m_memory.Read(header.address, data.data(), data.size());
    } else {
        status = m_memory.Write(header.address, command.data() + gencp::kWriteData, header.size,
                                effects);
        if (m_config.writtenLength) {
            data.resize(4);
            StoreLe(data.data() + 2, static_cast<std::uint16_t>(header.size));
        }
    }
    if (status != gencp::kSuccess) {
        data.clear();
        _NoteError(status == gencp::kInvalidAddress ? "invalid-address" : "refused-write");
    }
    return status;
}

void ControlProtocol::_Answer(const Header& header, std::uint16_t status,
                              const std::vector<std::uint8_t>& data)
{
    if (_Fire("pending-endless", header) != nullptr) {
        std::vector<std::uint8_t> pending(4);
        StoreLe(pending.data() + 2, static_cast<std::uint16_t>(m_config.pendingMs));
        m_endless = MakeAck(gencp::kSuccess, gencp::kPendingAck, header.requestId, pending);
        return;
    }
    _QueuePending(header);
    const auto id = static_cast<std::uint16_t>(header.command + kAckOf);
    std::vector<std::uint8_t> ack = MakeAck(status, id, header.requestId, data);
    _PlayContentFaults(header, ack);
    _QueueReply(header, std::move(ack));
}

void ControlProtocol::_QueuePending(const Header& header)
{
    const Fault* fault = _Fire("pending", header);
    const std::int64_t count =
        fault == nullptr ? 0 : std::clamp<std::int64_t>(fault->Value(1), 0, 10000);
    std::vector<std::uint8_t> body(4);
    StoreLe(body.data() + 2, static_cast<std::uint16_t>(m_config.pendingMs));
    for (std::int64_t i = 0; i < count; ++i) {
        _Queue(MakeAck(gencp::kSuccess, gencp::kPendingAck, header.requestId, body),
               std::chrono::milliseconds(i == 0 ? 0 : m_config.pendingDelayMs));
    }
}

void ControlProtocol::_PlayContentFaults(const Header& header, std::vector<std::uint8_t>& ack)
{
    if (m_faults.Empty()) {
        return;
    }
    if (_Fire("reply-wrong-prefix", header) != nullptr) {
        Disturb(gencp::kPrefixField, ack);
    }
    if (_Fire("reply-wrong-id", header) != nullptr) {
        Disturb(gencp::kCommand, ack);
    }
    if (_Fire("reply-wrong-request", header) != nullptr) {
        Disturb(gencp::kRequestId, ack);
    }
    if (_Fire("reply-wrong-length", header) != nullptr) {
        Disturb(gencp::kLength, ack);
    }
    if (const Fault* fault = _Fire("reply-status", header)) {
        gencp::kStatus.Store(ack.data(), static_cast<std::uint16_t>(fault->Value(0x8FFF)));
    }
    if (const Fault* fault = _Fire("reply-short", header)) {
        const auto size = static_cast<std::size_t>(std::max<std::int64_t>(fault->Value(6), 0));
        ack.resize(std::min(ack.size(), size));
    }
    if (_Fire("reply-empty", header) != nullptr) {
        ack.clear();
    }
    if (const Fault* fault = _Fire("reply-long", header)) {
        ack.resize(ack.size() +
                   static_cast<std::size_t>(std::clamp<std::int64_t>(fault->Value(4), 0, 65536)));
    }
}

void ControlProtocol::_QueueReply(const Header& header, std::vector<std::uint8_t> ack)
{
    std::chrono::milliseconds delay(m_queue.empty() ? 0 : m_config.pendingDelayMs);
    if (const Fault* fault = _Fire("reply-late", header)) {
        delay += std::chrono::milliseconds(std::clamp<std::int64_t>(fault->Value(1000), 0, 600000));
    }
    if (_Fire("reply-missing", header) != nullptr) {
        return;
    }
    if (_Fire("reply-doubled", header) != nullptr) {
        _Queue(ack, delay);
    }
    _Queue(std::move(ack), delay);
    m_queue.back().halts = _Fire("reply-stalled", header) != nullptr;
}

// Delays add up: an acknowledge never overtakes the one before it.
void ControlProtocol::_Queue(std::vector<std::uint8_t> bytes, std::chrono::milliseconds delay)
{
    const Clock::time_point before = m_queue.empty() ? Clock::now() : m_queue.back().readyAt;
    Acknowledge ack{std::move(bytes), std::max(before, Clock::now()) + delay, false, {}};
    ack.transfer.size = ack.bytes.size();
    m_queue.push_back(std::move(ack));
}

UsbResult ControlProtocol::BulkIn(HostRequest request, std::size_t packetSize)
{
    if (m_queue.empty() && !m_endless.empty()) {
        _Queue(m_endless, std::chrono::milliseconds(std::max(1U, m_config.pendingDelayMs)));
    }
    for (;;) {
        if (m_queue.empty()) {
            return {UsbStatus::Nak};
        }
        Acknowledge& ack = m_queue.front();
        if (ack.readyAt > Clock::now()) {
            return {UsbStatus::Nak, ack.readyAt};
        }
        if (ack.halts) {
            m_queue.pop_front();
            return {UsbStatus::Stall};
        }
        // Whole packets need an empty one behind them, unless the host must have made room for
        // exactly so much: the largest acknowledge there is.
        if (ack.transfer.sent == 0) {
            ack.transfer.emptyEnd =
                ack.bytes.size() % packetSize == 0 && ack.bytes.size() != m_config.maxAcknowledge;
        }
        const auto copy = [&ack](std::size_t offset, std::uint8_t* target, std::size_t size) {
            std::copy_n(ack.bytes.data() + offset, size, target);
        };
        const Moved moved = MovePackets(ack.transfer, request, packetSize, copy);
        if (ack.transfer.AllSent()) {
            m_queue.pop_front();
        }
        if (moved != Moved::Transfer) {
            return {moved == Moved::Overflow ? UsbStatus::Overflow : UsbStatus::Done};
        }
    }
}

} // namespace vcam
