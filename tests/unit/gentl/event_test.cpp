#include "zr_gentl_event.h"

#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <list>
#include <memory>
#include <ostream>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "test_module.h"
#include "wait.h"
#include "zr_gentl_buffer.h"
#include "zr_gentl_event_types.h"

namespace {

using namespace std::chrono_literals;

struct Destroyer
{
    void operator()(ZrGenTLEvent* event) const { ZrGenTLEvent::Destroy(event); }
};
using EventPtr = std::unique_ptr<ZrGenTLEvent, Destroyer>;

EventPtr Make(int32_t type)
{
    return EventPtr(ZrGenTLEvent::Create(type));
}

// A record of `size` bytes, all different from each other and from zero.
std::vector<uint8_t> Pattern(size_t size)
{
    std::vector<uint8_t> bytes(size);
    for (size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<uint8_t>(i % 251 + 1);
    }
    return bytes;
}

struct ClassRow
{
    int32_t type;
    size_t sizeMax;
    size_t infoMax;
};
constexpr ClassRow kClasses[] = {{0, 1028, 1024}, {1, 16, 8},       {4, 546, 540},
                                 {5, 1032, 1024}, {4000, 260, 256}, {5000, 32, 28}};

// --- queue -----------------------------------------------------------------------------------

TEST(EventDataQueue, Entries_ComeOutInOrder)
{
    ZrGenTLEventDataQueue queue;
    int a = 0;
    int b = 0;
    EXPECT_EQ(queue.GetFront(true), nullptr);
    queue.Add(&a);
    queue.Add(&b);
    EXPECT_EQ(queue.GetSize(), 2u);
    EXPECT_EQ(queue.GetFront(false), &a);
    EXPECT_EQ(queue.GetFront(true), &a);
    EXPECT_EQ(queue.GetFront(true), &b);
    EXPECT_EQ(queue.GetSize(), 0u);
}

TEST(EventDataQueue, Copy_IsASnapshot_Clear_Empties_Remove_TakesAllOccurrences)
{
    ZrGenTLEventDataQueue queue;
    int a = 0;
    int b = 0;
    for (int* entry : {&a, &b, &a}) {
        queue.Add(entry);
    }
    const auto copy = queue.Copy();
    EXPECT_EQ(copy, (std::vector<void*>{&a, &b, &a}));
    queue.Remove(&a);
    EXPECT_EQ(queue.Copy(), (std::vector<void*>{&b}));
    queue.Clear();
    EXPECT_EQ(queue.GetSize(), 0u);
    EXPECT_EQ(copy.size(), 3u);
}

TEST(EventDataQueue, Reserve_AnyNumberWaiting_KeepsThemInOrder)
{
    ZrGenTLEventDataQueue queue;
    std::vector<int> values(100);
    for (int& value : values) {
        queue.Reserve();
        queue.Reserve(); // without an Add in between it is the same room
        queue.Add(&value);
    }
    ASSERT_EQ(queue.GetSize(), values.size());
    for (int& value : values) {
        EXPECT_EQ(queue.GetFront(true), &value);
    }
}

// --- base ------------------------------------------------------------------------------------

// Notes the entries that are taken.
class ProbeEvent final : public ZrGenTLEvent
{
public:
    ProbeEvent() : ZrGenTLEvent(EVENT_NEW_BUFFER) {}
    std::vector<void*> taken;

private:
    void DoEventGetData(void* entry, void* /*buffer*/, size_t* /*size*/) override
    {
        taken.push_back(entry);
    }
    GC_ERROR DoEventGetDataInfo(const void* /*data*/, int32_t /*cmd*/, int32_t* /*type*/,
                                void* /*buffer*/, size_t* /*size*/) override
    {
        return GC_ERR_NOT_IMPLEMENTED;
    }
};

TEST(Event, VirtualOperations_AreTheFirstThreeSlots_AndThereIsNoVirtualDestructor)
{
    struct Access : ZrGenTLEvent
    {
        using ZrGenTLEvent::ZrGenTLEvent;
        static size_t GetData() { return SlotOf(&Access::DoEventGetData); }
        static size_t GetDataInfo() { return SlotOf(&Access::DoEventGetDataInfo); }
        static size_t FlushEntry() { return SlotOf(&Access::DoFlushEntry); }

    protected:
        ~Access() = default;
    };
    EXPECT_EQ(Access::GetData(), 0u);
    EXPECT_EQ(Access::GetDataInfo(), 1u);
    EXPECT_EQ(Access::FlushEntry(), 2u);
    EXPECT_FALSE(std::has_virtual_destructor_v<ZrGenTLEventNewBuffer>);
}

TEST(Event, Create_KnownTypes_HaveTheirSizes)
{
    for (const auto& row : kClasses) {
        const EventPtr event = Make(row.type);
        ASSERT_NE(event, nullptr) << row.type;
        EXPECT_EQ(event->GetType(), row.type);
        int32_t type = 0;
        size_t value = 0;
        size_t size = sizeof value;
        EXPECT_EQ(event->GetInfo(3, &type, &value, &size), 0);
        EXPECT_EQ(type, 12);
        EXPECT_EQ(value, row.sizeMax);
        EXPECT_EQ(event->GetInfo(4, &type, &value, &size), 0);
        EXPECT_EQ(type, 12);
        EXPECT_EQ(value, row.infoMax);
    }
    for (const int32_t other : {-1, 2, 3, 6, 1000, 3999, 4001, 5001}) {
        EXPECT_EQ(ZrGenTLEvent::Create(other), nullptr) << other;
    }
    ZrGenTLEvent::Destroy(nullptr);
}

TEST(Event, GetData_NullSize_IsInvalidParameter)
{
    const EventPtr event = Make(EVENT_NEW_BUFFER);
    char buffer[16];
    EXPECT_EQ(event->GetData(buffer, nullptr, 0), -1009);
    EXPECT_EQ(event->GetData(nullptr, nullptr, 0), -1009);
}

TEST(Event, GetData_BufferTooSmall_TellsTheSizeForEveryClass)
{
    std::vector<char> buffer(2000);
    for (const auto& row : kClasses) {
        const EventPtr event = Make(row.type);
        size_t size = row.sizeMax - 1;
        EXPECT_EQ(event->GetData(buffer.data(), &size, 10'000), -1016);
        EXPECT_EQ(size, row.sizeMax);
        EXPECT_EQ(event->GetData(buffer.data(), &size, 0), -1011);
        size = 0;
        EXPECT_EQ(event->GetData(nullptr, &size, 0), -1011); // no buffer needs no room
        EXPECT_EQ(size, 0u);
    }
}

TEST(Event, GetData_EmptyQueue_TimesOut)
{
    const EventPtr event = Make(EVENT_NEW_BUFFER);
    char buffer[16];
    size_t size = sizeof buffer;
    EXPECT_EQ(event->GetData(buffer, &size, 0), -1011);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(event->GetData(buffer, &size, 30), -1011);
    EXPECT_GE(std::chrono::steady_clock::now() - start, 25ms);
}

TEST(Event, GetData_TimeoutBeyond32Bits_CountsWithItsLowBits)
{
    const EventPtr event = Make(EVENT_NEW_BUFFER);
    size_t size = 0;
    const auto start = std::chrono::steady_clock::now();
    for (const uint64_t timeout :
         {GENTL_INFINITE, uint64_t{0xFFFFFFFF}, uint64_t{0x100000000}, uint64_t{0x80000000}}) {
        EXPECT_EQ(event->GetData(nullptr, &size, timeout), -1011);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, 1s);
}

TEST(Event, GetData_TwoEntries_AreTakenInOrderThenTimesOut)
{
    ProbeEvent event;
    int a = 0;
    int b = 0;
    event.Signal(&a);
    event.Signal(&b);
    EXPECT_EQ(event.GetNumInQueue(), 2u);
    size_t size = 77;
    EXPECT_EQ(event.GetData(nullptr, &size, 0), 0);
    EXPECT_EQ(event.GetData(nullptr, &size, 0), 0);
    EXPECT_EQ(event.GetData(nullptr, &size, 0), -1011);
    EXPECT_EQ(event.taken, (std::vector<void*>{&a, &b}));
    EXPECT_EQ(size, 77u); // never updated
}

TEST(Event, GetData_SignalWhileWaiting_WakesUp)
{
    ProbeEvent event;
    int a = 0;
    zr_test::WatchedThread consumer([&] {
        size_t size = 0;
        EXPECT_EQ(event.GetData(nullptr, &size, 60'000), 0);
    });
    EXPECT_TRUE(consumer.UntilAsleep());
    EXPECT_FALSE(consumer.HasEnded());
    event.Signal(&a);
    consumer.Join();
    EXPECT_EQ(event.taken.size(), 1u);
}

TEST(Event, Kill_EntriesQueued_GetDataAbortsAtOnceUntilFlush)
{
    ProbeEvent event;
    int a = 0;
    event.Signal(&a);
    EXPECT_EQ(event.Kill(), 0);
    size_t size = 0;
    EXPECT_EQ(event.GetData(nullptr, &size, 10'000), -1012);
    EXPECT_EQ(event.GetData(nullptr, &size, 10'000), -1012);
    EXPECT_TRUE(event.taken.empty());
    EXPECT_EQ(event.Flush(), 0);
    EXPECT_EQ(event.GetNumInQueue(), 0u);
    EXPECT_EQ(event.GetData(nullptr, &size, 0), -1011);
    event.Signal(&a);
    EXPECT_EQ(event.GetData(nullptr, &size, 0), 0);
}

TEST(Event, Kill_ManyWaiters_AllAbort)
{
    ProbeEvent event;
    std::list<zr_test::WatchedThread> waiters;
    std::atomic<int> aborted{0};
    for (int i = 0; i < 4; ++i) {
        waiters.emplace_back([&] {
            size_t size = 0;
            aborted += event.GetData(nullptr, &size, 60'000) == -1012;
        });
    }
    for (const auto& waiter : waiters) {
        EXPECT_TRUE(waiter.UntilAsleep());
    }
    event.Kill();
    waiters.clear();
    EXPECT_EQ(aborted, 4);
}

// What a buffer's revocation counts on once its event has left the stream: nobody touches entries.
TEST(Event, Close_EntriesQueued_ForgetsThemAndTakesNoMore)
{
    ProbeEvent event;
    int a = 0;
    event.Signal(&a);
    event.Close();
    EXPECT_EQ(event.GetNumInQueue(), 0u);
    event.Signal(&a);
    EXPECT_EQ(event.GetNumInQueue(), 0u);
    EXPECT_EQ(event.Flush(), 0); // does not bring it back to life
    size_t size = 0;
    EXPECT_EQ(event.GetData(nullptr, &size, 10'000), -1012);
    EXPECT_TRUE(event.taken.empty());
}

TEST(Event, RemoveEntry_TakesEveryOccurrence)
{
    ProbeEvent event;
    int a = 0;
    int b = 0;
    for (int* entry : {&a, &b, &a}) {
        event.Signal(entry);
    }
    event.RemoveEntry(&a);
    size_t size = 0;
    EXPECT_EQ(event.GetData(nullptr, &size, 0), 0);
    EXPECT_EQ(event.taken, (std::vector<void*>{&b}));
}

TEST(Event, RemoveEntry_LastOne_ClearsTheSignal)
{
    ProbeEvent event;
    int a = 0;
    event.Signal(&a);
    event.RemoveEntry(&a);
    size_t size = 0;
    EXPECT_EQ(event.GetData(nullptr, &size, 0), -1011);
}

TEST(Event, RemoveEntry_Killed_StaysKilled)
{
    ProbeEvent event;
    event.Kill();
    event.RemoveEntry(&event);
    size_t size = 0;
    EXPECT_EQ(event.GetData(nullptr, &size, 0), -1012);
}

TEST(Event, GetInfo_TypeAndCount)
{
    const EventPtr event = Make(EVENT_REMOTE_DEVICE);
    int32_t type = 0;
    int32_t value = 0;
    size_t size = sizeof value;
    EXPECT_EQ(event->GetInfo(0, &type, &value, &size), 0);
    EXPECT_EQ(type, 5);
    EXPECT_EQ(value, 4);
    EXPECT_EQ(size, 4u);
    int entry = 0;
    event->Signal(&entry);
    event->Signal(&entry);
    size_t count = 0;
    size = sizeof count;
    EXPECT_EQ(event->GetInfo(1, &type, &count, &size), 0);
    EXPECT_EQ(type, 12);
    EXPECT_EQ(count, 2u);
}

TEST(Event, GetInfo_NumFiredAndOthers_AreNotImplementedButTheBufferIsCleared)
{
    const EventPtr event = Make(EVENT_NEW_BUFFER);
    for (const int32_t cmd : {2, 5, -1, 1000}) {
        int32_t type = 0;
        char buffer[4] = {1, 2, 3, 4};
        size_t size = 3;
        EXPECT_EQ(event->GetInfo(cmd, &type, buffer, &size), -1003) << cmd;
        EXPECT_EQ(std::string(buffer, 4), std::string("\0\0\0\4", 4));
    }
}

TEST(Event, GetInfo_NullTypeOrSize_IsInvalidParameter)
{
    const EventPtr event = Make(EVENT_NEW_BUFFER);
    int32_t type = 0;
    char buffer[8] = {1};
    size_t size = 8;
    EXPECT_EQ(event->GetInfo(0, nullptr, buffer, &size), -1009);
    EXPECT_EQ(event->GetInfo(0, &type, buffer, nullptr), -1009);
    EXPECT_EQ(buffer[0], 1);
    EXPECT_EQ(event->GetInfo(0, &type, nullptr, &size), 0);
    EXPECT_EQ(size, 4u);
    EXPECT_EQ(event->GetInfo(0, &type, buffer, &(size = 3)), -1016);
}

TEST(Event, GetDataInfo_NullArguments)
{
    const EventPtr event = Make(EVENT_NEW_BUFFER);
    const auto data = Pattern(16);
    int32_t type = 0;
    char buffer[8] = {1};
    size_t size = 8;
    EXPECT_EQ(event->GetDataInfo(data.data(), 16, 0, nullptr, buffer, &size), -1009);
    EXPECT_EQ(event->GetDataInfo(data.data(), 16, 0, &type, buffer, nullptr), -1009);
    EXPECT_EQ(event->GetDataInfo(nullptr, 16, 0, nullptr, buffer, &size), -1009);
    EXPECT_EQ(event->GetDataInfo(nullptr, 16, 0, &type, buffer, &size), -1006);
    EXPECT_EQ(buffer[0], 1);
}

TEST(Event, GetDataInfo_OtherCommands_AreNotImplementedForEveryClass)
{
    for (const auto& row : kClasses) {
        const EventPtr event = Make(row.type);
        const auto data = Pattern(row.sizeMax);
        for (const int32_t cmd : {2, 3, -1, 1000}) {
            int32_t type = 0;
            char buffer[2] = {1, 1};
            size_t size = 1;
            EXPECT_EQ(event->GetDataInfo(data.data(), data.size(), cmd, &type, buffer, &size),
                      -1003);
            EXPECT_EQ(buffer[0], 0); // cleared
            EXPECT_EQ(buffer[1], 1);
        }
    }
}

TEST(Event, GetDataInfo_SizeZero_ReadsTheClassesWholeRecord)
{
    for (const auto& row : kClasses) {
        const EventPtr event = Make(row.type);
        const auto data = Pattern(row.sizeMax);
        for (const int32_t cmd : {0, 1}) {
            int32_t types[2] = {};
            std::string answers[2] = {std::string(2000, 'x'), std::string(2000, 'x')};
            size_t sizes[2] = {2000, 2000};
            EXPECT_EQ(
                event->GetDataInfo(data.data(), 0, cmd, &types[0], answers[0].data(), &sizes[0]),
                event->GetDataInfo(data.data(), data.size(), cmd, &types[1], answers[1].data(),
                                   &sizes[1]));
            EXPECT_EQ(types[0], types[1]);
            EXPECT_EQ(sizes[0], sizes[1]);
            EXPECT_TRUE(answers[0] == answers[1]);
        }
    }
}

TEST(Event, GetDataInfo_ShortRecord_ReadsNothingBeyondIt)
{
    for (const auto& row : kClasses) {
        const EventPtr event = Make(row.type);
        for (size_t length = 1; length < 9; ++length) {
            // The heap block ends with the record: ASan sees a byte too many.
            const auto data = Pattern(length + 1);
            const auto exact = std::make_unique<uint8_t[]>(length);
            std::copy(data.begin(), data.begin() + static_cast<std::ptrdiff_t>(length),
                      exact.get());
            for (const int32_t cmd : {0, 1}) {
                int32_t type = 0;
                std::vector<char> buffer(2000);
                size_t size = buffer.size();
                event->GetDataInfo(exact.get(), length, cmd, &type, buffer.data(), &size);
            }
        }
    }
}

// --- classes ---------------------------------------------------------------------------------

class RecordEventTest : public testing::TestWithParam<ClassRow>
{
};

TEST_P(RecordEventTest, GetData_CopiesTheWholeEntryAndNoMore)
{
    const EventPtr event = Make(GetParam().type);
    auto entry = Pattern(GetParam().sizeMax);
    event->Signal(entry.data());
    std::vector<uint8_t> buffer(GetParam().sizeMax + 1, 0);
    size_t size = buffer.size();
    EXPECT_EQ(event->GetData(buffer.data(), &size, 0), 0);
    EXPECT_EQ(size, buffer.size());
    EXPECT_TRUE(std::equal(entry.begin(), entry.end(), buffer.begin()));
    EXPECT_EQ(buffer.back(), 0);
}

TEST_P(RecordEventTest, GetData_NullBuffer_TakesTheEntryUnseen)
{
    const EventPtr event = Make(GetParam().type);
    auto entry = Pattern(GetParam().sizeMax);
    event->Signal(entry.data());
    size_t size = 0;
    EXPECT_EQ(event->GetData(nullptr, &size, 0), 0);
    EXPECT_EQ(event->GetNumInQueue(), 0u);
}

TEST_P(RecordEventTest, Flush_DropsEntriesWithoutTouchingThem)
{
    const EventPtr event = Make(GetParam().type);
    event->Signal(nullptr);
    event->Signal(reinterpret_cast<void*>(8)); // would fault if it were followed
    EXPECT_EQ(event->Flush(), 0);
    EXPECT_EQ(event->GetNumInQueue(), 0u);
}

INSTANTIATE_TEST_SUITE_P(AllButNewBuffer, RecordEventTest,
                         testing::Values(kClasses[0], kClasses[2], kClasses[3], kClasses[4],
                                         kClasses[5]));

// Asks `event` about `record` and gives type, status and the answer's bytes.
struct Answer
{
    GC_ERROR status = 1;
    int32_t type = 0;
    std::string bytes;
    bool operator==(const Answer&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Answer& answer)
{
    return out << answer.status << " type " << answer.type << " "
               << testing::PrintToString(answer.bytes);
}

Answer Ask(const EventPtr& event, const std::string& record, int32_t cmd)
{
    Answer answer;
    std::string buffer(2000, 'x');
    size_t size = buffer.size();
    // One byte off: the consumer's copy may lie anywhere.
    const std::string shifted = "_" + record;
    answer.status = event->GetDataInfo(shifted.data() + 1, record.size(), cmd, &answer.type,
                                       buffer.data(), &size);
    if (answer.status == 0) {
        answer.bytes = buffer.substr(0, size);
    }
    return answer;
}

const std::string kNul(1, '\0');

TEST(EventError, GetDataInfo_CodeAndText)
{
    const EventPtr event = Make(EVENT_ERROR);
    std::string record("\x0F\xFC\xFF\xFF" // -1009
                       "bad parameter",
                       17);
    record.resize(1028);
    EXPECT_EQ(Ask(event, record, 0), (Answer{0, 5, "\x0F\xFC\xFF\xFF"}));
    EXPECT_EQ(Ask(event, record, 1), (Answer{0, 1, "bad parameter" + kNul}));
}

TEST(EventError, GetDataInfo_TextWithoutEnd_IsBounded)
{
    const EventPtr event = Make(EVENT_ERROR);
    EXPECT_EQ(Ask(event, std::string(1028, 'y'), 1), (Answer{0, 1, std::string(1024, 'y') + kNul}));
}

TEST(EventRemoteDevice, GetDataInfo_IdAsEightDigitsAndData)
{
    const EventPtr event = Make(EVENT_REMOTE_DEVICE);
    const std::string data(540, 'd');
    const std::string record = std::string("\xEF\xBE\xAD\xDE", 4) + "ss" + data;
    EXPECT_EQ(Ask(event, record, 0), (Answer{0, 1, "deadbeef" + kNul}));
    EXPECT_EQ(Ask(event, record, 1), (Answer{0, 13, data}));
    EXPECT_EQ(Ask(event, std::string("\x0A\0\0\0", 4), 0), (Answer{0, 1, "0000000a" + kNul}));
}

TEST(EventModule, GetDataInfo_IdOnly)
{
    const EventPtr event = Make(EVENT_MODULE);
    const std::string record = std::string("\x2C\x01\0\0", 4) + std::string(1028, 'd');
    EXPECT_EQ(Ask(event, record, 0), (Answer{0, 1, "0000012c" + kNul}));
    EXPECT_EQ(Ask(event, record, 1).status, -1003);
}

TEST(EventDeviceConnection, GetDataInfo_ValueAndText)
{
    const EventPtr event = Make(ZR_EVENT_DEVICE_CONNECTION);
    std::string record("\x02\0\0\0cam", 7);
    record.resize(260);
    EXPECT_EQ(Ask(event, record, 0), (Answer{0, 5, std::string("\x02\0\0\0", 4)}));
    EXPECT_EQ(Ask(event, record, 1), (Answer{0, 1, "cam" + kNul}));
    EXPECT_EQ(Ask(event, std::string(260, 'y'), 1), (Answer{0, 1, std::string(256, 'y') + kNul}));
}

TEST(EventDSAcquisition, GetDataInfo_ValueAndBytes)
{
    const EventPtr event = Make(ZR_EVENT_DS_ACQUISITION);
    const std::string data(28, 'q');
    const std::string record = std::string("\x01\0\0\0", 4) + data;
    EXPECT_EQ(Ask(event, record, 0), (Answer{0, 5, std::string("\x01\0\0\0", 4)}));
    EXPECT_EQ(Ask(event, record, 1), (Answer{0, 13, data}));
}

class NewBufferTest : public testing::Test
{
protected:
    NewBufferTest()
    {
        for (auto* buffer : {&first, &second}) {
            buffer->SetQueueFlag(true);
            event->Signal(buffer);
        }
    }
    char memory[4] = {};
    int user = 0;
    ZrGenTLBuffer first{memory, 4, false, &user, nullptr};
    ZrGenTLBuffer second{memory, 4, false, nullptr, nullptr};
    EventPtr event = Make(EVENT_NEW_BUFFER);
};

TEST_F(NewBufferTest, GetData_FifteenBytes_IsTooSmallAndTakesNothing)
{
    char data[16];
    size_t size = 15;
    EXPECT_EQ(event->GetData(data, &size, 0), -1016);
    EXPECT_EQ(size, 16u);
    EXPECT_EQ(event->GetNumInQueue(), 2u);
}

TEST_F(NewBufferTest, GetData_WritesHandleAndUserPointerAndClearsTheQueuedFlag)
{
    char storage[18];
    memset(storage, 'x', sizeof storage);
    size_t size = 16;
    EXPECT_EQ(event->GetData(storage + 1, &size, 0), 0);
    void* pointers[2];
    memcpy(pointers, storage + 1, sizeof pointers);
    EXPECT_EQ(pointers[0], &first);
    EXPECT_EQ(pointers[1], &user);
    EXPECT_EQ(storage[17], 'x');
    EXPECT_FALSE(first.IsQueued());
    EXPECT_TRUE(second.IsQueued());
}

TEST_F(NewBufferTest, GetData_NullBuffer_TakesTheEntryAndLeavesTheQueuedFlag)
{
    size_t size = 0;
    EXPECT_EQ(event->GetData(nullptr, &size, 0), 0);
    EXPECT_EQ(event->GetNumInQueue(), 1u);
    EXPECT_TRUE(first.IsQueued());
}

TEST_F(NewBufferTest, Flush_ClearsTheQueuedFlagOfEachEntry)
{
    EXPECT_EQ(event->Flush(), 0);
    EXPECT_FALSE(first.IsQueued());
    EXPECT_FALSE(second.IsQueued());
    size_t size = 0;
    EXPECT_EQ(event->GetData(nullptr, &size, 0), -1011);
}

TEST_F(NewBufferTest, GetDataInfo_HandleAndUserPointer)
{
    char data[16];
    size_t size = 16;
    ASSERT_EQ(event->GetData(data, &size, 0), 0);
    int32_t type = 0;
    void* pointer = nullptr;
    size = sizeof pointer;
    EXPECT_EQ(event->GetDataInfo(data, 16, 0, &type, &pointer, &size), 0);
    EXPECT_EQ(type, 10);
    EXPECT_EQ(pointer, &first);
    EXPECT_EQ(event->GetDataInfo(data, 16, 1, &type, &pointer, &size), 0);
    EXPECT_EQ(type, 10);
    EXPECT_EQ(pointer, &user);
}

TEST_F(NewBufferTest, Destroy_EntriesStillQueued_LeavesTheBuffers)
{
    event.reset();
    EXPECT_TRUE(first.IsQueued());
}

// --- threads ---------------------------------------------------------------------------------

TEST(EventThreads, ManyProducersAndConsumers_EveryEntryIsTakenOnce)
{
    // A lost wake-up would leave a consumer asleep with an entry in the queue.
    constexpr size_t kEntries = 2000;
    std::vector<_ZR_EVENT_DS_ACQUISITION_DATA> entries(kEntries);
    for (size_t i = 0; i < kEntries; ++i) {
        entries[i].value = static_cast<int32_t>(i);
    }
    const EventPtr event = Make(ZR_EVENT_DS_ACQUISITION);
    std::vector<std::atomic<int>> seen(kEntries);
    std::atomic<size_t> taken{0};
    std::vector<std::thread> threads;
    for (int c = 0; c < 3; ++c) {
        threads.emplace_back([&] {
            while (taken < kEntries) {
                _ZR_EVENT_DS_ACQUISITION_DATA data{};
                data.value = -1;
                size_t size = sizeof data;
                const GC_ERROR status = event->GetData(&data, &size, 200);
                // A wake-up may find the queue emptied by another consumer: success without data.
                if (status == 0 && data.value >= 0) {
                    ++seen[static_cast<size_t>(data.value)];
                    ++taken;
                }
            }
        });
    }
    for (size_t p = 0; p < 2; ++p) {
        threads.emplace_back([&, p] {
            for (size_t i = p; i < kEntries; i += 2) {
                event->Signal(&entries[i]);
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    for (size_t i = 0; i < kEntries; ++i) {
        EXPECT_EQ(seen[i], 1) << i;
    }
    EXPECT_EQ(event->GetNumInQueue(), 0u);
}

// A consumer that is there before its wake-up: the wake-up must not end its next wait.
TEST(EventThreads, Signal_ConsumerAsFastAsTheProducer_EveryWaitBringsAnEntry)
{
    constexpr int kEntries = 30'000;
    constexpr int kAhead = 4;
    ProbeEvent event;
    std::atomic<int> taken{0};
    std::thread producer([&] {
        int entry = 0;
        for (int i = 0; i < kEntries; ++i) {
            while (i - taken >= kAhead) {
                std::this_thread::yield();
            }
            event.Signal(&entry);
        }
        while (taken < kEntries) {
            std::this_thread::yield();
        }
    });
    int failures = 0;
    while (taken < kEntries) {
        size_t size = 0;
        if (event.GetData(nullptr, &size, 60'000) == 0) {
            ++taken;
        } else {
            ++failures;
        }
    }
    producer.join();
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(event.taken.size(), static_cast<size_t>(kEntries));
}

TEST(EventThreads, RemoveEntry_WhileConsumersTake_LeavesNoUseOfTheEntry)
{
    const EventPtr event = Make(EVENT_NEW_BUFFER);
    std::atomic<bool> stop{false};
    std::vector<std::thread> consumers;
    for (int i = 0; i < 2; ++i) {
        consumers.emplace_back([&] {
            while (!stop) {
                char data[16];
                size_t size = sizeof data;
                event->GetData(data, &size, 1);
            }
        });
    }
    for (int i = 0; i < 500; ++i) {
        auto buffer = std::make_unique<ZrGenTLBuffer>(nullptr, 1, true, nullptr, nullptr);
        event->Signal(buffer.get());
        event->RemoveEntry(buffer.get());
        buffer.reset(); // ASan sees a consumer that still uses it
    }
    stop = true;
    for (auto& consumer : consumers) {
        consumer.join();
    }
}

TEST(EventThreads, Destroy_WaitersAndFlushersInside_ReleasesAllOfThem)
{
    for (int round = 0; round < 30; ++round) {
        ZrGenTLEvent* const event = ZrGenTLEvent::Create(EVENT_NEW_BUFFER);
        std::vector<std::thread> users;
        std::atomic<int> entered{0};
        std::atomic<int> aborted{0};
        for (int i = 0; i < 3; ++i) {
            users.emplace_back([&] {
                auto pinned = Pinned<ZrGenTLEvent>::TryPin(event);
                ++entered;
                size_t size = 0;
                aborted += pinned->GetData(nullptr, &size, 60'000) == -1012;
            });
        }
        std::atomic<bool> stop{false};
        users.emplace_back([&] {
            auto pinned = Pinned<ZrGenTLEvent>::TryPin(event);
            ++entered;
            while (!stop) {
                pinned->Flush(); // would bring a waiter back to life
            }
        });
        while (entered < 4) {
            std::this_thread::yield();
        }
        std::thread destroyer([&] { ZrGenTLEvent::Destroy(event); });
        for (size_t i = 0; i < 3; ++i) {
            users[i].join();
        }
        stop = true;
        users[3].join();
        destroyer.join();
        EXPECT_EQ(aborted, 3);
    }
}

} // namespace
