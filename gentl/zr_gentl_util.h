#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include <zr_u3v_tl/gentl.h>

// Static helpers that every module shares. The CopyInfo family hands a value to the caller of an
// information query by the rule of copy_info.h.
class ZrGenTLUtil
{
public:
    // Each hands `value` out with its INFO_DATATYPE code. `piType` may be NULL; a NULL `pBuffer` is
    // a size query. Returns GC_ERR_INVALID_PARAMETER (NULL piSize), GC_ERR_BUFFER_TOO_SMALL (buffer
    // untouched, required size written) or success.
    static GC_ERROR CopyInfoString(std::string_view value, int* piType, void* pBuffer,
                                   size_t* piSize);
    static GC_ERROR CopyInfoInt16(int16_t value, int* piType, void* pBuffer,
                                  size_t* piSize); // kept
    static GC_ERROR CopyInfoUint16(uint16_t value, int* piType, void* pBuffer,
                                   size_t* piSize); // kept
    static GC_ERROR CopyInfoInt32(int32_t value, int* piType, void* pBuffer, size_t* piSize);
    static GC_ERROR CopyInfoUint32(uint32_t value, int* piType, void* pBuffer, size_t* piSize);
    static GC_ERROR CopyInfoInt64(int64_t value, int* piType, void* pBuffer,
                                  size_t* piSize); // kept
    static GC_ERROR CopyInfoUint64(uint64_t value, int* piType, void* pBuffer, size_t* piSize);
    static GC_ERROR CopyInfoFloat64(double value, int* piType, void* pBuffer,
                                    size_t* piSize); // kept
    static GC_ERROR CopyInfoPtr(void* value, int* piType, void* pBuffer, size_t* piSize);
    static GC_ERROR CopyInfoBool(bool value, int* piType, void* pBuffer, size_t* piSize);
    static GC_ERROR CopyInfoSizeT(size_t value, int* piType, void* pBuffer, size_t* piSize);
    static GC_ERROR CopyInfoBuffer(const void* data, size_t length, int* piType, void* pBuffer,
                                   size_t* piSize);

    // Zeroes the caller's buffer before a query fills it, so that nothing of its old content
    // remains behind a short answer. Does nothing for a NULL buffer or size.
    static void ClearInfoBuffer(void* pBuffer, const size_t* piSize);

    // Blank to "%20"; every other byte unchanged.
    static std::string UriEncode(const std::string& text);
    // "%XX" (either case) to its byte; the last two bytes are always copied as they stand.
    static std::string UriDecode(const std::string& text); // kept
    // "00-11-22-33-44-55" to 0x001122334455; 0 when fewer than six numbers are read.
    static uint64_t ConvertMacAddress(const std::string& text); // kept

    // Copies of the four embedded register-description documents.
    static std::string CreateXMLSystem();
    static std::string CreateXMLInterface();
    static std::string CreateXMLDevice();
    static std::string CreateXMLDataStream();
};
