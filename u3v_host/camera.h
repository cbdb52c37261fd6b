#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <vector>

#include "camera_info.h"
#include "description_file.h"
#include "event_packet.h"

namespace u3v_host {

class ImageSink;
class StreamReceiver;
class Wakeup;

// Signalling rate of the link in bytes per second: 60000000, 625000000, 1250000000; 0 when unknown.
using LinkSpeed = uint64_t;

// Memory for one buffer: device memory where that is faster and there is some, else page-aligned
// ordinary memory. Freed with the object; keeps what it needs of the camera alive.
class BufferMemory
{
public:
    virtual ~BufferMemory() = default;
    virtual uint8_t* Data() const = 0;
    virtual size_t Size() const = 0;
    virtual bool IsDeviceMemory() const = 0;
};

// An opened camera. Any thread may call anything at any time; one control exchange is under way at
// a time. Closing (the destructor) ends events and streaming, gives the kernel's driver back and
// closes the device; nobody is inside a call then.
class Camera
{
public:
    virtual ~Camera() = default;

    // As the camera's registers tell them now: the user-defined name follows a write.
    virtual CameraInfo Info() const = 0;
    virtual OpenMode Mode() const = 0;
    virtual LinkSpeed Speed() const = 0;
    // True once the camera has left the bus; it does not come back in this object.
    virtual bool IsGone() const = 0;

    // Camera memory, any length, cut into exchanges that the camera takes. Returns when all is done
    // or throws Error; `done` says in either case how many bytes were.
    virtual void Read(uint64_t address, std::span<uint8_t> destination, size_t& done) = 0;
    virtual void Write(uint64_t address, std::span<const uint8_t> source, size_t& done) = 0;

    // The best first. Empty when the camera has none, or none that makes sense.
    virtual const std::vector<DescriptionFile>& DescriptionFiles() const = 0;

    // 0 for a camera without streaming, else as many as the camera says.
    virtual uint32_t NumStreams() const = 0;
    // Bytes of one image as the camera's register has it now. Throws Error.
    virtual uint64_t PayloadSize() = 0;
    // Device memory or ordinary; std::bad_alloc when there is neither.
    virtual std::unique_ptr<BufferMemory> AllocateBuffer(size_t size) = 0;
    // Bytes of device memory given out by this process and not freed.
    virtual uint64_t DeviceMemoryInUse() const = 0;
    // A receiver for the stream; `sink` outlives it. The camera outlives the receiver.
    virtual std::unique_ptr<StreamReceiver> OpenStream(ImageSink& sink) = 0;
    // A wake-up whose waiter may serve this camera's USB events while it waits.
    virtual std::unique_ptr<Wakeup> MakeWakeup() = 0;

    virtual bool HasEvents() const = 0;
    // Switches the camera's event interface on and calls `listener` on the serving thread for each
    // event; an empty function switches it off and returns when no call is under way. Throws Error.
    virtual void OnEvent(std::function<void(const CameraEvent&)> listener) = 0;

    // Called once, on the serving thread, when the camera has left. An empty function ends it and
    // returns when no call is under way.
    virtual void OnGone(std::function<void()> listener) = 0;
};

} // namespace u3v_host
