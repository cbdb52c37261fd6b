#pragma once

#include <cstdint>
#include <libusb.h>
#include <string>

#include "error.h"

namespace u3v_host {

// Which kind of failure a code means. The only tables of this kind.
ErrorKind KindOfStatus(uint16_t status); // of an acknowledge, not success
ErrorKind KindOfUsbError(int code);      // LIBUSB_ERROR_*, where a device is opened or used

// Codes for people: "0x8003 (invalid address)", "LIBUSB_TRANSFER_STALL".
std::string StatusText(uint16_t status);
const char* TransferStatusName(libusb_transfer_status status);

} // namespace u3v_host
