// A camera plugged into the local kernel, with a thread of its own that also plugs it in again.
#ifndef VCAM_ATTACHED_CAMERA_H
#define VCAM_ATTACHED_CAMERA_H

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "camera_unit.h"
#include "vhci_controller.h"

namespace vcam {

class AttachedCamera
{
public:
    using Say = std::function<void(const std::string&)>;

    // Plugs the camera in before it returns; throws VhciError. "done" is called by the camera's
    // thread when it will not come back.
    AttachedCamera(const VhciController& controller, std::uint32_t number,
                   const CameraConfig& config, Say say, std::function<void()> done);
    // Unplugs it, and waits until the kernel knows.
    ~AttachedCamera();
    AttachedCamera(const AttachedCamera&) = delete;
    AttachedCamera& operator=(const AttachedCamera&) = delete;

    void Stop();
    // After Stop().
    std::string Report() const { return m_unit.Report(); }
    // After Stop(): whether it could not be plugged in again.
    bool Failed() const { return m_failed; }

private:
    void _PlugIn();
    void _Run();
    bool _Away(DeviceLink::End end);

    const VhciController& m_controller;
    CameraUnit m_unit;
    const Say m_say;
    const std::function<void()> m_done;
    FileDescriptor m_socket;
    int m_port = -1;
    bool m_failed = false; // written by the camera's thread alone
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_stop = false; // guarded by m_mutex
    std::thread m_thread;
};

} // namespace vcam

#endif
