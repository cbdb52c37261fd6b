#include "event_service.h"

#include <algorithm>
#include <pthread.h>
#include <utility>

namespace u3v_host {

namespace {

using Clock = std::chrono::steady_clock;

// How long one call into libusb may last when nothing is due; it is interrupted for everything
// else.
constexpr std::chrono::hours kLongest{1};
// A libusb that cannot serve fails at once, each time: no reason to keep the processor busy.
constexpr std::chrono::milliseconds kAfterFailure{10};
// A consumer that takes image after image is back before this is over, and its camera's transfers
// in flight last longer. Until then the library's thread lets him lead.
constexpr std::chrono::milliseconds kBackSoon{4};

timeval UntilThen(Deadline deadline)
{
    using std::chrono::microseconds;
    const auto now = NowBefore(deadline);
    const auto left = std::clamp(deadline, now, now + kLongest) - now;
    const auto us = std::chrono::ceil<microseconds>(left).count();
    timeval time{};
    time.tv_sec = us / 1'000'000;
    time.tv_usec = us % 1'000'000;
    return time;
}

// Within libusb, a thread that is cancelled would take its locks along.
class NotCancelled
{
public:
    NotCancelled() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &m_before); }
    ~NotCancelled() { pthread_setcancelstate(m_before, nullptr); }
    NotCancelled(const NotCancelled&) = delete;
    NotCancelled& operator=(const NotCancelled&) = delete;

private:
    int m_before = 0;
};

} // namespace

// One who follows, in the list for as long as it exists, also when its thread is cancelled.
class EventService::Following
{
public:
    Following(Following*& first, Waiters& waiters)
        : m_first(first), m_next(first), m_waiters(waiters)
    {
        first = this;
    }
    ~Following()
    {
        Following** link = &m_first;
        while (*link != this) {
            link = &(*link)->m_next;
        }
        *link = m_next;
    }
    Following(const Following&) = delete;
    Following& operator=(const Following&) = delete;

    void Wake() { m_waiters.m_changed.Broadcast(); }

private:
    Following*& m_first;
    Following* m_next;
    Waiters& m_waiters;
};

// Leaves nobody behind without a leader, also when its thread is cancelled.
class EventService::TakingPart
{
public:
    explicit TakingPart(EventService& service) : m_service(service) {}
    ~TakingPart()
    {
        m_service.m_mutex.AssertHeld();
        if (!m_service.m_isLed) {
            m_service._leave();
        }
    }
    TakingPart(const TakingPart&) = delete;
    TakingPart& operator=(const TakingPart&) = delete;

private:
    EventService& m_service;
};

void EventService::Wait(Waiters& waiters, uint64_t seen, Deadline deadline)
{
    Locker lock(m_mutex);
    if (!m_isLed) {
        _begin();
    }
    const TakingPart takingPart(*this);
    while (waiters.m_notified == seen && NowBefore(deadline) < deadline) {
        if (m_isLed) {
            _follow(waiters, deadline);
        } else {
            _lead(&waiters, deadline);
        }
    }
}

void EventService::_lead(const Waiters* waiters, Deadline deadline)
{
    m_isLed = true;
    m_leader = waiters;
    m_mutex.Unlock();
    const int result = _serve(deadline);
    m_mutex.Lock();
    m_isLed = false;
    if (result < 0 && result != LIBUSB_ERROR_INTERRUPTED) {
        m_failed.Wait(m_mutex, std::min(deadline, Clock::now() + kAfterFailure));
    }
}

// Calls the library's thread away from the events first: there is somebody who waits for them.
void EventService::_follow(Waiters& waiters, Deadline deadline)
{
    if (m_leader == nullptr && !m_isCalledAway) {
        m_isCalledAway = true;
        m_mutex.Unlock();
        _interrupt();
        m_mutex.Lock();
        return;
    }
    const Following following(m_followers, waiters);
    waiters.m_changed.Wait(m_mutex, deadline);
}

// It is not the library's thread's turn.
void EventService::_begin()
{
    if (std::exchange(m_isTurnSet, false)) {
        _setAlarm();
    }
}

// Somebody else is to lead: one who follows, else, some time later, the library's thread.
void EventService::_leave()
{
    if (m_followers != nullptr) {
        m_followers->Wake();
    } else {
        m_isTurnSet = true;
        _setAlarm();
    }
}

void EventService::_setAlarm()
{
    if (!m_isTurnSet) {
        m_alarm.SetAt(m_due);
    } else if (m_due == Deadline::max()) {
        m_alarm.SetIn(kBackSoon);
    } else {
        m_alarm.SetAt(std::min(m_due, Clock::now() + kBackSoon));
    }
}

void EventService::StandBy(uint64_t seen, Deadline deadline)
{
    Locker lock(m_mutex);
    m_due = deadline;
    _setAlarm();
    while (m_roused == seen && NowBefore(deadline) < deadline) {
        if (m_isLed || m_isTurnSet) {
            _sleep();
        } else {
            _leadInTurn(deadline);
        }
    }
    m_due = Deadline::max();
}

// Whoever has called it away gets the time to begin.
void EventService::_leadInTurn(Deadline deadline)
{
    _lead(nullptr, deadline);
    if (std::exchange(m_isCalledAway, false)) {
        if (m_followers != nullptr) {
            m_followers->Wake();
        }
        m_isTurnSet = true;
        _setAlarm();
    }
}

// When it wakes it is this thread's turn, unless somebody leads or it was roused.
void EventService::_sleep()
{
    m_mutex.Unlock();
    m_alarm.Sleep();
    m_mutex.Lock();
    if (std::exchange(m_isTurnSet, false) && m_isLed) {
        _setAlarm(); // which somebody has left set for a turn when he began
    }
}

void EventService::Notify(Waiters& waiters)
{
    bool isElsewhere;
    {
        Locker lock(m_mutex);
        ++waiters.m_notified;
        waiters.m_changed.Broadcast();
        isElsewhere = m_isLed && m_leader == &waiters && !IsServing();
    }
    if (isElsewhere) {
        _interrupt();
    }
}

// Within libusb, here too.
void EventService::_interrupt()
{
    const NotCancelled here;
    libusb_interrupt_event_handler(m_context->Native());
}

void EventService::Rouse()
{
    bool leads;
    {
        Locker lock(m_mutex);
        ++m_roused;
        leads = m_isLed && m_leader == nullptr;
        m_due = Deadline::min(); // and stays so, whoever sets the alarm before that thread wakes
        _setAlarm();
    }
    if (leads) {
        _interrupt();
    }
}

int EventService::_serve(Deadline until)
{
    const NotCancelled here;
    timeval time = UntilThen(until);
    m_server = std::this_thread::get_id();
    const int result = libusb_handle_events_timeout_completed(m_context->Native(), &time, nullptr);
    m_server = std::thread::id();
    return result;
}

} // namespace u3v_host
