#pragma once

#include <cstddef>
#include <vector>

#include "zr_gentl_ring.h"
#include "zr_sync.h"

// The unbounded queue of untyped entries behind an event. Every operation is atomic; GetMutex lets
// the event combine several into one step (the mutex is recursive for that).
class ZrGenTLEventDataQueue
{
public:
    // Room for one entry more: the next Add needs no memory. For a caller that adds alone.
    void Reserve();
    void Add(void* entry);
    // The front entry or NULL; taken out when `pop` is true.
    void* GetFront(bool pop);
    size_t GetSize();
    // Drops all entries without touching them.
    void Clear();
    // A snapshot of the sequence.
    std::vector<void*> Copy();
    // Drops every occurrence of `entry`.
    void Remove(void* entry);

    RecursiveMutex& GetMutex() ZR_RETURN_CAPABILITY(m_mutex) { return m_mutex; }

private:
    RecursiveMutex m_mutex;
    ZrGenTLRing<void*> m_entries ZR_GUARDED_BY(m_mutex);
};
