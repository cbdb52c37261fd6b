#include "usbip_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <optional>

#include "link_host.h"
#include "wait.h"

namespace {

using namespace vcam;

const Bytes kListRequest = {0x01, 0x11, 0x80, 0x05, 0, 0, 0, 0};

Bytes ImportRequest(const std::string& busId)
{
    Bytes request = {0x01, 0x11, 0x80, 0x03, 0, 0, 0, 0};
    request.insert(request.end(), busId.begin(), busId.end());
    request.resize(8 + 32);
    return request;
}

class Server : public ::testing::Test
{
protected:
    Server()
    {
        CameraConfig config;
        m_server.emplace(std::vector<CameraConfig>{config, config.Numbered(1)},
                         [](const std::string&) {});
        m_port = m_server->Listen("127.0.0.1", 0);
        m_thread = std::thread([this] { m_server->Run(); });
    }
    ~Server() override
    {
        m_server->Stop();
        m_thread.join();
    }

    FileDescriptor Connect() const
    {
        FileDescriptor socket(::socket(AF_INET, SOCK_STREAM, 0));
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(m_port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(::connect(socket.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address),
                  0);
        return socket;
    }
    // How many cameras a client is offered.
    std::uint32_t Offered() const
    {
        const FileDescriptor socket = Connect();
        const LinkHost host(socket.Get());
        host.SendRaw(kListRequest);
        return BigAt(host.ReadRaw(12), 8);
    }
    FileDescriptor Import(const std::string& busId, std::uint32_t& status) const
    {
        FileDescriptor socket = Connect();
        const LinkHost host(socket.Get());
        host.SendRaw(ImportRequest(busId));
        const Bytes reply = host.ReadRaw(8);
        EXPECT_EQ(Bytes(reply.begin(), reply.begin() + 4), (Bytes{0x01, 0x11, 0x00, 0x03}));
        status = BigAt(reply, 4);
        if (status == 0) {
            EXPECT_STREQ(reinterpret_cast<const char*>(host.ReadRaw(312).data()) + 256,
                         busId.c_str());
        }
        return socket;
    }
    bool WaitOffered(std::uint32_t wanted) const
    {
        return zr_test::WaitUntil([this, wanted] { return Offered() == wanted; });
    }

private:
    std::optional<UsbipServer> m_server;
    std::uint16_t m_port = 0;
    std::thread m_thread;
};

TEST_F(Server, List_DescribesEveryCamera)
{
    const FileDescriptor socket = Connect();
    const LinkHost host(socket.Get());
    host.SendRaw(kListRequest);
    EXPECT_EQ(host.ReadRaw(12), (Bytes{0x01, 0x11, 0x00, 0x05, 0, 0, 0, 0, 0, 0, 0, 2}));
    for (int i = 1; i <= 2; ++i) {
        const Bytes device = host.ReadRaw(312);
        EXPECT_EQ(std::string(reinterpret_cast<const char*>(device.data()) + 256),
                  "1-" + std::to_string(i));
        EXPECT_EQ(BigAt(device, 288), 1u);                                // bus
        EXPECT_EQ(BigAt(device, 292), static_cast<std::uint32_t>(1 + i)); // device
        EXPECT_EQ(BigAt(device, 296), 5u);                                // SuperSpeed
        const Bytes rest(device.begin() + 300, device.end());
        EXPECT_EQ(rest, (Bytes{0x12, 0x09, 0x00, 0x01, 0x01, 0x00, 0xEF, 2, 1, 1, 1, 2}));
        EXPECT_EQ(host.ReadRaw(8), (Bytes{0xEF, 5, 0, 0, 0xEF, 5, 2, 0}));
    }
}

TEST_F(Server, Import_ServesTheCameraAndOffersItNoMore)
{
    std::uint32_t status = 1;
    const FileDescriptor socket = Import("1-2", status);
    ASSERT_EQ(status, 0u);
    const LinkHost host(socket.Get());
    host.ReadDeviceDescriptor(1, 18);
    EXPECT_EQ(host.Read().data.size(), 18u);
    EXPECT_EQ(Offered(), 1u);
    Import("1-2", status);
    EXPECT_EQ(status, 1u) << "one host at a time";
    Import("1-1", status);
    EXPECT_EQ(status, 0u) << "the other camera is free";
}

TEST_F(Server, ClientLeaves_TheNextOneGetsTheCamera)
{
    std::uint32_t status = 1;
    {
        const FileDescriptor socket = Import("1-1", status);
        ASSERT_EQ(status, 0u);
    }
    ASSERT_TRUE(WaitOffered(2));
    Import("1-1", status);
    EXPECT_EQ(status, 0u);
}

TEST_F(Server, UnknownDevice_Refused)
{
    std::uint32_t status = 0;
    Import("1-9", status);
    EXPECT_EQ(status, 1u);
}

TEST_F(Server, WrongVersionOrOperation_ConnectionCloses)
{
    for (const Bytes& request :
         {Bytes{0x02, 0x00, 0x80, 0x05, 0, 0, 0, 0}, Bytes{0x01, 0x11, 0x12, 0x34, 0, 0, 0, 0}}) {
        const FileDescriptor socket = Connect();
        LinkHost(socket.Get()).SendRaw(request);
        EXPECT_TRUE(LinkHost(socket.Get()).IsClosed());
    }
}

// The destructor stops it while one client is attached and another has said nothing yet.
TEST_F(Server, Stop_EndsEveryConnection)
{
    std::uint32_t status = 1;
    const FileDescriptor attached = Import("1-1", status);
    const FileDescriptor silent = Connect();
    EXPECT_EQ(status, 0u);
    EXPECT_EQ(Offered(), 1u);
}

TEST(ServerAddress, Wrong_IsNamed)
{
    UsbipServer server({CameraConfig()}, [](const std::string&) {});
    EXPECT_THROW(server.Listen("localhost.example", 0), std::runtime_error);
    const std::uint16_t port = server.Listen("127.0.0.1", 0);
    UsbipServer other({CameraConfig()}, [](const std::string&) {});
    try {
        other.Listen("127.0.0.1", port);
        ADD_FAILURE() << "the port is taken";
    } catch (const std::runtime_error& error) {
        EXPECT_NE(std::string(error.what()).find("choose another port"), std::string::npos);
    }
}

} // namespace
