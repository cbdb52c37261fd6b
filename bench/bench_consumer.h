#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <sys/types.h>
#include <vector>

#include <zr_u3v_tl/gentl.h>

// A consumer of the library, as far as the measurements need one; through exported functions only.
namespace bench {

class Failure : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

// Throws unless the status is success.
void Need(GC_ERROR status, const char* call);

// The initialised library with its System and Interface open and the cameras found.
class Library
{
public:
    // Looks until so many cameras are there.
    explicit Library(size_t cameras);
    ~Library();
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    TL_HANDLE System() const { return m_system; }
    IF_HANDLE Interface() const { return m_interface; }
    // The discovery worker, which polls as long as the interface is open.
    pid_t Worker() const { return m_worker; }
    const std::string& Id(size_t index) const { return m_ids.at(index); }

private:
    void _find(size_t cameras);

    TL_HANDLE m_system = nullptr;
    IF_HANDLE m_interface = nullptr;
    pid_t m_worker = 0;
    std::vector<std::string> m_ids;
};

// An opened camera with its stream.
class Camera
{
public:
    explicit Camera(const Library& library, size_t index = 0);
    ~Camera();
    Camera(const Camera&) = delete;
    Camera& operator=(const Camera&) = delete;

    DEV_HANDLE Device() const { return m_device; }
    PORT_HANDLE Port() const { return m_port; }
    DS_HANDLE Stream() const { return m_stream; }
    void Read(uint64_t address, void* data, size_t size) const;
    void Write(uint64_t address, uint32_t value) const;
    size_t Payload() const;
    // From now on the camera sends one image for each trigger, so that none is sent in vain. With
    // the stream at rest.
    void WaitForTriggers(bool wait) const;

private:
    DEV_HANDLE m_device = nullptr;
    PORT_HANDLE m_port = nullptr;
    DS_HANDLE m_stream = nullptr;
};

inline constexpr uint64_t kTriggerMode = 0x501EC;
inline constexpr uint64_t kTriggerSoftware = 0x501F4;

// Announced and queued buffers in the consumer's own memory, and the new-buffer event.
class Images
{
public:
    Images(const Camera& camera, size_t buffers);
    ~Images();
    Images(const Images&) = delete;
    Images& operator=(const Images&) = delete;

    EVENT_HANDLE Event() const { return m_event; }
    void Start() const;
    void Stop() const;
    // Waits for an image and queues its buffer again.
    void Turn() const;
    BUFFER_HANDLE Next() const;
    BUFFER_HANDLE First() const { return m_buffers.front(); }
    void Queue(BUFFER_HANDLE buffer) const;

private:
    DS_HANDLE m_stream;
    EVENT_HANDLE m_event = nullptr;
    std::vector<std::vector<uint8_t>> m_memory;
    std::vector<BUFFER_HANDLE> m_buffers;
};

} // namespace bench
