#include "u3v_device.h"

#include "u3v_common.h"

#include <utility>

U3V_Device::~U3V_Device()
{
    _close();
}

void U3V_Device::_close()
{
    m_pDeviceHandle.reset();
    // Only then, so that whoever reads "free" can open the camera.
    if (m_info != nullptr) {
        m_info->SetInUse(false);
    }
    m_info.reset();
}

uint16_t U3V_Device::OpenDevice(std::shared_ptr<U3V_DeviceInfo> info)
{
    _close(); // a device is opened once; again means anew
    libusb_device_handle* handle = nullptr;
    const int result = libusb_open(info->Device(), &handle);
    m_pDeviceHandle = UsbOwnHandle(handle, info->Context());
    if (handle == nullptr) {
        return U3V_STATUS_OPEN_FAILED;
    }

    m_info = std::move(info);
    ControlInterface = m_info->ControlInterface;
    ControlOutEndpoint = m_info->ControlOutEndpoint;
    ControlInEndpoint = m_info->ControlInEndpoint;
    EventInterface = m_info->EventInterface;
    StreamInterface = m_info->StreamInterface;
    // Quirk Q54: number 0 means that an event or stream interface is missing, also on a camera that
    // really numbers it 0.
    if (EventInterface != 0) {
        EventEndpoint = m_info->EventEndpoint;
    }
    if (StreamInterface != 0) {
        StreamEndpoint = m_info->StreamEndpoint;
    }
    m_info->SetInUse(true);
    return U3V_StatusFromUsb(result);
}
