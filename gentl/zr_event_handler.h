#pragma once

#include <cstdint>

#include "zr_sync.h"

// A set of signalled bits under a mutex and a condition variable: the one wait primitive of the
// library. Manual reset: a wait never clears bits. The top four bits are the kill bits; they abort
// every wait.
class ZrEventHandler_U3V
{
public:
    static constexpr uint32_t kKillBits = 0xF0000000u;

    // Accepts `bits` and the kill bits.
    explicit ZrEventHandler_U3V(uint32_t bits);
    ZrEventHandler_U3V(const ZrEventHandler_U3V&) = delete;
    ZrEventHandler_U3V& operator=(const ZrEventHandler_U3V&) = delete;

    // Sets all given bits if at least one of them is accepted, and wakes one waiter (all of them
    // for kill bits).
    void SetEvent(uint32_t bits) ZR_EXCLUDES(m_mutex);
    // The two halves of SetEvent, for a caller with a lock that the waiter takes next: it wakes
    // when it has let go, or the waiter would only wake up to wait again. True if a bit was
    // accepted.
    bool MarkEvent(uint32_t bits) ZR_EXCLUDES(m_mutex);
    void WakeFor(uint32_t bits);
    void ResetEvent(uint32_t bits) ZR_EXCLUDES(m_mutex);
    // Waits until a bit is set and returns the state; 0 after `timeout_ms`. A negative time-out
    // never waits.
    uint32_t WaitForEvent(int32_t timeout_ms) ZR_EXCLUDES(m_mutex);
    void Kill() ZR_EXCLUDES(m_mutex);

private:
    RecursiveMutex m_mutex;
    Condition m_condition;
    const uint32_t m_mask;
    uint32_t m_state ZR_GUARDED_BY(m_mutex) = 0;
    uint64_t m_marks ZR_GUARDED_BY(m_mutex) = 0; // how often bits were set
};
