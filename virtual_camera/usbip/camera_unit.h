// One virtual camera through all its plugs: what it is made from, and the counters over all plugs.
#ifndef VCAM_CAMERA_UNIT_H
#define VCAM_CAMERA_UNIT_H

#include <memory>
#include <mutex>
#include <string>

#include "device_link.h"
#include "usb_camera.h"

namespace vcam {

// Plug(), Serve() and Unplug() belong to the thread that serves the camera at present; Stop() may
// come from any.
class CameraUnit
{
public:
    CameraUnit(std::uint32_t number, const CameraConfig& config);

    std::uint32_t Number() const { return m_number; }
    // A name for messages: "camera 1 (120900000001)".
    std::string Name() const;
    const CameraConfig& Config() const { return m_config; }
    const UsbDescriptors& Descriptors() const { return m_camera->Descriptors(); }

    // Serves the host at the other end of the socket until one of the two leaves.
    DeviceLink::End Serve(FileDescriptor socket);
    // After DeviceLeft: how long the camera stays away; negative: for ever.
    std::chrono::milliseconds ReturnsAfter() const { return m_camera->ReturnsAfter(); }
    // A new life: the camera keeps what it keeps without power.
    void Renew();
    void Stop();

    // The counters of all lives as lines of text.
    std::string Report() const;

private:
    const std::uint32_t m_number;
    CameraConfig m_config;
    std::unique_ptr<UsbCamera> m_camera;
    std::mutex m_mutex;
    DeviceLink* m_link = nullptr; // guarded by m_mutex
    bool m_stopped = false;       // guarded by m_mutex
    CameraStats m_stats;          // of the lives before this one
    ErrorCounts m_errors;
    LinkCounts m_linkCounts;
    std::uint64_t m_hosts = 0;
};

} // namespace vcam

#endif
