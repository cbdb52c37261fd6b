#pragma once

#include <cstdint>

// Stands between the library and libusb's calls of the steady state (bulk transfers, submission,
// event handling), by symbol: a program that links this answers them and passes them on. The USB
// stack's own allocations do not count then, nor those of the thread that looks for devices, and
// completions can be timed. For the virtual bus, where all asynchronous transfers are the
// library's.
namespace usb_tap {

// From now on the time of each completion of exactly so many bytes is kept.
void Watch(int length);

// When the latest such completion was reported to the library: ns of the monotonic clock, 0 for
// none.
int64_t LastCompletion();

// Completions of asynchronous transfers so far.
uint64_t Completions();

} // namespace usb_tap
