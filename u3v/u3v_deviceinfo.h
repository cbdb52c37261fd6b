#pragma once

#include "usb_context.h"

#include <cstddef>
#include <memory>
#include <span>
#include <zr_u3v_tl/u3v_lib.h>

static_assert(sizeof(U3V_DEVICE_INFO) == 471 && offsetof(U3V_DEVICE_INFO, DeviceGUID) == 8 &&
              offsetof(U3V_DEVICE_INFO, VendorName) == 21 &&
              offsetof(U3V_DEVICE_INFO, UserDefinedName) == 405 &&
              offsetof(U3V_DEVICE_INFO, SpeedSupport) == 469 &&
              offsetof(U3V_DEVICE_INFO, InUse) == 470);

// One camera on the bus: the public record in front, then what is needed to open it.
//
// Owned by the discovery's list and by every U3V_Device opened from it. Filled by the thread that
// runs the pass; once listed only InUse changes, through SetInUse and GetInUse.
class U3V_DeviceInfo : public U3V_DEVICE_INFO
{
public:
    // `context` may be null (no libusb behind it); it outlives the record's use of the device.
    U3V_DeviceInfo(std::shared_ptr<UsbContext> context, libusb_device* device);
    ~U3V_DeviceInfo();
    U3V_DeviceInfo(const U3V_DeviceInfo&) = delete;
    U3V_DeviceInfo& operator=(const U3V_DeviceInfo&) = delete;

    // Parses one configuration into this record; fields that it does not name keep their value.
    // Without a handle the strings are left out. Returns the last libusb result.
    int GetDeviceInfo(libusb_device_handle* handle, uint8_t configurationIndex);

    // Fills the public record from a device information descriptor of any length: fields that lie
    // beyond its end are left alone. Returns the result of the last string read, else 0.
    static int get_class_specific_descriptor(libusb_device_handle* handle,
                                             std::span<const uint8_t> descriptor,
                                             U3V_DEVICE_INFO& record);

    // Takes a reference on the device, so that it outlives the bus's own list. Once.
    void Retain();

    void SetInUse(bool inUse);
    U3V_DEVICE_INFO Record(); // consistent copy

    libusb_device* Device() const { return m_pDevice; }
    const std::shared_ptr<UsbContext>& Context() const { return m_context; }

    uint8_t ControlInterface = 0;
    uint8_t EventInterface = 0;
    uint8_t StreamInterface = 0;
    uint8_t ControlOutEndpoint = 0;
    uint8_t ControlInEndpoint = 0;
    uint8_t EventEndpoint = 0;
    uint8_t StreamEndpoint = 0;

private:
    int _parseInterface(libusb_device_handle* handle, const libusb_interface& group, int last);
    int _parseAlternate(libusb_device_handle* handle, const libusb_interface_descriptor& setting,
                        int last);
    void _storeEndpoint(uint8_t protocol, uint8_t address);

    std::shared_ptr<UsbContext> m_context;
    libusb_device* m_pDevice;
    bool m_retained = false;
    UsbConfigPtr m_config; // the configuration parsed last
};
