#pragma once

#include <cstdint>
#include <pthread.h>

#include "zr_sync.h"

// A POSIX thread with a virtual Run. The object outlives its thread: derived classes end the thread
// before their own members go.
class ZrGenTLThreadBase
{
public:
    ZrGenTLThreadBase() = default;
    // Slots in this order: destructor, Start, Run.
    virtual ~ZrGenTLThreadBase();
    // Starts Run on a new thread; an earlier thread that has ended is joined first. False if no
    // thread could be made or the earlier one still runs.
    virtual bool Start();
    virtual void Run() = 0;

    ZrGenTLThreadBase(const ZrGenTLThreadBase&) = delete;
    ZrGenTLThreadBase& operator=(const ZrGenTLThreadBase&) = delete;

    // Joins the thread, however long it takes: the time-out is ignored. Nothing to join (never
    // started, joined already, called on the thread itself) returns at once. Callable from several
    // threads: the first joins, the others wait for it. Always true.
    bool Wait(int32_t timeout_ms);
    // pthread_cancel; the thread ends at its next cancellation point and is still to be joined.
    // Always true.
    bool Terminate(int32_t timeout_ms); // kept
    bool IsRunning();
    // True on the thread itself, while it runs.
    bool IsCurrentThread();

protected:
    // Guards the fields of derived classes as well.
    RecursiveMutex m_mutex;

private:
    static void* _entry(void* argument);
    void _close();
    bool _isCurrentThread() ZR_REQUIRES(m_joinMutex);

    // m_joinMutex guards who joins, and is never held while joining: a joiner needs no m_mutex, so
    // Start may wait for one while it holds that.
    pthread_t m_thread ZR_GUARDED_BY(m_joinMutex) = {};
    bool m_running ZR_GUARDED_BY(m_mutex) = false;
    // The thread exists and nobody has joined it yet.
    bool m_joinable ZR_GUARDED_BY(m_joinMutex) = false;
    // Somebody is joining it.
    bool m_joining ZR_GUARDED_BY(m_joinMutex) = false;
    // Counts the threads that were started, so that a waiter does not take a new one for its own.
    uint64_t m_generation ZR_GUARDED_BY(m_joinMutex) = 0;
    Mutex m_joinMutex;
    Condition m_joined;
};
