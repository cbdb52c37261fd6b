#include "failing_malloc.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <dlfcn.h>
#include <execinfo.h>
#include <link.h>
#include <span>

// What the GNU C library's own allocation functions are called besides.
extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
}

namespace {

constexpr int kNever = -1;

struct State
{
    int left = kNever; // allocations until one fails
    bool once = false;
    bool refused = false;
    bool looking = false;
};

// Initial-exec: reading it must not allocate, as it would on a thread's first access otherwise.
__attribute__((tls_model("initial-exec"))) thread_local State t_state;

uintptr_t g_sparedBegin = 0;
uintptr_t g_sparedEnd = 0;

bool IsSpared(const void* address)
{
    const auto place = reinterpret_cast<uintptr_t>(address);
    return place >= g_sparedBegin && place < g_sparedEnd;
}

bool IsCalledBySpared()
{
    std::array<void*, 64> frames;
    const int count = backtrace(frames.data(), static_cast<int>(frames.size()));
    return std::any_of(frames.begin(), frames.begin() + count, &IsSpared);
}

bool IsRefused()
{
    State& state = t_state;
    if (state.left == kNever || state.looking) {
        return false;
    }
    state.looking = true; // looking may allocate
    const bool spared = IsCalledBySpared();
    state.looking = false;
    if (spared) {
        return false;
    }
    if (state.left > 0) {
        --state.left;
        return false;
    }
    state.refused = true;
    if (state.once) {
        state.left = kNever;
    }
    errno = ENOMEM;
    return true;
}

int FindExtent(dl_phdr_info* library, size_t /*size*/, void* base)
{
    if (library->dlpi_addr != reinterpret_cast<uintptr_t>(base)) {
        return 0;
    }
    g_sparedBegin = library->dlpi_addr;
    for (const auto& segment : std::span(library->dlpi_phdr, library->dlpi_phnum)) {
        if (segment.p_type == PT_LOAD) {
            g_sparedEnd = std::max<uintptr_t>(g_sparedEnd, library->dlpi_addr + segment.p_vaddr +
                                                               segment.p_memsz);
        }
    }
    return 1;
}

} // namespace

extern "C" {
__attribute__((visibility("default"))) void* malloc(size_t size) noexcept
{
    return IsRefused() ? nullptr : __libc_malloc(size);
}

__attribute__((visibility("default"))) void* calloc(size_t count, size_t size) noexcept
{
    return IsRefused() ? nullptr : __libc_calloc(count, size);
}

__attribute__((visibility("default"))) void* realloc(void* block, size_t size) noexcept
{
    return IsRefused() ? nullptr : __libc_realloc(block, size);
}

__attribute__((visibility("default"))) void* aligned_alloc(size_t alignment, size_t size) noexcept
{
    return IsRefused() ? nullptr : __libc_memalign(alignment, size);
}
}

FailingMalloc::FailingMalloc(int nth, How how)
{
    std::array<void*, 1> first;
    backtrace(first.data(), 1); // loads what it needs
    t_state = {nth, how == How::Once, false, false};
}

FailingMalloc::~FailingMalloc()
{
    t_state.left = kNever;
}

bool FailingMalloc::Refused() const
{
    return t_state.refused;
}

void FailingMalloc::Spare(const void* address)
{
    Dl_info library{};
    if (dladdr(address, &library) != 0) {
        dl_iterate_phdr(&FindExtent, library.dli_fbase);
    }
}
