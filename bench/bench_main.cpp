// zr_bench: every figure on the virtual bus, one table.
//
//     zr_bench --producer FILE [--json FILE] [--add FILE] [--only NAME] [--quick]

#include <cstdio>
#include <cstring>
#include <map>

#include <virtual_bus.h>

#include "bench_consumer.h"
#include "bench_figures.h"

namespace {

using namespace bench;

struct Options
{
    std::string json;
    std::vector<std::string> add; // files with rows of other runs
    std::string only;
    Effort effort{7, 0.5};
};

struct Figure
{
    const char* name;
    void (*measure)(Report&, const Effort&);
};

constexpr Figure kFigures[] = {
    {"delivery", MeasureDelivery}, {"several", MeasureSeveralCameras},
    {"handover", MeasureHandover}, {"control", MeasureControl},
    {"calls", MeasureCalls},       {"memory", MeasureMemory},
    {"idle", MeasureIdle},         {"life", MeasureLife},
};

bool Parse(int count, char** arguments, Options& options)
{
    for (int i = 1; i < count; ++i) {
        const std::string argument = arguments[i];
        const bool hasValue = i + 1 < count;
        if (argument == "--producer" && hasValue) {
            g_producer = arguments[++i];
        } else if (argument == "--quick") {
            options.effort = {3, 0.15};
        } else if (argument == "--json" && hasValue) {
            options.json = arguments[++i];
        } else if (argument == "--add" && hasValue) {
            options.add.emplace_back(arguments[++i]);
        } else if (argument == "--only" && hasValue) {
            options.only = arguments[++i];
        } else {
            return false;
        }
    }
    return !g_producer.empty();
}

void Run(const Options& options)
{
    Report report;
    for (const Figure& figure : kFigures) {
        if (options.only.empty() || options.only == figure.name) {
            figure.measure(report, options.effort);
        }
    }
    for (const std::string& file : options.add) {
        report.ReadJson(file);
    }
    if (!options.json.empty()) {
        report.WriteJson(options.json);
    }
    std::fprintf(stderr, "\n%s", report.Table().c_str());
}

} // namespace

int main(int count, char** arguments)
{
    Options options;
    if (!Parse(count, arguments, options)) {
        std::fprintf(stderr,
                     "usage: %s --producer FILE [--json FILE] [--add FILE] [--only NAME] "
                     "[--quick]\n",
                     arguments[0]);
        return 2;
    }
    if (std::freopen("/dev/null", "w", stdout) == nullptr) { // the library's own texts
        return 2;
    }
    vusb_journal_limit(16);
    try {
        Run(options);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "zr_bench: %s\n", error.what());
        return 1;
    }
    return 0;
}
