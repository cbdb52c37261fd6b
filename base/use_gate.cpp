#include "use_gate.h"

// The caller holds the look-up's lock: the owner, who takes that lock before it shuts the gate,
// cannot have destroyed the object yet.
bool UseGate::TryEnter()
{
    Locker lock(m_mutex);
    if (m_shut) {
        return false;
    }
    ++m_inside;
    return true;
}

void UseGate::Leave()
{
    // Signalled under the lock: once it is released, the owner may destroy the gate.
    Locker lock(m_mutex);
    if (--m_inside == 0) {
        m_left.Broadcast();
    }
}

void UseGate::ShutAndWait()
{
    Locker lock(m_mutex);
    m_shut = true;
    // Nobody new comes in, so the count only falls. No time-out: going on with a call still inside
    // would free memory under it, and every wait inside is bounded or released by the owner first.
    while (m_inside != 0) {
        m_left.Wait(m_mutex);
    }
}

// Only the owner, and only after ShutAndWait has returned: nobody is inside at this moment.
void UseGate::Reopen()
{
    Locker lock(m_mutex);
    m_shut = false;
}
