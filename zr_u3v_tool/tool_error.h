#pragma once

#include <stdexcept>
#include <string>

// What the program returns to the shell; part of its interface (zr-u3v(1) lists them).
enum class ExitCode
{
    Success = 0,
    Failure = 1,    // a GenTL call, a file or a library failed
    Usage = 2,      // the command line was wrong
    NoCamera = 3,   // no camera, or none (or more than one) that the selection fits
    NoProducer = 4, // the producer was not found or could not be loaded
    Images = 5,     // fewer images than asked for, or damaged ones
    Problems = 6,   // doctor has found a problem
    Interrupted = 130,
};

// Ends a command: a text for standard error and the exit code that goes with it.
class ToolError : public std::runtime_error
{
public:
    ToolError(ExitCode code, const std::string& text) : std::runtime_error(text), m_code(code) {}

    ExitCode Code() const { return m_code; }

private:
    ExitCode m_code;
};
