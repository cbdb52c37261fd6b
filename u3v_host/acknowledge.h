#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>

#include "host_limits.h"

namespace u3v_host {

// A packet of the control IN endpoint, judged by what is waited for. Pure.
struct Acknowledge
{
    enum class Kind : uint8_t
    {
        Answer,  // ours; `status` says how it went, `data` is what was read
        Pending, // ours is still to come, within `pendingTime`
        Other,   // of an earlier command, or an empty packet: to be read away
        Damaged, // `fault` says what is wrong
    };

    Kind kind;
    uint16_t status = 0;
    std::span<const uint8_t> data{};
    std::chrono::milliseconds pendingTime{};
    const char* fault = "";
};

struct ExpectedAcknowledge
{
    uint16_t commandId; // of the acknowledge
    uint16_t requestId;
    size_t dataSize;    // exactly so much with a success; 0: whatever there is does not matter
    bool othersMayCome; // commands were given up: what does not fit may belong to them
};

Acknowledge JudgeAcknowledge(std::span<const uint8_t> packet, const ExpectedAcknowledge& expected);

// The patience for one command: deadlines and counts. Pure; `now` is given.
class Patience
{
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    Patience(const ControlLimits& limits, std::chrono::milliseconds responseTime, TimePoint now);

    TimePoint Deadline() const { return m_deadline; }
    // False when it is over. A named time of 0 leaves the one before.
    bool ForPending(std::chrono::milliseconds named, TimePoint now);
    bool ForOther();

private:
    const TimePoint m_end;
    std::chrono::milliseconds m_time;
    TimePoint m_deadline;
    unsigned m_pendingLeft;
    unsigned m_othersLeft;
};

// What waiting for an answer is bounded by: the camera's word where it makes sense.
std::chrono::milliseconds ResponseTime(uint32_t named, const ControlLimits& limits);

} // namespace u3v_host
