#include "zr_gentl_buffer.h"

#include <algorithm>
#include <cstring>

#include "zr_gentl_util.h"

ZrGenTLBuffer::ZrGenTLBuffer(void* buffer, size_t size, bool allocate, void* userPtr,
                             const char* tlType)
    : m_base(static_cast<uint8_t*>(buffer)), m_size(size), m_userPtr(userPtr),
      // Quirk Q17: the buffers of this USB3 Vision producer name "GEV" as their transport layer.
      m_tlType(tlType != nullptr ? tlType : "GEV"), m_consumerMemory(buffer != nullptr)
{
    // Last, because nothing after it can throw and leave the memory behind.
    if (buffer == nullptr && allocate) {
        m_base = new uint8_t[size];
        m_allocated = true;
    }
}

// A consumer's memory stays the consumer's; what was adopted in UpdateData is not ours either.
ZrGenTLBuffer::~ZrGenTLBuffer()
{
    if (m_allocated) {
        delete[] m_base;
        m_base = nullptr;
    }
}

// All under one hold, so that no query sees the size of one image with the format of another.
// "Being filled" is over with it.
void ZrGenTLBuffer::DescribeImage(const ZrGenTLImage& image)
{
    Locker lock(m_mutex);
    m_newData = true;
    m_incomplete = image.incomplete;
    _describe(image);
}

void ZrGenTLBuffer::_describe(const ZrGenTLImage& image)
{
    m_sizeFilled = image.sizeFilled;
    m_frameId = image.frameId;
    m_timestamp = image.timestamp;
    m_width = image.width;
    m_height = image.height;
    m_pixelFormat = image.pixelFormat;
}

void ZrGenTLBuffer::UpdateData(size_t sizeFilled, uint64_t frameId, uint64_t timestamp,
                               size_t width, size_t height, uint64_t pixelFormat, uint8_t* data)
{
    Locker lock(m_mutex);
    _describe({sizeFilled, frameId, timestamp, width, height, pixelFormat, m_incomplete});
    if (data == nullptr) {
        return;
    }
    if (m_consumerMemory && m_base != nullptr) {
        // The source may lie in the buffer itself.
        memmove(m_base, data, std::min(_copyCapacity(), sizeFilled));
    } else if (!m_allocated) {
        m_base = data;
    }
}

size_t ZrGenTLBuffer::_copyCapacity() const
{
    // Quirk Q18: the size counts as a signed 32-bit value here. From 2 GiB on that is too small, or
    // negative; a negative one means nothing, the real size bounds the copy then.
    const auto size32 = static_cast<int32_t>(m_size);
    return size32 < 0 ? m_size : static_cast<size_t>(size32);
}

template <class T>
T ZrGenTLBuffer::_read(T ZrGenTLBuffer::*member)
{
    Locker lock(m_mutex);
    return this->*member;
}

template <class T>
void ZrGenTLBuffer::_write(T ZrGenTLBuffer::*member, T value)
{
    Locker lock(m_mutex);
    this->*member = value;
}

bool ZrGenTLBuffer::IsQueued()
{
    return _read(&ZrGenTLBuffer::m_queued);
}

void ZrGenTLBuffer::SetQueueFlag(bool value)
{
    _write(&ZrGenTLBuffer::m_queued, value);
}

void ZrGenTLBuffer::SetNewDataFlag(bool value)
{
    _write(&ZrGenTLBuffer::m_newData, value);
}

void ZrGenTLBuffer::SetIncompleteFlag(bool value)
{
    _write(&ZrGenTLBuffer::m_incomplete, value);
}

void ZrGenTLBuffer::SetAcquiringFlag(bool value)
{
    _write(&ZrGenTLBuffer::m_acquiring, value);
}

uint8_t* ZrGenTLBuffer::GetBase()
{
    return _read(&ZrGenTLBuffer::m_base);
}

size_t ZrGenTLBuffer::GetSize()
{
    return _read(&ZrGenTLBuffer::m_size);
}

std::span<uint8_t> ZrGenTLBuffer::GetMemory()
{
    Locker lock(m_mutex);
    return {m_base, m_size};
}

void* ZrGenTLBuffer::GetUserPtr()
{
    return _read(&ZrGenTLBuffer::m_userPtr);
}

GC_ERROR ZrGenTLBuffer::GetInfo(int32_t cmd, int32_t* type, void* buffer, size_t* size)
{
    if (type == nullptr || size == nullptr) {
        return GC_ERR_INVALID_PARAMETER;
    }
    // Before the command is looked at: a failing query leaves zeros, not what was there.
    ZrGenTLUtil::ClearInfoBuffer(buffer, size);
    switch (cmd) {
    case BUFFER_INFO_BASE: return _getBase(type, buffer, size);
    case BUFFER_INFO_SIZE: return _getSize(type, buffer, size);
    case BUFFER_INFO_USER_PTR: return _getUserPtr(type, buffer, size);
    case BUFFER_INFO_TIMESTAMP: return _getTimeStamp(type, buffer, size);
    case BUFFER_INFO_NEW_DATA: return _getIsNewData(type, buffer, size);
    case BUFFER_INFO_IS_QUEUED: return _getIsQueued(type, buffer, size);
    case BUFFER_INFO_IS_ACQUIRING: return _getIsAcquiring(type, buffer, size);
    case BUFFER_INFO_IS_INCOMPLETE: return _getIsIncomplete(type, buffer, size);
    case BUFFER_INFO_TLTYPE: return _getTLType(type, buffer, size);
    case BUFFER_INFO_SIZE_FILLED: return _getSizeFilled(type, buffer, size);
    case BUFFER_INFO_WIDTH: return _getWidth(type, buffer, size);
    case BUFFER_INFO_HEIGHT: return _getHeight(type, buffer, size);
    case BUFFER_INFO_FRAMEID: return _getFrameId(type, buffer, size);
    case BUFFER_INFO_PAYLOADTYPE:
        // Quirk Q19: an image, also before the first one.
        return ZrGenTLUtil::CopyInfoSizeT(PAYLOAD_TYPE_IMAGE, type, buffer, size);
    case BUFFER_INFO_PIXELFORMAT: return _getPixelFormat(type, buffer, size);
    default: return GC_ERR_NOT_IMPLEMENTED;
    }
}

// Each getter reads its member under the mutex and hands it out after releasing it.

GC_ERROR ZrGenTLBuffer::_getBase(int32_t* type, void* buffer, size_t* size)
{
    return ZrGenTLUtil::CopyInfoPtr(GetBase(), type, buffer, size);
}

GC_ERROR ZrGenTLBuffer::_getSize(int32_t* type, void* buffer, size_t* size)
{
    return ZrGenTLUtil::CopyInfoSizeT(GetSize(), type, buffer, size);
}

GC_ERROR ZrGenTLBuffer::_getUserPtr(int32_t* type, void* buffer, size_t* size)
{
    return ZrGenTLUtil::CopyInfoPtr(GetUserPtr(), type, buffer, size);
}

GC_ERROR ZrGenTLBuffer::_getTimeStamp(int32_t* type, void* buffer, size_t* size)
{
    return ZrGenTLUtil::CopyInfoUint64(_read(&ZrGenTLBuffer::m_timestamp), type, buffer, size);
}

GC_ERROR ZrGenTLBuffer::_getIsNewData(int32_t* type, void* buffer, size_t* size)
{
    return ZrGenTLUtil::CopyInfoBool(_read(&ZrGenTLBuffer::m_newData), type, buffer, size);
}

GC_ERROR ZrGenTLBuffer::_getIsQueued(int32_t* type, void* buffer, size_t* size)
{
    return ZrGenTLUtil::CopyInfoBool(IsQueued(), type, buffer, size);
}

GC_ERROR ZrGenTLBuffer::_getIsAcquiring(int32_t* type, void* buffer, size_t* size)
{
    return ZrGenTLUtil::CopyInfoBool(_read(&ZrGenTLBuffer::m_acquiring), type, buffer, size);
}

GC_ERROR ZrGenTLBuffer::_getIsIncomplete(int32_t* type, void* buffer, size_t* size)
{
    return ZrGenTLUtil::CopyInfoBool(_read(&ZrGenTLBuffer::m_incomplete), type, buffer, size);
}

GC_ERROR ZrGenTLBuffer::_getTLType(int32_t* type, void* buffer, size_t* size)
{
    return ZrGenTLUtil::CopyInfoString(_read(&ZrGenTLBuffer::m_tlType), type, buffer, size);
}

GC_ERROR ZrGenTLBuffer::_getSizeFilled(int32_t* type, void* buffer, size_t* size)
{
    return ZrGenTLUtil::CopyInfoSizeT(_read(&ZrGenTLBuffer::m_sizeFilled), type, buffer, size);
}

// The three that describe an image are unknown while they are 0.

GC_ERROR ZrGenTLBuffer::_getWidth(int32_t* type, void* buffer, size_t* size)
{
    const size_t width = _read(&ZrGenTLBuffer::m_width);
    return width == 0 ? GC_ERR_NOT_IMPLEMENTED
                      : ZrGenTLUtil::CopyInfoSizeT(width, type, buffer, size);
}

GC_ERROR ZrGenTLBuffer::_getHeight(int32_t* type, void* buffer, size_t* size)
{
    const size_t height = _read(&ZrGenTLBuffer::m_height);
    return height == 0 ? GC_ERR_NOT_IMPLEMENTED
                       : ZrGenTLUtil::CopyInfoSizeT(height, type, buffer, size);
}

GC_ERROR ZrGenTLBuffer::_getFrameId(int32_t* type, void* buffer, size_t* size)
{
    return ZrGenTLUtil::CopyInfoUint64(_read(&ZrGenTLBuffer::m_frameId), type, buffer, size);
}

GC_ERROR ZrGenTLBuffer::_getPixelFormat(int32_t* type, void* buffer, size_t* size)
{
    const uint64_t pixelFormat = _read(&ZrGenTLBuffer::m_pixelFormat);
    return pixelFormat == 0 ? GC_ERR_NOT_IMPLEMENTED
                            : ZrGenTLUtil::CopyInfoUint64(pixelFormat, type, buffer, size);
}
