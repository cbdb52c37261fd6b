// zr_bench_vm PRODUCER CAMERA_PROGRAM JSON_FILE SECONDS: the library over the real libusb and the
// kernel's USB stack against a bare reader of the same stream. Runs inside the emulated machine
// (tools/bench
// --vm).

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <memory>
#include <sched.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "bench_consumer.h"
#include "bench_report.h"
#include "bench_time.h"
#include "bench_usb.h"

namespace {

using namespace bench;

constexpr size_t kBuffers = 4;
constexpr int kRounds = 3;
constexpr uint64_t kUpdateMs = 700; // a pass over the emulated machine's root hubs takes long
constexpr int kPatience = 300;      // tenths of a second until the kernel has the camera

double g_seconds = 0; // of one measurement

// Whether device memory is to be had: with it refused the library takes ordinary memory.
std::atomic<bool> g_deviceMemory{true};

// The camera program, plugged in as long as this lives.
class PluggedCamera
{
public:
    PluggedCamera(const char* program, const std::string& size)
    {
        m_child = fork();
        if (m_child == 0) {
            execl(program, program, "--attach", "--quiet", "--pattern", "still", "--size",
                  size.c_str(), nullptr);
            _exit(127);
        }
        for (int i = 0; !_isThere(); ++i) {
            if (i == kPatience) {
                throw Failure("the camera does not come up");
            }
            usleep(100000);
        }
    }
    ~PluggedCamera()
    {
        kill(m_child, SIGINT);
        waitpid(m_child, nullptr, 0);
        sleep(1);
    }
    PluggedCamera(const PluggedCamera&) = delete;
    PluggedCamera& operator=(const PluggedCamera&) = delete;

private:
    static bool _isThere()
    {
        try {
            const UsbCamera camera(0);
            return true;
        } catch (const Failure&) {
            return false;
        }
    }

    pid_t m_child;
};

// What one way of reading came to, round by round.
struct Figures
{
    std::vector<double> imagesPerSecond;
    std::vector<double> cpuPerGigabyte;

    template <class Read>
    void Measure(size_t payload, pid_t excluded, Read&& read)
    {
        for (size_t i = 0; i < 2 * kBuffers; ++i) {
            read();
        }
        const Stopwatch watch(excluded);
        uint64_t images = 0;
        do {
            read();
            ++images;
        } while (watch.Seconds() < g_seconds);
        const double count = static_cast<double>(images);
        imagesPerSecond.push_back(count / watch.Seconds());
        cpuPerGigabyte.push_back(watch.CpuSeconds() / (count * static_cast<double>(payload) / 1e9));
    }
};

// As many blocks in turn as the library's consumer has buffers, of either kind of memory.
class Blocks
{
public:
    Blocks(libusb_device_handle* handle, size_t size, bool deviceMemory)
        : m_handle(handle), m_size(size), m_deviceMemory(deviceMemory)
    {
        for (size_t i = 0; i < kBuffers; ++i) {
            m_blocks.push_back(deviceMemory ? libusb_dev_mem_alloc(handle, size)
                                            : static_cast<uint8_t*>(std::calloc(1, size)));
            if (m_blocks.back() == nullptr) {
                throw Failure("no memory for the bare reader");
            }
        }
    }
    ~Blocks()
    {
        for (uint8_t* const block : m_blocks) {
            if (m_deviceMemory) {
                libusb_dev_mem_free(m_handle, block, m_size);
            } else {
                std::free(block);
            }
        }
    }
    Blocks(const Blocks&) = delete;
    Blocks& operator=(const Blocks&) = delete;

    uint8_t* Next() { return m_blocks[m_turn++ % kBuffers]; }

private:
    libusb_device_handle* const m_handle;
    const size_t m_size;
    const bool m_deviceMemory;
    size_t m_turn = 0;
    std::vector<uint8_t*> m_blocks;
};

// What the library's discovery worker does while nobody asks it anything.
class Poller
{
public:
    ~Poller()
    {
        m_done = true;
        m_thread.join();
    }

private:
    void _poll() const
    {
        while (!m_done) {
            sched_yield();
        }
    }

    std::atomic<bool> m_done{false};
    std::thread m_thread{&Poller::_poll, this};
};

// How a bare reader comes closer to what the library has to do.
enum class Burden
{
    None,
    Copy, // the images end in memory of the application's own
    Poll, // a thread polls beside it
};

void MeasureBare(Figures& figures, bool deviceMemory, Burden burden)
{
    const auto poller = burden == Burden::Poll ? std::make_unique<Poller>() : nullptr;
    UsbCamera camera(0);
    camera.Start();
    const size_t size = camera.Payload();
    Blocks blocks(camera.Handle(), size, deviceMemory);
    Blocks own(camera.Handle(), size, false);
    figures.Measure(size, 0, [&] {
        uint8_t* const block = blocks.Next();
        camera.ReadImage(block);
        if (burden == Burden::Copy) {
            std::memcpy(own.Next(), block, size);
        }
    });
    camera.Stop();
}

void MeasureLibrary(Figures& figures, bool deviceMemory)
{
    g_deviceMemory = deviceMemory;
    const Library library(1, kUpdateMs);
    const OpenCamera camera(library);
    Images images(camera, kBuffers);
    images.Start();
    figures.Measure(camera.Payload(), library.Worker(), [&] { images.Turn(); });
    images.Stop();
    g_deviceMemory = true;
}

void MeasureSize(Report& report, const char* program, const std::string& size)
{
    const PluggedCamera plugged(program, size);
    Figures library[2];
    Figures bare[2];
    Figures copying[2];
    Figures polling[2];
    for (int round = 0; round < kRounds; ++round) {
        for (const bool deviceMemory : {false, true}) {
            MeasureBare(bare[deviceMemory], deviceMemory, Burden::None);
            MeasureBare(copying[deviceMemory], deviceMemory, Burden::Copy);
            MeasureBare(polling[deviceMemory], deviceMemory, Burden::Poll);
            MeasureLibrary(library[deviceMemory], deviceMemory);
        }
    }
    for (const bool deviceMemory : {false, true}) {
        const std::string memory = deviceMemory ? "device memory" : "ordinary memory";
        std::string what = size;
        what += ", " + memory;
        const Figures& own = library[deviceMemory];
        const Figures& other = bare[deviceMemory];
        report.Add({"kernel stack, images " + what, Median(own.imagesPerSecond), "/s",
                    "bare reader, " + memory, Median(other.imagesPerSecond), Row::Goal::AtLeast,
                    0.95});
        report.Add({"kernel stack, images " + what, Median(own.imagesPerSecond), "/s",
                    "bare reader that copies", Median(copying[deviceMemory].imagesPerSecond)});
        report.Add({"kernel stack, images " + what, Median(own.imagesPerSecond), "/s",
                    "bare reader beside a polling thread",
                    Median(polling[deviceMemory].imagesPerSecond)});
        report.Add({"kernel stack, CPU per GB " + what, Median(own.cpuPerGigabyte), "s",
                    "bare reader, " + memory, Median(other.cpuPerGigabyte), Row::Goal::AtMost,
                    1.25});
        report.Add({"kernel stack, CPU per GB " + what, Median(own.cpuPerGigabyte), "s",
                    "bare reader that copies", Median(copying[deviceMemory].cpuPerGigabyte)});
    }
}

} // namespace

// In front of libusb's own, for the library as well.
extern "C" __attribute__((visibility("default"))) unsigned char*
libusb_dev_mem_alloc(libusb_device_handle* handle, size_t length)
{
    using Function = unsigned char*(libusb_device_handle*, size_t);
    static auto* const next = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, "libusb_dev_mem_alloc"));
    return g_deviceMemory && next != nullptr ? next(handle, length) : nullptr;
}

int main(int count, char** arguments)
{
    if (count != 5 || (g_seconds = std::atof(arguments[4])) <= 0) {
        std::fprintf(stderr, "usage: %s PRODUCER CAMERA_PROGRAM JSON_FILE SECONDS\n", arguments[0]);
        return 2;
    }
    try {
        if (std::freopen("/dev/null", "w", stdout) == nullptr) { // the library's own texts
            return 2;
        }
        Report report;
        g_producer = arguments[1];
        MeasureSize(report, arguments[2], "640x480");
        MeasureSize(report, arguments[2], "2048x1536");
        report.WriteJson(arguments[3]);
        std::fprintf(stderr, "\n%s", report.Table().c_str());
    } catch (const std::exception& error) {
        std::fprintf(stderr, "zr_bench_vm: %s\n", error.what());
        return 1;
    }
    return 0;
}
