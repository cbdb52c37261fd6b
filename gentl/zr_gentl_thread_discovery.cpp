#include "zr_gentl_thread_discovery.h"

#include <algorithm>
#include <chrono>
#include <cxxabi.h>
#include <pthread.h>
#include <sched.h>

namespace {

// Whole milliseconds of a clock that nobody sets back.
uint64_t NowMs()
{
    using namespace std::chrono;
    return static_cast<uint64_t>(
        duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
}

constexpr uint32_t kAllBits = 0xFFFFFFFFu;

// Quirk Q27: how long a requester waits are the low 32 bits of the time, as a signed value; one
// without end does not wait at all.
int32_t WaitOf(uint64_t time_ms)
{
    return static_cast<int32_t>(time_ms);
}

} // namespace

ZrGenTLThreadDiscovery::ZrGenTLThreadDiscovery()
    : m_requestEvent(kRequestBit), m_doneEvent(kDoneBit)
{
}

// For a worker that a derived class has ended already this is nothing; see the header.
ZrGenTLThreadDiscovery::~ZrGenTLThreadDiscovery()
{
    RequestExit();
    Wait(-1);
}

bool ZrGenTLThreadDiscovery::Start()
{
    Locker lock(m_mutex);
    if (IsRunning()) {
        return false;
    }
    if (m_exiting) {
        _reset();
    }
    return ZrGenTLThreadBase::Start();
}

void ZrGenTLThreadDiscovery::_reset()
{
    // The kill bits of the exit before would end the new worker on its first turn.
    m_exiting = false;
    m_requestEvent.ResetEvent(kAllBits);
    m_doneEvent.ResetEvent(kAllBits);
}

uint32_t ZrGenTLThreadDiscovery::_waitForRequest()
{
    // Quirk Q25: the negative wait returns at once, so the worker polls; it gives way each time.
    const uint32_t bits = m_requestEvent.WaitForEvent(-1);
    pthread_testcancel(); // for Terminate: nothing else in an idle turn lets it in
    sched_yield();
    return bits;
}

void ZrGenTLThreadDiscovery::Run()
{
    for (;;) {
        const uint32_t bits = _waitForRequest();
        // Quirk Q26: exactly the kill bits end the worker; with the request bit beside them it
        // polls on. RequestExit therefore drops the request bit.
        if (bits == ZrEventHandler_U3V::kKillBits) {
            return;
        }
        if (bits == kRequestBit) {
            _serveRequest();
        }
    }
}

void ZrGenTLThreadDiscovery::_serveRequest()
{
    const uint64_t time_ms = _takeRequest();
    const uint64_t start = NowMs();
    bool completed = false;
    // At least one pass, however short the time; then as many as fit. A pass is never cut short.
    do {
        if (_discoverOnce() && !completed) {
            completed = true;
            _noteFirstPass();
        }
    } while (_goesOn(time_ms, NowMs() - start));
    // Quirk Q28: it stays set until a requester finds it, whichever request it was for.
    m_doneEvent.SetEvent(kDoneBit);
}

// Bit and time are one set: taken together, or a newer request's time could be lost.
uint64_t ZrGenTLThreadDiscovery::_takeRequest()
{
    Locker lock(m_mutex);
    m_requestEvent.ResetEvent(kRequestBit);
    return m_discoveryTime;
}

// No exception may leave the thread. No lock is held here: a pass takes the interface's own.
bool ZrGenTLThreadDiscovery::_discoverOnce()
{
    try {
        DoDiscovery();
        return true;
    } catch (const abi::__forced_unwind&) {
        throw; // Terminate ends the thread this way
    } catch (...) {
        return false; // a pass without memory is a pass less, not the end of the process
    }
}

void ZrGenTLThreadDiscovery::_noteFirstPass()
{
    Locker lock(m_mutex);
    ++m_firstPasses;
}

bool ZrGenTLThreadDiscovery::_goesOn(uint64_t time_ms, uint64_t elapsed_ms)
{
    Locker lock(m_mutex);
    if (m_exiting || elapsed_ms >= time_ms) {
        return false;
    }
    // A request for longer than its requester waits, as one without end is, would keep the worker
    // from every later one: it makes way. Others are served to their end.
    const bool awaited = elapsed_ms < static_cast<uint64_t>(std::max(WaitOf(time_ms), 0));
    return awaited || m_requestEvent.WaitForEvent(-1) != kRequestBit;
}

uint64_t ZrGenTLThreadDiscovery::_postRequest(uint64_t time_ms)
{
    Locker lock(m_mutex);
    m_firstPassesBefore = m_firstPasses;
    // Nothing is asked of the worker for no time, and a set request bit would keep it from its end.
    if (time_ms != 0 && !m_exiting) {
        m_discoveryTime = time_ms;
        m_requestEvent.SetEvent(kRequestBit);
    }
    return m_firstPasses;
}

bool ZrGenTLThreadDiscovery::RequestAndWaitDiscovery(uint64_t time_ms)
{
    const uint64_t passesBefore = _postRequest(time_ms);
    if (time_ms == 0) {
        return true;
    }
    if (m_doneEvent.WaitForEvent(WaitOf(time_ms)) == kDoneBit) {
        m_doneEvent.ResetEvent(kDoneBit);
        return true;
    }
    return _firstPassSince(passesBefore);
}

bool ZrGenTLThreadDiscovery::_firstPassSince(uint64_t passes)
{
    Locker lock(m_mutex);
    return m_firstPasses != passes;
}

bool ZrGenTLThreadDiscovery::IsFirstDiscoveryCompleted()
{
    Locker lock(m_mutex);
    return m_firstPasses != m_firstPassesBefore;
}

void ZrGenTLThreadDiscovery::RequestExit()
{
    // In one step with the request bit, so that a request cannot set it again.
    Locker lock(m_mutex);
    m_exiting = true;
    m_requestEvent.Kill();
    m_requestEvent.ResetEvent(kRequestBit);
    m_doneEvent.Kill();
}

void ZrGenTLThreadDiscovery::WaitForExit()
{
    Wait(-1);
}
