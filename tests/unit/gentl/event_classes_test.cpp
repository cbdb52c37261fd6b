// What each type of event carries.

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <ostream>
#include <string>
#include <vector>

#include "event_fixture.h"
#include "test_module.h"
#include "zr_gentl_buffer.h"
#include "zr_gentl_event_types.h"

namespace {

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
struct EventAnswer
{
    GC_ERROR status = 1;
    int32_t type = 0;
    std::string bytes;
    bool operator==(const EventAnswer&) const = default;
};

std::ostream& operator<<(std::ostream& out, const EventAnswer& answer)
{
    return out << answer.status << " type " << answer.type << " "
               << testing::PrintToString(answer.bytes);
}

EventAnswer Ask(const EventPtr& event, const std::string& record, int32_t cmd)
{
    EventAnswer answer;
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
    EXPECT_EQ(Ask(event, record, 0), (EventAnswer{0, 5, "\x0F\xFC\xFF\xFF"}));
    EXPECT_EQ(Ask(event, record, 1), (EventAnswer{0, 1, "bad parameter" + kNul}));
}

TEST(EventError, GetDataInfo_TextWithoutEnd_IsBounded)
{
    const EventPtr event = Make(EVENT_ERROR);
    EXPECT_EQ(Ask(event, std::string(1028, 'y'), 1),
              (EventAnswer{0, 1, std::string(1024, 'y') + kNul}));
}

TEST(EventRemoteDevice, GetDataInfo_IdAsEightDigitsAndData)
{
    const EventPtr event = Make(EVENT_REMOTE_DEVICE);
    const std::string data(540, 'd');
    const std::string record = std::string("\xEF\xBE\xAD\xDE", 4) + "ss" + data;
    EXPECT_EQ(Ask(event, record, 0), (EventAnswer{0, 1, "deadbeef" + kNul}));
    EXPECT_EQ(Ask(event, record, 1), (EventAnswer{0, 13, data}));
    EXPECT_EQ(Ask(event, std::string("\x0A\0\0\0", 4), 0), (EventAnswer{0, 1, "0000000a" + kNul}));
}

TEST(EventModule, GetDataInfo_IdOnly)
{
    const EventPtr event = Make(EVENT_MODULE);
    const std::string record = std::string("\x2C\x01\0\0", 4) + std::string(1028, 'd');
    EXPECT_EQ(Ask(event, record, 0), (EventAnswer{0, 1, "0000012c" + kNul}));
    EXPECT_EQ(Ask(event, record, 1).status, -1003);
}

TEST(EventDeviceConnection, GetDataInfo_ValueAndText)
{
    const EventPtr event = Make(ZR_EVENT_DEVICE_CONNECTION);
    std::string record("\x02\0\0\0cam", 7);
    record.resize(260);
    EXPECT_EQ(Ask(event, record, 0), (EventAnswer{0, 5, std::string("\x02\0\0\0", 4)}));
    EXPECT_EQ(Ask(event, record, 1), (EventAnswer{0, 1, "cam" + kNul}));
    EXPECT_EQ(Ask(event, std::string(260, 'y'), 1),
              (EventAnswer{0, 1, std::string(256, 'y') + kNul}));
}

TEST(EventDSAcquisition, GetDataInfo_ValueAndBytes)
{
    const EventPtr event = Make(ZR_EVENT_DS_ACQUISITION);
    const std::string data(28, 'q');
    const std::string record = std::string("\x01\0\0\0", 4) + data;
    EXPECT_EQ(Ask(event, record, 0), (EventAnswer{0, 5, std::string("\x01\0\0\0", 4)}));
    EXPECT_EQ(Ask(event, record, 1), (EventAnswer{0, 13, data}));
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

} // namespace
