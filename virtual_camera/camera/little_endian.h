// Little-endian load and store, and a named place of a fixed width in a block of bytes.
#ifndef VCAM_LITTLE_ENDIAN_H
#define VCAM_LITTLE_ENDIAN_H

#include <cstddef>
#include <cstdint>

namespace vcam {

template <typename T>
void StoreLe(std::uint8_t* at, T value)
{
    for (std::size_t i = 0; i < sizeof(T); ++i) {
        at[i] = static_cast<std::uint8_t>(static_cast<std::uint64_t>(value) >> (8 * i));
    }
}

template <typename T>
T LoadLe(const std::uint8_t* at)
{
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < sizeof(T); ++i) {
        value |= static_cast<std::uint64_t>(at[i]) << (8 * i);
    }
    return static_cast<T>(value);
}

// A field of a packet: its offset by value, its width by type.
template <typename T>
struct Field
{
    std::size_t offset;

    static constexpr std::size_t Size() { return sizeof(T); }
    constexpr std::size_t End() const { return offset + sizeof(T); }
    T Load(const std::uint8_t* block) const { return LoadLe<T>(block + offset); }
    void Store(std::uint8_t* block, T value) const { StoreLe<T>(block + offset, value); }
};

// A register in the camera's address space.
template <typename T>
struct Register
{
    std::uint64_t address;

    static constexpr std::size_t Size() { return sizeof(T); }
    constexpr bool TouchedBy(std::uint64_t from, std::size_t count) const
    {
        return from < address + sizeof(T) && address < from + count;
    }
};

} // namespace vcam

#endif
