// The acquisition thread: start, stop, restart, delivery, and everything at once.

#include "data_stream_fixture.h"
#include "failing_allocation.h"
#include "no_threads.h"
#include "wait.h"
#include "zr_u3v_thread_acquisition.h"

#include <algorithm>
#include <atomic>

namespace {

using namespace std::chrono_literals;

class AcquisitionTest : public OpenStreamTest
{
protected:
    bool IsStopped()
    {
        // An announcement is refused exactly while the stream acquires.
        void* handle = nullptr;
        const GC_ERROR status = m_stream->AllocAndAnnounceBuffer(1, nullptr, &handle);
        if (status == GC_ERR_SUCCESS) {
            EXPECT_EQ(m_stream->RevokeBuffer(handle, nullptr, nullptr), GC_ERR_SUCCESS);
        }
        return status == GC_ERR_SUCCESS;
    }
};

// ---- start

TEST_F(AcquisitionTest, StartAcquisition_CountZero_IsRefusedFirst)
{
    const TraceCapture trace;
    EXPECT_EQ(m_stream->StartAcquisition(0, 0), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(trace.Lines(), Lines{ErrorLine("StartAcquisition GC_ERR_INVALID_PARAMETER")});
}

TEST_F(AcquisitionTest, StartAcquisition_NoBuffer_IsAnInvalidBuffer)
{
    const TraceCapture trace;
    EXPECT_EQ(m_stream->StartAcquisition(0, 1), GC_ERR_INVALID_BUFFER);
    EXPECT_EQ(trace.Lines(), Lines{ErrorLine("StartAcquisition GC_ERR_INVALID_BUFFER")});
    EXPECT_TRUE(m_fake.Journal().empty());
}

TEST_F(AcquisitionTest, StartAcquisition_AnyFlags_SetsSizeCountAndStartsTheCamera)
{
    Announce(0);
    Announce(1);
    EXPECT_EQ(m_stream->StartAcquisition(12345, GENTL_INFINITE), GC_ERR_SUCCESS);
    EXPECT_EQ(m_stream->StopAcquisition(0), GC_ERR_SUCCESS);
    EXPECT_EQ(m_fake.Journal(),
              (Strings{"U3V_SetTransferSize 1048576", "U3V_SetBufferCount 2",
                       "U3V_AcquisitionStart 4294967295", "U3V_AcquisitionStop"}));
}

TEST_F(AcquisitionTest, StartAcquisition_CameraRefuses_IsAnErrorAndNothingRuns)
{
    Announce(0);
    const struct
    {
        const char* function;
        const char* text;
    } rows[] = {{"U3V_SetTransferSize", "StartAcquisition SetBufferCount GC_ERR_ERROR"},
                {"U3V_SetBufferCount", "StartAcquisition SetBufferCount GC_ERR_ERROR"},
                {"U3V_AcquisitionStart", "StartAcquisition StartAcquisition GC_ERR_ERROR"}};
    for (const auto& row : rows) {
        m_fake.Script(row.function, {kRefused});
        const TraceCapture trace;
        EXPECT_EQ(m_stream->StartAcquisition(0, 1), GC_ERR_ERROR);
        EXPECT_EQ(trace.Errors().back(), row.text);
        EXPECT_EQ(m_fake.Journal().back().find(row.function), 0U) << "and nothing after it";
        EXPECT_TRUE(IsStopped());
    }
    EXPECT_EQ(m_fake.CountOf("U3V_GetImage"), 0U);
}

TEST_F(AcquisitionTest, StartAcquisition_WhileAcquiring_SucceedsAndKeepsTheCount)
{
    ZrGenTLEvent* const event = RegisterEvent();
    void* const handle = Announce(0);
    ASSERT_EQ(m_stream->StartAcquisition(0, 2), GC_ERR_SUCCESS);
    EXPECT_EQ(m_stream->StartAcquisition(0, 1), GC_ERR_SUCCESS);
    for (uint64_t i = 0; i < 2; ++i) {
        ASSERT_EQ(m_stream->QueueBuffer(handle), GC_ERR_SUCCESS);
        m_fake.PushImage(MakeImage(i));
        EXPECT_EQ(Take(event, 2000), handle) << "the first count of two holds";
    }
    EXPECT_TRUE(WaitUntil([this] { return IsStopped(); }));
}

TEST_F(AcquisitionTest, StartAcquisition_NoThreadToBeHad_StopsTheCameraAndMayBeTriedAgain)
{
    ZrGenTLEvent* const event = RegisterEvent();
    void* const handle = AnnounceAndQueue(0);
    {
        const NoMoreThreads exhausted;
        ASSERT_TRUE(exhausted.InForce());
        const TraceCapture trace;
        EXPECT_EQ(m_stream->StartAcquisition(0, 1), GC_ERR_RESOURCE_EXHAUSTED);
        EXPECT_EQ(trace.Errors().back(), "StartAcquisition GC_ERR_RESOURCE_EXHAUSTED");
    }
    EXPECT_EQ(m_fake.Journal().back(), "U3V_AcquisitionStop");
    EXPECT_TRUE(IsStopped());
    EXPECT_EQ(m_stream->StartAcquisition(0, 1), GC_ERR_SUCCESS);
    m_fake.PushImage(MakeImage(7));
    EXPECT_EQ(Take(event, 2000), handle);
}

TEST_F(AcquisitionTest, Deliver_NoMemoryForTheEntry_KeepsTheBufferAndGoesOnLater)
{
    if (!FailingAllocations::Possible()) {
        GTEST_SKIP() << "the sanitizer's operator new cannot be made to fail";
    }
    ZrGenTLEvent* const event = RegisterEvent();
    void* const first = AnnounceAndQueue(0);
    AnnounceAndQueue(1);
    ASSERT_EQ(m_stream->StartAcquisition(0, GENTL_INFINITE), GC_ERR_SUCCESS);
    {
        const FailingAllocationsElsewhere failing;
        for (uint64_t id = 1; id <= 3; ++id) {
            m_fake.PushImage(MakeImage(id));
        }
        EXPECT_TRUE(WaitUntil([] { return FailingAllocationsElsewhere::Refused() >= 3; }));
        EXPECT_EQ(Delivered(), 0U);
        EXPECT_EQ(Awaiting(), 0U);
        EXPECT_EQ(Queued(), 2U);
        EXPECT_TRUE(IsQueued(first));
        EXPECT_FALSE(IsNew(first));
    }
    m_fake.PushImage(MakeImage(4));
    EXPECT_EQ(Take(event, 2000), first);
    EXPECT_EQ(BufferValue<uint64_t>(first, BUFFER_INFO_FRAMEID), 4U);
    EXPECT_EQ(Delivered(), 1U);
    EXPECT_EQ(Queued(), 1U);
    EXPECT_EQ(m_stream->StopAcquisition(0), GC_ERR_SUCCESS);
}

TEST_F(AcquisitionTest, FlushInputToOutput_NoMemoryForAnEntry_NoBufferIsLost)
{
    if (!FailingAllocations::Possible()) {
        GTEST_SKIP() << "the sanitizer's operator new cannot be made to fail";
    }
    RegisterEvent();
    for (size_t i = 0; i < m_memory.size(); ++i) {
        AnnounceAndQueue(i);
    }
    {
        const FailingAllocations failing(0);
        EXPECT_THROW(m_stream->FlushQueue(ACQ_QUEUE_INPUT_TO_OUTPUT), std::bad_alloc);
    }
    EXPECT_EQ(Queued() + Awaiting(), m_memory.size());
    EXPECT_EQ(m_stream->FlushQueue(ACQ_QUEUE_INPUT_TO_OUTPUT), GC_ERR_SUCCESS);
    EXPECT_EQ(Awaiting(), m_memory.size());
    EXPECT_EQ(Queued(), 0U);
}

TEST_F(AcquisitionTest, ThreadStart_WhileRunning_IsFalseAndChangesNothing)
{
    ZrU3VThreadAcquisition thread(m_stream.get());
    EXPECT_TRUE(thread.Start(GENTL_INFINITE));
    EXPECT_FALSE(thread.Start(1));
    EXPECT_FALSE(thread.IsStopRequested());
    thread.Stop();
    EXPECT_TRUE(thread.IsStopRequested());
    EXPECT_FALSE(thread.Start(1)) << "stopping is not stopped";
    EXPECT_TRUE(thread.IsStopRequested());
    // It waits on the stream's input list, which is told nothing about this thread.
    AnnounceAndQueue(0);
    m_fake.PushImage(MakeImage(1));
    thread.Wait(-1);
    EXPECT_FALSE(thread.IsRunning());
}

TEST_F(AcquisitionTest, Announce_WhileAcquiring_IsBusy)
{
    Announce(0);
    ASSERT_EQ(m_stream->StartAcquisition(0, GENTL_INFINITE), GC_ERR_SUCCESS);
    {
        const TraceCapture trace;
        void* handle = nullptr;
        uint8_t memory = 0;
        EXPECT_EQ(m_stream->AnnounceBuffer(&memory, 1, nullptr, &handle), GC_ERR_BUSY);
        EXPECT_EQ(m_stream->AllocAndAnnounceBuffer(1, nullptr, &handle), GC_ERR_BUSY);
        const Strings errors = trace.Errors();
        EXPECT_EQ(std::count(errors.begin(), errors.end(), "AnnounceBuffer GC_ERR_BUSY"), 1);
        EXPECT_EQ(std::count(errors.begin(), errors.end(), "AllocAndAnnounceBuffer GC_ERR_BUSY"),
                  1);
    }
    EXPECT_EQ(Info<bool8_t>(STREAM_INFO_IS_GRABBING).value, 0) << "also while acquiring";
    EXPECT_EQ(m_stream->StopAcquisition(0), GC_ERR_SUCCESS);
    EXPECT_TRUE(IsStopped());
}

// ---- stop

TEST_F(AcquisitionTest, StopAcquisition_FlagsAboveOne_AreNotImplemented)
{
    for (const int32_t flags : {2, 1000}) {
        const TraceCapture trace;
        EXPECT_EQ(m_stream->StopAcquisition(flags), GC_ERR_NOT_IMPLEMENTED);
        EXPECT_EQ(trace.Lines(), Lines{ErrorLine("StopAcquisition GC_ERR_NOT_IMPLEMENTED Flags:" +
                                                 std::to_string(flags))});
    }
    EXPECT_TRUE(m_fake.Journal().empty());
}

TEST_F(AcquisitionTest, StopAcquisition_NeverStartedOrTwice_Succeeds)
{
    for (const int32_t flags : {0, 1, 0, 1}) {
        EXPECT_EQ(m_stream->StopAcquisition(flags), GC_ERR_SUCCESS);
    }
    EXPECT_EQ(m_fake.CountOf("U3V_AcquisitionStop"), 4U);
}

TEST_F(AcquisitionTest, StopAcquisition_CameraRefuses_SucceedsAndStops)
{
    Announce(0);
    ASSERT_EQ(m_stream->StartAcquisition(0, GENTL_INFINITE), GC_ERR_SUCCESS);
    m_fake.Script("U3V_AcquisitionStop", {kRefused});
    EXPECT_EQ(m_stream->StopAcquisition(0), GC_ERR_SUCCESS);
    EXPECT_TRUE(IsStopped());
}

TEST_F(AcquisitionTest, StopAcquisition_Kill_LeavesNobodyWritingIntoTheBuffers)
{
    AnnounceAndQueue(0);
    std::atomic<bool> inside{false};
    std::atomic<bool> left{false};
    m_fake.OnCall("U3V_GetImage", [&] {
        inside = true;
        zr_test::LetPass(50ms, "an image takes its time");
        left = true;
    });
    m_fake.PushImage(MakeImage(1));
    ASSERT_EQ(m_stream->StartAcquisition(0, GENTL_INFINITE), GC_ERR_SUCCESS);
    ASSERT_TRUE(WaitUntil([&] { return inside.load(); }));
    EXPECT_EQ(m_stream->StopAcquisition(ACQ_STOP_FLAGS_KILL), GC_ERR_SUCCESS);
    EXPECT_TRUE(left);
    const size_t calls = m_fake.CountOf("U3V_GetImage");
    zr_test::LetPass(20ms, "no call more");
    EXPECT_EQ(m_fake.CountOf("U3V_GetImage"), calls) << "the thread has ended";
}

TEST_F(AcquisitionTest, Close_WhileAcquiring_StopsThreadThenCameraThenStream)
{
    Announce(0);
    ASSERT_EQ(m_stream->StartAcquisition(0, GENTL_INFINITE), GC_ERR_SUCCESS);
    m_fake.ClearJournal();
    EXPECT_EQ(m_stream->Close(), GC_ERR_SUCCESS);
    EXPECT_EQ(m_fake.Journal(), (Strings{"U3V_AcquisitionStop", "U3V_CloseStream"}));
    EXPECT_TRUE(IsStopped());
    EXPECT_EQ(m_stream->Open(), GC_ERR_SUCCESS);
    EXPECT_EQ(m_stream->StartAcquisition(0, 1), GC_ERR_SUCCESS);
}

TEST_F(AcquisitionTest, Destructor_WhileAcquiring_EndsTheThread)
{
    AnnounceAndQueue(0);
    ASSERT_EQ(m_stream->StartAcquisition(0, GENTL_INFINITE), GC_ERR_SUCCESS);
    m_stream.reset();
    EXPECT_EQ(m_fake.Journal().back(), "U3V_CloseStream");
}

TEST_F(AcquisitionTest, StartStop_EveryKind_WorksHundredsOfTimes)
{
    ZrGenTLEvent* const event = RegisterEvent();
    void* const handle = Announce(0);
    for (uint64_t i = 0; i < 400; ++i) {
        const bool limited = i % 2 == 0;
        ASSERT_EQ(m_stream->StartAcquisition(0, limited ? 1 : GENTL_INFINITE), GC_ERR_SUCCESS);
        ASSERT_EQ(m_stream->QueueBuffer(handle), GC_ERR_SUCCESS);
        m_fake.PushImage(MakeImage(i));
        ASSERT_EQ(Take(event, 2000), handle) << i;
        ASSERT_EQ(BufferValue<uint64_t>(handle, BUFFER_INFO_FRAMEID), i);
        ASSERT_EQ(m_stream->StopAcquisition(static_cast<int32_t>(i / 2 % 2)), GC_ERR_SUCCESS);
        ASSERT_TRUE(IsStopped());
    }
    EXPECT_EQ(Delivered(), 400U);
}

TEST_F(AcquisitionTest, StartAcquisition_RightAfterTheLastImage_StartsAnew)
{
    ZrGenTLEvent* const event = RegisterEvent();
    void* const handle = Announce(0);
    for (uint64_t i = 0; i < 300; ++i) {
        ASSERT_EQ(m_stream->StartAcquisition(0, 1), GC_ERR_SUCCESS);
        ASSERT_EQ(m_stream->QueueBuffer(handle), GC_ERR_SUCCESS);
        m_fake.PushImage(MakeImage(i));
        ASSERT_EQ(Take(event, 2000), handle) << i;
    }
}

// ---- run

TEST_F(AcquisitionTest, Run_CountThree_StopsAfterThreeImagesNotCountingFailures)
{
    ZrGenTLEvent* const event = RegisterEvent();
    std::vector<void*> handles;
    for (size_t i = 0; i < 5; ++i) {
        handles.push_back(AnnounceAndQueue(i));
    }
    m_fake.Script("U3V_GetImage", {0xC018, 0xC017, 0x800B, 0xC018});
    for (uint64_t i = 0; i < 5; ++i) {
        m_fake.PushImage(MakeImage(i));
    }
    ASSERT_EQ(m_stream->StartAcquisition(0, 3), GC_ERR_SUCCESS);
    EXPECT_TRUE(WaitUntil([this] { return IsStopped(); }));
    EXPECT_EQ(Delivered(), 3U);
    EXPECT_EQ(Queued(), 2U);
    EXPECT_EQ(m_fake.CountOf("U3V_AcquisitionStop"), 1U);
    EXPECT_EQ(m_fake.CountOf("U3V_GetImage"), 7U);
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(Take(event), handles[i]);
        EXPECT_EQ(BufferValue<uint64_t>(handles[i], BUFFER_INFO_FRAMEID), i);
    }
    EXPECT_EQ(m_stream->StopAcquisition(0), GC_ERR_SUCCESS) << "stopped already";
}

TEST_F(AcquisitionTest, Run_CountAbove32Bits_DoesNotStopAtItsLowBits)
{
    ZrGenTLEvent* const event = RegisterEvent();
    void* const handle = AnnounceAndQueue(0);
    ASSERT_EQ(m_stream->StartAcquisition(0, (uint64_t{1} << 32) + 1), GC_ERR_SUCCESS);
    EXPECT_EQ(m_fake.CountOf("U3V_AcquisitionStart 1"), 1U) << "the camera gets 32 bits";
    for (uint64_t i = 0; i < 4; ++i) {
        m_fake.PushImage(MakeImage(i));
        ASSERT_EQ(Take(event, 5000), handle);
        ASSERT_EQ(m_stream->QueueBuffer(handle), GC_ERR_SUCCESS);
    }
    EXPECT_FALSE(IsStopped());
    EXPECT_EQ(m_fake.CountOf("U3V_AcquisitionStop"), 0U);
    EXPECT_EQ(m_stream->StopAcquisition(0), GC_ERR_SUCCESS);
}

TEST_F(AcquisitionTest, Run_EmptyInputList_WaitsInsteadOfSpinning)
{
    Announce(0);
    const TraceCapture trace;
    ASSERT_EQ(m_stream->StartAcquisition(0, GENTL_INFINITE), GC_ERR_SUCCESS);
    const auto passed = zr_test::LetPass(50ms, "one turn, not thousands");
    EXPECT_LE(trace.Errors().size(), 1 + static_cast<size_t>(passed.count()) / 50)
        << "one line per wait";
    EXPECT_EQ(m_stream->StopAcquisition(0), GC_ERR_SUCCESS);
}

TEST_F(AcquisitionTest, Run_BufferQueuedOrFlushedIn_IsTakenUpAtOnce)
{
    ZrGenTLEvent* const event = RegisterEvent();
    void* const handle = Announce(0);
    ASSERT_EQ(m_stream->StartAcquisition(0, GENTL_INFINITE), GC_ERR_SUCCESS);
    EXPECT_TRUE(zr_test::WaitUntilOthersSleep());
    m_fake.PushImage(MakeImage(1));
    ASSERT_EQ(m_stream->QueueBuffer(handle), GC_ERR_SUCCESS);
    EXPECT_EQ(Take(event, 500), handle);
    EXPECT_TRUE(zr_test::WaitUntilOthersSleep());
    m_fake.PushImage(MakeImage(2));
    ASSERT_EQ(m_stream->FlushQueue(ACQ_QUEUE_UNQUEUED_TO_INPUT), GC_ERR_SUCCESS);
    EXPECT_EQ(Take(event, 500), handle);
    EXPECT_EQ(m_stream->StopAcquisition(0), GC_ERR_SUCCESS);
}

// Half of the rounds are faster than this: a waiter that is told, not one that polls slowly.
template <class Action>
std::chrono::nanoseconds MedianOf(Action action)
{
    std::vector<std::chrono::nanoseconds> rounds;
    for (int i = 0; i < 41; ++i) {
        rounds.push_back(action());
    }
    std::sort(rounds.begin(), rounds.end());
    return rounds[rounds.size() / 2];
}

TEST_F(AcquisitionTest, Run_BufferQueuedWhileWaiting_IsTakenUpWithoutDelay)
{
    ZrGenTLEvent* const event = RegisterEvent();
    void* const handle = Announce(0);
    ASSERT_EQ(m_stream->StartAcquisition(0, GENTL_INFINITE), GC_ERR_SUCCESS);
    EXPECT_LT(MedianOf([&] {
                  m_fake.PushImage(MakeImage(1));
                  EXPECT_TRUE(zr_test::WaitUntilOthersSleep());
                  const auto start = std::chrono::steady_clock::now();
                  EXPECT_EQ(m_stream->QueueBuffer(handle), GC_ERR_SUCCESS);
                  EXPECT_EQ(Take(event, 2000), handle);
                  return std::chrono::steady_clock::now() - start;
              }),
              3ms);
    EXPECT_EQ(m_stream->StopAcquisition(0), GC_ERR_SUCCESS);
}

TEST_F(AcquisitionTest, Run_StopWhileWaitingForABuffer_IsTakenUpWithoutDelay)
{
    Announce(0);
    EXPECT_LT(MedianOf([&] {
                  EXPECT_EQ(m_stream->StartAcquisition(0, GENTL_INFINITE), GC_ERR_SUCCESS);
                  EXPECT_TRUE(zr_test::WaitUntilOthersSleep());
                  const auto start = std::chrono::steady_clock::now();
                  EXPECT_EQ(m_stream->StopAcquisition(0), GC_ERR_SUCCESS);
                  return std::chrono::steady_clock::now() - start;
              }),
              3ms);
}

TEST_F(AcquisitionTest, Run_Delivery_IsCountedBeforeItIsSignalled)
{
    ZrGenTLEvent* const event = RegisterEvent();
    void* const handle = Announce(0);
    ASSERT_EQ(m_stream->StartAcquisition(0, GENTL_INFINITE), GC_ERR_SUCCESS);
    for (uint64_t i = 1; i <= 200; ++i) {
        ASSERT_EQ(m_stream->QueueBuffer(handle), GC_ERR_SUCCESS);
        m_fake.PushImage(MakeImage(i));
        ASSERT_EQ(Take(event, 2000), handle);
        ASSERT_EQ(Delivered(), i);
    }
    EXPECT_EQ(m_stream->StopAcquisition(0), GC_ERR_SUCCESS);
}

// ---- revoke, unregister and close against a running acquisition

TEST_F(AcquisitionTest, RevokeBuffer_ImageBeingWritten_WaitsForIt)
{
    void* const handle = AnnounceAndQueue(0);
    std::atomic<bool> inside{false};
    std::atomic<bool> release{false};
    m_fake.OnCall("U3V_GetImage", [&] {
        inside = true;
        static_cast<void>(WaitUntil([&] { return release.load(); }));
    });
    m_fake.PushImage(MakeImage(1));
    ASSERT_EQ(m_stream->StartAcquisition(0, GENTL_INFINITE), GC_ERR_SUCCESS);
    ASSERT_TRUE(WaitUntil([&] { return inside.load(); }));
    ASSERT_EQ(m_stream->FlushQueue(ACQ_QUEUE_ALL_DISCARD), GC_ERR_SUCCESS);
    zr_test::WatchedThread revoker(
        [&] { EXPECT_EQ(m_stream->RevokeBuffer(handle, nullptr, nullptr), GC_ERR_SUCCESS); });
    EXPECT_TRUE(revoker.UntilAsleep());
    EXPECT_FALSE(revoker.HasEnded()) << "the memory is still written to";
    release = true;
    revoker.Join();
    EXPECT_EQ(Delivered(), 0U);
    EXPECT_EQ(m_stream->StopAcquisition(0), GC_ERR_SUCCESS);
}

TEST_F(AcquisitionTest, UnregisterEvent_WhileAcquiring_ImagesLeaveTheInputListAllTheSame)
{
    RegisterEvent();
    AnnounceAndQueue(0);
    ASSERT_EQ(m_stream->StartAcquisition(0, GENTL_INFINITE), GC_ERR_SUCCESS);
    ASSERT_EQ(m_stream->UnregisterEvent(EVENT_NEW_BUFFER), GC_ERR_SUCCESS);
    m_fake.PushImage(MakeImage(1));
    EXPECT_TRUE(WaitUntil([this] { return Delivered() == 1; }));
    EXPECT_EQ(Queued(), 0U);
    EXPECT_EQ(m_stream->StopAcquisition(0), GC_ERR_SUCCESS);
}

// ---- the same through handles, from several threads

class HandleStreamTest : public InterfaceTest
{
protected:
    void SetUp() override
    {
        InterfaceTest::SetUp();
        m_fake.PokeManifest(1, kFileAddress, kFileSize, false);
        UpdateDevices();
        ASSERT_EQ(IFOpenDevice(m_iface, "GUID-A", DEVICE_ACCESS_CONTROL, &m_dev), GC_ERR_SUCCESS);
        ASSERT_EQ(DevOpenDataStream(m_dev, "0", &m_ds), GC_ERR_SUCCESS);
        ASSERT_EQ(GCRegisterEvent(m_ds, EVENT_NEW_BUFFER, &m_event), GC_ERR_SUCCESS);
    }

    // Waits for data on a thread of its own until the status is not a success.
    GC_ERROR WaitForDataAround(const std::function<void()>& action)
    {
        std::atomic<GC_ERROR> status{1};
        zr_test::WatchedThread waiter([&] {
            EVENT_NEW_BUFFER_DATA data{};
            size_t size = sizeof(data);
            status = EventGetData(m_event, &data, &size, 60000);
        });
        EXPECT_TRUE(waiter.UntilAsleep());
        EXPECT_EQ(status, 1) << "it waits";
        action();
        waiter.Join();
        return status;
    }

    FakeU3V& m_fake = FakeU3V::Instance();
    DEV_HANDLE m_dev = nullptr;
    DS_HANDLE m_ds = nullptr;
    EVENT_HANDLE m_event = nullptr;
};

TEST_F(HandleStreamTest, DevClose_WhileEventGetDataWaits_AbortsTheWait)
{
    EXPECT_EQ(WaitForDataAround([this] { EXPECT_EQ(DevClose(m_dev), GC_ERR_SUCCESS); }),
              GC_ERR_ABORT);
}

TEST_F(HandleStreamTest, GCUnregisterEvent_WhileEventGetDataWaits_AbortsTheWait)
{
    EXPECT_EQ(WaitForDataAround(
                  [this] { EXPECT_EQ(GCUnregisterEvent(m_ds, EVENT_NEW_BUFFER), GC_ERR_SUCCESS); }),
              GC_ERR_ABORT);
    EVENT_NEW_BUFFER_DATA data{};
    size_t size = sizeof(data);
    EXPECT_EQ(EventGetData(m_event, &data, &size, 0), GC_ERR_INVALID_HANDLE);
}

TEST_F(HandleStreamTest, DevClose_WhileAcquiringAndWaiting_EndsEverything)
{
    BUFFER_HANDLE buffer = nullptr;
    ASSERT_EQ(DSAllocAndAnnounceBuffer(m_ds, 64, nullptr, &buffer), GC_ERR_SUCCESS);
    ASSERT_EQ(DSStartAcquisition(m_ds, ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE), GC_ERR_SUCCESS);
    EXPECT_EQ(WaitForDataAround([this] { EXPECT_EQ(DevClose(m_dev), GC_ERR_SUCCESS); }),
              GC_ERR_ABORT);
    EXPECT_EQ(m_fake.CountOf("U3V_AcquisitionStop"), 1U);
    EXPECT_EQ(DSStopAcquisition(m_ds, 0), GC_ERR_INVALID_HANDLE);
}

TEST_F(HandleStreamTest, EverythingAtOnce_ThenClose_AnswersOnlyKnownStatuses)
{
    std::array<std::array<uint8_t, 64>, 6> memory{};
    std::array<std::atomic<BUFFER_HANDLE>, 6> handles{};
    std::atomic<bool> end{false};
    std::atomic<size_t> taken{0};
    const auto announce = [&](size_t i) {
        BUFFER_HANDLE handle = nullptr;
        if (DSAnnounceBuffer(m_ds, memory.at(i).data(), 64, nullptr, &handle) == GC_ERR_SUCCESS) {
            handles.at(i) = handle;
            static_cast<void>(DSQueueBuffer(m_ds, handle));
        }
    };
    for (size_t i = 0; i < memory.size(); ++i) {
        announce(i);
    }
    const auto loop = [&end](auto body) {
        return std::thread([&end, body] {
            for (uint64_t i = 0; !end; ++i) {
                body(i);
            }
        });
    };
    std::vector<std::thread> threads;
    threads.push_back(loop([&](uint64_t i) { // the camera
        m_fake.PushImage(MakeImage(i, 80));
        zr_test::LetPass(200us, "the camera's rate");
    }));
    for (int consumer = 0; consumer < 2; ++consumer) {
        threads.push_back(loop([&](uint64_t /*i*/) {
            const EVENT_HANDLE event = m_event;
            EVENT_NEW_BUFFER_DATA data{};
            size_t size = sizeof(data);
            const GC_ERROR status = EventGetData(event, &data, &size, 5);
            if (status == GC_ERR_SUCCESS && data.BufferHandle != nullptr) {
                ++taken;
                static_cast<void>(DSQueueBuffer(m_ds, data.BufferHandle));
            }
            EXPECT_TRUE(status == GC_ERR_SUCCESS || status == GC_ERR_TIMEOUT ||
                        status == GC_ERR_ABORT || status == GC_ERR_INVALID_HANDLE)
                << status;
        }));
    }
    threads.push_back(loop([&](uint64_t i) { // start and stop
        static_cast<void>(DSStartAcquisition(m_ds, 0, i % 3 == 0 ? 2 : GENTL_INFINITE));
        zr_test::LetPass(3ms, "some images between start and stop");
        static_cast<void>(DSStopAcquisition(m_ds, static_cast<ACQ_STOP_FLAGS>(i % 2)));
        announce(i % memory.size());
    }));
    threads.push_back(loop([&](uint64_t i) { // flush, revoke, ask
        static_cast<void>(DSFlushQueue(m_ds, static_cast<ACQ_QUEUE_TYPE>(i % 5)));
        static_cast<void>(DSRevokeBuffer(m_ds, handles.at(i % 6), nullptr, nullptr));
        size_t filled = 0;
        size_t size = sizeof(filled);
        INFO_DATATYPE type = 0;
        static_cast<void>(DSGetBufferInfo(m_ds, handles.at((i + 1) % 6), BUFFER_INFO_SIZE_FILLED,
                                          &type, &filled, &size));
        EXPECT_LE(filled, 64U);
        zr_test::LetPass(1ms, "leaves the others something to take");
    }));
    EXPECT_TRUE(WaitUntil([&] { return taken > 0; }));
    zr_test::LetPass(400ms, "everything meets everything");
    EXPECT_EQ(GCUnregisterEvent(m_ds, EVENT_NEW_BUFFER), GC_ERR_SUCCESS);
    zr_test::LetPass(50ms, "without an event");
    EXPECT_EQ(DSClose(m_ds), GC_ERR_SUCCESS);
    EXPECT_EQ(DevClose(m_dev), GC_ERR_SUCCESS);
    zr_test::LetPass(20ms, "without a device");
    end = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
}

} // namespace
