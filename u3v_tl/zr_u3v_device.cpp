#include "zr_u3v_device.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "module_children.h"
#include "port_info.h"
#include "zr_gentl_util.h"
#include "zr_u3v_controller.h"
#include "zr_u3v_data_stream.h"

namespace {

constexpr const char* kDocumentFileName = "ZrGenTLU3V_DEV.xml";
constexpr uint32_t kOnlyStream = 0;

bool IsAccessAccepted(int32_t flags)
{
    return flags == DEVICE_ACCESS_READONLY || flags == DEVICE_ACCESS_CONTROL ||
           flags == DEVICE_ACCESS_EXCLUSIVE;
}

} // namespace

ZrU3VDevice::ZrU3VDevice(const _ZR_U3V_DEVICE_INFO& info, ZrGenTLModuleBase* parent)
    : ZrGenTLModuleBase(info.id, parent, ProducerPortInfo(kKindName, "DevicePort")),
      m_deviceInfo(info), m_document(kDocumentFileName, ZrGenTLUtil::CreateXMLDevice())
{
    SetUrlList({m_document.GetUrl()});
}

ZrU3VDevice::~ZrU3VDevice()
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

GC_ERROR ZrU3VDevice::Open(int32_t flags)
{
    {
        Locker<RecursiveMutex> lock(m_mutex);
        if (m_open) {
            return ZR_FAIL(GC_ERR_RESOURCE_IN_USE, "%s GC_ERR_RESOURCE_IN_USE", __func__);
        }
    }
    if (!IsAccessAccepted(flags)) {
        return ZR_FAIL(GC_ERR_NOT_IMPLEMENTED, "%s GC_ERR_NOT_IMPLEMENTED", __func__);
    }
    auto remoteDevice = std::make_unique<ZrU3VRemoteDevice>(m_deviceInfo, this);
    if (const GC_ERROR status = remoteDevice->Open(flags); status != GC_ERR_SUCCESS) {
        return ZR_FAIL(status, "%s failed! ZrU3VRemoteDevice::Open %d", __func__, status);
    }
    auto stream = std::make_unique<ZrU3VDataStream>(remoteDevice.get(), kOnlyStream, this);
    _adopt(std::move(remoteDevice), std::move(stream));
    return GC_ERR_SUCCESS;
}

// Takes the opened parts over and makes their handles valid. The stream is registered first: an
// event is looked up through the modules in this order, and the stream's is the one that is waited
// on.
void ZrU3VDevice::_adopt(std::unique_ptr<ZrU3VRemoteDevice> remoteDevice,
                         std::unique_ptr<ZrU3VDataStream> stream)
{
    ZrU3VRemoteDevice* const remote = remoteDevice.get();
    {
        Locker<RecursiveMutex> lock(m_mutex);
        m_pRemoteDevice = std::move(remoteDevice);
        m_open = true;
    }
    ZrU3VDataStream* const registered = stream.get();
    m_streams.Add(registered);
    static_cast<void>(stream.release()); // the container's from now on, until Close
    Gate().Reopen();                     // shut by an earlier Close
    g_Controller.RegisterModule(registered);
    g_Controller.RegisterModule(remote);
    g_Controller.RegisterModule(this);
}

GC_ERROR ZrU3VDevice::Close()
{
    {
        Locker<RecursiveMutex> lock(m_mutex);
        if (!m_open) {
            return ZR_FAIL(GC_ERR_ERROR, "%s GC_ERR_ERROR", __func__);
        }
        m_open = false;
    }
    // Calls inside the device end before what they use goes.
    Gate().ShutAndWait();
    _closeStreams();

    std::unique_ptr<ZrU3VRemoteDevice> remoteDevice;
    {
        Locker<RecursiveMutex> lock(m_mutex);
        remoteDevice = std::move(m_pRemoteDevice);
    }
    g_Controller.UnregisterModule(remoteDevice.get());
    g_Controller.UnregisterModule(this);
    if (remoteDevice) {
        remoteDevice->Gate().ShutAndWait();
    }
    return GC_ERR_SUCCESS;
}

void ZrU3VDevice::RequestStop()
{
    for (uint32_t index = 0; const auto stream = m_streams.PinByIndex(index); ++index) {
        static_cast<ZrU3VDataStream&>(*stream).RequestStop();
    }
}

void ZrU3VDevice::_closeStreams()
{
    CloseChildren<ZrU3VDataStream>(m_streams,
                                   [](ZrU3VDataStream& child) { child.Gate().ShutAndWait(); });
}

ZrU3VRemoteDevice* ZrU3VDevice::_remoteDevice()
{
    Locker<RecursiveMutex> lock(m_mutex);
    return m_pRemoteDevice.get();
}

GC_ERROR ZrU3VDevice::GetPort(void** port)
{
    if (port == nullptr) {
        return ZR_FAIL(GC_ERR_INVALID_PARAMETER, "%s GC_ERR_INVALID_PARAMETER", __func__);
    }
    *port = _remoteDevice();
    return GC_ERR_SUCCESS;
}

GC_ERROR ZrU3VDevice::GetNumDataStreams(uint32_t* count)
{
    if (count == nullptr) {
        return ZR_FAIL(GC_ERR_INVALID_PARAMETER, "%s GC_ERR_INVALID_PARAMETER", __func__);
    }
    *count = m_streams.GetCount();
    return GC_ERR_SUCCESS;
}

GC_ERROR ZrU3VDevice::GetDataStreamID(uint32_t index, char* id, size_t* size)
{
    if (size == nullptr) {
        return ZR_FAIL(GC_ERR_INVALID_PARAMETER, "%s GC_ERR_INVALID_PARAMETER", __func__);
    }
    const auto stream = m_streams.PinByIndex(index);
    if (!stream) {
        return ZR_FAIL(GC_ERR_INVALID_INDEX, "%s GC_ERR_INVALID_INDEX", __func__);
    }
    ZrGenTLUtil::ClearInfoBuffer(id, size);
    return ZrGenTLUtil::CopyInfoString(stream->GetId(), nullptr, id, size);
}

GC_ERROR ZrU3VDevice::OpenDataStream(const char* id, void** stream)
{
    if (id == nullptr || stream == nullptr) {
        return ZR_FAIL(GC_ERR_INVALID_PARAMETER, "%s GC_ERR_INVALID_PARAMETER", __func__);
    }
    const auto found = m_streams.PinById(id);
    if (!found) {
        return ZR_FAIL(GC_ERR_INVALID_ID, "%s GC_ERR_INVALID_ID", __func__);
    }
    const GC_ERROR status = static_cast<ZrU3VDataStream&>(*found).Open();
    if (status == GC_ERR_SUCCESS) {
        *stream = found.Get();
    }
    return status;
}

GC_ERROR ZrU3VDevice::GetInfo(int32_t cmd, int32_t* type, void* buffer, size_t* size)
{
    if (type == nullptr || size == nullptr) {
        return ZR_FAIL(GC_ERR_INVALID_PARAMETER, "%s GC_ERR_INVALID_PARAMETER", __func__);
    }
    ZrGenTLUtil::ClearInfoBuffer(buffer, size);
    switch (cmd) {
    case DEVICE_INFO_ID: return _getId(type, buffer, size);
    case DEVICE_INFO_VENDOR: return _getVendor(type, buffer, size);
    case DEVICE_INFO_MODEL: return _getModel(type, buffer, size);
    case DEVICE_INFO_TLTYPE: return _getTLType(type, buffer, size);
    case DEVICE_INFO_DISPLAYNAME: return _getDisplayName(type, buffer, size);
    case DEVICE_INFO_ACCESS_STATUS: return _getAccessStatus(type, buffer, size);
    case DEVICE_INFO_USER_DEFINED_NAME: return _getUserDefinedName(type, buffer, size);
    case DEVICE_INFO_SERIAL_NUMBER: return _getSerialNumber(type, buffer, size);
    case DEVICE_INFO_VERSION: return _getVersion(type, buffer, size);
    case DEVICE_INFO_TIMESTAMP_FREQUENCY: return _getTimestampFreq(type, buffer, size);
    default: return ZR_FAIL(GC_ERR_NOT_IMPLEMENTED, "%s GC_ERR_NOT_IMPLEMENTED :%d", __func__, cmd);
    }
}

// One string out of a snapshot of the remote device's record; a closed device has none.
GC_ERROR ZrU3VDevice::_copyRecordField(RecordField field, int32_t* type, void* buffer, size_t* size)
{
    ZrU3VRemoteDevice* remoteDevice = _remoteDevice();
    if (remoteDevice == nullptr) {
        return GC_ERR_NOT_INITIALIZED;
    }
    return ZrGenTLUtil::CopyInfoString(remoteDevice->GetDeviceInfo().*field, type, buffer, size);
}

GC_ERROR ZrU3VDevice::_getId(int32_t* type, void* buffer, size_t* size)
{
    return _copyRecordField(&_ZR_U3V_DEVICE_INFO::id, type, buffer, size);
}

GC_ERROR ZrU3VDevice::_getVendor(int32_t* type, void* buffer, size_t* size)
{
    return _copyRecordField(&_ZR_U3V_DEVICE_INFO::vendor, type, buffer, size);
}

GC_ERROR ZrU3VDevice::_getModel(int32_t* type, void* buffer, size_t* size)
{
    return _copyRecordField(&_ZR_U3V_DEVICE_INFO::model, type, buffer, size);
}

GC_ERROR ZrU3VDevice::_getTLType(int32_t* type, void* buffer, size_t* size)
{
    return _copyRecordField(&_ZR_U3V_DEVICE_INFO::tlType, type, buffer, size);
}

GC_ERROR ZrU3VDevice::_getDisplayName(int32_t* type, void* buffer, size_t* size)
{
    return _copyRecordField(&_ZR_U3V_DEVICE_INFO::displayName, type, buffer, size);
}

GC_ERROR ZrU3VDevice::_getSerialNumber(int32_t* type, void* buffer, size_t* size)
{
    return _copyRecordField(&_ZR_U3V_DEVICE_INFO::serialNumber, type, buffer, size);
}

GC_ERROR ZrU3VDevice::_getVersion(int32_t* type, void* buffer, size_t* size)
{
    return _copyRecordField(&_ZR_U3V_DEVICE_INFO::version, type, buffer, size);
}

GC_ERROR ZrU3VDevice::_getAccessStatus(int32_t* type, void* buffer, size_t* size)
{
    ZrU3VRemoteDevice* remoteDevice = _remoteDevice();
    if (remoteDevice == nullptr) {
        return GC_ERR_NOT_INITIALIZED;
    }
    // The access states are not negative: a negative answer is the status of a camera that could
    // not be asked.
    const int32_t status = remoteDevice->GetAccessStatus();
    return status < 0 ? status : ZrGenTLUtil::CopyInfoInt32(status, type, buffer, size);
}

GC_ERROR ZrU3VDevice::_getUserDefinedName(int32_t* type, void* buffer, size_t* size)
{
    ZrU3VRemoteDevice* remoteDevice = _remoteDevice();
    if (remoteDevice == nullptr) {
        return GC_ERR_NOT_INITIALIZED;
    }
    try {
        return ZrGenTLUtil::CopyInfoString(remoteDevice->GetUserDefinedName(), type, buffer, size);
    } catch (const std::logic_error&) {
        return GC_ERR_IO; // raised for a camera that could not be read
    }
}

GC_ERROR ZrU3VDevice::_getTimestampFreq(int32_t* /*type*/, void* /*buffer*/, size_t* /*size*/)
{
    return GC_ERR_NOT_IMPLEMENTED;
}

bool ZrU3VDevice::IsEventImplemented(int eventId)
{
    return eventId == EVENT_REMOTE_DEVICE;
}

GC_ERROR ZrU3VDevice::ReadPort(uint64_t address, void* buffer, size_t* size)
{
    if (buffer == nullptr || size == nullptr) {
        return ZR_FAIL(GC_ERR_INVALID_PARAMETER, "%s failed! GC_ERR_INVALID_PARAMETER", __func__);
    }
    int32_t type = INFO_DATATYPE_UNKNOWN;
    switch (address) {
    case kDocumentAddress: return m_document.Read(buffer, size);
    case DeviceRegister::kDeviceID: return GetInfo(DEVICE_INFO_ID, &type, buffer, size);
    case DeviceRegister::kDeviceVendorName: return GetInfo(DEVICE_INFO_VENDOR, &type, buffer, size);
    case DeviceRegister::kDeviceModelName: return GetInfo(DEVICE_INFO_MODEL, &type, buffer, size);
    case DeviceRegister::kDeviceAccessStatus:
        return GetInfo(DEVICE_INFO_ACCESS_STATUS, &type, buffer, size);
    case DeviceRegister::kStreamSelector: {
        Locker<RecursiveMutex> lock(m_mutex);
        return ReadRegister(m_streamSelector, buffer, size);
    }
    case DeviceRegister::kStreamID: return ReadRegister(_selectedStreamId(), buffer, size);
    case DeviceRegister::kNrStreams: return ReadRegister(m_streams.GetCount(), buffer, size);
    case DeviceRegister::kUpdateXMLFile: {
        Locker<RecursiveMutex> lock(m_mutex);
        return ReadRegister(_xmlFilePath(), buffer, size);
    }
    case DeviceRegister::kUpdateXML: return ReadRegister(uint32_t{0}, buffer, size);
    default: return GC_ERR_NOT_IMPLEMENTED;
    }
}

// Empty when the selector names no stream.
std::string ZrU3VDevice::_selectedStreamId()
{
    uint32_t selector = 0;
    {
        Locker<RecursiveMutex> lock(m_mutex);
        selector = m_streamSelector;
    }
    const auto stream = m_streams.PinByIndex(selector);
    return stream ? stream->GetId() : std::string();
}

// Up to the first zero; a path that fills the register has none.
std::string_view ZrU3VDevice::_xmlFilePath()
{
    return {m_xmlFilePath, strnlen(m_xmlFilePath, sizeof(m_xmlFilePath))};
}

// Quirk Q44: no terminator is added, and what was behind a shorter path stays. The register's 512
// bytes run over the address of UpdateXML, which is harmless: both are told apart by exact address.
void ZrU3VDevice::_storeXmlFilePath(const void* buffer, size_t size)
{
    Locker<RecursiveMutex> lock(m_mutex);
    memcpy(m_xmlFilePath, buffer, std::min(size, sizeof(m_xmlFilePath)));
}

GC_ERROR ZrU3VDevice::WritePort(uint64_t address, const void* buffer, size_t* size)
{
    if (buffer == nullptr || size == nullptr) {
        return ZR_FAIL(GC_ERR_INVALID_PARAMETER, "%s failed! GC_ERR_INVALID_PARAMETER", __func__);
    }
    switch (address) {
    case DeviceRegister::kStreamSelector: {
        Locker<RecursiveMutex> lock(m_mutex);
        m_streamSelector = WrittenRegister(buffer, size);
        return GC_ERR_SUCCESS;
    }
    case DeviceRegister::kUpdateXMLFile: _storeXmlFilePath(buffer, *size); return GC_ERR_SUCCESS;
    case DeviceRegister::kUpdateXML:
        if (ZrU3VRemoteDevice* remoteDevice = _remoteDevice()) {
            std::string path;
            {
                Locker<RecursiveMutex> lock(m_mutex);
                path = _xmlFilePath();
            }
            remoteDevice->InjectXMLFromFile(path.c_str());
        }
        return GC_ERR_SUCCESS;
    default: return GC_ERR_NOT_IMPLEMENTED;
    }
}
