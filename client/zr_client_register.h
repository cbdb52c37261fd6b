#pragma once

#include <zr_u3v_tl/gentl.h>

#include <cstdint>

// 4-byte little-endian registers of any port.

inline GC_ERROR WriteRegister32(PORT_HANDLE hPort, uint64_t address, uint32_t value)
{
    const uint8_t bytes[] = {
        static_cast<uint8_t>(value & 0xFF), static_cast<uint8_t>((value >> 8) & 0xFF),
        static_cast<uint8_t>((value >> 16) & 0xFF), static_cast<uint8_t>((value >> 24) & 0xFF)};
    size_t size = sizeof(bytes);
    return GCWritePort(hPort, address, bytes, &size);
}

// `value` becomes 0 when the read fails.
inline GC_ERROR ReadRegister32(PORT_HANDLE hPort, uint64_t address, uint32_t& value)
{
    uint8_t bytes[4] = {};
    size_t size = sizeof(bytes);
    const GC_ERROR status = GCReadPort(hPort, address, bytes, &size);
    value = 0;
    for (int i = 3; i >= 0 && status == GC_ERR_SUCCESS; --i) {
        value = (value << 8) | bytes[i];
    }
    return status;
}
