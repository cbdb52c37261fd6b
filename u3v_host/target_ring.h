#pragma once

#include <array>
#include <cstddef>

#include "stream_receiver.h"

namespace u3v_host {

// Targets in the order of their images. Of fixed size, so that nothing is allocated while images
// come.
class TargetRing
{
public:
    static constexpr size_t kCapacity = 64;

    size_t Size() const { return m_size; }
    bool IsFull() const { return m_size == kCapacity; }
    const Target& operator[](size_t index) const
    {
        return m_targets[(m_first + index) % kCapacity];
    }
    void Push(const Target& target)
    {
        m_targets[(m_first + m_size) % kCapacity] = target;
        ++m_size;
    }
    Target Pop()
    {
        const Target target = m_targets[m_first];
        m_first = (m_first + 1) % kCapacity;
        --m_size;
        return target;
    }

private:
    std::array<Target, kCapacity> m_targets = {};
    size_t m_first = 0;
    size_t m_size = 0;
};

} // namespace u3v_host
