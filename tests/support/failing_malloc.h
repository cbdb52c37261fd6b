#pragma once

// Makes the C library's allocation functions fail for the calling thread, and operator new, which
// rests on them: for what has to survive it and undo what it has begun. They are replaced in the
// program that links this. What the USB stack allocates is spared. Not for builds with a sanitizer,
// which bring an allocator of their own.
class FailingMalloc
{
public:
    enum class How
    {
        Once,   // this allocation alone
        FromNow // and every one after it
    };

    // Allocation number `nth` of this scope fails, 0 is the first.
    FailingMalloc(int nth, How how);
    ~FailingMalloc();
    FailingMalloc(const FailingMalloc&) = delete;
    FailingMalloc& operator=(const FailingMalloc&) = delete;

    // Whether an allocation of this scope was refused.
    bool Refused() const;

    // The shared library that is spared, by any address inside it. To be called first.
    static void Spare(const void* address);
};
