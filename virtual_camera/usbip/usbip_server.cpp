#include "usbip_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "usbip_wire.h"

namespace vcam {

namespace {

using namespace usbip;

constexpr std::size_t kMaxConnections = 64;
constexpr timeval kHandshakeLimit{5, 0}; // a client that says nothing is no client
constexpr timeval kNoLimit{0, 0};

std::string BusId(std::size_t index)
{
    return "1-" + std::to_string(index + 1);
}

bool ReadAll(int socket, std::uint8_t* data, std::size_t size)
{
    return ::recv(socket, data, size, MSG_WAITALL) == static_cast<ssize_t>(size);
}

bool WriteAll(int socket, const std::vector<std::uint8_t>& data)
{
    return ::send(socket, data.data(), data.size(), MSG_NOSIGNAL) ==
           static_cast<ssize_t>(data.size());
}

std::vector<std::uint8_t> Reply(Operation code, bool good)
{
    std::vector<std::uint8_t> reply(kOperationSize);
    kOpVersion.Store(reply.data(), kVersion);
    kOpCode.Store(reply.data(), code);
    kOpStatus.Store(reply.data(), good ? 0 : 1);
    return reply;
}

void SetLimit(int socket, timeval limit)
{
    ::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
}

// Both families in one record; false for what is no numeric address.
bool MakeAddress(const std::string& address, std::uint16_t port, sockaddr_storage& storage,
                 socklen_t& size)
{
    sockaddr_in four{};
    four.sin_family = AF_INET;
    four.sin_port = htons(port);
    if (::inet_pton(AF_INET, address.c_str(), &four.sin_addr) == 1) {
        size = sizeof four;
        std::memcpy(&storage, &four, size);
        return true;
    }
    sockaddr_in6 six{};
    six.sin6_family = AF_INET6;
    six.sin6_port = htons(port);
    if (::inet_pton(AF_INET6, address.c_str(), &six.sin6_addr) == 1) {
        size = sizeof six;
        std::memcpy(&storage, &six, size);
        return true;
    }
    return false;
}

std::uint16_t PortOf(const sockaddr_storage& storage)
{
    std::uint16_t port = 0; // at the same place in both families
    std::memcpy(&port, reinterpret_cast<const std::uint8_t*>(&storage) + sizeof(sa_family_t),
                sizeof port);
    return ntohs(port);
}

} // namespace

UsbipServer::UsbipServer(const std::vector<CameraConfig>& cameras, Say say) : m_say(std::move(say))
{
    for (std::uint32_t number = 0; number < cameras.size(); ++number) {
        m_slots.emplace_back();
        m_slots.back().unit = std::make_unique<CameraUnit>(number, cameras[number]);
    }
}

UsbipServer::~UsbipServer()
{
    Stop();
    _Reap(true);
}

std::uint16_t UsbipServer::Listen(const std::string& address, std::uint16_t port)
{
    sockaddr_storage storage{};
    socklen_t size = 0;
    if (!MakeAddress(address, port, storage, size)) {
        throw std::runtime_error("\"" + address +
                                 "\" is no numeric address (127.0.0.1, ::1, 0.0.0.0, ...)");
    }
    m_listener = FileDescriptor(::socket(storage.ss_family, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const int on = 1;
    ::setsockopt(m_listener.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    auto* name = reinterpret_cast<sockaddr*>(&storage);
    if (::bind(m_listener.Get(), name, size) != 0 || ::listen(m_listener.Get(), 8) != 0) {
        const int error = errno;
        std::string text = "cannot listen at " + address + " port " + std::to_string(port) + ": " +
                           std::strerror(error);
        if (error == EADDRINUSE) {
            text += "\n  fix: choose another port, --listen " + address +
                    ":3241, or end the other "
                    "server (ss -ltnp)";
        }
        throw std::runtime_error(text);
    }
    ::getsockname(m_listener.Get(), name, &size);
    return PortOf(storage);
}

void UsbipServer::Run()
{
    pollfd entries[] = {{m_listener.Get(), POLLIN, 0}, {m_wakeUp.Descriptor(), POLLIN, 0}};
    for (;;) {
        ::poll(entries, 2, -1);
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            if (m_stop) {
                break;
            }
        }
        m_wakeUp.Clear();
        _Reap(false);
        if ((entries[0].revents & POLLIN) != 0) {
            _Accept();
        }
    }
    _Reap(true);
}

void UsbipServer::Stop()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_stop = true;
    m_wakeUp.Wake();
    for (const Slot& slot : m_slots) {
        slot.unit->Stop();
    }
    for (const Connection& connection : m_connections) {
        if (connection.descriptor >= 0) {
            ::shutdown(connection.descriptor, SHUT_RDWR);
        }
    }
}

void UsbipServer::_Accept()
{
    FileDescriptor socket(::accept4(m_listener.Get(), nullptr, nullptr, SOCK_CLOEXEC));
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (!socket.IsOpen() || m_stop || m_connections.size() >= kMaxConnections) {
        return;
    }
    const int on = 1;
    ::setsockopt(socket.Get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    ::setsockopt(socket.Get(), SOL_SOCKET, SO_KEEPALIVE, &on, sizeof on);
    m_connections.emplace_back();
    Connection& connection = m_connections.back();
    connection.descriptor = socket.Get();
    connection.socket = std::move(socket);
    connection.thread = std::thread([this, &connection] { _Serve(connection); });
}

// Joins the threads of connections that are over, or of all.
void UsbipServer::_Reap(bool all)
{
    std::list<Connection> over;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        for (auto at = m_connections.begin(); at != m_connections.end();) {
            const auto next = std::next(at);
            if (all || at->done) {
                over.splice(over.end(), m_connections, at);
            }
            at = next;
        }
    }
    for (Connection& connection : over) {
        connection.thread.join();
    }
}

void UsbipServer::_Serve(Connection& connection)
{
    Slot* slot = nullptr;
    SetLimit(connection.socket.Get(), kHandshakeLimit);
    if (_Handshake(connection.socket, slot)) {
        SetLimit(connection.socket.Get(), kNoLimit);
        m_say(slot->unit->Name() + " is attached by a client");
    }
    FileDescriptor socket;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        connection.descriptor = -1; // from here on the unit stops it
        socket = std::move(connection.socket);
    }
    if (slot != nullptr) {
        _Release(*slot, slot->unit->Serve(std::move(socket)));
    }
    const std::lock_guard<std::mutex> lock(m_mutex);
    connection.done = true;
    m_wakeUp.Wake();
}

void UsbipServer::_Release(Slot& slot, DeviceLink::End end)
{
    const bool left = end == DeviceLink::End::DeviceLeft;
    const std::chrono::milliseconds pause =
        left ? slot.unit->ReturnsAfter() : std::chrono::milliseconds(0);
    m_say(slot.unit->Name() + (left ? " has gone away" : " is free again"));
    if (left && pause.count() >= 0) {
        slot.unit->Renew();
    }
    const std::lock_guard<std::mutex> lock(m_mutex);
    slot.gone = pause.count() < 0;
    slot.backAt = Clock::now() + pause;
    slot.taken = false;
}

// True with a slot once a camera has been imported; a list may come before, on the same connection
// or another.
bool UsbipServer::_Handshake(const FileDescriptor& socket, Slot*& slot)
{
    std::uint8_t request[kOperationSize];
    while (ReadAll(socket.Get(), request, sizeof request)) {
        const std::uint16_t code = kOpCode.Load(request);
        if (kOpVersion.Load(request) != kVersion) {
            return false;
        }
        if (code == kReqImport) {
            return _Import(socket, slot);
        }
        if (code != kReqDeviceList || !_SendList(socket)) {
            return false;
        }
    }
    return false;
}

bool UsbipServer::_SendList(const FileDescriptor& socket)
{
    std::vector<std::uint8_t> reply = Reply(kRepDeviceList, true);
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::uint32_t count = 0;
    reply.resize(kOperationSize + sizeof count);
    for (std::size_t i = 0; i < m_slots.size(); ++i) {
        if (!m_slots[i].taken && m_slots[i].IsThere()) {
            const std::vector<std::uint8_t> device = _Describe(i);
            reply.insert(reply.end(), device.begin(), device.end());
            _AppendInterfaces(reply, i);
            ++count;
        }
    }
    BigField<std::uint32_t>{kOperationSize}.Store(reply.data(), count);
    return WriteAll(socket.Get(), reply);
}

bool UsbipServer::_Import(const FileDescriptor& socket, Slot*& slot)
{
    std::uint8_t wanted[kBusIdSize];
    if (!ReadAll(socket.Get(), wanted, sizeof wanted)) {
        return false;
    }
    wanted[kBusIdSize - 1] = 0;
    const std::string busId(reinterpret_cast<const char*>(wanted));
    std::vector<std::uint8_t> device;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        for (std::size_t i = 0; i < m_slots.size() && !m_stop; ++i) {
            if (BusId(i) == busId && !m_slots[i].taken && m_slots[i].IsThere()) {
                slot = &m_slots[i];
                slot->taken = true;
                device = _Describe(i);
            }
        }
    }
    std::vector<std::uint8_t> reply = Reply(kRepImport, slot != nullptr);
    reply.insert(reply.end(), device.begin(), device.end());
    WriteAll(socket.Get(), reply); // a client that is gone shows at once when it is served
    return slot != nullptr;
}

std::vector<std::uint8_t> UsbipServer::_Describe(std::size_t index) const
{
    const UsbDescriptors& descriptors = m_slots[index].unit->Descriptors();
    std::vector<std::uint8_t> device(kDeviceSize);
    const std::string busId = BusId(index);
    const std::string path = "/virtual/" + busId;
    std::copy(path.begin(), path.end(), device.begin() + kDevicePath);
    std::copy(busId.begin(), busId.end(), device.begin() + kDeviceBusId);
    kBusNumber.Store(device.data(), 1);
    kDeviceNumber.Store(device.data(), static_cast<std::uint32_t>(index + 2));
    kSpeed.Store(device.data(), descriptors.HighSpeed() ? kHighSpeed : kSuperSpeed);
    const Bytes& standard = descriptors.Device();
    const auto word = [&standard](std::size_t at) {
        return static_cast<std::uint16_t>(standard[at] | standard[at + 1] << 8);
    };
    kVendorId.Store(device.data(), word(8));
    kProductId.Store(device.data(), word(10));
    kRelease.Store(device.data(), word(12));
    std::copy_n(standard.begin() + 4, 3, device.begin() + kDeviceClass);
    device[kConfigurationValue] = 1;
    device[kConfigurationCount] = 1;
    device[kInterfaceCount] = descriptors.InterfaceCount();
    return device;
}

// Class, subclass and protocol of each interface, and a byte of padding.
void UsbipServer::_AppendInterfaces(std::vector<std::uint8_t>& reply, std::size_t index) const
{
    constexpr std::size_t kClassOffset = 5;
    const Bytes& all = m_slots[index].unit->Descriptors().Configuration();
    for (std::size_t at = 0; at + 2 <= all.size() && all[at] >= 2 && at + all[at] <= all.size();
         at += all[at]) {
        if (all[at + 1] == usb::kInterfaceType && all[at] > kClassOffset + 2) {
            reply.insert(reply.end(), all.begin() + static_cast<std::ptrdiff_t>(at + kClassOffset),
                         all.begin() + static_cast<std::ptrdiff_t>(at + kClassOffset + 3));
            reply.push_back(0);
        }
    }
}

std::string UsbipServer::Report() const
{
    std::string text;
    for (const Slot& slot : m_slots) {
        text += slot.unit->Report();
    }
    return text;
}

} // namespace vcam
