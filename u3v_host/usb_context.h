#pragma once

#include <libusb.h>
#include <memory>

namespace u3v_host {

// A libusb context of our own: never the process-wide default one, which belongs to the application
// and to whatever else it has loaded. Shared by everything that was made in it, so that it ends
// when the last device and handle have gone, in whatever order their owners let go.
//
// A process that was forked from the one that made it shares what is open with its parent, but has
// not the thread that serves: there, nothing is given back to libusb.
class UsbContext
{
public:
    // Throws Error.
    static std::shared_ptr<UsbContext> Make();
    ~UsbContext();
    UsbContext(const UsbContext&) = delete;
    UsbContext& operator=(const UsbContext&) = delete;

    libusb_context* Native() const { return m_native; }
    // Costs no system call.
    bool IsForked() const;

private:
    explicit UsbContext(libusb_context* native);

    libusb_context* const m_native;
    const unsigned
        m_forks; // as many forks lie between the process that loaded the library and this
};

// A referenced device and an open one. Each keeps the context.
using UsbDevice = std::shared_ptr<libusb_device>;
using UsbHandle = std::shared_ptr<libusb_device_handle>;

// Takes a reference of its own.
UsbDevice ReferenceDevice(libusb_device* device, const std::shared_ptr<UsbContext>& context);
// Owns what libusb_open has given.
UsbHandle OwnHandle(libusb_device_handle* handle, const std::shared_ptr<UsbContext>& context);

} // namespace u3v_host
