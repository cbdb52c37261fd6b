#pragma once

#include <string>

#include "tool_acquisition.h"
#include "tool_doctor.h"

// What came of the attempt to take an image.
struct ImageTrial
{
    std::string failure; // of a call or of the image's form; empty when nothing failed
    bool lacksMemory = false;
    bool hasStart = false;   // the camera has AcquisitionStart
    std::string trigger;     // the source of the trigger that the camera waits for, or empty
    uint64_t waited_ms = 0;  // at most; for the first image
    uint64_t came = 0;       // images, damaged ones among them
    uint64_t incomplete = 0; // of these
    uint64_t lost = 0;       // as the stream counts them
    std::string form;        // of a whole image: "640x480 Mono8"
};

// Starts the camera, takes up to three images and stops it. Throws ToolError and GenTLError where
// not even the stream opens.
ImageTrial TryImages(const Camera& camera, const StreamNeeds& needs, uint64_t timeout_ms);

// Pure: what it means.
Finding JudgeImages(const std::string& camera, const ImageTrial& trial);
