// One image on its way from the camera's stream into a buffer and to the new-buffer event.

#include "data_stream_fixture.h"

namespace {

class AcquireImageTest : public OpenStreamTest
{
protected:
    // Acquires with a scripted status and returns what was traced.
    Lines AcquireWith(uint16_t status, GC_ERROR expected)
    {
        m_fake.Script("U3V_GetImage", {status});
        const TraceCapture trace;
        EXPECT_EQ(m_stream->AcquireImage(), expected);
        return trace.Lines();
    }
};

TEST_F(AcquireImageTest, AcquireImage_NoInputBuffer_SaysFull)
{
    const TraceCapture trace;
    EXPECT_EQ(m_stream->AcquireImage(), GC_ERR_ERROR);
    EXPECT_EQ(trace.Lines(), Lines{ErrorLine("AcquireImage failed! m_BufferContainer full")});
    EXPECT_TRUE(m_fake.Journal().empty());
}

TEST_F(AcquireImageTest, AcquireImage_NoImage_KeepsTheBuffer)
{
    void* const handle = AnnounceAndQueue(0);
    EXPECT_EQ(AcquireWith(0xC017, GC_ERR_NO_DATA),
              (Lines{ErrorLine("GetImage Failed! U3V_GetImage:49175"),
                     TracedLine{8, "AcquireImage DS_STATUS_NO_IMAGE_AVAILABLE"}}));
    EXPECT_EQ(m_fake.Journal(), Strings{"U3V_GetImage 200"});
    EXPECT_EQ(Queued(), 1U);
    EXPECT_FALSE(IsNew(handle));
    EXPECT_EQ(Delivered(), 0U);
}

TEST_F(AcquireImageTest, AcquireImage_Timeout_KeepsTheBuffer)
{
    AnnounceAndQueue(0);
    EXPECT_EQ(AcquireWith(0xC018, GC_ERR_TIMEOUT),
              (Lines{ErrorLine("GetImage Failed! U3V_GetImage:49176"),
                     TracedLine{8, "AcquireImage DS_STATUS_IMAGE_TIMEOUT(ignored)"}}));
    EXPECT_EQ(Queued(), 1U);
}

TEST_F(AcquireImageTest, AcquireImage_OtherStatuses_AreErrorsWithoutATraceOfTheirOwn)
{
    AnnounceAndQueue(0);
    for (const uint16_t status :
         std::initializer_list<uint16_t>{0xC016, 0xC01A, 0xC01B, 0x800B, 0x0001}) {
        EXPECT_EQ(AcquireWith(status, GC_ERR_ERROR),
                  Lines{ErrorLine("GetImage Failed! U3V_GetImage:" + std::to_string(status))});
        EXPECT_EQ(Queued(), 1U);
        EXPECT_EQ(Info<uint64_t>(STREAM_INFO_NUM_UNDERRUN).value, 0U);
    }
}

TEST_F(AcquireImageTest, AcquireImage_Success_DescribesAndDeliversTheImage)
{
    ZrGenTLEvent* const event = RegisterEvent();
    void* const handle = AnnounceAndQueue(0);
    FakeU3V::Image image = MakeImage(0x1122334455667788, 10);
    image.header.nTimestamp = 0x99AABBCCDDEEFF00;
    image.header.nPixelFormat = 0x81080001;
    image.header.nSizeX = 640;
    image.header.nSizeY = 480;
    image.header.nOffsetX = 3;
    image.header.nMissingBytes = 5; // of no meaning in a complete image
    m_fake.PushImage(image);
    const TraceCapture trace;
    EXPECT_EQ(m_stream->AcquireImage(), GC_ERR_SUCCESS);
    EXPECT_EQ(trace.Lines(), (Lines{TracedLine{8, "AcquireImage U3V_STATUS_SUCCESS"}}));
    EXPECT_EQ(BufferValue<uint64_t>(handle, BUFFER_INFO_FRAMEID), 0x1122334455667788U);
    EXPECT_EQ(BufferValue<uint64_t>(handle, BUFFER_INFO_TIMESTAMP), 0x99AABBCCDDEEFF00U);
    EXPECT_EQ(BufferValue<uint64_t>(handle, BUFFER_INFO_PIXELFORMAT), 0x81080001U);
    EXPECT_EQ(BufferValue<size_t>(handle, BUFFER_INFO_WIDTH), 640U);
    EXPECT_EQ(BufferValue<size_t>(handle, BUFFER_INFO_HEIGHT), 480U);
    EXPECT_EQ(BufferValue<size_t>(handle, BUFFER_INFO_SIZE_FILLED), kBufferSize);
    EXPECT_EQ(BufferValue<bool8_t>(handle, BUFFER_INFO_IS_INCOMPLETE), 0);
    EXPECT_EQ(BufferValue<bool8_t>(handle, BUFFER_INFO_IS_ACQUIRING), 0);
    EXPECT_TRUE(IsNew(handle));
    EXPECT_TRUE(IsQueued(handle));
    EXPECT_EQ(m_memory[0][0], 0x88);
    EXPECT_EQ(m_memory[0][9], 0x88);
    EXPECT_EQ(m_memory[0][10], 0);
    EXPECT_EQ(Queued(), 0U);
    EXPECT_EQ(Awaiting(), 1U);
    EXPECT_EQ(Delivered(), 1U);
    EXPECT_EQ(Take(event), handle);
    EXPECT_FALSE(IsQueued(handle));
}

TEST_F(AcquireImageTest, AcquireImage_MissingPackets_IsIncompleteByTheMissingBytes)
{
    void* const handle = AnnounceAndQueue(0);
    FakeU3V::Image image = MakeImage(1, 12, 0xC019);
    image.header.nMissingBytes = 4;
    m_fake.PushImage(image);
    const TraceCapture trace;
    EXPECT_EQ(m_stream->AcquireImage(), GC_ERR_SUCCESS);
    EXPECT_EQ(trace.Lines(),
              (Lines{ErrorLine("GetImage Failed! U3V_GetImage:49177"),
                     TracedLine{8, "AcquireImage DS_STATUS_IMAGE_MISSING_PACKETS"}}));
    EXPECT_EQ(BufferValue<bool8_t>(handle, BUFFER_INFO_IS_INCOMPLETE), 1);
    EXPECT_EQ(BufferValue<size_t>(handle, BUFFER_INFO_SIZE_FILLED), kBufferSize - 4);
    EXPECT_TRUE(IsNew(handle));
    EXPECT_EQ(Delivered(), 1U);
}

TEST_F(AcquireImageTest, AcquireImage_MoreMissingThanTheBufferHolds_FillsNothing)
{
    void* const handle = AnnounceAndQueue(0);
    FakeU3V::Image image = MakeImage(1, 1, 0xC019);
    image.header.nMissingBytes = 0xFFFFFFFF;
    m_fake.PushImage(image);
    EXPECT_EQ(m_stream->AcquireImage(), GC_ERR_SUCCESS);
    EXPECT_EQ(BufferValue<size_t>(handle, BUFFER_INFO_SIZE_FILLED), 0U);
}

TEST_F(AcquireImageTest, AcquireImage_LargerThanTheBuffer_IsCutAndIncomplete)
{
    void* handle = nullptr;
    ASSERT_EQ(m_stream->AnnounceBuffer(m_memory[0].data(), 8, nullptr, &handle), GC_ERR_SUCCESS);
    ASSERT_EQ(m_stream->QueueBuffer(handle), GC_ERR_SUCCESS);
    m_fake.PushImage(MakeImage(7, 100));
    EXPECT_EQ(m_stream->AcquireImage(), GC_ERR_SUCCESS);
    EXPECT_EQ(m_memory[0][7], 7);
    EXPECT_EQ(m_memory[0][8], 0) << "not a byte beyond the buffer";
    EXPECT_EQ(BufferValue<bool8_t>(handle, BUFFER_INFO_IS_INCOMPLETE), 1);
    EXPECT_EQ(BufferValue<size_t>(handle, BUFFER_INFO_SIZE_FILLED), 8U);
}

TEST_F(AcquireImageTest, AcquireImage_CompleteAfterIncomplete_ClearsTheFlag)
{
    ZrGenTLEvent* const event = RegisterEvent();
    void* const handle = AnnounceAndQueue(0);
    m_fake.PushImage(MakeImage(1, 4, 0xC019));
    m_fake.PushImage(MakeImage(2));
    ASSERT_EQ(m_stream->AcquireImage(), GC_ERR_SUCCESS);
    ASSERT_EQ(Take(event), handle);
    ASSERT_EQ(m_stream->QueueBuffer(handle), GC_ERR_SUCCESS);
    ASSERT_EQ(m_stream->AcquireImage(), GC_ERR_SUCCESS);
    EXPECT_EQ(BufferValue<bool8_t>(handle, BUFFER_INFO_IS_INCOMPLETE), 0);
}

TEST_F(AcquireImageTest, AcquireImage_NoEvent_LeavesTheInputListAndCounts)
{
    void* const handle = AnnounceAndQueue(0);
    m_fake.PushImage(MakeImage(1));
    EXPECT_EQ(m_stream->AcquireImage(), GC_ERR_SUCCESS);
    EXPECT_EQ(Queued(), 0U);
    EXPECT_EQ(Delivered(), 1U);
    EXPECT_TRUE(IsNew(handle));
    EXPECT_TRUE(IsQueued(handle)) << "nobody takes it from an event, so it stays queued";
    EXPECT_EQ(Awaiting(), 0U);
}

TEST_F(AcquireImageTest, AcquireImage_FlushedWhileItArrives_IsNotDelivered)
{
    RegisterEvent();
    void* const handle = AnnounceAndQueue(0);
    m_fake.OnCall("U3V_GetImage", [this] { m_stream->FlushQueue(ACQ_QUEUE_ALL_DISCARD); });
    m_fake.PushImage(MakeImage(1));
    EXPECT_EQ(m_stream->AcquireImage(), GC_ERR_ERROR);
    EXPECT_EQ(Awaiting(), 0U);
    EXPECT_EQ(Delivered(), 0U);
    EXPECT_FALSE(IsNew(handle));
    EXPECT_EQ(m_stream->RevokeBuffer(handle, nullptr, nullptr), GC_ERR_SUCCESS);
}

TEST_F(AcquireImageTest, AcquireImage_AnotherBufferInFrontMeanwhile_IsNotDelivered)
{
    RegisterEvent();
    AnnounceAndQueue(0);
    void* const other = Announce(1);
    m_fake.OnCall("U3V_GetImage", [this, other] {
        m_stream->FlushQueue(ACQ_QUEUE_ALL_DISCARD);
        EXPECT_EQ(m_stream->QueueBuffer(other), GC_ERR_SUCCESS);
    });
    m_fake.PushImage(MakeImage(1));
    EXPECT_EQ(m_stream->AcquireImage(), GC_ERR_ERROR);
    EXPECT_EQ(Queued(), 1U) << "the other one stays";
    EXPECT_FALSE(IsNew(other));
}

} // namespace
