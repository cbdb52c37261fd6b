// Takes images and lets a second thread end the acquisition: the same calls as in examples/c, with
// a class for the handles, so that all is closed in the right order whatever happens. By CMake:
//     find_package(ZrU3vTl REQUIRED), then target_link_libraries(... ZrU3vTl::zr_u3v_tl)
// Everything is in this file, on purpose: it is to be copied.

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>
#include <zr_u3v_tl/gentl.h>

namespace {
constexpr uint64_t kDiscoveryMs = 500;
constexpr uint64_t kImageWaitMs = 200;

void Check(GC_ERROR status, const std::string& call)
{
    if (status != GC_ERR_SUCCESS) {
        std::array<char, 1024> text{};
        size_t size = text.size();
        GCGetLastError(&status, text.data(), &size);
        throw std::runtime_error(call + ": " + std::to_string(status) + " " + text.data());
    }
}
#define CALL(function, ...) Check(function(__VA_ARGS__), #function)

// A handle and the call that gives it back. It starts as NULL, which the opening calls want.
template <GC_ERROR (*CloseCall)(void*)>
struct Handle
{
    Handle& operator=(Handle&&) = delete; // no copies either
    ~Handle() { CloseCall(m_handle); }    // a handle that was never opened is refused, no more
    operator void*() const { return m_handle; }
    void** Out() { return &m_handle; }
    void* m_handle = nullptr;
};

// The new-buffer event of a stream.
struct NewBufferEvent
{
    explicit NewBufferEvent(DS_HANDLE stream) : m_stream(stream)
    {
        CALL(GCRegisterEvent, stream, EVENT_NEW_BUFFER, &m_event);
    }
    ~NewBufferEvent() { GCUnregisterEvent(m_stream, EVENT_NEW_BUFFER); }

    // NULL: none in time, or somebody has ended the wait.
    BUFFER_HANDLE Next(uint64_t milliseconds) const
    {
        EVENT_NEW_BUFFER_DATA data{};
        size_t size = sizeof data;
        const GC_ERROR status = EventGetData(m_event, &data, &size, milliseconds);
        if (status != GC_ERR_TIMEOUT && status != GC_ERR_ABORT) {
            Check(status, "EventGetData");
        }
        return data.BufferHandle;
    }
    void Kill() const { EventKill(m_event); }
    DS_HANDLE m_stream;
    EVENT_HANDLE m_event = nullptr;
};

bool IsComplete(DS_HANDLE stream, BUFFER_HANDLE buffer)
{
    bool8_t incomplete = false;
    size_t size = sizeof incomplete; // in: room for the answer
    INFO_DATATYPE type = 0;
    CALL(DSGetBufferInfo, stream, buffer, BUFFER_INFO_IS_INCOMPLETE, &type, &incomplete, &size);
    return !incomplete;
}

// The bytes of an image, by way of registers that every USB3 Vision camera has.
uint64_t PayloadSize(DEV_HANDLE device)
{
    PORT_HANDLE camera = nullptr;
    CALL(DevGetPort, device, &camera);
    uint64_t value = 0;
    for (const uint64_t offset : {0x1D8U, 0x20U, 0x08U}) {
        size_t size = sizeof value;
        CALL(GCReadPort, camera, value + offset, &value, &size);
    }
    return value;
}

void OpenFirstCamera(TL_HANDLE system, Handle<IFClose>& interface, Handle<DevClose>& device)
{
    std::array<char, 256> id{};
    size_t size = id.size();
    // Lists are empty until they are updated, on the very interface that opens the camera.
    CALL(TLUpdateInterfaceList, system, nullptr, kDiscoveryMs);
    CALL(TLGetInterfaceID, system, 0, id.data(), &size);
    CALL(TLOpenInterface, system, id.data(), interface.Out());
    CALL(IFUpdateDeviceList, interface, nullptr, kDiscoveryMs);
    size = id.size();
    CALL(IFGetDeviceID, interface, 0, id.data(), &size);
    CALL(IFOpenDevice, interface, id.data(), DEVICE_ACCESS_EXCLUSIVE, device.Out());
    std::printf("camera %s\n", id.data());
}

} // namespace

// Declared outer to inner, destroyed inner to outer.
int main()
try {
    std::vector<std::vector<uint8_t>> memory(8);
    struct Library
    {
        Library() { Check(GCInitLib(), "GCInitLib"); }
        ~Library() { GCCloseLib(); }
    } const library;
    Handle<TLClose> system;
    Handle<IFClose> interface;
    Handle<DevClose> device;
    Handle<DSClose> stream;
    CALL(TLOpen, system.Out());
    OpenFirstCamera(system, interface, device);
    CALL(DevOpenDataStream, device, "0", stream.Out());
    const NewBufferEvent event(stream);
    for (auto& block : memory) {
        BUFFER_HANDLE buffer = nullptr;
        block.resize(PayloadSize(device));
        CALL(DSAnnounceBuffer, stream, block.data(), block.size(), nullptr, &buffer);
        CALL(DSQueueBuffer, stream, buffer);
    }
    CALL(DSStartAcquisition, stream, ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE);
    std::atomic<bool> ends = false;
    std::jthread timer([&] {
        std::this_thread::sleep_for(std::chrono::seconds(1));
        ends = true;
        event.Kill();
    });
    unsigned images = 0;
    while (!ends) {
        if (BUFFER_HANDLE const buffer = event.Next(kImageWaitMs)) {
            images += IsComplete(stream, buffer) ? 1U : 0U;
            CALL(DSQueueBuffer, stream, buffer);
        }
    }
    CALL(DSStopAcquisition, stream, ACQ_STOP_FLAGS_DEFAULT);
    std::printf("%u complete images in a second\n", images);
    return images > 0 ? 0 : 1;
} catch (const std::exception& problem) {
    std::fprintf(stderr, "error: %s\n", problem.what());
    return 1;
}
