#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "register_map.h"
#include "zr_gentl_module_base.h"
#include "zr_gentl_module_container.h"
#include "zr_u3v_info.h"
#include "zr_u3v_remote_device.h"

class ZrU3VDataStream;

// The Device module: the local side of one opened camera. It owns the Remote Device (the camera's
// own register space) and the one Data Stream.
//
// Created, opened and destroyed by the Interface. Any consumer thread may call; the stream's
// acquisition thread never calls into the device.
class ZrU3VDevice : public ZrGenTLModuleBase
{
public:
    static constexpr const char* kKindName = "TLDevice";

    ZrU3VDevice(const _ZR_U3V_DEVICE_INFO& info, ZrGenTLModuleBase* parent);
    ~ZrU3VDevice() override;
    bool IsPortImplemented() override { return true; }
    GC_ERROR ReadPort(uint64_t address, void* buffer, size_t* size) override;
    GC_ERROR WritePort(uint64_t address, const void* buffer, size_t* size) override;
    bool IsEventImplemented(int eventId) override;

    // Opens the camera and creates its stream; a failure leaves nothing behind. Access flags
    // READONLY, CONTROL and EXCLUSIVE are accepted.
    GC_ERROR Open(int32_t flags);
    // Closes and destroys stream and remote device, whatever state they are in, once no call is
    // inside any of the three.
    GC_ERROR Close();
    // Tells a running acquisition to end, without waiting for it: the Close that follows does.
    void RequestStop();

    // The remote device, as a port handle; NULL while closed.
    GC_ERROR GetPort(void** port);
    GC_ERROR GetNumDataStreams(uint32_t* count);
    GC_ERROR GetDataStreamID(uint32_t index, char* id, size_t* size);
    GC_ERROR OpenDataStream(const char* id, void** stream);
    // Access status and user-defined name ask the camera; everything else is answered from the
    // record.
    GC_ERROR GetInfo(int32_t cmd, int32_t* type, void* buffer, size_t* size);

private:
    using RecordField = std::string _ZR_U3V_DEVICE_INFO::*;

    GC_ERROR _copyRecordField(RecordField field, int32_t* type, void* buffer, size_t* size);
    GC_ERROR _getId(int32_t* type, void* buffer, size_t* size);
    GC_ERROR _getVendor(int32_t* type, void* buffer, size_t* size);
    GC_ERROR _getModel(int32_t* type, void* buffer, size_t* size);
    GC_ERROR _getTLType(int32_t* type, void* buffer, size_t* size);
    GC_ERROR _getDisplayName(int32_t* type, void* buffer, size_t* size);
    GC_ERROR _getAccessStatus(int32_t* type, void* buffer, size_t* size);
    GC_ERROR _getUserDefinedName(int32_t* type, void* buffer, size_t* size);
    GC_ERROR _getSerialNumber(int32_t* type, void* buffer, size_t* size);
    GC_ERROR _getVersion(int32_t* type, void* buffer, size_t* size);
    GC_ERROR _getTimestampFreq(int32_t* type, void* buffer, size_t* size);

    ZrU3VRemoteDevice* _remoteDevice();
    void _adopt(std::unique_ptr<ZrU3VRemoteDevice> remoteDevice,
                std::unique_ptr<ZrU3VDataStream> stream);
    void _closeStreams();
    std::string _selectedStreamId();
    std::string_view _xmlFilePath() ZR_REQUIRES(m_mutex);
    void _storeXmlFilePath(const void* buffer, size_t size);

    bool m_open ZR_GUARDED_BY(m_mutex) = false;
    std::unique_ptr<ZrU3VRemoteDevice> m_pRemoteDevice ZR_GUARDED_BY(m_mutex);
    const _ZR_U3V_DEVICE_INFO m_deviceInfo;
    ZrGenTLModuleContainer m_streams;
    uint32_t m_streamSelector ZR_GUARDED_BY(m_mutex) = 0;
    char m_xmlFilePath[DeviceRegister::kUpdateXMLFileLength] ZR_GUARDED_BY(m_mutex) = {};
    const ZrRegisterDocument m_document;
};
