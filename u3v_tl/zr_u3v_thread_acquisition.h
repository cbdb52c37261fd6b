#pragma once

#include <cstdint>

#include "image_source.h"
#include "zr_gentl_thread.h"

// The acquisition thread of a Data Stream: asks it for one image after the other until it is
// stopped or has the requested number. One per stream, started once per acquisition.
class ZrU3VThreadAcquisition : public ZrGenTLThreadBase
{
public:
    explicit ZrU3VThreadAcquisition(ZrImageSource* pSource);
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
    enum class Turn
    {
        End,
        Complete, // all images are there
        Image
    };
    Turn _nextTurn(uint64_t acquired);
    bool _acquireImage();

    ZrImageSource* const m_source;
    bool m_stop ZR_GUARDED_BY(m_mutex) = false;
    uint64_t m_numToAcquire ZR_GUARDED_BY(m_mutex);
};
