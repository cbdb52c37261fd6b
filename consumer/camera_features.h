#pragma once

#include <cstdint>

// Where a camera of ours, the simulated one included, keeps the features that programs of this
// project use by address. Each is a register of 32 bits; another maker's camera has them elsewhere.
namespace camera_features {

inline constexpr uint64_t kWidth = 0x50000;
inline constexpr uint64_t kPayloadSize = 0x5000C;
inline constexpr uint64_t kAcquisition = 0x50014; // 1 starts it, 0 stops it
inline constexpr uint64_t kTriggerMode = 0x501EC; // 1: an image for each trigger, 0: at its rate
inline constexpr uint64_t kTriggerSoftware = 0x501F4; // a write of 1 is a trigger

} // namespace camera_features
