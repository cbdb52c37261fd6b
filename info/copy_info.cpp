#include "copy_info.h"

#include <cstring>

namespace info {

GC_ERROR CopyBytes(INFO_DATATYPE type, const void* data, size_t length, INFO_DATATYPE* piType,
                   void* pBuffer, size_t* piSize)
{
    if (piSize == nullptr) {
        return GC_ERR_INVALID_PARAMETER;
    }
    const size_t capacity = *piSize;
    if (piType != nullptr) {
        *piType = type;
    }
    // Also when the copy fails for want of room, so that the caller knows what to come back with.
    *piSize = length;
    if (pBuffer == nullptr) {
        return GC_ERR_SUCCESS;
    }
    if (capacity < length) {
        return GC_ERR_BUFFER_TOO_SMALL;
    }
    // memcpy is not even to be called with NULL.
    if (data != nullptr && length != 0) {
        memcpy(pBuffer, data, length);
    }
    return GC_ERR_SUCCESS;
}

GC_ERROR CopyString(std::string_view value, INFO_DATATYPE* piType, void* pBuffer, size_t* piSize)
{
    const size_t capacity = piSize != nullptr ? *piSize : 0;
    const GC_ERROR status =
        CopyBytes(INFO_DATATYPE_STRING, nullptr, value.size() + 1, piType, pBuffer, piSize);
    if (status == GC_ERR_SUCCESS && pBuffer != nullptr && capacity > value.size()) {
        auto* const text = static_cast<char*>(pBuffer);
        text[value.copy(text, value.size())] = '\0';
    }
    return status;
}

GC_ERROR CopyBool(bool value, INFO_DATATYPE* piType, void* pBuffer, size_t* piSize)
{
    return CopyValue<uint8_t>(INFO_DATATYPE_BOOL8, value ? 1 : 0, piType, pBuffer, piSize);
}

} // namespace info
