// zr_u3v_camera: virtual USB3 Vision cameras on a real USB stack.

#include <pthread.h>
#include <signal.h>

#include <cstdio>
#include <memory>

#include "attached_camera.h"
#include "command_line.h"
#include "usbip_server.h"

namespace {

using namespace vcam;

enum Exit
{
    kGood = 0,
    kFailed = 1,
    kWrongOptions = 2,
};

// Ctrl-C and its kin reach only the thread that waits for them; all others inherit the mask.
class Signals
{
public:
    Signals()
    {
        sigemptyset(&m_set);
        for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
            sigaddset(&m_set, number);
        }
        pthread_sigmask(SIG_BLOCK, &m_set, nullptr);
    }

    void Wait() const
    {
        int number = 0;
        sigwait(&m_set, &number);
    }
    // From within: as if somebody had pressed Ctrl-C.
    static void Raise() { ::kill(::getpid(), SIGTERM); }

private:
    sigset_t m_set{};
};

void Print(const std::string& text)
{
    std::fputs(text.c_str(), stdout);
    std::fflush(stdout);
}

auto Talker(const CommandLine& line)
{
    return [quiet = line.quiet](const std::string& text) {
        if (!quiet) {
            Print(text + "\n");
        }
    };
}

int Attach(const CommandLine& line, const Signals& signals)
{
    const VhciController controller;
    std::atomic<std::size_t> left{line.cameras.size()};
    const auto done = [&left] {
        if (--left == 0) {
            Signals::Raise();
        }
    };
    std::vector<std::unique_ptr<AttachedCamera>> cameras;
    for (std::uint32_t i = 0; i < line.cameras.size(); ++i) {
        cameras.push_back(
            std::make_unique<AttachedCamera>(controller, i, line.cameras[i], Talker(line), done));
    }
    signals.Wait();
    int status = kGood;
    for (const auto& camera : cameras) {
        camera->Stop();
        status = camera->Failed() ? kFailed : status;
        Print(camera->Report());
    }
    return status;
}

int Listen(const CommandLine& line, const Signals& signals)
{
    UsbipServer server(line.cameras, Talker(line));
    const std::uint16_t port = server.Listen(line.address, line.port);
    Talker(line)(std::to_string(line.cameras.size()) + " camera(s) at " + line.address + " port " +
                 std::to_string(port) + "; on the host: usbip list -r " + line.address +
                 " && usbip attach -r " + line.address + " -b 1-1");
    std::thread thread([&server] { server.Run(); });
    signals.Wait();
    server.Stop();
    thread.join();
    Print(server.Report());
    return kGood;
}

} // namespace

int main(int count, char** arguments)
{
    CommandLine line;
    const std::string mistake = line.Parse({arguments + 1, arguments + count});
    if (!mistake.empty()) {
        std::fprintf(stderr, "zr_u3v_camera: %s\n  fix: zr_u3v_camera --help\n", mistake.c_str());
        return kWrongOptions;
    }
    if (line.mode == CommandLine::Mode::Help) {
        Print(CommandLine::Help());
        return kGood;
    }
    try {
        const Signals signals;
        return line.mode == CommandLine::Mode::Attach ? Attach(line, signals)
                                                      : Listen(line, signals);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "zr_u3v_camera: %s\n", error.what());
        return kFailed;
    }
}
