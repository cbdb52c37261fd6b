#pragma once

// Register access through the exported port functions, for the register-map tests.

#include <initializer_list>
#include <vector>

#include "tl_fixture.h"

using Addresses = std::initializer_list<uint64_t>;

// Status, resulting size and bytes of one read with room for `capacity` bytes; the buffer is
// filled with 0xEE before.
struct PortRead
{
    GC_ERROR status;
    size_t size;
    std::vector<uint8_t> bytes;
};

inline PortRead ReadAt(PORT_HANDLE port, uint64_t address, size_t capacity)
{
    PortRead read{0, capacity, std::vector<uint8_t>(capacity, 0xEE)};
    read.status = GCReadPort(port, address, read.bytes.data(), &read.size);
    return read;
}

// A string register, read with its announced length: "status size text".
inline std::string StringAt(PORT_HANDLE port, uint64_t address)
{
    PortRead read = ReadAt(port, address, 256);
    read.bytes.back() = 0;
    return std::to_string(read.status) + " " + std::to_string(read.size) + " " +
           reinterpret_cast<const char*>(read.bytes.data());
}

inline std::string StringAnswer(const std::string& text)
{
    return "0 " + std::to_string(text.size() + 1) + " " + text;
}

// An integer register's four bytes, least significant first; the status as a negative number if
// the read fails or is not of four bytes.
inline int64_t IntegerAt(PORT_HANDLE port, uint64_t address)
{
    const PortRead read = ReadAt(port, address, 4);
    if (read.status != 0 || read.size != 4) {
        return read.status != 0 ? read.status : -1;
    }
    int64_t value = 0;
    for (size_t i = 4; i-- > 0;) {
        value = value * 256 + read.bytes[i];
    }
    return value;
}

inline GC_ERROR WriteAt(PORT_HANDLE port, uint64_t address, std::vector<uint8_t> bytes)
{
    size_t size = bytes.size();
    return GCWritePort(port, address, bytes.data(), &size);
}
