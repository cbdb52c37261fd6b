// Finding and opening cameras on the bus: the list's rules, refused opens, absurd descriptors, hot
// plug.

#include "producer_session.h"

namespace {

class Discovery : public ProducerTest
{
protected:
    static GC_ERROR Open(const Producer& producer, const std::string& id)
    {
        DEV_HANDLE device = nullptr;
        const GC_ERROR status =
            IFOpenDevice(producer.Interface(), id.c_str(), DEVICE_ACCESS_CONTROL, &device);
        if (status == GC_ERR_SUCCESS) {
            EXPECT_EQ(DevClose(device), GC_ERR_SUCCESS);
        }
        return status;
    }
};

TEST_F(Discovery, EmptyBus_HasNoDevices)
{
    const Producer producer;
    EXPECT_TRUE(producer.DeviceIds().empty());
}

TEST_F(Discovery, OtherDevices_AreNotListed)
{
    for (const char* kind : {"kind=mouse", "kind=hub", "kind=disk"}) {
        ASSERT_GE(vusb_add_device(kind), 0);
    }
    const Producer producer;
    EXPECT_TRUE(producer.DeviceIds().empty());
}

TEST_F(Discovery, Camera_IsListedWithItsStrings)
{
    const vusb::Camera camera("guid=1209ABCDEF01,model=M,version=1.0,serial=S1,user=Line 3");
    const Producer producer;
    ASSERT_EQ(producer.DeviceIds(), std::vector<std::string>{"1209ABCDEF01"});
    const std::string id = "1209ABCDEF01";
    EXPECT_EQ(producer.DeviceInfo(id, DEVICE_INFO_VENDOR), "ZRK-ORVANE GmbH");
    EXPECT_EQ(producer.DeviceInfo(id, DEVICE_INFO_MODEL), "M");
    EXPECT_EQ(producer.DeviceInfo(id, DEVICE_INFO_DISPLAYNAME), "M-ZRK-ORVANE GmbH-1.0");
    EXPECT_EQ(producer.DeviceInfo(id, DEVICE_INFO_SERIAL_NUMBER), "S1");
    EXPECT_EQ(producer.DeviceInfo(id, DEVICE_INFO_USER_DEFINED_NAME), "Line 3");
    EXPECT_EQ(producer.DeviceInfo(id, DEVICE_INFO_VERSION), "1.0");
    EXPECT_EQ(producer.DeviceInfo(id, DEVICE_INFO_TLTYPE), "U3V");
    EXPECT_EQ(producer.AccessStatus(id), DEVICE_ACCESS_STATUS_READWRITE);
}

TEST_F(Discovery, SecondUpdate_ChangesNothing)
{
    const vusb::Camera camera("guid=120900000001");
    const Producer producer;
    EXPECT_FALSE(producer.Update());
    const vusb::Camera second("guid=120900000002");
    EXPECT_TRUE(producer.Update());
    EXPECT_EQ(producer.DeviceIds().size(), 2u);
}

TEST_F(Discovery, SameGuidTwice_IsListedOnce)
{
    const vusb::Camera first("guid=120900000001");
    const vusb::Camera twin("guid=120900000001,serial=other");
    const Producer producer;
    EXPECT_EQ(producer.DeviceIds().size(), 1u);
}

TEST_F(Discovery, AnyVendorAlone_IsListed_AndOnlyOurVendorAfterIt)
{
    const vusb::Camera stranger("guid=99990000ABCD,vendor=Somebody");
    const vusb::Camera secondStranger("guid=99990000ABCE,vendor=Somebody");
    const vusb::Camera ours("guid=120900000001");
    const Producer producer;
    EXPECT_EQ(producer.DeviceIds(), (std::vector<std::string>{"99990000ABCD", "120900000001"}));
}

TEST_F(Discovery, UnpluggedCamera_StaysListedUntilTheInterfaceIsOpenedAgain)
{
    const vusb::Camera camera("guid=120900000001");
    Producer producer;
    camera.Unplug();
    producer.Update();
    ASSERT_EQ(producer.DeviceIds().size(), 1u);
    EXPECT_EQ(Open(producer, "120900000001"), GC_ERR_ERROR);
    producer.Reopen();
    EXPECT_TRUE(producer.DeviceIds().empty());
    camera.Replug();
    producer.Update();
    EXPECT_EQ(Open(producer, "120900000001"), GC_ERR_SUCCESS);
}

TEST_F(Discovery, OpenedCamera_ReportsTheCamerasOwnAccessStatus)
{
    const vusb::Camera camera("guid=120900000001,privilege=0");
    const Producer producer;
    {
        const OpenCamera opened(producer);
        // Asked by another spelling of the id, the answer comes from the list.
        producer.Update();
        EXPECT_EQ(producer.AccessStatus("120900000001"), DEVICE_ACCESS_STATUS_READWRITE);
        uint32_t status = 0;
        size_t size = sizeof(status);
        EXPECT_EQ(GCReadPort(producer.Interface(), 0x6040C, &status, &size), GC_ERR_SUCCESS);
        EXPECT_EQ(status, uint32_t{DEVICE_ACCESS_STATUS_NOACCESS});
    }
    producer.Update();
    EXPECT_EQ(producer.AccessStatus("120900000001"), DEVICE_ACCESS_STATUS_READWRITE);
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
    const Producer producer;
    ASSERT_EQ(producer.DeviceIds().size(), 1u);
    camera.SetFaults(GetParam().fault);
    EXPECT_EQ(Open(producer, "120900000001"), GetParam().status);
    camera.SetFaults("");
    EXPECT_EQ(Open(producer, "120900000001"), GC_ERR_SUCCESS);
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
    const Producer producer;
    EXPECT_EQ(Open(producer, "120900000001"), GC_ERR_SUCCESS);
    EXPECT_GE(vusb_call_count("libusb_detach_kernel_driver"), 1u);
}

struct PlugFault
{
    const char* fault;
    bool opens; // otherwise the open answers GC_ERR_ERROR
};

// What is wrong from the plug on: the pass goes on, other cameras stay usable.
class AbsurdCamera : public Discovery, public ::testing::WithParamInterface<PlugFault>
{
};

TEST_P(AbsurdCamera, DoesNotDisturbTheOthers)
{
    const vusb::Camera good("guid=120900000001,width=64,height=64,fps=50");
    const vusb::Camera odd(std::string("guid=120900000002,faults=") + GetParam().fault);
    const Producer producer;
    const auto ids = producer.DeviceIds();
    ASSERT_FALSE(ids.empty());
    EXPECT_EQ(ids[0], "120900000001");
    for (size_t index = 1; index < ids.size(); ++index) {
        EXPECT_EQ(Open(producer, ids[index]), GetParam().opens ? GC_ERR_SUCCESS : GC_ERR_ERROR);
    }
    const OpenCamera opened(producer, 0);
    const ImageStream stream(opened.Stream(), good.PayloadSize());
    ASSERT_EQ(stream.Start(), GC_ERR_SUCCESS);
    ExpectExactImages(stream, good, 0, 3);
}

// The same camera alone on the bus: it is the first, so nothing but its own data decides.
TEST_P(AbsurdCamera, AloneOnTheBus_IsSurvived)
{
    const vusb::Camera odd(std::string("guid=120900000002,faults=") + GetParam().fault);
    const Producer producer;
    for (const auto& id : producer.DeviceIds()) {
        Open(producer, id);
    }
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
        PlugFault{"config-fails", false}, PlugFault{"info-missing", false},
        PlugFault{"info-short", false}, PlugFault{"strings-fail", false},
        PlugFault{"strings-odd", false}),
    [](const auto& tested) {
        std::string name = tested.param.fault;
        std::erase_if(name, [](char c) { return c == '-' || c == ':'; });
        return name;
    });

TEST_F(Discovery, NoStreamInterface_DeviceOpensButNotItsStream)
{
    const vusb::Camera camera("guid=120900000001,faults=no-stream-interface");
    const Producer producer;
    DEV_HANDLE device = nullptr;
    ASSERT_EQ(IFOpenDevice(producer.Interface(), "120900000001", DEVICE_ACCESS_CONTROL, &device),
              GC_ERR_SUCCESS);
    DS_HANDLE stream = nullptr;
    EXPECT_EQ(DevOpenDataStream(device, "0", &stream), GC_ERR_ERROR);
    EXPECT_EQ(stream, nullptr);
    EXPECT_EQ(DevClose(device), GC_ERR_SUCCESS);
}

TEST_F(Discovery, LibusbInitFails_IsSurvivedAndTheNextInterfaceWorks)
{
    const vusb::Camera camera("guid=120900000001");
    ASSERT_EQ(vusb_fail_call("libusb_init", 0, 1, -99), 0);
    Producer producer;
    EXPECT_TRUE(producer.DeviceIds().empty());
    producer.Reopen();
    EXPECT_EQ(producer.DeviceIds().size(), 1u);
}

TEST_F(Discovery, DeviceListFails_LeavesTheListAsItWas)
{
    const vusb::Camera camera("guid=120900000001");
    const Producer producer;
    ASSERT_EQ(vusb_fail_call("libusb_get_device_list", 0, 1, -11), 0);
    EXPECT_FALSE(producer.Update());
    EXPECT_EQ(producer.DeviceIds().size(), 1u);
}

TEST_F(Discovery, OpenInAnotherLetterCase_FindsTheCamera_SecondOpenIsInUse)
{
    const vusb::Camera camera("guid=1209ABCDEF01");
    const Producer producer;
    DEV_HANDLE device = nullptr;
    ASSERT_EQ(IFOpenDevice(producer.Interface(), "1209abcdef01", DEVICE_ACCESS_CONTROL, &device),
              GC_ERR_SUCCESS);
    DEV_HANDLE again = nullptr;
    EXPECT_EQ(IFOpenDevice(producer.Interface(), "1209ABCDEF01", DEVICE_ACCESS_CONTROL, &again),
              GC_ERR_RESOURCE_IN_USE);
    EXPECT_EQ(IFOpenDevice(producer.Interface(), "1209abcdef01", DEVICE_ACCESS_CONTROL, &again),
              GC_ERR_RESOURCE_IN_USE);
    EXPECT_EQ(DevClose(device), GC_ERR_SUCCESS);
}

} // namespace
