#include "zr_gentl_module_base.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "zr_gentl_util.h"

namespace {

// Performs `access(address, buffer, size*)` entry by entry up to the first failure. Nothing is
// written back: neither the entries' sizes nor their number.
template <class Access>
GC_ERROR ForEachEntry(const S_PORT_REGISTER_STACK_ENTRY* pEntries, const size_t* piNumEntries,
                      Access access)
{
    if (pEntries == nullptr || piNumEntries == nullptr) {
        return GC_ERR_INVALID_PARAMETER;
    }
    // Read once: the array and its count are the consumer's memory and may change under our hands.
    const size_t count = *piNumEntries;
    for (size_t i = 0; i < count; ++i) {
        // The entries are packed: a copy is aligned whatever the consumer's array is.
        S_PORT_REGISTER_STACK_ENTRY entry;
        memcpy(&entry, pEntries + i, sizeof entry);
        // A copy, because a port reports back through it how much it has moved.
        size_t size = entry.Size;
        const GC_ERROR status = access(entry.Address, entry.pBuffer, &size);
        if (status != GC_ERR_SUCCESS) {
            return status;
        }
    }
    return GC_ERR_SUCCESS;
}

} // namespace

ZrGenTLModuleBase::ZrGenTLModuleBase(const std::string& id, ZrGenTLModuleBase* parent,
                                     _ZR_GENTL_PORT_INFO portInfo)
    : m_portInfo(std::move(portInfo)), m_parent(parent), m_id(id)
{
}

// The registry is not told: a module has left it in its Close, long before its address becomes
// invalid here.
ZrGenTLModuleBase::~ZrGenTLModuleBase()
{
    _destroyEvents();
}

// No lock for the whole stack: each access locks as the module's own ReadPort does, so that a long
// list does not keep other threads out of the module.
GC_ERROR ZrGenTLModuleBase::ReadPortStacked(S_PORT_REGISTER_STACK_ENTRY* pEntries,
                                            size_t* piNumEntries)
{
    return ForEachEntry(pEntries, piNumEntries,
                        [this](uint64_t address, void* buffer, size_t* size) {
                            return ReadPort(address, buffer, size);
                        });
}

GC_ERROR ZrGenTLModuleBase::WritePortStacked(S_PORT_REGISTER_STACK_ENTRY* pEntries,
                                             size_t* piNumEntries)
{
    return ForEachEntry(pEntries, piNumEntries,
                        [this](uint64_t address, const void* buffer, size_t* size) {
                            return WritePort(address, buffer, size);
                        });
}

GC_ERROR ZrGenTLModuleBase::GetPortURL(char* sURL, size_t* piSize)
{
    // The older function has no type argument, the newer one insists on one.
    int type = INFO_DATATYPE_UNKNOWN;
    return GetPortURLInfo(0, URL_INFO_URL, &type, sURL, piSize);
}

GC_ERROR ZrGenTLModuleBase::GetPortInfo(int iInfoCmd, int* piType, void* pBuffer, size_t* piSize)
{
    if (piType == nullptr || piSize == nullptr) {
        return GC_ERR_INVALID_PARAMETER;
    }
    // Before the command is looked at: a failing query leaves zeros, not what was there.
    ZrGenTLUtil::ClearInfoBuffer(pBuffer, piSize);
    switch (iInfoCmd) {
    case PORT_INFO_ID: return _getId(piType, pBuffer, piSize);
    case PORT_INFO_VENDOR: return _getVendor(piType, pBuffer, piSize);
    case PORT_INFO_MODEL: return _getModel(piType, pBuffer, piSize);
    case PORT_INFO_TLTYPE: return _getTLType(piType, pBuffer, piSize);
    case PORT_INFO_MODULE: return _getModule(piType, pBuffer, piSize);
    case PORT_INFO_LITTLE_ENDIAN: return _getLittleEndian(piType, pBuffer, piSize);
    case PORT_INFO_BIG_ENDIAN: return _getBigEndian(piType, pBuffer, piSize);
    case PORT_INFO_ACCESS_READ: return _getAccessRead(piType, pBuffer, piSize);
    case PORT_INFO_ACCESS_WRITE: return _getAccessWrite(piType, pBuffer, piSize);
    case PORT_INFO_ACCESS_NA: return _getAccessNA(piType, pBuffer, piSize);
    case PORT_INFO_ACCESS_NI: return _getAccessNI(piType, pBuffer, piSize);
    case PORT_INFO_VERSION: return _getVersion(piType, pBuffer, piSize);
    case PORT_INFO_PORTNAME: return _getPortName(piType, pBuffer, piSize);
    default: return GC_ERR_NOT_IMPLEMENTED;
    }
}

GC_ERROR ZrGenTLModuleBase::GetNumPortURLs(uint32_t* piNumURLs)
{
    if (piNumURLs == nullptr) {
        return GC_ERR_INVALID_PARAMETER;
    }
    Locker lock(m_mutex);
    *piNumURLs = static_cast<uint32_t>(m_urlList.size());
    return GC_ERR_SUCCESS;
}

GC_ERROR ZrGenTLModuleBase::GetPortURLInfo(uint32_t iURLIndex, URL_INFO_CMD_LIST iInfoCmd,
                                           int* piType, void* pBuffer, size_t* piSize)
{
    if (piSize == nullptr || piType == nullptr) {
        return GC_ERR_INVALID_PARAMETER;
    }
    // Command before index: asking an empty list for a version is "not implemented", not "no such
    // URL".
    if (iInfoCmd != URL_INFO_URL) {
        return GC_ERR_NOT_IMPLEMENTED;
    }
    return _getURLInfoURL(iURLIndex, piType, pBuffer, piSize);
}

std::string ZrGenTLModuleBase::GetName()
{
    return _portInfo(&_ZR_GENTL_PORT_INFO::module);
}

std::string ZrGenTLModuleBase::GetId()
{
    return m_id;
}

void ZrGenTLModuleBase::SetUrlList(const std::vector<std::string>& urls)
{
    Locker lock(m_mutex);
    m_urlList = urls;
}

GC_ERROR ZrGenTLModuleBase::RegisterEvent(int iEventID, void** phEvent)
{
    // The module kind decides first; the factory below knows more ids than any kind serves.
    if (!IsEventImplemented(iEventID)) {
        return GC_ERR_NOT_IMPLEMENTED;
    }
    // Looking for a duplicate and appending are one lock hold.
    Locker lock(m_mutex);
    if (_findEventById(iEventID, false) != nullptr) {
        return GC_ERR_RESOURCE_IN_USE;
    }
    m_events.reserve(m_events.size() + 1); // so that appending below cannot fail
    ZrGenTLEvent* const event = ZrGenTLEvent::Create(iEventID);
    if (event == nullptr) {
        return GC_ERR_NOT_IMPLEMENTED;
    }
    if (phEvent == nullptr) {
        ZrGenTLEvent::Destroy(event);
        return GC_ERR_INVALID_PARAMETER;
    }
    m_events.push_back(event);
    *phEvent = event;
    return GC_ERR_SUCCESS;
}

GC_ERROR ZrGenTLModuleBase::UnregisterEvent(int iEventID)
{
    if (!IsEventImplemented(iEventID)) {
        return GC_ERR_NOT_IMPLEMENTED;
    }
    ZrGenTLEvent* event = nullptr;
    {
        Locker lock(m_mutex);
        event = _findEventById(iEventID, true);
        if (event == nullptr) {
            return GC_ERR_NOT_INITIALIZED; // Quirk Q21: not one of the "unknown" codes
        }
        // In one step: a buffer that is revoked looks for its entries in the events it finds.
        event->Close();
    }
    // Outside the lock: it waits for the calls that are inside the event.
    ZrGenTLEvent::Destroy(event);
    return GC_ERR_SUCCESS;
}

ZrGenTLEvent* ZrGenTLModuleBase::FindEventById(int iEventID, bool remove)
{
    Locker lock(m_mutex);
    return _findEventById(iEventID, remove);
}

ZrGenTLEvent* ZrGenTLModuleBase::_findEventById(int iEventID, bool remove)
{
    const auto found = std::find_if(m_events.begin(), m_events.end(), [&](ZrGenTLEvent* event) {
        return event->GetType() == iEventID;
    });
    if (found == m_events.end()) {
        return nullptr;
    }
    ZrGenTLEvent* const event = *found;
    if (remove) {
        m_events.erase(found);
    }
    return event;
}

ZrGenTLEvent* ZrGenTLModuleBase::FindEventByHandle(void* hEvent)
{
    Locker lock(m_mutex);
    return _findEventByHandle(hEvent);
}

// Compares addresses and follows none: the handle may be anything.
ZrGenTLEvent* ZrGenTLModuleBase::_findEventByHandle(void* hEvent)
{
    const auto found = std::find(m_events.begin(), m_events.end(), hEvent);
    return found == m_events.end() ? nullptr : *found;
}

// Found and entered under one hold of the lock: UnregisterEvent takes the event out under the same
// lock before it destroys it.
Pinned<ZrGenTLEvent> ZrGenTLModuleBase::PinEventById(int iEventID)
{
    Locker lock(m_mutex);
    return Pinned<ZrGenTLEvent>::TryPin(_findEventById(iEventID, false));
}

Pinned<ZrGenTLEvent> ZrGenTLModuleBase::PinEventByHandle(void* hEvent)
{
    Locker lock(m_mutex);
    return Pinned<ZrGenTLEvent>::TryPin(_findEventByHandle(hEvent));
}

void ZrGenTLModuleBase::_destroyEvents()
{
    // Swapped out under the lock, destroyed outside it: a waiter that is being released may be on
    // its way to this module's lock.
    std::vector<ZrGenTLEvent*> events;
    {
        Locker lock(m_mutex);
        events.swap(m_events);
        for (ZrGenTLEvent* const event : events) {
            event->Close();
        }
    }
    for (ZrGenTLEvent* const event : events) {
        ZrGenTLEvent::Destroy(event);
    }
}

template <class T>
T ZrGenTLModuleBase::_portInfo(T _ZR_GENTL_PORT_INFO::*field)
{
    Locker lock(m_mutex);
    return m_portInfo.*field;
}

// The getters copy their field under the lock and hand it out after releasing it.

GC_ERROR ZrGenTLModuleBase::_getId(int* piType, void* pBuffer, size_t* piSize)
{
    return ZrGenTLUtil::CopyInfoString(_portInfo(&_ZR_GENTL_PORT_INFO::id), piType, pBuffer,
                                       piSize);
}

GC_ERROR ZrGenTLModuleBase::_getVendor(int* piType, void* pBuffer, size_t* piSize)
{
    return ZrGenTLUtil::CopyInfoString(_portInfo(&_ZR_GENTL_PORT_INFO::vendor), piType, pBuffer,
                                       piSize);
}

GC_ERROR ZrGenTLModuleBase::_getModel(int* piType, void* pBuffer, size_t* piSize)
{
    return ZrGenTLUtil::CopyInfoString(_portInfo(&_ZR_GENTL_PORT_INFO::model), piType, pBuffer,
                                       piSize);
}

GC_ERROR ZrGenTLModuleBase::_getTLType(int* piType, void* pBuffer, size_t* piSize)
{
    return ZrGenTLUtil::CopyInfoString(_portInfo(&_ZR_GENTL_PORT_INFO::tlType), piType, pBuffer,
                                       piSize);
}

GC_ERROR ZrGenTLModuleBase::_getModule(int* piType, void* pBuffer, size_t* piSize)
{
    return ZrGenTLUtil::CopyInfoString(_portInfo(&_ZR_GENTL_PORT_INFO::module), piType, pBuffer,
                                       piSize);
}

GC_ERROR ZrGenTLModuleBase::_getLittleEndian(int* piType, void* pBuffer, size_t* piSize)
{
    return ZrGenTLUtil::CopyInfoBool(_portInfo(&_ZR_GENTL_PORT_INFO::littleEndian), piType, pBuffer,
                                     piSize);
}

GC_ERROR ZrGenTLModuleBase::_getBigEndian(int* piType, void* pBuffer, size_t* piSize)
{
    return ZrGenTLUtil::CopyInfoBool(_portInfo(&_ZR_GENTL_PORT_INFO::bigEndian), piType, pBuffer,
                                     piSize);
}

GC_ERROR ZrGenTLModuleBase::_getAccessRead(int* piType, void* pBuffer, size_t* piSize)
{
    return ZrGenTLUtil::CopyInfoBool(_portInfo(&_ZR_GENTL_PORT_INFO::accessRead), piType, pBuffer,
                                     piSize);
}

GC_ERROR ZrGenTLModuleBase::_getAccessWrite(int* piType, void* pBuffer, size_t* piSize)
{
    return ZrGenTLUtil::CopyInfoBool(_portInfo(&_ZR_GENTL_PORT_INFO::accessWrite), piType, pBuffer,
                                     piSize);
}

GC_ERROR ZrGenTLModuleBase::_getAccessNA(int* piType, void* pBuffer, size_t* piSize)
{
    return ZrGenTLUtil::CopyInfoBool(_portInfo(&_ZR_GENTL_PORT_INFO::accessNA), piType, pBuffer,
                                     piSize);
}

GC_ERROR ZrGenTLModuleBase::_getAccessNI(int* piType, void* pBuffer, size_t* piSize)
{
    return ZrGenTLUtil::CopyInfoBool(_portInfo(&_ZR_GENTL_PORT_INFO::accessNI), piType, pBuffer,
                                     piSize);
}

GC_ERROR ZrGenTLModuleBase::_getVersion(int* piType, void* pBuffer, size_t* piSize)
{
    return ZrGenTLUtil::CopyInfoString(_portInfo(&_ZR_GENTL_PORT_INFO::version), piType, pBuffer,
                                       piSize);
}

GC_ERROR ZrGenTLModuleBase::_getPortName(int* piType, void* pBuffer, size_t* piSize)
{
    return ZrGenTLUtil::CopyInfoString(_portInfo(&_ZR_GENTL_PORT_INFO::portName), piType, pBuffer,
                                       piSize);
}

GC_ERROR ZrGenTLModuleBase::_getURLInfoURL(uint32_t index, int* piType, void* pBuffer,
                                           size_t* piSize)
{
    // Copied out: another thread may replace the list as soon as the lock is free.
    std::string url;
    {
        Locker lock(m_mutex);
        if (index >= m_urlList.size()) {
            return GC_ERR_INVALID_INDEX;
        }
        url = m_urlList[index];
    }
    return ZrGenTLUtil::CopyInfoString(url, piType, pBuffer, piSize);
}
