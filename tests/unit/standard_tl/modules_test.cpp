// System, interface, device: lists, ids, opening and closing.

#include "standard_fixture.h"

#include "wait.h"

namespace standard_tl {
namespace {

using u3v_host::AccessStatus;
using u3v_host::Error;
using u3v_host::ErrorKind;

// ---- System

class SystemTest : public StandardTest
{
protected:
    Answer InterfaceInfo(const char* id, INTERFACE_INFO_CMD command)
    {
        return Ask([&](INFO_DATATYPE* type, void* buffer, size_t* size) {
            return TLGetInterfaceInfo(System(), id, command, type, buffer, size);
        });
    }
};

TEST_F(SystemTest, Open_Twice_IsInUse)
{
    System();
    TL_HANDLE second = nullptr;
    EXPECT_EQ(TLOpen(&second), GC_ERR_RESOURCE_IN_USE);
    EXPECT_EQ(second, nullptr);
}

TEST_F(SystemTest, Open_AfterClose_Works)
{
    EXPECT_EQ(TLClose(System()), GC_ERR_SUCCESS);
    TL_HANDLE again = nullptr;
    EXPECT_EQ(TLOpen(&again), GC_ERR_SUCCESS);
}

TEST_F(SystemTest, Open_HandleVariableHoldsSomething_IsWritten)
{
    TL_HANDLE system = &bus;
    EXPECT_EQ(TLOpen(&system), GC_ERR_SUCCESS);
    uint32_t count = 0;
    EXPECT_EQ(TLGetNumInterfaces(system, &count), GC_ERR_SUCCESS);
}

TEST_F(SystemTest, Open_NullPointer_OpensNothing)
{
    EXPECT_EQ(TLOpen(nullptr), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(TheLastError().text, "TLOpen: GC_ERR_INVALID_PARAMETER: phTL is NULL");
    TL_HANDLE system = nullptr;
    EXPECT_EQ(TLOpen(&system), GC_ERR_SUCCESS);
}

TEST_F(SystemTest, GetInfo_AnswersAsGCGetInfo)
{
    for (TL_INFO_CMD command = TL_INFO_ID; command <= TL_INFO_GENTL_VER_MINOR; ++command) {
        const Answer ofSystem = Ask([&](INFO_DATATYPE* type, void* buffer, size_t* size) {
            return TLGetInfo(System(), command, type, buffer, size);
        });
        const Answer ofLibrary = Ask([&](INFO_DATATYPE* type, void* buffer, size_t* size) {
            return GCGetInfo(command, type, buffer, size);
        });
        EXPECT_EQ(ofSystem.code, GC_ERR_SUCCESS);
        EXPECT_EQ(ofSystem.type, ofLibrary.type);
        EXPECT_EQ(ofSystem.bytes, ofLibrary.bytes);
    }
}

TEST_F(SystemTest, Interfaces_WithoutAnUpdate_TheOneIsThere)
{
    uint32_t count = 0;
    EXPECT_EQ(TLGetNumInterfaces(System(), &count), GC_ERR_SUCCESS);
    EXPECT_EQ(count, 1U);
    size_t size = 0;
    EXPECT_EQ(TLGetInterfaceID(System(), 1, nullptr, &size), GC_ERR_INVALID_INDEX);
    EXPECT_EQ(TLGetNumInterfaces(System(), nullptr), GC_ERR_INVALID_PARAMETER);
}

TEST_F(SystemTest, InterfaceId_HasNoCharacterThatPartsUrls)
{
    char id[64];
    size_t size = sizeof(id);
    EXPECT_EQ(TLGetInterfaceID(System(), 0, id, &size), GC_ERR_SUCCESS);
    EXPECT_EQ(size, strlen(id) + 1);
    EXPECT_EQ(std::string(id).find_first_of(":;"), std::string::npos);
}

TEST_F(SystemTest, UpdateInterfaceList_AnyTimeout_AnswersAtOnceUnchanged)
{
    bool8_t changed = true;
    EXPECT_EQ(TLUpdateInterfaceList(System(), &changed, GENTL_INFINITE), GC_ERR_SUCCESS);
    EXPECT_FALSE(changed);
    EXPECT_EQ(TLUpdateInterfaceList(System(), nullptr, 0), GC_ERR_SUCCESS);
    EXPECT_EQ(bus.looks, 0U);
}

TEST_F(SystemTest, InterfaceInfo_ClosedInterface_Answers)
{
    EXPECT_EQ(InterfaceInfo("ZRK-USB", INTERFACE_INFO_ID).Text(), "ZRK-USB");
    EXPECT_EQ(InterfaceInfo("zrk-usb", INTERFACE_INFO_DISPLAYNAME).Text(), "USB");
    EXPECT_EQ(InterfaceInfo("ZRK-USB", INTERFACE_INFO_TLTYPE).Text(), "U3V");
    EXPECT_EQ(InterfaceInfo("ZRK-USB", 3).code, GC_ERR_NOT_IMPLEMENTED);
    EXPECT_EQ(InterfaceInfo("other", INTERFACE_INFO_ID).code, GC_ERR_INVALID_ID);
    EXPECT_NE(TheLastError().text.find("\"other\""), std::string::npos);
    EXPECT_EQ(InterfaceInfo(nullptr, INTERFACE_INFO_ID).code, GC_ERR_INVALID_PARAMETER);
}

TEST_F(SystemTest, OpenInterface_TwiceWrongOrNull_IsRefused)
{
    Interface();
    IF_HANDLE other = nullptr;
    EXPECT_EQ(TLOpenInterface(System(), "ZRK-USB", &other), GC_ERR_RESOURCE_IN_USE);
    EXPECT_EQ(TLOpenInterface(System(), "nothing", &other), GC_ERR_INVALID_ID);
    EXPECT_EQ(TLOpenInterface(System(), nullptr, &other), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(TLOpenInterface(System(), "ZRK-USB", nullptr), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(other, nullptr);
}

// ---- interface

class InterfaceTest : public StandardTest
{
protected:
    bool Update(uint64_t timeout = GENTL_INFINITE)
    {
        bool8_t changed = false;
        EXPECT_EQ(IFUpdateDeviceList(Interface(), &changed, timeout), GC_ERR_SUCCESS);
        return changed;
    }
    std::vector<std::string> List(IF_HANDLE interface)
    {
        uint32_t count = 0;
        EXPECT_EQ(IFGetNumDevices(interface, &count), GC_ERR_SUCCESS);
        std::vector<std::string> ids;
        for (uint32_t i = 0; i < count; ++i) {
            char id[64];
            size_t size = sizeof(id);
            EXPECT_EQ(IFGetDeviceID(interface, i, id, &size), GC_ERR_SUCCESS);
            ids.emplace_back(id);
        }
        return ids;
    }
    Answer InfoOf(const char* id, DEVICE_INFO_CMD command)
    {
        return Ask([&](INFO_DATATYPE* type, void* buffer, size_t* size) {
            return IFGetDeviceInfo(Interface(), id, command, type, buffer, size);
        });
    }
    int32_t Access(const char* id) { return InfoOf(id, DEVICE_INFO_ACCESS_STATUS).As<int32_t>(); }
};

using Ids = std::vector<std::string>;

TEST_F(InterfaceTest, GetInfo_EveryCommand_Answers)
{
    const auto info = [this](INTERFACE_INFO_CMD command) {
        return Ask([&](INFO_DATATYPE* type, void* buffer, size_t* size) {
            return IFGetInfo(Interface(), command, type, buffer, size);
        });
    };
    EXPECT_EQ(info(INTERFACE_INFO_ID).Text(), "ZRK-USB");
    EXPECT_EQ(info(INTERFACE_INFO_DISPLAYNAME).Text(), "USB");
    EXPECT_EQ(info(INTERFACE_INFO_TLTYPE).Text(), "U3V");
    EXPECT_EQ(info(3).code, GC_ERR_NOT_IMPLEMENTED);
}

TEST_F(InterfaceTest, GetParentTL_IsTheSystem)
{
    TL_HANDLE system = &bus;
    EXPECT_EQ(IFGetParentTL(Interface(), &system), GC_ERR_SUCCESS);
    EXPECT_EQ(system, System());
    EXPECT_EQ(IFGetParentTL(Interface(), nullptr), GC_ERR_INVALID_PARAMETER);
}

TEST_F(InterfaceTest, Update_CamerasComeAndGo_TellsChangesAgainstWhatWasSeen)
{
    EXPECT_EQ(List(Interface()), Ids{"CAM1"});
    EXPECT_FALSE(Update());
    bus.Plug("CAM2");
    EXPECT_EQ(List(Interface()), Ids{"CAM1"}) << "the list changes with an update only";
    EXPECT_TRUE(Update());
    EXPECT_EQ(List(Interface()), (Ids{"CAM1", "CAM2"}));
    EXPECT_FALSE(Update());
    bus.Unplug("CAM1");
    EXPECT_TRUE(Update());
    EXPECT_EQ(List(Interface()), Ids{"CAM2"});
}

TEST_F(InterfaceTest, Update_NullChanged_IsNotWanted)
{
    EXPECT_EQ(IFUpdateDeviceList(Interface(), nullptr, 0), GC_ERR_SUCCESS);
}

TEST_F(InterfaceTest, Update_PassOutlivesTheTimeout_SucceedsWithWhatIsKnown)
{
    Interface();
    bus.Plug("CAM2");
    bus.Hold();
    EXPECT_FALSE(Update(0));
    EXPECT_FALSE(Update(20));
    EXPECT_EQ(List(Interface()), Ids{"CAM1"});
    bus.LetGo();
    EXPECT_TRUE(Update(0)) << "it counts for the next call";
}

TEST_F(InterfaceTest, Update_Infinite_WaitsForThePass)
{
    Interface();
    bus.Plug("CAM2");
    bus.Hold();
    zr_test::WatchedThread updater([this] { EXPECT_TRUE(Update(GENTL_INFINITE)); });
    EXPECT_TRUE(updater.UntilAsleep());
    EXPECT_FALSE(updater.HasEnded());
    bus.LetGo();
}

TEST_F(InterfaceTest, List_InterfaceAndSystemClosedAndOpenedAgain_IsStillThere)
{
    Interface();
    EXPECT_EQ(IFClose(Interface()), GC_ERR_SUCCESS);
    EXPECT_EQ(TLClose(System()), GC_ERR_SUCCESS);
    const unsigned looks = bus.looks;
    TL_HANDLE system = nullptr;
    IF_HANDLE interface = nullptr;
    DEV_HANDLE device = nullptr;
    ASSERT_EQ(TLOpen(&system), GC_ERR_SUCCESS);
    ASSERT_EQ(TLOpenInterface(system, "ZRK-USB", &interface), GC_ERR_SUCCESS);
    EXPECT_EQ(List(interface), Ids{"CAM1"});
    EXPECT_EQ(IFOpenDevice(interface, "CAM1", DEVICE_ACCESS_CONTROL, &device), GC_ERR_SUCCESS);
    EXPECT_EQ(bus.looks, looks) << "nothing had to be looked for";
}

TEST_F(InterfaceTest, OpenOrInfo_IdThatIsNotListed_LooksOnce)
{
    TL_HANDLE system = System();
    IF_HANDLE interface = nullptr;
    ASSERT_EQ(TLOpenInterface(system, "ZRK-USB", &interface), GC_ERR_SUCCESS);
    size_t size = 0;
    EXPECT_EQ(IFGetDeviceInfo(interface, "CAM1", 0, nullptr, nullptr, &size), GC_ERR_SUCCESS);
    EXPECT_EQ(bus.looks, 1U);
    bus.Plug("CAM2");
    DEV_HANDLE device = nullptr;
    EXPECT_EQ(IFOpenDevice(interface, "CAM2", DEVICE_ACCESS_CONTROL, &device), GC_ERR_SUCCESS);
    EXPECT_EQ(bus.looks, 2U);
    EXPECT_EQ(IFOpenDevice(interface, "CAM3", DEVICE_ACCESS_CONTROL, &device), GC_ERR_INVALID_ID);
    EXPECT_EQ(bus.looks, 3U);
    EXPECT_NE(TheLastError().text.find("\"CAM3\""), std::string::npos);
}

TEST_F(InterfaceTest, DeviceId_WrongIndexSmallBufferNull_AreTold)
{
    char id[5] = "old";
    size_t size = sizeof(id);
    EXPECT_EQ(IFGetDeviceID(Interface(), 1, id, &size), GC_ERR_INVALID_INDEX);
    size = 4;
    EXPECT_EQ(IFGetDeviceID(Interface(), 0, id, &size), GC_ERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(size, 5U);
    EXPECT_STREQ(id, "old");
    EXPECT_EQ(IFGetDeviceID(Interface(), 0, nullptr, &size), GC_ERR_SUCCESS);
    EXPECT_EQ(IFGetDeviceID(Interface(), 0, id, nullptr), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(IFGetNumDevices(Interface(), nullptr), GC_ERR_INVALID_PARAMETER);
}

TEST_F(InterfaceTest, DeviceInfo_EveryCommand_HasTypeAndValueOfTheStandard)
{
    camera.info.userDefinedName = "Left";
    EXPECT_EQ(InfoOf("CAM1", DEVICE_INFO_ID).Text(), "CAM1");
    EXPECT_EQ(InfoOf("cam1", DEVICE_INFO_ID).Text(), "CAM1");
    EXPECT_EQ(InfoOf("CAM1", DEVICE_INFO_VENDOR).Text(), "Vendor");
    EXPECT_EQ(InfoOf("CAM1", DEVICE_INFO_MODEL).Text(), "Model");
    EXPECT_EQ(InfoOf("CAM1", DEVICE_INFO_TLTYPE).Text(), "U3V");
    EXPECT_EQ(InfoOf("CAM1", DEVICE_INFO_DISPLAYNAME).Text(), "Vendor Model (Left)");
    EXPECT_EQ(InfoOf("CAM1", DEVICE_INFO_ACCESS_STATUS).type, INFO_DATATYPE_INT32);
    EXPECT_EQ(InfoOf("CAM1", DEVICE_INFO_USER_DEFINED_NAME).Text(), "Left");
    EXPECT_EQ(InfoOf("CAM1", DEVICE_INFO_SERIAL_NUMBER).Text(), "SCAM1");
    EXPECT_EQ(InfoOf("CAM1", DEVICE_INFO_VERSION).Text(), "1.0");
    const Answer frequency = InfoOf("CAM1", DEVICE_INFO_TIMESTAMP_FREQUENCY);
    EXPECT_EQ(frequency.type, INFO_DATATYPE_UINT64);
    EXPECT_EQ(frequency.As<uint64_t>(), 1000000000U);
    EXPECT_EQ(InfoOf("CAM1", 10).code, GC_ERR_NOT_IMPLEMENTED);
    EXPECT_EQ(InfoOf("CAM9", DEVICE_INFO_ID).code, GC_ERR_INVALID_ID);
    EXPECT_EQ(InfoOf(nullptr, DEVICE_INFO_ID).code, GC_ERR_INVALID_PARAMETER);
}

TEST_F(InterfaceTest, DeviceInfo_SizeVariableHoldsNonsense_EightBytesAreWritten)
{
    struct
    {
        uint64_t value;
        uint64_t neighbour;
    } memory = {0, 0x5A5A5A5A5A5A5A5A};
    size_t size = SIZE_MAX;
    EXPECT_EQ(IFGetDeviceInfo(Interface(), "CAM1", DEVICE_INFO_TIMESTAMP_FREQUENCY, nullptr,
                              &memory.value, &size),
              GC_ERR_SUCCESS);
    EXPECT_EQ(size, 8U);
    EXPECT_EQ(memory.value, 1000000000U);
    EXPECT_EQ(memory.neighbour, 0x5A5A5A5A5A5A5A5AU);
    size = 7;
    EXPECT_EQ(IFGetDeviceInfo(Interface(), "CAM1", DEVICE_INFO_TIMESTAMP_FREQUENCY, nullptr,
                              &memory.value, &size),
              GC_ERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(size, 8U);
}

TEST_F(InterfaceTest, AccessStatus_IsAskedAfreshEachTime)
{
    for (const AccessStatus access : {AccessStatus::ReadWrite, AccessStatus::NoAccess,
                                      AccessStatus::Busy, AccessStatus::Unknown}) {
        camera.access = access;
        EXPECT_EQ(Access("CAM1"), static_cast<int32_t>(access));
    }
    camera.access = AccessStatus::ReadWrite;
    Device();
    EXPECT_EQ(Access("CAM1"), DEVICE_ACCESS_STATUS_OPEN_READWRITE);
    EXPECT_EQ(DevClose(Device()), GC_ERR_SUCCESS);
    EXPECT_EQ(Access("CAM1"), DEVICE_ACCESS_STATUS_READWRITE);
}

TEST_F(InterfaceTest, DeviceInfo_OpenCamera_FollowsItsRegisters)
{
    Device();
    camera.info.userDefinedName = "Renamed";
    EXPECT_EQ(InfoOf("CAM1", DEVICE_INFO_USER_DEFINED_NAME).Text(), "Renamed");
    EXPECT_EQ(DeviceInfo(DEVICE_INFO_DISPLAYNAME).Text(), "Vendor Model (Renamed)");
}

// ---- opening

TEST_F(InterfaceTest, OpenDevice_AccessFlags_AreModes)
{
    const std::pair<DEVICE_ACCESS_FLAGS, u3v_host::OpenMode> rows[] = {
        {DEVICE_ACCESS_READONLY, u3v_host::OpenMode::ReadOnly},
        {DEVICE_ACCESS_CONTROL, u3v_host::OpenMode::ReadWrite},
        {DEVICE_ACCESS_EXCLUSIVE, u3v_host::OpenMode::ReadWrite}};
    for (const auto& [flag, mode] : rows) {
        DEV_HANDLE device = nullptr;
        ASSERT_EQ(IFOpenDevice(Interface(), "CAM1", flag, &device), GC_ERR_SUCCESS);
        EXPECT_EQ(camera.mode, mode);
        EXPECT_EQ(DevClose(device), GC_ERR_SUCCESS);
        EXPECT_FALSE(camera.mode);
    }
    for (const DEVICE_ACCESS_FLAGS flag : std::initializer_list<DEVICE_ACCESS_FLAGS>{
             DEVICE_ACCESS_UNKNOWN, DEVICE_ACCESS_NONE, DEVICE_ACCESS_CUSTOM_ID, -1}) {
        DEV_HANDLE device = nullptr;
        EXPECT_EQ(IFOpenDevice(Interface(), "CAM1", flag, &device), GC_ERR_INVALID_PARAMETER);
    }
}

TEST_F(InterfaceTest, OpenDevice_Failures_HaveCodesOfTheirOwn)
{
    const std::pair<ErrorKind, GC_ERROR> rows[] = {
        {ErrorKind::AccessDenied, GC_ERR_ACCESS_DENIED},
        {ErrorKind::InUse, GC_ERR_RESOURCE_IN_USE},
        {ErrorKind::Io, GC_ERR_IO},
        {ErrorKind::Timeout, GC_ERR_IO},
        {ErrorKind::InvalidId, GC_ERR_INVALID_ID},
        {ErrorKind::ResourceExhausted, GC_ERR_RESOURCE_EXHAUSTED}};
    for (const auto& [kind, code] : rows) {
        camera.openFailure = Error(kind, "LIBUSB_ERROR_X");
        DEV_HANDLE device = nullptr;
        EXPECT_EQ(IFOpenDevice(Interface(), "CAM1", DEVICE_ACCESS_CONTROL, &device), code);
        EXPECT_NE(TheLastError().text.find("LIBUSB_ERROR_X"), std::string::npos);
        EXPECT_EQ(device, nullptr);
    }
    camera.openFailure.reset();
    Device();
}

TEST_F(InterfaceTest, OpenDevice_Twice_IsInUse)
{
    Device();
    DEV_HANDLE second = nullptr;
    EXPECT_EQ(IFOpenDevice(Interface(), "CAM1", DEVICE_ACCESS_READONLY, &second),
              GC_ERR_RESOURCE_IN_USE);
}

TEST_F(InterfaceTest, OpenDevice_NullId_OrNullHandle_OpensNothing)
{
    DEV_HANDLE device = nullptr;
    EXPECT_EQ(IFOpenDevice(Interface(), nullptr, DEVICE_ACCESS_CONTROL, &device),
              GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(IFOpenDevice(Interface(), "CAM1", DEVICE_ACCESS_CONTROL, nullptr),
              GC_ERR_INVALID_PARAMETER);
    EXPECT_FALSE(camera.mode);
}

TEST_F(InterfaceTest, Close_ClosesTheCamerasBelow)
{
    DEV_HANDLE device = Device();
    EXPECT_EQ(IFClose(Interface()), GC_ERR_SUCCESS);
    EXPECT_FALSE(camera.mode);
    EXPECT_EQ(DevClose(device), GC_ERR_INVALID_HANDLE);
    EXPECT_EQ(IFClose(Interface()), GC_ERR_INVALID_HANDLE);
}

// ---- device

using DeviceTest = StandardTest;

TEST_F(DeviceTest, GetInfo_GoneCamera_TellsWhatIsKnown)
{
    Device();
    EXPECT_EQ(DeviceInfo(DEVICE_INFO_ACCESS_STATUS).As<int32_t>(),
              DEVICE_ACCESS_STATUS_OPEN_READWRITE);
    camera.Leave();
    EXPECT_EQ(DeviceInfo(DEVICE_INFO_MODEL).Text(), "Model");
    EXPECT_EQ(DeviceInfo(DEVICE_INFO_ACCESS_STATUS).As<int32_t>(), DEVICE_ACCESS_STATUS_NOACCESS);
}

TEST_F(DeviceTest, GetInfo_ReadOnly_IsTold)
{
    DEV_HANDLE device = nullptr;
    ASSERT_EQ(IFOpenDevice(Interface(), "CAM1", DEVICE_ACCESS_READONLY, &device), GC_ERR_SUCCESS);
    int32_t status = 0;
    size_t size = sizeof(status);
    EXPECT_EQ(DevGetInfo(device, DEVICE_INFO_ACCESS_STATUS, nullptr, &status, &size),
              GC_ERR_SUCCESS);
    EXPECT_EQ(status, DEVICE_ACCESS_STATUS_OPEN_READONLY);
}

TEST_F(DeviceTest, GetParentIF_IsTheInterface)
{
    IF_HANDLE interface = &bus;
    EXPECT_EQ(DevGetParentIF(Device(), &interface), GC_ERR_SUCCESS);
    EXPECT_EQ(interface, Interface());
}

TEST_F(DeviceTest, GetPort_IsTheSameEachTimeAndGoesWithTheDevice)
{
    PORT_HANDLE port = Remote();
    EXPECT_EQ(port, Remote());
    EXPECT_NE(port, Device());
    EXPECT_EQ(DevGetPort(Device(), nullptr), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(DevClose(Device()), GC_ERR_SUCCESS);
    size_t size = 0;
    EXPECT_EQ(GCGetPortInfo(port, PORT_INFO_ID, nullptr, nullptr, &size), GC_ERR_INVALID_HANDLE);
}

TEST_F(DeviceTest, DataStreams_OneAtMost)
{
    uint32_t count = 7;
    EXPECT_EQ(DevGetNumDataStreams(Device(), &count), GC_ERR_SUCCESS);
    EXPECT_EQ(count, 1U);
    camera.streams = 0xFFFFFFFF;
    EXPECT_EQ(DevGetNumDataStreams(Device(), &count), GC_ERR_SUCCESS);
    EXPECT_EQ(count, 1U);
    char id[32];
    size_t size = sizeof(id);
    EXPECT_EQ(DevGetDataStreamID(Device(), 0, id, &size), GC_ERR_SUCCESS);
    EXPECT_STREQ(id, "Stream0");
    EXPECT_EQ(DevGetDataStreamID(Device(), 1, id, &size), GC_ERR_INVALID_INDEX);
}

TEST_F(DeviceTest, DataStreams_CameraWithoutStreaming_HasNone)
{
    camera.streams = 0;
    uint32_t count = 7;
    EXPECT_EQ(DevGetNumDataStreams(Device(), &count), GC_ERR_SUCCESS);
    EXPECT_EQ(count, 0U);
    DS_HANDLE stream = nullptr;
    EXPECT_EQ(DevOpenDataStream(Device(), "Stream0", &stream), GC_ERR_INVALID_ID);
}

TEST_F(DeviceTest, OpenDataStream_TwiceWrongOrNull_IsRefused)
{
    DS_HANDLE stream = nullptr;
    EXPECT_EQ(DevOpenDataStream(Device(), "stream0", &stream), GC_ERR_SUCCESS);
    DS_HANDLE other = nullptr;
    EXPECT_EQ(DevOpenDataStream(Device(), "Stream0", &other), GC_ERR_RESOURCE_IN_USE);
    EXPECT_EQ(DevOpenDataStream(Device(), "Stream1", &other), GC_ERR_INVALID_ID);
    EXPECT_EQ(DevOpenDataStream(Device(), nullptr, &other), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(DSClose(stream), GC_ERR_SUCCESS);
    EXPECT_EQ(DevOpenDataStream(Device(), "Stream0", &other), GC_ERR_SUCCESS);
    DEV_HANDLE parent = nullptr;
    EXPECT_EQ(DSGetParentDev(other, &parent), GC_ERR_SUCCESS);
    EXPECT_EQ(parent, Device());
}

} // namespace
} // namespace standard_tl
