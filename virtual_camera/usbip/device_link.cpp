#include "device_link.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "usb_descriptors.h"
#include "usbip_wire.h"

namespace vcam {

namespace {

using namespace usbip;

constexpr std::size_t kInputSize = 64U << 10;
constexpr std::size_t kMaxOut = 16U << 20;   // a host that wants more is none
constexpr std::size_t kMaxIn = 256U << 20;   // past this the request is refused
constexpr std::size_t kMaxQueued = 1U << 16; // requests on one endpoint
constexpr std::size_t kTurn = 32;            // requests answered before the socket is looked at
constexpr std::chrono::milliseconds kHold{200};
constexpr int kDrainMs = 100; // of silence

std::int32_t ErrorOf(UsbStatus status)
{
    switch (status) {
    case UsbStatus::Stall: return -EPIPE;
    case UsbStatus::Overflow: return -EOVERFLOW;
    case UsbStatus::NoDevice: return -ENODEV;
    case UsbStatus::Error: return -EPROTO;
    default: return 0;
    }
}

// Only a host that has just reset the port asks for so little of the device descriptor: it cannot
// know more before it knows the packet size. The reset itself never crosses the wire.
bool FollowsReset(const SetupPacket& setup)
{
    constexpr std::uint8_t kGetDescriptor = 6;
    constexpr std::uint16_t kShortest = 8;
    return setup.requestType == 0x80 && setup.request == kGetDescriptor &&
           setup.value == usb::kDeviceType << 8 && setup.length == kShortest;
}

} // namespace

DeviceLink::DeviceLink(UsbDevice& device, FileDescriptor socket, Busy busy)
    : m_device(device), m_socket(std::move(socket)), m_busy(std::move(busy)), m_input(kInputSize)
{
    m_device.SetListener([wakeUp = m_wakeUp] { wakeUp->Wake(); });
}

DeviceLink::~DeviceLink()
{
    m_device.SetListener({});
}

void DeviceLink::Stop()
{
    m_stop = true;
    m_wakeUp->Wake();
    ::shutdown(m_socket.Get(), SHUT_RDWR); // releases a send that the host does not take
}

bool DeviceLink::_EndAs(End end)
{
    m_end = m_stop ? End::Stopped : end;
    return false;
}

DeviceLink::End DeviceLink::Run()
{
    bool more = false;
    while (_Wait(more) && _Receive() && _TakeRecords() && _Pump(more)) {
    }
    _Drain();
    return m_end;
}

// What the camera has said last still reaches the host: a socket closed with unread requests in it
// would take that back.
void DeviceLink::_Drain()
{
    ::shutdown(m_socket.Get(), SHUT_WR);
    pollfd entry{m_socket.Get(), POLLIN, 0};
    while (::poll(&entry, 1, kDrainMs) > 0 &&
           ::recv(m_socket.Get(), m_input.data(), m_input.size(), MSG_DONTWAIT) > 0) {
    }
    // Closed by the destructor: until then Stop() may still use it.
}

Clock::time_point DeviceLink::_NextTime() const
{
    Clock::time_point next = Clock::time_point::max();
    for (const auto& [endpoint, pipe] : m_pipes) {
        if (!pipe.queue.empty()) {
            next = std::min(next, pipe.held != 0 ? pipe.heldUntil : pipe.retryAt);
        }
    }
    for (const Parked& parked : m_parked) {
        next = std::min(next, parked.dueAt);
    }
    return next;
}

bool DeviceLink::_Wait(bool more)
{
    pollfd entries[] = {{m_socket.Get(), POLLIN, 0}, {m_wakeUp->Descriptor(), POLLIN, 0}};
    const Clock::time_point next = _NextTime();
    timespec limit{};
    if (!more && next != Clock::time_point::max()) {
        const auto wait = std::max(next - Clock::now(), Clock::duration::zero());
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(wait);
        limit.tv_sec = seconds.count();
        limit.tv_nsec = (wait - seconds).count();
    }
    const bool forEver = !more && next == Clock::time_point::max();
    ::ppoll(entries, 2, forEver ? nullptr : &limit, nullptr);
    if (entries[1].revents != 0) {
        m_wakeUp->Clear();
    }
    return m_stop ? _EndAs(End::Stopped) : true;
}

bool DeviceLink::_Receive()
{
    const ssize_t count = ::recv(m_socket.Get(), m_input.data() + m_inputSize,
                                 m_input.size() - m_inputSize, MSG_DONTWAIT);
    if (count > 0) {
        m_inputSize += static_cast<std::size_t>(count);
        return true;
    }
    const bool later = count < 0 && (errno == EAGAIN || errno == EINTR);
    return later ? true : _EndAs(End::HostLeft);
}

bool DeviceLink::_TakeRecords()
{
    std::size_t at = 0;
    while (m_inputSize - at >= kHeaderSize) {
        const std::uint8_t* record = m_input.data() + at;
        const std::size_t size = _RecordSize(record);
        if (size == 0) {
            ++m_counts.malformed;
            return _EndAs(End::Malformed);
        }
        if (m_inputSize - at < size) {
            break;
        }
        if (!_TakeRecord(record, size)) {
            return false;
        }
        at += size;
    }
    m_inputSize -= at;
    std::memmove(m_input.data(), m_input.data() + at, m_inputSize);
    if (m_inputSize >= kHeaderSize) {
        m_input.resize(std::max(m_input.size(), _RecordSize(m_input.data())));
    }
    return true;
}

// Header and data; 0 for what cannot be a record.
std::size_t DeviceLink::_RecordSize(const std::uint8_t* record) const
{
    const std::uint32_t command = kCommand.Load(record);
    const std::uint32_t direction = kDirection.Load(record);
    if (command == kCmdUnlink) {
        return kHeaderSize;
    }
    if (command != kCmdSubmit || direction > kIn || kEndpoint.Load(record) > 15) {
        return 0;
    }
    const std::size_t data = direction == kIn ? 0 : kBufferLength.Load(record);
    return data > kMaxOut ? 0 : kHeaderSize + data;
}

bool DeviceLink::_TakeRecord(const std::uint8_t* record, std::size_t size)
{
    if (kCommand.Load(record) == kCmdUnlink) {
        return _Unlink(record);
    }
    ++m_counts.requests;
    if (kEndpoint.Load(record) == 0) {
        return _Control(record, size);
    }
    return kDirection.Load(record) == kIn ? _Queue(record) : _BulkOut(record, size);
}

bool DeviceLink::_Control(const std::uint8_t* record, std::size_t size)
{
    const SetupPacket setup = SetupPacket::Parse(record + kSetup);
    const Request request{kSequence.Load(record), 0, kPacketCount.Load(record),
                          kBufferLength.Load(record)};
    if (FollowsReset(setup)) {
        m_device.BusReset();
    }
    std::vector<std::uint8_t> data(record + kHeaderSize, record + size);
    const UsbResult result = m_device.Control(setup, data);
    if (result.status == UsbStatus::NoDevice) {
        return _EndAs(End::DeviceLeft);
    }
    if (result.status != UsbStatus::Done && result.status != UsbStatus::Nak) {
        return _AnswerSubmit(request, ErrorOf(result.status), 0, nullptr, 0);
    }
    const bool in = kDirection.Load(record) == kIn;
    const std::size_t actual = in ? std::min(data.size(), request.capacity) : size - kHeaderSize;
    data.resize(in ? actual : 0);
    if (result.status == UsbStatus::Nak || result.retryAt != Clock::time_point::max()) {
        m_parked.push_back({request, result.retryAt, actual, std::move(data)});
        return true;
    }
    return _AnswerSubmit(request, 0, actual, data.data(), data.size());
}

bool DeviceLink::_AnswerParked()
{
    const auto now = Clock::now();
    const auto isDue = [now](const Parked& parked) { return parked.dueAt <= now; };
    for (const Parked& parked : m_parked) {
        if (isDue(parked) && !_AnswerSubmit(parked.request, 0, parked.actual, parked.data.data(),
                                            parked.data.size())) {
            return false;
        }
    }
    std::erase_if(m_parked, isDue);
    return true;
}

bool DeviceLink::_BulkOut(const std::uint8_t* record, std::size_t size)
{
    const Request request{kSequence.Load(record), 0, kPacketCount.Load(record), 0};
    const auto endpoint = static_cast<std::uint8_t>(kEndpoint.Load(record));
    const std::size_t length = size - kHeaderSize;
    const UsbResult result = m_device.BulkOut(endpoint, record + kHeaderSize, length);
    if (result.status == UsbStatus::NoDevice) {
        return _EndAs(End::DeviceLeft);
    }
    if (result.status == UsbStatus::Nak) {
        m_parked.push_back({request, Clock::time_point::max(), 0, {}});
        return true;
    }
    const bool taken = result.status == UsbStatus::Done;
    return _AnswerSubmit(request, ErrorOf(result.status), taken ? length : 0, nullptr, 0);
}

bool DeviceLink::_Queue(const std::uint8_t* record)
{
    constexpr std::uint8_t kDirectionBit = 0x80;
    const auto endpoint = static_cast<std::uint8_t>(kEndpoint.Load(record) | kDirectionBit);
    const Request request{kSequence.Load(record), kTransferFlags.Load(record),
                          kPacketCount.Load(record), kBufferLength.Load(record)};
    if (request.capacity > kMaxIn) {
        return _AnswerSubmit(request, -ENOMEM, 0, nullptr, 0);
    }
    Pipe& pipe = m_pipes[endpoint];
    if (pipe.queue.size() >= kMaxQueued) {
        ++m_counts.malformed;
        return _EndAs(End::Malformed);
    }
    pipe.queue.push_back(request);
    pipe.bytes += request.capacity;
    m_counts.maxQueued = std::max<std::uint64_t>(m_counts.maxQueued, pipe.queue.size());
    m_counts.maxBytes = std::max<std::uint64_t>(m_counts.maxBytes, pipe.bytes);
    return true;
}

// A request that is still here is cancelled; packets that it has got already go with it, as from a
// real controller. Any other has been answered before.
bool DeviceLink::_Unlink(const std::uint8_t* record)
{
    std::int32_t status = 0;
    if (!_TakeBack(kUnlinkSequence.Load(record), status)) {
        return false;
    }
    std::uint8_t header[kHeaderSize] = {};
    kCommand.Store(header, kRetUnlink);
    kSequence.Store(header, kSequence.Load(record));
    kStatus.Store(header, status);
    return _Send(header, nullptr, 0);
}

bool DeviceLink::_TakeBack(std::uint32_t wanted, std::int32_t& status)
{
    const auto isWanted = [wanted](const Parked& parked) {
        return parked.request.sequence == wanted;
    };
    if (std::erase_if(m_parked, isWanted) != 0) {
        ++m_counts.unlinked;
        status = -ECONNRESET;
        return true;
    }
    for (auto& [endpoint, pipe] : m_pipes) {
        const auto found =
            std::find_if(pipe.queue.begin(), pipe.queue.end(),
                         [wanted](const Request& r) { return r.sequence == wanted; });
        if (found == pipe.queue.end()) {
            continue;
        }
        ++m_counts.unlinked;
        const Request request = *found;
        const bool first = found == pipe.queue.begin();
        const std::size_t filled = first ? pipe.filled : 0;
        if (filled != 0 &&
            !_AnswerSubmit(request, -ECONNRESET, filled, pipe.buffer.get(), filled)) {
            return false;
        }
        status = filled != 0 ? 0 : -ECONNRESET;
        _Pop(pipe, static_cast<std::size_t>(found - pipe.queue.begin()));
        break;
    }
    return true;
}

void DeviceLink::_Pop(Pipe& pipe, std::size_t index)
{
    pipe.bytes -= pipe.queue[index].capacity;
    pipe.queue.erase(pipe.queue.begin() + static_cast<std::ptrdiff_t>(index));
    pipe.filled = index == 0 ? 0 : pipe.filled;
    pipe.held -= index < pipe.held ? 1 : 0;
}

bool DeviceLink::_Pump(bool& more)
{
    more = false;
    if (m_device.Gone()) {
        return _EndAs(End::DeviceLeft);
    }
    if (!_AnswerParked()) {
        return false;
    }
    for (auto& [endpoint, pipe] : m_pipes) {
        if (!_PumpPipe(endpoint, pipe, more)) {
            return false;
        }
    }
    return true;
}

bool DeviceLink::_PumpPipe(std::uint8_t endpoint, Pipe& pipe, bool& more)
{
    pipe.held = Clock::now() < pipe.heldUntil ? pipe.held : 0;
    for (std::size_t turn = 0; !pipe.queue.empty() && pipe.held == 0; ++turn) {
        if (turn == kTurn) {
            more = true;
            return true;
        }
        const std::size_t capacity = pipe.queue.front().capacity;
        if (pipe.bufferSize < capacity) {
            // Cleared: a camera may leave bytes as they are, and they go to another machine.
            pipe.buffer = std::make_unique<std::uint8_t[]>(capacity);
            pipe.bufferSize = capacity;
        }
        const UsbResult result =
            m_device.BulkIn(endpoint, pipe.buffer.get(), capacity, pipe.filled);
        pipe.retryAt = result.retryAt;
        if (result.status == UsbStatus::Nak) {
            return true;
        }
        if (!_Finish(endpoint, pipe, result.status)) {
            return false;
        }
    }
    return true;
}

bool DeviceLink::_Finish(std::uint8_t endpoint, Pipe& pipe, UsbStatus status)
{
    if (status == UsbStatus::NoDevice) {
        return _EndAs(End::DeviceLeft);
    }
    const Request request = pipe.queue.front();
    const std::size_t filled = pipe.filled;
    std::int32_t error = ErrorOf(status);
    _Pop(pipe, 0);
    if (error == 0 && filled < request.capacity && (request.flags & kShortNotOk) != 0) {
        // The requests behind are the rest of the same transfer, which is over now.
        error = -EREMOTEIO;
        pipe.held = pipe.queue.size();
        pipe.heldUntil = Clock::now() + kHold;
    }
    if (endpoint == usb::kStreamIn && pipe.queue.empty() && m_busy()) {
        ++m_counts.starved;
    }
    return _AnswerSubmit(request, error, filled, pipe.buffer.get(), filled);
}

bool DeviceLink::_AnswerSubmit(const Request& request, std::int32_t status, std::size_t actual,
                               const std::uint8_t* data, std::size_t size)
{
    std::uint8_t header[kHeaderSize] = {};
    kCommand.Store(header, kRetSubmit);
    kSequence.Store(header, request.sequence);
    kStatus.Store(header, status);
    kActualLength.Store(header, static_cast<std::uint32_t>(actual));
    kPacketCount.Store(header, request.packetCount);
    return _Send(header, data, size);
}

bool DeviceLink::_Send(const std::uint8_t* header, const std::uint8_t* data, std::size_t size)
{
    iovec parts[2];
    parts[0].iov_base = const_cast<std::uint8_t*>(header); // sendmsg reads only
    parts[0].iov_len = kHeaderSize;
    parts[1].iov_base = const_cast<std::uint8_t*>(data);
    parts[1].iov_len = size;
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = size == 0 ? 1 : 2;
    while (message.msg_iovlen != 0) {
        const ssize_t count = ::sendmsg(m_socket.Get(), &message, MSG_NOSIGNAL);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            return _EndAs(End::HostLeft);
        }
        // Leaves what has not gone yet.
        auto sent = static_cast<std::size_t>(count);
        while (message.msg_iovlen != 0 && sent >= message.msg_iov->iov_len) {
            sent -= message.msg_iov->iov_len;
            ++message.msg_iov;
            --message.msg_iovlen;
        }
        if (message.msg_iovlen != 0) {
            message.msg_iov->iov_base =
                static_cast<std::uint8_t*>(message.msg_iov->iov_base) + sent;
            message.msg_iov->iov_len -= sent;
        }
    }
    return true;
}

} // namespace vcam
