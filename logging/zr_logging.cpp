#include <zr_u3v_tl/zr_logging.h>

#include <algorithm>
#include <cstdarg>
#include <ctime>

namespace {

constexpr uint32_t kAllLevels = 0xFFFFFFFFu;
constexpr size_t kTimeStampSize = 200;
constexpr size_t kPrefixSize = 200;
constexpr size_t kLineSize = 4096;

// Set when g_logger has been destroyed. Its storage outlives it, and so does whatever still traces
// while the process ends.
std::atomic<bool> g_loggerGone{false};

// The tag of a line with the blank that separates it from the message.
const char* TagOf(ZrLogLevel level)
{
    switch (level) {
    case ZR_LOG_CRITICAL: return "[CRITICAL] ";
    case ZR_LOG_ERROR: return "[ERROR   ] ";
    case ZR_LOG_WARNING: return "[WARNING ] ";
    case ZR_LOG_INFO: return "[INFO    ] ";
    case ZR_LOG_DEBUG: return "[DEBUG   ] ";
    }
    return ""; // a host may pass any bit: its lines carry the time stamp only
}

// Writes "<time stamp> <tag>" and returns its length.
size_t FormatPrefix(ZrLogLevel level, char* line)
{
    char stamp[kTimeStampSize] = {};
    const time_t now = time(nullptr);
    tm local{};
    localtime_r(&now, &local);
    if (strftime(stamp, sizeof stamp, "%Y-%m-%d %X", &local) == 0) {
        stamp[0] = '\0';
    }
    const int length = snprintf(line, kPrefixSize, "%s %s", stamp, TagOf(level));
    return std::min(static_cast<size_t>(std::max(length, 0)), kPrefixSize - 1);
}

// Holds the logger's own mutex for a scope; the public class carries a bare pthread mutex so that
// its header needs nothing of the library.
class MutexHold
{
public:
    explicit MutexHold(pthread_mutex_t& mutex) : m_mutex(mutex) { pthread_mutex_lock(&m_mutex); }
    ~MutexHold() { pthread_mutex_unlock(&m_mutex); }
    MutexHold(const MutexHold&) = delete;
    MutexHold& operator=(const MutexHold&) = delete;

private:
    pthread_mutex_t& m_mutex;
};

} // namespace

// Built before every other static object of the library and so destroyed after them: the
// constructors and destructors of the others may trace.
__attribute__((init_priority(101))) ZrLogger g_logger;

ZrLogger::ZrLogger()
    : m_initialised(false), m_fileLogging(false), m_reserved(false), m_file(nullptr),
      m_levelMask(kAllLevels)
{
    pthread_mutex_init(&m_mutex, nullptr);
}

ZrLogger::~ZrLogger()
{
    {
        MutexHold hold(m_mutex);
        if (m_file != nullptr) {
            fclose(m_file);
            m_file = nullptr;
        }
    }
    if (this == &g_logger) {
        g_loggerGone = true;
    }
    pthread_mutex_destroy(&m_mutex);
}

bool ZrLogger::Init(bool enable, char* path, ZrLogLevel level)
{
    MutexHold hold(m_mutex);
    if (m_initialised) {
        return false;
    }
    if (!enable) {
        return true;
    }
    if (path != nullptr) {
        // Quirk Q02: an open that fails is not reported; the logger is on and writes nothing.
        m_file = fopen(path[0] == '\0' ? "log.txt" : path, "w+e");
    }
    m_fileLogging = true;
    m_reserved = false;
    m_levelMask = level;
    m_initialised = true;
    return true;
}

void ZrLogger::SetLevel(ZrLogLevel level)
{
    m_levelMask = level;
}

void ZrLogger::SetFileLoggingEnable(bool /*enable*/, char* /*path*/)
{
    // Quirk Q03: an exported no-op; hosts link to it.
}

void ZrLogger::Trace(ZrLogLevel level, const char* format, ...)
{
    if (this == &g_logger && g_loggerGone) {
        return;
    }
    MutexHold hold(m_mutex);
    if ((m_levelMask & level) == 0) {
        return;
    }
    char line[kLineSize] = {};
    const size_t prefix = FormatPrefix(level, line);
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(line + prefix, sizeof line - prefix, format, arguments);
    va_end(arguments);
    if (length < 0) {
        line[prefix] = '\0'; // a message that cannot be formatted: the prefix alone
    }
    if (m_fileLogging && m_file != nullptr) {
        fprintf(m_file, "%s\n", line);
        fflush(m_file); // after a crash the log is complete
    }
}
