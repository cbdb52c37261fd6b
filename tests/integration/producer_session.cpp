#include "producer_session.h"

#include <filesystem>

namespace {

// Registers of the virtual camera.
constexpr uint64_t kTriggerMode = 0x501EC;
constexpr uint64_t kTriggerSoftware = 0x501F4;

size_t EntriesOf(const char* directory)
{
    size_t entries = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(directory)) {
        ++entries;
    }
    return entries;
}

} // namespace

void ProducerTest::SetUp()
{
    vusb_reset();
    ASSERT_EQ(GCInitLib(), GC_ERR_SUCCESS);
}

void ProducerTest::TearDown()
{
    EXPECT_EQ(GCCloseLib(), GC_ERR_SUCCESS);
    EXPECT_EQ(vusb::Violations(), "");
    vusb_live_objects live{};
    vusb_get_live_objects(&live);
    EXPECT_EQ(live.contexts, 0u);
    EXPECT_EQ(live.handles, 0u);
    EXPECT_EQ(live.transfers, 0u);
    EXPECT_EQ(live.device_references, 0u);
    EXPECT_EQ(live.config_descriptors, 0u);
}

Producer::Producer()
{
    EXPECT_EQ(TLOpen(&m_system), GC_ERR_SUCCESS);
    EXPECT_EQ(TLUpdateInterfaceList(m_system, nullptr, 0), GC_ERR_SUCCESS);
    _openInterface();
}

Producer::~Producer()
{
    EXPECT_EQ(IFClose(m_interface), GC_ERR_SUCCESS);
    EXPECT_EQ(TLClose(m_system), GC_ERR_SUCCESS);
}

void Producer::_openInterface()
{
    char id[64];
    size_t size = sizeof(id);
    EXPECT_EQ(TLGetInterfaceID(m_system, 0, id, &size), GC_ERR_SUCCESS);
    m_interface = nullptr;
    EXPECT_EQ(TLOpenInterface(m_system, id, &m_interface), GC_ERR_SUCCESS);
    Update();
}

void Producer::Reopen()
{
    EXPECT_EQ(IFClose(m_interface), GC_ERR_SUCCESS);
    _openInterface();
}

bool Producer::Update(uint64_t time) const
{
    // On a busy machine not even one pass may fit into the time: the update says so and is
    // repeated.
    bool8_t changed = false;
    GC_ERROR status = GC_ERR_TIMEOUT;
    for (int attempt = 0; attempt < 50 && status == GC_ERR_TIMEOUT; ++attempt) {
        status = IFUpdateDeviceList(m_interface, &changed, time);
    }
    EXPECT_EQ(status, GC_ERR_SUCCESS);
    return changed;
}

std::vector<std::string> Producer::DeviceIds() const
{
    uint32_t count = 0;
    EXPECT_EQ(IFGetNumDevices(m_interface, &count), GC_ERR_SUCCESS);
    std::vector<std::string> ids;
    for (uint32_t index = 0; index < count; ++index) {
        char id[64];
        size_t size = sizeof(id);
        EXPECT_EQ(IFGetDeviceID(m_interface, index, id, &size), GC_ERR_SUCCESS);
        ids.emplace_back(id);
    }
    return ids;
}

std::string Producer::DeviceInfo(const std::string& id, DEVICE_INFO_CMD cmd) const
{
    char text[256] = {};
    size_t size = sizeof(text);
    INFO_DATATYPE type = INFO_DATATYPE_UNKNOWN;
    EXPECT_EQ(IFGetDeviceInfo(m_interface, id.c_str(), cmd, &type, text, &size), GC_ERR_SUCCESS);
    EXPECT_EQ(type, INFO_DATATYPE_STRING);
    return text;
}

int32_t Producer::AccessStatus(const std::string& id) const
{
    int32_t status = -1;
    size_t size = sizeof(status);
    INFO_DATATYPE type = INFO_DATATYPE_UNKNOWN;
    EXPECT_EQ(
        IFGetDeviceInfo(m_interface, id.c_str(), DEVICE_INFO_ACCESS_STATUS, &type, &status, &size),
        GC_ERR_SUCCESS);
    return status;
}

OpenCamera::OpenCamera(const Producer& producer, size_t index, DEVICE_ACCESS_FLAGS access)
{
    const auto ids = producer.DeviceIds();
    EXPECT_GT(ids.size(), index);
    EXPECT_EQ(IFOpenDevice(producer.Interface(), ids.at(index).c_str(), access, &m_device),
              GC_ERR_SUCCESS);
    EXPECT_EQ(DevGetPort(m_device, &m_port), GC_ERR_SUCCESS);
    char id[64];
    size_t size = sizeof(id);
    EXPECT_EQ(DevGetDataStreamID(m_device, 0, id, &size), GC_ERR_SUCCESS);
    EXPECT_EQ(DevOpenDataStream(m_device, id, &m_stream), GC_ERR_SUCCESS);
}

OpenCamera::~OpenCamera()
{
    if (m_device != nullptr) {
        EXPECT_EQ(DSClose(m_stream), GC_ERR_SUCCESS);
        EXPECT_EQ(DevClose(m_device), GC_ERR_SUCCESS);
    }
}

GC_ERROR OpenCamera::Read(uint64_t address, void* data, size_t size) const
{
    return GCReadPort(m_port, address, data, &size);
}

GC_ERROR OpenCamera::Write(uint64_t address, const void* data, size_t size) const
{
    return GCWritePort(m_port, address, data, &size);
}

std::string OpenCamera::Url() const
{
    char url[1024] = {};
    size_t size = sizeof(url);
    INFO_DATATYPE type = INFO_DATATYPE_UNKNOWN;
    EXPECT_EQ(GCGetPortURLInfo(m_port, 0, URL_INFO_URL, &type, url, &size), GC_ERR_SUCCESS);
    return url;
}

ImageStream::ImageStream(DS_HANDLE stream, size_t bufferSize, size_t bufferCount) : m_stream(stream)
{
    EXPECT_EQ(GCRegisterEvent(stream, EVENT_NEW_BUFFER, &m_event), GC_ERR_SUCCESS);
    m_memory.resize(bufferCount);
    for (auto& memory : m_memory) {
        memory.resize(bufferSize);
        BUFFER_HANDLE handle = nullptr;
        EXPECT_EQ(DSAnnounceBuffer(stream, memory.data(), memory.size(), &memory, &handle),
                  GC_ERR_SUCCESS);
        m_handles.push_back(handle);
    }
    QueueAll();
}

ImageStream::~ImageStream()
{
    EXPECT_EQ(Stop(), GC_ERR_SUCCESS);
    EXPECT_EQ(DSFlushQueue(m_stream, ACQ_QUEUE_ALL_DISCARD), GC_ERR_SUCCESS);
    EXPECT_EQ(GCUnregisterEvent(m_stream, EVENT_NEW_BUFFER), GC_ERR_SUCCESS);
    for (BUFFER_HANDLE handle : m_handles) {
        EXPECT_EQ(DSRevokeBuffer(m_stream, handle, nullptr, nullptr), GC_ERR_SUCCESS);
    }
}

GC_ERROR ImageStream::Start(uint64_t count) const
{
    return DSStartAcquisition(m_stream, ACQ_START_FLAGS_DEFAULT, count);
}

GC_ERROR ImageStream::Stop(ACQ_STOP_FLAGS flags) const
{
    return DSStopAcquisition(m_stream, flags);
}

std::optional<Delivered> ImageStream::Next(uint64_t timeout) const
{
    EVENT_NEW_BUFFER_DATA data{};
    size_t size = sizeof(data);
    if (EventGetData(m_event, &data, &size, timeout) != GC_ERR_SUCCESS) {
        return std::nullopt;
    }
    return Delivered{data.BufferHandle, data.pUserPointer};
}

void ImageStream::QueueAll() const
{
    for (BUFFER_HANDLE handle : m_handles) {
        EXPECT_EQ(Queue(handle), GC_ERR_SUCCESS);
    }
}

void ImageStream::Rewind() const
{
    EXPECT_EQ(DSFlushQueue(m_stream, ACQ_QUEUE_ALL_DISCARD), GC_ERR_SUCCESS);
    QueueAll();
}

const void* ImageStream::Base(BUFFER_HANDLE buffer) const
{
    return Info<void*>(buffer, BUFFER_INFO_BASE);
}

uint64_t ImageStream::FrameId(BUFFER_HANDLE buffer) const
{
    return Info<uint64_t>(buffer, BUFFER_INFO_FRAMEID);
}

bool ImageStream::IsIncomplete(BUFFER_HANDLE buffer) const
{
    return Info<bool8_t>(buffer, BUFFER_INFO_IS_INCOMPLETE);
}

size_t ImageStream::SizeFilled(BUFFER_HANDLE buffer) const
{
    return Info<size_t>(buffer, BUFFER_INFO_SIZE_FILLED);
}

Triggers::Triggers(const OpenCamera& camera) : m_camera(camera)
{
    const uint32_t on = 1;
    EXPECT_EQ(m_camera.Write(kTriggerMode, &on, sizeof(on)), GC_ERR_SUCCESS);
}

void Triggers::Fire(size_t count) const
{
    for (size_t i = 0; i < count; ++i) {
        const uint32_t trigger = 1;
        EXPECT_EQ(m_camera.Write(kTriggerSoftware, &trigger, sizeof(trigger)), GC_ERR_SUCCESS);
    }
}

void ExpectExactImages(const ImageStream& stream, const vusb::Camera& camera, uint64_t first,
                       uint64_t count, const Triggers* triggers)
{
    if (triggers != nullptr) {
        triggers->Fire(stream.Handles().size());
    }
    const size_t payload = camera.PayloadSize();
    for (uint64_t frame = first; frame < first + count; ++frame) {
        const auto image = stream.Next();
        ASSERT_TRUE(image) << "frame " << frame << " did not come";
        ASSERT_EQ(stream.FrameId(image->handle), frame);
        ASSERT_EQ(vusb_compare_image(camera.Id(), frame, stream.Base(image->handle), payload), -1)
            << "frame " << frame << " differs";
        ASSERT_EQ(stream.Queue(image->handle), GC_ERR_SUCCESS);
        if (triggers != nullptr) {
            triggers->Fire();
        }
    }
}

size_t ThreadCount()
{
    return EntriesOf("/proc/self/task");
}

size_t DescriptorCount()
{
    return EntriesOf("/proc/self/fd");
}
