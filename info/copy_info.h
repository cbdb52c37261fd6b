#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <type_traits>
#include <zr_u3v_tl/gentl.h>

// How every information query hands a value to its caller.
//
// Without `piSize` nothing can be answered: GC_ERR_INVALID_PARAMETER. `*piType` is stored when it
// is asked for. `*piSize` is the room on entry and always the size of the answer afterwards, also
// when that did not fit. A NULL `pBuffer` makes it a query for type and size; one that is too small
// stays untouched and answers GC_ERR_BUFFER_TOO_SMALL.
namespace info {

GC_ERROR CopyBytes(INFO_DATATYPE type, const void* data, size_t length, INFO_DATATYPE* piType,
                   void* pBuffer, size_t* piSize);

// INFO_DATATYPE_STRING. The terminating zero counts and is copied, whether or not one follows the
// characters.
GC_ERROR CopyString(std::string_view value, INFO_DATATYPE* piType, void* pBuffer, size_t* piSize);

// INFO_DATATYPE_BOOL8: one byte, whatever the compiler makes of bool.
GC_ERROR CopyBool(bool value, INFO_DATATYPE* piType, void* pBuffer, size_t* piSize);

// A number or an address as it lies in memory; `type` names what it is.
template <class T>
GC_ERROR CopyValue(INFO_DATATYPE type, T value, INFO_DATATYPE* piType, void* pBuffer,
                   size_t* piSize)
{
    static_assert(std::is_arithmetic_v<T> || std::is_pointer_v<T>);
    return CopyBytes(type, &value, sizeof value, piType, pBuffer, piSize);
}

} // namespace info
