#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <span>
#include <utility>

// A heap block of fixed size that a transfer reads into or an image is kept in. The one place where
// such memory comes from. Allocation failure is std::bad_alloc; a block of 0 bytes is a block too.
class U3V_Block
{
public:
    U3V_Block() = default;
    U3V_Block(U3V_Block&& other) noexcept
        : m_data(std::move(other.m_data)), m_size(std::exchange(other.m_size, 0))
    {
    }
    U3V_Block& operator=(U3V_Block&& other) noexcept
    {
        m_data = std::move(other.m_data);
        m_size = std::exchange(other.m_size, 0);
        return *this;
    }

    static U3V_Block Allocate(size_t size);
    static U3V_Block AllocateZeroed(size_t size);

    uint8_t* Data() const { return m_data.get(); }
    size_t Size() const { return m_size; }
    std::span<uint8_t> Bytes() const { return {m_data.get(), m_size}; }

private:
    struct Free
    {
        void operator()(uint8_t* data) const { std::free(data); }
    };

    U3V_Block(void* data, size_t size);

    std::unique_ptr<uint8_t[], Free> m_data;
    size_t m_size = 0;
};
