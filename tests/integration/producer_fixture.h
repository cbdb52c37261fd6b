#pragma once

// What the integration tests share: a fresh bus and a freshly initialised producer for each test,
// and short ways to a camera of the bus and to its images.

#include <acquisition.h>
#include <camera_features.h>
#include <gtest/gtest.h>
#include <virtual_bus.h>
#include <wait.h>

inline constexpr uint64_t kUpdateTime = 20;     // ms, longer than a pass over the virtual bus
inline constexpr uint64_t kImageTimeout = 5000; // ms

// The file of the producer under test: the environment variable ZR_TEST_PRODUCER, else the built
// exact one.
const char* ProducerFile();

// That producer, loaded and initialised as long as this lives. What fails to close fails the test.
class ProducerUnderTest
{
public:
    ProducerUnderTest();
    ~ProducerUnderTest();
    ProducerUnderTest(const ProducerUnderTest&) = delete;
    ProducerUnderTest& operator=(const ProducerUnderTest&) = delete;

private:
    consumer::Producer m_producer;
};

// The one that lives.
const consumer::Producer& Gentl();

// Empties the bus and loads the producer; afterwards closes it and demands a clean bus.
class ProducerTest : public ::testing::Test
{
protected:
    void SetUp() override;
    void TearDown() override;

private:
    std::optional<ProducerUnderTest> m_producer;
};

inline consumer::Session OpenSession()
{
    return consumer::Session(Gentl(), {.update_ms = kUpdateTime});
}
// Brings the list up to date; whether it changed.
bool Update(const consumer::Session& session);
int32_t AccessStatus(const consumer::Session& session, const std::string& id);
// The status of opening the camera; it is closed again.
GC_ERROR StatusOfOpening(const consumer::Session& session, const std::string& id);

// GC_ERR_SUCCESS, or the status with which a call of the consumer's failed.
template <class Call>
GC_ERROR StatusOf(const Call& call)
{
    try {
        call();
        return GC_ERR_SUCCESS;
    } catch (const consumer::GenTLError& error) {
        return error.Status();
    }
}

// A camera of the list with its stream.
class OpenCamera : public consumer::Camera
{
public:
    explicit OpenCamera(const consumer::Session& session, size_t index = 0,
                        DEVICE_ACCESS_FLAGS access = DEVICE_ACCESS_CONTROL);

    const consumer::DataStream& Stream() const { return m_stream; }
    // The status of an access to the camera's registers.
    GC_ERROR TryRead(uint64_t address, void* data, size_t size) const;
    GC_ERROR TryWrite(uint64_t address, const void* data, size_t size) const;

private:
    const consumer::DataStream m_stream;
};

// An acquisition of this camera's images.
class ImageStream : public consumer::Acquisition
{
public:
    ImageStream(const OpenCamera& camera, size_t bufferSize, size_t buffers = 4)
        : Acquisition(camera.Stream(), bufferSize, buffers)
    {
    }

    // The next image, or nothing within the time.
    std::optional<consumer::Image> Next(uint64_t timeout_ms = kImageTimeout) const
    {
        return Acquisition::Next(timeout_ms);
    }
};

// Images on demand: the camera sends one for every trigger, so that a test of any size runs at full
// speed and no image is overwritten before it is taken, however busy the machine is.
class Triggers
{
public:
    // Switches the camera to triggers; before the start.
    explicit Triggers(const consumer::Camera& camera);
    // Asks for `count` images; while acquiring.
    void Fire(size_t count = 1) const;

private:
    const consumer::Camera& m_camera;
};

// Whether every byte is what the camera has sent as this frame.
bool IsExact(const consumer::Image& image, const vusb::Camera& camera);
// Takes `count` images, checks frame ids (consecutive from `first`) and every byte, queues each
// buffer again and asks for the next image where the camera waits for triggers.
void ExpectExactImages(const ImageStream& stream, const vusb::Camera& camera, uint64_t first,
                       uint64_t count, const Triggers* triggers = nullptr);

// Demands that the host has kept every rule of libusb and left nothing behind.
void ExpectCleanBus();

// Threads and open descriptors of this process.
size_t ThreadCount();
size_t DescriptorCount();
