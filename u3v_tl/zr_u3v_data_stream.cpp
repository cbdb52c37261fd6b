#include "zr_u3v_data_stream.h"

#include <algorithm>
#include <exception>
#include <span>
#include <zr_u3v_tl/u3v_lib.h>

#include "module_failure.h"
#include "port_info.h"
#include "zr_gentl_util.h"
#include "zr_u3v_remote_device.h"

namespace {

constexpr const char* kDocumentFileName = "ZrGenTLU3V_DS.xml";
constexpr uint32_t kTransferSize = 0x100000; // bytes of one payload transfer
constexpr uint32_t kImageTimeout = 200;      // ms the acquisition thread waits for one image
constexpr size_t kAnnounceMinimum = 1;
constexpr uint32_t kOldestFirst = 0; // the one buffer handling mode

// The missing bytes are another's word: they never exceed the buffer.
ZrGenTLImage ImageOf(const IMAGE_HEADER& header, size_t bufferSize, bool incomplete)
{
    const size_t missing = incomplete ? std::min<size_t>(header.nMissingBytes, bufferSize) : 0;
    return {bufferSize - missing, header.nBlockId,     header.nTimestamp, header.nSizeX,
            header.nSizeY,        header.nPixelFormat, incomplete};
}

} // namespace

ZrU3VDataStream::ZrU3VDataStream(ZrU3VRemoteDevice* remote, uint32_t index,
                                 ZrGenTLModuleBase* parent)
    : ZrGenTLModuleBase(std::to_string(index), parent, ProducerPortInfo(kKindName, "StreamPort")),
      m_pRemoteDevice(remote), m_threadAcquisition(std::make_unique<ZrU3VThreadAcquisition>(this)),
      m_streamId(std::to_string(index)), m_tlType(Producer::kTLType),
      m_document(kDocumentFileName, ZrGenTLUtil::CreateXMLDataStream())
{
    SetUrlList({m_document.GetUrl()});
}

ZrU3VDataStream::~ZrU3VDataStream()
{
    bool open = false;
    {
        Locker<RecursiveMutex> lock(m_mutex);
        open = m_open;
    }
    if (open) {
        Close();
    }
    m_threadAcquisition->Stop();
    _wakeAcquisition();
    m_threadAcquisition->Wait(-1);
    m_threadAcquisition.reset();
    // The events go before the buffers that their entries are.
    _destroyEvents();
}

GC_ERROR ZrU3VDataStream::Open()
{
    Locker<Mutex> control(m_controlMutex);
    {
        Locker<RecursiveMutex> lock(m_mutex);
        if (m_open) {
            return ZR_FAIL(GC_ERR_RESOURCE_IN_USE, "%s GC_ERR_RESOURCE_IN_USE", __func__);
        }
    }
    if (const GC_ERROR status = m_pRemoteDevice->OpenStream(); status != GC_ERR_SUCCESS) {
        return ZR_FAIL(status, "%s OpenStream:%d", __func__, status);
    }
    Locker<RecursiveMutex> lock(m_mutex);
    m_open = true;
    return GC_ERR_SUCCESS;
}

GC_ERROR ZrU3VDataStream::Close()
{
    Locker<Mutex> control(m_controlMutex);
    {
        Locker<RecursiveMutex> lock(m_mutex);
        if (!m_open) {
            return ZR_FAIL(GC_ERR_NOT_INITIALIZED, "%s GC_ERR_NOT_INITIALIZED", __func__);
        }
    }
    if (_isAcquiring()) {
        _endAcquisition();
    }
    // Ended, or just about to end by itself: the stream goes only after the thread that reads it.
    m_threadAcquisition->Wait(-1);
    if (const GC_ERROR status = m_pRemoteDevice->CloseStream(); status != GC_ERR_SUCCESS) {
        ZR_TRACE(ZR_TRACE_ERROR, "%s m_pRemoteDevice->CloseStream:%d", __func__, status);
    }
    Locker<RecursiveMutex> lock(m_mutex);
    m_open = false;
    return GC_ERR_SUCCESS;
}

bool ZrU3VDataStream::_isAcquiring()
{
    Locker<RecursiveMutex> lock(m_mutex);
    return m_acquiring;
}

GC_ERROR ZrU3VDataStream::AnnounceBuffer(void* buffer, size_t size, void* userPtr, void** handle)
{
    if (buffer == nullptr || handle == nullptr) {
        return ZR_FAIL(GC_ERR_INVALID_PARAMETER, "%s GC_ERR_INVALID_PARAMETER", __func__);
    }
    if (_isAcquiring()) {
        return ZR_FAIL(GC_ERR_BUSY, "%s GC_ERR_BUSY", __func__);
    }
    Locker<Mutex> lock(m_bufferMutex);
    if (m_BufferContainer.FindByBuffer(ZR_BUFFER_LIST_ANNOUNCED, buffer, false) != nullptr) {
        return ZR_FAIL(GC_ERR_RESOURCE_IN_USE, "%s GC_ERR_RESOURCE_IN_USE", __func__);
    }
    return _announce(std::make_unique<ZrGenTLBuffer>(buffer, size, false, userPtr, nullptr),
                     handle);
}

GC_ERROR ZrU3VDataStream::AllocAndAnnounceBuffer(size_t size, void* userPtr, void** handle)
{
    // Quirk Q48: deliberately strict, an uninitialised handle variable is refused.
    if (handle == nullptr || *handle != nullptr) {
        return ZR_FAIL(GC_ERR_INVALID_PARAMETER, "%s GC_ERR_INVALID_PARAMETER", __func__);
    }
    if (_isAcquiring()) {
        return ZR_FAIL(GC_ERR_BUSY, "%s GC_ERR_BUSY", __func__);
    }
    auto buffer = std::make_unique<ZrGenTLBuffer>(nullptr, size, true, userPtr, nullptr);
    Locker<Mutex> lock(m_bufferMutex);
    return _announce(std::move(buffer), handle);
}

GC_ERROR ZrU3VDataStream::_announce(std::unique_ptr<ZrGenTLBuffer> buffer, void** handle)
{
    m_BufferContainer.Add(ZR_BUFFER_LIST_ANNOUNCED, buffer.get());
    *handle = buffer.release(); // the announced list's from now on, until it is revoked
    return GC_ERR_SUCCESS;
}

GC_ERROR ZrU3VDataStream::RevokeBuffer(void* handle, void** buffer, void** userPtr)
{
    std::unique_ptr<ZrGenTLBuffer> revoked;
    {
        Locker<Mutex> lock(m_bufferMutex);
        if (m_BufferContainer.FindByHandle(ZR_BUFFER_LIST_ANNOUNCED, handle, false) == nullptr) {
            return ZR_FAIL(GC_ERR_INVALID_HANDLE, "%s GC_ERR_INVALID_HANDLE", __func__);
        }
        if (m_BufferContainer.FindByHandle(ZR_BUFFER_LIST_INPUT, handle, false) != nullptr) {
            return ZR_FAIL(GC_ERR_BUSY, "%s GC_ERR_BUSY", __func__);
        }
        revoked.reset(static_cast<ZrGenTLBuffer*>(
            m_BufferContainer.FindByHandle(ZR_BUFFER_LIST_ANNOUNCED, handle, true)));
        if (!revoked) {
            return ZR_FAIL(GC_ERR_ERROR, "%s GC_ERR_ERROR", __func__);
        }
    }
    // Nobody finds the buffer any more. Those who are still inside leave, then its undelivered
    // entries go.
    revoked->Gate().ShutAndWait();
    if (const auto event = PinEventById(EVENT_NEW_BUFFER)) {
        event->RemoveEntry(revoked.get());
    }
    if (buffer != nullptr) {
        *buffer = revoked->GetBase();
    }
    if (userPtr != nullptr) {
        *userPtr = revoked->GetUserPtr();
    }
    return GC_ERR_SUCCESS;
}

GC_ERROR ZrU3VDataStream::QueueBuffer(void* handle)
{
    Locker<Mutex> lock(m_bufferMutex);
    auto* buffer = static_cast<ZrGenTLBuffer*>(
        m_BufferContainer.FindByHandle(ZR_BUFFER_LIST_ANNOUNCED, handle, false));
    if (buffer == nullptr) {
        return ZR_FAIL(GC_ERR_INVALID_HANDLE, "%s GC_ERR_INVALID_HANDLE", __func__);
    }
    if (buffer->IsQueued()) {
        return ZR_FAIL(GC_ERR_RESOURCE_IN_USE, "%s GC_ERR_RESOURCE_IN_USE", __func__);
    }
    m_BufferContainer.Add(ZR_BUFFER_LIST_INPUT, buffer);
    buffer->SetQueueFlag(true);
    buffer->SetNewDataFlag(false);
    m_inputChanged.Signal();
    return GC_ERR_SUCCESS;
}

GC_ERROR ZrU3VDataStream::FlushQueue(int32_t operation)
{
    Locker<Mutex> lock(m_bufferMutex);
    switch (operation) {
    case ACQ_QUEUE_INPUT_TO_OUTPUT: _signalInput(); return GC_ERR_SUCCESS;
    case ACQ_QUEUE_OUTPUT_DISCARD: _flushEvent(); return GC_ERR_SUCCESS;
    case ACQ_QUEUE_ALL_TO_INPUT:
        _flushEvent();
        _queueUnqueued();
        return GC_ERR_SUCCESS;
    case ACQ_QUEUE_UNQUEUED_TO_INPUT: _queueUnqueued(); return GC_ERR_SUCCESS;
    case ACQ_QUEUE_ALL_DISCARD:
        _flushEvent();
        _discardInput();
        return GC_ERR_SUCCESS;
    default:
        return ZR_FAIL(GC_ERR_NOT_IMPLEMENTED, "%s GC_ERR_NOT_IMPLEMENTED :%d", __func__,
                       operation);
    }
}

// Quirk Q46: each input buffer becomes a delivery, uncounted and with its flags as they are;
// without an event it only leaves the list.
void ZrU3VDataStream::_signalInput()
{
    if (const auto event = PinEventById(EVENT_NEW_BUFFER)) {
        // One by one: without memory for all of them, those that are delivered have left the list.
        while (ZrGenTLBuffer* buffer = m_BufferContainer.GetFront(ZR_BUFFER_LIST_INPUT, false)) {
            event->Reserve();
            m_BufferContainer.GetFront(ZR_BUFFER_LIST_INPUT, true);
            event->Signal(buffer);
        }
    }
    m_BufferContainer.Clear(ZR_BUFFER_LIST_INPUT, false);
}

void ZrU3VDataStream::_flushEvent()
{
    if (const auto event = PinEventById(EVENT_NEW_BUFFER)) {
        event->Flush();
    }
}

// Quirk Q49: the queued flag stays clear, only QueueBuffer sets it; so a buffer that is in the list
// already, put there without the flag, is appended again.
void ZrU3VDataStream::_queueUnqueued()
{
    for (ZrGenTLBuffer* buffer : m_BufferContainer.Copy(ZR_BUFFER_LIST_ANNOUNCED)) {
        if (!buffer->IsQueued()) {
            m_BufferContainer.Add(ZR_BUFFER_LIST_INPUT, buffer);
        }
    }
    m_inputChanged.Signal();
}

void ZrU3VDataStream::_discardInput()
{
    for (ZrGenTLBuffer* buffer : m_BufferContainer.Copy(ZR_BUFFER_LIST_INPUT)) {
        buffer->SetNewDataFlag(false);
        buffer->SetQueueFlag(false);
    }
    m_BufferContainer.Clear(ZR_BUFFER_LIST_INPUT, false);
}

GC_ERROR ZrU3VDataStream::StartAcquisition(int32_t /*flags*/, uint64_t count)
{
    Locker<Mutex> control(m_controlMutex);
    if (count == 0) {
        return ZR_FAIL(GC_ERR_INVALID_PARAMETER, "%s GC_ERR_INVALID_PARAMETER", __func__);
    }
    const uint32_t announced = m_BufferContainer.GetCount(ZR_BUFFER_LIST_ANNOUNCED);
    if (announced == 0) {
        return ZR_FAIL(GC_ERR_INVALID_BUFFER, "%s GC_ERR_INVALID_BUFFER", __func__);
    }
    if (_hasAllImages()) {
        _endAcquisition(); // complete; its thread just has not stopped itself yet
    }
    if (m_pRemoteDevice->SetTransferSize(kTransferSize) != GC_ERR_SUCCESS ||
        m_pRemoteDevice->SetBufferCount(announced) != GC_ERR_SUCCESS) {
        return ZR_FAIL(GC_ERR_ERROR, "%s SetBufferCount GC_ERR_ERROR", __func__);
    }
    if (m_pRemoteDevice->StartAcquisition(count) != GC_ERR_SUCCESS) {
        return ZR_FAIL(GC_ERR_ERROR, "%s StartAcquisition GC_ERR_ERROR", __func__);
    }
    if (m_threadAcquisition->IsStopRequested()) {
        m_threadAcquisition->Wait(-1); // still on its way out of the acquisition before
    }
    if (!m_threadAcquisition->IsRunning()) {
        _limitTo(count);
    }
    // False means that it runs already, which is as good; or has just ended, then once more; or
    // that the system has no thread for us.
    if (!m_threadAcquisition->Start(count) && !m_threadAcquisition->IsRunning() &&
        !m_threadAcquisition->Start(count)) {
        static_cast<void>(m_pRemoteDevice->StopAcquisition());
        return ZR_FAIL(GC_ERR_RESOURCE_EXHAUSTED, "%s GC_ERR_RESOURCE_EXHAUSTED", __func__);
    }
    Locker<RecursiveMutex> lock(m_mutex);
    m_acquiring = true;
    return GC_ERR_SUCCESS;
}

void ZrU3VDataStream::_limitTo(uint64_t count)
{
    Locker<RecursiveMutex> lock(m_mutex);
    m_deliveredAtEnd = count < UINT64_MAX - m_delivered ? m_delivered + count : UINT64_MAX;
}

// A consumer that holds the last image may start anew before the thread has come to stop itself:
// that stop must not meet the new acquisition.
bool ZrU3VDataStream::_hasAllImages()
{
    Locker<RecursiveMutex> lock(m_mutex);
    return m_acquiring && m_delivered >= m_deliveredAtEnd;
}

GC_ERROR ZrU3VDataStream::StopAcquisition(int32_t flags)
{
    if (flags > ACQ_STOP_FLAGS_KILL) {
        return ZR_FAIL(GC_ERR_NOT_IMPLEMENTED, "%s GC_ERR_NOT_IMPLEMENTED Flags:%d", __func__,
                       flags);
    }
    if (m_threadAcquisition->IsCurrentThread()) {
        _endOwnAcquisition();
        return GC_ERR_SUCCESS;
    }
    // A kill joins as well: a thread left behind would still write into the consumer's buffers.
    Locker<Mutex> control(m_controlMutex);
    _endAcquisition();
    return GC_ERR_SUCCESS;
}

void ZrU3VDataStream::RequestStop()
{
    // Whoever opens, closes, starts or stops just now sees to the end himself.
    if (!m_controlMutex.TryLock()) {
        return;
    }
    if (_isAcquiring()) {
        m_threadAcquisition->Stop();
        _wakeAcquisition();
        m_pRemoteDevice->RequestStop();
    }
    m_controlMutex.Unlock();
}

// The acquisition thread itself, when it has its number of images. If somebody else starts or stops
// just now it goes on: a stopping caller has set the stop flag and waits for this very thread.
void ZrU3VDataStream::_endOwnAcquisition()
{
    if (!m_controlMutex.TryLock()) {
        return;
    }
    m_threadAcquisition->Stop();
    static_cast<void>(m_pRemoteDevice->StopAcquisition());
    _setAcquiring(false);
    m_controlMutex.Unlock();
}

void ZrU3VDataStream::_endAcquisition()
{
    m_threadAcquisition->Stop();
    _wakeAcquisition();
    static_cast<void>(m_pRemoteDevice->StopAcquisition());
    m_threadAcquisition->Wait(-1);
    _setAcquiring(false);
}

void ZrU3VDataStream::_setAcquiring(bool acquiring)
{
    Locker<RecursiveMutex> lock(m_mutex);
    m_acquiring = acquiring;
}

void ZrU3VDataStream::_wakeAcquisition()
{
    Locker<Mutex> lock(m_bufferMutex);
    m_inputChanged.Broadcast();
}

void ZrU3VDataStream::WaitForInputBuffer()
{
    Locker<Mutex> lock(m_bufferMutex);
    while (m_BufferContainer.GetCount(ZR_BUFFER_LIST_INPUT) == 0 &&
           !m_threadAcquisition->IsStopRequested()) {
        m_inputChanged.Wait(m_bufferMutex);
    }
}

GC_ERROR ZrU3VDataStream::AcquireImage()
{
    // Held until the image is in: a revoke waits for it.
    const auto buffer = m_BufferContainer.PinFront(ZR_BUFFER_LIST_INPUT);
    if (!buffer) {
        // Quirk Q45: the list is empty, the text says full; log analysers in the field know it so.
        return ZR_FAIL(GC_ERR_ERROR, "%s failed! m_BufferContainer full", __func__);
    }
    const std::span<uint8_t> memory = buffer->GetMemory();
    IMAGE_HEADER header{};
    switch (m_pRemoteDevice->GetImage(memory.data(), memory.size(), kImageTimeout, &header)) {
    case U3V_STATUS_NO_IMAGE_AVAILABLE:
        ZR_TRACE(ZR_TRACE_INFO, "%s DS_STATUS_NO_IMAGE_AVAILABLE", __func__);
        return GC_ERR_NO_DATA;
    case U3V_STATUS_IMAGE_TIMEOUT:
        ZR_TRACE(ZR_TRACE_INFO, "%s DS_STATUS_IMAGE_TIMEOUT(ignored)", __func__);
        return GC_ERR_TIMEOUT;
    case U3V_STATUS_IMAGE_MISSING_PACKETS:
        ZR_TRACE(ZR_TRACE_INFO, "%s DS_STATUS_IMAGE_MISSING_PACKETS", __func__);
        return _deliver(*buffer, ImageOf(header, memory.size(), true));
    case U3V_STATUS_SUCCESS:
        ZR_TRACE(ZR_TRACE_INFO, "%s U3V_STATUS_SUCCESS", __func__);
        return _deliver(*buffer, ImageOf(header, memory.size(), false));
    default: return GC_ERR_ERROR;
    }
}

// Hands the image to the new-buffer event; without an event the buffer just leaves the input list.
GC_ERROR ZrU3VDataStream::_deliver(ZrGenTLBuffer& buffer, const ZrGenTLImage& image)
{
    const auto event = PinEventById(EVENT_NEW_BUFFER);
    if (!_handOut(buffer, image, event.Get())) {
        return GC_ERR_ERROR;
    }
    if (event) {
        event->Wake(); // without a lock: the consumer takes it next, to queue a buffer
    }
    return GC_ERR_SUCCESS;
}

// Describes the image and moves its buffer from the input list to the event. False for a buffer
// that was flushed out of the list while its image arrived: it is not delivered any more.
bool ZrU3VDataStream::_handOut(ZrGenTLBuffer& buffer, const ZrGenTLImage& image,
                               ZrGenTLEvent* event)
{
    Locker<Mutex> lock(m_bufferMutex);
    if (m_BufferContainer.GetFront(ZR_BUFFER_LIST_INPUT, false) != &buffer) {
        return false;
    }
    if (event != nullptr) {
        // Without memory for the entry this image is lost, but not its buffer: it still stands in
        // the input list, uncounted, for the next one.
        event->Reserve();
    }
    buffer.DescribeImage(image);
    m_BufferContainer.GetFront(ZR_BUFFER_LIST_INPUT, true);
    {
        // Counted before it is signalled: a consumer that has the buffer finds it in the count.
        Locker<RecursiveMutex> count(m_mutex);
        ++m_delivered;
    }
    if (event != nullptr) {
        event->Add(&buffer);
    }
    return true;
}

GC_ERROR ZrU3VDataStream::GetBufferID(uint32_t index, void** handle)
{
    if (handle == nullptr) {
        return ZR_FAIL(GC_ERR_INVALID_PARAMETER, "%s GC_ERR_INVALID_PARAMETER", __func__);
    }
    ZrGenTLBuffer* buffer = m_BufferContainer.FindByIndex(ZR_BUFFER_LIST_ANNOUNCED, index, false);
    if (buffer == nullptr) {
        return ZR_FAIL(GC_ERR_INVALID_INDEX, "%s GC_ERR_INVALID_INDEX", __func__);
    }
    *handle = buffer;
    return GC_ERR_SUCCESS;
}

GC_ERROR ZrU3VDataStream::GetBufferInfo(void* handle, int32_t cmd, int32_t* type, void* buffer,
                                        size_t* size)
{
    const auto announced = m_BufferContainer.PinByHandle(ZR_BUFFER_LIST_ANNOUNCED, handle);
    if (!announced) {
        return ZR_FAIL(GC_ERR_INVALID_HANDLE, "%s GC_ERR_INVALID_HANDLE", __func__);
    }
    return announced->GetInfo(cmd, type, buffer, size);
}

uint64_t ZrU3VDataStream::_deliveredCount()
{
    Locker<RecursiveMutex> lock(m_mutex);
    return m_delivered;
}

// 0 without an event.
size_t ZrU3VDataStream::_numAwaitDelivery()
{
    const auto event = PinEventById(EVENT_NEW_BUFFER);
    return event ? event->GetNumInQueue() : 0;
}

GC_ERROR ZrU3VDataStream::GetInfo(int32_t cmd, int32_t* type, void* buffer, size_t* size)
{
    if (type == nullptr || size == nullptr) {
        return ZR_FAIL(GC_ERR_INVALID_PARAMETER, "%s GC_ERR_INVALID_PARAMETER", __func__);
    }
    ZrGenTLUtil::ClearInfoBuffer(buffer, size);
    switch (cmd) {
    case STREAM_INFO_ID: return ZrGenTLUtil::CopyInfoString(m_streamId, type, buffer, size);
    case STREAM_INFO_NUM_DELIVERED:
        return ZrGenTLUtil::CopyInfoUint64(_deliveredCount(), type, buffer, size);
    case STREAM_INFO_NUM_UNDERRUN:
        return ZrGenTLUtil::CopyInfoUint64(m_underrun, type, buffer, size);
    case STREAM_INFO_NUM_ANNOUNCED:
        return ZrGenTLUtil::CopyInfoSizeT(m_BufferContainer.GetCount(ZR_BUFFER_LIST_ANNOUNCED),
                                          type, buffer, size);
    case STREAM_INFO_NUM_QUEUED:
        return ZrGenTLUtil::CopyInfoSizeT(m_BufferContainer.GetCount(ZR_BUFFER_LIST_INPUT), type,
                                          buffer, size);
    case STREAM_INFO_NUM_AWAIT_DELIVERY:
        return ZrGenTLUtil::CopyInfoSizeT(_numAwaitDelivery(), type, buffer, size);
    case STREAM_INFO_IS_GRABBING:
        return ZrGenTLUtil::CopyInfoBool(m_isGrabbing, type, buffer, size);
    case STREAM_INFO_DEFINES_PAYLOADSIZE:
        return ZrGenTLUtil::CopyInfoBool(m_definesPayloadSize, type, buffer, size);
    case STREAM_INFO_TLTYPE: return ZrGenTLUtil::CopyInfoString(m_tlType, type, buffer, size);
    case STREAM_INFO_BUF_ANNOUNCE_MIN:
        return ZrGenTLUtil::CopyInfoSizeT(kAnnounceMinimum, type, buffer, size);
    default: return ZR_FAIL(GC_ERR_NOT_IMPLEMENTED, "%s GC_ERR_NOT_IMPLEMENTED", __func__);
    }
}

bool ZrU3VDataStream::IsEventImplemented(int eventId)
{
    return eventId == EVENT_NEW_BUFFER;
}

GC_ERROR ZrU3VDataStream::ReadPort(uint64_t address, void* buffer, size_t* size)
{
    if (buffer == nullptr || size == nullptr) {
        return ZR_FAIL(GC_ERR_INVALID_PARAMETER, "%s failed! GC_ERR_INVALID_PARAMETER", __func__);
    }
    int32_t type = INFO_DATATYPE_UNKNOWN;
    switch (address) {
    case kDocumentAddress: return m_document.Read(buffer, size);
    case StreamRegister::kStreamID: return GetInfo(STREAM_INFO_ID, &type, buffer, size);
    case StreamRegister::kStreamAnnouncedBufferCount:
        return ReadRegister(m_BufferContainer.GetCount(ZR_BUFFER_LIST_ANNOUNCED), buffer, size);
    case StreamRegister::kStreamBufferHandlingMode: return ReadRegister(kOldestFirst, buffer, size);
    case StreamRegister::kStreamAnnounceBufferMinimum:
        return ReadRegister(static_cast<uint32_t>(kAnnounceMinimum), buffer, size);
    case StreamRegister::kStreamDeliveredFrameCount:
        return ReadRegister(_deliveredCount(), buffer, size);
    default: return GC_ERR_NOT_IMPLEMENTED;
    }
}

GC_ERROR ZrU3VDataStream::WritePort(uint64_t address, const void* buffer, size_t* size)
{
    if (buffer == nullptr || size == nullptr) {
        return ZR_FAIL(GC_ERR_INVALID_PARAMETER, "%s failed! GC_ERR_INVALID_PARAMETER", __func__);
    }
    // The handling mode is accepted and stays what it is.
    return address == StreamRegister::kStreamBufferHandlingMode ? GC_ERR_SUCCESS
                                                                : GC_ERR_NOT_IMPLEMENTED;
}
