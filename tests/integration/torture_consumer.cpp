#include "torture_consumer.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr const char* kInterfaceId = "ZRK-USB-3-IF ID";
constexpr const char* kDeviceId = "120900000001";
constexpr size_t kBufferCount = 3;
constexpr double kNoImages = 0.01; // per second
constexpr double kManyImages = 200;
constexpr uint64_t kDiscoveryTime = 60; // ms of one update while discovering

EVENT_TYPE EventOf(Level level)
{
    switch (level) {
    case Level::Interface: return EVENT_ERROR;
    case Level::Device: return EVENT_REMOTE_DEVICE;
    default: return EVENT_NEW_BUFFER;
    }
}

} // namespace

Level LevelOf(State state)
{
    switch (state) {
    case State::LibraryClosed: return Level::Library;
    case State::SystemOpen: return Level::System;
    case State::InterfaceOpen:
    case State::Discovering: return Level::Interface;
    case State::DeviceOpen: return Level::Device;
    default: return Level::Stream;
    }
}

TortureConsumer::~TortureConsumer()
{
    m_quit = true;
    m_waiter.reset();
    m_working.reset();
}

void TortureConsumer::Reach(State state)
{
    if (state == State::LibraryClosed) {
        // With the handles of an earlier life, so that there is something to misuse.
        Reach(State::BuffersAnnounced);
        TearDown();
        return;
    }
    ASSERT_EQ(GCInitLib(), GC_ERR_SUCCESS);
    m_closed = Level::Nothing;
    _openSystem();
    const Level level = LevelOf(state);
    if (level >= Level::Interface) {
        _openInterface();
    }
    if (level >= Level::Device) {
        _openDevice();
    }
    if (level >= Level::Stream) {
        _openStream();
    }
    if (state >= State::BuffersAnnounced) {
        _announce();
    }
    if (level >= Level::Interface) {
        m_eventSource = level == Level::Interface ? m_interface
                        : level == Level::Device  ? m_device
                                                  : m_stream;
        _registerEvent(m_eventSource, EventOf(level));
    }
    if (state == State::Discovering) {
        m_working.emplace([this] {
            while (!m_quit) {
                const GC_ERROR status = IFUpdateDeviceList(m_interface, nullptr, kDiscoveryTime);
                if (status != GC_ERR_SUCCESS && status != GC_ERR_TIMEOUT) {
                    break; // closed under way
                }
            }
        });
        EXPECT_TRUE(m_working->UntilAsleep());
    }
    if (state >= State::Acquiring) {
        m_camera.SetFrameRate(state == State::Delivering ? kManyImages : kNoImages);
        _start();
    }
    if (state == State::Stopping) {
        // No image comes, so the stop waits for its transfer to time out.
        m_working.emplace([this] {
            const GC_ERROR status = DSStopAcquisition(m_stream, ACQ_STOP_FLAGS_DEFAULT);
            EXPECT_EQ(status, GC_ERR_SUCCESS);
        });
        EXPECT_TRUE(m_working->UntilAsleep());
    }
}

void TortureConsumer::_openSystem()
{
    m_system = nullptr;
    ASSERT_EQ(TLOpen(&m_system), GC_ERR_SUCCESS);
    ASSERT_EQ(TLUpdateInterfaceList(m_system, nullptr, 0), GC_ERR_SUCCESS);
}

void TortureConsumer::_openInterface()
{
    m_interface = nullptr;
    ASSERT_EQ(TLOpenInterface(m_system, kInterfaceId, &m_interface), GC_ERR_SUCCESS);
    uint32_t count = 0;
    for (int attempt = 0; attempt < 100 && count == 0; ++attempt) {
        IFUpdateDeviceList(m_interface, nullptr, kUpdateTime);
        ASSERT_EQ(IFGetNumDevices(m_interface, &count), GC_ERR_SUCCESS);
    }
    ASSERT_EQ(count, 1u);
}

void TortureConsumer::_openDevice()
{
    m_device = nullptr;
    ASSERT_EQ(IFOpenDevice(m_interface, kDeviceId, DEVICE_ACCESS_CONTROL, &m_device),
              GC_ERR_SUCCESS);
    ASSERT_EQ(DevGetPort(m_device, &m_port), GC_ERR_SUCCESS);
}

void TortureConsumer::_openStream()
{
    ASSERT_EQ(DevOpenDataStream(m_device, "0", &m_stream), GC_ERR_SUCCESS);
}

void TortureConsumer::_announce()
{
    m_memory.assign(kBufferCount, std::vector<uint8_t>(m_camera.PayloadSize()));
    m_buffers.clear();
    for (auto& memory : m_memory) {
        BUFFER_HANDLE buffer = nullptr;
        ASSERT_EQ(DSAnnounceBuffer(m_stream, memory.data(), memory.size(), nullptr, &buffer),
                  GC_ERR_SUCCESS);
        m_buffers.push_back(buffer);
        ASSERT_EQ(DSQueueBuffer(m_stream, buffer), GC_ERR_SUCCESS);
    }
}

void TortureConsumer::_start()
{
    ASSERT_EQ(DSStartAcquisition(m_stream, ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE),
              GC_ERR_SUCCESS);
    zr_test::LetPass(std::chrono::milliseconds(30), "the first images come, if any do");
}

void TortureConsumer::_registerEvent(EVENTSRC_HANDLE source, EVENT_TYPE type)
{
    m_eventType = type;
    ASSERT_EQ(GCRegisterEvent(source, type, &m_event), GC_ERR_SUCCESS);
    m_registered = true;
    m_quit = false;
    m_waiterStatus = GC_ERR_SUCCESS;
    m_waiter.emplace([this] { _wait(); });
    EXPECT_TRUE(m_waiter->UntilAsleep());
}

// Takes what comes until the event is killed or gone, or the test has seen enough.
void TortureConsumer::_wait()
{
    while (!m_quit) {
        alignas(EVENT_NEW_BUFFER_DATA) uint8_t record[4096]; // room for every event's record
        size_t size = sizeof(record);
        const GC_ERROR status = EventGetData(m_event, record, &size, 20000);
        if (status == GC_ERR_SUCCESS && m_eventType == EVENT_NEW_BUFFER) {
            EVENT_NEW_BUFFER_DATA data{};
            std::memcpy(&data, record, sizeof(data));
            DSQueueBuffer(m_stream, data.BufferHandle);
        }
        if (status != GC_ERR_SUCCESS && status != GC_ERR_TIMEOUT) {
            m_waiterStatus = status;
            return;
        }
    }
}

GC_ERROR TortureConsumer::WaiterStatus()
{
    if (m_waiter) {
        m_waiter->Join();
    }
    return m_waiterStatus;
}

GC_ERROR TortureConsumer::Expected(Level level, GC_ERROR otherwise) const
{
    if (m_closed == Level::Library) {
        return GC_ERR_NOT_INITIALIZED;
    }
    return level >= m_closed ? GC_ERR_INVALID_HANDLE : otherwise;
}

GC_ERROR TortureConsumer::Close(Level level)
{
    GC_ERROR status = GC_ERR_ERROR;
    switch (level) {
    case Level::Library:
        // From another thread than the one that opened.
        std::thread([&status] { status = GCCloseLib(); }).join();
        break;
    case Level::System: status = TLClose(m_system); break;
    case Level::Interface: status = IFClose(m_interface); break;
    case Level::Device: status = DevClose(m_device); break;
    case Level::Stream: status = DSClose(m_stream); break;
    case Level::Nothing: break;
    }
    if (status != GC_ERR_SUCCESS) {
        return status;
    }
    if (level == Level::Stream) {
        m_streamClosed = true; // events and buffers stay until the device goes
    } else {
        m_closed = std::min(m_closed, level);
        m_registered = false;
    }
    return status;
}

GC_ERROR TortureConsumer::OpenSecond(State state)
{
    void* handle = nullptr;
    switch (state) {
    case State::LibraryClosed: return TLOpen(&handle);
    case State::SystemOpen: EXPECT_EQ(GCInitLib(), GC_ERR_RESOURCE_IN_USE); return TLOpen(&handle);
    case State::InterfaceOpen:
    case State::Discovering: return TLOpenInterface(m_system, kInterfaceId, &handle);
    case State::DeviceOpen:
        return IFOpenDevice(m_interface, kDeviceId, DEVICE_ACCESS_READONLY, &handle);
    case State::BuffersAnnounced:
        EXPECT_EQ(DSAnnounceBuffer(m_stream, m_memory[0].data(), 1, nullptr, &handle),
                  GC_ERR_RESOURCE_IN_USE);
        EXPECT_EQ(GCRegisterEvent(m_stream, EVENT_NEW_BUFFER, &handle), GC_ERR_RESOURCE_IN_USE);
        return DevOpenDataStream(m_device, "0", &handle);
    default: return DevOpenDataStream(m_device, "0", &handle);
    }
}

GC_ERROR TortureConsumer::UnregisterEvent()
{
    const GC_ERROR status = m_eventSource != nullptr ? GCUnregisterEvent(m_eventSource, m_eventType)
                                                     : GCUnregisterEvent(m_system, EVENT_ERROR);
    if (status == GC_ERR_SUCCESS) {
        m_registered = false;
    }
    return status;
}

void TortureConsumer::UseEverything(const std::vector<GC_ERROR>& port) const
{
    uint32_t number = 0;
    char text[512];
    size_t size = sizeof(text);
    INFO_DATATYPE type = INFO_DATATYPE_UNKNOWN;
    EXPECT_EQ(TLGetNumInterfaces(m_system, &number), Expected(Level::System));
    if (m_interface != nullptr) {
        EXPECT_EQ(IFGetNumDevices(m_interface, &number), Expected(Level::Interface));
        size = sizeof(text);
        EXPECT_EQ(IFGetInfo(m_interface, INTERFACE_INFO_ID, &type, text, &size),
                  Expected(Level::Interface));
    }
    if (m_device != nullptr) {
        size = sizeof(text);
        EXPECT_EQ(DevGetInfo(m_device, DEVICE_INFO_MODEL, &type, text, &size),
                  Expected(Level::Device));
        uint32_t value = 0;
        size = sizeof(value);
        const GC_ERROR read = GCReadPort(m_port, 0x50000, &value, &size);
        if (Expected(Level::Device) == GC_ERR_SUCCESS) {
            EXPECT_NE(std::find(port.begin(), port.end(), read), port.end()) << read;
        } else {
            EXPECT_EQ(read, Expected(Level::Device));
        }
    }
    if (m_stream != nullptr) {
        size = sizeof(text);
        EXPECT_EQ(DSGetInfo(m_stream, STREAM_INFO_NUM_ANNOUNCED, &type, text, &size),
                  Expected(Level::Stream));
        BUFFER_HANDLE first = nullptr;
        EXPECT_EQ(
            DSGetBufferID(m_stream, 0, &first),
            Expected(Level::Stream, m_buffers.empty() ? GC_ERR_INVALID_INDEX : GC_ERR_SUCCESS));
    }
    if (m_event != nullptr) {
        size = sizeof(text);
        const GC_ERROR info = EventGetInfo(m_event, EVENT_NUM_IN_QUEUE, &type, text, &size);
        const GC_ERROR gone =
            m_closed == Level::Library ? GC_ERR_NOT_INITIALIZED : GC_ERR_INVALID_HANDLE;
        EXPECT_EQ(info, m_registered ? GC_ERR_SUCCESS : gone);
    }
}

void TortureConsumer::_expectStream(GC_ERROR status, const char* call, GC_ERROR closedStream)
{
    EXPECT_EQ(status, Expected(Level::Stream, m_streamClosed ? closedStream : GC_ERR_SUCCESS))
        << call;
}

void TortureConsumer::TearDown()
{
    m_quit = true;
    if (m_working) {
        m_working->Join();
    }
    if (m_registered) {
        EXPECT_EQ(EventKill(m_event), GC_ERR_SUCCESS);
    }
    if (m_waiter) {
        m_waiter->Join();
    }
    if (m_stream != nullptr) {
        _expectStream(DSStopAcquisition(m_stream, ACQ_STOP_FLAGS_DEFAULT), "stop");
        _expectStream(DSFlushQueue(m_stream, ACQ_QUEUE_ALL_DISCARD), "flush");
    }
    if (m_registered) {
        EXPECT_EQ(UnregisterEvent(), GC_ERR_SUCCESS);
    }
    if (m_stream != nullptr) {
        for (BUFFER_HANDLE buffer : m_buffers) {
            _expectStream(DSRevokeBuffer(m_stream, buffer, nullptr, nullptr), "revoke");
        }
        _expectStream(DSClose(m_stream), "close", GC_ERR_NOT_INITIALIZED);
    }
    if (m_device != nullptr) {
        EXPECT_EQ(DevClose(m_device), Expected(Level::Device));
    }
    if (m_interface != nullptr) {
        EXPECT_EQ(IFClose(m_interface), Expected(Level::Interface));
    }
    // The System outlives its close, so a second one is told as such.
    EXPECT_EQ(TLClose(m_system),
              m_closed == Level::System ? GC_ERR_ERROR : Expected(Level::System));
    EXPECT_EQ(GCCloseLib(), m_closed == Level::Library ? GC_ERR_NOT_INITIALIZED : GC_ERR_SUCCESS);
    m_closed = Level::Library;
}
