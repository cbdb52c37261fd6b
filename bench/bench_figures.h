#pragma once

#include "bench_report.h"

// The measurements on the virtual bus. Each makes its own cameras, repeats what it measures and
// what it compares with in turns, and adds its rows.
namespace bench {

struct Effort
{
    int rounds;     // of each comparison
    double seconds; // of one side of a round
};

void MeasureDelivery(Report& report, const Effort& effort);
void MeasureSeveralCameras(Report& report, const Effort& effort);
void MeasureHandover(Report& report, const Effort& effort);
void MeasureControl(Report& report, const Effort& effort);
void MeasureCalls(Report& report, const Effort& effort);
void MeasureMemory(Report& report, const Effort& effort);
void MeasureIdle(Report& report, const Effort& effort);
void MeasureLife(Report& report, const Effort& effort);

} // namespace bench
