#pragma once

#include <cstdint>

#include "zr_event_handler.h"
#include "zr_gentl_thread.h"

// The worker that repeats a discovery routine for a requested time. One per open Interface. It
// polls its request event (a negative wait returns at once) and gives way on each turn:
// _waitForRequest is the one place that decides how it waits.
//
// The done event is manual: what one request's passes have set, the next requester may find and
// take. Several requesters at once are not mixed up, but share the worker: what the first one asked
// for is done first.
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

    // Requests discovery for `time_ms` and waits as long for the end of one that was requested,
    // this one or an earlier one; true when it came, or when the first pass of a request was
    // completed during the wait. 0 runs no pass and is true.
    bool RequestAndWaitDiscovery(uint64_t time_ms);
    // A first pass was completed since the newest request.
    bool IsFirstDiscoveryCompleted(); // kept
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
    uint64_t _takeRequest();
    bool _discoverOnce();
    void _noteFirstPass();
    // The worker goes on with a request for `time_ms` that it took up `elapsed_ms` ago.
    bool _goesOn(uint64_t time_ms, uint64_t elapsed_ms);
    uint64_t _postRequest(uint64_t time_ms);
    bool _firstPassSince(uint64_t passes);

    uint64_t m_discoveryTime ZR_GUARDED_BY(m_mutex) = 0; // ms
    // First passes that were completed so far, and how many of them when the newest request came.
    uint64_t m_firstPasses ZR_GUARDED_BY(m_mutex) = 0;
    uint64_t m_firstPassesBefore ZR_GUARDED_BY(m_mutex) = 0;
    bool m_exiting ZR_GUARDED_BY(m_mutex) = false;
};
