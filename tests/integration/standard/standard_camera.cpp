#include "standard_camera.h"

#include <chrono>
#include <cstdlib>
#include <thread>

namespace standard_tests {

// Unless somebody wants another one.
void StandardProducer::SetUp()
{
    setenv("ZR_TEST_PRODUCER", ZR_STANDARD_PRODUCER, 0);
    ProducerTest::SetUp();
}

void StandardProducer::Open(const std::string& options, DEVICE_ACCESS_FLAGS access)
{
    camera.emplace(options);
    session.emplace(Gentl(), consumer::Search{.update_ms = 1000});
    opened.emplace(*session, 0, access);
}

void StandardProducer::Announce(size_t buffers, BufferMemory memory, size_t size)
{
    const auto payload = opened->Stream().Info<size_t>(STREAM_INFO_PAYLOAD_SIZE);
    images.emplace(opened->Stream(), size != 0 ? size : payload, buffers, memory,
                   consumer::RegisterSwitch(*opened, camera_features::kAcquisition));
}

void StandardProducer::TearDown()
{
    images.reset();
    opened.reset();
    session.reset();
    ProducerTest::TearDown();
}

std::optional<consumer::Image> StandardProducer::Next() const
{
    return images->Next(kImageTimeout);
}

std::optional<consumer::Image> StandardProducer::NextWithId(uint64_t id) const
{
    while (const auto image = Next()) {
        if (image->frameId == id) {
            return image;
        }
        Queue(*image);
    }
    return std::nullopt;
}

bool StandardProducer::IsExact(const consumer::Image& image) const
{
    return vusb_compare_image(camera->Id(), image.frameId, image.bytes.data(),
                              image.bytes.size()) == -1;
}

void StandardProducer::ExpectWhole(uint64_t first, uint64_t count) const
{
    for (uint64_t id = first; id < first + count; ++id) {
        const auto image = Next();
        ASSERT_TRUE(image) << "block " << id << " did not come";
        ASSERT_EQ(image->frameId, id);
        ASSERT_FALSE(image->isIncomplete) << "block " << id;
        ASSERT_EQ(image->bytes.size(), camera->PayloadSize());
        ASSERT_TRUE(IsExact(*image)) << "block " << id << " differs";
        Queue(*image);
    }
}

std::vector<uint8_t> StandardProducer::Record(EVENT_HANDLE event) const
{
    std::vector<uint8_t> record(0x10000);
    size_t size = record.size();
    const GC_ERROR status = Gentl().EventGetData(event, record.data(), &size, kImageTimeout);
    EXPECT_TRUE(status == GC_ERR_SUCCESS || status == GC_ERR_TIMEOUT) << status;
    record.resize(status == GC_ERR_SUCCESS ? size : 0);
    return record;
}

EVENT_HANDLE StandardProducer::Register(void* module, EVENT_TYPE type) const
{
    EVENT_HANDLE event = nullptr;
    GENTL_CALL(Gentl(), GCRegisterEvent, module, type, &event);
    return event;
}

std::string StandardProducer::LastError() const
{
    GC_ERROR code = GC_ERR_SUCCESS;
    char text[1024] = {};
    size_t size = sizeof(text);
    EXPECT_EQ(Gentl().GCGetLastError(&code, text, &size), GC_ERR_SUCCESS);
    return text;
}

bool Eventually(const std::function<bool()>& condition)
{
    return zr_test::WaitUntil(condition);
}

} // namespace standard_tests
