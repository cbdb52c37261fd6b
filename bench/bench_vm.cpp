// zr_bench_vm LIBRARIES CAMERA_PROGRAM JSON_FILE SECONDS [ARAVIS]: both producers over the real
// libusb and the kernel's USB stack, beside bare readers of the same stream and, when its
// library is there, Aravis. Runs inside the emulated machine (tools/bench --vm).

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

#include "bench_readers.h"
#include "bench_report.h"
#include "bench_time.h"
#include "bench_usb.h"

namespace {

using namespace bench;

constexpr int kRounds = 5;
constexpr int kPatience = 300; // tenths of a second until the kernel has the camera

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

struct Reader
{
    const char* name;
    Outcome (*read)(const Setup&);
};

constexpr Reader kReaders[] = {
    {"one transfer at a time", ReadBare},
    {"bare reader", ReadQueued},
    {"Aravis", ReadAravis},
    {"exact producer", ReadExact},
    {"standard producer", ReadStandard},
};

// What one reader came to, round by round.
struct Figures
{
    std::vector<double> imagesPerSecond;
    std::vector<double> cpuPerGigabyte;
    std::vector<double> switchesPerImage;
};

using Table = std::map<std::string, Figures>; // by the reader's name

// The goals of one reader beside another.
struct Comparison
{
    const char* reader;
    const char* against;
    double leastImages;
    double mostCpu; // with ordinary memory
    double mostCpuOfDeviceMemory;
};

constexpr Comparison kComparisons[] = {
    {"standard producer", "bare reader", 0.97, 1.1, 1.25},
    {"standard producer", "Aravis", 1.0, 1.0, 1.0},
    {"standard producer", "Aravis ahead", 1.0, 1.0, 1.0},
    {"exact producer", "one transfer at a time", 0.95, 1.25, 1.25},
};

// A round in which a reader of another project gives no images has no figure of it.
void MeasureReader(Table& table, const Reader& reader, const Setup& setup)
{
    const bool isOwn = reader.read != ReadAravis && reader.read != ReadAravisAhead;
    if (!isOwn && setup.aravis.empty()) {
        return;
    }
    try {
        const Outcome outcome = InChild([&] { return reader.read(setup); });
        table[reader.name].imagesPerSecond.push_back(outcome.imagesPerSecond);
        table[reader.name].cpuPerGigabyte.push_back(outcome.cpuPerGigabyte);
        table[reader.name].switchesPerImage.push_back(outcome.switchesPerImage);
    } catch (const Failure&) {
        if (isOwn) {
            throw;
        }
    }
}

Table MeasureReaders(const Setup& setup)
{
    Table table;
    for (int round = 0; round < kRounds; ++round) {
        for (const Reader& reader : kReaders) {
            MeasureReader(table, reader, setup);
        }
    }
    return table;
}

void Compare(Report& report, Table& table, const std::string& what, bool deviceMemory)
{
    for (const Comparison& comparison : kComparisons) {
        if (!table.contains(comparison.against)) {
            continue;
        }
        const Figures& own = table[comparison.reader];
        const Figures& other = table[comparison.against];
        const std::string figure = std::string(comparison.reader) + ", " + what;
        report.Add({"kernel stack, images, " + figure, Median(own.imagesPerSecond), "/s",
                    comparison.against, Median(other.imagesPerSecond), Row::Goal::AtLeast,
                    comparison.leastImages});
        report.Add({"kernel stack, CPU per GB, " + figure, Median(own.cpuPerGigabyte), "s",
                    comparison.against, Median(other.cpuPerGigabyte), Row::Goal::AtMost,
                    deviceMemory ? comparison.mostCpuOfDeviceMemory : comparison.mostCpu});
        report.Add({"kernel stack, sleeps per image, " + figure, Median(own.switchesPerImage), "",
                    comparison.against, Median(other.switchesPerImage)});
    }
}

void MeasureSize(Report& report, Setup setup, const char* program, const std::string& size)
{
    const PluggedCamera plugged(program, size);
    for (const bool deviceMemory : {true, false}) {
        setup.deviceMemory = deviceMemory;
        Table table = MeasureReaders(setup);
        Compare(report, table, size + (deviceMemory ? ", device memory" : ", ordinary memory"),
                deviceMemory);
    }
}

} // namespace

int main(int count, char** arguments)
{
    if (count < 5 || count > 6 || std::atof(arguments[4]) <= 0) {
        std::fprintf(stderr, "usage: %s LIBRARIES CAMERA_PROGRAM JSON_FILE SECONDS [ARAVIS]\n",
                     arguments[0]);
        return 2;
    }
    try {
        if (std::freopen("/dev/null", "w", stdout) == nullptr) { // the library's own texts
            return 2;
        }
        const std::string libraries = arguments[1];
        const Setup setup{libraries + "/zr_u3v_tl.cti", libraries + "/zr_u3v_standard.cti",
                          count == 6 ? arguments[5] : "", std::atof(arguments[4]), false};
        Report report;
        MeasureSize(report, setup, arguments[2], "640x480");
        MeasureSize(report, setup, arguments[2], "2048x1536");
        report.WriteJson(arguments[3]);
        std::fprintf(stderr, "\n%s", report.Table().c_str());
    } catch (const std::exception& error) {
        std::fprintf(stderr, "zr_bench_vm: %s\n", error.what());
        return 1;
    }
    return 0;
}
