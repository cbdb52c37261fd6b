#include "usb_context.h"

#include <atomic>
#include <pthread.h>

#include "error.h"

namespace u3v_host {

namespace {

std::atomic<unsigned> g_forks{0};

void CountForks()
{
    static const bool counts = pthread_atfork(nullptr, nullptr, [] { ++g_forks; }) == 0;
    if (!counts) {
        throw Error(ErrorKind::ResourceExhausted, "the system has no memory to tell of forks");
    }
}

} // namespace

UsbContext::UsbContext(libusb_context* native) : m_native(native), m_forks(g_forks)
{
}

bool UsbContext::IsForked() const
{
    return m_forks != g_forks.load(std::memory_order_relaxed);
}

std::shared_ptr<UsbContext> UsbContext::Make()
{
    CountForks();
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
