#include "zr_trace.h"

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <syslog.h>
#include <unistd.h>

namespace {

constexpr size_t kLineSize = 1024;
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
size_t FormatPrefix(unsigned level, char (&line)[kLineSize])
{
    const int length = snprintf(line, kPrefixSize, " %s [pid] 0x%08x [tid] 0x%08x ", TagOf(level),
                                static_cast<unsigned>(getpid()), static_cast<unsigned>(gettid()));
    return std::min(static_cast<size_t>(std::max(length, 0)), kPrefixSize - 1);
}

// One conversion of a format: what it takes from the arguments, and the most characters it makes.
class Conversion
{
public:
    // `at` is behind the percent sign and ends behind the conversion. False for one that is not
    // known here.
    bool Read(const char*& at, va_list& arguments)
    {
        size_t width = 0;
        for (; *at >= '0' && *at <= '9'; ++at) {
            width = std::min(10 * width + static_cast<size_t>(*at - '0'), kEnough);
        }
        const bool isLong = at[0] == 'l' && at[1] == 'l';
        at += isLong ? 2 : 0;
        m_length = kNumber + width;
        switch (*at++) {
        case 's': m_length = width + _text(va_arg(arguments, const char*)); return !isLong;
        case 'p': static_cast<void>(va_arg(arguments, const void*)); return !isLong;
        case 'd':
        case 'u':
        case 'x':
        case 'X':
            if (isLong) { // NOLINT(bugprone-branch-clone): the types differ
                static_cast<void>(va_arg(arguments, long long));
            } else {
                static_cast<void>(va_arg(arguments, int));
            }
            return true;
        default: return false;
        }
    }
    size_t Length() const { return m_length; }

    // So long a line is left to the formatting, which refuses more than INT_MAX.
    static constexpr size_t kEnough = size_t{1} << 30U;

private:
    static constexpr size_t kNumber = 24; // digits, sign and prefix of any number

    // "(null)" is short as well.
    static size_t _text(const char* text) { return text != nullptr ? strlen(text) : kNumber; }

    size_t m_length = 0;
};

// Whether formatting is sure to succeed. Then a line that nobody looks at leaves no trace of itself
// and need not be made: this costs a tenth of it, and every call of the library traces.
bool CannotFail(const char* format, va_list& arguments)
{
    size_t length = strlen(format);
    while (*(format = strchrnul(format, '%')) != '\0') {
        Conversion conversion;
        if (!conversion.Read(++format, arguments)) {
            return false;
        }
        length += conversion.Length();
        if (length >= Conversion::kEnough) {
            return false;
        }
    }
    return true;
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
    if (!IsTraced()) {
        va_list arguments;
        va_start(arguments, format);
        const bool unseen = CannotFail(format, arguments);
        va_end(arguments);
        // Quirk Q05: a line that nobody looks at is dropped, here before it is made.
        if (unseen) {
            return;
        }
    }
    // Quirk Q04: the time is taken and formatted, and is no part of the line.
    char stamp[kTimeStampSize];
    FormatTimeStamp(stamp);

    char line[kLineSize] = {};
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
