#include "vhci_controller.h"

#include <filesystem>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

namespace {

using namespace vcam;

// A folder with files like the kernel's.
class Controller : public ::testing::Test
{
protected:
    Controller() : m_folder(std::filesystem::path(::testing::TempDir()) / Name())
    {
        std::filesystem::remove_all(m_folder);
        std::filesystem::create_directories(m_folder);
        Write("attach", "");
    }
    ~Controller() override { std::filesystem::remove_all(m_folder); }

    static std::string Name()
    {
        return "vhci." + std::to_string(::getpid()) + "." +
               ::testing::UnitTest::GetInstance()->current_test_info()->name();
    }
    void Write(const std::string& name, const std::string& text) const
    {
        std::ofstream(m_folder / name) << text;
    }
    std::string Attached() const
    {
        std::ostringstream text;
        text << std::ifstream(m_folder / "attach").rdbuf();
        return text.str();
    }
    VhciController Make() const { return VhciController(m_folder.string()); }

    // The reason for which attaching fails.
    std::string Failure(bool highSpeed = false) const
    {
        try {
            Make().Attach(FileDescriptor(), highSpeed, 65538);
        } catch (const VhciError& error) {
            return error.what();
        }
        return {};
    }

    std::filesystem::path m_folder;
    static constexpr const char* kTitle = "hub port sta spd dev      sockfd local_busid\n";
};

TEST_F(Controller, FirstFreeSuperSpeedPort_IsTaken)
{
    Write("status", std::string(kTitle) + "hs  0000 004 000 00000000 000000 0-0\n"
                                          "ss  0008 006 005 00010002 000003 2-1\n"
                                          "ss  0009 004 000 00000000 000000 0-0\n");
    EXPECT_EQ(Make().Attach(FileDescriptor(), false, 65538), 9);
    EXPECT_EQ(Attached(), "9 -1 65538 5");
}

TEST_F(Controller, HighSpeed_TakesThatHub)
{
    Write("status", std::string(kTitle) + "hs  0003 004 000 00000000 000000 0-0\n"
                                          "ss  0008 004 000 00000000 000000 0-0\n");
    EXPECT_EQ(Make().Attach(FileDescriptor(), true, 65539), 3);
    EXPECT_EQ(Attached(), "3 -1 65539 3");
}

TEST_F(Controller, FirstControllerFull_TheNextOneServes)
{
    Write("status", std::string(kTitle) + "ss  0008 006 005 00010002 000003 2-1\n");
    Write("status.1", std::string(kTitle) + "ss  0024 004 000 00000000 000000 0-0\n");
    EXPECT_EQ(Make().Attach(FileDescriptor(), false, 65538), 24);
}

TEST_F(Controller, NoFreePort_NamesDetach)
{
    Write("status", std::string(kTitle) + "ss  0008 006 005 00010002 000003 2-1\n"
                                          "hs  0000 004 000 00000000 000000 0-0\n");
    const std::string reason = Failure();
    EXPECT_NE(reason.find("no free SuperSpeed port"), std::string::npos) << reason;
    EXPECT_NE(reason.find("usbip detach -p"), std::string::npos) << reason;
}

TEST_F(Controller, NoModule_NamesModprobe)
{
    const std::string reason = Failure();
    EXPECT_NE(reason.find("sudo modprobe vhci-hcd"), std::string::npos) << reason;
}

TEST_F(Controller, NoRight_NamesSudo)
{
    Write("status", kTitle);
    std::filesystem::remove(m_folder / "attach"); // root may write everything that is there
    const std::string reason = Failure();
    EXPECT_NE(reason.find("as root"), std::string::npos) << reason;
}

TEST_F(Controller, WaitFree_TellsPortsApart)
{
    using std::chrono::milliseconds;
    Write("status", std::string(kTitle) + "ss  0008 006 005 00010002 000003 2-1\n"
                                          "ss  0009 004 000 00000000 000000 0-0\n");
    EXPECT_FALSE(Make().WaitFree(8, milliseconds(30)));
    EXPECT_TRUE(Make().WaitFree(9, milliseconds(30)));
}

} // namespace
