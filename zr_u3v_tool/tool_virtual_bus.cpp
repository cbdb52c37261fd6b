#include "tool_virtual_bus.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <unistd.h>
#include <vector>

#include "tool_console.h"
#include "tool_error.h"
#include "tool_producer.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* kLibrary = "libusb-1.0.so.0";
// Marks the second process, so that a missing bus cannot make an endless chain.
constexpr const char* kMark = "ZR_U3V_ON_VIRTUAL_BUS";
constexpr const char* kCameras = "ZR_VIRTUAL_CAMERAS";
constexpr const char* kDefaultCamera = "width=640,height=480,format=RGB8,pattern=scene,fps=25";

// The build tree has it beside the program's folder, an installation below the library folder.
fs::path BusFolder()
{
    const fs::path here = ProgramFolder();
    std::vector<fs::path> places{here / "../virtual_usb", here / ZR_TOOL_VIRTUAL_BUS_FOLDER};
    if (const char* const folder = std::getenv("ZR_VIRTUAL_USB"); folder != nullptr) {
        places = {folder};
    }
    std::string looked;
    for (const fs::path& place : places) {
        fs::path folder = place.lexically_normal();
        std::error_code ignored;
        if (fs::exists(folder / kLibrary, ignored)) {
            return folder;
        }
        looked += (looked.empty() ? "" : ", ") + folder.string();
    }
    throw ToolError(ExitCode::Failure, "no virtual USB bus in " + looked +
                                           " (set ZR_VIRTUAL_USB to the folder with its " +
                                           kLibrary + ")");
}

// In the form in which the bus reads them from the environment.
std::string CameraOptions(const Options& options)
{
    std::string cameras;
    for (const std::string& camera : options.virtualCameras) {
        // No options are a camera with the defaults; the bus takes an empty text for no camera.
        cameras += (cameras.empty() ? "" : ";") + (camera.empty() ? "count=1" : camera);
    }
    return cameras;
}

} // namespace

// The loader decides for a library before main runs: so the program starts itself once more, with
// the virtual bus in front of libusb.
void EnterVirtualBus(const Options& options, char** arguments)
{
    if (!options.isVirtual || std::getenv(kMark) != nullptr) {
        return;
    }
    const fs::path folder = BusFolder();
    const char* const before = std::getenv("LD_LIBRARY_PATH");
    const std::string path =
        folder.string() + (before == nullptr || *before == '\0' ? "" : ":" + std::string(before));
    setenv("LD_LIBRARY_PATH", path.c_str(), 1);
    if (!options.virtualCameras.empty()) {
        setenv(kCameras, CameraOptions(options).c_str(), 1);
    } else {
        setenv(kCameras, kDefaultCamera, 0);
    }
    setenv(kMark, "1", 1);
    // The name a link in /proc points to would be lost with it, so the real one.
    const std::string program = fs::read_symlink("/proc/self/exe").string();
    execv(program.c_str(), arguments);
    throw ToolError(ExitCode::Failure,
                    "cannot start " + program + " again: " + std::strerror(errno));
}
