#include "device_link.h"

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <future>
#include <mutex>
#include <thread>

#include "camera_config.h"
#include "link_host.h"
#include "usb_camera.h"
#include "wait.h"

namespace {

using namespace vcam;
using End = DeviceLink::End;

constexpr std::uint32_t kStream = 3;

// A device that says on its endpoints what the test has put there.
class ScriptedDevice final : public UsbDevice
{
public:
    struct Step
    {
        UsbStatus status = UsbStatus::Done;
        Bytes data;
    };

    ScriptedDevice() : m_descriptors(CameraConfig(), FaultPlan()) {}

    void Put(UsbStatus status, Bytes data = {})
    {
        std::function<void()> listener;
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_steps.push_back({status, std::move(data)});
            listener = m_listener;
        }
        if (listener) {
            listener();
        }
    }
    // Data of a transfer that is not over yet.
    void PutPart(Bytes data) { Put(UsbStatus::Nak, std::move(data)); }
    bool Empty()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_steps.empty();
    }

    const UsbDescriptors& Descriptors() const override { return m_descriptors; }
    UsbResult Control(const SetupPacket& setup, std::vector<std::uint8_t>& data) override
    {
        if (setup.request != 6) {
            return {UsbStatus::Stall};
        }
        data = m_descriptors.Device();
        data.resize(setup.length);
        return {};
    }
    UsbResult BulkOut(std::uint8_t, const std::uint8_t* data, std::size_t size) override
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        received.assign(data, data + size);
        return {};
    }
    UsbResult BulkIn(std::uint8_t, std::uint8_t* buffer, std::size_t, std::size_t& filled) override
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_steps.empty()) {
            return {UsbStatus::Nak};
        }
        const Step step = m_steps.front();
        m_steps.pop_front();
        std::copy(step.data.begin(), step.data.end(), buffer + filled);
        filled += step.data.size();
        return {step.status};
    }
    void BusReset() override { ++resets; }
    void SetListener(std::function<void()> listener) override
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_listener = std::move(listener);
    }

    std::atomic<int> resets{0};
    Bytes received;

private:
    const UsbDescriptors m_descriptors;
    std::mutex m_mutex;
    std::deque<Step> m_steps;
    std::function<void()> m_listener;
};

class Link : public ::testing::Test
{
protected:
    Link()
    {
        int ends[2];
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
        m_hostEnd = FileDescriptor(ends[0]);
        link.emplace(device, FileDescriptor(ends[1]), [] { return true; });
        m_run = std::async(std::launch::async, [this] { return link->Run(); });
    }
    ~Link() override
    {
        if (m_run.valid()) {
            EXPECT_EQ(Finish(), End::HostLeft);
        }
    }
    // Closes the host's end and waits for the link.
    End Finish()
    {
        m_hostEnd.Close();
        return m_run.get();
    }
    End Result() { return m_run.get(); }
    LinkHost Host() const { return LinkHost(m_hostEnd.Get()); }

    ScriptedDevice device;
    std::optional<DeviceLink> link;

private:
    FileDescriptor m_hostEnd;
    std::future<End> m_run;
};

TEST_F(Link, ControlRead_AnswerHasTheStandardsBytes)
{
    Host().ReadDeviceDescriptor(0x01020304, 18);
    const Answer answer = Host().Read();
    const Bytes wanted = {0,   0,   0,   3,   1, 2, 3, 4, 0, 0, 0, 0,  0, 0, 0, 0,
                          0,   0,   0,   0,   0, 0, 0, 0, 0, 0, 0, 18, 0, 0, 0, 0,
                          255, 255, 255, 255, 0, 0, 0, 0, 0, 0, 0, 0,  0, 0, 0, 0};
    EXPECT_EQ(answer.header, wanted);
    EXPECT_EQ(answer.data, device.Descriptors().Device());
    EXPECT_EQ(device.resets, 0);
}

TEST_F(Link, ControlRefused_BrokenPipe)
{
    Host().SendRaw(LinkHost::SubmitRecord(1, kIn, 0, 4, 0, {0x80, 99, 0, 0, 0, 0, 4, 0}));
    EXPECT_EQ(Host().Read().status, -EPIPE);
}

TEST_F(Link, EightBytesOfTheDeviceDescriptor_AreABusReset)
{
    Host().ReadDeviceDescriptor(1, 8);
    EXPECT_EQ(Host().Read().actual, 8u);
    EXPECT_EQ(device.resets, 1);
}

TEST_F(Link, NothingToSend_RequestStaysUntilTheDeviceCalls)
{
    Host().SubmitIn(1, kStream, 1024);
    EXPECT_TRUE(Host().IsSilent());
    device.Put(UsbStatus::Done, {1, 2, 3});
    const Answer answer = Host().Read();
    EXPECT_EQ(answer.status, 0);
    EXPECT_EQ(answer.data, (Bytes{1, 2, 3}));
}

TEST_F(Link, SeveralQueued_AnsweredInTheirOrder)
{
    for (std::uint32_t sequence = 1; sequence <= 3; ++sequence) {
        Host().SubmitIn(sequence, kStream, 1024);
    }
    EXPECT_TRUE(Host().IsSilent());
    for (std::uint8_t i = 1; i <= 3; ++i) {
        device.Put(UsbStatus::Done, Bytes(i, i));
    }
    for (std::uint8_t i = 1; i <= 3; ++i) {
        const Answer answer = Host().Read();
        EXPECT_EQ(answer.sequence, i);
        EXPECT_EQ(answer.data, Bytes(i, i));
    }
    EXPECT_EQ(Finish(), End::HostLeft);
    EXPECT_EQ(link->Counts().maxQueued, 3u);
    EXPECT_EQ(link->Counts().maxBytes, 3072u);
    EXPECT_EQ(link->Counts().starved, 1u);
}

TEST_F(Link, EmptyPacket_AnswersWithNothing)
{
    Host().SubmitIn(1, kStream, 1024);
    device.Put(UsbStatus::Done);
    const Answer answer = Host().Read();
    EXPECT_EQ(answer.status, 0);
    EXPECT_EQ(answer.actual, 0u);
}

TEST_F(Link, Halt_BrokenPipe)
{
    Host().SubmitIn(1, kStream, 1024);
    device.Put(UsbStatus::Stall);
    EXPECT_EQ(Host().Read().status, -EPIPE);
}

TEST_F(Link, Overflow_TellsWhatFitted)
{
    Host().SubmitIn(1, kStream, 1000);
    device.Put(UsbStatus::Overflow, Bytes(7, 9));
    const Answer answer = Host().Read();
    EXPECT_EQ(answer.status, -EOVERFLOW);
    EXPECT_EQ(answer.data, Bytes(7, 9));
}

TEST_F(Link, UnlinkOfAWaitingRequest_IsTakenBack)
{
    Host().SubmitIn(1, kStream, 1024);
    Host().SubmitIn(2, kStream, 1024);
    Host().Unlink(3, 1);
    const Answer answer = Host().Read();
    EXPECT_EQ(answer.command, 4u);
    EXPECT_EQ(answer.sequence, 3u);
    EXPECT_EQ(answer.status, -ECONNRESET);
    device.Put(UsbStatus::Done, {5});
    EXPECT_EQ(Host().Read().sequence, 2u) << "the next one is served";
}

TEST_F(Link, UnlinkOfAnAnsweredRequest_Zero)
{
    Host().SubmitIn(1, kStream, 1024);
    device.Put(UsbStatus::Done, {5});
    Host().Read();
    Host().Unlink(2, 1);
    EXPECT_EQ(Host().Read().status, 0);
}

TEST_F(Link, UnlinkOfAPartlyFilledRequest_GivesTheDataBack)
{
    Host().SubmitIn(1, kStream, 4096);
    device.PutPart(Bytes(1024, 7));
    while (!device.Empty()) {
        std::this_thread::yield();
    }
    Host().Unlink(2, 1);
    const Answer data = Host().Read();
    EXPECT_EQ(data.command, 3u);
    EXPECT_EQ(data.sequence, 1u);
    EXPECT_EQ(data.status, -ECONNRESET);
    EXPECT_EQ(data.data, Bytes(1024, 7));
    const Answer unlinked = Host().Read();
    EXPECT_EQ(unlinked.command, 4u);
    EXPECT_EQ(unlinked.status, 0) << "it has been answered";
}

TEST_F(Link, ShortWhereNoneWasWanted_TheRestWaitsToBeTakenBack)
{
    constexpr std::uint32_t kShortNotOk = 1;
    Host().SubmitIn(1, kStream, 1024, kShortNotOk);
    Host().SubmitIn(2, kStream, 1024);
    EXPECT_TRUE(Host().IsSilent());
    device.Put(UsbStatus::Done, {1});
    device.Put(UsbStatus::Done, {2});
    EXPECT_EQ(Host().Read().status, -EREMOTEIO);
    Host().SubmitIn(3, kStream, 1024);
    Host().Unlink(4, 2);
    EXPECT_EQ(Host().Read().status, -ECONNRESET);
    const Answer next = Host().Read();
    EXPECT_EQ(next.sequence, 3u);
    EXPECT_EQ(next.data, Bytes{2}) << "nothing is lost to the rest of the transfer before";
}

TEST_F(Link, ShortWhereNoneWasWantedAndNobodyTakesBack_GoesOnInTheEnd)
{
    Host().SubmitIn(1, kStream, 1024, 1);
    Host().SubmitIn(2, kStream, 1024);
    EXPECT_TRUE(Host().IsSilent());
    device.Put(UsbStatus::Done, {1});
    device.Put(UsbStatus::Done, {2});
    EXPECT_EQ(Host().Read().status, -EREMOTEIO);
    EXPECT_EQ(Host().Read().sequence, 2u);
}

TEST_F(Link, FilledWhereShortIsNotOk_IsGood)
{
    Host().SubmitIn(1, kStream, 4, 1);
    device.Put(UsbStatus::Done, Bytes(4, 1));
    EXPECT_EQ(Host().Read().status, 0);
}

TEST_F(Link, OutLargerThanTheInputBuffer_ArrivesWhole)
{
    Bytes data(200000);
    for (std::size_t i = 0; i < data.size(); ++i) {
        data[i] = static_cast<std::uint8_t>(i * 7);
    }
    Host().SubmitOut(1, 1, data);
    const Answer answer = Host().Read(false);
    EXPECT_EQ(answer.status, 0);
    EXPECT_EQ(answer.actual, data.size());
    EXPECT_EQ(device.received, data);
}

TEST_F(Link, RecordByteByByte_IsPutTogether)
{
    for (const std::uint8_t byte : LinkHost::SubmitRecord(1, kIn, kStream, 64)) {
        Host().SendRaw({byte});
    }
    device.Put(UsbStatus::Done, {1});
    EXPECT_EQ(Host().Read().data, Bytes{1});
}

TEST_F(Link, DeviceGoesAway_ConnectionCloses)
{
    Host().SubmitIn(1, kStream, 64);
    device.Put(UsbStatus::NoDevice);
    EXPECT_EQ(Result(), End::DeviceLeft);
    EXPECT_TRUE(Host().IsClosed());
}

TEST_F(Link, UnknownCommand_ConnectionCloses)
{
    Bytes record = LinkHost::SubmitRecord(1, kIn, kStream, 64);
    record[3] = 9;
    Host().SendRaw(record);
    EXPECT_EQ(Result(), End::Malformed);
    EXPECT_EQ(link->Counts().malformed, 1u);
}

TEST_F(Link, EndpointBeyondFifteen_ConnectionCloses)
{
    Host().SendRaw(LinkHost::SubmitRecord(1, kIn, 16, 64));
    EXPECT_EQ(Result(), End::Malformed);
}

TEST_F(Link, OutBeyondReason_ConnectionCloses)
{
    Host().SendRaw(LinkHost::SubmitRecord(1, kOut, 1, 0xFFFFFFFF));
    EXPECT_EQ(Result(), End::Malformed);
}

TEST_F(Link, InBeyondReason_NoMemory)
{
    Host().SubmitIn(1, kStream, 0xFFFFFFFF);
    EXPECT_EQ(Host().Read().status, -ENOMEM);
}

TEST_F(Link, Stop_EndsAnIdleLink)
{
    link->Stop();
    EXPECT_EQ(Result(), End::Stopped);
}

// A host that asks and never reads: the link sits in a send that only Stop() ends.
TEST_F(Link, Stop_EndsABlockedSend)
{
    constexpr std::uint32_t kLarge = 8U << 20;
    Host().SubmitIn(1, kStream, kLarge);
    device.Put(UsbStatus::Done, Bytes(kLarge, 1));
    ASSERT_TRUE(zr_test::WaitUntil([this] { return device.Empty(); }));
    // Whether it is in the send already, nobody but its thread knows.
    zr_test::LetPass(std::chrono::milliseconds(20), "the link goes from the device to its send");
    link->Stop();
    EXPECT_EQ(Result(), End::Stopped);
}

// The real camera behind a link.
class LinkedCamera
{
public:
    explicit LinkedCamera(const std::string& options) : camera(ConfigOf(options))
    {
        int ends[2];
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
        m_hostEnd = FileDescriptor(ends[0]);
        m_link.emplace(camera, FileDescriptor(ends[1]), [] { return false; });
        m_run = std::async(std::launch::async, [this] { return m_link->Run(); });
    }
    ~LinkedCamera()
    {
        m_hostEnd.Close();
        EXPECT_EQ(m_run.get(), End::HostLeft);
    }
    LinkedCamera(const LinkedCamera&) = delete;
    LinkedCamera& operator=(const LinkedCamera&) = delete;

    LinkHost Host() const { return LinkHost(m_hostEnd.Get()); }
    void GetString(std::uint32_t sequence) const
    {
        Host().SendRaw(
            LinkHost::SubmitRecord(sequence, kIn, 0, 255, 0, {0x80, 6, 1, 3, 9, 4, 255, 0}));
    }

    UsbCamera camera;

private:
    static CameraConfig ConfigOf(const std::string& options)
    {
        CameraConfig config;
        EXPECT_EQ("", config.Apply(options));
        return config;
    }

    FileDescriptor m_hostEnd;
    std::optional<DeviceLink> m_link;
    std::future<End> m_run;
};

TEST(LinkToCamera, StringThatIsNeverAnswered_IsTakenBack)
{
    LinkedCamera linked("faults=strings-hang@0");
    const LinkHost host = linked.Host();
    linked.GetString(1);
    EXPECT_TRUE(host.IsSilent());
    linked.GetString(2);
    EXPECT_EQ(host.Read().sequence, 2U);
    host.Unlink(3, 1);
    const Answer answer = host.Read();
    EXPECT_EQ(answer.command, 4U);
    EXPECT_EQ(answer.status, -ECONNRESET);
}

TEST(LinkToCamera, StringThatIsLate_ComesAfterItsTime)
{
    LinkedCamera linked("vendor=Ab,faults=strings-late@0:40");
    const auto start = Clock::now();
    linked.GetString(1);
    EXPECT_EQ(linked.Host().Read().data, (Bytes{6, 3, 'A', 0, 'b', 0}));
    EXPECT_LE(start + std::chrono::milliseconds(40), Clock::now());
}

TEST(LinkToCamera, CommandNotTaken_IsTakenBack)
{
    LinkedCamera linked("faults=command-not-taken@0");
    const LinkHost host = linked.Host();
    const Bytes command{0x55, 0x33, 0x56, 0x43, 0, 0x40, 0, 8, 12, 0, 1, 0,
                        0,    0,    0,    0,    0, 0,    0, 0, 0,  0, 4, 0};
    host.SubmitOut(1, 1, command);
    EXPECT_TRUE(host.IsSilent());
    host.Unlink(2, 1);
    EXPECT_EQ(host.Read().status, -ECONNRESET);
    host.SubmitOut(3, 1, command);
    EXPECT_EQ(host.Read(false).actual, command.size());
}

TEST(LinkToCamera, Suspended_ProtocolError)
{
    LinkedCamera linked("");
    const LinkHost host = linked.Host();
    host.SubmitIn(1, kStream, 1024);
    EXPECT_TRUE(host.IsSilent());
    linked.camera.Suspend(true);
    EXPECT_EQ(host.Read().status, -EPROTO);
    linked.GetString(2);
    EXPECT_EQ(host.Read(false).status, -EPROTO);
}

// A halted endpoint refuses until the host clears it.
TEST(LinkToCamera, HaltAndItsClearing)
{
    const LinkedCamera linked("");
    const LinkHost host = linked.Host();
    host.SendRaw(LinkHost::SubmitRecord(1, kOut, 0, 0, 0, {0x02, 3, 0, 0, 0x83, 0, 0, 0}));
    EXPECT_EQ(host.Read(false).status, 0);
    host.SubmitIn(2, kStream, 1024);
    EXPECT_EQ(host.Read().status, -EPIPE);
    host.SendRaw(LinkHost::SubmitRecord(3, kOut, 0, 0, 0, {0x02, 1, 0, 0, 0x83, 0, 0, 0}));
    EXPECT_EQ(host.Read(false).status, 0);
    host.SubmitIn(4, kStream, 1024);
    EXPECT_TRUE(host.IsSilent()) << "it waits for an image";
}

} // namespace
