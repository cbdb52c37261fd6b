#pragma once

#include "tool_options.h"

// Runs this program again on the virtual USB bus: with the folder of its libusb-1.0.so.0 in front
// of the loader's path and the cameras' options in the environment. Comes back when the process is
// the second one already; throws ToolError when the bus is not installed.
void EnterVirtualBus(const Options& options, char** arguments);
