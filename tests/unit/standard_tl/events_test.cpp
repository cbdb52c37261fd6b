// Registering, waiting, killing, ending; what each kind of event tells.

#include <atomic>
#include <chrono>
#include <set>
#include <thread>

#include "stream_fixture.h"

namespace standard_tl {
namespace {

using u3v_host::Error;
using u3v_host::ErrorKind;

class EventsTest : public StreamTest
{
protected:
    static Answer Info(EVENT_HANDLE event, EVENT_INFO_CMD command)
    {
        return Ask([&](INFO_DATATYPE* type, void* buffer, size_t* size) {
            return EventGetInfo(event, command, type, buffer, size);
        });
    }
    static size_t InQueue(EVENT_HANDLE event)
    {
        return Info(event, EVENT_NUM_IN_QUEUE).As<size_t>();
    }
    // The next record; empty when there is none at once.
    static std::vector<uint8_t> Record(EVENT_HANDLE event)
    {
        std::vector<uint8_t> record(0x10000);
        size_t size = record.size();
        const GC_ERROR code = EventGetData(event, record.data(), &size, 0);
        EXPECT_TRUE(code == GC_ERR_SUCCESS || code == GC_ERR_TIMEOUT) << code;
        record.resize(code == GC_ERR_SUCCESS ? size : 0);
        return record;
    }
    static Answer Data(EVENT_HANDLE event, const std::vector<uint8_t>& record,
                       EVENT_DATA_INFO_CMD command)
    {
        return Ask([&](INFO_DATATYPE* type, void* buffer, size_t* size) {
            return EventGetDataInfo(event, record.data(), record.size(), command, type, buffer,
                                    size);
        });
    }
    static GC_ERROR Wait(EVENT_HANDLE event, uint64_t timeout)
    {
        uint8_t record[1024];
        size_t size = sizeof(record);
        return EventGetData(event, record, &size, timeout);
    }
    // As the camera sends it: reserved, id, timestamp, data.
    void SendRemote(uint16_t id, uint8_t data)
    {
        camera.SendEvent(id, {0, 0, static_cast<uint8_t>(id), static_cast<uint8_t>(id >> 8), 1, 2,
                              3, 4, 5, 6, 7, 8, data});
    }
};

// ---- registering

TEST_F(EventsTest, Register_EventsOfEachModule_AreServedWhereTheyCanHappen)
{
    struct Row
    {
        void* module;
        std::set<EVENT_TYPE> served;
    };
    const Row rows[] = {{System(), {}},
                        {Interface(), {EVENT_FEATURE_INVALIDATE}},
                        {Device(), {EVENT_ERROR, EVENT_REMOTE_DEVICE}},
                        {Remote(), {}},
                        {Stream(), {EVENT_ERROR, EVENT_NEW_BUFFER}}};
    for (const Row& row : rows) {
        for (EVENT_TYPE type = -1; type <= EVENT_MODULE + 1; ++type) {
            EVENT_HANDLE event = nullptr;
            const bool isServed = row.served.contains(type);
            EXPECT_EQ(GCRegisterEvent(row.module, type, &event),
                      isServed ? GC_ERR_SUCCESS : GC_ERR_NOT_IMPLEMENTED)
                << type;
            EXPECT_EQ(GCUnregisterEvent(row.module, type),
                      isServed ? GC_ERR_SUCCESS : GC_ERR_INVALID_PARAMETER);
        }
    }
}

TEST_F(EventsTest, Register_TwiceOrNull_IsRefused)
{
    NewBuffer();
    EVENT_HANDLE event = nullptr;
    EXPECT_EQ(GCRegisterEvent(Stream(), EVENT_NEW_BUFFER, &event), GC_ERR_RESOURCE_IN_USE);
    EXPECT_EQ(GCRegisterEvent(Stream(), EVENT_ERROR, nullptr), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(GCRegisterEvent(Stream(), EVENT_ERROR, &event), GC_ERR_SUCCESS);
}

TEST_F(EventsTest, Register_HandleVariableHoldsSomething_IsWritten)
{
    EVENT_HANDLE event = &camera;
    EXPECT_EQ(GCRegisterEvent(Stream(), EVENT_NEW_BUFFER, &event), GC_ERR_SUCCESS);
    EXPECT_EQ(InQueue(event), 0U);
}

TEST_F(EventsTest, Unregister_HandleIsStaleAndKillHarmless)
{
    EVENT_HANDLE event = NewBuffer();
    EXPECT_EQ(GCUnregisterEvent(Stream(), EVENT_NEW_BUFFER), GC_ERR_SUCCESS);
    EXPECT_EQ(EventKill(event), GC_ERR_INVALID_HANDLE);
    EXPECT_EQ(Wait(event, 0), GC_ERR_INVALID_HANDLE);
    EVENT_HANDLE again = Register(Stream(), EVENT_NEW_BUFFER);
    EXPECT_NE(event, again);
    EXPECT_EQ(Wait(again, 0), GC_ERR_TIMEOUT) << "the kill did not reach it";
}

// ---- new buffers

TEST_F(EventsTest, NewBuffer_RecordAndItsInfo_AreHandleAndUserPointer)
{
    uint8_t memory[64];
    int mark = 0;
    BUFFER_HANDLE buffer = nullptr;
    ASSERT_EQ(DSAnnounceBuffer(Stream(), memory, sizeof(memory), &mark, &buffer), GC_ERR_SUCCESS);
    Queue(buffer);
    Start();
    Send();
    const auto record = Record(NewBuffer());
    ASSERT_EQ(record.size(), sizeof(EVENT_NEW_BUFFER_DATA));
    EVENT_NEW_BUFFER_DATA data;
    memcpy(&data, record.data(), sizeof(data));
    EXPECT_EQ(data.BufferHandle, buffer);
    EXPECT_EQ(data.pUserPointer, &mark);
    const Answer id = Data(NewBuffer(), record, EVENT_DATA_ID);
    EXPECT_EQ(id.type, INFO_DATATYPE_PTR);
    EXPECT_EQ(id.As<void*>(), buffer);
    EXPECT_EQ(Data(NewBuffer(), record, EVENT_DATA_VALUE).As<void*>(), &mark);
    EXPECT_EQ(Data(NewBuffer(), record, EVENT_DATA_NUMID).code, GC_ERR_NOT_AVAILABLE);
    EXPECT_EQ(Data(NewBuffer(), record, 3).code, GC_ERR_NOT_IMPLEMENTED);
}

TEST_F(EventsTest, NewBuffer_Info_HasTypeAndValueOfTheStandard)
{
    Prepare(3);
    NewBuffer();
    Start();
    Send(1);
    Send(2);
    EXPECT_EQ(Info(NewBuffer(), EVENT_EVENT_TYPE).type, INFO_DATATYPE_INT32);
    EXPECT_EQ(Info(NewBuffer(), EVENT_EVENT_TYPE).As<int32_t>(), EVENT_NEW_BUFFER);
    EXPECT_EQ(Info(NewBuffer(), EVENT_NUM_IN_QUEUE).type, INFO_DATATYPE_SIZET);
    EXPECT_EQ(InQueue(NewBuffer()), 2U);
    EXPECT_EQ(Info(NewBuffer(), EVENT_NUM_FIRED).type, INFO_DATATYPE_UINT64);
    EXPECT_EQ(Info(NewBuffer(), EVENT_NUM_FIRED).As<uint64_t>(), 2U);
    EXPECT_EQ(Info(NewBuffer(), EVENT_SIZE_MAX).As<size_t>(), sizeof(EVENT_NEW_BUFFER_DATA));
    EXPECT_GE(Info(NewBuffer(), EVENT_INFO_DATA_SIZE_MAX).As<size_t>(), sizeof(void*));
    EXPECT_EQ(Info(NewBuffer(), 5).code, GC_ERR_NOT_IMPLEMENTED);
}

TEST_F(EventsTest, NewBuffer_RegisteredAfterImagesCame_HandsThemOut)
{
    const auto buffers = Prepare(2);
    Start();
    Send(1);
    Send(2);
    EXPECT_EQ(Next(), buffers[0]);
    EXPECT_EQ(Next(), buffers[1]);
}

TEST_F(EventsTest, NewBuffer_Unregistered_ImagesStayForTheNextOne)
{
    const auto buffers = Prepare(2);
    NewBuffer();
    Start();
    Send(1);
    EXPECT_EQ(GCUnregisterEvent(Stream(), EVENT_NEW_BUFFER), GC_ERR_SUCCESS);
    Send(2);
    EVENT_HANDLE event = Register(Stream(), EVENT_NEW_BUFFER);
    EXPECT_EQ(InQueue(event), 2U);
    EXPECT_EQ(Awaiting(), 2U);
}

TEST_F(EventsTest, NewBuffer_Flush_DiscardsTheOutput)
{
    const auto buffers = Prepare(2);
    NewBuffer();
    Start();
    Send(1);
    EXPECT_EQ(EventFlush(NewBuffer()), GC_ERR_SUCCESS);
    EXPECT_EQ(Awaiting(), 0U);
    EXPECT_FALSE(IsQueued(buffers[0]));
}

// ---- getting data

TEST_F(EventsTest, GetData_NullBuffer_DiscardsAnEntry)
{
    Prepare(2);
    NewBuffer();
    Start();
    Send(1);
    Send(2);
    size_t size = 0;
    EXPECT_EQ(EventGetData(NewBuffer(), nullptr, &size, 0), GC_ERR_SUCCESS);
    EXPECT_EQ(size, sizeof(EVENT_NEW_BUFFER_DATA));
    EXPECT_EQ(FrameId(Next()), 2U);
}

TEST_F(EventsTest, GetData_BufferTooSmall_KeepsTheEntry)
{
    Prepare(1);
    NewBuffer();
    Start();
    Send(1);
    uint8_t record[15] = {0x5A};
    size_t size = sizeof(record);
    EXPECT_EQ(EventGetData(NewBuffer(), record, &size, 0), GC_ERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(size, sizeof(EVENT_NEW_BUFFER_DATA));
    EXPECT_EQ(record[0], 0x5A);
    EXPECT_EQ(FrameId(Next()), 1U);
}

TEST_F(EventsTest, GetData_NullSize_IsInvalidParameter)
{
    EXPECT_EQ(EventGetData(NewBuffer(), nullptr, nullptr, 0), GC_ERR_INVALID_PARAMETER);
}

TEST_F(EventsTest, GetData_Timeout_WaitsSoLong)
{
    using namespace std::chrono;
    const auto begin = steady_clock::now();
    EXPECT_EQ(Wait(NewBuffer(), 30), GC_ERR_TIMEOUT);
    EXPECT_GE(steady_clock::now() - begin, milliseconds(30));
    EXPECT_EQ(TheLastError().text, "EventGetData: GC_ERR_TIMEOUT: nothing came in time");
}

// Times that no clock reaches, GENTL_INFINITE among them.
TEST_F(EventsTest, GetData_VeryLongTimeouts_WaitForTheImage)
{
    Prepare(1);
    NewBuffer();
    Start();
    for (const uint64_t timeout : {GENTL_INFINITE, GENTL_INFINITE - 1, UINT64_C(1) << 62}) {
        BUFFER_HANDLE buffer = nullptr;
        std::thread waiter([&] { buffer = Next(timeout); });
        Send(1);
        waiter.join();
        ASSERT_NE(buffer, nullptr);
        Queue(buffer);
    }
}

TEST_F(EventsTest, GetData_SeveralThreads_EachImageGoesToOne)
{
    constexpr int kImages = 300;
    Prepare(4);
    NewBuffer();
    Start();
    std::atomic<int> taken = 0;
    std::vector<std::thread> waiters;
    for (int i = 0; i < 3; ++i) {
        waiters.emplace_back([&] {
            while (taken < kImages) {
                if (const BUFFER_HANDLE buffer = Next(10)) {
                    ++taken;
                    Queue(buffer);
                }
            }
        });
    }
    for (int sent = 0; sent < kImages;) {
        sent += Send() ? 1 : 0;
        std::this_thread::yield();
    }
    for (std::thread& waiter : waiters) {
        waiter.join();
    }
    EXPECT_EQ(taken, kImages);
    EXPECT_EQ(Info(NewBuffer(), EVENT_NUM_FIRED).As<uint64_t>(), uint64_t{kImages});
}

TEST_F(EventsTest, GetDataInfo_ShortRecordOrNull_IsInvalidParameter)
{
    EVENT_HANDLE event = NewBuffer();
    const uint8_t record[64] = {};
    size_t size = 0;
    EXPECT_EQ(EventGetDataInfo(event, record, 15, EVENT_DATA_ID, nullptr, nullptr, &size),
              GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(EventGetDataInfo(event, nullptr, 16, EVENT_DATA_ID, nullptr, nullptr, &size),
              GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(EventGetDataInfo(event, record, 16, EVENT_DATA_ID, nullptr, nullptr, nullptr),
              GC_ERR_INVALID_PARAMETER);
}

// ---- killing

TEST_F(EventsTest, Kill_NobodyWaits_TheNextCallIsAborted)
{
    EXPECT_EQ(EventKill(NewBuffer()), GC_ERR_SUCCESS);
    EXPECT_EQ(EventKill(NewBuffer()), GC_ERR_SUCCESS);
    EXPECT_EQ(Wait(NewBuffer(), 0), GC_ERR_ABORT);
    EXPECT_EQ(Wait(NewBuffer(), 0), GC_ERR_TIMEOUT) << "one is stored";
}

TEST_F(EventsTest, Kill_EntriesWait_ComesFirstAndNoneIsLost)
{
    Prepare(1);
    NewBuffer();
    Start();
    Send(1);
    EXPECT_EQ(EventKill(NewBuffer()), GC_ERR_SUCCESS);
    EXPECT_EQ(Wait(NewBuffer(), 0), GC_ERR_ABORT);
    EXPECT_EQ(FrameId(Next()), 1U);
}

TEST_F(EventsTest, Kill_SomebodyWaits_EndsThatWait)
{
    std::atomic<GC_ERROR> result = 0;
    EVENT_HANDLE event = NewBuffer();
    std::thread waiter([&] { result = Wait(event, GENTL_INFINITE); });
    EXPECT_EQ(EventKill(event), GC_ERR_SUCCESS);
    waiter.join();
    EXPECT_EQ(result, GC_ERR_ABORT);
    EXPECT_EQ(Wait(event, 0), GC_ERR_TIMEOUT);
}

TEST_F(EventsTest, Kill_SeveralWait_EachKillEndsOne)
{
    EVENT_HANDLE event = NewBuffer();
    std::atomic<int> aborted = 0;
    std::vector<std::thread> waiters;
    for (int i = 0; i < 3; ++i) {
        waiters.emplace_back([&] { aborted += Wait(event, GENTL_INFINITE) == GC_ERR_ABORT; });
    }
    for (int i = 1; i <= 3; ++i) {
        EXPECT_EQ(EventKill(event), GC_ERR_SUCCESS);
        while (aborted < i) {
            std::this_thread::yield();
        }
        EXPECT_EQ(aborted, i);
    }
    for (std::thread& waiter : waiters) {
        waiter.join();
    }
}

// ---- ending

TEST_F(EventsTest, Unregister_EndsAllWaits)
{
    EVENT_HANDLE event = NewBuffer();
    std::vector<std::thread> waiters;
    std::atomic<int> ended = 0;
    std::atomic<int> begun = 0;
    for (int i = 0; i < 3; ++i) {
        waiters.emplace_back([&] {
            ++begun;
            const GC_ERROR code = Wait(event, GENTL_INFINITE);
            ended += code == GC_ERR_ABORT || code == GC_ERR_INVALID_HANDLE;
        });
    }
    while (begun < 3) {
        std::this_thread::yield();
    }
    EXPECT_EQ(GCUnregisterEvent(Stream(), EVENT_NEW_BUFFER), GC_ERR_SUCCESS);
    for (std::thread& waiter : waiters) {
        waiter.join();
    }
    EXPECT_EQ(ended, 3);
}

// ---- what the others tell

TEST_F(EventsTest, Error_CameraLeaves_FiresOnTheDevice)
{
    EVENT_HANDLE event = Register(Device(), EVENT_ERROR);
    camera.Leave();
    const auto record = Record(event);
    ASSERT_FALSE(record.empty());
    const Answer code = Data(event, record, EVENT_DATA_ID);
    EXPECT_EQ(code.type, INFO_DATATYPE_INT32);
    EXPECT_EQ(code.As<int32_t>(), GC_ERR_IO);
    EXPECT_NE(Data(event, record, EVENT_DATA_VALUE).Text().find("CAM1"), std::string::npos);
    EXPECT_EQ(Data(event, record, EVENT_DATA_NUMID).code, GC_ERR_NOT_AVAILABLE);
    EXPECT_TRUE(Record(event).empty());
}

TEST_F(EventsTest, Error_TransfersRefusedForGood_FiresOnTheStream)
{
    EVENT_HANDLE event = Register(Stream(), EVENT_ERROR);
    Receiver().Fail(Error(ErrorKind::ResourceExhausted, "usbfs_memory_mb: 17 are needed"));
    const auto record = Record(event);
    ASSERT_FALSE(record.empty());
    EXPECT_EQ(Data(event, record, EVENT_DATA_ID).As<int32_t>(), GC_ERR_RESOURCE_EXHAUSTED);
    EXPECT_EQ(Data(event, record, EVENT_DATA_VALUE).Text(), "usbfs_memory_mb: 17 are needed");
}

TEST_F(EventsTest, Error_VeryLongText_FitsTheLargestRecord)
{
    EVENT_HANDLE event = Register(Stream(), EVENT_ERROR);
    Receiver().Fail(Error(ErrorKind::Io, std::string(5000, 'x')));
    const auto record = Record(event);
    EXPECT_EQ(record.size(), Info(event, EVENT_SIZE_MAX).As<size_t>());
    EXPECT_EQ(Data(event, record, EVENT_DATA_VALUE).Text().find_first_not_of('x'),
              std::string::npos);
}

TEST_F(EventsTest, Error_NobodyRegistered_IsNotKept)
{
    Stream();
    Receiver().Fail(Error(ErrorKind::Io, "x"));
    EXPECT_TRUE(Record(Register(Stream(), EVENT_ERROR)).empty());
}

TEST_F(EventsTest, FeatureInvalidate_ListChanges_NamesTheFeaturesOnce)
{
    EVENT_HANDLE event = Register(Interface(), EVENT_FEATURE_INVALIDATE);
    EXPECT_EQ(InQueue(event), 0U);
    bus.TellChange();
    const size_t names = InQueue(event);
    EXPECT_GT(names, 5U);
    bus.TellChange();
    bus.Plug("CAM2");
    EXPECT_EQ(IFUpdateDeviceList(Interface(), nullptr, GENTL_INFINITE), GC_ERR_SUCCESS);
    EXPECT_EQ(InQueue(event), names) << "an entry that waits is enough";
    std::set<std::string> told;
    for (auto record = Record(event); !record.empty(); record = Record(event)) {
        const Answer name = Data(event, record, EVENT_DATA_ID);
        told.insert(name.Text());
        EXPECT_EQ(Data(event, record, EVENT_DATA_VALUE).code, GC_ERR_NOT_AVAILABLE);
    }
    EXPECT_EQ(told.size(), names);
    EXPECT_TRUE(told.contains("DeviceSelector"));
    EXPECT_TRUE(told.contains("DeviceID"));
}

TEST_F(EventsTest, FeatureInvalidate_UpdateFindsAChange_Fires)
{
    EVENT_HANDLE event = Register(Interface(), EVENT_FEATURE_INVALIDATE);
    EXPECT_EQ(IFUpdateDeviceList(Interface(), nullptr, GENTL_INFINITE), GC_ERR_SUCCESS);
    EXPECT_EQ(InQueue(event), 0U);
    bus.Plug("CAM2");
    EXPECT_EQ(IFUpdateDeviceList(Interface(), nullptr, GENTL_INFINITE), GC_ERR_SUCCESS);
    EXPECT_GT(InQueue(event), 0U);
}

TEST_F(EventsTest, FeatureInvalidate_InterfaceClosed_IsNotTold)
{
    Interface();
    EXPECT_EQ(IFClose(Interface()), GC_ERR_SUCCESS);
    bus.TellChange();
}

TEST_F(EventsTest, RemoteDevice_Event_TellsIdAndBytes)
{
    EVENT_HANDLE event = Register(Device(), EVENT_REMOTE_DEVICE);
    SendRemote(0x90AB, 77);
    const auto record = Record(event);
    ASSERT_EQ(record.size(), 13U);
    EXPECT_EQ(Data(event, record, EVENT_DATA_ID).Text(), "90AB");
    const Answer number = Data(event, record, EVENT_DATA_NUMID);
    EXPECT_EQ(number.type, INFO_DATATYPE_UINT64);
    EXPECT_EQ(number.As<uint64_t>(), 0x90ABU);
    const Answer value = Data(event, record, EVENT_DATA_VALUE);
    EXPECT_EQ(value.type, INFO_DATATYPE_BUFFER);
    EXPECT_EQ(value.bytes, record);
    EXPECT_EQ(value.bytes.back(), 77);
    SendRemote(0x000F, 1);
    EXPECT_EQ(Data(event, Record(event), EVENT_DATA_ID).Text(), "000F");
}

TEST_F(EventsTest, RemoteDevice_Registration_SwitchesTheCamerasEvents)
{
    EXPECT_FALSE(camera.eventListener);
    Register(Device(), EVENT_REMOTE_DEVICE);
    EXPECT_TRUE(camera.eventListener);
    EXPECT_EQ(GCUnregisterEvent(Device(), EVENT_REMOTE_DEVICE), GC_ERR_SUCCESS);
    EXPECT_FALSE(camera.eventListener);
}

TEST_F(EventsTest, RemoteDevice_CameraWithoutEvents_IsNotAvailable)
{
    camera.hasEvents = false;
    EVENT_HANDLE event = nullptr;
    EXPECT_EQ(GCRegisterEvent(Device(), EVENT_REMOTE_DEVICE, &event), GC_ERR_NOT_AVAILABLE);
}

TEST_F(EventsTest, RemoteDevice_CameraRefuses_NothingIsRegistered)
{
    camera.eventsFailure = Error(ErrorKind::Io, "x");
    EVENT_HANDLE event = nullptr;
    EXPECT_EQ(GCRegisterEvent(Device(), EVENT_REMOTE_DEVICE, &event), GC_ERR_IO);
    EXPECT_EQ(event, nullptr);
    camera.eventsFailure.reset();
    event = Register(Device(), EVENT_REMOTE_DEVICE);
    camera.eventsFailure = Error(ErrorKind::Io, "x");
    EXPECT_EQ(GCUnregisterEvent(Device(), EVENT_REMOTE_DEVICE), GC_ERR_SUCCESS);
    EXPECT_EQ(Wait(event, 0), GC_ERR_INVALID_HANDLE);
}

TEST_F(EventsTest, RemoteDevice_Flood_KeepsTheNewest)
{
    EVENT_HANDLE event = Register(Device(), EVENT_REMOTE_DEVICE);
    constexpr uint16_t kSent = 1000;
    for (uint16_t id = 1; id <= kSent; ++id) {
        SendRemote(id, 0);
    }
    const size_t kept = InQueue(event);
    EXPECT_LT(kept, 200U);
    EXPECT_EQ(Info(event, EVENT_NUM_FIRED).As<uint64_t>(), kSent);
    const auto first = Record(event);
    EXPECT_EQ(Data(event, first, EVENT_DATA_NUMID).As<uint64_t>(), kSent - kept + 1);
}

TEST_F(EventsTest, RemoteDevice_EventTooShortForAnId_TellsNothing)
{
    EVENT_HANDLE event = Register(Device(), EVENT_REMOTE_DEVICE);
    camera.SendEvent(1, {0, 0, 1});
    const auto record = Record(event);
    ASSERT_EQ(record.size(), 3U);
    EXPECT_EQ(Data(event, record, EVENT_DATA_ID).code, GC_ERR_INVALID_PARAMETER);
}

TEST_F(EventsTest, Flush_QueuedEvents_AreGone)
{
    EVENT_HANDLE event = Register(Device(), EVENT_REMOTE_DEVICE);
    SendRemote(1, 0);
    SendRemote(2, 0);
    EXPECT_EQ(EventFlush(event), GC_ERR_SUCCESS);
    EXPECT_EQ(InQueue(event), 0U);
    SendRemote(3, 0);
    EXPECT_EQ(Data(event, Record(event), EVENT_DATA_NUMID).As<uint64_t>(), 3U);
}

TEST_F(EventsTest, QueuedEvent_SomebodyWaits_IsWoken)
{
    EVENT_HANDLE event = Register(Device(), EVENT_REMOTE_DEVICE);
    std::atomic<GC_ERROR> result = 1;
    std::thread waiter([&] { result = Wait(event, GENTL_INFINITE); });
    while (result == 1) {
        SendRemote(1, 0);
        std::this_thread::yield();
    }
    waiter.join();
    EXPECT_EQ(result, GC_ERR_SUCCESS);
}

} // namespace
} // namespace standard_tl
