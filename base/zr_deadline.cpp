#include "zr_deadline.h"

namespace {
constexpr int32_t kMillisecondsPerSecond = 1000;
constexpr int32_t kNanosecondsPerMillisecond = 1'000'000;
constexpr long kNanosecondsPerSecond = 1'000'000'000L;
} // namespace

timespec ZrDeadlineFrom(timespec now, int32_t timeout_ms)
{
    now.tv_sec += timeout_ms / kMillisecondsPerSecond;
    now.tv_nsec +=
        static_cast<long>(timeout_ms % kMillisecondsPerSecond) * kNanosecondsPerMillisecond;
    // Exceeds, not reaches: an exact second stays where it is and makes the deadline invalid, which
    // ends the wait at once.
    if (now.tv_nsec > kNanosecondsPerSecond) {
        now.tv_sec += 1;
        now.tv_nsec -= kNanosecondsPerSecond;
    }
    return now;
}

timespec ZrDeadlineAfter(int32_t timeout_ms)
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return ZrDeadlineFrom(now, timeout_ms);
}
