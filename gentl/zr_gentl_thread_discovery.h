#pragma once

#include <cstdint>

#include "zr_event_handler.h"
#include "zr_gentl_thread.h"

// The worker that repeats a discovery routine for a requested time. One per open Interface. It
// polls its request event (a negative wait returns at once) and gives way on each turn:
// _waitForRequest is the one place that decides how it waits. One requester at a time is served: a
// newer request takes an older one's place.
class ZrGenTLThreadDiscovery : public ZrGenTLThreadBase
{
public:
    static constexpr uint32_t kRequestBit = 1;
    static constexpr uint32_t kDoneBit = 16;

    ZrGenTLThreadDiscovery();
    // Ends the worker. A derived class does that itself, with RequestExit and WaitForExit in its
    // own destructor: DoDiscovery needs its members.
    ~ZrGenTLThreadDiscovery() override;
    // False if the worker runs already. A worker that was told to exit can be started again.
    bool Start() override;
    void Run() override;
    // Slot after Run: one discovery pass, on the worker thread.
    virtual void DoDiscovery() = 0;

    // Requests discovery for `time_ms` and waits as long; true when it has been done for the whole
    // time, or at least one pass of this request was completed when the wait ended. 0 runs no pass
    // and is true. Never answers with an earlier request's result.
    bool RequestAndWaitDiscovery(uint64_t time_ms);
    bool IsFirstDiscoveryCompleted();
    // Tells the worker to end after the pass it is in, and releases a requester that waits.
    void RequestExit();
    void WaitForExit();

protected:
    // The worker's waiting: returns the state of the request event.
    virtual uint32_t _waitForRequest();

    ZrEventHandler_U3V m_requestEvent;
    ZrEventHandler_U3V m_doneEvent;

private:
    void _reset() ZR_REQUIRES(m_mutex);
    // One request, pass after pass until its time is over.
    void _serveRequest();
    bool _discoverOnce();
    // The pass counts for the request, unless a newer one has taken its place.
    void _notePass(uint64_t request);
    // The worker is to go on with this request.
    bool _isWanted(uint64_t request);
    void _noteServed(uint64_t request);
    uint64_t _postRequest(uint64_t time_ms);
    bool _resultOf(uint64_t request, uint32_t doneBits);

    bool m_firstDiscoveryCompleted ZR_GUARDED_BY(m_mutex) = false;
    uint64_t m_discoveryTime ZR_GUARDED_BY(m_mutex) = 0; // ms
    // Number of the newest request, and of the newest one that was served to its end. The done bit
    // always belongs to the newest request.
    uint64_t m_requestNumber ZR_GUARDED_BY(m_mutex) = 0;
    uint64_t m_servedNumber ZR_GUARDED_BY(m_mutex) = 0;
    bool m_exiting ZR_GUARDED_BY(m_mutex) = false;
};
