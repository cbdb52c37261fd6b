#pragma once

#include <cstdint>
#include <string_view>
#include <zr_u3v_tl/u3v_lib.h>

// What the classes of this folder share: how libusb results become statuses and log lines, and the
// rule of memory that hostile sizes have to obey.

// A status that carries a libusb result code; negative codes keep their low 16 bits (-11: 0xFFF5).
uint16_t U3V_StatusFromUsb(int result);

// Logs "<function> <text of the libusb code>" at error level. The second form of the line, with a
// trailing blank, belongs to the device list alone.
void U3V_LogUsbError(const char* function, int result);
void U3V_LogUsbErrorPadded(const char* function, int result);

// Text of a fixed field up to its first zero, or the whole field when there is none.
std::string_view U3V_FieldText(const char* field, size_t width);

template <size_t Width>
std::string_view U3V_FieldText(const char (&field)[Width])
{
    return U3V_FieldText(field, Width);
}

// Throws std::bad_alloc when `bytes` is more than this machine has. The kernel grants such requests
// and kills the process once they are touched, so sizes that a camera names are measured first.
void U3V_RequireMemory(uint64_t bytes);
