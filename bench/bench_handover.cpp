// From the completion of the trailer to the return of EventGetData: three threads, two hand-overs
// between them. Compared with two bare ones.

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include <virtual_bus.h>

#include "bench_consumer.h"
#include "bench_figures.h"
#include "bench_time.h"
#include "camera_features.h"
#include "usb_tap.h"

namespace bench {

namespace {

constexpr int kTrailerSize = 32;
constexpr size_t kImagesARound = 100;
// Between two images everybody has fallen asleep.
constexpr std::chrono::milliseconds kPause{2};

// A flag under a mutex with a condition variable: what a hand-over cannot do without.
class Baton
{
public:
    void Pass()
    {
        {
            const std::lock_guard lock(m_mutex);
            m_passed = true;
        }
        m_condition.notify_one();
    }
    void Take()
    {
        std::unique_lock lock(m_mutex);
        m_condition.wait(lock, [this] { return m_passed; });
        m_passed = false;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_condition;
    bool m_passed = false;
};

// A thread that passes on what it is passed.
class Relay
{
public:
    Relay() : m_thread([this] { _run(); }) {}
    ~Relay()
    {
        m_ends = true;
        m_in.Pass();
        m_thread.join();
    }
    Relay(const Relay&) = delete;
    Relay& operator=(const Relay&) = delete;

    Baton& In() { return m_in; }
    Baton& Out() { return m_out; }

private:
    void _run()
    {
        for (;;) {
            m_in.Take();
            if (m_ends) {
                return;
            }
            m_out.Pass();
        }
    }

    Baton m_in;
    Baton m_out;
    std::atomic<bool> m_ends = false;
    std::thread m_thread;
};

// The first thread of three notes the time and passes; the last one is the caller.
void MeasureBare(std::vector<double>& times)
{
    Relay relay;
    std::atomic<int64_t> start = 0;
    Baton begin;
    std::thread first([&] {
        for (size_t i = 0; i < kImagesARound; ++i) {
            begin.Take();
            std::this_thread::sleep_for(kPause);
            start = NowNs();
            relay.In().Pass();
        }
    });
    for (size_t i = 0; i < kImagesARound; ++i) {
        begin.Pass();
        relay.Out().Take();
        times.push_back(static_cast<double>(NowNs() - start) / 1e3);
    }
    first.join();
}

void MeasureImages(const vusb::Camera& device, const Images& images, std::vector<double>& times)
{
    Baton begin;
    std::thread trigger([&] {
        for (size_t i = 0; i < kImagesARound; ++i) {
            begin.Take();
            std::this_thread::sleep_for(kPause);
            device.Poke<uint32_t>(camera_features::kTriggerSoftware, 1);
        }
    });
    for (size_t i = 0; i < kImagesARound; ++i) {
        begin.Pass();
        const BUFFER_HANDLE image = images.Next();
        times.push_back(static_cast<double>(NowNs() - usb_tap::LastCompletion()) / 1e3);
        images.Queue(image);
    }
    trigger.join();
}

} // namespace

// A small image: what is left is waking up, not copying.
void MeasureHandover(Report& report, const Effort& effort)
{
    vusb_reset();
    const vusb::Camera device("width=64,height=48,pattern=still");
    const Library library(1);
    const OpenCamera camera(library);
    Images images(camera, 4);
    camera.WaitForTriggers(true);
    usb_tap::Watch(kTrailerSize);
    images.Start();
    std::vector<double> times;
    std::vector<double> bare;
    for (int round = 0; round < 2 * effort.rounds; ++round) {
        MeasureImages(device, images, times);
        MeasureBare(bare);
    }
    usb_tap::Watch(-1);
    camera.WaitForTriggers(false); // for the stop, which waits for the transfer in flight
    const char* const against = "two bare hand-overs between threads";
    report.Add({"trailer to EventGetData, median", Median(times), "us", against, Median(bare),
                Row::Goal::AtMost, 1.5});
    report.Add({"trailer to EventGetData, 99th percentile", Percentile(times, 99), "us", against,
                Percentile(bare, 99)});
}

} // namespace bench
