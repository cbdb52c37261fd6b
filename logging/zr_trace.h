#pragma once

#include <cstddef>
#include <cstring>
#include <type_traits>

// The trace of the GenTL layer. Its lines are dropped: the routine is the hook where a build can
// route them, and the library stays silent.

// Levels of TraceA; any other value is tagged "[unknow]".
enum ZrTraceLevel : unsigned
{
    ZR_TRACE_ERROR = 2,
    ZR_TRACE_WARNING = 4,
    ZR_TRACE_INFO = 8,
    ZR_TRACE_DEBUG = 32,
};

// Bytes of a line, its end included; what is longer is cut.
inline constexpr size_t kTraceLineSize = 1024;

// Formats a line on the stack and discards it. Allocates nothing and is re-entrant; only a failure
// of the formatting itself is reported, to the system log.
void TraceA(unsigned level, const char* format, ...) __attribute__((format(printf, 2, 3)));

// Whether anybody looks at the lines.
bool IsTraced();

// Sees every line before it is dropped: `line` is the whole line, `message` the caller's part of
// it. For tests and for builds that route the lines; called on the tracing thread, must not trace
// itself. NULL takes the hook away.
using ZrTraceHook = void (*)(unsigned level, const char* line, const char* message);
void SetTraceHook(ZrTraceHook hook);

// Whether formatting these arguments might fail. It fails for a text that is too long for any
// number of characters to be told, never for one that fits a line.
template <class... Arguments>
bool MayNotBeFormattable(const char* /*format*/, const Arguments&... arguments)
{
    [[maybe_unused]] const auto may = [](const auto& argument) {
        using T = std::remove_cvref_t<decltype(argument)>;
        static_assert(std::is_scalar_v<T> || std::is_convertible_v<T, const char*>);
        if constexpr (std::is_convertible_v<T, const char*>) {
            const char* const text = argument;
            return text != nullptr && strnlen(text, kTraceLineSize) == kTraceLineSize;
        }
        return false;
    };
    return (may(arguments) || ...);
}

// TraceA for everything that the library does. Every call traces, so the usual case that nobody
// looks must cost no more than to see it.
// Quirk Q05: a line that nobody looks at is dropped, here before it is made. A macro, because the
// compiler checks the format, which comes first, against the arguments; they are evaluated twice.
#define ZR_TRACE(level, ...)                                                                       \
    (IsTraced() || MayNotBeFormattable(__VA_ARGS__) ? TraceA(level, __VA_ARGS__) : void())
