#pragma once

#include <pthread.h>

#include "zr_sync.h"

// Many readers or one writer, over a POSIX read-write lock that prefers a waiting writer.
class ZR_CAPABILITY("mutex") RwLock
{
public:
    RwLock()
    {
        pthread_rwlockattr_t attributes;
        pthread_rwlockattr_init(&attributes);
        pthread_rwlockattr_setkind_np(&attributes, PTHREAD_RWLOCK_PREFER_WRITER_NONRECURSIVE_NP);
        pthread_rwlock_init(&m_native, &attributes);
        pthread_rwlockattr_destroy(&attributes);
    }
    ~RwLock() { pthread_rwlock_destroy(&m_native); }
    RwLock(const RwLock&) = delete;
    RwLock& operator=(const RwLock&) = delete;

    void LockShared() ZR_THREAD_ANNOTATION(acquire_shared_capability())
    {
        pthread_rwlock_rdlock(&m_native);
    }
    void UnlockShared() ZR_THREAD_ANNOTATION(release_shared_capability())
    {
        pthread_rwlock_unlock(&m_native);
    }
    void Lock() ZR_ACQUIRE() { pthread_rwlock_wrlock(&m_native); }
    void Unlock() ZR_RELEASE() { pthread_rwlock_unlock(&m_native); }

private:
    pthread_rwlock_t m_native;
};

class ZR_SCOPED_CAPABILITY ReadLocker
{
public:
    explicit ReadLocker(RwLock& lock) ZR_THREAD_ANNOTATION(acquire_shared_capability(lock))
        : m_lock(lock)
    {
        m_lock.LockShared();
    }
    ~ReadLocker() ZR_THREAD_ANNOTATION(release_generic_capability()) { m_lock.UnlockShared(); }
    ReadLocker(const ReadLocker&) = delete;
    ReadLocker& operator=(const ReadLocker&) = delete;

private:
    RwLock& m_lock;
};

class ZR_SCOPED_CAPABILITY WriteLocker
{
public:
    explicit WriteLocker(RwLock& lock) ZR_ACQUIRE(lock) : m_lock(lock) { m_lock.Lock(); }
    ~WriteLocker() ZR_RELEASE() { m_lock.Unlock(); }
    WriteLocker(const WriteLocker&) = delete;
    WriteLocker& operator=(const WriteLocker&) = delete;

private:
    RwLock& m_lock;
};
