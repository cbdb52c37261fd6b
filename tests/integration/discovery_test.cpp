// Finding and opening cameras on the bus: the list's rules, refused opens, absurd descriptors, hot
// plug.

#include "producer_fixture.h"

#include <algorithm>
#include <chrono>

namespace {

class Discovery : public ProducerTest
{
};

TEST_F(Discovery, EmptyBus_HasNoDevices)
{
    const auto session = OpenSession();
    EXPECT_TRUE(session.CameraIds().empty());
}

TEST_F(Discovery, OtherDevices_AreNotListed)
{
    for (const char* kind : {"kind=mouse", "kind=hub", "kind=disk"}) {
        ASSERT_GE(vusb_add_device(kind), 0);
    }
    const auto session = OpenSession();
    EXPECT_TRUE(session.CameraIds().empty());
}

TEST_F(Discovery, Camera_IsListedWithItsStrings)
{
    const vusb::Camera camera("guid=1209ABCDEF01,model=M,version=1.0,serial=S1,user=Line 3");
    const auto session = OpenSession();
    ASSERT_EQ(session.CameraIds(), std::vector<std::string>{"1209ABCDEF01"});
    const std::string id = "1209ABCDEF01";
    EXPECT_EQ(session.CameraText(id, DEVICE_INFO_VENDOR), "ZRK-ORVANE GmbH");
    EXPECT_EQ(session.CameraText(id, DEVICE_INFO_MODEL), "M");
    EXPECT_EQ(session.CameraText(id, DEVICE_INFO_DISPLAYNAME), "M-ZRK-ORVANE GmbH-1.0");
    EXPECT_EQ(session.CameraText(id, DEVICE_INFO_SERIAL_NUMBER), "S1");
    EXPECT_EQ(session.CameraText(id, DEVICE_INFO_USER_DEFINED_NAME), "Line 3");
    EXPECT_EQ(session.CameraText(id, DEVICE_INFO_VERSION), "1.0");
    EXPECT_EQ(session.CameraText(id, DEVICE_INFO_TLTYPE), "U3V");
    EXPECT_EQ(AccessStatus(session, id), DEVICE_ACCESS_STATUS_READWRITE);
}

TEST_F(Discovery, SecondUpdate_ChangesNothing)
{
    const vusb::Camera camera("guid=120900000001");
    const auto session = OpenSession();
    EXPECT_FALSE(Update(session));
    const vusb::Camera second("guid=120900000002");
    EXPECT_TRUE(Update(session));
    EXPECT_EQ(session.CameraIds().size(), 2u);
}

TEST_F(Discovery, SameGuidTwice_IsListedOnce)
{
    const vusb::Camera first("guid=120900000001");
    const vusb::Camera twin("guid=120900000001,serial=other");
    const auto session = OpenSession();
    EXPECT_EQ(session.CameraIds().size(), 1u);
}

TEST_F(Discovery, AnyVendorAlone_IsListed_AndOnlyOurVendorAfterIt)
{
    const vusb::Camera stranger("guid=99990000ABCD,vendor=Somebody");
    const vusb::Camera secondStranger("guid=99990000ABCE,vendor=Somebody");
    const vusb::Camera ours("guid=120900000001");
    const auto session = OpenSession();
    EXPECT_EQ(session.CameraIds(), (std::vector<std::string>{"99990000ABCD", "120900000001"}));
}

TEST_F(Discovery, UnpluggedCamera_StaysListedUntilTheInterfaceIsOpenedAgain)
{
    const vusb::Camera camera("guid=120900000001");
    auto session = OpenSession();
    camera.Unplug();
    Update(session);
    ASSERT_EQ(session.CameraIds().size(), 1u);
    EXPECT_EQ(StatusOfOpening(session, "120900000001"), GC_ERR_ERROR);
    session.ReopenInterface({.update_ms = kUpdateTime});
    EXPECT_TRUE(session.CameraIds().empty());
    camera.Replug();
    Update(session);
    EXPECT_EQ(StatusOfOpening(session, "120900000001"), GC_ERR_SUCCESS);
}

TEST_F(Discovery, OpenedCamera_ReportsTheCamerasOwnAccessStatus)
{
    const vusb::Camera camera("guid=120900000001,privilege=0");
    const auto session = OpenSession();
    {
        const OpenCamera opened(session);
        // Asked by another spelling of the id, the answer comes from the list.
        Update(session);
        EXPECT_EQ(AccessStatus(session, "120900000001"), DEVICE_ACCESS_STATUS_READWRITE);
        uint32_t status = 0;
        size_t size = sizeof(status);
        EXPECT_EQ(Gentl().GCReadPort(session.Interface(), 0x6040C, &status, &size), GC_ERR_SUCCESS);
        EXPECT_EQ(status, uint32_t{DEVICE_ACCESS_STATUS_NOACCESS});
    }
    Update(session);
    EXPECT_EQ(AccessStatus(session, "120900000001"), DEVICE_ACCESS_STATUS_READWRITE);
}

struct Refusal
{
    const char* fault;
    GC_ERROR status;
};

// The camera is found first; what is refused is its opening by the consumer.
class RefusedOpen : public Discovery, public ::testing::WithParamInterface<Refusal>
{
};

TEST_P(RefusedOpen, FailsCleanly_AndWorksWhenTheReasonIsGone)
{
    const vusb::Camera camera("guid=120900000001");
    const auto session = OpenSession();
    ASSERT_EQ(session.CameraIds().size(), 1u);
    camera.SetFaults(GetParam().fault);
    EXPECT_EQ(StatusOfOpening(session, "120900000001"), GetParam().status);
    camera.SetFaults("");
    EXPECT_EQ(StatusOfOpening(session, "120900000001"), GC_ERR_SUCCESS);
}

INSTANTIATE_TEST_SUITE_P(
    Faults, RefusedOpen,
    ::testing::Values(Refusal{"open-permission", GC_ERR_ERROR}, Refusal{"open-busy", GC_ERR_ERROR},
                      Refusal{"open-no-device", GC_ERR_ERROR}, Refusal{"claim-busy", GC_ERR_ERROR},
                      Refusal{"claim-fails", GC_ERR_ERROR}, Refusal{"reply-missing", GC_ERR_ERROR},
                      Refusal{"reply-stalled", GC_ERR_ERROR},
                      Refusal{"command-stalled", GC_ERR_ERROR},
                      Refusal{"reply-doubled*1", GC_ERR_ERROR}),
    [](const auto& tested) {
        std::string name = tested.param.fault;
        std::erase_if(name, [](char c) { return !isalnum(static_cast<unsigned char>(c)); });
        return name;
    });

TEST_F(Discovery, KernelDriver_IsDetachedAndTheCameraOpens)
{
    const vusb::Camera camera("guid=120900000001,faults=kernel-driver");
    const auto session = OpenSession();
    EXPECT_EQ(StatusOfOpening(session, "120900000001"), GC_ERR_SUCCESS);
    EXPECT_GE(vusb_call_count("libusb_detach_kernel_driver"), 1u);
}

struct PlugFault
{
    const char* fault;
    bool opens; // if it is listed; otherwise the open answers GC_ERR_ERROR
};

// What is wrong from the plug on: the pass goes on, other cameras stay usable.
class AbsurdCamera : public Discovery, public ::testing::WithParamInterface<PlugFault>
{
};

TEST_P(AbsurdCamera, DoesNotDisturbTheOthers)
{
    const vusb::Camera good("guid=120900000001,width=64,height=64");
    const vusb::Camera odd(std::string("guid=120900000002,faults=") + GetParam().fault);
    const auto session = OpenSession();
    const auto ids = session.CameraIds();
    ASSERT_FALSE(ids.empty());
    EXPECT_EQ(ids[0], "120900000001");
    for (size_t index = 1; index < ids.size(); ++index) {
        EXPECT_EQ(StatusOfOpening(session, ids[index]),
                  GetParam().opens ? GC_ERR_SUCCESS : GC_ERR_ERROR);
    }
    const OpenCamera opened(session, 0);
    ImageStream stream(opened, good.PayloadSize());
    const Triggers triggers(opened);
    stream.Start();
    ExpectExactImages(stream, good, 0, 3, &triggers);
}

// The same camera alone on the bus: it is the first, so nothing but its own data decides.
TEST_P(AbsurdCamera, AloneOnTheBus_IsSurvived)
{
    const vusb::Camera odd(std::string("guid=120900000002,faults=") + GetParam().fault);
    const auto session = OpenSession();
    for (const auto& id : session.CameraIds()) {
        EXPECT_EQ(StatusOfOpening(session, id), GetParam().opens ? GC_ERR_SUCCESS : GC_ERR_ERROR);
    }
    const vusb::Camera good("guid=120900000001,width=64,height=64,fps=50");
    Update(session);
    EXPECT_EQ(StatusOfOpening(session, "120900000001"), GC_ERR_SUCCESS);
}

INSTANTIATE_TEST_SUITE_P(
    Faults, AbsurdCamera,
    ::testing::Values(
        PlugFault{"no-stream-interface", true}, PlugFault{"no-control-interface", false},
        PlugFault{"no-sirm", true}, PlugFault{"manifest-entries:0", false},
        PlugFault{"manifest-entries:2", false}, PlugFault{"manifest-size-zero", false},
        PlugFault{"descriptor-cut", false}, PlugFault{"descriptor-total", true},
        PlugFault{"descriptor-zero-length", false}, PlugFault{"descriptor-endpoints", false},
        PlugFault{"descriptor-interfaces", false}, PlugFault{"device-descriptor-fails", false},
        PlugFault{"config-fails", false}, PlugFault{"info-missing", true},
        PlugFault{"info-short", true}, PlugFault{"strings-fail", true},
        PlugFault{"strings-odd", true}),
    [](const auto& tested) {
        std::string name = tested.param.fault;
        std::erase_if(name, [](char c) { return c == '-' || c == ':'; });
        return name;
    });

TEST_F(Discovery, NoStreamInterface_DeviceOpensButNotItsStream)
{
    const vusb::Camera camera("guid=120900000001,faults=no-stream-interface");
    const auto session = OpenSession();
    const consumer::Camera opened(session, "120900000001", DEVICE_ACCESS_CONTROL);
    DS_HANDLE stream = nullptr;
    EXPECT_EQ(Gentl().DevOpenDataStream(opened.Device(), "0", &stream), GC_ERR_ERROR);
    EXPECT_EQ(stream, nullptr);
}

// What an application gets that repeats an update shorter than a pass until the cameras are listed,
// or for a minute.
std::vector<GC_ERROR> StatusesUntilListed(const consumer::Session& session, size_t cameras,
                                          uint64_t timeout_ms)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    std::vector<GC_ERROR> statuses;
    while (session.CameraIds().size() < cameras && std::chrono::steady_clock::now() < end) {
        statuses.push_back(Gentl().IFUpdateDeviceList(session.Interface(), nullptr, timeout_ms));
    }
    return statuses;
}

TEST_F(Discovery, PassLongerThanTheTimeout_RepeatedUpdatesFindTheCameras)
{
    const auto session = OpenSession();
    const vusb::Camera first("guid=120900000001,faults=strings-late:20");
    const vusb::Camera second("guid=120900000002,faults=strings-late:20");
    const auto statuses = StatusesUntilListed(session, 2, 50);
    EXPECT_EQ(session.CameraIds(), (std::vector<std::string>{"120900000001", "120900000002"}));
    EXPECT_EQ(std::count(statuses.begin(), statuses.end(), GC_ERR_TIMEOUT) +
                  std::count(statuses.begin(), statuses.end(), GC_ERR_SUCCESS),
              static_cast<std::ptrdiff_t>(statuses.size()));
    EXPECT_GT(std::count(statuses.begin(), statuses.end(), GC_ERR_TIMEOUT), 0)
        << "a pass takes the time of a string at least";
    EXPECT_EQ(statuses.back(), GC_ERR_SUCCESS);
    EXPECT_EQ(StatusOfOpening(session, "120900000002"), GC_ERR_SUCCESS);
}

// libusb waits a second for each string that does not come.
TEST_F(Discovery, StringsHang_UpdatesKeepToTheirTimeAndTheOtherCameraIsFound)
{
    const auto session = OpenSession();
    const vusb::Camera silent("guid=120900000001,faults=strings-hang@0*3");
    const vusb::Camera good("guid=120900000002");
    const auto begin = std::chrono::steady_clock::now();
    const auto statuses = StatusesUntilListed(session, 2, 100);
    EXPECT_EQ(session.CameraIds(), (std::vector<std::string>{"120900000001", "120900000002"}));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(3));
    EXPECT_GT(std::count(statuses.begin(), statuses.end(), GC_ERR_TIMEOUT), 1);
    EXPECT_EQ(statuses.back(), GC_ERR_SUCCESS);
    EXPECT_EQ(StatusOfOpening(session, "120900000002"), GC_ERR_SUCCESS);
}

TEST_F(Discovery, LibusbInitFails_IsSurvivedAndTheNextInterfaceWorks)
{
    const vusb::Camera camera("guid=120900000001");
    ASSERT_EQ(vusb_fail_call("libusb_init", 0, 1, -99), 0);
    auto session = OpenSession();
    EXPECT_TRUE(session.CameraIds().empty());
    session.ReopenInterface({.update_ms = kUpdateTime});
    EXPECT_EQ(session.CameraIds().size(), 1u);
}

TEST_F(Discovery, DeviceListFails_LeavesTheListAsItWas)
{
    const vusb::Camera camera("guid=120900000001");
    const auto session = OpenSession();
    ASSERT_EQ(vusb_fail_call("libusb_get_device_list", 0, 1, -11), 0);
    EXPECT_FALSE(Update(session));
    EXPECT_EQ(session.CameraIds().size(), 1u);
}

TEST_F(Discovery, OpenInAnotherLetterCase_FindsTheCamera_SecondOpenIsInUse)
{
    const vusb::Camera camera("guid=1209ABCDEF01");
    const auto session = OpenSession();
    const consumer::Camera opened(session, "1209abcdef01", DEVICE_ACCESS_CONTROL);
    EXPECT_EQ(StatusOfOpening(session, "1209ABCDEF01"), GC_ERR_RESOURCE_IN_USE);
    EXPECT_EQ(StatusOfOpening(session, "1209abcdef01"), GC_ERR_RESOURCE_IN_USE);
}

} // namespace
