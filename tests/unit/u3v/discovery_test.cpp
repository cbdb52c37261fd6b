#include "u3v_device.h"
#include "u3v_discovery.h"
#include "u3v_fixture.h"

#include <string>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace {

class DiscoveryTest : public UsbTest
{
protected:
    // One pass in quiet: string failures are printed.
    static uint16_t Pass(U3V_Discovery& discovery)
    {
        CaptureStdout();
        const uint16_t status = discovery.Discovery();
        GetCapturedStdout();
        return status;
    }

    void TearDown() override
    {
        UsbTest::TearDown();
        EXPECT_EQ(usb.openHandles.load(), 0);
        EXPECT_EQ(usb.liveConfigurations.load(), 0);
    }
};

TEST_F(DiscoveryTest, Constructor_InitFails_LogsAndLaterPassesDoNothing)
{
    usb.initResult = LIBUSB_ERROR_ACCESS;
    AddCamera(usb, "a", "GUID");
    {
        U3V_Discovery discovery;
        EXPECT_EQ(discovery.Discovery(), 0);
        EXPECT_EQ(discovery.DeviceCount(), 0U);
    }
    EXPECT_THAT(log.Lines(), ElementsAre("[ERROR   ] U3V_Discovery text of access"));
    EXPECT_THAT(usb.Journal(), ElementsAre("init context=null"));
}

TEST_F(DiscoveryTest, Pass_EmptyBus_FreesTheListAndReturnsZero)
{
    {
        U3V_Discovery discovery;
        EXPECT_EQ(discovery.Discovery(), 0);
        EXPECT_EQ(discovery.DeviceCount(), 0U);
    }
    EXPECT_THAT(usb.Journal(), ElementsAre("init context=null", "get_device_list context=null",
                                           "free_device_list unref=1", "exit context=null"));
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(DiscoveryTest, Pass_ListFails_LogsWithTrailingBlankAndReturnsZero)
{
    usb.listResult = LIBUSB_ERROR_NO_MEM;
    U3V_Discovery discovery;
    EXPECT_EQ(discovery.Discovery(), 0);
    EXPECT_THAT(log.Lines(), ElementsAre("[ERROR   ] Discovery text of no mem "));
    EXPECT_THAT(usb.Journal("free_device_list"), ElementsAre("free_device_list unref=1"));
}

TEST_F(DiscoveryTest, Pass_OtherDevices_AreNotOpened)
{
    AddCamera(usb, "class", "A").descriptor.bDeviceClass = 0x09;
    AddCamera(usb, "subclass", "B").descriptor.bDeviceSubClass = 0x03;
    AddCamera(usb, "protocol", "C").descriptor.bDeviceProtocol = 0x00;
    U3V_Discovery discovery;
    EXPECT_EQ(Pass(discovery), 0);
    EXPECT_EQ(discovery.DeviceCount(), 0U);
    EXPECT_EQ(usb.Count("open"), 0U);
    EXPECT_EQ(usb.Count("get_device_descriptor"), 3U);
}

TEST_F(DiscoveryTest, Pass_DescriptorFails_LogsAndGoesOn)
{
    AddCamera(usb, "bad", "A").descriptorResult = LIBUSB_ERROR_PIPE;
    AddCamera(usb, "good", "B");
    U3V_Discovery discovery;
    Pass(discovery);
    EXPECT_THAT(log.Lines(), ElementsAre("[ERROR   ] Discovery text of pipe"));
    EXPECT_EQ(discovery.DeviceCount(), 1U);
}

// Logged, and tested all the same: what a failing call has left decides.
TEST_F(DiscoveryTest, Pass_DescriptorFailsButIsFilled_CameraIsListed)
{
    libusb_device& odd = AddCamera(usb, "odd", "A");
    odd.descriptorResult = LIBUSB_ERROR_PIPE;
    odd.descriptorFilledAllTheSame = true;
    U3V_Discovery discovery;
    Pass(discovery);
    EXPECT_THAT(log.Lines(), ElementsAre("[ERROR   ] Discovery text of pipe"));
    EXPECT_EQ(discovery.DeviceCount(), 1U);
}

TEST_F(DiscoveryTest, Pass_EveryDescriptorFails_NothingIsOpened)
{
    AddCamera(usb, "first", "A").descriptorResult = LIBUSB_ERROR_NO_DEVICE;
    AddCamera(usb, "second", "B").descriptorResult = LIBUSB_ERROR_NO_DEVICE;
    U3V_Discovery discovery;
    EXPECT_EQ(Pass(discovery), 0);
    EXPECT_THAT(log.Lines(), ElementsAre("[ERROR   ] Discovery text of no device",
                                         "[ERROR   ] Discovery text of no device"));
    EXPECT_EQ(usb.Count("open"), 0U);
    EXPECT_EQ(discovery.DeviceCount(), 0U);
}

TEST_F(DiscoveryTest, Pass_OneCamera_MakesExactlyTheseCalls)
{
    AddCamera(usb, "cam", "0123456789AB");
    {
        U3V_Discovery discovery;
        Pass(discovery);
    }
    EXPECT_THAT(usb.Journal(),
                ElementsAre("init context=null", "get_device_list context=null",
                            "get_device_descriptor cam", "open cam",
                            "get_string cam index=2 length=64", "get_string cam index=3 length=64",
                            "get_string cam index=7 length=64", "get_config_descriptor cam index=0",
                            "get_string cam index=1 length=13", "get_string cam index=2 length=64",
                            "get_string cam index=3 length=64", "get_string cam index=4 length=64",
                            "get_string cam index=5 length=64", "get_string cam index=6 length=64",
                            "get_string cam index=7 length=64", "get_string cam index=8 length=64",
                            "ref_device cam", "close cam", "free_device_list unref=1",
                            "free_config_descriptor", "unref_device cam", "exit context=null"));
}

TEST_F(DiscoveryTest, Pass_OneCamera_FillsTheRecord)
{
    AddCamera(usb, "cam", "0123456789AB");
    U3V_Discovery discovery;
    Pass(discovery);
    ASSERT_EQ(discovery.DeviceCount(), 1U);
    const auto info = discovery.DeviceAt(1);
    const U3V_DEVICE_INFO record = info->Record();
    EXPECT_EQ(+record.GenCPVersion, 0x00010002U);
    EXPECT_EQ(+record.U3VVersion, 0x00010000U);
    EXPECT_STREQ(record.DeviceGUID, "0123456789AB");
    EXPECT_STREQ(record.VendorName, "ZRK-ORVANE GmbH");
    EXPECT_STREQ(record.ModelName, "Model");
    EXPECT_STREQ(record.FamilyName, "Family");
    EXPECT_STREQ(record.DeviceVersion, "V1.0");
    EXPECT_STREQ(record.ManufacturerInfo, "Info");
    EXPECT_STREQ(record.SerialNumber, "SN-01");
    EXPECT_STREQ(record.UserDefinedName, "Name");
    EXPECT_EQ(record.SpeedSupport, 0x08);
    EXPECT_EQ(record.InUse, 0);
    EXPECT_EQ(info->ControlInterface, 0);
    EXPECT_EQ(info->EventInterface, 1);
    EXPECT_EQ(info->StreamInterface, 2);
    EXPECT_EQ(info->ControlOutEndpoint, 0x01);
    EXPECT_EQ(info->ControlInEndpoint, 0x81);
    EXPECT_EQ(info->EventEndpoint, 0x82);
    EXPECT_EQ(info->StreamEndpoint, 0x83);
}

TEST_F(DiscoveryTest, Pass_OpenDenied_ListsTheCameraWithEmptyStrings)
{
    libusb_device& camera = AddCamera(usb, "cam", "0123456789AB");
    camera.openResult = LIBUSB_ERROR_ACCESS;
    camera.openGivesHandle = false;
    U3V_Discovery discovery;
    EXPECT_EQ(discovery.Discovery(), 0);
    EXPECT_THAT(log.Lines(), ElementsAre("[ERROR   ] Discovery text of access"));
    ASSERT_EQ(discovery.DeviceCount(), 1U);
    const auto info = discovery.DeviceAt(1);
    EXPECT_STREQ(info->DeviceGUID, "");
    EXPECT_EQ(+info->GenCPVersion, 0x00010002U);
    EXPECT_EQ(info->SpeedSupport, 0x08);
    EXPECT_EQ(info->StreamEndpoint, 0x83);
    EXPECT_EQ(usb.Count("get_string"), 0U);
    EXPECT_EQ(usb.Count("close"), 0U);
}

TEST_F(DiscoveryTest, Pass_OpenDeniedAfterAnotherCamera_DoesNotUseThatCamerasHandle)
{
    AddCamera(usb, "first", "A");
    libusb_device& denied = AddCamera(usb, "denied", "B");
    denied.openResult = LIBUSB_ERROR_ACCESS;
    denied.openGivesHandle = false;
    U3V_Discovery discovery;
    Pass(discovery);
    EXPECT_THAT(usb.Journal("close"), ElementsAre("close first"));
    EXPECT_EQ(discovery.DeviceCount(), 1U); // without strings its vendor does not match
}

TEST_F(DiscoveryTest, Pass_ConfigurationFails_LogsAndListsAnEmptyRecord)
{
    AddCamera(usb, "cam", "A").configurationResult = LIBUSB_ERROR_PIPE;
    {
        U3V_Discovery discovery;
        Pass(discovery);
        ASSERT_EQ(discovery.DeviceCount(), 1U);
        EXPECT_STREQ(discovery.DeviceAt(1)->VendorName, "");
    }
    EXPECT_THAT(log.Lines(), ElementsAre("[ERROR   ] GetDeviceInfo text of pipe"));
    EXPECT_EQ(usb.Count("free_config_descriptor"), 0U);
}

TEST_F(DiscoveryTest, Admission_FirstCamera_IsListedWhateverItsVendor)
{
    AddCamera(usb, "cam", "A", "Somebody Else");
    U3V_Discovery discovery;
    Pass(discovery);
    EXPECT_EQ(discovery.DeviceCount(), 1U);
}

TEST_F(DiscoveryTest, Admission_LaterCameraOfAnotherVendor_IsNotListed)
{
    AddCamera(usb, "a", "A", "Somebody Else");
    AddCamera(usb, "b", "B", "Somebody Else");
    AddCamera(usb, "c", "C", "ZRK-ORVANE GmbHx");
    AddCamera(usb, "d", "D", "ZRK-ORVANE Gmb");
    AddCamera(usb, "e", "E");
    U3V_Discovery discovery;
    Pass(discovery);
    ASSERT_EQ(discovery.DeviceCount(), 2U);
    EXPECT_STREQ(discovery.DeviceAt(1)->DeviceGUID, "A");
    EXPECT_STREQ(discovery.DeviceAt(2)->DeviceGUID, "E");
}

TEST_F(DiscoveryTest, Admission_SameGuidTwiceInOnePass_IsListedOnce)
{
    AddCamera(usb, "a", "SAME");
    AddCamera(usb, "b", "SAME");
    AddCamera(usb, "c", "SAM");
    U3V_Discovery discovery;
    Pass(discovery);
    EXPECT_EQ(discovery.DeviceCount(), 2U);
}

TEST_F(DiscoveryTest, Admission_TwoEmptyGuids_AreEqual)
{
    AddCamera(usb, "a", "");
    AddCamera(usb, "b", "");
    U3V_Discovery discovery;
    Pass(discovery);
    EXPECT_EQ(discovery.DeviceCount(), 1U);
}

TEST_F(DiscoveryTest, Admission_RefusedRecord_IsFreedBeforeTheHandleIsClosed)
{
    AddCamera(usb, "a", "SAME");
    U3V_Discovery discovery;
    Pass(discovery);
    usb.ClearJournal();
    Pass(discovery);
    const auto journal = usb.Journal();
    ASSERT_GE(journal.size(), 3U);
    EXPECT_THAT(std::vector<std::string>(journal.end() - 3, journal.end()),
                ElementsAre("free_config_descriptor", "close a", "free_device_list unref=1"));
    EXPECT_EQ(usb.Count("ref_device"), 0U);
}

TEST_F(DiscoveryTest, SecondPass_UnpluggedCamera_StaysListedAndReferenced)
{
    libusb_device& camera = AddCamera(usb, "a", "A");
    {
        U3V_Discovery discovery;
        Pass(discovery);
        usb.Unlist(camera);
        Pass(discovery);
        EXPECT_EQ(discovery.DeviceCount(), 1U);
        EXPECT_EQ(camera.references, 1);
    }
    EXPECT_EQ(camera.references, 0);
}

// A device that is unplugged and comes back under another GUID, again and again.
TEST_F(DiscoveryTest, Admission_EverNewGuids_EndAt1024AndTheListedOnesStay)
{
    U3V_Discovery discovery;
    for (int i = 0; i < 1030; ++i) {
        const std::string guid = std::to_string(i);
        libusb_device& camera = AddCamera(usb, "c" + guid, guid);
        discovery.Discovery();
        EXPECT_EQ(camera.references, i < 1024 ? 1 : 0) << i;
        usb.Unlist(camera);
    }
    EXPECT_EQ(discovery.DeviceCount(), 1024U);
    EXPECT_NE(discovery.FindByGUID("0"), nullptr);
    EXPECT_NE(discovery.FindByGUID("1023"), nullptr);
    EXPECT_EQ(discovery.FindByGUID("1024"), nullptr);
}

TEST_F(DiscoveryTest, Destructor_SeveralCameras_FreesInListOrderThenEndsLibusb)
{
    AddCamera(usb, "a", "A");
    AddCamera(usb, "b", "B");
    {
        U3V_Discovery discovery;
        Pass(discovery);
        usb.ClearJournal();
    }
    EXPECT_THAT(usb.Journal(),
                ElementsAre("free_config_descriptor", "unref_device a", "free_config_descriptor",
                            "unref_device b", "exit context=null"));
}

TEST_F(DiscoveryTest, TwoConfigurations_FirstAdmitted_IsListedOnceAndKeepsIt)
{
    libusb_device& camera = AddCamera(usb, "a", "A");
    camera.configurations.push_back(camera.configurations.front());
    camera.descriptor.bNumConfigurations = 2;
    U3V_Discovery discovery;
    Pass(discovery);
    EXPECT_EQ(discovery.DeviceCount(), 1U);
    Pass(discovery);
    EXPECT_EQ(discovery.DeviceCount(), 1U);
}

TEST_F(DiscoveryTest, TwoConfigurations_FirstRefused_SecondIsParsedIntoTheSameRecord)
{
    AddCamera(usb, "a", "A");
    libusb_device& late = AddCamera(usb, "b", "B");
    late.configurations.insert(late.configurations.begin(), FakeConfiguration{});
    late.descriptor.bNumConfigurations = 2;
    U3V_Discovery discovery;
    Pass(discovery);
    EXPECT_EQ(discovery.DeviceCount(), 2U);
    EXPECT_THAT(usb.Journal("free_config_descriptor"), ElementsAre("free_config_descriptor"));
}

TEST_F(DiscoveryTest, NoConfiguration_IsNotListed)
{
    AddCamera(usb, "a", "A").descriptor.bNumConfigurations = 0;
    U3V_Discovery discovery;
    Pass(discovery);
    EXPECT_EQ(discovery.DeviceCount(), 0U);
}

TEST_F(DiscoveryTest, Descriptor_CutShort_IsNotReadBeyondItsBytes)
{
    for (size_t length = 0; length <= 20; ++length) {
        usb.Reset();
        libusb_device& camera = AddCamera(usb, "a", "A");
        camera.configurations[0][0][0].extra.resize(length);
        U3V_Discovery discovery;
        Pass(discovery);
        const auto info = discovery.DeviceAt(1);
        ASSERT_NE(info, nullptr);
        EXPECT_EQ(+info->GenCPVersion, length >= 7 ? 0x00010002U : 0U) << length;
        EXPECT_STREQ(info->DeviceGUID, length >= 12 ? "A" : "") << length;
        EXPECT_STREQ(info->UserDefinedName, length >= 19 ? "Name" : "") << length;
        EXPECT_EQ(info->SpeedSupport, length >= 20 ? 0x08 : 0) << length;
    }
}

TEST_F(DiscoveryTest, Descriptor_OnInterfaceOfAnotherClass_IsParsedToo)
{
    libusb_device& camera = AddCamera(usb, "a", "A");
    camera.configurations[0][0][0].extra.clear();
    camera.configurations[0].push_back({{9, 0x03, 0x00, 7, {}, DeviceInfoDescriptor()}});
    U3V_Discovery discovery;
    Pass(discovery);
    EXPECT_STREQ(discovery.DeviceAt(1)->DeviceGUID, "A");
}

TEST_F(DiscoveryTest, Descriptor_OfAnotherType_IsIgnored)
{
    AddCamera(usb, "a", "A").configurations[0][0][0].extra[1] = 0x25;
    U3V_Discovery discovery;
    Pass(discovery);
    EXPECT_STREQ(discovery.DeviceAt(1)->DeviceGUID, "");
}

TEST_F(DiscoveryTest, Interfaces_OfAnotherClass_GiveNoNumberButTheirEndpoints)
{
    libusb_device& camera = AddCamera(usb, "a", "A");
    camera.configurations = {{{
        {4, 0x08, 0x05, 0, {0x04, 0x84}, {}},
        {5, 0xEF, 0x06, 1, {0x85}, {}},
        {6, 0x08, 0x06, 2, {0x86}, {}},
        {7, 0xEF, 0x05, 3, {0x87}, {}},
    }}};
    U3V_Discovery discovery;
    Pass(discovery);
    const auto info = discovery.DeviceAt(1);
    EXPECT_EQ(info->ControlInterface, 0);
    EXPECT_EQ(info->EventInterface, 0);
    EXPECT_EQ(info->StreamInterface, 0);
    EXPECT_EQ(info->ControlOutEndpoint, 0x04);
    EXPECT_EQ(info->ControlInEndpoint, 0x84);
    EXPECT_EQ(info->EventEndpoint, 0x85);
    EXPECT_EQ(info->StreamEndpoint, 0x86);
}

TEST_F(DiscoveryTest, Strings_LongerThanTheirField_AreCutAndTerminated)
{
    AddCamera(usb, "a", "0123456789ABCDEF", std::string(100, 'v'));
    U3V_Discovery discovery;
    Pass(discovery);
    EXPECT_STREQ(discovery.DeviceAt(1)->DeviceGUID, "0123456789AB");
    EXPECT_EQ(std::string(discovery.DeviceAt(1)->VendorName), std::string(63, 'v'));
}

TEST_F(DiscoveryTest, Strings_LeftUnterminatedByTheBus_AreTerminatedAllTheSame)
{
    AddCamera(usb, "a", "A").unterminatedStrings = true;
    U3V_Discovery discovery;
    Pass(discovery);
    EXPECT_EQ(std::string(discovery.DeviceAt(1)->DeviceGUID), std::string(12, 'x'));
    EXPECT_EQ(std::string(discovery.DeviceAt(1)->UserDefinedName), std::string(63, 'x'));
}

TEST_F(DiscoveryTest, GetDeviceInfo_LastStringFails_ReturnsItsResult)
{
    libusb_device& camera = AddCamera(usb, "a", "A");
    camera.strings.erase(8);
    libusb_device_handle handle{&camera};
    U3V_DeviceInfo info(nullptr, &camera);
    EXPECT_EQ(info.GetDeviceInfo(&handle, 0), LIBUSB_ERROR_PIPE);
    camera.strings.erase(1);
    camera.strings[8] = "Name";
    EXPECT_EQ(info.GetDeviceInfo(&handle, 0), 4); // the other strings' failures do not count
}

TEST_F(DiscoveryTest, GetDeviceInfo_ConfigurationFails_ReturnsItsResult)
{
    libusb_device& camera = AddCamera(usb, "a", "A");
    U3V_DeviceInfo info(nullptr, &camera);
    EXPECT_EQ(info.GetDeviceInfo(nullptr, 5), LIBUSB_ERROR_NOT_FOUND);
}

TEST_F(DiscoveryTest, RetrieveString_Success_CopiesAll64Bytes)
{
    libusb_device& camera = AddCamera(usb, "a", "A");
    libusb_device_handle handle{&camera};
    unsigned char output[70];
    memset(output, 0xEE, sizeof(output));
    EXPECT_EQ(U3V_Discovery::retrieveString(&handle, 3, output, 70), 5);
    EXPECT_STREQ(reinterpret_cast<char*>(output), "Model");
    EXPECT_EQ(output[63], 0);
    EXPECT_EQ(output[64], 0xEE);
}

TEST_F(DiscoveryTest, RetrieveString_OutputSmallerThan64_IsNotWrittenBeyond)
{
    libusb_device& camera = AddCamera(usb, "a", "A");
    libusb_device_handle handle{&camera};
    std::vector<unsigned char> output(5);
    EXPECT_EQ(U3V_Discovery::retrieveString(&handle, 3, output.data(), 5), 5);
    EXPECT_EQ(std::string(output.begin(), output.end()), "Model");
}

TEST_F(DiscoveryTest, RetrieveString_OutputTooSmall_LogsAndLeavesTheOutput)
{
    libusb_device& camera = AddCamera(usb, "a", "A");
    libusb_device_handle handle{&camera};
    unsigned char output[4] = {1, 2, 3, 4};
    EXPECT_EQ(U3V_Discovery::retrieveString(&handle, 3, output, 4), 5);
    EXPECT_EQ(output[0], 1);
    EXPECT_THAT(log.Lines(),
                ElementsAre("[ERROR   ] retrieveString need 5 bytes to hold output string!"));
}

TEST_F(DiscoveryTest, RetrieveString_Fails_PrintsTheText)
{
    libusb_device& camera = AddCamera(usb, "a", "A");
    libusb_device_handle handle{&camera};
    unsigned char output[64] = {7};
    CaptureStdout();
    EXPECT_EQ(U3V_Discovery::retrieveString(&handle, 0, output, 64), LIBUSB_ERROR_PIPE);
    EXPECT_EQ(GetCapturedStdout(), "text of pipe \n");
    EXPECT_EQ(output[0], 7);
}

TEST_F(DiscoveryTest, CheckDiscovery_Null_Throws)
{
    libusb_device_handle handle{nullptr};
    EXPECT_EQ(U3V_Discovery::CheckDiscovery(&handle), &handle);
    try {
        U3V_Discovery::CheckDiscovery<libusb_device_handle>(nullptr);
        FAIL();
    } catch (const std::invalid_argument& error) {
        EXPECT_STREQ(error.what(), " Invalid Decovery Handle");
    }
}

TEST_F(DiscoveryTest, DeviceAt_ZeroOrBeyond_IsNull)
{
    AddCamera(usb, "a", "A");
    U3V_Discovery discovery;
    Pass(discovery);
    EXPECT_EQ(discovery.DeviceAt(0), nullptr);
    EXPECT_NE(discovery.DeviceAt(1), nullptr);
    EXPECT_EQ(discovery.DeviceAt(2), nullptr);
}

TEST_F(DiscoveryTest, Discovery_WhileOthersLookUp_IsSafe)
{
    for (int i = 0; i < 8; ++i) {
        AddCamera(usb, "c", "GUID" + std::to_string(i));
    }
    U3V_Discovery discovery;
    CaptureStdout();
    std::thread worker([&] {
        for (int i = 0; i < 20; ++i) {
            discovery.Discovery();
        }
    });
    for (int i = 0; i < 500; ++i) {
        const auto info = discovery.FindByGUID("GUID3");
        if (info != nullptr) {
            info->SetInUse(i % 2 != 0);
            EXPECT_STREQ(info->Record().DeviceGUID, "GUID3");
        }
    }
    worker.join();
    GetCapturedStdout();
    EXPECT_EQ(discovery.DeviceCount(), 8U);
}

class DeviceTest : public DiscoveryTest
{
};

TEST_F(DeviceTest, Constructor_ZeroesEverything)
{
    const U3V_Device device;
    EXPECT_EQ(device.Handle(), nullptr);
    EXPECT_EQ(device.ControlInterface | device.EventInterface | device.StreamInterface |
                  device.ControlOutEndpoint | device.ControlInEndpoint | device.EventEndpoint |
                  device.StreamEndpoint,
              0);
}

TEST_F(DeviceTest, OpenDevice_CopiesNumbersAndMarksInUseUntilClosed)
{
    AddCamera(usb, "a", "A");
    U3V_Discovery discovery;
    Pass(discovery);
    usb.ClearJournal();
    {
        U3V_Device device;
        EXPECT_EQ(device.OpenDevice(discovery.DeviceAt(1)), 0);
        EXPECT_EQ(device.ControlInterface, 0);
        EXPECT_EQ(device.EventInterface, 1);
        EXPECT_EQ(device.StreamInterface, 2);
        EXPECT_EQ(device.ControlOutEndpoint, 0x01);
        EXPECT_EQ(device.ControlInEndpoint, 0x81);
        EXPECT_EQ(device.EventEndpoint, 0x82);
        EXPECT_EQ(device.StreamEndpoint, 0x83);
        EXPECT_EQ(discovery.DeviceAt(1)->Record().InUse, 1);
    }
    EXPECT_EQ(discovery.DeviceAt(1)->Record().InUse, 0);
    EXPECT_THAT(usb.Journal(), ElementsAre("open a", "close a"));
}

TEST_F(DeviceTest, OpenDevice_InterfacesMissing_LeavesTheirEndpointsZero)
{
    libusb_device& camera = AddCamera(usb, "a", "A");
    auto info = std::make_shared<U3V_DeviceInfo>(nullptr, &camera);
    info->EventEndpoint = 0x82;
    info->StreamEndpoint = 0x83;
    U3V_Device device;
    EXPECT_EQ(device.OpenDevice(info), 0);
    EXPECT_EQ(device.EventEndpoint, 0);
    EXPECT_EQ(device.StreamEndpoint, 0);
}

TEST_F(DeviceTest, OpenDevice_NoHandle_IsOpenFailedAndNotInUse)
{
    libusb_device& camera = AddCamera(usb, "a", "A");
    camera.openGivesHandle = false;
    auto info = std::make_shared<U3V_DeviceInfo>(nullptr, &camera);
    for (const int result : {0, int{LIBUSB_ERROR_ACCESS}, int{LIBUSB_ERROR_NO_DEVICE}}) {
        camera.openResult = result;
        U3V_Device device;
        EXPECT_EQ(device.OpenDevice(info), 0xC001);
        EXPECT_EQ(info->Record().InUse, 0);
    }
    EXPECT_EQ(usb.Count("close"), 0U);
}

TEST_F(DeviceTest, DiscoveryClosedFirst_DeviceKeepsItsRecordAndLibusb)
{
    AddCamera(usb, "a", "A");
    U3V_Device device;
    {
        U3V_Discovery discovery;
        Pass(discovery);
        EXPECT_EQ(device.OpenDevice(discovery.DeviceAt(1)), 0);
        usb.ClearJournal();
    }
    EXPECT_THAT(usb.Journal(), IsEmpty());
    device.~U3V_Device();
    EXPECT_THAT(usb.Journal(), ElementsAre("close a", "free_config_descriptor", "unref_device a",
                                           "exit context=null"));
    new (&device) U3V_Device;
}

} // namespace
