#include "u3v_lib.h"

#include "u3v_control.h"
#include "u3v_device.h"
#include "u3v_discovery.h"
#include "u3v_stream.h"

#include "zr_no_destroy.h"
#include "zr_sync.h"

#include <memory>
#include <vector>

namespace {

// The one discovery of the process. Calls hold it shared, so a close during a pass takes effect
// when the pass has ended.
class DiscoverySlot
{
public:
    std::shared_ptr<U3V_Discovery> Get() ZR_EXCLUDES(m_mutex)
    {
        Locker lock(m_mutex);
        return m_current;
    }

    // Quirk Q73: an earlier discovery is replaced without being closed, since devices opened from
    // it may live on; it stays reachable here.
    void Replace(std::shared_ptr<U3V_Discovery> next) ZR_EXCLUDES(m_mutex)
    {
        Locker lock(m_mutex);
        if (m_current != nullptr) {
            m_replaced.push_back(m_current);
        }
        m_current = std::move(next);
    }

    std::shared_ptr<U3V_Discovery> Take() ZR_EXCLUDES(m_mutex)
    {
        Locker lock(m_mutex);
        return std::exchange(m_current, nullptr);
    }

private:
    Mutex m_mutex;
    std::shared_ptr<U3V_Discovery> m_current ZR_GUARDED_BY(m_mutex);
    std::vector<std::shared_ptr<U3V_Discovery>> m_replaced ZR_GUARDED_BY(m_mutex);
};

// Never destroyed: at process end libusb may be gone before us.
DiscoverySlot& TheDiscovery()
{
    static ZrNoDestroy<DiscoverySlot> slot;
    return slot.Get();
}

// The same shell for what needs the discovery instead of a handle.
template <class Function, class... Pointers>
uint16_t CallDiscovery(Function&& function, const Pointers*... needed)
{
    const auto discovery = TheDiscovery().Get();
    if (discovery == nullptr || (... || (needed == nullptr))) {
        return U3V_STATUS_INVALID_HANDLE;
    }
    return U3V_Guarded([&] { return std::forward<Function>(function)(*discovery); });
}

// Destroys the object behind a handle; the handle owned it.
template <class Handle>
uint16_t Close(Handle handle)
{
    return U3V_Call(handle, [](auto& object) {
        delete &object;
        return U3V_STATUS_SUCCESS;
    });
}

// Makes the object of a new handle. The caller has it from here on, also when opening it fails.
template <class Handle, class... Arguments>
auto& MakeHandle(Handle* out, Arguments... arguments)
{
    auto* object = new typename U3V_HandleTarget<Handle>::Type(arguments...);
    *out = U3V_ToHandle<Handle>(object);
    return *object;
}

} // namespace

uint16_t U3V_DiscoveryOpen()
{
    return U3V_Guarded([] {
        TheDiscovery().Replace(std::make_shared<U3V_Discovery>());
        return U3V_STATUS_SUCCESS;
    });
}

uint16_t U3V_DiscoveryClose()
{
    return U3V_Guarded([] {
        const auto closed = TheDiscovery().Take();
        return closed != nullptr ? U3V_STATUS_SUCCESS : U3V_STATUS_INVALID_HANDLE;
    });
}

uint16_t U3V_DiscoveryDevices(uint16_t* pnCount)
{
    return CallDiscovery(
        [&](U3V_Discovery& discovery) {
            const uint16_t status = discovery.Discovery();
            *pnCount = static_cast<uint16_t>(discovery.DeviceCount());
            return status;
        },
        pnCount);
}

uint16_t U3V_GetDeviceInfo(uint16_t nIndex, U3V_DEVICE_INFO* pInfo)
{
    return CallDiscovery(
        [&](U3V_Discovery& discovery) {
            const auto device = discovery.DeviceAt(nIndex);
            if (device == nullptr) {
                return U3V_STATUS_DEVICE_NOT_FOUND;
            }
            *pInfo = device->Record();
            return U3V_STATUS_SUCCESS;
        },
        pInfo);
}

uint16_t U3V_OpenDevice(const char* sGUID, U3V_DEVICE_HANDLE* phDevice)
{
    return CallDiscovery(
        [&](U3V_Discovery& discovery) -> uint16_t {
            // Quirk Q74: the handle is given out before anything is known about the camera, and has
            // to be closed after a failure too.
            U3V_Device& device = MakeHandle(phDevice);
            auto info = discovery.FindByGUID(sGUID);
            if (info == nullptr) {
                return U3V_STATUS_DEVICE_NOT_FOUND;
            }
            return device.OpenDevice(std::move(info));
        },
        sGUID, phDevice);
}

uint16_t U3V_CloseDevice(U3V_DEVICE_HANDLE hDevice)
{
    return Close(hDevice);
}

uint16_t U3V_OpenControl(U3V_DEVICE_HANDLE hDevice, U3V_CONTROL_HANDLE* phControl)
{
    return U3V_Call(
        hDevice, [&](U3V_Device& device) { return MakeHandle(phControl, &device).OpenControl(); },
        phControl);
}

uint16_t U3V_CloseControl(U3V_CONTROL_HANDLE hControl)
{
    return Close(hControl);
}

uint16_t U3V_ReadMem(U3V_CONTROL_HANDLE hControl, uint64_t nAddress, int16_t nLength,
                     void* pDestination)
{
    return U3V_Call(hControl, [&](U3V_Control& control) {
        return control.ReadMem(nAddress, pDestination, nLength);
    });
}

uint16_t U3V_WriteMem(U3V_CONTROL_HANDLE hControl, uint64_t nAddress, int16_t nLength,
                      const void* pSource)
{
    return U3V_Call(hControl, [&](U3V_Control& control) {
        return control.WriteMem(nAddress, pSource, nLength);
    });
}

uint16_t U3V_WriteMemSized(U3V_CONTROL_HANDLE hControl, uint64_t nAddress, size_t length,
                           const void* pSource)
{
    return U3V_Call(hControl, [&](U3V_Control& control) {
        return control.WriteMemSized(nAddress, pSource, length);
    });
}

uint16_t U3V_MaximumDeviceResponseTime(U3V_CONTROL_HANDLE hControl, uint32_t* pnMilliseconds)
{
    return U3V_Call(
        hControl,
        [&](U3V_Control& control) { return control.MaximumDeviceResponseTime(pnMilliseconds); },
        pnMilliseconds);
}

uint16_t U3V_OpenStream(U3V_DEVICE_HANDLE hDevice, U3V_CONTROL_HANDLE hControl,
                        U3V_STREAM_HANDLE* phStream, uint32_t /*nArgument*/)
{
    return U3V_Call(
        hDevice,
        [&](U3V_Device& device) {
            return MakeHandle(phStream, &device, U3V_FromHandle(hControl)).OpenStream();
        },
        hControl, phStream);
}

uint16_t U3V_CloseStream(U3V_STREAM_HANDLE hStream)
{
    return Close(hStream);
}

uint16_t U3V_AcquisitionStart(U3V_STREAM_HANDLE hStream, uint32_t nImagesToAcquire)
{
    return U3V_Call(hStream,
                    [&](U3V_Stream& stream) { return stream.AcquisitionStart(nImagesToAcquire); });
}

uint16_t U3V_RequestStop(U3V_STREAM_HANDLE hStream)
{
    return U3V_Call(hStream, [](U3V_Stream& stream) {
        stream.RequestStop();
        return U3V_STATUS_SUCCESS;
    });
}

uint16_t U3V_AcquisitionStop(U3V_STREAM_HANDLE hStream, uint64_t* pnImagesAcquired,
                             uint64_t* pnLostCount)
{
    return U3V_Call(
        hStream,
        [&](U3V_Stream& stream) { return stream.AcquisitionStop(pnImagesAcquired, pnLostCount); },
        pnImagesAcquired, pnLostCount);
}

uint16_t U3V_GetImage(U3V_STREAM_HANDLE hStream, void* pDestination, uint32_t nTimeout,
                      IMAGE_HEADER* pHeader)
{
    return U3V_GetImageBounded(hStream, pDestination, SIZE_MAX, nTimeout, pHeader);
}

uint16_t U3V_GetImageBounded(U3V_STREAM_HANDLE hStream, void* pDestination, size_t capacity,
                             uint32_t nTimeout, IMAGE_HEADER* pHeader)
{
    return U3V_Call(
        hStream,
        [&](U3V_Stream& stream) {
            return stream.GetImage(pDestination, capacity, nTimeout, pHeader);
        },
        static_cast<const uint8_t*>(pDestination), pHeader);
}

uint16_t U3V_GetTransferSize(U3V_STREAM_HANDLE hStream, uint32_t* pnTransferSize)
{
    return U3V_Call(
        hStream,
        [&](U3V_Stream& stream) {
            *pnTransferSize = stream.TransferSize();
            return U3V_STATUS_SUCCESS;
        },
        pnTransferSize);
}

uint16_t U3V_SetTransferSize(U3V_STREAM_HANDLE hStream, uint32_t nTransferSize)
{
    return U3V_Call(hStream, [&](U3V_Stream& stream) {
        stream.SetTransferSize(nTransferSize);
        return U3V_STATUS_SUCCESS;
    });
}

uint16_t U3V_GetBufferCount(U3V_STREAM_HANDLE hStream, uint32_t* pnBufferCount)
{
    return U3V_Call(
        hStream,
        [&](U3V_Stream& stream) {
            *pnBufferCount = stream.BufferCount();
            return U3V_STATUS_SUCCESS;
        },
        pnBufferCount);
}

uint16_t U3V_SetBufferCount(U3V_STREAM_HANDLE hStream, uint32_t nBufferCount)
{
    return U3V_Call(hStream, [&](U3V_Stream& stream) {
        stream.SetBufferCount(nBufferCount);
        return U3V_STATUS_SUCCESS;
    });
}
