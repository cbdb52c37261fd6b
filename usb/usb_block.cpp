#include "usb_block.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <unistd.h>

// Newer than the rest of what is called here. Weak, so that the library loads, and works with
// ordinary memory, where libusb or what stands in for it lacks them.
#pragma weak libusb_dev_mem_alloc
#pragma weak libusb_dev_mem_free

namespace {

// What is left to others: four transfers of the size that streams use, into ordinary memory.
constexpr size_t kReserveBlocks = 4;
constexpr size_t kReserveBlockSize = 0x100000;

bool HasDeviceMemory()
{
    return &libusb_dev_mem_alloc != nullptr && &libusb_dev_mem_free != nullptr;
}

} // namespace

UsbBlock::UsbBlock(void* data, size_t size) : m_data(static_cast<uint8_t*>(data)), m_size(size)
{
    if (data == nullptr) {
        throw std::bad_alloc();
    }
}

void UsbBlock::Free::operator()(uint8_t* data) const
{
    if (device == nullptr) {
        std::free(data);
    } else {
        // A device stands here only if the function that gave the memory was there, and this one.
        // NOLINTNEXTLINE(clang-analyzer-core.CallAndMessage)
        libusb_dev_mem_free(device.get(), data, size);
    }
}

// At least one byte is asked for: malloc(0) may answer null, which means out of memory here.
UsbBlock UsbBlock::Allocate(size_t size)
{
    return {std::malloc(std::max<size_t>(size, 1)), size};
}

UsbBlock UsbBlock::AllocateZeroed(size_t size)
{
    return {std::calloc(std::max<size_t>(size, 1), 1), size};
}

UsbBlock UsbBlock::AllocatePages(size_t size)
{
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    if (size > SIZE_MAX - page) {
        throw std::bad_alloc();
    }
    const size_t pages = std::max<size_t>((size + page - 1) / page, 1);
    return {std::aligned_alloc(page, pages * page), size};
}

UsbBlock UsbBlock::AllocateForDevice(const UsbHandlePtr& device, size_t size)
{
    UsbBlock block;
    if (device == nullptr || size == 0 || !HasDeviceMemory()) {
        return block;
    }
    if (uint8_t* const data = libusb_dev_mem_alloc(device.get(), size); data != nullptr) {
        block.m_data = {data, Free(device, size)};
        block.m_size = size;
    }
    return block;
}

UsbBlockSource::UsbBlockSource(UsbHandlePtr device) : m_device(std::move(device))
{
    m_reserve.reserve(kReserveBlocks);
    while (m_deviceMemory && m_reserve.size() < kReserveBlocks) {
        m_reserve.push_back(UsbBlock::AllocateForDevice(m_device, kReserveBlockSize));
        m_deviceMemory = m_reserve.back().Data() != nullptr;
    }
}

UsbBlock UsbBlockSource::Allocate(size_t size)
{
    if (m_deviceMemory) {
        if (UsbBlock block = UsbBlock::AllocateForDevice(m_device, size); block.Data() != nullptr) {
            return block;
        }
        m_deviceMemory = size == 0; // the rest is as good as taken
    }
    return UsbBlock::Allocate(size);
}
