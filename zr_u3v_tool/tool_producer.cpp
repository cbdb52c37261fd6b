#include "tool_producer.h"

#include <cstdlib>
#include <sstream>
#include <vector>

#include "tool_error.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* kProducerFile = "zr_u3v_tl.cti";

// GENICAM_GENTL64_PATH names folders, and some put the file itself there.
std::vector<fs::path> Candidates(const std::string& wanted)
{
    if (!wanted.empty()) {
        return {wanted};
    }
    std::vector<fs::path> places;
    if (const char* const path = std::getenv("GENICAM_GENTL64_PATH"); path != nullptr) {
        std::istringstream list(path);
        for (std::string place; std::getline(list, place, ':');) {
            if (!place.empty()) {
                places.emplace_back(place);
            }
        }
    }
    // The build tree, then an installation.
    const fs::path here = ProgramFolder();
    places.push_back(here);
    places.push_back(here / "../lib");
    places.push_back(here / ZR_TOOL_PRODUCER_FOLDER);
    return places;
}

fs::path FindProducer(const std::string& wanted)
{
    std::string looked;
    for (const fs::path& place : Candidates(wanted)) {
        std::error_code ignored;
        const bool isFolder = fs::is_directory(place, ignored);
        const bool isOurs = !wanted.empty() || isFolder || place.filename() == kProducerFile;
        const fs::path file = (isFolder ? place / kProducerFile : place).lexically_normal();
        if (isOurs && fs::exists(file, ignored)) {
            return fs::absolute(file, ignored);
        }
        looked += "\n  " + file.string();
    }
    throw ToolError(ExitCode::NoProducer,
                    "no producer found (give --cti or set GENICAM_GENTL64_PATH); looked at:" +
                        looked);
}

} // namespace

// Where the program really is, whatever link it was started by.
fs::path ProgramFolder()
{
    std::error_code ignored;
    return fs::read_symlink("/proc/self/exe", ignored).parent_path();
}

std::string ProgramCommand()
{
    std::error_code ignored;
    const fs::path program = fs::read_symlink("/proc/self/exe", ignored);
    const char* const path = std::getenv("PATH");
    std::istringstream folders(path == nullptr ? "" : path);
    for (std::string folder; std::getline(folders, folder, ':');) {
        // The first of this name is what the shell takes.
        const fs::path candidate = fs::path(folder) / program.filename();
        if (!folder.empty() && fs::exists(candidate, ignored)) {
            if (fs::equivalent(candidate, program, ignored)) {
                return program.filename().string();
            }
            break;
        }
    }
    std::string quoted = "'";
    for (const char character : program.string()) {
        quoted += character == '\'' ? std::string("'\\''") : std::string(1, character);
    }
    return quoted + "'";
}

Producer LoadProducer(const std::string& wanted)
{
    try {
        return Producer(FindProducer(wanted));
    } catch (const consumer::LoadError& error) {
        throw ToolError(ExitCode::NoProducer, error.what());
    }
}
