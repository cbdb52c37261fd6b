#pragma once

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

// Formats a line of at most 1023 characters on the stack and discards it; without a hook a line
// that is sure to be formattable is not even made. Allocates nothing and is re-entrant; only a
// failure of the formatting itself is reported, to the system log.
void TraceA(unsigned level, const char* format, ...) __attribute__((format(printf, 2, 3)));

// Whether anybody looks at the lines.
bool IsTraced();

// Sees every line before it is dropped: `line` is the whole line, `message` the caller's part of
// it. For tests and for builds that route the lines; called on the tracing thread, must not trace
// itself. NULL takes the hook away.
using ZrTraceHook = void (*)(unsigned level, const char* line, const char* message);
void SetTraceHook(ZrTraceHook hook);
