#pragma once

#include "usb_owners.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <utility>
#include <vector>

// A block of fixed size that a transfer reads into or an image is kept in. The one place where such
// memory comes from. A block of 0 bytes is a block too.
class UsbBlock
{
public:
    UsbBlock() = default;
    UsbBlock(UsbBlock&& other) noexcept
        : m_data(std::move(other.m_data)), m_size(std::exchange(other.m_size, 0))
    {
    }
    UsbBlock& operator=(UsbBlock&& other) noexcept
    {
        m_data = std::move(other.m_data);
        m_size = std::exchange(other.m_size, 0);
        return *this;
    }

    // Allocation failure is std::bad_alloc.
    static UsbBlock Allocate(size_t size);
    static UsbBlock AllocateZeroed(size_t size);
    // Begins on a page, as device memory does.
    static UsbBlock AllocatePages(size_t size);
    // Memory that the kernel lets the bus write to directly, where ordinary memory costs a copy by
    // the kernel; it begins on a page. Without Data() when libusb, the kernel or the memory set
    // aside for USB gives none. Keeps the device open until it is freed.
    static UsbBlock AllocateForDevice(const UsbHandlePtr& device, size_t size);

    uint8_t* Data() const { return m_data.get(); }
    size_t Size() const { return m_size; }
    std::span<uint8_t> Bytes() const { return {m_data.get(), m_size}; }
    bool IsDeviceMemory() const { return m_data.get_deleter().device != nullptr; }

private:
    struct Free
    {
        Free() noexcept : size(0) {}
        Free(UsbHandlePtr owner, size_t length) : device(std::move(owner)), size(length) {}
        void operator()(uint8_t* data) const;

        UsbHandlePtr device; // null: ordinary memory
        size_t size;
    };

    UsbBlock(void* data, size_t size);

    std::unique_ptr<uint8_t[], Free> m_data;
    size_t m_size = 0;
};

// Gives the blocks of one acquisition: device memory as long as there is some, then ordinary.
//
// Device memory counts against a limit that all cameras and programs of the machine share
// (usbfs_memory_mb, 16 MiB by default), and so does each transfer into ordinary memory while it is
// in flight. A reserve stays free for those: a camera that is greedy would keep the next one from
// starting.
class UsbBlockSource
{
public:
    // For as long as it exists, the reserve is taken.
    explicit UsbBlockSource(UsbHandlePtr device);

    UsbBlock Allocate(size_t size);
    UsbBlock AllocateOrdinary(size_t size) { return UsbBlock::Allocate(size); }

private:
    const UsbHandlePtr m_device;
    bool m_deviceMemory = true; // none was refused so far
    std::vector<UsbBlock> m_reserve;
};
