#include "tool_usb_tree.h"

#include <gtest/gtest.h>
#include <sstream>

#include "usb_machine.h"

namespace {

TEST(UsbTree, EmptyMachine_HasNothing)
{
    const ScratchFolder folder;
    const UsbTree usb(folder.Path());
    EXPECT_FALSE(usb.IsThere());
    EXPECT_TRUE(usb.Cameras().empty());
    EXPECT_FALSE(usb.UsbfsMemory());
    EXPECT_EQ(usb.RuleFile(), "");
    EXPECT_TRUE(usb.Holders("/dev/bus/usb/002/003").empty());
}

TEST(UsbTree, OnlyCamerasAreListed_WithTheirFacts)
{
    const UsbMachine machine;
    machine.AddCamera();
    machine.AddMouse();
    const auto cameras = machine.Tree().Cameras();
    ASSERT_EQ(cameras.size(), 1u);
    EXPECT_EQ(cameras[0].name, "2-1");
    EXPECT_EQ(cameras[0].vendorId, "1209");
    EXPECT_EQ(cameras[0].serial, "CAM1");
    EXPECT_EQ(cameras[0].speed, 5000u);
    EXPECT_EQ(cameras[0].node, "/dev/bus/usb/002/003");
    ASSERT_EQ(cameras[0].interfaces.size(), 2u);
    EXPECT_EQ(cameras[0].interfaces[0].name, "2-1:1.0");
    EXPECT_EQ(cameras[0].interfaces[0].driver, "");
}

TEST(UsbTree, InterfacesOfALongerNamedDevice_AreNotTaken)
{
    const UsbMachine machine;
    machine.AddCamera("2-1");
    machine.AddCamera("2-1.4");
    EXPECT_EQ(machine.Tree().Cameras()[0].interfaces.size(), 2u);
    EXPECT_EQ(machine.Tree().Cameras().size(), 2u);
}

TEST(UsbTree, BoundDriver_IsNamed)
{
    const UsbMachine machine;
    machine.AddCamera();
    machine.Bind("2-1:1.1", "uvcvideo");
    EXPECT_EQ(machine.Tree().Cameras()[0].interfaces[1].driver, "uvcvideo");
}

TEST(UsbTree, ProcessWithTheNodeOpen_IsFound)
{
    const UsbMachine machine;
    machine.AddCamera();
    machine.AddProcess(4711, "viewer", "/dev/bus/usb/002/003");
    machine.AddProcess(4712, "other", "/dev/bus/usb/002/004");
    const auto holders = machine.Tree().Holders("/dev/bus/usb/002/003");
    ASSERT_EQ(holders.size(), 1u);
    EXPECT_EQ(holders[0].pid, 4711);
    EXPECT_EQ(holders[0].command, "viewer");
}

TEST(UsbTree, Rules_CountOnlyWhenTheyNameCamerasAndGrant)
{
    const UsbMachine machine;
    machine.Folder().Write("/etc/udev/rules.d/50-other.rules", "SUBSYSTEM==\"net\", MODE=\"0666\"");
    EXPECT_EQ(machine.Tree().RuleFile(), "");
    machine.AddRule();
    EXPECT_EQ(machine.Tree().RuleFile(), "/usr/lib/udev/rules.d/70-zr-u3v.rules");
}

TEST(UsbTree, RulesThatAreCommentedOut_DoNotCount)
{
    const UsbMachine machine;
    machine.Folder().Write("/etc/udev/rules.d/70-old.rules",
                           "#SUBSYSTEM==\"usb\", ATTR{bDeviceClass}==\"ef\", TAG+=\"uaccess\"\n");
    EXPECT_EQ(machine.Tree().RuleFile(), "");
}

TEST(UsbTree, TheRuleThatIsInstalled_Counts)
{
    std::ifstream file(ZR_UDEV_RULE);
    std::ostringstream rule;
    rule << file.rdbuf();
    ASSERT_FALSE(rule.str().empty());
    const UsbMachine machine;
    machine.Folder().Write("/etc/udev/rules.d/70-zr-u3v.rules", rule.str());
    EXPECT_EQ(machine.Tree().RuleFile(), "/etc/udev/rules.d/70-zr-u3v.rules");
}

TEST(UsbTree, MemoryLimit_IsRead)
{
    const UsbMachine machine;
    machine.SetMemory("16\n");
    EXPECT_EQ(machine.Tree().UsbfsMemory(), 16u);
}

} // namespace
