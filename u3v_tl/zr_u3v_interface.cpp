#include "zr_u3v_interface.h"

#include <algorithm>
#include <string.h>
#include <strings.h>
#include <zr_u3v_tl/u3v_lib.h>

#include "module_children.h"
#include "port_info.h"
#include "zr_gentl_util.h"
#include "zr_u3v_controller.h"
#include "zr_u3v_device.h"

namespace {

constexpr const char* kDocumentFileName = "ZrGenTLU3V_IF.xml";

// A fixed-width field up to its first zero byte.
template <size_t Width>
std::string FieldText(const char (&field)[Width])
{
    return std::string(field, strnlen(field, Width));
}

_ZR_U3V_DEVICE_INFO MakeRecord(const U3V_DEVICE_INFO& info)
{
    _ZR_U3V_DEVICE_INFO record;
    record.id = FieldText(info.DeviceGUID);
    record.vendor = FieldText(info.VendorName);
    record.model = FieldText(info.ModelName);
    record.version = FieldText(info.DeviceVersion);
    // Quirk Q38: the model comes first.
    record.displayName = record.model + "-" + record.vendor + "-" + record.version;
    record.tlType = Producer::kTLType;
    record.accessStatus =
        info.InUse == 0 ? DEVICE_ACCESS_STATUS_READWRITE : DEVICE_ACCESS_STATUS_NOACCESS;
    record.userDefinedName = FieldText(info.UserDefinedName);
    record.serialNumber = FieldText(info.SerialNumber);
    return record;
}

_ZR_GENTL_PORT_INFO PortInfoOf(const _ZR_U3V_INTERFACE_INFO& info, const char* module)
{
    _ZR_GENTL_PORT_INFO port = ProducerPortInfo(module, "InterfacePort");
    port.id = info.id;
    port.tlType = info.tlType;
    return port;
}

bool SameId(const std::string& left, const std::string& right)
{
    return strcasecmp(left.c_str(), right.c_str()) == 0;
}

} // namespace

ZrU3VInterface::ZrU3VInterface(const _ZR_U3V_INTERFACE_INFO& info, ZrGenTLModuleBase* parent)
    : ZrGenTLModuleBase(info.id, parent, PortInfoOf(info, kKindName)),
      m_displayName(info.displayName), m_tlType(info.tlType), m_vendor(Producer::kVendor),
      m_model(Producer::kModel), m_version(Producer::kVersion),
      m_document(kDocumentFileName, ZrGenTLUtil::CreateXMLInterface()),
      m_discovery(std::make_unique<ZrU3VThreadDeviceDiscovery>(this))
{
    SetUrlList({m_document.GetUrl()});
}

ZrU3VInterface::~ZrU3VInterface()
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

GC_ERROR ZrU3VInterface::Open()
{
    {
        Locker<RecursiveMutex> lock(m_mutex);
        if (m_open) {
            return ZR_FAIL(GC_ERR_RESOURCE_IN_USE, "%s GC_ERR_RESOURCE_IN_USE", __func__);
        }
        if (!m_discovery->Start()) {
            return ZR_FAIL(GC_ERR_RESOURCE_EXHAUSTED, "%s GC_ERR_RESOURCE_EXHAUSTED", __func__);
        }
        m_open = true;
    }
    g_Controller.RegisterModule(this);
    static_cast<void>(U3V_DiscoveryOpen());
    return GC_ERR_SUCCESS;
}

bool ZrU3VInterface::_closeFlag()
{
    Locker<RecursiveMutex> lock(m_mutex);
    const bool wasOpen = m_open;
    m_open = false;
    return wasOpen;
}

GC_ERROR ZrU3VInterface::Close()
{
    if (!_closeFlag()) {
        return ZR_FAIL(GC_ERR_ERROR, "%s GC_ERR_ERROR", __func__);
    }
    // The worker goes first: a caller inside UpdateDeviceList waits for it. Then the callers
    // themselves.
    m_discovery->RequestExit();
    m_discovery->WaitForExit();
    Gate().ShutAndWait();
    _closeDevices();
    g_Controller.UnregisterModule(this);
    m_discovery.reset();
    static_cast<void>(U3V_DiscoveryClose());
    return GC_ERR_SUCCESS;
}

void ZrU3VInterface::_closeDevices()
{
    // All are told to stop before the first is waited for: a camera that is silent ends when its
    // transfer times out, and so many of them do at the same time.
    for (uint32_t index = 0; const auto device = m_devices.PinByIndex(index); ++index) {
        static_cast<ZrU3VDevice&>(*device).RequestStop();
    }
    CloseChildren<ZrU3VDevice>(m_devices, [](ZrU3VDevice& child) { child.Close(); });
}

void ZrU3VInterface::DiscoverDevices()
{
    std::vector<_ZR_U3V_DEVICE_INFO> list;
    _discoverDevices(list);
    Locker<RecursiveMutex> lock(m_mutex);
    m_discoveredList.swap(list);
}

void ZrU3VInterface::_discoverDevices(std::vector<_ZR_U3V_DEVICE_INFO>& list)
{
    uint16_t count = 0;
    if (const uint16_t status = U3V_DiscoveryDevices(&count); status != U3V_STATUS_SUCCESS) {
        ZR_TRACE(ZR_TRACE_ERROR, "%s Failed! U3V_DiscoveryDevices:%d", __func__, status);
        return;
    }
    // The procedural layer counts its cameras from 1.
    for (uint32_t index = 1; index <= count; ++index) {
        U3V_DEVICE_INFO info{};
        if (const uint16_t status = U3V_GetDeviceInfo(static_cast<uint16_t>(index), &info);
            status != U3V_STATUS_SUCCESS) {
            ZR_TRACE(ZR_TRACE_ERROR, "%s Failed! U3V_GetDeviceInfo:%d", __func__, status);
            continue;
        }
        list.push_back(MakeRecord(info));
    }
}

GC_ERROR ZrU3VInterface::UpdateDeviceList(bool* changed, uint64_t timeout)
{
    // No lock is held while waiting: another caller's update waits for its own time only.
    if (!m_discovery->RequestAndWaitDiscovery(timeout)) {
        return ZR_FAIL(GC_ERR_TIMEOUT, "%s GC_ERR_TIMEOUT", __func__);
    }
    bool anyChange = false;
    {
        Locker<RecursiveMutex> lock(m_mutex);
        _updateDeviceList(m_discoveredList, &anyChange);
    }
    if (changed != nullptr) {
        *changed = anyChange;
    }
    return GC_ERR_SUCCESS;
}

void ZrU3VInterface::_updateDeviceList(const std::vector<_ZR_U3V_DEVICE_INFO>& newList,
                                       bool* changed)
{
    Locker<RecursiveMutex> lock(m_mutex);
    const bool same =
        std::equal(m_deviceList.begin(), m_deviceList.end(), newList.begin(), newList.end(),
                   [](const auto& left, const auto& right) { return SameId(left.id, right.id); });
    // Replaced in any case: status and names take their new values even when no id changed.
    m_deviceList = newList;
    if (changed != nullptr) {
        *changed = !same;
    }
}

GC_ERROR ZrU3VInterface::GetNumDevices(uint32_t* count)
{
    if (count == nullptr) {
        return ZR_FAIL(GC_ERR_INVALID_PARAMETER, "%s GC_ERR_INVALID_PARAMETER", __func__);
    }
    Locker<RecursiveMutex> lock(m_mutex);
    *count = static_cast<uint32_t>(m_deviceList.size());
    return GC_ERR_SUCCESS;
}

GC_ERROR ZrU3VInterface::GetDeviceID(uint32_t index, char* id, size_t* size)
{
    if (size == nullptr) {
        return ZR_FAIL(GC_ERR_INVALID_PARAMETER, "%s GC_ERR_INVALID_PARAMETER", __func__);
    }
    _ZR_U3V_DEVICE_INFO record;
    if (!_findDeviceInfoByIndex(index, record)) {
        return ZR_FAIL(GC_ERR_INVALID_INDEX, "%s GC_ERR_INVALID_INDEX", __func__);
    }
    ZrGenTLUtil::ClearInfoBuffer(id, size);
    return ZrGenTLUtil::CopyInfoString(record.id, nullptr, id, size);
}

bool ZrU3VInterface::_findDeviceInfoByIndex(uint32_t index, _ZR_U3V_DEVICE_INFO& record)
{
    Locker<RecursiveMutex> lock(m_mutex);
    if (index >= m_deviceList.size()) {
        return false;
    }
    record = m_deviceList[index];
    return true;
}

bool ZrU3VInterface::_findDeviceInfoById(const char* id, _ZR_U3V_DEVICE_INFO& record)
{
    if (id == nullptr) {
        return false;
    }
    Locker<RecursiveMutex> lock(m_mutex);
    const auto found =
        std::find_if(m_deviceList.begin(), m_deviceList.end(),
                     [&](const auto& candidate) { return SameId(candidate.id, id); });
    if (found == m_deviceList.end()) {
        return false;
    }
    record = *found;
    return true;
}

GC_ERROR ZrU3VInterface::GetDeviceInfo(const char* id, int cmd, int* type, void* buffer,
                                       size_t* size)
{
    if (size == nullptr) {
        return ZR_FAIL(GC_ERR_INVALID_PARAMETER, "%s GC_ERR_INVALID_PARAMETER", __func__);
    }
    if (const auto open = m_devices.PinById(id)) {
        return static_cast<ZrU3VDevice&>(*open).GetInfo(cmd, type, buffer, size);
    }
    return _getDeviceInfo(id, cmd, type, buffer, size);
}

GC_ERROR ZrU3VInterface::_getDeviceInfo(const char* id, int cmd, int* type, void* buffer,
                                        size_t* size)
{
    _ZR_U3V_DEVICE_INFO record;
    if (!_findDeviceInfoById(id, record)) {
        return ZR_FAIL(GC_ERR_INVALID_ID, "%s GC_ERR_INVALID_ID", __func__);
    }
    if (type == nullptr) {
        return ZR_FAIL(GC_ERR_INVALID_PARAMETER, "%s GC_ERR_INVALID_PARAMETER", __func__);
    }
    ZrGenTLUtil::ClearInfoBuffer(buffer, size);
    switch (cmd) {
    case DEVICE_INFO_ID: return ZrGenTLUtil::CopyInfoString(record.id, type, buffer, size);
    case DEVICE_INFO_VENDOR: return ZrGenTLUtil::CopyInfoString(record.vendor, type, buffer, size);
    case DEVICE_INFO_MODEL: return ZrGenTLUtil::CopyInfoString(record.model, type, buffer, size);
    case DEVICE_INFO_TLTYPE: return ZrGenTLUtil::CopyInfoString(record.tlType, type, buffer, size);
    case DEVICE_INFO_DISPLAYNAME:
        return ZrGenTLUtil::CopyInfoString(record.displayName, type, buffer, size);
    case DEVICE_INFO_ACCESS_STATUS:
        return ZrGenTLUtil::CopyInfoInt32(record.accessStatus, type, buffer, size);
    case DEVICE_INFO_USER_DEFINED_NAME:
        return ZrGenTLUtil::CopyInfoString(record.userDefinedName, type, buffer, size);
    case DEVICE_INFO_SERIAL_NUMBER:
        return ZrGenTLUtil::CopyInfoString(record.serialNumber, type, buffer, size);
    case DEVICE_INFO_VERSION:
        return ZrGenTLUtil::CopyInfoString(record.version, type, buffer, size);
    case DEVICE_INFO_TIMESTAMP_FREQUENCY:
        return ZR_FAIL(GC_ERR_NOT_AVAILABLE, "%s GC_ERR_NOT_AVAILABLE :%d", __func__, cmd);
    default: return ZR_FAIL(GC_ERR_NOT_IMPLEMENTED, "%s GC_ERR_NOT_IMPLEMENTED :%d", __func__, cmd);
    }
}

GC_ERROR ZrU3VInterface::GetInfo(int cmd, int* type, void* buffer, size_t* size)
{
    if (type == nullptr || size == nullptr) {
        return ZR_FAIL(GC_ERR_INVALID_PARAMETER, "%s GC_ERR_INVALID_PARAMETER", __func__);
    }
    ZrGenTLUtil::ClearInfoBuffer(buffer, size);
    switch (cmd) {
    case INTERFACE_INFO_ID: return ZrGenTLUtil::CopyInfoString(GetId(), type, buffer, size);
    case INTERFACE_INFO_DISPLAYNAME:
        return ZrGenTLUtil::CopyInfoString(m_displayName, type, buffer, size);
    case INTERFACE_INFO_TLTYPE: return ZrGenTLUtil::CopyInfoString(m_tlType, type, buffer, size);
    default: return ZR_FAIL(GC_ERR_NOT_IMPLEMENTED, "%s GC_ERR_NOT_IMPLEMENTED :%d", __func__, cmd);
    }
}

GC_ERROR ZrU3VInterface::OpenDevice(const char* id, int32_t openFlags, void** handle)
{
    // One device at a time is opened, so that two callers cannot both find it closed.
    Locker<Mutex> opening(m_openDeviceMutex);
    if (m_devices.FindById(id, false) != nullptr) {
        return ZR_FAIL(GC_ERR_RESOURCE_IN_USE, "%s GC_ERR_RESOURCE_IN_USE", __func__);
    }
    _ZR_U3V_DEVICE_INFO record;
    if (!_findDeviceInfoById(id, record)) {
        return ZR_FAIL(GC_ERR_INVALID_ID, "%s GC_ERR_INVALID_ID", __func__);
    }
    // The same camera written in another letter case: a second open would take its interfaces away
    // from the first.
    if (m_devices.FindById(record.id.c_str(), false) != nullptr) {
        return ZR_FAIL(GC_ERR_RESOURCE_IN_USE, "%s GC_ERR_RESOURCE_IN_USE", __func__);
    }
    if (handle == nullptr) {
        return ZR_FAIL(GC_ERR_INVALID_PARAMETER, "%s GC_ERR_INVALID_PARAMETER", __func__);
    }
    auto device = std::make_unique<ZrU3VDevice>(record, this);
    if (const GC_ERROR status = device->Open(openFlags); status != GC_ERR_SUCCESS) {
        return status;
    }
    m_devices.Add(device.get());
    *handle = device.release(); // the container's from now on, until CloseDevice or Close
    return GC_ERR_SUCCESS;
}

GC_ERROR ZrU3VInterface::CloseDevice(void* handle)
{
    // The same camera is opened again only when it has been given back.
    Locker<Mutex> closing(m_openDeviceMutex);
    return CloseChild<ZrU3VDevice>(m_devices, handle, __func__);
}

bool ZrU3VInterface::IsEventImplemented(int eventId)
{
    return eventId == EVENT_ERROR;
}

GC_ERROR ZrU3VInterface::ReadPort(uint64_t address, void* buffer, size_t* size)
{
    if (buffer == nullptr || size == nullptr) {
        return ZR_FAIL(GC_ERR_INVALID_PARAMETER, "%s failed! GC_ERR_INVALID_PARAMETER", __func__);
    }
    int type = INFO_DATATYPE_UNKNOWN;
    switch (address) {
    case kDocumentAddress: return m_document.Read(buffer, size);
    case InterfaceRegister::kInterfaceID: return GetInfo(INTERFACE_INFO_ID, &type, buffer, size);
    case InterfaceRegister::kDeviceID: return _readSelected(&_ZR_U3V_DEVICE_INFO::id, buffer, size);
    case InterfaceRegister::kDeviceVendorName:
        return _readSelected(&_ZR_U3V_DEVICE_INFO::vendor, buffer, size);
    case InterfaceRegister::kDeviceModelName:
        return _readSelected(&_ZR_U3V_DEVICE_INFO::model, buffer, size);
    default: break;
    }
    Locker<RecursiveMutex> lock(m_mutex);
    switch (address) {
    case InterfaceRegister::kDeviceUpdateList:
        return ReadRegister(uint32_t{m_updateInProgress}, buffer, size);
    case InterfaceRegister::kDeviceSelector: return ReadRegister(m_deviceSelector, buffer, size);
    case InterfaceRegister::kDeviceAccessStatus: {
        // Status 0 when the selector is out of range.
        const bool exists = m_deviceSelector < m_deviceList.size();
        const int32_t status = exists ? m_deviceList[m_deviceSelector].accessStatus : 0;
        return ReadRegister(static_cast<uint32_t>(status), buffer, size);
    }
    case InterfaceRegister::kNrDevices:
        return ReadRegister(static_cast<uint32_t>(m_deviceList.size()), buffer, size);
    default: return GC_ERR_NOT_IMPLEMENTED; // Quirk Q33: not INVALID_ADDRESS, and no line
    }
}

// A string of the selected device, empty when the selector is out of range.
GC_ERROR ZrU3VInterface::_readSelected(std::string _ZR_U3V_DEVICE_INFO::*field, void* buffer,
                                       size_t* size)
{
    Locker<RecursiveMutex> lock(m_mutex);
    const bool exists = m_deviceSelector < m_deviceList.size();
    return ReadRegister(exists ? std::string_view(m_deviceList[m_deviceSelector].*field) : "",
                        buffer, size);
}

GC_ERROR ZrU3VInterface::WritePort(uint64_t address, const void* buffer, size_t* size)
{
    if (buffer == nullptr || size == nullptr) {
        return ZR_FAIL(GC_ERR_INVALID_PARAMETER, "%s failed! GC_ERR_INVALID_PARAMETER", __func__);
    }
    switch (address) {
    case InterfaceRegister::kDeviceUpdateList: {
        // Quirk Q34: whatever value is written, whatever the update answers.
        const UpdateInProgress inProgress([this](uint8_t value) { _setUpdateInProgress(value); });
        static_cast<void>(UpdateDeviceList(nullptr, kRegisterUpdateTimeout));
        return GC_ERR_SUCCESS;
    }
    case InterfaceRegister::kDeviceSelector: {
        Locker<RecursiveMutex> lock(m_mutex);
        // Quirk Q35: stored without a look at the list.
        m_deviceSelector = WrittenRegister(buffer, size);
        return GC_ERR_SUCCESS;
    }
    default: return GC_ERR_NOT_IMPLEMENTED;
    }
}

void ZrU3VInterface::_setUpdateInProgress(uint8_t value)
{
    Locker<RecursiveMutex> lock(m_mutex);
    m_updateInProgress = value;
}
