#pragma once

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>
#include <utility>

namespace vbus {

// The open file that stands behind a handle. A child that is forked meanwhile has it as well, until
// it calls exec or ends; what was not released by hand stays with the file until nobody has it any
// more, as in the kernel. Here it is a pipe: who holds the file holds the end to write to.
class DeviceFile
{
public:
    // Without descriptors to be had it is as if nobody but the handle held it.
    DeviceFile()
    {
        int ends[2];
        if (::pipe2(ends, O_CLOEXEC) == 0) {
            m_watched = ends[0];
            m_held = ends[1];
        }
    }
    ~DeviceFile()
    {
        Close();
        _CloseEnd(m_watched);
    }
    DeviceFile(DeviceFile&& other) noexcept
        : m_watched(std::exchange(other.m_watched, -1)), m_held(std::exchange(other.m_held, -1))
    {
    }
    DeviceFile& operator=(DeviceFile&& other) noexcept
    {
        std::swap(m_watched, other.m_watched);
        std::swap(m_held, other.m_held);
        return *this;
    }

    // This process lets go of it.
    void Close() { _CloseEnd(m_held); }
    bool IsHeld() const
    {
        pollfd end{m_watched, POLLIN, 0};
        return m_watched >= 0 && ::poll(&end, 1, 0) == 0;
    }

private:
    static void _CloseEnd(int& end)
    {
        if (end >= 0) {
            ::close(std::exchange(end, -1));
        }
    }

    int m_watched = -1;
    int m_held = -1;
};

} // namespace vbus
