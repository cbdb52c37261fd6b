#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "tool_description.h"
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
    std::string remedy; // the command that fixes it; empty when there is nothing to fix
};

using Findings = std::vector<Finding>;

// "ok", "skipped", "warning" or "problem".
const char* LevelName(Finding::Level level);

// Pure judgements over what system, producer and camera tell: nothing is opened or changed, nothing
// thrown. Every finding that is not good carries its remedy.

// The bus, the udev rule, and of each camera its permissions, kernel drivers, holders and speed.
// `program` is how this program is called, for the remedy that installs the rule.
Findings JudgeUsb(const UsbTree& usb, const std::string& program);
// The kernel's limit for USB transfers in MiB (0: none) against the cameras' images, in bytes each.
Findings JudgeMemory(std::optional<unsigned long> limit_mb, const std::vector<uint64_t>& payloads);
// Whether applications, which know of `variable` only (its value is `list`, null when it is not
// set), find the producer too.
Finding JudgeEnvironment(const char* variable, const char* list,
                         const std::filesystem::path& producer);
// How many cameras the bus has against how many the producer lists; the exact one leaves some out.
Findings JudgeListed(size_t onBus, size_t listed, bool isExact);
// The camera's own description file: that it is what it says it is, and can be unpacked.
Finding JudgeDescription(const std::string& camera, const Description& description);
// The speed that the camera itself reports.
Finding JudgeCameraSpeed(const std::string& camera, const StreamNeeds& needs);
// Sizes and alignment, with what the producer's stream channel cannot serve of them (CheckStream
// for the exact one; nothing for one that goes by the packets' own marks).
Findings JudgeStream(const std::string& camera, const StreamNeeds& needs,
                     const std::vector<StreamProblem>& problems);
