#include "event.h"

#include <algorithm>
#include <cstring>

#include "event_data.h"
#include "last_error.h"

namespace standard_tl {
namespace {

constexpr InfoTable<Event::Facts, 5> kInfo{
    "event",
    {
        {EVENT_EVENT_TYPE, INFO_DATATYPE_INT32, [](Event::Facts& f) -> Value { return f.type; }},
        {EVENT_NUM_IN_QUEUE, INFO_DATATYPE_SIZET,
         [](Event::Facts& f) -> Value { return f.inQueue; }},
        {EVENT_NUM_FIRED, INFO_DATATYPE_UINT64, [](Event::Facts& f) -> Value { return f.fired; }},
        {EVENT_SIZE_MAX, INFO_DATATYPE_SIZET, [](Event::Facts& f) -> Value { return f.largest; }},
        {EVENT_INFO_DATA_SIZE_MAX, INFO_DATATYPE_SIZET,
         [](Event::Facts& f) -> Value { return f.largest; }},
    }};

// Counts one who waits, also when the thread is cancelled meanwhile.
class Counted
{
public:
    explicit Counted(size_t& count) : m_count(++count) {}
    ~Counted() { --m_count; }
    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;

private:
    size_t& m_count;
};

} // namespace

u3v_host::Deadline DeadlineAfter(uint64_t timeout)
{
    using namespace std::chrono;
    const auto now = steady_clock::now();
    const auto most = floor<milliseconds>(u3v_host::Deadline::max() - now);
    return timeout >= static_cast<uint64_t>(most.count())
               ? u3v_host::Deadline::max()
               : now + milliseconds(static_cast<int64_t>(timeout));
}

Event::Event(EVENT_TYPE type, size_t largest, Mutex& mutex, u3v_host::Wakeup& wakeup)
    : m_mutex(mutex), m_wakeup(wakeup), m_largest(largest), m_type(type)
{
}

GC_ERROR Event::GetData(void* buffer, size_t& size, u3v_host::Deadline deadline)
{
    Locker lock(m_mutex);
    const GC_ERROR status = _wait(deadline);
    return status == GC_ERR_SUCCESS ? _take(buffer, size) : status;
}

// A kill that is owed to somebody who waits already is not a newcomer's.
GC_ERROR Event::_wait(u3v_host::Deadline deadline)
{
    if (_isKilled(m_waiting)) {
        return Refuse(GC_ERR_ABORT, "the wait was ended by EventKill, or with its event");
    }
    const Counted waiting(m_waiting);
    while (_count() == 0) {
        if (NowBefore(deadline) >= deadline) {
            return Refuse(GC_ERR_TIMEOUT, "nothing came in time");
        }
        m_wakeup.Wait(m_mutex, deadline);
        if (_isKilled(0)) {
            return Refuse(GC_ERR_ABORT, "the wait was ended by EventKill, or with its event");
        }
    }
    return GC_ERR_SUCCESS;
}

bool Event::_isKilled(size_t others)
{
    if (m_ended) {
        return true;
    }
    if (m_kills <= others) {
        return false;
    }
    --m_kills;
    return true;
}

GC_ERROR Event::_take(void* buffer, size_t& size)
{
    const GC_ERROR status = CopyBytes(_front(), {nullptr, buffer, &size});
    if (status == GC_ERR_SUCCESS) {
        _pop();
    }
    return status;
}

GC_ERROR Event::GetInfo(int32_t command, const InfoOut& out)
{
    Locker lock(m_mutex);
    Facts facts{m_type, _count(), m_fired, m_largest};
    return kInfo.Answer(facts, command, out);
}

GC_ERROR Event::GetDataInfo(Bytes record, int32_t command, const InfoOut& out) const
{
    return AnswerEventData(m_type, record, command, out);
}

void Event::Flush()
{
    Locker lock(m_mutex);
    _clear();
}

void Event::Kill()
{
    Locker lock(m_mutex);
    m_kills = std::min(m_kills + 1, std::max<size_t>(m_waiting, 1));
    m_wakeup.NotifyAll();
}

void Event::End()
{
    Locker lock(m_mutex);
    m_ended = true;
    m_wakeup.NotifyAll();
}

bool Event::_fired()
{
    ++m_fired;
    return m_waiting != 0;
}

QueuedEvent::QueuedEvent(EVENT_TYPE type, size_t largest)
    : Event(type, largest, m_ownMutex, m_ownWakeup)
{
}

void QueuedEvent::Add(Bytes record, bool once)
{
    bool wanted;
    {
        Locker lock(m_mutex);
        wanted = _add(record.first(std::min(record.size(), m_largest)), once);
    }
    if (wanted) {
        m_wakeup.NotifyAll();
    }
}

bool QueuedEvent::_add(Bytes record, bool once)
{
    for (size_t i = 0; once && i < m_size; ++i) {
        if (std::ranges::equal(_entry(i), record)) {
            return false;
        }
    }
    if (m_size == kMostEntries) {
        _pop();
    }
    _entry(m_size).assign(record.begin(), record.end());
    ++m_size;
    return _fired();
}

void QueuedEvent::_pop()
{
    m_first = (m_first + 1) % kMostEntries;
    --m_size;
}

std::vector<uint8_t>& QueuedEvent::_entry(size_t index)
{
    return m_entries[(m_first + index) % kMostEntries];
}

} // namespace standard_tl
