// The text forms: fault lists and camera options.

#include <fstream>

#include "camera_host.h"

using vcam::FaultPlan;

TEST(FaultPlan, Parse_EveryPartOfAnEntry)
{
    FaultPlan plan;
    EXPECT_EQ("", plan.Parse("reply-status%w0x204@3*2:0x8007+leader-lost@5"));
    const vcam::Fault* fault = plan.Find("reply-status");
    ASSERT_NE(nullptr, fault);
    EXPECT_EQ('w', fault->direction);
    EXPECT_EQ(0x204U, fault->address);
    EXPECT_EQ(3U, fault->first);
    EXPECT_EQ(2U, fault->count);
    EXPECT_EQ(0x8007, fault->value);
    EXPECT_NE(nullptr, plan.Find("leader-lost"));
}

TEST(FaultPlan, Parse_Mistakes_AreRefusedAndChangeNothing)
{
    FaultPlan plan;
    EXPECT_EQ("", plan.Parse("leader-lost"));
    for (const char* text : {"no-such-fault", "leader-lost@", "leader-lost@x", "leader-lost@-1",
                             "leader-lost5", "reply-late:", "pending%", "pending%z"}) {
        EXPECT_NE("", plan.Parse(text)) << text;
    }
    EXPECT_NE(nullptr, plan.Find("leader-lost"));
}

TEST(FaultPlan, Fire_CountsItsOwnOpportunities)
{
    FaultPlan plan;
    plan.Parse("open-busy@1*2");
    std::string hits;
    for (int i = 0; i < 5; ++i) {
        hits += plan.Fire("open-busy") != nullptr ? 'x' : '.';
    }
    EXPECT_EQ(".xx..", hits);
    EXPECT_EQ(2U, plan.Played());
}

TEST(FaultPlan, Fire_WithoutPlace_Always)
{
    FaultPlan plan;
    plan.Parse("open-busy");
    EXPECT_NE(nullptr, plan.Fire("open-busy"));
    EXPECT_NE(nullptr, plan.Fire("open-busy"));
    EXPECT_EQ(nullptr, plan.Fire("claim-busy"));
}

TEST(FaultPlan, FireOnCommand_OnlyMatchingCommandsCount)
{
    FaultPlan plan;
    plan.Parse("reply-missing%r0x100@1");
    EXPECT_EQ(nullptr, plan.FireOnCommand("reply-missing", 'r', 0x100, 4));
    EXPECT_EQ(nullptr, plan.FireOnCommand("reply-missing", 'w', 0x100, 4));
    EXPECT_EQ(nullptr, plan.FireOnCommand("reply-missing", 'r', 0x104, 4));
    EXPECT_EQ(nullptr, plan.FireOnCommand("reply-missing", 'r', 0xFC, 4));
    EXPECT_NE(nullptr, plan.FireOnCommand("reply-missing", 'r', 0xFD, 4));
}

TEST(FaultPlan, Names_AllParse)
{
    for (const vcam::FaultName& name : vcam::FaultNames()) {
        EXPECT_EQ("", FaultPlan().Parse(name.name));
    }
}

TEST(CameraConfig, Apply_ValuesAndFaultList)
{
    const vcam::CameraConfig config =
        Config("width=320,faults=leader-lost@5,trailer-lost@7,zip=1,format=RGB8,fps=12.5");
    EXPECT_EQ(320U, config.width);
    EXPECT_EQ("leader-lost@5,trailer-lost@7", config.faults);
    EXPECT_TRUE(config.zip);
    EXPECT_EQ("RGB8", config.format);
    EXPECT_DOUBLE_EQ(12.5, config.fps);
}

TEST(CameraConfig, Apply_Mistakes_AreRefusedAndChangeNothing)
{
    vcam::CameraConfig config;
    for (const char* text : {"width=0",
                             "width=x",
                             "width=99999",
                             "height=",
                             "format=Mono7",
                             "fps=-1",
                             "fps=fast",
                             "zip=2",
                             "no=1",
                             "word",
                             "faults=nothing",
                             "pattern=plaid",
                             "padding=some",
                             "unused=all",
                             "payload=film",
                             "manifest=1",

                             "manifest=1.1/packed",
                             "stream-registers=open",
                             "leader=51",
                             "trailer=31"}) {
        EXPECT_NE("", config.Apply(std::string("serial=changed,") + text)) << text;
    }
    EXPECT_EQ("VC000001", config.serial);
}

TEST(CameraConfig, Numbered_CountsIdentityOn)
{
    const vcam::CameraConfig third = vcam::CameraConfig().Numbered(2);
    EXPECT_EQ("120900000003", third.guid);
    EXPECT_EQ("VC000003", third.serial);
    EXPECT_EQ(3U, third.seed);
}

// --- the tables and their readers ------------------------------------------------------------

TEST(Options, EachKeyAndFault_HasItsPlaceInTheReadme)
{
    std::ifstream file(VCAM_README);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    ASSERT_NE("", text);
    for (const vcam::OptionName& option : vcam::OptionNames()) {
        EXPECT_NE(std::string::npos, text.find("`" + std::string(option.key) + "`")) << option.key;
    }
    for (const vcam::FaultName& fault : vcam::FaultNames()) {
        const bool found = text.find("`" + std::string(fault.name) + "`") != std::string::npos ||
                           text.find("`" + std::string(fault.name) + ":") != std::string::npos;
        EXPECT_TRUE(found) << fault.name;
    }
}
