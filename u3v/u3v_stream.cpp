#include "u3v_stream.h"

#include "u3v_common.h"

#include "field.h"
#include "zr_signal_mask.h"

#include <cstdio>
#include <span>
#include <stdexcept>
#include <utility>
#include <zr_u3v_tl/zr_logging.h>

namespace {

constexpr uint32_t kDefaultBufferCount = 4;

// The camera's own register that starts (1) and stops (0) its sensor.
constexpr Register<uint32_t> kCameraAcquisition{0x50014};

} // namespace

U3V_Stream::U3V_Stream(U3V_Device* device, U3V_Control* control, const U3V_StreamTimings& timings)
    : m_pDevice(device), m_control(control), m_timings(timings),
      m_handover(std::make_shared<U3V_ImageHandover>())
{
}

U3V_Stream::~U3V_Stream()
{
    Locker lock(m_stateMutex);
    // The camera is left as it is: only a stop talks to it. Without a reader its transfers end.
    _joinSession(m_timings.TransferWait());
    _dropSession();
    if (m_pDevice->StreamInterface != 0 && m_pDevice->Handle() != nullptr) {
        libusb_release_interface(m_pDevice->Handle(), m_pDevice->StreamInterface);
    }
}

template <class T>
uint16_t U3V_Stream::_read(Register<T> reg, T& value)
{
    uint8_t bytes[sizeof(T)] = {};
    const uint16_t status = m_control->ReadMem(reg.address, bytes, sizeof(bytes));
    if (status == U3V_STATUS_SUCCESS) {
        value = Load(std::span<const uint8_t>(bytes), Field<T>{0});
    }
    return status;
}

template <class T>
uint16_t U3V_Stream::_write(Register<T> reg, T value)
{
    uint8_t bytes[sizeof(T)] = {};
    Store(std::span<uint8_t>(bytes), Field<T>{0}, value);
    return m_control->WriteMem(reg.address, bytes, sizeof(bytes));
}

uint16_t U3V_Stream::OpenStream()
{
    Locker lock(m_stateMutex);
    if (m_pDevice->StreamInterface == 0 || m_pDevice->Handle() == nullptr) {
        return U3V_STATUS_NO_STREAM_INTERFACE;
    }
    if (libusb_claim_interface(m_pDevice->Handle(), m_pDevice->StreamInterface) < 0) {
        g_logger.Trace(ZR_LOG_ERROR, "%s GC_ERR_RESOURCE_IN_USE", "OpenStream");
        return U3V_STATUS_CLAIM_FAILED;
    }
    const uint16_t status = _readStreamInterface();
    if (status == U3V_STATUS_SUCCESS) {
        m_bufferCount = kDefaultBufferCount;
        m_opened = true;
    }
    return status;
}

uint16_t U3V_Stream::_readStreamInterface()
{
    const uint64_t base = m_control->SbrmAddress();
    uint64_t capability = 0;
    uint16_t status = _read(sbrm::kU3VCPCapability.At(base), capability);
    if (status != U3V_STATUS_SUCCESS) {
        return status;
    }
    if ((capability & sbrm::kSirmAvailable) == 0) {
        return U3V_STATUS_NO_STREAM_INTERFACE;
    }
    uint32_t length = 0; // read because cameras know the sequence; all registers are there
    uint32_t info = 0;
    if ((status = _read(sbrm::kSirmAddress.At(base), m_sirmAddress)) != U3V_STATUS_SUCCESS ||
        (status = _read(sbrm::kSirmLength.At(base), length)) != U3V_STATUS_SUCCESS ||
        (status = _read(sirm::kInfo.At(m_sirmAddress), info)) != U3V_STATUS_SUCCESS) {
        return status;
    }
    const auto exponent = static_cast<uint8_t>(info >> sirm::kAlignmentShift);
    // Quirk Q69: no alignment is taken as an alignment of two bytes.
    m_alignment = exponent == 0 ? uint8_t{1} : exponent;
    return U3V_STATUS_SUCCESS;
}

uint16_t U3V_Stream::EnableStream(bool enable)
{
    Locker lock(m_stateMutex);
    return _enableStream(enable);
}

uint16_t U3V_Stream::_enableStream(bool enable)
{
    if (!m_opened) {
        return U3V_STATUS_STREAM_NOT_OPEN;
    }
    const auto reg = sirm::kControl.At(m_sirmAddress);
    uint32_t value = 0;
    uint16_t status = _read(reg, value);
    if (status != U3V_STATUS_SUCCESS) {
        return status;
    }
    value = enable ? value | sirm::kStreamEnable : value & ~sirm::kStreamEnable;
    status = _write(reg, value);
    if (status == U3V_STATUS_SUCCESS) {
        m_acquiring = enable;
    }
    return status;
}

uint16_t U3V_Stream::AcquisitionStart(uint32_t imagesToAcquire)
{
    Locker lock(m_stateMutex);
    // A start without a stop: the running acquisition's transfer must have ended before its blocks
    // can go.
    _joinSession(m_timings.TransferWait());
    _dropSession();
    U3V_StreamSession::ReapOrphans();

    // Whatever the camera was left doing ends first; one that refuses may not be streaming at all.
    _write(kCameraAcquisition, uint32_t{0});
    _enableStream(false);
    if (!m_opened) {
        return U3V_STATUS_STREAM_NOT_OPEN;
    }
    U3V_StreamPlan plan{};
    uint16_t status = _planStream(plan);
    if (status != U3V_STATUS_SUCCESS) {
        return status;
    }
    _programStream(plan);
    _clearHalt();
    // Before the stream is enabled: what cannot be allocated must not leave the camera streaming.
    _makeSession(plan, imagesToAcquire);
    if ((status = _enableStream(true)) != U3V_STATUS_SUCCESS) {
        _dropSession();
        return status;
    }
    _write(kCameraAcquisition, uint32_t{1});
    return U3V_StatusFromUsb(_runSession());
}

// Whatever the endpoint was left in, by us, by another process or by the camera itself. Without a
// transfer in flight and with the stream disabled only.
void U3V_Stream::_clearHalt()
{
    libusb_clear_halt(m_pDevice->Handle(), m_pDevice->StreamEndpoint);
}

uint16_t U3V_Stream::_planStream(U3V_StreamPlan& plan)
{
    uint64_t payload = 0;
    uint32_t leader = 0;
    uint32_t trailer = 0;
    uint16_t status = _read(sirm::kRequiredPayloadSize.At(m_sirmAddress), payload);
    if (status != U3V_STATUS_SUCCESS ||
        (status = _read(sirm::kRequiredLeaderSize.At(m_sirmAddress), leader)) !=
            U3V_STATUS_SUCCESS ||
        (status = _read(sirm::kRequiredTrailerSize.At(m_sirmAddress), trailer)) !=
            U3V_STATUS_SUCCESS) {
        return status;
    }
    plan = U3V_PlanStream(payload, leader, trailer, m_transferSize, m_alignment);
    return U3V_STATUS_SUCCESS;
}

void U3V_Stream::_programStream(const U3V_StreamPlan& plan)
{
    // Quirk Q70: cameras with fixed values refuse some of these writes and stream all the same.
    const std::pair<Register<uint32_t>, uint32_t> table[] = {
        {sirm::kMaximumLeaderSize, plan.leader},
        {sirm::kPayloadTransferSize, plan.transferSize},
        {sirm::kPayloadTransferCount, plan.transferCount},
        {sirm::kFinalTransfer1Size, plan.finalTransfer1},
        {sirm::kFinalTransfer2Size, plan.finalTransfer2},
        {sirm::kMaximumTrailerSize, plan.trailer},
    };
    for (const auto& [reg, value] : table) {
        _write(reg.At(m_sirmAddress), value);
    }
}

void U3V_Stream::_makeSession(const U3V_StreamPlan& plan, uint32_t imagesToAcquire)
{
    m_session = std::make_shared<U3V_StreamSession>(
        U3V_StreamSession::Setup{m_pDevice->SharedHandle(), m_pDevice->StreamEndpoint, plan,
                                 imagesToAcquire, m_handover, m_timings},
        m_bufferCount);
}

int U3V_Stream::_runSession()
{
    int result = 0;
    try {
        // The thread first: the completion of the first read needs somebody to deliver it.
        {
            const ZrSignalsBlocked signals;
            m_eventThread = std::thread(thread_route, m_session);
        }
        result = m_session->Submit(&U3V_Stream::image_callback);
    } catch (...) {
        _joinSession(m_timings.TransferWait());
        m_session->FreeBlocks();
        m_handover->End();
        _write(kCameraAcquisition, uint32_t{0});
        _enableStream(false);
        throw;
    }
    if (result < 0) {
        // Quirk Q71: the stream stays "acquiring", so that the caller's stop switches the camera
        // off again; nothing of the acquisition but its counters is left.
        _joinSession(m_timings.TransferWait());
        m_session->FreeBlocks();
        m_handover->End();
    }
    return result;
}

void U3V_Stream::thread_route(const std::shared_ptr<U3V_StreamSession>& session)
{
    session->ServeEvents();
}

void U3V_Stream::image_callback(libusb_transfer* transfer)
{
    U3V_StreamSession::Complete(transfer);
}

// Ends the acquisition on the host's side: afterwards there is no thread, and no transfer unless it
// was orphaned.
void U3V_Stream::_joinSession(int32_t wait_ms)
{
    if (m_session != nullptr) {
        m_session->StopAndRelease(wait_ms);
    }
    if (m_eventThread.joinable()) {
        m_eventThread.join();
    }
}

void U3V_Stream::_dropSession()
{
    m_handover->End();
    m_session.reset();
}

uint16_t U3V_Stream::GetImage(void* destination, size_t capacity, uint32_t timeout_ms,
                              IMAGE_HEADER* header)
{
    return m_handover->GetImage(destination, capacity, timeout_ms, *header);
}

void U3V_Stream::RequestStop()
{
    // Whoever starts or stops just now sees to the end himself.
    if (!m_stateMutex.TryLock()) {
        return;
    }
    if (m_session != nullptr) {
        m_session->RequestStop();
    }
    m_stateMutex.Unlock();
}

uint16_t U3V_Stream::AcquisitionStop(uint64_t* imagesAcquired, uint64_t* lostCount)
{
    Locker lock(m_stateMutex);
    if (!m_acquiring) {
        return U3V_STATUS_SUCCESS;
    }
    if (!m_opened) {
        return U3V_STATUS_STREAM_NOT_OPEN;
    }
    // Quirk Q72: the wait is for a completion after this moment, or after the request before it, so
    // a stream that ended by itself costs the whole wait. The transfer is not cancelled: it ends at
    // the latest by its time-out.
    if (m_session != nullptr && !m_session->StopAndAwaitDone()) {
        std::puts("DS_STATUS_IMAGE_TIMEOUT");
    }
    std::puts("");
    _joinSession(m_timings.TransferWait() - m_timings.stopWait);
    std::puts("");

    _write(kCameraAcquisition, uint32_t{0});
    const uint16_t status = _enableStream(false); // reads and writes, so the camera must answer
    _clearHalt();
    if (status != U3V_STATUS_SUCCESS) {
        return status; // still acquiring: the caller may try again
    }
    *imagesAcquired = m_session != nullptr ? m_session->ImagesAcquired() : 0;
    *lostCount = 0; // no loss is detected here
    _dropSession();
    return U3V_STATUS_SUCCESS;
}
