#include "event_loop.h"

#include <algorithm>
#include <atomic>
#include <pthread.h>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "error.h"
#include "steady_condition.h"
#include "wakeup.h"
#include "zr_signal_mask.h"
#include "zr_sync.h"

namespace u3v_host {

namespace {

using Clock = std::chrono::steady_clock;

// How long one call into libusb may last when nothing is due; it is woken for everything else.
constexpr std::chrono::hours kLongest{1};
// A libusb that cannot serve fails at once, each time: no reason to keep the processor busy.
constexpr std::chrono::milliseconds kAfterFailure{10};

timeval UntilThen(Deadline deadline)
{
    using std::chrono::microseconds;
    const auto now = Clock::now();
    const auto left = std::clamp(deadline, now, now + kLongest) - now;
    const auto us = std::chrono::ceil<microseconds>(left).count();
    timeval time{};
    time.tv_sec = us / 1'000'000;
    time.tv_usec = us % 1'000'000;
    return time;
}

} // namespace

// Shared with the wake-ups, which may outlive the loop.
class EventLoop::Core
{
public:
    Core() : m_context(UsbContext::Make()) {}

    void Start();
    void Stop() ZR_EXCLUDES(m_mutex);

    const std::shared_ptr<UsbContext>& Context() const { return m_context; }
    bool IsForked() const { return m_context->IsForked(); }
    bool IsServing() const { return OnLibraryThread() && m_serving; }
    bool OnLibraryThread() const { return std::this_thread::get_id() == m_threadId; }

    void Post(Owner owner, std::function<void()> task, std::chrono::milliseconds delay)
        ZR_EXCLUDES(m_mutex);
    void Forget(Owner owner) ZR_EXCLUDES(m_mutex);

    // Library's thread only: handles events until something has happened or the time is over.
    void Serve(Deadline until) ZR_EXCLUDES(m_mutex);
    // Makes Serve return, also if it is about to begin.
    void Interrupt() { libusb_interrupt_event_handler(m_context->Native()); }

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

    const std::shared_ptr<UsbContext> m_context;
    std::thread m_thread;
    std::thread::id m_threadId;
    std::atomic<bool> m_serving{false};

    Mutex m_mutex;
    SteadyCondition m_changed;                        // a task has ended, the loop is to end
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
        m_changed.Broadcast();
    }
    Interrupt();
    m_thread.join();
    Locker lock(m_mutex);
    m_tasks.clear();
}

void EventLoop::Core::_run()
{
    while (_runDueTasks()) {
        Serve(_nextDue());
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

void EventLoop::Core::Serve(Deadline until)
{
    timeval time = UntilThen(until);
    m_serving = true;
    const int result = libusb_handle_events_timeout_completed(m_context->Native(), &time, nullptr);
    m_serving = false;
    if (result < 0 && result != LIBUSB_ERROR_INTERRUPTED) {
        Locker lock(m_mutex);
        if (!m_stop) {
            m_changed.Wait(m_mutex, std::min(until, Clock::now() + kAfterFailure));
        }
    }
}

void EventLoop::Core::Post(Owner owner, std::function<void()> task, std::chrono::milliseconds delay)
{
    {
        Locker lock(m_mutex);
        m_tasks.push_back({owner, std::move(task), Clock::now() + delay});
    }
    Interrupt();
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
    while (m_running == owner && !OnLibraryThread()) {
        m_changed.Wait(m_mutex, Deadline::max());
    }
}

// A condition, unless it is the library's own thread that waits: then nobody else serves, so it
// does so itself.
class EventLoop::LoopWakeup final : public Wakeup
{
public:
    explicit LoopWakeup(std::shared_ptr<Core> core)
        : m_core(std::move(core)), m_condition(std::make_unique<SteadyCondition>())
    {
    }
    ~LoopWakeup() override
    {
        if (m_core->IsForked()) {
            // Destroying a condition waits for its waiters; those were the parent's threads.
            static_cast<void>(m_condition.release());
        }
    }
    LoopWakeup(const LoopWakeup&) = delete;
    LoopWakeup& operator=(const LoopWakeup&) = delete;

    void Wait(Mutex& mutex, Deadline deadline) override ZR_REQUIRES(mutex)
    {
        if (!m_core->OnLibraryThread()) {
            m_condition->Wait(mutex, deadline);
            return;
        }
        m_served = true; // before the mutex is free: whoever notifies from then on interrupts
        mutex.Unlock();
        m_core->Serve(deadline);
        mutex.Lock();
        m_served = false;
    }

    void NotifyAll() override
    {
        m_condition->Broadcast();
        if (m_served && !m_core->OnLibraryThread()) {
            m_core->Interrupt();
        }
    }

private:
    const std::shared_ptr<Core> m_core;
    std::unique_ptr<SteadyCondition> m_condition;
    std::atomic<bool> m_served{false};
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
    return m_core->Context();
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
    return m_core->IsServing();
}

bool EventLoop::IsForked() const
{
    return m_core->IsForked();
}

} // namespace u3v_host
