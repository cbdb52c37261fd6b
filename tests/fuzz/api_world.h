#pragma once

// What a random consumer has in hand: handles of every kind and age, memory that outlives every
// call, and a camera that it may make fail.

#include "fuzz_input.h"

#include <array>
#include <atomic>
#include <memory>
#include <mutex>
#include <virtual_bus.h>
#include <zr_u3v_tl/gentl.h>

enum class Kind
{
    System,
    Interface,
    Device,
    Port,
    Stream,
    Event,
    Buffer,
    Count
};

class ApiWorld
{
public:
    explicit ApiWorld(const std::string& camera) : m_camera(camera) {}

    // A handle for an argument of this kind: mostly of the kind, the newest or an older one, else
    // of any kind, NULL, or an address that never was a handle.
    void* Pick(FuzzInput& input, Kind kind);
    void Store(Kind kind, void* handle);
    void* Newest(Kind kind);

    // Memory of the consumer; stays until the world ends, however often it is revoked.
    uint8_t* Memory(size_t size);
    const vusb::Camera& Camera() const { return m_camera; }

private:
    static constexpr size_t kKept = 8; // handles of each kind

    struct Handles
    {
        std::array<std::atomic<void*>, kKept> slots = {};
        std::atomic<size_t> stored = 0;
    };

    vusb::Camera m_camera;
    std::array<Handles, static_cast<size_t>(Kind::Count)> m_handles;
    std::mutex m_mutex;
    std::vector<std::unique_ptr<uint8_t[]>> m_memory;
};

// One call of one exported function, or one thing that happens to the camera.
void ApiStep(FuzzInput& input, ApiWorld& world);
// Opens the library down to a depth of 0 (closed) to 7 (acquiring), so that scripts begin anywhere.
void ApiPrelude(ApiWorld& world, unsigned depth);
