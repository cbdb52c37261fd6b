// Who handles the events of a context, and who waits for whom: the locks and waits of the libusb
// ABI.
#ifndef VBUS_EVENT_HANDLING_H
#define VBUS_EVENT_HANDLING_H

#include <atomic>

#include "virtual_bus_state.h"

namespace vbus {

// Handles events once, or waits until somebody else has: returns when something has completed, the
// time is over or it was interrupted. "completed" (may be null): nothing is done when it is set.
int HandleEvents(libusb_context* context, Clock::time_point until, const int* completed);
// Again and again until the flag is set, which a callback does.
void HandleEventsUntil(libusb_context* context, const std::atomic<bool>& done);

// All that follow: bus lock held.

// The same for the owner of the event lock.
void HandleEventsOwned(BusLock& lock, libusb_context* context, Clock::time_point until);
bool TryOwnEvents(libusb_context* context);
void OwnEvents(BusLock& lock, libusb_context* context);
void DisownEvents(libusb_context* context);
// Makes whoever handles events step back, runs "body" in their place.
template <typename Body>
void WithEventsOwned(BusLock& lock, libusb_context* context, Body body)
{
    if (context->handling && context->IsOwnedHere()) {
        body(); // from within a callback
        return;
    }
    ++context->closing;
    WakeHandler(*context);
    OwnEvents(lock, context);
    body();
    --context->closing;
    DisownEvents(context);
}

void LockWaiters(BusLock& lock, libusb_context* context);
void UnlockWaiters(libusb_context* context);
// False when the time is over.
bool WaitForEvent(BusLock& lock, libusb_context* context, Clock::time_point until);

} // namespace vbus

#endif
