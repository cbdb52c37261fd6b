// Single calls that do not reach the camera: time by Google Benchmark, and allocations.

#include <cstdio>
#include <functional>
#include <map>

#include <benchmark/benchmark.h>
#include <virtual_bus.h>

#include "allocation_count.h"
#include "bench_consumer.h"
#include "bench_figures.h"

namespace bench {

namespace {

constexpr uint64_t kBufferCountRegister = 0x80100;
constexpr uint64_t kVendorRegister = 0x70100;
constexpr uint64_t kNoRegister = 0x12345;
constexpr uint64_t kCountedCalls = 1000;

// Keeps the times instead of printing them.
class Times : public benchmark::BenchmarkReporter
{
public:
    bool ReportContext(const Context& /*context*/) override { return true; }
    void ReportRuns(const std::vector<Run>& runs) override
    {
        for (const Run& run : runs) {
            m_ns[run.run_name.function_name] = run.GetAdjustedRealTime();
        }
    }
    double Of(const std::string& name) const { return m_ns.at(name); }

private:
    std::map<std::string, double> m_ns;
};

double AllocationsOf(const std::function<void()>& call)
{
    call();
    const uint64_t before = allocation_count::Total();
    for (uint64_t i = 0; i < kCountedCalls; ++i) {
        call();
    }
    return static_cast<double>(allocation_count::Total() - before) / kCountedCalls;
}

struct Call
{
    const char* name;
    std::function<void()> make;
};

std::vector<Call> CallsOf(const OpenCamera& camera, BUFFER_HANDLE buffer)
{
    const consumer::Producer& gentl = camera.Api();
    const DS_HANDLE stream = camera.Stream().Handle();
    const auto read = [&gentl](PORT_HANDLE port, uint64_t address) {
        char data[64];
        size_t size = sizeof(data);
        benchmark::DoNotOptimize(gentl.GCReadPort(port, address, data, &size));
    };
    return {
        {"read of a virtual number register", [=] { read(stream, kBufferCountRegister); }},
        {"read of a virtual text register",
         [=, &camera] { read(camera.Device(), kVendorRegister); }},
        {"buffer info query",
         [=, &gentl] {
             size_t value = 0;
             size_t size = sizeof(value);
             INFO_DATATYPE type = 0;
             benchmark::DoNotOptimize(gentl.DSGetBufferInfo(stream, buffer, BUFFER_INFO_SIZE_FILLED,
                                                            &type, &value, &size));
         }},
        {"failing call (no such register)", [=] { read(stream, kNoRegister); }},
        {"failing call (no such handle)", [=] { read(nullptr, kNoRegister); }},
    };
}

} // namespace

void MeasureCalls(Report& report, const Effort& effort)
{
    vusb_reset();
    const vusb::Camera device;
    const Library library(1);
    const OpenCamera camera(library);
    Images images(camera, 2);
    const std::vector<Call> calls = CallsOf(camera, images.Buffers().front());
    for (const Call& call : calls) {
        benchmark::RegisterBenchmark(call.name, [&call](benchmark::State& state) {
            for ([[maybe_unused]] auto step : state) {
                call.make();
            }
        })->MinTime(effort.seconds);
    }
    Times times;
    benchmark::RunSpecifiedBenchmarks(&times);
    for (const Call& call : calls) {
        report.Add({call.name, times.Of(call.name), "ns"});
        report.Add({std::string("allocations, ") + call.name, AllocationsOf(call.make), "", "none",
                    0, Row::Goal::AtMost, 0});
    }
}

} // namespace bench
