#include "producer_fixture.h"

#include <cstdlib>

namespace {

const consumer::Producer* g_producer = nullptr;

size_t EntriesOf(const char* directory)
{
    const std::filesystem::directory_iterator entries(directory);
    return static_cast<size_t>(std::distance(begin(entries), end(entries)));
}

} // namespace

const char* ProducerFile()
{
    const char* const file = std::getenv("ZR_TEST_PRODUCER");
    return file != nullptr ? file : ZR_BUILT_PRODUCER;
}

ProducerUnderTest::ProducerUnderTest() : m_producer(ProducerFile())
{
    m_producer.OnFailedClose(
        [](const std::exception& failure) { ADD_FAILURE() << failure.what(); });
    g_producer = &m_producer;
}

ProducerUnderTest::~ProducerUnderTest()
{
    g_producer = nullptr;
}

const consumer::Producer& Gentl()
{
    return *g_producer;
}

void ProducerTest::SetUp()
{
    vusb_reset();
    m_producer.emplace();
}

void ProducerTest::TearDown()
{
    m_producer.reset();
    ExpectCleanBus();
}

bool Update(const consumer::Session& session)
{
    // An update may take the end of passes that an earlier one has begun: the third in a row shows
    // the bus as it is now.
    bool changed = false;
    for (int update = 0; update < 3; ++update) {
        changed = session.Update({.update_ms = kUpdateTime}) || changed;
    }
    return changed;
}

int32_t AccessStatus(const consumer::Session& session, const std::string& id)
{
    return session.CameraValue<int32_t>(id, DEVICE_INFO_ACCESS_STATUS);
}

GC_ERROR StatusOfOpening(const consumer::Session& session, const std::string& id)
{
    return StatusOf([&] { const consumer::Camera camera(session, id, DEVICE_ACCESS_CONTROL); });
}

OpenCamera::OpenCamera(const consumer::Session& session, size_t index, DEVICE_ACCESS_FLAGS access)
    : Camera(session, session.CameraIds().at(index), access), m_stream(*this)
{
}

GC_ERROR OpenCamera::TryRead(uint64_t address, void* data, size_t size) const
{
    return Api().GCReadPort(Port(), address, data, &size);
}

GC_ERROR OpenCamera::TryWrite(uint64_t address, const void* data, size_t size) const
{
    return Api().GCWritePort(Port(), address, data, &size);
}

Triggers::Triggers(const consumer::Camera& camera) : m_camera(camera)
{
    m_camera.Write<uint32_t>(camera_features::kTriggerMode, 1);
}

void Triggers::Fire(size_t count) const
{
    for (size_t i = 0; i < count; ++i) {
        m_camera.Write<uint32_t>(camera_features::kTriggerSoftware, 1);
    }
}

bool IsExact(const consumer::Image& image, const vusb::Camera& camera)
{
    return image.bytes.size() == camera.PayloadSize() &&
           vusb_compare_image(camera.Id(), image.frameId, image.bytes.data(), image.bytes.size()) ==
               -1;
}

void ExpectExactImages(const ImageStream& stream, const vusb::Camera& camera, uint64_t first,
                       uint64_t count, const Triggers* triggers)
{
    if (triggers != nullptr) {
        triggers->Fire(stream.Buffers().size());
    }
    for (uint64_t frame = first; frame < first + count; ++frame) {
        const auto image = stream.Next();
        ASSERT_TRUE(image) << "frame " << frame << " did not come";
        ASSERT_EQ(image->frameId, frame);
        ASSERT_TRUE(IsExact(*image, camera)) << "frame " << frame << " differs";
        stream.Queue(image->buffer);
        if (triggers != nullptr) {
            triggers->Fire();
        }
    }
}

void ExpectCleanBus()
{
    EXPECT_EQ(vusb::Violations(), "");
    vusb_live_objects live{};
    vusb_get_live_objects(&live);
    EXPECT_EQ(live.contexts, 0u);
    EXPECT_EQ(live.handles, 0u);
    EXPECT_EQ(live.transfers, 0u);
    EXPECT_EQ(live.device_references, 0u);
    EXPECT_EQ(live.config_descriptors, 0u);
}

size_t ThreadCount()
{
    return EntriesOf("/proc/self/task");
}

size_t DescriptorCount()
{
    return EntriesOf("/proc/self/fd");
}
