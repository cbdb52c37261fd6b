#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include "usb_context.h"

namespace u3v_host {

class Wakeup;

// Serves the events of one libusb context: completions of transfers, hotplug. Threads that wait on
// a Wakeup do so, and when there is none one thread of the library, asleep when nothing happens.
//
// Callbacks of libusb come on any of these threads. They must be short and must not wait for a
// completion, which would come from the very thread that waits. What takes longer is posted: tasks
// run on the library's thread outside of every callback, and may wait on a Wakeup.
class EventLoop
{
public:
    using Owner = const void*;

    // Throws Error when libusb cannot be initialised or no thread can be made.
    EventLoop();
    // Drops the tasks that still wait. Every transfer has been reaped before.
    ~EventLoop();
    EventLoop(const EventLoop&) = delete;
    EventLoop& operator=(const EventLoop&) = delete;

    const std::shared_ptr<UsbContext>& Context() const;

    // Runs the task on the library's thread, after the delay, before later ones. Any thread, also
    // within a callback of libusb. The task throws nothing.
    void Post(Owner owner, std::function<void()> task, std::chrono::milliseconds delay = {});
    // Drops the owner's tasks. Returns when none of them is running, except on the library's thread
    // itself.
    void Forget(Owner owner);

    // May outlive the loop.
    std::unique_ptr<Wakeup> MakeWakeup();

    // True within a callback of libusb: there, nobody must wait for a completion.
    bool IsServing() const;

    // True in a process that was forked from the one that made the loop: nobody serves there, and
    // what is waited for never comes.
    bool IsForked() const;

private:
    class Core;
    class LoopWakeup;
    std::shared_ptr<Core> m_core;
};

} // namespace u3v_host
