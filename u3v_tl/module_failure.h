#pragma once

#include "zr_trace.h"
#include <zr_u3v_tl/gentl.h>

// Traces a failure at error level and is the status to return:
//     return ZR_FAIL(GC_ERR_INVALID_ID, "%s GC_ERR_INVALID_ID", __func__);
// A macro so that the compiler checks each format against its arguments.
#define ZR_FAIL(status, ...) (ZR_TRACE(ZR_TRACE_ERROR, __VA_ARGS__), static_cast<GC_ERROR>(status))
