#include "zr_gentl_thread_discovery.h"

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
    uint64_t request = 0;
    uint64_t time_ms = 0;
    {
        Locker lock(m_mutex);
        // Bit, number and time are one set: taken together, so that a newer request's time is never
        // used for an older number.
        m_requestEvent.ResetEvent(kRequestBit);
        request = m_requestNumber;
        time_ms = m_discoveryTime;
    }
    const uint64_t start = NowMs();
    if (time_ms != 0) {
        // At least one pass, however short the time; then as many as fit. A pass is never cut
        // short.
        do {
            if (_discoverOnce()) {
                _notePass(request);
            }
        } while (NowMs() - start < time_ms && _isWanted(request));
    }
    _noteServed(request);
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

void ZrGenTLThreadDiscovery::_notePass(uint64_t request)
{
    Locker lock(m_mutex);
    if (request == m_requestNumber) {
        m_firstDiscoveryCompleted = true;
    }
}

bool ZrGenTLThreadDiscovery::_isWanted(uint64_t request)
{
    Locker lock(m_mutex);
    return !m_exiting && request == m_requestNumber;
}

void ZrGenTLThreadDiscovery::_noteServed(uint64_t request)
{
    Locker lock(m_mutex);
    if (request == m_requestNumber) {
        m_servedNumber = request;
        m_doneEvent.SetEvent(kDoneBit);
    }
}

uint64_t ZrGenTLThreadDiscovery::_postRequest(uint64_t time_ms)
{
    Locker lock(m_mutex);
    m_discoveryTime = time_ms;
    // An earlier request's result must not answer this one: neither its flag nor its done bit.
    m_firstDiscoveryCompleted = false;
    m_doneEvent.ResetEvent(kDoneBit); // an earlier request's
    if (time_ms == 0 || m_exiting) {
        m_requestEvent.ResetEvent(kRequestBit);
    } else {
        m_requestEvent.SetEvent(kRequestBit);
    }
    return ++m_requestNumber;
}

bool ZrGenTLThreadDiscovery::RequestAndWaitDiscovery(uint64_t time_ms)
{
    const uint64_t request = _postRequest(time_ms);
    if (time_ms == 0) {
        return true;
    }
    // Quirk Q27: the wait takes the low 32 bits of the time, as a signed value: a request without
    // end does not wait at all.
    return _resultOf(request, m_doneEvent.WaitForEvent(static_cast<int32_t>(time_ms)));
}

bool ZrGenTLThreadDiscovery::_resultOf(uint64_t request, uint32_t doneBits)
{
    Locker lock(m_mutex);
    // Time-out, or released by RequestExit: what counts is whether this time a pass was completed.
    if (doneBits != kDoneBit) {
        return m_firstDiscoveryCompleted;
    }
    if (request == m_requestNumber) {
        m_doneEvent.ResetEvent(kDoneBit);
    } else if (m_servedNumber == m_requestNumber) {
        // The wake-up was meant for the newer request's waiter: it is passed on.
        m_doneEvent.SetEvent(kDoneBit);
    }
    return m_servedNumber >= request || m_firstDiscoveryCompleted;
}

bool ZrGenTLThreadDiscovery::IsFirstDiscoveryCompleted()
{
    Locker lock(m_mutex);
    return m_firstDiscoveryCompleted;
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
