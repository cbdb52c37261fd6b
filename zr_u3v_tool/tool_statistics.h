#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tool_acquisition.h"
#include "tool_json.h"

// What became of the images of one run.
class Statistics
{
public:
    explicit Statistics(std::optional<ClockOffset> clock) : m_clock(clock) {}

    void Add(const Image& image);

    uint64_t Images() const { return m_images; }
    uint64_t Incomplete() const { return m_incomplete; }
    // Block ids that were left out, and images that came with an id that was not a new one.
    uint64_t Lost() const { return m_lost; }
    uint64_t Repeated() const { return m_repeated; }
    // Images per second between the first and the last arrival; 0 below two images.
    double Rate() const;
    double Seconds() const;
    bool IsPerfect() const { return m_incomplete == 0 && m_lost == 0 && m_repeated == 0; }

    Json ToJson() const;
    // A few lines for a reader.
    std::string Text() const;

private:
    struct Latency
    {
        double least;
        double mean;
        double p95;
        double most;
    };
    // In ms, from the camera's time stamp to the arrival here; with a camera whose clock cannot be
    // latched, what an image took longer than the fastest one.
    std::optional<Latency> _latency() const;

    std::optional<ClockOffset> m_clock;
    uint64_t m_images = 0;
    uint64_t m_incomplete = 0;
    uint64_t m_lost = 0;
    uint64_t m_repeated = 0;
    uint64_t m_bytes = 0;
    uint64_t m_lastFrame = 0;
    std::chrono::steady_clock::time_point m_first;
    std::chrono::steady_clock::time_point m_last;
    std::vector<int64_t>
        m_delays; // ns between the two clocks, an entry per image with a time stamp
};
