#include "attached_camera.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstring>

namespace vcam {

namespace {

constexpr std::chrono::milliseconds kReleaseLimit{2000};

} // namespace

AttachedCamera::AttachedCamera(const VhciController& controller, std::uint32_t number,
                               const CameraConfig& config, Say say, std::function<void()> done)
    : m_controller(controller), m_unit(number, config), m_say(std::move(say)),
      m_done(std::move(done))
{
    _PlugIn();
    m_thread = std::thread([this] { _Run(); });
}

AttachedCamera::~AttachedCamera()
{
    Stop();
}

void AttachedCamera::Stop()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_stop = true;
    }
    m_changed.notify_all();
    m_unit.Stop();
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

void AttachedCamera::_PlugIn()
{
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
        throw VhciError(std::string("no socket pair: ") + std::strerror(errno));
    }
    m_socket = FileDescriptor(ends[0]);
    const FileDescriptor kernelEnd(ends[1]); // the kernel keeps a reference of its own
    // Bus number in the upper half; only has to differ from camera to camera.
    const unsigned deviceId = 1U << 16 | (m_unit.Number() + 2);
    m_port = m_controller.Attach(kernelEnd, m_unit.Config().highSpeed, deviceId);
    m_say(m_unit.Name() + " is plugged in at port " + std::to_string(m_port));
}

void AttachedCamera::_Run()
{
    try {
        while (_Away(m_unit.Serve(std::move(m_socket)))) {
            _PlugIn();
        }
    } catch (const std::exception& error) {
        m_failed = true;
        m_say(m_unit.Name() + ": " + error.what());
    }
    m_done();
}

// Says whether the camera is to be plugged in again, after the time it stays away.
bool AttachedCamera::_Away(DeviceLink::End end)
{
    m_socket.Close();
    m_controller.WaitFree(m_port, kReleaseLimit);
    if (end != DeviceLink::End::DeviceLeft) {
        m_say(m_unit.Name() +
              (end == DeviceLink::End::Stopped ? " is unplugged" : " was detached by the host"));
        return false;
    }
    const std::chrono::milliseconds pause = m_unit.ReturnsAfter();
    m_say(m_unit.Name() + " has gone away" +
          (pause.count() < 0 ? std::string() : " for " + std::to_string(pause.count()) + " ms"));
    if (pause.count() < 0) {
        return false;
    }
    std::unique_lock<std::mutex> lock(m_mutex);
    if (m_changed.wait_for(lock, pause, [this] { return m_stop; })) {
        return false;
    }
    m_unit.Renew();
    return true;
}

} // namespace vcam
