#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tool_stream_check.h"
#include "tool_usb_tree.h"

// What doctor has to say about one thing it has looked at.
struct Finding
{
    enum class Level
    {
        Good,
        Skipped, // could not be looked at here
        Warning, // works, but not for everybody or not always
        Problem,
    };

    Level level;
    std::string check;  // "permissions", "driver", ...: a stable word for scripts
    std::string camera; // which one, if it is about one
    std::string text;
    std::string remedy; // the command that mends it; empty when there is nothing to mend
};

const char* LevelName(Finding::Level level);

// Pure judgements over what the system tells; each finding carries its remedy.
std::vector<Finding> JudgeUsb(const UsbTree& usb);
std::vector<Finding> JudgeMemory(std::optional<unsigned long> limit_mb,
                                 const std::vector<uint64_t>& payloads);
std::vector<Finding> JudgeStream(const std::string& camera, const StreamNeeds& needs);
// How many cameras the bus has against how many the producer lists.
std::vector<Finding> JudgeListed(size_t onBus, size_t listed);
