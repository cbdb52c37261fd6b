#pragma once

#include <pthread.h>

namespace ZrSync_U3V {

// A function on a thread of its own. One thread owns the object: it alone calls join and destroys
// it.
class thread
{
public:
    using Function = void (*)(void*);

    // Starts `function(argument)`; an exception that leaves it ends the process. When no thread
    // can be made the object counts as finished and the function is never called; Error says why.
    thread(Function function, void* argument);
    // Detaches a thread that was not joined.
    ~thread();
    thread(const thread&) = delete;
    thread& operator=(const thread&) = delete;

    // Joins; returns at once when there is no thread or its function has returned.
    void join();

    // 0, or the error number for which no thread could be made.
    int Error() const { return m_error; }

private:
    // The finished flag, the function and its argument: shared with the thread, because a detached
    // thread outlives this object.
    struct Shared;
    static void* _run(void* argument);

    pthread_t m_thread = {};
    int m_error = 0;
    Shared* m_shared;
};

} // namespace ZrSync_U3V
