// The control channel: opening, reading, writing, and the camera's description file.

#include "control_fixture.h"
#include "wait.h"
#include "zip_archive.h"

#include <atomic>
#include <chrono>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace {

TEST_F(ControlTest, OpenControl_MakesExactlyTheseTransfers)
{
    ASSERT_EQ(control.OpenControl(), 0);
    const auto journal = usb.Journal();
    EXPECT_THAT(
        journal,
        ElementsAre("kernel_driver_active 3", "claim_interface 3",
                    // ABRM 0x1D8, 8 bytes, before the camera's own time-out is known
                    "bulk ep=0x01 length=24 timeout=3000 data=55 33 56 43 00 40 00 08 14 00 01 00 "
                    "d8 01 00 00 00 00 00 00 00 00 08 00",
                    "bulk ep=0x81 length=20 timeout=3000",
                    // ABRM 0x1CC, 8 bytes
                    "bulk ep=0x01 length=24 timeout=3000 data=55 33 56 43 00 40 00 08 14 00 02 00 "
                    "cc 01 00 00 00 00 00 00 00 00 08 00",
                    "bulk ep=0x81 length=20 timeout=3000",
                    // SBRM 0x14, 0x18, 0x1C, 4 bytes each, with the camera's time-out
                    "bulk ep=0x01 length=24 timeout=500 data=55 33 56 43 00 40 00 08 10 00 03 00 "
                    "14 00 01 00 00 00 00 00 00 00 04 00",
                    "bulk ep=0x81 length=16 timeout=500",
                    "bulk ep=0x01 length=24 timeout=500 data=55 33 56 43 00 40 00 08 10 00 04 00 "
                    "18 00 01 00 00 00 00 00 00 00 04 00",
                    "bulk ep=0x81 length=16 timeout=500",
                    "bulk ep=0x01 length=24 timeout=500 data=55 33 56 43 00 40 00 08 10 00 05 00 "
                    "1c 00 01 00 00 00 00 00 00 00 04 00",
                    "bulk ep=0x81 length=16 timeout=500",
                    // ABRM 0x1C4, 8 bytes
                    "bulk ep=0x01 length=24 timeout=500 data=55 33 56 43 00 40 00 08 14 00 06 00 "
                    "c4 01 00 00 00 00 00 00 00 00 08 00",
                    "bulk ep=0x81 length=20 timeout=500",
                    // zeros to ABRM 0x1E0; the written-length acknowledge is 16 bytes
                    "bulk ep=0x01 length=28 timeout=500 data=55 33 56 43 00 40 02 08 10 00 07 00 "
                    "e0 01 00 00 00 00 00 00 00 00 00 00 00 00 00 00",
                    "bulk ep=0x81 length=16 timeout=500"));
    EXPECT_THAT(log.Lines(),
                ElementsAre(testing::MatchesRegex("\\[DEBUG   \\] OpenControl "
                                                  "m_pDevice->m_pDeviceHandle: 0x[0-9a-f]{8} "),
                            "[DEBUG   ] OpenControl Open control interface successful."));
}

TEST_F(ControlTest, OpenControl_KernelDriverActive_IsDetached)
{
    camera.kernelDriver = 1;
    ASSERT_EQ(control.OpenControl(), 0);
    const auto journal = usb.Journal();
    EXPECT_EQ(journal[1], "detach_kernel_driver 3");
    EXPECT_EQ(journal[2], "claim_interface 3");
}

TEST_F(ControlTest, OpenControl_KernelDriverQueryFails_IsNoReasonToDetach)
{
    camera.kernelDriver = LIBUSB_ERROR_NOT_SUPPORTED;
    ASSERT_EQ(control.OpenControl(), 0);
    EXPECT_EQ(usb.Count("detach"), 0U);
}

TEST_F(ControlTest, OpenControl_ClaimFails_LogsAndStaysClosed)
{
    camera.claimResults[3] = LIBUSB_ERROR_BUSY;
    EXPECT_EQ(control.OpenControl(), 0xC006);
    uint8_t byte = 0;
    EXPECT_EQ(control.ReadMem(0, &byte, 1), 0xC007);
    EXPECT_EQ(log.Lines().back(), "[ERROR   ] OpenControl Can't open/claiming control interface.");
    EXPECT_EQ(usb.Count("bulk"), 0U);
}

TEST_F(ControlTest, OpenControl_DeviceNeverOpened_IsClaimFailedWithoutAnyCall)
{
    U3V_Device closed;
    {
        U3V_Control other(&closed);
        EXPECT_EQ(other.OpenControl(), 0xC006);
    }
    EXPECT_THAT(usb.Journal(), IsEmpty());
}

TEST_F(ControlTest, OpenControl_EachAccessFails_LogsStopsThereAndStaysOpen)
{
    const std::pair<uint64_t, size_t> accesses[] = {
        {0x1D8, 1},        {0x1CC, 2}, {kSbrm + 0x14, 3}, {kSbrm + 0x18, 4},
        {kSbrm + 0x1C, 5}, {0x1C4, 6}, {0x1E0, 7}};
    for (const auto& [address, exchanges] : accesses) {
        const LogCapture lines;
        camera.refusal = {{address, 0x8003}};
        usb.ClearJournal();
        EXPECT_EQ(control.OpenControl(), 0x8003);
        EXPECT_EQ(usb.Count("bulk ep=0x01"), exchanges);
        EXPECT_EQ(lines.Lines().back(), "[ERROR   ] OpenControl Error open control interface.");
        uint8_t byte = 0;
        EXPECT_EQ(control.ReadMem(0x4, &byte, 1), 0);
    }
}

TEST_F(ControlTest, OpenControl_Again_StartsRequestIdsAgain)
{
    Open();
    ASSERT_EQ(control.OpenControl(), 0);
    EXPECT_THAT(usb.Journal("bulk ep=0x01")[0], testing::HasSubstr("08 14 00 01 00 "));
}

TEST_F(ControlTest, OpenControl_WrittenLengthBit_AloneDecidesWhatAWriteAsksFor)
{
    const auto asked = [&](uint64_t bits) {
        camera.memory[0x1C4] = Little(bits, 8);
        EXPECT_EQ(control.OpenControl(), 0);
        const uint8_t byte = 1;
        EXPECT_EQ(control.WriteMem(0x5000, &byte, 1), 0);
        return usb.Journal("bulk ep=0x81").back();
    };
    EXPECT_EQ(asked(0x0800), "bulk ep=0x81 length=16 timeout=500");
    EXPECT_EQ(asked(0xFFFFFFFFFFFFF7FF), "bulk ep=0x81 length=12 timeout=500");
}

TEST_F(ControlTest, OpenControl_WithoutWrittenLength_AsksForTwelveBytes)
{
    camera.memory[0x1C4] = Little(0x7FF, 8);
    ASSERT_EQ(control.OpenControl(), 0);
    EXPECT_EQ(usb.Journal("bulk ep=0x81").back(), "bulk ep=0x81 length=12 timeout=500");
}

TEST_F(ControlTest, StoredValues_AreReported)
{
    uint32_t value = 0;
    EXPECT_EQ(control.MaximumDeviceResponseTime(&value), 0);
    EXPECT_EQ(value, 3000U);
    Open();
    EXPECT_EQ(control.MaximumDeviceResponseTime(&value), 0);
    EXPECT_EQ(value, 500U);
    EXPECT_EQ(control.NumberOfStreamChannels(&value), 0);
    EXPECT_EQ(value, 1U);
    EXPECT_EQ(control.SbrmAddress(), kSbrm);
}

TEST_F(ControlTest, ResponseTimeZero_IsReportedButTransfersUseTheDefault)
{
    camera.memory[0x1CC] = Little(0, 8);
    ASSERT_EQ(control.OpenControl(), 0);
    EXPECT_EQ(usb.Journal("bulk ep=0x81").back(), "bulk ep=0x81 length=16 timeout=3000");
    uint32_t value = 1;
    control.MaximumDeviceResponseTime(&value);
    EXPECT_EQ(value, 0U);
}

TEST_F(ControlTest, ResponseTimeAbsurd_IsReportedButTransfersAreCutTo60s)
{
    camera.memory[0x1CC] = Little(0xFFFFFFFF, 8);
    ASSERT_EQ(control.OpenControl(), 0);
    EXPECT_EQ(usb.Journal("bulk ep=0x81").back(), "bulk ep=0x81 length=16 timeout=60000");
    uint32_t value = 0;
    control.MaximumDeviceResponseTime(&value);
    EXPECT_EQ(value, 0xFFFFFFFFU);
}

TEST_F(ControlTest, Access_BeforeOpen_IsNotOpenWithoutTraffic)
{
    uint8_t byte = 0;
    EXPECT_EQ(control.ReadMem(0, &byte, 1), 0xC007);
    EXPECT_EQ(control.WriteMem(0, &byte, 1), 0xC007);
    EXPECT_EQ(control.ReadMem(0, &byte, -1), 0xC007);
    EXPECT_EQ(control.WriteMemSized(0, nullptr, 5), 0xC007);
    EXPECT_THAT(usb.Journal(), IsEmpty());
}

TEST_F(ControlTest, ReadMem_CopiesTheData)
{
    Open();
    camera.memory[0x123456789ABCDEF0] = {1, 2, 3, 4, 5};
    uint8_t data[6] = {9, 9, 9, 9, 9, 9};
    EXPECT_EQ(control.ReadMem(0x123456789ABCDEF0, data, 5), 0);
    EXPECT_THAT(data, ElementsAre(1, 2, 3, 4, 5, 9));
    EXPECT_THAT(usb.Journal(),
                ElementsAre("bulk ep=0x01 length=24 timeout=500 data=55 33 56 43 00 40 00 08 11 00 "
                            "08 00 f0 de bc 9a 78 56 34 12 00 00 05 00",
                            "bulk ep=0x81 length=17 timeout=500"));
}

TEST_F(ControlTest, ReadMem_LongestAndOneMore)
{
    Open();
    std::vector<uint8_t> data(1013);
    EXPECT_EQ(control.ReadMem(0, data.data(), 1012), 0);
    EXPECT_EQ(usb.Journal().back(), "bulk ep=0x81 length=1024 timeout=500");
    usb.ClearJournal();
    EXPECT_EQ(control.ReadMem(0, data.data(), 1013), 0x8002);
    EXPECT_EQ(control.ReadMem(0, data.data(), -1), 0x8002);
    EXPECT_EQ(control.ReadMem(0, data.data(), INT16_MIN), 0x8002);
    EXPECT_EQ(control.ReadMem(0, nullptr, 1), 0x8002);
    EXPECT_THAT(usb.Journal(), IsEmpty());
    EXPECT_EQ(control.ReadMem(0, data.data(), 1), 0); // the refused ones used up no request id
    EXPECT_THAT(usb.Journal()[0], testing::HasSubstr("0d 00 09 00 "));
}

TEST_F(ControlTest, ReadMem_ZeroBytes_IsAnExchange)
{
    Open();
    EXPECT_EQ(control.ReadMem(0x10, nullptr, 0), 0);
    EXPECT_EQ(usb.Journal().back(), "bulk ep=0x81 length=12 timeout=500");
}

TEST_F(ControlTest, ReadMem_SendFails_ClearsTheOutHalt)
{
    Open();
    camera.sendResults = {LIBUSB_ERROR_PIPE};
    uint8_t byte = 7;
    EXPECT_EQ(control.ReadMem(0, &byte, 1), 0x800B);
    EXPECT_EQ(usb.Journal().back(), "clear_halt ep=0x01");
    EXPECT_EQ(usb.Count("bulk ep=0x81"), 0U);
    EXPECT_EQ(byte, 7);
}

TEST_F(ControlTest, ReadMem_ReceiveFails_ClearsTheInHalt)
{
    Open();
    for (const int error : {LIBUSB_ERROR_TIMEOUT, LIBUSB_ERROR_PIPE, LIBUSB_ERROR_NO_DEVICE}) {
        camera.replies.push_back({error, {}});
        uint8_t byte = 7;
        EXPECT_EQ(control.ReadMem(0, &byte, 1), 0x800B);
        EXPECT_EQ(usb.Journal().back(), "clear_halt ep=0x81");
        EXPECT_EQ(byte, 7);
    }
}

TEST_F(ControlTest, ReadMem_WrongAnswers_AreToldInOrder)
{
    Open();
    struct Row
    {
        Bytes bytes;
        uint16_t status;
    };
    // Each row is wrong in its own way and in every later one.
    const Row rows[] = {
        {Ack(0x8003, 0x0803, 99, {1}, 0x11111111), 0x800E},    // length 1 instead of 2
        {Ack(0x8003, 0x0803, 99, {1, 2}, 0x11111111), 0xC008}, // prefix
        {Ack(0x8003, 0x0803, 99, {1, 2}), 0xC009},             // command id
        {Ack(0x8003, 0x0801, 99, {1, 2}), 0xC00A},             // request id
        {Ack(0x8003, 0x0801, kFirstId + 4, {1, 2}), 0x8003},   // status
        {Ack(0, 0x0801, kFirstId + 5, {1, 2}), 0x0000},
    };
    for (const Row& row : rows) {
        Reply(row.bytes);
        uint8_t data[2] = {7, 7};
        EXPECT_EQ(control.ReadMem(0, data, 2), row.status);
        EXPECT_EQ(data[0], row.status == 0 ? 1 : 7);
    }
}

TEST_F(ControlTest, ReadMem_ShortOrEmptyOrLongAnswers_AreInvalidHeader)
{
    Open();
    uint8_t data[4] = {};
    camera.memory[0] = {1, 2, 3, 4};
    ASSERT_EQ(control.ReadMem(0, data, 4), 0); // leaves a good acknowledge in the buffer
    for (const int received : {0, 5, 11, 12, 15, 17, 1024}) {
        camera.replies.push_back({0, {}, received});
        EXPECT_EQ(control.ReadMem(0, data, 4), 0x800E) << received;
    }
}

TEST_F(ControlTest, ReadMem_PendingAcknowledge_IsNotFollowed)
{
    Open();
    uint8_t data[5] = {};
    Reply(Pending(kFirstId, 100));
    EXPECT_EQ(control.ReadMem(0, data, 4), 0xC009); // as long as the data, so the id tells it
    Reply(Pending(kFirstId + 1, 100));
    EXPECT_EQ(control.ReadMem(0, data, 5), 0x800E);
}

TEST_F(ControlTest, WriteMem_SendsAddressAndData)
{
    Open();
    const uint8_t data[] = {0xDE, 0xAD, 0xBE};
    EXPECT_EQ(control.WriteMem(0x50014, data, 3), 0);
    EXPECT_THAT(usb.Journal(),
                ElementsAre("bulk ep=0x01 length=23 timeout=500 data=55 33 56 43 00 40 02 08 0b 00 "
                            "08 00 14 00 05 00 00 00 00 00 de ad be",
                            "bulk ep=0x81 length=16 timeout=500"));
}

TEST_F(ControlTest, WriteMem_LongestAndOneMore)
{
    Open();
    std::vector<uint8_t> data(1025);
    std::iota(data.begin(), data.end(), uint8_t{1});
    EXPECT_EQ(control.WriteMem(0x100, data.data(), 1024), 0);
    ASSERT_EQ(camera.writes.size(), 1U);
    EXPECT_EQ(camera.writes[0].second, Bytes(data.begin(), data.end() - 1));
    usb.ClearJournal();
    EXPECT_EQ(control.WriteMem(0x100, data.data(), 1025), 0x8002);
    EXPECT_EQ(control.WriteMem(0x100, data.data(), -5), 0x8002);
    EXPECT_EQ(control.WriteMem(0x100, nullptr, 1), 0x8002);
    EXPECT_EQ(control.WriteMemSized(0x100, data.data(), 0x10003), 0x8002);
    EXPECT_THAT(usb.Journal(), IsEmpty());
}

TEST_F(ControlTest, WriteMem_ZeroBytes_IsAnExchange)
{
    Open();
    EXPECT_EQ(control.WriteMem(0x10, nullptr, 0), 0);
    EXPECT_THAT(usb.Journal()[0], testing::HasSubstr("length=20 "));
}

TEST_F(ControlTest, WriteMem_TransfersFail_ClearTheirHalt)
{
    Open();
    const uint8_t byte = 1;
    camera.sendResults = {LIBUSB_ERROR_TIMEOUT};
    EXPECT_EQ(control.WriteMem(0, &byte, 1), 0x800B);
    EXPECT_EQ(usb.Journal().back(), "clear_halt ep=0x01");
    camera.replies.push_back({LIBUSB_ERROR_OVERFLOW, {}});
    EXPECT_EQ(control.WriteMem(0, &byte, 1), 0x800B);
    EXPECT_EQ(usb.Journal().back(), "clear_halt ep=0x81");
}

TEST_F(ControlTest, WriteMem_WrongAnswers_AreToldInOrder)
{
    Open();
    const uint8_t byte = 1;
    const auto write = [&](const Bytes& answer) {
        Reply(answer);
        return control.WriteMem(0, &byte, 1);
    };
    EXPECT_EQ(write(Ack(0x8004, 0x0801, 99, {}, 0x22222222)), 0xC008);
    EXPECT_EQ(write(Ack(0x8004, 0x0801, 99)), 0xC009);
    EXPECT_EQ(write(Ack(0x8004, 0x0803, 99)), 0xC00A);
    EXPECT_EQ(write(Ack(0x8004, 0x0803, kFirstId + 3)), 0x8004);
    EXPECT_EQ(write(Ack(0, 0x0803, kFirstId + 4)), 0);
}

TEST_F(ControlTest, WriteMem_TwoPendingAcks_WaitsEachNewTimeout)
{
    Open();
    const uint8_t byte = 1;
    Reply(Pending(kFirstId, 700));
    Reply(Pending(99, 0x1234)); // the request id of a pending one is not looked at
    Reply(Ack(0, 0x0803, kFirstId));
    EXPECT_EQ(control.WriteMem(0, &byte, 1), 0);
    EXPECT_THAT(usb.Journal("bulk ep=0x81"), ElementsAre("bulk ep=0x81 length=16 timeout=500",
                                                         "bulk ep=0x81 length=16 timeout=700",
                                                         "bulk ep=0x81 length=16 timeout=4660"));
}

TEST_F(ControlTest, WriteMem_PendingWithTimeoutZero_KeepsTheTimeoutBefore)
{
    Open();
    const uint8_t byte = 1;
    Reply(Pending(kFirstId, 700));
    Reply(Pending(kFirstId, 0));
    Reply(Ack(0, 0x0803, kFirstId));
    EXPECT_EQ(control.WriteMem(0, &byte, 1), 0);
    EXPECT_EQ(usb.Journal("bulk ep=0x81").back(), "bulk ep=0x81 length=16 timeout=700");
}

TEST_F(ControlTest, WriteMem_PendingThenSilence_IsATimeout)
{
    Open();
    const uint8_t byte = 1;
    Reply(Pending(kFirstId, 700));
    camera.replies.push_back({LIBUSB_ERROR_TIMEOUT, {}});
    EXPECT_EQ(control.WriteMem(0, &byte, 1), 0x800B);
    EXPECT_EQ(usb.Journal().back(), "clear_halt ep=0x81");
}

TEST_F(ControlTest, WriteMem_EndlessPending_EndsAfterAThousandRounds)
{
    Open();
    const uint8_t byte = 1;
    for (int i = 0; i < 1100; ++i) {
        Reply(Pending(kFirstId, 1));
    }
    EXPECT_EQ(control.WriteMem(0, &byte, 1), 0x800B);
    EXPECT_EQ(usb.Count("bulk ep=0x81"), 1000U);
    camera.replies.clear();
    EXPECT_EQ(control.WriteMem(0, &byte, 1), 0); // the channel is usable afterwards
}

TEST_F(ControlTest, WriteMem_PendingForTooLong_EndsByTheClock)
{
    U3V_ControlLimits limits;
    EXPECT_EQ(limits.pendingTime, 60000U);
    EXPECT_EQ(limits.pendingRounds, 1000U);
    EXPECT_EQ(limits.defaultTimeout, 3000U);
    EXPECT_EQ(limits.maximumTimeout, 60000U);
    limits.pendingTime = 20;
    U3V_Control impatient(&device, limits);
    ASSERT_EQ(impatient.OpenControl(), 0);
    usb.onCall = [] { zr_test::LetPass(std::chrono::milliseconds(8), "the bus is slow"); };
    for (int i = 0; i < 900; ++i) {
        Reply(Pending(kFirstId, 1));
    }
    const uint8_t byte = 1;
    EXPECT_EQ(impatient.WriteMem(0, &byte, 1), 0x800B);
    EXPECT_GT(camera.replies.size(), 800U);
}

TEST_F(ControlTest, Exchanges_FromSeveralThreads_NeverMix)
{
    Open();
    std::vector<std::thread> threads;
    std::atomic<int> wrong = 0;
    for (uint8_t t = 1; t <= 4; ++t) {
        threads.emplace_back([&, t] {
            const uint64_t address = t * 0x1000U;
            const Bytes mine(16, t);
            for (int i = 0; i < 100; ++i) {
                Bytes read(16);
                wrong += control.WriteMem(address, mine.data(), 16) != 0;
                wrong += control.ReadMem(address, read.data(), 16) != 0 || read != mine;
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong, 0);
}

class UnzipTest : public ControlTest
{
protected:
    // Unzips, expecting failure with this text and the slot unchanged.
    void ExpectFailure(const Bytes& stored, const std::string& text)
    {
        control.StoreXmlFile(stored);
        CaptureStdout();
        EXPECT_EQ(control.UnzipXmlFile(), 0xC01D);
        EXPECT_EQ(GetCapturedStdout(), text + "\n");
        EXPECT_EQ(control.XmlFile(), stored);
    }
};

TEST_F(UnzipTest, Archive_IsReplacedByItsFirstMember)
{
    const std::string content = "<RegisterDescription/>" + std::string(5000, ' ');
    control.StoreXmlFile(ZipArchive("camera.xml", content));
    EXPECT_EQ(control.UnzipXmlFile(), 0);
    EXPECT_EQ(control.XmlFile(), Bytes(content.begin(), content.end()));
}

TEST_F(UnzipTest, NothingStored_Fails)
{
    ExpectFailure({}, "mz_zip_reader_init_file() failed!");
}

TEST_F(UnzipTest, ArchiveWithoutMembers_Fails)
{
    ExpectFailure(ZipArchive("", ""), "mz_zip_reader_file_stat() failed!");
}

TEST_F(UnzipTest, DamagedMember_Fails)
{
    Bytes zip = ZipArchive("camera.xml", "<RegisterDescription>some text that is long enough</>");
    for (size_t i = 42; i < 60; ++i) {
        zip[i] ^= 0x5A;
    }
    ExpectFailure(zip, "mz_zip_reader_extract_file_to_heap() failed!");
}

TEST_F(UnzipTest, OpenControl_EmptiesTheSlot)
{
    control.StoreXmlFile({1, 2, 3});
    Open();
    EXPECT_THAT(control.XmlFile(), IsEmpty());
}

} // namespace
