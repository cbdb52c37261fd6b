#include "zr_gentl_event_data_queue.h"

#include <algorithm>

namespace {

constexpr size_t kFirstRoom = 16; // entries

} // namespace

void ZrGenTLEventDataQueue::Reserve()
{
    Locker lock(m_mutex);
    if (m_entries.size() == m_entries.capacity()) {
        // Doubled: one entry more at a time would copy all of them each time.
        m_entries.reserve(std::max(kFirstRoom, 2 * m_entries.size()));
    }
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
    void* const entry = m_entries.front();
    if (pop) {
        m_entries.erase(m_entries.begin());
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
    return m_entries;
}

void ZrGenTLEventDataQueue::Remove(void* entry)
{
    Locker lock(m_mutex);
    std::erase(m_entries, entry);
}
