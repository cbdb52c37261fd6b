#pragma once

#include <span>

#include "session.h"

namespace consumer {

// Whose memory the images come into.
enum class BufferMemory
{
    OfConsumer, // the acquisition's, announced with DSAnnounceBuffer
    OfProducer, // DSAllocAndAnnounceBuffer
};

// What makes the camera itself send images and stop, where the producer leaves that to its user:
// `start` is called behind the start of the stream, `stop` before its stop. Either may be empty,
// and either may throw.
struct CameraSwitch
{
    std::function<void()> start;
    std::function<void()> stop;
};

// Starts and stops a camera by a register of 32 bits. The camera must outlive the switch.
CameraSwitch RegisterSwitch(const Camera& camera, uint64_t address, uint32_t startValue = 1,
                            uint32_t stopValue = 0);

// A filled buffer and what is known of its image. `bytes` are the buffer's: they change once it is
// queued again.
struct Image
{
    BUFFER_HANDLE buffer = nullptr;
    std::span<const uint8_t> bytes; // what was filled, as far as the buffer reaches
    uint64_t width = 0;             // 0: the buffer holds no image with a width
    uint64_t height = 0;
    uint64_t pixelFormat = 0; // code of the PFNC
    uint64_t frameId = 0;
    uint64_t timestamp = 0; // of the camera, in ns
    bool isIncomplete = false;
    std::chrono::steady_clock::time_point arrival{};
};

// Announced buffers, all of them queued, and the event that tells of filled ones. The destructor
// stops a running acquisition, empties the queues and revokes the buffers. Kill() may be called by
// any thread, everything else by one at a time.
class Acquisition
{
public:
    Acquisition(const DataStream& stream, size_t bufferSize, size_t buffers,
                BufferMemory memory = BufferMemory::OfConsumer, CameraSwitch camera = {});
    ~Acquisition();
    Acquisition(const Acquisition&) = delete;
    Acquisition& operator=(const Acquisition&) = delete;

    const DataStream& Stream() const { return m_stream; }
    EVENT_HANDLE NewBufferEvent() const { return m_newBuffer; }
    const std::vector<BUFFER_HANDLE>& Buffers() const { return m_buffers; }

    void Start(uint64_t images = GENTL_INFINITE);
    void Stop(ACQ_STOP_FLAGS flags = ACQ_STOP_FLAGS_DEFAULT);

    // The next filled buffer; nullptr after `timeout_ms` (finite, for some producers take an
    // endless wait for none at all) or after Kill().
    BUFFER_HANDLE NextBuffer(uint64_t timeout_ms) const;
    // The same with what is known of its image.
    std::optional<Image> Next(uint64_t timeout_ms) const;
    // Ends one wait for a buffer, the next one if none is under way.
    void Kill() const;

    // Gives a buffer back to be filled again.
    void Queue(BUFFER_HANDLE buffer) const;
    // Forgets images that nobody has taken and queues all buffers, as at the beginning.
    void Rewind() const;

    // An info of a buffer. Throws GenTLError.
    template <class T>
    T Info(BUFFER_HANDLE buffer, BUFFER_INFO_CMD command) const
    {
        return Api().Value<T>(
            "DSGetBufferInfo", [&](INFO_DATATYPE* type, void* data, size_t* size) {
                return Api().DSGetBufferInfo(m_stream.Handle(), buffer, command, type, data, size);
            });
    }

private:
    const Producer& Api() const { return m_stream.Api(); }
    void _announce(size_t bufferSize, size_t buffers, BufferMemory memory);
    void _release();
    Image _describe(BUFFER_HANDLE buffer) const;
    void _ask(BUFFER_HANDLE buffer, std::span<DS_BUFFER_INFO_STACKED> questions) const;

    const DataStream& m_stream;
    const CameraSwitch m_camera;
    std::vector<std::vector<uint8_t>> m_memory;
    std::vector<BUFFER_HANDLE> m_buffers;
    EVENT_HANDLE m_newBuffer = nullptr;
    bool m_isRunning = false;
};

} // namespace consumer
