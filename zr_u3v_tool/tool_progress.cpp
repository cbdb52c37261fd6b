#include "tool_progress.h"

#include <algorithm>
#include <cstdio>
#include <unistd.h>

#include "tool_console.h"

namespace {
constexpr std::chrono::milliseconds kPause{100};
constexpr unsigned kMaximumBar = 40;
constexpr unsigned kMinimumBar = 4;
} // namespace

// Narrow terminals get the numbers without the bar.
std::string ProgressLine(uint64_t done, uint64_t total, double rate, unsigned columns)
{
    const std::string tail =
        Format("  %llu/%llu  %.1f images/s", static_cast<unsigned long long>(done),
               static_cast<unsigned long long>(total), rate);
    const size_t taken = tail.size() + 3; // the brackets, and one column that stays free
    if (columns < taken + kMinimumBar) {
        return tail.substr(2, columns > 1 ? columns - 1 : 0);
    }
    const size_t bar = std::min<size_t>(columns - taken, kMaximumBar);
    const size_t filled = total == 0 ? 0 : bar * std::min(done, total) / total;
    return "[" + std::string(filled, '#') + std::string(bar - filled, ' ') + "]" + tail;
}

Progress::Progress(uint64_t total, bool wanted)
    : m_total(total), m_isWanted(wanted && isatty(STDERR_FILENO) == 1)
{
}

Progress::~Progress()
{
    if (m_isDrawn) {
        std::fputs("\r\x1b[K", stderr);
    }
}

// Carriage return and "erase to the end of the line": one line that changes, and nothing left in a
// log.
void Progress::Show(uint64_t done, double rate)
{
    const auto now = std::chrono::steady_clock::now();
    if (!m_isWanted || (m_isDrawn && now - m_last < kPause)) {
        return;
    }
    m_last = now;
    m_isDrawn = true;
    const std::string line = ProgressLine(done, m_total, rate, Console::Columns(STDERR_FILENO));
    std::fprintf(stderr, "\r\x1b[K%s", line.c_str());
}
