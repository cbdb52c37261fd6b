#pragma once

#include <algorithm>
#include <chrono>
#include <pthread.h>
#include <time.h>

#include "zr_sync.h"

// The steady clock as exactly as it takes to tell whether `deadline` has come: far from it the time
// of the last tick is enough, which costs no system call, whatever the machine takes its time from.
inline std::chrono::steady_clock::time_point
NowBefore(std::chrono::steady_clock::time_point deadline)
{
    using namespace std::chrono;
    timespec tick{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &tick);
    const steady_clock::time_point ticked(seconds(tick.tv_sec) + nanoseconds(tick.tv_nsec));
    return ticked + milliseconds(50) < deadline ? ticked : steady_clock::now();
}

// A condition variable on the steady clock, which nobody sets: a wait neither ends early nor lasts
// longer because the machine's time was corrected.
class SteadyCondition
{
public:
    using Deadline = std::chrono::steady_clock::time_point; // Deadline::max(): for ever

    SteadyCondition()
    {
        pthread_condattr_t attributes;
        pthread_condattr_init(&attributes);
        pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
        pthread_cond_init(&m_native, &attributes);
        pthread_condattr_destroy(&attributes);
    }
    ~SteadyCondition() { pthread_cond_destroy(&m_native); }
    SteadyCondition(const SteadyCondition&) = delete;
    SteadyCondition& operator=(const SteadyCondition&) = delete;

    void Signal() { pthread_cond_signal(&m_native); }
    void Broadcast() { pthread_cond_broadcast(&m_native); }

    // Returns when signalled or at the deadline, sometimes for nothing.
    void Wait(Mutex& mutex, Deadline deadline) ZR_REQUIRES(mutex)
    {
        if (deadline == Deadline::max()) {
            pthread_cond_wait(&m_native, mutex.Native());
            return;
        }
        using namespace std::chrono;
        const auto since =
            std::max(deadline, Deadline()).time_since_epoch(); // the past is the past
        const auto whole = floor<seconds>(since);
        timespec until{};
        until.tv_sec = whole.count();
        until.tv_nsec = duration_cast<nanoseconds>(since - whole).count();
        pthread_cond_timedwait(&m_native, mutex.Native(), &until);
    }

private:
    pthread_cond_t m_native;
};
