#pragma once

#include "u3v_deviceinfo.h"
#include "usb_context.h"

#include <memory>

// One opened camera: the USB handle and the interface and endpoint numbers that the control and the
// stream channel use. Made and destroyed through U3V_OpenDevice and U3V_CloseDevice; claims nothing
// itself.
class U3V_Device
{
public:
    U3V_Device() = default;
    // Closes the handle (unless a transfer that never ended still needs it) and clears InUse.
    ~U3V_Device();
    U3V_Device(const U3V_Device&) = delete;
    U3V_Device& operator=(const U3V_Device&) = delete;

    // The libusb_open result, or U3V_STATUS_OPEN_FAILED when it gave no handle.
    uint16_t OpenDevice(std::shared_ptr<U3V_DeviceInfo> info);

    libusb_device_handle* Handle() const { return m_pDeviceHandle.get(); }
    const UsbHandlePtr& SharedHandle() const { return m_pDeviceHandle; }

    // 0 for event and stream means: the camera has no such interface.
    uint8_t ControlInterface = 0;
    uint8_t EventInterface = 0;
    uint8_t StreamInterface = 0;
    uint8_t ControlOutEndpoint = 0;
    uint8_t ControlInEndpoint = 0;
    uint8_t EventEndpoint = 0;
    uint8_t StreamEndpoint = 0;

private:
    void _close();

    UsbHandlePtr m_pDeviceHandle;
    std::shared_ptr<U3V_DeviceInfo> m_info;
};
