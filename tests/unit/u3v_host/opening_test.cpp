#include <array>
#include <csignal>
#include <libusb.h>
#include <sys/wait.h>
#include <unistd.h>

#include "bus_camera.h"
#include "stream_receiver.h"
#include "wakeup.h"

namespace u3v_host {
namespace {

constexpr uint64_t kSirmControl = 0x20004;
constexpr uint64_t kUserDefinedName = 0x184;
const std::string kId = "120900000001";

class Opening : public BusTest
{
protected:
    static vusb_live_objects Live()
    {
        vusb_live_objects live{};
        vusb_get_live_objects(&live);
        return live;
    }
    // The kind of failure, and that nothing is left of the attempt.
    Error FailureToOpen()
    {
        List().Update(In(kLong));
        const std::string id = List().Cameras().at(0)->id;
        const Error error = Failure([&] { List().Open(id, OpenMode::ReadWrite); });
        EXPECT_EQ(Live().handles, 0U);
        EXPECT_EQ(Live().transfers, 0U);
        EXPECT_NE(List().Access(id), AccessStatus::OpenReadWrite);
        return error;
    }
    static uint32_t ReadRegister(Camera& camera, uint64_t address)
    {
        std::array<uint8_t, 4> bytes{};
        size_t done = 0;
        camera.Read(address, bytes, done);
        return static_cast<uint32_t>(bytes[0] | bytes[1] << 8 | bytes[2] << 16 | bytes[3] << 24);
    }
    static void WriteText(Camera& camera, uint64_t address, const std::string& text)
    {
        std::vector<uint8_t> bytes(text.begin(), text.end());
        bytes.resize(64);
        size_t done = 0;
        camera.Write(address, bytes, done);
    }
};

TEST_F(Opening, Open_ListedCamera_TellsWhatItsRegistersSay)
{
    const vusb::Camera camera("strict=1,vendor=Maker,model=Eye,user=Left,events=1");
    const auto opened = OpenOnly();
    EXPECT_EQ(ReadRegister(*opened, 0x50000), 640U);
    EXPECT_EQ(opened->Mode(), OpenMode::ReadWrite);
    EXPECT_EQ(opened->NumStreams(), 1U);
    EXPECT_EQ(opened->PayloadSize(), camera.PayloadSize());
    EXPECT_FALSE(opened->IsGone());
    const CameraInfo info = opened->Info();
    EXPECT_EQ(info.id, kId);
    EXPECT_EQ(info.vendor, "Maker");
    EXPECT_EQ(info.model, "Eye");
    EXPECT_EQ(info.userDefinedName, "Left");
}

TEST_F(Opening, Open_IdInOtherCase_FindsTheCamera)
{
    const vusb::Camera camera("guid=2AB000000001");
    List().Update(In(kLong));
    EXPECT_EQ(List().Open("2ab000000001", OpenMode::ReadWrite)->Info().id, "2AB000000001");
}

TEST_F(Opening, Speed_OfTheLink_IsTheSignallingRate)
{
    const vusb::Camera camera;
    EXPECT_EQ(OpenOnly()->Speed(), 625'000'000U);
}

TEST_F(Opening, Speed_HighSpeedLink_IsTheSignallingRate)
{
    const vusb::Camera camera("high-speed=1");
    EXPECT_EQ(OpenOnly()->Speed(), 60'000'000U);
}

TEST_F(Opening, Open_KernelDriverAttached_IsDetachedAndGivenBackAtClose)
{
    const vusb::Camera camera("faults=kernel-driver");
    {
        const auto opened = OpenOnly();
        EXPECT_EQ(ReadRegister(*opened, 0x50000), 640U);
    }
    // Whoever claims without detaching is told that the driver is back.
    libusb_context* context = nullptr;
    libusb_init(&context);
    libusb_device_handle* handle = libusb_open_device_with_vid_pid(context, 0x1209, 1);
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(libusb_kernel_driver_active(handle, 0), 1);
    EXPECT_EQ(libusb_kernel_driver_active(handle, 2), 1);
    libusb_close(handle);
    libusb_exit(context);
}

TEST_F(Opening, Open_Everything_ClaimsControlEventAndStream)
{
    const vusb::Camera camera("events=1");
    const auto opened = OpenOnly();
    EXPECT_EQ(vusb_call_count("libusb_claim_interface"), 3U);
    EXPECT_EQ(vusb_call_count("libusb_clear_halt"), 4U);
}

TEST_F(Opening, Close_AfterOpen_ReleasesEverything)
{
    const vusb::Camera camera("events=1");
    OpenOnly();
    EXPECT_EQ(vusb_call_count("libusb_release_interface"), 3U);
    EXPECT_EQ(Live().handles, 0U);
    EXPECT_EQ(Live().transfers, 0U);
}

TEST_F(Opening, Open_Again_WorksAnyNumberOfTimes)
{
    const vusb::Camera camera;
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(ReadRegister(*OpenOnly(), 0x50000), 640U);
    }
}

// ---- failures are told apart

TEST_F(Opening, Open_NoCameraHasTheId_IsAnInvalidId)
{
    const vusb::Camera camera;
    List().Update(In(kLong));
    const Error error = Failure([this] { List().Open("120900000002", OpenMode::ReadWrite); });
    EXPECT_EQ(error.Kind(), ErrorKind::InvalidId);
    EXPECT_STREQ(error.what(), "no camera has the id 120900000002");
}

TEST_F(Opening, Open_NoPermission_IsAccessDenied)
{
    const vusb::Camera camera("faults=open-permission");
    const Error error = FailureToOpen();
    EXPECT_EQ(error.Kind(), ErrorKind::AccessDenied);
    EXPECT_STREQ(error.what(), "opening the USB device at 2-1: LIBUSB_ERROR_ACCESS");
}

TEST_F(Opening, Open_ClaimedByAnotherProcess_IsInUse)
{
    const vusb::Camera camera("faults=claim-busy");
    const Error error = FailureToOpen();
    EXPECT_EQ(error.Kind(), ErrorKind::InUse);
    EXPECT_STREQ(error.what(), "claiming interface 0 of the camera: LIBUSB_ERROR_BUSY");
}

TEST_F(Opening, Open_StreamIsClaimedByAnotherProcess_IsInUseAndUndone)
{
    const vusb::Camera camera;
    vusb_fail_call("libusb_claim_interface", 1, 1, LIBUSB_ERROR_BUSY);
    EXPECT_EQ(FailureToOpen().Kind(), ErrorKind::InUse);
    EXPECT_EQ(vusb_call_count("libusb_release_interface"), 1U);
    EXPECT_EQ(ReadRegister(*OpenOnly(), 0x50000), 640U);
}

TEST_F(Opening, Open_OpenAlready_IsInUse)
{
    const vusb::Camera camera;
    const auto opened = OpenOnly();
    const Error error = Failure([this] { List().Open(kId, OpenMode::ReadOnly); });
    EXPECT_EQ(error.Kind(), ErrorKind::InUse);
    EXPECT_STREQ(error.what(), "the camera 120900000001 is open already");
}

TEST_F(Opening, Open_LeavesJustThen_IsIo)
{
    const vusb::Camera camera;
    List().Update(In(kLong));
    camera.Unplug();
    EXPECT_EQ(FailureKind([this] { List().Open(kId, OpenMode::ReadWrite); }), ErrorKind::Io);
}

TEST_F(Opening, Open_LeavesDuringTheFirstCommand_IsIo)
{
    const vusb::Camera camera("faults=unplug-at-command");
    EXPECT_EQ(FailureToOpen().Kind(), ErrorKind::Io);
}

TEST_F(Opening, Open_Silent_IsIoInBoundedTime)
{
    const vusb::Camera camera("faults=reply-missing");
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(FailureToOpen().Kind(), ErrorKind::Io);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 5s);
}

TEST_F(Opening, Open_RefusesItsBootstrapRegisters_IsIo)
{
    const vusb::Camera camera("faults=reply-error:0x8006");
    const Error error = FailureToOpen();
    EXPECT_EQ(error.Kind(), ErrorKind::Io);
    EXPECT_STREQ(error.what(), "opening the camera: reading 4 bytes at 0x1CC failed: the camera "
                               "answers 0x8006 (access denied)");
}

TEST_F(Opening, Open_NoEndpointsForControl_IsIo)
{
    const vusb::Camera camera("faults=descriptor-endpoints:0");
    EXPECT_EQ(FailureToOpen().Kind(), ErrorKind::Io);
}

TEST_F(Opening, Open_EachRegisterAccessFails_IsUndoneAndWorksTheNextTime)
{
    const vusb::Camera camera("events=1");
    List().Update(In(kLong));
    for (unsigned i = 0; i < 40; ++i) {
        camera.SetFaults("reply-error@" + std::to_string(i) + "*1");
        try {
            List().Open(kId, OpenMode::ReadWrite);
        } catch (const Error&) {
        }
        EXPECT_EQ(Live().handles, 0U);
        EXPECT_EQ(Live().transfers, 0U);
    }
    camera.SetFaults("");
    EXPECT_EQ(ReadRegister(*OpenOnly(), 0x50000), 640U);
}

// ---- what a killed process has left

TEST_F(Opening, Open_StreamWasLeftOn_IsSwitchedOff)
{
    const vusb::Camera camera;
    camera.Poke<uint32_t>(kSirmControl, 1);
    const auto opened = OpenOnly();
    EXPECT_EQ(camera.Peek<uint32_t>(kSirmControl), 0U);
}

TEST_F(Opening, Open_StreamIsOff_WritesNothing)
{
    const vusb::Camera camera("faults=reply-error%w0x20004");
    EXPECT_EQ(ReadRegister(*OpenOnly(), 0x50000), 640U);
}

// Commands of another process whose answers nobody has read.
void LeaveAnswersBehind(int count)
{
    libusb_context* context = nullptr;
    libusb_init(&context);
    libusb_device_handle* handle = libusb_open_device_with_vid_pid(context, 0x1209, 1);
    ASSERT_NE(handle, nullptr);
    ASSERT_EQ(libusb_claim_interface(handle, 0), 0);
    for (int i = 0; i < count; ++i) {
        std::array<uint8_t, 24> command{
            0x55, 0x33, 0x56, 0x43, 0, 0x40, 0, 8, 12, 0, static_cast<uint8_t>(i)};
        command[22] = 64;
        int sent = 0;
        ASSERT_EQ(libusb_bulk_transfer(handle, 0x01, command.data(), command.size(), &sent, 1000),
                  0);
    }
    libusb_release_interface(handle, 0);
    libusb_close(handle);
    libusb_exit(context);
}

TEST_F(Opening, Open_AnswersWait_AreReadAway)
{
    const vusb::Camera camera("user=Left");
    // A camera may keep its answers when the halt is cleared; this one would drop them.
    vusb_fail_call("libusb_clear_halt", 0, 0, LIBUSB_SUCCESS);
    for (const int count : {1, 2, 15, 40}) {
        LeaveAnswersBehind(count);
        const auto opened = OpenOnly();
        EXPECT_EQ(ReadRegister(*opened, 0x50000), 640U) << count;
        EXPECT_EQ(opened->Info().userDefinedName, "Left");
    }
}

TEST_F(Opening, Open_EndpointsWereLeftHalted_AreCleared)
{
    const vusb::Camera camera("faults=command-stalled@0*1");
    LeaveAnswersBehind(0);
    libusb_context* context = nullptr;
    libusb_init(&context);
    libusb_device_handle* handle = libusb_open_device_with_vid_pid(context, 0x1209, 1);
    libusb_claim_interface(handle, 0);
    std::array<uint8_t, 24> command{0x55, 0x33, 0x56, 0x43, 0, 0x40, 0, 8, 12};
    command[22] = 4;
    int sent = 0;
    libusb_bulk_transfer(handle, 0x01, command.data(), command.size(), &sent, 1000);
    EXPECT_EQ(libusb_bulk_transfer(handle, 0x01, command.data(), command.size(), &sent, 1000),
              LIBUSB_ERROR_PIPE);
    libusb_release_interface(handle, 0);
    libusb_close(handle);
    libusb_exit(context);
    EXPECT_EQ(ReadRegister(*OpenOnly(), 0x50000), 640U);
}

// ---- cameras that have less

TEST_F(Opening, Open_NoStreamInterface_HasNoStream)
{
    const vusb::Camera camera("faults=no-stream-interface");
    const auto opened = OpenOnly();
    EXPECT_EQ(opened->NumStreams(), 0U);
    EXPECT_EQ(FailureKind([&] { opened->PayloadSize(); }), ErrorKind::NotAvailable);
}

TEST_F(Opening, Open_NoStreamRegisters_HasNoStream)
{
    const vusb::Camera camera("faults=no-sirm");
    EXPECT_EQ(OpenOnly()->NumStreams(), 0U);
}

TEST_F(Opening, Open_ManifestCannotBeRead_OpensWithoutFiles)
{
    for (const char* fault : {"reply-error%r0x1D0", "reply-error%r0x30000", "reply-error%r0x30008",
                              "reply-missing%r0x30000"}) {
        vusb_reset();
        CloseList();
        const vusb::Camera camera(std::string("faults=") + fault);
        const auto opened = OpenOnly();
        EXPECT_TRUE(opened->DescriptionFiles().empty()) << fault;
        EXPECT_EQ(ReadRegister(*opened, 0x50000), 640U) << fault;
    }
}

TEST_F(Opening, Open_ManifestHasEndlessEntries_Opens)
{
    const vusb::Camera camera;
    camera.Poke<uint64_t>(0x30000, 0xFFFFFFFFFFFFFFFF);
    EXPECT_GE(OpenOnly()->DescriptionFiles().size(), 1U);
}

TEST_F(Opening, Open_ManifestWithNothingInIt_OpensWithoutFiles)
{
    const vusb::Camera camera("faults=manifest-size-zero");
    EXPECT_TRUE(OpenOnly()->DescriptionFiles().empty());
}

TEST_F(Opening, DescriptionFiles_OfACamera_CanBeReadWhereTheySayTheyAre)
{
    const vusb::Camera camera("vendor=Maker,model=Eye 1,zip=1");
    const auto opened = OpenOnly();
    ASSERT_EQ(opened->DescriptionFiles().size(), 1U);
    const DescriptionFile file = opened->DescriptionFiles()[0];
    EXPECT_TRUE(file.name.starts_with("Maker_Eye_1_")) << file.name;
    EXPECT_TRUE(file.zipped);
    std::vector<uint8_t> bytes(file.size);
    size_t done = 0;
    opened->Read(file.address, bytes, done);
    EXPECT_EQ(bytes, camera.DescriptionFile());
}

TEST_F(Opening, Open_TextsAreRefused_KeepsThoseOfTheDescriptors)
{
    const vusb::Camera camera("vendor=Maker,faults=reply-error%r0x004");
    EXPECT_EQ(OpenOnly()->Info().vendor, "Maker");
}

// ---- opened

TEST_F(Opening, Info_AfterTheNameWasWritten_FollowsIt)
{
    const vusb::Camera camera("user=Before");
    const auto opened = OpenOnly();
    WriteText(*opened, kUserDefinedName, "After");
    EXPECT_EQ(opened->Info().userDefinedName, "After");
    WriteText(*opened, kUserDefinedName, "");
    EXPECT_EQ(opened->Info().userDefinedName, "");
    EXPECT_EQ(opened->Info().DisplayName(), "ZRK-ORVANE GmbH Virtual U3V (VC000001)");
}

TEST_F(Opening, Info_NothingWasWritten_CostsNoExchange)
{
    const vusb::Camera camera;
    const auto opened = OpenOnly();
    const auto before = camera.Stats().control_transactions;
    opened->Info();
    EXPECT_EQ(camera.Stats().control_transactions, before);
}

TEST_F(Opening, Info_CameraIsGone_IsWhatWasKnown)
{
    const vusb::Camera camera("user=Name");
    const auto opened = OpenOnly();
    WriteText(*opened, kUserDefinedName, "Other");
    camera.Unplug();
    EXPECT_EQ(opened->Info().userDefinedName, "Name");
}

TEST_F(Opening, Write_OpenedReadOnly_IsRefusedWithoutAnExchange)
{
    const vusb::Camera camera;
    const auto opened = OpenOnly(OpenMode::ReadOnly);
    EXPECT_EQ(opened->Mode(), OpenMode::ReadOnly);
    const auto before = camera.Stats().control_transactions;
    const Error error = Failure([&] { WriteText(*opened, kUserDefinedName, "Name"); });
    EXPECT_EQ(error.Kind(), ErrorKind::AccessDenied);
    EXPECT_STREQ(error.what(), "writing 64 bytes at 0x184 failed: the camera is open for reading "
                               "only");
    EXPECT_EQ(camera.Stats().control_transactions, before);
    EXPECT_EQ(ReadRegister(*opened, 0x50000), 640U);
}

// ---- gone

TEST_F(Opening, OnGone_Unplugged_IsCalledOnce)
{
    const vusb::Camera camera;
    const auto opened = OpenOnly();
    std::atomic<int> calls = 0;
    opened->OnGone([&] { ++calls; });
    camera.Unplug();
    EXPECT_TRUE(Eventually([&] { return calls == 1; }));
    EXPECT_TRUE(opened->IsGone());
    EXPECT_EQ(FailureKind([&] { ReadRegister(*opened, 0x50000); }), ErrorKind::Io);
    List().Update(In(kLong));
    EXPECT_EQ(calls, 1);
}

TEST_F(Opening, OnGone_AfterTheUnplug_IsCalledAllTheSame)
{
    const vusb::Camera camera;
    const auto opened = OpenOnly();
    camera.Unplug();
    EXPECT_TRUE(Eventually([&] { return opened->IsGone(); }));
    std::atomic<int> calls = 0;
    opened->OnGone([&] { ++calls; });
    EXPECT_TRUE(Eventually([&] { return calls == 1; }));
}

TEST_F(Opening, OnGone_Ended_IsNotCalled)
{
    const vusb::Camera camera;
    const auto opened = OpenOnly();
    std::atomic<int> calls = 0;
    opened->OnGone([&] { ++calls; });
    opened->OnGone({});
    camera.Unplug();
    EXPECT_TRUE(Eventually([&] { return opened->IsGone(); }));
    EXPECT_EQ(calls, 0);
}

TEST_F(Opening, OnGone_ListenerThatAsksTheCamera_IsAnsweredAtOnce)
{
    const vusb::Camera camera;
    const auto opened = OpenOnly();
    std::atomic<bool> failed = false;
    opened->OnGone([&] {
        try {
            ReadRegister(*opened, 0x50000);
        } catch (const Error&) {
            failed = true;
        }
    });
    camera.Unplug();
    EXPECT_TRUE(Eventually([&] { return failed.load(); }));
}

TEST_F(Opening, IsGone_SystemWithoutHotplug_IsSeenAtTheNextPassOrExchange)
{
    vusb_fail_call("libusb_has_capability", 0, 0, 0);
    const vusb::Camera camera;
    {
        const auto opened = OpenOnly();
        camera.Unplug();
        List().Update(In(kLong));
        EXPECT_TRUE(opened->IsGone());
    }
    camera.Replug();
    const auto opened = OpenOnly();
    camera.Unplug();
    EXPECT_EQ(FailureKind([&] { ReadRegister(*opened, 0x50000); }), ErrorKind::Io);
    EXPECT_TRUE(opened->IsGone());
}

TEST_F(Opening, Open_ReplugWhileTheOldOneIsStillOpen_OpensTheNewOne)
{
    const vusb::Camera camera;
    const auto old = OpenOnly();
    camera.Unplug();
    camera.Replug();
    const auto opened = OpenOnly();
    EXPECT_EQ(ReadRegister(*opened, 0x50000), 640U);
    EXPECT_TRUE(old->IsGone());
    EXPECT_FALSE(opened->IsGone());
}

// ---- forked

TEST_F(Opening, Fork_ChildClosesWhatItsParentHasOpened_NeitherHangsNorHarms)
{
    const vusb::Camera camera("events=1");
    auto opened = OpenOnly();
    List();
    const pid_t child = fork();
    if (child == 0) {
        alarm(20);
        bool refused = false;
        try {
            ReadRegister(*opened, 0x50000);
        } catch (const Error&) {
            refused = true;
        }
        List().Update(In(kLong));
        opened.reset();
        CloseList();
        _exit(refused ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_EQ(ReadRegister(*opened, 0x50000), 640U);
}

TEST_F(Opening, Fork_WhileAnotherThreadWaits_ChildClosesAllTheSame)
{
    const vusb::Camera camera;
    auto opened = OpenOnly();
    auto wakeup = opened->MakeWakeup();
    Mutex mutex;
    bool waiting = false;
    bool stop = false;
    std::thread waiter([&] {
        Locker lock(mutex);
        waiting = true;
        while (!stop) {
            wakeup->Wait(mutex, Deadline::max());
        }
    });
    ASSERT_TRUE(Eventually([&] {
        Locker lock(mutex);
        return waiting;
    }));
    const pid_t child = fork();
    if (child == 0) {
        alarm(20);
        wakeup.reset();
        opened.reset();
        CloseList();
        _exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    {
        Locker lock(mutex);
        stop = true;
    }
    wakeup->NotifyAll();
    waiter.join();
}

} // namespace
} // namespace u3v_host
