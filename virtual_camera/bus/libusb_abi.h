// The libusb-1.0 header with its functions exported: this library takes libusb's place.
#ifndef VBUS_LIBUSB_ABI_H
#define VBUS_LIBUSB_ABI_H

#pragma GCC visibility push(default)
#include <libusb.h>
#pragma GCC visibility pop

#endif
