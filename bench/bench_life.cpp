// What opening, starting, stopping and closing take, what an open stream costs that does nothing,
// and how much memory an acquisition needs.

#include <functional>
#include <malloc.h>
#include <memory>
#include <unistd.h>

#include <virtual_bus.h>

#include "bench_consumer.h"
#include "bench_figures.h"
#include "bench_time.h"
#include "bench_usb.h"
#include "camera_features.h"

namespace bench {

namespace {

// Bytes that the process has taken from the C library.
double Taken()
{
    const struct mallinfo2 info = mallinfo2();
    return static_cast<double>(info.uordblks + info.hblkhd);
}

// What a running acquisition holds beside the consumer's own buffers.
double HeldBy(uint32_t width, uint32_t height, size_t buffers)
{
    vusb_reset();
    const vusb::Camera device("width=" + std::to_string(width) +
                              ",height=" + std::to_string(height));
    const Library library(1);
    const OpenCamera camera(library);
    Images images(camera, buffers);
    camera.WaitForTriggers(true);
    const double before = Taken();
    images.Start();
    for (size_t i = 0; i < buffers; ++i) {
        device.Poke<uint32_t>(camera_features::kTriggerSoftware, 1);
        images.Turn();
    }
    const double held = Taken() - before;
    camera.WaitForTriggers(false); // for the stop, which waits for the transfer in flight
    return held;
}

void AddMemory(Report& report, uint32_t width, uint32_t height, size_t buffers)
{
    const double payload = static_cast<double>(width) * height;
    const double mb = 1e6;
    report.Add({"memory of an acquisition, " + std::to_string(width) + "x" +
                    std::to_string(height) + ", " + std::to_string(buffers) + " buffers",
                HeldBy(width, height, buffers) / mb, "MB", "payload x (buffers + 2)",
                payload * static_cast<double>(buffers + 2) / mb, Row::Goal::AtMost, 1.1});
}

double MillisecondsOf(const std::function<void()>& call)
{
    const Stopwatch watch;
    call();
    return watch.Seconds() * 1e3;
}

// The processor time of everything but the discovery worker while nothing happens, per second.
double IdleMilliseconds(pid_t worker, double seconds)
{
    const Stopwatch watch(worker);
    usleep(static_cast<useconds_t>(seconds * 1e6));
    return watch.CpuSeconds() * 1e3 / watch.Seconds();
}

// Rounds of a computation that a thread gets done per second.
double Progress(double seconds)
{
    const Stopwatch watch;
    volatile uint64_t value = 1;
    uint64_t rounds = 0;
    do {
        for (int i = 0; i < 100000; ++i) {
            value = value * 6364136223846793005ULL + 1442695040888963407ULL;
        }
        ++rounds;
    } while (watch.Seconds() < seconds);
    return static_cast<double>(rounds) / watch.Seconds();
}

// In short turns, for the machine may be busy with something else now and then.
void AddBusyThread(Report& report, const Effort& effort)
{
    constexpr int kTurns = 10;
    std::vector<double> with;
    std::vector<double> without;
    for (int round = 0; round < effort.rounds; ++round) {
        vusb_reset();
        const vusb::Camera device;
        {
            const Library library(1);
            for (int i = 0; i < kTurns; ++i) {
                with.push_back(Progress(effort.seconds / kTurns));
            }
        }
        for (int i = 0; i < kTurns; ++i) {
            without.push_back(Progress(effort.seconds / kTurns));
        }
    }
    report.Add({"busy thread beside an open interface", Median(with), "rounds/s",
                "without the library", Median(without), Row::Goal::AtLeast, 0.9});
}

struct Times
{
    std::vector<double> open;
    std::vector<double> bareOpen;
    std::vector<double> start;
    std::vector<double> first;
    std::vector<double> stop;
    std::vector<double> close;
};

void MeasureOnce(const Library& library, Times& times)
{
    times.bareOpen.push_back(MillisecondsOf([] { const UsbCamera bare(0); }));
    std::unique_ptr<OpenCamera> camera;
    times.open.push_back(MillisecondsOf([&] { camera = std::make_unique<OpenCamera>(library); }));
    {
        Images images(*camera, 4);
        times.start.push_back(MillisecondsOf([&] { images.Start(); }));
        times.first.push_back(times.start.back() + MillisecondsOf([&] { images.Next(); }));
        times.stop.push_back(MillisecondsOf([&] { images.Stop(); }));
    }
    times.close.push_back(MillisecondsOf([&] { camera.reset(); }));
}

// A camera that sends nothing: the stop waits for the transfer's own time-out.
double SilentStop()
{
    vusb_reset();
    const vusb::Camera device("faults=stream-silent");
    const Library library(1);
    const OpenCamera camera(library);
    Images images(camera, 4);
    images.Start();
    return MillisecondsOf([&] { images.Stop(); });
}

} // namespace

void MeasureMemory(Report& report, const Effort& /*effort*/)
{
    AddMemory(report, 640, 480, 4);
    AddMemory(report, 640, 480, 16);
    AddMemory(report, 2048, 1536, 4);
    AddMemory(report, 2048, 1536, 16);
}

void MeasureIdle(Report& report, const Effort& effort)
{
    {
        vusb_reset();
        const vusb::Camera device("pattern=still");
        const Library library(1);
        const OpenCamera camera(library);
        report.Add({"open stream at rest, CPU per second", IdleMilliseconds(library.Worker(), 2),
                    "ms", "one millisecond", 1, Row::Goal::AtMost, 1});
        camera.WaitForTriggers(true);
        Images images(camera, 4);
        images.Start();
        report.Add({"acquisition without images, CPU per second",
                    IdleMilliseconds(library.Worker(), 2), "ms", "one millisecond", 1,
                    Row::Goal::AtMost, 1});
        camera.WaitForTriggers(false); // for the stop, which waits for the transfer in flight
    }
    AddBusyThread(report, effort);
}

void MeasureLife(Report& report, const Effort& effort)
{
    Times times;
    {
        vusb_reset();
        const vusb::Camera device("pattern=still");
        const Library library(1);
        for (int round = 0; round < 2 * effort.rounds; ++round) {
            MeasureOnce(library, times);
        }
    }
    report.Add({"open of device and stream", Median(times.open), "ms", "a bare open and claim",
                Median(times.bareOpen)});
    report.Add({"start", Median(times.start), "ms", "no wait", 0});
    report.Add({"start to first image", Median(times.first), "ms", "no wait", 0});
    report.Add({"stop while images come", Median(times.stop), "ms", "no wait", 0});
    report.Add({"close of stream and device", Median(times.close), "ms", "no wait", 0});
    report.Add({"stop of a silent camera", SilentStop(), "ms", "the transfer's time-out", 3000,
                Row::Goal::AtMost, 1.05});
}

} // namespace bench
