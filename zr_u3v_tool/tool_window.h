#pragma once

#include <memory>
#include <string>

#include "tool_painter.h"

// A window that shows pictures. Used by the main thread only.
class Window
{
public:
    // What the user has asked for since the last call.
    struct Wishes
    {
        bool quit = false;
        bool pause = false;   // space
        bool overlay = false; // h
        bool save = false;    // s
    };

    // Null when there is no display to show a window on, or this build has no windows; `reason`
    // tells then.
    static std::unique_ptr<Window> Open(const std::string& title, size_t width, size_t height,
                                        std::string& reason);
    virtual ~Window() = default;

    virtual void Show(const Picture& picture) = 0;
    virtual Wishes Poll() = 0;
};
