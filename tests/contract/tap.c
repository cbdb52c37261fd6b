#include "tap.h"

#include <fcntl.h>
#include <inttypes.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

static int checks;
static int failures;

/* The standard output that the program begins with: a test may look at what others print there. */
static FILE* out;

static __attribute__((constructor)) void open_out(void)
{
    out = fdopen(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1), "w");
    if (out == NULL) {
        abort();
    }
}

static int report(const char* file, int line, int holds, const char* description)
{
    checks++;
    failures += !holds;
    fprintf(out, "%s %d - %s", holds ? "ok" : "not ok", checks, description);
    fprintf(out, holds ? "\n" : "  # %s:%d\n", file, line);
    fflush(out);
    return holds;
}

#define FORMAT_DESCRIPTION(text, format)                                                           \
    do {                                                                                           \
        va_list arguments;                                                                         \
        va_start(arguments, format);                                                               \
        vsnprintf(text, sizeof text, format, arguments);                                           \
        va_end(arguments);                                                                         \
    } while (0)

int tap_check(const char* file, int line, int holds, const char* format, ...)
{
    char description[512];
    FORMAT_DESCRIPTION(description, format);
    return report(file, line, holds != 0, description);
}

int tap_equal(const char* file, int line, int64_t found, int64_t wanted, const char* format, ...)
{
    char description[512];
    FORMAT_DESCRIPTION(description, format);
    if (found != wanted) {
        size_t used = strlen(description);
        snprintf(description + used, sizeof description - used,
                 ": found %" PRId64 ", wanted %" PRId64, found, wanted);
    }
    return report(file, line, found == wanted, description);
}

int tap_same_text(const char* file, int line, const char* found, const char* wanted,
                  const char* format, ...)
{
    char description[512];
    FORMAT_DESCRIPTION(description, format);
    int same = strcmp(found, wanted) == 0;
    if (!same) {
        size_t used = strlen(description);
        snprintf(description + used, sizeof description - used, ": found \"%s\", wanted \"%s\"",
                 found, wanted);
    }
    return report(file, line, same, description);
}

void tap_bail_out(const char* format, ...)
{
    char description[512];
    FORMAT_DESCRIPTION(description, format);
    fprintf(out, "Bail out! %s\n", description);
    fflush(out);
    exit(1);
}

int tap_finish(void)
{
    fprintf(out, "1..%d\n", checks);
    if (failures > 0) {
        fprintf(out, "# %d of %d checks failed\n", failures, checks);
    }
    fflush(out);
    return checks == 0 || failures > 0;
}
