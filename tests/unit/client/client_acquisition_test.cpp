#include "client_console.h"
#include "wait.h"
#include "zr_client.h"

#include <chrono>
#include <thread>

namespace {

using Calls = std::vector<std::string>;

Calls StartCalls()
{
    Calls calls{"GCRegisterEvent stream 1", "GCReadPort remote 0x5000C 4",
                "GCWritePort remote 0x501EC 4 0x0", "GCWritePort remote 0x501F0 4 0x0"};
    for (int i = 0; i < 10; ++i) {
        calls.push_back("DSAnnounceBuffer 64");
        calls.push_back("DSQueueBuffer");
    }
    calls.insert(calls.end(), {"DSFlushQueue 2", "DSStartAcquisition 0 0xFFFFFFFFFFFFFFFF",
                               "GCWritePort remote 0x50014 4 0x1"});
    return calls;
}

Calls StopCalls()
{
    Calls calls{"EventKill",
                "DSFlushQueue 4",
                "GCUnregisterEvent 1",
                "DSStopAcquisition 0",
                "GCWritePort remote 0x50014 4 0x0",
                "DSFlushQueue 0",
                "DSFlushQueue 1"};
    for (int i = 0; i < 10; ++i) {
        calls.push_back("DSGetBufferID 0");
        calls.push_back("DSRevokeBuffer");
    }
    calls.push_back("DSGetBufferID 0");
    return calls;
}

class ClientAcquisition : public ClientTest
{
protected:
    void SetUp() override
    {
        ClientTest::SetUp();
        Fake().numbers = {{"BUF 16", 42},
                          {"BUF 0", 0xBEEF00},
                          {"BUF 10", 640},
                          {"BUF 11", 480},
                          {"BUF 3", 123456789012}};
    }
    void TearDown() override
    {
        if (ImageAcquisitionIsStarted()) {
            Stop();
        }
        ReleaseAcquisitionBuffers();
        ClientTest::TearDown();
    }

    static std::string Start()
    {
        return RunConsole("", [] { ImageAcquisitionStart(FakeStream(), FakeRemotePort()); });
    }
    static std::string Stop()
    {
        return RunConsole("", [] { ImageAcquisitionStop(FakeStream(), FakeRemotePort()); });
    }
    // Start and stop in one, with `meanwhile` between, so that the thread's lines are captured too.
    static std::string Run(const std::function<void()>& meanwhile)
    {
        return RunConsole("", [&] {
            ImageAcquisitionStart(FakeStream(), FakeRemotePort());
            meanwhile();
            ImageAcquisitionStop(FakeStream(), FakeRemotePort());
        });
    }
    static bool Has(const std::string& text, const std::string& part)
    {
        return text.find(part) != std::string::npos;
    }
};

const char kFrame[] = "tImage Received FrameId:42 Info Ptr:0x0xbeef00 Width:640 Height:480\n"
                      "Timestamp: 123456789012\n"
                      "===GCReadPort FB_BUFFER_PUT_COUNT :-1003 value:0\n"
                      "===GCReadPort FB_BUFFER_GET_COUNT:-1003 value:0\n"
                      "===GCReadPort FB_DISCARD_COUNT:-1003 value:0\n"
                      "------------------------------------------\n";

} // namespace

TEST_F(ClientAcquisition, StartAndStop_CallsInOrder)
{
    Run([] {});
    Calls expected = StartCalls();
    const Calls stop = StopCalls();
    expected.insert(expected.end(), stop.begin(), stop.end());
    EXPECT_EQ(Fake().MainCalls(), expected);
    EXPECT_EQ(Fake().Announced(), 0U);
    EXPECT_FALSE(Acq_thread_is_running);
}

TEST_F(ClientAcquisition, StartAndStop_PrintTheirSuccess)
{
    const std::string text = Run([] {});
    // Lines of the thread may stand between those of the main thread while both run.
    EXPECT_TRUE(Has(text, ":ImageAcquisitionStart DSStartAcquisition Successful!\n"));
    EXPECT_TRUE(Has(text, ":ImageAcquisitionStart GCWritePort 0x50014 Status:0\n"));
    EXPECT_TRUE(Has(text, "ImageAcquisitionThread AcquisitionThread End \n"
                          ":ImageAcquisitionStop DSStopAcquisition Successful!\n"
                          ":ImageAcquisitionStop GCWritePort 0x50014 Status:0\n"));
}

TEST_F(ClientAcquisition, Start_ThreadWaitsForBuffersBeforeTheStreamStarts)
{
    Fake().hooks["DSFlushQueue 2"] = [] {
        EXPECT_TRUE(Acq_thread_is_running);
        EXPECT_TRUE(Fake().WaitFor("EventGetData 1000", 1));
    };
    Run([] {});
    EXPECT_EQ(Fake().Count("DSFlushQueue 2"), 1U);
}

TEST_F(ClientAcquisition, Stop_ThreadHasEndedBeforeTheEventIsKilled)
{
    size_t waits = 0;
    Fake().hooks["EventKill"] = [&] {
        EXPECT_FALSE(Acq_thread_is_running);
        waits = Fake().Count("EventGetData 1000");
    };
    Run([] { EXPECT_TRUE(Fake().WaitFor("EventGetData 1000", 2)); });
    EXPECT_GE(waits, 2U);
    EXPECT_EQ(Fake().Count("EventGetData 1000"), waits);
}

TEST_F(ClientAcquisition, StartTwiceStopTwice_EachRoundIsComplete)
{
    Run([] {});
    Run([] {});
    EXPECT_EQ(Fake().Count("DSAnnounceBuffer 64"), 20U);
    EXPECT_EQ(Fake().Announced(), 0U);
}

TEST_F(ClientAcquisition, Start_WhileRunning_IsRefusedAndDoesNotDisturb)
{
    const std::string text = Run([] {
        ImageAcquisitionStart(FakeStream(), FakeRemotePort());
        EXPECT_TRUE(Acq_thread_is_running);
        EXPECT_EQ(Fake().Announced(), 10U);
    });
    EXPECT_TRUE(Has(text, ":ImageAcquisitionStart GCRegisterEvent failed!:-1004\n"));
}

TEST_F(ClientAcquisition, RegisterFails_NothingElseHappens)
{
    Fake().failures["GCRegisterEvent"] = GC_ERR_NOT_IMPLEMENTED;
    EXPECT_EQ(Start(), ":ImageAcquisitionStart GCRegisterEvent failed!:-1003\n");
    EXPECT_EQ(Fake().Calls(), Calls{"GCRegisterEvent stream 1"});
    EXPECT_FALSE(ImageAcquisitionIsStarted());
}

TEST_F(ClientAcquisition, AnnounceFails_IsPrintedForEachAndCountsTowardsTen)
{
    Fake().failures["DSAnnounceBuffer"] = GC_ERR_BUSY;
    const std::string text = Run([] {});
    for (int i = 0; i < 10; ++i) {
        EXPECT_TRUE(Has(text, ":ImageAcquisitionStart ZrStreamAnnounceBuffer[" + std::to_string(i) +
                                  "] Failed!:-1022\n"));
    }
    EXPECT_EQ(Fake().Count("DSAnnounceBuffer 64"), 10U);
    EXPECT_EQ(Fake().Count("DSQueueBuffer"), 0U);
    EXPECT_EQ(Fake().Count("DSFlushQueue 2"), 1U);
}

TEST_F(ClientAcquisition, PayloadSizeZeroOrUnreadable_NoBufferIsAnnounced)
{
    Fake().payloadSize = 0;
    EXPECT_TRUE(Has(Run([] {}), "ZrStreamAnnounceBuffer[9] Failed!:-1009\n"));
    Fake().payloadSize = 64;
    Fake().failures["GCReadPort remote 0x5000C 4"] = GC_ERR_IO;
    EXPECT_TRUE(Has(Run([] {}), "ZrStreamAnnounceBuffer[9] Failed!:-1009\n"));
    EXPECT_EQ(Fake().Announced(), 0U);
    EXPECT_EQ(Fake().Count("DSQueueBuffer"), 0U);
}

TEST_F(ClientAcquisition, PayloadSizeAbsurd_NoMemoryIsAskedFor)
{
    Fake().payloadSize = 0xFFFFFFFF;
    EXPECT_TRUE(Has(Run([] {}), "ZrStreamAnnounceBuffer[0] Failed!:-1021\n"));
    EXPECT_EQ(Fake().Announced(), 0U);
}

TEST_F(ClientAcquisition, StartFails_IsPrintedAndTheCameraIsNotStarted)
{
    Fake().failures["DSStartAcquisition"] = GC_ERR_INVALID_BUFFER;
    const std::string text = Run([] {});
    EXPECT_TRUE(Has(text, ":ImageAcquisitionStart DSStartAcquisition failed!:-1013\n"));
    EXPECT_EQ(Fake().Count("GCWritePort remote 0x50014 4 0x1"), 0U);
    EXPECT_EQ(Fake().Count("GCWritePort remote 0x50014 4 0x0"), 1U);
}

TEST_F(ClientAcquisition, CameraRefusesTheStartRegister_StatusIsPrinted)
{
    Fake().failures["GCWritePort remote 0x50014 4 0x1"] = GC_ERR_IO;
    EXPECT_TRUE(Has(Start(), ":ImageAcquisitionStart GCWritePort 0x50014 Status:-1010\n"));
}

TEST_F(ClientAcquisition, StopFailures_AreAllPrintedAndTheStopGoesOn)
{
    Fake().failures = {{"EventKill", GC_ERR_ERROR},
                       {"DSFlushQueue 4", GC_ERR_IO},
                       {"DSStopAcquisition", GC_ERR_ERROR},
                       {"GCWritePort remote 0x50014 4 0x0", GC_ERR_IO}};
    Start();
    EXPECT_TRUE(Stop().ends_with("ImageAcquisitionThread AcquisitionThread End \n"
                                 ":ImageAcquisitionStop EventKill failed!:-1001\n"
                                 ":ImageAcquisitionStop DSFlushQueue failed!:-1010\n"
                                 ":ImageAcquisitionStop DSStopAcquisition failed!:-1001\n"
                                 ":ImageAcquisitionStop GCWritePort 0x50014 Status:-1010\n"));
    EXPECT_EQ(Fake().Announced(), 0U);
}

TEST_F(ClientAcquisition, StopWithoutStart_GoesThroughItsSteps)
{
    EXPECT_EQ(Stop(), ":ImageAcquisitionStop EventKill failed!:-1006\n"
                      ":ImageAcquisitionStop DSStopAcquisition Successful!\n"
                      ":ImageAcquisitionStop GCWritePort 0x50014 Status:0\n");
}

TEST_F(ClientAcquisition, RevokeFails_MemoryStaysUntilTheDeviceIsClosed)
{
    Start();
    Fake().failures["DSRevokeBuffer"] = GC_ERR_BUSY;
    Stop();
    EXPECT_EQ(Fake().Announced(), 10U);
    EXPECT_EQ(Fake().Count("DSRevokeBuffer"), 10U);
    Fake().failures.clear();
    Stop(); // writes to the memory while it revokes: must still be there
    EXPECT_EQ(Fake().Announced(), 0U);
}

TEST_F(ClientAcquisition, NewBuffer_IsReportedAndQueuedAgain)
{
    Fake().frames = 3;
    const std::string text = Run([] { EXPECT_TRUE(Fake().WaitFor("DSQueueBuffer", 13)); });
    size_t count = 0;
    for (size_t at = text.find(kFrame); at != std::string::npos; at = text.find(kFrame, at + 1)) {
        ++count;
    }
    EXPECT_EQ(count, 3U);
    EXPECT_EQ(Fake().Count("GCReadPort stream 0x80010040 4"), 3U);
    EXPECT_EQ(Fake().Count("GCReadPort stream 0x80010048 4"), 3U);
    EXPECT_EQ(Fake().Count("GCReadPort stream 0x51378 4"), 3U);
}

TEST_F(ClientAcquisition, NewBuffer_FrameIdBeyond32Bits_IsCutAndTheTimestampIsNot)
{
    Fake().frames = 1;
    Fake().numbers["BUF 16"] = 0x100012345;
    Fake().numbers["BUF 3"] = 0x7FFFFFFFFFFFFFFF;
    const std::string text = Run([] { EXPECT_TRUE(Fake().WaitFor("DSQueueBuffer", 11)); });
    EXPECT_TRUE(Has(text, "tImage Received FrameId:74565 Info Ptr:"));
    EXPECT_TRUE(Has(text, "\nTimestamp: 9223372036854775807\n"));
}

TEST_F(ClientAcquisition, BufferInfoFails_IsPrintedAndTheBufferIsStillQueuedAgain)
{
    Fake().frames = 1;
    Fake().failures["DSGetBufferInfo 10"] = GC_ERR_NO_DATA;
    const std::string text = Run([] { EXPECT_TRUE(Fake().WaitFor("DSQueueBuffer", 11)); });
    EXPECT_TRUE(Has(text, ":ImageAcquisitionThread ZrStreamBufferGetInfo Failed!:-1008\n"));
    EXPECT_TRUE(Has(text, "GetBufferInfo Failed! Error:\n"));
    EXPECT_TRUE(Has(text, "ZrStreamBufferGetInfo Failed! Error:\n"));
    EXPECT_FALSE(Has(text, "tImage Received"));
}

TEST_F(ClientAcquisition, NoImage_TimeOutIsPrinted)
{
    const std::string text = Run([] { EXPECT_TRUE(Fake().WaitFor("EventGetData 1000", 2)); });
    EXPECT_TRUE(Has(text, "ZrStreamWaitForNewBuffer Failed! EventGetData \n"
                          ":ImageAcquisitionThread ZrStreamWaitForNewBuffer TIMEOUT\n"));
}

TEST_F(ClientAcquisition, EventFailsAtOnce_ThreadDoesNotSpin)
{
    Fake().failures["EventGetData"] = GC_ERR_ABORT;
    std::chrono::milliseconds passed{};
    const std::string text = Run([&passed] {
        passed = zr_test::LetPass(std::chrono::milliseconds(250), "a few calls, not thousands");
    });
    EXPECT_LE(Fake().Count("EventGetData 1000"), 2 + static_cast<size_t>(passed.count()) / 25);
    EXPECT_FALSE(Has(text, "TIMEOUT"));
}

TEST_F(ClientAcquisition, MenuLeftWhileRunning_AcquisitionIsStopped)
{
    Fake().endless = true;
    for (const char* input : {"1\n3\n", "1\n"}) {
        const std::string text =
            RunConsole(input, [] { OpenDataStreamMenu(FakeStream(), FakeRemotePort()); });
        EXPECT_TRUE(Has(text, ":ImageAcquisitionStop DSStopAcquisition Successful!\n"));
        EXPECT_FALSE(ImageAcquisitionIsStarted());
    }
    EXPECT_EQ(Fake().Count("DSStopAcquisition 0"), 2U);
}

TEST_F(ClientAcquisition, MenuStop_IsNotRepeatedOnLeaving)
{
    const std::string text =
        RunConsole("123", [] { OpenDataStreamMenu(FakeStream(), FakeRemotePort()); });
    EXPECT_EQ(Fake().Count("DSStopAcquisition 0"), 1U);
    EXPECT_TRUE(text.starts_with("1.Start Acquisition\n2.Stop Acquisition\n3.Exit\n"));
}

TEST_F(ClientAcquisition, BufferInfo_NullArguments_AreRefused)
{
    _ZR_BUFFER_INFO info{};
    BUFFER_HANDLE buffer = &info;
    EXPECT_EQ(RunConsole("",
                         [&] {
                             EXPECT_EQ(GetBufferInfo(nullptr, buffer, &info), -1009);
                             EXPECT_EQ(GetBufferInfo(FakeStream(), nullptr, &info), -1009);
                             EXPECT_EQ(GetBufferInfo(FakeStream(), buffer, nullptr), -1009);
                             EXPECT_EQ(ZrStreamBufferGetInfo(nullptr, buffer, &info), -1009);
                             EXPECT_EQ(ZrStreamBufferGetInfo(FakeStream(), nullptr, &info), -1009);
                             EXPECT_EQ(ZrStreamBufferGetInfo(FakeStream(), buffer, nullptr), -1009);
                         }),
              "GetBufferInfo Failed! Invalid Parameter\n"
              "GetBufferInfo Failed! Invalid Parameter\n"
              "GetBufferInfo Failed! Invalid Parameter\n"
              "ZrStreamBufferGetInfo Failed! Invalid Parameter\n"
              "ZrStreamBufferGetInfo Failed! Invalid Parameter\n"
              "ZrStreamBufferGetInfo Failed! Invalid Parameter\n");
    EXPECT_TRUE(Fake().Calls().empty());
}

TEST_F(ClientAcquisition, BufferInfo_AnyQueryFails_ItsStatusIsReturned)
{
    for (const char* command : {"16", "0", "10", "11", "3"}) {
        Fake().failures = {{std::string("DSGetBufferInfo ") + command, GC_ERR_NO_DATA}};
        _ZR_BUFFER_INFO info{};
        BUFFER_HANDLE buffer = &info;
        EXPECT_EQ(
            RunConsole(
                "", [&] { EXPECT_EQ(GetBufferInfo(FakeStream(), buffer, &info), GC_ERR_NO_DATA); }),
            "GetBufferInfo Failed! Error:\n")
            << command;
    }
}

TEST_F(ClientAcquisition, EventThread_ReportsSuccessAndFailureUntilItsFlagIsCleared)
{
    Fake().frames = 1;
    BUFFER_HANDLE handle = nullptr;
    char memory[4];
    Fake().Announce(memory, sizeof(memory), &handle);
    Fake().Queue(handle);
    const std::string text = RunConsole("", [] {
        Event_thread_is_running = true;
        std::thread reader(EventThread, FakeEvent());
        EXPECT_TRUE(Fake().WaitFor("EventGetData 1000", 3));
        Event_thread_is_running = false;
        reader.join();
    });
    EXPECT_TRUE(text.starts_with("EventThread EventThread running...\n"
                                 "EventThread EventGetData Successful!\n"
                                 "EventGetData Failed! Error:-1011\n"));
    EXPECT_TRUE(text.ends_with("EventThread EventThread exiting...\n"));
}
