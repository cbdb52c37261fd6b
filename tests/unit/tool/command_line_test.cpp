#include "tool_command_line.h"

#include <gtest/gtest.h>
#include <vector>

namespace {

CommandLine Parse(std::vector<const char*> arguments)
{
    arguments.insert(arguments.begin(), "zr-u3v");
    return ParseCommandLine(static_cast<int>(arguments.size()), arguments.data());
}

TEST(CommandLine, Nothing_IsRefused)
{
    const CommandLine line = Parse({});
    EXPECT_FALSE(line.options);
    EXPECT_EQ(line.code, ExitCode::Usage);
}

TEST(CommandLine, UnknownCommand_IsNamed)
{
    const CommandLine line = Parse({"lst"});
    EXPECT_EQ(line.code, ExitCode::Usage);
    EXPECT_EQ(line.text, "there is no command \"lst\"");
}

TEST(CommandLine, UnexpectedArgument_IsNamed)
{
    const CommandLine line = Parse({"list", "foo"});
    EXPECT_EQ(line.code, ExitCode::Usage);
    EXPECT_EQ(line.text, "unexpected argument \"foo\"");
}

TEST(CommandLine, Help_IsNoFailure)
{
    const CommandLine line = Parse({"--help"});
    EXPECT_FALSE(line.options);
    EXPECT_EQ(line.code, ExitCode::Success);
    EXPECT_NE(line.text.find("Exit codes:"), std::string::npos);
}

TEST(CommandLine, HelpOfACommand_IsOfThatCommand)
{
    EXPECT_NE(Parse({"grab", "--help"}).text.find("--no-demosaic"), std::string::npos);
}

TEST(CommandLine, ProgramOptions_AreUnderstoodBehindTheCommandToo)
{
    const CommandLine line = Parse({"list", "--json", "-q", "--virtual"});
    ASSERT_TRUE(line.options);
    EXPECT_EQ(line.options->command, "list");
    EXPECT_TRUE(line.options->json);
    EXPECT_TRUE(line.options->quiet);
    EXPECT_TRUE(line.options->isVirtual);
}

TEST(CommandLine, VirtualCameraOptions_MeanVirtualAndAreKeptWhole)
{
    const CommandLine line =
        Parse({"--virtual-camera", "width=8,height=4", "--virtual-camera", "format=RGB8", "list"});
    ASSERT_TRUE(line.options);
    EXPECT_TRUE(line.options->isVirtual);
    EXPECT_EQ(line.options->virtualCameras,
              (std::vector<std::string>{"width=8,height=4", "format=RGB8"}));
}

TEST(CommandLine, NumbersOfImages_HaveTheirDefaultByCommand)
{
    EXPECT_EQ(Parse({"grab"}).options->images, 1u);
    EXPECT_EQ(Parse({"bench"}).options->images, 200u);
    EXPECT_EQ(Parse({"view"}).options->images, 0u);
    EXPECT_EQ(Parse({"grab", "-n", "7"}).options->images, 7u);
}

TEST(CommandLine, TimeToLookForCameras_IsLongWhereItIsNotUsedUp)
{
    EXPECT_EQ(Parse({"list"}).options->discovery_ms, 5000u);
    EXPECT_EQ(Parse({"--exact", "list"}).options->discovery_ms, 500u);
    EXPECT_EQ(Parse({"--producer", "x.cti", "list"}).options->discovery_ms, 500u);
    EXPECT_EQ(Parse({"--exact", "list", "--discovery-time", "7"}).options->discovery_ms, 7u);
}

TEST(CommandLine, Producer_IsOneOrTheOther)
{
    EXPECT_FALSE(Parse({"list"}).options->exact);
    EXPECT_TRUE(Parse({"list", "--exact"}).options->exact);
    EXPECT_EQ(Parse({"--cti", "x.cti", "list"}).options->producer, "x.cti");
    EXPECT_EQ(Parse({"--exact", "--producer", "x.cti", "list"}).code, ExitCode::Usage);
}

TEST(CommandLine, Settings_KeepTheirOrder)
{
    const CommandLine line = Parse({"grab", "--set", "B=1", "--set", "A=x,y", "-n", "2"});
    ASSERT_TRUE(line.options);
    EXPECT_EQ(line.options->settings, (std::vector<std::string>{"B=1", "A=x,y"}));
    EXPECT_EQ(Parse({"grab", "--trigger", "hardware"}).code, ExitCode::Usage);
}

TEST(CommandLine, NumberOutOfRange_IsToldInPlainWords)
{
    EXPECT_EQ(Parse({"grab", "-n", "0"}).text, "--images: 0 is not between 1 and 1000000000");
    EXPECT_EQ(Parse({"grab", "--buffers", "2000"}).code, ExitCode::Usage);
    EXPECT_EQ(Parse({"grab", "--timeout", "-5"}).code, ExitCode::Usage);
    EXPECT_EQ(Parse({"grab", "--timeout", "99999999999"}).code, ExitCode::Usage);
}

TEST(CommandLine, UnknownPort_IsRefused)
{
    EXPECT_EQ(Parse({"read", "0", "-p", "moon"}).code, ExitCode::Usage);
    EXPECT_EQ(Parse({"xml", "moon"}).code, ExitCode::Usage);
    EXPECT_EQ(Parse({"xml", "all"}).options->port, "all");
    EXPECT_EQ(Parse({"xml"}).options->port, "camera");
}

} // namespace
