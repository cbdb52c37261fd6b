// The events that the camera can send by itself.
#ifndef VCAM_CAMERA_EVENTS_H
#define VCAM_CAMERA_EVENTS_H

#include <cstdint>

namespace vcam {

enum class CameraEvent : std::uint32_t
{
    ExposureStart,
    ExposureEnd,
};

struct EventName
{
    const char* name;
    std::uint16_t id; // on the wire
};

// In the order of the enumeration. The data of each is the block id of its image (8 bytes).
constexpr EventName kEvents[] = {{"ExposureStart", 0x9000}, {"ExposureEnd", 0x9001}};
constexpr std::uint32_t kEventCount = 2;

// What a write to the test control register sends: as long as an event may be.
constexpr EventName kTestEvent{"Test", 0x4FFF};

} // namespace vcam

#endif
