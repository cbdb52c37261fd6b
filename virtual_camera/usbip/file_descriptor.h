// An owned file descriptor, and a flag that wakes a poll().
#ifndef VCAM_FILE_DESCRIPTOR_H
#define VCAM_FILE_DESCRIPTOR_H

#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdint>
#include <utility>

namespace vcam {

class FileDescriptor
{
public:
    explicit FileDescriptor(int fd = -1) : m_fd(fd) {}
    FileDescriptor(FileDescriptor&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept
    {
        std::swap(m_fd, other.m_fd);
        return *this;
    }
    ~FileDescriptor() { Close(); }

    int Get() const { return m_fd; }
    bool IsOpen() const { return m_fd >= 0; }
    void Close()
    {
        if (m_fd >= 0) {
            ::close(std::exchange(m_fd, -1));
        }
    }

private:
    int m_fd;
};

// Any thread wakes, one thread polls the descriptor and clears it.
class WakeUp
{
public:
    WakeUp() : m_event(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

    int Descriptor() const { return m_event.Get(); }
    void Wake() const
    {
        const std::uint64_t one = 1;
        // Fails only when it is set to the brim, which wakes as well.
        [[maybe_unused]] const auto written = ::write(m_event.Get(), &one, sizeof one);
    }
    void Clear() const
    {
        std::uint64_t count = 0;
        [[maybe_unused]] const auto taken = ::read(m_event.Get(), &count, sizeof count);
    }

private:
    FileDescriptor m_event;
};

} // namespace vcam

#endif
