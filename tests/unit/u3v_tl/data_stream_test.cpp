// The data stream without its thread: identity, life cycle, buffers, queues, information and port.

#include "data_stream_fixture.h"
#include "zr_gentl_util.h"

#include <cstring>

namespace {

using Handles = std::vector<void*>;

// ---- construction, open, close

TEST_F(StreamTest, Construction_PortIdentity_IsTheProducersOwn)
{
    EXPECT_EQ(PortText(*m_stream, PORT_INFO_ID), "ZrGenTLU3V");
    EXPECT_EQ(PortText(*m_stream, PORT_INFO_VENDOR), "ZRK-ORVANE GmbH");
    EXPECT_EQ(PortText(*m_stream, PORT_INFO_MODEL), "U3VTL");
    EXPECT_EQ(PortText(*m_stream, PORT_INFO_TLTYPE), "U3V");
    EXPECT_EQ(PortText(*m_stream, PORT_INFO_MODULE), "TLDataStream");
    EXPECT_EQ(PortText(*m_stream, PORT_INFO_VERSION), ZR_EXACT_VERSION);
    EXPECT_EQ(PortText(*m_stream, PORT_INFO_PORTNAME), "StreamPort");
    EXPECT_EQ(m_stream->GetId(), "0");
    EXPECT_TRUE(m_stream->IsPortImplemented());
    const std::string length = UpperHex(ZrGenTLUtil::CreateXMLDataStream().size());
    EXPECT_EQ(UrlsOf(*m_stream), Strings{"local:ZrGenTLU3V_DS.xml;10000;" + length});
}

TEST_F(StreamTest, Construction_Index_IsTheIdInDecimal)
{
    ZrU3VDataStream stream(&m_remote, 4000000000U, nullptr);
    EXPECT_EQ(stream.GetId(), "4000000000");
}

TEST_F(StreamTest, IsEventImplemented_OnlyTheNewBufferEvent)
{
    for (const int id : {-1, 0, 1, 2, 3, 4, 5, 4000, 5000}) {
        EXPECT_EQ(m_stream->IsEventImplemented(id), id == 1) << id;
    }
}

TEST_F(StreamTest, Open_OpensTheCamerasStreamWith1000)
{
    EXPECT_EQ(m_stream->Open(), GC_ERR_SUCCESS);
    EXPECT_EQ(m_fake.Journal(), Strings{"U3V_OpenStream 1000"});
}

TEST_F(OpenStreamTest, Open_Again_IsInUse)
{
    const TraceCapture trace;
    EXPECT_EQ(m_stream->Open(), GC_ERR_RESOURCE_IN_USE);
    EXPECT_EQ(trace.Lines(), Lines{ErrorLine("Open GC_ERR_RESOURCE_IN_USE")});
}

TEST_F(StreamTest, Open_Fails_IsTracedAndStaysClosed)
{
    m_fake.Script("U3V_OpenStream", {kRefused});
    const TraceCapture trace;
    EXPECT_EQ(m_stream->Open(), GC_ERR_ERROR);
    EXPECT_EQ(trace.Errors(),
              (Strings{"OpenStream Failed! U3V_OpenStream:32774", "Open OpenStream:-1001"}));
    EXPECT_EQ(m_stream->Close(), GC_ERR_NOT_INITIALIZED);
    EXPECT_EQ(m_stream->Open(), GC_ERR_SUCCESS);
}

TEST_F(StreamTest, Close_NotOpen_IsNotInitialized)
{
    const TraceCapture trace;
    EXPECT_EQ(m_stream->Close(), GC_ERR_NOT_INITIALIZED);
    EXPECT_EQ(trace.Lines(), Lines{ErrorLine("Close GC_ERR_NOT_INITIALIZED")});
}

TEST_F(OpenStreamTest, Close_Idle_ClosesTheStreamAndKeepsTheBuffers)
{
    Announce(0);
    EXPECT_EQ(m_stream->Close(), GC_ERR_SUCCESS);
    EXPECT_EQ(m_fake.Journal(), Strings{"U3V_CloseStream"}) << "nothing runs, nothing is stopped";
    EXPECT_EQ(Info<size_t>(STREAM_INFO_NUM_ANNOUNCED).value, 1U);
    EXPECT_EQ(m_stream->Close(), GC_ERR_NOT_INITIALIZED);
    EXPECT_EQ(m_stream->Open(), GC_ERR_SUCCESS);
}

TEST_F(OpenStreamTest, Close_CameraFails_IsTracedAndClosedAllTheSame)
{
    m_fake.Script("U3V_CloseStream", {kRefused});
    const TraceCapture trace;
    EXPECT_EQ(m_stream->Close(), GC_ERR_SUCCESS);
    EXPECT_EQ(trace.Errors(), (Strings{"CloseStream Failed! U3V_CloseStream:32774",
                                       "Close m_pRemoteDevice->CloseStream:-1001"}));
    EXPECT_EQ(m_stream->Close(), GC_ERR_NOT_INITIALIZED);
}

TEST_F(OpenStreamTest, Destructor_OpenStream_ClosesItAndFreesItsBuffers)
{
    void* handle = nullptr;
    ASSERT_EQ(m_stream->AllocAndAnnounceBuffer(100, nullptr, &handle), GC_ERR_SUCCESS);
    ASSERT_EQ(m_stream->QueueBuffer(handle), GC_ERR_SUCCESS);
    m_stream.reset();
    EXPECT_EQ(m_fake.Journal(), Strings{"U3V_CloseStream"});
}

// ---- announce

TEST_F(StreamTest, AnnounceBuffer_NullArguments_AreRefused)
{
    const TraceCapture trace;
    void* handle = nullptr;
    EXPECT_EQ(m_stream->AnnounceBuffer(nullptr, 4, nullptr, &handle), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(m_stream->AnnounceBuffer(&handle, 4, nullptr, nullptr), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(trace.Errors(), (Strings{"AnnounceBuffer GC_ERR_INVALID_PARAMETER",
                                       "AnnounceBuffer GC_ERR_INVALID_PARAMETER"}));
}

TEST_F(StreamTest, AnnounceBuffer_Closed_DescribesTheConsumersMemory)
{
    void* const handle = Announce(0);
    EXPECT_EQ(BufferValue<void*>(handle, BUFFER_INFO_BASE), m_memory[0].data());
    EXPECT_EQ(BufferValue<size_t>(handle, BUFFER_INFO_SIZE), kBufferSize);
    EXPECT_EQ(BufferValue<void*>(handle, BUFFER_INFO_USER_PTR), &m_memory[0]);
    EXPECT_FALSE(IsQueued(handle));
}

TEST_F(StreamTest, AnnounceBuffer_SameMemoryTwice_IsInUse)
{
    Announce(0);
    const TraceCapture trace;
    void* handle = nullptr;
    EXPECT_EQ(m_stream->AnnounceBuffer(m_memory[0].data(), 4, nullptr, &handle),
              GC_ERR_RESOURCE_IN_USE);
    EXPECT_EQ(handle, nullptr);
    EXPECT_EQ(trace.Lines(), Lines{ErrorLine("AnnounceBuffer GC_ERR_RESOURCE_IN_USE")});
    EXPECT_EQ(Info<size_t>(STREAM_INFO_NUM_ANNOUNCED).value, 1U);
}

TEST_F(StreamTest, AllocAndAnnounceBuffer_HandleVariableInUse_IsRefused)
{
    const TraceCapture trace;
    void* handle = this;
    EXPECT_EQ(m_stream->AllocAndAnnounceBuffer(4, nullptr, &handle), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(handle, this);
    EXPECT_EQ(m_stream->AllocAndAnnounceBuffer(4, nullptr, nullptr), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(trace.Errors(), (Strings{"AllocAndAnnounceBuffer GC_ERR_INVALID_PARAMETER",
                                       "AllocAndAnnounceBuffer GC_ERR_INVALID_PARAMETER"}));
}

TEST_F(StreamTest, AllocAndAnnounceBuffer_AnySizeZeroIncluded_OwnsItsMemory)
{
    for (const size_t size : {size_t{0}, size_t{1}, size_t{100}}) {
        void* handle = nullptr;
        ASSERT_EQ(m_stream->AllocAndAnnounceBuffer(size, this, &handle), GC_ERR_SUCCESS);
        EXPECT_EQ(BufferValue<size_t>(handle, BUFFER_INFO_SIZE), size);
        EXPECT_EQ(BufferValue<void*>(handle, BUFFER_INFO_USER_PTR), this);
        memset(BufferValue<void*>(handle, BUFFER_INFO_BASE), 1, size);
    }
}

// ---- revoke

TEST_F(StreamTest, RevokeBuffer_Unknown_IsAnInvalidHandle)
{
    const TraceCapture trace;
    EXPECT_EQ(m_stream->RevokeBuffer(this, nullptr, nullptr), GC_ERR_INVALID_HANDLE);
    EXPECT_EQ(m_stream->RevokeBuffer(nullptr, nullptr, nullptr), GC_ERR_INVALID_HANDLE);
    EXPECT_EQ(trace.Errors(), (Strings{"RevokeBuffer GC_ERR_INVALID_HANDLE",
                                       "RevokeBuffer GC_ERR_INVALID_HANDLE"}));
}

TEST_F(StreamTest, RevokeBuffer_Queued_IsBusy)
{
    void* const handle = AnnounceAndQueue(0);
    const TraceCapture trace;
    EXPECT_EQ(m_stream->RevokeBuffer(handle, nullptr, nullptr), GC_ERR_BUSY);
    EXPECT_EQ(trace.Lines(), Lines{ErrorLine("RevokeBuffer GC_ERR_BUSY")});
    EXPECT_EQ(Info<size_t>(STREAM_INFO_NUM_ANNOUNCED).value, 1U);
}

TEST_F(StreamTest, RevokeBuffer_Idle_HandsBackBaseAndUserPointer)
{
    void* const handle = Announce(0);
    void* base = nullptr;
    void* user = nullptr;
    EXPECT_EQ(m_stream->RevokeBuffer(handle, &base, &user), GC_ERR_SUCCESS);
    EXPECT_EQ(base, m_memory[0].data());
    EXPECT_EQ(user, &m_memory[0]);
    EXPECT_EQ(m_stream->RevokeBuffer(handle, &base, &user), GC_ERR_INVALID_HANDLE);
    EXPECT_NE(Announce(0), nullptr) << "the memory can be announced again";
}

TEST_F(StreamTest, RevokeBuffer_NullOutputs_Succeeds)
{
    EXPECT_EQ(m_stream->RevokeBuffer(Announce(0), nullptr, nullptr), GC_ERR_SUCCESS);
    EXPECT_EQ(Info<size_t>(STREAM_INFO_NUM_ANNOUNCED).value, 0U);
}

TEST_F(OpenStreamTest, RevokeBuffer_Undelivered_LeavesNoEntryInTheEvent)
{
    ZrGenTLEvent* const event = RegisterEvent();
    void* const first = AnnounceAndQueue(0);
    void* const second = AnnounceAndQueue(1);
    m_fake.PushImage(MakeImage(1));
    m_fake.PushImage(MakeImage(2));
    ASSERT_EQ(m_stream->AcquireImage(), GC_ERR_SUCCESS);
    ASSERT_EQ(m_stream->AcquireImage(), GC_ERR_SUCCESS);
    EXPECT_EQ(m_stream->RevokeBuffer(first, nullptr, nullptr), GC_ERR_SUCCESS);
    EXPECT_EQ(Awaiting(), 1U);
    EXPECT_EQ(Take(event), second);
    EXPECT_EQ(m_stream->RevokeBuffer(second, nullptr, nullptr), GC_ERR_SUCCESS);
    EVENT_NEW_BUFFER_DATA data{};
    size_t size = sizeof(data);
    EXPECT_EQ(event->GetData(&data, &size, 0), GC_ERR_TIMEOUT) << "no entry, no signal";
}

// ---- queue

TEST_F(StreamTest, QueueBuffer_Unknown_IsAnInvalidHandle)
{
    const TraceCapture trace;
    EXPECT_EQ(m_stream->QueueBuffer(this), GC_ERR_INVALID_HANDLE);
    EXPECT_EQ(m_stream->QueueBuffer(nullptr), GC_ERR_INVALID_HANDLE);
    EXPECT_EQ(trace.Errors(),
              (Strings{"QueueBuffer GC_ERR_INVALID_HANDLE", "QueueBuffer GC_ERR_INVALID_HANDLE"}));
}

TEST_F(StreamTest, QueueBuffer_Twice_IsInUse)
{
    void* const handle = AnnounceAndQueue(0);
    EXPECT_TRUE(IsQueued(handle));
    const TraceCapture trace;
    EXPECT_EQ(m_stream->QueueBuffer(handle), GC_ERR_RESOURCE_IN_USE);
    EXPECT_EQ(trace.Lines(), Lines{ErrorLine("QueueBuffer GC_ERR_RESOURCE_IN_USE")});
    EXPECT_EQ(Queued(), 1U);
}

TEST_F(OpenStreamTest, QueueBuffer_Delivered_IsInUseUntilItIsTaken)
{
    ZrGenTLEvent* const event = RegisterEvent();
    void* const handle = AnnounceAndQueue(0);
    m_fake.PushImage(MakeImage(1));
    ASSERT_EQ(m_stream->AcquireImage(), GC_ERR_SUCCESS);
    EXPECT_TRUE(IsNew(handle));
    EXPECT_EQ(m_stream->QueueBuffer(handle), GC_ERR_RESOURCE_IN_USE);
    EXPECT_EQ(Take(event), handle);
    EXPECT_EQ(m_stream->QueueBuffer(handle), GC_ERR_SUCCESS);
    EXPECT_FALSE(IsNew(handle)) << "queueing clears it";
}

// ---- flush

class FlushTest : public OpenStreamTest
{
protected:
    void SetUp() override
    {
        OpenStreamTest::SetUp();
        m_event = RegisterEvent();
        // 0 is delivered, 1 and 2 are queued, 3 is announced only.
        for (size_t i = 0; i < 3; ++i) {
            m_handles.push_back(AnnounceAndQueue(i));
        }
        m_handles.push_back(Announce(3));
        m_fake.PushImage(MakeImage(1));
        ASSERT_EQ(m_stream->AcquireImage(), GC_ERR_SUCCESS);
    }
    // The order in which the input list is filled, by delivering all of it.
    Handles DrainInput()
    {
        Handles order;
        while (Queued() != 0) {
            m_fake.PushImage(MakeImage(9));
            EXPECT_EQ(m_stream->AcquireImage(), GC_ERR_SUCCESS);
        }
        while (void* const handle = Take(m_event)) {
            order.push_back(handle);
        }
        return order;
    }

    ZrGenTLEvent* m_event = nullptr;
    Handles m_handles;
};

TEST_F(FlushTest, FlushQueue_InputToOutput_DeliversUncountedWithFlagsAsTheyAre)
{
    EXPECT_EQ(m_stream->FlushQueue(0), GC_ERR_SUCCESS);
    EXPECT_EQ(Queued(), 0U);
    EXPECT_EQ(Awaiting(), 3U);
    EXPECT_EQ(Delivered(), 1U);
    EXPECT_TRUE(IsQueued(m_handles[1]));
    EXPECT_FALSE(IsNew(m_handles[1]));
    EXPECT_EQ(Take(m_event), m_handles[0]);
    EXPECT_EQ(Take(m_event), m_handles[1]);
    EXPECT_EQ(Take(m_event), m_handles[2]);
    EXPECT_EQ(Take(m_event), nullptr);
}

TEST_F(FlushTest, FlushQueue_OutputDiscard_EmptiesTheEventAndFreesItsBuffers)
{
    EXPECT_EQ(m_stream->FlushQueue(1), GC_ERR_SUCCESS);
    EXPECT_EQ(Awaiting(), 0U);
    EXPECT_FALSE(IsQueued(m_handles[0]));
    EXPECT_TRUE(IsQueued(m_handles[1]));
    EXPECT_EQ(Queued(), 2U);
    EXPECT_EQ(m_stream->QueueBuffer(m_handles[0]), GC_ERR_SUCCESS);
}

TEST_F(FlushTest, FlushQueue_AllToInput_AppendsFlushedAndUnqueuedWithoutTheFlag)
{
    EXPECT_EQ(m_stream->FlushQueue(2), GC_ERR_SUCCESS);
    EXPECT_EQ(Awaiting(), 0U);
    EXPECT_EQ(Queued(), 4U);
    EXPECT_FALSE(IsQueued(m_handles[0]));
    EXPECT_FALSE(IsQueued(m_handles[3]));
    EXPECT_EQ(DrainInput(), (Handles{m_handles[1], m_handles[2], m_handles[0], m_handles[3]}));
}

TEST_F(FlushTest, FlushQueue_UnqueuedToInput_LeavesTheEventAlone)
{
    EXPECT_EQ(m_stream->FlushQueue(3), GC_ERR_SUCCESS);
    EXPECT_EQ(Awaiting(), 1U);
    EXPECT_EQ(Queued(), 3U);
    EXPECT_FALSE(IsQueued(m_handles[3]));
    EXPECT_EQ(DrainInput(), (Handles{m_handles[0], m_handles[1], m_handles[2], m_handles[3]}));
}

TEST_F(FlushTest, FlushQueue_UnqueuedToInputTwice_AppendsTwice)
{
    EXPECT_EQ(m_stream->FlushQueue(3), GC_ERR_SUCCESS);
    EXPECT_EQ(m_stream->FlushQueue(3), GC_ERR_SUCCESS);
    EXPECT_EQ(Queued(), 4U);
    EXPECT_EQ(m_stream->RevokeBuffer(m_handles[3], nullptr, nullptr), GC_ERR_BUSY);
    EXPECT_EQ(DrainInput(),
              (Handles{m_handles[0], m_handles[1], m_handles[2], m_handles[3], m_handles[3]}));
    EXPECT_EQ(m_stream->RevokeBuffer(m_handles[3], nullptr, nullptr), GC_ERR_SUCCESS);
}

TEST_F(FlushTest, FlushQueue_AllDiscard_ClearsFlagsAndBothQueues)
{
    EXPECT_EQ(m_stream->FlushQueue(4), GC_ERR_SUCCESS);
    EXPECT_EQ(Awaiting(), 0U);
    EXPECT_EQ(Queued(), 0U);
    for (void* const handle : m_handles) {
        EXPECT_FALSE(IsQueued(handle));
    }
    EXPECT_EQ(Info<size_t>(STREAM_INFO_NUM_ANNOUNCED).value, 4U);
    EXPECT_EQ(m_stream->QueueBuffer(m_handles[1]), GC_ERR_SUCCESS);
}

TEST_F(FlushTest, FlushQueue_AllDiscard_ClearsNewDataOfInputBuffers)
{
    ASSERT_EQ(Take(m_event), m_handles[0]); // new data, not queued
    ASSERT_EQ(m_stream->FlushQueue(3), GC_ERR_SUCCESS);
    ASSERT_TRUE(IsNew(m_handles[0]));
    EXPECT_EQ(m_stream->FlushQueue(4), GC_ERR_SUCCESS);
    EXPECT_FALSE(IsNew(m_handles[0]));
}

TEST_F(FlushTest, FlushQueue_UnknownOperation_IsTracedWithItsNumber)
{
    for (const int32_t operation : {-1, 5, 1000}) {
        const TraceCapture trace;
        EXPECT_EQ(m_stream->FlushQueue(operation), GC_ERR_NOT_IMPLEMENTED);
        EXPECT_EQ(trace.Lines(), Lines{ErrorLine("FlushQueue GC_ERR_NOT_IMPLEMENTED :" +
                                                 std::to_string(operation))});
        EXPECT_EQ(Queued(), 2U);
        EXPECT_EQ(Awaiting(), 1U);
    }
}

TEST_F(OpenStreamTest, FlushQueue_NoEvent_SucceedsWithTheListStepsOnly)
{
    for (const int32_t operation : {0, 1, 2, 3, 4}) {
        EXPECT_EQ(m_stream->FlushQueue(operation), GC_ERR_SUCCESS) << operation;
    }
    void* const handle = AnnounceAndQueue(0);
    EXPECT_EQ(m_stream->FlushQueue(0), GC_ERR_SUCCESS);
    EXPECT_EQ(Queued(), 0U);
    EXPECT_TRUE(IsQueued(handle)) << "the flag stays as it is";
}

// ---- buffer look-ups

TEST_F(StreamTest, GetBufferID_Positions_AreInAnnouncementOrder)
{
    const Handles announced = {Announce(0), Announce(1)};
    for (uint32_t i = 0; i < 2; ++i) {
        void* handle = nullptr;
        EXPECT_EQ(m_stream->GetBufferID(i, &handle), GC_ERR_SUCCESS);
        EXPECT_EQ(handle, announced[i]);
    }
    const TraceCapture trace;
    void* handle = this;
    EXPECT_EQ(m_stream->GetBufferID(2, &handle), GC_ERR_INVALID_INDEX);
    EXPECT_EQ(m_stream->GetBufferID(0, nullptr), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(handle, this);
    EXPECT_EQ(trace.Errors(), (Strings{"GetBufferID GC_ERR_INVALID_INDEX",
                                       "GetBufferID GC_ERR_INVALID_PARAMETER"}));
}

TEST_F(StreamTest, GetBufferInfo_NotAnnounced_IsAnInvalidHandle)
{
    const TraceCapture trace;
    int32_t type = 0;
    size_t size = 0;
    EXPECT_EQ(m_stream->GetBufferInfo(this, 0, &type, nullptr, &size), GC_ERR_INVALID_HANDLE);
    EXPECT_EQ(trace.Lines(), Lines{ErrorLine("GetBufferInfo GC_ERR_INVALID_HANDLE")});
}

// ---- information

TEST_F(StreamTest, GetInfo_Idle_Values)
{
    Announce(0);
    AnnounceAndQueue(1);
    constexpr GC_ERROR ok = GC_ERR_SUCCESS;
    EXPECT_EQ(InfoText(0), Text("0"));
    EXPECT_EQ(Info<uint64_t>(1), (Answer<uint64_t>{ok, INFO_DATATYPE_UINT64, 8, 0}));
    EXPECT_EQ(Info<uint64_t>(2), (Answer<uint64_t>{ok, INFO_DATATYPE_UINT64, 8, 0}));
    EXPECT_EQ(Info<size_t>(3), (Answer<size_t>{ok, INFO_DATATYPE_SIZET, 8, 2}));
    EXPECT_EQ(Info<size_t>(4), (Answer<size_t>{ok, INFO_DATATYPE_SIZET, 8, 1}));
    EXPECT_EQ(Info<size_t>(5), (Answer<size_t>{ok, INFO_DATATYPE_SIZET, 8, 0}));
    EXPECT_EQ(Info<bool8_t>(8), (Answer<bool8_t>{ok, INFO_DATATYPE_BOOL8, 1, 0}));
    EXPECT_EQ(Info<bool8_t>(9), (Answer<bool8_t>{ok, INFO_DATATYPE_BOOL8, 1, 0}));
    EXPECT_EQ(InfoText(10), Text("U3V"));
    EXPECT_EQ(Info<size_t>(12), (Answer<size_t>{ok, INFO_DATATYPE_SIZET, 8, 1}));
}

TEST_F(StreamTest, GetInfo_OtherCommands_AreNotImplementedAndClearTheBuffer)
{
    for (const int32_t cmd : {-1, 6, 7, 11, 13, 14, 15, 1000}) {
        const TraceCapture trace;
        char buffer[2] = {'a', 'b'};
        int32_t type = 0;
        size_t size = 1;
        EXPECT_EQ(m_stream->GetInfo(cmd, &type, buffer, &size), GC_ERR_NOT_IMPLEMENTED) << cmd;
        EXPECT_EQ(std::string(buffer, 2), std::string("\0b", 2));
        EXPECT_EQ(trace.Lines(), Lines{ErrorLine("GetInfo GC_ERR_NOT_IMPLEMENTED")});
    }
}

TEST_F(StreamTest, GetInfo_NullArguments_AreRefused)
{
    const TraceCapture trace;
    int32_t type = 0;
    size_t size = 0;
    EXPECT_EQ(m_stream->GetInfo(0, nullptr, nullptr, &size), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(m_stream->GetInfo(0, &type, nullptr, nullptr), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(trace.Errors(),
              (Strings{"GetInfo GC_ERR_INVALID_PARAMETER", "GetInfo GC_ERR_INVALID_PARAMETER"}));
}

// ---- port

TEST_F(StreamTest, ReadPort_Document_IsCopiedUpToItsEndAndLeavesTheSize)
{
    const std::string text = ZrGenTLUtil::CreateXMLDataStream();
    std::vector<char> buffer(text.size() + 2, '#');
    size_t size = buffer.size();
    EXPECT_EQ(m_stream->ReadPort(0x10000, buffer.data(), &size), GC_ERR_SUCCESS);
    EXPECT_EQ(size, buffer.size());
    EXPECT_EQ(std::string(buffer.data(), buffer.size()), text + "##");
}

TEST_F(OpenStreamTest, ReadPort_Registers)
{
    AnnounceAndQueue(0);
    AnnounceAndQueue(1);
    Announce(2);
    m_fake.PushImage(MakeImage(1));
    m_fake.PushImage(MakeImage(2));
    ASSERT_EQ(m_stream->AcquireImage(), GC_ERR_SUCCESS);
    ASSERT_EQ(m_stream->AcquireImage(), GC_ERR_SUCCESS);
    EXPECT_EQ(ReadTextRegisterOf(*m_stream, 0x80000), RegisterText("0"));
    EXPECT_EQ(ReadRegisterOf<uint32_t>(*m_stream, 0x80100), RegisterValue<uint32_t>(3));
    EXPECT_EQ(ReadRegisterOf<uint32_t>(*m_stream, 0x80104), RegisterValue<uint32_t>(0));
    EXPECT_EQ(ReadRegisterOf<uint32_t>(*m_stream, 0x80108), RegisterValue<uint32_t>(1));
    EXPECT_EQ(ReadRegisterOf<uint64_t>(*m_stream, 0x8010C), RegisterValue<uint64_t>(2));
}

TEST_F(StreamTest, ReadPort_DeliveredCount_NeedsEightBytes)
{
    uint32_t value = 0;
    size_t size = sizeof(value);
    EXPECT_EQ(m_stream->ReadPort(0x8010C, &value, &size), GC_ERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(size, 8U);
}

TEST_F(StreamTest, ReadPort_UnlistedAddresses_AreNotImplementedWithoutATrace)
{
    const TraceCapture trace;
    for (const uint64_t address : std::initializer_list<uint64_t>{
             0x0, 0x10001, 0x80001, 0x80101, 0x80105, 0x80110, 0x80114, 0x70000}) {
        EXPECT_EQ(ReadRegisterOf<uint64_t>(*m_stream, address).status, GC_ERR_NOT_IMPLEMENTED);
    }
    EXPECT_TRUE(trace.Lines().empty());
}

TEST_F(StreamTest, WritePort_HandlingMode_IsAcceptedAndIgnored)
{
    EXPECT_EQ(WriteRegisterOf<uint32_t>(*m_stream, 0x80104, 2), GC_ERR_SUCCESS);
    EXPECT_EQ(ReadRegisterOf<uint32_t>(*m_stream, 0x80104), RegisterValue<uint32_t>(0));
}

TEST_F(StreamTest, WritePort_OtherAddresses_AreNotImplementedWithoutATrace)
{
    const TraceCapture trace;
    for (const uint64_t address :
         std::initializer_list<uint64_t>{0x10000, 0x80000, 0x80100, 0x80105, 0x80108, 0x8010C}) {
        EXPECT_EQ(WriteRegisterOf<uint32_t>(*m_stream, address, 0), GC_ERR_NOT_IMPLEMENTED);
    }
    EXPECT_TRUE(trace.Lines().empty());
}

TEST_F(StreamTest, PortAccess_NullArguments_AreRefused)
{
    const TraceCapture trace;
    char byte = 0;
    size_t size = 1;
    EXPECT_EQ(m_stream->ReadPort(0x80000, nullptr, &size), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(m_stream->ReadPort(0x80000, &byte, nullptr), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(m_stream->WritePort(0x80104, nullptr, &size), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(m_stream->WritePort(0x80104, &byte, nullptr), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(trace.Errors(), (Strings{"ReadPort failed! GC_ERR_INVALID_PARAMETER",
                                       "ReadPort failed! GC_ERR_INVALID_PARAMETER",
                                       "WritePort failed! GC_ERR_INVALID_PARAMETER",
                                       "WritePort failed! GC_ERR_INVALID_PARAMETER"}));
}

} // namespace
