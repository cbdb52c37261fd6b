#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <thread>

#include "alarm.h"
#include "steady_condition.h"
#include "usb_context.h"
#include "wakeup.h"
#include "zr_sync.h"

namespace u3v_host {

// Who serves the events of a libusb context: one thread at a time, the leader. Whoever waits for a
// completion leads when nobody else does, so that no other thread stands between the kernel and
// him; the others follow, each asleep on a condition of its own. The library's own thread stands
// by: it leads when nobody has for a little while.
//
// m_mutex is held for a moment each time, and with no call into libusb.
class EventService
{
public:
    // What one condition's waiters wait on. Notifications are counted, so that none is missed by
    // somebody who is about to wait.
    class Waiters
    {
    public:
        uint64_t Notified() const { return m_notified; }

    private:
        friend class EventService;
        std::atomic<uint64_t> m_notified{0};
        SteadyCondition m_changed;
    };

    // Throws Error.
    explicit EventService(std::shared_ptr<UsbContext> context) : m_context(std::move(context)) {}

    const std::shared_ptr<UsbContext>& Context() const { return m_context; }

    // Returns when there was a notification more than `seen`, or at the deadline. Events are served
    // meanwhile, here or by somebody else. No lock is held that a callback of libusb may take.
    void Wait(Waiters& waiters, uint64_t seen, Deadline deadline) ZR_EXCLUDES(m_mutex);
    // Ends the waits of all that have begun. Any thread, also within a callback of libusb.
    void Notify(Waiters& waiters) ZR_EXCLUDES(m_mutex);

    // For one thread, the library's: returns when it was roused more than `seen` times, or at the
    // deadline.
    void StandBy(uint64_t seen, Deadline deadline) ZR_EXCLUDES(m_mutex);
    uint64_t Roused() const { return m_roused; }
    // Any thread, also within a callback of libusb.
    void Rouse() ZR_EXCLUDES(m_mutex);

    // True within a callback of libusb.
    bool IsServing() const { return m_server.load() == std::this_thread::get_id(); }

private:
    class Following;
    class TakingPart;

    void _lead(const Waiters* waiters, Deadline deadline) ZR_REQUIRES(m_mutex);
    void _follow(Waiters& waiters, Deadline deadline) ZR_REQUIRES(m_mutex);
    void _begin() ZR_REQUIRES(m_mutex);
    void _leave() ZR_REQUIRES(m_mutex);
    void _setAlarm() ZR_REQUIRES(m_mutex);
    void _leadInTurn(Deadline deadline) ZR_REQUIRES(m_mutex);
    void _sleep() ZR_REQUIRES(m_mutex);
    int _serve(Deadline until);
    void _interrupt();

    const std::shared_ptr<UsbContext> m_context;
    Alarm m_alarm; // what the library's thread sleeps on while it does not lead
    std::atomic<std::thread::id> m_server{}; // who is in libusb
    std::atomic<uint64_t> m_roused{0};

    Mutex m_mutex;
    bool m_isLed ZR_GUARDED_BY(m_mutex) = false;
    const Waiters* m_leader ZR_GUARDED_BY(m_mutex) = nullptr; // NULL: the library's thread
    Following* m_followers ZR_GUARDED_BY(m_mutex) = nullptr;  // who came last is the first
    Deadline m_due ZR_GUARDED_BY(m_mutex) = Deadline::max();  // for the library's thread
    bool m_isTurnSet ZR_GUARDED_BY(m_mutex) = false;    // the alarm is set for its turn to lead
    bool m_isCalledAway ZR_GUARDED_BY(m_mutex) = false; // it leads, and somebody waits
    SteadyCondition m_failed;                           // nobody signals it: a pause
};

} // namespace u3v_host
