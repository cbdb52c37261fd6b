#pragma once

#include "fake_libusb.h"
#include "u3v_device.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

// The log lines of one test, without their time stamps.
class LogCapture
{
public:
    LogCapture();
    // "[ERROR   ] message" and so on, since the capture was made.
    std::vector<std::string> Lines() const;

private:
    long m_start;
};

// A fresh bus for each test; afterwards nothing of libusb may be left.
class UsbTest : public testing::Test
{
protected:
    UsbTest();
    void TearDown() override;

    FakeUsb& usb = FakeUsb::Instance();
    LogCapture log;
    bool expectLeftovers = false;
};

// The device information descriptor of a camera: versions 1.2 and 1.0, strings 1 to 8, SuperSpeed.
Bytes DeviceInfoDescriptor();

// A camera with control, event and stream interface and ordinary strings.
libusb_device& AddCamera(FakeUsb& usb, const std::string& name, const std::string& guid,
                         const std::string& vendor = "ZRK-ORVANE GmbH");

Bytes Little(uint64_t value, size_t size);

// An opened camera with bootstrap registers: SBRM at 0x10000, SIRM at 0x20000, 500 ms.
class CameraTest : public UsbTest
{
protected:
    static constexpr uint64_t kSbrm = 0x10000;
    static constexpr uint64_t kSirm = 0x20000;

    CameraTest();

    // Ends the device; what remains in its place was never opened.
    void CloseDevice()
    {
        device.~U3V_Device();
        new (&device) U3V_Device;
    }

    libusb_device& camera;
    U3V_Device device;
};
