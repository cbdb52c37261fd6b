#include "producer_facts.h"

#include <dlfcn.h>
#include <limits.h>
#include <stdlib.h>

#include "zr_no_destroy.h"

namespace standard_tl::producer {
namespace {

// The folder with its links followed, the file's own name as it is: "libzr_u3v_standard.so.1.0.0"
// is not what anybody asked for.
std::string FindFilePath()
{
    Dl_info info{};
    if (dladdr(reinterpret_cast<const void*>(&FilePath), &info) == 0 || info.dli_fname == nullptr) {
        return {};
    }
    const std::string loaded = info.dli_fname;
    const size_t slash = loaded.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : loaded.substr(0, slash + 1);
    char absolute[PATH_MAX];
    if (realpath(folder.c_str(), absolute) == nullptr) {
        return loaded;
    }
    return std::string(absolute) + "/" + loaded.substr(slash + 1);
}

} // namespace

const char* FilePath()
{
    static ZrNoDestroy<std::string> path(FindFilePath());
    return path.Get().c_str();
}

const char* FileName()
{
    const std::string_view path = FilePath();
    return path.data() + (path.rfind('/') + 1);
}

} // namespace standard_tl::producer
