#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "zr_gentl_error_container.h"
#include "zr_gentl_module_container.h"

// Stands behind the C entry points: the registry of every open module (the set of valid handles),
// the per-thread last errors, and the dispatch of the port, URL and event calls that are allowed on
// any module.
//
// The registry refers to modules and never destroys one. The Get...Module look-ups return a bare
// pointer, for callers that own the module; calls that come through a handle use the Pin...
// look-ups, which keep the module alive.
class ZrGenTLController
{
public:
    // Kind names, as the modules carry them.
    static constexpr const char* kSystemName = "TLSystem";
    static constexpr const char* kInterfaceName = "TLInterface";
    static constexpr const char* kDeviceName = "TLDevice";
    static constexpr const char* kDataStreamName = "TLDataStream";
    static constexpr const char* kRemoteDeviceName = "Device";

    ZrGenTLController() = default;
    virtual ~ZrGenTLController() = default;
    ZrGenTLController(const ZrGenTLController&) = delete;
    ZrGenTLController& operator=(const ZrGenTLController&) = delete;

    bool RegisterModule(void* module);
    void* UnregisterModule(void* module);
    void UnregisterAllModule();
    // Gives the memory of the registry and of the last errors back; both stay usable.
    void ReleaseMemory();

    ZrGenTLModuleBase* GetSystemModule(void* h);       // kept
    ZrGenTLModuleBase* GetInterfaceModule(void* h);    // kept
    ZrGenTLModuleBase* GetDeviceModule(void* h);       // kept
    ZrGenTLModuleBase* GetDataStreamModule(void* h);   // kept
    ZrGenTLModuleBase* GetRemoteDeviceModule(void* h); // kept
    // The registered module at address `h` with this kind name, entered; empty for NULL, unknown,
    // or another kind.
    Pinned<ZrGenTLModuleBase> PinModule(void* h, const char* name);

    GC_ERROR ReadPort(void* h, uint64_t iAddress, void* pBuffer, size_t* piSize);
    GC_ERROR WritePort(void* h, uint64_t iAddress, const void* pBuffer, size_t* piSize);
    GC_ERROR ReadPortStacked(void* h, S_PORT_REGISTER_STACK_ENTRY* pEntries, size_t* piNumEntries);
    GC_ERROR WritePortStacked(void* h, S_PORT_REGISTER_STACK_ENTRY* pEntries, size_t* piNumEntries);
    GC_ERROR GetPortURL(void* h, char* sURL, size_t* piSize);
    GC_ERROR GetPortInfo(void* h, int iInfoCmd, int* piType, void* pBuffer, size_t* piSize);
    GC_ERROR GetNumPortURLs(void* h, uint32_t* piNumURLs);
    GC_ERROR GetPortURLInfo(void* h, uint32_t iURLIndex, int iInfoCmd, int* piType, void* pBuffer,
                            size_t* piSize);
    GC_ERROR RegisterEvent(void* h, int iEventID, void** phEvent);
    GC_ERROR UnregisterEvent(void* h, int iEventID);

    // Searches the events of all registered modules, in order of registration.
    ZrGenTLEvent* FindEventModule(void* hEvent); // kept
    Pinned<ZrGenTLEvent> PinEvent(void* hEvent);

    void SetLastError(int code);
    GC_ERROR GetLastError(int* piErrorCode, char* sErrText, size_t* piSize);

    // The name of a status code; empty for a code without one.
    static std::string_view _getErrorTxt(int code);

private:
    template <class Call>
    GC_ERROR _onPort(void* h, Call&& call);
    ZrGenTLModuleBase* _getModule(void* h, const char* name);
    Pinned<ZrGenTLEvent> _pinEventOf(std::span<void* const> modules, void* hEvent);

    ZrGenTLModuleContainer m_registry;
    ZrGenTLErrorContainer m_errors;
};
