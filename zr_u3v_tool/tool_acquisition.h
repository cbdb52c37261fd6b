#pragma once

#include <chrono>
#include <csignal>
#include <cstdint>
#include <optional>
#include <vector>

#include "tool_pixel_format.h"
#include "tool_session.h"

// What the camera says about its streaming interface (its own bootstrap registers).
struct StreamNeeds
{
    uint64_t payload = 0; // bytes of one image
    uint32_t leader = 0;
    uint32_t trailer = 0;
    unsigned alignmentExponent = 0; // sizes are multiples of 2 to this power
    uint32_t speed = 0;             // 4 high speed, 8 SuperSpeed, 16 SuperSpeedPlus
};

// Throws GenTLError when a register cannot be read, ToolError when the camera has no stream.
StreamNeeds ReadStreamNeeds(const Camera& camera);

// Nanoseconds to add to a time stamp of the camera to have the host's steady clock; nothing for a
// camera that cannot latch its clock. Wrong by at most half the round trip of the best of several.
struct ClockOffset
{
    int64_t nanoseconds = 0;
    int64_t uncertainty = 0;
};
std::optional<ClockOffset> MeasureClockOffset(const Camera& camera);

// A delivered buffer, read out. `bytes` belong to the buffer: valid until it is queued again.
struct Image
{
    BUFFER_HANDLE buffer = nullptr;
    RawImage raw;
    uint64_t frameId = 0;
    uint64_t timestamp = 0; // of the camera, in ns
    bool isIncomplete = false;
    std::chrono::steady_clock::time_point arrival;
};

// Announced buffers and a running acquisition; stopped and revoked by the destructor. Memory is the
// program's own. Used by one thread.
class Acquisition
{
public:
    Acquisition(const DataStream& stream, uint64_t payload, size_t buffers);
    ~Acquisition();
    Acquisition(const Acquisition&) = delete;
    Acquisition& operator=(const Acquisition&) = delete;

    void Start();
    // The next image, or nothing after `timeout_ms` (finite: the producer takes an endless wait for
    // none at all). Returns early when the user has asked to stop.
    std::optional<Image> Next(uint64_t timeout_ms);
    void GiveBack(const Image& image);
    void Stop();

private:
    void _announce(uint64_t payload, size_t buffers);
    void _release();
    Image _describe(BUFFER_HANDLE buffer) const;
    template <class T>
    T _info(BUFFER_HANDLE buffer, BUFFER_INFO_CMD command) const;

    const DataStream& m_stream;
    const Producer& m_api;
    std::vector<std::vector<uint8_t>> m_memory;
    std::vector<BUFFER_HANDLE> m_buffers;
    EVENT_HANDLE m_newBuffer = nullptr;
    bool m_isRunning = false;
};

// Set by the first interrupt (Ctrl-C); a second one ends the program at once.
extern volatile std::sig_atomic_t g_isInterrupted;
void WatchInterrupts();
