// What the machine around may do to a camera and its stream, and what the producer has to tell.

#include <fcntl.h>
#include <linux/capability.h>
#include <linux/usbdevice_fs.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <functional>

#include <description_url.h>

#include "camera_config.h"
#include "scenario.h"

namespace vmtest {

namespace {

int32_t AccessStatus(const Bus& bus)
{
    bus.session.Update({.update_ms = kUpdateMs});
    const std::string id = bus.session.CameraIds().at(0);
    return bus.session.CameraValue<int32_t>(id, DEVICE_INFO_ACCESS_STATUS);
}

GC_ERROR StatusOfOpening(const Bus& bus)
{
    const std::string id = bus.session.CameraIds().at(0);
    return StatusOf([&] { const consumer::Camera camera(bus.session, id, DEVICE_ACCESS_CONTROL); });
}

// Root without its power over files: what the file's mode says counts.
bool GiveUpCapabilities()
{
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct none[2]{};
    return syscall(SYS_capset, &header, none) == 0;
}

// A register of the stream's port, by its name.
std::uint64_t StreamFeature(const CheckedCamera& camera, const std::string& name)
{
    PORT_HANDLE const port = camera.Stream().Handle();
    const auto file = consumer::ParseDescriptionUrl(consumer::FirstUrl(camera.Api(), port));
    std::string text(file.length, ' ');
    std::size_t size = text.size();
    GENTL_CALL(camera.Api(), GCReadPort, port, file.address, text.data(), &size);
    const std::size_t node = text.find("<IntReg Name=\"" + name + "\"");
    const std::size_t address = text.find("<Address>", node);
    if (node == std::string::npos || address == std::string::npos) {
        throw consumer::Error("the stream has no feature " + name);
    }
    std::uint64_t value = 0;
    size = sizeof value;
    GENTL_CALL(camera.Api(), GCReadPort, port,
               std::strtoull(text.c_str() + address + sizeof "<Address>" - 1, nullptr, 0), &value,
               &size);
    return value;
}

void TakeWith(consumer::BufferMemory memory, unsigned images, const std::string& what,
              const std::function<void(const CheckedCamera&)>& look)
{
    Bus bus;
    CheckedCamera camera(bus.session, bus.OnlyCamera(), kBuffers, memory);
    Tally tally;
    camera.Start(kEndless);
    Take(camera, tally, images);
    look(camera);
    camera.Stop();
    CheckTally(tally, images, what);
}

// What the kernel lets USB transfers take, in MiB, as long as this lives.
class UsbfsLimit
{
public:
    explicit UsbfsLimit(unsigned limit)
    {
        std::ifstream(kFile) >> m_before;
        std::ofstream(kFile) << limit;
    }
    ~UsbfsLimit() { std::ofstream(kFile) << m_before; }
    UsbfsLimit(const UsbfsLimit&) = delete;
    UsbfsLimit& operator=(const UsbfsLimit&) = delete;

private:
    static constexpr const char* kFile = "/sys/module/usbcore/parameters/usbfs_memory_mb";
    unsigned m_before = 0;
};

// A process that holds the camera's control interface as long as this lives.
class OtherProcess
{
public:
    explicit OtherProcess(const std::string& file)
    {
        int ends[2];
        if (pipe(ends) != 0) {
            throw consumer::Error("no pipe");
        }
        m_process = fork();
        if (m_process == 0) {
            _Hold(file, ends[1]);
        }
        close(ends[1]);
        char mark = 'n';
        m_holds = read(ends[0], &mark, 1) == 1 && mark == 'y';
        close(ends[0]);
    }
    ~OtherProcess()
    {
        kill(m_process, SIGKILL);
        waitpid(m_process, nullptr, 0);
    }
    OtherProcess(const OtherProcess&) = delete;
    OtherProcess& operator=(const OtherProcess&) = delete;
    bool Holds() const { return m_holds; }

private:
    [[noreturn]] static void _Hold(const std::string& file, int ready)
    {
        unsigned control = 0;
        const int device = open(file.c_str(), O_RDWR);
        const char mark =
            device >= 0 && ioctl(device, USBDEVFS_CLAIMINTERFACE, &control) == 0 ? 'y' : 'n';
        if (write(ready, &mark, 1) != 1) {
            _exit(1);
        }
        for (;;) {
            pause();
        }
    }

    pid_t m_process = -1;
    bool m_holds = false;
};

} // namespace

// In a process that the device file's mode counts for. The mode comes later than the camera, as
// udev gives it.
void Denied(const Words&)
{
    const std::string file = DeviceFile();
    const vcam::CameraConfig wanted;
    const consumer::Producer producer(producerFile);
    Check(chmod(file.c_str(), 0) == 0 && GiveUpCapabilities(), "nobody may open the camera");
    const consumer::Session session(producer,
                                    {.update_ms = kUpdateMs, .cameras = 1, .patience = kPatience});
    const auto text = [&](DEVICE_INFO_CMD command) {
        return session.CameraText(session.CameraIds().at(0), command);
    };
    const auto opening = [&] { const consumer::Camera camera(session, session.CameraIds().at(0)); };
    const auto access = [&] {
        return session.CameraValue<int32_t>(session.CameraIds().at(0), DEVICE_INFO_ACCESS_STATUS);
    };
    Check(session.CameraIds().size() == 1 && access() == DEVICE_ACCESS_STATUS_NOACCESS,
          "it is listed all the same, without access");
    Check(text(DEVICE_INFO_VENDOR) == wanted.vendor && text(DEVICE_INFO_MODEL) == wanted.model,
          "with what the kernel knows of it: " + text(DEVICE_INFO_VENDOR) + ", " +
              text(DEVICE_INFO_MODEL));
    Check(StatusOf(opening) == GC_ERR_ACCESS_DENIED, "opening it is denied");
    Check(chmod(file.c_str(), 0664) == 0, "then it may be opened");
    Check(Eventually([&] {
              session.Update({.update_ms = kUpdateMs});
              return access() == DEVICE_ACCESS_STATUS_READWRITE;
          }),
          "the next pass sees that");
    Check(session.CameraIds().at(0) == wanted.guid && Succeeds(opening), "and it opens");
}

void Claimed(const Words&)
{
    Bus bus;
    Check(AccessStatus(bus) == DEVICE_ACCESS_STATUS_READWRITE, "a camera is free");
    {
        const OtherProcess other(DeviceFile());
        Check(other.Holds(), "another process takes it");
        Check(AccessStatus(bus) == DEVICE_ACCESS_STATUS_BUSY, "it is busy");
        Check(StatusOfOpening(bus) == GC_ERR_RESOURCE_IN_USE, "and in use");
    }
    Check(Eventually([&] { return AccessStatus(bus) == DEVICE_ACCESS_STATUS_READWRITE; }),
          "the process ends, the camera is free");
    Check(StatusOfOpening(bus) == GC_ERR_SUCCESS, "and opens");
}

// The camera leaves behind so many images while it streams, and comes back by itself.
void Leaves(const Words& words)
{
    const auto before = static_cast<unsigned>(std::stoul(words.at(0)));
    Tally tally;
    Bus bus;
    {
        CheckedCamera camera(bus.session, bus.OnlyCamera(), kBuffers);
        EVENT_HANDLE error = nullptr;
        GENTL_CALL(bus.producer, GCRegisterEvent, camera.Device(), EVENT_ERROR, &error);
        camera.Start(kEndless);
        Take(camera, tally, before - 1);
        std::uint8_t record[1024];
        std::size_t size = sizeof record;
        int32_t code = 0;
        std::size_t codeSize = sizeof code;
        Check(bus.producer.EventGetData(error, record, &size, kPatienceMs) == GC_ERR_SUCCESS &&
                  bus.producer.EventGetDataInfo(error, record, size, EVENT_DATA_ID, nullptr, &code,
                                                &codeSize) == GC_ERR_SUCCESS &&
                  code == GC_ERR_IO,
              "the unplug is told by the device's event");
        while (camera.Next(tally, 0)) {
        }
        Check(StatusOf([&] { camera.Read<std::uint32_t>(0); }) == GC_ERR_IO,
              "its registers are out of reach");
        Check(StatusOf([&] { camera.Stop(); }) == GC_ERR_IO, "it cannot be told to stop");
        Check(bus.producer.DSStopAcquisition(camera.Stream().Handle(), ACQ_STOP_FLAGS_DEFAULT) ==
                  GC_ERR_SUCCESS,
              "its stream stops");
    }
    Check(tally.images <= before && tally.images + 1 >= before && tally.wrong == 0,
          std::to_string(tally.images) + " images before, every byte right" + tally.Faults());
    Check(Eventually([&] {
              bus.session.Update({.update_ms = kUpdateMs});
              return bus.session.CameraIds().size() == 1 && StatusOfOpening(bus) == GC_ERR_SUCCESS;
          }),
          "it comes back and opens, with the same interface");
    CheckedCamera camera(bus.session, bus.session.CameraIds().at(0), kBuffers);
    Tally after;
    camera.Start(kEndless);
    Take(camera, after, 20);
    camera.Stop();
    CheckTally(after, 20, "and streams");
}

void DeviceMemory(const Words& words)
{
    const auto images = static_cast<unsigned>(std::stoul(words.at(0)));
    TakeWith(consumer::BufferMemory::OfProducer, images, "into the producer's memory",
             [](const CheckedCamera& camera) {
                 const std::uint64_t used = StreamFeature(camera, "ZrDeviceMemoryInUse");
                 Check(used >= kBuffers * camera.Payload(),
                       "buffers in device memory: " + std::to_string(used) + " bytes");
             });
    TakeWith(consumer::BufferMemory::OfConsumer, images, "into memory of the consumer",
             [](const CheckedCamera&) {});
}

// Not what a queue of transfers wants: fewer are kept under way.
void SmallLimit(const Words& words)
{
    const auto images = static_cast<unsigned>(std::stoul(words.at(0)));
    const UsbfsLimit limit(1);
    TakeWith(consumer::BufferMemory::OfProducer, images, "with 1 MiB for all USB transfers",
             [](const CheckedCamera&) {});
}

} // namespace vmtest
