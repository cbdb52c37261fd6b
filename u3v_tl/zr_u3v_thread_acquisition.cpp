#include "zr_u3v_thread_acquisition.h"

#include <exception>
#include <sched.h>
#include <zr_u3v_tl/gentl.h>

#include "zr_trace.h"

ZrU3VThreadAcquisition::ZrU3VThreadAcquisition(ZrImageSource* pSource)
    : m_pSource(pSource), m_nNumToAcquire(GENTL_INFINITE)
{
}

ZrU3VThreadAcquisition::~ZrU3VThreadAcquisition() = default;

bool ZrU3VThreadAcquisition::Start(uint64_t count)
{
    if (IsRunning()) {
        return false;
    }
    {
        Locker<RecursiveMutex> lock(m_mutex);
        m_nNumToAcquire = count;
        m_bStop = false;
    }
    return Start();
}

void ZrU3VThreadAcquisition::Stop()
{
    Locker<RecursiveMutex> lock(m_mutex);
    m_bStop = true;
}

bool ZrU3VThreadAcquisition::IsStopRequested()
{
    Locker<RecursiveMutex> lock(m_mutex);
    return m_bStop;
}

ZrU3VThreadAcquisition::Turn ZrU3VThreadAcquisition::_nextTurn(uint64_t acquired)
{
    Locker<RecursiveMutex> lock(m_mutex);
    if (m_bStop) {
        return Turn::End;
    }
    const bool complete = m_nNumToAcquire != GENTL_INFINITE && acquired >= m_nNumToAcquire;
    return complete ? Turn::Complete : Turn::Image;
}

bool ZrU3VThreadAcquisition::_acquireImage()
{
    try {
        return m_pSource->AcquireImage() == GC_ERR_SUCCESS;
    } catch (const std::exception& exception) {
        ZR_TRACE(ZR_TRACE_ERROR, "%s Failed! %s", __func__,
                 exception.what()); // out of memory: the next pass tries again
        return false;
    }
}

void ZrU3VThreadAcquisition::Run()
{
    uint64_t acquired = 0;
    for (;;) {
        switch (_nextTurn(acquired)) {
        case Turn::End: return;
        case Turn::Complete:
            // Sets the stop flag, which ends the loop; refused while somebody else starts or stops,
            // then tried again.
            m_pSource->StopAcquisition(ACQ_STOP_FLAGS_KILL);
            sched_yield();
            break;
        case Turn::Image:
            if (_acquireImage()) {
                ++acquired;
            } else {
                m_pSource->WaitForInputBuffer();
            }
        }
    }
}
