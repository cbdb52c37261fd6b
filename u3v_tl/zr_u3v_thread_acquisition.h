#pragma once

#include <cstdint>

#include "zr_gentl_thread.h"

class ZrU3VDataStream;

// The acquisition thread of a Data Stream: asks the stream for one image after the other until it
// is stopped or has the requested number. One per stream, started once per acquisition.
class ZrU3VThreadAcquisition : public ZrGenTLThreadBase
{
public:
    explicit ZrU3VThreadAcquisition(ZrU3VDataStream* pDataStream);
    ~ZrU3VThreadAcquisition() override;
    using ZrGenTLThreadBase::Start;
    void Run() override;

    // Starts with a number of images to acquire (GENTL_INFINITE: no limit). False, and nothing
    // changed, while the thread runs.
    bool Start(uint64_t count);
    // Sets the stop flag; does not join.
    void Stop();
    bool IsStopRequested();

private:
    bool _hasAcquired(uint64_t acquired);
    bool _acquireImage();

    ZrU3VDataStream* const m_pDataStream;
    bool m_bStop ZR_GUARDED_BY(m_mutex) = false;
    uint64_t m_nNumToAcquire ZR_GUARDED_BY(m_mutex);
};
