#pragma once

#include <filesystem>
#include <string>

#include "tool_consumer.h"

// Loads the producer: `wanted` (a file, or a folder that holds one) if not empty, else the first
// zr_u3v_tl.cti in the folders of GENICAM_GENTL64_PATH, else beside this program (../lib and the
// installed library folder). Throws ToolError (NoProducer), with every place that was looked at
// when there is none, and GenTLError.
Producer LoadProducer(const std::string& wanted);

// The folder of this program.
std::filesystem::path ProgramFolder();
// What a shell calls this program by: its name where the PATH leads to it, else its quoted path.
std::string ProgramCommand();
