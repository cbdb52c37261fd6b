#include "tool_statistics.h"

#include <algorithm>
#include <numeric>

#include "tool_console.h"

namespace {

constexpr double kNsPerMs = 1e6;
// A run without end must not fill the memory; the latest entries tell what is of interest.
constexpr size_t kMaximumDelays = 1U << 20U;

// To three places: what is printed has no digits that mean nothing.
double Rounded(double value)
{
    return static_cast<double>(static_cast<int64_t>(value * 1000 + (value < 0 ? -0.5 : 0.5))) /
           1000;
}

} // namespace

void Statistics::Add(const Image& image)
{
    if (m_images == 0) {
        m_first = image.arrival;
        // Ids of a stream go up by one. Id 0 may come again when a camera restarts: that counts as
        // repeated.
    } else if (image.frameId > m_lastFrame) {
        m_lost += image.frameId - m_lastFrame - 1;
    } else {
        m_repeated++;
    }
    m_images++;
    m_incomplete += image.isIncomplete ? 1 : 0;
    m_bytes += image.bytes.size();
    m_lastFrame = image.frameId;
    m_last = image.arrival;
    if (image.timestamp != 0) {
        const auto here =
            std::chrono::duration_cast<std::chrono::nanoseconds>(image.arrival.time_since_epoch());
        if (m_delays.size() == kMaximumDelays) {
            m_delays.erase(m_delays.begin(), m_delays.begin() + kMaximumDelays / 2);
        }
        // Unsigned: a camera may put anything there, and a wrong answer is better than undefined.
        m_delays.push_back(
            static_cast<int64_t>(static_cast<uint64_t>(here.count()) - image.timestamp));
    }
}

double Statistics::Seconds() const
{
    return std::chrono::duration<double>(m_last - m_first).count();
}

// Between n arrivals lie n - 1 intervals.
double Statistics::Rate() const
{
    const double seconds = Seconds();
    return m_images < 2 || seconds <= 0 ? 0 : static_cast<double>(m_images - 1) / seconds;
}

// Without the offset of the two clocks the fastest image counts as zero.
std::optional<Statistics::Latency> Statistics::_latency() const
{
    if (m_delays.empty()) {
        return std::nullopt;
    }
    std::vector<int64_t> sorted = m_delays;
    std::sort(sorted.begin(), sorted.end());
    const double zero = static_cast<double>(m_clock ? m_clock->nanoseconds : sorted.front());
    const double sum = std::accumulate(sorted.begin(), sorted.end(), 0.0);
    const auto ms = [zero](double ns) { return (ns - zero) / kNsPerMs; };
    return Latency{ms(static_cast<double>(sorted.front())),
                   ms(sum / static_cast<double>(sorted.size())),
                   ms(static_cast<double>(sorted[(sorted.size() - 1) * 95 / 100])),
                   ms(static_cast<double>(sorted.back()))};
}

Json Statistics::ToJson() const
{
    Json json{
        {"images", m_images},
        {"incomplete", m_incomplete},
        {"lost_ids", m_lost},
        {"repeated_ids", m_repeated},
        {"bytes", m_bytes},
        {"seconds", Rounded(Seconds())},
        {"images_per_second", Rounded(Rate())},
        {"megabytes_per_second", Rounded(m_images == 0 ? 0
                                                       : Rate() * static_cast<double>(m_bytes) /
                                                             1e6 / static_cast<double>(m_images))}};
    if (const auto latency = _latency()) {
        json["latency_ms"] = {{"min", Rounded(latency->least)},
                              {"mean", Rounded(latency->mean)},
                              {"p95", Rounded(latency->p95)},
                              {"max", Rounded(latency->most)},
                              {"since", m_clock ? "camera time stamp" : "fastest image"}};
    }
    return json;
}

std::string Statistics::Text() const
{
    const Json json = ToJson();
    std::string text = Format("images       %llu in %.2f s, %.1f images/s, %.1f MB/s\n",
                              static_cast<unsigned long long>(m_images), Seconds(), Rate(),
                              json["megabytes_per_second"].get<double>());
    text +=
        Format("lost ids     %llu, repeated %llu, incomplete %llu\n",
               static_cast<unsigned long long>(m_lost), static_cast<unsigned long long>(m_repeated),
               static_cast<unsigned long long>(m_incomplete));
    if (const auto latency = _latency()) {
        text += Format("latency      min %.2f, mean %.2f, 95 %% %.2f, max %.2f ms since the %s\n",
                       latency->least, latency->mean, latency->p95, latency->most,
                       m_clock ? "camera's time stamp" : "fastest image");
    }
    return text;
}
