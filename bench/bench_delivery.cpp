// Images delivered through GenTL against memcpy of the same images: throughput and processor time.

#include <algorithm>
#include <cstring>
#include <memory>
#include <thread>

#include <virtual_bus.h>

#include "bench_consumer.h"
#include "bench_figures.h"
#include "bench_time.h"
#include "camera_features.h"

namespace bench {

namespace {

// Images under way at a time, fewer than there are buffers: what is sent is delivered, once.
constexpr size_t kBuffers = 8;
constexpr size_t kAhead = 4;

struct Size
{
    uint32_t width;
    uint32_t height;
    bool large; // the goals are for the larger ones

    std::string Text() const { return std::to_string(width) + "x" + std::to_string(height); }
    std::string Options() const
    {
        return "pattern=still,width=" + std::to_string(width) + ",height=" + std::to_string(height);
    }
};

constexpr Size kSizes[] = {{640, 480, false}, {2048, 1536, true}, {5120, 5120, true}};

// What one side of a round came to.
struct Rate
{
    double bytesPerSecond = 0;
    double cpuPerByte = 0; // seconds
};

struct Rates
{
    std::vector<double> bytesPerSecond;
    std::vector<double> cpuPerByte;

    void Add(const Rate& rate)
    {
        bytesPerSecond.push_back(rate.bytesPerSecond);
        cpuPerByte.push_back(rate.cpuPerByte);
    }
    double MegabytesPerSecond() const { return Median(bytesPerSecond) / 1e6; }
    double CpuPerGigabyte() const { return Median(cpuPerByte) * 1e9; }
};

// Repeats "move one image" for the given time.
template <class Move>
Rate Measure(double seconds, size_t payload, pid_t excluded, Move&& move)
{
    const Stopwatch watch(excluded);
    uint64_t images = 0;
    do {
        move();
        ++images;
    } while (watch.Seconds() < seconds);
    const double bytes = static_cast<double>(images * payload);
    return {bytes / watch.Seconds(), watch.CpuSeconds() / bytes};
}

// The same images without a library: from the image to a ring of buffers, or through a second ring
// on the way.
class Copier
{
public:
    explicit Copier(size_t payload)
        : m_image(payload, 0x5A), m_middle(kAhead, m_image), m_ring(kBuffers, m_image)
    {
    }

    void Once() { _copy(m_image, m_ring[m_turn++ % kBuffers]); }
    void Twice()
    {
        auto& middle = m_middle[m_turn % kAhead];
        _copy(m_image, middle);
        _copy(middle, m_ring[m_turn++ % kBuffers]);
    }

private:
    using Memory = std::vector<uint8_t>;

    static void _copy(const Memory& from, Memory& to)
    {
        std::memcpy(to.data(), from.data(), from.size());
        asm volatile("" : : "r"(to.data()) : "memory"); // the copy is wanted
    }

    Memory m_image;
    std::vector<Memory> m_middle;
    std::vector<Memory> m_ring;
    size_t m_turn = 0;
};

// An acquisition that always has a few images under way.
class Delivery
{
public:
    Delivery(const Library& library, const vusb::Camera& device, size_t index = 0)
        : m_device(device), m_camera(library, index), m_images(m_camera, kBuffers)
    {
        m_camera.WaitForTriggers(true);
        m_images.Start();
        for (size_t i = 0; i < kAhead; ++i) {
            _trigger();
        }
        for (size_t i = 0; i < 2 * kBuffers; ++i) { // every block and buffer was touched
            Turn();
        }
    }
    // Images without triggers, for the stop waits for the transfer in flight.
    ~Delivery()
    {
        m_camera.WaitForTriggers(false);
        m_images.Stop();
    }
    Delivery(const Delivery&) = delete;
    Delivery& operator=(const Delivery&) = delete;

    void Turn()
    {
        m_images.Turn();
        _trigger();
    }

private:
    void _trigger() const { m_device.Poke<uint32_t>(camera_features::kTriggerSoftware, 1); }

    const vusb::Camera& m_device;
    OpenCamera m_camera;
    Images m_images;
};

void MeasureSize(Report& report, const Effort& effort, const Size& size)
{
    vusb_reset();
    const vusb::Camera device(size.Options());
    const size_t payload = device.PayloadSize();
    const Library library(1);
    Copier copier(payload);
    Rates delivered;
    Rates once;
    Rates twice;
    for (int round = 0; round < effort.rounds; ++round) {
        {
            Delivery delivery(library, device);
            delivered.Add(Measure(effort.seconds, payload, library.Worker(),
                                  [&delivery] { delivery.Turn(); }));
        }
        once.Add(Measure(effort.seconds / 2, payload, library.Worker(), [&] { copier.Once(); }));
        twice.Add(Measure(effort.seconds / 2, payload, library.Worker(), [&] { copier.Twice(); }));
    }
    const std::string figure = "delivered " + size.Text();
    report.Add(
        {figure, delivered.MegabytesPerSecond(), "MB/s", "memcpy once", once.MegabytesPerSecond()});
    report.Add({figure, delivered.MegabytesPerSecond(), "MB/s", "memcpy twice",
                twice.MegabytesPerSecond(), size.large ? Row::Goal::AtLeast : Row::Goal::None,
                0.9});
    report.Add({"CPU per GB " + size.Text(), delivered.CpuPerGigabyte(), "s", "memcpy once",
                once.CpuPerGigabyte()});
    report.Add({"CPU per GB " + size.Text(), delivered.CpuPerGigabyte(), "s", "memcpy twice",
                twice.CpuPerGigabyte()});
}

// Bytes per second of so many cameras at once, each with a consumer thread of its own.
double AtOnce(size_t count, double seconds)
{
    vusb_reset();
    std::vector<std::unique_ptr<vusb::Camera>> devices;
    for (size_t i = 0; i < count; ++i) {
        devices.push_back(std::make_unique<vusb::Camera>(kSizes[1].Options() + ",guid=12090000000" +
                                                         std::to_string(i + 1)));
    }
    const Library library(count);
    std::vector<std::unique_ptr<Delivery>> deliveries;
    for (size_t i = 0; i < count; ++i) {
        deliveries.push_back(std::make_unique<Delivery>(library, *devices[i], i));
    }
    const size_t payload = devices[0]->PayloadSize();
    std::vector<double> rates(count, 0);
    std::vector<std::thread> consumers;
    for (size_t i = 0; i < count; ++i) {
        consumers.emplace_back([&, i] {
            rates[i] = Measure(seconds, payload, 0, [&] { deliveries[i]->Turn(); }).bytesPerSecond;
        });
    }
    double sum = 0;
    for (size_t i = 0; i < count; ++i) {
        consumers[i].join();
        sum += rates[i];
    }
    return sum;
}

} // namespace

void MeasureDelivery(Report& report, const Effort& effort)
{
    for (const Size& size : kSizes) {
        MeasureSize(report, effort, size);
    }
}

void MeasureSeveralCameras(Report& report, const Effort& effort)
{
    std::vector<double> one;
    std::vector<double> two;
    std::vector<double> four;
    for (int round = 0; round < effort.rounds; ++round) {
        one.push_back(AtOnce(1, effort.seconds));
        two.push_back(AtOnce(2, effort.seconds));
        four.push_back(AtOnce(4, effort.seconds));
    }
    const double single = Median(one) / 1e6;
    const std::string size = " cameras at once, " + kSizes[1].Text();
    report.Add({"two" + size, Median(two) / 1e6, "MB/s", "one camera", single});
    report.Add({"four" + size, Median(four) / 1e6, "MB/s", "one camera", single});
}

} // namespace bench
