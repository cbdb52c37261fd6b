#include "zr_client.h"
#include "zr_client_register.h"
#include "zr_sync_thread.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <new>
#include <optional>
#include <thread>

std::atomic<bool> Acq_thread_is_running{false};
std::atomic<bool> Event_thread_is_running{false};

namespace {

// Camera registers.
constexpr uint64_t kPayloadSizeRegister = 0x5000C;
constexpr uint64_t kAcquisitionRegister = 0x50014;
constexpr uint64_t kClearedAtStart[] = {0x501EC, 0x501F0};

// Counters on the data stream's port.
constexpr uint64_t kBufferPutCountRegister = 0x80010040;
constexpr uint64_t kBufferGetCountRegister = 0x80010048;
constexpr uint64_t kDiscardCountRegister = 0x51378;

constexpr int kBufferCount = 10;
// A camera's payload size is only believed up to here; ten such buffers are asked for.
constexpr uint32_t kLargestBuffer = 512U * 1024U * 1024U;
constexpr uint64_t kWaitMs = 1000;
// Pause after a wait that failed at once, so that a dead event does not flood the console.
constexpr std::chrono::milliseconds kPauseAfterFailure{100};

using BufferMemory = std::unique_ptr<uint8_t[]>;

// What the acquisition thread reads; not changed while it runs.
struct ThreadInput
{
    DS_HANDLE hDataStream = nullptr;
    EVENT_HANDLE hEvent = nullptr;
};

// The one acquisition that the menus can run. Touched by the main thread only, apart from the
// thread's input.
struct Acquisition
{
    bool started = false;
    EVENT_HANDLE hEvent = nullptr;
    ThreadInput input;
    std::optional<ZrSync_U3V::thread> thread;
    std::vector<BufferMemory> memory; // announced, owned here
};
Acquisition g_acquisition;

void JoinAcquisitionThread()
{
    Acq_thread_is_running = false;
    if (g_acquisition.thread.has_value()) {
        g_acquisition.thread->join();
        g_acquisition.thread.reset();
    }
}

void StartAcquisitionThread(DS_HANDLE hDataStream)
{
    JoinAcquisitionThread();
    Acq_thread_is_running = true;
    g_acquisition.input = {hDataStream, g_acquisition.hEvent};
    const auto run = [](void* argument) {
        const auto* input = static_cast<const ThreadInput*>(argument);
        ImageAcquisitionThread(input->hDataStream, input->hEvent);
    };
    g_acquisition.thread.emplace(run, &g_acquisition.input);
    if (const int error = g_acquisition.thread->Error(); error != 0) {
        Acq_thread_is_running = false;
        std::printf(":%s thread start failed!:%d\n", "ImageAcquisitionStart", error);
    }
}

// One of the ten buffers: allocated, announced and queued.
GC_ERROR AddBuffer(DS_HANDLE hDataStream, uint32_t size)
{
    if (size == 0) {
        return GC_ERR_INVALID_PARAMETER; // no stream can fill it
    }
    BufferMemory memory;
    if (size <= kLargestBuffer) {
        memory.reset(new (std::nothrow) uint8_t[size]);
    }
    if (memory == nullptr) {
        return GC_ERR_OUT_OF_MEMORY;
    }
    BUFFER_HANDLE hBuffer = nullptr;
    const GC_ERROR status = DSAnnounceBuffer(hDataStream, memory.get(), size, nullptr, &hBuffer);
    if (status == GC_ERR_SUCCESS) {
        g_acquisition.memory.push_back(std::move(memory));
        DSQueueBuffer(hDataStream, hBuffer);
    }
    return status;
}

void AddBuffers(DS_HANDLE hDataStream, uint32_t size)
{
    for (int i = 0; i < kBufferCount; ++i) {
        const GC_ERROR status = AddBuffer(hDataStream, size);
        if (status != GC_ERR_SUCCESS) {
            // Quirk Q89: a failed announce counts towards the ten; fewer buffers than ten remain.
            std::printf(":%s ZrStreamAnnounceBuffer[%d] Failed!:%d\n", "ImageAcquisitionStart", i,
                        status);
        }
    }
}

void WriteAcquisitionRegister(const char* function, PORT_HANDLE hRemotePort, uint32_t value)
{
    const GC_ERROR status = WriteRegister32(hRemotePort, kAcquisitionRegister, value);
    std::printf(":%s GCWritePort 0x50014 Status:%d\n", function, status);
}

// Memory goes back only when the stream hands out its address: what it does not hand back it may
// still write to.
void FreeRevoked(void* memory)
{
    auto& owned = g_acquisition.memory;
    const auto found = std::find_if(owned.begin(), owned.end(), [&](const BufferMemory& buffer) {
        return buffer.get() == memory;
    });
    if (found != owned.end()) {
        owned.erase(found);
    }
}

void RevokeBuffers(DS_HANDLE hDataStream)
{
    BUFFER_HANDLE hBuffer = nullptr;
    // A revoked buffer moves the others forward; one that stays is stepped over.
    for (uint32_t index = 0;
         DSGetBufferID(hDataStream, index, &hBuffer) == GC_ERR_SUCCESS && hBuffer != nullptr;) {
        void* memory = nullptr;
        void* userPointer = nullptr;
        if (DSRevokeBuffer(hDataStream, hBuffer, &memory, &userPointer) == GC_ERR_SUCCESS) {
            FreeRevoked(memory);
        } else {
            ++index;
        }
        hBuffer = nullptr;
    }
}

void PrintStreamCounters(DS_HANDLE hDataStream)
{
    uint32_t value = 0;
    // Quirk Q91: registers of another family of cameras; this stream answers not implemented and 0.
    GC_ERROR status = ReadRegister32(hDataStream, kBufferPutCountRegister, value);
    std::printf("===GCReadPort FB_BUFFER_PUT_COUNT :%d value:%d\n", status,
                static_cast<int>(value));
    status = ReadRegister32(hDataStream, kBufferGetCountRegister, value);
    std::printf("===GCReadPort FB_BUFFER_GET_COUNT:%d value:%d\n", status, static_cast<int>(value));
    status = ReadRegister32(hDataStream, kDiscardCountRegister, value);
    std::printf("===GCReadPort FB_DISCARD_COUNT:%d value:%d\n", status, static_cast<int>(value));
    std::puts("------------------------------------------");
}

void ReportFrame(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer)
{
    _ZR_BUFFER_INFO info{};
    const GC_ERROR status = ZrStreamBufferGetInfo(hDataStream, hBuffer, &info);
    if (status != GC_ERR_SUCCESS) {
        std::printf(":%s ZrStreamBufferGetInfo Failed!:%d\n", "ImageAcquisitionThread", status);
        return;
    }
    // Quirk Q87: "tImage" (once a tab) stays; log readers wait for it. The id is cut to 32 bits.
    std::printf("tImage Received FrameId:%d Info Ptr:0x%p Width:%d Height:%d\n",
                static_cast<int>(info.frameId), info.infoPtr, static_cast<int>(info.width),
                static_cast<int>(info.height));
    std::printf("Timestamp: %lld\n", static_cast<long long>(info.timestamp));
    PrintStreamCounters(hDataStream);
}

template <class T>
GC_ERROR ReadBufferValue(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer, BUFFER_INFO_CMD command,
                         T& value)
{
    INFO_DATATYPE type = INFO_DATATYPE_UNKNOWN;
    size_t size = sizeof(value);
    return DSGetBufferInfo(hDataStream, hBuffer, command, &type, &value, &size);
}

// Stops at the first query that fails.
GC_ERROR QueryBuffer(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer, _ZR_BUFFER_INFO& info)
{
    GC_ERROR status = ReadBufferValue(hDataStream, hBuffer, BUFFER_INFO_FRAMEID, info.frameId);
    if (status == GC_ERR_SUCCESS) {
        status = ReadBufferValue(hDataStream, hBuffer, BUFFER_INFO_BASE, info.infoPtr);
    }
    if (status == GC_ERR_SUCCESS) {
        status = ReadBufferValue(hDataStream, hBuffer, BUFFER_INFO_WIDTH, info.width);
    }
    if (status == GC_ERR_SUCCESS) {
        status = ReadBufferValue(hDataStream, hBuffer, BUFFER_INFO_HEIGHT, info.height);
    }
    if (status == GC_ERR_SUCCESS) {
        status = ReadBufferValue(hDataStream, hBuffer, BUFFER_INFO_TIMESTAMP, info.timestamp);
    }
    return status;
}

} // namespace

void ImageAcquisitionStart(DS_HANDLE hDataStream, PORT_HANDLE hRemotePort)
{
    // Fails when an acquisition runs already, which then goes on undisturbed.
    GC_ERROR status = GC_ERR_RESOURCE_IN_USE;
    EVENT_HANDLE hEvent = nullptr;
    if (!ImageAcquisitionIsStarted()) {
        status = GCRegisterEvent(hDataStream, EVENT_NEW_BUFFER, &hEvent);
    }
    if (status != GC_ERR_SUCCESS) {
        std::printf(":%s GCRegisterEvent failed!:%d\n", __func__, status);
        return;
    }
    g_acquisition.started = true;
    g_acquisition.hEvent = hEvent;
    uint32_t bufferSize = 0; // stays 0 if the camera does not answer
    ReadRegister32(hRemotePort, kPayloadSizeRegister, bufferSize);
    for (const uint64_t address : kClearedAtStart) {
        WriteRegister32(hRemotePort, address, 0);
    }
    AddBuffers(hDataStream, bufferSize);
    StartAcquisitionThread(hDataStream);
    DSFlushQueue(hDataStream, ACQ_QUEUE_ALL_TO_INPUT);
    status = DSStartAcquisition(hDataStream, ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE);
    if (status != GC_ERR_SUCCESS) {
        std::printf(":%s DSStartAcquisition failed!:%d\n", __func__, status);
        return;
    }
    std::printf(":%s DSStartAcquisition Successful!\n", __func__);
    WriteAcquisitionRegister(__func__, hRemotePort, 1);
}

void ImageAcquisitionStop(DS_HANDLE hDataStream, PORT_HANDLE hRemotePort)
{
    JoinAcquisitionThread();
    // Quirk Q90: events and queues go before the stream is stopped, and the camera last.
    GC_ERROR status = EventKill(g_acquisition.hEvent);
    if (status != GC_ERR_SUCCESS) {
        std::printf(":%s EventKill failed!:%d\n", __func__, status);
    }
    status = DSFlushQueue(hDataStream, ACQ_QUEUE_ALL_DISCARD);
    if (status != GC_ERR_SUCCESS) {
        std::printf(":%s DSFlushQueue failed!:%d\n", __func__, status);
    }
    GCUnregisterEvent(hDataStream, EVENT_NEW_BUFFER);
    g_acquisition.started = false;
    g_acquisition.hEvent = nullptr;
    status = DSStopAcquisition(hDataStream, ACQ_STOP_FLAGS_DEFAULT);
    if (status != GC_ERR_SUCCESS) {
        std::printf(":%s DSStopAcquisition failed!:%d\n", __func__, status);
    } else {
        std::printf(":%s DSStopAcquisition Successful!\n", __func__);
    }
    WriteAcquisitionRegister(__func__, hRemotePort, 0);
    DSFlushQueue(hDataStream, ACQ_QUEUE_INPUT_TO_OUTPUT);
    DSFlushQueue(hDataStream, ACQ_QUEUE_OUTPUT_DISCARD);
    RevokeBuffers(hDataStream);
}

bool ImageAcquisitionIsStarted()
{
    return g_acquisition.started;
}

void ReleaseAcquisitionBuffers()
{
    g_acquisition.memory.clear();
}

GC_ERROR GetBufferInfo(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer, _ZR_BUFFER_INFO* info)
{
    if (hDataStream == nullptr || hBuffer == nullptr || info == nullptr) {
        std::printf("%s Failed! Invalid Parameter\n", __func__);
        return GC_ERR_INVALID_PARAMETER;
    }
    const GC_ERROR status = QueryBuffer(hDataStream, hBuffer, *info);
    if (status != GC_ERR_SUCCESS) {
        std::printf("%s Failed! Error:\n", __func__);
    }
    return status;
}

GC_ERROR ZrStreamBufferGetInfo(DS_HANDLE hDataStream, BUFFER_HANDLE hBuffer, _ZR_BUFFER_INFO* info)
{
    if (hDataStream == nullptr || hBuffer == nullptr || info == nullptr) {
        std::printf("%s Failed! Invalid Parameter\n", __func__);
        return GC_ERR_INVALID_PARAMETER;
    }
    const GC_ERROR status = GetBufferInfo(hDataStream, hBuffer, info);
    if (status != GC_ERR_SUCCESS) {
        std::printf("%s Failed! Error:\n", __func__);
    }
    return status;
}

GC_ERROR ZrStreamWaitForNewBuffer(EVENT_HANDLE hEvent, uint64_t timeoutMs,
                                  EVENT_NEW_BUFFER_DATA* data)
{
    size_t size = sizeof(*data);
    const GC_ERROR status = EventGetData(hEvent, data, &size, timeoutMs);
    if (status != GC_ERR_SUCCESS) {
        std::printf("%s Failed! EventGetData \n", __func__);
    }
    return status;
}

void ImageAcquisitionThread(DS_HANDLE hDataStream, EVENT_HANDLE hEvent)
{
    while (Acq_thread_is_running) {
        EVENT_NEW_BUFFER_DATA data{};
        const GC_ERROR status = ZrStreamWaitForNewBuffer(hEvent, kWaitMs, &data);
        if (status == GC_ERR_SUCCESS) {
            ReportFrame(hDataStream, data.BufferHandle);
            DSQueueBuffer(hDataStream, data.BufferHandle);
        } else if (status == GC_ERR_TIMEOUT) {
            std::printf(":%s ZrStreamWaitForNewBuffer TIMEOUT\n", __func__);
        } else {
            std::this_thread::sleep_for(kPauseAfterFailure);
        }
    }
    std::printf("%s AcquisitionThread End \n", __func__);
}

void EventThread(EVENT_HANDLE hEvent)
{
    std::printf("%s EventThread running...\n", __func__);
    while (Event_thread_is_running) {
        EVENT_NEW_BUFFER_DATA data{};
        size_t size = sizeof(data);
        const GC_ERROR status = EventGetData(hEvent, &data, &size, kWaitMs);
        if (status == GC_ERR_SUCCESS) {
            std::puts("EventThread EventGetData Successful!");
            continue;
        }
        std::printf("EventGetData Failed! Error:%d\n", status);
        if (status != GC_ERR_TIMEOUT) {
            std::this_thread::sleep_for(kPauseAfterFailure);
        }
    }
    std::printf("%s EventThread exiting...\n", __func__);
}
