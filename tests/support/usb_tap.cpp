#include "usb_tap.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <dlfcn.h>
#include <time.h>

// Defined here for the library as well, so these have to be seen from outside.
#pragma GCC visibility push(default)
#include <libusb.h>
#pragma GCC visibility pop

#include "allocation_count.h"

namespace {

std::atomic<int> g_length{-1};
std::atomic<int64_t> g_lastCompletion{0};
std::atomic<uint64_t> g_completions{0};

// The library's own completion routine of each transfer, by the transfer's address. Addresses are
// used again, and entries with them; none is removed.
struct Routine
{
    std::atomic<libusb_transfer*> transfer{nullptr};
    std::atomic<libusb_transfer_cb_fn> callback{nullptr};
};
std::array<Routine, 16384> g_routines;

Routine& RoutineOf(libusb_transfer* transfer)
{
    const size_t first = reinterpret_cast<uintptr_t>(transfer) / alignof(std::max_align_t);
    for (size_t i = 0; i < g_routines.size(); ++i) {
        Routine& routine = g_routines[(first + i) % g_routines.size()];
        libusb_transfer* known = nullptr;
        if (routine.transfer.compare_exchange_strong(known, transfer) || known == transfer) {
            return routine;
        }
    }
    std::abort(); // more transfers than a test has
}

int64_t Now()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

template <class Function>
Function* Next(const char* name)
{
    void* const address = dlsym(RTLD_NEXT, name);
    if (address == nullptr) {
        std::abort(); // linked without libusb
    }
    return reinterpret_cast<Function*>(address);
}

void LIBUSB_CALL Complete(libusb_transfer* transfer)
{
    if (transfer->actual_length == g_length) {
        g_lastCompletion = Now();
    }
    ++g_completions;
    const allocation_count::Counted library;
    RoutineOf(transfer).callback.load()(transfer);
}

} // namespace

namespace usb_tap {

void Watch(int length)
{
    g_length = length;
}

int64_t LastCompletion()
{
    return g_lastCompletion;
}

uint64_t Completions()
{
    return g_completions;
}

} // namespace usb_tap

int LIBUSB_CALL libusb_submit_transfer(libusb_transfer* transfer)
{
    static auto* const next = Next<decltype(libusb_submit_transfer)>(__func__);
    if (transfer->callback != Complete) {
        RoutineOf(transfer).callback = transfer->callback;
        transfer->callback = Complete;
    }
    const allocation_count::Uncounted bus;
    return next(transfer);
}

// Only discovery asks for the devices, on a thread of its own that may still be at it, on a busy
// machine, when the update has long been answered. It is not counted from here on.
ssize_t LIBUSB_CALL libusb_get_device_list(libusb_context* context, libusb_device*** list)
{
    static auto* const next = Next<decltype(libusb_get_device_list)>(__func__);
    static thread_local const allocation_count::Uncounted discovery;
    static_cast<void>(discovery);
    return next(context, list);
}

int LIBUSB_CALL libusb_bulk_transfer(libusb_device_handle* handle, unsigned char endpoint,
                                     unsigned char* data, int length, int* transferred,
                                     unsigned timeout)
{
    static auto* const next = Next<decltype(libusb_bulk_transfer)>(__func__);
    const allocation_count::Uncounted bus;
    return next(handle, endpoint, data, length, transferred, timeout);
}

int LIBUSB_CALL libusb_handle_events_timeout(libusb_context* context, timeval* time)
{
    static auto* const next = Next<decltype(libusb_handle_events_timeout)>(__func__);
    const allocation_count::Uncounted bus;
    return next(context, time);
}

int LIBUSB_CALL libusb_handle_events_timeout_completed(libusb_context* context, timeval* time,
                                                       int* completed)
{
    static auto* const next = Next<decltype(libusb_handle_events_timeout_completed)>(__func__);
    const allocation_count::Uncounted bus;
    return next(context, time, completed);
}

int LIBUSB_CALL libusb_cancel_transfer(libusb_transfer* transfer)
{
    static auto* const next = Next<decltype(libusb_cancel_transfer)>(__func__);
    const allocation_count::Uncounted bus;
    return next(transfer);
}

int LIBUSB_CALL libusb_clear_halt(libusb_device_handle* handle, unsigned char endpoint)
{
    static auto* const next = Next<decltype(libusb_clear_halt)>(__func__);
    const allocation_count::Uncounted bus;
    return next(handle, endpoint);
}
