#include "zr_trace.h"

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <ctime>
#include <syslog.h>
#include <unistd.h>

namespace {

constexpr size_t kPrefixSize = 100;
constexpr size_t kTimeStampSize = 100;

// Set by tests while other threads trace.
std::atomic<ZrTraceHook> g_hook{nullptr};

const char* TagOf(unsigned level)
{
    switch (level) {
    case ZR_TRACE_ERROR: return "[ERROR   ]";
    case ZR_TRACE_WARNING: return "[WARNING ]";
    case ZR_TRACE_INFO: return "[INFO    ]";
    case ZR_TRACE_DEBUG: return "[DEBUG   ]";
    default: return "[unknow]";
    }
}

void FormatTimeStamp(char (&stamp)[kTimeStampSize])
{
    const time_t now = time(nullptr);
    tm local{};
    localtime_r(&now, &local);
    // An empty stamp is better than an undefined one; the locale may leave no room.
    if (strftime(stamp, sizeof stamp, "%Y-%m-%d %X", &local) == 0) {
        stamp[0] = '\0';
    }
}

// Writes " <tag> [pid] ... [tid] ... " and returns its length.
size_t FormatPrefix(unsigned level, char (&line)[kTraceLineSize])
{
    const int length = snprintf(line, kPrefixSize, " %s [pid] 0x%08x [tid] 0x%08x ", TagOf(level),
                                static_cast<unsigned>(getpid()), static_cast<unsigned>(gettid()));
    return std::min(static_cast<size_t>(std::max(length, 0)), kPrefixSize - 1);
}

} // namespace

void SetTraceHook(ZrTraceHook hook)
{
    g_hook = hook;
}

bool IsTraced()
{
    return g_hook.load() != nullptr;
}

void TraceA(unsigned level, const char* format, ...)
{
    // Quirk Q04: the time is taken and formatted, and is no part of the line.
    char stamp[kTimeStampSize];
    FormatTimeStamp(stamp);

    char line[kTraceLineSize] = {};
    const size_t prefix = FormatPrefix(level, line);
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(line + prefix, sizeof line - prefix, format, arguments);
    va_end(arguments);
    if (length < 0) {
        // The one thing a host ever hears from here; the format keeps the trailing blank.
        syslog(LOG_ERR, "%s ", "vsnprintf not successful");
        return;
    }
    if (const ZrTraceHook hook = g_hook; hook != nullptr) {
        hook(level, line, line + prefix);
    }
}
