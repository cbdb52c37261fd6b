#pragma once

#include <new>
#include <utility>

// An object that is built once and never destroyed: other threads, or libraries that are unloaded
// later, may still reach it while the process ends. It lives in static storage, so unloading the
// library takes it along and nothing leaks.
template <class T>
class ZrNoDestroy
{
public:
    template <class... Arguments>
    explicit ZrNoDestroy(Arguments&&... arguments)
    {
        new (m_storage) T(std::forward<Arguments>(arguments)...);
    }
    ZrNoDestroy(const ZrNoDestroy&) = delete;
    ZrNoDestroy& operator=(const ZrNoDestroy&) = delete;

    T& Get() { return *std::launder(reinterpret_cast<T*>(m_storage)); }

private:
    alignas(T) unsigned char m_storage[sizeof(T)];
};
