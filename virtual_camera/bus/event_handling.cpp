#include "event_handling.h"

#include "transfer_engine.h"

namespace vbus {

namespace {

// The host's flag, which its callback sets without any lock: so the ABI has it.
__attribute__((no_sanitize("thread"))) bool IsSet(const int* flag)
{
    return flag != nullptr && *static_cast<const volatile int*>(flag) != 0;
}

template <typename Changed>
bool WaitOn(std::condition_variable& condition, BusLock& lock, Clock::time_point until,
            Changed changed)
{
    if (until == Clock::time_point::max()) {
        condition.wait(lock, changed);
        return true;
    }
    return condition.wait_until(lock, until, changed);
}

bool WaitForCompletion(BusLock& lock, libusb_context* context, std::uint64_t seen,
                       Clock::time_point until)
{
    return WaitOn(context->waiterWake, lock, until,
                  [context, seen] { return context->completions != seen; });
}

bool IsRegistered(const libusb_context& context, int id)
{
    return std::any_of(context.callbacks.begin(), context.callbacks.end(),
                       [id](const HotplugCallback& callback) { return callback.id == id; });
}

void RunCallbacks(BusLock& lock, libusb_context* context, const HotplugEvent& event)
{
    libusb_device_descriptor descriptor{};
    ParseDevice(event.device->attachment->device->Descriptors().Device(), descriptor);
    const std::vector<HotplugCallback> callbacks = context->callbacks;
    for (const HotplugCallback& callback : callbacks) {
        if (!callback.Wants(event.event, descriptor) || !IsRegistered(*context, callback.id)) {
            continue;
        }
        lock.unlock();
        const int done = callback.function(context, event.device, event.event, callback.userData);
        lock.lock();
        if (done != 0) {
            std::erase_if(context->callbacks,
                          [&callback](const auto& other) { return other.id == callback.id; });
        }
    }
}

bool RunHotplug(BusLock& lock, libusb_context* context)
{
    const bool any = !context->hotplug.empty();
    while (!context->hotplug.empty()) {
        const HotplugEvent event = context->hotplug.front();
        context->hotplug.pop_front();
        RunCallbacks(lock, context, event);
        Bus().Unreference(event.device);
    }
    return any;
}

} // namespace

int HandleEvents(libusb_context* context, Clock::time_point until, const int* completed)
{
    BusLock lock = Bus().Guard();
    context = Bus().Resolve(context);
    if (context == nullptr) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    if (context->IsOwnedHere()) {
        return LIBUSB_ERROR_BUSY; // from within a callback
    }
    if (IsSet(completed)) {
        return LIBUSB_SUCCESS;
    }
    if (!TryOwnEvents(context)) {
        WaitForCompletion(lock, context, context->completions, until);
        return LIBUSB_SUCCESS;
    }
    HandleEventsOwned(lock, context, until);
    DisownEvents(context);
    return LIBUSB_SUCCESS;
}

void HandleEventsUntil(libusb_context* context, const std::atomic<bool>& done)
{
    BusLock lock = Bus().Guard();
    while (!done.load()) {
        if (TryOwnEvents(context)) {
            HandleEventsOwned(lock, context, Clock::time_point::max());
            DisownEvents(context);
        } else {
            WaitForCompletion(lock, context, context->completions, Clock::time_point::max());
        }
    }
}

void HandleEventsOwned(BusLock& lock, libusb_context* context, Clock::time_point until)
{
    context->handling = true;
    for (;;) {
        Bus().Tick();
        const std::uint64_t generation = context->generation;
        Clock::time_point next = until;
        if (const auto replug = Bus().NextReplug()) {
            next = std::min(next, *replug);
        }
        const bool hotplug = RunHotplug(lock, context);
        const bool completed = TransferEngine::Instance().RunPass(lock, context, next);
        const bool interrupted = context->interrupted || context->closing != 0;
        context->interrupted = false;
        if (hotplug || completed || interrupted || Clock::now() >= until) {
            break;
        }
        WaitOn(context->handlerWake, lock, next,
               [context, generation] { return context->generation != generation; });
    }
    context->handling = false;
}

bool TryOwnEvents(libusb_context* context)
{
    const bool isTaken = context->eventDepth != 0 && !context->IsOwnedHere();
    if (isTaken || context->closing != 0) {
        return false;
    }
    context->eventOwner = std::this_thread::get_id();
    ++context->eventDepth;
    return true;
}

void OwnEvents(BusLock& lock, libusb_context* context)
{
    WaitOn(context->waiterWake, lock, Clock::time_point::max(),
           [context] { return context->eventDepth == 0 || context->IsOwnedHere(); });
    context->eventOwner = std::this_thread::get_id();
    ++context->eventDepth;
}

void DisownEvents(libusb_context* context)
{
    if (--context->eventDepth == 0) {
        context->eventOwner = {};
        WakeWaiters(*context);
    }
}

// Nobody is kept from completing transfers by this lock, as the real one does; instead whoever
// holds it misses nothing that has completed since it was taken.
void LockWaiters(BusLock& lock, libusb_context* context)
{
    WaitOn(context->waiterWake, lock, Clock::time_point::max(),
           [context] { return context->waitersOwner == std::thread::id(); });
    context->waitersOwner = std::this_thread::get_id();
    context->waitersSeen = context->completions;
}

void UnlockWaiters(libusb_context* context)
{
    if (context->waitersOwner != std::this_thread::get_id()) {
        Violate("unlock-not-locked");
        return;
    }
    context->waitersOwner = {};
    context->waiterWake.notify_all();
}

bool WaitForEvent(BusLock& lock, libusb_context* context, Clock::time_point until)
{
    const bool locked = context->waitersOwner == std::this_thread::get_id();
    const std::uint64_t seen = locked ? context->waitersSeen : context->completions;
    if (locked) {
        context->waitersOwner = {};
        context->waiterWake.notify_all();
    }
    const bool happened = WaitForCompletion(lock, context, seen, until);
    if (locked) {
        LockWaiters(lock, context);
    }
    return happened;
}

} // namespace vbus
