#include "scenario.h"

#include <dirent.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <memory>

#include "wait.h"

namespace vmtest {

namespace {

int failures = 0;

} // namespace

const char* producerFile = nullptr;

int Failures()
{
    return failures;
}

bool Check(bool good, const std::string& text)
{
    std::printf("%s - %s\n", good ? "ok" : "FAIL", text.c_str());
    std::fflush(stdout);
    failures += good ? 0 : 1;
    return good;
}

Bus::Bus(std::size_t cameras)
    : producer(producerFile),
      session(producer, {.update_ms = kUpdateMs, .cameras = cameras, .patience = kPatience}),
      ids(session.CameraIds())
{
    std::sort(ids.begin(), ids.end());
}

const std::string& Bus::OnlyCamera() const
{
    if (ids.size() != 1) {
        throw consumer::Error(std::to_string(ids.size()) + " cameras instead of one");
    }
    return ids[0];
}

GC_ERROR StatusOf(const std::function<void()>& call)
{
    try {
        call();
        return GC_ERR_SUCCESS;
    } catch (const consumer::GenTLError& error) {
        return error.Status();
    }
}

bool Succeeds(const std::function<void()>& call)
{
    return StatusOf(call) == GC_ERR_SUCCESS;
}

bool Eventually(const std::function<bool()>& condition)
{
    return zr_test::WaitUntil(condition, kPatience);
}

unsigned Take(CheckedCamera& camera, Tally& tally, unsigned images)
{
    unsigned taken = 0;
    while (taken < images && camera.Next(tally, kPatienceMs)) {
        ++taken;
    }
    return taken;
}

void CheckTally(const Tally& tally, unsigned wanted, const std::string& what)
{
    Check(tally.images == wanted && tally.wrong == 0 && tally.incomplete == 0 &&
              tally.disorder == 0 && tally.skipped == 0,
          what + ": " + std::to_string(tally.images) +
              " images, every byte right, in order, none lost" + tally.Faults());
}

// The usbfs file of the camera.
std::string DeviceFile()
{
    const std::string root = "/sys/bus/usb/devices/";
    const std::unique_ptr<DIR, int (*)(DIR*)> dir(opendir(root.c_str()), closedir);
    while (const dirent* entry = dir != nullptr ? readdir(dir.get()) : nullptr) {
        const std::string device = root + entry->d_name;
        std::string vendor;
        unsigned bus = 0;
        unsigned number = 0;
        if (std::ifstream(device + "/idVendor") >> vendor && vendor == "1209" &&
            std::ifstream(device + "/busnum") >> bus &&
            std::ifstream(device + "/devnum") >> number) {
            char path[64];
            std::snprintf(path, sizeof path, "/dev/bus/usb/%03u/%03u", bus, number);
            return path;
        }
    }
    throw consumer::Error("no camera in sysfs");
}

} // namespace vmtest
