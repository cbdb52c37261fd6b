#pragma once

#include <cstdint>

#include "zr_sync.h"

// Counts the calls that are inside an object, so that its owner can wait for them before destroying
// it.
//
// Handles are bare addresses: a consumer may close a module on one thread while another thread is
// inside a call on it. The look-up that turns a handle into an object enters the gate under the
// look-up's own lock; the owner takes the object out of the look-up, then shuts the gate and so
// waits until the last call has left. A thread must never shut a gate that it is itself inside of.
class UseGate
{
public:
    // Enters unless the gate is shut. Every true is matched by one Leave.
    bool TryEnter() ZR_EXCLUDES(m_mutex);
    void Leave() ZR_EXCLUDES(m_mutex);

    // Refuses further entries and returns when everybody inside has left.
    void ShutAndWait() ZR_EXCLUDES(m_mutex);

    // Admits calls again (a System may be opened after it was closed).
    void Reopen() ZR_EXCLUDES(m_mutex);

private:
    Mutex m_mutex;
    Condition m_left;
    uint32_t m_inside ZR_GUARDED_BY(m_mutex) = 0;
    bool m_shut ZR_GUARDED_BY(m_mutex) = false;
};

// A reference to an object whose gate has been entered; leaves it when it goes out of scope. T has
// `UseGate& Gate()`.
template <class T>
class Pinned
{
public:
    Pinned() = default;

    // Enters the object's gate; empty when `object` is NULL or its gate is shut. The caller holds
    // whatever keeps `object` alive during this call (the look-up's lock).
    static Pinned TryPin(T* object)
    {
        Pinned pinned;
        if (object != nullptr && object->Gate().TryEnter()) {
            pinned.m_object = object;
        }
        return pinned;
    }

    Pinned(Pinned&& other) noexcept : m_object(other.m_object) { other.m_object = nullptr; }
    Pinned& operator=(Pinned&& other) noexcept
    {
        if (this != &other) {
            Reset();
            m_object = other.m_object;
            other.m_object = nullptr;
        }
        return *this;
    }
    Pinned(const Pinned&) = delete;
    Pinned& operator=(const Pinned&) = delete;
    ~Pinned() { Reset(); }

    void Reset()
    {
        if (m_object != nullptr) {
            m_object->Gate().Leave();
            m_object = nullptr;
        }
    }

    T* Get() const { return m_object; }
    T* operator->() const { return m_object; }
    T& operator*() const { return *m_object; }
    explicit operator bool() const { return m_object != nullptr; }

private:
    T* m_object = nullptr;
};
