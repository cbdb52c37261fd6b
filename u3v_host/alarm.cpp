#include "alarm.h"

#include <algorithm>
#include <cstdint>
#include <sys/timerfd.h>
#include <unistd.h>

#include "error.h"

namespace u3v_host {

namespace {

itimerspec Once(std::chrono::nanoseconds time)
{
    const auto whole = std::chrono::floor<std::chrono::seconds>(time);
    itimerspec value{};
    value.it_value.tv_sec = whole.count();
    value.it_value.tv_nsec = (time - whole).count();
    return value;
}

} // namespace

Alarm::Alarm() : m_descriptor(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC))
{
    if (m_descriptor < 0) {
        throw Error(ErrorKind::ResourceExhausted, "the system has no timer for USB events");
    }
}

Alarm::~Alarm()
{
    close(m_descriptor);
}

void Alarm::SetIn(std::chrono::nanoseconds delay)
{
    const itimerspec value = Once(delay);
    timerfd_settime(m_descriptor, 0, &value, nullptr);
}

// A time of 0 is what the system knows as never.
void Alarm::SetAt(Deadline deadline)
{
    constexpr Deadline first{std::chrono::nanoseconds(1)};
    const itimerspec value = deadline == Deadline::max()
                                 ? itimerspec{}
                                 : Once(std::max(deadline, first).time_since_epoch());
    timerfd_settime(m_descriptor, TFD_TIMER_ABSTIME, &value, nullptr);
}

void Alarm::Sleep() const
{
    uint64_t times = 0;
    static_cast<void>(!read(m_descriptor, &times, sizeof times)); // interrupted: for nothing
}

} // namespace u3v_host
