// Listing, opening, registers and events of cameras, through the exported functions.

#include <description_url.h>

#include "standard_camera.h"

namespace standard_tests {
namespace {

class Cameras : public StandardProducer
{
protected:
    void List(const std::string& options)
    {
        camera.emplace(options);
        session.emplace(Gentl(), consumer::Search{.update_ms = 1000});
    }
    int32_t Access(const std::string& id) { return AccessStatus(*session, id); }
    std::string Id() { return session->CameraIds().at(0); }
    GC_ERROR OpenStatus()
    {
        DEV_HANDLE device = nullptr;
        return Gentl().IFOpenDevice(session->Interface(), Id().c_str(), DEVICE_ACCESS_CONTROL,
                                    &device);
    }
};

TEST_F(Cameras, List_OneCamera_TellsItsTextsAndStatus)
{
    List("guid=120900000042,serial=S42,user=Left");
    const std::string id = Id();
    EXPECT_EQ(id, "120900000042");
    EXPECT_EQ(session->CameraText(id, DEVICE_INFO_VENDOR), "ZRK-ORVANE GmbH");
    EXPECT_EQ(session->CameraText(id, DEVICE_INFO_MODEL), "Virtual U3V");
    EXPECT_EQ(session->CameraText(id, DEVICE_INFO_SERIAL_NUMBER), "S42");
    EXPECT_EQ(session->CameraText(id, DEVICE_INFO_USER_DEFINED_NAME), "Left");
    EXPECT_EQ(session->CameraText(id, DEVICE_INFO_DISPLAYNAME),
              "ZRK-ORVANE GmbH Virtual U3V (Left)");
    EXPECT_EQ(Access(id), DEVICE_ACCESS_STATUS_READWRITE);
}

TEST_F(Cameras, List_UnplugAndReplug_FollowsAtTheNextUpdate)
{
    List("");
    camera->Unplug();
    EXPECT_TRUE(session->Update({.update_ms = 1000}));
    EXPECT_TRUE(session->CameraIds().empty());
    camera->Replug();
    EXPECT_TRUE(session->Update({.update_ms = 1000}));
    EXPECT_EQ(session->CameraIds().size(), 1U);
    EXPECT_FALSE(session->Update({.update_ms = 1000}));
}

TEST_F(Cameras, Arrival_IsToldAtOnce)
{
    List("");
    EVENT_HANDLE event = Register(session->Interface(), EVENT_FEATURE_INVALIDATE);
    const vusb::Camera second("guid=120900000002");
    EXPECT_FALSE(Record(event).empty()) << "before any update";
}

TEST_F(Cameras, Open_NoPermission_IsListedAndDenied)
{
    List("faults=open-permission");
    EXPECT_EQ(OpenStatus(), GC_ERR_ACCESS_DENIED) << LastError();
}

TEST_F(Cameras, Open_ClaimedByAnotherProcess_IsInUse)
{
    List("faults=claim-busy");
    EXPECT_EQ(OpenStatus(), GC_ERR_RESOURCE_IN_USE) << LastError();
}

TEST_F(Cameras, Open_SilentCamera_IsIoAndUndone)
{
    List("response-ms=20,faults=reply-missing");
    EXPECT_EQ(OpenStatus(), GC_ERR_IO) << LastError();
    camera->SetFaults("");
    EXPECT_EQ(OpenStatus(), GC_ERR_SUCCESS) << LastError();
}

TEST_F(Cameras, Open_CameraThatInsistsOnTheLengthOfReads_Opens)
{
    Open("strict=1");
    EXPECT_EQ(opened->Read<uint32_t>(camera_features::kWidth), 640U);
}

TEST_F(Cameras, Open_ReadOnly_RefusesWrites)
{
    Open("", DEVICE_ACCESS_READONLY);
    EXPECT_EQ(opened->Read<uint32_t>(camera_features::kWidth), 640U);
    const uint32_t width = 320;
    EXPECT_EQ(opened->TryWrite(camera_features::kWidth, &width, sizeof(width)),
              GC_ERR_ACCESS_DENIED);
    EXPECT_EQ(Access(Id()), DEVICE_ACCESS_STATUS_OPEN_READONLY);
}

TEST_F(Cameras, UserDefinedName_IsWritten_FollowsInTheInfos)
{
    Open("user=Left");
    char name[64] = "Right";
    constexpr uint64_t kUserDefinedName = 0x184;
    opened->Write(kUserDefinedName, name, sizeof(name));
    EXPECT_EQ(session->CameraText(Id(), DEVICE_INFO_USER_DEFINED_NAME), "Right");
}

TEST_F(Cameras, Description_IsReadFromItsUrlByteForByte)
{
    for (const char* options : {"zip=0", "zip=1,guid=2,strict=1"}) {
        Open(options);
        const auto url = consumer::ParseDescriptionUrl(consumer::FirstUrl(Gentl(), opened->Port()));
        std::vector<uint8_t> file(url.length);
        opened->Read(url.address, file.data(), file.size());
        EXPECT_EQ(file, camera->DescriptionFile());
        opened.reset();
        session.reset();
        camera->Unplug();
    }
}

TEST_F(Cameras, Refusal_OfTheCamera_IsItsCodeAndNamesStatusAndAddress)
{
    Open("");
    camera->SetFaults("reply-error%0x50000:0x8006");
    uint32_t value = 0;
    EXPECT_EQ(opened->TryRead(camera_features::kWidth, &value, sizeof(value)),
              GC_ERR_ACCESS_DENIED);
    const std::string text = LastError();
    EXPECT_NE(text.find("8006"), std::string::npos) << text;
    EXPECT_NE(text.find("50000"), std::string::npos) << text;
}

TEST_F(Cameras, Unplugged_OpenCamera_FiresAndAnswersWhatIsKnown)
{
    Open("");
    EVENT_HANDLE event = Register(opened->Device(), EVENT_ERROR);
    camera->Unplug();
    const auto record = Record(event);
    ASSERT_FALSE(record.empty());
    int32_t code = 0;
    size_t size = sizeof(code);
    EXPECT_EQ(Gentl().EventGetDataInfo(event, record.data(), record.size(), EVENT_DATA_ID, nullptr,
                                       &code, &size),
              GC_ERR_SUCCESS);
    EXPECT_EQ(code, GC_ERR_IO);
    uint32_t value = 0;
    EXPECT_EQ(opened->TryRead(0, &value, sizeof(value)), GC_ERR_IO);
    char model[64];
    size = sizeof(model);
    EXPECT_EQ(Gentl().DevGetInfo(opened->Device(), DEVICE_INFO_MODEL, nullptr, model, &size),
              GC_ERR_SUCCESS);
    bool8_t isNotAvailable = false;
    size = sizeof(isNotAvailable);
    EXPECT_EQ(
        Gentl().GCGetPortInfo(opened->Port(), PORT_INFO_ACCESS_NA, nullptr, &isNotAvailable, &size),
        GC_ERR_SUCCESS);
    EXPECT_TRUE(isNotAvailable);
}

TEST_F(Cameras, Replugged_AfterTheOldOneWasClosed_OpensAgain)
{
    Open("");
    camera->Unplug();
    opened.reset();
    camera->Replug();
    session->Update({.update_ms = 1000});
    opened.emplace(*session, 0, DEVICE_ACCESS_CONTROL);
    EXPECT_EQ(opened->Read<uint32_t>(camera_features::kWidth), 640U);
}

TEST_F(Cameras, RemoteEvents_ComeWithIdAndBytes)
{
    Open("events=1");
    EVENT_HANDLE event = Register(opened->Device(), EVENT_REMOTE_DEVICE);
    EXPECT_TRUE(camera->SendEvent(0x9123, {1, 2, 3, 4}));
    const auto record = Record(event);
    ASSERT_FALSE(record.empty());
    char id[8];
    size_t size = sizeof(id);
    EXPECT_EQ(Gentl().EventGetDataInfo(event, record.data(), record.size(), EVENT_DATA_ID, nullptr,
                                       id, &size),
              GC_ERR_SUCCESS);
    EXPECT_STREQ(id, "9123");
    EXPECT_EQ(record.size(), 16U);
    EXPECT_EQ(record.back(), 4);
    GENTL_CALL(Gentl(), GCUnregisterEvent, opened->Device(), EVENT_REMOTE_DEVICE);
    EXPECT_FALSE(camera->SendEvent(0x9123)) << "switched off again";
}

TEST_F(Cameras, RemoteEvents_CameraWithoutThem_AreNotAvailable)
{
    Open("events=0");
    EVENT_HANDLE event = nullptr;
    EXPECT_EQ(Gentl().GCRegisterEvent(opened->Device(), EVENT_REMOTE_DEVICE, &event),
              GC_ERR_NOT_AVAILABLE);
}

// With handles of its own: nobody closes them.
TEST_F(Cameras, CloseLib_WithACameraThatStreams_LeavesACleanBus)
{
    const vusb::Camera sending("width=64,height=64");
    TL_HANDLE system = nullptr;
    IF_HANDLE interface = nullptr;
    DEV_HANDLE device = nullptr;
    DS_HANDLE stream = nullptr;
    BUFFER_HANDLE buffer = nullptr;
    EVENT_HANDLE event = nullptr;
    GENTL_CALL(Gentl(), TLOpen, &system);
    GENTL_CALL(Gentl(), TLOpenInterface, system, "ZRK-USB", &interface);
    GENTL_CALL(Gentl(), IFOpenDevice, interface, "120900000001", DEVICE_ACCESS_CONTROL, &device);
    GENTL_CALL(Gentl(), DevOpenDataStream, device, "Stream0", &stream);
    GENTL_CALL(Gentl(), DSAllocAndAnnounceBuffer, stream, sending.PayloadSize(), nullptr, &buffer);
    GENTL_CALL(Gentl(), DSQueueBuffer, stream, buffer);
    GENTL_CALL(Gentl(), GCRegisterEvent, stream, EVENT_NEW_BUFFER, &event);
    GENTL_CALL(Gentl(), DSStartAcquisition, stream, ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE);
    EXPECT_EQ(Gentl().GCCloseLib(), GC_ERR_SUCCESS);
    ExpectCleanBus();
    EXPECT_EQ(Gentl().GCInitLib(), GC_ERR_SUCCESS);
    EXPECT_EQ(Gentl().EventKill(event), GC_ERR_INVALID_HANDLE);
}

} // namespace
} // namespace standard_tests
