#include "producer.h"

#include <array>
#include <dlfcn.h>

#include "printable.h"

namespace consumer {

namespace {

struct ErrorName
{
    GC_ERROR status;
    const char* name;
};

#define CONSUMER_ERROR(name)                                                                       \
    ErrorName                                                                                      \
    {                                                                                              \
        name, #name                                                                                \
    }

constexpr ErrorName kErrorNames[] = {
    CONSUMER_ERROR(GC_ERR_SUCCESS),
    CONSUMER_ERROR(GC_ERR_ERROR),
    CONSUMER_ERROR(GC_ERR_NOT_INITIALIZED),
    CONSUMER_ERROR(GC_ERR_NOT_IMPLEMENTED),
    CONSUMER_ERROR(GC_ERR_RESOURCE_IN_USE),
    CONSUMER_ERROR(GC_ERR_ACCESS_DENIED),
    CONSUMER_ERROR(GC_ERR_INVALID_HANDLE),
    CONSUMER_ERROR(GC_ERR_INVALID_ID),
    CONSUMER_ERROR(GC_ERR_NO_DATA),
    CONSUMER_ERROR(GC_ERR_INVALID_PARAMETER),
    CONSUMER_ERROR(GC_ERR_IO),
    CONSUMER_ERROR(GC_ERR_TIMEOUT),
    CONSUMER_ERROR(GC_ERR_ABORT),
    CONSUMER_ERROR(GC_ERR_INVALID_BUFFER),
    CONSUMER_ERROR(GC_ERR_NOT_AVAILABLE),
    CONSUMER_ERROR(GC_ERR_INVALID_ADDRESS),
    CONSUMER_ERROR(GC_ERR_BUFFER_TOO_SMALL),
    CONSUMER_ERROR(GC_ERR_INVALID_INDEX),
    CONSUMER_ERROR(GC_ERR_PARSING_CHUNK_DATA),
    CONSUMER_ERROR(GC_ERR_INVALID_VALUE),
    CONSUMER_ERROR(GC_ERR_RESOURCE_EXHAUSTED),
    CONSUMER_ERROR(GC_ERR_OUT_OF_MEMORY),
    CONSUMER_ERROR(GC_ERR_BUSY),
    CONSUMER_ERROR(GC_ERR_AMBIGUOUS),
};

} // namespace

std::string GenTLErrorName(GC_ERROR status)
{
    for (const ErrorName& entry : kErrorNames) {
        if (entry.status == status) {
            return entry.name;
        }
    }
    return "GC_ERR_" + std::to_string(status);
}

GenTLError::GenTLError(const std::string& call, GC_ERROR status, const std::string& lastError)
    : Error(call + " failed: " + GenTLErrorName(status) + " (" + std::to_string(status) +
            "), last error \"" + Printable(lastError) + "\""),
      m_status(status)
{
}

Producer::Producer(const std::filesystem::path& file)
    : m_file(file), m_library(dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL))
{
    if (m_library == nullptr) {
        throw LoadError(std::string("cannot load the producer: ") + dlerror());
    }
    try {
#define CONSUMER_RESOLVE(name) name = reinterpret_cast<P##name>(_resolve(#name));
        CONSUMER_FUNCTIONS(CONSUMER_RESOLVE)
#undef CONSUMER_RESOLVE
#define CONSUMER_FIND(name) name = reinterpret_cast<P##name>(_find(#name));
        CONSUMER_FUNCTIONS_1_6(CONSUMER_FIND)
#undef CONSUMER_FIND
        GENTL_CALL(*this, GCInitLib);
    } catch (...) {
        dlclose(m_library);
        throw;
    }
}

Producer::~Producer()
{
    // The library itself stays: what a library below it keeps for its lifetime would look like a
    // leak once its own memory has gone.
    GENTL_CLOSE(*this, GCCloseLib);
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

void Producer::OnFailedClose(std::function<void(const std::exception&)> report)
{
    m_reportFailedClose = std::move(report);
}

void Producer::CheckClose(GC_ERROR status, const char* call) const
{
    try {
        Check(status, call);
    } catch (const std::exception& failure) {
        ReportFailedClose(failure);
    }
}

void Producer::ReportFailedClose(const std::exception& failure) const
{
    if (m_reportFailedClose != nullptr) {
        m_reportFailedClose(failure);
    }
}

void* Producer::_find(const char* name) const
{
    return dlsym(m_library, name);
}

// Anything may have the extension .cti; without every function it is none.
void* Producer::_resolve(const char* name) const
{
    void* const function = _find(name);
    if (function == nullptr) {
        throw LoadError(m_file.string() + " is no GenTL producer: it has no " + name);
    }
    return function;
}

} // namespace consumer
