#include "usb_context.h"

#include "error.h"

namespace u3v_host {

std::shared_ptr<UsbContext> UsbContext::Make()
{
    libusb_context* native = nullptr;
    const int result = libusb_init(&native);
    if (result != LIBUSB_SUCCESS) {
        throw Error(ErrorKind::ResourceExhausted,
                    std::string("libusb cannot be initialised: ") + libusb_error_name(result));
    }
    return std::shared_ptr<UsbContext>(new UsbContext(native));
}

UsbContext::~UsbContext()
{
    if (!IsForked()) {
        libusb_exit(m_native);
    }
}

UsbDevice ReferenceDevice(libusb_device* device, const std::shared_ptr<UsbContext>& context)
{
    return {libusb_ref_device(device), [context](libusb_device* one) {
                if (!context->IsForked()) {
                    libusb_unref_device(one);
                }
            }};
}

UsbHandle OwnHandle(libusb_device_handle* handle, const std::shared_ptr<UsbContext>& context)
{
    return {handle, [context](libusb_device_handle* one) {
                if (!context->IsForked()) {
                    libusb_close(one);
                }
            }};
}

} // namespace u3v_host
