#include "zr_gentl_thread.h"

#include "zr_signal_mask.h"

ZrGenTLThreadBase::~ZrGenTLThreadBase()
{
    {
        Locker lock(m_mutex);
        m_running = false;
    }
    // A last resort: the derived class, whose Run this is, has ended its thread already.
    Wait(-1);
    Locker lock(m_joinMutex);
    if (m_joinable) {
        pthread_detach(m_thread); // destroyed on its own thread
    }
}

bool ZrGenTLThreadBase::Start()
{
    Locker lock(m_mutex);
    // Run of a second thread would share the first one's members; one object is one thread.
    if (m_running) {
        return false;
    }
    // What is left of an earlier thread needs no lock of this object any more.
    Wait(-1);
    Locker join(m_joinMutex);
    if (m_joinable) {
        return false; // restarted by itself, on its way out
    }
    const ZrSignalsBlocked signals;
    if (pthread_create(&m_thread, nullptr, &ZrGenTLThreadBase::_entry, this) != 0) {
        // As if Start had not been called: it may be tried again.
        m_thread = {};
        return false;
    }
    m_joinable = true;
    ++m_generation;
    m_running = true; // the thread clears it under m_mutex, hence after this
    return true;
}

void* ZrGenTLThreadBase::_entry(void* argument)
{
    // Clears the flag also when the thread is cancelled in Run.
    struct Closer
    {
        explicit Closer(ZrGenTLThreadBase& base) : m_base(base) {}
        ~Closer() { m_base._close(); }
        Closer(const Closer&) = delete;
        Closer& operator=(const Closer&) = delete;
        ZrGenTLThreadBase& m_base;
    };
    auto& self = *static_cast<ZrGenTLThreadBase*>(argument);
    const Closer closer(self);
    self.Run();
    return nullptr;
}

// The last thing the thread does with this object. m_mutex is needed for it, hence nobody may join
// while holding m_mutex and the thread still runs.
void ZrGenTLThreadBase::_close()
{
    Locker lock(m_mutex);
    m_running = false;
}

bool ZrGenTLThreadBase::Wait(int32_t /*timeout_ms*/)
{
    pthread_t thread{};
    {
        Locker join(m_joinMutex);
        if (_isCurrentThread()) {
            return true;
        }
        // A second joiner would be undefined behaviour in the system; it waits for the first one
        // instead. The generation keeps it from waiting for a thread that was started after its own
        // had ended.
        const uint64_t generation = m_generation;
        while (m_joining && m_generation == generation) {
            m_joined.Wait(m_joinMutex);
        }
        if (!m_joinable || m_generation != generation) {
            return true;
        }
        m_joining = true;
        thread = m_thread;
    }
    // Quirk Q24: the time-out is ignored; a join has none.
    pthread_join(thread, nullptr);
    Locker join(m_joinMutex);
    // Nobody could start a new thread meanwhile: m_joinable was still set.
    m_joining = false;
    m_joinable = false;
    m_thread = {};
    m_joined.Broadcast();
    return true;
}

bool ZrGenTLThreadBase::Terminate(int32_t /*timeout_ms*/)
{
    // A thread whose flag is set cannot pass _close, so its id is valid here.
    Locker lock(m_mutex);
    if (m_running) {
        Locker join(m_joinMutex);
        pthread_cancel(m_thread);
    }
    return true;
}

bool ZrGenTLThreadBase::IsRunning()
{
    Locker lock(m_mutex);
    return m_running;
}

bool ZrGenTLThreadBase::IsCurrentThread()
{
    Locker join(m_joinMutex);
    return _isCurrentThread();
}

bool ZrGenTLThreadBase::_isCurrentThread()
{
    return m_joinable && pthread_equal(m_thread, pthread_self()) != 0;
}
