// zr_vm_test CTI SCENARIO [ARGUMENT]: what the guest checks with the producer on the real USB
// stack. One line for each check, "ok - ..." or "FAIL - ...".

#include <dirent.h>
#include <fcntl.h>
#include <linux/usbdevice_fs.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <memory>

#include "camera_layout.h"
#include "checked_camera.h"
#include "description_file.h"
#include "usb_camera.h"
#include "usb_descriptors.h"

namespace {

using namespace vmtest;

// One pass over the emulated machine's sixteen root hubs takes that long, and sometimes longer.
constexpr std::uint64_t kUpdateMs = 700;
constexpr std::chrono::seconds kFindSeconds{30};
constexpr std::uint64_t kImageMs = 10000;
constexpr unsigned kBuffers = 8;
constexpr std::uint64_t kEndless = GENTL_INFINITE;

int failures = 0;
const char* producerFile = nullptr;

bool Check(bool good, const std::string& text)
{
    std::printf("%s - %s\n", good ? "ok" : "FAIL", text.c_str());
    std::fflush(stdout);
    failures += good ? 0 : 1;
    return good;
}

// The library, initialised, and its list with so many cameras.
struct Bus
{
    explicit Bus(std::size_t cameras = 1)
        : producer(producerFile),
          session(producer, {.update_ms = kUpdateMs, .cameras = cameras, .patience = kFindSeconds}),
          ids(session.CameraIds())
    {
        std::sort(ids.begin(), ids.end());
    }
    const std::string& OnlyCamera() const
    {
        if (ids.size() != 1) {
            throw consumer::Error(std::to_string(ids.size()) + " cameras instead of one");
        }
        return ids[0];
    }

    consumer::Producer producer;
    consumer::Session session;
    std::vector<std::string> ids;
};

bool Succeeds(const std::function<void()>& call)
{
    try {
        call();
        return true;
    } catch (const consumer::GenTLError&) {
        return false;
    }
}

unsigned Take(CheckedCamera& camera, Tally& tally, unsigned images)
{
    unsigned taken = 0;
    while (taken < images && camera.Next(tally, kImageMs)) {
        ++taken;
    }
    return taken;
}

void CheckTally(const Tally& tally, unsigned wanted, const std::string& what)
{
    Check(tally.images == wanted && tally.wrong == 0 && tally.disorder == 0 && tally.skipped == 0,
          what + ": " + std::to_string(tally.images) +
              " images, every byte right, in order, none "
              "lost" +
              (tally.wrong != 0
                   ? "; WRONG " + std::to_string(tally.wrong) + " (" + tally.first + ")"
                   : "") +
              (tally.disorder != 0 ? "; DISORDER " + std::to_string(tally.disorder) : "") +
              (tally.skipped != 0 ? "; LOST " + std::to_string(tally.skipped) : ""));
}

double Seconds(std::chrono::steady_clock::duration duration)
{
    return std::chrono::duration<double>(duration).count();
}

void Discovery(const std::string&)
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

void FirstImage(const std::string& started)
{
    constexpr long kLimit = 300; // half a minute where nobody else works
    Bus bus;
    CheckedCamera camera(bus.session, bus.OnlyCamera(), kBuffers);
    Tally tally;
    camera.Start(kEndless);
    const unsigned taken = Take(camera, tally, 1);
    const long seconds = time(nullptr) - std::strtol(started.c_str(), nullptr, 10);
    camera.Stop();
    Check(taken == 1 && tally.wrong == 0 && seconds <= kLimit,
          "from power-on to the first image: " + std::to_string(seconds) + " s, at most " +
              std::to_string(kLimit));
}

// The library gives the document itself, also when the camera keeps it zipped.
void Description(const std::string& kind)
{
    Bus bus;
    CheckedCamera camera(bus.session, bus.OnlyCamera(), 1);
    vcam::CameraConfig config;
    config.width = camera.Read<std::uint32_t>(vcam::cam::kSensorWidth.address);
    config.height = camera.Read<std::uint32_t>(vcam::cam::kSensorHeight.address);
    config.zip = kind == "zipped";
    const std::vector<std::uint8_t> served = camera.DescriptionFile();
    const std::vector<std::uint8_t> wanted = vcam::UsbCamera(config).DescriptionFile();
    Check(served == wanted, "description file, " + kind + ": " + std::to_string(served.size()) +
                                " bytes, the camera's");
}

void Images(const std::string& argument)
{
    const auto wanted = static_cast<unsigned>(std::stoul(argument));
    Bus bus;
    CheckedCamera camera(bus.session, bus.OnlyCamera(), kBuffers);
    Tally tally;
    camera.Start(kEndless, true);
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

void Limited(const std::string&)
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

void Restarts(const std::string& argument)
{
    const auto rounds = static_cast<unsigned>(std::stoul(argument));
    Bus bus;
    CheckedCamera camera(bus.session, bus.OnlyCamera(), kBuffers);
    Tally tally;
    for (unsigned round = 0; round < rounds; ++round) {
        camera.Start(kEndless);
        Take(camera, tally, 2);
        camera.Stop();
    }
    CheckTally(tally, 2 * rounds, "stop and restart " + argument + " times");
}

// The camera halts its stream endpoint now and then; nothing of its images is lost by that.
void Stalls(const std::string& argument)
{
    const auto wanted = static_cast<unsigned>(std::stoul(argument));
    Bus bus;
    CheckedCamera camera(bus.session, bus.OnlyCamera(), kBuffers);
    Tally tally;
    camera.Start(kEndless, true);
    Take(camera, tally, wanted);
    camera.Stop();
    CheckTally(tally, wanted, "the stream endpoint stalls now and then");
}

// The usbfs file of the camera.
std::string DeviceFile()
{
    const std::string root = "/sys/bus/usb/devices/";
    const std::unique_ptr<DIR, int (*)(DIR*)> dir(opendir(root.c_str()), closedir);
    while (const dirent* entry = dir != nullptr ? readdir(dir.get()) : nullptr) {
        const std::string device = root + entry->d_name;
        std::string vendor;
        unsigned bus = 0;
        unsigned number = 0;
        if (std::ifstream(device + "/idVendor") >> vendor && vendor == "1209" &&
            std::ifstream(device + "/busnum") >> bus &&
            std::ifstream(device + "/devnum") >> number) {
            char path[64];
            std::snprintf(path, sizeof path, "/dev/bus/usb/%03u/%03u", bus, number);
            return path;
        }
    }
    throw consumer::Error("no camera in sysfs");
}

// The endpoint is halted before anybody streams, as a process that died may have left it.
void Halted(const std::string&)
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

// The camera leaves after so many images and comes back by itself. A device that was listed before
// is found again by an interface that is opened anew.
void Replug(const std::string& argument)
{
    const auto before = static_cast<unsigned>(std::stoul(argument));
    Tally tally;
    {
        Bus bus;
        CheckedCamera camera(bus.session, bus.OnlyCamera(), kBuffers);
        camera.Start(kEndless);
        while (camera.Next(tally, 1500)) {
        }
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
              " images before, every byte right");
    Bus bus;
    CheckedCamera camera(bus.session, bus.OnlyCamera(), kBuffers);
    Tally after;
    camera.Start(kEndless);
    Take(camera, after, 20);
    camera.Stop();
    CheckTally(after, 20, "plugged in again");
}

void Two(const std::string& argument)
{
    const auto wanted = static_cast<unsigned>(std::stoul(argument));
    Bus bus(2);
    if (!Check(bus.ids.size() == 2, "two cameras are found")) {
        return;
    }
    CheckedCamera first(bus.session, bus.ids[0], kBuffers);
    CheckedCamera second(bus.session, bus.ids[1], kBuffers);
    Tally tallies[2];
    first.Start(kEndless, true);
    second.Start(kEndless, true);
    for (unsigned i = 0; i < wanted; ++i) {
        Take(first, tallies[0], 1);
        Take(second, tallies[1], 1);
    }
    first.Stop();
    second.Stop();
    CheckTally(tallies[0], wanted, "two at once, the first");
    CheckTally(tallies[1], wanted, "two at once, the second");
}

// Streams until it is killed; tells when it is under way.
[[noreturn]] void StreamForEver(int ready)
{
    Bus bus;
    CheckedCamera camera(bus.session, bus.OnlyCamera(), kBuffers);
    Tally tally;
    camera.Start(kEndless);
    Take(camera, tally, 20);
    const char mark = tally.images == 20 && tally.wrong == 0 ? 'y' : 'n';
    if (write(ready, &mark, 1) != 1) {
        _exit(1);
    }
    for (;;) {
        camera.Next(tally, kImageMs);
    }
}

void Killed(const std::string&)
{
    int ends[2];
    if (pipe(ends) != 0) {
        throw consumer::Error("no pipe");
    }
    const pid_t child = fork();
    if (child == 0) {
        StreamForEver(ends[1]);
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
    Check((camera.Read<std::uint32_t>(vcam::sirm::kControl.address) & vcam::sirm::kStreamEnable) !=
              0,
          "the camera still streams to nobody");
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
        camera.Start(kEndless);
        Take(camera, tally, 1);
        camera.Stop();
    }
}

// What a process holds with everything closed must be the same after many rounds; the first half
// warms up the allocator, which keeps a heap for each new thread up to its limit.
void Rounds(const std::string& argument)
{
    constexpr long kSlackKiB = 256;
    const auto half = static_cast<unsigned>(std::stoul(argument)) / 2;
    Tally tally;
    Now(); // what measuring itself needs for the first time
    OpenStreamClose(half, tally);
    const Usage warm = Now();
    OpenStreamClose(half, tally);
    const Usage last = Now();
    CheckTally(tally, 2 * half, argument + " rounds of open, stream, close");
    Check(last.residentKiB <= warm.residentKiB + kSlackKiB,
          "memory stays flat: " + std::to_string(warm.residentKiB) + " KiB, at the end " +
              std::to_string(last.residentKiB) + " KiB");
    Check(last.descriptors == warm.descriptors, "descriptors: " + std::to_string(warm.descriptors) +
                                                    " and " + std::to_string(last.descriptors));
    Check(last.threads == warm.threads,
          "threads: " + std::to_string(warm.threads) + " and " + std::to_string(last.threads));
}

const std::map<std::string, void (*)(const std::string&)> kScenarios = {
    {"discovery", Discovery},     {"first-image", FirstImage},
    {"description", Description}, {"images", Images},
    {"limited", Limited},         {"restarts", Restarts},
    {"replug", Replug},           {"two", Two},
    {"killed", Killed},           {"rounds", Rounds},
    {"stalls", Stalls},           {"halted", Halted},
};

} // namespace

int main(int count, char** arguments)
{
    const auto scenario = kScenarios.find(count > 2 ? arguments[2] : "");
    if (scenario == kScenarios.end()) {
        std::fprintf(stderr, "usage: %s CTI SCENARIO [ARGUMENT]\n", arguments[0]);
        return 2;
    }
    producerFile = arguments[1];
    try {
        scenario->second(count > 3 ? arguments[3] : "");
    } catch (const std::exception& error) {
        Check(false, scenario->first + ": " + error.what());
    }
    return failures == 0 ? 0 : 1;
}
