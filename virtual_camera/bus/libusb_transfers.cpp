// libusb-1.0 ABI: transfers and the handling of events.

#include <sys/time.h>

#include "event_handling.h"
#include "libusb_abi.h"
#include "transfer_engine.h"

using namespace vbus;

namespace {

constexpr std::chrono::seconds kEndless(60); // what libusb itself takes for "no time-out"

Clock::time_point After(const timeval* time)
{
    if (time == nullptr) {
        return Clock::now() + kEndless;
    }
    return Clock::now() + std::chrono::seconds(time->tv_sec) +
           std::chrono::microseconds(time->tv_usec);
}

std::uint64_t Milliseconds(const timeval* time)
{
    return time == nullptr ? 0
                           : static_cast<std::uint64_t>(time->tv_sec) * 1000 +
                                 static_cast<std::uint64_t>(time->tv_usec) / 1000;
}

bool AllocationFails()
{
    const BusLock lock = Bus().Guard();
    std::int64_t ignored = 0;
    for (int id = 0; const Slot* slot = Bus().FindSlot(id); ++id) {
        if (slot->present && slot->present->camera &&
            slot->present->camera->FireFault("alloc-fails", ignored)) {
            return true;
        }
    }
    return false;
}

// Runs "body(context)" under the bus lock for a context that exists.
template <typename Body>
int WithContext(libusb_context* context, Body body)
{
    BusLock lock = Bus().Guard();
    context = Bus().Resolve(context);
    return context == nullptr ? int{LIBUSB_ERROR_INVALID_PARAM} : int{body(lock, context)};
}

} // namespace

struct libusb_transfer* LIBUSB_CALL libusb_alloc_transfer(int iso_packets)
{
    return Recorded(
        __func__, nullptr, {static_cast<std::uint64_t>(iso_packets)}, [&]() -> libusb_transfer* {
            return AllocationFails() ? nullptr : TransferEngine::Instance().Allocate(iso_packets);
        });
}

void LIBUSB_CALL libusb_free_transfer(struct libusb_transfer* transfer)
{
    Recorded(__func__, transfer, {}, [&] { TransferEngine::Instance().Free(transfer); });
}

int LIBUSB_CALL libusb_submit_transfer(struct libusb_transfer* transfer)
{
    return Recorded(__func__, transfer, {},
                    [&] { return TransferEngine::Instance().Submit(transfer); });
}

int LIBUSB_CALL libusb_cancel_transfer(struct libusb_transfer* transfer)
{
    return Recorded(__func__, transfer, {},
                    [&] { return TransferEngine::Instance().Cancel(transfer); });
}

void LIBUSB_CALL libusb_transfer_set_stream_id(struct libusb_transfer*, uint32_t)
{
}

uint32_t LIBUSB_CALL libusb_transfer_get_stream_id(struct libusb_transfer*)
{
    return 0; // no endpoint here has bulk streams
}

int LIBUSB_CALL libusb_bulk_transfer(libusb_device_handle* handle, unsigned char endpoint,
                                     unsigned char* data, int length, int* actual_length,
                                     unsigned int timeout)
{
    return Recorded(__func__, handle,
                    {endpoint, Argument(data), static_cast<std::uint64_t>(length), timeout}, [&] {
                        return TransferEngine::Instance().Synchronous(
                            handle, endpoint, LIBUSB_TRANSFER_TYPE_BULK, data, length,
                            actual_length, timeout);
                    });
}

int LIBUSB_CALL libusb_interrupt_transfer(libusb_device_handle* handle, unsigned char endpoint,
                                          unsigned char* data, int length, int* actual_length,
                                          unsigned int timeout)
{
    return Recorded(__func__, handle,
                    {endpoint, Argument(data), static_cast<std::uint64_t>(length), timeout}, [&] {
                        return TransferEngine::Instance().Synchronous(
                            handle, endpoint, LIBUSB_TRANSFER_TYPE_INTERRUPT, data, length,
                            actual_length, timeout);
                    });
}

int LIBUSB_CALL libusb_handle_events_timeout_completed(libusb_context* context, struct timeval* tv,
                                                       int* completed)
{
    return Recorded(__func__, context, {Milliseconds(tv)},
                    [&] { return HandleEvents(context, After(tv), completed); });
}

int LIBUSB_CALL libusb_handle_events_timeout(libusb_context* context, struct timeval* tv)
{
    return Recorded(__func__, context, {Milliseconds(tv)},
                    [&] { return HandleEvents(context, After(tv), nullptr); });
}

int LIBUSB_CALL libusb_handle_events_completed(libusb_context* context, int* completed)
{
    return Recorded(__func__, context, {},
                    [&] { return HandleEvents(context, After(nullptr), completed); });
}

int LIBUSB_CALL libusb_handle_events(libusb_context* context)
{
    return Recorded(__func__, context, {},
                    [&] { return HandleEvents(context, After(nullptr), nullptr); });
}

int LIBUSB_CALL libusb_handle_events_locked(libusb_context* context, struct timeval* tv)
{
    return Recorded(__func__, context, {Milliseconds(tv)}, [&] {
        return WithContext(context, [tv](BusLock& lock, libusb_context* resolved) {
            HandleEventsOwned(lock, resolved, After(tv));
            return LIBUSB_SUCCESS;
        });
    });
}

void LIBUSB_CALL libusb_interrupt_event_handler(libusb_context* context)
{
    Recorded(__func__, context, {}, [&] {
        WithContext(context, [](BusLock&, libusb_context* resolved) {
            resolved->interrupted = true;
            WakeHandler(*resolved);
            return LIBUSB_SUCCESS;
        });
    });
}

int LIBUSB_CALL libusb_try_lock_events(libusb_context* context)
{
    return Recorded(__func__, context, {}, [&] {
        return WithContext(context, [](BusLock&, libusb_context* resolved) {
            return TryOwnEvents(resolved) ? 0 : 1;
        });
    });
}

void LIBUSB_CALL libusb_lock_events(libusb_context* context)
{
    Recorded(__func__, context, {}, [&] {
        WithContext(context, [](BusLock& lock, libusb_context* resolved) {
            OwnEvents(lock, resolved);
            return LIBUSB_SUCCESS;
        });
    });
}

void LIBUSB_CALL libusb_unlock_events(libusb_context* context)
{
    Recorded(__func__, context, {}, [&] {
        WithContext(context, [](BusLock&, libusb_context* resolved) {
            if (resolved->IsOwnedHere()) {
                DisownEvents(resolved);
            } else {
                Violate("unlock-not-locked");
            }
            return LIBUSB_SUCCESS;
        });
    });
}

int LIBUSB_CALL libusb_event_handling_ok(libusb_context* context)
{
    return Recorded(__func__, context, {}, [&] {
        return WithContext(context, [](BusLock&, libusb_context* resolved) {
            return resolved->closing == 0 ? 1 : 0;
        });
    });
}

int LIBUSB_CALL libusb_event_handler_active(libusb_context* context)
{
    return Recorded(__func__, context, {}, [&] {
        return WithContext(context, [](BusLock&, libusb_context* resolved) {
            return resolved->eventDepth != 0 || resolved->closing != 0 ? 1 : 0;
        });
    });
}

void LIBUSB_CALL libusb_lock_event_waiters(libusb_context* context)
{
    Recorded(__func__, context, {}, [&] {
        WithContext(context, [](BusLock& lock, libusb_context* resolved) {
            LockWaiters(lock, resolved);
            return LIBUSB_SUCCESS;
        });
    });
}

void LIBUSB_CALL libusb_unlock_event_waiters(libusb_context* context)
{
    Recorded(__func__, context, {}, [&] {
        WithContext(context, [](BusLock&, libusb_context* resolved) {
            UnlockWaiters(resolved);
            return LIBUSB_SUCCESS;
        });
    });
}

int LIBUSB_CALL libusb_wait_for_event(libusb_context* context, struct timeval* tv)
{
    return Recorded(__func__, context, {Milliseconds(tv)}, [&] {
        return WithContext(context, [tv](BusLock& lock, libusb_context* resolved) {
            if (resolved->eventDepth == 0) {
                return 0; // nobody is there to wait for
            }
            const Clock::time_point until = tv == nullptr ? Clock::time_point::max() : After(tv);
            return WaitForEvent(lock, resolved, until) ? 0 : 1;
        });
    });
}

int LIBUSB_CALL libusb_pollfds_handle_timeouts(libusb_context* context)
{
    return Recorded(__func__, context, {},
                    [] { return 1; }); // no file descriptors, no timer to serve
}

int LIBUSB_CALL libusb_get_next_timeout(libusb_context* context, struct timeval* tv)
{
    return Recorded(__func__, context, {}, [&] {
        return WithContext(context, [tv](BusLock&, libusb_context* resolved) {
            const auto next = TransferEngine::Instance().NextTimeout(resolved);
            if (next == Clock::time_point::max() || tv == nullptr) {
                return 0;
            }
            const auto left = std::max(next - Clock::now(), Clock::duration::zero());
            const auto us = std::chrono::duration_cast<std::chrono::microseconds>(left).count();
            tv->tv_sec = us / 1000000;
            tv->tv_usec = us % 1000000;
            return 1;
        });
    });
}

// There are no file descriptors to poll, which the ABI allows.
const struct libusb_pollfd** LIBUSB_CALL libusb_get_pollfds(libusb_context* context)
{
    return Recorded(__func__, context, {}, []() -> const libusb_pollfd** { return nullptr; });
}

void LIBUSB_CALL libusb_free_pollfds(const struct libusb_pollfd** pollfds)
{
    Recorded(__func__, pollfds, {}, [] {});
}

void LIBUSB_CALL libusb_set_pollfd_notifiers(libusb_context* context, libusb_pollfd_added_cb,
                                             libusb_pollfd_removed_cb, void*)
{
    Recorded(__func__, context, {}, [] {});
}
