// The options of zr_u3v_camera.
#ifndef VCAM_COMMAND_LINE_H
#define VCAM_COMMAND_LINE_H

#include <cstdint>
#include <string>
#include <vector>

#include "camera_config.h"

namespace vcam {

struct CommandLine
{
    enum class Mode
    {
        None,
        Attach,
        Listen,
        Help
    };

    Mode mode = Mode::None;
    std::string address = "127.0.0.1"; // loopback unless told otherwise
    std::uint16_t port = 3240;
    bool quiet = false;
    std::vector<CameraConfig> cameras;

    // Returns what is wrong, or nothing.
    std::string Parse(const std::vector<std::string>& arguments);
    static std::string Help();
};

} // namespace vcam

#endif
