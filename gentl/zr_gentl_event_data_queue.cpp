#include "zr_gentl_event_data_queue.h"

void ZrGenTLEventDataQueue::Reserve()
{
    Locker lock(m_mutex);
    m_entries.Reserve();
}

void ZrGenTLEventDataQueue::Add(void* entry)
{
    Locker lock(m_mutex);
    m_entries.push_back(entry);
}

void* ZrGenTLEventDataQueue::GetFront(bool pop)
{
    Locker lock(m_mutex);
    if (m_entries.empty()) {
        // An entry may be NULL as well; GetSize tells the two apart.
        return nullptr;
    }
    void* const entry = m_entries[0];
    if (pop) {
        m_entries.pop_front();
    }
    return entry;
}

size_t ZrGenTLEventDataQueue::GetSize()
{
    Locker lock(m_mutex);
    return m_entries.size();
}

void ZrGenTLEventDataQueue::Clear()
{
    Locker lock(m_mutex);
    m_entries.clear();
}

// The entries may be gone by the time the caller looks: good for comparing and counting only.
std::vector<void*> ZrGenTLEventDataQueue::Copy()
{
    Locker lock(m_mutex);
    return m_entries.Copy<std::vector<void*>>();
}

void ZrGenTLEventDataQueue::Remove(void* entry)
{
    Locker lock(m_mutex);
    m_entries.erase_if([entry](const void* other) { return other == entry; });
}
