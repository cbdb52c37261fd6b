// Buffers, queues, acquisition, handling modes, counts.

#include "module_document.h"
#include "stream_fixture.h"

#include <thread>

namespace standard_tl {
namespace {

using u3v_host::Error;
using u3v_host::ErrorKind;

constexpr uint64_t kOverwrite = 1;
constexpr uint64_t kNewestOnly = 2;

using DataStreamTest = StreamTest;
using BufferHandles = std::vector<BUFFER_HANDLE>;

// ---- announcing

TEST_F(DataStreamTest, Announce_OwnMemory_IsWhatRevokeGivesBack)
{
    uint8_t memory[64];
    int mark = 0;
    BUFFER_HANDLE buffer = &mark; // holds something
    ASSERT_EQ(DSAnnounceBuffer(Stream(), memory, sizeof(memory), &mark, &buffer), GC_ERR_SUCCESS);
    EXPECT_EQ(Info<void*>(buffer, BUFFER_INFO_BASE), memory);
    EXPECT_EQ(Info<size_t>(buffer, BUFFER_INFO_SIZE), sizeof(memory));
    EXPECT_EQ(Info<void*>(buffer, BUFFER_INFO_USER_PTR), &mark);
    void* base = nullptr;
    void* user = nullptr;
    EXPECT_EQ(DSRevokeBuffer(Stream(), buffer, &base, &user), GC_ERR_SUCCESS);
    EXPECT_EQ(base, memory);
    EXPECT_EQ(user, &mark);
    EXPECT_EQ(DSRevokeBuffer(Stream(), buffer, &base, &user), GC_ERR_INVALID_HANDLE);
}

TEST_F(DataStreamTest, Revoke_ProducersMemory_GivesNoAddressAndNullsAreNotWanted)
{
    const BufferHandles buffers = Announce(2);
    void* base = &bus;
    EXPECT_EQ(DSRevokeBuffer(Stream(), buffers[0], &base, nullptr), GC_ERR_SUCCESS);
    EXPECT_EQ(base, nullptr);
    EXPECT_EQ(DSRevokeBuffer(Stream(), buffers[1], nullptr, nullptr), GC_ERR_SUCCESS);
    EXPECT_EQ(Info<size_t>(STREAM_INFO_NUM_ANNOUNCED), 0U);
}

TEST_F(DataStreamTest, Announce_WrongArguments_AreRefused)
{
    uint8_t memory[64];
    BUFFER_HANDLE buffer = nullptr;
    DS_HANDLE stream = Stream();
    EXPECT_EQ(DSAnnounceBuffer(stream, nullptr, 64, nullptr, &buffer), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(DSAnnounceBuffer(stream, memory, 0, nullptr, &buffer), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(DSAnnounceBuffer(stream, memory, 64, nullptr, nullptr), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(DSAllocAndAnnounceBuffer(stream, 0, nullptr, &buffer), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(DSAllocAndAnnounceBuffer(stream, 64, nullptr, nullptr), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(buffer, nullptr);
    EXPECT_EQ(Info<size_t>(STREAM_INFO_NUM_ANNOUNCED), 0U);
}

TEST_F(DataStreamTest, Announce_SameMemoryTwice_IsInUse)
{
    uint8_t memory[64];
    BUFFER_HANDLE buffer = nullptr;
    BUFFER_HANDLE other = nullptr;
    ASSERT_EQ(DSAnnounceBuffer(Stream(), memory, 64, nullptr, &buffer), GC_ERR_SUCCESS);
    EXPECT_EQ(DSAnnounceBuffer(Stream(), memory, 32, nullptr, &other), GC_ERR_RESOURCE_IN_USE);
    EXPECT_EQ(DSRevokeBuffer(Stream(), buffer, nullptr, nullptr), GC_ERR_SUCCESS);
    EXPECT_EQ(DSAnnounceBuffer(Stream(), memory, 32, nullptr, &other), GC_ERR_SUCCESS);
}

TEST_F(DataStreamTest, Allocate_NoMemory_IsOutOfMemory)
{
    camera.noMemory = true;
    BUFFER_HANDLE buffer = nullptr;
    EXPECT_EQ(DSAllocAndAnnounceBuffer(Stream(), 64, nullptr, &buffer), GC_ERR_OUT_OF_MEMORY);
}

TEST_F(DataStreamTest, BufferId_IsTheOrderOfAnnouncing)
{
    const BufferHandles buffers = Announce(3);
    BUFFER_HANDLE buffer = nullptr;
    for (uint32_t i = 0; i < 3; ++i) {
        EXPECT_EQ(DSGetBufferID(Stream(), i, &buffer), GC_ERR_SUCCESS);
        EXPECT_EQ(buffer, buffers[i]);
    }
    EXPECT_EQ(DSGetBufferID(Stream(), 3, &buffer), GC_ERR_INVALID_INDEX);
    EXPECT_EQ(DSGetBufferID(Stream(), 0, nullptr), GC_ERR_INVALID_PARAMETER);
}

TEST_F(DataStreamTest, Announce_WhileAcquiring_WorksAndCanBeQueuedAndRevoked)
{
    Prepare(1);
    Start();
    const BUFFER_HANDLE later = Announce(1)[0];
    Queue(later);
    EXPECT_TRUE(Send(1));
    EXPECT_TRUE(Send(2));
    Next();
    EXPECT_EQ(Next(), later);
    EXPECT_EQ(DSRevokeBuffer(Stream(), later, nullptr, nullptr), GC_ERR_SUCCESS);
}

// ---- queueing

TEST_F(DataStreamTest, Queue_QueuedBuffer_IsInUse)
{
    const BUFFER_HANDLE buffer = Prepare(1)[0];
    EXPECT_EQ(DSQueueBuffer(Stream(), buffer), GC_ERR_RESOURCE_IN_USE) << "in the input pool";
    Start();
    EXPECT_EQ(DSQueueBuffer(Stream(), buffer), GC_ERR_RESOURCE_IN_USE) << "with the receiver";
    Send();
    EXPECT_EQ(DSQueueBuffer(Stream(), buffer), GC_ERR_RESOURCE_IN_USE) << "awaiting delivery";
    Next();
    EXPECT_EQ(DSQueueBuffer(Stream(), buffer), GC_ERR_SUCCESS);
}

TEST_F(DataStreamTest, Revoke_QueuedBuffer_IsBusy)
{
    const BUFFER_HANDLE buffer = Prepare(1)[0];
    EXPECT_EQ(DSRevokeBuffer(Stream(), buffer, nullptr, nullptr), GC_ERR_BUSY);
    Start();
    EXPECT_EQ(DSRevokeBuffer(Stream(), buffer, nullptr, nullptr), GC_ERR_BUSY);
    Send();
    EXPECT_EQ(DSRevokeBuffer(Stream(), buffer, nullptr, nullptr), GC_ERR_BUSY);
    Next();
    EXPECT_EQ(DSRevokeBuffer(Stream(), buffer, nullptr, nullptr), GC_ERR_SUCCESS);
}

TEST_F(DataStreamTest, Queue_ReceiverWaitsForMemory_GetsItAtOnce)
{
    const BufferHandles buffers = Announce(2);
    Start();
    EXPECT_FALSE(Send()) << "started before anything was queued";
    Queue(buffers[0]);
    EXPECT_EQ(Receiver().wakes, 1U);
    EXPECT_TRUE(Send());
    Queue(buffers[1]);
    EXPECT_EQ(Receiver().wakes, 2U);
}

TEST_F(DataStreamTest, Queue_ReceiverHasEnough_IsNotDisturbed)
{
    const BufferHandles buffers = Announce(4);
    for (size_t i = 0; i < 3; ++i) {
        Queue(buffers[i]);
    }
    Start();
    Queue(buffers[3]);
    EXPECT_EQ(Receiver().wakes, 0U);
}

TEST_F(DataStreamTest, Flush_InputToOutput_DeliversThemWithoutAnImage)
{
    const BufferHandles buffers = Prepare(3);
    Flush(ACQ_QUEUE_INPUT_TO_OUTPUT);
    EXPECT_EQ(Queued(), 0U);
    EXPECT_EQ(Awaiting(), 3U);
    EXPECT_TRUE(IsQueued(buffers[0]));
    EXPECT_EQ(Next(), buffers[0]);
    EXPECT_FALSE(IsQueued(buffers[0]));
    EXPECT_FALSE(Info<bool8_t>(buffers[0], BUFFER_INFO_NEW_DATA));
    EXPECT_EQ(Info<uint64_t>(STREAM_INFO_NUM_DELIVERED), 0U);
}

TEST_F(DataStreamTest, Flush_OutputDiscard_GivesThemToTheConsumer)
{
    const BufferHandles buffers = Prepare(3);
    Start();
    Send(1);
    Send(2);
    Stop();
    Flush(ACQ_QUEUE_OUTPUT_DISCARD);
    EXPECT_EQ(Awaiting(), 0U);
    EXPECT_EQ(Queued(), 1U);
    EXPECT_FALSE(IsQueued(buffers[0]));
    EXPECT_TRUE(IsQueued(buffers[2]));
    EXPECT_EQ(Next(), nullptr);
    EXPECT_EQ(Lost(), 0U) << "the consumer did not want them";
}

TEST_F(DataStreamTest, Flush_AllToInput_QueuesEverything)
{
    const BufferHandles buffers = Prepare(3);
    Announce(1);
    Start();
    Send(1);
    Send(2);
    Stop();
    Next();
    Flush(ACQ_QUEUE_ALL_TO_INPUT);
    EXPECT_EQ(Queued(), 4U);
    EXPECT_EQ(Awaiting(), 0U);
    for (BUFFER_HANDLE buffer : buffers) {
        EXPECT_TRUE(IsQueued(buffer));
    }
}

TEST_F(DataStreamTest, Flush_UnqueuedToInput_LeavesTheOutputAlone)
{
    Prepare(2);
    Announce(2);
    Start();
    Send(1);
    Stop();
    Flush(ACQ_QUEUE_UNQUEUED_TO_INPUT);
    EXPECT_EQ(Queued(), 3U);
    EXPECT_EQ(Awaiting(), 1U);
}

TEST_F(DataStreamTest, Flush_AllDiscard_LeavesNothingQueued)
{
    const BufferHandles buffers = Prepare(3);
    Start();
    Send(1);
    Stop();
    Flush(ACQ_QUEUE_ALL_DISCARD);
    EXPECT_EQ(Queued(), 0U);
    EXPECT_EQ(Awaiting(), 0U);
    for (BUFFER_HANDLE buffer : buffers) {
        EXPECT_FALSE(IsQueued(buffer));
        EXPECT_EQ(DSRevokeBuffer(Stream(), buffer, nullptr, nullptr), GC_ERR_SUCCESS);
    }
}

TEST_F(DataStreamTest, Flush_WhileAcquiring_LeavesWhatTheReceiverHas)
{
    const BufferHandles buffers = Prepare(3);
    Start();
    Flush(ACQ_QUEUE_ALL_DISCARD);
    EXPECT_EQ(Queued(), 2U);
    EXPECT_TRUE(IsQueued(buffers[0]));
    EXPECT_FALSE(IsQueued(buffers[2]));
    EXPECT_TRUE(Send(1));
    EXPECT_TRUE(Send(2));
    EXPECT_FALSE(Send(3));
    Flush(ACQ_QUEUE_ALL_TO_INPUT);
    EXPECT_TRUE(Send(4)) << "the receiver was told";
}

TEST_F(DataStreamTest, Flush_UnknownOperation_IsRefused)
{
    for (const ACQ_QUEUE_TYPE operation : {-1, 5, 1000}) {
        EXPECT_EQ(DSFlushQueue(Stream(), operation), GC_ERR_INVALID_PARAMETER);
    }
}

// ---- acquisition

TEST_F(DataStreamTest, Start_NoBuffer_IsInvalidBuffer)
{
    EXPECT_EQ(DSStartAcquisition(Stream(), 0, GENTL_INFINITE), GC_ERR_INVALID_BUFFER);
    EXPECT_FALSE(IsGrabbing());
}

TEST_F(DataStreamTest, Start_TwiceNoImagesOrUnknownFlags_AreRefused)
{
    Prepare(2);
    EXPECT_EQ(DSStartAcquisition(Stream(), 0, 0), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(DSStartAcquisition(Stream(), 1, 1), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(DSStartAcquisition(Stream(), 1000, 1), GC_ERR_INVALID_PARAMETER);
    EXPECT_FALSE(IsGrabbing());
    Start();
    EXPECT_TRUE(IsGrabbing());
    EXPECT_EQ(DSStartAcquisition(Stream(), 0, GENTL_INFINITE), GC_ERR_RESOURCE_IN_USE);
    EXPECT_EQ(Receiver().starts, 1U);
}

TEST_F(DataStreamTest, Start_CameraRefuses_TellsWhyAndCanBeRepeated)
{
    Prepare(1);
    camera.startFailure = Error(ErrorKind::Io, "LIBUSB_ERROR_IO");
    EXPECT_EQ(DSStartAcquisition(Stream(), 0, GENTL_INFINITE), GC_ERR_IO);
    EXPECT_FALSE(IsGrabbing());
    camera.startFailure.reset();
    Start();
}

TEST_F(DataStreamTest, Start_CameraOpenForReading_IsDenied)
{
    DEV_HANDLE device = nullptr;
    DS_HANDLE stream = nullptr;
    BUFFER_HANDLE buffer = nullptr;
    ASSERT_EQ(IFOpenDevice(Interface(), "CAM1", DEVICE_ACCESS_READONLY, &device), GC_ERR_SUCCESS);
    ASSERT_EQ(DevOpenDataStream(device, "Stream0", &stream), GC_ERR_SUCCESS);
    ASSERT_EQ(DSAllocAndAnnounceBuffer(stream, 64, nullptr, &buffer), GC_ERR_SUCCESS);
    EXPECT_EQ(DSStartAcquisition(stream, 0, GENTL_INFINITE), GC_ERR_ACCESS_DENIED);
    EXPECT_EQ(Receiver().starts, 0U);
}

TEST_F(DataStreamTest, Stop_NothingRuns_Succeeds)
{
    Stop(ACQ_STOP_FLAGS_DEFAULT);
    Stop(ACQ_STOP_FLAGS_KILL);
    EXPECT_EQ(DSStopAcquisition(Stream(), 2), GC_ERR_INVALID_PARAMETER);
}

TEST_F(DataStreamTest, Stop_Flags_ReachTheReceiver)
{
    Prepare(1);
    Start();
    Stop(ACQ_STOP_FLAGS_DEFAULT);
    EXPECT_EQ(Receiver().stops, 1U);
    EXPECT_EQ(Receiver().kills, 0U);
    Start();
    Stop(ACQ_STOP_FLAGS_KILL);
    EXPECT_EQ(Receiver().kills, 1U);
}

TEST_F(DataStreamTest, Stop_UnfinishedBuffers_GoBackInFrontInTheirOrder)
{
    const BufferHandles buffers = Prepare(4);
    Start();
    EXPECT_EQ(Receiver().Held(), 2U);
    Stop();
    EXPECT_EQ(Queued(), 4U);
    Start();
    for (uint64_t i = 0; i < 4; ++i) {
        EXPECT_TRUE(Send(i));
        EXPECT_EQ(Next(), buffers[i]);
    }
}

TEST_F(DataStreamTest, Restart_ManyTimes_LosesNoBuffer)
{
    Prepare(3);
    for (uint64_t i = 0; i < 50; ++i) {
        Start();
        EXPECT_TRUE(Send(i));
        const BUFFER_HANDLE buffer = Next();
        EXPECT_EQ(FrameId(buffer), i);
        Stop(i % 2 == 0 ? ACQ_STOP_FLAGS_DEFAULT : ACQ_STOP_FLAGS_KILL);
        Queue(buffer);
        EXPECT_EQ(Queued(), 3U);
    }
}

TEST_F(DataStreamTest, NumberOfImages_Reached_EndsByItself)
{
    Prepare(4);
    Start(2);
    EXPECT_TRUE(Send(1));
    EXPECT_TRUE(IsGrabbing());
    EXPECT_TRUE(Send(2));
    EXPECT_FALSE(IsGrabbing());
    EXPECT_FALSE(Send(3));
    EXPECT_EQ(Queued(), 2U);
    EXPECT_EQ(Awaiting(), 2U);
    Start(1);
    EXPECT_TRUE(IsGrabbing());
}

TEST_F(DataStreamTest, CameraLeaves_FilledBuffersStayAndTheAcquisitionEnds)
{
    const BufferHandles buffers = Prepare(3);
    Start();
    Send(1);
    camera.Leave();
    EXPECT_FALSE(IsGrabbing());
    EXPECT_EQ(Next(), buffers[0]);
    EXPECT_EQ(Queued(), 2U);
    Stop();
    Flush(ACQ_QUEUE_ALL_DISCARD);
    for (BUFFER_HANDLE buffer : buffers) {
        EXPECT_EQ(DSRevokeBuffer(Stream(), buffer, nullptr, nullptr), GC_ERR_SUCCESS);
    }
    EXPECT_EQ(StreamInfo(STREAM_INFO_PAYLOAD_SIZE).code, GC_ERR_IO);
    EXPECT_EQ(DSClose(Stream()), GC_ERR_SUCCESS);
}

TEST_F(DataStreamTest, Close_Acquiring_StopsAtOnceAndRevokes)
{
    Prepare(3);
    Start();
    EXPECT_EQ(DSClose(Stream()), GC_ERR_SUCCESS);
    EXPECT_EQ(camera.receiver, nullptr);
    DS_HANDLE again = nullptr;
    EXPECT_EQ(DevOpenDataStream(Device(), "Stream0", &again), GC_ERR_SUCCESS);
    BUFFER_HANDLE buffer = nullptr;
    EXPECT_EQ(DSGetBufferID(again, 0, &buffer), GC_ERR_INVALID_INDEX);
}

// ---- handling modes

TEST_F(DataStreamTest, OldestFirst_NoBufferQueued_TheCameraWaitsAndNothingIsLost)
{
    Prepare(3);
    Start();
    EXPECT_TRUE(Send(1));
    EXPECT_TRUE(Send(2));
    EXPECT_TRUE(Send(3));
    EXPECT_FALSE(Send(4));
    EXPECT_EQ(Lost(), 0U);
    for (uint64_t id = 1; id <= 3; ++id) {
        EXPECT_EQ(FrameId(Next()), id);
    }
}

TEST_F(DataStreamTest, Overwrite_NoBufferQueued_OldestUndeliveredMakesRoom)
{
    SetMode(kOverwrite);
    Prepare(3);
    Start();
    for (uint64_t id = 1; id <= 10; ++id) {
        EXPECT_TRUE(Send(id));
    }
    EXPECT_EQ(Awaiting(), 2U);
    EXPECT_EQ(Lost(), 8U);
    EXPECT_EQ(FrameId(Next()), 9U);
    EXPECT_EQ(FrameId(Next()), 10U);
}

TEST_F(DataStreamTest, Overwrite_AllWithTheConsumer_ImagesAreLostUntilOneIsQueued)
{
    SetMode(kOverwrite);
    const BufferHandles buffers = Announce(2);
    Start();
    EXPECT_EQ(Receiver().Held(), 1U) << "spare memory, for one image";
    EXPECT_EQ(Queued(), 0U);
    EXPECT_TRUE(Send(1));
    EXPECT_TRUE(Send(2));
    EXPECT_EQ(Lost(), 2U);
    Queue(buffers[0]);
    Queue(buffers[1]);
    EXPECT_EQ(Queued(), 2U);
    EXPECT_TRUE(Send(3)) << "still the spare memory";
    EXPECT_TRUE(Send(4));
    EXPECT_EQ(Lost(), 3U);
    EXPECT_EQ(FrameId(Next()), 4U);
    Stop();
    EXPECT_EQ(Queued(), 1U);
}

TEST_F(DataStreamTest, Overwrite_SpareMemoryGivenBack_IsNoBuffer)
{
    SetMode(kOverwrite);
    Announce(1);
    Start();
    Stop();
    EXPECT_EQ(Queued(), 0U);
    EXPECT_EQ(Lost(), 0U);
}

TEST_F(DataStreamTest, NewestOnly_OneUndelivered_TheOthersReturnToTheInputPool)
{
    SetMode(kNewestOnly);
    Prepare(4);
    Start();
    for (uint64_t id = 1; id <= 5; ++id) {
        EXPECT_TRUE(Send(id));
        EXPECT_EQ(Awaiting(), 1U);
        EXPECT_EQ(Queued(), 3U);
    }
    EXPECT_EQ(Lost(), 4U);
    EXPECT_EQ(FrameId(Next()), 5U);
    EXPECT_EQ(Next(), nullptr);
}

TEST_F(DataStreamTest, NewestOnly_OneBufferNobodyWaits_NewestMakesRoomByItself)
{
    SetMode(kNewestOnly);
    Prepare(1);
    Start();
    EXPECT_TRUE(Send(1));
    EXPECT_TRUE(Send(2));
    EXPECT_EQ(Lost(), 2U);
    EXPECT_EQ(Queued(), 1U);
}

// Or somebody who waits would be woken for nothing, again and again.
TEST_F(DataStreamTest, Overwrite_SomebodyWaits_TheImageIsKeptForHim)
{
    SetMode(kOverwrite);
    Prepare(1);
    NewBuffer();
    Start();
    BUFFER_HANDLE taken = nullptr;
    std::thread waiter([&] { taken = Next(10000); });
    uint64_t sent = 0;
    while (Info<uint64_t>(STREAM_INFO_NUM_DELIVERED) == 0 && sent < 1000000) {
        Send(++sent);
        std::this_thread::yield();
    }
    waiter.join();
    EXPECT_NE(taken, nullptr);
}

TEST_F(DataStreamTest, Overwrite_FlushedBuffersAreNoImages_TheyDoNotCountAsLost)
{
    SetMode(kOverwrite);
    Prepare(2);
    Start();
    Announce(1);
    Flush(ACQ_QUEUE_UNQUEUED_TO_INPUT);
    Flush(ACQ_QUEUE_INPUT_TO_OUTPUT);
    Send(1);
    Send(2);
    EXPECT_EQ(Lost(), 0U) << "the flushed one made room";
}

TEST_F(DataStreamTest, Mode_WhileAcquiring_CannotBeWritten)
{
    Prepare(1);
    const uint64_t address =
        ModuleDocument(Stream()).RegisterOf("StreamBufferHandlingMode").address;
    Start();
    uint64_t mode = kNewestOnly;
    size_t size = sizeof(mode);
    EXPECT_EQ(GCWritePort(Stream(), address, &mode, &size), GC_ERR_ACCESS_DENIED);
    EXPECT_NE(TheLastError().text.find("StreamBufferHandlingMode"), std::string::npos);
    Stop();
    SetMode(kNewestOnly);
}

// ---- counts

TEST_F(DataStreamTest, Info_EveryCommand_HasTypeAndValueOfTheStandard)
{
    camera.payloadSize = 12345;
    Prepare(4);
    Start();
    Send(1);
    Send(2);
    Next();
    Receiver().Lose(3);
    struct Row
    {
        STREAM_INFO_CMD command;
        INFO_DATATYPE type;
        uint64_t value;
    };
    const Row rows[] = {{STREAM_INFO_NUM_DELIVERED, INFO_DATATYPE_UINT64, 1},
                        {STREAM_INFO_NUM_UNDERRUN, INFO_DATATYPE_UINT64, 3},
                        {STREAM_INFO_NUM_ANNOUNCED, INFO_DATATYPE_SIZET, 4},
                        {STREAM_INFO_NUM_QUEUED, INFO_DATATYPE_SIZET, 2},
                        {STREAM_INFO_NUM_AWAIT_DELIVERY, INFO_DATATYPE_SIZET, 1},
                        {STREAM_INFO_NUM_STARTED, INFO_DATATYPE_UINT64, 2},
                        {STREAM_INFO_PAYLOAD_SIZE, INFO_DATATYPE_SIZET, 12345},
                        {STREAM_INFO_BUF_ANNOUNCE_MIN, INFO_DATATYPE_SIZET, 1},
                        {STREAM_INFO_BUF_ALIGNMENT, INFO_DATATYPE_SIZET, 1}};
    for (const Row& row : rows) {
        const Answer answer = StreamInfo(row.command);
        EXPECT_EQ(answer.type, row.type) << row.command;
        EXPECT_EQ(answer.As<uint64_t>(), row.value) << row.command;
    }
    EXPECT_EQ(StreamInfo(STREAM_INFO_ID).Text(), "Stream0");
    EXPECT_EQ(StreamInfo(STREAM_INFO_TLTYPE).Text(), "U3V");
    EXPECT_EQ(StreamInfo(STREAM_INFO_IS_GRABBING).type, INFO_DATATYPE_BOOL8);
    EXPECT_TRUE(Info<bool8_t>(STREAM_INFO_DEFINES_PAYLOADSIZE));
    for (const STREAM_INFO_CMD command : {STREAM_INFO_NUM_CHUNKS_MAX, STREAM_INFO_FLOW_TABLE,
                                          STREAM_INFO_GENDC_PREFETCH_DESCRIPTOR}) {
        EXPECT_EQ(StreamInfo(command).code, GC_ERR_NOT_AVAILABLE);
    }
    EXPECT_EQ(StreamInfo(16).code, GC_ERR_NOT_IMPLEMENTED);
}

TEST_F(DataStreamTest, Counts_AStart_ResetsThem)
{
    Prepare(2);
    Start();
    Send(1);
    Next();
    Receiver().Lose(3);
    Stop();
    EXPECT_EQ(Lost(), 3U);
    Start();
    EXPECT_EQ(Lost(), 0U);
    EXPECT_EQ(Info<uint64_t>(STREAM_INFO_NUM_DELIVERED), 0U);
    EXPECT_EQ(Info<uint64_t>(STREAM_INFO_NUM_STARTED), 0U);
}

TEST_F(DataStreamTest, PayloadSize_IsReadAtTheCall)
{
    camera.payloadSize = 100;
    EXPECT_EQ(Info<size_t>(STREAM_INFO_PAYLOAD_SIZE), 100U);
    camera.payloadSize = 200;
    EXPECT_EQ(Info<size_t>(STREAM_INFO_PAYLOAD_SIZE), 200U);
}

// ---- what 1.6 adds

TEST_F(DataStreamTest, Flows_ThereAreNone)
{
    uint32_t count = 7;
    EXPECT_EQ(DSGetNumFlows(Stream(), &count), GC_ERR_SUCCESS);
    EXPECT_EQ(count, 0U);
    EXPECT_EQ(DSGetNumFlows(Stream(), nullptr), GC_ERR_INVALID_PARAMETER);
    size_t size = 0;
    EXPECT_EQ(DSGetFlowInfo(Stream(), 0, FLOW_INFO_SIZE, nullptr, nullptr, &size),
              GC_ERR_INVALID_INDEX);
}

TEST_F(DataStreamTest, CompositeBuffers_AreNotImplemented)
{
    void* segments[1] = {};
    size_t sizes[1] = {};
    BUFFER_HANDLE buffer = nullptr;
    EXPECT_EQ(DSAnnounceCompositeBuffer(Stream(), 1, segments, sizes, nullptr, &buffer),
              GC_ERR_NOT_IMPLEMENTED);
    const BUFFER_HANDLE plain = Announce(1)[0];
    uint32_t count = 7;
    EXPECT_EQ(DSGetNumBufferSegments(Stream(), plain, &count), GC_ERR_SUCCESS);
    EXPECT_EQ(count, 0U);
    size_t size = 0;
    EXPECT_EQ(
        DSGetBufferSegmentInfo(Stream(), plain, 0, SEGMENT_INFO_BASE, nullptr, nullptr, &size),
        GC_ERR_INVALID_INDEX);
}

} // namespace
} // namespace standard_tl
