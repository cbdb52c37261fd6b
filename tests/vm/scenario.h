// What the scenarios of the emulated machine share.
#ifndef ZR_TESTS_VM_SCENARIO_H
#define ZR_TESTS_VM_SCENARIO_H

#include <functional>
#include <string>
#include <vector>

#include "checked_camera.h"

namespace vmtest {

// One pass over the emulated machine's sixteen root hubs takes that long, and sometimes longer.
constexpr std::uint64_t kUpdateMs = 700;
// How long something may take that has to come: no machine is so busy.
constexpr std::chrono::seconds kPatience{60};
constexpr std::uint64_t kPatienceMs = 60000;
constexpr unsigned kBuffers = 8;
constexpr std::uint64_t kEndless = GENTL_INFINITE;

// The arguments of a scenario.
using Words = std::vector<std::string>;

// Prints a line and counts what has failed.
bool Check(bool good, const std::string& text);
int Failures();

// The file of the producer under test.
extern const char* producerFile;

// The library, initialised, and its list with so many cameras.
struct Bus
{
    explicit Bus(std::size_t cameras = 1);
    const std::string& OnlyCamera() const;

    consumer::Producer producer;
    consumer::Session session;
    std::vector<std::string> ids;
};

// Whether the call throws no GenTLError.
bool Succeeds(const std::function<void()>& call);
// GC_ERR_SUCCESS, or the status with which the call has failed.
GC_ERROR StatusOf(const std::function<void()>& call);
// Until the condition holds; false when it does not within a time that no machine needs.
bool Eventually(const std::function<bool()>& condition);

// Takes up to so many images; how many have come.
unsigned Take(CheckedCamera& camera, Tally& tally, unsigned images);
void CheckTally(const Tally& tally, unsigned wanted, const std::string& what);

// The usbfs file of the camera. Throws when there is none.
std::string DeviceFile();

// ---- surroundings.cpp: what the machine around may do, for a producer that tells it apart

void Denied(const Words& words);
void Claimed(const Words& words);
void Leaves(const Words& words);
void DeviceMemory(const Words& words);
void SmallLimit(const Words& words);

} // namespace vmtest

#endif
