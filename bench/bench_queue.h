#pragma once

#include <list>

#include "bench_usb.h"

namespace bench {

// Reads a camera's stream with several images in flight, in one thread and with nothing but
// libusb's own calls: the most that an application can get out of this machine and this bus.
// Leaders and trailers lie in the same kind of memory as the payload.
class QueuedStream
{
public:
    // The camera is started and outlives this.
    QueuedStream(const UsbCamera& camera, size_t images, bool deviceMemory);
    // Cancels what is in flight and waits for it.
    ~QueuedStream();
    QueuedStream(const QueuedStream&) = delete;
    QueuedStream& operator=(const QueuedStream&) = delete;

    // Waits for the oldest image; its memory is in flight again when this returns.
    void ReadImage();

private:
    // Leader, payload, trailer: transfers that complete in this order.
    struct Image
    {
        std::vector<libusb_transfer*> transfers;
        size_t pending = 0;
        bool failed = false;
    };

    static void LIBUSB_CALL _onCompletion(libusb_transfer* transfer);
    uint8_t* _allocate(size_t size);
    void _addTransfer(Image& image, size_t size);
    void _submit(Image& image);

    const UsbCamera& m_camera;
    const bool m_deviceMemory;
    std::vector<std::pair<uint8_t*, size_t>> m_blocks;
    std::list<Image> m_images; // the oldest first
};

} // namespace bench
