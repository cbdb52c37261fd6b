// All exported functions in any order, with handles of any kind and age, from up to four threads,
// while the camera misbehaves and comes and goes. Afterwards the library closes, and nothing of the
// bus is left.

#include "api_world.h"

#include <thread>

namespace {

constexpr unsigned kMaximumThreads = 4;
constexpr unsigned kMaximumSteps = 24; // of each thread

void Consume(std::vector<uint8_t> script, ApiWorld& world)
{
    FuzzInput input(script.data(), script.size());
    for (unsigned step = 0; step < kMaximumSteps && !input.IsEmpty(); ++step) {
        ApiStep(input, world);
    }
}

void Run(FuzzInput& input, ApiWorld& world)
{
    ApiPrelude(world, input.Below(8));
    const unsigned threads = 1 + input.Below(kMaximumThreads);
    const size_t share = input.Left() / threads;
    std::vector<std::thread> others;
    for (unsigned i = 1; i < threads; ++i) {
        others.emplace_back(Consume, input.Bytes(share), std::ref(world));
    }
    Consume(input.Bytes(input.Left()), world);
    for (std::thread& other : others) {
        other.join();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzQuietStdout();
    FuzzInput input(data, size);
    vusb_reset();
    vusb_journal_limit(16);
    {
        const char* const extra = input.Flag() ? ",zip=1" : ",events=1";
        ApiWorld world(std::string("width=32,height=32,response-ms=20,pending-ms=5") + extra);
        Run(input, world);
        vusb_clear_scripts();
        const GC_ERROR closed = GCCloseLib();
        FuzzDemand(closed == GC_ERR_SUCCESS || closed == GC_ERR_NOT_INITIALIZED,
                   "the library closes");
    }
    const std::string violations = vusb::Violations();
    if (!violations.empty()) {
        std::fprintf(stderr, "%s\n", violations.c_str());
    }
    FuzzDemand(violations.empty(), "the rules of libusb are kept");
    vusb_live_objects live{};
    vusb_get_live_objects(&live);
    FuzzDemand(live.contexts + live.handles + live.transfers + live.device_references +
                       live.config_descriptors ==
                   0,
               "nothing of libusb is left");
    return 0;
}
