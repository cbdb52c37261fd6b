#include "command_line.h"

#include <gtest/gtest.h>

#include "fault_plan.h"

namespace {

using namespace vcam;
using Mode = CommandLine::Mode;

CommandLine Good(const std::vector<std::string>& arguments)
{
    CommandLine line;
    EXPECT_EQ(line.Parse(arguments), "");
    return line;
}

std::string Bad(const std::vector<std::string>& arguments)
{
    CommandLine line;
    return line.Parse(arguments);
}

TEST(CommandLine, Attach_OneCameraOfTheServedKind)
{
    const CommandLine line = Good({"--attach"});
    EXPECT_EQ(line.mode, Mode::Attach);
    ASSERT_EQ(line.cameras.size(), 1u);
    EXPECT_EQ(line.cameras[0].leaderSize, 52u);
    EXPECT_EQ(line.cameras[0].trailerSize, 32u);
    EXPECT_LE(line.cameras[0].alignment, 3u);
    EXPECT_FALSE(line.cameras[0].strict);
}

TEST(CommandLine, Listen_LoopbackUnlessToldOtherwise)
{
    const CommandLine line = Good({"--listen"});
    EXPECT_EQ(line.mode, Mode::Listen);
    EXPECT_EQ(line.address, "127.0.0.1");
    EXPECT_EQ(line.port, 3240);
}

TEST(CommandLine, Listen_AddressAndPortInEveryForm)
{
    EXPECT_EQ(Good({"--listen", "0.0.0.0"}).address, "0.0.0.0");
    EXPECT_EQ(Good({"--listen=0.0.0.0:3241"}).port, 3241);
    EXPECT_EQ(Good({"--listen=:99"}).port, 99);
    EXPECT_EQ(Good({"--listen=:99"}).address, "127.0.0.1");
    EXPECT_EQ(Good({"--listen", "[::1]:7"}).address, "::1");
    EXPECT_EQ(Good({"--listen", "[::1]:7"}).port, 7);
    EXPECT_EQ(Good({"--listen", "--zip"}).address, "127.0.0.1");
    EXPECT_NE(Bad({"--listen=1.2.3.4:70000"}), "");
}

TEST(CommandLine, Count_NumbersTheCameras)
{
    const CommandLine line = Good({"--attach", "--count", "3"});
    ASSERT_EQ(line.cameras.size(), 3u);
    EXPECT_EQ(line.cameras[2].guid, "120900000003");
    EXPECT_EQ(line.cameras[2].serial, "VC000003");
    EXPECT_EQ(line.cameras[2].seed, 3u);
}

TEST(CommandLine, EveryCameraOption_IsAnOption)
{
    const CommandLine line = Good({"--attach", "--size", "64x48", "--format=RGB8", "--fps", "12.5",
                                   "--zip", "--strict=1", "--alignment", "6", "--leader=128",
                                   "--trailer", "64", "--unplug-after=10", "--replug-ms", "500",
                                   "--faults", "leader-lost@3,payload-short"});
    const CameraConfig& camera = line.cameras[0];
    EXPECT_EQ(camera.width, 64u);
    EXPECT_EQ(camera.height, 48u);
    EXPECT_EQ(camera.format, "RGB8");
    EXPECT_EQ(camera.fps, 12.5);
    EXPECT_TRUE(camera.zip);
    EXPECT_TRUE(camera.strict);
    EXPECT_EQ(camera.alignment, 6u);
    EXPECT_EQ(camera.leaderSize, 128u);
    EXPECT_EQ(camera.trailerSize, 64u);
    EXPECT_EQ(camera.unplugAfter, 10u);
    EXPECT_EQ(camera.replugMs, 500u);
    EXPECT_EQ(camera.faults, "leader-lost@3,payload-short");
}

TEST(CommandLine, Camera_HasItsOwnOverTheCommonOnes)
{
    const CommandLine line =
        Good({"--attach", "--width=100", "--camera", "serial=A,width=50", "--camera", "user=left"});
    ASSERT_EQ(line.cameras.size(), 2u);
    EXPECT_EQ(line.cameras[0].serial, "A");
    EXPECT_EQ(line.cameras[0].width, 50u);
    EXPECT_EQ(line.cameras[1].user, "left");
    EXPECT_EQ(line.cameras[1].width, 100u);
}

TEST(CommandLine, Mistakes_AreNamed)
{
    EXPECT_NE(Bad({}).find("--attach"), std::string::npos);
    EXPECT_NE(Bad({"--attach", "--wdith", "3"}).find("--wdith"), std::string::npos);
    EXPECT_NE(Bad({"--attach", "now"}).find("now"), std::string::npos);
    EXPECT_NE(Bad({"--attach", "--width"}).find("needs a value"), std::string::npos);
    EXPECT_NE(Bad({"--attach", "--width=abc"}).find("width"), std::string::npos);
    EXPECT_NE(Bad({"--attach", "--size", "640"}).find("WIDTHxHEIGHT"), std::string::npos);
    EXPECT_NE(Bad({"--attach", "--count", "0"}).find("--count"), std::string::npos);
    EXPECT_NE(Bad({"--attach", "--count", "1000000"}).find("--count"), std::string::npos);
    EXPECT_NE(Bad({"--attach", "--listen"}).find("exclude"), std::string::npos);
    EXPECT_NE(Bad({"--attach", "--camera", "colour=red"}).find("colour"), std::string::npos);
    EXPECT_NE(Bad({"--attach", "--faults", "nonsense"}).find("faults"), std::string::npos);
}

TEST(CommandLine, Help_NamesEveryOptionAndFault)
{
    EXPECT_EQ(Good({"--help"}).mode, Mode::Help);
    EXPECT_EQ(Good({"--help", "--attach"}).mode, Mode::Help);
    const std::string help = CommandLine::Help();
    for (const OptionName& option : OptionNames()) {
        EXPECT_NE(help.find(std::string("  --") + option.key), std::string::npos) << option.key;
    }
    for (const FaultName& fault : FaultNames()) {
        EXPECT_NE(help.find(fault.name), std::string::npos) << fault.name;
    }
}

} // namespace
