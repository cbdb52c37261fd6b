#include "zr_gentl_controller.h"

#include <array>
#include <cstring>

#include "error_names.h"

// The C entry points know modules as untyped handles, and so does this interface: whoever registers
// passes the address that consumers will hold, which is the module base's own (single inheritance).
bool ZrGenTLController::RegisterModule(void* module)
{
    return m_registry.Add(static_cast<ZrGenTLModuleBase*>(module));
}

// From here on no new call can enter the module; those inside are its owner's to wait for.
void* ZrGenTLController::UnregisterModule(void* module)
{
    return m_registry.FindByHandle(module, true);
}

// For the end of the library: modules that a failing close has left behind lose their handles too.
void ZrGenTLController::UnregisterAllModule()
{
    m_registry.Clear(false);
}

void ZrGenTLController::ReleaseMemory()
{
    m_registry.Clear(false);
    m_errors.Clear();
}

ZrGenTLModuleBase* ZrGenTLController::GetSystemModule(void* h)
{
    return _getModule(h, kSystemName);
}

ZrGenTLModuleBase* ZrGenTLController::GetInterfaceModule(void* h)
{
    return _getModule(h, kInterfaceName);
}

ZrGenTLModuleBase* ZrGenTLController::GetDeviceModule(void* h)
{
    return _getModule(h, kDeviceName);
}

ZrGenTLModuleBase* ZrGenTLController::GetDataStreamModule(void* h)
{
    return _getModule(h, kDataStreamName);
}

ZrGenTLModuleBase* ZrGenTLController::GetRemoteDeviceModule(void* h)
{
    return _getModule(h, kRemoteDeviceName);
}

// A handle of another kind is refused exactly like an unknown one: the caller learns nothing about
// what an address is.
ZrGenTLModuleBase* ZrGenTLController::_getModule(void* h, const char* name)
{
    return h == nullptr ? nullptr : m_registry.FindByHandleAndName(h, name, false);
}

Pinned<ZrGenTLModuleBase> ZrGenTLController::PinModule(void* h, const char* name)
{
    return h == nullptr ? Pinned<ZrGenTLModuleBase>() : m_registry.PinByHandleAndName(h, name);
}

// A registered module of any kind whose port is implemented; `call` is made on it, entered.
template <class Call>
GC_ERROR ZrGenTLController::_onPort(void* h, Call&& call)
{
    const auto module = m_registry.PinByHandle(h);
    if (!module) {
        return GC_ERR_INVALID_HANDLE;
    }
    // After the look-up: an unknown handle is a worse mistake than a module without a port.
    if (!module->IsPortImplemented()) {
        return GC_ERR_NOT_IMPLEMENTED;
    }
    return call(*module);
}

GC_ERROR ZrGenTLController::ReadPort(void* h, uint64_t iAddress, void* pBuffer, size_t* piSize)
{
    return _onPort(
        h, [&](ZrGenTLModuleBase& module) { return module.ReadPort(iAddress, pBuffer, piSize); });
}

GC_ERROR ZrGenTLController::WritePort(void* h, uint64_t iAddress, const void* pBuffer,
                                      size_t* piSize)
{
    return _onPort(
        h, [&](ZrGenTLModuleBase& module) { return module.WritePort(iAddress, pBuffer, piSize); });
}

GC_ERROR ZrGenTLController::ReadPortStacked(void* h, S_PORT_REGISTER_STACK_ENTRY* pEntries,
                                            size_t* piNumEntries)
{
    return _onPort(h, [&](ZrGenTLModuleBase& module) {
        return module.ReadPortStacked(pEntries, piNumEntries);
    });
}

GC_ERROR ZrGenTLController::WritePortStacked(void* h, S_PORT_REGISTER_STACK_ENTRY* pEntries,
                                             size_t* piNumEntries)
{
    return _onPort(h, [&](ZrGenTLModuleBase& module) {
        return module.WritePortStacked(pEntries, piNumEntries);
    });
}

GC_ERROR ZrGenTLController::GetPortURL(void* h, char* sURL, size_t* piSize)
{
    return _onPort(h, [&](ZrGenTLModuleBase& module) { return module.GetPortURL(sURL, piSize); });
}

GC_ERROR ZrGenTLController::GetPortInfo(void* h, int iInfoCmd, int* piType, void* pBuffer,
                                        size_t* piSize)
{
    return _onPort(h, [&](ZrGenTLModuleBase& module) {
        return module.GetPortInfo(iInfoCmd, piType, pBuffer, piSize);
    });
}

GC_ERROR ZrGenTLController::GetNumPortURLs(void* h, uint32_t* piNumURLs)
{
    return _onPort(h, [&](ZrGenTLModuleBase& module) { return module.GetNumPortURLs(piNumURLs); });
}

GC_ERROR ZrGenTLController::GetPortURLInfo(void* h, uint32_t iURLIndex, int iInfoCmd, int* piType,
                                           void* pBuffer, size_t* piSize)
{
    // A consumer may pass any number, and an enumeration cannot hold any: all commands but the
    // first are answered alike.
    const URL_INFO_CMD_LIST command = iInfoCmd == URL_INFO_URL ? URL_INFO_URL : URL_INFO_CUSTOM_ID;
    return _onPort(h, [&](ZrGenTLModuleBase& module) {
        return module.GetPortURLInfo(iURLIndex, command, piType, pBuffer, piSize);
    });
}

// Events need no port: any registered module may serve them.
GC_ERROR ZrGenTLController::RegisterEvent(void* h, int iEventID, void** phEvent)
{
    const auto module = m_registry.PinByHandle(h);
    return module ? module->RegisterEvent(iEventID, phEvent) : GC_ERR_INVALID_HANDLE;
}

GC_ERROR ZrGenTLController::UnregisterEvent(void* h, int iEventID)
{
    const auto module = m_registry.PinByHandle(h);
    return module ? module->UnregisterEvent(iEventID) : GC_ERR_INVALID_HANDLE;
}

// The bare pointer is good for comparing only; calls go through PinEvent.
ZrGenTLEvent* ZrGenTLController::FindEventModule(void* hEvent)
{
    return PinEvent(hEvent).Get();
}

Pinned<ZrGenTLEvent> ZrGenTLController::PinEvent(void* hEvent)
{
    if (hEvent == nullptr) {
        return {};
    }
    // Consumers do this for every image. A System, its interface and cameras with three modules
    // each fit into the array; for more of them the list is allocated.
    std::array<void*, 32> few{};
    const size_t count = m_registry.GetHandles(few);
    if (count <= few.size()) {
        return _pinEventOf(std::span(few).first(count), hEvent);
    }
    const std::vector<void*> all = m_registry.GetHandles();
    return _pinEventOf(all, hEvent);
}

// No registry lock while a module is asked; one that left meanwhile is passed over.
Pinned<ZrGenTLEvent> ZrGenTLController::_pinEventOf(std::span<void* const> modules, void* hEvent)
{
    for (void* const handle : modules) {
        const auto module = m_registry.PinByHandle(handle);
        if (!module) {
            continue;
        }
        if (auto event = module->PinEventByHandle(hEvent)) {
            return event;
        }
    }
    return {};
}

void ZrGenTLController::SetLastError(int code)
{
    m_errors.SetError(code, _getErrorTxt(code));
}

GC_ERROR ZrGenTLController::GetLastError(int* piErrorCode, char* sErrText, size_t* piSize)
{
    if (piErrorCode == nullptr || piSize == nullptr) {
        return GC_ERR_INVALID_PARAMETER;
    }
    int code = GC_ERR_SUCCESS;
    std::string text;
    // The zero counts: a text of length 0 still needs one byte.
    m_errors.GetError(&code, text);
    const size_t length = text.size() + 1;
    if (sErrText != nullptr) {
        if (*piSize < length) {
            return GC_ERR_BUFFER_TOO_SMALL; // Quirk Q23: without telling the size that it takes
        }
        memcpy(sErrText, text.c_str(), length);
    }
    *piSize = length;
    *piErrorCode = code;
    return GC_ERR_SUCCESS;
}

// A linear search of two dozen entries, on the failure path only.
std::string_view ZrGenTLController::_getErrorTxt(int code)
{
    switch (code) {
    case GC_ERR_SUCCESS: return "No Error";
    case GC_ERR_CUSTOM_ID: return "GC_ERR_CUSTOM_ID";
    // Quirk Q22: the list ends at -1022; the later standard code has no text.
    case GC_ERR_AMBIGUOUS: return {};
    default: return info::ErrorName(code);
    }
}
