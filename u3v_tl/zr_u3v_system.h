#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "register_map.h"
#include "zr_gentl_module_base.h"
#include "zr_gentl_module_container.h"
#include "zr_u3v_info.h"

// The producer's one System (TL) module, the root of the module tree. It keeps the interface list
// (one interface, which stands for the host's whole USB) and owns the opened Interface modules.
//
// Owned by the controller from GCInitLib to GCCloseLib; opened and closed any number of times in
// between. Any consumer thread may call.
class ZrU3VSystem : public ZrGenTLModuleBase
{
public:
    static constexpr const char* kKindName = "TLSystem";

    ZrU3VSystem();
    ~ZrU3VSystem() override;
    bool IsPortImplemented() override { return true; }
    GC_ERROR ReadPort(uint64_t address, void* buffer, size_t* size) override;
    GC_ERROR WritePort(uint64_t address, const void* buffer, size_t* size) override;
    bool IsEventImplemented(int eventId) override;

    GC_ERROR Open();
    // Closes and destroys every open Interface; the interface list stays.
    GC_ERROR Close();

    // The resolved path of the file this library was loaded from; as the loader reports it if it
    // cannot be resolved; empty if the loader does not know.
    std::string GetCtiPath();

    GC_ERROR GetInfo(int cmd, int* type, void* buffer, size_t* size);
    GC_ERROR GetNumInterfaces(uint32_t* count);
    // `timeout` is accepted and ignored: the one interface needs no search.
    GC_ERROR UpdateInterfaceList(bool* changed, uint64_t timeout);
    GC_ERROR GetInterfaceID(uint32_t index, char* id, size_t* size);
    GC_ERROR GetInterfaceInfo(const char* id, int cmd, int* type, void* buffer, size_t* size);
    // The list is not refreshed here: an id is only known after an update.
    GC_ERROR OpenInterface(const char* id, void** handle);
    GC_ERROR CloseInterface(void* handle);

    void DiscoverInterfaces(std::vector<_ZR_U3V_INTERFACE_INFO>& list);
    // Brings the interface list to `newList`: records that stay keep their place and their strings.
    void _updateInterfaceList(const std::vector<_ZR_U3V_INTERFACE_INFO>& newList, bool* changed);
    bool _findInterfaceInfoByIndex(uint32_t index, _ZR_U3V_INTERFACE_INFO& record);
    bool _findInterfaceInfoById(const char* id, _ZR_U3V_INTERFACE_INFO& record);
    static bool _isAddressValid(uint64_t address); // kept

private:
    void _setUpdateInProgress(uint8_t value);
    GC_ERROR _getInterfaceInfo(const char* id, int cmd, int* type, void* buffer, size_t* size);
    GC_ERROR _readInfo(int cmd, void* buffer, size_t* size);
    std::string _selectedInterfaceId();
    void _updateFromRegister();
    void _closeInterfaces();

    const std::string m_tlId;
    const std::string m_vendor;
    const std::string m_model;
    const std::string m_tlType;
    const std::string m_version;
    const ZrRegisterDocument m_document;

    // Serialises Open and Close, and interfaces being opened and closed; never held together with
    // m_mutex by a waiter.
    Mutex m_openCloseMutex;
    Mutex m_openInterfaceMutex;
    bool m_open ZR_GUARDED_BY(m_mutex) = false;
    std::vector<_ZR_U3V_INTERFACE_INFO> m_interfaceList ZR_GUARDED_BY(m_mutex);
    ZrGenTLModuleContainer m_interfaces;
    uint8_t m_updateInProgress ZR_GUARDED_BY(m_mutex) = 0;
    uint32_t m_interfaceSelector ZR_GUARDED_BY(m_mutex) = 0;
};
