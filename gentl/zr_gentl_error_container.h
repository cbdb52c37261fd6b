#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "zr_sync.h"

// The last error of every thread that ever had one, keyed by the kernel thread id. Only the owning
// thread reads or writes its record; the list is shared. A linear scan: a handful of consumer
// threads need no map.
class ZrGenTLErrorContainer
{
public:
    ZrGenTLErrorContainer();
    ~ZrGenTLErrorContainer();
    ZrGenTLErrorContainer(const ZrGenTLErrorContainer&) = delete;
    ZrGenTLErrorContainer& operator=(const ZrGenTLErrorContainer&) = delete;

    void SetError(int code, std::string_view text);
    // Code 0 and "No Error" for a thread that never failed.
    void GetError(int* code, std::string& text);
    // Forgets everything and gives the memory back: for the unloading of the library.
    void Clear();

private:
    struct Record;
    // The record of the thread, NULL when it never failed. Valid while the caller holds the lock.
    Record* _findByThreadId(int tid) ZR_REQUIRES(m_mutex);

    RecursiveMutex m_mutex;
    std::vector<std::unique_ptr<Record>> m_records ZR_GUARDED_BY(m_mutex);
};
