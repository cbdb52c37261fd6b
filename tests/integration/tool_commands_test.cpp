// zr-u3v as its user meets it: the program is run on the virtual bus, and its output, its files and
// its exit codes are looked at. Images are compared with what the same camera of this process
// makes.

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <png.h>
#include <regex>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

#include "virtual_bus.h"

#if ZR_TOOL_HAVE_TIFF
#include <tiffio.h>
#endif

namespace fs = std::filesystem;
using Json = nlohmann::json;

namespace {

struct Result
{
    int code = -1;
    std::string output;
    std::string errors;
};

std::string Contents(const fs::path& path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

class ToolTest : public ::testing::Test
{
protected:
    ToolTest()
    {
        std::string pattern = (fs::temp_directory_path() / "zr-u3v-XXXXXX").string();
        EXPECT_NE(mkdtemp(pattern.data()), nullptr);
        m_folder = pattern;
    }
    ~ToolTest() override
    {
        std::error_code ignored;
        fs::remove_all(m_folder, ignored);
    }

    fs::path File(const std::string& name) const { return m_folder / name; }

    // Starts the program in the test's folder; its output goes to files.
    pid_t Start(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.begin(), ZR_TOOL);
        std::vector<char*> pointers;
        for (std::string& argument : arguments) {
            pointers.push_back(argument.data());
        }
        pointers.push_back(nullptr);
        const pid_t child = fork();
        if (child == 0) {
            const int out = open(File("out").c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0600);
            const int err = open(File("err").c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0600);
            dup2(out, STDOUT_FILENO);
            dup2(err, STDERR_FILENO);
            if (chdir(m_folder.c_str()) == 0) {
                execv(ZR_TOOL, pointers.data());
            }
            _exit(127);
        }
        return child;
    }
    Result Finish(pid_t child) const
    {
        int status = 0;
        waitpid(child, &status, 0);
        return {WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status),
                Contents(File("out")), Contents(File("err"))};
    }
    Result Run(const std::vector<std::string>& arguments) const { return Finish(Start(arguments)); }

    // The same on virtual cameras with these options.
    Result RunOn(const std::string& camera, std::vector<std::string> arguments) const
    {
        const std::vector<std::string> bus{"--virtual-camera", camera, "--discovery-time", "150"};
        arguments.insert(arguments.begin(), bus.begin(), bus.end());
        return Run(arguments);
    }

    Json RunJson(const std::string& camera, std::vector<std::string> arguments) const
    {
        arguments.emplace_back("--json");
        const Result result = RunOn(camera, std::move(arguments));
        EXPECT_EQ(result.code, 0) << result.errors;
        return Json::parse(result.output, nullptr, false);
    }

private:
    fs::path m_folder;
};

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
    EXPECT_EQ(json["producer"]["gentl_version"], "1.3");
    EXPECT_EQ(json["interface"]["id"], "ZRK-USB-3-IF ID");
    EXPECT_EQ(json["camera"]["serial"], "A1");
    EXPECT_EQ(json["device_port"]["port_name"], "DevicePort");
    EXPECT_EQ(json["camera_port"]["port_name"], "Device");
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
    for (const char* const name : {"ZrGenTLU3V_TL.xml", "ZrGenTLU3V_IF.xml", "ZrGenTLU3V_DEV.xml",
                                   "ZrGenTLU3V_DS.xml", "Virtual U3V_v1.0.0.xml"}) {
        EXPECT_NE(Contents(File("docs") / name).find("RegisterDescription"), std::string::npos)
            << name;
    }
    EXPECT_EQ(std::count(result.output.begin(), result.output.end(), '\n'), 5);
}

TEST_F(ToolTest, Xml_UrlsAsJson)
{
    const Json json = RunJson("zip=1", {"xml", "all", "--url"});
    ASSERT_EQ(json.size(), 5u);
    EXPECT_EQ(json[0]["port"], "system");
    EXPECT_TRUE(json[0]["url"].get<std::string>().starts_with("local:ZrGenTLU3V_TL.xml;10000;"));
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
    EXPECT_EQ(result.output, "docs/x_v1.0.0.xml\n");
    EXPECT_TRUE(fs::exists(File("docs/x_v1.0.0.xml")));
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
    EXPECT_EQ(RunOn("", {"read", "-q", "-p", "device", "0x70000", "-t", "string"}).output,
              "120900000001\n");
    EXPECT_EQ(RunOn("", {"read", "-q", "-p", "stream", "0x80108"}).output, "1\n");
}

TEST_F(ToolTest, Read_AddressThatIsNone_TellsCodeAndLastError)
{
    const Result result = RunOn("", {"read", "0x99999999"});
    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors, "zr-u3v: GCReadPort failed: GC_ERR_IO (-1010), last error "
                             "\"GC_ERR_IO\"\n");
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
    EXPECT_EQ(result.errors, "zr-u3v: GCWritePort failed: GC_ERR_IO (-1010), last error "
                             "\"GC_ERR_IO\"\n");
}

TEST_F(ToolTest, Write_ValuesThatAreNone_AreUsageErrors)
{
    EXPECT_EQ(RunOn("", {"write", "0x60000", "-t", "u8", "256"}).code, 2);
    EXPECT_EQ(RunOn("", {"write", "UserDefinedName", std::string(64, 'x')}).code, 2);
}

// ---- images -----------------------------------------------------------------------------------

struct Pixels
{
    unsigned width = 0;
    unsigned height = 0;
    unsigned channels = 0;
    unsigned bits = 0;
    unsigned significant = 0;
    std::vector<uint16_t> samples;
};

// Reads with the classical interface, so that 16-bit samples come as they stand in the file.
Pixels ReadPng(const fs::path& path)
{
    Pixels pixels;
    std::FILE* const file = std::fopen(path.c_str(), "rb");
    if (file == nullptr) {
        ADD_FAILURE() << "no file " << path;
        return pixels;
    }
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_init_io(png, file);
    png_read_png(png, info, PNG_TRANSFORM_IDENTITY, nullptr);
    pixels.width = png_get_image_width(png, info);
    pixels.height = png_get_image_height(png, info);
    pixels.channels = png_get_channels(png, info);
    pixels.bits = png_get_bit_depth(png, info);
    png_color_8p significant = nullptr;
    if (png_get_sBIT(png, info, &significant) != 0) {
        pixels.significant = pixels.channels == 1 ? significant->gray : significant->red;
    }
    png_bytepp rows = png_get_rows(png, info);
    for (unsigned y = 0; y < pixels.height; y++) {
        for (unsigned i = 0; i < pixels.width * pixels.channels; i++) {
            pixels.samples.push_back(
                pixels.bits == 16 ? static_cast<uint16_t>(rows[y][2 * i] << 8 | rows[y][2 * i + 1])
                                  : rows[y][i]);
        }
    }
    png_destroy_read_struct(&png, &info, nullptr);
    std::fclose(file);
    return pixels;
}

// Frame `frame` of a camera with these options, as it leaves the camera.
std::vector<unsigned char> Sent(const std::string& options, uint64_t frame)
{
    vusb_reset();
    return vusb::Camera(options).Expected(frame);
}

TEST_F(ToolTest, Grab_Mono8AsPng_EveryByte)
{
    const std::string options = "width=64,height=48,fps=50";
    const Result result = RunOn(options, {"grab", "-n", "3", "-o", "{id}.png", "--strict"});
    ASSERT_EQ(result.code, 0) << result.errors;
    for (uint64_t frame = 0; frame < 3; frame++) {
        const Pixels pixels = ReadPng(File(std::to_string(frame) + ".png"));
        EXPECT_EQ(pixels.width, 64u);
        EXPECT_EQ(pixels.height, 48u);
        EXPECT_EQ(pixels.channels, 1u);
        const auto sent = Sent(options, frame);
        EXPECT_TRUE(
            std::equal(sent.begin(), sent.end(), pixels.samples.begin(), pixels.samples.end()))
            << frame;
    }
}

TEST_F(ToolTest, Grab_Rgb8AndBgr8AsPng_EveryByte)
{
    for (const bool isRgb : {true, false}) {
        const std::string options =
            std::string("width=40,height=30,fps=50,format=") + (isRgb ? "RGB8" : "BGR8");
        ASSERT_EQ(RunOn(options, {"grab", "-o", "a.png"}).code, 0);
        const Pixels pixels = ReadPng(File("a.png"));
        auto sent = Sent(options, 0);
        for (size_t i = 0; !isRgb && i < sent.size(); i += 3) {
            std::swap(sent[i], sent[i + 2]);
        }
        EXPECT_EQ(pixels.channels, 3u);
        EXPECT_TRUE(
            std::equal(sent.begin(), sent.end(), pixels.samples.begin(), pixels.samples.end()))
            << options;
    }
}

TEST_F(ToolTest, Grab_Mono12p_KeepsEveryBitInPng)
{
    const std::string options = "width=64,height=48,fps=50,format=Mono12p";
    ASSERT_EQ(RunOn(options, {"grab", "-o", "a.png"}).code, 0);
    const Pixels pixels = ReadPng(File("a.png"));
    const auto sent = Sent(options, 0);
    ASSERT_EQ(pixels.bits, 16u);
    EXPECT_EQ(pixels.significant, 12u);
    for (size_t i = 0; i < pixels.samples.size(); i++) {
        const size_t at = i / 2 * 3;
        const unsigned expected = i % 2 == 0
                                      ? sent[at] | (sent[at + 1] & 15U) << 8U
                                      : unsigned{sent[at + 1]} >> 4U | unsigned{sent[at + 2]} << 4U;
        ASSERT_EQ(pixels.samples[i] >> 4U, expected) << i;
    }
}

TEST_F(ToolTest, Grab_Mono16AsPgm_HasTheHighByteFirst)
{
    const std::string options = "width=16,height=8,fps=50,format=Mono16";
    ASSERT_EQ(RunOn(options, {"grab", "-o", "a.pgm"}).code, 0);
    const std::string file = Contents(File("a.pgm"));
    const std::string head = "P5\n16 8\n65535\n";
    const auto sent = Sent(options, 0);
    ASSERT_EQ(file.size(), head.size() + sent.size());
    EXPECT_EQ(file.substr(0, head.size()), head);
    for (size_t i = 0; i < sent.size(); i++) {
        ASSERT_EQ(static_cast<unsigned char>(file[head.size() + (i ^ 1U)]), sent[i]) << i;
    }
}

TEST_F(ToolTest, Grab_RawAndStandardOutput_AreThePayload)
{
    const std::string options = "width=16,height=8,fps=50";
    ASSERT_EQ(RunOn(options, {"grab", "-o", "a.raw"}).code, 0);
    const auto sent = Sent(options, 0);
    EXPECT_EQ(Contents(File("a.raw")), std::string(sent.begin(), sent.end()));
    const Result piped = RunOn(options, {"grab", "-n", "2", "-o", "-"});
    const auto second = Sent(options, 1);
    EXPECT_EQ(piped.output,
              std::string(sent.begin(), sent.end()) + std::string(second.begin(), second.end()));
    EXPECT_NE(piped.errors.find("images       2 in"), std::string::npos);
}

TEST_F(ToolTest, Grab_BayerIsColourUnlessAsked)
{
    const std::string options = "width=64,height=48,fps=50,pattern=scene,format=BayerRG8";
    ASSERT_EQ(RunOn(options, {"grab", "-o", "a.png"}).code, 0);
    EXPECT_EQ(ReadPng(File("a.png")).channels, 3u);
    ASSERT_EQ(RunOn(options, {"grab", "-o", "b.png", "--no-demosaic"}).code, 0);
    const Pixels mosaic = ReadPng(File("b.png"));
    const auto sent = Sent(options, 0);
    EXPECT_EQ(mosaic.channels, 1u);
    EXPECT_TRUE(std::equal(sent.begin(), sent.end(), mosaic.samples.begin(), mosaic.samples.end()));
}

// The same scene in colour and behind filters: what demosaicing finds is near to the truth.
TEST_F(ToolTest, Grab_EveryColourFormatShowsTheSameScene)
{
    const std::string scene = "width=160,height=120,fps=50,pattern=scene,format=";
    ASSERT_EQ(RunOn(scene + "RGB8", {"grab", "-o", "truth.png"}).code, 0);
    const Pixels truth = ReadPng(File("truth.png"));
    for (const char* const format :
         {"BGR8", "YUV422_8", "BayerRG8", "BayerGR8", "BayerGB8", "BayerBG8"}) {
        ASSERT_EQ(RunOn(scene + format, {"grab", "-o", "a.png"}).code, 0) << format;
        const Pixels pixels = ReadPng(File("a.png"));
        ASSERT_EQ(pixels.samples.size(), truth.samples.size()) << format;
        double difference = 0;
        for (size_t i = 0; i < truth.samples.size(); i++) {
            difference += std::abs(int{truth.samples[i]} - int{pixels.samples[i]});
        }
        EXPECT_LT(difference / static_cast<double>(truth.samples.size()), 6) << format;
    }
}

TEST_F(ToolTest, Grab_EightBitsOnly)
{
    ASSERT_EQ(
        RunOn("width=16,height=8,fps=50,format=Mono12", {"grab", "-o", "a.png", "--8bit"}).code, 0);
    EXPECT_EQ(ReadPng(File("a.png")).bits, 8u);
}

#if ZR_TOOL_HAVE_TIFF
TEST_F(ToolTest, Grab_Tiff_EveryByte)
{
    const std::string options = "width=40,height=30,fps=50,format=RGB8";
    ASSERT_EQ(RunOn(options, {"grab", "-o", "a.tiff"}).code, 0);
    TIFF* const tiff = TIFFOpen(File("a.tiff").c_str(), "r");
    ASSERT_NE(tiff, nullptr);
    std::vector<unsigned char> bytes(static_cast<size_t>(TIFFScanlineSize(tiff)) * 30);
    for (uint32_t y = 0; y < 30; y++) {
        EXPECT_EQ(TIFFReadScanline(tiff, &bytes[y * bytes.size() / 30], y, 0), 1);
    }
    TIFFClose(tiff);
    EXPECT_EQ(bytes, Sent(options, 0));
}
#endif

TEST_F(ToolTest, Grab_IntoAFolder_NumbersItsFiles)
{
    ASSERT_EQ(RunOn("width=16,height=8,fps=50", {"grab", "-n", "2", "-o", "images/"}).code, 0);
    EXPECT_TRUE(fs::exists(File("images/image-00001.png")));
    EXPECT_TRUE(fs::exists(File("images/image-00002.png")));
}

TEST_F(ToolTest, Grab_StatisticsAsJson)
{
    const Json json =
        RunJson("width=16,height=8,fps=50,faults=leader-lost@2", {"grab", "-n", "5", "-f", "raw"});
    EXPECT_EQ(json["images"], 5);
    EXPECT_GE(json["lost_ids"], 1); // the receiver needs a moment to find the next leader
    EXPECT_EQ(json["incomplete"], 0);
    EXPECT_EQ(json["bytes"], 5 * 128);
    EXPECT_GT(json["images_per_second"].get<double>(), 1.0);
    EXPECT_EQ(json["latency_ms"]["since"], "camera time stamp");
    EXPECT_GE(json["latency_ms"]["max"], json["latency_ms"]["min"]);
}

TEST_F(ToolTest, Grab_StrictlyALostImageIsAFailure)
{
    const Result result = RunOn("width=16,height=8,fps=50,faults=leader-lost@2",
                                {"grab", "-n", "5", "--strict", "-f", "raw"});
    EXPECT_EQ(result.code, 5);
    EXPECT_NE(result.errors.find("0 images incomplete, "), std::string::npos);
}

TEST_F(ToolTest, Grab_CameraFallsSilent_KeepsWhatCameAndFails)
{
    const Result result = RunOn("width=16,height=8,fps=50,faults=stream-silent@3",
                                {"grab", "-n", "5", "--timeout", "300", "-o", "a.raw"});
    EXPECT_EQ(result.code, 5);
    EXPECT_NE(result.errors.find("3 of 5 images arrived"), std::string::npos) << result.errors;
    EXPECT_TRUE(fs::exists(File("a-00003.raw")));
}

TEST_F(ToolTest, Grab_UnpluggedWhileStreaming_Ends)
{
    const Result result = RunOn("width=16,height=8,fps=50,unplug-after=3",
                                {"grab", "-n", "50", "--timeout", "300", "-o", "a.raw"});
    EXPECT_EQ(result.code, 5) << result.errors;
}

TEST_F(ToolTest, Grab_Interrupted_StopsCleanly)
{
    const pid_t child = Start({"--virtual-camera", "width=16,height=8,fps=50", "grab", "-n",
                               "100000", "-o", "a-{n}.raw"});
    for (int i = 0; i < 300 && !fs::exists(File("a-00003.raw")); i++) {
        usleep(20000);
    }
    kill(child, SIGINT);
    const Result result = Finish(child);
    EXPECT_EQ(result.code, 130) << result.errors;
    EXPECT_NE(result.output.find("lost ids"), std::string::npos);
}

TEST_F(ToolTest, Grab_FolderThatIsNone_FailsAndSaysSo)
{
    const Result result = RunOn("width=16,height=8,fps=50", {"grab", "-o", "no/such/a.png"});
    EXPECT_EQ(result.code, 1);
    EXPECT_NE(result.errors.find("cannot write no/such/a.png: No such file"), std::string::npos);
}

TEST_F(ToolTest, Grab_FormatThatIsNone_IsAUsageError)
{
    EXPECT_EQ(RunOn("", {"grab", "-o", "a.gif"}).code, 2);
    EXPECT_EQ(RunOn("", {"grab", "-o", "-", "-f", "png"}).code, 2);
}

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
}

struct Sick
{
    const char* name;
    const char* options;
    const char* finding; // "check: words of the text"
};

class Doctor : public ToolTest, public ::testing::WithParamInterface<Sick>
{
};

TEST_P(Doctor, FindsIt)
{
    const Result result = RunOn(GetParam().options, {"doctor", "--json"});
    EXPECT_EQ(result.code, 6);
    const Json json = Json::parse(result.output, nullptr, false);
    ASSERT_FALSE(json.is_discarded()) << result.output;
    EXPECT_GT(json["problems"], 0);
    const std::string finding = GetParam().finding;
    const size_t colon = finding.find(": ");
    const std::string texts = Findings(json, finding.substr(0, colon));
    EXPECT_NE(texts.find("problem: "), std::string::npos) << result.output;
    EXPECT_NE(texts.find(finding.substr(colon + 2)), std::string::npos) << result.output;
    for (const Json& one : json["findings"]) {
        EXPECT_TRUE(one["level"] != "problem" || one.contains("remedy")) << one;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Cameras, Doctor,
    ::testing::Values(
        Sick{"TwoManifestEntries", "faults=manifest-entries:2", "open: GC_ERR_ERROR"},
        Sick{"EmptyManifest", "faults=manifest-entries:0", "open: GC_ERR_ERROR"},
        Sick{"PermissionDenied", "faults=open-permission", "open: failed"},
        Sick{"StrictReads", "strict=1", "open: IFOpenDevice failed"},
        Sick{"NoStream", "faults=no-stream-interface", "stream: DevOpenDataStream failed"},
        Sick{"NoStreamRegisters", "faults=no-sirm", "stream: no streaming interface registers"},
        Sick{"HighSpeed", "high-speed=1", "speed: below SuperSpeed"},
        Sick{"SameHeads", "width=64,height=48,leader=64,trailer=64", "stream: told apart"},
        Sick{"ShortLeader", "width=64,height=48,alignment=6", "stream: leader of 52 bytes"},
        Sick{"Rest", "width=10,height=10", "stream: no multiple of the alignment"},
        Sick{"Tiny", "width=4,height=1", "stream: smaller than the alignment"},
        Sick{"LikeTheLeader", "width=8,height=8,leader=64", "stream: taken for a leader"},
        Sick{"LikeTheTrailer", "width=8,height=4", "stream: taken for pixels"}),
    [](const auto& one) { return std::string(one.param.name); });

// What the doctor says of sizes is what happens: where it sees no image coming, none comes, and
// where it sees nothing wrong, every byte is right.
TEST_F(ToolTest, Doctor_VerdictsOnSizesAreWhatHappens)
{
    for (const char* const fatal :
         {"width=64,height=48,leader=64,trailer=64", "width=64,height=48,alignment=6",
          "width=4,height=1", "width=8,height=4"}) {
        const Json json = Json::parse(RunOn(fatal, {"doctor", "--json"}).output);
        EXPECT_NE(Findings(json, "stream").find("no image will arrive"), std::string::npos)
            << fatal;
        EXPECT_EQ(
            RunOn(std::string("fps=50,") + fatal, {"grab", "--timeout", "500", "-o", "a.raw"}).code,
            5)
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
    const Result result = RunOn("width=10,height=10", {"doctor", "-q"});
    EXPECT_EQ(result.code, 6);
    EXPECT_TRUE(std::regex_search(
        result.output, std::regex("problem  stream: VC000001: .*\n         -> choose another")))
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

// ---- the program ------------------------------------------------------------------------------

TEST_F(ToolTest, NoProducer_NamesThePlaces)
{
    const Result result = Run({"--cti", "/nowhere/x.cti", "list"});
    EXPECT_EQ(result.code, 4);
    EXPECT_NE(result.errors.find("/nowhere/x.cti"), std::string::npos);
    const Result doctor = Run({"--cti", "/nowhere/x.cti", "doctor", "--root", "empty"});
    EXPECT_EQ(doctor.code, 6);
    EXPECT_NE(doctor.output.find("problem  producer: no producer found"), std::string::npos);
}

TEST_F(ToolTest, FileThatIsNoProducer_IsRefused)
{
    std::ofstream(File("text.cti")) << "text";
    EXPECT_EQ(Run({"--cti", "text.cti", "list"}).code, 4);
    const Result other = Run({"--cti", ZR_OTHER_LIBRARY, "list"});
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
    EXPECT_EQ(Run({"--version"}).output, "zr-u3v 2.5.2\n");
    EXPECT_EQ(Run({"--help"}).code, 0);
}

} // namespace
