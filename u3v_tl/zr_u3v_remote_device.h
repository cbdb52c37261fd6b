#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

#include <zr_u3v_tl/u3v_lib.h>

#include "zr_gentl_module_base.h"
#include "zr_u3v_info.h"

// The remote device: the port into the camera's own registers, and the owner of the three USB3
// Vision handles of one opened camera. It says where the camera's description file lies and carries
// the stream operations for the Data Stream.
//
// Created, opened and destroyed by the Device module, which waits for calls inside before it
// closes. Control exchanges of several threads are serialised by the control channel; the Data
// Stream serialises the stream operations.
class ZrU3VRemoteDevice : public ZrGenTLModuleBase
{
public:
    static constexpr const char* kKindName = "Device";

    ZrU3VRemoteDevice(const _ZR_U3V_DEVICE_INFO& info, ZrGenTLModuleBase* parent);
    ~ZrU3VRemoteDevice() override;
    bool IsPortImplemented() override { return true; }
    // Camera memory in pieces of at most 256 bytes. GC_ERR_IO when the camera refuses one; *size is
    // not written.
    GC_ERROR ReadPort(uint64_t address, void* buffer, size_t* size) override;
    // One write of the whole size: what does not fit one exchange (1024 bytes) fails with
    // GC_ERR_IO.
    GC_ERROR WritePort(uint64_t address, const void* buffer, size_t* size) override;
    bool IsEventImplemented(int eventId) override;

    // Opens the camera, its control channel, and finds its description file. Nothing stays open
    // after a failure.
    GC_ERROR Open(int32_t flags);
    GC_ERROR Close();

    // The record the device was found with; never changes.
    const _ZR_U3V_DEVICE_INFO& GetDeviceInfo() const { return m_deviceInfo; }
    // A DEVICE_ACCESS_STATUS as the camera reports it; GC_ERR_IO when it cannot be asked, 0 while
    // closed.
    int32_t GetAccessStatus();
    // As the camera reports it. Raises std::logic_error when the camera cannot be read: callers
    // must be ready for it.
    std::string GetUserDefinedName();
    // Makes a local file the only description file; an empty path changes nothing.
    void InjectXMLFromFile(const char* path);

    GC_ERROR OpenStream();
    GC_ERROR CloseStream();
    GC_ERROR SetBufferCount(uint32_t count);
    GC_ERROR SetTransferSize(uint32_t size);
    GC_ERROR StartAcquisition(uint64_t numberOfImages);
    // Has a running acquisition end without waiting for it; nothing without a stream.
    void RequestStop();
    GC_ERROR StopAcquisition();
    // Waits up to `timeout` ms for an image and writes at most `capacity` bytes of it. Returns a
    // U3V status, not a GenTL code.
    uint16_t GetImage(void* buffer, size_t capacity, uint32_t timeout, IMAGE_HEADER* header);
    void PollHeartBeat() {} // kept

private:
    GC_ERROR _openCamera(int32_t flags);
    GC_ERROR _publishDescriptionFile(int32_t flags);
    GC_ERROR _closeHandles();
    // Calls `operation` with the open stream; see the source.
    template <class Operation>
    GC_ERROR _onStream(const char* function, Operation&& operation);

    const _ZR_U3V_DEVICE_INFO m_deviceInfo;
    bool m_opened ZR_GUARDED_BY(m_mutex) = false;
    std::atomic<U3V_CONTROL_HANDLE> m_controlHandle{nullptr};
    std::atomic<U3V_DEVICE_HANDLE> m_deviceHandle{nullptr};
    std::atomic<U3V_STREAM_HANDLE> m_streamHandle{nullptr};
};
