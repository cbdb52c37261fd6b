// zr_vm_test CTI SCENARIO [ARGUMENT ...]: what the guest checks with a producer on the real USB
// stack. One line for each check, "ok - ..." or "FAIL - ...".

#include <dirent.h>
#include <fcntl.h>
#include <linux/usbdevice_fs.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>

#include "camera_layout.h"
#include "description_file.h"
#include "scenario.h"
#include "usb_camera.h"
#include "usb_descriptors.h"

namespace {

using namespace vmtest;

double Seconds(std::chrono::steady_clock::duration duration)
{
    return std::chrono::duration<double>(duration).count();
}

void Discovery(const Words&)
{
    Bus bus;
    const std::string id = bus.OnlyCamera();
    const std::string vendor = bus.session.CameraText(id, DEVICE_INFO_VENDOR);
    const std::string model = bus.session.CameraText(id, DEVICE_INFO_MODEL);
    const vcam::CameraConfig wanted;
    Check(id.find(wanted.guid) != std::string::npos, "discovery finds the camera: " + id);
    Check(vendor == wanted.vendor && model == wanted.model,
          "vendor and model from its descriptors: " + vendor + ", " + model);
    const CheckedCamera camera(bus.session, id, 1);
    const auto manufacturer = camera.ReadBytes(vcam::abrm::kManufacturer, 64);
    Check(wanted.vendor == reinterpret_cast<const char*>(manufacturer.data()),
          "the manufacturer register says the same");
    const char name[64] = "line 7, top";
    const auto write = [&](std::uint64_t address, std::size_t size) {
        return Succeeds([&] { camera.Write(address, name, size); });
    };
    Check(write(vcam::abrm::kUserDefinedName, sizeof name), "the user-defined name is written");
    Check(std::memcmp(camera.ReadBytes(vcam::abrm::kUserDefinedName, 64).data(), name, 64) == 0,
          "and read back");
    Check(!write(vcam::abrm::kManufacturer, 4), "a write to a read-only register fails");
    Check(camera.Read<std::uint32_t>(vcam::abrm::kGenCPVersion.address) != 0,
          "and the control channel goes on");
}

void FirstImage(const Words& words)
{
    constexpr long kLimit = 300; // half a minute where nobody else works
    Bus bus;
    CheckedCamera camera(bus.session, bus.OnlyCamera(), kBuffers);
    Tally tally;
    camera.Start(kEndless);
    const unsigned taken = Take(camera, tally, 1);
    const long seconds = time(nullptr) - std::strtol(words.at(0).c_str(), nullptr, 10);
    camera.Stop();
    Check(taken == 1 && tally.wrong == 0 && seconds <= kLimit,
          "from power-on to the first image: " + std::to_string(seconds) + " s, at most " +
              std::to_string(kLimit));
}

// The library gives the document itself, also when the camera keeps it zipped.
void Description(const Words& words)
{
    Bus bus;
    CheckedCamera camera(bus.session, bus.OnlyCamera(), 1);
    vcam::CameraConfig config;
    config.width = camera.Read<std::uint32_t>(vcam::cam::kSensorWidth.address);
    config.height = camera.Read<std::uint32_t>(vcam::cam::kSensorHeight.address);
    config.zip = words.at(0) == "zipped";
    const std::vector<std::uint8_t> served = camera.DescriptionFile();
    const std::vector<std::uint8_t> wanted = vcam::UsbCamera(config).DescriptionFile();
    Check(served == wanted, "description file, " + words.at(0) + ": " +
                                std::to_string(served.size()) + " bytes, the camera's");
}

void Images(const Words& words)
{
    const auto wanted = static_cast<unsigned>(std::stoul(words.at(0)));
    Bus bus;
    CheckedCamera camera(bus.session, bus.OnlyCamera(), kBuffers);
    Tally tally;
    camera.Start(kEndless);
    const auto start = std::chrono::steady_clock::now();
    Take(camera, tally, wanted);
    const double seconds = Seconds(std::chrono::steady_clock::now() - start);
    camera.Stop();
    char rate[64];
    std::snprintf(rate, sizeof rate, "%.0f images/s, %.1f MB/s", wanted / seconds,
                  static_cast<double>(camera.Payload()) * wanted / seconds / 1e6);
    CheckTally(tally, wanted,
               std::to_string(camera.Payload()) + " bytes each, " + std::string(rate));
}

void Limited(const Words&)
{
    constexpr unsigned kImages = 10;
    Bus bus;
    CheckedCamera camera(bus.session, bus.OnlyCamera(), kBuffers);
    Tally tally;
    camera.Start(kImages);
    Take(camera, tally, kImages);
    const bool silent = !camera.Next(tally, 500);
    camera.Stop();
    CheckTally(tally, kImages, "limited acquisition");
    Check(silent, "and no image more");
}

// At the camera's own rate: one of the producers waits seconds for an image when it stops.
void Restarts(const Words& words)
{
    const auto rounds = static_cast<unsigned>(std::stoul(words.at(0)));
    Bus bus;
    CheckedCamera camera(bus.session, bus.OnlyCamera(), kBuffers);
    Tally tally;
    for (unsigned round = 0; round < rounds; ++round) {
        camera.Start(kEndless, false);
        Take(camera, tally, 2);
        camera.Stop();
    }
    Check(tally.images == 2 * rounds && tally.wrong == 0 && tally.incomplete == 0 &&
              tally.disorder == 0,
          "stop and restart " + words.at(0) + " times, every byte right, in order" +
              tally.Faults());
}

// The camera halts its stream endpoint now and then. Only so many images may be hit by that, each
// of which is told to be incomplete or does not come.
void Stalls(const Words& words)
{
    const auto wanted = static_cast<unsigned>(std::stoul(words.at(0)));
    const auto mayBeHit = static_cast<unsigned>(std::stoul(words.at(1)));
    Bus bus;
    CheckedCamera camera(bus.session, bus.OnlyCamera(), kBuffers);
    Tally tally;
    camera.Start(kEndless);
    Take(camera, tally, wanted);
    camera.Stop();
    Check(tally.images == wanted && tally.wrong == 0 && tally.disorder == 0 &&
              tally.incomplete + tally.skipped <= mayBeHit,
          "the stream endpoint stalls now and then: " + std::to_string(tally.images) +
              " images, at most " + words.at(1) + " hit, every byte of the others right" +
              tally.Faults());
}

// The endpoint is halted before anybody streams, as a process that died may have left it.
void Halted(const Words&)
{
    constexpr unsigned char kToEndpoint = 0x02;
    constexpr unsigned char kSetFeature = 3;
    constexpr unsigned short kEndpointHalt = 0;
    const int file = open(DeviceFile().c_str(), O_RDWR);
    unsigned stream = 1; // the interface behind the control interface
    usbdevfs_ctrltransfer halt{kToEndpoint, kSetFeature, kEndpointHalt, vcam::usb::kStreamIn,
                               0,           1000,        nullptr};
    const bool halted = file >= 0 && ioctl(file, USBDEVFS_CLAIMINTERFACE, &stream) == 0 &&
                        ioctl(file, USBDEVFS_CONTROL, &halt) == 0;
    close(file);
    Check(halted, "somebody leaves the stream endpoint halted");
    Bus bus;
    CheckedCamera camera(bus.session, bus.OnlyCamera(), kBuffers);
    Tally tally;
    camera.Start(kEndless);
    Take(camera, tally, 20);
    camera.Stop();
    CheckTally(tally, 20, "and the next one streams");
}

// The camera leaves after so many images and comes back by itself, as another device. One that was
// listed before is found again by an interface that is opened anew.
void Replug(const Words& words)
{
    const auto before = static_cast<unsigned>(std::stoul(words.at(0)));
    Tally tally;
    {
        Bus bus;
        CheckedCamera camera(bus.session, bus.OnlyCamera(), kBuffers);
        const std::string file = DeviceFile();
        camera.Start(kEndless);
        Check(
            Eventually([&] { return !camera.Next(tally, 1000) && !std::filesystem::exists(file); }),
            "the camera leaves, and no image comes any more");
        const auto start = std::chrono::steady_clock::now();
        try {
            camera.Stop();
        } catch (const consumer::Error& error) {
            std::printf("# stopping without a camera: %s\n", error.what());
        }
        const double seconds = Seconds(std::chrono::steady_clock::now() - start);
        char text[64];
        std::snprintf(text, sizeof text, "stopped %.1f s after the unplug", seconds);
        Check(seconds < 10, text);
    }
    // The last image may have gone down with the camera.
    Check(tally.images <= before && tally.images + 1 >= before && tally.wrong == 0,
          "unplugged while streaming: " + std::to_string(tally.images) +
              " images before, every byte right" + tally.Faults());
    Bus bus;
    CheckedCamera camera(bus.session, bus.OnlyCamera(), kBuffers);
    Tally after;
    camera.Start(kEndless);
    Take(camera, after, 20);
    camera.Stop();
    CheckTally(after, 20, "plugged in again");
}

void Two(const Words& words)
{
    const auto wanted = static_cast<unsigned>(std::stoul(words.at(0)));
    Bus bus(2);
    if (!Check(bus.ids.size() == 2, "two cameras are found")) {
        return;
    }
    CheckedCamera first(bus.session, bus.ids[0], kBuffers);
    CheckedCamera second(bus.session, bus.ids[1], kBuffers);
    Tally tallies[2];
    first.Start(kEndless);
    second.Start(kEndless);
    for (unsigned i = 0; i < wanted; ++i) {
        Take(first, tallies[0], 1);
        Take(second, tallies[1], 1);
    }
    first.Stop();
    second.Stop();
    CheckTally(tallies[0], wanted, "two at once, the first");
    CheckTally(tallies[1], wanted, "two at once, the second");
}

// Streams until it is killed; tells when it is under way. On demand it is killed amid its commands,
// whose answers then wait for the next process.
[[noreturn]] void StreamForEver(int ready, bool onDemand)
{
    Bus bus;
    CheckedCamera camera(bus.session, bus.OnlyCamera(), kBuffers);
    Tally tally;
    camera.Start(kEndless, onDemand);
    Take(camera, tally, 20);
    const char mark = tally.images == 20 && tally.wrong == 0 ? 'y' : 'n';
    if (write(ready, &mark, 1) != 1) {
        _exit(1);
    }
    for (;;) {
        camera.Next(tally, kPatienceMs);
    }
}

// A producer finds answers of commands that nobody waits for, and the stream on: it leaves that as
// it is ("on"), and then wants no such answers, or puts it right.
void Killed(const Words& words)
{
    const bool leavesIt = words.at(0) == "on";
    int ends[2];
    if (pipe(ends) != 0) {
        throw consumer::Error("no pipe");
    }
    const pid_t child = fork();
    if (child == 0) {
        StreamForEver(ends[1], !leavesIt);
    }
    close(ends[1]);
    char mark = 'n';
    const bool ready = read(ends[0], &mark, 1) == 1 && mark == 'y';
    close(ends[0]);
    kill(child, SIGKILL);
    int status = 0;
    waitpid(child, &status, 0);
    Check(ready && WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL,
          "a process dies by SIGKILL in the middle of streaming");
    Bus bus;
    CheckedCamera camera(bus.session, bus.OnlyCamera(), kBuffers);
    const bool isOn =
        (camera.Read<std::uint32_t>(vcam::sirm::kControl.address) & vcam::sirm::kStreamEnable) != 0;
    Check(isOn == leavesIt,
          "the camera, opened again, streams to nobody: " + std::string(isOn ? "yes" : "no"));
    Tally tally;
    camera.Start(kEndless);
    Take(camera, tally, 50);
    camera.Stop();
    CheckTally(tally, 50, "a new process takes over");
}

struct Usage
{
    long residentKiB = 0;
    long descriptors = 0;
    long threads = 0;
};

long Entries(const char* folder)
{
    const std::unique_ptr<DIR, int (*)(DIR*)> dir(opendir(folder), closedir);
    long count = 0;
    while (dir != nullptr && readdir(dir.get()) != nullptr) {
        ++count;
    }
    return count;
}

Usage Now()
{
    Usage usage;
    usage.descriptors = Entries("/proc/self/fd");
    usage.threads = Entries("/proc/self/task");
    // Without the pages of programs and libraries, which come as they are used.
    std::ifstream file("/proc/self/status");
    for (std::string word; file >> word;) {
        if (word == "RssAnon:") {
            file >> usage.residentKiB;
        }
    }
    return usage;
}

// Opens, streams one image and closes, so many times.
void OpenStreamClose(unsigned rounds, Tally& tally)
{
    constexpr unsigned kAnew = 20; // the whole library every so many rounds
    std::optional<Bus> bus;
    for (unsigned round = 0; round < rounds; ++round) {
        if (round % kAnew == 0) {
            bus.emplace();
        }
        CheckedCamera camera(bus->session, bus->OnlyCamera(), 3);
        camera.Start(kEndless, false);
        Take(camera, tally, 1);
        camera.Stop();
    }
}

// What a process holds with everything closed must be the same after many rounds; the first half
// warms up the allocator, which keeps a heap for each new thread up to its limit.
void Rounds(const Words& words)
{
    constexpr long kSlackKiB = 256;
    const auto half = static_cast<unsigned>(std::stoul(words.at(0))) / 2;
    Tally tally;
    Now(); // what measuring itself needs for the first time
    OpenStreamClose(half, tally);
    const Usage warm = Now();
    OpenStreamClose(half, tally);
    const Usage last = Now();
    CheckTally(tally, 2 * half, words.at(0) + " rounds of open, stream, close");
    Check(last.residentKiB <= warm.residentKiB + kSlackKiB,
          "memory stays flat: " + std::to_string(warm.residentKiB) + " KiB, at the end " +
              std::to_string(last.residentKiB) + " KiB");
    Check(last.descriptors == warm.descriptors, "descriptors: " + std::to_string(warm.descriptors) +
                                                    " and " + std::to_string(last.descriptors));
    Check(last.threads == warm.threads,
          "threads: " + std::to_string(warm.threads) + " and " + std::to_string(last.threads));
}

const std::map<std::string, void (*)(const Words&)> kScenarios = {
    {"discovery", Discovery},     {"first-image", FirstImage},
    {"description", Description}, {"images", Images},
    {"limited", Limited},         {"restarts", Restarts},
    {"replug", Replug},           {"two", Two},
    {"killed", Killed},           {"rounds", Rounds},
    {"stalls", Stalls},           {"halted", Halted},
    {"denied", Denied},           {"claimed", Claimed},
    {"leaves", Leaves},           {"device-memory", DeviceMemory},
    {"small-limit", SmallLimit},
};

} // namespace

int main(int count, char** arguments)
{
    const auto scenario = kScenarios.find(count > 2 ? arguments[2] : "");
    if (scenario == kScenarios.end()) {
        std::fprintf(stderr, "usage: %s CTI SCENARIO [ARGUMENT ...]\n", arguments[0]);
        return 2;
    }
    producerFile = arguments[1];
    try {
        scenario->second(Words(arguments + 3, arguments + count));
    } catch (const std::exception& error) {
        Check(false, scenario->first + ": " + error.what());
    }
    return Failures() == 0 ? 0 : 1;
}
