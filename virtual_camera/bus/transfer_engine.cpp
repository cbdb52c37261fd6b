#include "transfer_engine.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>

#include "event_handling.h"

namespace vbus {

namespace {

constexpr std::size_t kSetupSize = LIBUSB_CONTROL_SETUP_SIZE;

bool IsIn(const libusb_transfer& transfer)
{
    return (transfer.endpoint & LIBUSB_ENDPOINT_IN) != 0;
}

libusb_transfer_status StatusOf(vcam::UsbStatus status)
{
    switch (status) {
    case vcam::UsbStatus::Stall: return LIBUSB_TRANSFER_STALL;
    case vcam::UsbStatus::Overflow: return LIBUSB_TRANSFER_OVERFLOW;
    case vcam::UsbStatus::NoDevice: return LIBUSB_TRANSFER_NO_DEVICE;
    case vcam::UsbStatus::Error: return LIBUSB_TRANSFER_ERROR;
    default: return LIBUSB_TRANSFER_COMPLETED;
    }
}

int ErrorOf(libusb_transfer_status status)
{
    switch (status) {
    case LIBUSB_TRANSFER_COMPLETED: return LIBUSB_SUCCESS;
    case LIBUSB_TRANSFER_TIMED_OUT: return LIBUSB_ERROR_TIMEOUT;
    case LIBUSB_TRANSFER_STALL: return LIBUSB_ERROR_PIPE;
    case LIBUSB_TRANSFER_OVERFLOW: return LIBUSB_ERROR_OVERFLOW;
    case LIBUSB_TRANSFER_NO_DEVICE: return LIBUSB_ERROR_NO_DEVICE;
    default: return LIBUSB_ERROR_IO;
    }
}

void LIBUSB_CALL MarkDone(libusb_transfer* transfer)
{
    static_cast<std::atomic<bool>*>(transfer->user_data)->store(true);
}

bool IsHead(const TransferState& state)
{
    const auto pipe = state.attachment->pipes.find(state.transfer->endpoint);
    return pipe->second.front() == &state;
}

} // namespace

TransferEngine& TransferEngine::Instance()
{
    static auto* engine = new TransferEngine;
    return *engine;
}

libusb_transfer* TransferEngine::Allocate(int isoPackets)
{
    return _Allocate(isoPackets, false);
}

libusb_transfer* TransferEngine::_Allocate(int isoPackets, bool internal)
{
    if (isoPackets < 0) {
        return nullptr;
    }
    const std::size_t size = sizeof(libusb_transfer) + static_cast<std::size_t>(isoPackets) *
                                                           sizeof(libusb_iso_packet_descriptor);
    auto* transfer = static_cast<libusb_transfer*>(std::calloc(1, size));
    if (transfer == nullptr) {
        return nullptr;
    }
    transfer->num_iso_packets = isoPackets;
    auto state = std::make_unique<TransferState>();
    state->transfer = transfer;
    state->internal = internal;
    const BusLock lock = Bus().Guard();
    m_transfers[transfer] = std::move(state);
    return transfer;
}

TransferState* TransferEngine::_Find(const libusb_transfer* transfer) const
{
    const auto found = m_transfers.find(transfer);
    return found == m_transfers.end() ? nullptr : found->second.get();
}

void TransferEngine::Free(libusb_transfer* transfer)
{
    if (transfer == nullptr) {
        return; // allowed
    }
    const BusLock lock = Bus().Guard();
    const TransferState* state = _Find(transfer);
    if (state == nullptr) {
        Violate("double-free");
        return;
    }
    if (state->inFlight) {
        Violate("free-in-flight"); // it stays, or the engine would follow a dead pointer
        return;
    }
    if ((transfer->flags & LIBUSB_TRANSFER_FREE_BUFFER) != 0) {
        std::free(transfer->buffer);
    }
    m_transfers.erase(transfer);
    std::free(transfer);
}

int TransferEngine::_CheckSubmit(const libusb_transfer* transfer) const
{
    if (transfer->dev_handle == nullptr) {
        Violate("null-handle");
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    if (!Bus().IsLive(transfer->dev_handle)) {
        Violate("stale-handle");
        return LIBUSB_ERROR_NO_DEVICE;
    }
    const bool isControl = transfer->type == LIBUSB_TRANSFER_TYPE_CONTROL;
    const int least = isControl ? int{kSetupSize} : 0;
    if (transfer->length < least || (transfer->buffer == nullptr && transfer->length != 0)) {
        Violate("bad-buffer");
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    const Attachment& attachment = *transfer->dev_handle->device->attachment;
    if (!attachment.plugged) {
        return LIBUSB_ERROR_NO_DEVICE;
    }
    if (transfer->type == LIBUSB_TRANSFER_TYPE_ISOCHRONOUS) {
        return LIBUSB_ERROR_NOT_SUPPORTED;
    }
    const int interface = isControl ? 0 : attachment.configuration.InterfaceOf(transfer->endpoint);
    if (interface < 0) {
        return LIBUSB_ERROR_NOT_FOUND;
    }
    if (!isControl && transfer->dev_handle->claimed.count(interface) == 0) {
        Violate("not-claimed"); // the kernel claims by itself, and complains
    }
    return LIBUSB_SUCCESS;
}

int TransferEngine::Submit(libusb_transfer* transfer)
{
    const BusLock lock = Bus().Guard();
    TransferState* state = transfer == nullptr ? nullptr : _Find(transfer);
    if (state == nullptr) {
        Violate("stale-transfer");
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    if (state->inFlight) {
        Violate("submit-in-flight");
        return LIBUSB_ERROR_BUSY;
    }
    Bus().Tick();
    const int error = _CheckSubmit(transfer);
    if (error != LIBUSB_SUCCESS) {
        return error;
    }
    const auto& camera = transfer->dev_handle->device->attachment->camera;
    std::int64_t code = LIBUSB_ERROR_IO;
    if (!state->internal && camera && camera->FireFault("submit-fails", code)) {
        return static_cast<int>(code);
    }
    state->kernelBytes = Bus().KernelBytes(*transfer);
    if (!Bus().TakeKernelMemory(state->kernelBytes)) {
        return LIBUSB_ERROR_NO_MEM;
    }
    _Start(*state);
    return LIBUSB_SUCCESS;
}

void TransferEngine::_Start(TransferState& state)
{
    libusb_transfer* transfer = state.transfer;
    state.inFlight = true;
    state.cancelled = false;
    state.handle = transfer->dev_handle;
    state.context = transfer->dev_handle->device->context;
    state.attachment = transfer->dev_handle->device->attachment;
    state.deadline = transfer->timeout == 0
                         ? Clock::time_point::max()
                         : Clock::now() + std::chrono::milliseconds(transfer->timeout);
    state.sequence = ++m_sequence;
    state.filled = 0;
    state.forced.reset();
    state.answer.reset();
    transfer->actual_length = 0;
    if (transfer->endpoint == vcam::usb::kStreamIn) {
        _ForceByFault(state);
    }
    ++state.handle->inFlight;
    state.place = state.context->inFlight.insert(state.context->inFlight.end(), &state);
    state.attachment->pipes[transfer->endpoint].push_back(&state);
    WakeHandler(*state.context);
}

void TransferEngine::_ForceByFault(TransferState& state) const
{
    constexpr std::pair<const char*, libusb_transfer_status> kFaults[] = {
        {"transfer-error", LIBUSB_TRANSFER_ERROR},
        {"transfer-timeout", LIBUSB_TRANSFER_TIMED_OUT},
        {"transfer-cancelled", LIBUSB_TRANSFER_CANCELLED},
        {"transfer-stall", LIBUSB_TRANSFER_STALL},
        {"transfer-no-device", LIBUSB_TRANSFER_NO_DEVICE},
        {"transfer-overflow", LIBUSB_TRANSFER_OVERFLOW},
    };
    std::int64_t ignored = 0;
    for (const auto& [name, status] : kFaults) {
        if (state.attachment->camera && state.attachment->camera->FireFault(name, ignored)) {
            state.forced = status;
        }
    }
}

int TransferEngine::Cancel(libusb_transfer* transfer)
{
    const BusLock lock = Bus().Guard();
    TransferState* state = transfer == nullptr ? nullptr : _Find(transfer);
    if (state == nullptr) {
        Violate("stale-transfer");
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    if (!state->inFlight || state->cancelled) {
        return LIBUSB_ERROR_NOT_FOUND;
    }
    if (!state->attachment->plugged) {
        return LIBUSB_ERROR_NO_DEVICE; // it completes as such
    }
    state->cancelled = true;
    WakeHandler(*state->context);
    return LIBUSB_SUCCESS;
}

// The first one behind "after" that may have something to do: the head of its pipe, or one that
// ends without data.
TransferState* TransferEngine::_NextCandidate(const libusb_context* context, std::uint64_t before,
                                              std::uint64_t after)
{
    for (TransferState* state : context->inFlight) {
        if (state->sequence > before) {
            return nullptr;
        }
        if (state->sequence > after && !state->busy &&
            (IsHead(*state) || state->cancelled || !state->attachment->plugged ||
             state->deadline != Clock::time_point::max())) {
            return state;
        }
    }
    return nullptr;
}

// What callbacks submit waits for the next pass, so that a pass ends.
bool TransferEngine::RunPass(BusLock& lock, libusb_context* context, Clock::time_point& next)
{
    const std::uint64_t before = m_sequence;
    std::uint64_t after = 0;
    bool any = false;
    while (TransferState* state = _NextCandidate(context, before, after)) {
        after = state->sequence;
        const Step step = _Progress(lock, *state, next);
        if (step) {
            _Complete(lock, *state, *step);
            any = true;
        }
    }
    return any;
}

TransferEngine::Step TransferEngine::_Progress(BusLock& lock, TransferState& state,
                                               Clock::time_point& next)
{
    if (!state.attachment->plugged) {
        return LIBUSB_TRANSFER_NO_DEVICE;
    }
    if (state.cancelled) {
        return LIBUSB_TRANSFER_CANCELLED;
    }
    if (state.forced) {
        return state.forced;
    }
    vcam::UsbResult result{vcam::UsbStatus::Nak};
    if (IsHead(state)) {
        state.busy = true;
        lock.unlock();
        result = _MoveData(state);
        lock.lock();
        state.busy = false;
    }
    if (result.status == vcam::UsbStatus::NoDevice) {
        Bus().Detach(state.attachment);
    }
    if (result.status != vcam::UsbStatus::Nak) {
        return StatusOf(result.status);
    }
    if (!state.attachment->plugged) {
        return LIBUSB_TRANSFER_NO_DEVICE;
    }
    if (state.cancelled) {
        return LIBUSB_TRANSFER_CANCELLED;
    }
    if (Clock::now() >= state.deadline) {
        return LIBUSB_TRANSFER_TIMED_OUT;
    }
    next = std::min({next, state.deadline, result.retryAt});
    return std::nullopt;
}

vcam::UsbResult TransferEngine::_MoveData(TransferState& state)
{
    libusb_transfer* transfer = state.transfer;
    const auto length = static_cast<std::size_t>(transfer->length);
    if (transfer->type == LIBUSB_TRANSFER_TYPE_CONTROL) {
        return _MoveControl(state);
    }
    if (IsIn(*transfer)) {
        return state.attachment->device->BulkIn(transfer->endpoint, transfer->buffer, length,
                                                state.filled);
    }
    if (!state.answer) {
        state.answer =
            state.attachment->device->BulkOut(transfer->endpoint, transfer->buffer, length);
        state.filled = state.answer->status == vcam::UsbStatus::Done ? length : 0;
    }
    return *state.answer;
}

// The device is asked once; the answer stays here until it is due.
vcam::UsbResult TransferEngine::_MoveControl(TransferState& state)
{
    if (!state.answer) {
        const libusb_transfer* transfer = state.transfer;
        const vcam::SetupPacket setup = vcam::SetupPacket::Parse(transfer->buffer);
        const std::size_t room = static_cast<std::size_t>(transfer->length) - kSetupSize;
        unsigned char* data = transfer->buffer + kSetupSize;
        std::vector<std::uint8_t> bytes;
        if (!setup.IsIn()) {
            bytes.assign(data, data + std::min<std::size_t>(room, setup.length));
        }
        state.answer = state.attachment->device->Control(setup, bytes);
        state.filled = std::min(room, bytes.size());
        if (setup.IsIn()) {
            std::copy_n(bytes.begin(), state.filled, data);
        }
    }
    const bool isLate = state.answer->status == vcam::UsbStatus::Done &&
                        state.answer->retryAt != Clock::time_point::max() &&
                        Clock::now() < state.answer->retryAt;
    return isLate ? vcam::UsbResult{vcam::UsbStatus::Nak, state.answer->retryAt} : *state.answer;
}

void TransferEngine::_Complete(BusLock& lock, TransferState& state, libusb_transfer_status status)
{
    libusb_transfer* transfer = state.transfer;
    libusb_context* context = state.context;
    std::erase(state.attachment->pipes[transfer->endpoint], &state);
    context->inFlight.erase(state.place);
    --state.handle->inFlight;
    Bus().GiveKernelMemory(state.kernelBytes);
    state.inFlight = false;
    transfer->actual_length = static_cast<int>(state.filled);
    const bool isShort = state.filled < static_cast<std::size_t>(transfer->length);
    const bool wantsAll = (transfer->flags & LIBUSB_TRANSFER_SHORT_NOT_OK) != 0;
    transfer->status =
        status == LIBUSB_TRANSFER_COMPLETED && isShort && wantsAll ? LIBUSB_TRANSFER_ERROR : status;
    const bool freeAfter = (transfer->flags & LIBUSB_TRANSFER_FREE_TRANSFER) != 0;
    const libusb_transfer_cb_fn callback = transfer->callback;
    lock.unlock();
    if (callback != nullptr) {
        callback(transfer);
    }
    if (freeAfter) {
        Free(transfer);
    }
    lock.lock();
    WakeWaiters(*context);
}

int TransferEngine::Synchronous(libusb_device_handle* handle, unsigned char endpoint,
                                unsigned char type, unsigned char* data, int length,
                                int* transferred, unsigned timeout)
{
    libusb_context* context = nullptr;
    {
        const BusLock lock = Bus().Guard();
        if (!Bus().IsLive(handle)) {
            Violate(handle == nullptr ? "null-handle" : "stale-handle");
            return handle == nullptr ? LIBUSB_ERROR_INVALID_PARAM : LIBUSB_ERROR_NO_DEVICE;
        }
        context = handle->device->context;
        if (context->IsOwnedHere()) {
            Violate("sync-in-callback");
            return LIBUSB_ERROR_BUSY;
        }
    }
    libusb_transfer* transfer = _Allocate(0, true);
    if (transfer == nullptr) {
        return LIBUSB_ERROR_NO_MEM;
    }
    std::atomic<bool> done{false};
    libusb_fill_bulk_transfer(transfer, handle, endpoint, data, length, MarkDone, &done, timeout);
    transfer->type = type;
    int result = Submit(transfer);
    if (result == LIBUSB_SUCCESS) {
        HandleEventsUntil(context, done);
        result = ErrorOf(transfer->status);
        if (transferred != nullptr) {
            *transferred = transfer->actual_length;
        }
    }
    Free(transfer);
    return result;
}

void TransferEngine::CancelAll(const libusb_device_handle* handle)
{
    for (const auto& [transfer, state] : m_transfers) {
        state->cancelled = state->cancelled || (state->inFlight && state->handle == handle);
    }
}

Clock::time_point TransferEngine::NextTimeout(const libusb_context* context) const
{
    Clock::time_point next = Clock::time_point::max();
    for (const TransferState* state : context->inFlight) {
        next = std::min(next, state->deadline);
    }
    return next;
}

void TransferEngine::CountLive(vusb_live_objects& live) const
{
    for (const auto& [transfer, state] : m_transfers) {
        live.transfers += state->internal ? 0U : 1U;
        live.transfers_in_flight += state->internal || !state->inFlight ? 0U : 1U;
    }
}

} // namespace vbus
