#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "tool_raster.h"

// A pixel format of the PFNC: how samples lie in memory and what they mean.
struct PixelFormat
{
    enum class Layout
    {
        Bytes8,      // one byte a sample
        Words16,     // two bytes a sample, little-endian, unused bits zero
        PackedLsb,   // "p": bits follow each other from the least significant on, across rows
        Packed12Gev, // "Packed": three bytes hold two samples, high bits first
        Yuyv,        // four bytes hold two pixels
        Uyvy,
    };
    enum class Meaning
    {
        Grey,
        Rgb,
        Bgr,
        BayerGr, // by the colours of the first two pixels of the first row
        BayerRg,
        BayerGb,
        BayerBg,
        Yuv,
    };

    const char* name;
    uint32_t code;
    Layout layout;
    Meaning meaning;
    unsigned bits; // significant, a sample

    // The standard's codes carry the bits a pixel takes in memory.
    unsigned BitsPerPixel() const { return (code >> 16U) & 0xFFU; }
    bool IsBayer() const { return meaning >= Meaning::BayerGr && meaning <= Meaning::BayerBg; }
};

std::span<const PixelFormat> PixelFormats();
const PixelFormat* FindPixelFormat(uint64_t code);
// "Mono8", or "0x01080099" for a code that is not known here.
std::string PixelFormatName(uint64_t code);

// An image as it came out of a buffer: dimensions are the camera's word and are not trusted.
struct RawImage
{
    std::span<const uint8_t> bytes;
    uint64_t width = 0;
    uint64_t height = 0;
    uint64_t pixelFormat = 0;
};

// Bytes that the pixels take; 0 when the dimensions are absurd or the format is not known.
size_t ImageBytes(const RawImage& image);
// Throws ToolError for a format that is not served here or an image larger than its bytes.
Raster Decode(const RawImage& image, bool demosaic);
