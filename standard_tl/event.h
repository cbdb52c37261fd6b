#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "handle_table.h"
#include "info.h"
#include "wakeup.h"
#include "zr_sync.h"
#include <zr_u3v_tl/gentl.h>

namespace standard_tl {

// The moment `timeout` milliseconds from now; GENTL_INFINITE and what no clock reaches: never.
u3v_host::Deadline DeadlineAfter(uint64_t timeout);

// A registered event: what every event does about waiting. Entries are up to the derived classes,
// and so are the lock over them and the way to wake a waiter, which the owner may have to share.
class Event : public Object
{
public:
    // `largest` bounds the bytes of a record.
    Event(EVENT_TYPE type, size_t largest, Mutex& mutex, u3v_host::Wakeup& wakeup);

    EVENT_TYPE Type() const { return m_type; }

    // Takes the next entry: GC_ERR_TIMEOUT, GC_ERR_ABORT, GC_ERR_BUFFER_TOO_SMALL (the entry
    // stays). A NULL buffer drops it. `size` [in, out] in bytes.
    GC_ERROR GetData(void* buffer, size_t& size, u3v_host::Deadline deadline);
    GC_ERROR GetInfo(int32_t command, const InfoOut& out);
    // What a record that GetData gave means.
    GC_ERROR GetDataInfo(Bytes record, int32_t command, const InfoOut& out) const;

    // Drops all entries.
    void Flush();
    // Ends one wait: of those who wait now, else the next one.
    void Kill();
    // Ends all waits, for good.
    void End();

    // What EventGetInfo tells.
    struct Facts
    {
        EVENT_TYPE type;
        size_t inQueue;
        uint64_t fired;
        size_t largest;
    };

protected:
    virtual size_t _count() const ZR_REQUIRES(m_mutex) = 0;
    // The record of the first entry, which there is; valid until the lock is free.
    virtual Bytes _front() ZR_REQUIRES(m_mutex) = 0;
    virtual void _pop() ZR_REQUIRES(m_mutex) = 0;
    virtual void _clear() ZR_REQUIRES(m_mutex) = 0;

    // Counts a new entry; true when somebody waits for it.
    bool _fired() ZR_REQUIRES(m_mutex);
    size_t _waiting() const ZR_REQUIRES(m_mutex) { return m_waiting; }

    Mutex& m_mutex;
    u3v_host::Wakeup& m_wakeup;
    const size_t m_largest;

private:
    bool _isKilled(size_t others) ZR_REQUIRES(m_mutex);
    GC_ERROR _wait(u3v_host::Deadline deadline) ZR_REQUIRES(m_mutex);
    GC_ERROR _take(void* buffer, size_t& size) ZR_REQUIRES(m_mutex);

    const EVENT_TYPE m_type;
    uint64_t m_fired ZR_GUARDED_BY(m_mutex) = 0;
    size_t m_waiting ZR_GUARDED_BY(m_mutex) = 0;
    size_t m_kills ZR_GUARDED_BY(m_mutex) = 0;
    bool m_ended ZR_GUARDED_BY(m_mutex) = false;
};

// An event with entries of its own. Whoever causes them may be hostile: no more than kMostEntries
// are kept, the oldest make room. The memory of an entry is used again.
class QueuedEvent final : public Event
{
public:
    static constexpr size_t kMostEntries = 64;

    QueuedEvent(EVENT_TYPE type, size_t largest);

    // Adds an entry, cut to the largest record. With `once` an entry that waits already is enough.
    void Add(Bytes record, bool once) ZR_EXCLUDES(m_mutex);

private:
    size_t _count() const override ZR_REQUIRES(m_mutex) { return m_size; }
    Bytes _front() override ZR_REQUIRES(m_mutex) { return m_entries[m_first]; }
    void _pop() override ZR_REQUIRES(m_mutex);
    void _clear() override ZR_REQUIRES(m_mutex) { m_size = 0; }
    bool _add(Bytes record, bool once) ZR_REQUIRES(m_mutex);
    std::vector<uint8_t>& _entry(size_t index) ZR_REQUIRES(m_mutex);

    Mutex m_ownMutex; // which m_mutex refers to
    u3v_host::PlainWakeup m_ownWakeup;
    std::array<std::vector<uint8_t>, kMostEntries> m_entries ZR_GUARDED_BY(m_mutex); // a ring
    size_t m_first ZR_GUARDED_BY(m_mutex) = 0;
    size_t m_size ZR_GUARDED_BY(m_mutex) = 0;
};

} // namespace standard_tl
