#pragma once

#include <chrono>

namespace u3v_host {

// How long a camera may keep us waiting on the control channel, and how often.
struct ControlLimits
{
    std::chrono::milliseconds defaultTime{
        3000}; // until the camera names its own, and when that is 0
    std::chrono::milliseconds maximumTime{60000}; // what the camera's own is cut to
    std::chrono::milliseconds pendingTime{60000}; // of all pending acknowledges of one command
    unsigned pendingRounds = 1000;
    unsigned otherPackets = 16; // read away for one command
    unsigned readAttempts = 3;
    std::chrono::milliseconds drainTime{20}; // for what an earlier process has left
};

// How long a camera may take for one of the strings that tell who it is. Ten times what a slow one
// needs.
inline constexpr std::chrono::milliseconds kStringTime{500};

} // namespace u3v_host
