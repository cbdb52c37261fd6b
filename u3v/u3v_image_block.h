#pragma once

#include "usb_block.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

// Memory of one image, in segments: the kernel gives device memory in one piece for a few megabytes
// at most, images are larger. One payload transfer never straddles two segments.
class U3V_ImageBlock
{
public:
    // Segments of the largest multiple of `transferSize` that is no more than a megabyte, or of one
    // transfer if that is more. With `deviceMemory` they are device memory as far as there is some.
    U3V_ImageBlock(UsbBlockSource& source, size_t size, size_t transferSize, bool deviceMemory);

    size_t Size() const { return m_size; }
    // From `offset` to the end of its segment; empty at and beyond the end of the image.
    std::span<uint8_t> From(size_t offset) const;
    // The first `count` bytes, at most the image.
    void CopyTo(uint8_t* destination, size_t count) const;

private:
    size_t m_size;
    size_t m_segmentSize;
    std::vector<UsbBlock> m_segments;
};

// The image that is being received: keeps track of what the bus has written, so that a block that
// still holds another image can be handed over as if it had always been this acquisition's one
// payload block. There, what an image does not overwrite is left from the image before it.
class U3V_PayloadInProgress
{
public:
    U3V_PayloadInProgress() = default;
    // `previous` is the image handed over last, which does not change as long as this one is being
    // received; null before the first, when the rest is zero.
    U3V_PayloadInProgress(U3V_ImageBlock* image, const U3V_ImageBlock* previous)
        : m_image(image), m_previous(previous)
    {
    }

    // Where the next read goes.
    std::span<uint8_t> ReadAt(uint64_t offset);
    // The bus has written `count` bytes there.
    void Written(uint64_t offset, uint64_t count);
    // Gives what was not written the bytes of the image before.
    void Complete();

private:
    void _inheritUpTo(size_t end);

    U3V_ImageBlock* m_image = nullptr;
    const U3V_ImageBlock* m_previous = nullptr;
    size_t m_valid = 0; // bytes from the start that are as they have to be
};
