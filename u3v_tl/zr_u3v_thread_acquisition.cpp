#include "zr_u3v_thread_acquisition.h"

#include <exception>
#include <sched.h>
#include <zr_u3v_tl/gentl.h>

#include "zr_trace.h"

ZrU3VThreadAcquisition::ZrU3VThreadAcquisition(ZrImageSource* pSource)
    : m_source(pSource), m_numToAcquire(GENTL_INFINITE)
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
        m_numToAcquire = count;
        m_stop = false;
    }
    return Start();
}

void ZrU3VThreadAcquisition::Stop()
{
    Locker<RecursiveMutex> lock(m_mutex);
    m_stop = true;
}

bool ZrU3VThreadAcquisition::IsStopRequested()
{
    Locker<RecursiveMutex> lock(m_mutex);
    return m_stop;
}

ZrU3VThreadAcquisition::Turn ZrU3VThreadAcquisition::_nextTurn(uint64_t acquired)
{
    Locker<RecursiveMutex> lock(m_mutex);
    if (m_stop) {
        return Turn::End;
    }
    const bool complete = m_numToAcquire != GENTL_INFINITE && acquired >= m_numToAcquire;
    return complete ? Turn::Complete : Turn::Image;
}

bool ZrU3VThreadAcquisition::_acquireImage()
{
    try {
        return m_source->AcquireImage() == GC_ERR_SUCCESS;
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
            m_source->StopAcquisition(ACQ_STOP_FLAGS_KILL);
            sched_yield();
            break;
        case Turn::Image:
            if (_acquireImage()) {
                ++acquired;
            } else {
                m_source->WaitForInputBuffer();
            }
        }
    }
}
