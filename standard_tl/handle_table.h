#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "zr_sync.h"

namespace standard_tl {

// Whatever a consumer knows by a handle.
class Object
{
public:
    Object() = default;
    virtual ~Object() = default;
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;

    // NULL before HandleTable::Add.
    void* Handle() const { return m_handle; }

private:
    friend class HandleTable;
    void* m_handle = nullptr;
};

template <class T>
class Pin;

// Turns handles into objects and counts the calls that are inside each, so that closing one can
// wait for them.
//
// A handle is a number, not an address: the place in this table and how often any place was given
// out. A stale or made-up one is therefore recognised and never followed. Entering an object takes
// one atomic step; only giving out and taking back take the lock.
class HandleTable
{
public:
    HandleTable() = default;
    ~HandleTable();
    HandleTable(const HandleTable&) = delete;
    HandleTable& operator=(const HandleTable&) = delete;

    // Gives the object a handle. Throws std::bad_alloc.
    void Add(Object& object) ZR_EXCLUDES(m_mutex);

    // Lets nobody in any more and returns when nobody is inside. False when somebody else has begun
    // that before, or there is no such handle. A thread never removes what it is itself inside of.
    bool Remove(void* handle) ZR_EXCLUDES(m_mutex);

    // Enters the object: it lives at least as long as the result. Empty for a handle that is
    // unknown or being closed, or that belongs to another kind of object.
    template <class T>
    Pin<T> Find(void* handle);

private:
    template <class T>
    friend class Pin;

    // Generation, closing bit and number of calls inside in one word. `object` changes only while
    // nobody can enter.
    struct Place
    {
        std::atomic<uint64_t> state;
        Object* object;
    };

    static constexpr unsigned kIndexBits = 24;
    static constexpr size_t kChunkSize = 4096;
    static constexpr size_t kMaxChunks = (size_t{1} << kIndexBits) / kChunkSize;
    static constexpr uint64_t kClosing = uint64_t{1} << (kIndexBits - 1);
    static constexpr uint64_t kInside = kClosing - 1;

    Place* _place(void* handle);
    Object* _enter(void* handle);
    void _leave(void* handle);
    size_t _freeIndex() ZR_REQUIRES(m_mutex);

    std::array<std::atomic<Place*>, kMaxChunks> m_chunks = {};
    Mutex m_mutex;
    Condition m_left;
    std::vector<size_t> m_free ZR_GUARDED_BY(m_mutex);
    size_t m_used ZR_GUARDED_BY(m_mutex) = 0;
};

// The table of this process.
HandleTable& Handles();

// Holds an entered object for a scope.
template <class T>
class Pin
{
public:
    Pin() = default;
    Pin(HandleTable& table, T& object) : m_table(&table), m_object(&object) {}
    Pin(Pin&& other) noexcept
        : m_table(other.m_table), m_object(std::exchange(other.m_object, nullptr))
    {
    }
    Pin& operator=(Pin&&) = delete;
    Pin(const Pin&) = delete;
    Pin& operator=(const Pin&) = delete;
    ~Pin()
    {
        if (m_object != nullptr) {
            m_table->_leave(m_object->Handle());
        }
    }

    T* operator->() const { return m_object; }
    T& operator*() const { return *m_object; }
    explicit operator bool() const { return m_object != nullptr; }

private:
    HandleTable* m_table = nullptr;
    T* m_object = nullptr;
};

template <class T>
Pin<T> HandleTable::Find(void* handle)
{
    Object* const object = _enter(handle);
    if (object == nullptr) {
        return {};
    }
    if (T* const wanted = dynamic_cast<T*>(object); wanted != nullptr) {
        return {*this, *wanted};
    }
    _leave(handle);
    return {};
}

} // namespace standard_tl
