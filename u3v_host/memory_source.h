#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>

#include "usb_context.h"

namespace u3v_host {

class BufferMemory;

// Whether reading device memory is worth it. Some machines map it past the processor's cache:
// there, reading an image costs more than the kernel's copy into ordinary memory. Measured once,
// with a block of its own.
class DeviceMemorySpeed
{
public:
    // How long it takes to read all bytes of the block.
    using Timer = std::function<std::chrono::nanoseconds(std::span<const uint8_t>)>;

    explicit DeviceMemorySpeed(Timer timer);

    // False as well when there is no device memory to measure.
    bool IsGood(const UsbHandle& handle);

    // The one of this process.
    static DeviceMemorySpeed& OfProcess();

private:
    enum class Verdict : uint8_t
    {
        Unknown,
        Good,
        Bad,
    };

    Verdict _measure(const UsbHandle& handle) const;

    const Timer m_timer;
    std::atomic<Verdict> m_verdict{Verdict::Unknown};
};

// Reads the block as an application would that looks at each byte; the best of some runs.
std::chrono::nanoseconds TimeToRead(std::span<const uint8_t> block);

// Gives one camera's blocks of memory that images are received into: device memory where reading it
// is fast and there is some, else page-aligned ordinary memory. At least 4 MiB of the system's
// memory for USB stay free: every transfer into ordinary memory needs some of it. Any thread. A
// block keeps the device open until it is freed.
class MemorySource
{
public:
    explicit MemorySource(UsbHandle handle,
                          DeviceMemorySpeed& speed = DeviceMemorySpeed::OfProcess());

    // Throws std::bad_alloc when there is neither.
    std::unique_ptr<BufferMemory> Allocate(size_t size);

    // Bytes of device memory given out by all sources of this library and not freed.
    static uint64_t DeviceMemoryInUse();

private:
    bool _reserveIsFree() const;

    const UsbHandle m_handle;
    DeviceMemorySpeed& m_speed;
};

} // namespace u3v_host
