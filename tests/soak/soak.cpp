// Images without end and starts and stops without number, as on a production line: none lost,
// doubled or torn while the consumer keeps up, whole ones for a consumer that does not,
// every stop within its bound, and memory, threads and descriptors flat.
//
//     zr_soak <images> <cycles>

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
#include <virtual_bus.h>
#include <zr_u3v_tl/gentl.h>

namespace {

using std::chrono::duration_cast;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr uint64_t kTriggerMode = 0x501EC;
constexpr uint64_t kTriggerSoftware = 0x501F4;
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

void Succeeds(GC_ERROR status, const char* call)
{
    if (status != GC_ERR_SUCCESS) {
        Fail(std::string(call) + " answered " + std::to_string(status));
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
    Soak();
    ~Soak();
    Soak(const Soak&) = delete;
    Soak& operator=(const Soak&) = delete;

    void EveryImageOnce(uint64_t images);
    void SlowConsumer(uint64_t images);
    void Cycles(uint64_t cycles);

private:
    void _write(uint64_t address, uint32_t value) const;
    void _start() const;
    void _stop();
    void _rewind() const;
    BUFFER_HANDLE _next() const;
    uint64_t _check(BUFFER_HANDLE buffer) const;
    template <class T>
    T _info(BUFFER_HANDLE buffer, BUFFER_INFO_CMD command) const;

    vusb::Camera m_camera{"width=32,height=32"};
    TL_HANDLE m_system = nullptr;
    IF_HANDLE m_interface = nullptr;
    DEV_HANDLE m_device = nullptr;
    PORT_HANDLE m_port = nullptr;
    DS_HANDLE m_stream = nullptr;
    EVENT_HANDLE m_event = nullptr;
    std::vector<std::vector<uint8_t>> m_memory;
    std::vector<BUFFER_HANDLE> m_buffers;
    milliseconds m_longestStop{0};
};

Soak::Soak()
{
    Succeeds(GCInitLib(), "GCInitLib");
    Succeeds(TLOpen(&m_system), "TLOpen");
    Succeeds(TLUpdateInterfaceList(m_system, nullptr, 0), "TLUpdateInterfaceList");
    Succeeds(TLOpenInterface(m_system, "ZRK-USB-3-IF ID", &m_interface), "TLOpenInterface");
    uint32_t devices = 0;
    for (int i = 0; i < 100 && devices == 0; ++i) {
        IFUpdateDeviceList(m_interface, nullptr, 20);
        Succeeds(IFGetNumDevices(m_interface, &devices), "IFGetNumDevices");
    }
    Succeeds(IFOpenDevice(m_interface, "120900000001", DEVICE_ACCESS_EXCLUSIVE, &m_device),
             "IFOpenDevice");
    Succeeds(DevGetPort(m_device, &m_port), "DevGetPort");
    Succeeds(DevOpenDataStream(m_device, "0", &m_stream), "DevOpenDataStream");
    Succeeds(GCRegisterEvent(m_stream, EVENT_NEW_BUFFER, &m_event), "GCRegisterEvent");
    m_memory.assign(kBuffers, std::vector<uint8_t>(m_camera.PayloadSize()));
    for (auto& memory : m_memory) {
        BUFFER_HANDLE buffer = nullptr;
        Succeeds(DSAnnounceBuffer(m_stream, memory.data(), memory.size(), nullptr, &buffer),
                 "DSAnnounceBuffer");
        m_buffers.push_back(buffer);
    }
}

Soak::~Soak()
{
    std::fprintf(stderr, "longest stop %ld ms\n", long{m_longestStop.count()});
    Succeeds(GCCloseLib(), "GCCloseLib");
    Demand(vusb::Violations().empty(), "a rule of libusb was broken: " + vusb::Violations());
}

void Soak::_write(uint64_t address, uint32_t value) const
{
    size_t size = sizeof(value);
    Succeeds(GCWritePort(m_port, address, &value, &size), "GCWritePort");
}

void Soak::_start() const
{
    Succeeds(DSStartAcquisition(m_stream, ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE),
             "DSStartAcquisition");
}

void Soak::_stop()
{
    const auto begin = steady_clock::now();
    Succeeds(DSStopAcquisition(m_stream, ACQ_STOP_FLAGS_DEFAULT), "DSStopAcquisition");
    const auto took = duration_cast<milliseconds>(steady_clock::now() - begin);
    m_longestStop = std::max(m_longestStop, took);
    Demand(took < kLongestStop, "a stop took " + std::to_string(took.count()) + " ms");
}

// Nothing undelivered, every buffer in the input list.
void Soak::_rewind() const
{
    Succeeds(DSFlushQueue(m_stream, ACQ_QUEUE_ALL_DISCARD), "DSFlushQueue");
    for (BUFFER_HANDLE buffer : m_buffers) {
        Succeeds(DSQueueBuffer(m_stream, buffer), "DSQueueBuffer");
    }
}

BUFFER_HANDLE Soak::_next() const
{
    EVENT_NEW_BUFFER_DATA data{};
    size_t size = sizeof(data);
    Succeeds(EventGetData(m_event, &data, &size, kImageTimeout), "EventGetData");
    return data.BufferHandle;
}

template <class T>
T Soak::_info(BUFFER_HANDLE buffer, BUFFER_INFO_CMD command) const
{
    T value{};
    size_t size = sizeof(value);
    INFO_DATATYPE type = INFO_DATATYPE_UNKNOWN;
    Succeeds(DSGetBufferInfo(m_stream, buffer, command, &type, &value, &size), "DSGetBufferInfo");
    return value;
}

// The image's number; every byte is that image's own.
uint64_t Soak::_check(BUFFER_HANDLE buffer) const
{
    const auto frame = _info<uint64_t>(buffer, BUFFER_INFO_FRAMEID);
    Demand(!_info<bool8_t>(buffer, BUFFER_INFO_IS_INCOMPLETE), "an image is incomplete");
    if (vusb_compare_image(m_camera.Id(), frame, _info<void*>(buffer, BUFFER_INFO_BASE),
                           m_camera.PayloadSize()) != -1) {
        Fail("image " + std::to_string(frame) + " is torn");
    }
    return frame;
}

// The camera sends one image per trigger, fewer ahead than there are buffers: a consumer that keeps
// up gets each one once and in order.
void Soak::EveryImageOnce(uint64_t images)
{
    _write(kTriggerMode, 1);
    _rewind();
    _start();
    for (uint64_t i = 0; i < std::min<uint64_t>(images, kBuffers / 2); ++i) {
        _write(kTriggerSoftware, 1);
    }
    for (uint64_t expected = 0; expected < images; ++expected) {
        const BUFFER_HANDLE buffer = _next();
        const uint64_t frame = _check(buffer);
        if (frame != expected) {
            Fail("image " + std::to_string(frame) + " instead of " + std::to_string(expected));
        }
        Succeeds(DSQueueBuffer(m_stream, buffer), "DSQueueBuffer");
        if (expected + kBuffers / 2 < images) {
            _write(kTriggerSoftware, 1);
        }
    }
    _stop();
    _write(kTriggerMode, 0);
}

// A consumer slower than the camera: one buffer answers for several images then, so numbers repeat
// and go back; but whatever comes is one whole image.
void Soak::SlowConsumer(uint64_t images)
{
    _rewind();
    _start();
    for (uint64_t i = 0; i < images; ++i) {
        const BUFFER_HANDLE buffer = _next();
        _check(buffer);
        std::this_thread::sleep_for(milliseconds(1));
        Succeeds(DSQueueBuffer(m_stream, buffer), "DSQueueBuffer");
    }
    _stop();
}

void Soak::Cycles(uint64_t cycles)
{
    for (uint64_t cycle = 0; cycle < cycles; ++cycle) {
        _rewind();
        _start();
        _check(_next());
        _stop();
    }
}

void Run(uint64_t images, uint64_t cycles)
{
    Soak soak;
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
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s <images> <cycles>\n", argv[0]);
        return 2;
    }
    if (std::freopen("/dev/null", "w", stdout) == nullptr) { // the library's own texts
        return 2;
    }
    vusb_reset();
    vusb_journal_limit(16);
    Run(std::strtoull(argv[1], nullptr, 10), std::strtoull(argv[2], nullptr, 10));
    std::fprintf(stderr, "%s images, %s cycles: clean\n", argv[1], argv[2]);
    return 0;
}
