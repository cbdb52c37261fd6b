#include "zr_gentl_event.h"

#include <algorithm>
#include <cstring>
#include <type_traits>

#include "zr_gentl_event_types.h"
#include "zr_gentl_util.h"

namespace {

// Set on the handler while the queue holds entries.
constexpr uint32_t kEntryBit = 1;

// The largest record of any event class.
constexpr size_t kLargestRecord = sizeof(_ZR_EVENT_MODULE_DATA);

// The slots of the event classes are fixed and hold no destructor.
static_assert(!std::has_virtual_destructor_v<ZrGenTLEvent>);
static_assert(std::is_polymorphic_v<ZrGenTLEvent>);

} // namespace

ZrGenTLEvent::ZrGenTLEvent(int32_t type) : m_type(type), m_eventHandler(kEntryBit)
{
}

// Destroy has released everybody already; this covers an event that never was behind a handle. The
// entries are their producers' property and are left alone.
ZrGenTLEvent::~ZrGenTLEvent()
{
    m_eventHandler.Kill();
}

ZrGenTLEvent* ZrGenTLEvent::Create(int32_t type)
{
    switch (type) {
    case EVENT_ERROR: return new ZrGenTLEventError;
    case EVENT_NEW_BUFFER: return new ZrGenTLEventNewBuffer;
    case EVENT_REMOTE_DEVICE: return new ZrGenTLEventRemoteDevice;
    case EVENT_MODULE: return new ZrGenTLEventModule;
    case ZR_EVENT_DEVICE_CONNECTION: return new ZrGenTLEventDeviceConnection;
    case ZR_EVENT_DS_ACQUISITION: return new ZrGenTLEventDSAcquisition;
    default: return nullptr;
    }
}

void ZrGenTLEvent::Destroy(ZrGenTLEvent* event)
{
    if (event == nullptr) {
        return;
    }
    event->Close();
    event->m_gate.ShutAndWait();
    // The type stands in for the virtual destructor that the classes do not have.
    switch (event->m_type) {
    case EVENT_ERROR: delete static_cast<ZrGenTLEventError*>(event); break;
    case EVENT_NEW_BUFFER: delete static_cast<ZrGenTLEventNewBuffer*>(event); break;
    case EVENT_REMOTE_DEVICE: delete static_cast<ZrGenTLEventRemoteDevice*>(event); break;
    case EVENT_MODULE: delete static_cast<ZrGenTLEventModule*>(event); break;
    case ZR_EVENT_DEVICE_CONNECTION:
        delete static_cast<ZrGenTLEventDeviceConnection*>(event);
        break;
    case ZR_EVENT_DS_ACQUISITION: delete static_cast<ZrGenTLEventDSAcquisition*>(event); break;
    default: break; // Create makes no other
    }
}

// Under the queue's lock, which Flush holds as well: after this no Flush takes the kill bits back.
void ZrGenTLEvent::Close()
{
    Locker lock(m_dataQueue.GetMutex());
    m_closing = true;
    m_dataQueue.Clear();
    m_eventHandler.Kill();
}

void ZrGenTLEvent::SetEventSizeMax(size_t size)
{
    m_eventSizeMax = size;
}

void ZrGenTLEvent::SetEventInfoDataSizeMax(size_t size)
{
    m_eventInfoDataSizeMax = size;
}

void ZrGenTLEvent::Reserve()
{
    m_dataQueue.Reserve();
}

void ZrGenTLEvent::Signal(void* entry)
{
    Add(entry);
    Wake();
}

void ZrGenTLEvent::Add(void* entry)
{
    // One step, or a consumer that empties the queue in between would leave the bit set for
    // nothing, or cleared with an entry waiting.
    Locker lock(m_dataQueue.GetMutex());
    if (m_closing) {
        return;
    }
    m_dataQueue.Add(entry);
    m_eventHandler.MarkEvent(kEntryBit);
}

// Without the queue's lock, which the waiter takes next.
void ZrGenTLEvent::Wake()
{
    m_eventHandler.WakeFor(kEntryBit);
}

GC_ERROR ZrGenTLEvent::GetData(void* buffer, size_t* size, uint64_t timeout)
{
    const GC_ERROR status = _validateEventGetDataParam(buffer, size);
    if (status != GC_ERR_SUCCESS) {
        return status;
    }
    // Quirk Q11: the wait takes the low 32 bits of the time-out, as a signed value.
    const uint32_t bits = m_eventHandler.WaitForEvent(static_cast<int32_t>(timeout));
    // Kill wins over waiting entries: a consumer that shuts down does not want one more image.
    if ((bits & ZrEventHandler_U3V::kKillBits) != 0) {
        return GC_ERR_ABORT;
    }
    if ((bits & kEntryBit) == 0) {
        return bits != 0 ? GC_ERR_ERROR : GC_ERR_TIMEOUT;
    }
    return _takeFront(buffer, size) ? GC_ERR_SUCCESS : GC_ERR_ABORT;
}

bool ZrGenTLEvent::_takeFront(void* buffer, size_t* size)
{
    Locker lock(m_dataQueue.GetMutex());
    if (m_closing) {
        return false;
    }
    // Quirk Q12: when another waiter took the last entry, this one succeeds without data; and the
    // size is never updated.
    if (void* const entry = m_dataQueue.GetFront(true); entry != nullptr) {
        DoEventGetData(entry, buffer, size);
    }
    _resetIfEmpty();
    return true;
}

void ZrGenTLEvent::_resetIfEmpty()
{
    if (m_dataQueue.GetSize() == 0) {
        m_eventHandler.ResetEvent(kEntryBit);
    }
}

GC_ERROR ZrGenTLEvent::GetDataInfo(const void* data, size_t dataSize, int32_t cmd, int32_t* type,
                                   void* buffer, size_t* size)
{
    if (type == nullptr || size == nullptr) {
        return GC_ERR_INVALID_PARAMETER;
    }
    if (data == nullptr) {
        return GC_ERR_INVALID_HANDLE;
    }
    // Quirk Q13: a record shorter than the class's own is not refused. What is missing of it reads
    // as zero; nothing beyond the caller's bytes is touched. A size of 0 tells nothing about the
    // record: it is taken to be whole. Copied before the caller's buffer is cleared: the two may
    // overlap.
    const size_t told = dataSize != 0 ? dataSize : m_eventSizeMax;
    uint8_t record[kLargestRecord] = {};
    memcpy(record, data, std::min({told, m_eventSizeMax, sizeof record}));
    ZrGenTLUtil::ClearInfoBuffer(buffer, size);
    return DoEventGetDataInfo(record, cmd, type, buffer, size);
}

GC_ERROR ZrGenTLEvent::GetInfo(int32_t cmd, int32_t* type, void* buffer, size_t* size)
{
    if (type == nullptr || size == nullptr) {
        return GC_ERR_INVALID_PARAMETER;
    }
    ZrGenTLUtil::ClearInfoBuffer(buffer, size);
    switch (cmd) {
    case EVENT_EVENT_TYPE: return ZrGenTLUtil::CopyInfoInt32(m_type, type, buffer, size);
    case EVENT_NUM_IN_QUEUE:
        return ZrGenTLUtil::CopyInfoSizeT(m_dataQueue.GetSize(), type, buffer, size);
    case EVENT_SIZE_MAX: return ZrGenTLUtil::CopyInfoSizeT(m_eventSizeMax, type, buffer, size);
    case EVENT_INFO_DATA_SIZE_MAX:
        return ZrGenTLUtil::CopyInfoSizeT(m_eventInfoDataSizeMax, type, buffer, size);
    default: return GC_ERR_NOT_IMPLEMENTED; // EVENT_NUM_FIRED too: nothing counts
    }
}

GC_ERROR ZrGenTLEvent::Flush()
{
    Locker lock(m_dataQueue.GetMutex());
    while (m_dataQueue.GetSize() != 0) {
        if (void* const entry = m_dataQueue.GetFront(true); entry != nullptr) {
            DoFlushEntry(entry);
        }
    }
    m_eventHandler.ResetEvent(kEntryBit);
    // An event on its way out keeps its kill bits: a waiter that came back to life would hold up
    // its destruction.
    if (!m_closing) {
        m_eventHandler.ResetEvent(ZrEventHandler_U3V::kKillBits);
    }
    return GC_ERR_SUCCESS;
}

GC_ERROR ZrGenTLEvent::Kill()
{
    m_eventHandler.Kill();
    return GC_ERR_SUCCESS;
}

void ZrGenTLEvent::RemoveEntry(void* entry)
{
    Locker lock(m_dataQueue.GetMutex());
    // An entry that a consumer is copying at this moment is copied under the same lock: when we get
    // it, the copy is complete.
    m_dataQueue.Remove(entry);
    _resetIfEmpty();
}

size_t ZrGenTLEvent::GetNumInQueue()
{
    return m_dataQueue.GetSize();
}

void ZrGenTLEvent::DoFlushEntry(void* /*entry*/)
{
}

GC_ERROR ZrGenTLEvent::_validateEventGetDataParam(const void* buffer, size_t* size) const
{
    if (size == nullptr) {
        return GC_ERR_INVALID_PARAMETER;
    }
    // Too small is answered at once, before any waiting, and takes no entry.
    if (buffer != nullptr && *size < m_eventSizeMax) {
        *size = m_eventSizeMax;
        return GC_ERR_BUFFER_TOO_SMALL;
    }
    return GC_ERR_SUCCESS;
}
