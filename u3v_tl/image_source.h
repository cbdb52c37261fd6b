#pragma once

#include <cstdint>
#include <zr_u3v_tl/gentl.h>

// What an acquisition thread asks of the stream it works for. It calls everything on itself.
class ZrImageSource
{
public:
    // Fills the first buffer of the input list with the next image and delivers it; waits up to 200
    // ms for an image. GC_ERR_SUCCESS for an image that was delivered.
    virtual GC_ERROR AcquireImage() = 0;
    // Returns as soon as there is a buffer to fill or the acquisition is to end.
    virtual void WaitForInputBuffer() = 0;
    virtual GC_ERROR StopAcquisition(int32_t flags) = 0;

protected:
    ~ZrImageSource() = default;
};
