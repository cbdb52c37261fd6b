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
    if (m_pInfo != nullptr) {
        m_pInfo->SetInUse(false);
    }
    m_pInfo.reset();
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

    m_pInfo = std::move(info);
    ControlInterface = m_pInfo->ControlInterface;
    ControlOutEndpoint = m_pInfo->ControlOutEndpoint;
    ControlInEndpoint = m_pInfo->ControlInEndpoint;
    EventInterface = m_pInfo->EventInterface;
    StreamInterface = m_pInfo->StreamInterface;
    // Quirk Q54: number 0 means that an event or stream interface is missing, also on a camera that
    // really numbers it 0.
    if (EventInterface != 0) {
        EventEndpoint = m_pInfo->EventEndpoint;
    }
    if (StreamInterface != 0) {
        StreamEndpoint = m_pInfo->StreamEndpoint;
    }
    m_pInfo->SetInUse(true);
    return U3V_StatusFromUsb(result);
}
