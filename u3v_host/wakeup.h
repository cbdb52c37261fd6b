#pragma once

#include "camera_list.h"
#include "zr_sync.h"

namespace u3v_host {

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

} // namespace u3v_host
