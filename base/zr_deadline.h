#pragma once

#include <cstdint>
#include <time.h>

// The absolute time `timeout_ms` from now on CLOCK_REALTIME, as every timed wait of the library
// computes it: truncating signed arithmetic, and one carry only when the nanoseconds exceed (not
// reach) a full second. A negative time-out therefore gives a deadline in the past or an invalid
// one; both end a wait at once.
timespec ZrDeadlineAfter(int32_t timeout_ms);

// The arithmetic behind ZrDeadlineAfter for a given moment.
timespec ZrDeadlineFrom(timespec now, int32_t timeout_ms);
