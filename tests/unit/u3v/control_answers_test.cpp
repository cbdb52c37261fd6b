// Answers that come late, twice or for somebody else, and what the channel's end does with them.

#include "control_fixture.h"
#include "wait.h"

#include <chrono>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

TEST_F(ControlTest, ReadMem_StaleAcknowledge_IsNeverParsedAgain)
{
    Open();
    uint8_t data[4] = {};
    camera.memory[0] = {1, 2, 3, 4};
    ASSERT_EQ(control.ReadMem(0, data, 4), 0);
    U3V_ControlProbe::SetRequestId(control, kFirstId - 1);
    camera.replies.push_back({0, {}, 16}); // claims to have received what is not there
    EXPECT_EQ(control.ReadMem(0, data, 4), 0xC008);
}

TEST_F(ControlTest, ReadMem_LateAnswerToAnEarlierCommand_IsReadAway)
{
    Open();
    uint32_t value = 0;
    Reply(Pending(kFirstId, 100)); // refused; the true answer is still to come
    EXPECT_EQ(control.ReadMem(0x100, &value, 4), 0xC009);
    Reply(Ack(0, 0x0801, kFirstId, {1, 1, 1, 1}));
    Reply(Ack(0, 0x0801, kFirstId + 1, {2, 0, 0, 0}));
    EXPECT_EQ(control.ReadMem(0x100, &value, 4), 0);
    EXPECT_EQ(value, 2U);
}

TEST_F(ControlTest, WriteMem_LateAnswerToAnEarlierCommand_IsReadAway)
{
    Open();
    const uint32_t value = 0;
    camera.replies.push_back({LIBUSB_ERROR_TIMEOUT, {}});
    EXPECT_EQ(control.WriteMem(0x100, &value, 4), 0x800B);
    Reply(Ack(0, 0x0803, kFirstId, {0, 0, 4, 0}));
    Reply(Ack(0x8004, 0x0803, kFirstId + 1, {0, 0, 0, 0}));
    EXPECT_EQ(control.WriteMem(0x100, &value, 4), 0x8004);
}

TEST_F(ControlTest, ReadMem_AnswerToTheLastAnsweredCommand_IsAWrongRequestId)
{
    Open();
    uint32_t value = 0;
    Reply(Ack(0, 0x0801, kFirstId - 1, {1, 0, 0, 0})); // answered before: doubled, not late
    EXPECT_EQ(control.ReadMem(0x100, &value, 4), 0xC00A);
}

// A wrong id is a wrong answer, but an answer: the one to the next command may carry the number of
// this one and is no less wrong.
TEST_F(ControlTest, WrongRequestIds_OneAfterTheOther_EachIsAWrongRequestId)
{
    Open();
    uint32_t value = 7;
    uint16_t id = kFirstId;
    for (const bool write : {false, true}) {
        for (const int off : {1, -1, 256, -256, -2, 0x7FFF}) {
            const auto wrong = static_cast<uint16_t>(id++ + off);
            Reply(Ack(0, write ? 0x0803 : 0x0801, wrong, {0, 0, 4, 0}));
            EXPECT_EQ(write ? control.WriteMem(0x100, &value, 4)
                            : control.ReadMem(0x100, &value, 4),
                      0xC00A)
                << (write ? "write " : "read ") << off;
        }
    }
    EXPECT_EQ(value, 7U);
    EXPECT_EQ(usb.Count("bulk ep=0x81"), 12U); // one each: none was read away
}

// Whatever a command takes for its answer, nothing is awaited any more.
TEST_F(ControlTest, AnyAnswer_RightOrWrong_IsTheOnlyOne)
{
    const Bytes four(4);
    const std::pair<const char*, Bytes> answers[] = {
        {"right", Ack(0, 0x0801, kFirstId, four)},
        {"refused without data", Ack(0x8003, 0x0801, kFirstId)},
        {"refused with data", Ack(0x8003, 0x0801, kFirstId, four)},
        {"prefix", Ack(0, 0x0801, kFirstId, four, 0x11111111)},
        {"command id", Ack(0, 0x0803, kFirstId, four)},
        {"request id", Ack(0, 0x0801, 99, four)},
        {"empty", {}},
        {"half a header", {0x55, 0x33, 0x56, 0x43, 0, 0}},
    };
    for (const auto& [name, answer] : answers) {
        Open();
        uint32_t value = 0;
        Reply(answer);
        control.ReadMem(0x100, &value, 4);
        Reply(Ack(0, 0x0801, kFirstId, four));
        EXPECT_EQ(control.ReadMem(0x100, &value, 4), 0xC00A) << name;
    }
}

TEST_F(ControlTest, FailureThatIsNoTimeout_LeavesNothingOutstanding)
{
    for (const int error : {LIBUSB_ERROR_PIPE, LIBUSB_ERROR_OVERFLOW, LIBUSB_ERROR_IO}) {
        for (const bool sending : {false, true}) {
            Open();
            uint32_t value = 0;
            if (sending) {
                camera.sendResults = {error};
            } else {
                camera.replies.push_back({error, {}});
            }
            EXPECT_EQ(control.ReadMem(0x100, &value, 4), 0x800B);
            Reply(Ack(0, 0x0801, kFirstId, {1, 0, 0, 0}));
            EXPECT_EQ(control.ReadMem(0x100, &value, 4), 0xC00A) << error << sending;
        }
    }
}

TEST_F(ControlTest, SeveralTimeouts_EachAnswerIsReadAwayOnceAndInOrder)
{
    Open();
    uint32_t value = 0;
    for (int i = 0; i < 3; ++i) {
        camera.replies.push_back({LIBUSB_ERROR_TIMEOUT, {}});
        EXPECT_EQ(control.ReadMem(0x100, &value, 4), 0x800B);
    }
    Reply(Ack(0, 0x0801, kFirstId + 1, Bytes(4)));
    Reply(Ack(0, 0x0801, kFirstId + 2, Bytes(4)));
    Reply(Ack(0, 0x0801, kFirstId + 3, {4, 0, 0, 0}));
    EXPECT_EQ(control.ReadMem(0x100, &value, 4), 0);
    EXPECT_EQ(value, 4U);
    // With an answer of its own, a command ends all waiting.
    Reply(Ack(0, 0x0801, kFirstId, Bytes(4)));
    EXPECT_EQ(control.ReadMem(0x100, &value, 4), 0xC00A);

    camera.replies.push_back({LIBUSB_ERROR_TIMEOUT, {}});
    EXPECT_EQ(control.ReadMem(0x100, &value, 4), 0x800B);
    camera.replies.push_back({LIBUSB_ERROR_TIMEOUT, {}});
    EXPECT_EQ(control.ReadMem(0x100, &value, 4), 0x800B);
    Reply(Ack(0, 0x0801, kFirstId + 6, Bytes(4)));
    Reply(Ack(0, 0x0801, kFirstId + 5, Bytes(4))); // overtaken: it no longer counts
    EXPECT_EQ(control.ReadMem(0x100, &value, 4), 0xC00A);
}

TEST_F(ControlTest, LateAnswer_AcrossTheWrapOfTheIds_IsReadAway)
{
    Open();
    U3V_ControlProbe::SetRequestId(control, 0xFFFD);
    uint32_t value = 0;
    for (int i = 0; i < 3; ++i) { // 0xFFFE, 0xFFFF, 1
        camera.replies.push_back({LIBUSB_ERROR_TIMEOUT, {}});
        EXPECT_EQ(control.ReadMem(0x100, &value, 4), 0x800B);
    }
    for (const int id : {0xFFFE, 0xFFFF, 1}) {
        Reply(Ack(0, 0x0801, static_cast<uint16_t>(id), Bytes(4)));
    }
    Reply(Ack(0, 0x0801, 2, {2, 0, 0, 0}));
    EXPECT_EQ(control.ReadMem(0x100, &value, 4), 0);
    EXPECT_EQ(value, 2U);
}

TEST_F(ControlTest, WriteMem_PendingThenAnswer_IsNotTakenForALateOne)
{
    Open();
    const uint32_t value = 0;
    camera.replies.push_back({LIBUSB_ERROR_TIMEOUT, {}});
    EXPECT_EQ(control.WriteMem(0x100, &value, 4), 0x800B);
    Reply(Pending(kFirstId + 1, 10));
    Reply(Ack(0, 0x0803, kFirstId, {0, 0, 4, 0}));
    Reply(Ack(0, 0x0803, kFirstId + 1, {0, 0, 4, 0}));
    EXPECT_EQ(control.WriteMem(0x100, &value, 4), 0);
}

TEST_F(ControlTest, ReadMem_EndlessAnswersToEarlierCommands_EndWithAWrongRequestId)
{
    Open();
    uint32_t value = 0;
    camera.replies.push_back({LIBUSB_ERROR_TIMEOUT, {}});
    EXPECT_EQ(control.ReadMem(0x100, &value, 4), 0x800B);
    for (int i = 0; i < 100; ++i) {
        Reply(Ack(0, 0x0805, kFirstId, {0, 0, 1, 0}));
    }
    EXPECT_EQ(control.ReadMem(0x100, &value, 4), 0xC009);
}

TEST_F(ControlTest, ReadMem_SixteenLateAnswers_AreReadAwayButNotMore)
{
    Open();
    uint32_t value = 0;
    camera.replies.push_back({LIBUSB_ERROR_TIMEOUT, {}});
    EXPECT_EQ(control.ReadMem(0x100, &value, 4), 0x800B);
    for (int i = 0; i < 16; ++i) {
        Reply(Pending(kFirstId, 1));
    }
    Reply(Ack(0, 0x0801, kFirstId + 1, {5, 0, 0, 0}));
    EXPECT_EQ(control.ReadMem(0x100, &value, 4), 0);
    EXPECT_EQ(value, 5U);

    camera.replies.push_back({LIBUSB_ERROR_TIMEOUT, {}});
    EXPECT_EQ(control.ReadMem(0x100, &value, 4), 0x800B);
    for (int i = 0; i < 17; ++i) {
        Reply(Pending(kFirstId + 2, 1));
    }
    Reply(Ack(0, 0x0801, kFirstId + 3, {6, 0, 0, 0}));
    EXPECT_EQ(control.ReadMem(0x100, &value, 4), 0xC009);
    EXPECT_EQ(camera.replies.size(), 1U);
}

TEST_F(ControlTest, ReadMem_LateAnswerComesTwice_SecondIsAWrongRequestId)
{
    Open();
    uint32_t value = 0;
    camera.replies.push_back({LIBUSB_ERROR_TIMEOUT, {}});
    EXPECT_EQ(control.ReadMem(0x100, &value, 4), 0x800B);
    Reply(Ack(0, 0x0801, kFirstId, {1, 0, 0, 0}));
    Reply(Ack(0, 0x0801, kFirstId, {1, 0, 0, 0}));
    EXPECT_EQ(control.ReadMem(0x100, &value, 4), 0xC00A);
}

TEST_F(ControlTest, ReadMem_WrongPrefixWithALateId_IsAWrongPrefix)
{
    Open();
    uint32_t value = 0;
    camera.replies.push_back({LIBUSB_ERROR_TIMEOUT, {}});
    EXPECT_EQ(control.ReadMem(0x100, &value, 4), 0x800B);
    Reply(Ack(0, 0x0801, kFirstId, {1, 0, 0, 0}, 0x11111111));
    EXPECT_EQ(control.ReadMem(0x100, &value, 4), 0xC008);
}

TEST_F(ControlTest, ReadMem_LateAnswers_ShareOneTimeout)
{
    Open();
    uint32_t value = 0;
    camera.replies.push_back({LIBUSB_ERROR_TIMEOUT, {}});
    EXPECT_EQ(control.ReadMem(0x100, &value, 4), 0x800B);
    Reply(Ack(0, 0x0801, kFirstId, {1, 0, 0, 0}));
    camera.replies.push_back({LIBUSB_ERROR_TIMEOUT, {}});
    usb.ClearJournal();
    usb.onCall = [] { zr_test::LetPass(std::chrono::milliseconds(300), "the bus is slow"); };
    EXPECT_EQ(control.ReadMem(0x100, &value, 4), 0x800B);
    const auto received = usb.Journal("bulk ep=0x81 length=16 timeout=");
    ASSERT_EQ(received.size(), 2U);
    EXPECT_EQ(received[0], "bulk ep=0x81 length=16 timeout=500");
    const int left = std::stoi(received[1].substr(received[1].rfind('=') + 1));
    EXPECT_GE(left, 1);
    EXPECT_LE(left, 200);
}

TEST_F(ControlTest, OpenControl_Again_ForgetsWhatTheCameraHasAnswered)
{
    Open();
    Reply(Ack(0, 0x0801, 99, Bytes(8))); // would count as late after the seven of the first opening
    EXPECT_EQ(control.OpenControl(), 0xC00A);
}

TEST_F(ControlTest, RequestId_WrapsFromFFFFToOne)
{
    Open();
    U3V_ControlProbe::SetRequestId(control, 0xFFFE);
    uint8_t byte = 0;
    EXPECT_EQ(control.ReadMem(0, &byte, 1), 0);
    EXPECT_EQ(control.ReadMem(0, &byte, 1), 0);
    const auto sent = usb.Journal("bulk ep=0x01");
    EXPECT_THAT(sent[0], testing::HasSubstr(" 0d 00 ff ff "));
    EXPECT_THAT(sent[1], testing::HasSubstr(" 0d 00 01 00 "));
}

TEST_F(ControlTest, WriteMem_ShortAnswer_IsNotCompletedByAnEarlierOne)
{
    Open();
    const uint8_t byte = 1;
    ASSERT_EQ(control.WriteMem(0, &byte, 1), 0);
    U3V_ControlProbe::SetRequestId(control, kFirstId - 1);
    Reply({});
    EXPECT_EQ(control.WriteMem(0, &byte, 1), 0xC008);
    Reply({0x55, 0x33, 0x56, 0x43, 0, 0});
    EXPECT_EQ(control.WriteMem(0, &byte, 1), 0xC009);
}

TEST_F(ControlTest, Destructor_ReleasesStreamEventControlInThisOrder)
{
    {
        U3V_Control other(&device);
    }
    EXPECT_THAT(usb.Journal(),
                ElementsAre("release_interface 2", "release_interface 1", "release_interface 3"));
}

TEST_F(ControlTest, Destructor_AnswerOutstanding_IsReadAwayBeforeTheRelease)
{
    uint32_t value = 0;
    {
        U3V_Control other(&device);
        ASSERT_EQ(other.OpenControl(), 0);
        camera.replies.push_back({LIBUSB_ERROR_TIMEOUT, {}});
        EXPECT_EQ(other.ReadMem(0x100, &value, 4), 0x800B);
        Reply(Pending(kFirstId, 10));
        Reply(Ack(0, 0x0801, kFirstId, {1, 0, 0, 0}));
        Reply(Ack(0, 0x0801, kFirstId, {1, 0, 0, 0})); // beyond what is awaited
        usb.ClearJournal();
    }
    EXPECT_THAT(usb.Journal(),
                ElementsAre("bulk ep=0x81 length=1024 timeout=100",
                            "bulk ep=0x81 length=1024 timeout=100", "release_interface 2",
                            "release_interface 1", "release_interface 3"));
    EXPECT_EQ(camera.replies.size(), 1U);
}

TEST_F(ControlTest, Destructor_CommandAnsweredHoweverWrongly_OnlyReleases)
{
    const Bytes answers[] = {
        Ack(0x8003, 0x0801, kFirstId),
        Ack(0x8003, 0x0801, kFirstId, Bytes(4)),
        Ack(0, 0x0803, kFirstId, Bytes(4)),
        Ack(0, 0x0801, kFirstId + 1, Bytes(4)),
        Ack(0, 0x0801, kFirstId, Bytes(4), 0x11111111),
        {},
    };
    for (const Bytes& answer : answers) {
        {
            U3V_Control other(&device);
            ASSERT_EQ(other.OpenControl(), 0);
            Reply(answer);
            uint32_t value = 0;
            EXPECT_NE(other.ReadMem(0x100, &value, 4), 0);
            usb.ClearJournal();
        }
        EXPECT_THAT(usb.Journal(), ElementsAre("release_interface 2", "release_interface 1",
                                               "release_interface 3"));
    }
}

TEST_F(ControlTest, Destructor_PendingAnswerToARead_IsReadAway)
{
    {
        U3V_Control other(&device);
        ASSERT_EQ(other.OpenControl(), 0);
        Reply(Pending(kFirstId, 100));
        uint32_t value = 0;
        EXPECT_EQ(other.ReadMem(0x100, &value, 4), 0xC009);
        Reply(Ack(0, 0x0801, kFirstId, Bytes(4)));
    }
    EXPECT_THAT(camera.replies, IsEmpty());
}

// Somebody was killed within an exchange: one opening finds the answer, the next one works.
TEST_F(ControlTest, OpenControl_AnswerLeftBySomebodyElse_FailsOnceOnly)
{
    camera.answers.push_back({0, Ack(0, 0x0801, 99, Bytes(8))});
    {
        U3V_Control first(&device);
        EXPECT_EQ(first.OpenControl(), 0xC00A);
    }
    U3V_Control second(&device);
    EXPECT_EQ(second.OpenControl(), 0);

    camera.answers.push_back({0, Ack(0, 0x0803, 99, {0, 0, 4, 0})}); // of another length
    {
        U3V_Control first(&device);
        EXPECT_EQ(first.OpenControl(), 0x800E);
    }
    U3V_Control third(&device);
    EXPECT_EQ(third.OpenControl(), 0);
}

TEST_F(ControlTest, Destructor_AnswerNeverComes_IsAwaitedOnce)
{
    uint32_t value = 0;
    {
        U3V_Control other(&device);
        ASSERT_EQ(other.OpenControl(), 0);
        camera.replies.push_back({LIBUSB_ERROR_TIMEOUT, {}});
        EXPECT_EQ(other.ReadMem(0x100, &value, 4), 0x800B);
        usb.ClearJournal();
    }
    EXPECT_EQ(usb.Count("bulk"), 1U);
    EXPECT_EQ(usb.Count("release_interface"), 3U);
}

TEST_F(ControlTest, Destructor_EndlessAnswers_AreNotReadForEver)
{
    uint32_t value = 0;
    {
        U3V_Control other(&device);
        ASSERT_EQ(other.OpenControl(), 0);
        camera.replies.push_back({LIBUSB_ERROR_TIMEOUT, {}});
        EXPECT_EQ(other.ReadMem(0x100, &value, 4), 0x800B);
        for (int i = 0; i < 100; ++i) {
            Reply(Ack(0, 0x0801, 99, {1, 0, 0, 0}));
        }
        usb.ClearJournal();
    }
    EXPECT_EQ(usb.Count("bulk"), 16U);
}

TEST_F(ControlTest, Destructor_EverythingAnswered_ReadsNothing)
{
    {
        U3V_Control other(&device);
        ASSERT_EQ(other.OpenControl(), 0);
        usb.ClearJournal();
    }
    EXPECT_EQ(usb.Count("bulk"), 0U);
}

TEST_F(ControlTest, Destructor_InterfaceZero_IsNeverReleased)
{
    device.ControlInterface = 0;
    device.EventInterface = 0;
    {
        U3V_Control other(&device);
    }
    EXPECT_THAT(usb.Journal(), ElementsAre("release_interface 2"));
}

} // namespace
