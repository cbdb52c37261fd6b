#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>

#include "zr_gentl_buffer.h"
#include "zr_gentl_ring.h"
#include "zr_sync.h"

// The lists of a data stream's buffers; any other value selects no list.
enum ZR_BUFFER_TYPE_LIST : uint32_t
{
    ZR_BUFFER_LIST_INPUT = 0,     // queued for acquisition, taken from the front
    ZR_BUFFER_LIST_OUTPUT = 1,    // served like the others, never filled by the data stream
    ZR_BUFFER_LIST_ANNOUNCED = 2, // every announced buffer, in announcement order
};

// The three ordered lists of one data stream under one lock. The lists hold pointers; the announced
// list's buffers are freed when the queue is destroyed. An invalid list makes every operation
// return its empty result. Lock order: the queue's lock before a buffer's.
//
// `remove` in a Find takes the found entry out in the same locked step; a Find never destroys.
class ZrGenTLBufferQueue
{
public:
    ZrGenTLBufferQueue() = default;
    ~ZrGenTLBufferQueue();
    ZrGenTLBufferQueue(const ZrGenTLBufferQueue&) = delete;
    ZrGenTLBufferQueue& operator=(const ZrGenTLBufferQueue&) = delete;

    bool Add(ZR_BUFFER_TYPE_LIST list, ZrGenTLBuffer* buffer);
    ZrGenTLBuffer* GetFront(ZR_BUFFER_TYPE_LIST list, bool pop);
    // Front of `src` to the back of `dest`; without `pop` it stays in both.
    void MoveTo(ZR_BUFFER_TYPE_LIST dest, ZR_BUFFER_TYPE_LIST src, bool pop); // kept
    // All of `src` to the back of `dest`, in order; `clear` empties `src` afterwards.
    void FlushTo(ZR_BUFFER_TYPE_LIST dest, ZR_BUFFER_TYPE_LIST src, bool clear); // kept
    ZrGenTLBuffer* FindByBuffer(ZR_BUFFER_TYPE_LIST list, const void* base, bool remove);
    void* FindByHandle(ZR_BUFFER_TYPE_LIST list, void* handle, bool remove);
    ZrGenTLBuffer* FindByIndex(ZR_BUFFER_TYPE_LIST list, uint32_t index, bool remove);
    uint32_t GetCount(ZR_BUFFER_TYPE_LIST list);
    uint32_t GetBiggestSize(ZR_BUFFER_TYPE_LIST list); // kept
    // With `deleteBuffers` the buffers leave all three lists and are freed, each once, when the
    // last call has left it: the calling thread must not be inside one of them.
    void Clear(ZR_BUFFER_TYPE_LIST list, bool deleteBuffers);

    // The same look-ups, entering the buffer's gate under the queue's lock. Empty when there is
    // none.
    Pinned<ZrGenTLBuffer> PinByHandle(ZR_BUFFER_TYPE_LIST list, void* handle);
    Pinned<ZrGenTLBuffer> PinFront(ZR_BUFFER_TYPE_LIST list);
    // A snapshot of a list.
    std::deque<ZrGenTLBuffer*> Copy(ZR_BUFFER_TYPE_LIST list);

private:
    using List = ZrGenTLRing<ZrGenTLBuffer*>;
    static bool _isValid(ZR_BUFFER_TYPE_LIST list) { return list <= ZR_BUFFER_LIST_ANNOUNCED; }
    List* _getBufferQueue(ZR_BUFFER_TYPE_LIST list) ZR_REQUIRES(m_mutex);
    // The first entry that `matches`, taken out when `remove` is true; NULL when there is none.
    template <class Predicate>
    ZrGenTLBuffer* _find(ZR_BUFFER_TYPE_LIST list, bool remove, Predicate matches)
        ZR_REQUIRES(m_mutex);

    ZrGenTLBuffer* _takeOut(ZR_BUFFER_TYPE_LIST list) ZR_EXCLUDES(m_mutex);

    Mutex m_mutex;
    List m_input ZR_GUARDED_BY(m_mutex);
    List m_output ZR_GUARDED_BY(m_mutex);
    List m_announced ZR_GUARDED_BY(m_mutex);
};
