#include "bench_queue.h"

#include <algorithm>
#include <cstdlib>

namespace bench {

QueuedStream::QueuedStream(const UsbCamera& camera, size_t images, bool deviceMemory)
    : m_camera(camera), m_deviceMemory(deviceMemory)
{
    for (size_t i = 0; i < images; ++i) {
        Image& image = m_images.emplace_back();
        _addTransfer(image, UsbCamera::kLeaderSize);
        for (size_t left = camera.Payload(); left != 0;) {
            const size_t size = std::min<size_t>(left, UsbCamera::kTransferSize);
            _addTransfer(image, size);
            left -= size;
        }
        _addTransfer(image, UsbCamera::kTrailerSize);
    }
    for (Image& image : m_images) {
        _submit(image);
    }
}

QueuedStream::~QueuedStream()
{
    for (Image& image : m_images) {
        std::ranges::for_each(image.transfers, libusb_cancel_transfer);
    }
    for (Image& image : m_images) {
        while (image.pending != 0) {
            libusb_handle_events(nullptr);
        }
        std::ranges::for_each(image.transfers, libusb_free_transfer);
    }
    for (const auto& [block, size] : m_blocks) {
        if (m_deviceMemory) {
            libusb_dev_mem_free(m_camera.Handle(), block, size);
        } else {
            std::free(block);
        }
    }
}

uint8_t* QueuedStream::_allocate(size_t size)
{
    auto* const block = m_deviceMemory ? libusb_dev_mem_alloc(m_camera.Handle(), size)
                                       : static_cast<uint8_t*>(std::calloc(1, size));
    if (block == nullptr) {
        throw Failure("no memory for the bare reader");
    }
    m_blocks.emplace_back(block, size);
    return block;
}

void QueuedStream::_addTransfer(Image& image, size_t size)
{
    libusb_transfer* const transfer = libusb_alloc_transfer(0);
    if (transfer == nullptr) {
        throw Failure("no transfer for the bare reader");
    }
    constexpr size_t kPacket = 1024;
    const size_t length = (size + kPacket - 1) / kPacket * kPacket;
    libusb_fill_bulk_transfer(transfer, m_camera.Handle(), m_camera.StreamEndpoint(),
                              _allocate(length), static_cast<int>(length), _onCompletion, &image,
                              0);
    image.transfers.push_back(transfer);
}

void QueuedStream::_onCompletion(libusb_transfer* transfer)
{
    Image& image = *static_cast<Image*>(transfer->user_data);
    image.failed = image.failed || transfer->status != LIBUSB_TRANSFER_COMPLETED;
    --image.pending;
}

void QueuedStream::_submit(Image& image)
{
    for (libusb_transfer* const transfer : image.transfers) {
        if (libusb_submit_transfer(transfer) != 0) {
            throw Failure("the system refuses a transfer of the bare reader");
        }
        ++image.pending;
    }
}

void QueuedStream::ReadImage()
{
    Image& image = m_images.front();
    while (image.pending != 0) {
        libusb_handle_events(nullptr);
    }
    if (image.failed) {
        throw Failure("a transfer of the bare reader failed");
    }
    _submit(image);
    m_images.splice(m_images.end(), m_images, m_images.begin());
}

} // namespace bench
