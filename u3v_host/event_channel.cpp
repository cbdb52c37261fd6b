#include "event_channel.h"

#include <algorithm>
#include <new>
#include <utility>

#include "control_channel.h"
#include "error.h"
#include "event_loop.h"
#include "failure_kind.h"
#include "gone_notice.h"

namespace u3v_host {

namespace {

using std::chrono::milliseconds;

// Ten thousand transfers a second, each with any number of events.
constexpr unsigned kBurst = 100;
constexpr milliseconds kBurstTime{10};
// After a stall or a bus error; doubled with each one that follows.
constexpr milliseconds kShortestDelay{5};
constexpr milliseconds kLongestDelay{50};
// What a camera names as its longest event transfer is cut to.
constexpr uint32_t kLargestTransfer = 0x10000;

} // namespace

EventChannel::EventChannel(UsbHandle handle, const InEndpoint& endpoint, uint64_t eirm,
                           bool multiEvent, ControlChannel& control, EventLoop& loop,
                           GoneNotice& gone)
    : m_handle(std::move(handle)), m_endpoint(endpoint), m_eirm(eirm), m_multiEvent(multiEvent),
      m_control(control), m_loop(loop), m_gone(gone), m_transfer(libusb_alloc_transfer(0)),
      m_wakeup(loop.MakeWakeup())
{
    if (m_transfer == nullptr) {
        throw std::bad_alloc();
    }
}

EventChannel::~EventChannel()
{
    if (!m_loop.IsForked()) { // or it is the parent who listens
        Listen({});
    }
}

void EventChannel::Listen(Listener listener)
{
    Locker lock(m_listenMutex);
    if (m_listening) {
        _end();
        m_listening = false;
    }
    if (listener) {
        _begin(std::move(listener));
        m_listening = true;
    }
}

void EventChannel::_begin(Listener listener)
{
    const uint32_t named = m_control.Read(eirm::kMaximumEventTransferLength.At(m_eirm));
    const size_t packet = m_endpoint.maxPacketSize;
    const size_t size = std::clamp<size_t>(named, 1, kLargestTransfer);
    m_buffer.resize((size + packet - 1) / packet * packet);
    m_listener = std::move(listener);
    libusb_fill_bulk_transfer(m_transfer.get(), m_handle.get(), m_endpoint.address, m_buffer.data(),
                              static_cast<int>(m_buffer.size()), _completed, this, 0);
    int result = 0;
    {
        Locker lock(m_mutex);
        m_ending = false;
        m_failureDelay = milliseconds::zero();
        result = _submit();
    }
    try {
        if (result != LIBUSB_SUCCESS) {
            throw Error(KindOfUsbError(result),
                        std::string("receiving the camera's events: ") + libusb_error_name(result));
        }
        _switch(true);
    } catch (...) {
        _end();
        throw;
    }
}

void EventChannel::_end()
{
    try {
        _switch(false);
    } catch (const Error&) { // a camera that has gone or is silent sends nothing either
    }
    {
        Locker lock(m_mutex);
        m_ending = true;
        if (m_inFlight) {
            libusb_cancel_transfer(m_transfer.get());
        }
        while (m_inFlight) {
            m_wakeup->Wait(m_mutex, Deadline::max());
        }
    }
    m_loop.Forget(this);
    m_listener = nullptr;
}

void EventChannel::_switch(bool on)
{
    m_control.Write(eirm::kControl.At(m_eirm), on ? eirm::kEventEnable : uint32_t{0});
}

int EventChannel::_submit()
{
    const int result = libusb_submit_transfer(m_transfer.get());
    m_inFlight = result == LIBUSB_SUCCESS;
    return result;
}

void EventChannel::_submitLater(milliseconds delay, bool clearHalt)
{
    m_loop.Post(
        this, [this, clearHalt] { _submitNow(clearHalt); }, delay);
}

// On the library's thread.
void EventChannel::_submitNow(bool clearHalt)
{
    if (clearHalt) {
        libusb_clear_halt(m_handle.get(), m_endpoint.address);
    }
    Locker lock(m_mutex);
    if (!m_ending && _submit() != LIBUSB_SUCCESS) {
        _goOn(LIBUSB_TRANSFER_ERROR);
    }
}

// What comes after a transfer that has ended so.
void EventChannel::_goOn(libusb_transfer_status status)
{
    if (m_ending || status == LIBUSB_TRANSFER_CANCELLED || status == LIBUSB_TRANSFER_NO_DEVICE) {
        return;
    }
    if (status != LIBUSB_TRANSFER_COMPLETED) {
        m_failureDelay = std::clamp(2 * m_failureDelay, kShortestDelay, kLongestDelay);
        _submitLater(m_failureDelay, true);
        return;
    }
    m_failureDelay = milliseconds::zero();
    if (_isFlood()) {
        _submitLater(kBurstTime, false);
    } else if (_submit() != LIBUSB_SUCCESS) {
        _submitLater(kLongestDelay, false);
    }
}

bool EventChannel::_isFlood()
{
    const auto now = std::chrono::steady_clock::now();
    if (now - m_burstBegin > kBurstTime) {
        m_burstBegin = now;
        m_burst = 0;
    }
    return ++m_burst > kBurst;
}

void EventChannel::_deliver(std::span<const uint8_t> packet)
{
    EventPacket events(packet, m_multiEvent);
    while (const auto event = events.Next()) {
        m_listener(*event);
    }
}

void LIBUSB_CALL EventChannel::_completed(libusb_transfer* transfer)
{
    auto& channel = *static_cast<EventChannel*>(transfer->user_data);
    const libusb_transfer_status status = transfer->status;
    if (status == LIBUSB_TRANSFER_COMPLETED) {
        channel._deliver(
            std::span(channel.m_buffer).first(static_cast<size_t>(transfer->actual_length)));
    }
    if (status == LIBUSB_TRANSFER_NO_DEVICE) {
        channel.m_gone.Set();
    }
    // Notified under the lock: once it is free, the channel may be destroyed.
    Locker lock(channel.m_mutex);
    channel.m_inFlight = false;
    channel._goOn(status);
    if (!channel.m_inFlight) {
        channel.m_wakeup->NotifyAll();
    }
}

} // namespace u3v_host
