#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "image_source.h"
#include "register_map.h"
#include "zr_gentl_buffer_queue.h"
#include "zr_gentl_module_base.h"
#include "zr_u3v_thread_acquisition.h"

class ZrU3VRemoteDevice;

// The Data Stream module: owns the announced buffers, runs the acquisition thread that fills them
// from the camera's stream channel, and delivers each through its new-buffer event.
//
// Created and destroyed by the Device. Consumer threads call everything but AcquireImage and
// WaitForInputBuffer, which are the acquisition thread's. Locks, in this order: m_controlMutex
// (open, close, start, stop), m_bufferMutex (a buffer's way between the lists and the event), the
// module's, the queue's and the buffers' own.
class ZrU3VDataStream : public ZrGenTLModuleBase, public ZrImageSource
{
public:
    static constexpr const char* kKindName = "TLDataStream";

    ZrU3VDataStream(ZrU3VRemoteDevice* remote, uint32_t index, ZrGenTLModuleBase* parent);
    ~ZrU3VDataStream() override;
    bool IsPortImplemented() override { return true; }
    GC_ERROR ReadPort(uint64_t address, void* buffer, size_t* size) override;
    GC_ERROR WritePort(uint64_t address, const void* buffer, size_t* size) override;
    bool IsEventImplemented(int eventId) override;

    GC_ERROR Open();
    // Stops an acquisition first. Buffers stay announced.
    GC_ERROR Close();

    // `buffer` stays the consumer's and must live until it is revoked.
    GC_ERROR AnnounceBuffer(void* buffer, size_t size, void* userPtr, void** handle);
    // The producer allocates `size` bytes, freed on revoke. *handle must hold NULL on entry.
    GC_ERROR AllocAndAnnounceBuffer(size_t size, void* userPtr, void** handle);
    // Waits for an image that is being written into the buffer (one image time-out at most), takes
    // undelivered entries of it out of the event, and ends the handle.
    GC_ERROR RevokeBuffer(void* handle, void** buffer, void** userPtr);
    GC_ERROR QueueBuffer(void* handle);
    GC_ERROR FlushQueue(int32_t operation);
    GC_ERROR StartAcquisition(int32_t flags, uint64_t count);
    GC_ERROR StopAcquisition(int32_t flags) override;
    // Tells a running acquisition to end, without waiting for it: the Close that follows does.
    void RequestStop();
    GC_ERROR GetBufferID(uint32_t index, void** handle);
    GC_ERROR GetBufferInfo(void* handle, int32_t cmd, int32_t* type, void* buffer, size_t* size);
    GC_ERROR GetInfo(int32_t cmd, int32_t* type, void* buffer, size_t* size);

    GC_ERROR AcquireImage() override;
    void WaitForInputBuffer() override;

private:
    void _endAcquisition() ZR_REQUIRES(m_controlMutex);
    void _endOwnAcquisition();
    void _setAcquiring(bool acquiring);
    void _wakeAcquisition();
    void _queueUnqueued() ZR_REQUIRES(m_bufferMutex);
    void _flushEvent() ZR_REQUIRES(m_bufferMutex);
    void _signalInput() ZR_REQUIRES(m_bufferMutex);
    void _discardInput() ZR_REQUIRES(m_bufferMutex);
    GC_ERROR _announce(std::unique_ptr<ZrGenTLBuffer> buffer, void** handle)
        ZR_REQUIRES(m_bufferMutex);
    GC_ERROR _deliver(ZrGenTLBuffer& buffer, const ZrGenTLImage& image);
    bool _handOut(ZrGenTLBuffer& buffer, const ZrGenTLImage& image, ZrGenTLEvent* event);
    bool _isAcquiring();
    bool _hasAllImages();
    void _limitTo(uint64_t count);
    uint64_t _deliveredCount();
    size_t _numAwaitDelivery();

    bool m_open ZR_GUARDED_BY(m_mutex) = false;
    bool m_acquiring ZR_GUARDED_BY(m_mutex) = false;
    ZrU3VRemoteDevice* const m_pRemoteDevice;
    ZrGenTLBufferQueue m_BufferContainer;
    std::unique_ptr<ZrU3VThreadAcquisition> m_threadAcquisition;
    const std::string m_streamId;
    uint64_t m_delivered ZR_GUARDED_BY(m_mutex) = 0;
    // The delivered count that completes the running acquisition.
    uint64_t m_deliveredAtEnd ZR_GUARDED_BY(m_mutex) = UINT64_MAX;
    // Nothing counts under-runs or sets the two flags below; consumers read them as constants.
    const uint64_t m_underrun = 0;
    const bool m_isGrabbing = false;
    const bool m_definesPayloadSize = false;
    const std::string m_tlType;
    const ZrRegisterDocument m_document;

    Mutex m_controlMutex;
    Mutex m_bufferMutex;
    // Signalled when the input list gains a buffer and when an acquisition is to end.
    Condition m_inputChanged;
};
