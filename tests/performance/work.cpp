// zr_work: what a consumer does in the steady state, so many times each. Run under an instruction
// counter by instruction_guard.sh, which knows the functions below by name.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <virtual_bus.h>
#include <zr_u3v_tl/gentl.h>

namespace {

constexpr int kTimes = 200;
constexpr size_t kBuffers = 4;
constexpr uint64_t kTriggerMode = 0x501EC;
constexpr uint64_t kTriggerSoftware = 0x501F4;
constexpr uint64_t kCameraRegister = 0x50000;
constexpr uint64_t kVirtualRegister = 0x80100;
constexpr uint64_t kNoRegister = 0x12345;
constexpr uint64_t kImageTimeout = 60000; // ms; under the counter everything is slow

void Need(GC_ERROR status, const char* call)
{
    if (status != GC_ERR_SUCCESS) {
        std::fprintf(stderr, "%s answered %d\n", call, status);
        std::_Exit(1);
    }
}

struct Consumer
{
    TL_HANDLE system = nullptr;
    IF_HANDLE interface = nullptr;
    DEV_HANDLE device = nullptr;
    PORT_HANDLE port = nullptr;
    DS_HANDLE stream = nullptr;
    EVENT_HANDLE event = nullptr;
    std::vector<BUFFER_HANDLE> buffers = std::vector<BUFFER_HANDLE>(kBuffers);

    Consumer();
    void Write(uint64_t address, uint32_t value) const
    {
        size_t size = sizeof(value);
        Need(GCWritePort(port, address, &value, &size), "GCWritePort");
    }
};

Consumer::Consumer()
{
    Need(GCInitLib(), "GCInitLib");
    Need(TLOpen(&system), "TLOpen");
    Need(TLUpdateInterfaceList(system, nullptr, 0), "TLUpdateInterfaceList");
    Need(TLOpenInterface(system, "ZRK-USB-3-IF ID", &interface), "TLOpenInterface");
    uint32_t devices = 0;
    for (int i = 0; i < 100 && devices == 0; ++i) {
        IFUpdateDeviceList(interface, nullptr, 20);
        Need(IFGetNumDevices(interface, &devices), "IFGetNumDevices");
    }
    Need(IFOpenDevice(interface, "120900000001", DEVICE_ACCESS_EXCLUSIVE, &device), "IFOpenDevice");
    Need(DevGetPort(device, &port), "DevGetPort");
    Need(DevOpenDataStream(device, "0", &stream), "DevOpenDataStream");
    Need(GCRegisterEvent(stream, EVENT_NEW_BUFFER, &event), "GCRegisterEvent");
    uint32_t payload = 0;
    size_t size = sizeof(payload);
    Need(GCReadPort(port, 0x5000C, &payload, &size), "GCReadPort");
    for (BUFFER_HANDLE& buffer : buffers) {
        buffer = nullptr;
        Need(DSAllocAndAnnounceBuffer(stream, payload, nullptr, &buffer), "DSAllocAndAnnounce");
        Need(DSQueueBuffer(stream, buffer), "DSQueueBuffer");
    }
}

} // namespace

// Known by name, and not to be merged with their callers.
#define GUARDED extern "C" __attribute__((noinline, visibility("default"))) void

GUARDED guarded_camera_register(const Consumer& consumer);
GUARDED guarded_virtual_register(const Consumer& consumer);
GUARDED guarded_buffer_query(const Consumer& consumer);
GUARDED guarded_failing_call(const Consumer& consumer);
GUARDED guarded_image(const Consumer& consumer);

GUARDED guarded_camera_register(const Consumer& consumer)
{
    uint32_t value = 0;
    size_t size = sizeof(value);
    Need(GCReadPort(consumer.port, kCameraRegister, &value, &size), "GCReadPort");
}

GUARDED guarded_virtual_register(const Consumer& consumer)
{
    uint32_t value = 0;
    size_t size = sizeof(value);
    Need(GCReadPort(consumer.stream, kVirtualRegister, &value, &size), "GCReadPort");
}

GUARDED guarded_buffer_query(const Consumer& consumer)
{
    size_t value = 0;
    size_t size = sizeof(value);
    INFO_DATATYPE type = 0;
    Need(DSGetBufferInfo(consumer.stream, consumer.buffers[1], BUFFER_INFO_SIZE, &type, &value,
                         &size),
         "DSGetBufferInfo");
}

GUARDED guarded_failing_call(const Consumer& consumer)
{
    uint32_t value = 0;
    size_t size = sizeof(value);
    if (GCReadPort(consumer.stream, kNoRegister, &value, &size) != GC_ERR_NOT_IMPLEMENTED) {
        std::_Exit(1);
    }
}

// The consumer's part of an image; the library's threads are counted by their own functions.
GUARDED guarded_image(const Consumer& consumer)
{
    EVENT_NEW_BUFFER_DATA data{};
    size_t size = sizeof(data);
    Need(EventGetData(consumer.event, &data, &size, kImageTimeout), "EventGetData");
    Need(DSQueueBuffer(consumer.stream, data.BufferHandle), "DSQueueBuffer");
}

int main()
{
    if (std::freopen("/dev/null", "w", stdout) == nullptr) { // the library's own texts
        return 2;
    }
    vusb_reset();
    vusb_journal_limit(16);
    const vusb::Camera camera("width=64,height=48,pattern=still");
    const Consumer consumer;
    for (int i = 0; i < kTimes; ++i) {
        guarded_camera_register(consumer);
        guarded_virtual_register(consumer);
        guarded_buffer_query(consumer);
        guarded_failing_call(consumer);
    }
    consumer.Write(kTriggerMode, 1);
    Need(DSStartAcquisition(consumer.stream, ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE),
         "DSStartAcquisition");
    for (int i = 0; i < kTimes; ++i) {
        camera.Poke<uint32_t>(kTriggerSoftware, 1);
        guarded_image(consumer);
    }
    consumer.Write(kTriggerMode, 0); // for the stop, which waits for the transfer in flight
    Need(DSStopAcquisition(consumer.stream, ACQ_STOP_FLAGS_DEFAULT), "DSStopAcquisition");
    Need(GCCloseLib(), "GCCloseLib");
    return 0;
}
