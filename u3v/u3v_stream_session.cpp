#include "u3v_stream_session.h"

#include "u3v_common.h"

#include "packets.h"
#include "zr_deadline.h"
#include "zr_no_destroy.h"

#include <algorithm>
#include <chrono>
#include <climits>
#include <cstdio>
#include <limits>
#include <new>
#include <thread>
#include <vector>
#include <zr_u3v_tl/zr_logging.h>

namespace {

constexpr size_t kFirstBlockSize = 0x10000;
// More buffers than any consumer announces; beyond it the request is as good as out of memory.
constexpr uint32_t kMaximumBufferCount = 65536;
// What an acquisition without limit is cut to.
constexpr uint32_t kNoLimit = 0xFFFFFFFF;

// Sessions whose transfer the bus never gave back. Never destroyed as a whole: at process end the
// bus may still hold them.
struct Orphans
{
    Mutex mutex;
    std::vector<std::shared_ptr<U3V_StreamSession>> sessions ZR_GUARDED_BY(mutex);
};

Orphans& TheOrphans()
{
    static ZrNoDestroy<Orphans> orphans;
    return orphans.Get();
}

} // namespace

std::chrono::milliseconds U3V_RetryPause::Next(bool overflow)
{
    if (overflow && m_nOverflows < m_nPacketsOfImage) {
        ++m_nOverflows;
        return std::chrono::milliseconds(0);
    }
    const auto pause = std::min(m_Next, m_Longest);
    m_Next = 2 * pause;
    return pause;
}

void U3V_RetryPause::Reset()
{
    m_Next = kFirst;
    m_nOverflows = 0;
}

U3V_StreamSession::U3V_StreamSession(Setup setup, uint32_t bufferCount)
    : m_Setup(std::move(setup)), m_RetryPause(m_Setup.timings.retryPause, m_Setup.plan.payload)
{
    _allocate(bufferCount);
    m_Payload = m_Setup.handover->Begin(m_Cycle);
}

void U3V_StreamSession::_allocate(uint32_t bufferCount)
{
    const U3V_StreamPlan& plan = m_Setup.plan;
    if (plan.payload > std::numeric_limits<uint32_t>::max() || bufferCount > kMaximumBufferCount) {
        throw std::bad_alloc(); // no buffer can be that large, no process has that many
    }
    const uint64_t images = uint64_t{bufferCount} + U3V_ImageCycle::kExtraBlocks;
    U3V_RequireMemory(plan.payload * images + plan.leader + plan.trailer);
    UsbBlockSource source(m_Setup.handle);
    // The camera may name a leader shorter than the fields in it; those read as zero.
    m_LeaderBlock = source.Allocate(plan.leader);
    m_TrailerBlock = source.Allocate(plan.trailer);
    m_FirstBlock = source.Allocate(kFirstBlockSize);
    m_Cycle = std::make_shared<U3V_ImageCycle>(
        source, bufferCount, static_cast<size_t>(plan.payload), plan.transferSize);
}

int U3V_StreamSession::Submit(libusb_transfer_cb_fn callback)
{
    m_Transfer.reset(libusb_alloc_transfer(0));
    if (m_Transfer == nullptr) {
        return LIBUSB_ERROR_NO_MEM;
    }
    libusb_fill_bulk_transfer(m_Transfer.get(), m_Setup.handle.get(), m_Setup.endpoint,
                              m_FirstBlock.Data(), static_cast<int>(m_FirstBlock.Size()), callback,
                              this, m_Setup.timings.transferTimeout);
    {
        // Before the submit: the completion may be here before the submit returns.
        Locker lock(m_DoneMutex);
        m_Self = shared_from_this();
        m_bInFlight = true;
    }
    const int result = libusb_submit_transfer(m_Transfer.get());
    if (result < 0) {
        m_Transfer.reset();
        _end();
    }
    return result;
}

bool U3V_StreamSession::_mustServe() const
{
    // In this order: a pause begins before a stop only, and nobody is abandoned before the stop.
    return (!m_bAbandoned && (!m_bStop || m_bInFlight)) || m_bPaused;
}

void U3V_StreamSession::ServeEvents()
{
    while (_mustServe()) {
        if (m_bPaused) {
            _recover();
        } else {
            _serveOnce();
        }
    }
}

void U3V_StreamSession::_serveOnce()
{
    timeval wait{};
    wait.tv_sec = static_cast<time_t>(m_Setup.timings.eventWait / 1000);
    wait.tv_usec = static_cast<suseconds_t>(m_Setup.timings.eventWait % 1000 * 1000);
    if (libusb_handle_events_timeout(nullptr, &wait) < 0) {
        // A bus that fails at once must not cost a whole processor.
        std::this_thread::sleep_for(std::chrono::milliseconds(m_Setup.timings.eventPause));
    }
}

void U3V_StreamSession::Complete(libusb_transfer* transfer)
{
    // In flight, so it owns itself; held here for whatever this completion ends.
    const auto session = static_cast<U3V_StreamSession*>(transfer->user_data)->shared_from_this();
    session->_complete();
}

// Also what came before a time-out or an error is in the block.
void U3V_StreamSession::_noteWritten()
{
    if (m_nPayloadOffset.has_value()) {
        m_Payload.Written(*m_nPayloadOffset, _received());
    }
}

void U3V_StreamSession::_complete()
{
    _noteWritten();
    bool failed = false;
    switch (m_Transfer->status) {
    case LIBUSB_TRANSFER_CANCELLED: _endWith("Cancelled"); return;
    case LIBUSB_TRANSFER_NO_DEVICE: _endWith("No Device"); return;
    case LIBUSB_TRANSFER_COMPLETED:
        m_RetryPause.Reset();
        _advance();
        break;
    case LIBUSB_TRANSFER_TIMED_OUT: std::puts("Timeout (normal)"); break;
    default:
        std::printf("Unknown transfer code: %d\n", static_cast<int>(m_Transfer->status));
        failed = true;
    }
    _goOn(failed);
}

void U3V_StreamSession::_endWith(const char* text)
{
    m_Transfer.reset();
    std::puts(text);
    _end();
}

// Bytes that arrived, at most what was asked for.
uint32_t U3V_StreamSession::_received() const
{
    return static_cast<uint32_t>(std::clamp(m_Transfer->actual_length, 0, m_Transfer->length));
}

void U3V_StreamSession::_advance()
{
    switch (U3V_KindOfPacket(m_Setup.plan, _received())) {
    case U3V_PacketKind::Leader: _takeLeader(); break;
    case U3V_PacketKind::Payload: _takePayload(); break;
    case U3V_PacketKind::Final1: _read(m_TrailerBlock.Bytes(), m_TrailerBlock.Size()); break;
    case U3V_PacketKind::Trailer: _takeTrailer(); break;
    case U3V_PacketKind::Other: break; // the same read again
    }
}

// Says where the next read goes. Never beyond the block, whatever sizes the camera named; libusb's
// lengths are signed.
void U3V_StreamSession::_read(std::span<uint8_t> block, uint64_t length)
{
    m_Transfer->buffer = block.data();
    m_Transfer->length =
        static_cast<int>(std::min<uint64_t>({length, block.size(), uint64_t{INT_MAX}}));
    m_nPayloadOffset.reset();
}

void U3V_StreamSession::_readPayload(uint64_t offset, uint64_t length)
{
    _read(m_Payload.ReadAt(offset), length);
    m_nPayloadOffset = offset;
}

void U3V_StreamSession::_takeLeader()
{
    namespace wire = leader_wire;
    // From wherever it was read to: the first-read block, later the leader block.
    const std::span<const uint8_t> leader(m_Transfer->buffer, _received());
    m_Leader.nBlockId = Load(leader, wire::kBlockId);
    m_Leader.nTimestamp = Load(leader, wire::kTimestamp);
    m_Leader.nPixelFormat = Load(leader, wire::kPixelFormat);
    m_Leader.nSizeX = Load(leader, wire::kSizeX);
    m_Leader.nSizeY = Load(leader, wire::kSizeY);
    m_Leader.nOffsetX = Load(leader, wire::kOffsetX);
    m_Leader.nOffsetY = Load(leader, wire::kOffsetY);
    m_Leader.nPaddingX = Load(leader, wire::kPaddingX);
    m_bLeaderPending = true;

    m_nReceived = m_Setup.plan.NextPayload(0);
    _readPayload(0, m_nReceived);
}

void U3V_StreamSession::_takePayload()
{
    const uint64_t length = m_Setup.plan.NextPayload(m_nReceived);
    if (length == 0) { // the image is complete
        _read(m_TrailerBlock.Bytes(), m_TrailerBlock.Size());
        return;
    }
    _readPayload(m_nReceived, length);
    m_nReceived += length;
}

void U3V_StreamSession::_takeTrailer()
{
    ++m_nNumImagesAcquired;
    // Quirk Q66: the whole image goes out, also where its payload never came; there it is the one
    // before.
    m_Setup.handover->Publish(m_Cycle, m_Payload, m_bLeaderPending ? &m_Leader : nullptr);
    m_bLeaderPending = false;
    _read(m_LeaderBlock.Bytes(), m_LeaderBlock.Size());
}

void U3V_StreamSession::_goOn(bool failed)
{
    // Quirk Q67: compared after every completion, so with 0 images to acquire the first one ends
    // the acquisition, whatever it was. Without a limit there is nothing to reach: a line may run
    // for more images than the count can tell.
    if (m_Setup.imagesToAcquire != kNoLimit && m_nNumImagesAcquired == m_Setup.imagesToAcquire) {
        m_bStop = true;
    }
    if (!failed || !_pause()) {
        _resubmitOrStop();
    }
}

// Leaves the transfer to the event thread; false when there is nothing left to go on with. The flag
// is set under the lock of the stop, which therefore either is seen here or sees the event thread
// at it.
bool U3V_StreamSession::_pause()
{
    {
        Locker lock(m_DoneMutex);
        if (m_bStop) {
            return false;
        }
        m_bPaused = true;
    }
    // From here on the session is the event thread's. It may be waiting for libusb's next event.
    libusb_interrupt_event_handler(nullptr);
    return true;
}

// A halt stays until it is cleared, also for the next process, and a transfer into it fails at
// once: without the pause that would be all that a processor does.
void U3V_StreamSession::_recover()
{
    const bool overflow = m_Transfer->status == LIBUSB_TRANSFER_OVERFLOW;
    std::this_thread::sleep_for(m_RetryPause.Next(overflow));
    libusb_clear_halt(m_Setup.handle.get(), m_Setup.endpoint);
    m_bPaused = false;
    _resubmitOrStop();
}

void U3V_StreamSession::_resubmitOrStop()
{
    if (m_bStop) {
        _finish();
        return;
    }
    const int result = libusb_submit_transfer(m_Transfer.get());
    if (result < 0) {
        std::printf("Unable to submit URB. libusb error code: %d\n", result);
        m_Transfer.reset();
        _end();
    }
}

// The end that a stop waits for. The transfer goes first, so that nobody who was told "done" finds
// it alive; the session itself goes last.
void U3V_StreamSession::_finish()
{
    m_Transfer.reset();
    {
        Locker lock(m_DoneMutex);
        m_bDone = true;
    }
    m_Done.Signal();
    // Quirk Q68: the count that is logged is the one asked for, not the one reached.
    g_logger.Trace(ZR_LOG_DEBUG, "%s m_nNumImagesAcquired: %i ", "image_callback",
                   static_cast<int>(m_Setup.imagesToAcquire));
    _end();
}

// From here on nothing is in flight and nothing of this session is touched by libusb any more. The
// session no longer keeps itself, so it may be destroyed as soon as the caller lets go of it.
void U3V_StreamSession::_end()
{
    std::shared_ptr<U3V_StreamSession> self; // outlives the lock
    Locker lock(m_DoneMutex);
    self.swap(m_Self);
    m_bInFlight = false;
    m_Ended.Broadcast();
}

// The flag is set and the wait begun under one lock: what has ended before does not count.
void U3V_StreamSession::_beginStop()
{
    if (!m_StopDeadline.has_value()) {
        m_bStop = true;
        m_bDone = false;
        m_StopDeadline = ZrDeadlineAfter(m_Setup.timings.stopWait);
    }
}

void U3V_StreamSession::RequestStop()
{
    Locker lock(m_DoneMutex);
    _beginStop();
}

bool U3V_StreamSession::StopAndAwaitDone()
{
    Locker lock(m_DoneMutex);
    _beginStop();
    const timespec deadline = *m_StopDeadline;
    m_StopDeadline.reset(); // a stop that is repeated begins anew
    while (!m_bDone) {
        if (m_Done.TimedWait(m_DoneMutex, deadline) != 0) {
            return m_bDone;
        }
    }
    return true;
}

void U3V_StreamSession::StopAndRelease(int32_t wait_ms)
{
    {
        Locker lock(m_DoneMutex);
        m_bStop = true;
        const timespec deadline = ZrDeadlineAfter(wait_ms);
        while (m_bInFlight && m_Ended.TimedWait(m_DoneMutex, deadline) == 0) {
        }
        if (!m_bInFlight) {
            return;
        }
    }
    {
        Locker lock(TheOrphans().mutex);
        TheOrphans().sessions.push_back(shared_from_this());
    }
    // Should the transfer come back after all, another thread's turn at libusb will take it.
    m_bAbandoned = true;
}

void U3V_StreamSession::FreeBlocks()
{
    if (m_bInFlight) {
        return;
    }
    m_Transfer.reset();
    for (UsbBlock* block : {&m_LeaderBlock, &m_TrailerBlock, &m_FirstBlock}) {
        *block = {};
    }
    m_Payload = {};
    m_Cycle.reset();
}

void U3V_StreamSession::ReapOrphans()
{
    std::vector<std::shared_ptr<U3V_StreamSession>> ended; // freed without the lock
    Locker lock(TheOrphans().mutex);
    auto& sessions = TheOrphans().sessions;
    const auto split = std::partition(sessions.begin(), sessions.end(),
                                      [](const auto& session) { return !!session->m_bInFlight; });
    ended.assign(std::make_move_iterator(split), std::make_move_iterator(sessions.end()));
    sessions.erase(split, sessions.end());
}
