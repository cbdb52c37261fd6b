#include "u3v_image_handover.h"

#include "zr_deadline.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

U3V_Buffer::U3V_Buffer(uint32_t size) : m_nSize(size), m_Data(U3V_Block::Allocate(size))
{
}

void U3V_Buffer::Fill(std::span<const uint8_t> image, const IMAGE_HEADER* header)
{
    Locker lock(m_Mutex);
    const size_t size = std::min<size_t>(image.size(), m_nSize);
    if (size > 0) {
        std::memcpy(m_Data.Data(), image.data(), size);
    }
    if (header != nullptr) {
        // The leader does not know what is missing, so that field keeps its value.
        const uint32_t missing = m_Header.nMissingBytes;
        m_Header = *header;
        m_Header.nMissingBytes = missing;
    }
}

bool U3V_Buffer::CopyTo(void* destination, size_t capacity, IMAGE_HEADER& header)
{
    Locker lock(m_Mutex);
    const size_t size = std::min<size_t>(capacity, m_nSize);
    if (size > 0) {
        std::memcpy(destination, m_Data.Data(), size);
    }
    header = m_Header;
    return m_nSize <= capacity;
}

uint64_t U3V_ImageHandover::Begin(Buffers buffers)
{
    Locker lock(m_Mutex);
    // Readers that wait stay waiting: the first image of the new acquisition is theirs.
    m_Buffers = std::move(buffers);
    m_nFront = 0;
    m_nReady = 0;
    return ++m_nToken;
}

void U3V_ImageHandover::End()
{
    Begin({});
}

std::shared_ptr<U3V_Buffer> U3V_ImageHandover::_front(uint64_t token)
{
    Locker lock(m_Mutex);
    return token == m_nToken && !m_Buffers.empty() ? m_Buffers[m_nFront] : nullptr;
}

void U3V_ImageHandover::Publish(uint64_t token, std::span<const uint8_t> image,
                                const IMAGE_HEADER* header)
{
    // The copy is made without the hand-over's lock: readers of other buffers go on meanwhile.
    const std::shared_ptr<U3V_Buffer> buffer = _front(token);
    if (buffer == nullptr) {
        return;
    }
    buffer->Fill(image, header);
    {
        Locker lock(m_Mutex);
        if (token != m_nToken) {
            return; // ended during the copy
        }
        m_nFront = (m_nFront + 1) % m_Buffers.size();
        ++m_nReady;
    }
    m_ImageAvailable.Signal();
}

uint16_t U3V_ImageHandover::_awaitImage(uint32_t timeout_ms)
{
    const timespec deadline = ZrDeadlineAfter(static_cast<int32_t>(timeout_ms));
    // One wait to one deadline; a waiter that is woken for an image which another one took, or for
    // none at all, waits for the rest of it.
    while (m_nReady == 0) {
        const int result = m_ImageAvailable.TimedWait(m_Mutex, deadline);
        if (result == ETIMEDOUT) {
            return U3V_STATUS_IMAGE_TIMEOUT;
        }
        if (result == EINVAL) {
            return U3V_STATUS_EXCEPTION;
        }
    }
    return U3V_STATUS_SUCCESS;
}

std::shared_ptr<U3V_Buffer> U3V_ImageHandover::_takeReady()
{
    // Quirk Q65: with more images ready than there are buffers, one buffer answers for several.
    const size_t count = m_Buffers.size();
    const size_t behind = m_nReady % count;
    --m_nReady;
    return m_Buffers[(m_nFront + count - behind) % count];
}

uint16_t U3V_ImageHandover::GetImage(void* destination, size_t capacity, uint32_t timeout_ms,
                                     IMAGE_HEADER& header)
{
    std::shared_ptr<U3V_Buffer> buffer;
    {
        Locker lock(m_Mutex);
        const uint16_t status = _awaitImage(timeout_ms);
        if (status != U3V_STATUS_SUCCESS) {
            return status;
        }
        buffer = _takeReady();
    }
    // Copied without the hand-over's lock; the buffer lives on even if the acquisition ends.
    const bool whole = buffer->CopyTo(destination, capacity, header);
    return whole ? U3V_STATUS_SUCCESS : U3V_STATUS_IMAGE_MISSING_PACKETS;
}
