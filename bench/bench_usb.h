#pragma once

#include <cstdint>
#include <libusb.h>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

// A camera read by bare libusb calls, without the library: what the measurements compare with.
namespace bench {

// A measurement that cannot be made.
class Failure : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

// The default context, which the library shares.
class UsbContext
{
public:
    UsbContext();
    ~UsbContext() { libusb_exit(nullptr); }
    UsbContext(const UsbContext&) = delete;
    UsbContext& operator=(const UsbContext&) = delete;
};

class UsbCamera
{
public:
    static constexpr uint32_t kLeaderSize = 52;
    static constexpr uint32_t kTrailerSize = 32;
    static constexpr uint32_t kTransferSize = 0x100000; // of a payload transfer

    // The index-th camera of the bus, its interfaces claimed.
    explicit UsbCamera(size_t index);
    ~UsbCamera();
    UsbCamera(const UsbCamera&) = delete;
    UsbCamera& operator=(const UsbCamera&) = delete;

    libusb_device_handle* Handle() const { return m_handle.get(); }
    // One exchange, as short as it gets: a command out, an acknowledge in.
    void Read(uint64_t address, void* data, size_t size);
    void Write(uint64_t address, uint32_t value);

    // Programs the stream as the library does and starts it; images come until Stop.
    void Start();
    void Stop();
    size_t Payload() const { return m_payload; }
    uint8_t StreamEndpoint() const { return m_streamIn; }
    // Reads one image, leader to trailer, one transfer at a time. The memory holds Payload() bytes.
    void ReadImage(uint8_t* memory);

private:
    void _open(size_t index);
    void _findEndpoints(libusb_device* device);
    void _send(size_t size);
    void _receive(size_t size);
    size_t _stream(uint8_t* memory, size_t size);

    struct Close
    {
        // Gives claimed interfaces back as well.
        void operator()(libusb_device_handle* handle) const { libusb_close(handle); }
    };

    const UsbContext m_context; // outlives the handle
    std::unique_ptr<libusb_device_handle, Close> m_handle;
    int m_controlInterface = 0;
    int m_streamInterface = 0;
    uint8_t m_controlOut = 0;
    uint8_t m_controlIn = 0;
    uint8_t m_streamIn = 0;
    uint16_t m_requestId = 0;
    size_t m_payload = 0;
    std::vector<uint8_t> m_packet;
};

} // namespace bench
