#include "u3v_bounded.h"
#include "u3v_fixture.h"
#include "u3v_lib.h"

#include <chrono>
#include <cstring>
#include <stdexcept>
#include <thread>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace {

class LibTest : public UsbTest
{
protected:
    void TearDown() override
    {
        U3V_DiscoveryClose();
        UsbTest::TearDown();
    }

    // One camera that can be opened, listed as number 1.
    void Discover()
    {
        camera = &AddCamera(usb, "cam", "0123456789AB");
        camera->memory[0x1D8] = Little(0x10000, 8);
        camera->memory[0x1CC] = Little(500, 8);
        camera->memory[0x1C4] = Little(0, 8);
        camera->memory[0x10004] = Little(1, 8);
        camera->memory[0x10020] = Little(0x20000, 8);
        ASSERT_EQ(U3V_DiscoveryOpen(), 0);
        uint16_t count = 0;
        ASSERT_EQ(U3V_DiscoveryDevices(&count), 0);
        ASSERT_EQ(count, 1);
    }

    void Open()
    {
        Discover();
        ASSERT_EQ(U3V_OpenDevice("0123456789AB", &hDevice), 0);
        ASSERT_EQ(U3V_OpenControl(hDevice, &hControl), 0);
        ASSERT_EQ(U3V_OpenStream(hDevice, hControl, &hStream, 1000), 0);
        usb.ClearJournal();
    }

    void Close()
    {
        EXPECT_EQ(U3V_CloseStream(hStream), 0);
        EXPECT_EQ(U3V_CloseControl(hControl), 0);
        EXPECT_EQ(U3V_CloseDevice(hDevice), 0);
    }

    libusb_device* camera = nullptr;
    U3V_DEVICE_HANDLE hDevice = nullptr;
    U3V_CONTROL_HANDLE hControl = nullptr;
    U3V_STREAM_HANDLE hStream = nullptr;
};

TEST_F(LibTest, NullHandle_IsInvalidHandleWithoutTouchingAnythingElse)
{
    uint8_t data[4] = {1, 2, 3, 4};
    uint32_t value = 5;
    uint64_t wide = 6;
    IMAGE_HEADER header{};
    U3V_CONTROL_HANDLE control = nullptr;
    U3V_STREAM_HANDLE stream = nullptr;
    EXPECT_EQ(U3V_CloseDevice(nullptr), 0xC01A);
    EXPECT_EQ(U3V_OpenControl(nullptr, &control), 0xC01A);
    EXPECT_EQ(U3V_CloseControl(nullptr), 0xC01A);
    EXPECT_EQ(U3V_ReadMem(nullptr, 0, 4, data), 0xC01A);
    EXPECT_EQ(U3V_WriteMem(nullptr, 0, 4, data), 0xC01A);
    EXPECT_EQ(U3V_WriteMemSized(nullptr, 0, 4, data), 0xC01A);
    EXPECT_EQ(U3V_MaximumDeviceResponseTime(nullptr, &value), 0xC01A);
    EXPECT_EQ(U3V_OpenStream(nullptr, nullptr, &stream, 1), 0xC01A);
    EXPECT_EQ(U3V_CloseStream(nullptr), 0xC01A);
    EXPECT_EQ(U3V_AcquisitionStart(nullptr, 1), 0xC01A);
    EXPECT_EQ(U3V_RequestStop(nullptr), 0xC01A);
    EXPECT_EQ(U3V_AcquisitionStop(nullptr, &wide, &wide), 0xC01A);
    EXPECT_EQ(U3V_GetImage(nullptr, data, 1, &header), 0xC01A);
    EXPECT_EQ(U3V_GetImageBounded(nullptr, data, 4, 1, &header), 0xC01A);
    EXPECT_EQ(U3V_GetTransferSize(nullptr, &value), 0xC01A);
    EXPECT_EQ(U3V_SetTransferSize(nullptr, 1), 0xC01A);
    EXPECT_EQ(U3V_GetBufferCount(nullptr, &value), 0xC01A);
    EXPECT_EQ(U3V_SetBufferCount(nullptr, 1), 0xC01A);
    EXPECT_EQ(value, 5U);
    EXPECT_EQ(wide, 6U);
    EXPECT_EQ(data[0], 1);
    EXPECT_EQ(control, nullptr);
    EXPECT_EQ(stream, nullptr);
    EXPECT_THAT(usb.Journal(), IsEmpty());
}

TEST_F(LibTest, NoDiscovery_IsInvalidHandle)
{
    uint16_t count = 7;
    U3V_DEVICE_INFO info{};
    EXPECT_EQ(U3V_DiscoveryDevices(&count), 0xC01A);
    EXPECT_EQ(U3V_GetDeviceInfo(1, &info), 0xC01A);
    EXPECT_EQ(U3V_OpenDevice("x", &hDevice), 0xC01A);
    EXPECT_EQ(U3V_DiscoveryClose(), 0xC01A);
    EXPECT_EQ(count, 7);
    EXPECT_EQ(hDevice, nullptr);
}

TEST_F(LibTest, DiscoveryClose_EndsLibusbAndASecondOneIsRefused)
{
    Discover();
    EXPECT_EQ(U3V_DiscoveryClose(), 0);
    EXPECT_EQ(usb.Count("exit"), 1U);
    EXPECT_EQ(U3V_DiscoveryClose(), 0xC01A);
    uint16_t count = 0;
    EXPECT_EQ(U3V_DiscoveryDevices(&count), 0xC01A);
    EXPECT_EQ(usb.Count("exit"), 1U);
    EXPECT_EQ(U3V_DiscoveryOpen(), 0);
    EXPECT_EQ(U3V_DiscoveryDevices(&count), 0);
    EXPECT_EQ(count, 1);
}

TEST_F(LibTest, DiscoveryOpenTwice_ReplacesTheEarlierWithoutFreeingIt)
{
    Discover();
    ASSERT_EQ(U3V_OpenDevice("0123456789AB", &hDevice), 0);
    EXPECT_EQ(U3V_DiscoveryOpen(), 0);
    EXPECT_EQ(usb.Count("init"), 2U);
    EXPECT_EQ(usb.Count("exit"), 0U);
    U3V_DEVICE_INFO info{};
    EXPECT_EQ(U3V_GetDeviceInfo(1, &info), 0xC01C); // the new one's list is empty
    EXPECT_EQ(U3V_DiscoveryClose(), 0);
    EXPECT_EQ(usb.Count("exit"), 1U);
    EXPECT_EQ(U3V_CloseDevice(hDevice), 0); // its record is still there
    EXPECT_EQ(usb.Count("exit"), 1U);
}

TEST_F(LibTest, DiscoveryOpen_LibusbInitFails_IsNoFailure)
{
    usb.initResult = LIBUSB_ERROR_ACCESS;
    EXPECT_EQ(U3V_DiscoveryOpen(), 0);
    uint16_t count = 7;
    EXPECT_EQ(U3V_DiscoveryDevices(&count), 0);
    EXPECT_EQ(count, 0);
}

TEST_F(LibTest, GetDeviceInfo_CountsFromOneAndCopiesTheRecord)
{
    Discover();
    U3V_DEVICE_INFO info;
    std::memset(&info, 0xAB, sizeof(info));
    EXPECT_EQ(U3V_GetDeviceInfo(1, &info), 0);
    EXPECT_STREQ(info.DeviceGUID, "0123456789AB");
    EXPECT_STREQ(info.ModelName, "Model");
    EXPECT_EQ(info.SpeedSupport, 8);
    EXPECT_EQ(info.InUse, 0);
}

TEST_F(LibTest, GetDeviceInfo_BadIndex_LeavesTheRecord)
{
    Discover();
    U3V_DEVICE_INFO info;
    std::memset(&info, 0xAB, sizeof(info));
    for (const int index : {0, 2, 0xFFFF}) {
        EXPECT_EQ(U3V_GetDeviceInfo(static_cast<uint16_t>(index), &info), 0xC01C);
    }
    EXPECT_EQ(info.InUse, 0xAB);
}

TEST_F(LibTest, NullOutputs_AreInvalidHandle)
{
    Open();
    uint64_t wide = 0;
    uint8_t data[4];
    IMAGE_HEADER header{};
    EXPECT_EQ(U3V_DiscoveryDevices(nullptr), 0xC01A);
    EXPECT_EQ(U3V_GetDeviceInfo(1, nullptr), 0xC01A);
    EXPECT_EQ(U3V_OpenDevice("0123456789AB", nullptr), 0xC01A);
    EXPECT_EQ(U3V_OpenDevice(nullptr, &hDevice), 0xC01A);
    EXPECT_EQ(U3V_OpenControl(hDevice, nullptr), 0xC01A);
    EXPECT_EQ(U3V_MaximumDeviceResponseTime(hControl, nullptr), 0xC01A);
    EXPECT_EQ(U3V_OpenStream(hDevice, hControl, nullptr, 1), 0xC01A);
    U3V_STREAM_HANDLE stream = nullptr;
    EXPECT_EQ(U3V_OpenStream(hDevice, nullptr, &stream, 1), 0xC01A);
    EXPECT_EQ(stream, nullptr);
    EXPECT_EQ(U3V_AcquisitionStop(hStream, nullptr, &wide), 0xC01A);
    EXPECT_EQ(U3V_AcquisitionStop(hStream, &wide, nullptr), 0xC01A);
    EXPECT_EQ(U3V_GetImage(hStream, nullptr, 0, &header), 0xC01A);
    EXPECT_EQ(U3V_GetImage(hStream, data, 0, nullptr), 0xC01A);
    EXPECT_EQ(U3V_GetTransferSize(hStream, nullptr), 0xC01A);
    EXPECT_EQ(U3V_GetBufferCount(hStream, nullptr), 0xC01A);
    EXPECT_EQ(U3V_ReadMem(hControl, 0, 1, nullptr), 0x8002);
    EXPECT_THAT(usb.Journal(), IsEmpty());
    Close();
}

TEST_F(LibTest, OpenDevice_UnknownGuid_IsNotFoundAndStillGivesAHandle)
{
    Discover();
    for (const char* guid : {"", "0123456789A", "0123456789AB ", "0123456789ab"}) {
        hDevice = nullptr;
        EXPECT_EQ(U3V_OpenDevice(guid, &hDevice), 0xC01C) << guid;
        ASSERT_NE(hDevice, nullptr);
        EXPECT_EQ(U3V_OpenControl(hDevice, &hControl), 0xC006);
        EXPECT_EQ(U3V_OpenStream(hDevice, hControl, &hStream, 1), 0xC014);
        Close();
    }
}

TEST_F(LibTest, OpenDevice_NoHandle_IsOpenFailedAndStillGivesAHandle)
{
    Discover();
    camera->openGivesHandle = false;
    camera->openResult = LIBUSB_ERROR_ACCESS;
    EXPECT_EQ(U3V_OpenDevice("0123456789AB", &hDevice), 0xC001);
    ASSERT_NE(hDevice, nullptr);
    EXPECT_EQ(U3V_CloseDevice(hDevice), 0);
}

TEST_F(LibTest, OpenAndCloseDevice_ShowInTheRecord)
{
    Discover();
    U3V_DEVICE_INFO info{};
    ASSERT_EQ(U3V_OpenDevice("0123456789AB", &hDevice), 0);
    U3V_GetDeviceInfo(1, &info);
    EXPECT_EQ(info.InUse, 1);
    EXPECT_EQ(U3V_CloseDevice(hDevice), 0);
    U3V_GetDeviceInfo(1, &info);
    EXPECT_EQ(info.InUse, 0);
}

TEST_F(LibTest, ControlAndStream_FailingOpen_StillGivesTheHandle)
{
    Discover();
    ASSERT_EQ(U3V_OpenDevice("0123456789AB", &hDevice), 0);
    camera->claimResults = {{0, LIBUSB_ERROR_BUSY}, {2, LIBUSB_ERROR_BUSY}};
    EXPECT_EQ(U3V_OpenControl(hDevice, &hControl), 0xC006);
    ASSERT_NE(hControl, nullptr);
    EXPECT_EQ(U3V_WriteMem(hControl, 0, 1, "x"), 0xC007);
    EXPECT_EQ(U3V_OpenStream(hDevice, hControl, &hStream, 1), 0xC006);
    ASSERT_NE(hStream, nullptr);
    EXPECT_EQ(U3V_AcquisitionStart(hStream, 1), 0xC016);
    Close();
}

TEST_F(LibTest, Memory_IsReadAndWritten)
{
    Open();
    uint8_t data[4] = {1, 2, 3, 4};
    EXPECT_EQ(U3V_WriteMem(hControl, 0x5000, 4, data), 0);
    uint8_t back[4] = {};
    EXPECT_EQ(U3V_ReadMem(hControl, 0x5000, 4, back), 0);
    EXPECT_EQ(std::memcmp(data, back, 4), 0);
    EXPECT_EQ(U3V_ReadMem(hControl, 0x5000, 4, back), 0);
    EXPECT_EQ(U3V_WriteMemSized(hControl, 0x5000, 4, data), 0);
    std::vector<uint8_t> large(70000);
    EXPECT_EQ(U3V_WriteMemSized(hControl, 0, 65537, large.data()), 0x8002);
    uint32_t time = 0;
    EXPECT_EQ(U3V_MaximumDeviceResponseTime(hControl, &time), 0);
    EXPECT_EQ(time, 500U);
    Close();
}

TEST_F(LibTest, StreamSettings_AreKept)
{
    Open();
    uint32_t value = 0;
    EXPECT_EQ(U3V_GetTransferSize(hStream, &value), 0);
    EXPECT_EQ(value, 0x100000U);
    EXPECT_EQ(U3V_GetBufferCount(hStream, &value), 0);
    EXPECT_EQ(value, 4U);
    EXPECT_EQ(U3V_SetTransferSize(hStream, 12345), 0);
    EXPECT_EQ(U3V_SetBufferCount(hStream, 9), 0);
    U3V_GetTransferSize(hStream, &value);
    EXPECT_EQ(value, 12345U);
    U3V_GetBufferCount(hStream, &value);
    EXPECT_EQ(value, 9U);
    Close();
}

TEST_F(LibTest, AcquisitionStart_ImageThatNoMemoryHolds_IsException)
{
    Open();
    camera->memory[0x20008] = Little(UINT64_MAX, 8);
    EXPECT_EQ(U3V_AcquisitionStart(hStream, 1), 0xC01B);
    Close();
}

// The one test with the product's own waits: an unplugged camera's stop takes the whole 3 s.
TEST_F(LibTest, OneImageThenUnplug_StopWaitsThreeSecondsAndAnswers)
{
    Open();
    camera->memory[0x20000] = Little(0, 4);
    camera->memory[0x20008] = Little(64, 8);
    camera->memory[0x20010] = Little(52, 4);
    camera->memory[0x20014] = Little(32, 4);
    ASSERT_EQ(U3V_AcquisitionStart(hStream, 0xFFFFFFFF), 0);
    usb.Complete(LIBUSB_TRANSFER_COMPLETED, Bytes(52, 1));
    usb.Complete(LIBUSB_TRANSFER_COMPLETED, Bytes(64, 7));
    usb.Complete(LIBUSB_TRANSFER_COMPLETED, Bytes(32, 2));
    uint8_t image[64] = {};
    IMAGE_HEADER header{};
    EXPECT_EQ(U3V_GetImage(hStream, image, 2000, &header), 0);
    EXPECT_EQ(image[63], 7);
    EXPECT_EQ(U3V_GetImageBounded(hStream, image, 10, 0, &header), 0xC018);

    CaptureStdout();
    usb.Complete(LIBUSB_TRANSFER_NO_DEVICE);
    EXPECT_TRUE(usb.AwaitDrained());
    uint64_t acquired = 0;
    uint64_t lost = 9;
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(U3V_AcquisitionStop(hStream, &acquired, &lost), 0);
    const auto took = std::chrono::steady_clock::now() - begin;
    EXPECT_EQ(GetCapturedStdout(), "No Device\nDS_STATUS_IMAGE_TIMEOUT\n\n\n");
    EXPECT_GE(took, std::chrono::milliseconds(2900));
    EXPECT_LT(took, std::chrono::milliseconds(4800));
    EXPECT_EQ(acquired, 1U);
    EXPECT_EQ(lost, 0U);
    Close();
}

TEST_F(LibTest, CloseOrder_ReleasesEachInterfaceOnceByItsOwner)
{
    Open();
    Close();
    EXPECT_THAT(usb.Journal(), ElementsAre("release_interface 2", "release_interface 2",
                                           "release_interface 1", "close cam"));
}

TEST(Guarded, AnyException_IsExceptionStatus)
{
    EXPECT_EQ(U3V_Guarded([]() -> uint16_t { throw std::runtime_error("x"); }), 0xC01B);
    EXPECT_EQ(U3V_Guarded([]() -> uint16_t { throw 1; }), 0xC01B);
    EXPECT_EQ(U3V_Guarded([]() -> uint16_t { return 0x8003; }), 0x8003);
}

TEST(StatusList, Values_AreTheInterfaces)
{
    EXPECT_EQ(U3V_STATUS_SUCCESS, 0);
    EXPECT_EQ(U3V_STATUS_OPEN_FAILED, 0xC001);
    EXPECT_EQ(U3V_STATUS_CLAIM_FAILED, 0xC006);
    EXPECT_EQ(U3V_STATUS_NOT_OPEN, 0xC007);
    EXPECT_EQ(U3V_STATUS_BAD_PREFIX, 0xC008);
    EXPECT_EQ(U3V_STATUS_BAD_ACK_ID, 0xC009);
    EXPECT_EQ(U3V_STATUS_BAD_REQUEST_ID, 0xC00A);
    EXPECT_EQ(U3V_STATUS_NO_STREAM_INTERFACE, 0xC014);
    EXPECT_EQ(U3V_STATUS_STREAM_NOT_OPEN, 0xC016);
    EXPECT_EQ(U3V_STATUS_IMAGE_TIMEOUT, 0xC018);
    EXPECT_EQ(U3V_STATUS_IMAGE_MISSING_PACKETS, 0xC019);
    EXPECT_EQ(U3V_STATUS_INVALID_HANDLE, 0xC01A);
    EXPECT_EQ(U3V_STATUS_EXCEPTION, 0xC01B);
    EXPECT_EQ(U3V_STATUS_DEVICE_NOT_FOUND, 0xC01C);
    EXPECT_EQ(U3V_STATUS_UNZIP_FAILED, 0xC01D);
    EXPECT_EQ(U3V_STATUS_GENCP_MSG_TIMEOUT, 0x800B);
    EXPECT_EQ(U3V_STATUS_GENCP_INVALID_HEADER, 0x800E);
}

} // namespace
