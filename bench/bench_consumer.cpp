#include "bench_consumer.h"

#include "bench_time.h"
#include "bench_usb.h"
#include "camera_features.h"

namespace bench {

namespace {

constexpr std::chrono::seconds kPatience{60};
constexpr uint64_t kImageTimeout = 20000; // ms

} // namespace

std::string g_producer;

Library::Library(size_t cameras, uint64_t update_ms)
    : m_threadsBefore(Threads()), m_producer(g_producer),
      m_session(m_producer, {.update_ms = update_ms, .cameras = cameras, .patience = kPatience})
{
    if (m_session.CameraIds().size() < cameras) {
        throw Failure("no camera");
    }
    // libusb may have started a thread as well, which sleeps.
    int64_t most = 0;
    for (const pid_t thread : Threads()) {
        const int64_t cpu = m_threadsBefore.contains(thread) ? 0 : ThreadCpuNs(thread);
        m_worker = cpu > most ? thread : m_worker;
        most = std::max(most, cpu);
    }
}

OpenCamera::OpenCamera(const consumer::Session& session, size_t index)
    : Camera(session, session.CameraIds().at(index)), m_stream(*this)
{
}

size_t OpenCamera::Payload() const
{
    return Read<uint32_t>(camera_features::kPayloadSize);
}

void OpenCamera::WaitForTriggers(bool wait) const
{
    Write<uint32_t>(camera_features::kTriggerMode, wait ? 1 : 0);
}

BUFFER_HANDLE Images::Next() const
{
    BUFFER_HANDLE const buffer = NextBuffer(kImageTimeout);
    if (buffer == nullptr) {
        throw Failure("no image");
    }
    return buffer;
}

} // namespace bench
