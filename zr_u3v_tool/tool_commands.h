#pragma once

#include "tool_console.h"
#include "tool_error.h"
#include "tool_options.h"

// The commands: each opens what it needs, prints to `console`, and closes again. Failures are
// thrown as ToolError; what comes back is Success or a result that is worth an exit code.
ExitCode RunList(const Options& options, Console& console);
ExitCode RunInfo(const Options& options, Console& console);
ExitCode RunXml(const Options& options, Console& console);
ExitCode RunRead(const Options& options, Console& console);
ExitCode RunWrite(const Options& options, Console& console);
ExitCode RunFeatures(const Options& options, Console& console);
ExitCode RunGet(const Options& options, Console& console);
ExitCode RunSet(const Options& options, Console& console);
ExitCode RunExec(const Options& options, Console& console);
ExitCode RunGrab(const Options& options, Console& console);
ExitCode RunView(const Options& options, Console& console);
ExitCode RunBench(const Options& options, Console& console);
ExitCode RunDoctor(const Options& options, Console& console);
