#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "use_gate.h"
#include "zr_gentl_event.h"
#include "zr_sync.h"
#include <zr_u3v_tl/gentl.h>

// The answers to GCGetPortInfo. `module` is the module's kind name ("TLSystem", "TLInterface",
// "TLDevice", "TLDataStream", "Device"), by which the controller tells handles apart.
struct _ZR_GENTL_PORT_INFO
{
    std::string id;
    std::string vendor;
    std::string model;
    std::string tlType;
    std::string module;
    bool littleEndian = false;
    bool bigEndian = true;
    bool accessRead = false;
    bool accessWrite = false;
    bool accessNA = false;
    bool accessNI = false;
    std::string version;
    std::string portName;
};

// What all GenTL modules share: identity, port information, the list of register-description URLs,
// stacked register access on top of the module's own single access, and the events registered on
// the module.
//
// Created by the module that opens it, destroyed by it too; the controller's registry only refers
// to it. Any consumer thread may call any operation; a call that came through a handle holds the
// module's gate.
class ZrGenTLModuleBase
{
public:
    // `portInfo` is what GetPortInfo answers.
    ZrGenTLModuleBase(const std::string& id, ZrGenTLModuleBase* parent,
                      _ZR_GENTL_PORT_INFO portInfo = {});

    // Slots 1 to 11 in this order: the order is part of the interface.
    virtual ~ZrGenTLModuleBase();
    virtual bool IsPortImplemented() = 0;
    virtual GC_ERROR ReadPort(uint64_t iAddress, void* pBuffer, size_t* piSize) = 0;
    virtual GC_ERROR WritePort(uint64_t iAddress, const void* pBuffer, size_t* piSize) = 0;
    virtual GC_ERROR ReadPortStacked(S_PORT_REGISTER_STACK_ENTRY* pEntries, size_t* piNumEntries);
    virtual GC_ERROR WritePortStacked(S_PORT_REGISTER_STACK_ENTRY* pEntries, size_t* piNumEntries);
    virtual GC_ERROR GetPortURL(char* sURL, size_t* piSize);
    virtual GC_ERROR GetPortInfo(int iInfoCmd, int* piType, void* pBuffer, size_t* piSize);
    virtual GC_ERROR GetNumPortURLs(uint32_t* piNumURLs);
    virtual GC_ERROR GetPortURLInfo(uint32_t iURLIndex, URL_INFO_CMD_LIST iInfoCmd, int* piType,
                                    void* pBuffer, size_t* piSize);
    virtual bool IsEventImplemented(int iEventID) = 0;

    ZrGenTLModuleBase(const ZrGenTLModuleBase&) = delete;
    ZrGenTLModuleBase& operator=(const ZrGenTLModuleBase&) = delete;

    std::string GetName();
    std::string GetId();
    ZrGenTLModuleBase* GetParent() const { return m_parent; }
    void SetUrlList(const std::vector<std::string>& urls);

    // Creates the event and hands its address out as the event handle; the module owns it.
    // GC_ERR_NOT_IMPLEMENTED for an id the module does not serve, GC_ERR_RESOURCE_IN_USE for one
    // registered already. A NULL phEvent is answered with GC_ERR_INVALID_PARAMETER and registers
    // nothing.
    GC_ERROR RegisterEvent(int iEventID, void** phEvent);
    // Takes the event out, releases its waiters (they answer GC_ERR_ABORT) and destroys it when the
    // last has left. GC_ERR_NOT_INITIALIZED when no event of that id is registered.
    GC_ERROR UnregisterEvent(int iEventID);
    ZrGenTLEvent* FindEventById(int iEventID, bool remove);
    ZrGenTLEvent* FindEventByHandle(void* hEvent);

    // As the two above, but entered: the event cannot be destroyed while the result lives. Empty
    // when there is none.
    Pinned<ZrGenTLEvent> PinEventById(int iEventID);
    Pinned<ZrGenTLEvent> PinEventByHandle(void* hEvent);

    // Entered by every call that reached the module through its handle.
    UseGate& Gate() { return m_gate; }

    GC_ERROR _getId(int* piType, void* pBuffer, size_t* piSize);
    GC_ERROR _getVendor(int* piType, void* pBuffer, size_t* piSize);
    GC_ERROR _getModel(int* piType, void* pBuffer, size_t* piSize);
    GC_ERROR _getTLType(int* piType, void* pBuffer, size_t* piSize);
    GC_ERROR _getModule(int* piType, void* pBuffer, size_t* piSize);
    GC_ERROR _getLittleEndian(int* piType, void* pBuffer, size_t* piSize);
    GC_ERROR _getBigEndian(int* piType, void* pBuffer, size_t* piSize);
    GC_ERROR _getAccessRead(int* piType, void* pBuffer, size_t* piSize);
    GC_ERROR _getAccessWrite(int* piType, void* pBuffer, size_t* piSize);
    GC_ERROR _getAccessNA(int* piType, void* pBuffer, size_t* piSize);
    GC_ERROR _getAccessNI(int* piType, void* pBuffer, size_t* piSize);
    GC_ERROR _getVersion(int* piType, void* pBuffer, size_t* piSize);
    GC_ERROR _getPortName(int* piType, void* pBuffer, size_t* piSize);
    GC_ERROR _getURLInfoURL(uint32_t index, int* piType, void* pBuffer, size_t* piSize);

protected:
    // Releases the waiters of every event and destroys the events. The destructor does it; a module
    // whose events refer to its own members (buffers) calls it first.
    void _destroyEvents();

    // What a derived class learns of access later is all that changes.
    _ZR_GENTL_PORT_INFO m_portInfo ZR_GUARDED_BY(m_mutex);
    // The module mutex. Recursive: module operations re-enter their own module.
    RecursiveMutex m_mutex;

private:
    // A copy of a field, taken under the lock.
    template <class T>
    T _portInfo(T _ZR_GENTL_PORT_INFO::*field) ZR_EXCLUDES(m_mutex);
    ZrGenTLEvent* _findEventById(int iEventID, bool remove) ZR_REQUIRES(m_mutex);
    ZrGenTLEvent* _findEventByHandle(void* hEvent) ZR_REQUIRES(m_mutex);

    ZrGenTLModuleBase* const m_parent;
    std::vector<ZrGenTLEvent*> m_events ZR_GUARDED_BY(m_mutex);
    std::vector<std::string> m_urlList ZR_GUARDED_BY(m_mutex);
    const std::string m_id;
    UseGate m_gate;
};
