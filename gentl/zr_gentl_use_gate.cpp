#include "zr_gentl_use_gate.h"

bool ZrGenTLUseGate::TryEnter()
{
    Locker lock(m_mutex);
    if (m_shut) {
        return false;
    }
    ++m_inside;
    return true;
}

void ZrGenTLUseGate::Leave()
{
    // Signalled under the lock: once it is released, the owner may destroy the gate.
    Locker lock(m_mutex);
    if (--m_inside == 0) {
        m_left.Broadcast();
    }
}

void ZrGenTLUseGate::ShutAndWait()
{
    Locker lock(m_mutex);
    m_shut = true;
    while (m_inside != 0) {
        m_left.Wait(m_mutex);
    }
}

void ZrGenTLUseGate::Reopen()
{
    Locker lock(m_mutex);
    m_shut = false;
}
