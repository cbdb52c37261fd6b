#include "zr_sync_thread.h"

#include <atomic>

namespace ZrSync_U3V {

struct thread::Shared
{
    Shared(Function functionToRun, void* argumentToPass)
        : function(functionToRun), argument(argumentToPass)
    {
    }

    // Two owners, the object and its thread; the last one frees the record.
    void Release()
    {
        if (owners.fetch_sub(1, std::memory_order_acq_rel) == 1) {
            delete this;
        }
    }

    std::atomic<int> owners{2};
    std::atomic<bool> finished{false};
    const Function function;
    void* const argument;
};

thread::thread(Function function, void* argument) : m_shared(new Shared(function, argument))
{
    // From here on the record belongs to both; the thread may be over before this call returns.
    m_error = pthread_create(&m_thread, nullptr, &thread::_run, m_shared);
    if (m_error != 0) {
        m_thread = {};
        m_shared->finished = true;
        m_shared->Release(); // the share of the thread that does not exist
    }
}

thread::~thread()
{
    if (m_thread != pthread_t{}) {
        pthread_detach(m_thread);
    }
    m_shared->Release();
}

void thread::join()
{
    // Quirk Q01: a finished thread is not joined; the destructor detaches it.
    if (m_thread == pthread_t{} || m_shared->finished) {
        return;
    }
    // A thread that joins itself is refused by the system and stays to be detached.
    if (pthread_join(m_thread, nullptr) == 0) {
        m_thread = {};
    }
}

void* thread::_run(void* argument)
{
    auto* shared = static_cast<Shared*>(argument);
    shared->function(shared->argument);
    // Not reached when an exception leaves the function: the process ends then.
    shared->finished = true;
    shared->Release();
    return nullptr;
}

} // namespace ZrSync_U3V
