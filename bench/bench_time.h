#pragma once

#include <cstdint>
#include <set>
#include <sys/types.h>
#include <vector>

// Clocks and the few statistics that the figures are made of.
namespace bench {

int64_t NowNs();                   // monotonic
int64_t ProcessCpuNs();            // all threads
int64_t ThreadCpuNs(pid_t thread); // one thread of this process

std::set<pid_t> Threads(); // of this process

// Runs as long as it lives; Seconds() and CpuSeconds() tell how long that is. The processor time
// leaves out one thread, the discovery worker's, which polls by design.
class Stopwatch
{
public:
    explicit Stopwatch(pid_t excluded = 0);
    double Seconds() const;
    double CpuSeconds() const;

private:
    int64_t _cpu() const;

    const pid_t m_excluded;
    const int64_t m_start;
    const int64_t m_cpuStart;
};

double Median(std::vector<double> values);
// The value that so many of a hundred do not exceed.
double Percentile(std::vector<double> values, double percent);

} // namespace bench
