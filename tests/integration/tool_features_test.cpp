// Features by name: features, get, set, exec, and what grab, view and bench do with them.

#include <algorithm>
#include <regex>

#include "tool_run.h"

namespace {

const Json* Find(const Json& features, const std::string& name)
{
    for (const Json& feature : features) {
        if (feature["name"] == name) {
            return &feature;
        }
    }
    return nullptr;
}

// ---- features ---------------------------------------------------------------------------------

TEST_F(ToolTest, Features_AreATreeWithValueUnitAndChoices)
{
    const Result result = RunOn("width=64,height=48,fps=20", {"features"});
    EXPECT_EQ(result.code, 0) << result.errors;
    std::istringstream lines(result.output);
    std::vector<std::string> tree;
    for (std::string line; std::getline(lines, line);) {
        tree.push_back(std::regex_replace(line, std::regex("(\\S) +"), "$1 "));
    }
    const auto has = [&](const char* line) {
        return std::find(tree.begin(), tree.end(), line) != tree.end();
    };
    EXPECT_TRUE(has("ImageFormatControl")) << result.output;
    EXPECT_TRUE(has("  Width rw 64 1..64")) << result.output;
    EXPECT_TRUE(has("  AcquisitionFrameRate rw 20 Hz 0..1e+05")) << result.output;
    EXPECT_TRUE(has("  TriggerMode rw Off Off On")) << result.output;
    EXPECT_TRUE(has("  AcquisitionStart wo (command)")) << result.output;
    EXPECT_TRUE(has("  DeviceModelName ro Virtual U3V")) << result.output;
}

TEST_F(ToolTest, Features_AsJson_HaveTypedValues)
{
    const Json features = RunJson("width=64,height=48,fps=20,zip=1", {"features"});
    const Json* const width = Find(features, "Width");
    ASSERT_NE(width, nullptr);
    EXPECT_EQ((*width)["category"], "ImageFormatControl");
    EXPECT_EQ((*width)["kind"], "integer");
    EXPECT_EQ((*width)["value"], 64);
    EXPECT_EQ((*width)["minimum"], 1);
    EXPECT_EQ((*width)["maximum"], 64);
    EXPECT_EQ((*width)["access"], "rw");
    EXPECT_EQ((*width)["visibility"], "beginner");
    const Json* const rate = Find(features, "AcquisitionFrameRate");
    ASSERT_NE(rate, nullptr);
    EXPECT_EQ((*rate)["value"], 20.0);
    EXPECT_EQ((*rate)["unit"], "Hz");
    const Json* const trigger = Find(features, "TriggerMode");
    ASSERT_NE(trigger, nullptr);
    EXPECT_EQ((*trigger)["entries"], Json({"Off", "On"}));
    const Json* const chunks = Find(features, "ChunkModeActive");
    ASSERT_NE(chunks, nullptr);
    EXPECT_EQ((*chunks)["value"], false);
    const Json* const start = Find(features, "AcquisitionStart");
    ASSERT_NE(start, nullptr);
    EXPECT_EQ((*start)["kind"], "command");
    EXPECT_TRUE((*start)["value"].is_null());
}

TEST_F(ToolTest, Features_AreChosenByNameCategoryOrPattern)
{
    const auto names = [this](const char* pattern) {
        std::string text;
        for (const Json& feature : RunJson("", {"features", pattern})) {
            text += feature["name"].get<std::string>() + " ";
        }
        return text;
    };
    EXPECT_EQ(names("exposuret"), "ExposureTime ChunkExposureTime ");
    EXPECT_EQ(names("Trigger?o*"), "TriggerMode TriggerSource TriggerSoftware ");
    EXPECT_EQ(names("AnalogControl"), "Gain ");
    const Result none = RunOn("", {"features", "nosuch"});
    EXPECT_EQ(none.code, 1);
    EXPECT_EQ(none.errors, "zr-u3v: no feature fits \"nosuch\"\n");
}

TEST_F(ToolTest, Features_OfEveryModule)
{
    for (const char* const module : {"system", "interface", "device", "stream"}) {
        const Result result = RunOn("", {"features", "--module", module, "--visibility", "guru"});
        EXPECT_EQ(result.code, 0) << module << result.errors;
        EXPECT_NE(result.output.find("ID "), std::string::npos) << module << result.output;
    }
    EXPECT_EQ(RunOn("", {"get", "-q", "--module", "stream", "StreamType"}).output, "USB3Vision\n");
}

// ---- get, set, exec ---------------------------------------------------------------------------

TEST_F(ToolTest, Get_PrintsWhatSetTakes)
{
    EXPECT_EQ(RunOn("width=64", {"get", "Width", "PixelFormat", "ChunkModeActive"}).output,
              "Width=64\nPixelFormat=Mono8\nChunkModeActive=false\n");
    EXPECT_EQ(RunOn("width=64", {"get", "-q", "Width"}).output, "64\n");
    EXPECT_EQ(RunJson("width=64", {"get", "Width"}), (Json{{{"name", "Width"}, {"value", 64}}}));
}

TEST_F(ToolTest, Get_OfWhatIsNotThere_NamesIt)
{
    const Result unknown = RunOn("", {"get", "Widht"});
    EXPECT_EQ(unknown.code, 1);
    EXPECT_EQ(unknown.errors,
              "zr-u3v: there is no feature \"Widht\" (zr-u3v features lists them)\n");
    EXPECT_EQ(RunOn("", {"get", "ImageFormatControl"}).code, 1);
    EXPECT_EQ(RunOn("", {"get", "AcquisitionStart"}).errors,
              "zr-u3v: AcquisitionStart: cannot be read\n");
    // Of an image, and there is none.
    EXPECT_TRUE(RunOn("", {"get", "ChunkFrameID"}).errors.starts_with("zr-u3v: ChunkFrameID: "));
}

TEST_F(ToolTest, Set_EveryKind_AndPrintsWhatTheCameraHas)
{
    const Result result =
        RunOn("width=640,height=480",
              {"set", "Width=0x140", "OffsetX=8", "PixelFormat=Mono16", "ExposureTime=2500.5",
               "ChunkModeActive=true", "DeviceUserID=left one"});
    EXPECT_EQ(result.code, 0) << result.errors;
    EXPECT_EQ(result.output, "Width=320\nOffsetX=8\nPixelFormat=Mono16\nExposureTime=2500.5\n"
                             "ChunkModeActive=true\nDeviceUserID=left one\n");
}

struct Refusal
{
    const char* name;
    const char* setting;
    const char* error;
};

class SetRefuses : public ToolTest, public ::testing::WithParamInterface<Refusal>
{
};

TEST_P(SetRefuses, AndSaysWhy)
{
    const Result result = RunOn("width=640,height=480", {"set", GetParam().setting});
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors, std::string("zr-u3v: ") + GetParam().error + "\n");
}

INSTANTIATE_TEST_SUITE_P(
    Values, SetRefuses,
    ::testing::Values(
        Refusal{"NoNumber", "Width=wide", "Width: \"wide\" is no whole number"},
        Refusal{"HalfANumber", "Width=12x", "Width: \"12x\" is no whole number"},
        Refusal{"NothingAtAll", "Width=", "Width: \"\" is no whole number"},
        Refusal{"TooMuch", "Width=641", "Width: 641 is not between 1 and 640"},
        Refusal{"TooLittle", "Width=-1", "Width: -1 is not between 1 and 640"},
        Refusal{"NoFloat", "Gain=loud", "Gain: \"loud\" is no number"},
        Refusal{"Infinity", "Gain=inf", "Gain: \"inf\" is no number"},
        Refusal{"FloatTooMuch", "Gain=48.5", "Gain: 48.5 is not between 0 and 48"},
        Refusal{"NoEntry", "TriggerMode=Maybe",
                "TriggerMode: there is no \"Maybe\" to choose now; there are: Off, On"},
        Refusal{"NoTruth", "ChunkModeActive=2", "ChunkModeActive: \"2\" is neither true nor false"},
        Refusal{"ReadOnly", "SensorWidth=5", "SensorWidth: cannot be written now"},
        Refusal{"Command", "AcquisitionStart=1",
                "AcquisitionStart: a command is executed (zr-u3v exec)"},
        Refusal{"NoSetting", "Width", "\"Width\" is not NAME=VALUE"}),
    [](const auto& one) { return std::string(one.param.name); });

// An argument that nobody understands keeps the others from being done by half.
TEST_F(ToolTest, Set_ArgumentThatIsNoSetting_NothingIsSet)
{
    const Result result = RunOn("", {"set", "Width=320", "Height"});
    EXPECT_EQ(result.code, 2);
    EXPECT_EQ(result.output, "");
}

TEST_F(ToolTest, Exec_TellsWhetherItIsDone)
{
    EXPECT_EQ(RunOn("", {"exec", "TimestampLatch"}).output, "TimestampLatch is done\n");
    // It is done when the acquisition has ended.
    EXPECT_EQ(RunJson("", {"exec", "AcquisitionStart"}),
              (Json{{{"name", "AcquisitionStart"}, {"done", false}}}));
    EXPECT_EQ(RunOn("", {"exec", "Width"}).errors, "zr-u3v: Width: is no command\n");
}

// What a camera says is cleaned before a terminal sees it, names of entries and errors included.
TEST_F(ToolTest, Features_ControlCharactersOfTheCamera_AreNotPrinted)
{
    const std::string text = Appears("model=a%1B]0%3Bb%07%C2%9B31mc", {"features", "Model"});
    EXPECT_NE(text.find("a?]0;b??31mc"), std::string::npos) << text;
    EXPECT_EQ(text.find_first_of("\x1b\x07\x9b"), std::string::npos);
}

// ---- before images ----------------------------------------------------------------------------

TEST_F(ToolTest, Grab_SetsFeaturesBefore)
{
    const Result result = RunOn("width=640,height=480,fps=20",
                                {"grab", "--set", "Width=32", "--set", "Height=16", "-o", "a.png"});
    ASSERT_EQ(result.code, 0) << result.errors;
    const Pixels pixels = ReadPng(File("a.png"));
    EXPECT_EQ(pixels.width, 32u);
    EXPECT_EQ(pixels.height, 16u);
    EXPECT_EQ(RunOn("", {"grab", "--set", "Width=0", "-o", "b.png"}).code, 1);
    EXPECT_FALSE(fs::exists(File("b.png")));
}

TEST_F(ToolTest, Grab_BySoftwareTrigger_AnImageForEach)
{
    const std::string camera = "width=64,height=48,fps=1000";
    const Result result =
        RunOn(camera, {"grab", "--trigger", "software", "-n", "5", "--strict", "-o", "{id}.png"});
    EXPECT_EQ(result.code, 0) << result.errors;
    for (uint64_t frame = 0; frame < 5; frame++) {
        const Pixels pixels = ReadPng(File(std::to_string(frame) + ".png"));
        const auto sent = Sent(camera, frame);
        EXPECT_TRUE(
            std::equal(sent.begin(), sent.end(), pixels.samples.begin(), pixels.samples.end()))
            << frame;
    }
}

TEST_F(ToolTest, ViewAndBench_TakeSettingsAndTriggersToo)
{
    const std::string camera = "width=640,height=480,fps=1000";
    const Result view = RunOn(
        camera, {"view", "--set", "Width=64", "--trigger", "software", "-n", "2", "--terminal"});
    EXPECT_EQ(view.code, 0) << view.errors;
    EXPECT_NE(view.output.find("64x480 Mono8"), std::string::npos) << view.output;
    const Json bench = RunJson(
        camera, {"bench", "--set", "Height=16", "--trigger", "software", "-n", "4", "--strict"});
    EXPECT_EQ(bench["images"], 4);
    EXPECT_EQ(bench["bytes"], 4 * 640 * 16);
}

// No description file: nobody knows how to start it. The exact producer does not open such a
// camera.
TEST_F(ToolTest, Grab_CameraWithoutFeatures_IsToldAndTriedAllTheSame)
{
    const std::string camera = "manifest=none,fps=20,width=64,height=48";
    const Result result = RunOn(camera, {"grab", "--timeout", "300", "-o", "a.raw"});
    if (IsExact()) {
        EXPECT_EQ(result.code, 1);
        return;
    }
    EXPECT_EQ(result.code, 5);
    EXPECT_NE(result.errors.find("the camera is started without its features"), std::string::npos)
        << result.errors;
    EXPECT_EQ(RunOn(camera, {"grab", "--set", "Width=8", "-o", "a.raw"}).code, 1);
}

} // namespace
