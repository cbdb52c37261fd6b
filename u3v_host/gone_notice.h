#pragma once

#include <atomic>
#include <functional>

#include "zr_sync.h"

namespace u3v_host {

class EventLoop;

// Remembers that a camera has left the bus, and tells one listener so, once. Whoever sees it first
// (hotplug, a pass over the bus, a transfer that ends with "no device") calls Set.
class GoneNotice
{
public:
    explicit GoneNotice(EventLoop& loop) : m_loop(loop) {}
    ~GoneNotice() { Listen({}); }
    GoneNotice(const GoneNotice&) = delete;
    GoneNotice& operator=(const GoneNotice&) = delete;

    bool IsGone() const { return m_gone; }

    // Any thread, any number of times, also within a callback of libusb.
    void Set() ZR_EXCLUDES(m_mutex);

    // Calls `call` once, on the library's thread, when the camera has left, also if it had left
    // before. An empty function ends it and returns when no call is under way, except on the
    // library's thread.
    void Listen(std::function<void()> call) ZR_EXCLUDES(m_mutex);

private:
    void _postOnce() ZR_REQUIRES(m_mutex);

    EventLoop& m_loop;
    std::atomic<bool> m_gone{false};
    Mutex m_mutex;
    std::function<void()> m_call ZR_GUARDED_BY(m_mutex);
};

} // namespace u3v_host
