#include "vhci_controller.h"

#include <fcntl.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>
#include <thread>

#include "usbip_wire.h"

namespace vcam {

namespace {

constexpr int kFreePort = 4; // in the column "sta" of the status files

std::string Reason(int error)
{
    return std::strerror(error);
}

} // namespace

VhciController::VhciController(std::string folder) : m_folder(std::move(folder))
{
}

void VhciController::Check() const
{
    if (::access((m_folder + "/status").c_str(), F_OK) != 0) {
        throw VhciError("the kernel has no virtual host controller: its module is not loaded.\n"
                        "  fix: sudo modprobe vhci-hcd");
    }
    if (::access((m_folder + "/attach").c_str(), W_OK) != 0) {
        throw VhciError("no permission to attach a device (" + m_folder +
                        "/attach: " + Reason(errno) +
                        ").\n  fix: run this program as root, for instance with sudo");
    }
}

// A controller has one status file for each of its hubs, all with the same columns.
std::vector<VhciController::Port> VhciController::_Ports() const
{
    std::vector<Port> ports;
    for (int hub = 0;; ++hub) {
        std::ifstream file(m_folder + (hub == 0 ? "/status" : "/status." + std::to_string(hub)));
        if (!file) {
            return ports;
        }
        for (std::string line; std::getline(file, line);) {
            std::istringstream columns(line);
            Port port;
            if (columns >> port.hub >> port.number >> port.state) { // not the title
                ports.push_back(port);
            }
        }
    }
}

int VhciController::Attach(const FileDescriptor& socket, bool highSpeed, unsigned deviceId) const
{
    Check();
    const std::string hub = highSpeed ? "hs" : "ss";
    const unsigned speed = highSpeed ? usbip::kHighSpeed : usbip::kSuperSpeed;
    const FileDescriptor attach(::open((m_folder + "/attach").c_str(), O_WRONLY | O_CLOEXEC));
    if (!attach.IsOpen()) {
        throw VhciError("cannot open " + m_folder + "/attach: " + Reason(errno) +
                        "\n  fix: run this program as root, for instance with sudo");
    }
    for (const Port& port : _Ports()) {
        if (port.hub != hub || port.state != kFreePort) {
            continue;
        }
        const std::string text = std::to_string(port.number) + " " + std::to_string(socket.Get()) +
                                 " " + std::to_string(deviceId) + " " + std::to_string(speed);
        if (::write(attach.Get(), text.data(), text.size()) > 0) {
            return port.number;
        }
        if (errno != EBUSY && errno != EINVAL) { // else somebody was faster
            throw VhciError("the kernel refuses the device at port " + std::to_string(port.number) +
                            ": " + Reason(errno) + "\n  see the end of: sudo dmesg");
        }
    }
    throw VhciError("no free " + std::string(highSpeed ? "high-speed" : "SuperSpeed") +
                    " port (see " + m_folder +
                    "/status).\n  fix: usbip detach -p PORT for one that is not needed, or\n"
                    "           sudo modprobe -r vhci-hcd && sudo modprobe vhci-hcd");
}

bool VhciController::WaitFree(int port, std::chrono::milliseconds limit) const
{
    const auto end = std::chrono::steady_clock::now() + limit;
    for (;;) {
        for (const Port& present : _Ports()) {
            if (present.number == port && present.state == kFreePort) {
                return true;
            }
        }
        if (std::chrono::steady_clock::now() >= end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

} // namespace vcam
