#include "kernel_records.h"

#include <fstream>
#include <system_error>

#include "text.h"

namespace u3v_host {

namespace {

constexpr const char* kDriverOfProcesses = "usbfs";

} // namespace

KernelRecords::KernelRecords(const std::filesystem::path& root)
    : m_devices(root / "sys/bus/usb/devices")
{
}

std::string KernelRecords::_attribute(const UsbPlace& place, const char* name) const
{
    std::ifstream file(m_devices / place.Text() / name);
    std::string line;
    std::getline(file, line);
    return CleanUtf8(line);
}

CameraInfo KernelRecords::Texts(const UsbPlace& place) const
{
    CameraInfo info;
    info.vendor = _attribute(place, "manufacturer");
    info.model = _attribute(place, "product");
    info.serial = _attribute(place, "serial");
    return info;
}

bool KernelRecords::IsClaimed(const UsbPlace& place, uint8_t configuration,
                              uint8_t interfaceNumber) const
{
    const std::string name =
        place.Text() + ':' + std::to_string(configuration) + '.' + std::to_string(interfaceNumber);
    std::error_code none;
    return std::filesystem::read_symlink(m_devices / name / "driver", none).filename() ==
           kDriverOfProcesses;
}

} // namespace u3v_host
