#pragma once

#include <cstdint>

// Counts the allocations of the whole process: the C library's allocation functions are replaced in
// the program that links this, and operator new rests on them. Not for builds with a sanitizer,
// which bring an allocator of their own.
namespace allocation_count {

// Allocations of all threads so far, without those of threads that are inside an Uncounted scope.
uint64_t Total();

// Whether the program's allocations are seen at all.
bool Works();

// What happens within the scope on this thread is not the library's: the USB stack's, say.
class Uncounted
{
public:
    Uncounted();
    ~Uncounted();
    Uncounted(const Uncounted&) = delete;
    Uncounted& operator=(const Uncounted&) = delete;
};

// The opposite, within an Uncounted scope: a call back into the library.
class Counted
{
public:
    Counted();
    ~Counted();
    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;

private:
    const int m_depth;
};

} // namespace allocation_count
