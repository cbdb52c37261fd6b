#include "allocation_count.h"

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

std::atomic<uint64_t> g_total{0};
// Initial-exec: reading it must not allocate, as it would on a thread's first access otherwise.
__attribute__((tls_model("initial-exec"))) thread_local int t_uncounted = 0;

void Note()
{
    if (t_uncounted == 0) {
        g_total.fetch_add(1, std::memory_order_relaxed);
    }
}

} // namespace

// What the GNU C library's own allocation functions are called besides.
extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
void* __libc_memalign(size_t alignment, size_t size);

__attribute__((visibility("default"))) void* malloc(size_t size) noexcept
{
    Note();
    return __libc_malloc(size);
}

__attribute__((visibility("default"))) void* calloc(size_t count, size_t size) noexcept
{
    Note();
    return __libc_calloc(count, size);
}

__attribute__((visibility("default"))) void* realloc(void* block, size_t size) noexcept
{
    Note();
    return __libc_realloc(block, size);
}

__attribute__((visibility("default"))) void* aligned_alloc(size_t alignment, size_t size) noexcept
{
    Note();
    return __libc_memalign(alignment, size);
}

__attribute__((visibility("default"))) int posix_memalign(void** block, size_t alignment,
                                                          size_t size) noexcept
{
    Note();
    *block = __libc_memalign(alignment, size);
    return *block != nullptr ? 0 : ENOMEM;
}
}

namespace allocation_count {

uint64_t Total()
{
    return g_total.load(std::memory_order_relaxed);
}

bool Works()
{
    const uint64_t before = Total();
    ::operator delete(::operator new(1));
    return Total() != before;
}

Uncounted::Uncounted()
{
    ++t_uncounted;
}

Uncounted::~Uncounted()
{
    --t_uncounted;
}

Counted::Counted() : m_depth(t_uncounted)
{
    t_uncounted = 0;
}

Counted::~Counted()
{
    t_uncounted = m_depth;
}

} // namespace allocation_count
