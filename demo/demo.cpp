// The main job of the producer, by its exported functions alone: find a camera, open it, fetch its
// description file, stream images into announced buffers, look at every byte of them and keep the
// last one as a PNG.
//
// On the virtual bus (put in front of libusb with LD_LIBRARY_PATH) the program plugs a simulated
// camera in first and compares what arrives with what was sent. On the real bus it takes the first
// camera it finds, and has nothing to compare with.

#include <array>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "gentl_api.h"
#include "png_image.h"

namespace {

constexpr uint64_t kDiscoveryMs = 200;
constexpr uint64_t kImageWaitMs = 5000;
constexpr size_t kBuffers = 16;
// The camera's own registers.
constexpr uint64_t kPayloadSizeRegister = 0x5000C;

struct Options
{
    std::string producer;
    std::string camera = "width=960,height=720,format=RGB8,pattern=scene,fps=25,user=demo";
    std::string folder = "out";
    unsigned images = 50;
};

// The simulated bus below the producer, if that is what it runs on.
struct VirtualBus
{
    explicit VirtualBus(const GenTL& api)
        : AddCamera(api.FindBelow<int (*)(const char*)>("vusb_add_camera")),
          CompareImage(
              api.FindBelow<int64_t (*)(int, uint64_t, const void*, size_t)>("vusb_compare_image")),
          DescriptionFile(api.FindBelow<size_t (*)(int, void*, size_t)>("vusb_description_file"))
    {
    }
    bool IsThere() const { return AddCamera != nullptr && CompareImage != nullptr; }

    int (*AddCamera)(const char* options);
    int64_t (*CompareImage)(int camera, uint64_t frame, const void* image, size_t size);
    size_t (*DescriptionFile)(int camera, void* data, size_t size);
    int camera = -1;
};

struct Camera
{
    TL_HANDLE system = nullptr;
    IF_HANDLE interface = nullptr;
    DEV_HANDLE device = nullptr;
    PORT_HANDLE remote = nullptr;
    DS_HANDLE stream = nullptr;
    EVENT_HANDLE newBuffer = nullptr;
    std::string id;
};

std::string DeviceText(const GenTL& api, const Camera& camera, DEVICE_INFO_CMD command)
{
    std::array<char, 256> text{};
    size_t size = text.size();
    INFO_DATATYPE type = 0;
    DEMO_CALL(api, IFGetDeviceInfo, camera.interface, camera.id.c_str(), command, &type,
              text.data(), &size);
    return text.data();
}

void PrintProducer(const GenTL& api)
{
    std::array<char, 256> name{};
    std::array<char, 256> version{};
    size_t nameSize = name.size();
    size_t versionSize = version.size();
    INFO_DATATYPE type = 0;
    DEMO_CALL(api, GCGetInfo, TL_INFO_DISPLAYNAME, &type, name.data(), &nameSize);
    DEMO_CALL(api, GCGetInfo, TL_INFO_VERSION, &type, version.data(), &versionSize);
    std::printf("producer     %s %s\n", name.data(), version.data());
}

// Lists all cameras, the first one last, and opens that.
void OpenCamera(const GenTL& api, Camera& camera)
{
    std::array<char, 256> id{};
    size_t size = id.size();
    uint32_t count = 0;
    DEMO_CALL(api, TLOpen, &camera.system);
    DEMO_CALL(api, TLUpdateInterfaceList, camera.system, nullptr, 0);
    DEMO_CALL(api, TLGetInterfaceID, camera.system, 0, id.data(), &size);
    DEMO_CALL(api, TLOpenInterface, camera.system, id.data(), &camera.interface);
    std::printf("interface    %s\n", id.data());
    DEMO_CALL(api, IFUpdateDeviceList, camera.interface, nullptr, kDiscoveryMs);
    DEMO_CALL(api, IFGetNumDevices, camera.interface, &count);
    for (uint32_t i = count; i > 0; i--) {
        size = id.size();
        DEMO_CALL(api, IFGetDeviceID, camera.interface, i - 1, id.data(), &size);
        camera.id = id.data();
        std::printf("camera       %s, %s, serial %s, id %s\n",
                    DeviceText(api, camera, DEVICE_INFO_VENDOR).c_str(),
                    DeviceText(api, camera, DEVICE_INFO_MODEL).c_str(),
                    DeviceText(api, camera, DEVICE_INFO_SERIAL_NUMBER).c_str(), id.data());
    }
    if (count == 0) {
        throw std::runtime_error("no camera on the bus");
    }
    DEMO_CALL(api, IFOpenDevice, camera.interface, camera.id.c_str(), DEVICE_ACCESS_EXCLUSIVE,
              &camera.device);
    DEMO_CALL(api, DevGetPort, camera.device, &camera.remote);
}

// "local:<name>;<address>;<length>", both numbers hexadecimal.
struct DescriptionUrl
{
    std::string name;
    uint64_t address = 0;
    size_t length = 0;

    explicit DescriptionUrl(const std::string& url)
    {
        const size_t colon = url.find(':');
        const size_t first = url.find(';');
        const size_t second = url.find(';', first + 1);
        if (url.compare(0, colon, "local") != 0 || second == std::string::npos) {
            throw std::runtime_error("unexpected URL " + url);
        }
        name = url.substr(colon + 1, first - colon - 1);
        std::from_chars(url.data() + first + 1, url.data() + second, address, 16);
        std::from_chars(url.data() + second + 1, url.data() + url.size(), length, 16);
    }
};

void FetchDescription(const GenTL& api, const Camera& camera, const VirtualBus& bus,
                      const std::string& folder)
{
    std::array<char, 1024> text{};
    size_t size = text.size();
    INFO_DATATYPE type = 0;
    DEMO_CALL(api, GCGetPortURLInfo, camera.remote, 0, URL_INFO_URL, &type, text.data(), &size);
    const DescriptionUrl url(text.data());
    std::vector<char> file(url.length);
    size = file.size();
    DEMO_CALL(api, GCReadPort, camera.remote, url.address, file.data(), &size);
    if (bus.IsThere()) {
        std::vector<char> original(bus.DescriptionFile(bus.camera, nullptr, 0));
        bus.DescriptionFile(bus.camera, original.data(), original.size());
        if (file != original) {
            throw std::runtime_error("the description file is not the camera's");
        }
    }
    // The name comes from the camera; it is a name only, never a way out of the folder.
    const std::string path =
        (std::filesystem::path(folder) / std::filesystem::path(url.name).filename()).string();
    std::ofstream(path, std::ios::binary)
        .write(file.data(), static_cast<std::streamsize>(file.size()));
    std::printf("description  %s, %zu bytes\n", path.c_str(), file.size());
}

template <class T>
T BufferInfo(const GenTL& api, const Camera& camera, BUFFER_HANDLE buffer, BUFFER_INFO_CMD command)
{
    T value{};
    size_t size = sizeof value;
    INFO_DATATYPE type = 0;
    DEMO_CALL(api, DSGetBufferInfo, camera.stream, buffer, command, &type, &value, &size);
    return value;
}

// What arrived, image by image.
struct Tally
{
    unsigned images = 0;
    unsigned lost = 0;
    unsigned incomplete = 0;
    unsigned different = 0;
    uint64_t bytes = 0;
    uint64_t lastFrame = 0;

    bool IsPerfect() const { return lost == 0 && incomplete == 0 && different == 0; }
};

void Judge(const GenTL& api, const Camera& camera, const VirtualBus& bus, BUFFER_HANDLE buffer,
           Tally& tally)
{
    const auto frame = BufferInfo<uint64_t>(api, camera, buffer, BUFFER_INFO_FRAMEID);
    const auto filled = BufferInfo<size_t>(api, camera, buffer, BUFFER_INFO_SIZE_FILLED);
    const auto* const base = BufferInfo<const void*>(api, camera, buffer, BUFFER_INFO_BASE);
    if (tally.images > 0) {
        tally.lost += static_cast<unsigned>(frame - tally.lastFrame - 1);
    }
    if (BufferInfo<bool8_t>(api, camera, buffer, BUFFER_INFO_IS_INCOMPLETE)) {
        tally.incomplete++;
    }
    // -1: equal in every byte.
    if (bus.IsThere() && bus.CompareImage(bus.camera, frame, base, filled) != -1) {
        tally.different++;
    }
    tally.lastFrame = frame;
    tally.images++;
    tally.bytes += filled;
}

void KeepAsPng(const GenTL& api, const Camera& camera, BUFFER_HANDLE buffer,
               const std::string& path)
{
    WritePng(path, BufferInfo<const uint8_t*>(api, camera, buffer, BUFFER_INFO_BASE),
             BufferInfo<size_t>(api, camera, buffer, BUFFER_INFO_WIDTH),
             BufferInfo<size_t>(api, camera, buffer, BUFFER_INFO_HEIGHT),
             BufferInfo<uint64_t>(api, camera, buffer, BUFFER_INFO_PIXELFORMAT));
    std::printf("picture      %s\n", path.c_str());
}

// Memory of the program's own, one block per buffer.
using Memory = std::vector<std::vector<uint8_t>>;

void OpenStream(const GenTL& api, Camera& camera, Memory& memory)
{
    std::array<char, 64> id{};
    size_t size = id.size();
    DEMO_CALL(api, DevGetDataStreamID, camera.device, 0, id.data(), &size);
    DEMO_CALL(api, DevOpenDataStream, camera.device, id.data(), &camera.stream);
    DEMO_CALL(api, GCRegisterEvent, camera.stream, EVENT_NEW_BUFFER, &camera.newBuffer);
    uint32_t payload = 0;
    size = sizeof payload;
    DEMO_CALL(api, GCReadPort, camera.remote, kPayloadSizeRegister, &payload, &size);
    memory.assign(kBuffers, std::vector<uint8_t>(payload));
    for (auto& block : memory) {
        BUFFER_HANDLE buffer = nullptr;
        DEMO_CALL(api, DSAnnounceBuffer, camera.stream, block.data(), block.size(), nullptr,
                  &buffer);
        DEMO_CALL(api, DSQueueBuffer, camera.stream, buffer);
    }
    std::printf("buffers      %zu of %u bytes announced\n", kBuffers, payload);
}

Tally StreamImages(const GenTL& api, const Camera& camera, const VirtualBus& bus,
                   const Options& options)
{
    Tally tally;
    const auto started = std::chrono::steady_clock::now();
    DEMO_CALL(api, DSStartAcquisition, camera.stream, ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE);
    while (tally.images < options.images) {
        EVENT_NEW_BUFFER_DATA data{};
        size_t size = sizeof data;
        DEMO_CALL(api, EventGetData, camera.newBuffer, &data, &size, kImageWaitMs);
        BUFFER_HANDLE const buffer = data.BufferHandle;
        Judge(api, camera, bus, buffer, tally);
        if (tally.images == options.images) {
            KeepAsPng(api, camera, buffer, options.folder + "/demo.png");
        }
        DEMO_CALL(api, DSQueueBuffer, camera.stream, buffer);
    }
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - started;
    DEMO_CALL(api, DSStopAcquisition, camera.stream, ACQ_STOP_FLAGS_DEFAULT);
    std::printf("\nimages       %u in %.1f s, %.1f MB\n", tally.images, seconds.count(),
                static_cast<double>(tally.bytes) / 1e6);
    return tally;
}

void CloseCamera(const GenTL& api, const Camera& camera)
{
    DEMO_CALL(api, DSFlushQueue, camera.stream, ACQ_QUEUE_ALL_DISCARD);
    DEMO_CALL(api, GCUnregisterEvent, camera.stream, EVENT_NEW_BUFFER);
    DEMO_CALL(api, DSClose, camera.stream);
    DEMO_CALL(api, DevClose, camera.device);
    DEMO_CALL(api, IFClose, camera.interface);
    DEMO_CALL(api, TLClose, camera.system);
}

bool Run(const Options& options)
{
    // Outlives the producer, which may write to announced memory until it is unloaded.
    Memory memory;
    const GenTL api(options.producer);
    VirtualBus bus(api);
    Camera camera;
    std::filesystem::create_directories(options.folder);
    PrintProducer(api);
    if (bus.IsThere()) {
        bus.camera = bus.AddCamera(options.camera.c_str());
        std::printf("bus          simulated, with a camera %s\n", options.camera.c_str());
        if (bus.camera < 0) {
            throw std::runtime_error("these are no camera options");
        }
    }
    OpenCamera(api, camera);
    FetchDescription(api, camera, bus, options.folder);
    OpenStream(api, camera, memory);
    const Tally tally = StreamImages(api, camera, bus, options);
    CloseCamera(api, camera);
    std::printf("lost %u, incomplete %u, %s\n", tally.lost, tally.incomplete,
                !bus.IsThere()         ? "bytes not compared: the real bus tells no reference"
                : tally.different == 0 ? "every byte of every image compared: all equal"
                                       : "images that differ from what was sent");
    return tally.IsPerfect();
}

bool Parse(int count, char** arguments, Options& options)
{
    for (int i = 1; i < count; i++) {
        const std::string argument = arguments[i];
        const bool hasValue = i + 1 < count;
        if (argument == "--camera" && hasValue) {
            options.camera = arguments[++i];
        } else if (argument == "--out" && hasValue) {
            options.folder = arguments[++i];
        } else if (argument == "--images" && hasValue) {
            const char* const text = arguments[++i];
            std::from_chars(text, text + std::strlen(text), options.images);
        } else if (options.producer.empty() && argument.front() != '-') {
            options.producer = argument;
        } else {
            return false;
        }
    }
    return !options.producer.empty() && options.images > 0;
}

} // namespace

int main(int count, char** arguments)
{
    Options options;
    if (!Parse(count, arguments, options)) {
        std::fprintf(stderr, "usage: zr_u3v_demo <zr_u3v_tl.cti> [--images n] [--out folder]\n"
                             "                   [--camera key=value,...]  (simulated bus only)\n");
        return 2;
    }
    try {
        return Run(options) ? 0 : 1;
    } catch (const std::exception& problem) {
        std::fprintf(stderr, "error: %s\n", problem.what());
        return 1;
    }
}
