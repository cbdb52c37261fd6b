#include "sysfs_writer.h"

#include <cstdio>
#include <filesystem>
#include <fstream>

#include "virtual_bus_state.h"

namespace vbus {

namespace {

namespace fs = std::filesystem;

std::string Hex(unsigned value, int digits)
{
    char text[16];
    std::snprintf(text, sizeof text, "%0*x", digits, value);
    return text;
}

void Put(const fs::path& file, const std::string& text)
{
    std::ofstream(file) << text << "\n";
}

std::string PortPath(const Attachment& attachment)
{
    std::string path;
    for (const std::uint8_t port : attachment.ports) {
        path += (path.empty() ? "" : ".") + std::to_string(port);
    }
    return path;
}

const char* SpeedText(vcam::UsbSpeed speed)
{
    switch (speed) {
    case vcam::UsbSpeed::High: return "480";
    case vcam::UsbSpeed::SuperPlus: return "10000";
    default: return "5000";
    }
}

// The driver of an interface as the kernel sees it; empty: none.
std::string DriverOf(const Attachment& attachment, int interface)
{
    const bool elsewhere = attachment.camera && attachment.camera->HasFault("claimed-elsewhere");
    if (elsewhere || attachment.claims.count(interface) != 0) {
        return "usbfs";
    }
    return attachment.driverDetached.count(interface) == 0 ? attachment.driver : std::string();
}

// Texts that the device has not given are no file, as in the kernel.
void PutText(const fs::path& file, const std::string& text)
{
    if (!text.empty()) {
        Put(file, text);
    }
}

void WriteInterface(const fs::path& root, const fs::path& device, const std::string& name,
                    const libusb_interface_descriptor& setting, const std::string& driver)
{
    const fs::path folder = device / name;
    fs::create_directories(folder);
    Put(folder / "bInterfaceNumber", Hex(setting.bInterfaceNumber, 2));
    Put(folder / "bInterfaceClass", Hex(setting.bInterfaceClass, 2));
    Put(folder / "bInterfaceSubClass", Hex(setting.bInterfaceSubClass, 2));
    Put(folder / "bInterfaceProtocol", Hex(setting.bInterfaceProtocol, 2));
    if (!driver.empty()) {
        fs::create_directories(root / "bus/usb/drivers" / driver);
        fs::create_directory_symlink(fs::path("../../../drivers") / driver, folder / "driver");
    }
    fs::create_directory_symlink(device.filename() / name, device.parent_path() / name);
}

void WriteDevice(const fs::path& root, Attachment& attachment)
{
    const std::string name = std::to_string(attachment.bus) + "-" + PortPath(attachment);
    const fs::path folder = root / "bus/usb/devices" / name;
    fs::create_directories(folder);
    const vcam::UsbDescriptors& descriptors = attachment.device->Descriptors();
    libusb_device_descriptor device{};
    ParseDevice(descriptors.Device(), device);
    Put(folder / "idVendor", Hex(device.idVendor, 4));
    Put(folder / "idProduct", Hex(device.idProduct, 4));
    Put(folder / "busnum", std::to_string(attachment.bus));
    Put(folder / "devnum", std::to_string(attachment.address));
    Put(folder / "devpath", PortPath(attachment));
    Put(folder / "speed", SpeedText(descriptors.Speed()));
    PutText(folder / "manufacturer", descriptors.Text(device.iManufacturer));
    PutText(folder / "product", descriptors.Text(device.iProduct));
    PutText(folder / "serial", descriptors.Text(device.iSerialNumber));
    const libusb_config_descriptor* config = attachment.configuration.Config();
    Put(folder / "bNumInterfaces", std::to_string(config->bNumInterfaces));
    for (int i = 0; i < config->bNumInterfaces; ++i) {
        const libusb_interface_descriptor& setting = config->interface[i].altsetting[0];
        const int number = setting.bInterfaceNumber;
        WriteInterface(root, folder, name + ":1." + std::to_string(number), setting,
                       DriverOf(attachment, number));
    }
}

} // namespace

bool WriteSysfs(const std::string& folder, std::string& error)
{
    if (folder.empty()) {
        error = "no folder";
        return false;
    }
    try {
        const BusLock lock = Bus().Guard();
        Bus().Tick();
        const fs::path root(folder);
        fs::remove_all(root / "bus/usb");
        fs::create_directories(root / "bus/usb/devices");
        fs::create_directories(root / "module/usbcore/parameters");
        Put(root / "module/usbcore/parameters/usbfs_memory_mb",
            std::to_string(Bus().KernelMemoryLimit() >> 20));
        for (int id = 0; const Slot* slot = Bus().FindSlot(id); ++id) {
            if (slot->present) {
                WriteDevice(root, *slot->present);
            }
        }
        return true;
    } catch (const fs::filesystem_error& failure) {
        error = failure.what();
        return false;
    }
}

} // namespace vbus
