#include "client_console.h"
#include "zr_client.h"
#include "zr_client_input.h"

#include <cstring>

namespace {

using Calls = std::vector<std::string>;

const char kOpening[] = "Opening System...";
const char kEnumerating[] = "*************Enumerate Interface****************";
const char kEnter[] = "please enter to continue...";

const Calls kDeviceMenu{"1.Print Info", "2.Open Device", "3.Exit"};
const Calls kOpenDeviceMenu{"1.Print Device xml", "2.Open Data Stream Module", "3.Reboot Camera",
                            "4.Exit"};
const Calls kDataStreamMenu{"1.Start Acquisition", "2.Stop Acquisition", "3.Exit"};

Calls Join(std::initializer_list<Calls> parts)
{
    Calls all;
    for (const Calls& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

std::string PointerText(const void* pointer)
{
    char text[64];
    std::snprintf(text, sizeof(text), "0x%p", pointer);
    return text;
}

Calls OpenedLines()
{
    return {kOpening, "Opening System Successful! hTL:" + PointerText(FakeSystem())};
}

class ClientMenus : public ClientTest
{
protected:
    static _ZRK_DEV_INFO Device(const char* id, const char* name, size_t interface = 0)
    {
        _ZRK_DEV_INFO device{};
        device.hIface = FakeInterface(interface);
        std::strcpy(device.id, id);
        std::strcpy(device.displayName, name);
        return device;
    }
    static std::string RunMain(const std::string& input)
    {
        return RunConsole(input, [] { EXPECT_EQ(ZrClientMain(), 0); });
    }
};

class ClientMain : public ClientMenus
{
};

class ClientEnum : public ClientMenus
{
protected:
    // Fails one call and compares all the text that the listing prints.
    void ExpectFailure(const char* call, GC_ERROR status, const Calls& lines)
    {
        ResetFake();
        Fake().interfaces = {{"cam"}};
        Fake().failures[call] = status;
        const std::string text =
            RunConsole("", [&] { CloseInterfaces(EnumDevices(FakeSystem())); });
        EXPECT_EQ(text, Lines(Join({{kEnumerating}, lines}))) << call;
        EXPECT_EQ(Fake().Count("IFClose 0"),
                  Fake().Count("TLOpenInterface IF0") - Fake().failures.count("TLOpenInterface"));
    }
};

} // namespace

// ---- main ---------------------------------------------------------------------------------------

TEST_F(ClientMain, InitFails_ReportsClosesAndWaits)
{
    Fake().failures["GCInitLib"] = GC_ERR_RESOURCE_IN_USE;
    EXPECT_EQ(RunMain("\n"), Lines({":main GCInitLib failed!:-1004", kEnter}));
    EXPECT_EQ(Fake().Calls(), (Calls{"GCInitLib", "GCCloseLib"}));
}

TEST_F(ClientMain, OpenFails_ReportsAndClosesTheLibrary)
{
    Fake().failures["TLOpen"] = GC_ERR_ERROR;
    EXPECT_EQ(RunMain(""), Lines({kOpening, ":OpenSystem TLOpen failed!:-1001", kEnter}));
    EXPECT_EQ(Fake().Calls(), (Calls{"GCInitLib", "TLOpen", "GCCloseLib"}));
}

TEST_F(ClientMain, NoDevice_ReportsAndClosesEverything)
{
    Fake().interfaces = {{}};
    EXPECT_EQ(RunMain(""), Lines(Join({OpenedLines(),
                                       {kEnumerating, "[0] Interface Id:IF0",
                                        ":EnumDevices No Device Connected:0",
                                        ":main No device found!", kEnter}})));
    EXPECT_EQ(Fake().Calls(),
              (Calls{"GCInitLib", "TLOpen", "TLUpdateInterfaceList 1000", "TLGetNumInterfaces",
                     "TLGetInterfaceID 0 256", "TLOpenInterface IF0", "IFUpdateDeviceList 5000",
                     "IFGetNumDevices", "IFClose 0", "TLClose", "GCCloseLib"}));
}

TEST_F(ClientMain, NoInterface_IsReported)
{
    EXPECT_EQ(RunMain(""), Lines(Join({OpenedLines(),
                                       {kEnumerating, ":EnumDevices No Interface Available!",
                                        ":main No device found!", kEnter}})));
}

TEST_F(ClientMain, OneDevice_ExitFromTheMenu_ClosesInterfaceSystemAndLibraryInThisOrder)
{
    Fake().interfaces = {{"cam"}};
    Fake().texts["DEV 4"] = "Camera";
    EXPECT_EQ(RunMain("2\n\n"),
              Lines(Join({OpenedLines(),
                          {kEnumerating, "[0] Interface Id:IF0", "\t[0] device Id:cam",
                           "Please Select Device..", "1.Camera", "2.Exit", kEnter}})));
    const Calls calls = Fake().Calls();
    ASSERT_GE(calls.size(), 3U);
    EXPECT_EQ(Calls(calls.end() - 3, calls.end()), (Calls{"IFClose 0", "TLClose", "GCCloseLib"}));
}

TEST_F(ClientMain, CloseFails_IsReported)
{
    Fake().interfaces = {{}};
    Fake().failures["TLClose"] = GC_ERR_ERROR;
    EXPECT_NE(RunMain("").find(":CloseSystem TLClose failed!:-1001\n"), std::string::npos);
}

TEST_F(ClientMain, EndOfInputInEveryMenu_LeavesAndClosesEverything)
{
    for (const char* input : {"", "1\n", "1\n2\n", "1\n2\n2\n", "1\n2\n2\n1\n"}) {
        ResetFake();
        Fake().interfaces = {{"cam"}};
        EXPECT_TRUE(RunMain(input).ends_with(std::string(kEnter) + "\n"));
        EXPECT_EQ(Fake().Count("IFClose 0"), 1U);
        EXPECT_EQ(Fake().Count("TLClose"), 1U);
        EXPECT_EQ(Fake().Count("GCCloseLib"), 1U);
        EXPECT_EQ(Fake().Count("DevClose"), Fake().Count("IFOpenDevice 0 cam 3"));
        EXPECT_EQ(Fake().Count("DSClose"), Fake().Count("DevOpenDataStream 0"));
        EXPECT_EQ(Fake().Count("DSStopAcquisition 0"),
                  Fake().Count("DSStartAcquisition 0 0xFFFFFFFFFFFFFFFF"));
        EXPECT_EQ(Fake().Announced(), 0U);
    }
}

// ---- listing ------------------------------------------------------------------------------------

TEST_F(ClientEnum, SeveralInterfaces_OnlyThoseWithDevicesStayOpen)
{
    Fake().interfaces = {{"a", "b"}, {}, {"c"}};
    Fake().texts["DEV 0"] = "other id";
    Fake().texts["DEV 2"] = "model";
    std::vector<_ZRK_DEV_INFO> devices;
    EXPECT_EQ(RunConsole("", [&] { devices = EnumDevices(FakeSystem()); }),
              Lines({kEnumerating, "[0] Interface Id:IF0", "\t[0] device Id:a", "\t[1] device Id:b",
                     "[1] Interface Id:IF1", ":EnumDevices No Device Connected:0",
                     "[2] Interface Id:IF2", "\t[0] device Id:c"}));
    ASSERT_EQ(devices.size(), 3U);
    EXPECT_STREQ(devices[1].id, "b");
    EXPECT_STREQ(devices[1].model, "model");
    EXPECT_EQ(devices[1].hIface, FakeInterface(0));
    EXPECT_EQ(devices[2].hIface, FakeInterface(2));
    EXPECT_EQ(Fake().Count("IFClose 0") + Fake().Count("IFClose 2"), 0U);
    EXPECT_EQ(Fake().Count("IFClose 1"), 1U);
    CloseInterfaces(devices);
    EXPECT_EQ(Fake().Count("IFClose 0"), 1U);
    EXPECT_EQ(Fake().Count("IFClose 1"), 1U);
    EXPECT_EQ(Fake().Count("IFClose 2"), 1U);
}

TEST_F(ClientEnum, EveryFailure_HasItsText)
{
    ExpectFailure("TLUpdateInterfaceList", -1001,
                  {":EnumDevices TLUpdateInterfaceList failed!:-1001"});
    ExpectFailure("TLGetNumInterfaces", -1002, {":EnumDevices TLGetNumInterfaces failed!:-1002"});
    ExpectFailure("TLGetInterfaceID", -1007, {":EnumDevices TLGetInterfaceID failed!:-1007"});
    ExpectFailure("TLOpenInterface", -1004,
                  {"[0] Interface Id:IF0", ":EnumDevices TLOpenInterface Failed! id:IF0 :-1004"});
    ExpectFailure("IFUpdateDeviceList", -1001,
                  {"[0] Interface Id:IF0", ":EnumDevices IFUpdateDeviceList failed!:-1001"});
    ExpectFailure("IFGetNumDevices", -1001,
                  {"[0] Interface Id:IF0", ":EnumDevices IFGetNumDevices failed!:-1001"});
    ExpectFailure("IFGetDeviceID", -1017,
                  {"[0] Interface Id:IF0", ":EnumDevices IFGetDeviceID Failed!:-1017"});
}

TEST_F(ClientEnum, HostileDeviceId_IsShownCleanAndKeptAsItIs)
{
    Fake().interfaces = {{"ev\x1B[2Jil%n"}};
    std::vector<_ZRK_DEV_INFO> devices;
    const std::string text = RunConsole("", [&] { devices = EnumDevices(FakeSystem()); });
    EXPECT_NE(text.find("\t[0] device Id:ev?[2Jil%n\n"), std::string::npos);
    ASSERT_EQ(devices.size(), 1U);
    EXPECT_STREQ(devices[0].id, "ev\x1B[2Jil%n");
}

// ---- menus --------------------------------------------------------------------------------------

TEST_F(ClientMenus, MainMenu_Digit_SelectsTheDevice)
{
    const std::vector<_ZRK_DEV_INFO> devices{Device("a", "Left"), Device("b", "", 1)};
    const Calls menu{"Please Select Device..", "1.Left", "2.b", "3.Exit"};
    EXPECT_EQ(RunConsole("2\n3\n3\n", [&] { MainMenu(devices); }),
              Lines(Join({menu, kDeviceMenu, menu})));
}

TEST_F(ClientMenus, MainMenu_AnythingElse_ShowsTheMenuAgain)
{
    const std::vector<_ZRK_DEV_INFO> devices{Device("a", "Left")};
    const Calls menu{"Please Select Device..", "1.Left", "2.Exit"};
    EXPECT_EQ(RunConsole(" \t\nx09-2", [&] { MainMenu(devices); }),
              Lines(Join({menu, menu, menu, menu, menu})));
}

TEST_F(ClientMenus, MainMenu_MoreThanNineEntries_TakesTwoDigits)
{
    std::vector<_ZRK_DEV_INFO> devices;
    for (int i = 0; i < 11; ++i) {
        devices.push_back(Device(("cam" + std::to_string(i)).c_str(), "x"));
    }
    RunConsole("11\n2\n3\n1\n2\n3\n12\n", [&] { MainMenu(devices); });
    EXPECT_EQ(Fake().Count("IFOpenDevice 0 cam10 3"), 1U);
    EXPECT_EQ(Fake().Count("IFOpenDevice 0 cam0 3"), 0U); // "3" left the open device menu's parent
}

TEST_F(ClientMenus, DeviceMenu_PrintInfo_PrintsTheRecord)
{
    const std::string text = RunConsole("13", [&] { DeviceMenu(Device("a", "Left")); });
    EXPECT_NE(text.find("******************Device Info*****************\nId:a\n"),
              std::string::npos);
    EXPECT_TRUE(Fake().Calls().empty());
}

TEST_F(ClientMenus, DeviceMenu_OpenDevice_OpensTheRemotePortAndClosesTheDevice)
{
    EXPECT_EQ(RunConsole("2\n4\n3\n", [&] { DeviceMenu(Device("a", "Left", 1)); }),
              Lines(Join({kDeviceMenu, kOpenDeviceMenu, kDeviceMenu})));
    EXPECT_EQ(Fake().Calls(), (Calls{"IFOpenDevice 1 a 3", "DevGetPort", "DevClose"}));
}

TEST_F(ClientMenus, DeviceMenu_OpenFails_IsReported)
{
    Fake().failures["IFOpenDevice"] = GC_ERR_ACCESS_DENIED;
    EXPECT_EQ(RunConsole("23", [&] { DeviceMenu(Device("a", "Left")); }),
              Lines(Join({kDeviceMenu, {":DeviceMenu IFOpenDevice Failed!:-1005"}, kDeviceMenu})));
    EXPECT_EQ(Fake().Count("DevClose"), 0U);
}

TEST_F(ClientMenus, DeviceMenu_GetPortFails_IsReportedAndTheDeviceIsClosed)
{
    Fake().failures["DevGetPort"] = GC_ERR_ERROR;
    EXPECT_EQ(RunConsole("23", [&] { DeviceMenu(Device("a", "Left")); }),
              Lines(Join({kDeviceMenu, {":DeviceMenu DevGetPort Failed!:-1001"}, kDeviceMenu})));
    EXPECT_EQ(Fake().Count("DevClose"), 1U);
}

TEST_F(ClientMenus, OpenDeviceMenu_PrintXml_AsksTheRemotePort)
{
    EXPECT_EQ(RunConsole("14", [] { OpenDeviceMenu(FakeDevice(), FakeRemotePort()); }),
              Lines(Join({kOpenDeviceMenu, {"No Url Available"}, kOpenDeviceMenu})));
}

TEST_F(ClientMenus, OpenDeviceMenu_Reboot_WritesTheKey)
{
    EXPECT_EQ(RunConsole("34", [] { OpenDeviceMenu(FakeDevice(), FakeRemotePort()); }),
              Lines(Join({kOpenDeviceMenu, kOpenDeviceMenu})));
    EXPECT_EQ(Fake().Calls(), Calls{"GCWritePort remote 0x50018 4 0xAFFE"});
}

TEST_F(ClientMenus, OpenDeviceMenu_OpenStream_OpensStreamZeroAndClosesIt)
{
    EXPECT_EQ(RunConsole("234", [] { OpenDeviceMenu(FakeDevice(), FakeRemotePort()); }),
              Lines(Join({kOpenDeviceMenu, kDataStreamMenu, kOpenDeviceMenu})));
    EXPECT_EQ(Fake().Calls(), (Calls{"DevGetDataStreamID 0", "DevOpenDataStream 0", "DSClose"}));
}

TEST_F(ClientMenus, OpenDeviceMenu_StreamFailures_AreReported)
{
    Fake().failures["DevGetDataStreamID"] = GC_ERR_INVALID_INDEX;
    EXPECT_EQ(RunConsole("24", [] { OpenDeviceMenu(FakeDevice(), FakeRemotePort()); }),
              Lines(Join({kOpenDeviceMenu,
                          {":OpenDeviceMenu DevGetDataStreamID Failed!:-1017"},
                          kOpenDeviceMenu})));
    ResetFake();
    Fake().failures["DevOpenDataStream"] = GC_ERR_ERROR;
    EXPECT_EQ(RunConsole("24", [] { OpenDeviceMenu(FakeDevice(), FakeRemotePort()); }),
              Lines(Join({kOpenDeviceMenu,
                          {":OpenDeviceMenu DevOpenDataStream Failed!:-1001"},
                          kOpenDeviceMenu})));
    EXPECT_EQ(Fake().Count("DSClose"), 0U);
}

// ---- input --------------------------------------------------------------------------------------

TEST_F(ClientMenus, ReadMenuChoice_Digits_DecideAsSoonAsTheyCan)
{
    RunConsole("1\n9 12 1x120q", [] {
        EXPECT_EQ(ReadMenuChoice(4), 1);
        EXPECT_EQ(ReadMenuChoice(4), kNoChoice); // 9
        EXPECT_EQ(ReadMenuChoice(4), 1);         // of 12
        EXPECT_EQ(ReadMenuChoice(4), 2);
        EXPECT_EQ(ReadMenuChoice(12), 1); // "1x": the x only ends the number
        EXPECT_EQ(ReadMenuChoice(12), 12);
        EXPECT_EQ(ReadMenuChoice(12), kNoChoice); // 0
        EXPECT_EQ(ReadMenuChoice(12), kNoChoice); // q
        EXPECT_EQ(ReadMenuChoice(12), kEndOfInput);
        EXPECT_EQ(ReadMenuChoice(12), kEndOfInput);
    });
}

TEST_F(ClientMenus, WaitForEnter_AfterAChoice_WaitsForAnEnterOfItsOwn)
{
    RunConsole("2\nrest\n7", [] {
        EXPECT_EQ(ReadMenuChoice(4), 2);
        WaitForEnter();
        EXPECT_EQ(ReadMenuChoice(8), 7);
        EXPECT_EQ(ReadMenuChoice(8), kEndOfInput);
    });
}
