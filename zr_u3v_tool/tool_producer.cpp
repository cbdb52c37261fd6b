#include "tool_producer.h"

#include <array>
#include <cstdlib>
#include <dlfcn.h>
#include <sstream>
#include <vector>

#include "tool_console.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* kProducerFile = "zr_u3v_tl.cti";

struct ErrorName
{
    GC_ERROR status;
    const char* name;
};

constexpr ErrorName kErrorNames[] = {
    {GC_ERR_SUCCESS, "GC_ERR_SUCCESS"},
    {GC_ERR_ERROR, "GC_ERR_ERROR"},
    {GC_ERR_NOT_INITIALIZED, "GC_ERR_NOT_INITIALIZED"},
    {GC_ERR_NOT_IMPLEMENTED, "GC_ERR_NOT_IMPLEMENTED"},
    {GC_ERR_RESOURCE_IN_USE, "GC_ERR_RESOURCE_IN_USE"},
    {GC_ERR_ACCESS_DENIED, "GC_ERR_ACCESS_DENIED"},
    {GC_ERR_INVALID_HANDLE, "GC_ERR_INVALID_HANDLE"},
    {GC_ERR_INVALID_ID, "GC_ERR_INVALID_ID"},
    {GC_ERR_NO_DATA, "GC_ERR_NO_DATA"},
    {GC_ERR_INVALID_PARAMETER, "GC_ERR_INVALID_PARAMETER"},
    {GC_ERR_IO, "GC_ERR_IO"},
    {GC_ERR_TIMEOUT, "GC_ERR_TIMEOUT"},
    {GC_ERR_ABORT, "GC_ERR_ABORT"},
    {GC_ERR_INVALID_BUFFER, "GC_ERR_INVALID_BUFFER"},
    {GC_ERR_NOT_AVAILABLE, "GC_ERR_NOT_AVAILABLE"},
    {GC_ERR_INVALID_ADDRESS, "GC_ERR_INVALID_ADDRESS"},
    {GC_ERR_BUFFER_TOO_SMALL, "GC_ERR_BUFFER_TOO_SMALL"},
    {GC_ERR_INVALID_INDEX, "GC_ERR_INVALID_INDEX"},
    {GC_ERR_PARSING_CHUNK_DATA, "GC_ERR_PARSING_CHUNK_DATA"},
    {GC_ERR_INVALID_VALUE, "GC_ERR_INVALID_VALUE"},
    {GC_ERR_RESOURCE_EXHAUSTED, "GC_ERR_RESOURCE_EXHAUSTED"},
    {GC_ERR_OUT_OF_MEMORY, "GC_ERR_OUT_OF_MEMORY"},
    {GC_ERR_BUSY, "GC_ERR_BUSY"},
    {GC_ERR_AMBIGUOUS, "GC_ERR_AMBIGUOUS"},
};

// "GCReadPort failed: GC_ERR_IO (-1010), last error ...": call, name, number, and what the producer
// adds.
std::string FailureText(const std::string& call, GC_ERROR status, const std::string& lastError)
{
    return Format("%s failed: %s (%d), last error \"%s\"", call.c_str(),
                  GenTLErrorName(status).c_str(), status, Printable(lastError).c_str());
}

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

} // namespace

std::string GenTLErrorName(GC_ERROR status)
{
    for (const ErrorName& entry : kErrorNames) {
        if (entry.status == status) {
            return entry.name;
        }
    }
    return Format("GC_ERR_%d", status);
}

GenTLError::GenTLError(const std::string& call, GC_ERROR status, const std::string& lastError)
    : ToolError(ExitCode::Failure, FailureText(call, status, lastError)), m_status(status)
{
}

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

Producer::Producer(const fs::path& path)
    : m_path(path), m_library(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL))
{
    if (m_library == nullptr) {
        throw ToolError(ExitCode::NoProducer,
                        std::string("cannot load the producer: ") + dlerror());
    }
    try {
#define TOOL_RESOLVE(name) name = reinterpret_cast<P##name>(_resolve(#name));
        TOOL_GENTL_FUNCTIONS(TOOL_RESOLVE)
#undef TOOL_RESOLVE
        Check(GCInitLib(), "GCInitLib");
    } catch (...) {
        dlclose(m_library);
        throw;
    }
}

Producer::~Producer()
{
    // The library itself stays: the process is about to end, and what a library below it keeps for
    // its lifetime would look like a leak once its own memory has gone.
    GCCloseLib();
}

// The last error belongs to the calling thread, and to its latest failure: asked for at once.
void Producer::Check(GC_ERROR status, const char* call) const
{
    if (status == GC_ERR_SUCCESS) {
        return;
    }
    GC_ERROR code = 0;
    std::array<char, 1024> text{};
    size_t size = text.size();
    if (GCGetLastError(&code, text.data(), &size) != GC_ERR_SUCCESS) {
        text.front() = '\0';
    }
    text.back() = '\0';
    throw GenTLError(call, status, text.data());
}

// Anything may have the extension .cti; without every function it is none.
void* Producer::_resolve(const char* name) const
{
    void* const function = dlsym(m_library, name);
    if (function == nullptr) {
        throw ToolError(ExitCode::NoProducer,
                        m_path.string() + " is no GenTL producer: it has no " + name);
    }
    return function;
}
