#pragma once

// Mutexes, locks and condition variables over POSIX threads, annotated for clang's thread-safety
// analysis. Every shared field of the library names its guard with ZR_GUARDED_BY; a build with
// clang refuses an access without the lock.

#include <pthread.h>
#include <time.h>

#if defined(__clang__)
#define ZR_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define ZR_THREAD_ANNOTATION(x)
#endif

#define ZR_CAPABILITY(x) ZR_THREAD_ANNOTATION(capability(x))
#define ZR_SCOPED_CAPABILITY ZR_THREAD_ANNOTATION(scoped_lockable)
#define ZR_GUARDED_BY(x) ZR_THREAD_ANNOTATION(guarded_by(x))
#define ZR_PT_GUARDED_BY(x) ZR_THREAD_ANNOTATION(pt_guarded_by(x))
#define ZR_REQUIRES(...) ZR_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define ZR_EXCLUDES(...) ZR_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define ZR_ACQUIRE(...) ZR_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define ZR_RELEASE(...) ZR_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define ZR_ASSERTS(...) ZR_THREAD_ANNOTATION(assert_capability(__VA_ARGS__))
#define ZR_RETURN_CAPABILITY(x) ZR_THREAD_ANNOTATION(lock_returned(x))
#define ZR_NO_THREAD_SAFETY_ANALYSIS ZR_THREAD_ANNOTATION(no_thread_safety_analysis)

// A mutex with default attributes.
class ZR_CAPABILITY("mutex") Mutex
{
public:
    Mutex() { pthread_mutex_init(&m_native, nullptr); }
    ~Mutex() { pthread_mutex_destroy(&m_native); }
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    void Lock() ZR_ACQUIRE() { pthread_mutex_lock(&m_native); }
    void Unlock() ZR_RELEASE() { pthread_mutex_unlock(&m_native); }
    bool TryLock() ZR_THREAD_ANNOTATION(try_acquire_capability(true))
    {
        return pthread_mutex_trylock(&m_native) == 0;
    }
    // Tells the analysis what it cannot see: that the lock is held, under another name.
    void AssertHeld() ZR_ASSERTS(this) {}
    pthread_mutex_t* Native() { return &m_native; }

private:
    pthread_mutex_t m_native;
};

// A mutex that its holder may take again: module operations re-enter their own module.
class ZR_CAPABILITY("mutex") RecursiveMutex
{
public:
    RecursiveMutex()
    {
        pthread_mutexattr_t attributes;
        pthread_mutexattr_init(&attributes);
        pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
        pthread_mutex_init(&m_native, &attributes);
        pthread_mutexattr_destroy(&attributes);
    }
    ~RecursiveMutex() { pthread_mutex_destroy(&m_native); }
    RecursiveMutex(const RecursiveMutex&) = delete;
    RecursiveMutex& operator=(const RecursiveMutex&) = delete;

    void Lock() ZR_ACQUIRE() { pthread_mutex_lock(&m_native); }
    void Unlock() ZR_RELEASE() { pthread_mutex_unlock(&m_native); }
    pthread_mutex_t* Native() { return &m_native; }

private:
    pthread_mutex_t m_native;
};

// Holds a mutex for a scope.
template <class MutexType>
class ZR_SCOPED_CAPABILITY Locker
{
public:
    explicit Locker(MutexType& mutex) ZR_ACQUIRE(mutex) : m_mutex(mutex) { m_mutex.Lock(); }
    ~Locker() ZR_RELEASE() { m_mutex.Unlock(); }
    Locker(const Locker&) = delete;
    Locker& operator=(const Locker&) = delete;

private:
    MutexType& m_mutex;
};

// A condition variable on CLOCK_REALTIME. Waits are single waits: callers loop where they have a
// predicate. A recursive mutex must be held exactly once by the waiter.
class Condition
{
public:
    Condition() { pthread_cond_init(&m_native, nullptr); }
    ~Condition() { pthread_cond_destroy(&m_native); }
    Condition(const Condition&) = delete;
    Condition& operator=(const Condition&) = delete;

    void Signal() { pthread_cond_signal(&m_native); }
    void Broadcast() { pthread_cond_broadcast(&m_native); }

    template <class MutexType>
    void Wait(MutexType& mutex) ZR_REQUIRES(mutex)
    {
        pthread_cond_wait(&m_native, mutex.Native());
    }

    // Returns 0, ETIMEDOUT or EINVAL, as pthread_cond_timedwait does.
    template <class MutexType>
    int TimedWait(MutexType& mutex, const timespec& deadline) ZR_REQUIRES(mutex)
    {
        return pthread_cond_timedwait(&m_native, mutex.Native(), &deadline);
    }

private:
    pthread_cond_t m_native;
};
