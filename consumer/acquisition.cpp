#include "acquisition.h"

#include <exception>

namespace consumer {

namespace {

bool IsWithoutMeaning(GC_ERROR status)
{
    return status == GC_ERR_NOT_IMPLEMENTED || status == GC_ERR_NOT_AVAILABLE;
}

} // namespace

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

// In one call where the producer has it: then all answers are about one image.
void Acquisition::_ask(BUFFER_HANDLE buffer, std::span<DS_BUFFER_INFO_STACKED> questions) const
{
    if (Api().DSGetBufferInfoStacked != nullptr) {
        GENTL_CALL(Api(), DSGetBufferInfoStacked, m_stream.Handle(), buffer, questions.data(),
                   questions.size());
        return;
    }
    for (DS_BUFFER_INFO_STACKED& question : questions) {
        INFO_DATATYPE type = INFO_DATATYPE_UNKNOWN;
        size_t size = question.iSize; // no address of its own in a packed record
        question.iResult = Api().DSGetBufferInfo(m_stream.Handle(), buffer, question.iInfoCmd,
                                                 &type, question.pBuffer, &size);
    }
}

// What the producer tells of sizes is used as far as the buffer reaches, no further.
Image Acquisition::_describe(BUFFER_HANDLE buffer) const
{
    Image image;
    image.arrival = std::chrono::steady_clock::now();
    image.buffer = buffer;
    const uint8_t* base = nullptr;
    size_t size = 0;
    size_t filled = 0;
    size_t width = 0;
    size_t height = 0;
    bool8_t isIncomplete = false;
    const auto question = [](BUFFER_INFO_CMD command, auto& answer) {
        return DS_BUFFER_INFO_STACKED{command, 0, &answer, sizeof answer, GC_ERR_SUCCESS};
    };
    constexpr size_t kAlwaysAnswered = 4; // the others have no meaning for some payloads
    DS_BUFFER_INFO_STACKED questions[] = {
        question(BUFFER_INFO_BASE, base),
        question(BUFFER_INFO_SIZE, size),
        question(BUFFER_INFO_SIZE_FILLED, filled),
        question(BUFFER_INFO_IS_INCOMPLETE, isIncomplete),
        question(BUFFER_INFO_WIDTH, width),
        question(BUFFER_INFO_HEIGHT, height),
        question(BUFFER_INFO_PIXELFORMAT, image.pixelFormat),
        question(BUFFER_INFO_FRAMEID, image.frameId),
        question(BUFFER_INFO_TIMESTAMP, image.timestamp),
    };
    _ask(buffer, questions);
    for (size_t i = 0; i < std::size(questions); i++) {
        const GC_ERROR result = questions[i].iResult;
        if (i < kAlwaysAnswered || !IsWithoutMeaning(result)) {
            Api().Check(result, "DSGetBufferInfo");
        }
    }
    image.bytes = {base, std::min(filled, size)};
    image.width = width;
    image.height = height;
    image.isIncomplete = isIncomplete;
    return image;
}

} // namespace consumer
