#include "lock_count.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <dlfcn.h>
#include <link.h>
#include <pthread.h>
#include <span>

namespace {

struct LocksOfAThread
{
    std::atomic<uint64_t> locks{0};
    std::atomic<bool> waits{false};
};

constexpr size_t kThreads = 64;
std::array<LocksOfAThread, kThreads> g_lockCounts;
std::atomic<size_t> g_used{0};
std::atomic<uintptr_t> g_begin{0};
std::atomic<uintptr_t> g_end{0};

__attribute__((tls_model("initial-exec"))) thread_local LocksOfAThread* t_count = nullptr;
__attribute__((tls_model("initial-exec"))) thread_local bool t_excluded = false;

// The calling thread's count, for a call that came from this address; NULL when it does not count.
LocksOfAThread* CountFor(const void* caller)
{
    const auto place = reinterpret_cast<uintptr_t>(caller);
    if (t_excluded || place < g_begin || place >= g_end) {
        return nullptr;
    }
    if (t_count == nullptr) {
        const size_t next = g_used++;
        t_count = &g_lockCounts.at(std::min(next, kThreads - 1));
    }
    return t_count;
}

void NoteLock(const void* caller)
{
    if (LocksOfAThread* const count = CountFor(caller)) {
        ++count->locks;
    }
}

template <class Function>
Function* NextInLine(const char* name, const char* version)
{
    void* const symbol = dlvsym(RTLD_NEXT, name, version);
    return reinterpret_cast<Function*>(symbol != nullptr ? symbol : dlsym(RTLD_NEXT, name));
}

int FindExtent(dl_phdr_info* library, size_t /*size*/, void* base)
{
    if (library->dlpi_addr != reinterpret_cast<uintptr_t>(base)) {
        return 0;
    }
    uintptr_t end = 0;
    for (const auto& segment : std::span(library->dlpi_phdr, library->dlpi_phnum)) {
        if (segment.p_type == PT_LOAD) {
            end = std::max<uintptr_t>(end, library->dlpi_addr + segment.p_vaddr + segment.p_memsz);
        }
    }
    g_end = end;
    g_begin = library->dlpi_addr;
    return 1;
}

} // namespace

extern "C" {
__attribute__((visibility("default"))) int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept
{
    static auto* const original = NextInLine<decltype(pthread_mutex_lock)>(__func__, "GLIBC_2.2.5");
    NoteLock(__builtin_return_address(0));
    return original(mutex);
}

__attribute__((visibility("default"))) int pthread_mutex_trylock(pthread_mutex_t* mutex) noexcept
{
    static auto* const original =
        NextInLine<decltype(pthread_mutex_trylock)>(__func__, "GLIBC_2.2.5");
    NoteLock(__builtin_return_address(0));
    return original(mutex);
}

__attribute__((visibility("default"))) int
pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex, const timespec* deadline)
{
    static auto* const original =
        NextInLine<decltype(pthread_cond_timedwait)>(__func__, "GLIBC_2.3.2");
    if (LocksOfAThread* const count = CountFor(__builtin_return_address(0))) {
        count->waits = true;
    }
    return original(condition, mutex, deadline);
}
}

namespace lock_count {

void Begin(const void* address)
{
    t_excluded = true;
    Dl_info library{};
    if (dladdr(address, &library) != 0) {
        dl_iterate_phdr(&FindExtent, library.dli_fbase);
    }
    for (LocksOfAThread& count : g_lockCounts) {
        count.locks = 0;
    }
}

uint64_t OfWaitingThreads()
{
    uint64_t locks = 0;
    for (const LocksOfAThread& count : g_lockCounts) {
        locks += count.waits ? count.locks.load() : 0;
    }
    return locks;
}

} // namespace lock_count
