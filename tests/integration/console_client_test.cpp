// The console client as a user meets it: the built program in a process of its own, with the
// virtual bus in front of it and its menus fed through a pipe.

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <memory>
#include <spawn.h>
#include <sstream>
#include <stdexcept>
#include <sys/wait.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>
#include <virtual_bus.h>
#include <wait.h>

namespace fs = std::filesystem;

namespace {

// The listing alone takes the 5 s that the client gives the bus; the rest is for busy machines.

const char kWaitForEnter[] = "please enter to continue...\n";
const char kMainMenu[] = "Please Select Device..\n";
const char kDeviceMenu[] = "1.Print Info\n2.Open Device\n3.Exit\n";
const char kOpenDeviceMenu[] =
    "1.Print Device xml\n2.Open Data Stream Module\n3.Reboot Camera\n4.Exit\n";
const char kStreamMenu[] = "1.Start Acquisition\n2.Stop Acquisition\n3.Exit\n";
const char kFrame[] = "tImage Received FrameId:";

std::string Content(const fs::path& path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

size_t Count(const std::string& text, const std::string& part)
{
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
}

// What to give a new process; freed with it.
class SpawnActions
{
public:
    SpawnActions() { _check(posix_spawn_file_actions_init(&m_actions)); }
    ~SpawnActions() { posix_spawn_file_actions_destroy(&m_actions); }
    SpawnActions(const SpawnActions&) = delete;
    SpawnActions& operator=(const SpawnActions&) = delete;

    void Input(int descriptor)
    {
        _check(posix_spawn_file_actions_adddup2(&m_actions, descriptor, STDIN_FILENO));
    }
    void Output(int descriptor, const fs::path& file)
    {
        _check(posix_spawn_file_actions_addopen(&m_actions, descriptor, file.c_str(),
                                                O_WRONLY | O_CREAT | O_TRUNC, 0600));
    }
    void Folder(const fs::path& folder)
    {
        _check(posix_spawn_file_actions_addchdir_np(&m_actions, folder.c_str()));
    }
    pid_t Run(const char* program) const
    {
        char* const arguments[] = {const_cast<char*>(program), nullptr};
        pid_t process = -1;
        _check(posix_spawn(&process, program, &m_actions, nullptr, arguments, environ));
        return process;
    }

private:
    static void _check(int error)
    {
        if (error != 0) {
            throw std::system_error(error, std::generic_category(), "spawn");
        }
    }

    posix_spawn_file_actions_t m_actions;
};

// One run of the client in an empty folder. What it writes goes to files beside that folder, so
// that it never waits for a reader.
class Client
{
public:
    explicit Client(const std::string& cameras);
    ~Client();
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    void Type(const std::string& keys) const;
    void EndInput();
    // Waits until the text stands there so often; false when it does not come.
    bool Shows(const std::string& text, size_t times = 1) const;
    // Waits for the end and answers the exit status, or -1 if there is none to be had.
    int ExitStatus();

    std::string Output() const { return Content(m_folder / "stdout"); }
    std::string Errors() const { return Content(m_folder / "stderr"); }
    std::vector<std::string> Files() const;
    std::string File(const std::string& name) const { return Content(_workFolder() / name); }

private:
    fs::path _workFolder() const { return m_folder / "work"; }

    fs::path m_folder;
    int m_input = -1;
    pid_t m_process = -1; // until it has been waited for
};

Client::Client(const std::string& cameras)
{
    char name[] = "/tmp/zr_console_client_XXXXXX";
    int ends[2] = {-1, -1};
    if (mkdtemp(name) == nullptr || pipe2(ends, O_CLOEXEC) != 0) {
        throw std::runtime_error("no folder or no pipe");
    }
    m_folder = name;
    m_input = ends[1];
    fs::create_directory(_workFolder());
    setenv("ZR_VIRTUAL_CAMERAS", cameras.c_str(), 1);
    setenv("LD_LIBRARY_PATH", ZR_VIRTUAL_USB_DIR, 1);
    SpawnActions actions;
    actions.Input(ends[0]);
    actions.Output(STDOUT_FILENO, m_folder / "stdout");
    actions.Output(STDERR_FILENO, m_folder / "stderr");
    actions.Folder(_workFolder());
    m_process = actions.Run(ZR_CLIENT_PROGRAM);
    close(ends[0]);
}

Client::~Client()
{
    EndInput();
    if (m_process > 0) {
        kill(m_process, SIGKILL);
        waitpid(m_process, nullptr, 0);
    }
    std::error_code ignored;
    fs::remove_all(m_folder, ignored);
}

void Client::Type(const std::string& keys) const
{
    EXPECT_EQ(write(m_input, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
}

void Client::EndInput()
{
    if (m_input >= 0) {
        close(m_input);
        m_input = -1;
    }
}

bool Client::Shows(const std::string& text, size_t times) const
{
    const bool shown = zr_test::WaitUntil([&] { return Count(Output(), text) >= times; });
    EXPECT_TRUE(shown) << "\"" << text << "\" did not come; there is:\n" << Output();
    return shown;
}

int Client::ExitStatus()
{
    int status = 0;
    pid_t ended = 0;
    if (!zr_test::WaitUntil([&] { return (ended = waitpid(m_process, &status, WNOHANG)) != 0; })) {
        ADD_FAILURE() << "the client does not end; it has written:\n" << Output();
        return -1;
    }
    m_process = -1;
    return ended > 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::vector<std::string> Client::Files() const
{
    std::vector<std::string> names;
    for (const auto& entry : fs::recursive_directory_iterator(_workFolder())) {
        names.push_back(fs::relative(entry.path(), _workFolder()).string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

// The description file that a camera with these options serves.
std::string ServedDocument(const std::string& options)
{
    vusb_reset();
    const auto bytes = vusb::Camera(options).DescriptionFile();
    vusb_reset();
    return std::string(bytes.begin(), bytes.end());
}

// Frame ids in the order of their report lines.
std::vector<int> FrameIds(const std::string& output)
{
    std::vector<int> ids;
    for (size_t at = output.find(kFrame); at != std::string::npos; at = output.find(kFrame, at)) {
        at += std::string(kFrame).size();
        ids.push_back(std::atoi(output.c_str() + at));
    }
    return ids;
}

class ConsoleClient : public ::testing::Test
{
protected:
    // A write to a client that is gone has to be a failed expectation, not the end of the tests.
    static void SetUpTestSuite() { std::signal(SIGPIPE, SIG_IGN); }

    // From the main menu of one camera into its stream menu.
    static void OpenStream(const Client& client, const std::string& camera = "1")
    {
        client.Type(camera + "\n2\n2\n");
        ASSERT_TRUE(client.Shows(kStreamMenu));
    }
    static void ExpectCleanEnd(Client& client)
    {
        EXPECT_EQ(client.ExitStatus(), 0) << client.Output();
        EXPECT_EQ(client.Errors(), "");
        EXPECT_EQ(client.Output().find("Failed!:"), std::string::npos) << client.Output();
        EXPECT_EQ(client.Output().find("failed!:"), std::string::npos) << client.Output();
        EXPECT_TRUE(client.Output().ends_with(kWaitForEnter)) << client.Output();
    }
};

} // namespace

TEST_F(ConsoleClient, Listing_TwoCameras_AreNumberedByTheirNames)
{
    Client client("guid=120900000007,model=Left;guid=120900000008,model=Right");
    ASSERT_TRUE(client.Shows("3.Exit\n"));
    const std::string output = client.Output();
    EXPECT_TRUE(output.starts_with("Opening System...\nOpening System Successful! hTL:0x0x"));
    EXPECT_NE(output.find("\n*************Enumerate Interface****************\n"
                          "[0] Interface Id:ZRK-USB-3-IF ID\n"
                          "\t[0] device Id:120900000007\n"
                          "\t[1] device Id:120900000008\n"
                          "Please Select Device..\n"
                          "1.Left-ZRK-ORVANE GmbH-1.0.0\n"
                          "2.Right-ZRK-ORVANE GmbH-1.0.0\n"
                          "3.Exit\n"),
              std::string::npos)
        << output;
    client.Type("3\n");
    ASSERT_TRUE(client.Shows(kWaitForEnter));
    client.Type("\n"); // the one key that is asked for
    ExpectCleanEnd(client);
    EXPECT_EQ(client.Output(), output + kWaitForEnter);
}

TEST_F(ConsoleClient, PrintInfo_ShowsWhatTheCameraSays)
{
    Client client("serial=SN42,vendor=Vendor,model=Model,user=left one,version=3.1");
    client.Type("1\n1\n3\n2\n\n");
    ExpectCleanEnd(client);
    EXPECT_NE(client.Output().find("******************Device Info*****************\n"
                                   "Id:120900000001\n"
                                   "Vendor:Vendor\n"
                                   "Model:Model\n"
                                   "DisplayName:"),
              std::string::npos)
        << client.Output();
    for (const char* line :
         {"\nTLType:U3V\n", "\nAccess Status:0x1\n", "\nUser Defined Name:left one\n",
          "\nSerial Number:SN42\n", "\nVersion:3.1\n", "\nTimeStampFreq:"}) {
        EXPECT_EQ(Count(client.Output(), line), 1U) << line << client.Output();
    }
}

TEST_F(ConsoleClient, PrintXml_WritesTheFileThatTheCameraServes)
{
    const std::string options[] = {"model=Plain", "model=Packed,zip=1"};
    const std::string names[] = {"Plain_v1.0.0.xml", "Packed_v1.0.0.zip"};
    Client client(options[0] + ";guid=120900000002," + options[1]);
    client.Type("1\n2\n1\n4\n3\n2\n2\n1\n4\n3\n3\n\n");
    ExpectCleanEnd(client);
    EXPECT_EQ(client.Files(), (std::vector<std::string>{names[1], names[0]}));
    for (size_t i = 0; i < 2; ++i) {
        const std::string served = ServedDocument(options[i]);
        std::ostringstream url;
        url << "NumURLs 1\nURL: local:" << names[i] << ";100000;" << std::hex << served.size()
            << "\n";
        EXPECT_EQ(Count(client.Output(), url.str()), 1U) << url.str() << client.Output();
        EXPECT_GT(served.size(), 1000U);
        EXPECT_EQ(client.File(names[i]), served) << names[i];
    }
}

TEST_F(ConsoleClient, Acquisition_TwoRounds_ReportsConsecutiveImages)
{
    // Slow, so that a busy machine loses no image.
    Client client("width=64,height=48,fps=10");
    OpenStream(client);
    for (size_t round = 1; round <= 2; ++round) {
        const size_t before = FrameIds(client.Output()).size();
        client.Type("1\n");
        ASSERT_TRUE(client.Shows(":ImageAcquisitionStart DSStartAcquisition Successful!\n", round));
        ASSERT_TRUE(client.Shows(kFrame, before + 10));
        client.Type("2\n");
        ASSERT_TRUE(client.Shows(":ImageAcquisitionStop DSStopAcquisition Successful!\n", round));
        const std::vector<int> ids = FrameIds(client.Output());
        for (size_t i = before; i < ids.size(); ++i) {
            EXPECT_EQ(ids[i], static_cast<int>(i - before)) << "round " << round;
        }
    }
    client.Type("3\n4\n3\n2\n\n");
    ExpectCleanEnd(client);
    const std::string output = client.Output();
    const size_t frames = FrameIds(output).size();
    EXPECT_EQ(Count(output, " Width:64 Height:48\nTimestamp: "), frames);
    EXPECT_EQ(Count(output, "===GCReadPort FB_DISCARD_COUNT:-1003 value:0\n----"), frames);
    EXPECT_EQ(Count(output, ":ImageAcquisitionStart GCWritePort 0x50014 Status:0\n"), 2U);
    EXPECT_EQ(Count(output, ":ImageAcquisitionStop GCWritePort 0x50014 Status:0\n"), 2U);
    EXPECT_EQ(Count(output, "ImageAcquisitionThread AcquisitionThread End \n"), 2U);
}

TEST_F(ConsoleClient, EndOfInput_InEveryMenu_EndsClean)
{
    const std::string levels[] = {"", "1\n", "1\n2\n", "1\n2\n2\n", "1\n2\n2\n1\n"};
    const char* const menus[] = {kMainMenu, kDeviceMenu, kOpenDeviceMenu, kStreamMenu,
                                 ":ImageAcquisitionStart GCWritePort 0x50014 Status:0\n"};
    // Side by side, since each spends 5 s listing.
    std::vector<std::unique_ptr<Client>> clients;
    for (const std::string& keys : levels) {
        clients.push_back(std::make_unique<Client>("width=64,height=48,fps=100"));
        clients.back()->Type(keys);
        clients.back()->EndInput();
    }
    for (size_t i = 0; i < clients.size(); ++i) {
        SCOPED_TRACE(levels[i]);
        ExpectCleanEnd(*clients[i]);
        EXPECT_EQ(Count(clients[i]->Output(), menus[i]), 1U) << clients[i]->Output();
    }
    EXPECT_EQ(
        Count(clients.back()->Output(), ":ImageAcquisitionStop DSStopAcquisition Successful!\n"),
        1U);
}

TEST_F(ConsoleClient, NoCamera_IsSaidAndNothingIsAsked)
{
    Client client("");
    ASSERT_TRUE(client.Shows(kWaitForEnter));
    client.Type("\n");
    EXPECT_EQ(client.ExitStatus(), 0);
    EXPECT_EQ(client.Errors(), "");
    EXPECT_TRUE(client.Output().ends_with(std::string("[0] Interface Id:ZRK-USB-3-IF ID\n"
                                                      ":EnumDevices No Device Connected:0\n"
                                                      ":main No device found!\n") +
                                          kWaitForEnter))
        << client.Output();
    EXPECT_TRUE(client.Files().empty());
}

TEST_F(ConsoleClient, Reboot_CameraGoes_MenusStayUsable)
{
    Client client("width=64,height=48");
    client.Type("1\n2\n3\n1\n2\n4\n3\n2\n\n");
    EXPECT_EQ(client.ExitStatus(), 0) << client.Output();
    EXPECT_EQ(client.Errors(), "");
    EXPECT_EQ(Count(client.Output(), "GCReadPort Failed! -1010\n"), 1U) << client.Output();
    EXPECT_EQ(Count(client.Output(), ":OpenDeviceMenu DevOpenDataStream Failed!:-1001\n"), 1U);
    EXPECT_TRUE(client.Output().ends_with(kWaitForEnter)) << client.Output();
    EXPECT_TRUE(client.Files().empty());
}
