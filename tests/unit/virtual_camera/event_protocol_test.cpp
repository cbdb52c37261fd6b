// The event channel: when events come, how their packets look, and how they are spoilt.

#include "camera_host.h"

using vcam::UsbStatus;

namespace {

constexpr std::uint64_t kControl = 0x28000;
constexpr std::uint64_t kTest = 0x28008;
constexpr std::uint64_t kExposureStartOn = 0x50144;
constexpr std::uint64_t kExposureEndOn = 0x50148;

class Events : public ::testing::Test
{
protected:
    // A camera with events switched on.
    CameraHost& With(const std::string& options)
    {
        m_host = std::make_unique<CameraHost>("width=64,height=33,events=1," + options);
        EXPECT_EQ(0U, m_host->Write32(kControl, 1));
        return *m_host;
    }

    Read Receive(std::size_t capacity = 4096) { return m_host->Receive(0x82, capacity); }

    bool Send(std::uint16_t id, const Bytes& data = {})
    {
        return m_host->camera.SendEvent(id, data);
    }

    std::unique_ptr<CameraHost> m_host;
};

// The ids of the items in a packet with several.
std::vector<std::uint64_t> ItemIds(const Bytes& packet)
{
    std::vector<std::uint64_t> ids;
    for (std::size_t at = 12; at < packet.size(); at += Get(packet, at, 2)) {
        ids.push_back(Get(packet, at + 2, 2));
        if (Get(packet, at, 2) < 12) {
            ADD_FAILURE() << "an item of " << Get(packet, at, 2) << " bytes";
            break;
        }
    }
    return ids;
}

using Ids = std::vector<std::uint64_t>;

} // namespace

TEST_F(Events, Registers_AreLinkedAndComplete)
{
    CameraHost& host = With("event-length=512");
    EXPECT_EQ(3U, host.Read64(0x10004)); // stream and event registers
    const std::uint64_t eirm = host.Read64(0x1002C);
    EXPECT_EQ(0x28000U, eirm);
    EXPECT_EQ(12U, host.Read32(0x10034));
    EXPECT_EQ(1U, host.Read32(eirm));
    EXPECT_EQ(512U, host.Read32(eirm + 4));
    EXPECT_EQ(0U, host.Read32(eirm + 8));
    EXPECT_EQ(0x8004U, host.Write32(eirm + 4, 64));
    EXPECT_EQ(0U, host.Read64(0x1C4) & (1U << 12));
    EXPECT_NE(0U, With("multi-event=1").Read64(0x1C4) & (1U << 12));
}

TEST_F(Events, WithoutTheOption_NoRegistersNoEndpoint)
{
    CameraHost host("events=0");
    EXPECT_EQ(1U, host.Read64(0x10004));
    EXPECT_EQ(0U, host.Read64(0x1002C));
    EXPECT_EQ(0x8003U, host.StatusOfRead(0x28000, 4));
    EXPECT_EQ(UsbStatus::Stall, host.Receive(0x82, 64).status);
    CameraHost unlinked("events=1,faults=no-eirm");
    EXPECT_EQ(1U, unlinked.Read64(0x10004));
    EXPECT_EQ(0U, unlinked.Read64(0x1002C));
}

TEST_F(Events, Packet_Bytes)
{
    With("");
    EXPECT_TRUE(Send(0x1234, {1, 2, 3}));
    Bytes packet = Receive().data;
    ASSERT_EQ(27U, packet.size());
    EXPECT_NE(0U, Get(packet, 16, 8));
    std::fill_n(packet.begin() + 16, 8, std::uint8_t{0});
    const Bytes expected{0x55, 0x33, 0x56, 0x45, 0, 0, 0x00, 0x0C, 15, 0, 0, 0, 0, 0,
                         0x34, 0x12, 0,    0,    0, 0, 0,    0,    0,  0, 1, 2, 3};
    EXPECT_EQ(expected, packet);
    EXPECT_TRUE(Send(1));
    EXPECT_EQ(1U, Get(Receive().data, 10, 2)); // request ids count
    EXPECT_EQ(UsbStatus::Nak, Receive().status);
}

TEST_F(Events, SwitchedOff_NothingIsSentAndWhatWaitsIsForgotten)
{
    CameraHost& host = With("");
    EXPECT_TRUE(Send(1));
    host.Write32(kControl, 0);
    EXPECT_EQ(UsbStatus::Nak, Receive().status);
    EXPECT_FALSE(Send(2));
    host.Write32(kControl, 1);
    EXPECT_EQ(UsbStatus::Nak, Receive().status);
}

TEST_F(Events, ExposureOfImages_OnlyThoseThatAreWanted)
{
    CameraHost& host = With("first-block=7");
    EXPECT_EQ(0U, host.Write32(kExposureEndOn, 1));
    host.StartWhole();
    EXPECT_EQ(UsbStatus::Nak, Receive().status);
    const Bytes leader = host.Stream(65536).data;
    const Bytes packet = Receive().data;
    ASSERT_EQ(32U, packet.size());
    EXPECT_EQ(0x9001U, Get(packet, 14, 2));
    EXPECT_EQ(Get(leader, 20, 8), Get(packet, 16, 8)); // the image's own time
    EXPECT_EQ(7U, Get(packet, 24, 8));
    EXPECT_EQ(UsbStatus::Nak, Receive().status);
}

TEST_F(Events, Several_WithoutMultiEvent_OneEach)
{
    CameraHost& host = With("");
    host.Write32(kExposureStartOn, 1);
    host.Write32(kExposureEndOn, 1);
    host.StartWhole();
    host.Stream(65536);
    EXPECT_EQ(0x9000U, Get(Receive().data, 14, 2));
    EXPECT_EQ(0x9001U, Get(Receive().data, 14, 2));
}

TEST_F(Events, Several_WithMultiEvent_AsManyAsFit)
{
    With("multi-event=1,event-length=64");
    for (std::uint16_t id = 1; id <= 5; ++id) {
        Send(id, Bytes(id));
    }
    const Bytes first = Receive().data; // 12 + 13 + 14 + 15
    EXPECT_EQ(54U, first.size());
    EXPECT_EQ((Ids{1, 2, 3}), ItemIds(first));
    EXPECT_EQ(42U, Get(first, 8, 2));
    EXPECT_EQ((Ids{4, 5}), ItemIds(Receive().data));
}

TEST_F(Events, TestEvent_IsAsLongAsAnEventMayBe)
{
    CameraHost& host = With("event-length=100");
    EXPECT_EQ(0U, host.Write32(kTest, 1));
    const Bytes packet = Receive().data;
    EXPECT_EQ(100U, packet.size());
    EXPECT_EQ(88U, Get(packet, 8, 2));
    EXPECT_EQ(0x4FFFU, Get(packet, 14, 2));
    EXPECT_EQ(0U, host.Read32(kTest));
}

TEST_F(Events, WholePackets_EndWithAnEmptyOneBelowTheMaximum)
{
    CameraHost& host = With("event-length=2048");
    Send(1, Bytes(1000)); // 1024 in all
    EXPECT_EQ(1024U, Receive(2048).data.size());
    Send(1, Bytes(1000));
    EXPECT_EQ(1024U, Receive(1024).data.size());
    EXPECT_EQ(0U, Receive(1024).data.size());
    host.Write32(kTest, 1);
    EXPECT_EQ(2048U, Receive(2048).data.size());
    EXPECT_EQ(UsbStatus::Nak, Receive().status);
}

TEST_F(Events, TooManyWait_TheOldestAreLost)
{
    With("");
    for (int i = 0; i < 1030; ++i) {
        Send(static_cast<std::uint16_t>(i));
    }
    EXPECT_EQ(6U, Get(Receive().data, 14, 2));
}

TEST_F(Events, BusReset_SwitchesThemOff)
{
    CameraHost& host = With("");
    Send(1);
    host.camera.BusReset();
    EXPECT_EQ(0U, host.Read32(kControl));
    EXPECT_EQ(UsbStatus::Nak, Receive().status);
}

TEST_F(Events, Faults_Lengths)
{
    const std::pair<const char*, std::size_t> cases[] = {
        {"event-short", 10}, {"event-short:20", 20}, {"event-empty", 0}, {"event-long", 31}};
    for (const auto& [fault, size] : cases) {
        With(std::string("faults=") + fault + "@0");
        Send(1, Bytes(3));
        EXPECT_EQ(size, Receive().data.size()) << fault;
        Send(1, Bytes(3));
        EXPECT_EQ(27U, Receive().data.size()) << fault;
    }
}

TEST_F(Events, Faults_Fields)
{
    const std::pair<const char*, std::size_t> cases[] = {{"event-wrong-prefix", 0},
                                                         {"event-wrong-command", 6},
                                                         {"event-wrong-length", 8},
                                                         {"event-item-size:0x7777", 12}};
    for (const auto& [fault, offset] : cases) {
        With(std::string("faults=") + fault + "@1");
        Send(1);
        const Bytes good = Receive().data;
        Send(1);
        EXPECT_NE(Get(good, offset, 2), Get(Receive().data, offset, 2)) << fault;
    }
}

TEST_F(Events, Faults_LostDoubledLateStalled)
{
    With("faults=event-lost@0+event-doubled@1");
    Send(1);
    EXPECT_EQ(UsbStatus::Nak, Receive().status);
    Send(2);
    const Bytes twice = Receive().data;
    EXPECT_EQ(twice, Receive().data);
    With("faults=event-late@0:30");
    const auto start = vcam::Clock::now();
    Send(1);
    EXPECT_EQ(UsbStatus::Done, Receive().status);
    EXPECT_LE(std::chrono::milliseconds(30), vcam::Clock::now() - start);
    CameraHost& host = With("faults=event-stalled@0");
    Send(1);
    EXPECT_EQ(UsbStatus::Stall, Receive().status);
    Bytes none;
    host.camera.Control({0x02, 1, 0, 0x82, 0}, none);
    Send(2);
    EXPECT_EQ(UsbStatus::Done, Receive().status);
}
