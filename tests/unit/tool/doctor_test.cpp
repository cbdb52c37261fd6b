#include "tool_doctor.h"

#include <fstream>
#include <gtest/gtest.h>
#include <sstream>

#include "tool_udev_rule.h"
#include "usb_machine.h"

namespace {

using Level = Finding::Level;

constexpr const char* kProgram = "'/a folder/zr-u3v'";

// The finding of that check; fails the test when there is none.
Finding Find(const std::vector<Finding>& findings, const std::string& check)
{
    for (const Finding& finding : findings) {
        if (finding.check == check) {
            return finding;
        }
    }
    ADD_FAILURE() << "no finding " << check;
    return {Level::Skipped, "", "", "", ""};
}

TEST(Doctor, HealthyMachine_HasNothingToMend)
{
    const UsbMachine machine;
    machine.AddCamera();
    machine.AddRule();
    for (const Finding& finding : JudgeUsb(machine.Tree(), kProgram)) {
        EXPECT_EQ(finding.level, Level::Good) << finding.text;
        EXPECT_EQ(finding.remedy, "");
    }
}

TEST(Doctor, NoBus_IsTold)
{
    const ScratchFolder folder;
    const auto findings = JudgeUsb(UsbTree(folder.Path()), kProgram);
    ASSERT_EQ(findings.size(), 1u);
    EXPECT_EQ(findings[0].level, Level::Problem);
}

TEST(Doctor, NoCamera_IsTold)
{
    const UsbMachine machine;
    machine.AddMouse();
    EXPECT_EQ(Find(JudgeUsb(machine.Tree(), kProgram), "usb").level, Level::Problem);
}

TEST(Doctor, NoRuleAndNoPermission_TheRemedyIsTheRule)
{
    const UsbMachine machine;
    machine.AddCamera();
    const auto findings = JudgeUsb(machine.Tree(false), kProgram);
    EXPECT_EQ(Find(findings, "udev-rule").level, Level::Warning);
    const Finding permissions = Find(findings, "permissions");
    EXPECT_EQ(permissions.level, Level::Problem);
    EXPECT_EQ(permissions.camera, "CAM1");
    EXPECT_EQ(permissions.remedy,
              "'/a folder/zr-u3v' doctor --udev-rule | sudo tee /etc/udev/rules.d/70-zr-u3v.rules "
              "&& sudo udevadm control --reload && sudo udevadm trigger --subsystem-match=usb");
    EXPECT_EQ(Find(findings, "udev-rule").remedy, permissions.remedy);
}

TEST(Doctor, RuleButNoPermission_TheRemedyIsToApplyIt)
{
    const UsbMachine machine;
    machine.AddCamera();
    machine.AddRule();
    const Finding permissions = Find(JudgeUsb(machine.Tree(false), kProgram), "permissions");
    EXPECT_EQ(permissions.level, Level::Problem);
    EXPECT_EQ(permissions.remedy.find("sudo udevadm trigger"), 0u);
}

TEST(Doctor, NoDeviceNode_IsTold)
{
    const UsbMachine machine;
    machine.AddCamera();
    machine.RemoveNode();
    const Finding permissions = Find(JudgeUsb(machine.Tree(), kProgram), "permissions");
    EXPECT_EQ(permissions.level, Level::Problem);
    EXPECT_NE(permissions.text.find("/dev/bus/usb/002/003"), std::string::npos);
}

TEST(Doctor, KernelDriver_TheRemedyUnbindsThatInterface)
{
    const UsbMachine machine;
    machine.AddCamera();
    machine.Bind("2-1:1.1", "uvcvideo");
    const Finding driver = Find(JudgeUsb(machine.Tree(), kProgram), "driver");
    EXPECT_EQ(driver.level, Level::Problem);
    EXPECT_EQ(driver.remedy, "echo 2-1:1.1 | sudo tee /sys/bus/usb/drivers/uvcvideo/unbind");
}

TEST(Doctor, AnotherProcess_IsNamed)
{
    const UsbMachine machine;
    machine.AddCamera();
    machine.Bind("2-1:1.0", "usbfs");
    machine.AddProcess(4711, "viewer", "/dev/bus/usb/002/003");
    const auto findings = JudgeUsb(machine.Tree(), kProgram);
    EXPECT_EQ(Find(findings, "driver").level, Level::Good) << "usbfs is no foreign driver";
    const Finding use = Find(findings, "in-use");
    EXPECT_EQ(use.level, Level::Problem);
    EXPECT_EQ(use.text, "process 4711 (viewer) holds the camera");
    EXPECT_EQ(use.remedy, "kill 4711");
}

TEST(Doctor, ClaimedByAProcessOutOfSight_IsTold)
{
    const UsbMachine machine;
    machine.AddCamera();
    machine.Bind("2-1:1.0", "usbfs");
    const Finding use = Find(JudgeUsb(machine.Tree(), kProgram), "in-use");
    EXPECT_EQ(use.level, Level::Problem);
    EXPECT_EQ(use.remedy, "sudo fuser -k -TERM /dev/bus/usb/002/003");
}

TEST(Doctor, SlowPort_IsTold)
{
    const UsbMachine machine;
    machine.AddCamera("2-1", "480");
    const Finding speed = Find(JudgeUsb(machine.Tree(), kProgram), "speed");
    EXPECT_EQ(speed.level, Level::Problem);
    EXPECT_NE(speed.text.find("480 Mbit/s"), std::string::npos);
}

TEST(Doctor, SpeedNotTold_IsSkipped)
{
    const UsbMachine machine;
    machine.AddCamera("2-1", "unknown");
    EXPECT_EQ(Find(JudgeUsb(machine.Tree(), kProgram), "speed").level, Level::Skipped);
}

TEST(Doctor, RuleThatIsHandedOut_IsTheInstalledOne)
{
    std::ifstream file(ZR_UDEV_RULE);
    std::ostringstream rule;
    rule << file.rdbuf();
    ASSERT_FALSE(rule.str().empty());
    EXPECT_EQ(UdevRule(), rule.str());
}

TEST(Doctor, Environment_NamesTheFolderOrTheFile)
{
    const std::string producer = "/opt/zr/gentlproducer/zr_u3v_tl.cti";
    for (const char* const list : {"/opt/zr/gentlproducer", "/a:/opt/zr/gentlproducer/:/b",
                                   "/opt/zr/gentlproducer/zr_u3v_tl.cti"}) {
        EXPECT_EQ(JudgeEnvironment("GENICAM_GENTL64_PATH", list, producer).level, Level::Good)
            << list;
    }
    for (const char* const list :
         {"", "/opt/zr", "/opt/zr/gentlproducer2", "/x/opt/zr/gentlproducer"}) {
        EXPECT_EQ(JudgeEnvironment("GENICAM_GENTL64_PATH", list, producer).level, Level::Warning)
            << list;
    }
    EXPECT_EQ(JudgeEnvironment("GENICAM_GENTL64_PATH", nullptr, producer).remedy,
              "export GENICAM_GENTL64_PATH=\"${GENICAM_GENTL64_PATH:+$GENICAM_GENTL64_PATH:}"
              "/opt/zr/gentlproducer\"");
}

TEST(Doctor, Description_HasToBeOne)
{
    Description description;
    description.name = "camera.xml";
    description.contents = "<RegisterDescription></RegisterDescription>";
    EXPECT_EQ(JudgeDescription("C", description).level, Level::Good);
    description.contents = "<html></html>";
    const Finding other = JudgeDescription("C", description);
    EXPECT_EQ(other.level, Level::Problem);
    EXPECT_EQ(other.text, "the description file is no GenICam document");
    description.contents = "PK\x03\x04 and nothing of an archive";
    description.isZipped = true;
    const Finding damaged = JudgeDescription("C", description);
    EXPECT_EQ(damaged.level, Level::Problem);
    EXPECT_EQ(damaged.text.find("the description file cannot be unpacked: "), 0u);
    EXPECT_EQ(damaged.remedy, "zr-u3v xml -o description.xml");
}

TEST(Doctor, SpeedThatTheCameraReports_IsJudged)
{
    EXPECT_EQ(JudgeCameraSpeed("C", {3072, 52, 32, 3, 4}).level, Level::Problem);
    EXPECT_EQ(JudgeCameraSpeed("C", {3072, 52, 32, 3, 8}).level, Level::Good);
    EXPECT_EQ(JudgeCameraSpeed("C", {3072, 52, 32, 3, 16}).level, Level::Good);
}

TEST(Doctor, Memory_IsHeldAgainstTheImages)
{
    constexpr uint64_t kMebibyte = 1U << 20U;
    EXPECT_EQ(JudgeMemory(std::nullopt, {})[0].level, Level::Skipped);
    EXPECT_EQ(JudgeMemory(0, {99 * kMebibyte})[0].level, Level::Good);
    EXPECT_EQ(JudgeMemory(16, {4 * kMebibyte})[0].level, Level::Good);
    EXPECT_EQ(JudgeMemory(16, {4 * kMebibyte + 1})[0].level, Level::Warning);
    const Finding warning = JudgeMemory(16, {20 * kMebibyte})[0];
    EXPECT_EQ(warning.level, Level::Warning);
    EXPECT_EQ(warning.remedy.find("echo 64 | sudo tee "
                                  "/sys/module/usbcore/parameters/usbfs_memory_mb"),
              0u);
    EXPECT_EQ(JudgeMemory(1, {2 * kMebibyte})[0].level, Level::Problem);
    EXPECT_EQ(JudgeMemory(16, {~uint64_t{0}, ~uint64_t{0}})[0].level, Level::Warning);
}

TEST(Doctor, CamerasThatAreNotListed_AreTold)
{
    for (const bool isExact : {false, true}) {
        EXPECT_EQ(JudgeListed(1, 1, isExact)[0].level, Level::Good);
        EXPECT_EQ(JudgeListed(1, 0, isExact)[0].level, Level::Problem);
        EXPECT_EQ(JudgeListed(2, 1, isExact)[0].level, Level::Problem);
        EXPECT_EQ(JudgeListed(0, 0, isExact)[0].level, Level::Problem);
    }
    EXPECT_EQ(JudgeListed(1, 0, false)[0].text, "1 camera(s) on the bus, 0 listed");
    EXPECT_NE(JudgeListed(2, 1, true)[0].text.find("of the vendor"), std::string::npos);
}

TEST(Doctor, Stream_IsJudgedPerCamera)
{
    const StreamNeeds usual{3072, 52, 32, 3, 8};
    EXPECT_EQ(JudgeStream("C", usual, CheckStream(usual))[0].level, Level::Good);
    const StreamNeeds alike{3072, 64, 64, 3, 8};
    EXPECT_EQ(JudgeStream("C", alike, {})[0].level, Level::Good);
    const Finding bad = JudgeStream("C", alike, CheckStream(alike))[0];
    EXPECT_EQ(bad.level, Level::Problem);
    EXPECT_EQ(bad.camera, "C");
    EXPECT_EQ(bad.text.find("no image will arrive"), 0u);
}

} // namespace
