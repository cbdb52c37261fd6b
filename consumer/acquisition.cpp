#include "acquisition.h"

#include <exception>

namespace consumer {

CameraSwitch RegisterSwitch(const Camera& camera, uint64_t address, uint32_t startValue,
                            uint32_t stopValue)
{
    return {[&camera, address, startValue] { camera.Write(address, startValue); },
            [&camera, address, stopValue] { camera.Write(address, stopValue); }};
}

Acquisition::Acquisition(const DataStream& stream, size_t bufferSize, size_t buffers,
                         BufferMemory memory, CameraSwitch camera)
    : m_stream(stream), m_camera(std::move(camera))
{
    // The destructor does not run for an object whose constructor throws.
    try {
        GENTL_CALL(Api(), GCRegisterEvent, m_stream.Handle(), EVENT_NEW_BUFFER, &m_newBuffer);
        _announce(bufferSize, buffers, memory);
    } catch (...) {
        _release();
        throw;
    }
}

Acquisition::~Acquisition()
{
    _release();
}

// The handles start as null each time: some producers refuse a variable that looks taken.
void Acquisition::_announce(size_t bufferSize, size_t buffers, BufferMemory memory)
{
    if (memory == BufferMemory::OfConsumer) {
        m_memory.assign(buffers, std::vector<uint8_t>(bufferSize));
    }
    for (size_t i = 0; i < buffers; i++) {
        BUFFER_HANDLE buffer = nullptr;
        if (memory == BufferMemory::OfConsumer) {
            GENTL_CALL(Api(), DSAnnounceBuffer, m_stream.Handle(), m_memory[i].data(), bufferSize,
                       this, &buffer);
        } else {
            GENTL_CALL(Api(), DSAllocAndAnnounceBuffer, m_stream.Handle(), bufferSize, this,
                       &buffer);
        }
        m_buffers.push_back(buffer);
        Queue(buffer);
    }
}

// In the order that producers want: stop, take the buffers out of the queues, unregister, revoke.
// Also of what was only announced in part.
void Acquisition::_release()
{
    if (m_isRunning) {
        try {
            Stop();
        } catch (const std::exception& failure) {
            Api().ReportFailedClose(failure);
        }
    }
    GENTL_CLOSE(Api(), DSFlushQueue, m_stream.Handle(), ACQ_QUEUE_ALL_DISCARD);
    if (m_newBuffer != nullptr) {
        GENTL_CLOSE(Api(), GCUnregisterEvent, m_stream.Handle(), EVENT_NEW_BUFFER);
    }
    for (BUFFER_HANDLE buffer : m_buffers) {
        GENTL_CLOSE(Api(), DSRevokeBuffer, m_stream.Handle(), buffer, nullptr, nullptr);
    }
}

void Acquisition::Start(uint64_t images)
{
    GENTL_CALL(Api(), DSStartAcquisition, m_stream.Handle(), ACQ_START_FLAGS_DEFAULT, images);
    m_isRunning = true;
    if (m_camera.start != nullptr) {
        m_camera.start();
    }
}

// The stream is stopped also when the camera refuses, or has gone.
void Acquisition::Stop(ACQ_STOP_FLAGS flags)
{
    m_isRunning = false;
    std::exception_ptr failure;
    try {
        if (m_camera.stop != nullptr) {
            m_camera.stop();
        }
    } catch (...) {
        failure = std::current_exception();
    }
    GENTL_CALL(Api(), DSStopAcquisition, m_stream.Handle(), flags);
    if (failure != nullptr) {
        std::rethrow_exception(failure);
    }
}

BUFFER_HANDLE Acquisition::NextBuffer(uint64_t timeout_ms) const
{
    EVENT_NEW_BUFFER_DATA data{};
    size_t size = sizeof data;
    const GC_ERROR status = Api().EventGetData(m_newBuffer, &data, &size, timeout_ms);
    if (status == GC_ERR_TIMEOUT || status == GC_ERR_ABORT) {
        return nullptr;
    }
    Api().Check(status, "EventGetData");
    return data.BufferHandle;
}

std::optional<Image> Acquisition::Next(uint64_t timeout_ms) const
{
    BUFFER_HANDLE const buffer = NextBuffer(timeout_ms);
    return buffer != nullptr ? std::optional(_describe(buffer)) : std::nullopt;
}

void Acquisition::Kill() const
{
    GENTL_CALL(Api(), EventKill, m_newBuffer);
}

void Acquisition::Queue(BUFFER_HANDLE buffer) const
{
    GENTL_CALL(Api(), DSQueueBuffer, m_stream.Handle(), buffer);
}

void Acquisition::Rewind() const
{
    GENTL_CALL(Api(), DSFlushQueue, m_stream.Handle(), ACQ_QUEUE_ALL_DISCARD);
    for (BUFFER_HANDLE buffer : m_buffers) {
        Queue(buffer);
    }
}

// Width, height and format are not answered for a payload that has none, and stay 0.
template <class T>
T Acquisition::_infoOrZero(BUFFER_HANDLE buffer, BUFFER_INFO_CMD command) const
{
    T value{};
    const GC_ERROR status = _ask(buffer, command, value);
    if (status == GC_ERR_NOT_IMPLEMENTED || status == GC_ERR_NOT_AVAILABLE) {
        return {};
    }
    Api().Check(status, "DSGetBufferInfo");
    return value;
}

// What the producer tells of sizes is used as far as the buffer reaches, no further.
Image Acquisition::_describe(BUFFER_HANDLE buffer) const
{
    Image image;
    image.arrival = std::chrono::steady_clock::now();
    image.buffer = buffer;
    const auto* const base = Info<const uint8_t*>(buffer, BUFFER_INFO_BASE);
    image.bytes = {base, std::min(Info<size_t>(buffer, BUFFER_INFO_SIZE_FILLED),
                                  Info<size_t>(buffer, BUFFER_INFO_SIZE))};
    image.width = _infoOrZero<size_t>(buffer, BUFFER_INFO_WIDTH);
    image.height = _infoOrZero<size_t>(buffer, BUFFER_INFO_HEIGHT);
    image.pixelFormat = _infoOrZero<uint64_t>(buffer, BUFFER_INFO_PIXELFORMAT);
    image.frameId = _infoOrZero<uint64_t>(buffer, BUFFER_INFO_FRAMEID);
    image.timestamp = _infoOrZero<uint64_t>(buffer, BUFFER_INFO_TIMESTAMP);
    image.isIncomplete = Info<bool8_t>(buffer, BUFFER_INFO_IS_INCOMPLETE);
    return image;
}

} // namespace consumer
