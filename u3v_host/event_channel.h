#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "camera_descriptors.h"
#include "event_packet.h"
#include "usb_context.h"
#include "usb_owners.h"
#include "wakeup.h"
#include "zr_sync.h"

namespace u3v_host {

class ControlChannel;
class EventLoop;
class GoneNotice;

// Receives a camera's events while somebody listens. The camera's event interface is switched on
// for as long.
//
// A camera that sends without end gets so many transfers in a while and no more: it waits then.
class EventChannel
{
public:
    using Listener = std::function<void(const CameraEvent&)>;

    // `eirm`: address of the registers. The interface is claimed.
    EventChannel(UsbHandle handle, const InEndpoint& endpoint, uint64_t eirm, bool multiEvent,
                 ControlChannel& control, EventLoop& loop, GoneNotice& gone);
    ~EventChannel();
    EventChannel(const EventChannel&) = delete;
    EventChannel& operator=(const EventChannel&) = delete;

    // Calls `listener` within libusb's callbacks for each event, instead of the one before. Throws
    // Error; nobody listens then. Empty: ends it, and returns when no call is under way; throws
    // nothing.
    void Listen(Listener listener) ZR_EXCLUDES(m_mutex, m_listenMutex);

private:
    void _begin(Listener listener) ZR_REQUIRES(m_listenMutex) ZR_EXCLUDES(m_mutex);
    void _end() ZR_REQUIRES(m_listenMutex) ZR_EXCLUDES(m_mutex);
    void _switch(bool on);
    int _submit() ZR_REQUIRES(m_mutex);
    void _submitLater(std::chrono::milliseconds delay, bool clearHalt) ZR_REQUIRES(m_mutex);
    void _submitNow(bool clearHalt) ZR_EXCLUDES(m_mutex);
    void _goOn(libusb_transfer_status status) ZR_REQUIRES(m_mutex);
    bool _isFlood() ZR_REQUIRES(m_mutex);
    void _deliver(std::span<const uint8_t> packet);
    static void LIBUSB_CALL _completed(libusb_transfer* transfer);

    const UsbHandle m_handle;
    const InEndpoint m_endpoint;
    const uint64_t m_eirm;
    const bool m_multiEvent;
    ControlChannel& m_control;
    EventLoop& m_loop;
    GoneNotice& m_gone;
    const UsbTransferPtr m_transfer;
    const std::unique_ptr<Wakeup> m_wakeup; // the transfer has ended

    Mutex m_listenMutex; // before m_mutex
    bool m_listening ZR_GUARDED_BY(m_listenMutex) = false;

    // Fixed while transfers are under way.
    Listener m_listener;
    std::vector<uint8_t> m_buffer;

    Mutex m_mutex;
    bool m_ending ZR_GUARDED_BY(m_mutex) = true;
    bool m_inFlight ZR_GUARDED_BY(m_mutex) = false;
    std::chrono::milliseconds m_failureDelay ZR_GUARDED_BY(m_mutex){};
    std::chrono::steady_clock::time_point m_burstBegin ZR_GUARDED_BY(m_mutex);
    unsigned m_burst ZR_GUARDED_BY(m_mutex) = 0; // transfers since then
};

} // namespace u3v_host
