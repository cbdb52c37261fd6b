// Asynchronous transfers of a host of the virtual bus, and a camera that streams.
#ifndef BUS_ASYNC_H
#define BUS_ASYNC_H

#include <atomic>
#include <functional>
#include <future>

#include "bus_host.h"

// An asynchronous transfer with its own buffer; freed at the end of the test.
struct Async
{
    Async(libusb_device_handle* handle, unsigned char endpoint, std::size_t size, unsigned timeout)
        : buffer(size), transfer(libusb_alloc_transfer(0))
    {
        libusb_fill_bulk_transfer(transfer, handle, endpoint, buffer.data(), static_cast<int>(size),
                                  Done, this, timeout);
    }
    ~Async() { libusb_free_transfer(transfer); }
    Async(const Async&) = delete;
    Async& operator=(const Async&) = delete;

    static void LIBUSB_CALL Done(libusb_transfer* transfer)
    {
        auto& self = *static_cast<Async*>(transfer->user_data);
        self.thread = std::this_thread::get_id();
        ++self.completions;
        if (self.onDone) {
            self.onDone();
        }
        if (self.resubmit) {
            libusb_submit_transfer(transfer);
        }
    }

    Bytes buffer;
    libusb_transfer* transfer;
    std::atomic<int> completions{0};
    bool resubmit = false;
    std::function<void()> onDone;
    std::thread::id thread;
};

class BusStreaming : public BusTest
{
protected:
    // A camera that streams small images, and its opened handle.
    libusb_device_handle* Streaming(const std::string& options = "")
    {
        m_camera = vusb_add_camera(("width=64,height=32," + options).c_str());
        libusb_device_handle* handle = OpenAndClaim();
        StartStream(handle, 2048);
        return handle;
    }

    int m_camera = -1;
};

#endif
