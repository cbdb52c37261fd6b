#pragma once

#include <string>

#include "scratch_folder.h"
#include "tool_usb_tree.h"

// A folder that looks like the root of a machine with a USB bus.
class UsbMachine
{
public:
    UsbMachine() { std::filesystem::create_directories(m_folder.Path() / "sys/bus/usb/devices"); }

    const ScratchFolder& Folder() const { return m_folder; }
    UsbTree Tree(bool canOpen = true) const
    {
        return UsbTree(m_folder.Path(), [canOpen](const auto&) { return canOpen; });
    }

    void AddCamera(const std::string& name = "2-1", const std::string& speed = "5000") const
    {
        _device(name, {{"idVendor", "1209"},
                       {"idProduct", "0001"},
                       {"manufacturer", "ZRK-ORVANE GmbH"},
                       {"product", "Virtual U3V"},
                       {"serial", "CAM1"},
                       {"speed", speed},
                       {"busnum", "2"},
                       {"devnum", "3"}});
        _interface(name + ":1.0", "ef", "05", "00");
        _interface(name + ":1.1", "ef", "05", "02");
        m_folder.Write("/dev/bus/usb/002/003", "");
    }
    void AddMouse() const
    {
        _device("1-2", {{"idVendor", "046d"}, {"speed", "12"}, {"busnum", "1"}, {"devnum", "2"}});
        _interface("1-2:1.0", "03", "01", "02");
    }
    void Bind(const std::string& interface, const std::string& driver) const
    {
        m_folder.Link("/sys/bus/usb/devices/" + interface + "/driver",
                      "../../../../bus/usb/drivers/" + driver);
    }
    void AddProcess(long pid, const std::string& command, const std::string& open) const
    {
        const std::string process = "/proc/" + std::to_string(pid);
        m_folder.Write(process + "/comm", command + "\n");
        m_folder.Link(process + "/fd/7", open);
    }
    void AddRule() const
    {
        m_folder.Write("/usr/lib/udev/rules.d/70-zr-u3v.rules",
                       "SUBSYSTEM==\"usb\", ATTR{bDeviceClass}==\"ef\", TAG+=\"uaccess\"\n");
    }
    void SetMemory(const std::string& text) const
    {
        m_folder.Write("/sys/module/usbcore/parameters/usbfs_memory_mb", text);
    }
    void RemoveNode() const { std::filesystem::remove(m_folder.Path() / "dev/bus/usb/002/003"); }

private:
    void _device(const std::string& name,
                 const std::vector<std::pair<std::string, std::string>>& attributes) const
    {
        for (const auto& [attribute, value] : attributes) {
            m_folder.Write("/sys/bus/usb/devices/" + name + "/" + attribute, value + "\n");
        }
    }
    void _interface(const std::string& name, const char* kind, const char* subclass,
                    const char* protocol) const
    {
        _device(name, {{"bInterfaceClass", kind},
                       {"bInterfaceSubClass", subclass},
                       {"bInterfaceProtocol", protocol}});
    }

    ScratchFolder m_folder;
};
