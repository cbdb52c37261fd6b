#include "u3v_image_block.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr size_t kSegmentSize = 0x100000;

size_t SegmentSize(size_t imageSize, size_t transferSize)
{
    if (transferSize == 0 || transferSize >= imageSize) {
        return std::max<size_t>(imageSize, 1);
    }
    return transferSize * std::max<size_t>(kSegmentSize / transferSize, 1);
}

} // namespace

U3V_ImageBlock::U3V_ImageBlock(UsbBlockSource& source, size_t size, size_t transferSize,
                               bool deviceMemory)
    : m_size(size), m_segmentSize(SegmentSize(size, transferSize))
{
    m_segments.reserve(size / m_segmentSize + 1);
    for (size_t offset = 0; offset < size; offset += m_segmentSize) {
        const size_t length = std::min(m_segmentSize, size - offset);
        m_segments.push_back(deviceMemory ? source.Allocate(length)
                                          : source.AllocateOrdinary(length));
    }
}

std::span<uint8_t> U3V_ImageBlock::From(size_t offset) const
{
    if (offset >= m_size) {
        return {};
    }
    return m_segments[offset / m_segmentSize].Bytes().subspan(offset % m_segmentSize);
}

void U3V_ImageBlock::CopyTo(uint8_t* destination, size_t count) const
{
    const size_t size = std::min(count, m_size);
    for (size_t done = 0; done < size;) {
        const std::span<const uint8_t> part = From(done);
        const size_t length = std::min(part.size(), size - done);
        std::memcpy(destination + done, part.data(), length);
        done += length;
    }
}

void U3V_PayloadInProgress::_inheritUpTo(size_t end)
{
    while (m_valid < end) {
        const std::span<uint8_t> part = m_image->From(m_valid);
        const size_t length = std::min(part.size(), end - m_valid);
        if (m_previous != nullptr) {
            std::memcpy(part.data(), m_previous->From(m_valid).data(), length);
        } else {
            std::memset(part.data(), 0, length);
        }
        m_valid += length;
    }
}

std::span<uint8_t> U3V_PayloadInProgress::ReadAt(uint64_t offset)
{
    const auto start = static_cast<size_t>(std::min<uint64_t>(offset, m_image->Size()));
    // A read beyond what was written leaves a hole, which is what it was before.
    _inheritUpTo(start);
    return m_image->From(start);
}

void U3V_PayloadInProgress::Written(uint64_t offset, uint64_t count)
{
    const auto end = static_cast<size_t>(std::min<uint64_t>(offset + count, m_image->Size()));
    m_valid = std::max(m_valid, end);
}

void U3V_PayloadInProgress::Complete()
{
    _inheritUpTo(m_image->Size());
}
