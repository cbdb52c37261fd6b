#pragma once

// Events of every type, and records for them.

#include <cstdint>
#include <memory>
#include <vector>

#include "zr_gentl_event.h"

struct Destroyer
{
    void operator()(ZrGenTLEvent* event) const { ZrGenTLEvent::Destroy(event); }
};
using EventPtr = std::unique_ptr<ZrGenTLEvent, Destroyer>;

inline EventPtr Make(int32_t type)
{
    return EventPtr(ZrGenTLEvent::Create(type));
}

// A record of `size` bytes, all different from each other and from zero.
inline std::vector<uint8_t> Pattern(size_t size)
{
    std::vector<uint8_t> bytes(size);
    for (size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<uint8_t>(i % 251 + 1);
    }
    return bytes;
}

struct ClassRow
{
    int32_t type;
    size_t sizeMax;
    size_t infoMax;
};
inline constexpr ClassRow kClasses[] = {{0, 1028, 1024}, {1, 16, 8},       {4, 546, 540},
                                        {5, 1032, 1024}, {4000, 260, 256}, {5000, 32, 28}};
