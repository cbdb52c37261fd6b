#include "zr_gentl_event_types.h"

#include <cstdio>
#include <cstring>
#include <string>

#include "zr_gentl_buffer.h"
#include "zr_gentl_util.h"

namespace {

// What a consumer may ask a new-buffer event's record for is a pointer each.
constexpr size_t kNewBufferInfoSize = sizeof(void*);
// Quirk Q08: a module event's record holds 1028 data bytes, the announced maximum is 1024.
constexpr size_t kModuleInfoSize = 1024;

// Copies a whole entry out. A consumer without a buffer takes the entry unseen.
template <class Record>
void CopyRecord(const void* entry, void* buffer)
{
    if (buffer != nullptr) {
        memcpy(buffer, entry, sizeof(Record));
    }
}

// The consumer's copy may lie at any address.
template <class Record>
Record LoadRecord(const void* data)
{
    Record record;
    memcpy(&record, data, sizeof record);
    return record;
}

// A text that need not be terminated: what the consumer hands back may be anything.
template <size_t Size>
std::string BoundedText(const char (&text)[Size])
{
    return std::string(text, strnlen(text, Size));
}

std::string EventIdText(uint32_t eventId)
{
    char text[9];
    snprintf(text, sizeof text, "%08x", eventId);
    return text;
}

} // namespace

ZrGenTLEventError::ZrGenTLEventError() : ZrGenTLEvent(EVENT_ERROR)
{
    SetEventSizeMax(sizeof(_ZR_EVENT_ERROR_DATA));
    SetEventInfoDataSizeMax(sizeof(_ZR_EVENT_ERROR_DATA::text));
}

void ZrGenTLEventError::DoEventGetData(void* entry, void* buffer, size_t* /*size*/)
{
    CopyRecord<_ZR_EVENT_ERROR_DATA>(entry, buffer);
}

GC_ERROR ZrGenTLEventError::DoEventGetDataInfo(const void* data, int32_t cmd, int32_t* type,
                                               void* buffer, size_t* size)
{
    const auto record = LoadRecord<_ZR_EVENT_ERROR_DATA>(data);
    switch (cmd) {
    case EVENT_DATA_ID: return ZrGenTLUtil::CopyInfoInt32(record.code, type, buffer, size);
    case EVENT_DATA_VALUE:
        return ZrGenTLUtil::CopyInfoString(BoundedText(record.text), type, buffer, size);
    default: return GC_ERR_NOT_IMPLEMENTED;
    }
}

ZrGenTLEventNewBuffer::ZrGenTLEventNewBuffer() : ZrGenTLEvent(EVENT_NEW_BUFFER)
{
    SetEventSizeMax(sizeof(S_EVENT_NEW_BUFFER));
    SetEventInfoDataSizeMax(kNewBufferInfoSize);
}

void ZrGenTLEventNewBuffer::DoEventGetData(void* entry, void* buffer, size_t* /*size*/)
{
    if (buffer == nullptr) {
        return; // Quirk Q09: the entry is taken, the buffer still counts as queued
    }
    auto* delivered = static_cast<ZrGenTLBuffer*>(entry);
    S_EVENT_NEW_BUFFER record{};
    record.BufferHandle = delivered;
    record.pUserPointer = delivered->GetUserPtr();
    memcpy(buffer, &record, sizeof record);
    // Delivered: from here on the buffer is the consumer's, who may queue it again.
    delivered->SetQueueFlag(false);
}

GC_ERROR ZrGenTLEventNewBuffer::DoEventGetDataInfo(const void* data, int32_t cmd, int32_t* type,
                                                   void* buffer, size_t* size)
{
    const auto record = LoadRecord<S_EVENT_NEW_BUFFER>(data);
    switch (cmd) {
        // From the consumer's copy, not from the buffer: it may have been revoked since.
    case EVENT_DATA_ID: return ZrGenTLUtil::CopyInfoPtr(record.BufferHandle, type, buffer, size);
    case EVENT_DATA_VALUE: return ZrGenTLUtil::CopyInfoPtr(record.pUserPointer, type, buffer, size);
    default: return GC_ERR_NOT_IMPLEMENTED;
    }
}

// An undelivered image is discarded, and its buffer no longer counts as queued.
void ZrGenTLEventNewBuffer::DoFlushEntry(void* entry)
{
    static_cast<ZrGenTLBuffer*>(entry)->SetQueueFlag(false);
}

ZrGenTLEventRemoteDevice::ZrGenTLEventRemoteDevice() : ZrGenTLEvent(EVENT_REMOTE_DEVICE)
{
    SetEventSizeMax(sizeof(_ZR_EVENT_REMOTE_DEVICE_DATA));
    SetEventInfoDataSizeMax(sizeof(_ZR_EVENT_REMOTE_DEVICE_DATA::data));
}

void ZrGenTLEventRemoteDevice::DoEventGetData(void* entry, void* buffer, size_t* /*size*/)
{
    CopyRecord<_ZR_EVENT_REMOTE_DEVICE_DATA>(entry, buffer);
}

GC_ERROR ZrGenTLEventRemoteDevice::DoEventGetDataInfo(const void* data, int32_t cmd, int32_t* type,
                                                      void* buffer, size_t* size)
{
    const auto record = LoadRecord<_ZR_EVENT_REMOTE_DEVICE_DATA>(data);
    switch (cmd) {
    case EVENT_DATA_ID:
        return ZrGenTLUtil::CopyInfoString(EventIdText(record.eventId), type, buffer, size);
    case EVENT_DATA_VALUE:
        return ZrGenTLUtil::CopyInfoBuffer(record.data, sizeof record.data, type, buffer, size);
    default: return GC_ERR_NOT_IMPLEMENTED;
    }
}

ZrGenTLEventModule::ZrGenTLEventModule() : ZrGenTLEvent(EVENT_MODULE)
{
    SetEventSizeMax(sizeof(_ZR_EVENT_MODULE_DATA));
    SetEventInfoDataSizeMax(kModuleInfoSize);
}

void ZrGenTLEventModule::DoEventGetData(void* entry, void* buffer, size_t* /*size*/)
{
    CopyRecord<_ZR_EVENT_MODULE_DATA>(entry, buffer);
}

GC_ERROR ZrGenTLEventModule::DoEventGetDataInfo(const void* data, int32_t cmd, int32_t* type,
                                                void* buffer, size_t* size)
{
    // Quirk Q10: only the id is served; the data has no command.
    if (cmd != EVENT_DATA_ID) {
        return GC_ERR_NOT_IMPLEMENTED;
    }
    const auto record = LoadRecord<_ZR_EVENT_MODULE_DATA>(data);
    return ZrGenTLUtil::CopyInfoString(EventIdText(record.eventId), type, buffer, size);
}

ZrGenTLEventDeviceConnection::ZrGenTLEventDeviceConnection()
    : ZrGenTLEvent(ZR_EVENT_DEVICE_CONNECTION)
{
    SetEventSizeMax(sizeof(_ZR_EVENT_DEVICE_CONNECTION_DATA));
    SetEventInfoDataSizeMax(sizeof(_ZR_EVENT_DEVICE_CONNECTION_DATA::text));
}

void ZrGenTLEventDeviceConnection::DoEventGetData(void* entry, void* buffer, size_t* /*size*/)
{
    CopyRecord<_ZR_EVENT_DEVICE_CONNECTION_DATA>(entry, buffer);
}

GC_ERROR ZrGenTLEventDeviceConnection::DoEventGetDataInfo(const void* data, int32_t cmd,
                                                          int32_t* type, void* buffer, size_t* size)
{
    const auto record = LoadRecord<_ZR_EVENT_DEVICE_CONNECTION_DATA>(data);
    switch (cmd) {
    case EVENT_DATA_ID: return ZrGenTLUtil::CopyInfoInt32(record.value, type, buffer, size);
    case EVENT_DATA_VALUE:
        return ZrGenTLUtil::CopyInfoString(BoundedText(record.text), type, buffer, size);
    default: return GC_ERR_NOT_IMPLEMENTED;
    }
}

ZrGenTLEventDSAcquisition::ZrGenTLEventDSAcquisition() : ZrGenTLEvent(ZR_EVENT_DS_ACQUISITION)
{
    SetEventSizeMax(sizeof(_ZR_EVENT_DS_ACQUISITION_DATA));
    SetEventInfoDataSizeMax(sizeof(_ZR_EVENT_DS_ACQUISITION_DATA::data));
}

void ZrGenTLEventDSAcquisition::DoEventGetData(void* entry, void* buffer, size_t* /*size*/)
{
    CopyRecord<_ZR_EVENT_DS_ACQUISITION_DATA>(entry, buffer);
}

GC_ERROR ZrGenTLEventDSAcquisition::DoEventGetDataInfo(const void* data, int32_t cmd, int32_t* type,
                                                       void* buffer, size_t* size)
{
    const auto record = LoadRecord<_ZR_EVENT_DS_ACQUISITION_DATA>(data);
    switch (cmd) {
    case EVENT_DATA_ID: return ZrGenTLUtil::CopyInfoInt32(record.value, type, buffer, size);
    case EVENT_DATA_VALUE:
        return ZrGenTLUtil::CopyInfoBuffer(record.data, sizeof record.data, type, buffer, size);
    default: return GC_ERR_NOT_IMPLEMENTED;
    }
}
