// Register access at the camera through GenTL against the same bulk transfers bare, on the same
// bus.

#include <virtual_bus.h>

#include "bench_consumer.h"
#include "bench_figures.h"
#include "bench_time.h"
#include "bench_usb.h"

namespace bench {

namespace {

constexpr uint64_t kRegister = 0x50000;
constexpr uint64_t kFile = 0x100000;
constexpr size_t kFileSize = 1 << 20;
constexpr size_t kPiece = 256; // what the library reads at a time
constexpr int kReadsABlock = 200;

template <class Read>
double MicrosecondsOf(Read&& read, int times)
{
    const Stopwatch watch;
    for (int i = 0; i < times; ++i) {
        read();
    }
    return watch.Seconds() * 1e6 / times;
}

} // namespace

// Two cameras, so that both ways are open at the same time and measured in turns.
void MeasureControl(Report& report, const Effort& effort)
{
    vusb_reset();
    const std::string padded = "description-size=" + std::to_string(kFileSize);
    const vusb::Camera first(padded);
    const vusb::Camera second(padded + ",guid=120900000002");
    const Library library(2);
    const OpenCamera camera(library, 0);
    UsbCamera bare(1);
    uint32_t value = 0;
    std::vector<uint8_t> file(kFileSize);
    std::vector<double> times[4];
    for (int round = 0; round < 4 * effort.rounds; ++round) {
        times[0].push_back(
            MicrosecondsOf([&] { camera.Read(kRegister, &value, 4); }, kReadsABlock));
        times[1].push_back(MicrosecondsOf([&] { bare.Read(kRegister, &value, 4); }, kReadsABlock));
    }
    for (int round = 0; round < effort.rounds; ++round) {
        times[2].push_back(
            MicrosecondsOf([&] { camera.Read(kFile, file.data(), file.size()); }, 1));
        times[3].push_back(MicrosecondsOf(
            [&] {
                for (size_t at = 0; at < file.size(); at += kPiece) {
                    bare.Read(kFile + at, file.data() + at, kPiece);
                }
            },
            1));
    }
    report.Add({"GCReadPort of 4 bytes", Median(times[0]), "us", "the same transfers, bare",
                Median(times[1]), Row::Goal::AtMost, 1.1});
    report.Add({"description file of 1 MiB", Median(times[2]) / 1e3, "ms",
                "the same transfers, bare", Median(times[3]) / 1e3, Row::Goal::AtMost, 1.1});
}

} // namespace bench
