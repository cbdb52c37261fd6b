#pragma once

// A process that can have no more threads: while this lives, every pthread_create without
// attributes of its own is refused, as by a system that has run out of threads. For everybody in
// the process.

#include <pthread.h>

class NoMoreThreads
{
public:
    NoMoreThreads()
    {
        pthread_getattr_default_np(&m_usual);
        pthread_attr_t impossible;
        pthread_attr_init(&impossible);
        pthread_attr_setstacksize(&impossible, size_t{1} << 62);
        m_inForce = pthread_setattr_default_np(&impossible) == 0;
        pthread_attr_destroy(&impossible);
    }
    ~NoMoreThreads()
    {
        pthread_setattr_default_np(&m_usual);
        pthread_attr_destroy(&m_usual);
    }
    NoMoreThreads(const NoMoreThreads&) = delete;
    NoMoreThreads& operator=(const NoMoreThreads&) = delete;

    bool InForce() const { return m_inForce; }

private:
    pthread_attr_t m_usual;
    bool m_inForce = false;
};
