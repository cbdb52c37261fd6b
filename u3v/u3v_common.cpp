#include "u3v_common.h"

#include <cstring>
#include <libusb.h>
#include <new>
#include <unistd.h>
#include <zr_u3v_tl/zr_logging.h>

uint16_t U3V_StatusFromUsb(int result)
{
    return static_cast<uint16_t>(result);
}

void U3V_LogUsbError(const char* function, int result)
{
    g_logger.Trace(ZR_LOG_ERROR, "%s %s", function, libusb_strerror(result));
}

void U3V_LogUsbErrorPadded(const char* function, int result)
{
    g_logger.Trace(ZR_LOG_ERROR, "%s %s ", function, libusb_strerror(result));
}

std::string_view U3V_FieldText(const char* field, size_t width)
{
    return {field, strnlen(field, width)};
}

void U3V_RequireMemory(uint64_t bytes)
{
    const long pages = sysconf(_SC_PHYS_PAGES);
    const long page = sysconf(_SC_PAGESIZE);
    // All of it, not what happens to be free: swapping is the machine's affair, and the figure must
    // not change between two starts.
    if (pages <= 0 || page <= 0) {
        return;
    }
    if (bytes / static_cast<uint64_t>(page) > static_cast<uint64_t>(pages)) {
        throw std::bad_alloc();
    }
}
