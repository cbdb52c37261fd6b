#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "register_map.h"
#include "zr_gentl_module_base.h"
#include "zr_gentl_module_container.h"
#include "zr_u3v_info.h"
#include "zr_u3v_thread_device_discovery.h"

struct U3V_DEVICE_INFO;

// The Interface module: owns USB3 Vision discovery and its worker thread, the device list that
// consumers see, and the opened Device modules.
//
// Created and destroyed by the System. Consumer threads call everything but DiscoverDevices, which
// runs on the worker.
class ZrU3VInterface : public ZrGenTLModuleBase
{
public:
    static constexpr const char* kKindName = "TLInterface";

    ZrU3VInterface(const _ZR_U3V_INTERFACE_INFO& info, ZrGenTLModuleBase* parent);
    ~ZrU3VInterface() override;
    bool IsPortImplemented() override { return true; }
    GC_ERROR ReadPort(uint64_t address, void* buffer, size_t* size) override;
    GC_ERROR WritePort(uint64_t address, const void* buffer, size_t* size) override;
    bool IsEventImplemented(int eventId) override;

    GC_ERROR Open();
    // Ends the worker within one pass, closes every device. A closed Interface is not opened again.
    GC_ERROR Close();

    // One discovery pass into the discovered list; on the worker thread.
    void DiscoverDevices();

    // Has the worker discover for `timeout` ms, waits as long for the end of passes and takes the
    // list of the latest pass over. Several callers wait side by side. GC_ERR_TIMEOUT leaves list
    // and flag as they were.
    GC_ERROR UpdateDeviceList(bool* changed, uint64_t timeout);
    GC_ERROR GetNumDevices(uint32_t* count);
    GC_ERROR GetDeviceID(uint32_t index, char* id, size_t* size);
    GC_ERROR GetDeviceInfo(const char* id, int cmd, int* type, void* buffer, size_t* size);
    GC_ERROR GetInfo(int cmd, int* type, void* buffer, size_t* size);
    // No discovery is run here: an id is only known after an update. Ids compare ignoring letter
    // case.
    GC_ERROR OpenDevice(const char* id, int32_t openFlags, void** handle);
    GC_ERROR CloseDevice(void* handle);

    bool _findDeviceInfoByIndex(uint32_t index, _ZR_U3V_DEVICE_INFO& record);
    bool _findDeviceInfoById(const char* id, _ZR_U3V_DEVICE_INFO& record);
    void _discoverDevices(std::vector<_ZR_U3V_DEVICE_INFO>& list);
    // Replaces the device list; `changed` tells whether the ids differ in number or at some
    // position.
    void _updateDeviceList(const std::vector<_ZR_U3V_DEVICE_INFO>& newList, bool* changed);

private:
    void _setUpdateInProgress(uint8_t value);
    GC_ERROR _getDeviceInfo(const char* id, int cmd, int* type, void* buffer, size_t* size);
    GC_ERROR _readSelected(std::string _ZR_U3V_DEVICE_INFO::*field, void* buffer, size_t* size);
    bool _closeFlag();
    void _closeDevices();

    const std::string m_displayName;
    const std::string m_tlType;
    const std::string m_vendor;
    const std::string m_model;
    const std::string m_version;
    const ZrRegisterDocument m_document;

    // One opening or closing at a time; each may take seconds and is never entered with m_mutex
    // held.
    Mutex m_openDeviceMutex;
    bool m_open ZR_GUARDED_BY(m_mutex) = false;
    std::vector<_ZR_U3V_DEVICE_INFO> m_deviceList ZR_GUARDED_BY(m_mutex);
    std::vector<_ZR_U3V_DEVICE_INFO> m_discoveredList ZR_GUARDED_BY(m_mutex);
    ZrGenTLModuleContainer m_devices;
    std::unique_ptr<ZrU3VThreadDeviceDiscovery> m_discovery;
    uint8_t m_updateInProgress ZR_GUARDED_BY(m_mutex) = 0;
    uint32_t m_deviceSelector ZR_GUARDED_BY(m_mutex) = 0;
};
