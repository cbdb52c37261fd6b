#pragma once

// Makes operator new of the calling thread fail, for the paths that have to survive it. The test
// binary's operator new is replaced; other threads are not touched by this one.
class FailingAllocations
{
public:
    // The allocation number `nth` of this scope fails (0 is the next), and all after it.
    explicit FailingAllocations(int nth);
    ~FailingAllocations();
    FailingAllocations(const FailingAllocations&) = delete;
    FailingAllocations& operator=(const FailingAllocations&) = delete;

    // Whether this binary's allocations can be made to fail: not where a sanitizer brings an
    // operator new of its own.
    static bool Possible();
    // Whether an allocation was refused.
    static bool Refused();
};

// Makes operator new fail on every thread but the one that says so: for the library's own threads.
class FailingAllocationsElsewhere
{
public:
    FailingAllocationsElsewhere();
    ~FailingAllocationsElsewhere();
    FailingAllocationsElsewhere(const FailingAllocationsElsewhere&) = delete;
    FailingAllocationsElsewhere& operator=(const FailingAllocationsElsewhere&) = delete;

    // Allocations refused so far.
    static unsigned Refused();
};
