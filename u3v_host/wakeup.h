#pragma once

#include "steady_condition.h"
#include "zr_sync.h"

namespace u3v_host {

using Deadline = SteadyCondition::Deadline;

// A condition that USB completions make true, and whose waiter may serve libusb's events itself
// while it waits, so that no thread stands between the kernel and the consumer.
//
// Used like a condition variable: the waiter holds `mutex`, which is free while it waits, and looks
// at its condition again afterwards. Any thread may notify, with or without the mutex. Waits on the
// steady clock.
class Wakeup
{
public:
    virtual ~Wakeup() = default;

    // Returns when notified or at the deadline, sometimes for nothing.
    virtual void Wait(Mutex& mutex, Deadline deadline) ZR_REQUIRES(mutex) = 0;
    virtual void NotifyAll() = 0;
};

// A wake-up for what no transfer of a camera stands behind.
class PlainWakeup final : public Wakeup
{
public:
    void Wait(Mutex& mutex, Deadline deadline) override ZR_REQUIRES(mutex)
    {
        m_condition.Wait(mutex, deadline);
    }
    void NotifyAll() override { m_condition.Broadcast(); }

private:
    SteadyCondition m_condition;
};

} // namespace u3v_host
