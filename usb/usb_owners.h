#pragma once

#include <libusb.h>
#include <memory>

// Owners of libusb resources. Each deleter is the one libusb call that ends the resource.

struct UsbConfigDeleter
{
    void operator()(libusb_config_descriptor* config) const
    {
        libusb_free_config_descriptor(config);
    }
};
using UsbConfigPtr = std::unique_ptr<libusb_config_descriptor, UsbConfigDeleter>;

struct UsbTransferDeleter
{
    void operator()(libusb_transfer* transfer) const { libusb_free_transfer(transfer); }
};
using UsbTransferPtr = std::unique_ptr<libusb_transfer, UsbTransferDeleter>;

// An open device. Shared: a transfer that the bus never gave back, and device memory, keep their
// handle open. Whoever opens it gives the deleter, which also knows what the handle itself needs.
using UsbHandlePtr = std::shared_ptr<libusb_device_handle>;
