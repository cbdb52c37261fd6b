#include "transfer_engine.h"

#include <algorithm>
#include <cstdlib>

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

} // namespace

TransferEngine& TransferEngine::Instance()
{
    static auto* engine = new TransferEngine;
    return *engine;
}

libusb_transfer* TransferEngine::Allocate(int isoPackets)
{
    if (isoPackets < 0) {
        return nullptr;
    }
    const std::size_t size = sizeof(libusb_transfer) + static_cast<std::size_t>(isoPackets) *
                                                           sizeof(libusb_iso_packet_descriptor);
    auto* transfer = static_cast<libusb_transfer*>(std::calloc(1, size));
    if (transfer != nullptr) {
        const BusLock lock = Bus().Guard();
        transfer->num_iso_packets = isoPackets;
        m_transfers[transfer] = {};
    }
    return transfer;
}

void TransferEngine::Free(libusb_transfer* transfer)
{
    if (transfer == nullptr) {
        return; // allowed
    }
    const BusLock lock = Bus().Guard();
    const auto found = m_transfers.find(transfer);
    if (found == m_transfers.end()) {
        Violate("double-free");
        return;
    }
    if (found->second.inFlight) {
        Violate("free-in-flight"); // it stays, or the engine would follow a dead pointer
        return;
    }
    const bool freeBuffer = (transfer->flags & LIBUSB_TRANSFER_FREE_BUFFER) != 0;
    if (freeBuffer) {
        std::free(transfer->buffer);
    }
    m_transfers.erase(found);
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
    const auto found = m_transfers.find(transfer);
    if (transfer == nullptr || found == m_transfers.end()) {
        Violate("stale-transfer");
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    if (found->second.inFlight) {
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
    if (!found->second.internal && camera && camera->FireFault("submit-fails", code)) {
        return static_cast<int>(code);
    }
    _StartState(transfer, found->second);
    return LIBUSB_SUCCESS;
}

void TransferEngine::_StartState(libusb_transfer* transfer, State& state)
{
    const bool internal = state.internal;
    state = {};
    state.internal = internal;
    state.inFlight = true;
    state.handle = transfer->dev_handle;
    state.context = transfer->dev_handle->device->context;
    state.attachment = transfer->dev_handle->device->attachment;
    state.deadline = transfer->timeout == 0
                         ? Clock::time_point::max()
                         : Clock::now() + std::chrono::milliseconds(transfer->timeout);
    state.sequence = ++m_sequence;
    transfer->actual_length = 0;
    if (transfer->endpoint == vcam::usb::kStreamIn) {
        _ForceByFault(state);
    }
    m_inFlight.push_back(transfer);
    Bus().KickLocked();
}

void TransferEngine::_ForceByFault(State& state) const
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
    const auto found = m_transfers.find(transfer);
    if (transfer == nullptr || found == m_transfers.end()) {
        Violate("stale-transfer");
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    State& state = found->second;
    if (!state.inFlight || state.cancelled) {
        return LIBUSB_ERROR_NOT_FOUND;
    }
    if (!state.attachment->plugged) {
        return LIBUSB_ERROR_NO_DEVICE; // it completes as such
    }
    state.cancelled = true;
    Bus().KickLocked();
    return LIBUSB_SUCCESS;
}

bool TransferEngine::TryOwnEvents(libusb_context* context)
{
    const auto self = std::this_thread::get_id();
    if (context->eventDepth != 0 && context->eventOwner != self) {
        return false;
    }
    context->eventOwner = self;
    ++context->eventDepth;
    return true;
}

void TransferEngine::DisownEvents(libusb_context* context)
{
    if (--context->eventDepth == 0) {
        context->eventOwner = {};
        Bus().KickLocked();
    }
}

int TransferEngine::HandleEvents(libusb_context* context, Clock::time_point until,
                                 const std::function<bool()>& enough)
{
    BusLock lock = Bus().Guard();
    context = Bus().Resolve(context);
    if (context == nullptr) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    if (context->eventDepth != 0 && context->eventOwner == std::this_thread::get_id()) {
        return LIBUSB_ERROR_BUSY; // from within a callback
    }
    while (!enough()) {
        if (TryOwnEvents(context)) {
            HandleEventsOwned(lock, context, until, enough);
            DisownEvents(context);
            return LIBUSB_SUCCESS;
        }
        // Somebody else handles them: wait until that thread has done something.
        if (!Bus().Wait(lock, Bus().Generation(), until)) {
            return LIBUSB_SUCCESS;
        }
    }
    return LIBUSB_SUCCESS;
}

void TransferEngine::HandleEventsOwned(BusLock& lock, libusb_context* context,
                                       Clock::time_point until, const std::function<bool()>& enough)
{
    for (;;) {
        Bus().Tick();
        const std::uint64_t generation = Bus().Generation();
        Clock::time_point next = until;
        if (const auto replug = Bus().NextReplug()) {
            next = std::min(next, *replug);
        }
        const bool hotplug = _RunHotplug(lock, context);
        const bool completed = _RunPass(lock, context, next);
        const bool interrupted = context->interrupted;
        context->interrupted = false;
        if (hotplug || completed || interrupted || enough() || Clock::now() >= until) {
            return;
        }
        Bus().Wait(lock, generation, next);
    }
}

// Each endpoint works off its transfers in order; only the first one is looked at.
bool TransferEngine::_IsHead(const libusb_transfer* transfer) const
{
    const State& state = m_transfers.at(const_cast<libusb_transfer*>(transfer));
    for (const libusb_transfer* other : m_inFlight) {
        if (other == transfer) {
            return true;
        }
        const State& before = m_transfers.at(const_cast<libusb_transfer*>(other));
        if (before.attachment == state.attachment && other->endpoint == transfer->endpoint) {
            return false;
        }
    }
    return true;
}

libusb_transfer* TransferEngine::_NextCandidate(const libusb_context* context, std::uint64_t before,
                                                std::uint64_t after) const
{
    for (libusb_transfer* transfer : m_inFlight) {
        const State& state = m_transfers.at(transfer);
        if (state.context == context && !state.busy && state.sequence <= before &&
            state.sequence > after &&
            (_IsHead(transfer) || state.cancelled || state.deadline != Clock::time_point::max())) {
            return transfer;
        }
    }
    return nullptr;
}

// Looks at every transfer that was there when the pass began. What callbacks submit waits for the
// next pass, so that a pass ends.
bool TransferEngine::_RunPass(BusLock& lock, libusb_context* context, Clock::time_point& next)
{
    const std::uint64_t before = m_sequence;
    std::uint64_t after = 0;
    bool any = false;
    while (libusb_transfer* transfer = _NextCandidate(context, before, after)) {
        State& state = m_transfers.at(transfer);
        after = state.sequence;
        const Step step = _Progress(lock, transfer, state, next);
        if (step) {
            _Complete(lock, transfer, *step);
            any = true;
        }
    }
    return any;
}

TransferEngine::Step TransferEngine::_Progress(BusLock& lock, libusb_transfer* transfer,
                                               State& state, Clock::time_point& next)
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
    if (_IsHead(transfer)) {
        state.busy = true;
        lock.unlock();
        result = _MoveData(transfer, state);
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

vcam::UsbResult TransferEngine::_MoveData(libusb_transfer* transfer, State& state)
{
    const auto length = static_cast<std::size_t>(transfer->length);
    if (transfer->type == LIBUSB_TRANSFER_TYPE_CONTROL) {
        return _MoveControl(transfer, state);
    }
    if (IsIn(*transfer)) {
        return state.attachment->device->BulkIn(transfer->endpoint, transfer->buffer, length,
                                                state.filled);
    }
    const vcam::UsbResult result =
        state.attachment->device->BulkOut(transfer->endpoint, transfer->buffer, length);
    state.filled = result.status == vcam::UsbStatus::Done ? length : 0;
    return result;
}

vcam::UsbResult TransferEngine::_MoveControl(libusb_transfer* transfer, State& state)
{
    const vcam::SetupPacket setup = vcam::SetupPacket::Parse(transfer->buffer);
    const std::size_t room = static_cast<std::size_t>(transfer->length) - kSetupSize;
    unsigned char* data = transfer->buffer + kSetupSize;
    std::vector<std::uint8_t> bytes;
    if (!setup.IsIn()) {
        bytes.assign(data, data + std::min<std::size_t>(room, setup.length));
    }
    const vcam::UsbResult result = state.attachment->device->Control(setup, bytes);
    state.filled = std::min(room, bytes.size());
    if (setup.IsIn()) {
        std::copy_n(bytes.begin(), state.filled, data);
    }
    return result;
}

void TransferEngine::_Complete(BusLock& lock, libusb_transfer* transfer,
                               libusb_transfer_status status)
{
    State& state = m_transfers.at(transfer);
    m_inFlight.remove(transfer);
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
    Bus().KickLocked();
}

bool TransferEngine::_RunHotplug(BusLock& lock, libusb_context* context)
{
    bool any = false;
    while (!context->hotplug.empty()) {
        const HotplugEvent event = context->hotplug.front();
        context->hotplug.pop_front();
        libusb_device_descriptor descriptor{};
        ParseDevice(event.device->attachment->device->Descriptors().Device(), descriptor);
        const std::vector<HotplugCallback> callbacks = context->callbacks;
        for (const HotplugCallback& callback : callbacks) {
            const auto matches = [](int wanted, int value) {
                return wanted < 0 || wanted == value;
            };
            if ((callback.events & event.event) == 0 ||
                !matches(callback.vendorId, descriptor.idVendor) ||
                !matches(callback.productId, descriptor.idProduct) ||
                !matches(callback.deviceClass, descriptor.bDeviceClass)) {
                continue;
            }
            lock.unlock();
            const int done =
                callback.function(context, event.device, event.event, callback.userData);
            lock.lock();
            any = true;
            if (done != 0) {
                std::erase_if(context->callbacks,
                              [&callback](const auto& other) { return other.id == callback.id; });
            }
        }
        Bus().Unreference(event.device);
    }
    return any;
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
        if (context->eventDepth != 0 && context->eventOwner == std::this_thread::get_id()) {
            Violate("sync-in-callback");
            return LIBUSB_ERROR_BUSY;
        }
    }
    libusb_transfer* transfer = Allocate(0);
    if (transfer == nullptr) {
        return LIBUSB_ERROR_NO_MEM;
    }
    std::atomic<bool> done{false};
    {
        const BusLock lock = Bus().Guard();
        m_transfers.at(transfer).internal = true;
    }
    libusb_fill_bulk_transfer(transfer, handle, endpoint, data, length, MarkDone, &done, timeout);
    transfer->type = type;
    int result = Submit(transfer);
    while (result == LIBUSB_SUCCESS && !done.load()) {
        HandleEvents(context, Clock::time_point::max(), [&done] { return done.load(); });
    }
    if (result == LIBUSB_SUCCESS) {
        result = ErrorOf(transfer->status);
        if (transferred != nullptr) {
            *transferred = transfer->actual_length;
        }
    }
    Free(transfer);
    return result;
}

bool TransferEngine::AnyInFlight(const libusb_context* context) const
{
    return std::any_of(m_inFlight.begin(), m_inFlight.end(), [&](libusb_transfer* transfer) {
        return m_transfers.at(transfer).context == context;
    });
}

bool TransferEngine::AnyInFlight(const libusb_device_handle* handle) const
{
    return std::any_of(m_inFlight.begin(), m_inFlight.end(), [&](libusb_transfer* transfer) {
        return m_transfers.at(transfer).handle == handle;
    });
}

void TransferEngine::CancelAll(const libusb_device_handle* handle)
{
    for (auto& [transfer, state] : m_transfers) {
        state.cancelled = state.cancelled || (state.inFlight && state.handle == handle);
    }
}

Clock::time_point TransferEngine::NextTimeout(const libusb_context* context) const
{
    Clock::time_point next = Clock::time_point::max();
    for (libusb_transfer* transfer : m_inFlight) {
        const State& state = m_transfers.at(transfer);
        next = state.context == context ? std::min(next, state.deadline) : next;
    }
    return next;
}

void TransferEngine::CountLive(vusb_live_objects& live) const
{
    for (const auto& [transfer, state] : m_transfers) {
        live.transfers += state.internal ? 0 : 1;
        live.transfers_in_flight += state.internal || !state.inFlight ? 0 : 1;
    }
}

} // namespace vbus
