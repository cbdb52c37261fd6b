#include "tool_producer.h"

#include <cstdlib>
#include <sstream>
#include <vector>

#include "tool_error.h"

namespace fs = std::filesystem;

namespace {

struct Kind
{
    const char* file;
    const char* installedFolder;
    std::vector<const char*> variables; // colon-separated lists of folders; some put a file there
};

const Kind& KindOf(const Options& options)
{
    static const Kind standard{
        "zr_u3v_standard.cti", ZR_TOOL_PRODUCER_FOLDER, {"GENICAM_GENTL64_PATH"}};
    static const Kind exact{
        "zr_u3v_tl.cti", ZR_TOOL_EXACT_FOLDER, {"GENICAM_GENTL64_PATH", "ZR_U3V_EXACT_PATH"}};
    return options.exact ? exact : standard;
}

void AddPlaces(const char* list, std::vector<fs::path>& places)
{
    std::istringstream folders(list == nullptr ? "" : list);
    for (std::string place; std::getline(folders, place, ':');) {
        if (!place.empty()) {
            places.emplace_back(place);
        }
    }
}

std::vector<fs::path> Candidates(const std::string& wanted, const Kind& kind)
{
    if (!wanted.empty()) {
        return {wanted};
    }
    std::vector<fs::path> places;
    for (const char* const variable : kind.variables) {
        AddPlaces(std::getenv(variable), places);
    }
    // The build tree, then an installation.
    const fs::path here = ProgramFolder();
    places.push_back(here);
    places.push_back(here / "../lib");
    places.push_back(here / kind.installedFolder);
    return places;
}

fs::path FindProducer(const Options& options)
{
    const Kind& kind = KindOf(options);
    std::string looked;
    for (const fs::path& place : Candidates(options.producer, kind)) {
        std::error_code ignored;
        const bool isFolder = fs::is_directory(place, ignored);
        const bool isOurs = !options.producer.empty() || isFolder || place.filename() == kind.file;
        const fs::path file = (isFolder ? place / kind.file : place).lexically_normal();
        if (isOurs && fs::exists(file, ignored)) {
            return fs::absolute(file, ignored);
        }
        looked += "\n  " + file.string();
    }
    throw ToolError(ExitCode::NoProducer,
                    "no producer found (give --producer or set GENICAM_GENTL64_PATH); looked at:" +
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

// By the flat interface, which no other producer has.
bool IsExactProducer(const Producer& producer)
{
    return producer.Symbol<void()>("U3V_OpenStream") != nullptr;
}

Producer LoadProducer(const Options& options)
{
    try {
        return Producer(FindProducer(options));
    } catch (const consumer::LoadError& error) {
        throw ToolError(ExitCode::NoProducer, error.what());
    }
}
