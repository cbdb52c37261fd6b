#pragma once

#include "u3v_block.h"

#include "zr_sync.h"

#include <cstdint>
#include <memory>
#include <span>
#include <vector>
#include <zr_u3v_tl/u3v_lib.h>

static_assert(sizeof(IMAGE_HEADER) == 42 && offsetof(IMAGE_HEADER, nTimestamp) == 8 &&
              offsetof(IMAGE_HEADER, nPaddingX) == 36 &&
              offsetof(IMAGE_HEADER, nMissingBytes) == 38);

// One received image: its bytes and the header from its leader. The receiver overwrites it and the
// reader copies it out, each under its lock, so no reader ever sees half of one image and half of
// another.
class U3V_Buffer
{
public:
    explicit U3V_Buffer(uint32_t size);

    uint32_t Size() const { return m_nSize; }
    // Takes over the image; a null header keeps the one of the buffer's earlier image, as after a
    // lost leader. nMissingBytes is never touched.
    void Fill(std::span<const uint8_t> image, const IMAGE_HEADER* header) ZR_EXCLUDES(m_Mutex);
    // Copies as much as `capacity` allows; false when the image is larger.
    bool CopyTo(void* destination, size_t capacity, IMAGE_HEADER& header) ZR_EXCLUDES(m_Mutex);

private:
    Mutex m_Mutex;
    const uint32_t m_nSize;
    U3V_Block m_Data ZR_GUARDED_BY(m_Mutex);
    IMAGE_HEADER m_Header ZR_GUARDED_BY(m_Mutex) = {};
};

// Images on their way from the event thread to whoever calls GetImage.
//
// A fixed set of buffers is filled in turn; each image is announced as ready, and a ready buffer
// stays in the cycle, so a slow reader finds it overwritten by a later image but is answered once
// per image. Ready images are consecutive positions of the cycle, which makes a count all there is
// to keep.
//
// Lives as long as the stream (and the last acquisition that may still be running out). One
// acquisition at a time owns the buffers: a token tells a late completion of an earlier one apart.
class U3V_ImageHandover
{
public:
    using Buffers = std::vector<std::shared_ptr<U3V_Buffer>>;

    // Installs the buffers of a new acquisition and returns its token.
    uint64_t Begin(Buffers buffers) ZR_EXCLUDES(m_Mutex);
    // Drops the buffers and every ready image; copies in progress keep theirs until they are done.
    void End() ZR_EXCLUDES(m_Mutex);

    // Event thread: hands one image over. Ignored without buffers and for an old token.
    void Publish(uint64_t token, std::span<const uint8_t> image, const IMAGE_HEADER* header)
        ZR_EXCLUDES(m_Mutex);

    // Any thread: waits up to `timeout_ms` for an image and copies it out. Success, IMAGE_TIMEOUT,
    // EXCEPTION (a time-out that makes no valid deadline), IMAGE_MISSING_PACKETS (copied as far as
    // the capacity allows).
    uint16_t GetImage(void* destination, size_t capacity, uint32_t timeout_ms, IMAGE_HEADER& header)
        ZR_EXCLUDES(m_Mutex);

private:
    std::shared_ptr<U3V_Buffer> _front(uint64_t token) ZR_EXCLUDES(m_Mutex);
    uint16_t _awaitImage(uint32_t timeout_ms) ZR_REQUIRES(m_Mutex);
    std::shared_ptr<U3V_Buffer> _takeReady() ZR_REQUIRES(m_Mutex);

    Mutex m_Mutex;
    Condition m_ImageAvailable;
    Buffers m_Buffers ZR_GUARDED_BY(m_Mutex);
    size_t m_nFront ZR_GUARDED_BY(m_Mutex) = 0;   // the buffer that is filled next
    uint64_t m_nReady ZR_GUARDED_BY(m_Mutex) = 0; // images before it that nobody has taken
    uint64_t m_nToken ZR_GUARDED_BY(m_Mutex) = 0;
};
