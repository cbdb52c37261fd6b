/// @file
/// The producer's process-wide logger, for hosts that want to see what the USB3 Vision layer does.
///
/// The library is silent by default: it never calls Init itself. A host switches the log on with
///     g_logger.Init(true, path, level_mask);
/// and every line then goes to that file, flushed line by line.
#ifndef ZR_U3V_TL_ZR_LOGGING_H
#define ZR_U3V_TL_ZR_LOGGING_H

#include <atomic>
#include <pthread.h>
#include <stdint.h>
#include <stdio.h>

/// Seen from outside of the library.
#define ZR_LOGGING_EXPORT __attribute__((visibility("default")))

/// One bit per level. A level is what a line has; a mask of levels is what Init and SetLevel take.
enum ZrLogLevel : unsigned
{
    ZR_LOG_CRITICAL = 0x1,     ///< the library cannot continue
    ZR_LOG_ERROR = 0x10,       ///< a call failed
    ZR_LOG_WARNING = 0x100,    ///< unexpected, but the library continues
    ZR_LOG_INFO = 0x1000,      ///< normal operation
    ZR_LOG_DEBUG = 0x10000000, ///< every step
};

/// Every operation may be called from any thread.
class ZrLogger
{
public:
    /// Off, until Init.
    ZR_LOGGING_EXPORT ZrLogger();
    /// Closes the log file.
    ZR_LOGGING_EXPORT ~ZrLogger();
    ZrLogger(const ZrLogger&) = delete;
    ZrLogger& operator=(const ZrLogger&) = delete;

    /// Switches the log on, once: false, and no change, when it is on already. With `enable` false
    /// nothing changes and a later Init can still switch it on; the result is true. `path` [in] is
    /// the file, truncated when it exists; "" stands for "log.txt" in the working directory, NULL
    /// for no file. A file that cannot be opened is not reported: the logger is then on and writes
    /// nothing. `level` is the mask of the levels to write.
    ZR_LOGGING_EXPORT bool Init(bool enable, char* path, ZrLogLevel level);

    /// Replaces the mask of the levels to write.
    ZR_LOGGING_EXPORT void SetLevel(ZrLogLevel level);

    /// Does nothing; kept for hosts that link to it.
    ZR_LOGGING_EXPORT void SetFileLoggingEnable(bool enable, char* path);

    /// Writes one line, time stamp and tag in front, if its level is in the mask. A line is cut at
    /// 4095 characters; lines of different threads never interleave.
    ZR_LOGGING_EXPORT void Trace(ZrLogLevel level, const char* format, ...)
        __attribute__((format(printf, 3, 4)));

private:
    bool m_initialised;
    bool m_fileLogging;
    bool m_reserved;
    pthread_mutex_t m_mutex; // guards everything but the mask
    FILE* m_file;
    std::atomic<uint32_t> m_levelMask;
};

/// The one logger that the library writes to. Exists before any code of the library runs.
extern ZR_LOGGING_EXPORT ZrLogger g_logger;

#endif
