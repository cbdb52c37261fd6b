#include "tool_console.h"

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "tool_error.h"

namespace {

constexpr unsigned kDefaultColumns = 80;

[[noreturn]] void FailToWrite()
{
    throw ToolError(ExitCode::Failure,
                    std::string("cannot write to standard output: ") + std::strerror(errno));
}

} // namespace

Console::Console(bool showLibraryOutput)
{
    // Above the standard descriptors, and not handed on to programs that are started.
    const int copy = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    m_output = copy < 0 ? nullptr : fdopen(copy, "w");
    if (m_output == nullptr) {
        FailToWrite();
    }
    // Whatever libraries print on descriptor 1 from here on goes there.
    const int other =
        showLibraryOutput ? dup(STDERR_FILENO) : open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (other >= 0) {
        dup2(other, STDOUT_FILENO);
        close(other);
    }
}

Console::~Console()
{
    // Whatever a library still has in its buffer leaves by the redirected descriptor.
    std::fflush(stdout);
    std::fclose(m_output);
}

void Console::Print(std::string_view text)
{
    const std::string clean = PrintableLines(text);
    PrintBytes(clean.data(), clean.size());
}

void Console::PrintBytes(const void* data, size_t size)
{
    if (std::fwrite(data, 1, size, m_output) != size) {
        FailToWrite();
    }
}

void Console::Flush()
{
    if (std::fflush(m_output) != 0) {
        FailToWrite();
    }
}

bool Console::IsTerminal() const
{
    return isatty(fileno(m_output)) == 1;
}

// The width of a terminal that is resized is asked for anew each time.
unsigned Console::Columns(int descriptor)
{
    winsize size{};
    const bool known = ioctl(descriptor, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return known ? size.ws_col : kDefaultColumns;
}

void Complain(const std::string& text)
{
    std::fprintf(stderr, "zr-u3v: %s\n", PrintableLines(text).c_str());
}

void Warn(const std::string& text)
{
    Complain("warning: " + text);
}

// Twice through the arguments: once for the length, once for the text.
std::string Format(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, arguments);
    va_end(arguments);
    std::string text(length > 0 ? static_cast<size_t>(length) : 0, '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, again);
    va_end(again);
    return text;
}
