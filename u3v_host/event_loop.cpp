#include "event_loop.h"

#include <algorithm>
#include <pthread.h>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "error.h"
#include "event_service.h"
#include "steady_condition.h"
#include "wakeup.h"
#include "zr_signal_mask.h"
#include "zr_sync.h"

namespace u3v_host {

namespace {

using Clock = std::chrono::steady_clock;

} // namespace

// Shared with the wake-ups, which may outlive the loop.
class EventLoop::Core
{
public:
    Core() : m_service(UsbContext::Make()) {}

    void Start();
    void Stop() ZR_EXCLUDES(m_mutex);

    EventService& Service() { return m_service; }
    bool IsForked() const { return m_service.Context()->IsForked(); }

    void Post(Owner owner, std::function<void()> task, std::chrono::milliseconds delay)
        ZR_EXCLUDES(m_mutex);
    void Forget(Owner owner) ZR_EXCLUDES(m_mutex);

private:
    struct Task
    {
        Owner owner;
        std::function<void()> run;
        Deadline due;
    };

    void _run();
    bool _runDueTasks() ZR_EXCLUDES(m_mutex);
    bool _takeDueTask(Task& task) ZR_REQUIRES(m_mutex);
    Deadline _nextDue() ZR_EXCLUDES(m_mutex);

    bool _isOnLibraryThread() const { return std::this_thread::get_id() == m_threadId; }

    EventService m_service;
    std::thread m_thread;
    std::thread::id m_threadId;

    Mutex m_mutex;
    SteadyCondition m_changed;                        // a task has ended
    std::vector<Task> m_tasks ZR_GUARDED_BY(m_mutex); // in the order of posting
    Owner m_running ZR_GUARDED_BY(m_mutex) = nullptr;
    bool m_stop ZR_GUARDED_BY(m_mutex) = false;
};

void EventLoop::Core::Start()
{
    const ZrSignalsBlocked blocked;
    try {
        // The thread begins with the lock, so that it finds its own id here.
        Locker lock(m_mutex);
        m_thread = std::thread([this] { _run(); });
        m_threadId = m_thread.get_id();
    } catch (const std::system_error&) {
        throw Error(ErrorKind::ResourceExhausted, "the system has no thread for USB events");
    }
    pthread_setname_np(m_thread.native_handle(), "zr-u3v-usb");
}

void EventLoop::Core::Stop()
{
    {
        Locker lock(m_mutex);
        m_stop = true;
    }
    m_service.Rouse();
    m_thread.join();
    Locker lock(m_mutex);
    m_tasks.clear();
}

void EventLoop::Core::_run()
{
    for (;;) {
        const uint64_t seen = m_service.Roused();
        if (!_runDueTasks()) {
            return;
        }
        m_service.StandBy(seen, _nextDue());
    }
}

// False when the loop is to end.
bool EventLoop::Core::_runDueTasks()
{
    for (;;) {
        Task task;
        {
            Locker lock(m_mutex);
            m_running = nullptr;
            m_changed.Broadcast();
            if (m_stop || !_takeDueTask(task)) {
                return !m_stop;
            }
            m_running = task.owner;
        }
        task.run();
    }
}

bool EventLoop::Core::_takeDueTask(Task& task)
{
    const auto now = Clock::now();
    const auto due = std::find_if(m_tasks.begin(), m_tasks.end(),
                                  [now](const Task& one) { return one.due <= now; });
    if (due == m_tasks.end()) {
        return false;
    }
    task = std::move(*due);
    m_tasks.erase(due);
    return true;
}

Deadline EventLoop::Core::_nextDue()
{
    Locker lock(m_mutex);
    Deadline next = Deadline::max();
    for (const Task& task : m_tasks) {
        next = std::min(next, task.due);
    }
    return next;
}

void EventLoop::Core::Post(Owner owner, std::function<void()> task, std::chrono::milliseconds delay)
{
    {
        Locker lock(m_mutex);
        m_tasks.push_back({owner, std::move(task), Clock::now() + delay});
    }
    m_service.Rouse();
}

void EventLoop::Core::Forget(Owner owner)
{
    if (IsForked()) {
        return; // no task runs here
    }
    std::vector<Task> dropped; // destroyed without the lock
    Locker lock(m_mutex);
    const auto first = std::stable_partition(m_tasks.begin(), m_tasks.end(),
                                             [owner](const Task& t) { return t.owner != owner; });
    std::move(first, m_tasks.end(), std::back_inserter(dropped));
    m_tasks.erase(first, m_tasks.end());
    while (m_running == owner && !_isOnLibraryThread()) {
        m_changed.Wait(m_mutex, Deadline::max());
    }
}

// A mutex that is free as long as this exists.
class ZR_SCOPED_CAPABILITY Released
{
public:
    explicit Released(Mutex& mutex) ZR_RELEASE(mutex) : m_mutex(mutex) { m_mutex.Unlock(); }
    ~Released() ZR_RELEASE() { m_mutex.Lock(); }
    Released(const Released&) = delete;
    Released& operator=(const Released&) = delete;

private:
    Mutex& m_mutex;
};

class EventLoop::LoopWakeup final : public Wakeup
{
public:
    explicit LoopWakeup(std::shared_ptr<Core> core)
        : m_core(std::move(core)), m_waiters(std::make_unique<EventService::Waiters>())
    {
    }
    ~LoopWakeup() override
    {
        if (m_core->IsForked()) {
            // Destroying a condition waits for its waiters; those were the parent's threads.
            static_cast<void>(m_waiters.release());
        }
    }
    LoopWakeup(const LoopWakeup&) = delete;
    LoopWakeup& operator=(const LoopWakeup&) = delete;

    void Wait(Mutex& mutex, Deadline deadline) override ZR_REQUIRES(mutex)
    {
        if (m_core->IsForked()) {
            m_inChild.Wait(mutex, deadline);
            return;
        }
        const uint64_t seen = m_waiters->Notified();
        const Released released(mutex);
        m_core->Service().Wait(*m_waiters, seen, deadline);
    }

    void NotifyAll() override
    {
        if (m_core->IsForked()) {
            m_inChild.NotifyAll();
        } else {
            m_core->Service().Notify(*m_waiters);
        }
    }

private:
    const std::shared_ptr<Core> m_core;
    std::unique_ptr<EventService::Waiters> m_waiters;
    PlainWakeup m_inChild; // in a forked process, where nobody serves
};

EventLoop::EventLoop() : m_core(std::make_shared<Core>())
{
    m_core->Start();
}

EventLoop::~EventLoop()
{
    if (m_core->IsForked()) {
        // Neither can its thread be joined nor its conditions be destroyed: to them, the parent's
        // threads wait for ever.
        static_cast<void>(new std::shared_ptr<Core>(m_core));
        return;
    }
    m_core->Stop();
}

const std::shared_ptr<UsbContext>& EventLoop::Context() const
{
    return m_core->Service().Context();
}

void EventLoop::Post(Owner owner, std::function<void()> task, std::chrono::milliseconds delay)
{
    m_core->Post(owner, std::move(task), delay);
}

void EventLoop::Forget(Owner owner)
{
    m_core->Forget(owner);
}

std::unique_ptr<Wakeup> EventLoop::MakeWakeup()
{
    return std::make_unique<LoopWakeup>(m_core);
}

bool EventLoop::IsServing() const
{
    return m_core->Service().IsServing();
}

bool EventLoop::IsForked() const
{
    return m_core->IsForked();
}

} // namespace u3v_host
