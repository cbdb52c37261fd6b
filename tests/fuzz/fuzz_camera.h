#pragma once

// A camera on the link-time stand-in for libusb, for the targets that feed the protocol layer.

#include "fake_libusb.h"

#include <cstdint>
#include <memory>

#include "u3v_device.h"
#include "u3v_deviceinfo.h"

namespace fuzz {

inline constexpr uint64_t kSbrm = 0x10000;
inline constexpr uint64_t kSirm = 0x20000;

inline Bytes Little(uint64_t value, size_t size)
{
    Bytes bytes;
    for (size_t i = 0; i < size; ++i) {
        bytes.push_back(static_cast<uint8_t>(value >> (8 * i)));
    }
    return bytes;
}

// The bootstrap registers of a camera that opens.
inline void FillMemory(libusb_device& camera)
{
    camera.memory[0x1D8] = Little(kSbrm, 8);
    camera.memory[0x1CC] = Little(500, 8); // ms
    camera.memory[kSbrm + 0x14] = Little(1024, 4);
    camera.memory[kSbrm + 0x18] = Little(2048, 4);
    camera.memory[kSbrm + 0x1C] = Little(1, 4);
    camera.memory[0x1C4] = Little(0xFFF, 8);
    camera.memory[kSbrm + 0x04] = Little(1, 8);
    camera.memory[kSbrm + 0x20] = Little(kSirm, 8);
    camera.memory[kSbrm + 0x28] = Little(0x40, 4);
}

// An empty bus with one camera, opened.
class OpenedCamera
{
public:
    OpenedCamera() : m_camera(_add())
    {
        FillMemory(m_camera);
        auto info = std::make_shared<U3V_DeviceInfo>(nullptr, &m_camera);
        info->ControlInterface = 3;
        info->EventInterface = 1;
        info->StreamInterface = 2;
        info->ControlOutEndpoint = 0x01;
        info->ControlInEndpoint = 0x81;
        info->EventEndpoint = 0x82;
        info->StreamEndpoint = 0x83;
        m_device.OpenDevice(info);
    }

    libusb_device& Usb() { return m_camera; }
    U3V_Device& Device() { return m_device; }

private:
    static libusb_device& _add()
    {
        FakeUsb::Instance().Reset();
        return FakeUsb::Instance().AddDevice("fuzz");
    }

    libusb_device& m_camera;
    U3V_Device m_device;
};

// What must be left of libusb when everything has been closed.
inline bool NothingLeft()
{
    const FakeUsb& usb = FakeUsb::Instance();
    return usb.liveTransfers == 0 && usb.openHandles == 0 && usb.liveConfigurations == 0 &&
           usb.liveLists == 0 && !usb.nullHandleSeen;
}

} // namespace fuzz
