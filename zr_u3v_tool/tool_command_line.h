#pragma once

#include <optional>
#include <string>

#include "tool_error.h"
#include "tool_options.h"

// Reads the command line. Without options to run there is something to print instead (help,
// version or what was wrong) and an exit code.
struct CommandLine
{
    std::optional<Options> options;
    std::string text;
    ExitCode code = ExitCode::Success;
};

CommandLine ParseCommandLine(int count, const char* const* arguments);
