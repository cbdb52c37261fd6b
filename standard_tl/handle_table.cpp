#include "handle_table.h"

#include <bit>
#include <new>

namespace standard_tl {
namespace {

// Never goes back, not even in a forked child that starts anew: a handle names one object for ever.
constinit std::atomic<uint64_t> s_generation{0};

} // namespace

// Places live as long as the table: whoever has a handle may still look at its place.
HandleTable::~HandleTable()
{
    for (const auto& chunk : m_chunks) {
        delete[] chunk.load();
    }
}

void HandleTable::Add(Object& object)
{
    Locker lock(m_mutex);
    const size_t index = _freeIndex();
    const uint64_t generation = s_generation.fetch_add(1, std::memory_order_relaxed) + 1;
    Place& place = m_chunks[index / kChunkSize].load()[index % kChunkSize];
    place.object = &object;
    object.m_handle = std::bit_cast<void*>((generation << kIndexBits) | index);
    place.state.store(generation << kIndexBits, std::memory_order_release);
}

// Taking a place back must not fail, so there is always room for its number.
size_t HandleTable::_freeIndex()
{
    if (!m_free.empty()) {
        const size_t index = m_free.back();
        m_free.pop_back();
        return index;
    }
    if (m_used == kMaxChunks * kChunkSize) {
        throw std::bad_alloc();
    }
    if (m_used % kChunkSize == 0) {
        m_free.reserve(m_used + kChunkSize);
        m_chunks[m_used / kChunkSize].store(new Place[kChunkSize]());
    }
    return m_used++;
}

bool HandleTable::Remove(void* handle)
{
    Place* const place = _place(handle);
    if (place == nullptr) {
        return false;
    }
    const uint64_t value = reinterpret_cast<uintptr_t>(handle);
    Locker lock(m_mutex);
    uint64_t state = place->state.load();
    do {
        if (state >> kIndexBits != value >> kIndexBits || (state & kClosing) != 0) {
            return false;
        }
    } while (!place->state.compare_exchange_weak(state, state | kClosing));
    while ((place->state.load(std::memory_order_acquire) & kInside) != 0) {
        m_left.Wait(m_mutex);
    }
    m_free.push_back(value & ((uint64_t{1} << kIndexBits) - 1));
    return true;
}

HandleTable::Place* HandleTable::_place(void* handle)
{
    const uint64_t index = reinterpret_cast<uintptr_t>(handle) & ((uint64_t{1} << kIndexBits) - 1);
    Place* const chunk = m_chunks[index / kChunkSize].load(std::memory_order_acquire);
    return chunk != nullptr ? chunk + index % kChunkSize : nullptr;
}

Object* HandleTable::_enter(void* handle)
{
    Place* const place = _place(handle);
    if (place == nullptr) {
        return nullptr;
    }
    const uint64_t generation = reinterpret_cast<uintptr_t>(handle) >> kIndexBits;
    uint64_t state = place->state.load(std::memory_order_relaxed);
    do {
        if (state >> kIndexBits != generation || generation == 0 || (state & kClosing) != 0) {
            return nullptr;
        }
    } while (!place->state.compare_exchange_weak(state, state + 1, std::memory_order_acquire));
    return place->object;
}

// Whoever waits for this sees the count under the lock, so the lock is enough to wake it.
void HandleTable::_leave(void* handle)
{
    const uint64_t before = _place(handle)->state.fetch_sub(1, std::memory_order_acq_rel);
    if ((before & kClosing) != 0 && (before & kInside) == 1) {
        Locker lock(m_mutex);
        m_left.Broadcast();
    }
}

} // namespace standard_tl
