// The kernel's virtual host controller (module vhci-hcd), as seen in sysfs.
#ifndef VCAM_VHCI_CONTROLLER_H
#define VCAM_VHCI_CONTROLLER_H

#include <chrono>
#include <stdexcept>
#include <string>
#include <vector>

#include "file_descriptor.h"

namespace vcam {

// Says what is wrong and the command that fixes it.
class VhciError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

// Has no state beside the folder's name: any thread may use it.
class VhciController
{
public:
    static constexpr const char* kFolder = "/sys/devices/platform/vhci_hcd.0";

    explicit VhciController(std::string folder = kFolder);

    // Throws VhciError when the module is missing or this process may not attach anything.
    void Check() const;
    // Hands a connected socket to a free port of the right speed; returns the port's number.
    int Attach(const FileDescriptor& socket, bool highSpeed, unsigned deviceId) const;
    // Waits until the kernel has let go of the port; false when the time is up.
    bool WaitFree(int port, std::chrono::milliseconds limit) const;

private:
    struct Port
    {
        std::string hub; // "hs" or "ss"
        int number = 0;
        int state = 0;
    };

    std::vector<Port> _Ports() const;

    std::string m_folder;
};

} // namespace vcam

#endif
