#include "data_stream.h"

#include <algorithm>
#include <utility>

#include "chunk_parser.h"
#include "event_data.h"
#include "failure.h"
#include "last_error.h"
#include "producer_facts.h"

namespace standard_tl {
namespace {

using u3v_host::Image;
using u3v_host::Target;

constexpr DocumentIdentity kDocument{"zr_u3v_standard_stream", "A data stream of the camera",
                                     "StreamPort", "6B1C3C52-8D0E-4F0A-9B61-7C2C35C9A104"};

constexpr InfoTable<DataStream, 16> kInfo{
    "data stream",
    {
        {STREAM_INFO_ID, INFO_DATATYPE_STRING,
         [](DataStream&) { return Value(DataStream::IdOf(0)); }},
        {STREAM_INFO_NUM_DELIVERED, INFO_DATATYPE_UINT64,
         [](DataStream& s) { return Value(s.Count().delivered); }},
        {STREAM_INFO_NUM_UNDERRUN, INFO_DATATYPE_UINT64,
         [](DataStream& s) { return Value(s.Count().lost); }},
        {STREAM_INFO_NUM_ANNOUNCED, INFO_DATATYPE_SIZET,
         [](DataStream& s) { return Value(s.Count().announced); }},
        {STREAM_INFO_NUM_QUEUED, INFO_DATATYPE_SIZET,
         [](DataStream& s) { return Value(s.Count().queued); }},
        {STREAM_INFO_NUM_AWAIT_DELIVERY, INFO_DATATYPE_SIZET,
         [](DataStream& s) { return Value(s.Count().awaiting); }},
        {STREAM_INFO_NUM_STARTED, INFO_DATATYPE_UINT64,
         [](DataStream& s) { return Value(s.Statistics().started); }},
        {STREAM_INFO_PAYLOAD_SIZE, INFO_DATATYPE_SIZET,
         [](DataStream& s) { return Value(s.PayloadSize()); }},
        {STREAM_INFO_IS_GRABBING, INFO_DATATYPE_BOOL8,
         [](DataStream& s) { return Value(s.Count().isGrabbing); }},
        {STREAM_INFO_DEFINES_PAYLOADSIZE, INFO_DATATYPE_BOOL8,
         [](DataStream&) { return Value(true); }},
        {STREAM_INFO_TLTYPE, INFO_DATATYPE_STRING,
         [](DataStream&) { return Value(producer::kTlType); }},
        {STREAM_INFO_NUM_CHUNKS_MAX, INFO_DATATYPE_SIZET, [](DataStream&) { return Value(); }},
        {STREAM_INFO_BUF_ANNOUNCE_MIN, INFO_DATATYPE_SIZET,
         [](DataStream&) { return Value(DataStream::kLeastBuffers); }},
        {STREAM_INFO_BUF_ALIGNMENT, INFO_DATATYPE_SIZET, [](DataStream&) { return Value(1); }},
        {STREAM_INFO_FLOW_TABLE, INFO_DATATYPE_BUFFER, [](DataStream&) { return Value(); }},
        {STREAM_INFO_GENDC_PREFETCH_DESCRIPTOR, INFO_DATATYPE_BUFFER,
         [](DataStream&) { return Value(); }},
    }};

} // namespace

// The entries of this event are the output queue's buffers, registered or not: its lock is the data
// stream's.
class DataStream::NewBufferEvent final : public Event
{
public:
    explicit NewBufferEvent(DataStream& stream)
        : Event(EVENT_NEW_BUFFER, LargestRecord(EVENT_NEW_BUFFER), stream.m_mutex,
                *stream.m_wakeup),
          m_stream(stream)
    {
    }

    // With the data stream's lock held.
    bool Fire()
    {
        m_mutex.AssertHeld();
        return _fired();
    }
    size_t Waiting() const
    {
        m_mutex.AssertHeld();
        return _waiting();
    }

private:
    size_t _count() const override
    {
        m_stream.m_mutex.AssertHeld();
        return m_stream.m_output.Size();
    }
    Bytes _front() override
    {
        m_stream.m_mutex.AssertHeld();
        const Buffer& buffer = *m_stream.m_output.Front();
        m_record = {buffer.Handle(), buffer.user};
        return {reinterpret_cast<const uint8_t*>(&m_record), sizeof(m_record)};
    }
    void _pop() override
    {
        m_stream.m_mutex.AssertHeld();
        m_stream._handOver();
    }
    void _clear() override
    {
        m_stream.m_mutex.AssertHeld();
        m_stream._discardOutput();
    }

    DataStream& m_stream;
    EVENT_NEW_BUFFER_DATA m_record = {};
};

DataStream::DataStream(Node& device, u3v_host::Camera& camera)
    : RegisterModule(&device, kDocument, _features()), m_camera(camera),
      m_wakeup(camera.MakeWakeup()), m_receiver(camera.OpenStream(*this))
{
}

void DataStream::CloseBelow()
{
    Stop(true);
    Module::CloseBelow();
    Locker lock(m_mutex);
    for (const auto& buffer : m_buffers) {
        Handles().Remove(buffer->Handle());
    }
    m_buffers.clear();
}

// ---- announced buffers

void* DataStream::Announce(void* memory, size_t size, void* userPointer)
{
    CheckNotNull(memory, "pBuffer");
    if (size == 0) {
        throw Failure(GC_ERR_INVALID_PARAMETER, "a buffer of no bytes cannot be announced");
    }
    return _announce(std::make_unique<Buffer>(*this, memory, size, userPointer));
}

void* DataStream::AllocateAndAnnounce(size_t size, void* userPointer)
{
    if (size == 0) {
        throw Failure(GC_ERR_INVALID_PARAMETER, "a buffer of no bytes cannot be announced");
    }
    auto memory = m_camera.AllocateBuffer(size);
    uint8_t* const data = memory->Data();
    return _announce(std::make_unique<Buffer>(*this, data, size, userPointer, std::move(memory)));
}

void* DataStream::_announce(std::unique_ptr<Buffer> buffer)
{
    Locker lock(m_mutex);
    const auto isSame = [&buffer](const auto& other) { return other->base == buffer->base; };
    if (std::ranges::any_of(m_buffers, isSame)) {
        throw Failure(GC_ERR_RESOURCE_IN_USE, "the memory is announced already");
    }
    m_buffers.reserve(m_buffers.size() + 1);
    Handles().Add(*buffer);
    m_buffers.push_back(std::move(buffer));
    return m_buffers.back()->Handle();
}

void DataStream::Revoke(void* handle, void** memory, void** userPointer)
{
    const auto buffer = _takeOut(handle);
    Handles().Remove(handle);
    if (memory != nullptr) {
        *memory = buffer->ownMemory == nullptr ? buffer->base : nullptr;
    }
    if (userPointer != nullptr) {
        *userPointer = buffer->user;
    }
}

// Whoever is still inside with its handle finds it revoked.
std::unique_ptr<Buffer> DataStream::_takeOut(void* handle)
{
    Locker lock(m_mutex);
    const auto found = std::ranges::find_if(
        m_buffers, [handle](const auto& buffer) { return buffer->Handle() == handle; });
    if (found == m_buffers.end()) {
        throw Failure(GC_ERR_INVALID_HANDLE, "hBuffer is no buffer of the data stream");
    }
    if ((*found)->state.IsQueued()) {
        throw Failure(GC_ERR_BUSY, "the buffer is queued: DSFlushQueue comes first");
    }
    auto buffer = std::move(*found);
    m_buffers.erase(found);
    buffer->state.place = BufferPlace::Revoked;
    return buffer;
}

void* DataStream::BufferAt(uint32_t index) const
{
    Locker lock(m_mutex);
    if (index >= m_buffers.size()) {
        throw Failure(GC_ERR_INVALID_INDEX,
                      std::to_string(m_buffers.size()) + " buffers are announced");
    }
    return m_buffers[index]->Handle();
}

Pin<Buffer> DataStream::FindBuffer(void* handle)
{
    auto buffer = Handles().Find<Buffer>(handle);
    if (!buffer || &buffer->stream != this) {
        throw Failure(GC_ERR_INVALID_HANDLE, "hBuffer is no buffer of the data stream");
    }
    return buffer;
}

// ---- queues

void DataStream::Queue(Buffer& buffer)
{
    bool isStarved;
    {
        Locker lock(m_mutex);
        if (buffer.state.place == BufferPlace::Revoked) {
            throw Failure(GC_ERR_INVALID_HANDLE, "the buffer is being revoked");
        }
        if (buffer.state.IsQueued()) {
            throw Failure(GC_ERR_RESOURCE_IN_USE, "the buffer is queued already");
        }
        _toInput(buffer);
        isStarved = std::exchange(m_isStarved, false);
    }
    if (isStarved) {
        m_receiver->TargetsAvailable();
    }
}

void DataStream::Flush(ACQ_QUEUE_TYPE operation)
{
    bool isWaitedFor;
    bool isStarved;
    {
        Locker lock(m_mutex);
        isWaitedFor = _flush(operation);
        isStarved = std::exchange(m_isStarved, false);
    }
    if (isWaitedFor) {
        m_wakeup->NotifyAll();
    }
    if (isStarved) {
        m_receiver->TargetsAvailable();
    }
}

// What the receiver has stays there. True when somebody waits for what has come into the output
// queue.
bool DataStream::_flush(ACQ_QUEUE_TYPE operation)
{
    bool isWaitedFor = false;
    switch (operation) {
    case ACQ_QUEUE_INPUT_TO_OUTPUT:
        while (Buffer* const buffer = m_input.PopFront()) {
            isWaitedFor |= _toOutput(*buffer);
        }
        break;
    case ACQ_QUEUE_OUTPUT_DISCARD: _discardOutput(); break;
    case ACQ_QUEUE_ALL_TO_INPUT:
        _discardOutput();
        _queueUnqueued();
        break;
    case ACQ_QUEUE_UNQUEUED_TO_INPUT: _queueUnqueued(); break;
    case ACQ_QUEUE_ALL_DISCARD:
        _discardOutput();
        while (Buffer* const buffer = m_input.PopFront()) {
            _toConsumer(*buffer);
        }
        break;
    default:
        throw Failure(GC_ERR_INVALID_PARAMETER,
                      "there is no flush operation " + std::to_string(operation));
    }
    return isWaitedFor;
}

void DataStream::_discardOutput()
{
    while (Buffer* const buffer = m_output.PopFront()) {
        _toConsumer(*buffer);
    }
}

void DataStream::_queueUnqueued()
{
    for (const auto& buffer : m_buffers) {
        if (!buffer->state.IsQueued()) {
            _toInput(*buffer);
        }
    }
}

// From here on the buffer tells nothing of an earlier image.
void DataStream::_toInput(Buffer& buffer)
{
    buffer.state = {BufferPlace::Input, false, {}};
    buffer.turn = ++m_turn;
    m_input.PushBack(buffer);
}

void DataStream::_toConsumer(Buffer& buffer)
{
    buffer.state.place = BufferPlace::Consumer;
}

// True when somebody waits for it.
bool DataStream::_toOutput(Buffer& buffer)
{
    buffer.state.place = BufferPlace::Output;
    m_output.PushBack(buffer);
    return m_event != nullptr && m_event->Fire();
}

void DataStream::_handOver()
{
    Buffer& buffer = *m_output.PopFront();
    m_delivered += buffer.state.hasImage ? 1U : 0U;
    _toConsumer(buffer);
}

// ---- acquisition

void DataStream::Start(uint64_t images)
{
    Locker control(m_control);
    if (m_camera.Mode() == u3v_host::OpenMode::ReadOnly) {
        throw Failure(GC_ERR_ACCESS_DENIED, "the camera is open for reading only");
    }
    _begin(images);
    try {
        m_receiver->Start();
    } catch (...) {
        Ended();
        throw;
    }
}

void DataStream::_begin(uint64_t images)
{
    Locker lock(m_mutex);
    if (images == 0) {
        throw Failure(GC_ERR_INVALID_PARAMETER, "an acquisition of no images cannot be started");
    }
    if (m_buffers.empty()) {
        throw Failure(GC_ERR_INVALID_BUFFER, "no buffer is announced");
    }
    if (m_isGrabbing) {
        throw Failure(GC_ERR_RESOURCE_IN_USE, "the acquisition runs already");
    }
    m_isGrabbing = true;
    m_isStarved = false;
    m_wanted = images;
    m_delivered = 0;
    m_lost = 0;
    m_incomplete = 0;
}

void DataStream::Stop(bool kill)
{
    Locker control(m_control);
    m_receiver->Stop(kill);
    Ended();
}

// ---- the sink

bool DataStream::Take(Target& target)
{
    Locker lock(m_mutex);
    Buffer* const buffer = _nextTarget();
    if (buffer == nullptr && (m_mode == Mode::OldestFirst || m_receiving != 0)) {
        m_isStarved = true;
        return false;
    }
    ++m_receiving;
    if (buffer == nullptr) {
        ++m_spare;
        target = {};
        return true;
    }
    buffer->state = {BufferPlace::Receiving, false, {}};
    target = {buffer, buffer->base, buffer->capacity};
    return true;
}

// An image that is there and wanted is given up only when the next one would have nowhere to go.
Buffer* DataStream::_nextTarget()
{
    if (Buffer* const queued = m_input.PopFront()) {
        return queued;
    }
    const bool mayDrop = m_mode != Mode::OldestFirst && m_receiving == 0;
    if (!mayDrop || m_output.Size() <= (m_event != nullptr ? m_event->Waiting() : 0)) {
        return nullptr;
    }
    Buffer* const oldest = m_output.PopFront();
    m_lost += oldest->state.hasImage ? 1U : 0U;
    return oldest;
}

bool DataStream::Deliver(const Target& target, const Image& image)
{
    bool isWaitedFor = false;
    bool isMoreWanted = true;
    {
        Locker lock(m_mutex);
        --m_receiving;
        if (target.owner == nullptr) {
            --m_spare;
            ++m_lost;
        } else {
            isWaitedFor = _deliver(*static_cast<Buffer*>(target.owner), image);
            isMoreWanted = m_wanted == GENTL_INFINITE || (m_wanted != 0 && --m_wanted != 0);
        }
    }
    if (isWaitedFor) {
        m_wakeup->NotifyAll();
    }
    return isMoreWanted;
}

bool DataStream::_deliver(Buffer& buffer, const Image& image)
{
    while (m_mode == Mode::NewestOnly && m_output.Size() != 0) {
        Buffer& older = *m_output.PopFront();
        m_lost += older.state.hasImage ? 1U : 0U;
        _toInput(older);
    }
    buffer.state.hasImage = true;
    buffer.state.image = image;
    m_incomplete += image.complete ? 0U : 1U;
    return _toOutput(buffer);
}

void DataStream::GiveBack(const Target& target)
{
    Locker lock(m_mutex);
    --m_receiving;
    if (target.owner == nullptr) {
        --m_spare;
        return;
    }
    Buffer& buffer = *static_cast<Buffer*>(target.owner);
    buffer.state.place = BufferPlace::Input;
    m_input.PushInTurn(buffer);
}

void DataStream::Lost(uint64_t images)
{
    Locker lock(m_mutex);
    m_lost += images;
}

void DataStream::Failed(const u3v_host::Error& error)
{
    _post(EVENT_ERROR, ErrorRecord(CodeOf(error.Kind()), error.what()));
}

void DataStream::Ended()
{
    Locker lock(m_mutex);
    m_isGrabbing = false;
    m_isStarved = false;
}

// ---- events

std::unique_ptr<Event> DataStream::_makeEvent(EVENT_TYPE type)
{
    if (type == EVENT_NEW_BUFFER) {
        return std::make_unique<NewBufferEvent>(*this);
    }
    return type == EVENT_ERROR ? _makeQueuedEvent(type) : nullptr;
}

void DataStream::_switchEvent(EVENT_TYPE type, Event& event, bool on)
{
    if (type == EVENT_NEW_BUFFER) {
        Locker lock(m_mutex);
        m_event = on ? static_cast<NewBufferEvent*>(&event) : nullptr;
    }
}

// ---- information

DataStream::Counts DataStream::Count() const
{
    Locker lock(m_mutex);
    return {.announced = m_buffers.size(),
            .queued = m_input.Size() + m_receiving - m_spare,
            .awaiting = m_output.Size(),
            .delivered = m_delivered,
            .lost = m_lost,
            .incomplete = m_incomplete,
            .isGrabbing = m_isGrabbing};
}

GC_ERROR DataStream::Info(int32_t command, const InfoOut& out)
{
    return kInfo.Answer(*this, command, out);
}

BufferState DataStream::_stateOf(const Buffer& buffer) const
{
    Locker lock(m_mutex);
    return buffer.state;
}

GC_ERROR DataStream::InfoOf(const Buffer& buffer, int32_t command, const InfoOut& out) const
{
    return BufferInfo(buffer, _stateOf(buffer), command, out);
}

// The records are packed: their fields have no addresses that could be handed on.
void DataStream::InfosOf(const Buffer& buffer, std::span<DS_BUFFER_INFO_STACKED> infos) const
{
    const BufferState state = _stateOf(buffer);
    for (DS_BUFFER_INFO_STACKED& info : infos) {
        INFO_DATATYPE type = INFO_DATATYPE_UNKNOWN;
        size_t size = info.iSize;
        info.iResult = BufferInfo(buffer, state, info.iInfoCmd, {&type, info.pBuffer, &size});
        info.iType = type;
        info.iSize = size;
    }
}

GC_ERROR DataStream::Chunks(const Buffer& buffer, SINGLE_CHUNK_DATA* chunks, size_t& count) const
{
    const BufferState state = _stateOf(buffer);
    const Bytes payload(buffer.base, HasChunks(state) ? state.image.filled : 0);
    const auto found = CountChunks(payload);
    if (!found) {
        return Refuse(GC_ERR_PARSING_CHUNK_DATA, "the payload is no sequence of chunks");
    }
    if (*found == 0) {
        return Refuse(GC_ERR_NO_DATA, "the buffer holds no chunks");
    }
    const size_t room = std::exchange(count, *found);
    if (chunks == nullptr) {
        return GC_ERR_SUCCESS;
    }
    if (room < *found) {
        return Refuse(GC_ERR_BUFFER_TOO_SMALL, "there are more chunks than *piNumChunks");
    }
    ListChunks(payload, {chunks, *found});
    return GC_ERR_SUCCESS;
}

PortFacts DataStream::Port()
{
    const u3v_host::CameraInfo info = m_camera.Info();
    return {IdOf(0),        info.vendor,    info.model, info.version,
            "TLDataStream", kDocument.port, true,       true};
}

} // namespace standard_tl
