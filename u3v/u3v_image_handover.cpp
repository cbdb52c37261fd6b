#include "u3v_image_handover.h"

#include "zr_deadline.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace {

// The receiver, the image handed over last and one that is being read: all that goes round while
// the reader keeps up. More device memory would only lie idle.
constexpr size_t kDeviceMemoryBlocks = 3;

} // namespace

void U3V_Buffer::SetHeader(const IMAGE_HEADER* leader)
{
    if (leader != nullptr) {
        // The leader does not know what is missing, so that field keeps its value.
        const uint32_t missing = header.nMissingBytes;
        header = *leader;
        header.nMissingBytes = missing;
    }
}

U3V_ImageCycle::U3V_ImageCycle(UsbBlockSource& source, size_t bufferCount, size_t imageSize,
                               size_t transferSize)
    : buffers(bufferCount), uses(bufferCount + kExtraBlocks)
{
    blocks.reserve(uses.size());
    while (blocks.size() < uses.size()) {
        blocks.emplace_back(source, imageSize, transferSize, blocks.size() < kDeviceMemoryBlocks);
    }
    Keep(receiving);
}

size_t U3V_ImageCycle::Unused() const
{
    const auto found = std::find(uses.begin(), uses.end(), 0U);
    return found != uses.end() ? static_cast<size_t>(found - uses.begin()) : U3V_Buffer::kNoImage;
}

U3V_PayloadInProgress U3V_ImageHandover::Begin(std::shared_ptr<U3V_ImageCycle> cycle)
{
    Locker lock(m_mutex);
    // Readers that wait stay waiting: the first image of the new acquisition is theirs.
    m_cycle = std::move(cycle);
    return {&m_cycle->blocks[m_cycle->receiving], nullptr};
}

void U3V_ImageHandover::End()
{
    std::shared_ptr<U3V_ImageCycle> ended; // freed without the lock
    Locker lock(m_mutex);
    m_cycle.swap(ended);
}

void U3V_ImageHandover::_fillFront()
{
    U3V_ImageCycle& cycle = *m_cycle;
    U3V_Buffer& buffer = cycle.buffers[cycle.front];
    for (const size_t replaced : {buffer.image, cycle.latest}) {
        if (replaced != U3V_Buffer::kNoImage) {
            cycle.Drop(replaced);
        }
    }
    buffer.image = cycle.latest = cycle.receiving; // kept twice: once more than as receiving
    cycle.Keep(cycle.receiving);
    cycle.front = (cycle.front + 1) % cycle.buffers.size();
    ++cycle.ready;
}

bool U3V_ImageHandover::_handOver(const std::shared_ptr<U3V_ImageCycle>& cycle,
                                  U3V_PayloadInProgress& image, const IMAGE_HEADER* header)
{
    Locker lock(m_mutex);
    if (cycle != m_cycle || cycle->buffers.empty()) {
        return false;
    }
    cycle->buffers[cycle->front].SetHeader(header);
    _fillFront();
    while ((cycle->receiving = cycle->Unused()) == U3V_Buffer::kNoImage) {
        // Several readers copy at once; one of them is soon done.
        m_imageAvailable.Signal();
        m_blockUnused.Wait(m_mutex);
    }
    cycle->Keep(cycle->receiving);
    image = {&cycle->blocks[cycle->receiving], &cycle->blocks[cycle->latest]};
    return true;
}

void U3V_ImageHandover::Publish(const std::shared_ptr<U3V_ImageCycle>& cycle,
                                U3V_PayloadInProgress& image, const IMAGE_HEADER* header)
{
    image.Complete(); // may copy, so before the lock
    if (_handOver(cycle, image, header)) {
        m_imageAvailable.Signal();
    }
}

uint16_t U3V_ImageHandover::_awaitImage(uint32_t timeout_ms)
{
    const timespec deadline = ZrDeadlineAfter(static_cast<int32_t>(timeout_ms));
    // One wait to one deadline; a waiter that is woken for an image which another one took, or for
    // none at all, waits for the rest of it.
    while (m_cycle == nullptr || m_cycle->ready == 0) {
        const int result = m_imageAvailable.TimedWait(m_mutex, deadline);
        if (result == ETIMEDOUT) {
            return U3V_STATUS_IMAGE_TIMEOUT;
        }
        if (result == EINVAL) {
            return U3V_STATUS_EXCEPTION;
        }
    }
    return U3V_STATUS_SUCCESS;
}

// The block of the next image, kept for the caller.
size_t U3V_ImageHandover::_takeReady(IMAGE_HEADER& header)
{
    U3V_ImageCycle& cycle = *m_cycle;
    // Quirk Q65: with more images ready than there are buffers, one buffer answers for several.
    const size_t count = cycle.buffers.size();
    const size_t behind = cycle.ready % count;
    U3V_Buffer& buffer = cycle.buffers[(cycle.front + count - behind) % count];
    const size_t block = buffer.image;
    header = buffer.header;
    if (cycle.ready <= count) {
        buffer.image = U3V_Buffer::kNoImage; // nobody can ask for it again
    } else {
        cycle.Keep(block);
    }
    --cycle.ready;
    return block;
}

// A block that a reader copies from: kept from its taking until the copy is done, whatever becomes
// of the acquisition meanwhile.
class U3V_ImageHandover::Reading
{
public:
    Reading(U3V_ImageHandover& handover, std::shared_ptr<U3V_ImageCycle> cycle, size_t block)
        : m_handover(handover), m_cycle(std::move(cycle)), m_block(block)
    {
    }
    ~Reading()
    {
        {
            Locker lock(m_handover.m_mutex);
            m_cycle->Drop(m_block);
        }
        m_handover.m_blockUnused.Broadcast();
    }
    Reading(const Reading&) = delete;
    Reading& operator=(const Reading&) = delete;

    const U3V_ImageBlock& Image() const { return m_cycle->blocks[m_block]; }

private:
    U3V_ImageHandover& m_handover;
    const std::shared_ptr<U3V_ImageCycle> m_cycle;
    const size_t m_block;
};

uint16_t U3V_ImageHandover::GetImage(void* destination, size_t capacity, uint32_t timeout_ms,
                                     IMAGE_HEADER& header)
{
    std::shared_ptr<U3V_ImageCycle> cycle;
    size_t block = 0;
    {
        Locker lock(m_mutex);
        const uint16_t status = _awaitImage(timeout_ms);
        if (status != U3V_STATUS_SUCCESS) {
            return status;
        }
        block = _takeReady(header);
        cycle = m_cycle;
    }
    // Copied without the lock: the receiver and other readers go on meanwhile.
    const Reading reading(*this, std::move(cycle), block);
    reading.Image().CopyTo(static_cast<uint8_t*>(destination), capacity);
    return reading.Image().Size() <= capacity ? U3V_STATUS_SUCCESS
                                              : U3V_STATUS_IMAGE_MISSING_PACKETS;
}
