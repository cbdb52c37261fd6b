#include "device_fixture.h"
#include "zr_gentl_util.h"
#include "zr_u3v_controller.h"
#include "zr_u3v_data_stream.h"
#include "zr_u3v_device.h"

#include <cstring>

namespace {

class DeviceTest : public CameraTest
{
protected:
    TextAnswer InfoText(DEVICE_INFO_CMD cmd)
    {
        return ReadText([&](INFO_DATATYPE* type, void* buffer, size_t* size) {
            return m_device.GetInfo(cmd, type, buffer, size);
        });
    }
    Answer<int32_t> AccessStatus()
    {
        return ReadValue<int32_t>([&](INFO_DATATYPE* type, void* buffer, size_t* size) {
            return m_device.GetInfo(DEVICE_INFO_ACCESS_STATUS, type, buffer, size);
        });
    }
    uint32_t NumStreams()
    {
        uint32_t count = 99;
        EXPECT_EQ(m_device.GetNumDataStreams(&count), GC_ERR_SUCCESS);
        return count;
    }
    ZrGenTLModuleBase* Port()
    {
        void* port = &port;
        EXPECT_EQ(m_device.GetPort(&port), GC_ERR_SUCCESS);
        return static_cast<ZrGenTLModuleBase*>(port);
    }
    static bool IsRegistered(void* handle, const char* kind)
    {
        return static_cast<bool>(g_Controller.PinModule(handle, kind));
    }

    ZrU3VDevice m_device{CameraRecord(), nullptr};
};

class OpenDeviceTest : public DeviceTest
{
protected:
    void SetUp() override { ASSERT_EQ(m_device.Open(DEVICE_ACCESS_CONTROL), GC_ERR_SUCCESS); }
};

// ---- construction

TEST_F(DeviceTest, Construction_PortIdentity_IsTheProducersOwn)
{
    EXPECT_EQ(PortText(m_device, PORT_INFO_ID), "ZrGenTLU3V");
    EXPECT_EQ(PortText(m_device, PORT_INFO_VENDOR), "ZRK-ORVANE GmbH");
    EXPECT_EQ(PortText(m_device, PORT_INFO_MODEL), "U3VTL");
    EXPECT_EQ(PortText(m_device, PORT_INFO_TLTYPE), "U3V");
    EXPECT_EQ(PortText(m_device, PORT_INFO_MODULE), "TLDevice");
    EXPECT_EQ(PortText(m_device, PORT_INFO_VERSION), ZR_EXACT_VERSION);
    EXPECT_EQ(PortText(m_device, PORT_INFO_PORTNAME), "DevicePort");
    EXPECT_EQ(m_device.GetId(), "GUID-A");
    EXPECT_TRUE(m_device.IsPortImplemented());
}

TEST_F(DeviceTest, Construction_Url_NamesTheDocumentWithItsLength)
{
    const std::string length = UpperHex(ZrGenTLUtil::CreateXMLDevice().size());
    EXPECT_EQ(UrlsOf(m_device), Strings{"local:ZrGenTLU3V_DEV.xml;10000;" + length});
}

TEST_F(DeviceTest, Construction_Registers_AreZero)
{
    EXPECT_EQ(ReadRegisterOf<uint32_t>(m_device, 0x70304), RegisterValue<uint32_t>(0));
    EXPECT_EQ(ReadTextRegisterOf(m_device, 0x7041C), RegisterText(""));
    EXPECT_EQ(ReadRegisterOf<uint32_t>(m_device, 0x70408), RegisterValue<uint32_t>(0));
}

TEST_F(DeviceTest, IsEventImplemented_OnlyTheRemoteDeviceEvent)
{
    for (const int id : {-1, 0, 1, 2, 3, 4, 5, 6, 4000, 5000}) {
        EXPECT_EQ(m_device.IsEventImplemented(id), id == 4) << id;
    }
}

// ---- open and close

TEST_F(DeviceTest, Open_AcceptedAccess_OpensCameraAndOneStream)
{
    for (const int32_t flags : {2, 3, 4}) {
        ZrU3VDevice device(CameraRecord(), nullptr);
        m_fake.ClearJournal();
        EXPECT_EQ(device.Open(flags), GC_ERR_SUCCESS) << flags;
        EXPECT_EQ(m_fake.CountOf("U3V_OpenDevice GUID-A"), 1U);
        EXPECT_EQ(m_fake.CountOf("U3V_OpenStream"), 0U) << "the stream opens on its own";
        uint32_t count = 0;
        EXPECT_EQ(device.GetNumDataStreams(&count), GC_ERR_SUCCESS);
        EXPECT_EQ(count, 1U);
    }
}

TEST_F(DeviceTest, Open_OtherAccess_IsNotImplemented)
{
    for (const int32_t flags : {-1, 0, 1, 5, 6, 7, 1000}) {
        const TraceCapture trace;
        EXPECT_EQ(m_device.Open(flags), GC_ERR_NOT_IMPLEMENTED) << flags;
        EXPECT_EQ(trace.Lines(), Lines{ErrorLine("Open GC_ERR_NOT_IMPLEMENTED")});
    }
    EXPECT_TRUE(m_fake.Journal().empty());
}

TEST_F(OpenDeviceTest, Open_Again_IsInUseEvenWithWrongFlags)
{
    const TraceCapture trace;
    EXPECT_EQ(m_device.Open(99), GC_ERR_RESOURCE_IN_USE);
    EXPECT_EQ(trace.Lines(), Lines{ErrorLine("Open GC_ERR_RESOURCE_IN_USE")});
}

TEST_F(DeviceTest, Open_RemoteDeviceFails_PassesItsStatusAndLeavesNothing)
{
    m_fake.Script("U3V_OpenDevice", {kRefused});
    const TraceCapture trace;
    EXPECT_EQ(m_device.Open(DEVICE_ACCESS_CONTROL), GC_ERR_ERROR);
    EXPECT_EQ(trace.Errors(), (Strings{"Open Failed! U3VApi::U3V_OpenDevice:32774",
                                       "Open failed! ZrU3VRemoteDevice::Open -1001"}));
    EXPECT_EQ(m_fake.OpenHandles(), 0);
    EXPECT_EQ(NumStreams(), 0U);
    EXPECT_EQ(Port(), nullptr);
    EXPECT_FALSE(IsRegistered(&m_device, "TLDevice"));
    EXPECT_EQ(m_device.Close(), GC_ERR_ERROR) << "still closed";
    EXPECT_EQ(m_device.Open(DEVICE_ACCESS_CONTROL), GC_ERR_SUCCESS) << "and can be opened";
}

TEST_F(OpenDeviceTest, Open_RegistersStreamRemoteDeviceAndDevice)
{
    void* stream = nullptr;
    ASSERT_EQ(m_device.OpenDataStream("0", &stream), GC_ERR_SUCCESS);
    void* const port = Port();
    EXPECT_TRUE(IsRegistered(&m_device, "TLDevice"));
    EXPECT_TRUE(IsRegistered(port, "Device"));
    EXPECT_TRUE(IsRegistered(stream, "TLDataStream"));
    EXPECT_EQ(m_device.Close(), GC_ERR_SUCCESS);
    EXPECT_FALSE(IsRegistered(&m_device, "TLDevice"));
    EXPECT_FALSE(IsRegistered(port, "Device"));
    EXPECT_FALSE(IsRegistered(stream, "TLDataStream"));
}

TEST_F(OpenDeviceTest, Close_DeletesStreamBeforeCamera)
{
    void* stream = nullptr;
    ASSERT_EQ(m_device.OpenDataStream("0", &stream), GC_ERR_SUCCESS);
    m_fake.ClearJournal();
    EXPECT_EQ(m_device.Close(), GC_ERR_SUCCESS);
    EXPECT_EQ(m_fake.Journal(),
              (Strings{"U3V_CloseStream", "U3V_CloseControl", "U3V_CloseDevice"}));
    EXPECT_EQ(NumStreams(), 0U);
    EXPECT_EQ(Port(), nullptr);
}

TEST_F(DeviceTest, Close_NeverOpened_IsAnError)
{
    const TraceCapture trace;
    EXPECT_EQ(m_device.Close(), GC_ERR_ERROR);
    EXPECT_EQ(trace.Lines(), Lines{ErrorLine("Close GC_ERR_ERROR")});
}

TEST_F(OpenDeviceTest, Close_Twice_SecondIsAnError)
{
    EXPECT_EQ(m_device.Close(), GC_ERR_SUCCESS);
    EXPECT_EQ(m_device.Close(), GC_ERR_ERROR);
}

TEST_F(OpenDeviceTest, Open_AfterClose_HandleIsValidAgain)
{
    ASSERT_EQ(m_device.Close(), GC_ERR_SUCCESS);
    ASSERT_EQ(m_device.Open(DEVICE_ACCESS_CONTROL), GC_ERR_SUCCESS);
    EXPECT_TRUE(IsRegistered(&m_device, "TLDevice"));
    EXPECT_EQ(NumStreams(), 1U);
}

TEST_F(DeviceTest, Destructor_OpenDevice_ClosesIt)
{
    {
        ZrU3VDevice device(CameraRecord(), nullptr);
        ASSERT_EQ(device.Open(DEVICE_ACCESS_EXCLUSIVE), GC_ERR_SUCCESS);
        EXPECT_EQ(m_fake.OpenHandles(), 2);
    }
    EXPECT_EQ(m_fake.OpenHandles(), 0);
}

// ---- port and streams

TEST_F(OpenDeviceTest, GetPort_Open_IsTheRemoteDevice)
{
    ASSERT_NE(Port(), nullptr);
    EXPECT_EQ(Port()->GetName(), "Device");
    EXPECT_EQ(Port()->GetParent(), &m_device);
}

TEST_F(DeviceTest, NullArguments_AreRefusedAndTraced)
{
    const TraceCapture trace;
    void* stream = nullptr;
    int32_t type = 0;
    size_t size = 0;
    EXPECT_EQ(m_device.GetPort(nullptr), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(m_device.GetNumDataStreams(nullptr), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(m_device.GetDataStreamID(0, nullptr, nullptr), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(m_device.OpenDataStream(nullptr, &stream), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(m_device.OpenDataStream("0", nullptr), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(m_device.GetInfo(0, nullptr, nullptr, &size), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(m_device.GetInfo(0, &type, nullptr, nullptr), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(
        trace.Errors(),
        (Strings{"GetPort GC_ERR_INVALID_PARAMETER", "GetNumDataStreams GC_ERR_INVALID_PARAMETER",
                 "GetDataStreamID GC_ERR_INVALID_PARAMETER",
                 "OpenDataStream GC_ERR_INVALID_PARAMETER",
                 "OpenDataStream GC_ERR_INVALID_PARAMETER", "GetInfo GC_ERR_INVALID_PARAMETER",
                 "GetInfo GC_ERR_INVALID_PARAMETER"}));
}

TEST_F(DeviceTest, PortAccess_NullArguments_AreRefusedAndTraced)
{
    const TraceCapture trace;
    char byte = 0;
    size_t size = 1;
    EXPECT_EQ(m_device.ReadPort(0x10000, nullptr, &size), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(m_device.ReadPort(0x10000, &byte, nullptr), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(m_device.WritePort(0x70304, nullptr, &size), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(m_device.WritePort(0x70304, &byte, nullptr), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(trace.Errors(), (Strings{"ReadPort failed! GC_ERR_INVALID_PARAMETER",
                                       "ReadPort failed! GC_ERR_INVALID_PARAMETER",
                                       "WritePort failed! GC_ERR_INVALID_PARAMETER",
                                       "WritePort failed! GC_ERR_INVALID_PARAMETER"}));
}

TEST_F(OpenDeviceTest, GetDataStreamID_First_IsZeroAndClearsTheBuffer)
{
    char id[8];
    memset(id, 'x', sizeof(id));
    size_t size = sizeof(id);
    EXPECT_EQ(m_device.GetDataStreamID(0, id, &size), GC_ERR_SUCCESS);
    EXPECT_EQ(size, 2U);
    EXPECT_EQ(std::string(id, sizeof(id)), std::string("0\0\0\0\0\0\0\0", sizeof(id)));
}

TEST_F(OpenDeviceTest, GetDataStreamID_SizeQueryAndSmallBuffer_FollowTheCopyRule)
{
    size_t size = 77;
    EXPECT_EQ(m_device.GetDataStreamID(0, nullptr, &size), GC_ERR_SUCCESS);
    EXPECT_EQ(size, 2U);
    char byte = 'x';
    size = 1;
    EXPECT_EQ(m_device.GetDataStreamID(0, &byte, &size), GC_ERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(size, 2U);
    EXPECT_EQ(byte, '\0') << "cleared before the copy was refused";
}

TEST_F(OpenDeviceTest, GetDataStreamID_Second_IsNoIndex)
{
    const TraceCapture trace;
    char id[4] = "abc";
    size_t size = sizeof(id);
    EXPECT_EQ(m_device.GetDataStreamID(1, id, &size), GC_ERR_INVALID_INDEX);
    EXPECT_STREQ(id, "abc");
    EXPECT_EQ(trace.Lines(), Lines{ErrorLine("GetDataStreamID GC_ERR_INVALID_INDEX")});
}

TEST_F(OpenDeviceTest, OpenDataStream_UnknownId_IsRefused)
{
    const TraceCapture trace;
    void* stream = this;
    EXPECT_EQ(m_device.OpenDataStream("1", &stream), GC_ERR_INVALID_ID);
    EXPECT_EQ(m_device.OpenDataStream("", &stream), GC_ERR_INVALID_ID);
    EXPECT_EQ(stream, this);
    EXPECT_EQ(trace.Errors(),
              (Strings{"OpenDataStream GC_ERR_INVALID_ID", "OpenDataStream GC_ERR_INVALID_ID"}));
}

TEST_F(OpenDeviceTest, OpenDataStream_StreamFails_PassesItsStatusAndLeavesTheHandle)
{
    m_fake.Script("U3V_OpenStream", {kRefused});
    void* stream = this;
    EXPECT_EQ(m_device.OpenDataStream("0", &stream), GC_ERR_ERROR);
    EXPECT_EQ(stream, this);
    EXPECT_EQ(m_device.OpenDataStream("0", &stream), GC_ERR_SUCCESS);
    EXPECT_EQ(static_cast<ZrGenTLModuleBase*>(stream)->GetName(), "TLDataStream");
    EXPECT_EQ(static_cast<ZrGenTLModuleBase*>(stream)->GetParent(), &m_device);
    EXPECT_EQ(m_device.OpenDataStream("0", &stream), GC_ERR_RESOURCE_IN_USE);
}

// ---- information

TEST_F(OpenDeviceTest, GetInfo_Strings_ComeFromTheRecordWithoutTheCamera)
{
    m_fake.ClearJournal();
    EXPECT_EQ(InfoText(0), Text("GUID-A"));
    EXPECT_EQ(InfoText(1), Text("VendorA"));
    EXPECT_EQ(InfoText(2), Text("ModelA"));
    EXPECT_EQ(InfoText(3), Text("TypeA"));
    EXPECT_EQ(InfoText(4), Text("DisplayA"));
    EXPECT_EQ(InfoText(7), Text("SerialA"));
    EXPECT_EQ(InfoText(8), Text("1.2"));
    EXPECT_TRUE(m_fake.Journal().empty());
}

TEST_F(OpenDeviceTest, GetInfo_AccessStatus_AsksTheCamera)
{
    const uint32_t privilege = 1;
    m_fake.Poke(0x204, &privilege, sizeof(privilege));
    EXPECT_EQ(AccessStatus(), (Answer<int32_t>{GC_ERR_SUCCESS, INFO_DATATYPE_INT32, 4, 3}));
    m_fake.Script("U3V_ReadMem", {kRefused});
    EXPECT_EQ(AccessStatus().status, GC_ERR_IO);
}

TEST_F(OpenDeviceTest, GetInfo_UserDefinedName_AsksTheCamera)
{
    m_fake.Poke(0x184, "Front door", 11);
    EXPECT_EQ(InfoText(6), Text("Front door"));
    m_fake.Script("U3V_ReadMem", {kRefused});
    EXPECT_EQ(InfoText(6).status, GC_ERR_IO);
}

TEST_F(OpenDeviceTest, GetInfo_TimestampFrequency_IsNotImplementedWithoutATrace)
{
    const TraceCapture trace;
    char buffer[4] = {'a', 'b', 'c', 'd'};
    int32_t type = 77;
    size_t size = 3;
    EXPECT_EQ(m_device.GetInfo(9, &type, buffer, &size), GC_ERR_NOT_IMPLEMENTED);
    EXPECT_EQ(std::string(buffer, 4), std::string("\0\0\0d", 4));
    EXPECT_EQ(size, 3U);
    EXPECT_EQ(type, 77);
    EXPECT_TRUE(trace.Lines().empty());
}

TEST_F(OpenDeviceTest, GetInfo_UnknownCommand_IsTracedWithItsNumber)
{
    for (const int32_t cmd : {-1, 10, 1000}) {
        const TraceCapture trace;
        char buffer[2] = {'a', 'b'};
        int32_t type = 0;
        size_t size = 1;
        EXPECT_EQ(m_device.GetInfo(cmd, &type, buffer, &size), GC_ERR_NOT_IMPLEMENTED);
        EXPECT_EQ(buffer[0], '\0');
        EXPECT_EQ(buffer[1], 'b');
        EXPECT_EQ(trace.Lines(),
                  Lines{ErrorLine("GetInfo GC_ERR_NOT_IMPLEMENTED :" + std::to_string(cmd))});
    }
}

TEST_F(OpenDeviceTest, GetInfo_SmallBuffer_IsClearedAndRefused)
{
    char buffer[7] = "abcdef";
    int32_t type = 0;
    size_t size = 6;
    EXPECT_EQ(m_device.GetInfo(0, &type, buffer, &size), GC_ERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(size, 7U);
    EXPECT_EQ(std::string(buffer, 6), std::string(6, '\0'));
}

TEST_F(DeviceTest, GetInfo_Closed_IsNotInitialized)
{
    for (int32_t cmd = 0; cmd <= 8; ++cmd) {
        EXPECT_EQ(InfoText(cmd).status, GC_ERR_NOT_INITIALIZED) << cmd;
    }
    EXPECT_EQ(InfoText(9).status, GC_ERR_NOT_IMPLEMENTED);
}

// ---- port

TEST_F(DeviceTest, ReadPort_Document_IsCopiedUpToItsEndAndLeavesTheSize)
{
    const std::string text = ZrGenTLUtil::CreateXMLDevice();
    std::vector<char> buffer(text.size() + 2, '#');
    size_t size = buffer.size();
    EXPECT_EQ(m_device.ReadPort(0x10000, buffer.data(), &size), GC_ERR_SUCCESS);
    EXPECT_EQ(size, buffer.size());
    EXPECT_EQ(std::string(buffer.data(), buffer.size()), text + "##");

    char start[5] = {'#', '#', '#', '#', '#'};
    size = 4;
    EXPECT_EQ(m_device.ReadPort(0x10000, start, &size), GC_ERR_SUCCESS);
    EXPECT_EQ(std::string(start, 5), text.substr(0, 4) + "#");
    EXPECT_EQ(size, 4U);
}

TEST_F(OpenDeviceTest, ReadPort_InformationRegisters_AnswerAsGetInfo)
{
    const uint32_t privilege = 2;
    m_fake.Poke(0x204, &privilege, sizeof(privilege));
    EXPECT_EQ(ReadTextRegisterOf(m_device, 0x70000), RegisterText("GUID-A"));
    EXPECT_EQ(ReadTextRegisterOf(m_device, 0x70100), RegisterText("VendorA"));
    EXPECT_EQ(ReadTextRegisterOf(m_device, 0x70200), RegisterText("ModelA"));
    EXPECT_EQ(ReadRegisterOf<uint32_t>(m_device, 0x70300), RegisterValue<uint32_t>(2));
    EXPECT_EQ(ReadRegisterOf<uint32_t>(m_device, 0x70408), RegisterValue<uint32_t>(1));
    EXPECT_EQ(ReadTextRegisterOf(m_device, 0x70308), RegisterText("0"));
}

TEST_F(OpenDeviceTest, ReadPort_InformationRegister_ClearsTheWholeBuffer)
{
    char buffer[16];
    memset(buffer, 'x', sizeof(buffer));
    size_t size = sizeof(buffer);
    EXPECT_EQ(m_device.ReadPort(0x70000, buffer, &size), GC_ERR_SUCCESS);
    EXPECT_EQ(size, 7U);
    EXPECT_EQ(std::string(buffer, 16), std::string("GUID-A") + std::string(10, '\0'));
}

TEST_F(OpenDeviceTest, ReadPort_SmallBuffer_IsRefusedWithTheSize)
{
    uint16_t half = 0;
    for (const uint64_t address :
         std::initializer_list<uint64_t>{0x70300, 0x70304, 0x70408, 0x7052C}) {
        size_t size = sizeof(half);
        EXPECT_EQ(m_device.ReadPort(address, &half, &size), GC_ERR_BUFFER_TOO_SMALL);
        EXPECT_EQ(size, 4U);
    }
}

TEST_F(OpenDeviceTest, StreamSelector_NamesNoStream_IdReadsEmpty)
{
    EXPECT_EQ(WriteRegisterOf<uint32_t>(m_device, 0x70304, 7), GC_ERR_SUCCESS);
    EXPECT_EQ(ReadRegisterOf<uint32_t>(m_device, 0x70304), RegisterValue<uint32_t>(7));
    EXPECT_EQ(ReadTextRegisterOf(m_device, 0x70308), RegisterText(""));
    EXPECT_EQ(WriteRegisterOf<uint32_t>(m_device, 0x70304, 0), GC_ERR_SUCCESS);
    EXPECT_EQ(ReadTextRegisterOf(m_device, 0x70308), RegisterText("0"));
}

TEST_F(DeviceTest, StreamSelector_LongAndShortWrites_TakeFourBytesAtMost)
{
    EXPECT_EQ(WriteRegisterOf<uint64_t>(m_device, 0x70304, 0x1122334455667788), GC_ERR_SUCCESS);
    EXPECT_EQ(ReadRegisterOf<uint32_t>(m_device, 0x70304), RegisterValue<uint32_t>(0x55667788));
    EXPECT_EQ(WriteRegisterOf<uint16_t>(m_device, 0x70304, 0xABCD), GC_ERR_SUCCESS);
    EXPECT_EQ(ReadRegisterOf<uint32_t>(m_device, 0x70304), RegisterValue<uint32_t>(0xABCD));
}

TEST_F(DeviceTest, XMLFile_600BytesWritten_StoresTheFirst512)
{
    std::string path(512, 'p');
    path.append(88, 'q');
    size_t size = path.size();
    EXPECT_EQ(m_device.WritePort(0x7041C, path.data(), &size), GC_ERR_SUCCESS);
    EXPECT_EQ(size, 600U);
    EXPECT_EQ(ReadTextRegisterOf(m_device, 0x7041C), RegisterText(std::string(512, 'p')));
}

TEST_F(DeviceTest, XMLFile_ShorterWrite_KeepsTheBytesBehindIt)
{
    size_t size = 6;
    EXPECT_EQ(m_device.WritePort(0x7041C, "abcdef", &size), GC_ERR_SUCCESS);
    size = 2;
    EXPECT_EQ(m_device.WritePort(0x7041C, "XY", &size), GC_ERR_SUCCESS);
    EXPECT_EQ(ReadTextRegisterOf(m_device, 0x7041C), RegisterText("XYcdef"));
    size = 3;
    EXPECT_EQ(m_device.WritePort(0x7041C, "pq", &size), GC_ERR_SUCCESS);
    EXPECT_EQ(ReadTextRegisterOf(m_device, 0x7041C), RegisterText("pq"));
}

TEST_F(OpenDeviceTest, UpdateXML_AnyValue_AnnouncesTheStoredFileAndReadsZero)
{
    size_t size = 13;
    ASSERT_EQ(m_device.WritePort(0x7041C, "/a b/cam.xml", &size), GC_ERR_SUCCESS);
    EXPECT_EQ(WriteRegisterOf<uint32_t>(m_device, 0x7052C, 0), GC_ERR_SUCCESS);
    EXPECT_EQ(UrlsOf(*Port()), Strings{"file:////a%20b/cam.xml"});
    EXPECT_EQ(ReadRegisterOf<uint32_t>(m_device, 0x7052C), RegisterValue<uint32_t>(0));
}

TEST_F(OpenDeviceTest, UpdateXML_NoPath_SucceedsAndKeepsTheUrl)
{
    const Strings urls = UrlsOf(*Port());
    EXPECT_EQ(WriteRegisterOf<uint32_t>(m_device, 0x7052C, 1), GC_ERR_SUCCESS);
    EXPECT_EQ(UrlsOf(*Port()), urls);
}

TEST_F(OpenDeviceTest, UpdateXML_PathWithoutAZero_EndsWithTheRegister)
{
    const std::string path(512, 'p');
    size_t size = path.size();
    ASSERT_EQ(m_device.WritePort(0x7041C, path.data(), &size), GC_ERR_SUCCESS);
    EXPECT_EQ(WriteRegisterOf<uint32_t>(m_device, 0x7052C, 1), GC_ERR_SUCCESS);
    EXPECT_EQ(UrlsOf(*Port()), Strings{"file:///" + path});
}

TEST_F(DeviceTest, UpdateXML_Closed_Succeeds)
{
    EXPECT_EQ(WriteRegisterOf<uint32_t>(m_device, 0x7052C, 1), GC_ERR_SUCCESS);
}

TEST_F(OpenDeviceTest, ReadPort_UnlistedAddresses_AreNotImplementedWithoutATrace)
{
    const TraceCapture trace;
    for (const uint64_t address :
         std::initializer_list<uint64_t>{0x0, 0x10001, 0x70001, 0x70004, 0x70305, 0x7040C, 0x7041D,
                                         0x7052D, 0x50000, 0x60000, 0x80000}) {
        EXPECT_EQ(ReadRegisterOf<uint32_t>(m_device, address).status, GC_ERR_NOT_IMPLEMENTED)
            << address;
    }
    EXPECT_TRUE(trace.Lines().empty());
}

TEST_F(OpenDeviceTest, WritePort_OtherAddresses_AreNotImplementedWithoutATrace)
{
    const TraceCapture trace;
    for (const uint64_t address :
         std::initializer_list<uint64_t>{0x10000, 0x70000, 0x70100, 0x70200, 0x70300, 0x70305,
                                         0x70308, 0x70408, 0x7041D, 0x7052D}) {
        EXPECT_EQ(WriteRegisterOf<uint32_t>(m_device, address, 0), GC_ERR_NOT_IMPLEMENTED)
            << address;
    }
    EXPECT_TRUE(trace.Lines().empty());
}

} // namespace
