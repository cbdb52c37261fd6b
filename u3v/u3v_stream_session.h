#pragma once

#include "u3v_image_handover.h"
#include "u3v_stream_plan.h"

#include "usb_block.h"
#include "usb_owners.h"
#include "zr_sync.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>

// The waits of a stream. The defaults are what the product uses; tests shorten them.
struct U3V_StreamTimings
{
    unsigned transferTimeout = 3000; // ms, of the transfer in flight
    int32_t stopWait = 3000;         // ms, for the end of streaming in AcquisitionStop
    int32_t lastResort = 5000; // ms after a stop, when transfer and event thread are done with
    unsigned eventWait = 1000; // ms, of one turn of the event loop
    unsigned eventPause = 10;  // ms, after a turn that failed at once
    unsigned retryPause = 50;  // ms, what the pause after a failed completion grows to

    // ms after a stop, when the transfer counts as lost by the bus: what remains until the last
    // resort is the last turn of the event thread, which has to be joined.
    int32_t TransferWait() const { return lastResort - static_cast<int32_t>(eventWait); }
};

// How long to wait after a completion that failed: a moment first, twice as long each time.
//
// An overflow has taken a packet off the endpoint: after a lost leader the rest of an image goes by
// in this way, packet by packet. So many are let pass without a wait as an image may have.
class U3V_RetryPause
{
public:
    U3V_RetryPause(unsigned longest_ms, uint64_t imageSize)
        : m_longest(longest_ms), m_packetsOfImage(imageSize / kSmallestPacket + 1)
    {
    }

    std::chrono::milliseconds Next(bool overflow);
    void Reset();

private:
    static constexpr std::chrono::milliseconds kFirst{1};
    static constexpr uint64_t kSmallestPacket = 512; // bytes, of a bulk endpoint at high speed

    const std::chrono::milliseconds m_longest;
    const uint64_t m_packetsOfImage;
    std::chrono::milliseconds m_next = kFirst;
    uint64_t m_overflows = 0;
};

// One acquisition from start to its last completion: the plan, the one transfer that cycles through
// leader, payload and trailer, and the blocks it reads into.
//
// Shared by the stream that made it, the event thread that serves it and, while a transfer is in
// flight, by itself: nothing that the bus may still write to can go away.
//
// Completions may come on any thread that serves libusb's one default context: the event thread of
// any stream, but also a consumer's or the discovery worker's inside a synchronous transfer. libusb
// lets one thread at a time do so, hence the fields without a lock. A completion must neither wait
// nor take a lock that is held across a libusb call: after one that failed, the event thread waits,
// clears the halt and sends the transfer out again.
class U3V_StreamSession : public std::enable_shared_from_this<U3V_StreamSession>
{
public:
    struct Setup
    {
        UsbHandlePtr handle;
        uint8_t endpoint;
        U3V_StreamPlan plan;
        uint32_t imagesToAcquire;
        std::shared_ptr<U3V_ImageHandover> handover;
        U3V_StreamTimings timings;
    };

    // Allocates the blocks and `bufferCount` buffers and installs them in the hand-over.
    U3V_StreamSession(Setup setup, uint32_t bufferCount);
    U3V_StreamSession(const U3V_StreamSession&) = delete;
    U3V_StreamSession& operator=(const U3V_StreamSession&) = delete;

    // Allocates the transfer and submits the first read: 0 or a negative libusb code.
    int Submit(libusb_transfer_cb_fn callback);

    // Event thread: serves libusb until the stop flag is set and the transfer has ended.
    void ServeEvents();

    // A transfer of some session has completed. Static, because the session is found in it.
    static void Complete(libusb_transfer* transfer);

    // Sets the stop flag; the wait for the end of streaming begins here.
    void RequestStop() ZR_EXCLUDES(m_doneMutex);
    // The same, unless a stop was requested already, and waits once for the end of streaming; false
    // when it did not come in time, which is always so when streaming had already ended.
    bool StopAndAwaitDone() ZR_EXCLUDES(m_doneMutex);
    // Sets the stop flag and waits up to `wait_ms` for the transfer only. When the bus does not
    // give it back, the session is kept as an orphan, with blocks and handle, and the event thread
    // is let go.
    void StopAndRelease(int32_t wait_ms) ZR_EXCLUDES(m_doneMutex);

    // Frees what a start that failed has allocated; without a transfer in flight only.
    void FreeBlocks();

    uint64_t ImagesAcquired() const { return m_nNumImagesAcquired; }
    // Frees kept sessions whose transfer has come back after all.
    static void ReapOrphans();

private:
    void _allocate(uint32_t bufferCount);
    void _serveOnce();
    void _complete();
    void _endWith(const char* text) ZR_EXCLUDES(m_doneMutex);
    void _noteWritten();
    void _advance();
    void _takeLeader();
    void _takePayload();
    void _takeTrailer();
    void _read(std::span<uint8_t> block, uint64_t length);
    void _readPayload(uint64_t offset, uint64_t length);
    void _goOn(bool failed) ZR_EXCLUDES(m_doneMutex);
    bool _pause() ZR_EXCLUDES(m_doneMutex);
    void _recover();
    void _resubmitOrStop();
    void _finish() ZR_EXCLUDES(m_doneMutex);
    void _end() ZR_EXCLUDES(m_doneMutex);
    void _beginStop() ZR_REQUIRES(m_doneMutex);
    bool _mustServe() const;
    uint32_t _received() const;

    const Setup m_setup;

    // Touched by completions only (and by Submit before the first one).
    UsbTransferPtr m_transfer;
    UsbBlock m_firstBlock;
    UsbBlock m_leaderBlock;
    UsbBlock m_trailerBlock;
    std::shared_ptr<U3V_ImageCycle> m_cycle;
    U3V_PayloadInProgress m_payload;
    uint64_t m_received = 0;                 // payload bytes asked for so far
    std::optional<uint64_t> m_payloadOffset; // of the read in flight, if it is one of payload
    IMAGE_HEADER m_leader = {};              // of the image being received
    bool m_leaderPending = false;            // no trailer since the leader
    U3V_RetryPause m_retryPause;

    std::atomic<uint64_t> m_nNumImagesAcquired = 0;
    std::atomic<bool> m_stop = false;
    std::atomic<bool> m_abandoned = false; // the event thread is let go
    std::atomic<bool> m_inFlight = false;
    std::atomic<bool> m_paused = false; // in flight as before, but with the event thread

    Mutex m_doneMutex;
    Condition m_done;  // end of streaming after a stop
    Condition m_ended; // end of the transfer for whatever reason
    bool m_isDone ZR_GUARDED_BY(m_doneMutex) = false;
    std::optional<timespec> m_stopDeadline ZR_GUARDED_BY(m_doneMutex); // of a stop that has begun
    std::shared_ptr<U3V_StreamSession> m_self ZR_GUARDED_BY(m_doneMutex); // while in flight
};
