#pragma once

#include <csignal>
#include <cstdint>
#include <optional>

#include "tool_consumer.h"
#include "tool_pixel_format.h"

// What the camera says about its streaming interface (its own bootstrap registers).
struct StreamNeeds
{
    uint64_t payload = 0; // bytes of one image
    uint32_t leader = 0;
    uint32_t trailer = 0;
    unsigned alignmentExponent = 0; // sizes are multiples of 2 to this power
    uint32_t speed = 0;             // 4 high speed, 8 SuperSpeed, 16 SuperSpeedPlus
};

// Throws GenTLError when a register cannot be read, ToolError when the camera has no stream.
StreamNeeds ReadStreamNeeds(const Camera& camera);

// Nanoseconds to add to a time stamp of the camera to have the host's steady clock; nothing for a
// camera that cannot latch its clock. Wrong by at most half the round trip of the best of several.
struct ClockOffset
{
    int64_t nanoseconds = 0;
    int64_t uncertainty = 0;
};
std::optional<ClockOffset> MeasureClockOffset(const Camera& camera);

// Bytes of a buffer for the camera's images. Throws ToolError for a size that no camera has.
size_t BufferSize(const StreamNeeds& needs);

// The next image, or nothing after `timeout_ms`. Returns early when the user has asked to stop.
std::optional<Image> NextImage(const Acquisition& acquisition, uint64_t timeout_ms);

// The image for decoders and writers; its bytes are still the buffer's.
RawImage RawOf(const Image& image);

// Set by the first interrupt (Ctrl-C); a second one ends the program at once.
extern volatile std::sig_atomic_t g_isInterrupted;
void WatchInterrupts();
