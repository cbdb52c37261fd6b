#include "stream_receiver.h"

#include <memory>
#include <utility>

#include "stream_link.h"
#include "stream_programming.h"
#include "stream_session.h"
#include "zr_sync.h"

namespace u3v_host {

namespace {

constexpr uint32_t kTransferSize = 1024 * 1024;
constexpr StreamDepth kDepth{.images = 8, .bytes = size_t{8} * 1024 * 1024, .transfers = 256};

// One stream of a camera: a session for each acquisition.
class Receiver final : public StreamReceiver
{
public:
    Receiver(StreamLink& link, ImageSink& sink) : m_link(link), m_sink(sink) {}
    ~Receiver() override { Stop(true); }
    Receiver(const Receiver&) = delete;
    Receiver& operator=(const Receiver&) = delete;

    void Start() override;
    void Stop(bool kill) override;
    bool IsRunning() const override;
    void TargetsAvailable() override;
    void CameraHasLeft() override;
    StreamStatistics Statistics() const override;

private:
    void _begin() ZR_REQUIRES(m_control);
    void _end(bool kill) ZR_REQUIRES(m_control);
    void _disable() ZR_REQUIRES(m_control);
    std::shared_ptr<StreamSession> _session() const;
    void _setSession(std::shared_ptr<StreamSession> session);

    StreamLink& m_link;
    ImageSink& m_sink;
    Mutex m_control; // one start or stop at a time
    mutable Mutex m_mutex;
    bool m_enabled ZR_GUARDED_BY(m_control) = false;
    // Kept when it has ended, for its statistics.
    std::shared_ptr<StreamSession> m_session ZR_GUARDED_BY(m_mutex);
};

void Receiver::Start()
{
    Locker lock(m_control);
    if (IsRunning()) {
        throw Error(ErrorKind::InUse, "the stream is running");
    }
    _end(true); // what has ended by itself
    try {
        _begin();
    } catch (...) {
        _end(true);
        throw;
    }
}

// Transfers wait for the camera before it is switched on, so that nothing it sends waits for them.
void Receiver::_begin()
{
    const StreamPlan plan = ProgramStream(m_link, kTransferSize);
    libusb_clear_halt(m_link.Handle().get(), m_link.Endpoint());
    const auto session = std::make_shared<StreamSession>(m_link, m_sink, plan, kDepth);
    _setSession(session);
    session->Begin();
    m_enabled = true;
    EnableStream(m_link, true);
}

void Receiver::Stop(bool kill)
{
    Locker lock(m_control);
    _end(kill);
}

void Receiver::_end(bool kill)
{
    const auto session = _session();
    if (session == nullptr) {
        return;
    }
    if (!session->End(kill)) {
        // The system may still write to its blocks: they are kept for good.
        static_cast<void>(new std::shared_ptr<StreamSession>(session));
    }
    if (std::exchange(m_enabled, false)) {
        _disable();
    }
}

// A camera that is gone or silent stays as it is.
void Receiver::_disable()
{
    try {
        EnableStream(m_link, false);
    } catch (const std::exception&) {
    }
}

bool Receiver::IsRunning() const
{
    const auto session = _session();
    return session != nullptr && session->IsRunning();
}

void Receiver::TargetsAvailable()
{
    if (const auto session = _session()) {
        session->TargetsAvailable();
    }
}

void Receiver::CameraHasLeft()
{
    if (const auto session = _session()) {
        session->CameraHasLeft();
    }
}

StreamStatistics Receiver::Statistics() const
{
    const auto session = _session();
    return session == nullptr ? StreamStatistics{} : session->Statistics();
}

std::shared_ptr<StreamSession> Receiver::_session() const
{
    Locker lock(m_mutex);
    return m_session;
}

void Receiver::_setSession(std::shared_ptr<StreamSession> session)
{
    Locker lock(m_mutex);
    m_session = std::move(session);
}

} // namespace

std::unique_ptr<StreamReceiver> MakeStreamReceiver(StreamLink& link, ImageSink& sink)
{
    return std::make_unique<Receiver>(link, sink);
}

} // namespace u3v_host
