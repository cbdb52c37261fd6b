#pragma once

// What the standard producer's integration tests share: one simulated camera, opened down to its
// stream, and its images.

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "producer_fixture.h"

namespace standard_tests {

using consumer::BufferMemory;

class StandardProducer : public ProducerTest
{
protected:
    void SetUp() override;
    // Plugs a camera with these options and opens it.
    void Open(const std::string& options, DEVICE_ACCESS_FLAGS access = DEVICE_ACCESS_EXCLUSIVE);
    // Announces and queues buffers of the payload's size, or of another.
    void Announce(size_t buffers = 4, BufferMemory memory = BufferMemory::OfProducer,
                  size_t size = 0);
    void TearDown() override;

    // The next image, within a generous time.
    std::optional<consumer::Image> Next() const;
    void Queue(const consumer::Image& image) const { images->Queue(image.buffer); }
    // Takes images until one with this block id has come; nothing when it does not come.
    std::optional<consumer::Image> NextWithId(uint64_t id) const;

    // Every byte of it is what the camera has sent as that block.
    bool IsExact(const consumer::Image& image) const;
    // Takes so many whole images, with block ids from `first` on.
    void ExpectWhole(uint64_t first, uint64_t count) const;

    template <class T>
    T Info(const consumer::Image& image, BUFFER_INFO_CMD command) const
    {
        return images->Info<T>(image.buffer, command);
    }
    uint64_t Lost() const { return opened->Stream().Info<uint64_t>(STREAM_INFO_NUM_UNDERRUN); }
    bool IsGrabbing() const { return opened->Stream().Info<bool8_t>(STREAM_INFO_IS_GRABBING); }
    // The record of an event that comes within a generous time; empty without one.
    std::vector<uint8_t> Record(EVENT_HANDLE event) const;
    EVENT_HANDLE Register(void* module, EVENT_TYPE type) const;
    std::string LastError() const;

    std::optional<vusb::Camera> camera;
    std::optional<consumer::Session> session;
    std::optional<OpenCamera> opened;
    std::optional<consumer::Acquisition> images;
};

// Until the condition holds; false when it does not within a generous time.
bool Eventually(const std::function<bool()>& condition);

} // namespace standard_tests
