#pragma once

#include "u3v_deviceinfo.h"

#include "zr_sync.h"

#include <memory>
#include <stdexcept>
#include <string_view>
#include <vector>

// The cameras found on the bus. Lives from U3V_DiscoveryOpen to U3V_DiscoveryClose; owns libusb's
// default context and the list of records, to which passes only ever add.
//
// Passes run on the discovery worker, one at a time; consumer threads find and copy records
// meanwhile, so the list has its own lock and no libusb call is made under it.
class U3V_Discovery
{
public:
    // A failing libusb_init is logged; the object then lists nothing.
    U3V_Discovery();
    // Frees the records in list order, then ends libusb once no device is left open.
    ~U3V_Discovery();
    U3V_Discovery(const U3V_Discovery&) = delete;
    U3V_Discovery& operator=(const U3V_Discovery&) = delete;

    // One enumeration pass; always 0.
    uint16_t Discovery() ZR_EXCLUDES(m_passMutex);

    // Number of listed cameras, all 32 bits of it.
    uint32_t DeviceCount() ZR_EXCLUDES(m_listMutex);
    // The camera at `index`, counted from 1; null when there is none.
    std::shared_ptr<U3V_DeviceInfo> DeviceAt(uint32_t index) ZR_EXCLUDES(m_listMutex);
    // The camera whose GUID is exactly `guid`; null when there is none.
    std::shared_ptr<U3V_DeviceInfo> FindByGUID(std::string_view guid) ZR_EXCLUDES(m_listMutex);

    // Reads string descriptor `index` through a 64-byte buffer into `output`, which holds
    // `outputSize` bytes. Returns the libusb result; nothing is read without a handle.
    static int retrieveString(libusb_device_handle* handle, uint8_t index, unsigned char* output,
                              int outputSize);

    // The handle itself, or std::invalid_argument for a null one.
    template <class Handle>
    static Handle* CheckDiscovery(Handle* handle) // kept
    {
        if (handle == nullptr) {
            throw std::invalid_argument(" Invalid Decovery Handle");
        }
        return handle;
    }

private:
    void _examine(libusb_device* device) ZR_REQUIRES(m_passMutex);
    void _list(libusb_device* device, const libusb_device_descriptor& descriptor,
               libusb_device_handle* handle) ZR_REQUIRES(m_passMutex);
    bool _admit(const std::shared_ptr<U3V_DeviceInfo>& record) ZR_EXCLUDES(m_listMutex);
    bool _isAdmissible(const U3V_DeviceInfo& record) const ZR_REQUIRES(m_listMutex);

    std::shared_ptr<UsbContext> m_context; // null: libusb_init failed
    Mutex m_passMutex;                     // taken before m_listMutex
    Mutex m_listMutex;
    std::vector<std::shared_ptr<U3V_DeviceInfo>> m_devices ZR_GUARDED_BY(m_listMutex);
};
