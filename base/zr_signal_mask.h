#pragma once

#include <initializer_list>
#include <pthread.h>
#include <signal.h>

// Threads that are made while this lives do not take the process's signals: those are for the host,
// whose handler may expect one of its own threads, or which waits for them with sigwait. A thread
// inherits the mask of the one that makes it, so there is no moment at which it takes any. What a
// thread's own mistake raises, and what profilers count with, stays open.
class ZrSignalsBlocked
{
public:
    ZrSignalsBlocked()
    {
        sigset_t blocked;
        sigfillset(&blocked);
        for (const int open :
             {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT, SIGPROF}) {
            sigdelset(&blocked, open);
        }
        pthread_sigmask(SIG_SETMASK, &blocked, &m_before);
    }
    ~ZrSignalsBlocked() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }
    ZrSignalsBlocked(const ZrSignalsBlocked&) = delete;
    ZrSignalsBlocked& operator=(const ZrSignalsBlocked&) = delete;

private:
    sigset_t m_before;
};
