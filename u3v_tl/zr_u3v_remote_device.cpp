#include "zr_u3v_remote_device.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <span>
#include <stdexcept>

#include "manifest.h"
#include "module_failure.h"
#include "producer_identity.h"
#include "registers.h"
#include "u3v_bounded.h"
#include "zr_gentl_util.h"

namespace {

// Port reads go to the camera in pieces of this size.
constexpr size_t kReadPieceLength = 256;
constexpr size_t kTextLength = 1024;
constexpr uint32_t kStreamArgument = 1000; // of no meaning to the stream channel
// Read in one piece from the user-defined name on; the text ends at its first zero.
constexpr size_t kUserDefinedNameReadLength = 512;

// Formats into a text of at most 1023 characters; what is longer is cut.
std::string Format(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string Format(const char* format, ...)
{
    char text[kTextLength];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    return text;
}

// A 16-bit U3V status in a wider type keeps its sign.
int32_t Widen(uint16_t status)
{
    return static_cast<int16_t>(status);
}

template <class T>
uint16_t ReadRegister(U3V_CONTROL_HANDLE control, Register<T> reg, T& value)
{
    uint8_t bytes[sizeof(T)] = {};
    const uint16_t status = U3V_ReadMem(control, reg.address, sizeof(bytes), bytes);
    value = Load<T>(bytes, Field<T>{0});
    return status;
}

int32_t MapAccessPrivilege(uint32_t privilege)
{
    switch (privilege) {
    case 0: return DEVICE_ACCESS_STATUS_READWRITE;
    case 1: return DEVICE_ACCESS_STATUS_NOACCESS;
    case 2: return DEVICE_ACCESS_STATUS_READONLY;
    default: return DEVICE_ACCESS_STATUS_UNKNOWN;
    }
}

// Quirk Q40: vendor and model stand in this order, the TL type carries the kind, version and port
// name are empty: consumers in the field read them so.
_ZR_GENTL_PORT_INFO CameraPortInfo()
{
    _ZR_GENTL_PORT_INFO info;
    info.id = Producer::kId;
    info.vendor = Producer::kModel;
    info.model = Producer::kVendor;
    info.tlType = ZrU3VRemoteDevice::kKindName;
    info.module = ZrU3VRemoteDevice::kKindName;
    return info;
}

} // namespace

ZrU3VRemoteDevice::ZrU3VRemoteDevice(const _ZR_U3V_DEVICE_INFO& info, ZrGenTLModuleBase* parent)
    : ZrGenTLModuleBase(info.id, parent, CameraPortInfo()), m_deviceInfo(info)
{
}

ZrU3VRemoteDevice::~ZrU3VRemoteDevice()
{
    Close();
}

GC_ERROR ZrU3VRemoteDevice::Open(int32_t flags)
{
    {
        Locker<RecursiveMutex> lock(m_mutex);
        if (m_opened) {
            return ZR_FAIL(GC_ERR_RESOURCE_IN_USE, "%s GC_ERR_RESOURCE_IN_USE", __func__);
        }
    }
    // Whatever fails, also for want of memory, leaves nothing open.
    try {
        const GC_ERROR status = _openCamera(flags);
        if (status != GC_ERR_SUCCESS) {
            _closeHandles();
        }
        return status;
    } catch (...) {
        _closeHandles();
        throw;
    }
}

GC_ERROR ZrU3VRemoteDevice::_openCamera(int32_t flags)
{
    U3V_DEVICE_HANDLE device = nullptr;
    uint16_t status = U3V_OpenDevice(m_deviceInfo.id.c_str(), &device);
    m_deviceHandle = device;
    if (status != U3V_STATUS_SUCCESS) {
        return ZR_FAIL(GC_ERR_ERROR, "%s Failed! U3VApi::U3V_OpenDevice:%d", "Open", status);
    }
    U3V_CONTROL_HANDLE control = nullptr;
    status = U3V_OpenControl(device, &control);
    m_controlHandle = control;
    if (status != U3V_STATUS_SUCCESS) {
        return ZR_FAIL(GC_ERR_ERROR, "%s Failed! U3VApi::U3V_OpenControl:%d", "Open", status);
    }
    return _publishDescriptionFile(flags);
}

// Finds the camera's one description file through its manifest and announces it by URL.
GC_ERROR ZrU3VRemoteDevice::_publishDescriptionFile(int32_t flags)
{
    uint64_t tableAddress = 0;
    std::array<uint8_t, manifest_wire::kEntriesOffset + manifest_wire::kEntrySize> table{};
    uint16_t status =
        ReadRegister(m_controlHandle.load(), abrm::kManifestTableAddress, tableAddress);
    if (status == U3V_STATUS_SUCCESS) {
        status = U3V_ReadMem(m_controlHandle, tableAddress, table.size(), table.data());
    }
    if (status != U3V_STATUS_SUCCESS) {
        return ZR_FAIL(GC_ERR_ERROR,
                       "%s Failed! U3VApi::U3V_ReadMem(ABRM_ManifestTableAddress):%d ", "Open",
                       status);
    }
    const uint64_t entryCount = Load<uint64_t>(table, manifest_wire::kEntryCount);
    if (entryCount == 0) {
        return ZR_FAIL(GC_ERR_ERROR, "%s Failed! Manifest table count == 0", "Open");
    }
    const ManifestEntry file =
        ParseManifestEntry(std::span(table).subspan<manifest_wire::kEntriesOffset>());
    if (file.fileSize == 0) {
        return ZR_FAIL(GC_ERR_ERROR, "%s Failed! pManifestEntryArray[%d] nFileSize == 0", "Open",
                       0);
    }
    if (entryCount > 1) {
        // Quirk Q43: only manifests with a single file are served; the text names the entry that is
        // not, and blames its size.
        return ZR_FAIL(GC_ERR_ERROR, "%s Failed! pManifestEntryArray[%d] nFileSize == 0", "Open",
                       1);
    }
    const bool zipped = (file.fileFormat & manifest_wire::kZippedXml) != 0;
    const std::string fileName = Format("%s_v%s.%s", m_deviceInfo.model.c_str(),
                                        m_deviceInfo.version.c_str(), zipped ? "zip" : "xml");
    const std::string url = Format("local:%s;%llx;%llx", fileName.c_str(),
                                   static_cast<unsigned long long>(file.registerAddress),
                                   static_cast<unsigned long long>(file.fileSize));
    SetUrlList({url});
    Locker<RecursiveMutex> lock(m_mutex);
    m_portInfo.accessRead = true;
    m_portInfo.accessWrite = flags != DEVICE_ACCESS_READONLY;
    m_opened = true;
    return GC_ERR_SUCCESS;
}

GC_ERROR ZrU3VRemoteDevice::Close()
{
    {
        Locker<RecursiveMutex> lock(m_mutex);
        if (!m_opened) {
            return GC_ERR_SUCCESS;
        }
        m_opened = false;
    }
    return _closeHandles();
}

// Stream, control channel, device: each rests on the one after it. The status is the last one's.
GC_ERROR ZrU3VRemoteDevice::_closeHandles()
{
    uint16_t status = U3V_STATUS_SUCCESS;
    if (const U3V_STREAM_HANDLE stream = m_streamHandle.exchange(nullptr)) {
        status = U3V_CloseStream(stream);
    }
    if (const U3V_CONTROL_HANDLE control = m_controlHandle.exchange(nullptr)) {
        status = U3V_CloseControl(control);
    }
    if (const U3V_DEVICE_HANDLE device = m_deviceHandle.exchange(nullptr)) {
        status = U3V_CloseDevice(device);
    }
    return Widen(status);
}

GC_ERROR ZrU3VRemoteDevice::ReadPort(uint64_t address, void* buffer, size_t* size)
{
    if (buffer == nullptr || size == nullptr) {
        return ZR_FAIL(GC_ERR_INVALID_PARAMETER, "%s failed! GC_ERR_INVALID_PARAMETER", __func__);
    }
    const U3V_CONTROL_HANDLE control = m_controlHandle;
    if (control == nullptr) {
        return ZR_FAIL(GC_ERR_ACCESS_DENIED, "%s failed! GC_ERR_ACCESS_DENIED", __func__);
    }
    auto* destination = static_cast<uint8_t*>(buffer);
    const size_t total = *size;
    size_t done = 0;
    do {
        const size_t piece = std::min(total - done, kReadPieceLength);
        const uint16_t status =
            U3V_ReadMem(control, address + done, static_cast<int16_t>(piece), destination + done);
        if (status != U3V_STATUS_SUCCESS) {
            return ZR_FAIL(GC_ERR_IO, "%s Failed! U3VApi::U3V_ReadMem error:%d", __func__, status);
        }
        done += piece;
    } while (done < total);
    return GC_ERR_SUCCESS;
}

GC_ERROR ZrU3VRemoteDevice::WritePort(uint64_t address, const void* buffer, size_t* size)
{
    if (buffer == nullptr || size == nullptr) {
        return ZR_FAIL(GC_ERR_INVALID_PARAMETER, "%s failed! GC_ERR_INVALID_PARAMETER", __func__);
    }
    const U3V_CONTROL_HANDLE control = m_controlHandle;
    if (control == nullptr) {
        return ZR_FAIL(GC_ERR_ACCESS_DENIED, "%s failed! GC_ERR_ACCESS_DENIED", __func__);
    }
    const uint16_t status = U3V_WriteMemSized(control, address, *size, buffer);
    if (status != U3V_STATUS_SUCCESS) {
        return ZR_FAIL(GC_ERR_IO, "%s Failed! U3VApi::U3V_WriteMem error:%d", __func__, status);
    }
    return GC_ERR_SUCCESS;
}

int32_t ZrU3VRemoteDevice::GetAccessStatus()
{
    const U3V_CONTROL_HANDLE control = m_controlHandle;
    if (control == nullptr) {
        return DEVICE_ACCESS_STATUS_UNKNOWN;
    }
    uint32_t privilege = 0;
    const uint16_t status = ReadRegister(control, abrm::kAccessPrivilege, privilege);
    if (status != U3V_STATUS_SUCCESS) {
        return ZR_FAIL(GC_ERR_IO, "%s Failed! U3VApi::U3V_ReadMem error:%d", __func__, status);
    }
    return MapAccessPrivilege(privilege);
}

std::string ZrU3VRemoteDevice::GetUserDefinedName()
{
    char name[kUserDefinedNameReadLength] = {};
    const uint16_t status =
        U3V_ReadMem(m_controlHandle, abrm::kUserDefinedName.address, sizeof(name), name);
    if (status != U3V_STATUS_SUCCESS) {
        ZR_TRACE(ZR_TRACE_ERROR, "%s Failed! U3VApi::U3V_ReadMem error:%d", __func__, status);
        // Quirk Q42: an exception where every other failure is a status; callers catch this type.
        throw std::logic_error("basic_string::_M_construct null not valid");
    }
    return std::string(name, strnlen(name, sizeof(name)));
}

void ZrU3VRemoteDevice::InjectXMLFromFile(const char* path)
{
    if (path == nullptr || *path == '\0') {
        return;
    }
    SetUrlList({"file:///" + ZrGenTLUtil::UriEncode(path)});
}

bool ZrU3VRemoteDevice::IsEventImplemented(int /*eventId*/)
{
    return false;
}

GC_ERROR ZrU3VRemoteDevice::OpenStream()
{
    if (m_streamHandle != nullptr) {
        return ZR_FAIL(GC_ERR_RESOURCE_IN_USE, "%s Failed! GC_ERR_RESOURCE_IN_USE", __func__);
    }
    U3V_STREAM_HANDLE stream = nullptr;
    const uint16_t status =
        U3V_OpenStream(m_deviceHandle, m_controlHandle, &stream, kStreamArgument);
    if (status != U3V_STATUS_SUCCESS) {
        // The channel was handed out before it was opened; a stream that did not open can be tried
        // again.
        static_cast<void>(U3V_CloseStream(stream));
        return ZR_FAIL(GC_ERR_ERROR, "%s Failed! U3V_OpenStream:%d", __func__, status);
    }
    m_streamHandle = stream;
    return GC_ERR_SUCCESS;
}

// Every stream operation refuses a closed stream in the same words; `operation` traces its own
// failure.
template <class Operation>
GC_ERROR ZrU3VRemoteDevice::_onStream(const char* function, Operation&& operation)
{
    const U3V_STREAM_HANDLE stream = m_streamHandle;
    if (stream == nullptr) {
        return ZR_FAIL(GC_ERR_INVALID_HANDLE, "%s Failed! GC_ERR_INVALID_HANDLE", function);
    }
    return operation(stream);
}

GC_ERROR ZrU3VRemoteDevice::CloseStream()
{
    return _onStream(__func__, [this](U3V_STREAM_HANDLE stream) -> GC_ERROR {
        m_streamHandle = nullptr;
        const uint16_t status = U3V_CloseStream(stream);
        return status == U3V_STATUS_SUCCESS
                   ? GC_ERR_SUCCESS
                   : ZR_FAIL(GC_ERR_ERROR, "%s Failed! U3V_CloseStream:%d", "CloseStream", status);
    });
}

GC_ERROR ZrU3VRemoteDevice::SetBufferCount(uint32_t count)
{
    return _onStream(__func__, [count](U3V_STREAM_HANDLE stream) -> GC_ERROR {
        const uint16_t status = U3V_SetBufferCount(stream, count);
        return status == U3V_STATUS_SUCCESS
                   ? GC_ERR_SUCCESS
                   : ZR_FAIL(GC_ERR_ERROR, "%s Failed! U3V_SetBufferCount:%d", "SetBufferCount",
                             status);
    });
}

GC_ERROR ZrU3VRemoteDevice::SetTransferSize(uint32_t size)
{
    return _onStream(__func__, [size](U3V_STREAM_HANDLE stream) -> GC_ERROR {
        const uint16_t status = U3V_SetTransferSize(stream, size);
        // Quirk Q41: the text names the other call; log analysers in the field know it so.
        return status == U3V_STATUS_SUCCESS
                   ? GC_ERR_SUCCESS
                   : ZR_FAIL(GC_ERR_ERROR, "%s Failed! U3V_SetBufferCount:%d", "SetTransferSize",
                             status);
    });
}

GC_ERROR ZrU3VRemoteDevice::StartAcquisition(uint64_t numberOfImages)
{
    return _onStream(__func__, [numberOfImages](U3V_STREAM_HANDLE stream) -> GC_ERROR {
        // Quirk Q47: the low 32 bits; the acquisition thread counts with all 64.
        const uint16_t status = U3V_AcquisitionStart(stream, static_cast<uint32_t>(numberOfImages));
        return status == U3V_STATUS_SUCCESS
                   ? GC_ERR_SUCCESS
                   : ZR_FAIL(GC_ERR_ERROR, "%s Failed! U3V_AcquisitionStart:%d", "StartAcquisition",
                             status);
    });
}

void ZrU3VRemoteDevice::RequestStop()
{
    if (const U3V_STREAM_HANDLE stream = m_streamHandle) {
        static_cast<void>(U3V_RequestStop(stream));
    }
}

GC_ERROR ZrU3VRemoteDevice::StopAcquisition()
{
    return _onStream(__func__, [](U3V_STREAM_HANDLE stream) -> GC_ERROR {
        uint64_t imagesAcquired = 0;
        uint64_t lostCount = 0;
        const uint16_t status = U3V_AcquisitionStop(stream, &imagesAcquired, &lostCount);
        return status == U3V_STATUS_SUCCESS
                   ? GC_ERR_SUCCESS
                   : ZR_FAIL(GC_ERR_ERROR, "%s Failed! U3V_AcquisitionStop:%d", "StopAcquisition",
                             status);
    });
}

uint16_t ZrU3VRemoteDevice::GetImage(void* buffer, size_t capacity, uint32_t timeout,
                                     IMAGE_HEADER* header)
{
    const U3V_STREAM_HANDLE stream = m_streamHandle;
    if (stream == nullptr) {
        ZR_TRACE(ZR_TRACE_ERROR, "%s Failed! DS_STATUS_STREAM_INTERFACE_NOT_OPEN", __func__);
        return U3V_STATUS_STREAM_NOT_OPEN;
    }
    const uint16_t status = U3V_GetImageBounded(stream, buffer, capacity, timeout, header);
    if (status != U3V_STATUS_SUCCESS) {
        ZR_TRACE(ZR_TRACE_ERROR, "%s Failed! U3V_GetImage:%d", __func__, status);
    }
    return status;
}
