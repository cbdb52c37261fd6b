#pragma once

#include <chrono>

#include "wakeup.h"

namespace u3v_host {

// A time that one thread sleeps until and that any other may change, without waking it. Costs a
// file descriptor.
class Alarm
{
public:
    // Throws Error when the system has no descriptor.
    Alarm();
    ~Alarm();
    Alarm(const Alarm&) = delete;
    Alarm& operator=(const Alarm&) = delete;

    void SetIn(std::chrono::nanoseconds delay); // more than 0
    void SetAt(Deadline deadline);              // Deadline::max(): never
    // Returns when the time that was set last has come, sometimes for nothing.
    void Sleep() const;

private:
    const int m_descriptor;
};

} // namespace u3v_host
