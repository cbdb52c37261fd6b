// A device on the bus that is no camera: it has descriptors and answers on endpoint 0 only.
#ifndef VCAM_PLAIN_USB_DEVICE_H
#define VCAM_PLAIN_USB_DEVICE_H

#include <memory>
#include <mutex>
#include <string_view>

#include "endpoint_zero.h"

namespace vcam {

class PlainUsbDevice final : public UsbDevice
{
public:
    explicit PlainUsbDevice(UsbDescriptors descriptors);

    const UsbDescriptors& Descriptors() const override { return m_descriptors; }
    UsbResult Control(const SetupPacket& setup, std::vector<std::uint8_t>& data) override;
    UsbResult BulkOut(std::uint8_t endpoint, const std::uint8_t* data, std::size_t size) override;
    UsbResult BulkIn(std::uint8_t endpoint, std::uint8_t* buffer, std::size_t capacity,
                     std::size_t& filled) override;
    void BusReset() override;
    void SetListener(std::function<void()> listener) override;

private:
    std::mutex m_mutex;
    const UsbDescriptors m_descriptors;
    EndpointZero m_zero;
};

// "mouse", "hub", "disk", "iad" (a device of the same class as a camera without its interfaces) or
// "broken" (that class, with a configuration that makes no sense); null for another name.
std::shared_ptr<PlainUsbDevice> MakePlainDevice(std::string_view kind);

} // namespace vcam

#endif
