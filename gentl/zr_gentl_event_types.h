#pragma once

#include <cstdint>

#include "zr_gentl_event.h"

// The six event classes. Each fixes its type, the record format of its entries and how a record is
// taken apart. Freed with ZrGenTLEvent::Destroy.
//
// The records are what EventGetData writes into the consumer's buffer: an interface, hence packed.

#pragma pack(push, 1)

struct _ZR_EVENT_ERROR_DATA
{
    int32_t code;
    char text[1024];
};
static_assert(sizeof(_ZR_EVENT_ERROR_DATA) == 1028);

struct _ZR_EVENT_REMOTE_DEVICE_DATA
{
    uint32_t eventId;
    uint8_t reserved[2];
    uint8_t data[540]; // from byte 6
};
static_assert(sizeof(_ZR_EVENT_REMOTE_DEVICE_DATA) == 546);

struct _ZR_EVENT_MODULE_DATA
{
    uint32_t eventId;
    uint8_t data[1028];
};
static_assert(sizeof(_ZR_EVENT_MODULE_DATA) == 1032);

struct _ZR_EVENT_DEVICE_CONNECTION_DATA
{
    int32_t value;
    char text[256];
};
static_assert(sizeof(_ZR_EVENT_DEVICE_CONNECTION_DATA) == 260);

struct _ZR_EVENT_DS_ACQUISITION_DATA
{
    int32_t value;
    uint8_t data[28];
};
static_assert(sizeof(_ZR_EVENT_DS_ACQUISITION_DATA) == 32);

static_assert(sizeof(S_EVENT_NEW_BUFFER) == 16);

#pragma pack(pop)

// EVENT_ERROR; an entry is a _ZR_EVENT_ERROR_DATA.
class ZrGenTLEventError final : public ZrGenTLEvent
{
public:
    ZrGenTLEventError();

private:
    void DoEventGetData(void* entry, void* buffer, size_t* size) override;
    GC_ERROR DoEventGetDataInfo(const void* data, int32_t cmd, int32_t* type, void* buffer,
                                size_t* size) override;
};

// EVENT_NEW_BUFFER; an entry is the ZrGenTLBuffer itself, the consumer gets its handle and user
// pointer (S_EVENT_NEW_BUFFER). Taking and flushing an entry clear the buffer's queued flag.
class ZrGenTLEventNewBuffer final : public ZrGenTLEvent
{
public:
    ZrGenTLEventNewBuffer();

private:
    void DoEventGetData(void* entry, void* buffer, size_t* size) override;
    GC_ERROR DoEventGetDataInfo(const void* data, int32_t cmd, int32_t* type, void* buffer,
                                size_t* size) override;
    void DoFlushEntry(void* entry) override;
};

// EVENT_REMOTE_DEVICE; an entry is a _ZR_EVENT_REMOTE_DEVICE_DATA.
class ZrGenTLEventRemoteDevice final : public ZrGenTLEvent
{
public:
    ZrGenTLEventRemoteDevice();

private:
    void DoEventGetData(void* entry, void* buffer, size_t* size) override;
    GC_ERROR DoEventGetDataInfo(const void* data, int32_t cmd, int32_t* type, void* buffer,
                                size_t* size) override;
};

// EVENT_MODULE; an entry is a _ZR_EVENT_MODULE_DATA.
class ZrGenTLEventModule final : public ZrGenTLEvent
{
public:
    ZrGenTLEventModule();

private:
    void DoEventGetData(void* entry, void* buffer, size_t* size) override;
    GC_ERROR DoEventGetDataInfo(const void* data, int32_t cmd, int32_t* type, void* buffer,
                                size_t* size) override;
};

// ZR_EVENT_DEVICE_CONNECTION; an entry is a _ZR_EVENT_DEVICE_CONNECTION_DATA.
class ZrGenTLEventDeviceConnection final : public ZrGenTLEvent
{
public:
    ZrGenTLEventDeviceConnection();

private:
    void DoEventGetData(void* entry, void* buffer, size_t* size) override;
    GC_ERROR DoEventGetDataInfo(const void* data, int32_t cmd, int32_t* type, void* buffer,
                                size_t* size) override;
};

// ZR_EVENT_DS_ACQUISITION; an entry is a _ZR_EVENT_DS_ACQUISITION_DATA.
class ZrGenTLEventDSAcquisition final : public ZrGenTLEvent
{
public:
    ZrGenTLEventDSAcquisition();

private:
    void DoEventGetData(void* entry, void* buffer, size_t* size) override;
    GC_ERROR DoEventGetDataInfo(const void* data, int32_t cmd, int32_t* type, void* buffer,
                                size_t* size) override;
};
