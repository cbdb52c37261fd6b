#pragma once

#include "u3v_bounded.h"

#include <cstdint>
#include <utility>
#include <zr_u3v_tl/u3v_lib.h>

class U3V_Device;
class U3V_Control;
class U3V_Stream;

// How the flat functions reach the classes: which class a handle stands for, the null test, and the
// end of every exception.

template <class Handle>
struct U3V_HandleTarget;
template <>
struct U3V_HandleTarget<U3V_DEVICE_HANDLE>
{
    using Type = U3V_Device;
};
template <>
struct U3V_HandleTarget<U3V_CONTROL_HANDLE>
{
    using Type = U3V_Control;
};
template <>
struct U3V_HandleTarget<U3V_STREAM_HANDLE>
{
    using Type = U3V_Stream;
};

template <class Handle>
typename U3V_HandleTarget<Handle>::Type* U3V_FromHandle(Handle handle)
{
    return reinterpret_cast<typename U3V_HandleTarget<Handle>::Type*>(handle);
}

template <class Handle>
Handle U3V_ToHandle(typename U3V_HandleTarget<Handle>::Type* object)
{
    return reinterpret_cast<Handle>(object);
}

// Runs `function`; any exception becomes U3V_STATUS_EXCEPTION.
template <class Function>
uint16_t U3V_Guarded(Function&& function)
{
    try {
        return std::forward<Function>(function)();
    } catch (...) {
        return U3V_STATUS_EXCEPTION;
    }
}

// Runs `function` on the object behind `handle`. A null handle, or a null among the pointers that
// the function needs, is U3V_STATUS_INVALID_HANDLE before anything else happens.
template <class Handle, class Function, class... Pointers>
uint16_t U3V_Call(Handle handle, Function&& function, const Pointers*... needed)
{
    if (handle == nullptr || (... || (needed == nullptr))) {
        return U3V_STATUS_INVALID_HANDLE;
    }
    return U3V_Guarded([&] { return std::forward<Function>(function)(*U3V_FromHandle(handle)); });
}
