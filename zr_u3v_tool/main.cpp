// zr-u3v: a command-line tool for USB3 Vision cameras. It knows the producer by its exported GenTL
// functions only, like any other application.

#include <clocale>
#include <cstdio>
#include <new>
#include <optional>

#include "tool_acquisition.h"
#include "tool_command_line.h"
#include "tool_commands.h"
#include "tool_virtual_bus.h"

namespace {

using Command = ExitCode (*)(const Options&, Console&);

// The one list of commands; their options are in tool_command_line.cpp.
struct CommandEntry
{
    const char* name;
    Command run;
};

constexpr CommandEntry kCommands[] = {
    {"list", RunList},         {"info", RunInfo}, {"xml", RunXml},   {"read", RunRead},
    {"write", RunWrite},       {"get", RunGet},   {"set", RunSet},   {"exec", RunExec},
    {"features", RunFeatures}, {"grab", RunGrab}, {"view", RunView}, {"bench", RunBench},
    {"doctor", RunDoctor},
};

// On the virtual bus this begins anew in a second process, which then comes through here again.
ExitCode Run(const Options& options, char** arguments)
{
    EnterVirtualBus(options, arguments);
    WatchInterrupts();
    Console console(options.verbose);
    for (const CommandEntry& command : kCommands) {
        if (options.command == command.name) {
            const ExitCode code = command.run(options, console);
            console.Flush();
            return code;
        }
    }
    return ExitCode::Usage;
}

ExitCode Fail(ExitCode code, const std::string& text)
{
    Complain(text);
    return code;
}

// No exception leaves the program: whatever it was has a message and an exit code.
ExitCode Guarded(const Options& options, char** arguments)
{
    try {
        return Run(options, arguments);
    } catch (const ToolError& error) {
        return Fail(error.Code(), error.what());
    } catch (const std::bad_alloc&) {
        return Fail(ExitCode::Failure, "out of memory");
    } catch (const std::exception& error) {
        return Fail(ExitCode::Failure, error.what());
    }
}

} // namespace

int main(int count, char** arguments)
{
    const CommandLine line = ParseCommandLine(count, arguments);
    ExitCode code = line.code;
    if (line.options) {
        code = Guarded(*line.options, arguments);
    } else if (code == ExitCode::Success) {
        std::fputs(line.text.c_str(), stdout);
    } else {
        Complain(line.text + "\nRun zr-u3v --help for more.");
    }
    return static_cast<int>(code);
}
