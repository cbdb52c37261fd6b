#include "failing_allocation.h"

#include <atomic>
#include <cstdlib>
#include <new>

#include "fake_u3v.h"

namespace {

constexpr int kNever = -1;

thread_local int t_left = kNever;
thread_local bool t_refused = false;
thread_local bool t_spared = false;
std::atomic<bool> s_elsewhere = false;
std::atomic<unsigned> s_refusedElsewhere = 0;

void* Allocate(size_t size)
{
    if (FakeU3V::IsInside()) {
        return malloc(size != 0 ? size : 1);
    }
    if (s_elsewhere && !t_spared) {
        ++s_refusedElsewhere;
        return nullptr;
    }
    if (t_left == 0) {
        t_refused = true;
        return nullptr;
    }
    if (t_left > 0) {
        --t_left;
    }
    return malloc(size != 0 ? size : 1);
}

} // namespace

FailingAllocations::FailingAllocations(int nth)
{
    t_refused = false;
    t_left = nth;
}

FailingAllocations::~FailingAllocations()
{
    t_left = kNever;
}

bool FailingAllocations::Possible()
{
    const FailingAllocations failing(0);
    try {
        ::operator delete(::operator new(1));
        return false;
    } catch (const std::bad_alloc&) {
        return true;
    }
}

bool FailingAllocations::Refused()
{
    return t_refused;
}

FailingAllocationsElsewhere::FailingAllocationsElsewhere()
{
    t_spared = true;
    s_refusedElsewhere = 0;
    s_elsewhere = true;
}

FailingAllocationsElsewhere::~FailingAllocationsElsewhere()
{
    s_elsewhere = false;
    t_spared = false;
}

unsigned FailingAllocationsElsewhere::Refused()
{
    return s_refusedElsewhere;
}

// Weak: a sanitizer whose runtime is linked in brings its own, and then nothing can be made to
// fail.
#define ZR_REPLACEABLE __attribute__((weak))

ZR_REPLACEABLE void* operator new(size_t size)
{
    void* const block = Allocate(size);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

ZR_REPLACEABLE void* operator new[](size_t size)
{
    return operator new(size);
}

ZR_REPLACEABLE void* operator new(size_t size, const std::nothrow_t&) noexcept
{
    return Allocate(size);
}

ZR_REPLACEABLE void* operator new[](size_t size, const std::nothrow_t&) noexcept
{
    return Allocate(size);
}

ZR_REPLACEABLE void operator delete(void* block) noexcept
{
    free(block);
}

ZR_REPLACEABLE void operator delete[](void* block) noexcept
{
    free(block);
}

ZR_REPLACEABLE void operator delete(void* block, size_t) noexcept
{
    free(block);
}

ZR_REPLACEABLE void operator delete[](void* block, size_t) noexcept
{
    free(block);
}

ZR_REPLACEABLE void operator delete(void* block, const std::nothrow_t&) noexcept
{
    free(block);
}

ZR_REPLACEABLE void operator delete[](void* block, const std::nothrow_t&) noexcept
{
    free(block);
}
