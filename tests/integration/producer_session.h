#pragma once

// What the integration tests share: a fresh bus and library per test, and a consumer's usual way
// from the System to images, as small owners. Everything goes through the exported functions.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <virtual_bus.h>
#include <zr_u3v_tl/gentl.h>

// Long enough for one discovery pass on the virtual bus; an update takes the whole time.
inline constexpr uint64_t kUpdateTime = 20;     // ms
inline constexpr uint64_t kImageTimeout = 5000; // ms

// Empties the bus and initialises the library; afterwards closes it and demands that the host has
// kept every rule of libusb and left nothing behind.
class ProducerTest : public ::testing::Test
{
protected:
    void SetUp() override;
    void TearDown() override;
};

// The opened System and its one interface, with the device list updated.
class Producer
{
public:
    Producer();
    ~Producer();
    Producer(const Producer&) = delete;
    Producer& operator=(const Producer&) = delete;

    TL_HANDLE System() const { return m_system; }
    IF_HANDLE Interface() const { return m_interface; }
    // Runs an update; whether the list changed.
    bool Update(uint64_t time = kUpdateTime) const;
    std::vector<std::string> DeviceIds() const;
    std::string DeviceInfo(const std::string& id, DEVICE_INFO_CMD cmd) const;
    int32_t AccessStatus(const std::string& id) const;
    // Closes and opens the interface: an unplugged camera keeps its place in the list until then.
    void Reopen();

private:
    void _openInterface();

    TL_HANDLE m_system = nullptr;
    IF_HANDLE m_interface = nullptr;
};

// An opened camera with its remote port and stream.
class OpenCamera
{
public:
    explicit OpenCamera(const Producer& producer, size_t index = 0,
                        DEVICE_ACCESS_FLAGS access = DEVICE_ACCESS_CONTROL);
    ~OpenCamera();
    OpenCamera(const OpenCamera&) = delete;
    OpenCamera& operator=(const OpenCamera&) = delete;

    DEV_HANDLE Device() const { return m_device; }
    PORT_HANDLE Port() const { return m_port; }
    DS_HANDLE Stream() const { return m_stream; }
    // Gives the handle up, for tests that close in another way.
    void Forget() { m_device = nullptr; }

    GC_ERROR Read(uint64_t address, void* data, size_t size) const;
    GC_ERROR Write(uint64_t address, const void* data, size_t size) const;
    std::string Url() const;

private:
    DEV_HANDLE m_device = nullptr;
    PORT_HANDLE m_port = nullptr;
    DS_HANDLE m_stream = nullptr;
};

// A buffer as the new-buffer event delivered it.
struct Delivered
{
    BUFFER_HANDLE handle;
    void* userPointer;
};

// An acquisition with announced buffers and the new-buffer event. The destructor ends it in the
// order consumers use.
class ImageStream
{
public:
    ImageStream(DS_HANDLE stream, size_t bufferSize, size_t bufferCount = 4);
    ~ImageStream();
    ImageStream(const ImageStream&) = delete;
    ImageStream& operator=(const ImageStream&) = delete;

    GC_ERROR Start(uint64_t count = GENTL_INFINITE) const;
    GC_ERROR Stop(ACQ_STOP_FLAGS flags = ACQ_STOP_FLAGS_DEFAULT) const;
    // The next delivered buffer, or nothing within the time.
    std::optional<Delivered> Next(uint64_t timeout = kImageTimeout) const;
    GC_ERROR Queue(BUFFER_HANDLE buffer) const { return DSQueueBuffer(m_stream, buffer); }
    void QueueAll() const;
    // Forgets undelivered images and puts every buffer back into the input list.
    void Rewind() const;

    const void* Base(BUFFER_HANDLE buffer) const;
    uint64_t FrameId(BUFFER_HANDLE buffer) const;
    bool IsIncomplete(BUFFER_HANDLE buffer) const;
    size_t SizeFilled(BUFFER_HANDLE buffer) const;
    template <class T>
    T Info(BUFFER_HANDLE buffer, BUFFER_INFO_CMD cmd) const;
    EVENT_HANDLE Event() const { return m_event; }
    const std::vector<BUFFER_HANDLE>& Handles() const { return m_handles; }
    std::vector<uint8_t>& Memory(size_t index) { return m_memory[index]; }

private:
    DS_HANDLE m_stream;
    EVENT_HANDLE m_event = nullptr;
    std::vector<std::vector<uint8_t>> m_memory;
    std::vector<BUFFER_HANDLE> m_handles;
};

template <class T>
T ImageStream::Info(BUFFER_HANDLE buffer, BUFFER_INFO_CMD cmd) const
{
    T value{};
    size_t size = sizeof(value);
    INFO_DATATYPE type = INFO_DATATYPE_UNKNOWN;
    EXPECT_EQ(DSGetBufferInfo(m_stream, buffer, cmd, &type, &value, &size), GC_ERR_SUCCESS)
        << "command " << cmd;
    return value;
}

// Images on demand: the camera sends one for every trigger, so that a test of any size runs at full
// speed and no image is overwritten before it is taken, however busy the machine is.
class Triggers
{
public:
    // Switches the camera to triggers; before the start.
    explicit Triggers(const OpenCamera& camera);
    // Asks for `count` images; while acquiring.
    void Fire(size_t count = 1) const;

private:
    const OpenCamera& m_camera;
};

// Takes `count` images, checks frame ids (consecutive from `first`) and every byte, queues each
// buffer again and asks for the next image where the camera waits for triggers.
void ExpectExactImages(const ImageStream& stream, const vusb::Camera& camera, uint64_t first,
                       uint64_t count, const Triggers* triggers = nullptr);

// Threads and open descriptors of this process.
size_t ThreadCount();
size_t DescriptorCount();
