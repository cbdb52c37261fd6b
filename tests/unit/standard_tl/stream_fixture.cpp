#include "stream_fixture.h"

#include "module_document.h"

namespace standard_tl {

std::vector<BUFFER_HANDLE> StreamTest::Announce(size_t count, size_t size)
{
    std::vector<BUFFER_HANDLE> buffers(count);
    for (BUFFER_HANDLE& buffer : buffers) {
        EXPECT_EQ(DSAllocAndAnnounceBuffer(Stream(), size, nullptr, &buffer), GC_ERR_SUCCESS);
    }
    return buffers;
}

void StreamTest::Queue(BUFFER_HANDLE buffer)
{
    EXPECT_EQ(DSQueueBuffer(Stream(), buffer), GC_ERR_SUCCESS);
}

std::vector<BUFFER_HANDLE> StreamTest::Prepare(size_t count, size_t size)
{
    auto buffers = Announce(count, size);
    for (BUFFER_HANDLE buffer : buffers) {
        Queue(buffer);
    }
    return buffers;
}

void StreamTest::Start(uint64_t images)
{
    EXPECT_EQ(DSStartAcquisition(Stream(), ACQ_START_FLAGS_DEFAULT, images), GC_ERR_SUCCESS);
}

void StreamTest::Stop(ACQ_STOP_FLAGS flags)
{
    EXPECT_EQ(DSStopAcquisition(Stream(), flags), GC_ERR_SUCCESS);
}

void StreamTest::Flush(ACQ_QUEUE_TYPE operation)
{
    EXPECT_EQ(DSFlushQueue(Stream(), operation), GC_ERR_SUCCESS);
}

void StreamTest::SetMode(uint64_t mode)
{
    const uint64_t address =
        ModuleDocument(Stream()).RegisterOf("StreamBufferHandlingMode").address;
    size_t size = sizeof(mode);
    EXPECT_EQ(GCWritePort(Stream(), address, &mode, &size), GC_ERR_SUCCESS);
}

bool StreamTest::Send(uint64_t blockId, size_t size)
{
    u3v_host::Image image = fake_host::Receiver::SomeImage();
    image.blockId = blockId;
    return Send(image, size);
}

bool StreamTest::Send(const u3v_host::Image& image, size_t size)
{
    return Receiver().Send(std::vector<uint8_t>(size, 0xC3), image);
}

EVENT_HANDLE StreamTest::NewBuffer()
{
    if (m_newBuffer == nullptr) {
        m_newBuffer = Register(Stream(), EVENT_NEW_BUFFER);
    }
    return m_newBuffer;
}

BUFFER_HANDLE StreamTest::Next(uint64_t timeout)
{
    EVENT_NEW_BUFFER_DATA data{};
    size_t size = sizeof(data);
    const GC_ERROR code = EventGetData(NewBuffer(), &data, &size, timeout);
    EXPECT_TRUE(code == GC_ERR_SUCCESS || code == GC_ERR_TIMEOUT || code == GC_ERR_ABORT) << code;
    return data.BufferHandle;
}

} // namespace standard_tl
