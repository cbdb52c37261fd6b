#pragma once

#include <filesystem>
#include <string>

#include "tool_consumer.h"
#include "tool_options.h"

// Loads the producer: the file that the options name, or the one in the folder that they name; else
// the standard one, or the exact one where the options say so, from the folders of
// GENICAM_GENTL64_PATH (of the exact one also ZR_U3V_EXACT_PATH), else from beside this program
// (../lib and the installed folder). Throws ToolError (NoProducer), with every place that was
// looked at when there is none, and GenTLError.
Producer LoadProducer(const Options& options);
// Whether it is the exact one, whatever its file is called: what it serves has limits of its own.
bool IsExactProducer(const Producer& producer);

// The folder of this program.
std::filesystem::path ProgramFolder();
// What a shell calls this program by: its name where the PATH leads to it, else its quoted path.
std::string ProgramCommand();
