#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

// A queue of pointers that keeps its memory: entries that come and go at the pace of images
// allocate nothing once the queue has been as long as it gets. Not thread-safe; its owner locks.
template <class Entry>
class ZrGenTLRing
{
public:
    size_t size() const { return m_size; }
    bool empty() const { return m_size == 0; }
    // The entry `index` behind the front; the caller knows that there is one.
    const Entry& operator[](size_t index) const { return m_slots[_slot(index)]; }

    // Room for one entry more. Changes nothing when it throws.
    void Reserve()
    {
        if (m_size == m_slots.size()) {
            _grow();
        }
    }

    void push_back(Entry entry)
    {
        Reserve();
        m_slots[_slot(m_size)] = entry;
        ++m_size;
    }

    void pop_front()
    {
        m_front = _slot(1);
        --m_size;
    }

    // Takes one entry out; those behind it move up.
    void erase(size_t index)
    {
        for (size_t i = index; i + 1 < m_size; ++i) {
            m_slots[_slot(i)] = m_slots[_slot(i + 1)];
        }
        --m_size;
    }

    template <class Predicate>
    void erase_if(Predicate matches)
    {
        size_t kept = 0;
        for (size_t i = 0; i < m_size; ++i) {
            const Entry entry = (*this)[i];
            if (!matches(entry)) {
                m_slots[_slot(kept++)] = entry;
            }
        }
        m_size = kept;
    }

    // Keeps the memory.
    void clear() { m_size = 0; }

    // The entries in order, as any container.
    template <class Container>
    Container Copy() const
    {
        Container entries;
        for (size_t i = 0; i < m_size; ++i) {
            entries.push_back((*this)[i]);
        }
        return entries;
    }

private:
    static constexpr size_t kFirstSize = 16;

    size_t _slot(size_t index) const { return (m_front + index) % m_slots.size(); }

    void _grow()
    {
        std::vector<Entry> slots(std::max(kFirstSize, 2 * m_slots.size()));
        for (size_t i = 0; i < m_size; ++i) {
            slots[i] = (*this)[i];
        }
        m_slots.swap(slots);
        m_front = 0;
    }

    std::vector<Entry> m_slots;
    size_t m_front = 0; // its slot
    size_t m_size = 0;
};
