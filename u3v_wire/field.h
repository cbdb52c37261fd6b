#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <span>

// How numbers stand in the packets of USB3 Vision and in a camera's memory. Everything is
// little-endian; nothing is ever cast to a struct, so neither alignment nor host byte order matter.

// A field of a packet: its width is its type.
template <std::unsigned_integral T>
struct Field
{
    size_t offset;
    constexpr size_t End() const { return offset + sizeof(T); }
};

// The field's value; a field that the packet is too short for reads as zero.
template <std::unsigned_integral T>
constexpr T Load(std::span<const uint8_t> packet, Field<T> field)
{
    if (packet.size() < field.End()) {
        return 0;
    }
    uint64_t value = 0;
    for (size_t i = sizeof(T); i > 0; --i) {
        value = value << 8U | packet[field.offset + i - 1];
    }
    return static_cast<T>(value);
}

// Stores a value; a field beyond the packet's end is left out.
template <std::unsigned_integral T>
constexpr void Store(std::span<uint8_t> packet, Field<T> field, T value)
{
    if (packet.size() < field.End()) {
        return;
    }
    uint64_t rest = value;
    for (size_t i = 0; i < sizeof(T); ++i) {
        packet[field.offset + i] = static_cast<uint8_t>(rest);
        rest >>= 8U;
    }
}
