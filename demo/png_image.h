#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// Writes an image as PNG. Served are Mono8 and RGB8, as their PFNC codes name them; anything else
// throws, as does a file that cannot be written.
void WritePng(const std::string& path, const uint8_t* pixels, size_t width, size_t height,
              uint64_t pixelFormat);
