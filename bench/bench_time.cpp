#include "bench_time.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <string>
#include <time.h>

namespace bench {

namespace {

int64_t Read(clockid_t clock)
{
    timespec now{};
    clock_gettime(clock, &now);
    return int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

// The kernel's name for a thread's processor time clock: the inverted id beside "scheduler's time"
// and "one thread".
clockid_t ClockOf(pid_t thread)
{
    constexpr unsigned kThread = 4;
    constexpr unsigned kScheduler = 2;
    return static_cast<clockid_t>(~static_cast<unsigned>(thread) << 3U | kThread | kScheduler);
}

} // namespace

int64_t NowNs()
{
    return Read(CLOCK_MONOTONIC);
}

int64_t ProcessCpuNs()
{
    return Read(CLOCK_PROCESS_CPUTIME_ID);
}

int64_t ThreadCpuNs(pid_t thread)
{
    return Read(ClockOf(thread));
}

std::set<pid_t> Threads()
{
    std::set<pid_t> threads;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task")) {
        threads.insert(static_cast<pid_t>(std::stol(entry.path().filename().string())));
    }
    return threads;
}

Stopwatch::Stopwatch(pid_t excluded) : m_excluded(excluded), m_start(NowNs()), m_cpuStart(_cpu())
{
}

int64_t Stopwatch::_cpu() const
{
    return ProcessCpuNs() - (m_excluded != 0 ? ThreadCpuNs(m_excluded) : 0);
}

double Stopwatch::Seconds() const
{
    return static_cast<double>(NowNs() - m_start) / 1e9;
}

double Stopwatch::CpuSeconds() const
{
    return static_cast<double>(_cpu() - m_cpuStart) / 1e9;
}

double Median(std::vector<double> values)
{
    return Percentile(std::move(values), 50);
}

double Percentile(std::vector<double> values, double percent)
{
    if (values.empty()) {
        return std::nan("");
    }
    const auto last = static_cast<double>(values.size() - 1);
    const std::ptrdiff_t place = std::lround(last * percent / 100);
    std::nth_element(values.begin(), values.begin() + place, values.end());
    return values[static_cast<size_t>(place)];
}

} // namespace bench
