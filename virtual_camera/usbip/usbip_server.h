// Offers cameras to USB/IP clients ("usbip attach"): a list of what there is, and one connection
// for each camera that is taken.
#ifndef VCAM_USBIP_SERVER_H
#define VCAM_USBIP_SERVER_H

#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "camera_unit.h"

namespace vcam {

// Run() serves until Stop(), which any thread may call. A thread for each connection.
class UsbipServer
{
public:
    using Say = std::function<void(const std::string&)>;
    static constexpr std::uint16_t kPort = 3240; // the port that is registered for USB/IP

    UsbipServer(const std::vector<CameraConfig>& cameras, Say say);
    ~UsbipServer();
    UsbipServer(const UsbipServer&) = delete;
    UsbipServer& operator=(const UsbipServer&) = delete;

    // Binds to a numeric address. Throws std::runtime_error with the reason. Port 0: any free one;
    // the return value tells which.
    std::uint16_t Listen(const std::string& address, std::uint16_t port);
    void Run();
    void Stop();
    // After Run().
    std::string Report() const;

private:
    struct Slot
    {
        std::unique_ptr<CameraUnit> unit;
        bool taken = false;
        bool gone = false; // for ever
        Clock::time_point backAt{};

        bool IsThere() const { return !gone && Clock::now() >= backAt; }
    };
    struct Connection
    {
        FileDescriptor socket;
        int descriptor = -1; // of the socket while the connection's own thread waits for a request
        std::thread thread;
        bool done = false;
    };

    void _Accept();
    void _Serve(Connection& connection);
    void _Reap(bool all);
    bool _Handshake(const FileDescriptor& socket, Slot*& slot);
    bool _SendList(const FileDescriptor& socket);
    bool _Import(const FileDescriptor& socket, Slot*& slot);
    void _Release(Slot& slot, DeviceLink::End end);
    std::vector<std::uint8_t> _Describe(std::size_t index) const;
    void _AppendInterfaces(std::vector<std::uint8_t>& reply, std::size_t index) const;

    const Say m_say;
    FileDescriptor m_listener;
    WakeUp m_wakeUp;
    mutable std::mutex m_mutex;
    std::vector<Slot> m_slots;           // guarded by m_mutex, but for the unit of a taken slot
    std::list<Connection> m_connections; // guarded by m_mutex
    bool m_stop = false;                 // guarded by m_mutex
};

} // namespace vcam

#endif
