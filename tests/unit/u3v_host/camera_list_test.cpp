#include <algorithm>
#include <atomic>

#include "bus_camera.h"

namespace u3v_host {
namespace {

using Names = std::vector<std::string>;

class CameraListTest : public BusTest
{
protected:
    Names Ids()
    {
        Names ids;
        for (const auto& camera : List().Cameras()) {
            ids.push_back(camera->id);
        }
        return ids;
    }
    Names UpdatedIds()
    {
        List().Update(In(kLong));
        return Ids();
    }
    AccessStatus Access() { return List().Access(Ids().at(0)); }
    static vusb_live_objects Live()
    {
        vusb_live_objects live{};
        vusb_get_live_objects(&live);
        return live;
    }
};

// ---- what is listed

TEST_F(CameraListTest, Update_EmptyBus_ListsNothing)
{
    EXPECT_EQ(UpdatedIds(), Names{});
    EXPECT_EQ(List().Find("120900000001"), nullptr);
}

TEST_F(CameraListTest, Update_OneCamera_TellsItsTexts)
{
    const vusb::Camera camera("vendor=Maker,model=Eye,family=Eyes,version=1.2,info=of glass,"
                              "serial=S1,user=Left");
    ASSERT_EQ(UpdatedIds(), Names{"120900000001"});
    const CameraInfo info = *List().Cameras()[0];
    EXPECT_EQ(info.vendor, "Maker");
    EXPECT_EQ(info.model, "Eye");
    EXPECT_EQ(info.family, "Eyes");
    EXPECT_EQ(info.version, "1.2");
    EXPECT_EQ(info.manufacturerInfo, "of glass");
    EXPECT_EQ(info.serial, "S1");
    EXPECT_EQ(info.userDefinedName, "Left");
    EXPECT_EQ(info.DisplayName(), "Maker Eye (Left)");
}

TEST_F(CameraListTest, Update_CamerasOfSeveralMakers_AreListedAlike)
{
    const vusb::Camera first("guid=000000000001,vendor=One");
    const vusb::Camera second("guid=000000000002,vendor=Two");
    const vusb::Camera third("guid=000000000003,vendor=Three");
    EXPECT_EQ(UpdatedIds(), (Names{"000000000001", "000000000002", "000000000003"}));
}

TEST_F(CameraListTest, Update_OtherDevices_AreNoCameras)
{
    for (const char* kind : {"kind=mouse", "kind=hub", "kind=disk", "kind=iad", "kind=broken"}) {
        vusb_add_device(kind);
    }
    EXPECT_EQ(UpdatedIds(), Names{});
}

class NoCamera : public CameraListTest, public ::testing::WithParamInterface<const char*>
{
};

TEST_P(NoCamera, Update_DescriptorsOfNoCamera_ListsItNotAndTheOthersStill)
{
    const vusb::Camera good("guid=000000000001");
    const vusb::Camera odd(std::string("guid=000000000002,faults=") + GetParam());
    EXPECT_EQ(UpdatedIds(), Names{"000000000001"});
}

INSTANTIATE_TEST_SUITE_P(CameraList, NoCamera,
                         ::testing::Values("no-control-interface", "info-missing", "info-short:12",
                                           "info-missing+info-at-end:5", "device-descriptor-fails",
                                           "config-fails", "descriptor-cut:20",
                                           "descriptor-zero-length"));

TEST_F(CameraListTest, Update_CameraWithoutStream_IsListed)
{
    const vusb::Camera camera("faults=no-stream-interface");
    EXPECT_EQ(UpdatedIds(), Names{"120900000001"});
}

TEST_F(CameraListTest, Update_Listing_SendsNoCommandClaimsNothingAndLeavesNothingOpen)
{
    const vusb::Camera camera;
    UpdatedIds();
    EXPECT_EQ(camera.Stats().control_transactions, 0U);
    EXPECT_EQ(vusb_call_count("libusb_claim_interface"), 0U);
    EXPECT_EQ(vusb_call_count("libusb_detach_kernel_driver"), 0U);
    EXPECT_EQ(Live().handles, 0U);
}

TEST_F(CameraListTest, Update_NothingNew_ReadsNothingAgain)
{
    const vusb::Camera camera("count=4");
    ASSERT_EQ(UpdatedIds().size(), 4U);
    vusb_journal_clear();
    for (int i = 0; i < 10; ++i) {
        UpdatedIds();
    }
    EXPECT_EQ(vusb_call_count("libusb_open"), 0U);
    EXPECT_EQ(vusb_call_count("libusb_submit_transfer"), 0U);
    EXPECT_EQ(vusb_call_count("libusb_get_active_config_descriptor"), 0U);
}

TEST_F(CameraListTest, Update_NothingNew_TakesBelowFiveMilliseconds)
{
    const vusb::Camera camera("count=8");
    UpdatedIds();
    EXPECT_TRUE(Eventually([this] { // a busy machine may be late, not each time
        const auto begin = std::chrono::steady_clock::now();
        List().Update(In(kLong));
        return std::chrono::steady_clock::now() - begin < 5ms;
    }));
}

TEST_F(CameraListTest, Update_BusCannotBeListed_KeepsWhatItWas)
{
    const vusb::Camera camera;
    UpdatedIds();
    vusb_fail_call("libusb_get_device_list", 0, 1, -99);
    EXPECT_EQ(UpdatedIds(), Names{"120900000001"});
}

// ---- coming and going

TEST_F(CameraListTest, Update_AfterAPlug_ListsIt)
{
    EXPECT_EQ(UpdatedIds(), Names{});
    const vusb::Camera camera;
    EXPECT_EQ(UpdatedIds(), Names{"120900000001"});
}

TEST_F(CameraListTest, Update_AfterAnUnplug_ListsItNoLonger)
{
    const vusb::Camera camera;
    UpdatedIds();
    camera.Unplug();
    EXPECT_EQ(Ids(), Names{"120900000001"});
    EXPECT_EQ(UpdatedIds(), Names{});
    EXPECT_EQ(List().Find("120900000001"), nullptr);
}

TEST_F(CameraListTest, Update_AfterAReplug_ReadsItAfresh)
{
    const vusb::Camera camera("user=Before");
    UpdatedIds();
    camera.Unplug();
    camera.SetOptions("user=After");
    camera.Replug();
    UpdatedIds();
    ASSERT_EQ(List().Cameras().size(), 1U);
    EXPECT_EQ(List().Cameras()[0]->userDefinedName, "After");
}

TEST_F(CameraListTest, OnChange_PlugAndUnplug_AreToldAtOnce)
{
    std::atomic<int> changes = 0;
    List().OnChange([&] { ++changes; });
    const vusb::Camera camera;
    EXPECT_TRUE(Eventually([&] { return changes == 1; }));
    UpdatedIds();
    camera.Unplug();
    EXPECT_TRUE(Eventually([&] { return changes == 2; }));
}

TEST_F(CameraListTest, OnChange_OtherDevices_AreNotTold)
{
    std::atomic<int> changes = 0;
    List().OnChange([&] { ++changes; });
    vusb_add_device("kind=mouse");
    const vusb::Camera camera;
    EXPECT_TRUE(Eventually([&] { return changes == 1; }));
}

TEST_F(CameraListTest, OnChange_Ended_IsCalledNoMore)
{
    std::atomic<int> changes = 0;
    List().OnChange([&] { ++changes; });
    const vusb::Camera camera;
    EXPECT_TRUE(Eventually([&] { return changes == 1; }));
    List().OnChange({});
    camera.Unplug();
    UpdatedIds();
    std::atomic<int> others = 0;
    List().OnChange([&] { ++others; });
    camera.Replug();
    EXPECT_TRUE(Eventually([&] { return others == 1; }));
    EXPECT_EQ(changes, 1);
}

TEST_F(CameraListTest, OnChange_EndedWhileItRuns_WaitsForItsEnd)
{
    std::atomic<bool> inside = false;
    std::atomic<bool> left = false;
    List().OnChange([&] {
        inside = true;
        zr_test::LetPass(50ms, "the listener takes its time");
        left = true;
    });
    const vusb::Camera camera;
    ASSERT_TRUE(Eventually([&] { return inside.load(); }));
    List().OnChange({});
    EXPECT_TRUE(left);
}

TEST_F(CameraListTest, Update_SystemWithoutHotplug_StillSeesComingAndGoing)
{
    vusb_fail_call("libusb_has_capability", 0, 0, 0);
    EXPECT_EQ(UpdatedIds(), Names{});
    EXPECT_EQ(vusb_call_count("libusb_hotplug_register_callback"), 0U);
    const vusb::Camera camera;
    EXPECT_EQ(UpdatedIds(), Names{"120900000001"});
    camera.Unplug();
    EXPECT_EQ(UpdatedIds(), Names{});
}

// ---- identity

TEST_F(CameraListTest, Find_OnlyCaseDiffers_FindsIt)
{
    const vusb::Camera camera("guid=2AB0C0DE0001");
    UpdatedIds();
    ASSERT_NE(List().Find("2ab0c0de0001"), nullptr);
    EXPECT_EQ(List().Find("2ab0c0de0001")->id, "2AB0C0DE0001");
}

TEST_F(CameraListTest, Update_TwoCamerasWithOneGuid_TheSecondNamesItsPlace)
{
    const vusb::Camera first("guid=G");
    const vusb::Camera second("guid=G");
    const Names ids = UpdatedIds();
    ASSERT_EQ(ids.size(), 2U);
    EXPECT_EQ(ids[0], "G");
    EXPECT_TRUE(ids[1].starts_with("G@2-")) << ids[1];
}

TEST_F(CameraListTest, Update_OneWithTheSameGuidComes_NobodysIdChanges)
{
    const vusb::Camera first("guid=G");
    const vusb::Camera second("guid=G");
    first.Unplug();
    EXPECT_EQ(UpdatedIds(), Names{"G"});
    first.Replug(); // at the lower port
    const Names ids = UpdatedIds();
    ASSERT_EQ(ids.size(), 2U);
    EXPECT_TRUE(ids[0].starts_with("G@2-")) << ids[0];
    EXPECT_EQ(ids[1], "G");
}

TEST_F(CameraListTest, Update_GuidWithSeparators_MakesAnIdWithout)
{
    const vusb::Camera camera("guid=a:b");
    EXPECT_EQ(UpdatedIds(), Names{"a_b"});
}

TEST_F(CameraListTest, Update_StringsCannotBeRead_IsListedByItsPlaceAndReadAtEachPass)
{
    const vusb::Camera camera("faults=strings-fail");
    const Names ids = UpdatedIds();
    ASSERT_EQ(ids.size(), 1U);
    EXPECT_TRUE(ids[0].starts_with("usb@2-")) << ids[0];
    EXPECT_EQ(Live().handles, 0U);
    const auto before = vusb_call_count("libusb_submit_transfer");
    EXPECT_EQ(UpdatedIds(), ids);
    EXPECT_GT(vusb_call_count("libusb_submit_transfer"), before);
}

TEST_F(CameraListTest, Update_StringsAreNonsense_ListsItAllTheSame)
{
    const vusb::Camera camera("faults=strings-odd");
    EXPECT_EQ(UpdatedIds().size(), 1U);
    EXPECT_EQ(Live().handles, 0U);
}

// ---- permission

TEST_F(CameraListTest, Update_NoPermission_IsListedWithTheKernelsTexts)
{
    WriteAttribute("2-1", "manufacturer", "Maker");
    WriteAttribute("2-1", "product", "Eye");
    WriteAttribute("2-1", "serial", "S1");
    const vusb::Camera camera("faults=open-permission");
    const Names ids = UpdatedIds();
    ASSERT_EQ(ids, Names{"usb@2-1"});
    const CameraInfo info = *List().Cameras()[0];
    EXPECT_EQ(info.vendor, "Maker");
    EXPECT_EQ(info.model, "Eye");
    EXPECT_EQ(info.serial, "S1");
    EXPECT_EQ(Access(), AccessStatus::NoAccess);
}

TEST_F(CameraListTest, Update_PermissionComesLater_ReadsIt)
{
    const vusb::Camera camera("faults=open-permission");
    UpdatedIds();
    camera.SetFaults("");
    EXPECT_EQ(UpdatedIds(), Names{"120900000001"});
    EXPECT_EQ(Access(), AccessStatus::ReadWrite);
}

TEST_F(CameraListTest, Update_LeavesWhileItIsOpened_IsNotListed)
{
    const vusb::Camera camera("faults=open-no-device");
    EXPECT_EQ(UpdatedIds(), Names{});
}

TEST_F(CameraListTest, Update_SystemTakesNoTransfer_ListsTheCameraByItsPlace)
{
    const vusb::Camera camera;
    vusb_fail_call("libusb_submit_transfer", 0, 1, -11);
    EXPECT_TRUE(UpdatedIds().at(0).starts_with("usb@"));
    EXPECT_EQ(UpdatedIds(), Names{"120900000001"});
}

// ---- access status

TEST_F(CameraListTest, Access_NotListed_IsUnknown)
{
    EXPECT_EQ(List().Access("120900000001"), AccessStatus::Unknown);
}

TEST_F(CameraListTest, Access_Free_IsReadWriteWithoutATransfer)
{
    const vusb::Camera camera;
    UpdatedIds();
    vusb_journal_clear();
    EXPECT_EQ(Access(), AccessStatus::ReadWrite);
    EXPECT_EQ(vusb_call_count("libusb_submit_transfer"), 0U);
    EXPECT_EQ(vusb_call_count("libusb_claim_interface"), 0U);
    EXPECT_EQ(Live().handles, 0U);
}

TEST_F(CameraListTest, Access_KernelDriverAttached_IsReadWriteAndTheDriverStays)
{
    const vusb::Camera camera("faults=kernel-driver");
    SetDriver("2-1:1.0", "uvcvideo");
    UpdatedIds();
    EXPECT_EQ(Access(), AccessStatus::ReadWrite);
    EXPECT_EQ(vusb_call_count("libusb_detach_kernel_driver"), 0U);
}

TEST_F(CameraListTest, Access_ClaimedByAnotherProcess_IsBusyAndAskedAfresh)
{
    const vusb::Camera camera;
    UpdatedIds();
    SetDriver("2-1:1.0", "usbfs");
    EXPECT_EQ(Access(), AccessStatus::Busy);
    SetDriver("2-1:1.0", "none");
    EXPECT_EQ(Access(), AccessStatus::ReadWrite);
}

TEST_F(CameraListTest, Access_NoPermissionAndClaimed_IsNoAccess)
{
    const vusb::Camera camera("faults=open-permission");
    SetDriver("2-1:1.0", "usbfs");
    UpdatedIds();
    EXPECT_EQ(Access(), AccessStatus::NoAccess);
}

TEST_F(CameraListTest, Access_OpenInThisProcess_TellsHow)
{
    const vusb::Camera camera;
    UpdatedIds();
    {
        const auto opened = List().Open(Ids()[0], OpenMode::ReadWrite);
        EXPECT_EQ(Access(), AccessStatus::OpenReadWrite);
    }
    {
        const auto opened = List().Open(Ids()[0], OpenMode::ReadOnly);
        EXPECT_EQ(Access(), AccessStatus::OpenReadOnly);
    }
    EXPECT_EQ(Access(), AccessStatus::ReadWrite);
}

// ---- time

TEST_F(CameraListTest, Update_DeadlineOver_ReturnsAndThePassCountsForTheNext)
{
    const vusb::Camera camera("count=3");
    List().Update(In(0ms));
    EXPECT_TRUE(Eventually([this] {
        List().Update(In(0ms));
        return Ids().size() == 3;
    }));
}

TEST_F(CameraListTest, Update_DeadlineOver_LeavesNothingOpenOnceThePassHasEnded)
{
    const vusb::Camera camera("count=3");
    List().Update(In(0ms));
    EXPECT_TRUE(Eventually([] { return Live().handles == 0; }));
    EXPECT_TRUE(Eventually([this] { return Ids().size() == 3; }));
}

TEST_F(CameraListTest, Update_SilentCamera_IsListedWithWhatIsKnownInBoundedTime)
{
    WriteAttribute("2-1", "product", "Eye");
    const vusb::Camera camera("faults=strings-hang");
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(UpdatedIds(), Names{"usb@2-1"});
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 5s);
    EXPECT_EQ(List().Cameras()[0]->model, "Eye");
    EXPECT_EQ(Live().handles, 0U);
}

TEST_F(CameraListTest, Update_SilentCamera_HoldsUpNoOther)
{
    m_options.stringTime = 1h;
    const vusb::Camera silent("guid=000000000001,faults=strings-hang");
    const vusb::Camera good("guid=000000000002");
    EXPECT_TRUE(Eventually([this] {
        List().Update(In(10ms));
        return Ids() == Names{"000000000002"};
    }));
}

TEST_F(CameraListTest, Update_CameraWasSilentBefore_IsReadAgainAndNotWaitedFor)
{
    m_options.stringTime = 2s;
    const vusb::Camera camera("faults=strings-hang");
    UpdatedIds();
    vusb_journal_clear();
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < 5; ++i) {
        UpdatedIds();
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 2s); // the time of one string
    EXPECT_GE(vusb_call_count("libusb_submit_transfer"), 1U);
    camera.SetFaults("");
    EXPECT_TRUE(Eventually([this] { return UpdatedIds() == Names{"120900000001"}; }));
}

TEST_F(CameraListTest, Update_UnpluggedWhileItIsRead_EndsTheReading)
{
    m_options.stringTime = 1h;
    const vusb::Camera camera("faults=strings-hang");
    List().Update(In(0ms));
    camera.Unplug();
    EXPECT_EQ(UpdatedIds(), Names{});
    EXPECT_TRUE(Eventually([] { return Live().handles == 0; }));
}

TEST_F(CameraListTest, Destructor_CameraIsSilent_DoesNotWaitForIt)
{
    m_options.stringTime = 1h;
    const vusb::Camera camera("faults=strings-hang");
    List().Update(In(0ms));
    EXPECT_EQ(Live().transfers_in_flight, 1U);
    CloseList();
    EXPECT_EQ(Live().transfers, 0U);
}

TEST_F(CameraListTest, Destructor_PassUnderWay_WaitsForIt)
{
    const vusb::Camera camera("count=8");
    List().Update(In(0ms));
    CloseList();
    EXPECT_EQ(Live().transfers, 0U);
    EXPECT_EQ(Live().contexts, 0U);
}

TEST_F(CameraListTest, Update_ManyThreadsWhileCamerasComeAndGo_StaysSane)
{
    const vusb::Camera camera("count=4");
    UpdatedIds();
    std::atomic<bool> stop = false;
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([&] {
            while (!stop) {
                List().Update(In(100ms));
                for (const std::string& id : Ids()) {
                    List().Access(id);
                    List().Find(id);
                }
            }
        });
    }
    for (int i = 0; i < 30; ++i) {
        vusb_unplug(camera.Id() + i % 4);
        zr_test::LetPass(1ms, "the others meet a list without it");
        vusb_replug(camera.Id() + i % 4);
    }
    stop = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(UpdatedIds().size(), 4U);
}

TEST_F(CameraListTest, TwoLists_InOneProcess_KnowNothingOfEachOther)
{
    const vusb::Camera camera;
    CameraList other(m_options);
    other.Update(In(kLong));
    UpdatedIds();
    EXPECT_EQ(Live().contexts, 2U);
    const auto opened = List().Open(Ids()[0], OpenMode::ReadWrite);
    EXPECT_EQ(Access(), AccessStatus::OpenReadWrite);
    EXPECT_EQ(other.Access(Ids()[0]), AccessStatus::ReadWrite);
    EXPECT_EQ(FailureKind([&] { other.Open(Ids()[0], OpenMode::ReadWrite); }), ErrorKind::InUse);
}

TEST_F(CameraListTest, Constructor_LibusbFails_Throws)
{
    vusb_fail_call("libusb_init", 0, 1, -99);
    const Error error = Failure([this] { List(); });
    EXPECT_EQ(error.Kind(), ErrorKind::ResourceExhausted);
}

TEST_F(CameraListTest, Constructor_ContextIsItsOwn)
{
    List();
    EXPECT_EQ(vusb_call_count("libusb_init"), 1U);
    for (const vusb_call& call : vusb::Calls("libusb_init")) {
        EXPECT_NE(call.object, 0U); // not the process's default one
    }
}

} // namespace
} // namespace u3v_host
