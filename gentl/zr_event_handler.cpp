#include "zr_event_handler.h"

#include "zr_deadline.h"

ZrEventHandler_U3V::ZrEventHandler_U3V(uint32_t bits) : m_mask(bits | kKillBits)
{
}

void ZrEventHandler_U3V::SetEvent(uint32_t bits)
{
    if (MarkEvent(bits)) {
        WakeFor(bits);
    }
}

bool ZrEventHandler_U3V::MarkEvent(uint32_t bits)
{
    Locker lock(m_mutex);
    if ((m_mask & bits) == 0) {
        return false;
    }
    // Quirk Q06: one accepted bit lets all given bits in, the unknown ones too.
    m_state |= bits;
    ++m_marks;
    return true;
}

void ZrEventHandler_U3V::WakeFor(uint32_t bits)
{
    if ((bits & kKillBits) != 0) {
        m_condition.Broadcast(); // a kill aborts every wait
    } else {
        // One waiter is enough: each event is meant for one, and what a waiter misses is still set
        // when it looks next.
        m_condition.Signal();
    }
}

void ZrEventHandler_U3V::ResetEvent(uint32_t bits)
{
    Locker lock(m_mutex);
    if ((m_mask & bits) != 0) {
        m_state &= ~bits;
    }
}

uint32_t ZrEventHandler_U3V::WaitForEvent(int32_t timeout_ms)
{
    // Looking and falling asleep are one lock hold, so that no SetEvent slips in between.
    Locker lock(m_mutex);
    // Every bit ends the wait, the kill bits too: the caller tells them apart.
    if (m_state != 0) {
        return m_state;
    }
    // Quirk Q07: a negative time-out (the truncated GENTL_INFINITE is one) does not wait at all.
    // Its deadline has passed or is invalid; handing it to the kernel would only arm a timer, sleep
    // and wake up each time the discovery worker polls.
    if (timeout_ms < 0) {
        return 0;
    }
    // One timed wait: it ends early for a bit that was set and reset again meanwhile. Only what was
    // not meant for this wait does not end it, the late half of a SetEvent whose bit is long taken.
    const timespec deadline = ZrDeadlineAfter(timeout_ms);
    const uint64_t marks = m_marks;
    do {
        if (m_condition.TimedWait(m_mutex, deadline) != 0) {
            return 0;
        }
    } while (m_marks == marks);
    return m_state;
}

void ZrEventHandler_U3V::Kill()
{
    SetEvent(kKillBits);
}
