#pragma once

#include "usb_owners.h"

#include <utility>

// libusb's default context. Shared by everything that libusb made in it, so libusb_exit can never
// run while a device or a handle is left, in whatever order a caller closes things.
class UsbContext
{
public:
    // Null when libusb_init failed; `result` is its answer.
    static std::shared_ptr<UsbContext> Init(int& result)
    {
        // Memory first: without it libusb is left as it was.
        const std::shared_ptr<UsbContext> context(new UsbContext);
        result = libusb_init(nullptr);
        context->m_initialized = result == 0;
        return context->m_initialized ? context : nullptr;
    }
    ~UsbContext()
    {
        if (m_initialized) {
            libusb_exit(nullptr);
        }
    }
    UsbContext(const UsbContext&) = delete;
    UsbContext& operator=(const UsbContext&) = delete;

private:
    UsbContext() = default;

    bool m_initialized = false;
};

// An open device, which keeps its context.
inline UsbHandlePtr UsbOwnHandle(libusb_device_handle* handle, std::shared_ptr<UsbContext> context)
{
    if (handle == nullptr) {
        return nullptr;
    }
    return {handle, [keep = std::move(context)](libusb_device_handle* h) { libusb_close(h); }};
}

// The device list of one pass; its devices lose the list's reference when it goes.
class UsbDeviceList
{
public:
    UsbDeviceList() : m_count(libusb_get_device_list(nullptr, &m_devices)) {}
    ~UsbDeviceList() { libusb_free_device_list(m_devices, 1); }
    UsbDeviceList(const UsbDeviceList&) = delete;
    UsbDeviceList& operator=(const UsbDeviceList&) = delete;

    // Negative: the libusb code why there is no list.
    ssize_t Count() const { return m_count; }
    libusb_device* operator[](ssize_t index) const { return m_devices[index]; }

private:
    libusb_device** m_devices = nullptr;
    ssize_t m_count;
};
