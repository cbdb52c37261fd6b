#include "client_console.h"
#include "zr_client.h"

#include <cstring>

namespace {

const std::string kStars(42, '*');

class ClientInfo : public ClientTest
{
protected:
    static void ScriptSystem()
    {
        const char* const texts[] = {"id",  "vendor", "model",      "version",
                                     "U3V", "name",   "/lib/x.cti", "display"};
        for (size_t i = 0; i < std::size(texts); ++i) {
            Fake().texts["TL " + std::to_string(i)] = texts[i];
        }
        Fake().numbers["TL 9"] = 1;
        Fake().numbers["TL 10"] = 3;
    }

    static void ScriptDevice()
    {
        Fake().texts = {{"DEV 0", "id"},     {"DEV 1", "vendor"}, {"DEV 2", "model"},
                        {"DEV 3", "U3V"},    {"DEV 4", "show"},   {"DEV 6", "user"},
                        {"DEV 7", "serial"}, {"DEV 8", "1.0"}};
        Fake().numbers = {{"DEV 5", 5}, {"DEV 9", 1000000000}};
    }

    static void ScriptPort()
    {
        Fake().texts = {{"PORT 0", "id"},       {"PORT 1", "vendor"}, {"PORT 2", "model"},
                        {"PORT 4", "TLDevice"}, {"PORT 11", "1.2.3"}, {"PORT 12", "DevicePort"}};
        Fake().numbers = {{"PORT 5", 1}, {"PORT 6", 0}, {"PORT 7", 1},
                          {"PORT 8", 1}, {"PORT 9", 0}, {"PORT 10", 0}};
    }
};

} // namespace

TEST_F(ClientInfo, PrintTLInfo_EveryField_HasItsLabel)
{
    ScriptSystem();
    _ZRK_TL_INFO info;
    std::memset(&info, 0xFF, sizeof(info));
    EXPECT_EQ(GetTLInfo(FakeSystem(), info), GC_ERR_SUCCESS);
    EXPECT_EQ(RunConsole("", [&] { PrintTLInfo(info); }),
              Lines({"******************TL Info*****************", "Id:id", "Vendor:vendor",
                     "Model:model", "Version:version", "TLType:U3V", "Name:name",
                     "PathName:/lib/x.cti", "DisplayName:display", "GenTL:1.3", kStars}));
}

TEST_F(ClientInfo, PrintGenTLInfo_IsTheSystemRecordWithoutTheVersion)
{
    ScriptSystem();
    _ZRK_TL_INFO info{};
    GetTLInfo(FakeSystem(), info);
    EXPECT_EQ(RunConsole("", [&] { PrintGenTLInfo(info); }),
              Lines({"******************System Info*****************", "Id:id", "Vendor:vendor",
                     "Model:model", "Version:version", "TLType:U3V", "Name:name",
                     "PathName:/lib/x.cti", "DisplayName:display", kStars}));
}

TEST_F(ClientInfo, PrintIFInfo_EveryField_HasItsLabel)
{
    Fake().texts = {{"IF 0", "if"}, {"IF 1", "show"}, {"IF 2", "U3V"}};
    _ZRK_IF_INFO info{};
    EXPECT_EQ(GetIFInfo(FakeInterface(0), info), GC_ERR_SUCCESS);
    EXPECT_EQ(RunConsole("", [&] { PrintIFInfo(info); }),
              Lines({"******************IF Info*****************", "Id:if", "DisplayName:show",
                     "TLType:U3V", kStars}));
}

TEST_F(ClientInfo, PrintDevInfo_EveryField_HasItsLabel)
{
    ScriptDevice();
    _ZRK_DEV_INFO info{};
    EXPECT_EQ(GetDEVInfo(FakeInterface(0), "id", info), GC_ERR_SUCCESS);
    EXPECT_EQ(info.hIface, FakeInterface(0));
    EXPECT_EQ(RunConsole("", [&] { PrintDevInfo(info); }),
              Lines({"******************Device Info*****************", "Id:id", "Vendor:vendor",
                     "Model:model", "DisplayName:show", "TLType:U3V", "Access Status:0x5",
                     "User Defined Name:user", "Serial Number:serial", "Version:1.0",
                     "TimeStampFreq:1000000000", kStars}));
}

TEST_F(ClientInfo, PrintPortInfo_EveryField_HasItsLabel)
{
    ScriptPort();
    _ZRK_PORT_INFO info{};
    EXPECT_EQ(GetPortInfo(FakeRemotePort(), info), GC_ERR_SUCCESS);
    EXPECT_EQ(RunConsole("", [&] { PrintPortInfo(info); }),
              Lines({"******************Port Info*****************", "Id:id", "Vendor:vendor",
                     "Model:model", "Version:1.2.3", "Module:TLDevice", "Litte Endian:1",
                     "Big Endian:0", "Access Read:1", "Access Write:1", "Access NA:0",
                     "Access NI:0", "Name:DevicePort", kStars}));
}

TEST_F(ClientInfo, GetDEVInfo_OneFailingQuery_LeavesThatFieldEmptyAndReadsTheRest)
{
    ScriptDevice();
    Fake().failures["Info DEV 1"] = GC_ERR_IO;
    Fake().failures["Info DEV 9"] = GC_ERR_NOT_AVAILABLE;
    _ZRK_DEV_INFO info;
    std::memset(&info, 0xFF, sizeof(info));
    EXPECT_EQ(GetDEVInfo(FakeInterface(0), "id", info), GC_ERR_IO);
    EXPECT_STREQ(info.vendor, "");
    EXPECT_STREQ(info.model, "model");
    EXPECT_STREQ(info.version, "1.0");
    EXPECT_EQ(info.timestampFrequency, 0U);
}

TEST_F(ClientInfo, GetDEVInfo_TextLongerThanItsField_IsCutAndTerminated)
{
    ScriptDevice();
    Fake().texts["DEV 2"] = std::string(1000, 'm');
    Fake().texts["DEV 1"] = std::string(9000, 'v'); // beyond any room
    _ZRK_DEV_INFO info;
    std::memset(&info, 0xFF, sizeof(info));
    EXPECT_EQ(GetDEVInfo(FakeInterface(0), "id", info), GC_ERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(std::string(info.model), std::string(kZrClientTextSize - 1, 'm'));
    EXPECT_STREQ(info.vendor, "");
    EXPECT_STREQ(info.displayName, "show");
}

TEST_F(ClientInfo, PrintDevInfo_FormatsInTheData_ArePrintedAsText)
{
    _ZRK_DEV_INFO info{};
    std::strcpy(info.id, "%s%n%d");
    const std::string text = RunConsole("", [&] { PrintDevInfo(info); });
    EXPECT_NE(text.find("Id:%s%n%d\n"), std::string::npos);
}
