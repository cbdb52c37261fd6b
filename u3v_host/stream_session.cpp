#include "stream_session.h"

#include <algorithm>
#include <fstream>
#include <new>
#include <string>

#include "error.h"

namespace u3v_host {

using Phase = StreamPosition::Phase;
using namespace std::chrono_literals;

namespace {

constexpr auto kImageUnderWay = 500ms; // what an end may wait for
constexpr auto kReaping = 3s;          // what the system may take to give transfers back
constexpr auto kLongestDelay = 50ms;   // between failed transfers
constexpr auto kRefusalDelay = 100ms;  // until a refused transfer is tried again
constexpr size_t kPacketOfTheBus = 1024;
constexpr size_t kLargestSmall = size_t{16} * 1024;
constexpr size_t kMostSmallDeviceMemory = size_t{256} * 1024;
constexpr unsigned kCautiousImages = 4;

// Comes alone: how many bytes it takes to get back into step is not known before.
bool ComesAlone(Phase phase)
{
    return phase != Phase::Leader && phase != Phase::Payload;
}

size_t SmallSize(const StreamPlan& plan, size_t packet)
{
    const size_t largest = WholePackets(std::max({plan.leader, plan.trailer, plan.final2}), packet);
    return std::min(largest, WholePackets(kLargestSmall, packet));
}

size_t SlotCount(const StreamPlan& plan, const StreamDepth& depth)
{
    const uint64_t perImage =
        uint64_t{plan.transferCount} + (plan.final1 != 0) + (plan.final2 != 0) + 2;
    return static_cast<size_t>(std::min<uint64_t>(perImage * depth.images, depth.transfers));
}

// Device memory saves the kernel a copy and an allocation for each leader and trailer. It counts
// against a limit that the images need more.
UsbBlock AllocateSmall(const std::shared_ptr<libusb_device_handle>& handle, size_t size)
{
    UsbBlock block;
    if (size <= kMostSmallDeviceMemory) {
        block = UsbBlock::AllocateForDevice(handle, size);
    }
    return block.Data() != nullptr ? std::move(block) : UsbBlock::Allocate(size);
}

// What the kernel's limit has to be for two images of this camera beside what is in use.
std::string RefusalText(int result, const StreamPlan& plan)
{
    constexpr uint64_t kMiB = uint64_t{1024} * 1024;
    uint64_t limit = 16;
    std::ifstream("/sys/module/usbcore/parameters/usbfs_memory_mb") >> limit;
    const uint64_t needed = (2 * plan.Capacity() + kMiB - 1) / kMiB;
    return std::string("the system refuses every transfer (") + libusb_error_name(result) +
           "): set usbfs_memory_mb to " + std::to_string(limit + needed + 1) + " or more";
}

} // namespace

StreamSession::StreamSession(StreamLink& link, ImageSink& sink, const StreamPlan& plan,
                             const StreamDepth& depth)
    : m_link(link), m_sink(sink), m_handle(link.Handle()), m_plan(plan), m_depth(depth),
      m_wakeup(link.MakeWakeup()), m_packet(link.PacketSize()),
      m_smallSize(SmallSize(plan, m_packet)), m_assembler(plan, m_packet, sink),
      m_limit(SlotCount(plan, depth))
{
    Locker lock(m_mutex);
    _makeSlots();
}

void StreamSession::_makeSlots()
{
    m_smallBlocks = AllocateSmall(m_handle, m_smallSize * m_limit);
    m_slots.reserve(m_limit);
    for (size_t i = 0; i < m_limit; ++i) {
        TransferPtr transfer(libusb_alloc_transfer(0), libusb_free_transfer);
        if (transfer == nullptr) {
            throw std::bad_alloc();
        }
        m_slots.push_back({.session = this,
                           .transfer = std::move(transfer),
                           .small = m_smallBlocks.Data() + i * m_smallSize,
                           .large = {},
                           .place = {},
                           .length = 0,
                           .pending = false});
    }
}

void StreamSession::Begin()
{
    Locker lock(m_mutex);
    m_failureTold = true; // whoever begins is told by the exception
    _submitAhead();
    m_failureTold = false;
    if (m_gone || m_state == State::Recovering) {
        m_state = State::Ended;
        m_assembler.Abandon();
        throw Error(m_gone ? ErrorKind::Io : ErrorKind::ResourceExhausted,
                    m_gone ? "the camera has left" : RefusalText(LIBUSB_ERROR_NO_MEM, m_plan));
    }
}

// ---- completions

void StreamSession::_onCompletion(libusb_transfer* transfer)
{
    Slot& slot = *static_cast<Slot*>(transfer->user_data);
    slot.session->_completed(slot);
}

void StreamSession::_completed(Slot& slot)
{
    Locker lock(m_mutex);
    slot.pending = false;
    --m_pending;
    m_pendingBytes -= slot.length;
    _advance();
}

void StreamSession::_advance()
{
    if (m_state == State::Ended) {
        return; // a transfer that the system has kept too long
    }
    while (!m_draining && m_used != 0 && !_slot(0).pending) {
        if (!_takeFront()) {
            _drain();
        }
    }
    if (m_draining && m_pending == 0) {
        _settle();
    }
    _submitAhead();
    if (!_isOn()) {
        m_wakeup->NotifyAll(); // whoever ends it
    }
}

// False when the plan cannot go on behind this transfer.
bool StreamSession::_takeFront()
{
    const Slot& slot = _slot(0);
    const libusb_transfer& transfer = *slot.transfer;
    const StreamPlace place = slot.place;
    const std::span<const uint8_t> data(transfer.buffer,
                                        static_cast<size_t>(transfer.actual_length));
    if (transfer.status != LIBUSB_TRANSFER_COMPLETED || !m_assembler.Accept(place, data)) {
        return false;
    }
    _popFront();
    if (place.trailer) {
        m_cautiousImages -= m_cautiousImages != 0;
        m_delay = 0ms;
    }
    return m_assembler.IsWanted() && !(m_assembler.LeavesOutTransfers() && m_used != 0);
}

void StreamSession::_popFront()
{
    m_leadersAhead -= _slot(0).place.phase == Phase::Leader;
    m_first = (m_first + 1) % m_slots.size();
    --m_used;
}

// ---- submitting

void StreamSession::_submitAhead()
{
    while (m_state == State::Running || m_state == State::Ending) {
        const StreamPlace place = m_assembler.PlaceAt(m_next);
        if (m_draining || _isReplaying() || !_mayFollow(place)) {
            return;
        }
        if (const int result = _submit(place); result != 0) {
            _refused(result);
            return;
        }
    }
}

bool StreamSession::_mayFollow(const StreamPlace& place)
{
    if (m_used == m_slots.size() || m_pending >= m_limit) {
        return false;
    }
    if (m_used != 0 && (ComesAlone(place.phase) || ComesAlone(_slot(m_used - 1).place.phase))) {
        return false;
    }
    return (place.phase != Phase::Leader && place.phase != Phase::Seek) || _mayBeginImage();
}

bool StreamSession::_mayBeginImage()
{
    const size_t images = m_leadersAhead + m_assembler.IsImageOpen();
    const bool isFull = images >= m_depth.images || m_pendingBytes >= m_depth.bytes;
    return m_state == State::Running && !(images >= 2 && isFull) &&
           !(m_cautiousImages != 0 && m_used != 0) && m_assembler.Reserve(m_leadersAhead);
}

int StreamSession::_submit(const StreamPlace& place)
{
    Slot& slot = _slot(m_used);
    slot.place = place;
    slot.length = WholePackets(place.expected, m_packet);
    uint8_t* const memory = _memoryFor(slot);
    if (memory == nullptr) {
        return LIBUSB_ERROR_NO_MEM;
    }
    libusb_fill_bulk_transfer(slot.transfer.get(), m_handle.get(), m_link.Endpoint(), memory,
                              static_cast<int>(slot.length), _onCompletion, &slot, 0);
    const int result = libusb_submit_transfer(slot.transfer.get());
    if (result == 0) {
        slot.pending = true;
        ++m_used;
        ++m_pending;
        m_pendingBytes += slot.length;
        m_leadersAhead += place.phase == Phase::Leader;
        m_next = m_assembler.Behind(place);
        m_failureTold = false;
    }
    return result;
}

// Into the image's memory whatever fits there in whole packets.
uint8_t* StreamSession::_memoryFor(Slot& slot)
{
    const StreamPlace& place = slot.place;
    const bool isWhole = place.expected % kPacketOfTheBus == 0 && slot.length == place.expected;
    if (place.phase == Phase::Payload && !place.trailer && isWhole) {
        const Target& target = m_assembler.TargetAhead(m_leadersAhead);
        if (place.offset + place.expected <= target.size) {
            return target.data + place.offset;
        }
    }
    if (slot.length <= m_smallSize) {
        return slot.small;
    }
    try {
        slot.large.resize(std::max(slot.large.size(), slot.length));
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
    return slot.large.data();
}

// The limit that the system has shown is kept; what is in flight makes room when it completes.
void StreamSession::_refused(int result)
{
    m_gone = m_gone || result == LIBUSB_ERROR_NO_DEVICE;
    ++m_refusals;
    if (m_pending != 0) {
        m_limit = m_pending;
        return;
    }
    if (!_isOn()) {
        return; // whoever ends it looks after the rest
    }
    if (m_gone) {
        _endByItself();
        return;
    }
    m_delay = kRefusalDelay;
    m_limit = m_slots.size();
    if (!m_failureTold) {
        m_failureTold = true;
        m_sink.Failed(Error(ErrorKind::ResourceExhausted, RefusalText(result, m_plan)));
    }
    _recover();
}

// ---- out of step

// The last first, so that the camera finds none of them waiting in the meantime.
void StreamSession::_drain()
{
    m_draining = true;
    for (size_t i = m_used; i-- > 0;) {
        if (_slot(i).pending) {
            libusb_cancel_transfer(_slot(i).transfer.get());
        }
    }
}

// Every transfer has been reaped: puts together what they have received, and decides how to go on.
void StreamSession::_settle()
{
    const bool wasInStep = m_assembler.Position().phase != Phase::Seek;
    m_resynchronisations += wasInStep && m_state == State::Running && m_assembler.IsWanted();
    m_cautiousImages = kCautiousImages;
    _setAside();
    m_draining = false;
    _replay();
    if (!_isOn()) {
        return;
    }
    if (m_gone || !m_assembler.IsWanted()) {
        _endByItself();
    } else if (m_failed) {
        _recover();
    }
}

void StreamSession::_setAside()
{
    m_failed = false;
    try {
        for (; m_used != 0; _popFront()) {
            _setAsideSlot(_slot(0));
        }
    } catch (const std::bad_alloc&) {
        m_bytes.clear();
        m_pieces.clear();
        for (; m_used != 0; _popFront()) {
        }
        m_assembler.Interrupt();
    }
}

void StreamSession::_setAsideSlot(const Slot& slot)
{
    const libusb_transfer& transfer = *slot.transfer;
    const auto size = static_cast<size_t>(transfer.actual_length);
    const bool isComplete = transfer.status == LIBUSB_TRANSFER_COMPLETED;
    const bool isFailed = !isComplete && transfer.status != LIBUSB_TRANSFER_CANCELLED;
    m_gone = m_gone || transfer.status == LIBUSB_TRANSFER_NO_DEVICE;
    m_failed = m_failed || isFailed;
    m_bytes.insert(m_bytes.end(), transfer.buffer, transfer.buffer + size);
    m_pieces.push_back({size, isComplete && size == 0, isFailed});
}

// Stops where an image has no target; TargetsAvailable goes on then. What came behind the last
// image that was wanted is dropped.
void StreamSession::_replay()
{
    while (m_fedPieces < m_pieces.size() && m_assembler.IsWanted()) {
        if (!_replayPiece()) {
            return;
        }
        ++m_fedPieces;
        m_fedOfPiece = 0;
    }
    m_pieces.clear();
    m_bytes.clear();
    m_fedPieces = 0;
    m_fedBytes = 0;
    m_next = m_assembler.Position();
}

bool StreamSession::_replayPiece()
{
    const Piece& piece = m_pieces[m_fedPieces];
    while (m_fedOfPiece < piece.size && m_assembler.IsWanted()) {
        const size_t size = std::min(m_packet, piece.size - m_fedOfPiece);
        if (!m_assembler.Feed({m_bytes.data() + m_fedBytes, size})) {
            return false;
        }
        m_fedOfPiece += size;
        m_fedBytes += size;
    }
    if (piece.isEmptyTransfer) {
        m_assembler.Feed({});
    }
    if (piece.isFailed) {
        m_assembler.Interrupt();
    }
    return true;
}

// Each failure in a row is waited for a little longer, so that an endpoint that stalls for ever
// costs nothing.
void StreamSession::_recover()
{
    m_state = State::Recovering;
    const auto delay = m_delay;
    m_delay = std::min<std::chrono::milliseconds>(kLongestDelay, std::max(2 * m_delay, 1ms));
    m_link.Defer(delay, [weak = weak_from_this()] {
        if (const auto session = weak.lock()) {
            session->_recovered();
        }
    });
}

void StreamSession::_recovered()
{
    libusb_clear_halt(m_handle.get(), m_link.Endpoint());
    Locker lock(m_mutex);
    if (m_state == State::Recovering) {
        m_state = State::Running;
        _submitAhead();
    }
}

// ---- ends

void StreamSession::_endByItself()
{
    m_state = State::Ended;
    m_assembler.Abandon();
    if (m_gone) {
        m_link.HasLeft();
    }
    m_sink.Ended();
}

bool StreamSession::End(bool kill)
{
    Locker lock(m_mutex);
    if (m_state == State::Ended) {
        return true;
    }
    const bool isRunning = m_state == State::Running;
    m_state = State::Ending;
    if (isRunning && !kill) {
        _waitUntilWhole();
    }
    m_state = State::Reaping;
    if (!m_draining) {
        _drain();
    }
    const bool isReaped = _waitUntilReaped();
    if (isReaped && m_draining) {
        _settle();
    }
    m_state = State::Ended;
    m_assembler.Abandon();
    return isReaped;
}

void StreamSession::_waitUntilWhole()
{
    const auto deadline = Deadline::clock::now() + kImageUnderWay;
    const uint64_t started = m_assembler.Started();
    while (m_assembler.IsImageOpen() && m_assembler.Started() == started && !m_gone &&
           Deadline::clock::now() < deadline) {
        m_wakeup->Wait(m_mutex, deadline);
    }
}

bool StreamSession::_waitUntilReaped()
{
    const auto deadline = Deadline::clock::now() + kReaping;
    while (m_pending != 0 && Deadline::clock::now() < deadline) {
        m_wakeup->Wait(m_mutex, deadline);
    }
    return m_pending == 0;
}

void StreamSession::TargetsAvailable()
{
    Locker lock(m_mutex);
    if (!_isOn()) {
        return;
    }
    if (_isReplaying() && !m_draining) {
        _replay();
        if (!m_assembler.IsWanted()) {
            _endByItself();
        }
    }
    _submitAhead();
}

void StreamSession::CameraHasLeft()
{
    Locker lock(m_mutex);
    m_gone = true;
    if (_isOn() && !m_draining && m_pending == 0) {
        _endByItself();
    }
}

bool StreamSession::IsRunning() const
{
    Locker lock(m_mutex);
    return _isOn();
}

StreamStatistics StreamSession::Statistics() const
{
    Locker lock(m_mutex);
    return {.transferSize = m_plan.transferSize,
            .imagesInFlight = m_leadersAhead + m_assembler.IsImageOpen(),
            .transfersInFlight = m_pending,
            .resynchronisations = m_resynchronisations,
            .started = m_assembler.Started(),
            .droppedTransferDepth = m_refusals};
}

} // namespace u3v_host
