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
    if (overflow && m_overflows < m_packetsOfImage) {
        ++m_overflows;
        return std::chrono::milliseconds(0);
    }
    const auto pause = std::min(m_next, m_longest);
    m_next = 2 * pause;
    return pause;
}

void U3V_RetryPause::Reset()
{
    m_next = kFirst;
    m_overflows = 0;
}

U3V_StreamSession::U3V_StreamSession(Setup setup, uint32_t bufferCount)
    : m_setup(std::move(setup)), m_retryPause(m_setup.timings.retryPause, m_setup.plan.payload)
{
    _allocate(bufferCount);
    m_payload = m_setup.handover->Begin(m_cycle);
}

void U3V_StreamSession::_allocate(uint32_t bufferCount)
{
    const U3V_StreamPlan& plan = m_setup.plan;
    if (plan.payload > std::numeric_limits<uint32_t>::max() || bufferCount > kMaximumBufferCount) {
        throw std::bad_alloc(); // no buffer can be that large, no process has that many
    }
    const uint64_t images = uint64_t{bufferCount} + U3V_ImageCycle::kExtraBlocks;
    U3V_RequireMemory(plan.payload * images + plan.leader + plan.trailer);
    UsbBlockSource source(m_setup.handle);
    // The camera may name a leader shorter than the fields in it; those read as zero.
    m_leaderBlock = source.Allocate(plan.leader);
    m_trailerBlock = source.Allocate(plan.trailer);
    m_firstBlock = source.Allocate(kFirstBlockSize);
    m_cycle = std::make_shared<U3V_ImageCycle>(
        source, bufferCount, static_cast<size_t>(plan.payload), plan.transferSize);
}

int U3V_StreamSession::Submit(libusb_transfer_cb_fn callback)
{
    m_transfer.reset(libusb_alloc_transfer(0));
    if (m_transfer == nullptr) {
        return LIBUSB_ERROR_NO_MEM;
    }
    libusb_fill_bulk_transfer(m_transfer.get(), m_setup.handle.get(), m_setup.endpoint,
                              m_firstBlock.Data(), static_cast<int>(m_firstBlock.Size()), callback,
                              this, m_setup.timings.transferTimeout);
    {
        // Before the submit: the completion may be here before the submit returns.
        Locker lock(m_doneMutex);
        m_self = shared_from_this();
        m_inFlight = true;
    }
    const int result = libusb_submit_transfer(m_transfer.get());
    if (result < 0) {
        m_transfer.reset();
        _end();
    }
    return result;
}

bool U3V_StreamSession::_mustServe() const
{
    // In this order: a pause begins before a stop only, and nobody is abandoned before the stop.
    return (!m_abandoned && (!m_stop || m_inFlight)) || m_paused;
}

void U3V_StreamSession::ServeEvents()
{
    while (_mustServe()) {
        if (m_paused) {
            _recover();
        } else {
            _serveOnce();
        }
    }
}

void U3V_StreamSession::_serveOnce()
{
    timeval wait{};
    wait.tv_sec = static_cast<time_t>(m_setup.timings.eventWait / 1000);
    wait.tv_usec = static_cast<suseconds_t>(m_setup.timings.eventWait % 1000 * 1000);
    if (libusb_handle_events_timeout(nullptr, &wait) < 0) {
        // A bus that fails at once must not cost a whole processor.
        std::this_thread::sleep_for(std::chrono::milliseconds(m_setup.timings.eventPause));
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
    if (m_payloadOffset.has_value()) {
        m_payload.Written(*m_payloadOffset, _received());
    }
}

void U3V_StreamSession::_complete()
{
    _noteWritten();
    bool failed = false;
    switch (m_transfer->status) {
    case LIBUSB_TRANSFER_CANCELLED: _endWith("Cancelled"); return;
    case LIBUSB_TRANSFER_NO_DEVICE: _endWith("No Device"); return;
    case LIBUSB_TRANSFER_COMPLETED:
        m_retryPause.Reset();
        _advance();
        break;
    case LIBUSB_TRANSFER_TIMED_OUT: std::puts("Timeout (normal)"); break;
    default:
        std::printf("Unknown transfer code: %d\n", static_cast<int>(m_transfer->status));
        failed = true;
    }
    _goOn(failed);
}

void U3V_StreamSession::_endWith(const char* text)
{
    m_transfer.reset();
    std::puts(text);
    _end();
}

// Bytes that arrived, at most what was asked for.
uint32_t U3V_StreamSession::_received() const
{
    return static_cast<uint32_t>(std::clamp(m_transfer->actual_length, 0, m_transfer->length));
}

void U3V_StreamSession::_advance()
{
    switch (U3V_KindOfPacket(m_setup.plan, _received())) {
    case U3V_PacketKind::Leader: _takeLeader(); break;
    case U3V_PacketKind::Payload: _takePayload(); break;
    case U3V_PacketKind::Final1: _read(m_trailerBlock.Bytes(), m_trailerBlock.Size()); break;
    case U3V_PacketKind::Trailer: _takeTrailer(); break;
    case U3V_PacketKind::Other: break; // the same read again
    }
}

// Says where the next read goes. Never beyond the block, whatever sizes the camera named; libusb's
// lengths are signed.
void U3V_StreamSession::_read(std::span<uint8_t> block, uint64_t length)
{
    m_transfer->buffer = block.data();
    m_transfer->length =
        static_cast<int>(std::min<uint64_t>({length, block.size(), uint64_t{INT_MAX}}));
    m_payloadOffset.reset();
}

void U3V_StreamSession::_readPayload(uint64_t offset, uint64_t length)
{
    _read(m_payload.ReadAt(offset), length);
    m_payloadOffset = offset;
}

void U3V_StreamSession::_takeLeader()
{
    namespace wire = leader_wire;
    // From wherever it was read to: the first-read block, later the leader block.
    const std::span<const uint8_t> leader(m_transfer->buffer, _received());
    m_leader.nBlockId = Load(leader, wire::kBlockId);
    m_leader.nTimestamp = Load(leader, wire::kTimestamp);
    m_leader.nPixelFormat = Load(leader, wire::kPixelFormat);
    m_leader.nSizeX = Load(leader, wire::kSizeX);
    m_leader.nSizeY = Load(leader, wire::kSizeY);
    m_leader.nOffsetX = Load(leader, wire::kOffsetX);
    m_leader.nOffsetY = Load(leader, wire::kOffsetY);
    m_leader.nPaddingX = Load(leader, wire::kPaddingX);
    m_leaderPending = true;

    m_received = m_setup.plan.NextPayload(0);
    _readPayload(0, m_received);
}

void U3V_StreamSession::_takePayload()
{
    const uint64_t length = m_setup.plan.NextPayload(m_received);
    if (length == 0) { // the image is complete
        _read(m_trailerBlock.Bytes(), m_trailerBlock.Size());
        return;
    }
    _readPayload(m_received, length);
    m_received += length;
}

void U3V_StreamSession::_takeTrailer()
{
    ++m_nNumImagesAcquired;
    // Quirk Q66: the whole image goes out, also where its payload never came; there it is the one
    // before.
    m_setup.handover->Publish(m_cycle, m_payload, m_leaderPending ? &m_leader : nullptr);
    m_leaderPending = false;
    _read(m_leaderBlock.Bytes(), m_leaderBlock.Size());
}

void U3V_StreamSession::_goOn(bool failed)
{
    // Quirk Q67: compared after every completion, so with 0 images to acquire the first one ends
    // the acquisition, whatever it was. Without a limit there is nothing to reach: a line may run
    // for more images than the count can tell.
    if (m_setup.imagesToAcquire != kNoLimit && m_nNumImagesAcquired == m_setup.imagesToAcquire) {
        m_stop = true;
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
        Locker lock(m_doneMutex);
        if (m_stop) {
            return false;
        }
        m_paused = true;
    }
    // From here on the session is the event thread's. It may be waiting for libusb's next event.
    libusb_interrupt_event_handler(nullptr);
    return true;
}

// A halt stays until it is cleared, also for the next process, and a transfer into it fails at
// once: without the pause that would be all that a processor does.
void U3V_StreamSession::_recover()
{
    const bool overflow = m_transfer->status == LIBUSB_TRANSFER_OVERFLOW;
    std::this_thread::sleep_for(m_retryPause.Next(overflow));
    libusb_clear_halt(m_setup.handle.get(), m_setup.endpoint);
    m_paused = false;
    _resubmitOrStop();
}

void U3V_StreamSession::_resubmitOrStop()
{
    if (m_stop) {
        _finish();
        return;
    }
    const int result = libusb_submit_transfer(m_transfer.get());
    if (result < 0) {
        std::printf("Unable to submit URB. libusb error code: %d\n", result);
        m_transfer.reset();
        _end();
    }
}

// The end that a stop waits for. The transfer goes first, so that nobody who was told "done" finds
// it alive; the session itself goes last.
void U3V_StreamSession::_finish()
{
    m_transfer.reset();
    {
        Locker lock(m_doneMutex);
        m_isDone = true;
    }
    m_done.Signal();
    // Quirk Q68: the count that is logged is the one asked for, not the one reached.
    g_logger.Trace(ZR_LOG_DEBUG, "%s m_nNumImagesAcquired: %i ", "image_callback",
                   static_cast<int>(m_setup.imagesToAcquire));
    _end();
}

// From here on nothing is in flight and nothing of this session is touched by libusb any more. The
// session no longer keeps itself, so it may be destroyed as soon as the caller lets go of it.
void U3V_StreamSession::_end()
{
    std::shared_ptr<U3V_StreamSession> self; // outlives the lock
    Locker lock(m_doneMutex);
    self.swap(m_self);
    m_inFlight = false;
    m_ended.Broadcast();
}

// The flag is set and the wait begun under one lock: what has ended before does not count.
void U3V_StreamSession::_beginStop()
{
    if (!m_stopDeadline.has_value()) {
        m_stop = true;
        m_isDone = false;
        m_stopDeadline = ZrDeadlineAfter(m_setup.timings.stopWait);
    }
}

void U3V_StreamSession::RequestStop()
{
    Locker lock(m_doneMutex);
    _beginStop();
}

bool U3V_StreamSession::StopAndAwaitDone()
{
    Locker lock(m_doneMutex);
    _beginStop();
    const timespec deadline = *m_stopDeadline;
    m_stopDeadline.reset(); // a stop that is repeated begins anew
    while (!m_isDone) {
        if (m_done.TimedWait(m_doneMutex, deadline) != 0) {
            return m_isDone;
        }
    }
    return true;
}

void U3V_StreamSession::StopAndRelease(int32_t wait_ms)
{
    {
        Locker lock(m_doneMutex);
        m_stop = true;
        const timespec deadline = ZrDeadlineAfter(wait_ms);
        while (m_inFlight && m_ended.TimedWait(m_doneMutex, deadline) == 0) {
        }
        if (!m_inFlight) {
            return;
        }
    }
    {
        Locker lock(TheOrphans().mutex);
        TheOrphans().sessions.push_back(shared_from_this());
    }
    // Should the transfer come back after all, another thread's turn at libusb will take it.
    m_abandoned = true;
}

void U3V_StreamSession::FreeBlocks()
{
    if (m_inFlight) {
        return;
    }
    m_transfer.reset();
    for (UsbBlock* block : {&m_leaderBlock, &m_trailerBlock, &m_firstBlock}) {
        *block = {};
    }
    m_payload = {};
    m_cycle.reset();
}

void U3V_StreamSession::ReapOrphans()
{
    std::vector<std::shared_ptr<U3V_StreamSession>> ended; // freed without the lock
    Locker lock(TheOrphans().mutex);
    auto& sessions = TheOrphans().sessions;
    const auto split = std::partition(sessions.begin(), sessions.end(),
                                      [](const auto& session) { return !!session->m_inFlight; });
    ended.assign(std::make_move_iterator(split), std::make_move_iterator(sessions.end()));
    sessions.erase(split, sessions.end());
}
