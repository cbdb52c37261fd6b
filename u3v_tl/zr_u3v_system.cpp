#include "zr_u3v_system.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <dlfcn.h>
#include <memory>

#include "module_children.h"
#include "port_info.h"
#include "zr_gentl_util.h"
#include "zr_u3v_controller.h"
#include "zr_u3v_interface.h"

namespace {

constexpr const char* kDocumentFileName = "ZrGenTLU3V_TL.xml";
constexpr size_t kPathBufferLength = PATH_MAX + 1;
static_assert(kPathBufferLength == 4097);

bool Contains(const std::vector<_ZR_U3V_INTERFACE_INFO>& list, const std::string& id)
{
    return std::any_of(list.begin(), list.end(),
                       [&](const auto& record) { return record.id == id; });
}

} // namespace

ZrU3VSystem::ZrU3VSystem()
    : ZrGenTLModuleBase(Producer::kId, nullptr, ProducerPortInfo(kKindName, "TLPort")),
      m_tlId(Producer::kId), m_vendor(Producer::kVendor), m_model(Producer::kModel),
      m_tlType(Producer::kTLType), m_version(Producer::kVersion),
      m_document(kDocumentFileName, ZrGenTLUtil::CreateXMLSystem())
{
    SetUrlList({m_document.GetUrl()});
}

ZrU3VSystem::~ZrU3VSystem()
{
    bool open = false;
    {
        Locker<RecursiveMutex> lock(m_mutex);
        open = m_open;
    }
    if (open) {
        Close();
    }
}

GC_ERROR ZrU3VSystem::Open()
{
    Locker<Mutex> lifecycle(m_openCloseMutex);
    {
        Locker<RecursiveMutex> lock(m_mutex);
        if (m_open) {
            return ZR_FAIL(GC_ERR_RESOURCE_IN_USE, "%s GC_ERR_RESOURCE_IN_USE", __func__);
        }
    }
    Gate().Reopen();
    g_Controller.RegisterModule(this); // may throw: the System is then as closed as before
    Locker<RecursiveMutex> lock(m_mutex);
    m_open = true;
    return GC_ERR_SUCCESS;
}

GC_ERROR ZrU3VSystem::Close()
{
    Locker<Mutex> lifecycle(m_openCloseMutex);
    {
        Locker<RecursiveMutex> lock(m_mutex);
        if (!m_open) {
            return ZR_FAIL(GC_ERR_ERROR, "%s GC_ERR_ERROR", __func__);
        }
        m_open = false;
    }
    // Calls that are inside finish first, so that no interface is opened behind the tear-down's
    // back.
    Gate().ShutAndWait();
    _closeInterfaces();
    g_Controller.UnregisterModule(this);
    return GC_ERR_SUCCESS;
}

void ZrU3VSystem::_closeInterfaces()
{
    CloseChildren<ZrU3VInterface>(m_interfaces, [](ZrU3VInterface& child) { child.Close(); });
}

std::string ZrU3VSystem::GetCtiPath()
{
    // Any address inside this library names its file.
    Dl_info library{};
    if (dladdr(&g_Controller, &library) == 0) {
        return {};
    }
    const char* fileName = library.dli_fname != nullptr ? library.dli_fname : "";
    const std::unique_ptr<char[]> resolved(new char[kPathBufferLength]);
    return realpath(fileName, resolved.get()) != nullptr ? resolved.get() : fileName;
}

GC_ERROR ZrU3VSystem::GetInfo(int cmd, int* type, void* buffer, size_t* size)
{
    if (type == nullptr || size == nullptr) {
        return ZR_FAIL(GC_ERR_INVALID_PARAMETER, "%s GC_ERR_INVALID_PARAMETER", __func__);
    }
    ZrGenTLUtil::ClearInfoBuffer(buffer, size);
    switch (cmd) {
    case TL_INFO_ID: return ZrGenTLUtil::CopyInfoString(m_tlId, type, buffer, size);
    case TL_INFO_VENDOR: return ZrGenTLUtil::CopyInfoString(m_vendor, type, buffer, size);
    case TL_INFO_MODEL: return ZrGenTLUtil::CopyInfoString(m_model, type, buffer, size);
    case TL_INFO_VERSION: return ZrGenTLUtil::CopyInfoString(m_version, type, buffer, size);
    case TL_INFO_TLTYPE: return ZrGenTLUtil::CopyInfoString(m_tlType, type, buffer, size);
    // Quirk Q36: constants, whatever the file is called.
    case TL_INFO_NAME: return ZrGenTLUtil::CopyInfoString(Producer::kFileName, type, buffer, size);
    case TL_INFO_PATHNAME: return ZrGenTLUtil::CopyInfoString(GetCtiPath(), type, buffer, size);
    case TL_INFO_DISPLAYNAME:
        return ZrGenTLUtil::CopyInfoString(Producer::kDisplayName, type, buffer, size);
    case TL_INFO_CHAR_ENCODING:
        return ZrGenTLUtil::CopyInfoInt32(TL_CHAR_ENCODING_ASCII, type, buffer, size);
    case TL_INFO_GENTL_VER_MAJOR:
        return ZrGenTLUtil::CopyInfoUint32(Producer::kGenTLMajor, type, buffer, size);
    case TL_INFO_GENTL_VER_MINOR:
        return ZrGenTLUtil::CopyInfoUint32(Producer::kGenTLMinor, type, buffer, size);
    default: return ZR_FAIL(GC_ERR_NOT_IMPLEMENTED, "%s GC_ERR_NOT_IMPLEMENTED :%d", __func__, cmd);
    }
}

GC_ERROR ZrU3VSystem::GetNumInterfaces(uint32_t* count)
{
    if (count == nullptr) {
        return ZR_FAIL(GC_ERR_INVALID_PARAMETER, "%s GC_ERR_INVALID_PARAMETER", __func__);
    }
    Locker<RecursiveMutex> lock(m_mutex);
    *count = static_cast<uint32_t>(m_interfaceList.size());
    return GC_ERR_SUCCESS;
}

GC_ERROR ZrU3VSystem::UpdateInterfaceList(bool* changed, uint64_t /*timeout*/)
{
    std::vector<_ZR_U3V_INTERFACE_INFO> list;
    DiscoverInterfaces(list);
    _updateInterfaceList(list, changed);
    return GC_ERR_SUCCESS;
}

void ZrU3VSystem::DiscoverInterfaces(std::vector<_ZR_U3V_INTERFACE_INFO>& list)
{
    list.push_back({Producer::kInterfaceId, Producer::kInterfaceDisplayName, Producer::kTLType});
}

void ZrU3VSystem::_updateInterfaceList(const std::vector<_ZR_U3V_INTERFACE_INFO>& newList,
                                       bool* changed)
{
    bool anyChange = false;
    {
        Locker<RecursiveMutex> lock(m_mutex);
        const auto gone = std::erase_if(
            m_interfaceList, [&](const auto& record) { return !Contains(newList, record.id); });
        anyChange = gone != 0;
        for (const auto& record : newList) {
            if (!Contains(m_interfaceList, record.id)) {
                m_interfaceList.push_back(record);
                anyChange = true;
            }
        }
    }
    if (changed != nullptr) {
        *changed = anyChange;
    }
}

GC_ERROR ZrU3VSystem::GetInterfaceID(uint32_t index, char* id, size_t* size)
{
    if (size == nullptr) {
        return ZR_FAIL(GC_ERR_INVALID_PARAMETER, "%s GC_ERR_INVALID_PARAMETER", __func__);
    }
    _ZR_U3V_INTERFACE_INFO record;
    if (!_findInterfaceInfoByIndex(index, record)) {
        return ZR_FAIL(GC_ERR_INVALID_INDEX, "%s GC_ERR_INVALID_INDEX", __func__);
    }
    ZrGenTLUtil::ClearInfoBuffer(id, size);
    return ZrGenTLUtil::CopyInfoString(record.id, nullptr, id, size);
}

bool ZrU3VSystem::_findInterfaceInfoByIndex(uint32_t index, _ZR_U3V_INTERFACE_INFO& record)
{
    Locker<RecursiveMutex> lock(m_mutex);
    if (index >= m_interfaceList.size()) {
        return false;
    }
    record = m_interfaceList[index];
    return true;
}

bool ZrU3VSystem::_findInterfaceInfoById(const char* id, _ZR_U3V_INTERFACE_INFO& record)
{
    if (id == nullptr) {
        return false;
    }
    Locker<RecursiveMutex> lock(m_mutex);
    const auto found = std::find_if(m_interfaceList.begin(), m_interfaceList.end(),
                                    [&](const auto& candidate) { return candidate.id == id; });
    if (found == m_interfaceList.end()) {
        return false;
    }
    record = *found;
    return true;
}

GC_ERROR ZrU3VSystem::GetInterfaceInfo(const char* id, int cmd, int* type, void* buffer,
                                       size_t* size)
{
    if (size == nullptr) {
        return ZR_FAIL(GC_ERR_INVALID_PARAMETER, "%s GC_ERR_INVALID_PARAMETER", __func__);
    }
    if (const auto open = m_interfaces.PinById(id)) {
        return static_cast<ZrU3VInterface&>(*open).GetInfo(cmd, type, buffer, size);
    }
    return _getInterfaceInfo(id, cmd, type, buffer, size);
}

GC_ERROR ZrU3VSystem::_getInterfaceInfo(const char* id, int cmd, int* type, void* buffer,
                                        size_t* size)
{
    _ZR_U3V_INTERFACE_INFO record;
    if (!_findInterfaceInfoById(id, record)) {
        return ZR_FAIL(GC_ERR_INVALID_ID, "%s GC_ERR_INVALID_ID", __func__);
    }
    if (type == nullptr || size == nullptr) {
        return ZR_FAIL(GC_ERR_INVALID_PARAMETER, "%s GC_ERR_INVALID_PARAMETER", __func__);
    }
    ZrGenTLUtil::ClearInfoBuffer(buffer, size);
    switch (cmd) {
    case INTERFACE_INFO_ID: return ZrGenTLUtil::CopyInfoString(record.id, type, buffer, size);
    case INTERFACE_INFO_DISPLAYNAME:
        return ZrGenTLUtil::CopyInfoString(record.displayName, type, buffer, size);
    case INTERFACE_INFO_TLTYPE:
        return ZrGenTLUtil::CopyInfoString(record.tlType, type, buffer, size);
    // Quirk Q37: while it is open, the interface itself answers NOT_IMPLEMENTED.
    default: return ZR_FAIL(GC_ERR_NOT_AVAILABLE, "%s GC_ERR_NOT_AVAILABLE :%d", __func__, cmd);
    }
}

GC_ERROR ZrU3VSystem::OpenInterface(const char* id, void** handle)
{
    // One interface at a time is opened, so that two callers cannot both find it closed.
    Locker<Mutex> opening(m_openInterfaceMutex);
    if (m_interfaces.FindById(id, false) != nullptr) {
        return ZR_FAIL(GC_ERR_RESOURCE_IN_USE, "%s GC_ERR_RESOURCE_IN_USE", __func__);
    }
    _ZR_U3V_INTERFACE_INFO record;
    if (!_findInterfaceInfoById(id, record)) {
        return ZR_FAIL(GC_ERR_INVALID_ID, "%s GC_ERR_INVALID_ID", __func__);
    }
    if (handle == nullptr) {
        return ZR_FAIL(GC_ERR_INVALID_PARAMETER, "%s GC_ERR_INVALID_PARAMETER", __func__);
    }
    auto iface = std::make_unique<ZrU3VInterface>(record, this);
    if (const GC_ERROR status = iface->Open(); status != GC_ERR_SUCCESS) {
        return status;
    }
    m_interfaces.Add(iface.get());
    *handle = iface.release(); // the container's from now on, until CloseInterface or Close
    return GC_ERR_SUCCESS;
}

GC_ERROR ZrU3VSystem::CloseInterface(void* handle)
{
    // Its successor is opened after its end: discovery is one for the whole library, and a late
    // close would be the successor's.
    Locker<Mutex> closing(m_openInterfaceMutex);
    return CloseChild<ZrU3VInterface>(m_interfaces, handle, __func__);
}

bool ZrU3VSystem::IsEventImplemented(int /*eventId*/)
{
    return false;
}

// Quirk Q32: the count register and the document are left out, and the read path does not ask here.
bool ZrU3VSystem::_isAddressValid(uint64_t address)
{
    switch (address) {
    case TLRegister::kTLVendorName:
    case TLRegister::kTLModelName:
    case TLRegister::kTLID:
    case TLRegister::kTLVersion:
    case TLRegister::kTLPath:
    case TLRegister::kGenTLVersionMajor:
    case TLRegister::kGenTLVersionMinor:
    case TLRegister::kInterfaceUpdateList:
    case TLRegister::kInterfaceSelector:
    case TLRegister::kInterfaceID: return true;
    default: return false;
    }
}

GC_ERROR ZrU3VSystem::ReadPort(uint64_t address, void* buffer, size_t* size)
{
    if (buffer == nullptr || size == nullptr) {
        return ZR_FAIL(GC_ERR_INVALID_PARAMETER, "%s failed! GC_ERR_INVALID_PARAMETER", __func__);
    }
    switch (address) {
    case kDocumentAddress: return m_document.Read(buffer, size);
    case TLRegister::kTLVendorName: return _readInfo(TL_INFO_VENDOR, buffer, size);
    case TLRegister::kTLModelName: return _readInfo(TL_INFO_MODEL, buffer, size);
    case TLRegister::kTLID: return _readInfo(TL_INFO_ID, buffer, size);
    case TLRegister::kTLVersion: return _readInfo(TL_INFO_VERSION, buffer, size);
    case TLRegister::kTLPath: return _readInfo(TL_INFO_PATHNAME, buffer, size);
    case TLRegister::kGenTLVersionMajor: return _readInfo(TL_INFO_GENTL_VER_MAJOR, buffer, size);
    case TLRegister::kGenTLVersionMinor: return _readInfo(TL_INFO_GENTL_VER_MINOR, buffer, size);
    case TLRegister::kInterfaceID: return ReadRegister(_selectedInterfaceId(), buffer, size);
    default: break;
    }
    Locker<RecursiveMutex> lock(m_mutex);
    switch (address) {
    case TLRegister::kInterfaceUpdateList:
        return ReadRegister(uint32_t{m_updateInProgress}, buffer, size);
    case TLRegister::kInterfaceSelector: return ReadRegister(m_interfaceSelector, buffer, size);
    case TLRegister::kNrInterfaces:
        return ReadRegister(static_cast<uint32_t>(m_interfaceList.size()), buffer, size);
    default: return GC_ERR_NOT_IMPLEMENTED; // Quirk Q33: not INVALID_ADDRESS, and no line
    }
}

GC_ERROR ZrU3VSystem::_readInfo(int cmd, void* buffer, size_t* size)
{
    int type = INFO_DATATYPE_UNKNOWN;
    return GetInfo(cmd, &type, buffer, size);
}

std::string ZrU3VSystem::_selectedInterfaceId()
{
    Locker<RecursiveMutex> lock(m_mutex);
    return m_interfaceSelector < m_interfaceList.size() ? m_interfaceList[m_interfaceSelector].id
                                                        : std::string();
}

GC_ERROR ZrU3VSystem::WritePort(uint64_t address, const void* buffer, size_t* size)
{
    if (buffer == nullptr || size == nullptr) {
        return ZR_FAIL(GC_ERR_INVALID_PARAMETER, "%s failed! GC_ERR_INVALID_PARAMETER", __func__);
    }
    switch (address) {
    // Quirk Q34: whatever value is written, whatever the update answers.
    case TLRegister::kInterfaceUpdateList: _updateFromRegister(); return GC_ERR_SUCCESS;
    case TLRegister::kInterfaceSelector: {
        Locker<RecursiveMutex> lock(m_mutex);
        // Quirk Q35: stored without a look at the list.
        m_interfaceSelector = WrittenRegister(buffer, size);
        return GC_ERR_SUCCESS;
    }
    default: return GC_ERR_NOT_IMPLEMENTED;
    }
}

void ZrU3VSystem::_updateFromRegister()
{
    const UpdateInProgress inProgress([this](uint8_t value) { _setUpdateInProgress(value); });
    UpdateInterfaceList(nullptr, kRegisterUpdateTimeout);
}

void ZrU3VSystem::_setUpdateInProgress(uint8_t value)
{
    Locker<RecursiveMutex> lock(m_mutex);
    m_updateInProgress = value;
}
