#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "camera_info.h"
#include "host_limits.h"
#include "wakeup.h"

namespace u3v_host {

class Camera;

// The defaults are what the product uses; tests shorten times and have a device tree of their own.
struct CameraListOptions
{
    std::string systemRoot = "/"; // above "sys", where the kernel's device tree is
    std::chrono::milliseconds stringTime = kStringTime;
    ControlLimits control{};
};

// All cameras of the bus as far as they are known, and the way to open one. Lives as long as the
// producer is initialised and owns the private libusb context with the thread that serves its
// events. Any thread may call anything at any time.
//
// Listing sends no command to a camera, claims nothing and leaves no device open.
class CameraList
{
public:
    // Throws Error when libusb cannot be initialised or no thread can be made.
    explicit CameraList(const CameraListOptions& options = {});
    // Waits for a pass that is still under way. Every Camera is closed before.
    ~CameraList();
    CameraList(const CameraList&) = delete;
    CameraList& operator=(const CameraList&) = delete;

    // Looks once at the bus. Returns when the pass is done, at the latest at the deadline: a pass
    // that takes longer goes on in the background and counts for the next call. Never fails: the
    // list is then what it was.
    void Update(Deadline deadline);

    // The cameras in the order of bus and port path. Allocates the copy; cheap.
    std::vector<std::shared_ptr<const CameraInfo>> Cameras() const;

    // Compares without regard to case. NULL when it is not listed; does not look at the bus.
    std::shared_ptr<const CameraInfo> Find(std::string_view id) const;

    // Asked of the system at the call, without a transfer. Unknown for an id that is not listed.
    AccessStatus Access(std::string_view id) const;

    // Opens a listed camera. The result is owned by the caller and closed by its destructor. Throws
    // Error: AccessDenied, InUse, Io, Timeout, InvalidId; everything is undone then.
    std::unique_ptr<Camera> Open(std::string_view id, OpenMode mode);

    // Called on the library's event thread whenever a camera may have come or gone, as far as
    // libusb tells at once (hotplug). It must not call back into the list. One listener; an empty
    // function ends it and returns when no call is under way.
    void OnChange(std::function<void()> listener);

private:
    class Implementation;
    std::unique_ptr<Implementation> m_implementation;
};

} // namespace u3v_host
