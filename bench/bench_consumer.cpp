#include "bench_consumer.h"

#include <algorithm>

#include "bench_time.h"

namespace bench {

namespace {

// An update that no pass fits into finds nothing: the time grows, for emulated machines are slow.
constexpr uint64_t kFirstUpdate = 20;     // ms
constexpr uint64_t kLastUpdate = 30000;   // ms
constexpr uint64_t kImageTimeout = 20000; // ms
constexpr uint64_t kPayloadSize = 0x5000C;

} // namespace

void Need(GC_ERROR status, const char* call)
{
    if (status != GC_ERR_SUCCESS) {
        throw Failure(std::string(call) + " answered " + std::to_string(status));
    }
}

Library::Library(size_t cameras)
{
    Need(GCInitLib(), "GCInitLib");
    Need(TLOpen(&m_system), "TLOpen");
    Need(TLUpdateInterfaceList(m_system, nullptr, 0), "TLUpdateInterfaceList");
    char id[64];
    size_t size = sizeof(id);
    Need(TLGetInterfaceID(m_system, 0, id, &size), "TLGetInterfaceID");
    const auto before = Threads();
    Need(TLOpenInterface(m_system, id, &m_interface), "TLOpenInterface");
    _find(cameras);
    // libusb may have started a thread as well, which sleeps.
    int64_t most = 0;
    for (const pid_t thread : Threads()) {
        const int64_t cpu = before.contains(thread) ? 0 : ThreadCpuNs(thread);
        m_worker = cpu > most ? thread : m_worker;
        most = std::max(most, cpu);
    }
}

Library::~Library()
{
    GCCloseLib();
}

void Library::_find(size_t cameras)
{
    uint32_t found = 0;
    for (uint64_t time = kFirstUpdate; time < kLastUpdate && found < cameras; time *= 2) {
        IFUpdateDeviceList(m_interface, nullptr, time);
        Need(IFGetNumDevices(m_interface, &found), "IFGetNumDevices");
    }
    if (found < cameras) {
        throw Failure("no camera");
    }
    for (uint32_t index = 0; index < found; ++index) {
        char id[64];
        size_t size = sizeof(id);
        Need(IFGetDeviceID(m_interface, index, id, &size), "IFGetDeviceID");
        m_ids.emplace_back(id);
    }
}

Camera::Camera(const Library& library, size_t index)
{
    Need(IFOpenDevice(library.Interface(), library.Id(index).c_str(), DEVICE_ACCESS_EXCLUSIVE,
                      &m_device),
         "IFOpenDevice");
    Need(DevGetPort(m_device, &m_port), "DevGetPort");
    char id[64];
    size_t size = sizeof(id);
    Need(DevGetDataStreamID(m_device, 0, id, &size), "DevGetDataStreamID");
    Need(DevOpenDataStream(m_device, id, &m_stream), "DevOpenDataStream");
}

Camera::~Camera()
{
    DSClose(m_stream);
    DevClose(m_device);
}

void Camera::Read(uint64_t address, void* data, size_t size) const
{
    Need(GCReadPort(m_port, address, data, &size), "GCReadPort");
}

void Camera::Write(uint64_t address, uint32_t value) const
{
    size_t size = sizeof(value);
    Need(GCWritePort(m_port, address, &value, &size), "GCWritePort");
}

size_t Camera::Payload() const
{
    uint32_t payload = 0;
    Read(kPayloadSize, &payload, sizeof(payload));
    return payload;
}

void Camera::WaitForTriggers(bool wait) const
{
    Write(kTriggerMode, wait ? 1 : 0);
}

Images::Images(const Camera& camera, size_t buffers)
    : m_stream(camera.Stream()), m_memory(buffers, std::vector<uint8_t>(camera.Payload()))
{
    Need(GCRegisterEvent(m_stream, EVENT_NEW_BUFFER, &m_event), "GCRegisterEvent");
    for (auto& memory : m_memory) {
        BUFFER_HANDLE buffer = nullptr;
        Need(DSAnnounceBuffer(m_stream, memory.data(), memory.size(), nullptr, &buffer),
             "DSAnnounceBuffer");
        m_buffers.push_back(buffer);
        Queue(buffer);
    }
}

Images::~Images()
{
    DSStopAcquisition(m_stream, ACQ_STOP_FLAGS_DEFAULT);
    DSFlushQueue(m_stream, ACQ_QUEUE_ALL_DISCARD);
    GCUnregisterEvent(m_stream, EVENT_NEW_BUFFER);
    for (BUFFER_HANDLE buffer : m_buffers) {
        DSRevokeBuffer(m_stream, buffer, nullptr, nullptr);
    }
}

void Images::Start() const
{
    Need(DSStartAcquisition(m_stream, ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE),
         "DSStartAcquisition");
}

void Images::Stop() const
{
    Need(DSStopAcquisition(m_stream, ACQ_STOP_FLAGS_DEFAULT), "DSStopAcquisition");
}

BUFFER_HANDLE Images::Next() const
{
    EVENT_NEW_BUFFER_DATA data{};
    size_t size = sizeof(data);
    Need(EventGetData(m_event, &data, &size, kImageTimeout), "EventGetData");
    return data.BufferHandle;
}

void Images::Queue(BUFFER_HANDLE buffer) const
{
    Need(DSQueueBuffer(m_stream, buffer), "DSQueueBuffer");
}

void Images::Turn() const
{
    Queue(Next());
}

} // namespace bench
