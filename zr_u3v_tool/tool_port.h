#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tool_consumer.h"
#include "tool_options.h"

// The modules whose ports can be named: the camera itself and the four of the producer.
const std::vector<std::string>& PortNames();

// Opens what the port of that name needs, calls `use` with its handle, and closes again.
// `access` is how a camera is opened. Throws ToolError, also for an unknown name.
void WithPort(const Options& options, const std::string& name, DEVICE_ACCESS_FLAGS access,
              const std::function<void(const Producer&, PORT_HANDLE)>& use);
// The same for all of them, in the order of PortNames(), with their name.
void WithEachPort(const Options& options,
                  const std::function<void(const Producer&, PORT_HANDLE, const std::string&)>& use);
