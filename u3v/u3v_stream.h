#pragma once

#include "u3v_control.h"
#include "u3v_device.h"
#include "u3v_image_handover.h"
#include "u3v_stream_plan.h"
#include "u3v_stream_session.h"

#include "registers.h"
#include "zr_sync.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <thread>

// The stream channel of one camera: programs the streaming interface and runs acquisitions.
//
// Belongs to the handle that U3V_OpenStream gives out; device and control are not owned and must
// outlive it. Start, stop and destruction exclude each other; GetImage may be called by any thread
// at any time. Each acquisition has an event thread of its own.
class U3V_Stream
{
public:
    U3V_Stream(U3V_Device* device, U3V_Control* control, const U3V_StreamTimings& timings = {});
    // Ends a running acquisition on the host's side and releases the interface, unless it is 0.
    ~U3V_Stream();
    U3V_Stream(const U3V_Stream&) = delete;
    U3V_Stream& operator=(const U3V_Stream&) = delete;

    uint16_t OpenStream() ZR_EXCLUDES(m_stateMutex);
    // Sets or clears the stream enable bit; on success that is the acquiring state.
    uint16_t EnableStream(bool enable) ZR_EXCLUDES(m_stateMutex); // kept
    uint16_t AcquisitionStart(uint32_t imagesToAcquire) ZR_EXCLUDES(m_stateMutex);
    // Has a running acquisition end at its next completion, without waiting: the wait of the
    // AcquisitionStop that follows counts from here. So several streams end side by side.
    void RequestStop() ZR_EXCLUDES(m_stateMutex);
    // The outputs are written on success of a stop only, not when nothing was acquiring.
    uint16_t AcquisitionStop(uint64_t* imagesAcquired, uint64_t* lostCount)
        ZR_EXCLUDES(m_stateMutex);
    // Never writes beyond `capacity`; an image larger than that is MISSING_PACKETS.
    uint16_t GetImage(void* destination, size_t capacity, uint32_t timeout_ms,
                      IMAGE_HEADER* header);

    uint32_t TransferSize() const { return m_transferSize; }
    void SetTransferSize(uint32_t size) { m_transferSize = size; }
    uint32_t BufferCount() const { return m_bufferCount; }
    void SetBufferCount(uint32_t count) { m_bufferCount = count; }
    bool IsAcquiring() const { return m_acquiring; }

private:
    // The event thread, which shares the acquisition it serves.
    static void thread_route(const std::shared_ptr<U3V_StreamSession>& session);
    static void LIBUSB_CALL image_callback(libusb_transfer* transfer);

    template <class T>
    uint16_t _read(Register<T> reg, T& value);
    template <class T>
    uint16_t _write(Register<T> reg, T value);
    uint16_t _readStreamInterface() ZR_REQUIRES(m_stateMutex);
    uint16_t _enableStream(bool enable) ZR_REQUIRES(m_stateMutex);
    void _clearHalt() ZR_REQUIRES(m_stateMutex);
    uint16_t _planStream(U3V_StreamPlan& plan) ZR_REQUIRES(m_stateMutex);
    void _programStream(const U3V_StreamPlan& plan) ZR_REQUIRES(m_stateMutex);
    void _makeSession(const U3V_StreamPlan& plan, uint32_t imagesToAcquire)
        ZR_REQUIRES(m_stateMutex);
    int _runSession() ZR_REQUIRES(m_stateMutex);
    void _joinSession(int32_t wait_ms) ZR_REQUIRES(m_stateMutex);
    void _dropSession() ZR_REQUIRES(m_stateMutex);

    U3V_Device* const m_pDevice;  // not owned
    U3V_Control* const m_control; // not owned
    const U3V_StreamTimings m_timings;
    const std::shared_ptr<U3V_ImageHandover> m_handover;

    Mutex m_stateMutex;
    std::atomic<bool> m_opened = false;
    std::atomic<bool> m_acquiring = false;
    uint64_t m_sirmAddress ZR_GUARDED_BY(m_stateMutex) = 0;
    uint8_t m_alignment ZR_GUARDED_BY(m_stateMutex) = 1; // exponent of two
    std::atomic<uint32_t> m_transferSize = 0x100000;     // bytes
    std::atomic<uint32_t> m_bufferCount = 0;             // 4 from OpenStream on
    std::shared_ptr<U3V_StreamSession> m_session ZR_GUARDED_BY(m_stateMutex);
    std::thread m_eventThread ZR_GUARDED_BY(m_stateMutex);
};
