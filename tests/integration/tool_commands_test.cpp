// zr-u3v as its user meets it: the program is run on the virtual bus, and its output, its files and
// its exit codes are looked at.

#include <algorithm>
#include <regex>

#include "tool_run.h"

namespace {

// ---- list and info ----------------------------------------------------------------------------

TEST_F(ToolTest, List_PrintsATable)
{
    const Result result = RunOn("serial=A1,user=left", {"list"});
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.output,
              "GUID          VENDOR           MODEL        SERIAL  USER NAME  ACCESS\n"
              "120900000001  ZRK-ORVANE GmbH  Virtual U3V  A1      left       "
              "read/write\n");
    EXPECT_EQ(result.errors, "");
}

TEST_F(ToolTest, List_QuietlyHasNoHeading)
{
    EXPECT_EQ(RunOn("serial=A1", {"list", "-q"}).output,
              "120900000001  ZRK-ORVANE GmbH  Virtual U3V  A1    read/write\n");
}

TEST_F(ToolTest, List_TwoCamerasAsJson)
{
    const Json json = RunJson("count=2,user=x", {"list"});
    ASSERT_EQ(json.size(), 2u);
    EXPECT_EQ(json[0]["guid"], "120900000001");
    EXPECT_EQ(json[1]["serial"], "VC000002");
    EXPECT_EQ(json[1]["vendor"], "ZRK-ORVANE GmbH");
    EXPECT_EQ(json[1]["model"], "Virtual U3V");
    EXPECT_EQ(json[1]["user_name"], "x");
    EXPECT_EQ(json[1]["access"], "read/write");
}

TEST_F(ToolTest, List_EmptyBus_FailsAndPointsToTheDoctor)
{
    setenv("ZR_VIRTUAL_CAMERAS", "", 1);
    const Result result = Run({"--virtual", "--discovery-time", "100", "list", "--json"});
    unsetenv("ZR_VIRTUAL_CAMERAS");
    EXPECT_EQ(result.code, 3);
    EXPECT_EQ(result.output, "[]\n");
    EXPECT_NE(result.errors.find("zr-u3v doctor"), std::string::npos);
}

TEST_F(ToolTest, Camera_IsChosenByGuidSerialNameOrNumber)
{
    for (const char* const wish : {"120900000002", "VC000002", "#2"}) {
        const Result result = RunOn("count=2", {"-c", wish, "read", "-q", "SerialNumber"});
        EXPECT_EQ(result.output, "VC000002\n") << wish << result.errors;
    }
    EXPECT_EQ(RunOn("count=2", {"-c", "nobody", "info"}).code, 3);
    const Result undecided = RunOn("count=2", {"info"});
    EXPECT_EQ(undecided.code, 3);
    EXPECT_NE(undecided.errors.find("choose one with --camera"), std::string::npos);
    EXPECT_NE(undecided.errors.find("VC000002"), std::string::npos);
}

TEST_F(ToolTest, Info_TellsModulesAndStream)
{
    const Json json = RunJson("width=64,height=48,serial=A1", {"info"});
    EXPECT_EQ(json["producer"]["vendor"], "ZRK-ORVANE GmbH");
    EXPECT_EQ(json["producer"]["gentl_version"], IsExact() ? "1.3" : "1.6");
    EXPECT_EQ(json["interface"]["id"], IsExact() ? "ZRK-USB-3-IF ID" : "ZRK-USB");
    EXPECT_EQ(json["camera"]["serial"], "A1");
    EXPECT_EQ(json["device_port"]["port_name"], "DevicePort");
    EXPECT_EQ(json["camera_port"]["port_name"], IsExact() ? "" : "Device");
    EXPECT_EQ(json["stream"]["payload_size"], 3072);
    EXPECT_EQ(json["stream"]["leader_size"], 52);
    EXPECT_EQ(json["stream"]["trailer_size"], 32);
    EXPECT_EQ(json["stream"]["alignment_exponent"], 3);
    EXPECT_EQ(json["stream"]["usb_speed"], "SuperSpeed");
}

TEST_F(ToolTest, Info_AsText)
{
    const Result result = RunOn("width=64,height=48", {"info"});
    EXPECT_EQ(result.code, 0);
    EXPECT_NE(result.output.find("\nstream\n  payload_size         3072\n"), std::string::npos);
}

// ---- description files ------------------------------------------------------------------------

std::string DescriptionOf(const std::string& options)
{
    vusb_reset();
    const vusb::Camera camera(options);
    const auto file = camera.DescriptionFile();
    return {file.begin(), file.end()};
}

TEST_F(ToolTest, Xml_IsTheCamerasFile)
{
    const Result result = RunOn("zip=0", {"xml"});
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.output, DescriptionOf("zip=0"));
}

TEST_F(ToolTest, Xml_ZippedStaysZippedUnlessAsked)
{
    EXPECT_EQ(RunOn("zip=1", {"xml"}).output, DescriptionOf("zip=1"));
    EXPECT_EQ(RunOn("zip=1", {"xml", "--unzip"}).output, DescriptionOf("zip=0"));
}

TEST_F(ToolTest, Xml_AllModulesIntoAFolder)
{
    const Result result = RunOn("zip=1", {"xml", "all", "-u", "-o", "docs/"});
    EXPECT_EQ(result.code, 0) << result.errors;
    std::istringstream names(result.output);
    size_t count = 0;
    for (std::string name; std::getline(names, name); ++count) {
        EXPECT_NE(Contents(File(name)).find("RegisterDescription"), std::string::npos) << name;
    }
    EXPECT_EQ(count, 5u);
}

TEST_F(ToolTest, Xml_UrlsAsJson)
{
    const Json json = RunJson("zip=1", {"xml", "all", "--url"});
    ASSERT_EQ(json.size(), 5u);
    EXPECT_EQ(json[0]["port"], "system");
    EXPECT_TRUE(json[0]["url"].get<std::string>().starts_with("local:"));
    EXPECT_EQ(json[4]["port"], "camera");
}

TEST_F(ToolTest, Xml_AllWithoutAFolder_IsAUsageError)
{
    EXPECT_EQ(RunOn("", {"xml", "all"}).code, 2);
    EXPECT_EQ(RunOn("", {"xml", "all", "-o", "file.xml"}).code, 2);
}

TEST_F(ToolTest, Xml_NameOfTheModelIsNoWayOutOfTheFolder)
{
    const Result result = RunOn("model=../../x", {"xml", "-o", "docs/"});
    EXPECT_EQ(result.code, 0) << result.errors;
    const std::string file =
        IsExact() ? "docs/x_v1.0.0.xml" : "docs/ZRK-ORVANE_GmbH_.._.._x_1_0_0.xml";
    EXPECT_EQ(result.output, file + "\n");
    EXPECT_TRUE(fs::exists(File(file)));
}

TEST_F(ToolTest, Xml_ModelThatLooksLikeAUrl_ChoosesNeitherFileNorAddress)
{
    std::ofstream(File(".bashrc")) << "mine";
    const Result result = RunOn("model=.bashrc%3B100000%3B200?,zip=0", {"xml", "-o", "./"});
    EXPECT_EQ(result.code, 0) << result.errors;
    const std::string file = IsExact() ? "./bashrc_100000_200__v1.0.0.xml"
                                       : "./ZRK-ORVANE_GmbH_.bashrc_100000_200__1_0_0.xml";
    EXPECT_EQ(result.output, file + "\n");
    EXPECT_NE(Contents(File(file)).find("RegisterDescription"), std::string::npos);
    EXPECT_EQ(Contents(File(".bashrc")), "mine");
}

// What the file of a camera of the model x is called.
std::string FileOfX()
{
    return IsExact() ? "docs/x_v1.0.0.xml" : "docs/ZRK-ORVANE_GmbH_x_1_0_0.xml";
}

TEST_F(ToolTest, Xml_FileInTheFolder_IsReplacedWhenToldSoOnly)
{
    fs::create_directory(File("docs"));
    std::ofstream(File(FileOfX())) << "mine";
    Result result = RunOn("model=x,zip=0", {"xml", "-o", "docs/"});
    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.errors, "zr-u3v: " + FileOfX() + " exists: add --overwrite to replace it\n");
    EXPECT_EQ(Contents(File(FileOfX())), "mine");
    result = RunOn("model=x,zip=0", {"xml", "-o", "docs/", "--overwrite"});
    EXPECT_EQ(result.code, 0) << result.errors;
    EXPECT_NE(Contents(File(FileOfX())).find("RegisterDescription"), std::string::npos);
}

TEST_F(ToolTest, Xml_LinkThatLeadsNowhere_IsNotFollowed)
{
    fs::create_directory(File("docs"));
    fs::create_symlink(File("elsewhere"), File(FileOfX()));
    EXPECT_EQ(RunOn("model=x,zip=0", {"xml", "-o", "docs/"}).code, 1);
    EXPECT_FALSE(fs::exists(File("elsewhere")));
}

// Who names a file means it.
TEST_F(ToolTest, Xml_FileThatTheUserNames_IsReplaced)
{
    std::ofstream(File("camera.xml")) << "old";
    EXPECT_EQ(RunOn("zip=0", {"xml", "-o", "camera.xml"}).code, 0);
    EXPECT_EQ(Contents(File("camera.xml")), DescriptionOf("zip=0"));
}

// ---- registers --------------------------------------------------------------------------------

TEST_F(ToolTest, Read_NumbersNamesAndTypes)
{
    EXPECT_EQ(RunOn("width=640", {"read", "0x50000", "ModelName"}).output,
              "0x50000  640  0x280\nModelName  Virtual U3V\n");
    EXPECT_EQ(RunOn("", {"read", "-q", "0x50000", "-t", "u16"}).output, "640\n");
    EXPECT_EQ(RunOn("", {"read", "-q", "0x44", "-t", "hex", "-l", "4"}).output, "56 69 72 74\n");
    EXPECT_EQ(RunOn("", {"read", "-q", "0x44", "-t", "string"}).output, "Virtual U3V\n");
    EXPECT_EQ(RunOn("fps=12.5", {"read", "-q", "0x50024", "-t", "f32"}).output, "12.5\n");
}

TEST_F(ToolTest, Read_AsJson)
{
    const Json json = RunJson("", {"read", "0x50000", "SerialNumber"});
    EXPECT_EQ(json[0]["address"], "0x50000");
    EXPECT_EQ(json[0]["value"], 640);
    EXPECT_EQ(json[1]["value"], "VC000001");
}

// The camera's texts, in every form in which a terminal would obey them.
TEST_F(ToolTest, ControlCharactersOfTheCamera_AreNotPrinted)
{
    const std::string camera = "model=a%1B]0%3Bb%07%C2%9B31mc%9B2J,user=%E2%80%AE!,zip=0";
    EXPECT_EQ(RunOn(camera, {"read", "-q", "ModelName"}).output, "a?]0;b??31mc?2J\n");
    EXPECT_EQ(Appears(camera, {"read", "-q", "0x44", "-t", "string"}), "a?]0;b??31mc?2J\n");
    EXPECT_EQ(Appears(camera, {"read", "UserDefinedName"}), "UserDefinedName  ?!\n");
    const std::string json = RunOn(camera, {"read", "--json", "ModelName"}).output;
    EXPECT_NE(json.find(R"("a\u001b]0;b\u0007\u009b31mc\ufffd2J")"), std::string::npos) << json;
    for (const char* const command : {"list", "info", "xml", "doctor"}) {
        const std::string text = Appears(camera, {command});
        EXPECT_FALSE(text.empty());
        EXPECT_EQ(text.find_first_of("\x1b\x07\x9b"), std::string::npos) << command;
    }
}

TEST_F(ToolTest, Xml_OnATerminal_IsTheDocument)
{
    EXPECT_EQ(Appears("zip=0", {"xml"}), DescriptionOf("zip=0"));
}

TEST_F(ToolTest, Read_LongerThanOnePacket)
{
    const Result result = RunOn("zip=0", {"read", "-q", "0x100000", "-t", "string", "-l", "4000"});
    EXPECT_EQ(result.code, 0) << result.errors;
    std::string expected = DescriptionOf("zip=0").substr(0, 4000);
    std::replace_if(
        expected.begin(), expected.end(), [](char c) { return c > 0 && c < 0x20; }, '?');
    EXPECT_EQ(result.output, expected + "\n");
}

TEST_F(ToolTest, Read_ModulePorts)
{
    if (!IsExact()) {
        // Where its documents put the registers is nobody's business; that they are read is.
        EXPECT_EQ(RunOn("", {"get", "-q", "--module", "device", "DeviceID"}).output,
                  "120900000001\n");
        EXPECT_NE(RunOn("", {"read", "-q", "-p", "device", "0x99999999"})
                      .errors.find("GC_ERR_INVALID_ADDRESS"),
                  std::string::npos);
        return;
    }
    EXPECT_EQ(RunOn("", {"read", "-q", "-p", "device", "0x70000", "-t", "string"}).output,
              "120900000001\n");
    EXPECT_EQ(RunOn("", {"read", "-q", "-p", "stream", "0x80108"}).output, "1\n");
}

TEST_F(ToolTest, Read_AddressThatIsNone_TellsCodeAndLastError)
{
    const Result result = RunOn("", {"read", "0x99999999"});
    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors,
              IsExact() ? "zr-u3v: GCReadPort failed: GC_ERR_IO (-1010), last error \"GC_ERR_IO\"\n"
                        : "zr-u3v: GCReadPort failed: GC_ERR_INVALID_ADDRESS (-1015), last error "
                          "\"GCReadPort: GC_ERR_INVALID_ADDRESS: reading 4 bytes at 0x99999999 "
                          "failed: the camera answers 0x8003 (invalid address)\"\n");
}

TEST_F(ToolTest, Read_ArgumentsThatAreNone_AreUsageErrors)
{
    EXPECT_EQ(RunOn("", {"read", "zz"}).code, 2);
    EXPECT_EQ(RunOn("", {"read", "0", "-t", "u12"}).code, 2);
    EXPECT_EQ(RunOn("", {"read", "0", "-t", "u32", "-l", "5"}).code, 2);
    EXPECT_EQ(RunOn("", {"read", "0", "-l", "99999999999"}).code, 2);
}

// The bus lives as long as the program, so a register is written and used in one run elsewhere;
// here the camera's own refusals and the echo are looked at.
TEST_F(ToolTest, Write_IsEchoedAsJson)
{
    const Json json = RunJson("", {"write", "0x60000", "0xABCD"});
    EXPECT_EQ(json["address"], "0x60000");
    EXPECT_EQ(json["value"], 0xABCD);
    EXPECT_EQ(json["length"], 4);
    EXPECT_EQ(RunJson("", {"write", "UserDefinedName", "left"})["value"], "left");
}

TEST_F(ToolTest, Write_RefusedByTheCamera_TellsCodeAndLastError)
{
    const Result result = RunOn("", {"write", "0x44", "1"}); // the model's name is read only
    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.errors,
              IsExact()
                  ? "zr-u3v: GCWritePort failed: GC_ERR_IO (-1010), last error \"GC_ERR_IO\"\n"
                  : "zr-u3v: GCWritePort failed: GC_ERR_ACCESS_DENIED (-1005), last error "
                    "\"GCWritePort: GC_ERR_ACCESS_DENIED: writing 4 bytes at 0x44 failed: "
                    "the camera answers 0x8004 (write protect)\"\n");
}

TEST_F(ToolTest, Write_ValuesThatAreNone_AreUsageErrors)
{
    EXPECT_EQ(RunOn("", {"write", "0x60000", "-t", "u8", "256"}).code, 2);
    EXPECT_EQ(RunOn("", {"write", "UserDefinedName", std::string(64, 'x')}).code, 2);
}

// ---- bench -----------------------------------------------------------------------------------

TEST_F(ToolTest, Bench_MeasuresImagesAndRegisters)
{
    const Json json = RunJson("width=64,height=48,fps=200", {"bench", "-n", "20"});
    EXPECT_EQ(json["images"], 20);
    EXPECT_GT(json["register_reads_per_second"].get<double>(), 10.0);
    EXPECT_GT(json["processor_ms_per_image"].get<double>(), 0.0);
    EXPECT_NE(RunOn("width=64,height=48,fps=200", {"bench", "-n", "5"}).output.find("reads/s"),
              std::string::npos);
}

// ---- view -------------------------------------------------------------------------------------

TEST_F(ToolTest, View_IntoAFile_IsTheImageWithItsOverlay)
{
    const std::string options = "width=640,height=480,fps=50,format=RGB8,pattern=scene";
    ASSERT_EQ(RunOn(options, {"view", "-o", "a.png"}).code, 0);
    const Pixels pixels = ReadPng(File("a.png"));
    ASSERT_EQ(pixels.samples.size(), size_t{640 * 480 * 3});
    const auto sent = Sent(options, 0);
    const size_t middle = (240 * 640 + 100) * 3;
    EXPECT_TRUE(std::equal(sent.begin() + middle, sent.begin() + middle + 300,
                           pixels.samples.begin() + middle));
    EXPECT_FALSE(std::equal(sent.begin(), sent.begin() + 300, pixels.samples.begin()));
}

TEST_F(ToolTest, View_WithoutADisplay_IsAStillInTheTerminal)
{
    unsetenv("DISPLAY");
    unsetenv("WAYLAND_DISPLAY");
    unsetenv("SDL_VIDEODRIVER");
    const Result result =
        RunOn("width=64,height=48,fps=50,pattern=scene", {"view", "--columns", "32"});
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(std::count(result.output.begin(), result.output.end(), '\n'), 13);
    EXPECT_NE(result.output.find("\u2580"), std::string::npos);
    EXPECT_NE(result.output.find("64x48 Mono8"), std::string::npos);
    EXPECT_NE(result.errors.find("a still instead"), std::string::npos);
}

#if ZR_TOOL_HAVE_SDL
TEST_F(ToolTest, View_InAWindow_EndsAfterItsImages)
{
    setenv("SDL_VIDEODRIVER", "dummy", 1);
    const Result result = RunOn("width=64,height=48,fps=50", {"view", "-n", "5"});
    unsetenv("SDL_VIDEODRIVER");
    EXPECT_EQ(result.code, 0) << result.errors;
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors, "");
}
#endif

// ---- doctor -----------------------------------------------------------------------------------

// Findings of one check, as "level: text" lines.
std::string Findings(const Json& json, const std::string& check)
{
    std::string text;
    for (const Json& finding : json["findings"]) {
        if (finding["check"] == check) {
            text += finding["level"].get<std::string>() + ": " +
                    finding["text"].get<std::string>() + "\n";
        }
    }
    return text;
}

TEST_F(ToolTest, Doctor_HealthyCamera_FindsNoProblem)
{
    const Json json = RunJson("width=64,height=48,zip=1", {"doctor"});
    EXPECT_EQ(json["problems"], 0);
    EXPECT_TRUE(Findings(json, "usb").starts_with("skipped: "));
    EXPECT_TRUE(Findings(json, "manifest").starts_with("ok: "));
    EXPECT_TRUE(Findings(json, "speed").starts_with("ok: "));
    EXPECT_TRUE(Findings(json, "stream").starts_with("ok: "));
    EXPECT_EQ(Findings(json, "image"), "ok: an image came whole: 64x48 Mono8\n");
}

TEST_F(ToolTest, Doctor_CameraThatSendsNothing_IsAProblem)
{
    const std::string silent = "width=64,height=48,faults=stream-silent@0";
    const Result result = RunOn(silent, {"doctor", "--json", "--timeout", "300"});
    EXPECT_EQ(result.code, 6);
    EXPECT_EQ(Findings(Json::parse(result.output, nullptr, false), "image"),
              "problem: the camera sends nothing for 300 ms after it was started\n");
}

// The exact producer tells nothing of either: its images count as complete.
TEST_F(ToolTest, Doctor_DamagedAndLostImages_AreTold)
{
    const auto images = [this](const std::string& fault) {
        const std::string camera = "width=64,height=48,fps=50,faults=" + fault;
        return Findings(Json::parse(RunOn(camera, {"doctor", "--json", "--timeout", "1000"}).output,
                                    nullptr, false),
                        "image");
    };
    const std::string damaged = images("trailer-status:0xA101");
    const std::string lost = images("leader-lost");
    if (IsExact()) {
        EXPECT_TRUE(damaged.starts_with("ok: ")) << damaged;
    } else {
        EXPECT_EQ(damaged, "problem: 3 of 3 images came damaged\n");
        EXPECT_TRUE(lost.starts_with("problem: the camera sends, but no image arrives: ")) << lost;
    }
}

struct FaultyCamera
{
    const char* name;
    const char* options;
    const char* finding; // "check: words of the text"
};

class Doctor : public ToolTest, public ::testing::WithParamInterface<FaultyCamera>
{
};

// What the exact producer cannot serve.
class DoctorExact : public Doctor
{
};

void ExpectFinding(const Result& result, const std::string& finding)
{
    EXPECT_EQ(result.code, 6);
    const Json json = Json::parse(result.output, nullptr, false);
    ASSERT_FALSE(json.is_discarded()) << result.output;
    EXPECT_GT(json["problems"], 0);
    const size_t colon = finding.find(": ");
    const std::string texts = Findings(json, finding.substr(0, colon));
    EXPECT_NE(texts.find("problem: "), std::string::npos) << result.output;
    EXPECT_NE(texts.find(finding.substr(colon + 2)), std::string::npos) << result.output;
    for (const Json& one : json["findings"]) {
        EXPECT_TRUE(one["level"] != "problem" || one.contains("remedy")) << one;
    }
}

TEST_P(Doctor, FindsIt)
{
    ExpectFinding(RunOn(GetParam().options, {"doctor", "--json"}), GetParam().finding);
}

INSTANTIATE_TEST_SUITE_P(
    Cameras, Doctor,
    ::testing::Values(FaultyCamera{"UnreadableDescription", "faults=reply-error%r0x100000:0x8006",
                                   "manifest: cannot be read: GCReadPort failed: GC_ERR_"},
                      FaultyCamera{"PermissionDenied", "faults=open-permission", "open: failed"},
                      FaultyCamera{"NoStreamRegisters", "faults=no-sirm",
                                   "stream: no streaming interface registers"},
                      FaultyCamera{"HighSpeed", "high-speed=1", "speed: below SuperSpeed"}),
    [](const auto& one) { return std::string(one.param.name); });

TEST_P(DoctorExact, FindsIt)
{
    const Result result = RunOn(GetParam().options, {"doctor", "--json"});
    if (IsExact()) {
        ExpectFinding(result, GetParam().finding);
    } else {
        EXPECT_EQ(Findings(Json::parse(result.output, nullptr, false), "open").find("ok: "), 0u)
            << result.output;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Cameras, DoctorExact,
    ::testing::Values(
        FaultyCamera{"TwoManifestEntries", "faults=manifest-entries:2", "open: GC_ERR_ERROR"},
        FaultyCamera{"EmptyManifest", "faults=manifest-entries:0", "open: GC_ERR_ERROR"},
        FaultyCamera{"StrictReads", "strict=1", "open: IFOpenDevice failed"},
        FaultyCamera{"NoStream", "faults=no-stream-interface", "stream: DevOpenDataStream failed"},
        FaultyCamera{"SameHeads", "width=64,height=48,leader=64,trailer=64", "stream: told apart"},
        FaultyCamera{"ShortLeader", "width=64,height=48,alignment=6", "stream: leader of 52 bytes"},
        FaultyCamera{"Rest", "width=10,height=10", "stream: no multiple of the alignment"},
        FaultyCamera{"Tiny", "width=4,height=1", "stream: smaller than the alignment"},
        FaultyCamera{"LikeTheLeader", "width=8,height=8,leader=64", "stream: taken for a leader"},
        FaultyCamera{"LikeTheTrailer", "width=8,height=4", "stream: taken for pixels"}),
    [](const auto& one) { return std::string(one.param.name); });

// What the doctor says of sizes is what happens: where it sees no image coming, none comes, and
// where it sees nothing wrong, every byte is right.
TEST_F(ToolTest, Doctor_VerdictsOnSizesAreWhatHappens)
{
    for (const char* const fatal :
         {"width=64,height=48,leader=64,trailer=64", "width=64,height=48,alignment=6",
          "width=4,height=1", "width=8,height=4"}) {
        const Json json = Json::parse(RunOn(fatal, {"doctor", "--json"}).output);
        const bool isFatal =
            Findings(json, "stream").find("no image will arrive") != std::string::npos;
        EXPECT_EQ(isFatal, IsExact()) << fatal;
        const std::string timeout = IsExact() ? "500" : "5000";
        EXPECT_EQ(
            RunOn(std::string("fps=50,") + fatal, {"grab", "--timeout", timeout, "-o", "a.raw"})
                .code,
            IsExact() ? 5 : 0)
            << fatal;
    }
    for (const char* const fine : {"width=64,height=48,alignment=6,leader=128,trailer=64",
                                   "width=11,height=8,alignment=0", "width=1024,height=1025"}) {
        const std::string options = std::string("fps=20,") + fine;
        EXPECT_EQ(RunOn(fine, {"doctor"}).code, 0) << fine;
        EXPECT_EQ(RunOn(options, {"grab", "-o", "a.raw"}).code, 0) << fine;
        const auto sent = Sent(options, 0);
        EXPECT_EQ(Contents(File("a.raw")), std::string(sent.begin(), sent.end())) << fine;
    }
}

TEST_F(ToolTest, Doctor_AsText_NamesTheRemedyBelow)
{
    const Result result = RunOn("high-speed=1", {"doctor", "-q"});
    EXPECT_EQ(result.code, 6);
    EXPECT_TRUE(std::regex_search(result.output,
                                  std::regex("problem  speed: VC000001: .*\n         -> plug")))
        << result.output;
    EXPECT_EQ(result.output.find("ok "), std::string::npos);
}

TEST_F(ToolTest, Doctor_OnAnotherRoot_LooksThere)
{
    fs::create_directories(File("root/sys/bus/usb/devices/2-1"));
    const auto put = [this](const std::string& name, const std::string& text) {
        fs::create_directories(File(name).parent_path());
        std::ofstream(File(name)) << text << "\n";
    };
    put("root/sys/bus/usb/devices/2-1/speed", "480");
    put("root/sys/bus/usb/devices/2-1/serial", "CAM1");
    put("root/sys/bus/usb/devices/2-1:1.0/bInterfaceClass", "ef");
    put("root/sys/bus/usb/devices/2-1:1.0/bInterfaceSubClass", "05");
    put("root/sys/module/usbcore/parameters/usbfs_memory_mb", "16");
    // This test runs on the virtual bus; the program is told nothing of it.
    const Result result = Run({"doctor", "--json", "--root", "root", "--discovery-time", "100"});
    EXPECT_EQ(result.code, 6);
    const Json json = Json::parse(result.output, nullptr, false);
    EXPECT_NE(Findings(json, "speed").find("480 Mbit/s"), std::string::npos) << result.output;
    EXPECT_NE(Findings(json, "permissions").find("no device node"), std::string::npos);
    EXPECT_NE(Findings(json, "usbfs-memory").find("is 16"), std::string::npos);
}

TEST_F(ToolTest, Doctor_HandsTheUdevRuleOut)
{
    const Result result = Run({"doctor", "--udev-rule"});
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.output, Contents(ZR_UDEV_RULE));
    // The remedy can be pasted: this program is in no folder of the PATH.
    fs::create_directories(File("root/sys/bus/usb/devices"));
    const Json json =
        Json::parse(Run({"doctor", "--json", "--root", "root", "--discovery-time", "100"}).output);
    std::string remedy;
    for (const Json& finding : json["findings"]) {
        if (finding["check"] == "udev-rule") {
            remedy = finding["remedy"];
        }
    }
    EXPECT_EQ(remedy.find("'" ZR_TOOL "' doctor --udev-rule | sudo tee "), 0u) << remedy;
}

TEST_F(ToolTest, Doctor_ApplicationsThatDoNotFindTheProducer_AreWarnedOf)
{
    unsetenv("GENICAM_GENTL64_PATH");
    const Json json = RunJson("", {"doctor"});
    EXPECT_TRUE(Findings(json, "environment").starts_with("warning: ")) << json;
    EXPECT_EQ(json["problems"], 0);
}

// ---- the program ------------------------------------------------------------------------------

TEST_F(ToolTest, NoProducer_NamesThePlaces)
{
    const Result result = Run({"--producer", "/nowhere/x.cti", "list"});
    EXPECT_EQ(result.code, 4);
    EXPECT_NE(result.errors.find("/nowhere/x.cti"), std::string::npos);
    const Result doctor = Run({"--producer", "/nowhere/x.cti", "doctor", "--root", "empty"});
    EXPECT_EQ(doctor.code, 6);
    EXPECT_NE(doctor.output.find("problem  producer: no producer found"), std::string::npos);
}

TEST_F(ToolTest, FileThatIsNoProducer_IsRefused)
{
    std::ofstream(File("text.cti")) << "text";
    EXPECT_EQ(Run({"--producer", "text.cti", "list"}).code, 4);
    const Result other = Run({"--producer", ZR_OTHER_LIBRARY, "list"});
    EXPECT_EQ(other.code, 4);
    EXPECT_NE(other.errors.find("is no GenTL producer"), std::string::npos) << other.errors;
}

TEST_F(ToolTest, Producer_IsFoundByTheEnvironment)
{
    setenv("GENICAM_GENTL64_PATH", "/nowhere::" ZR_CTI_FOLDER, 1);
    const Json json = RunJson("", {"doctor"});
    unsetenv("GENICAM_GENTL64_PATH");
    EXPECT_TRUE(Findings(json, "environment").starts_with("ok: ")) << json;
}

TEST_F(ToolTest, MissingVirtualBus_IsTold)
{
    setenv("ZR_VIRTUAL_USB", "/nowhere", 1);
    const Result result = RunOn("", {"list"});
    unsetenv("ZR_VIRTUAL_USB");
    EXPECT_EQ(result.code, 1);
    EXPECT_NE(result.errors.find("no virtual USB bus in /nowhere"), std::string::npos)
        << result.errors;
}

TEST_F(ToolTest, FullDisk_IsToldByItsExitCode)
{
    const std::string command = std::string(ZR_TOOL) +
                                " --virtual --discovery-time 100 list >/dev/full 2>" +
                                File("err").string();
    const int status = std::system(command.c_str());
    EXPECT_EQ(WEXITSTATUS(status), 1);
    EXPECT_NE(Contents(File("err")).find("cannot write to standard output"), std::string::npos);
}

TEST_F(ToolTest, WrongCommandLines_AreTwo)
{
    EXPECT_EQ(Run({}).code, 2);
    EXPECT_EQ(Run({"lst"}).code, 2);
    EXPECT_EQ(Run({"--version"}).output, "zr-u3v " ZR_EXACT_VERSION "\n");
    EXPECT_EQ(Run({"--help"}).code, 0);
}

} // namespace
