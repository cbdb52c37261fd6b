#include "device_fixture.h"

#include <cstring>
#include <numeric>
#include <stdexcept>

namespace {

class RemoteDeviceTest : public CameraTest
{
protected:
    std::string TracedOpenFailure()
    {
        const TraceCapture trace;
        EXPECT_EQ(m_remote.Open(DEVICE_ACCESS_CONTROL), GC_ERR_ERROR);
        EXPECT_EQ(m_fake.OpenHandles(), 0) << "nothing stays open";
        EXPECT_TRUE(UrlsOf(m_remote).empty());
        EXPECT_EQ(trace.Lines().size(), 1U);
        return trace.Errors().empty() ? "" : trace.Errors().front();
    }

    ZrU3VRemoteDevice m_remote{CameraRecord(), nullptr};
};

class OpenRemoteDeviceTest : public RemoteDeviceTest
{
protected:
    void SetUp() override
    {
        ASSERT_EQ(m_remote.Open(DEVICE_ACCESS_CONTROL), GC_ERR_SUCCESS);
        m_fake.ClearJournal();
    }
};

class StreamingRemoteDeviceTest : public OpenRemoteDeviceTest
{
protected:
    void SetUp() override
    {
        OpenRemoteDeviceTest::SetUp();
        ASSERT_EQ(m_remote.OpenStream(), GC_ERR_SUCCESS);
        m_fake.ClearJournal();
    }
};

// ---- identity

TEST_F(RemoteDeviceTest, Construction_PortIdentity_HasVendorAndModelSwapped)
{
    EXPECT_EQ(PortText(m_remote, PORT_INFO_ID), "ZrGenTLU3V");
    EXPECT_EQ(PortText(m_remote, PORT_INFO_VENDOR), "U3VTL");
    EXPECT_EQ(PortText(m_remote, PORT_INFO_MODEL), "ZRK-ORVANE GmbH");
    EXPECT_EQ(PortText(m_remote, PORT_INFO_TLTYPE), "Device");
    EXPECT_EQ(PortText(m_remote, PORT_INFO_MODULE), "Device");
    EXPECT_EQ(PortText(m_remote, PORT_INFO_VERSION), "");
    EXPECT_EQ(PortText(m_remote, PORT_INFO_PORTNAME), "");
    EXPECT_TRUE(m_remote.IsPortImplemented());
    EXPECT_EQ(m_remote.GetId(), "GUID-A");
}

TEST_F(RemoteDeviceTest, IsEventImplemented_None)
{
    for (const int id : {-1, 0, 1, 4, 5, 4000, 5000}) {
        EXPECT_FALSE(m_remote.IsEventImplemented(id)) << id;
    }
}

// ---- open

TEST_F(RemoteDeviceTest, Open_Sequence_DeviceControlManifestAddressManifest)
{
    EXPECT_EQ(m_remote.Open(DEVICE_ACCESS_CONTROL), GC_ERR_SUCCESS);
    EXPECT_EQ(m_fake.Journal(), (Strings{"U3V_OpenDevice GUID-A", "U3V_OpenControl",
                                         "U3V_ReadMem 0x1D0 8", "U3V_ReadMem 0x10000 72"}));
}

TEST_F(RemoteDeviceTest, Open_PlainFile_UrlEndsInXmlWithLowerCaseHex)
{
    ASSERT_EQ(m_remote.Open(DEVICE_ACCESS_CONTROL), GC_ERR_SUCCESS);
    EXPECT_EQ(UrlsOf(m_remote), Strings{"local:ModelA_v1.2.xml;abcdef00;1f2e"});
}

TEST_F(RemoteDeviceTest, Open_ZippedFile_UrlEndsInZip)
{
    m_fake.PokeManifest(1, 0x1122334455667788, 0xA, true);
    ASSERT_EQ(m_remote.Open(DEVICE_ACCESS_CONTROL), GC_ERR_SUCCESS);
    EXPECT_EQ(UrlsOf(m_remote), Strings{"local:ModelA_v1.2.zip;1122334455667788;a"});
}

TEST_F(RemoteDeviceTest, Open_EveryFormatBitButTheZipBit_IsXml)
{
    const uint32_t format = ~(1u << 10);
    m_fake.Poke(0x10000 + 8 + 4, &format, sizeof(format));
    ASSERT_EQ(m_remote.Open(DEVICE_ACCESS_CONTROL), GC_ERR_SUCCESS);
    EXPECT_EQ(UrlsOf(m_remote), Strings{"local:ModelA_v1.2.xml;abcdef00;1f2e"});
}

TEST_F(RemoteDeviceTest, Open_AccessFlags_WriteOnlyWithoutReadOnly)
{
    for (const int32_t flags : {2, 3, 4}) {
        ZrU3VRemoteDevice remote(CameraRecord(), nullptr);
        EXPECT_FALSE(PortFlag(remote, PORT_INFO_ACCESS_READ));
        EXPECT_FALSE(PortFlag(remote, PORT_INFO_ACCESS_WRITE));
        ASSERT_EQ(remote.Open(flags), GC_ERR_SUCCESS);
        EXPECT_TRUE(PortFlag(remote, PORT_INFO_ACCESS_READ));
        EXPECT_EQ(PortFlag(remote, PORT_INFO_ACCESS_WRITE), flags != 2) << flags;
        EXPECT_FALSE(PortFlag(remote, PORT_INFO_ACCESS_NA));
    }
}

TEST_F(OpenRemoteDeviceTest, Open_Again_IsInUse)
{
    const TraceCapture trace;
    EXPECT_EQ(m_remote.Open(DEVICE_ACCESS_CONTROL), GC_ERR_RESOURCE_IN_USE);
    EXPECT_EQ(trace.Lines(), Lines{ErrorLine("Open GC_ERR_RESOURCE_IN_USE")});
    EXPECT_TRUE(m_fake.Journal().empty());
}

TEST_F(RemoteDeviceTest, Open_DeviceFails_TracedAndClosed)
{
    m_fake.Script("U3V_OpenDevice", {0xC01C});
    EXPECT_EQ(TracedOpenFailure(), "Open Failed! U3VApi::U3V_OpenDevice:49180");
    EXPECT_EQ(m_fake.CountOf("U3V_OpenControl"), 0U);
}

TEST_F(RemoteDeviceTest, Open_ControlFails_TracedAndClosedControlFirst)
{
    m_fake.Script("U3V_OpenControl", {kRefused});
    EXPECT_EQ(TracedOpenFailure(), "Open Failed! U3VApi::U3V_OpenControl:32774");
    EXPECT_EQ(m_fake.Journal(), (Strings{"U3V_OpenDevice GUID-A", "U3V_OpenControl",
                                         "U3V_CloseControl", "U3V_CloseDevice"}));
}

TEST_F(RemoteDeviceTest, Open_ManifestAddressUnreadable_TracedWithTrailingBlank)
{
    m_fake.Script("U3V_ReadMem", {kRefused});
    EXPECT_EQ(TracedOpenFailure(),
              "Open Failed! U3VApi::U3V_ReadMem(ABRM_ManifestTableAddress):32774 ");
    EXPECT_EQ(m_fake.CountOf("U3V_ReadMem"), 1U);
}

TEST_F(RemoteDeviceTest, Open_ManifestUnreadable_TracedWithTheSameText)
{
    m_fake.Script("U3V_ReadMem", {0, kRefused});
    EXPECT_EQ(TracedOpenFailure(),
              "Open Failed! U3VApi::U3V_ReadMem(ABRM_ManifestTableAddress):32774 ");
}

TEST_F(RemoteDeviceTest, Open_NoManifestEntry_Fails)
{
    m_fake.PokeManifest(0, kFileAddress, kFileSize, false);
    EXPECT_EQ(TracedOpenFailure(), "Open Failed! Manifest table count == 0");
}

TEST_F(RemoteDeviceTest, Open_FileOfSizeZero_FailsNamingEntryZero)
{
    m_fake.PokeManifest(1, kFileAddress, 0, false);
    EXPECT_EQ(TracedOpenFailure(), "Open Failed! pManifestEntryArray[0] nFileSize == 0");
}

TEST_F(RemoteDeviceTest, Open_TwoEntries_FailsNamingEntryOne)
{
    m_fake.PokeManifest(2, kFileAddress, kFileSize, false);
    EXPECT_EQ(TracedOpenFailure(), "Open Failed! pManifestEntryArray[1] nFileSize == 0");
}

TEST_F(RemoteDeviceTest, Open_TwoEntriesFirstEmpty_FailsNamingEntryZero)
{
    m_fake.PokeManifest(2, kFileAddress, 0, false);
    EXPECT_EQ(TracedOpenFailure(), "Open Failed! pManifestEntryArray[0] nFileSize == 0");
}

TEST_F(RemoteDeviceTest, Open_AfterAFailure_Succeeds)
{
    m_fake.Script("U3V_OpenControl", {kRefused});
    EXPECT_EQ(m_remote.Open(DEVICE_ACCESS_CONTROL), GC_ERR_ERROR);
    EXPECT_EQ(m_remote.Open(DEVICE_ACCESS_CONTROL), GC_ERR_SUCCESS);
}

TEST_F(RemoteDeviceTest, Open_ModelOfAnyLength_TextsAreCutAt1023)
{
    _ZR_U3V_DEVICE_INFO info = CameraRecord();
    info.model = std::string(3000, 'm');
    ZrU3VRemoteDevice remote(info, nullptr);
    ASSERT_EQ(remote.Open(DEVICE_ACCESS_CONTROL), GC_ERR_SUCCESS);
    EXPECT_EQ(UrlsOf(remote), Strings{"local:" + std::string(1017, 'm')});
}

// ---- close

TEST_F(StreamingRemoteDeviceTest, Close_ClosesStreamControlDevice)
{
    EXPECT_EQ(m_remote.Close(), GC_ERR_SUCCESS);
    EXPECT_EQ(m_fake.Journal(),
              (Strings{"U3V_CloseStream", "U3V_CloseControl", "U3V_CloseDevice"}));
    m_fake.ClearJournal();
    EXPECT_EQ(m_remote.Close(), GC_ERR_SUCCESS) << "closed already: nothing to do";
    EXPECT_TRUE(m_fake.Journal().empty());
}

TEST_F(OpenRemoteDeviceTest, Close_NoStream_ClosesOnlyWhatIsSet)
{
    EXPECT_EQ(m_remote.Close(), GC_ERR_SUCCESS);
    EXPECT_EQ(m_fake.Journal(), (Strings{"U3V_CloseControl", "U3V_CloseDevice"}));
}

TEST_F(OpenRemoteDeviceTest, Close_AnswersTheLastStatus)
{
    m_fake.Script("U3V_CloseControl", {kRefused});
    EXPECT_EQ(m_remote.Close(), 0);
    ASSERT_EQ(m_remote.Open(DEVICE_ACCESS_CONTROL), GC_ERR_SUCCESS);
    m_fake.Script("U3V_CloseDevice", {0xC01A});
    EXPECT_EQ(static_cast<uint16_t>(m_remote.Close()), 0xC01A);
}

TEST_F(RemoteDeviceTest, Close_NeverOpened_TouchesNothing)
{
    EXPECT_EQ(m_remote.Close(), GC_ERR_SUCCESS);
    EXPECT_TRUE(m_fake.Journal().empty());
}

TEST_F(RemoteDeviceTest, Destructor_Open_Closes)
{
    {
        ZrU3VRemoteDevice remote(CameraRecord(), nullptr);
        ASSERT_EQ(remote.Open(DEVICE_ACCESS_CONTROL), GC_ERR_SUCCESS);
        ASSERT_EQ(remote.OpenStream(), GC_ERR_SUCCESS);
        EXPECT_EQ(m_fake.OpenHandles(), 3);
    }
    EXPECT_EQ(m_fake.OpenHandles(), 0);
}

// ---- port

TEST_F(OpenRemoteDeviceTest, ReadPort_Sizes_ArePiecesOf256)
{
    struct Row
    {
        size_t size;
        Strings calls;
    };
    const Row rows[] = {
        {0, {"U3V_ReadMem 0x1000 0"}},
        {1, {"U3V_ReadMem 0x1000 1"}},
        {256, {"U3V_ReadMem 0x1000 256"}},
        {257, {"U3V_ReadMem 0x1000 256", "U3V_ReadMem 0x1100 1"}},
        {512, {"U3V_ReadMem 0x1000 256", "U3V_ReadMem 0x1100 256"}},
        {600, {"U3V_ReadMem 0x1000 256", "U3V_ReadMem 0x1100 256", "U3V_ReadMem 0x1200 88"}},
    };
    for (const Row& row : rows) {
        m_fake.ClearJournal();
        std::vector<uint8_t> buffer(row.size + 1);
        size_t size = row.size;
        EXPECT_EQ(m_remote.ReadPort(0x1000, buffer.data(), &size), GC_ERR_SUCCESS);
        EXPECT_EQ(m_fake.Journal(), row.calls);
        EXPECT_EQ(size, row.size);
    }
}

TEST_F(OpenRemoteDeviceTest, ReadPort_Pieces_FillTheBufferInOrderAndNoFurther)
{
    std::vector<uint8_t> memory(600);
    std::iota(memory.begin(), memory.end(), uint8_t{0});
    m_fake.Poke(0x40000, memory.data(), memory.size());
    std::vector<uint8_t> buffer(601, 0xEE);
    size_t size = 600;
    EXPECT_EQ(m_remote.ReadPort(0x40000, buffer.data(), &size), GC_ERR_SUCCESS);
    EXPECT_TRUE(std::equal(memory.begin(), memory.end(), buffer.begin()));
    EXPECT_EQ(buffer[600], 0xEE);
}

TEST_F(OpenRemoteDeviceTest, ReadPort_SecondPieceFails_StopsWithIo)
{
    m_fake.Script("U3V_ReadMem", {0, 0x8003});
    const TraceCapture trace;
    std::vector<uint8_t> buffer(1000);
    size_t size = buffer.size();
    EXPECT_EQ(m_remote.ReadPort(0, buffer.data(), &size), GC_ERR_IO);
    EXPECT_EQ(size, buffer.size());
    EXPECT_EQ(m_fake.CountOf("U3V_ReadMem"), 2U);
    EXPECT_EQ(trace.Lines(), Lines{ErrorLine("ReadPort Failed! U3VApi::U3V_ReadMem error:32771")});
}

TEST_F(OpenRemoteDeviceTest, PortAccess_NullArguments_AreRefused)
{
    const TraceCapture trace;
    char byte = 0;
    size_t size = 1;
    EXPECT_EQ(m_remote.ReadPort(0, nullptr, &size), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(m_remote.ReadPort(0, &byte, nullptr), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(m_remote.WritePort(0, nullptr, &size), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(m_remote.WritePort(0, &byte, nullptr), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(trace.Errors(), (Strings{"ReadPort failed! GC_ERR_INVALID_PARAMETER",
                                       "ReadPort failed! GC_ERR_INVALID_PARAMETER",
                                       "WritePort failed! GC_ERR_INVALID_PARAMETER",
                                       "WritePort failed! GC_ERR_INVALID_PARAMETER"}));
    EXPECT_TRUE(m_fake.Journal().empty());
}

TEST_F(RemoteDeviceTest, PortAccess_Closed_IsDeniedAfterTheNullTest)
{
    const TraceCapture trace;
    char byte = 0;
    size_t size = 1;
    EXPECT_EQ(m_remote.ReadPort(0, &byte, &size), GC_ERR_ACCESS_DENIED);
    EXPECT_EQ(m_remote.WritePort(0, &byte, &size), GC_ERR_ACCESS_DENIED);
    EXPECT_EQ(m_remote.ReadPort(0, nullptr, &size), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(trace.Errors(), (Strings{"ReadPort failed! GC_ERR_ACCESS_DENIED",
                                       "WritePort failed! GC_ERR_ACCESS_DENIED",
                                       "ReadPort failed! GC_ERR_INVALID_PARAMETER"}));
    EXPECT_TRUE(m_fake.Journal().empty());
}

TEST_F(OpenRemoteDeviceTest, WritePort_UpTo1024Bytes_IsOneWrite)
{
    const std::vector<uint8_t> data(1024, 0x5A);
    size_t size = data.size();
    EXPECT_EQ(m_remote.WritePort(0x5000, data.data(), &size), GC_ERR_SUCCESS);
    EXPECT_EQ(m_fake.Journal(), Strings{"U3V_WriteMem 0x5000 1024"});
    EXPECT_EQ(m_fake.Peek(0x5000, 1024), data);
    EXPECT_EQ(size, 1024U);
}

TEST_F(OpenRemoteDeviceTest, WritePort_MoreThan1024Bytes_FailsAndWritesNothing)
{
    for (const size_t length : {size_t{1025}, size_t{65540}}) {
        const TraceCapture trace;
        const std::vector<uint8_t> data(length, 0x5A);
        size_t size = data.size();
        EXPECT_EQ(m_remote.WritePort(0x5000, data.data(), &size), GC_ERR_IO);
        EXPECT_EQ(trace.Lines(),
                  Lines{ErrorLine("WritePort Failed! U3VApi::U3V_WriteMem error:32770")});
        EXPECT_EQ(m_fake.Peek(0x5000, 1)[0], 0);
    }
}

TEST_F(OpenRemoteDeviceTest, WritePort_Refused_IsIo)
{
    m_fake.Script("U3V_WriteMem", {0x8004});
    const TraceCapture trace;
    const uint32_t value = 1;
    size_t size = sizeof(value);
    EXPECT_EQ(m_remote.WritePort(0x50014, &value, &size), GC_ERR_IO);
    EXPECT_EQ(trace.Lines(),
              Lines{ErrorLine("WritePort Failed! U3VApi::U3V_WriteMem error:32772")});
}

// ---- status and name

TEST_F(OpenRemoteDeviceTest, GetAccessStatus_Privileges_AreMapped)
{
    const struct
    {
        uint32_t privilege;
        int32_t status;
    } rows[] = {{0, 1}, {1, 3}, {2, 2}, {3, 0}, {0x100, 0}, {0xFFFFFFFF, 0}};
    for (const auto& row : rows) {
        m_fake.Poke(0x204, &row.privilege, sizeof(row.privilege));
        EXPECT_EQ(m_remote.GetAccessStatus(), row.status) << row.privilege;
    }
    EXPECT_EQ(m_fake.Journal().front(), "U3V_ReadMem 0x204 4");
}

TEST_F(OpenRemoteDeviceTest, GetAccessStatus_Unreadable_IsIo)
{
    m_fake.Script("U3V_ReadMem", {kRefused});
    const TraceCapture trace;
    EXPECT_EQ(m_remote.GetAccessStatus(), GC_ERR_IO);
    EXPECT_EQ(trace.Lines(),
              Lines{ErrorLine("GetAccessStatus Failed! U3VApi::U3V_ReadMem error:32774")});
}

TEST_F(RemoteDeviceTest, GetAccessStatus_Closed_IsUnknown)
{
    EXPECT_EQ(m_remote.GetAccessStatus(), 0);
    EXPECT_TRUE(m_fake.Journal().empty());
}

TEST_F(OpenRemoteDeviceTest, GetUserDefinedName_EndsAtItsFirstZero)
{
    m_fake.Poke(0x184, "abc\0def", 8);
    EXPECT_EQ(m_remote.GetUserDefinedName(), "abc");
    EXPECT_EQ(m_fake.Journal(), Strings{"U3V_ReadMem 0x184 512"});
}

TEST_F(OpenRemoteDeviceTest, GetUserDefinedName_NoZero_HasAll512Bytes)
{
    const std::string name(600, 'n');
    m_fake.Poke(0x184, name.data(), name.size());
    EXPECT_EQ(m_remote.GetUserDefinedName(), std::string(512, 'n'));
}

TEST_F(OpenRemoteDeviceTest, GetUserDefinedName_Unreadable_RaisesAfterTheTrace)
{
    m_fake.Script("U3V_ReadMem", {kRefused});
    const TraceCapture trace;
    std::string raised;
    try {
        static_cast<void>(m_remote.GetUserDefinedName());
    } catch (const std::logic_error& error) {
        raised = error.what();
    }
    EXPECT_EQ(raised, "basic_string::_M_construct null not valid");
    EXPECT_EQ(trace.Lines(),
              Lines{ErrorLine("GetUserDefinedName Failed! U3VApi::U3V_ReadMem error:32774")});
}

TEST_F(OpenRemoteDeviceTest, InjectXMLFromFile_BecomesTheOnlyUrl)
{
    m_remote.InjectXMLFromFile("/tmp/my cam.xml");
    EXPECT_EQ(UrlsOf(m_remote), Strings{"file:////tmp/my%20cam.xml"});
    m_remote.InjectXMLFromFile("x");
    EXPECT_EQ(UrlsOf(m_remote), Strings{"file:///x"});
}

TEST_F(OpenRemoteDeviceTest, InjectXMLFromFile_EmptyPath_ChangesNothing)
{
    const Strings urls = UrlsOf(m_remote);
    m_remote.InjectXMLFromFile("");
    m_remote.InjectXMLFromFile(nullptr);
    EXPECT_EQ(UrlsOf(m_remote), urls);
}

// ---- stream operations

TEST_F(OpenRemoteDeviceTest, StreamOperations_NoStream_AreInvalidHandles)
{
    const TraceCapture trace;
    EXPECT_EQ(m_remote.CloseStream(), GC_ERR_INVALID_HANDLE);
    EXPECT_EQ(m_remote.SetBufferCount(1), GC_ERR_INVALID_HANDLE);
    EXPECT_EQ(m_remote.SetTransferSize(1), GC_ERR_INVALID_HANDLE);
    EXPECT_EQ(m_remote.StartAcquisition(1), GC_ERR_INVALID_HANDLE);
    EXPECT_EQ(m_remote.StopAcquisition(), GC_ERR_INVALID_HANDLE);
    EXPECT_EQ(trace.Errors(), (Strings{"CloseStream Failed! GC_ERR_INVALID_HANDLE",
                                       "SetBufferCount Failed! GC_ERR_INVALID_HANDLE",
                                       "SetTransferSize Failed! GC_ERR_INVALID_HANDLE",
                                       "StartAcquisition Failed! GC_ERR_INVALID_HANDLE",
                                       "StopAcquisition Failed! GC_ERR_INVALID_HANDLE"}));
    EXPECT_TRUE(m_fake.Journal().empty());
}

TEST_F(OpenRemoteDeviceTest, OpenStream_PassesTheArgument1000WhateverTheIndex)
{
    EXPECT_EQ(m_remote.OpenStream(), GC_ERR_SUCCESS);
    EXPECT_EQ(m_fake.Journal(), Strings{"U3V_OpenStream 1000"});
}

TEST_F(StreamingRemoteDeviceTest, OpenStream_Again_IsInUse)
{
    const TraceCapture trace;
    EXPECT_EQ(m_remote.OpenStream(), GC_ERR_RESOURCE_IN_USE);
    EXPECT_EQ(trace.Lines(), Lines{ErrorLine("OpenStream Failed! GC_ERR_RESOURCE_IN_USE")});
    EXPECT_TRUE(m_fake.Journal().empty());
}

TEST_F(OpenRemoteDeviceTest, OpenStream_Fails_IsClosedAndCanBeTriedAgain)
{
    m_fake.Script("U3V_OpenStream", {0xC014});
    const TraceCapture trace;
    EXPECT_EQ(m_remote.OpenStream(), GC_ERR_ERROR);
    EXPECT_EQ(trace.Lines(), Lines{ErrorLine("OpenStream Failed! U3V_OpenStream:49172")});
    EXPECT_EQ(m_fake.OpenHandles(), 2) << "device and control only";
    EXPECT_EQ(m_remote.OpenStream(), GC_ERR_SUCCESS);
}

TEST_F(StreamingRemoteDeviceTest, CloseStream_Fails_IsClosedAllTheSame)
{
    m_fake.Script("U3V_CloseStream", {kRefused});
    const TraceCapture trace;
    EXPECT_EQ(m_remote.CloseStream(), GC_ERR_ERROR);
    EXPECT_EQ(trace.Lines(), Lines{ErrorLine("CloseStream Failed! U3V_CloseStream:32774")});
    EXPECT_EQ(m_remote.CloseStream(), GC_ERR_INVALID_HANDLE);
    EXPECT_EQ(m_remote.OpenStream(), GC_ERR_SUCCESS);
}

TEST_F(StreamingRemoteDeviceTest, StreamOperations_ReachTheStream)
{
    EXPECT_EQ(m_remote.SetTransferSize(0x100000), GC_ERR_SUCCESS);
    EXPECT_EQ(m_remote.SetBufferCount(3), GC_ERR_SUCCESS);
    EXPECT_EQ(m_remote.StartAcquisition(4), GC_ERR_SUCCESS);
    EXPECT_EQ(m_remote.StopAcquisition(), GC_ERR_SUCCESS);
    EXPECT_EQ(m_remote.CloseStream(), GC_ERR_SUCCESS);
    EXPECT_EQ(m_fake.Journal(),
              (Strings{"U3V_SetTransferSize 1048576", "U3V_SetBufferCount 3",
                       "U3V_AcquisitionStart 4", "U3V_AcquisitionStop", "U3V_CloseStream"}));
}

TEST_F(StreamingRemoteDeviceTest, StartAcquisition_CountIsCutTo32Bits)
{
    EXPECT_EQ(m_remote.StartAcquisition(GENTL_INFINITE), GC_ERR_SUCCESS);
    EXPECT_EQ(m_remote.StartAcquisition(0x500000007), GC_ERR_SUCCESS);
    EXPECT_EQ(m_fake.Journal(),
              (Strings{"U3V_AcquisitionStart 4294967295", "U3V_AcquisitionStart 7"}));
}

TEST_F(StreamingRemoteDeviceTest, StreamOperations_Refused_AreErrorsWithTheirTexts)
{
    for (const char* function : {"U3V_SetTransferSize", "U3V_SetBufferCount",
                                 "U3V_AcquisitionStart", "U3V_AcquisitionStop"}) {
        m_fake.Script(function, {kRefused});
    }
    const TraceCapture trace;
    EXPECT_EQ(m_remote.SetTransferSize(1), GC_ERR_ERROR);
    EXPECT_EQ(m_remote.SetBufferCount(1), GC_ERR_ERROR);
    EXPECT_EQ(m_remote.StartAcquisition(1), GC_ERR_ERROR);
    EXPECT_EQ(m_remote.StopAcquisition(), GC_ERR_ERROR);
    EXPECT_EQ(trace.Errors(), (Strings{"SetTransferSize Failed! U3V_SetBufferCount:32774",
                                       "SetBufferCount Failed! U3V_SetBufferCount:32774",
                                       "StartAcquisition Failed! U3V_AcquisitionStart:32774",
                                       "StopAcquisition Failed! U3V_AcquisitionStop:32774"}));
}

TEST_F(OpenRemoteDeviceTest, GetImage_NoStream_IsStreamNotOpen)
{
    const TraceCapture trace;
    IMAGE_HEADER header{};
    char byte = 0;
    EXPECT_EQ(m_remote.GetImage(&byte, 1, 200, &header), 0xC016);
    EXPECT_EQ(trace.Lines(),
              Lines{ErrorLine("GetImage Failed! DS_STATUS_STREAM_INTERFACE_NOT_OPEN")});
}

TEST_F(StreamingRemoteDeviceTest, GetImage_Status_IsTracedAndPassedOn)
{
    m_fake.Script("U3V_GetImage", {0xC018});
    const TraceCapture trace;
    IMAGE_HEADER header{};
    char byte = 0;
    EXPECT_EQ(m_remote.GetImage(&byte, 1, 123, &header), 0xC018);
    EXPECT_EQ(trace.Lines(), Lines{ErrorLine("GetImage Failed! U3V_GetImage:49176")});
    EXPECT_EQ(m_fake.Journal(), Strings{"U3V_GetImage 123"});
}

TEST_F(StreamingRemoteDeviceTest, GetImage_Success_FillsBufferAndHeader)
{
    FakeU3V::Image image{};
    image.header.nBlockId = 42;
    image.bytes = {1, 2, 3};
    m_fake.PushImage(image);
    const TraceCapture trace;
    IMAGE_HEADER header{};
    uint8_t buffer[4] = {9, 9, 9, 9};
    EXPECT_EQ(m_remote.GetImage(buffer, 4, 1, &header), 0);
    EXPECT_EQ(uint64_t{header.nBlockId}, 42U);
    EXPECT_EQ(std::vector<uint8_t>(buffer, buffer + 4), (std::vector<uint8_t>{1, 2, 3, 9}));
    EXPECT_TRUE(trace.Lines().empty());
}

TEST_F(RemoteDeviceTest, PollHeartBeat_DoesNothing)
{
    const TraceCapture trace;
    m_remote.PollHeartBeat();
    EXPECT_TRUE(m_fake.Journal().empty());
    EXPECT_TRUE(trace.Lines().empty());
}

TEST_F(RemoteDeviceTest, GetDeviceInfo_IsTheRecordItWasMadeFrom)
{
    const _ZR_U3V_DEVICE_INFO info = m_remote.GetDeviceInfo();
    EXPECT_EQ(info.id, "GUID-A");
    EXPECT_EQ(info.displayName, "DisplayA");
    EXPECT_EQ(info.serialNumber, "SerialA");
}

} // namespace
