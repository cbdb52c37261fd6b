#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "camera.h"
#include "handle_table.h"
#include "info.h"
#include "stream_receiver.h"

namespace standard_tl {

class DataStream;

// Where a buffer is.
enum class BufferPlace : uint8_t
{
    Consumer,  // not queued
    Input,     // in the input pool
    Receiving, // with the receiver
    Output,    // waits for delivery
    Revoked,   // on its way out
};

// What changes with a buffer; the lock is its data stream's.
struct BufferState
{
    BufferPlace place = BufferPlace::Consumer;
    bool hasImage = false; // since it was queued
    u3v_host::Image image = {};

    bool IsQueued() const
    {
        return place != BufferPlace::Consumer && place != BufferPlace::Revoked;
    }
};

// An announced buffer.
class Buffer final : public Object
{
public:
    // Memory of the consumer's, or of the producer's own (then `data` is in it).
    Buffer(DataStream& owner, void* data, size_t size, void* userPointer,
           std::unique_ptr<u3v_host::BufferMemory> memory = nullptr)
        : stream(owner), base(static_cast<uint8_t*>(data)), capacity(size), user(userPointer),
          ownMemory(std::move(memory))
    {
    }

    DataStream& stream;
    uint8_t* const base;
    const size_t capacity;
    void* const user;
    const std::unique_ptr<u3v_host::BufferMemory> ownMemory;

    // All under the data stream's lock.
    BufferState state;
    uint64_t turn = 0; // grows with each queueing
    Buffer* next = nullptr;
};

// Buffers in an order, linked through themselves: nothing is allocated while images come. A buffer
// is in one queue at most.
class BufferQueue
{
public:
    size_t Size() const { return m_size; }
    Buffer* Front() const { return m_front; }
    void PushBack(Buffer& buffer);
    // Before those whose turn comes later; looked for from the front.
    void PushInTurn(Buffer& buffer);
    // NULL when it is empty.
    Buffer* PopFront();

private:
    Buffer* m_front = nullptr;
    Buffer* m_back = nullptr;
    size_t m_size = 0;
};

// DSGetBufferInfo: what a buffer in this state tells.
GC_ERROR BufferInfo(const Buffer& buffer, const BufferState& state, int32_t command,
                    const InfoOut& out);

// Whether the image has chunks, among which it may be one itself.
bool HasChunks(const BufferState& state);

} // namespace standard_tl
