#include "tool_usb_tree.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <fstream>
#include <unistd.h>

#include "tool_console.h"

namespace fs = std::filesystem;

namespace {

// First line of a small file; empty when it cannot be read.
std::string Line(const fs::path& path)
{
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    return line;
}

unsigned long Number(const std::string& text, unsigned long otherwise = 0)
{
    unsigned long value = otherwise;
    std::from_chars(text.data(), text.data() + text.size(), value);
    return value;
}

// Sorted; empty for a folder that is not there or may not be read, as /proc/<pid>/fd of other
// users.
std::vector<fs::path> Entries(const fs::path& folder)
{
    std::error_code error;
    std::vector<fs::path> entries;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error)) {
        entries.push_back(entry->path());
    }
    std::sort(entries.begin(), entries.end());
    return entries;
}

// Class and subclass of the standard's three interfaces: control, event, stream.
bool IsUsb3Vision(const fs::path& interface)
{
    return Line(interface / "bInterfaceClass") == "ef" &&
           Line(interface / "bInterfaceSubClass") == "05";
}

// A free interface has no link "driver".
UsbCamera::Interface InterfaceOf(const fs::path& path)
{
    std::error_code error;
    const fs::path driver = fs::read_symlink(path / "driver", error);
    return {path.filename().string(), error ? "" : driver.filename().string()};
}

UsbCamera CameraOf(const fs::path& device)
{
    UsbCamera camera;
    camera.name = device.filename().string();
    camera.vendorId = Line(device / "idVendor");
    camera.productId = Line(device / "idProduct");
    camera.manufacturer = Line(device / "manufacturer");
    camera.product = Line(device / "product");
    camera.serial = Line(device / "serial");
    camera.speed = static_cast<unsigned>(Number(Line(device / "speed")));
    camera.node = Format("/dev/bus/usb/%03lu/%03lu", Number(Line(device / "busnum")),
                         Number(Line(device / "devnum")));
    return camera;
}

// A rule of ours, or anybody's that names the class triple of cameras or their interfaces.
bool IsCameraRule(const std::string& rules)
{
    const bool grants =
        rules.find("uaccess") != std::string::npos || rules.find("MODE") != std::string::npos;
    const bool names = rules.find("ATTR{bDeviceClass}==\"ef\"") != std::string::npos ||
                       rules.find("ef0500") != std::string::npos ||
                       rules.find("ef/5/") != std::string::npos ||
                       rules.find("ef05") != std::string::npos;
    return grants && names;
}

// The rules of a file without its comments: what is commented out grants nothing.
std::string RulesOf(const fs::path& path)
{
    std::ifstream file(path);
    std::string rules;
    for (std::string line; std::getline(file, line);) {
        if (!line.starts_with('#')) {
            rules += line + "\n";
        }
    }
    return rules;
}

} // namespace

UsbTree::UsbTree(fs::path root, std::function<bool(const fs::path&)> canOpen)
    : m_root(std::move(root)), m_canOpen(std::move(canOpen))
{
    if (!m_canOpen) {
        m_canOpen = [](const fs::path& path) { return access(path.c_str(), R_OK | W_OK) == 0; };
    }
}

fs::path UsbTree::_below(const fs::path& absolute) const
{
    return m_root / absolute.relative_path();
}

bool UsbTree::IsThere() const
{
    std::error_code ignored;
    return fs::is_directory(_below("/sys/bus/usb/devices"), ignored);
}

std::vector<UsbCamera> UsbTree::Cameras() const
{
    std::vector<UsbCamera> cameras;
    const std::vector<fs::path> entries = Entries(_below("/sys/bus/usb/devices"));
    for (const fs::path& device : entries) {
        const std::string prefix = device.filename().string() + ":";
        UsbCamera camera;
        for (const fs::path& entry : entries) {
            // Interfaces stand beside their device: "2-1" and "2-1:1.0".
            if (entry.filename().string().starts_with(prefix) && IsUsb3Vision(entry)) {
                camera.interfaces.push_back(InterfaceOf(entry));
            }
        }
        if (!camera.interfaces.empty()) {
            auto interfaces = std::move(camera.interfaces);
            camera = CameraOf(device);
            camera.interfaces = std::move(interfaces);
            cameras.push_back(std::move(camera));
        }
    }
    return cameras;
}

bool UsbTree::Exists(const fs::path& node) const
{
    std::error_code ignored;
    return fs::exists(_below(node), ignored);
}

bool UsbTree::MayOpen(const fs::path& node) const
{
    return m_canOpen(_below(node));
}

// This very process is not somebody else.
std::vector<Holder> UsbTree::Holders(const fs::path& node) const
{
    std::vector<Holder> holders;
    for (const fs::path& process : Entries(_below("/proc"))) {
        const auto pid = static_cast<long>(Number(process.filename().string()));
        if (pid == 0 || pid == getpid()) {
            continue;
        }
        for (const fs::path& descriptor : Entries(process / "fd")) {
            std::error_code ignored;
            if (fs::read_symlink(descriptor, ignored) == node) {
                holders.push_back({pid, Line(process / "comm")});
                break;
            }
        }
    }
    return holders;
}

std::optional<unsigned long> UsbTree::UsbfsMemory() const
{
    const std::string text = Line(_below("/sys/module/usbcore/parameters/usbfs_memory_mb"));
    return text.empty() ? std::nullopt : std::optional(Number(text));
}

std::string UsbTree::RuleFile() const
{
    // In the order of precedence: the first of a name hides the others.
    for (const char* const folder :
         {"/etc/udev/rules.d", "/run/udev/rules.d", "/usr/local/lib/udev/rules.d",
          "/usr/lib/udev/rules.d", "/lib/udev/rules.d"}) {
        for (const fs::path& file : Entries(_below(folder))) {
            if (file.extension() == ".rules" && IsCameraRule(RulesOf(file))) {
                return (fs::path(folder) / file.filename()).string();
            }
        }
    }
    return {};
}
