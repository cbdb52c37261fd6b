// Ports: information, URLs, registers of the camera, stacked access.

#include "standard_fixture.h"

namespace standard_tl {
namespace {

using u3v_host::DescriptionFile;
using u3v_host::Error;
using u3v_host::ErrorKind;

class PortsTest : public StandardTest
{
protected:
    struct Access
    {
        bool read;
        bool write;
        bool na;
    };
    Access AccessOf(PORT_HANDLE port)
    {
        return {PortInfo(port, PORT_INFO_ACCESS_READ).As<bool8_t>(),
                PortInfo(port, PORT_INFO_ACCESS_WRITE).As<bool8_t>(),
                PortInfo(port, PORT_INFO_ACCESS_NA).As<bool8_t>()};
    }
};

TEST_F(PortsTest, Info_EveryModule_HasTheNameOfItsDocument)
{
    struct Row
    {
        PORT_HANDLE port;
        const char* id;
        const char* module;
        const char* name;
    };
    const Row rows[] = {{System(), "ZRK-U3V-STANDARD", "TLSystem", "TLPort"},
                        {Interface(), "ZRK-USB", "TLInterface", "InterfacePort"},
                        {Device(), "CAM1", "TLDevice", "DevicePort"},
                        {Stream(), "Stream0", "TLDataStream", "StreamPort"},
                        {Remote(), "CAM1", "Device", "Device"}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(PortInfo(row.port, PORT_INFO_ID).Text(), row.id);
        EXPECT_EQ(PortInfo(row.port, PORT_INFO_MODULE).Text(), row.module);
        EXPECT_EQ(PortInfo(row.port, PORT_INFO_PORTNAME).Text(), row.name);
        EXPECT_EQ(PortInfo(row.port, PORT_INFO_TLTYPE).Text(), "U3V");
        EXPECT_FALSE(PortInfo(row.port, PORT_INFO_VENDOR).Text().empty());
        EXPECT_FALSE(PortInfo(row.port, PORT_INFO_MODEL).Text().empty());
        EXPECT_FALSE(PortInfo(row.port, PORT_INFO_VERSION).Text().empty());
        const Answer little = PortInfo(row.port, PORT_INFO_LITTLE_ENDIAN);
        EXPECT_EQ(little.type, INFO_DATATYPE_BOOL8);
        EXPECT_TRUE(little.As<bool8_t>());
        EXPECT_FALSE(PortInfo(row.port, PORT_INFO_BIG_ENDIAN).As<bool8_t>());
        EXPECT_FALSE(PortInfo(row.port, PORT_INFO_ACCESS_NI).As<bool8_t>());
        const Access access = AccessOf(row.port);
        EXPECT_TRUE(access.read && access.write && !access.na);
        EXPECT_EQ(PortInfo(row.port, 13).code, GC_ERR_NOT_IMPLEMENTED);
    }
}

TEST_F(PortsTest, Info_RemoteOfAGoneCamera_IsNotAvailable)
{
    PORT_HANDLE port = Remote();
    camera.Leave();
    const Access access = AccessOf(port);
    EXPECT_TRUE(!access.read && !access.write && access.na);
    EXPECT_TRUE(AccessOf(Device()).read) << "the producer's own registers are still there";
}

TEST_F(PortsTest, Info_RemoteOpenForReading_IsNotWritableAndWritesAreDenied)
{
    DEV_HANDLE device = nullptr;
    PORT_HANDLE port = nullptr;
    ASSERT_EQ(IFOpenDevice(Interface(), "CAM1", DEVICE_ACCESS_READONLY, &device), GC_ERR_SUCCESS);
    ASSERT_EQ(DevGetPort(device, &port), GC_ERR_SUCCESS);
    const Access access = AccessOf(port);
    EXPECT_TRUE(access.read && !access.write && !access.na);
    uint32_t value = 7;
    size_t size = sizeof(value);
    EXPECT_EQ(GCWritePort(port, 0x100, &value, &size), GC_ERR_ACCESS_DENIED);
    EXPECT_EQ(size, 0U);
    size = sizeof(value);
    EXPECT_EQ(GCReadPort(port, 0x100, &value, &size), GC_ERR_SUCCESS);
    EXPECT_EQ(value, 0U);
}

// ---- URLs

TEST_F(PortsTest, Urls_Camera_AreItsFilesInTheirOrder)
{
    DescriptionFile zipped{"Cam_1.0.zip", 0xABCD1234, 0x1F00, true, 1, 1, 2, 3, 4, {}};
    zipped.sha1.emplace();
    zipped.sha1->fill(0x5C);
    camera.files = {zipped, {"Cam.xml", 0x10, 0x20, false, 1, 0, 0, 0, 1, std::nullopt}};
    PORT_HANDLE port = Remote();
    uint32_t count = 0;
    EXPECT_EQ(GCGetNumPortURLs(port, &count), GC_ERR_SUCCESS);
    EXPECT_EQ(count, 2U);
    char url[64];
    size_t size = sizeof(url);
    EXPECT_EQ(GCGetPortURL(port, url, &size), GC_ERR_SUCCESS);
    EXPECT_STREQ(url, "local:Cam_1.0.zip;ABCD1234;1F00");
    EXPECT_EQ(UrlInfo(port, 0, URL_INFO_URL).Text(), url);
    EXPECT_EQ(UrlInfo(port, 1, URL_INFO_URL).Text(), "local:Cam.xml;10;20");
    const std::pair<URL_INFO_CMD, int32_t> numbers[] = {
        {URL_INFO_SCHEMA_VER_MAJOR, 1},  {URL_INFO_SCHEMA_VER_MINOR, 1},
        {URL_INFO_FILE_VER_MAJOR, 2},    {URL_INFO_FILE_VER_MINOR, 3},
        {URL_INFO_FILE_VER_SUBMINOR, 4}, {URL_INFO_SCHEME, URL_SCHEME_LOCAL}};
    for (const auto& [command, number] : numbers) {
        const Answer answer = UrlInfo(port, 0, command);
        EXPECT_EQ(answer.type, INFO_DATATYPE_INT32);
        EXPECT_EQ(answer.As<int32_t>(), number);
    }
    EXPECT_EQ(UrlInfo(port, 0, URL_INFO_FILE_REGISTER_ADDRESS).As<uint64_t>(), 0xABCD1234U);
    EXPECT_EQ(UrlInfo(port, 0, URL_INFO_FILE_REGISTER_ADDRESS).type, INFO_DATATYPE_UINT64);
    EXPECT_EQ(UrlInfo(port, 0, URL_INFO_FILE_SIZE).As<uint64_t>(), 0x1F00U);
    EXPECT_EQ(UrlInfo(port, 0, URL_INFO_FILENAME).Text(), "Cam_1.0.zip");
    const Answer hash = UrlInfo(port, 0, URL_INFO_FILE_SHA1_HASH);
    EXPECT_EQ(hash.type, INFO_DATATYPE_BUFFER);
    EXPECT_EQ(hash.bytes, std::vector<uint8_t>(20, 0x5C));
    EXPECT_EQ(UrlInfo(port, 1, URL_INFO_FILE_SHA1_HASH).code, GC_ERR_NOT_AVAILABLE);
    EXPECT_EQ(UrlInfo(port, 2, URL_INFO_URL).code, GC_ERR_INVALID_INDEX);
    EXPECT_EQ(UrlInfo(port, 0, 11).code, GC_ERR_NOT_IMPLEMENTED);
}

TEST_F(PortsTest, Urls_CameraWithoutFiles_HasNone)
{
    PORT_HANDLE port = Remote();
    uint32_t count = 7;
    EXPECT_EQ(GCGetNumPortURLs(port, &count), GC_ERR_SUCCESS);
    EXPECT_EQ(count, 0U);
    size_t size = 0;
    EXPECT_EQ(GCGetPortURL(port, nullptr, &size), GC_ERR_NOT_AVAILABLE);
    EXPECT_EQ(UrlInfo(port, 0, URL_INFO_URL).code, GC_ERR_INVALID_INDEX);
}

// ---- registers of the camera

TEST_F(PortsTest, ReadWrite_Camera_ReachesItsMemory)
{
    PORT_HANDLE port = Remote();
    const std::vector<uint8_t> written{1, 2, 3, 4, 5, 6, 7};
    size_t size = written.size();
    EXPECT_EQ(GCWritePort(port, 0x201, written.data(), &size), GC_ERR_SUCCESS);
    EXPECT_EQ(size, written.size());
    EXPECT_EQ(camera.memory[0x202], 2);
    std::vector<uint8_t> read(written.size());
    EXPECT_EQ(GCReadPort(port, 0x201, read.data(), &size), GC_ERR_SUCCESS);
    EXPECT_EQ(read, written);
}

TEST_F(PortsTest, ReadWrite_CameraRefusesALaterPiece_SizeTellsWhatWasDone)
{
    PORT_HANDLE port = Remote();
    camera.accessFailure = Error(ErrorKind::AccessDenied, "status 0x8006, access denied");
    camera.bytesBeforeFailure = 5;
    uint8_t bytes[16] = {9, 9, 9, 9, 9, 9};
    size_t size = sizeof(bytes);
    EXPECT_EQ(GCWritePort(port, 0x300, bytes, &size), GC_ERR_ACCESS_DENIED);
    EXPECT_EQ(size, 5U);
    EXPECT_EQ(camera.memory[0x304], 9);
    EXPECT_EQ(camera.memory[0x305], 0);
    size = sizeof(bytes);
    EXPECT_EQ(GCReadPort(port, 0x300, bytes, &size), GC_ERR_ACCESS_DENIED);
    EXPECT_EQ(size, 5U);
    EXPECT_EQ(TheLastError().text,
              "GCReadPort: GC_ERR_ACCESS_DENIED: status 0x8006, access denied");
}

TEST_F(PortsTest, ReadWrite_CameraStatuses_HaveCodesOfTheirOwn)
{
    const std::pair<ErrorKind, GC_ERROR> rows[] = {
        {ErrorKind::NotImplemented, GC_ERR_NOT_IMPLEMENTED},
        {ErrorKind::InvalidParameter, GC_ERR_INVALID_PARAMETER},
        {ErrorKind::InvalidAddress, GC_ERR_INVALID_ADDRESS},
        {ErrorKind::AccessDenied, GC_ERR_ACCESS_DENIED},
        {ErrorKind::Busy, GC_ERR_BUSY},
        {ErrorKind::Timeout, GC_ERR_TIMEOUT},
        {ErrorKind::NotAvailable, GC_ERR_NOT_AVAILABLE},
        {ErrorKind::Io, GC_ERR_IO}};
    PORT_HANDLE port = Remote();
    for (const auto& [kind, code] : rows) {
        camera.accessFailure = Error(kind, "x");
        uint32_t value = 0;
        size_t size = sizeof(value);
        EXPECT_EQ(GCReadPort(port, 0, &value, &size), code);
        size = sizeof(value);
        EXPECT_EQ(GCWritePort(port, 0, &value, &size), code);
    }
}

TEST_F(PortsTest, ReadWrite_NullPointers_AreInvalidParameters)
{
    for (PORT_HANDLE port : {Remote(), Device()}) {
        uint32_t value = 0;
        size_t size = sizeof(value);
        EXPECT_EQ(GCReadPort(port, 0x1000, nullptr, &size), GC_ERR_INVALID_PARAMETER);
        EXPECT_EQ(GCReadPort(port, 0x1000, &value, nullptr), GC_ERR_INVALID_PARAMETER);
        EXPECT_EQ(GCWritePort(port, 0x1000, nullptr, &size), GC_ERR_INVALID_PARAMETER);
        EXPECT_EQ(GCWritePort(port, 0x1000, &value, nullptr), GC_ERR_INVALID_PARAMETER);
        EXPECT_EQ(size, sizeof(value));
    }
}

TEST_F(PortsTest, ReadWrite_ModulePort_RefusalDoesNothing)
{
    uint8_t bytes[8] = {};
    size_t size = sizeof(bytes);
    EXPECT_EQ(GCReadPort(Device(), 0, bytes, &size), GC_ERR_INVALID_ADDRESS);
    EXPECT_EQ(size, 0U);
    size = sizeof(bytes);
    EXPECT_EQ(GCWritePort(Device(), 0x1000, bytes, &size), GC_ERR_ACCESS_DENIED);
    EXPECT_EQ(size, 0U);
    EXPECT_NE(TheLastError().text.find("DeviceID is read only"), std::string::npos);
}

// ---- stacked

TEST_F(PortsTest, Stacked_AllGood_AllAreDone)
{
    PORT_HANDLE port = Remote();
    uint32_t one = 0x11111111;
    uint64_t two = 0x2222222222222222;
    PORT_REGISTER_STACK_ENTRY entries[] = {{0x400, &one, sizeof(one)}, {0x500, &two, sizeof(two)}};
    size_t count = 2;
    EXPECT_EQ(GCWritePortStacked(port, entries, &count), GC_ERR_SUCCESS);
    EXPECT_EQ(count, 2U);
    one = 0;
    two = 0;
    EXPECT_EQ(GCReadPortStacked(port, entries, &count), GC_ERR_SUCCESS);
    EXPECT_EQ(count, 2U);
    EXPECT_EQ(one, 0x11111111U);
    EXPECT_EQ(two, 0x2222222222222222U);
}

TEST_F(PortsTest, Stacked_OneFails_NumberTellsHowManyWereDone)
{
    PORT_HANDLE port = Remote();
    uint32_t value = 7;
    PORT_REGISTER_STACK_ENTRY entries[] = {{0x400, &value, sizeof(value)},
                                           {0x404, &value, sizeof(value)},
                                           {0x1000000, &value, sizeof(value)},
                                           {0x408, &value, sizeof(value)}};
    size_t count = 4;
    EXPECT_EQ(GCWritePortStacked(port, entries, &count), GC_ERR_INVALID_ADDRESS);
    EXPECT_EQ(count, 2U);
    EXPECT_EQ(camera.memory[0x404], 7);
    EXPECT_EQ(camera.memory[0x408], 0);
    entries[1].pBuffer = nullptr;
    count = 4;
    EXPECT_EQ(GCReadPortStacked(port, entries, &count), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(count, 1U);
}

TEST_F(PortsTest, Stacked_NullPointers_AreInvalidParameters)
{
    PORT_REGISTER_STACK_ENTRY entry{};
    size_t count = 1;
    EXPECT_EQ(GCReadPortStacked(Remote(), nullptr, &count), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(GCReadPortStacked(Remote(), &entry, nullptr), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(GCWritePortStacked(Remote(), nullptr, &count), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(GCWritePortStacked(Remote(), &entry, nullptr), GC_ERR_INVALID_PARAMETER);
}

} // namespace
} // namespace standard_tl
