#include "bench_usb.h"

#include <algorithm>
#include <cstring>
#include <string>

namespace bench {

namespace {

constexpr uint8_t kVendorClass = 0xEF; // miscellaneous, with the subclass of USB3 Vision
constexpr uint8_t kVisionSubclass = 0x05;
constexpr uint8_t kControlProtocol = 0x00;
constexpr uint8_t kStreamProtocol = 0x02;
constexpr unsigned kTimeout = 5000; // ms

constexpr uint32_t kPrefix = 0x43563355;
constexpr uint16_t kRequestAck = 0x4000;
constexpr uint16_t kReadMemory = 0x0800;
constexpr uint16_t kWriteMemory = 0x0802;
constexpr size_t kHeader = 12;
constexpr size_t kReadCommand = 24;
constexpr size_t kWriteCommand = 20;
constexpr size_t kWriteAck = 16;
constexpr size_t kLargest = 2048;

// Streaming interface registers and features of the virtual camera.
constexpr uint64_t kStreamControl = 0x20004;
constexpr uint64_t kRequiredPayload = 0x20008;
constexpr uint64_t kStreamSizes = 0x20018; // leader, transfer size and count, two finals, trailer
constexpr uint64_t kAcquisition = 0x50014;

void NeedUsb(int result, const char* call)
{
    if (result < 0) {
        throw Failure(std::string(call) + ": " +
                      libusb_strerror(static_cast<libusb_error>(result)));
    }
}

template <class T>
void Put(std::vector<uint8_t>& packet, size_t offset, T value)
{
    std::memcpy(packet.data() + offset, &value, sizeof(value));
}

bool IsCamera(libusb_device* device)
{
    libusb_device_descriptor descriptor{};
    return libusb_get_device_descriptor(device, &descriptor) == 0 &&
           descriptor.bDeviceClass == kVendorClass;
}

} // namespace

UsbContext::UsbContext()
{
    NeedUsb(libusb_init(nullptr), "libusb_init");
}

UsbCamera::UsbCamera(size_t index) : m_packet(kLargest)
{
    _open(index);
    for (const int interface : {m_controlInterface, m_streamInterface}) {
        NeedUsb(libusb_claim_interface(Handle(), interface), "libusb_claim_interface");
    }
}

UsbCamera::~UsbCamera()
{
    for (const int interface : {m_streamInterface, m_controlInterface}) {
        libusb_release_interface(Handle(), interface);
    }
}

void UsbCamera::_open(size_t index)
{
    libusb_device** list = nullptr;
    const ssize_t count = libusb_get_device_list(nullptr, &list);
    NeedUsb(static_cast<int>(count), "libusb_get_device_list");
    for (ssize_t i = 0; i < count && m_handle == nullptr; ++i) {
        if (IsCamera(list[i]) && index-- == 0) {
            libusb_device_handle* handle = nullptr;
            libusb_open(list[i], &handle); // the check is below, when the list is freed
            m_handle.reset(handle);
            _findEndpoints(list[i]);
        }
    }
    libusb_free_device_list(list, 1);
    if (m_handle == nullptr || m_streamIn == 0) {
        throw Failure("no camera for the bare reader");
    }
}

void UsbCamera::_findEndpoints(libusb_device* device)
{
    libusb_config_descriptor* config = nullptr;
    if (libusb_get_active_config_descriptor(device, &config) < 0) {
        return;
    }
    for (int i = 0; i < config->bNumInterfaces; ++i) {
        const libusb_interface_descriptor& interface = config->interface[i].altsetting[0];
        if (interface.bInterfaceSubClass != kVisionSubclass) {
            continue;
        }
        const bool isControl = interface.bInterfaceProtocol == kControlProtocol;
        const bool isStream = interface.bInterfaceProtocol == kStreamProtocol;
        for (int e = 0; e < interface.bNumEndpoints; ++e) {
            const uint8_t address = interface.endpoint[e].bEndpointAddress;
            const bool isIn = (address & LIBUSB_ENDPOINT_IN) != 0;
            if (isControl) {
                m_controlInterface = interface.bInterfaceNumber;
                (isIn ? m_controlIn : m_controlOut) = address;
            } else if (isStream && isIn) {
                m_streamInterface = interface.bInterfaceNumber;
                m_streamIn = address;
            }
        }
    }
    libusb_free_config_descriptor(config);
}

void UsbCamera::_send(size_t size)
{
    int moved = 0;
    NeedUsb(libusb_bulk_transfer(Handle(), m_controlOut, m_packet.data(), static_cast<int>(size),
                                 &moved, kTimeout),
            "a command");
}

void UsbCamera::_receive(size_t size)
{
    int moved = 0;
    NeedUsb(libusb_bulk_transfer(Handle(), m_controlIn, m_packet.data(), static_cast<int>(size),
                                 &moved, kTimeout),
            "an acknowledge");
    if (moved != static_cast<int>(size)) {
        throw Failure("a short acknowledge");
    }
}

void UsbCamera::Read(uint64_t address, void* data, size_t size)
{
    Put(m_packet, 0, kPrefix);
    Put(m_packet, 4, kRequestAck);
    Put(m_packet, 6, kReadMemory);
    Put(m_packet, 8, static_cast<uint16_t>(kReadCommand - kHeader));
    Put(m_packet, 10, ++m_requestId);
    Put(m_packet, kHeader, address);
    Put(m_packet, kHeader + 8, uint16_t{0});
    Put(m_packet, kHeader + 10, static_cast<uint16_t>(size));
    _send(kReadCommand);
    _receive(kHeader + size);
    std::memcpy(data, m_packet.data() + kHeader, size);
}

void UsbCamera::Write(uint64_t address, uint32_t value)
{
    Put(m_packet, 0, kPrefix);
    Put(m_packet, 4, kRequestAck);
    Put(m_packet, 6, kWriteMemory);
    Put(m_packet, 8, static_cast<uint16_t>(sizeof(address) + sizeof(value)));
    Put(m_packet, 10, ++m_requestId);
    Put(m_packet, kHeader, address);
    Put(m_packet, kWriteCommand, value);
    _send(kWriteCommand + sizeof(value));
    _receive(kWriteAck);
}

void UsbCamera::Start()
{
    uint64_t payload = 0;
    Read(kRequiredPayload, &payload, sizeof(payload));
    m_payload = payload;
    const auto count = static_cast<uint32_t>(payload / kTransferSize);
    const auto rest = static_cast<uint32_t>(payload % kTransferSize);
    uint64_t address = kStreamSizes;
    for (const uint32_t value : {kLeaderSize, kTransferSize, count, rest, 0U, kTrailerSize}) {
        Write(address, value);
        address += sizeof(value);
    }
    Write(kStreamControl, 1);
    Write(kAcquisition, 1);
}

void UsbCamera::Stop()
{
    Write(kAcquisition, 0);
    Write(kStreamControl, 0);
}

size_t UsbCamera::_stream(uint8_t* memory, size_t size)
{
    int moved = 0;
    NeedUsb(libusb_bulk_transfer(Handle(), m_streamIn, memory, static_cast<int>(size), &moved,
                                 kTimeout),
            "the stream");
    return static_cast<size_t>(moved);
}

void UsbCamera::ReadImage(uint8_t* memory)
{
    if (_stream(m_packet.data(), kLeaderSize) != kLeaderSize) {
        throw Failure("no leader");
    }
    for (size_t at = 0; at < m_payload;) {
        const size_t size = std::min<size_t>(m_payload - at, kTransferSize);
        if (_stream(memory + at, size) != size) {
            throw Failure("a short payload");
        }
        at += size;
    }
    if (_stream(m_packet.data(), kTrailerSize) != kTrailerSize) {
        throw Failure("no trailer");
    }
}

} // namespace bench
