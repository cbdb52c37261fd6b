#pragma once

#include <functional>
#include <vector>

#include "camera_info.h"
#include "feature.h"
#include "info.h"

namespace standard_tl {

// What is told of a camera, listed or open.
struct DeviceFacts
{
    u3v_host::CameraInfo info;
    u3v_host::AccessStatus access;
};

// The commands of DEVICE_INFO_CMD_LIST.
GC_ERROR DeviceInfo(DeviceFacts facts, int32_t command, const InfoOut& out);

// The same as features, asked for at each access.
std::vector<Feature> DeviceFeatures(const char* category, std::function<DeviceFacts()> facts);

} // namespace standard_tl
