#include "stream_bus.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace stream_bus {

namespace {
Endpoint* g_endpoint = nullptr;
} // namespace

Endpoint::Endpoint()
{
    g_endpoint = this;
}
Endpoint::~Endpoint()
{
    g_endpoint = nullptr;
}

void Endpoint::Send(const std::vector<uint8_t>& bytes, size_t programmed)
{
    const std::lock_guard lock(m_mutex);
    size_t sent = 0;
    while (bytes.size() - sent >= kPacketSize) {
        const auto from = bytes.begin() + static_cast<ptrdiff_t>(sent);
        m_packets.push_back({{from, from + kPacketSize}});
        sent += kPacketSize;
    }
    if (sent < bytes.size() || bytes.size() < programmed) {
        m_packets.push_back({{bytes.begin() + static_cast<ptrdiff_t>(sent), bytes.end()}});
    }
}

void Endpoint::SendFailure(libusb_transfer_status failure)
{
    m_packets.push_back({{}, failure});
}

int Endpoint::Submit(libusb_transfer* transfer)
{
    const std::lock_guard lock(m_mutex);
    if (gone) {
        return LIBUSB_ERROR_NO_DEVICE;
    }
    if (refuse != 0) {
        return refuse;
    }
    if (m_pending.size() >= refuseAbove) {
        return LIBUSB_ERROR_NO_MEM;
    }
    transfer->actual_length = 0;
    m_pending.push_back({transfer, false});
    mostPending = std::max(mostPending, m_pending.size());
    ++submitted;
    return 0;
}

int Endpoint::Cancel(libusb_transfer* transfer)
{
    const std::lock_guard lock(m_mutex);
    for (HostTransfer& pending : m_pending) {
        if (pending.transfer == transfer) {
            pending.cancelled = true;
            return 0;
        }
    }
    return LIBUSB_ERROR_NOT_FOUND;
}

void Endpoint::ClearHalt()
{
    const std::lock_guard lock(m_mutex);
    ++haltsCleared;
    m_halted = false;
}

void Endpoint::_complete(size_t index, libusb_transfer_status status)
{
    m_completed = m_pending[index].transfer;
    m_pending.erase(m_pending.begin() + static_cast<ptrdiff_t>(index));
    m_completed->status = status;
}

bool Endpoint::_endCancelled()
{
    const auto cancelled = std::find_if(m_pending.begin(), m_pending.end(),
                                        [](const HostTransfer& one) { return one.cancelled; });
    if (cancelled == m_pending.end() || keepsTransfers) {
        return false;
    }
    if (packetsBeforeCancel != 0 && _movePacket()) {
        --packetsBeforeCancel;
        return true;
    }
    packetsBeforeCancel = 0;
    _complete(static_cast<size_t>(cancelled - m_pending.begin()), LIBUSB_TRANSFER_CANCELLED);
    return true;
}

bool Endpoint::_movePacket()
{
    if (m_packets.empty() || m_pending.empty() || m_halted) {
        return false;
    }
    libusb_transfer* const transfer = m_pending.front().transfer;
    const Packet packet = m_packets.front();
    m_packets.pop_front();
    const auto filled = static_cast<size_t>(transfer->actual_length);
    const size_t room = static_cast<size_t>(transfer->length) - filled;
    if (packet.failure != LIBUSB_TRANSFER_COMPLETED) {
        m_halted = packet.failure == LIBUSB_TRANSFER_STALL;
        _complete(0, packet.failure);
    } else if (packet.bytes.size() > room) {
        _complete(0, LIBUSB_TRANSFER_OVERFLOW);
    } else {
        std::copy(packet.bytes.begin(), packet.bytes.end(), transfer->buffer + filled);
        transfer->actual_length += static_cast<int>(packet.bytes.size());
        if (packet.bytes.size() < kPacketSize || packet.bytes.size() == room) {
            _complete(0, LIBUSB_TRANSFER_COMPLETED);
        }
    }
    return true;
}

bool Endpoint::_move()
{
    if (gone && !m_pending.empty()) {
        _complete(0, LIBUSB_TRANSFER_NO_DEVICE);
        return true;
    }
    return _endCancelled() || _movePacket();
}

// The completion is told without the lock: whoever is told submits again.
bool Endpoint::Step()
{
    libusb_transfer* completed = nullptr;
    bool moved = false;
    {
        const std::lock_guard lock(m_mutex);
        moved = _move();
        completed = std::exchange(m_completed, nullptr);
    }
    if (completed != nullptr) {
        completed->callback(completed);
    }
    return moved;
}

std::vector<const uint8_t*> Endpoint::BuffersOfLength(int length) const
{
    std::vector<const uint8_t*> buffers;
    for (const HostTransfer& one : m_pending) {
        if (one.transfer->length == length) {
            buffers.push_back(one.transfer->buffer);
        }
    }
    return buffers;
}

void Endpoint::Run()
{
    while (Step()) {
    }
}

} // namespace stream_bus

// ---- libusb, as far as a stream needs it

using stream_bus::g_endpoint;

libusb_transfer* LIBUSB_CALL libusb_alloc_transfer(int /*packets*/)
{
    return static_cast<libusb_transfer*>(calloc(1, sizeof(libusb_transfer)));
}
void LIBUSB_CALL libusb_free_transfer(libusb_transfer* transfer)
{
    free(transfer);
}
int LIBUSB_CALL libusb_submit_transfer(libusb_transfer* transfer)
{
    return g_endpoint->Submit(transfer);
}
int LIBUSB_CALL libusb_cancel_transfer(libusb_transfer* transfer)
{
    return g_endpoint->Cancel(transfer);
}
int LIBUSB_CALL libusb_clear_halt(libusb_device_handle* /*handle*/, unsigned char /*endpoint*/)
{
    g_endpoint->ClearHalt();
    return 0;
}
const char* LIBUSB_CALL libusb_error_name(int code)
{
    return code == LIBUSB_ERROR_NO_MEM ? "LIBUSB_ERROR_NO_MEM" : "LIBUSB_ERROR";
}
