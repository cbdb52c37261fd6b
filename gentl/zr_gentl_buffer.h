#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "use_gate.h"
#include "zr_sync.h"
#include <zr_u3v_tl/gentl.h>

// An image as a buffer describes it.
struct ZrGenTLImage
{
    size_t sizeFilled = 0; // bytes
    uint64_t frameId = 0;
    uint64_t timestamp = 0;
    size_t width = 0;  // pixels
    size_t height = 0; // lines
    uint64_t pixelFormat = 0;
    bool incomplete = false;
};

// The record behind a BUFFER_HANDLE: one announced buffer, its state flags and the description of
// the last image in it. The data stream creates and destroys it; the buffer queue's lists refer to
// it.
class ZrGenTLBuffer
{
public:
    // `buffer` is the consumer's memory; when it is NULL and `allocate` is set, the record
    // allocates `size` bytes of its own (std::bad_alloc when it cannot). `tlType` NULL means "GEV".
    ZrGenTLBuffer(void* buffer, size_t size, bool allocate, void* userPtr, const char* tlType);
    ~ZrGenTLBuffer();
    ZrGenTLBuffer(const ZrGenTLBuffer&) = delete;
    ZrGenTLBuffer& operator=(const ZrGenTLBuffer&) = delete;

    // An image has come into the memory: its description and the flags in one step.
    void DescribeImage(const ZrGenTLImage& image);
    // The description alone; `data`, when there is any, goes into a consumer's memory.
    void UpdateData(size_t sizeFilled, uint64_t frameId, uint64_t timestamp, size_t width,
                    size_t height, uint64_t pixelFormat, uint8_t* data); // kept

    bool IsQueued();
    void SetQueueFlag(bool value);
    void SetNewDataFlag(bool value);
    void SetIncompleteFlag(bool value); // kept
    void SetAcquiringFlag(bool value);  // kept

    // Fixed after construction but for UpdateData with foreign memory.
    uint8_t* GetBase();
    size_t GetSize();
    std::span<uint8_t> GetMemory();
    void* GetUserPtr();

    GC_ERROR GetInfo(int32_t cmd, int32_t* type, void* buffer, size_t* size);

    // Entered by calls on the buffer's handle and by the acquisition while it writes into the
    // memory.
    UseGate& Gate() { return m_gate; }

private:
    // A member under the mutex.
    template <class T>
    T _read(T ZrGenTLBuffer::*member) ZR_EXCLUDES(m_mutex);
    template <class T>
    void _write(T ZrGenTLBuffer::*member, T value) ZR_EXCLUDES(m_mutex);
    void _describe(const ZrGenTLImage& image) ZR_REQUIRES(m_mutex);
    // How many bytes a copy into the consumer's memory may have.
    size_t _copyCapacity() const ZR_REQUIRES(m_mutex);

    GC_ERROR _getBase(int32_t* type, void* buffer, size_t* size);
    GC_ERROR _getSize(int32_t* type, void* buffer, size_t* size);
    GC_ERROR _getUserPtr(int32_t* type, void* buffer, size_t* size);
    GC_ERROR _getTimeStamp(int32_t* type, void* buffer, size_t* size);
    GC_ERROR _getIsNewData(int32_t* type, void* buffer, size_t* size);
    GC_ERROR _getIsQueued(int32_t* type, void* buffer, size_t* size);
    GC_ERROR _getIsAcquiring(int32_t* type, void* buffer, size_t* size);
    GC_ERROR _getIsIncomplete(int32_t* type, void* buffer, size_t* size);
    GC_ERROR _getTLType(int32_t* type, void* buffer, size_t* size);
    GC_ERROR _getSizeFilled(int32_t* type, void* buffer, size_t* size);
    GC_ERROR _getWidth(int32_t* type, void* buffer, size_t* size);
    GC_ERROR _getHeight(int32_t* type, void* buffer, size_t* size);
    GC_ERROR _getFrameId(int32_t* type, void* buffer, size_t* size);
    GC_ERROR _getPixelFormat(int32_t* type, void* buffer, size_t* size);

    bool m_allocated ZR_GUARDED_BY(m_mutex) = false;
    uint8_t* m_base ZR_GUARDED_BY(m_mutex) = nullptr;
    size_t m_size ZR_GUARDED_BY(m_mutex) = 0;
    void* m_userPtr ZR_GUARDED_BY(m_mutex) = nullptr;
    uint64_t m_timestamp ZR_GUARDED_BY(m_mutex) = 0;
    bool m_newData ZR_GUARDED_BY(m_mutex) = false;
    bool m_queued ZR_GUARDED_BY(m_mutex) = false;
    bool m_acquiring ZR_GUARDED_BY(m_mutex) = false;
    bool m_incomplete ZR_GUARDED_BY(m_mutex) = false;
    std::string m_tlType ZR_GUARDED_BY(m_mutex);
    size_t m_sizeFilled ZR_GUARDED_BY(m_mutex) = 0;
    size_t m_width ZR_GUARDED_BY(m_mutex) = 0;
    size_t m_height ZR_GUARDED_BY(m_mutex) = 0;
    uint64_t m_frameId ZR_GUARDED_BY(m_mutex) = 0;
    uint64_t m_pixelFormat ZR_GUARDED_BY(m_mutex) = 0;
    bool m_consumerMemory ZR_GUARDED_BY(m_mutex) = false;
    RecursiveMutex m_mutex;
    UseGate m_gate;
};
