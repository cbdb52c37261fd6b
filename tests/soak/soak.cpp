// Images without end and starts and stops without number, as on a production line: none lost,
// doubled or torn while the consumer keeps up, whole ones for a consumer that does not,
// every stop within its bound, and memory, threads and descriptors flat.
//
//     zr_soak <cti> <images> <cycles>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <acquisition.h>
#include <camera_features.h>
#include <virtual_bus.h>
#include <wait.h>

namespace {

using std::chrono::duration_cast;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr size_t kBuffers = 8;
constexpr uint64_t kImageTimeout = 20000; // ms
// A stop waits up to 5 s for the bus and then switches the camera off.
constexpr milliseconds kLongestStop{5000 + 2000};
// What the C library may keep back; a leak of one small image per hundred would be far beyond it.
constexpr long kAllowedGrowth = 4096; // KiB

[[noreturn]] void Fail(const std::string& what)
{
    std::fprintf(stderr, "soak failed: %s\n", what.c_str());
    std::_Exit(1); // nothing is closed any more, as after any broken promise
}

void Demand(bool kept, const std::string& what)
{
    if (!kept) {
        Fail(what);
    }
}

size_t EntriesOf(const char* folder)
{
    const std::filesystem::directory_iterator entries(folder);
    return static_cast<size_t>(std::distance(begin(entries), end(entries)));
}

long ResidentKiB()
{
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmRSS:")) {
            return std::strtol(line.c_str() + 6, nullptr, 10);
        }
    }
    return 0;
}

// A sanitizer keeps freed memory back and has shadows of it: the process's size says nothing then.
#ifdef ZR_SANITIZED
constexpr bool kSizeMeansSomething = false;
#else
constexpr bool kSizeMeansSomething = true;
#endif

// What must not grow.
struct Footprint
{
    long resident = ResidentKiB();
    size_t threads = EntriesOf("/proc/self/task");
    size_t descriptors = EntriesOf("/proc/self/fd");

    void Print(const char* when) const
    {
        std::fprintf(stderr, "%-22s %7ld KiB, %zu threads, %zu descriptors\n", when, resident,
                     threads, descriptors);
    }
    void DemandFlat(const Footprint& before) const
    {
        Demand(!kSizeMeansSomething || resident <= before.resident + kAllowedGrowth,
               "memory grows");
        Demand(threads == before.threads, "threads grow");
        Demand(descriptors == before.descriptors, "descriptors grow");
    }
};

class Soak
{
public:
    explicit Soak(const char* producer);
    ~Soak();
    Soak(const Soak&) = delete;
    Soak& operator=(const Soak&) = delete;

    void EveryImageOnce(uint64_t images);
    void SlowConsumer(uint64_t images);
    void Cycles(uint64_t cycles);

private:
    void _waitForTriggers(bool wait) const;
    void _trigger() const;
    void _start();
    void _stop();
    consumer::Image _next() const;

    const vusb::Camera m_device{"width=32,height=32"};
    std::optional<consumer::Producer> m_producer;
    std::optional<consumer::Session> m_session;
    std::optional<consumer::Camera> m_camera;
    std::optional<consumer::DataStream> m_stream;
    std::optional<consumer::Acquisition> m_acquisition;
    milliseconds m_longestStop{0};
};

Soak::Soak(const char* producer) : m_producer(std::in_place, producer)
{
    m_producer->OnFailedClose([](const std::exception& failure) { Fail(failure.what()); });
    m_session.emplace(*m_producer, consumer::Search{.cameras = 1});
    m_camera.emplace(*m_session, m_session->CameraIds().at(0));
    m_stream.emplace(*m_camera);
    m_acquisition.emplace(*m_stream, m_device.PayloadSize(), kBuffers);
}

Soak::~Soak()
{
    std::fprintf(stderr, "longest stop %ld ms\n", long{m_longestStop.count()});
    m_acquisition.reset();
    m_stream.reset();
    m_camera.reset();
    m_session.reset();
    m_producer.reset();
    Demand(vusb::Violations().empty(), "a rule of libusb was broken: " + vusb::Violations());
}

void Soak::_waitForTriggers(bool wait) const
{
    m_camera->Write<uint32_t>(camera_features::kTriggerMode, wait ? 1 : 0);
}

void Soak::_trigger() const
{
    m_camera->Write<uint32_t>(camera_features::kTriggerSoftware, 1);
}

// With nothing undelivered and every buffer in the input list.
void Soak::_start()
{
    m_acquisition->Rewind();
    m_acquisition->Start();
}

void Soak::_stop()
{
    const auto begin = steady_clock::now();
    m_acquisition->Stop();
    const auto took = duration_cast<milliseconds>(steady_clock::now() - begin);
    m_longestStop = std::max(m_longestStop, took);
    Demand(took < kLongestStop, "a stop took " + std::to_string(took.count()) + " ms");
}

// The next image; every byte is that image's own.
consumer::Image Soak::_next() const
{
    const auto image = m_acquisition->Next(kImageTimeout);
    Demand(image.has_value(), "no image");
    Demand(!image->isIncomplete, "an image is incomplete");
    Demand(image->bytes.size() == m_device.PayloadSize() &&
               vusb_compare_image(m_device.Id(), image->frameId, image->bytes.data(),
                                  image->bytes.size()) == -1,
           "image " + std::to_string(image->frameId) + " is torn");
    return *image;
}

// The camera sends one image per trigger, fewer ahead than there are buffers: a consumer that keeps
// up gets each one once and in order.
void Soak::EveryImageOnce(uint64_t images)
{
    _waitForTriggers(true);
    _start();
    for (uint64_t i = 0; i < std::min<uint64_t>(images, kBuffers / 2); ++i) {
        _trigger();
    }
    for (uint64_t expected = 0; expected < images; ++expected) {
        const consumer::Image image = _next();
        if (image.frameId != expected) {
            Fail("image " + std::to_string(image.frameId) + " instead of " +
                 std::to_string(expected));
        }
        m_acquisition->Queue(image.buffer);
        if (expected + kBuffers / 2 < images) {
            _trigger();
        }
    }
    _stop();
    _waitForTriggers(false);
}

// A consumer slower than the camera: one buffer answers for several images then, so numbers repeat
// and go back; but whatever comes is one whole image.
void Soak::SlowConsumer(uint64_t images)
{
    _start();
    for (uint64_t i = 0; i < images; ++i) {
        const consumer::Image image = _next();
        zr_test::LetPass(milliseconds(1), "slower than the camera");
        m_acquisition->Queue(image.buffer);
    }
    _stop();
}

void Soak::Cycles(uint64_t cycles)
{
    for (uint64_t cycle = 0; cycle < cycles; ++cycle) {
        _start();
        _next();
        _stop();
    }
}

void Run(const char* producer, uint64_t images, uint64_t cycles)
{
    Soak soak(producer);
    // Warm, before anything is compared: caches of the C library, of the bus, of the threads.
    soak.EveryImageOnce(std::min<uint64_t>(images, 2000));
    soak.Cycles(std::min<uint64_t>(cycles, 20));
    soak.SlowConsumer(20);
    const Footprint before;
    before.Print("warm");
    soak.EveryImageOnce(images);
    const Footprint afterImages;
    afterImages.Print("after the images");
    afterImages.DemandFlat(before);
    soak.Cycles(cycles);
    soak.SlowConsumer(std::min<uint64_t>(images / 10, 5000));
    const Footprint after;
    after.Print("after the cycles");
    after.DemandFlat(before);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 4) {
        std::fprintf(stderr, "usage: %s <cti> <images> <cycles>\n", argv[0]);
        return 2;
    }
    if (std::freopen("/dev/null", "w", stdout) == nullptr) { // the library's own texts
        return 2;
    }
    vusb_reset();
    vusb_journal_limit(16);
    try {
        Run(argv[1], std::strtoull(argv[2], nullptr, 10), std::strtoull(argv[3], nullptr, 10));
    } catch (const std::exception& error) {
        Fail(error.what());
    }
    std::fprintf(stderr, "%s images, %s cycles: clean\n", argv[2], argv[3]);
    return 0;
}
