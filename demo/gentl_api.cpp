#include "gentl_api.h"

#include <array>
#include <dlfcn.h>

GenTL::GenTL(const std::string& path) : m_library(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL))
{
    if (m_library == nullptr) {
        throw std::runtime_error(std::string("cannot load the producer: ") + dlerror());
    }
#define DEMO_RESOLVE(name) name = reinterpret_cast<P##name>(_resolve(#name));
    DEMO_GENTL_FUNCTIONS(DEMO_RESOLVE)
#undef DEMO_RESOLVE
    Check(GCInitLib(), "GCInitLib");
}

GenTL::~GenTL()
{
    // Closes whatever is still open.
    GCCloseLib();
    dlclose(m_library);
}

void GenTL::Check(GC_ERROR status, const char* call) const
{
    if (status == GC_ERR_SUCCESS) {
        return;
    }
    GC_ERROR code = 0;
    std::array<char, 256> text{};
    size_t size = text.size();
    GCGetLastError(&code, text.data(), &size);
    throw std::runtime_error(std::string(call) + " failed: " + std::to_string(status) + " " +
                             text.data());
}

void* GenTL::_find(const char* name) const
{
    return dlsym(m_library, name);
}

void* GenTL::_resolve(const char* name) const
{
    void* const function = _find(name);
    if (function == nullptr) {
        throw std::runtime_error(std::string("the producer has no ") + name);
    }
    return function;
}
