#pragma once

// A GenTL consumer in small, for whatever in this project uses a producer: the command-line tool,
// the demo, the measurements and most tests. It knows GenTL and the producer's file, nothing else
// of the producer.
//
// Who owns what: each object owns one handle and closes it in its destructor. It refers to the one
// that it came from, which must outlive it:
//
//     Producer <- Session <- Camera <- DataStream <- Acquisition
//
// Declared in this order they close in the order that GenTL wants.
//
// Errors: a failing call throws GenTLError. Destructors throw nothing; what fails in them goes to
// Producer::OnFailedClose.
//
// Threads: const members may be called by several threads at a time, for GenTL allows that of the
// calls they make. Everything else is for one thread at a time.

#include <algorithm>
#include <filesystem>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>

#include "producer_functions.h"

namespace consumer {

class Error : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

// The file cannot be loaded, or it is no producer.
class LoadError : public Error
{
public:
    using Error::Error;
};

// A GenTL call that failed: call, code with its name, and the producer's last-error text, fit for a
// terminal.
class GenTLError : public Error
{
public:
    GenTLError(const std::string& call, GC_ERROR status, const std::string& lastError);

    GC_ERROR Status() const { return m_status; }

private:
    GC_ERROR m_status;
};

// "GC_ERR_IO" for -1010; "GC_ERR_<number>" for a code without a name.
std::string GenTLErrorName(GC_ERROR status);

// A loaded producer, initialised (GCInitLib); closed (GCCloseLib) with the object. The library
// itself stays loaded until the process ends. One object for each file at a time.
class Producer
{
public:
    // Throws LoadError, or GenTLError when the producer does not initialise.
    explicit Producer(const std::filesystem::path& file);
    ~Producer();
    Producer(const Producer&) = delete;
    Producer& operator=(const Producer&) = delete;

    const std::filesystem::path& File() const { return m_file; }

    // Every function by its name: producer.IFClose(handle) calls it. Those of GenTL 1.6 are nullptr
    // in a producer that has none of them.
#define CONSUMER_MEMBER(name) P##name name = nullptr;
    CONSUMER_FUNCTIONS(CONSUMER_MEMBER)
    CONSUMER_FUNCTIONS_1_6(CONSUMER_MEMBER)
#undef CONSUMER_MEMBER

    // Throws GenTLError unless the status is a success; called by the thread that made the call,
    // before its next one.
    void Check(GC_ERROR status, const char* call) const;

    // The answer of an info query, throws GenTLError; `query(type, buffer, size)` makes the call.
    template <class T, class Query>
    T Value(const char* call, const Query& query) const;
    template <class Query>
    std::string Text(const char* call, const Query& query) const;

    // What hears of calls that fail in a destructor; nobody unless set. The function is called by
    // the thread that destroys, and must not throw.
    void OnFailedClose(std::function<void(const std::exception&)> report);
    void CheckClose(GC_ERROR status, const char* call) const;
    void ReportFailedClose(const std::exception& failure) const;

    // A symbol of the producer's file or of a library that it stands on; nullptr without one.
    template <class Function>
    Function* Symbol(const char* name) const
    {
        return reinterpret_cast<Function*>(_find(name));
    }

private:
    void* _find(const char* name) const;
    void* _resolve(const char* name) const;

    std::filesystem::path m_file;
    void* m_library = nullptr;
    std::function<void(const std::exception&)> m_reportFailedClose;
};

// Calls a function of the producer and throws GenTLError when it fails.
#define GENTL_CALL(producer, function, ...)                                                        \
    (producer).Check((producer).function(__VA_ARGS__), #function)
// The same in destructors.
#define GENTL_CLOSE(producer, function, ...)                                                       \
    (producer).CheckClose((producer).function(__VA_ARGS__), #function)

// ---- info queries ---------------------------------------------------------------------------

template <class T, class Query>
GC_ERROR AskValue(const Query& query, T& value)
{
    INFO_DATATYPE type = INFO_DATATYPE_UNKNOWN;
    size_t size = sizeof value;
    return query(&type, &value, &size);
}

template <class Query>
GC_ERROR AskText(const Query& query, std::string& text)
{
    INFO_DATATYPE type = INFO_DATATYPE_UNKNOWN;
    size_t size = 0;
    GC_ERROR status = query(&type, nullptr, &size);
    text.resize(status == GC_ERR_SUCCESS ? size : 0);
    if (!text.empty()) {
        status = query(&type, text.data(), &size);
        text.resize(std::min(text.size(), text.find('\0')));
    }
    return status;
}

// Nothing when the module does not answer the query.
template <class T, class Query>
std::optional<T> FindValue(const Query& query)
{
    T value{};
    return AskValue(query, value) == GC_ERR_SUCCESS ? std::optional<T>(value) : std::nullopt;
}

template <class Query>
std::optional<std::string> FindText(const Query& query)
{
    std::string text;
    return AskText(query, text) == GC_ERR_SUCCESS ? std::optional(text) : std::nullopt;
}

template <class T, class Query>
T Producer::Value(const char* call, const Query& query) const
{
    T value{};
    Check(AskValue(query, value), call);
    return value;
}

template <class Query>
std::string Producer::Text(const char* call, const Query& query) const
{
    std::string text;
    Check(AskText(query, text), call);
    return text;
}

} // namespace consumer
