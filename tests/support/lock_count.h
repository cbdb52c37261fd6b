#pragma once

#include <cstdint>

// Counts the lock operations that a library's own threads make, by taking the place of the C
// library's functions in the program that links this. Not for builds with a sanitizer, which do the
// same.
namespace lock_count {

// From now on calls from inside the library are counted that this address is of. The calling thread
// and threads that never wait (one that polls) do not count.
void Begin(const void* address);

// Lock operations since then of the threads that wait on a condition.
uint64_t OfWaitingThreads();

} // namespace lock_count
