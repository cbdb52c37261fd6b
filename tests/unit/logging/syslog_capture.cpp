#include "syslog_capture.h"

#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <utility>

// Declared here: the system's header may turn syslog into an inline of its own. The second name is
// the one that hardened builds call.
extern "C" void syslog(int priority, const char* format, ...) __attribute__((format(printf, 2, 3)));
extern "C" void __syslog_chk(int priority, int flag, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

namespace {

std::mutex g_mutex;
std::vector<SyslogMessage> g_messages;

__attribute__((format(printf, 2, 0))) void Keep(int priority, const char* format, va_list arguments)
{
    char text[256] = {};
    vsnprintf(text, sizeof text, format, arguments);
    const std::lock_guard lock(g_mutex);
    g_messages.push_back({priority, text});
}

} // namespace

extern "C" void syslog(int priority, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    Keep(priority, format, arguments);
    va_end(arguments);
}

extern "C" void __syslog_chk(int priority, int /*flag*/, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    Keep(priority, format, arguments);
    va_end(arguments);
}

std::vector<SyslogMessage> TakeSyslogMessages()
{
    const std::lock_guard lock(g_mutex);
    return std::exchange(g_messages, {});
}
