#pragma once

#include <cstddef>
#include <zr_u3v_tl/u3v_lib.h>

// U3V_GetImage with the size of the destination, for callers whose memory may be smaller than the
// image: at most `capacity` bytes are written, and an image that does not fit is answered with
// U3V_STATUS_IMAGE_MISSING_PACKETS and nMissingBytes 0 (the destination itself is full). Not
// exported: the flat C interface has no size argument.
uint16_t U3V_GetImageBounded(U3V_STREAM_HANDLE hStream, void* pDestination, size_t capacity,
                             uint32_t nTimeout, IMAGE_HEADER* pHeader);

// Has a running acquisition end without waiting for it; U3V_AcquisitionStop then waits from here
// on. Not exported either: for whoever ends several streams at once. U3V_STATUS_SUCCESS, also when
// nothing runs.
uint16_t U3V_RequestStop(U3V_STREAM_HANDLE hStream);

// U3V_WriteMem for lengths that an int16_t does not hold: more than the 1024 bytes that one
// exchange carries is refused with U3V_STATUS_GENCP_INVALID_PARAMETER.
uint16_t U3V_WriteMemSized(U3V_CONTROL_HANDLE hControl, uint64_t nAddress, size_t length,
                           const void* pSource);
