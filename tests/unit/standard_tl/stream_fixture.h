#pragma once

#include <cstdint>
#include <vector>

#include "standard_fixture.h"

namespace standard_tl {

// A data stream with buffers, whose images the test sends.
class StreamTest : public StandardTest
{
protected:
    // Announces buffers with memory of the producer's own.
    std::vector<BUFFER_HANDLE> Announce(size_t count, size_t size = 64);
    void Queue(BUFFER_HANDLE buffer);
    // Announces and queues.
    std::vector<BUFFER_HANDLE> Prepare(size_t count, size_t size = 64);
    void Start(uint64_t images = GENTL_INFINITE);
    void Stop(ACQ_STOP_FLAGS flags = ACQ_STOP_FLAGS_DEFAULT);
    void Flush(ACQ_QUEUE_TYPE operation);
    // A mode of StreamBufferHandlingMode, by its register.
    void SetMode(uint64_t mode);

    // An image of `size` bytes comes; false when the camera has to wait.
    bool Send(uint64_t blockId = 1, size_t size = 32);
    bool Send(const u3v_host::Image& image, size_t size = 32);
    // Of the open stream.
    fake_host::Receiver& Receiver() { return *camera.receiver; }

    // The next buffer of the event, which is registered when needed; NULL when there is none or
    // the wait was killed.
    EVENT_HANDLE NewBuffer();
    BUFFER_HANDLE Next(uint64_t timeout = 0);

    template <class T>
    T Info(STREAM_INFO_CMD command)
    {
        return StreamInfo(command).As<T>();
    }
    template <class T>
    T Info(BUFFER_HANDLE buffer, BUFFER_INFO_CMD command)
    {
        return BufferInfo(buffer, command).As<T>();
    }
    size_t Queued() { return Info<size_t>(STREAM_INFO_NUM_QUEUED); }
    size_t Awaiting() { return Info<size_t>(STREAM_INFO_NUM_AWAIT_DELIVERY); }
    uint64_t Lost() { return Info<uint64_t>(STREAM_INFO_NUM_UNDERRUN); }
    bool IsGrabbing() { return Info<bool8_t>(STREAM_INFO_IS_GRABBING); }
    bool IsQueued(BUFFER_HANDLE buffer) { return Info<bool8_t>(buffer, BUFFER_INFO_IS_QUEUED); }
    uint64_t FrameId(BUFFER_HANDLE buffer) { return Info<uint64_t>(buffer, BUFFER_INFO_FRAMEID); }

private:
    EVENT_HANDLE m_newBuffer = nullptr;
};

} // namespace standard_tl
