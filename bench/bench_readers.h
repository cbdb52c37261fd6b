#pragma once

#include <functional>
#include <string>

// Ways of reading one and the same camera, each measured in a process of its own.
namespace bench {

struct Outcome
{
    double imagesPerSecond;
    double cpuPerGigabyte;   // seconds, all threads
    double switchesPerImage; // how often a thread went to sleep
};

struct Setup
{
    std::string exact; // the producers' files
    std::string standard;
    std::string aravis; // its library; empty: not there
    double seconds;     // of one measurement
    bool deviceMemory;
};

// One transfer at a time.
Outcome ReadBare(const Setup& setup);
// Four images queued.
Outcome ReadQueued(const Setup& setup);
Outcome ReadExact(const Setup& setup);
Outcome ReadStandard(const Setup& setup);
// Aravis by its own protocol, into its own buffers or into those of device memory; one transfer at
// a time, or several in flight, where it stops now and then when images come fast.
Outcome ReadAravis(const Setup& setup);
Outcome ReadAravisAhead(const Setup& setup);

// Runs it in a child process. Throws Failure when that fails.
Outcome InChild(const std::function<Outcome()>& read);

} // namespace bench
