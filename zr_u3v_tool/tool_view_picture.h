#pragma once

#include <string>

#include "tool_painter.h"

// What view tells beside the image.
struct ViewState
{
    std::string camera; // its name
    std::string format; // of the pixels
    double rate = 0;    // images per second
    uint64_t frameId = 0;
    uint64_t lost = 0;
    bool showOverlay = true;
    bool isPaused = false;
};

// The image with a line about it on top and its histogram in the lower right corner. Small images
// are enlarged so that both have room.
Picture ComposeView(const Raster& image, const ViewState& state);

// The image as text for a terminal that knows 24-bit colour: each character holds two pixels, one
// above the other. At most `columns` wide and `rows` high, with the image's proportions.
std::string TerminalPicture(const Raster& image, unsigned columns, unsigned rows);
