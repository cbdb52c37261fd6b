#pragma once

#include "u3v_image_block.h"

#include "zr_sync.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>
#include <zr_u3v_tl/u3v_lib.h>

static_assert(sizeof(IMAGE_HEADER) == 42 && offsetof(IMAGE_HEADER, nTimestamp) == 8 &&
              offsetof(IMAGE_HEADER, nPaddingX) == 36 &&
              offsetof(IMAGE_HEADER, nMissingBytes) == 38);

// One place of the cycle of images: the header from the image's leader and, while somebody may
// still ask for it, the image. Its users guard it.
struct U3V_Buffer
{
    static constexpr size_t kNoImage = SIZE_MAX;

    IMAGE_HEADER header = {};
    size_t image = kNoImage; // index of a block

    // A null header keeps the one of the buffer's earlier image, as after a lost leader.
    void SetHeader(const IMAGE_HEADER* leader);
};

// The memory of one acquisition: its buffers and the blocks that images go round in. Kept by the
// hand-over, by the session that receives and by a reader while it copies; used through the
// hand-over only, whose mutex guards all of it but the bytes of the images.
//
// Two blocks more than buffers: one to receive into and one that a reader copies from. With each
// further reader at the same time, the receiver may have to wait for the end of a copy.
struct U3V_ImageCycle
{
    static constexpr size_t kExtraBlocks = 2;

    U3V_ImageCycle(UsbBlockSource& source, size_t bufferCount, size_t imageSize,
                   size_t transferSize);

    void Keep(size_t block) { ++uses[block]; }
    void Drop(size_t block) { --uses[block]; }
    // The first block that nobody uses, or kNoImage. The first ones are device memory, and a reader
    // that keeps up leaves the receiver with the same two or three: they stay in the processor's
    // cache.
    size_t Unused() const;

    std::vector<U3V_Buffer> buffers;
    std::vector<U3V_ImageBlock> blocks;
    std::vector<uint32_t> uses; // of each block: by a buffer, as latest, receiving, by readers
    size_t receiving = 0;
    size_t latest = U3V_Buffer::kNoImage; // handed over last; the receiver inherits from it
    size_t front = 0;                     // the buffer that is filled next
    uint64_t ready = 0;                   // images before it that nobody has taken
};

// Images on their way from the event thread to whoever calls GetImage.
//
// A fixed set of buffers is filled in turn; each image is announced as ready, and a ready buffer
// stays in the cycle, so a slow reader finds it overwritten by a later image but is answered once
// per image. Ready images are consecutive positions of the cycle, which makes a count all there is
// to keep.
//
// No image is copied on its way in: the block that it was received into becomes the buffer's, and
// the receiver goes on with one that nobody uses.
//
// Lives as long as the stream (and the last acquisition that may still be running out). One
// acquisition at a time has its cycle installed: a late completion of an earlier one is told apart
// by its cycle.
class U3V_ImageHandover
{
public:
    // Installs the cycle of a new acquisition; returns what its first image is received into.
    U3V_PayloadInProgress Begin(std::shared_ptr<U3V_ImageCycle> cycle) ZR_EXCLUDES(m_mutex);
    // Drops the buffers and every ready image; copies in progress keep theirs until they are done.
    void End() ZR_EXCLUDES(m_mutex);

    // Event thread: hands the received image over and goes on with another block. Without buffers
    // and for a cycle that is not installed the image is ignored, and `image` stays as it is.
    void Publish(const std::shared_ptr<U3V_ImageCycle>& cycle, U3V_PayloadInProgress& image,
                 const IMAGE_HEADER* header) ZR_EXCLUDES(m_mutex);

    // Any thread: waits up to `timeout_ms` for an image and copies it out. Success, IMAGE_TIMEOUT,
    // EXCEPTION (a time-out that makes no valid deadline), IMAGE_MISSING_PACKETS (copied as far as
    // the capacity allows).
    uint16_t GetImage(void* destination, size_t capacity, uint32_t timeout_ms, IMAGE_HEADER& header)
        ZR_EXCLUDES(m_mutex);

private:
    class Reading;

    uint16_t _awaitImage(uint32_t timeout_ms) ZR_REQUIRES(m_mutex);
    size_t _takeReady(IMAGE_HEADER& header) ZR_REQUIRES(m_mutex);
    void _fillFront() ZR_REQUIRES(m_mutex);
    bool _handOver(const std::shared_ptr<U3V_ImageCycle>& cycle, U3V_PayloadInProgress& image,
                   const IMAGE_HEADER* header) ZR_EXCLUDES(m_mutex);

    Mutex m_mutex;
    Condition m_imageAvailable;
    Condition m_blockUnused;
    std::shared_ptr<U3V_ImageCycle> m_cycle ZR_GUARDED_BY(m_mutex);
};
