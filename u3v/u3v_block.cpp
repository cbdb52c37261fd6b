#include "u3v_block.h"

#include <algorithm>
#include <new>

U3V_Block::U3V_Block(void* data, size_t size) : m_data(static_cast<uint8_t*>(data)), m_size(size)
{
    if (data == nullptr) {
        throw std::bad_alloc();
    }
}

// At least one byte is asked for: malloc(0) may answer null, which means out of memory here.
U3V_Block U3V_Block::Allocate(size_t size)
{
    return {std::malloc(std::max<size_t>(size, 1)), size};
}

U3V_Block U3V_Block::AllocateZeroed(size_t size)
{
    return {std::calloc(std::max<size_t>(size, 1), 1), size};
}
