// The main job of the producer, by its exported functions alone: find a camera, open it, fetch its
// description file, stream images into announced buffers, look at every byte of them and keep the
// last one as a PNG.
//
// On the virtual bus (put in front of libusb with LD_LIBRARY_PATH) the program plugs a simulated
// camera in first and compares what arrives with what was sent. On the real bus it takes the first
// camera it finds, and has nothing to compare with.

#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "acquisition.h"
#include "camera_features.h"
#include "description_url.h"
#include "png_image.h"

namespace {

using consumer::Acquisition;
using consumer::Camera;
using consumer::DataStream;
using consumer::Image;
using consumer::Producer;
using consumer::Session;

constexpr uint64_t kImageWaitMs = 5000;
constexpr size_t kBuffers = 16;

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
    explicit VirtualBus(const Producer& producer)
        : AddCamera(producer.Symbol<int(const char*)>("vusb_add_camera")),
          CompareImage(
              producer.Symbol<int64_t(int, uint64_t, const void*, size_t)>("vusb_compare_image")),
          DescriptionFile(producer.Symbol<size_t(int, void*, size_t)>("vusb_description_file"))
    {
    }
    bool IsThere() const { return AddCamera != nullptr && CompareImage != nullptr; }

    int (*AddCamera)(const char* options);
    int64_t (*CompareImage)(int camera, uint64_t frame, const void* image, size_t size);
    size_t (*DescriptionFile)(int camera, void* data, size_t size);
    int camera = -1;
};

void PrintProducer(const Producer& producer)
{
    const auto text = [&](TL_INFO_CMD command) {
        return producer.Text("GCGetInfo", [&](INFO_DATATYPE* type, void* buffer, size_t* size) {
            return producer.GCGetInfo(command, type, buffer, size);
        });
    };
    std::printf("producer     %s %s\n", text(TL_INFO_DISPLAYNAME).c_str(),
                text(TL_INFO_VERSION).c_str());
}

// Lists all cameras; the id of the first one, which is listed last.
std::string ListCameras(const Session& session)
{
    std::printf("interface    %s\n", session.InterfaceId().c_str());
    const std::vector<std::string> ids = session.CameraIds();
    for (auto id = ids.rbegin(); id != ids.rend(); ++id) {
        std::printf("camera       %s, %s, serial %s, id %s\n",
                    session.CameraText(*id, DEVICE_INFO_VENDOR).c_str(),
                    session.CameraText(*id, DEVICE_INFO_MODEL).c_str(),
                    session.CameraText(*id, DEVICE_INFO_SERIAL_NUMBER).c_str(), id->c_str());
    }
    if (ids.empty()) {
        throw std::runtime_error("no camera on the bus");
    }
    return ids.front();
}

void FetchDescription(const Camera& camera, const VirtualBus& bus, const std::string& folder)
{
    const auto url = consumer::ParseDescriptionUrl(consumer::FirstUrl(camera.Api(), camera.Port()));
    std::vector<char> file(url.length);
    camera.Read(url.address, file.data(), file.size());
    if (bus.IsThere()) {
        std::vector<char> original(bus.DescriptionFile(bus.camera, nullptr, 0));
        bus.DescriptionFile(bus.camera, original.data(), original.size());
        if (file != original) {
            throw std::runtime_error("the description file is not the camera's");
        }
    }
    const std::string path = folder + "/" + (url.name.empty() ? "camera.xml" : url.name);
    std::ofstream(path, std::ios::binary)
        .write(file.data(), static_cast<std::streamsize>(file.size()));
    std::printf("description  %s, %zu bytes\n", path.c_str(), file.size());
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

void Judge(const Image& image, const VirtualBus& bus, Tally& tally)
{
    if (tally.images > 0) {
        tally.lost += static_cast<unsigned>(image.frameId - tally.lastFrame - 1);
    }
    if (image.isIncomplete) {
        tally.incomplete++;
    }
    // -1: equal in every byte.
    if (bus.IsThere() &&
        bus.CompareImage(bus.camera, image.frameId, image.bytes.data(), image.bytes.size()) != -1) {
        tally.different++;
    }
    tally.lastFrame = image.frameId;
    tally.images++;
    tally.bytes += image.bytes.size();
}

void KeepAsPng(const Image& image, const std::string& path)
{
    WritePng(path, image.bytes.data(), image.width, image.height, image.pixelFormat);
    std::printf("picture      %s\n", path.c_str());
}

// The standard producer leaves starting and stopping the camera to its user; the exact one does it
// itself, and to be told twice does no harm. Only once the stream has stopped is the camera
// stopped: the exact producer waits for what it sends.
Tally TakeImages(Acquisition& acquisition, const VirtualBus& bus, const Options& options)
{
    Tally tally;
    const auto started = std::chrono::steady_clock::now();
    acquisition.Start();
    acquisition.Stream().Owner().Write<uint32_t>(camera_features::kAcquisition, 1);
    while (tally.images < options.images) {
        const auto image = acquisition.Next(kImageWaitMs);
        if (!image) {
            throw std::runtime_error("no image within " + std::to_string(kImageWaitMs) + " ms");
        }
        Judge(*image, bus, tally);
        if (tally.images == options.images) {
            KeepAsPng(*image, options.folder + "/demo.png");
        }
        acquisition.Queue(image->buffer);
    }
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - started;
    acquisition.Stop();
    acquisition.Stream().Owner().Write<uint32_t>(camera_features::kAcquisition, 0);
    std::printf("\nimages       %u in %.1f s, %.1f MB\n", tally.images, seconds.count(),
                static_cast<double>(tally.bytes) / 1e6);
    return tally;
}

// From the camera's opening to its close.
Tally UseCamera(const Session& session, const VirtualBus& bus, const Options& options)
{
    const Camera camera(session, ListCameras(session));
    FetchDescription(camera, bus, options.folder);
    const DataStream stream(camera);
    const auto payload = camera.Read<uint32_t>(camera_features::kPayloadSize);
    Acquisition acquisition(stream, payload, kBuffers);
    std::printf("buffers      %zu of %u bytes announced\n", kBuffers, payload);
    return TakeImages(acquisition, bus, options);
}

bool Run(const Options& options)
{
    setenv("ZR_VIRTUAL_CAMERAS", "", 1); // the simulated bus has our camera and no other
    Producer producer(options.producer);
    bool isClosed = true;
    producer.OnFailedClose([&isClosed](const std::exception& problem) {
        std::fprintf(stderr, "error: %s\n", problem.what());
        isClosed = false;
    });
    VirtualBus bus(producer);
    std::filesystem::create_directories(options.folder);
    PrintProducer(producer);
    if (bus.IsThere()) {
        bus.camera = bus.AddCamera(options.camera.c_str());
        std::printf("bus          simulated, with a camera %s\n", options.camera.c_str());
        if (bus.camera < 0) {
            throw std::runtime_error("these are no camera options");
        }
    }
    const Tally tally = UseCamera(Session(producer), bus, options);
    std::printf("lost %u, incomplete %u, %s\n", tally.lost, tally.incomplete,
                !bus.IsThere()         ? "bytes not compared: the real bus tells no reference"
                : tally.different == 0 ? "every byte of every image compared: all equal"
                                       : "images that differ from what was sent");
    return tally.IsPerfect() && isClosed;
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
        std::fprintf(stderr, "usage: zr_u3v_demo <producer.cti> [--images n] [--out folder]\n"
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
