#include "bench_readers.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "bench_consumer.h"
#include "bench_queue.h"
#include "bench_time.h"
#include "camera_features.h"

namespace bench {

namespace {

constexpr size_t kBuffers = 4;
constexpr uint64_t kUpdateMs = 700; // a pass over the emulated machine's root hubs takes long
constexpr unsigned kLongest = 120;  // seconds in a child

// Whether device memory is to be had: with it refused the exact producer takes ordinary memory.
std::atomic<bool> g_deviceMemory{true};

double Switches()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_nvcsw);
}

template <class Read>
Outcome Measure(const Setup& setup, size_t payload, pid_t excluded, Read&& read)
{
    for (size_t i = 0; i < 2 * kBuffers; ++i) {
        read();
    }
    const Stopwatch watch(excluded);
    const double switchesBefore = Switches();
    double images = 0;
    do {
        read();
        ++images;
    } while (watch.Seconds() < setup.seconds);
    const double gigabytes = images * static_cast<double>(payload) / 1e9;
    return {images / watch.Seconds(), watch.CpuSeconds() / gigabytes,
            (Switches() - switchesBefore) / images};
}

// Memory of one image, of either kind.
class Block
{
public:
    Block(const UsbCamera& camera, bool deviceMemory)
        : m_camera(camera),
          m_device(deviceMemory ? libusb_dev_mem_alloc(camera.Handle(), camera.Payload())
                                : nullptr),
          m_ordinary(deviceMemory ? 0 : camera.Payload())
    {
        if (deviceMemory && m_device == nullptr) {
            throw Failure("no memory for the bare reader");
        }
    }
    ~Block()
    {
        if (m_device != nullptr) {
            libusb_dev_mem_free(m_camera.Handle(), m_device, m_camera.Payload());
        }
    }
    Block(const Block&) = delete;
    Block& operator=(const Block&) = delete;

    uint8_t* Data() { return m_device != nullptr ? m_device : m_ordinary.data(); }

private:
    const UsbCamera& m_camera;
    uint8_t* const m_device;
    std::vector<uint8_t> m_ordinary;
};

// The few functions of Aravis that a reader needs, in whichever of its releases is there. Its
// objects are only handed around.
class Aravis
{
public:
    explicit Aravis(const std::string& library) : m_library(dlopen(library.c_str(), RTLD_NOW))
    {
        if (m_library == nullptr) {
            throw Failure(dlerror());
        }
    }

    template <class Result, class... Arguments>
    Result Call(const char* name, Arguments... arguments) const
    {
        auto* const function = reinterpret_cast<Result (*)(Arguments...)>(dlsym(m_library, name));
        if (function == nullptr) {
            throw Failure(std::string("Aravis has no ") + name);
        }
        return function(arguments...);
    }

private:
    void* const m_library;
};

// Modes of its class for USB3 Vision cameras: 0 is synchronous, 1 asynchronous.
Outcome ReadByAravis(const Setup& setup, int mode)
{
    constexpr uint64_t kTimeout = 3'000'000; // us
    void* const none = nullptr;
    const char* const any = nullptr;
    const Aravis aravis(setup.aravis);
    void* const camera = aravis.Call<void*>("arv_camera_new", any, none);
    aravis.Call<void>("arv_camera_uv_set_usb_mode", camera, mode);
    const auto payload = aravis.Call<size_t>("arv_camera_get_payload", camera, none);
    void* const stream =
        aravis.Call<void*>("arv_camera_create_stream", camera, none, none, none, none);
    if (setup.deviceMemory) {
        aravis.Call<int>("arv_stream_create_buffers", stream, unsigned{kBuffers}, none, none, none);
    }
    for (size_t i = 0; i < kBuffers && !setup.deviceMemory; ++i) {
        aravis.Call<void>("arv_stream_push_buffer", stream,
                          aravis.Call<void*>("arv_buffer_new_allocate", payload));
    }
    aravis.Call<void>("arv_camera_start_acquisition", camera, none);
    const Outcome outcome = Measure(setup, payload, 0, [&] {
        void* const buffer = aravis.Call<void*>("arv_stream_timeout_pop_buffer", stream, kTimeout);
        if (buffer == nullptr || aravis.Call<int>("arv_buffer_get_status", buffer) != 0) {
            throw Failure("no image by Aravis");
        }
        aravis.Call<void>("arv_stream_push_buffer", stream, buffer);
    });
    aravis.Call<void>("arv_camera_stop_acquisition", camera, none);
    return outcome;
}

} // namespace

Outcome ReadBare(const Setup& setup)
{
    UsbCamera camera(0);
    camera.Start();
    Block block(camera, setup.deviceMemory);
    const Outcome outcome =
        Measure(setup, camera.Payload(), 0, [&] { camera.ReadImage(block.Data()); });
    camera.Stop();
    return outcome;
}

Outcome ReadQueued(const Setup& setup)
{
    UsbCamera camera(0);
    camera.Start();
    Outcome outcome{};
    {
        QueuedStream stream(camera, kBuffers, setup.deviceMemory);
        outcome = Measure(setup, camera.Payload(), 0, [&] { stream.ReadImage(); });
    }
    camera.Stop();
    return outcome;
}

Outcome ReadExact(const Setup& setup)
{
    g_producer = setup.exact;
    g_deviceMemory = setup.deviceMemory;
    const Library library(1, kUpdateMs);
    const OpenCamera camera(library);
    Images images(camera, kBuffers);
    images.Start();
    return Measure(setup, camera.Payload(), library.Worker(), [&] { images.Turn(); });
}

Outcome ReadStandard(const Setup& setup)
{
    using namespace consumer;
    g_producer = setup.standard;
    const Producer producer(g_producer);
    const Session session(producer, {.update_ms = kUpdateMs, .cameras = 1});
    const OpenCamera camera(session);
    Images images(camera, kBuffers,
                  setup.deviceMemory ? BufferMemory::OfProducer : BufferMemory::OfConsumer,
                  RegisterSwitch(camera, camera_features::kAcquisition));
    images.Start();
    return Measure(setup, camera.Payload(), 0, [&] { images.Turn(); });
}

Outcome ReadAravis(const Setup& setup)
{
    return ReadByAravis(setup, 0);
}

Outcome ReadAravisAhead(const Setup& setup)
{
    return ReadByAravis(setup, 1);
}

Outcome InChild(const std::function<Outcome()>& read)
{
    int ends[2];
    if (pipe(ends) != 0) {
        throw Failure("no pipe");
    }
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        alarm(kLongest);
        try {
            const Outcome outcome = read();
            _exit(write(ends[1], &outcome, sizeof outcome) == sizeof outcome ? 0 : 1);
        } catch (const std::exception& error) {
            std::fprintf(stderr, "%s\n", error.what());
            _exit(1);
        }
    }
    close(ends[1]);
    Outcome outcome{};
    const bool isRead = ::read(ends[0], &outcome, sizeof outcome) == sizeof outcome;
    close(ends[0]);
    waitpid(child, nullptr, 0);
    if (!isRead) {
        throw Failure("a reader has failed");
    }
    return outcome;
}

} // namespace bench

// In front of libusb's own, for the library as well.
extern "C" __attribute__((visibility("default"))) unsigned char*
libusb_dev_mem_alloc(libusb_device_handle* handle, size_t length)
{
    using Function = unsigned char*(libusb_device_handle*, size_t);
    static auto* const next = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, "libusb_dev_mem_alloc"));
    return bench::g_deviceMemory && next != nullptr ? next(handle, length) : nullptr;
}
