#include <array>
#include <libusb.h>
#include <mutex>

#include "bus_camera.h"

namespace u3v_host {
namespace {

struct Seen
{
    uint16_t id;
    std::vector<uint8_t> data;
};

class EventChannelTest : public BusTest
{
protected:
    void Begin(const std::string& options = "events=1")
    {
        m_plugged.emplace(options);
        m_camera = OpenOnly();
    }
    void TearDown() override { m_camera.reset(); }

    Camera& Opened() { return *m_camera; }
    const vusb::Camera& Plugged() { return *m_plugged; }

    void Listen()
    {
        Opened().OnEvent([this](const CameraEvent& event) {
            const std::lock_guard lock(m_mutex);
            m_seen.push_back({event.id, {event.data.begin(), event.data.end()}});
        });
    }
    std::vector<Seen> SeenEvents()
    {
        const std::lock_guard lock(m_mutex);
        return m_seen;
    }
    bool Await(size_t count)
    {
        return Eventually([&] { return SeenEvents().size() >= count; });
    }

private:
    std::optional<vusb::Camera> m_plugged;
    std::unique_ptr<Camera> m_camera;
    std::mutex m_mutex;
    std::vector<Seen> m_seen;
};

TEST_F(EventChannelTest, OnEvent_CameraSends_IsCalledWithIdAndBytesFromTheReservedFieldOn)
{
    Begin();
    EXPECT_TRUE(Opened().HasEvents());
    Listen();
    ASSERT_TRUE(Plugged().SendEvent(0x9876, {1, 2, 3}));
    ASSERT_TRUE(Await(1));
    const Seen seen = SeenEvents()[0];
    EXPECT_EQ(seen.id, 0x9876);
    ASSERT_EQ(seen.data.size(), 15U);
    EXPECT_EQ(seen.data[2], 0x76);
    EXPECT_EQ(seen.data[3], 0x98);
    EXPECT_EQ(std::vector<uint8_t>(seen.data.begin() + 12, seen.data.end()),
              (std::vector<uint8_t>{1, 2, 3}));
}

TEST_F(EventChannelTest, OnEvent_SeveralInOnePacket_AreAllTold)
{
    Begin("events=1,multi-event=1");
    Listen();
    for (uint16_t id = 0x9000; id < 0x9032; ++id) {
        Plugged().SendEvent(id, std::vector<uint8_t>(id % 7));
    }
    ASSERT_TRUE(Await(50));
    for (uint16_t i = 0; i < 50; ++i) {
        EXPECT_EQ(SeenEvents()[i].id, 0x9000 + i);
    }
}

TEST_F(EventChannelTest, OnEvent_AsLongAsSomebodyListens_TheInterfaceIsSwitchedOn)
{
    Begin();
    EXPECT_FALSE(Plugged().SendEvent(0x9000));
    Listen();
    EXPECT_TRUE(Plugged().SendEvent(0x9000));
    Opened().OnEvent({});
    EXPECT_FALSE(Plugged().SendEvent(0x9000));
    vusb_live_objects live{};
    vusb_get_live_objects(&live);
    EXPECT_EQ(live.transfers_in_flight, 0U);
}

TEST_F(EventChannelTest, OnEvent_AnotherListener_ReplacesTheOneBefore)
{
    Begin();
    std::atomic<int> first = 0;
    Opened().OnEvent([&](const CameraEvent&) { ++first; });
    Plugged().SendEvent(0x9000);
    ASSERT_TRUE(Eventually([&] { return first == 1; }));
    Listen();
    Plugged().SendEvent(0x9001);
    ASSERT_TRUE(Await(1));
    EXPECT_EQ(first, 1);
}

TEST_F(EventChannelTest, OnEvent_EndedWhileItRuns_WaitsForItsEnd)
{
    Begin();
    std::atomic<bool> inside = false;
    std::atomic<bool> left = false;
    Opened().OnEvent([&](const CameraEvent&) {
        inside = true;
        zr_test::LetPass(50ms, "the listener takes its time");
        left = true;
    });
    Plugged().SendEvent(0x9000);
    ASSERT_TRUE(Eventually([&] { return inside.load(); }));
    Opened().OnEvent({});
    EXPECT_TRUE(left);
}

TEST_F(EventChannelTest, OnEvent_EventsOfTheMaximumLength_AreWhole)
{
    for (const unsigned length : {24U, 1000U, 1024U, 4000U}) {
        TearDown();
        CloseList();
        vusb_reset();
        Begin("events=1,event-length=" + std::to_string(length));
        const size_t before = SeenEvents().size();
        Listen();
        Plugged().SendEvent(0x9000, std::vector<uint8_t>(length - 24, 7));
        ASSERT_TRUE(Await(before + 1)) << length;
        EXPECT_EQ(SeenEvents().back().data.size(), length - 12);
    }
}

TEST_F(EventChannelTest, OnEvent_ListenerAsksTheCamera_IsRefusedInsteadOfHanging)
{
    Begin();
    std::string text;
    std::atomic<bool> refused = false;
    Opened().OnEvent([&](const CameraEvent&) {
        std::array<uint8_t, 4> bytes{};
        size_t done = 0;
        text = Failure([&] { Opened().Read(0x50000, bytes, done); }).what();
        refused = true;
    });
    Plugged().SendEvent(0x9000);
    ASSERT_TRUE(Eventually([&] { return refused.load(); }));
    EXPECT_EQ(text, "reading 4 bytes at 0x50000 failed: called within a callback of libusb");
}

class SpoiltEvent : public EventChannelTest, public ::testing::WithParamInterface<const char*>
{
};

TEST_P(SpoiltEvent, OnEvent_OnePacketIsSpoilt_TheNextIsTold)
{
    Begin();
    Listen();
    Plugged().SetFaults(std::string(GetParam()) + "@0*1");
    Plugged().SendEvent(0x9000);
    Plugged().SendEvent(0x9001);
    EXPECT_TRUE(
        Eventually([&] { return !SeenEvents().empty() && SeenEvents().back().id == 0x9001; }));
}

INSTANTIATE_TEST_SUITE_P(EventChannel, SpoiltEvent,
                         ::testing::Values("event-lost", "event-doubled", "event-stalled",
                                           "event-short:10", "event-short:13", "event-empty",
                                           "event-long:4", "event-wrong-prefix",
                                           "event-wrong-command", "event-wrong-length"));

TEST_F(EventChannelTest, OnEvent_StallsWithoutEnd_CostsNoProcessorAndEnds)
{
    Begin();
    Listen();
    Plugged().SetFaults("event-stalled");
    for (int i = 0; i < 1000; ++i) {
        Plugged().SendEvent(0x9000);
    }
    const auto before = vusb_call_count("libusb_submit_transfer");
    const auto passed = zr_test::LetPass(300ms, "a few transfers, not thousands");
    EXPECT_LT(vusb_call_count("libusb_submit_transfer") - before,
              10 + static_cast<uint64_t>(passed.count()) / 20);
    Opened().OnEvent({});
}

TEST_F(EventChannelTest, OnEvent_Flood_IsTakenInBoundedPortionsAndNothingIsLost)
{
    Begin();
    Listen();
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < 1000; ++i) {
        ASSERT_TRUE(Plugged().SendEvent(0x9000));
    }
    ASSERT_TRUE(Await(1000));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 80ms); // 100 in 10 ms
}

TEST_F(EventChannelTest, OnEvent_CameraWithoutEvents_IsNotAvailable)
{
    Begin("events=0");
    EXPECT_FALSE(Opened().HasEvents());
    EXPECT_EQ(FailureKind([this] { Listen(); }), ErrorKind::NotAvailable);
    Opened().OnEvent({});
}

TEST_F(EventChannelTest, HasEvents_NoEventRegisters_IsFalse)
{
    Begin("events=1,faults=no-eirm");
    EXPECT_FALSE(Opened().HasEvents());
}

TEST_F(EventChannelTest, OnEvent_SwitchingOnIsRefused_ThrowsAndNobodyListens)
{
    Begin();
    vusb_fail_call("libusb_submit_transfer", 2, 1, LIBUSB_ERROR_NO_MEM); // behind one exchange
    EXPECT_EQ(FailureKind([this] { Listen(); }), ErrorKind::ResourceExhausted);
    Plugged().SetFaults("reply-error%w:0x8006");
    EXPECT_EQ(FailureKind([this] { Listen(); }), ErrorKind::AccessDenied);
    vusb_live_objects live{};
    vusb_get_live_objects(&live);
    EXPECT_EQ(live.transfers_in_flight, 0U);
    Plugged().SetFaults("");
    Listen();
    Plugged().SendEvent(0x9000);
    EXPECT_TRUE(Await(1));
}

TEST_F(EventChannelTest, OnEvent_Unplugged_CameraIsGoneAndListeningEnds)
{
    Begin();
    Listen();
    Plugged().Unplug();
    EXPECT_TRUE(Eventually([this] { return Opened().IsGone(); }));
    Opened().OnEvent({});
}

TEST_F(EventChannelTest, Close_WhileSomebodyListens_EndsIt)
{
    Begin();
    Listen();
    Plugged().SendEvent(0x9000);
    ASSERT_TRUE(Await(1));
    TearDown();
    EXPECT_FALSE(Plugged().SendEvent(0x9000));
}

TEST_F(EventChannelTest, Open_EventsWereLeftOn_AreSwitchedOff)
{
    const vusb::Camera camera("events=1");
    {
        const auto opened = OpenOnly();
        opened->OnEvent([](const CameraEvent&) {});
        ASSERT_TRUE(camera.SendEvent(0x9000));
        camera.SetFaults("reply-error%w"); // so that closing cannot switch it off
    }
    camera.SetFaults("");
    ASSERT_TRUE(camera.SendEvent(0x9000));
    const auto opened = OpenOnly();
    EXPECT_FALSE(camera.SendEvent(0x9000));
}

} // namespace
} // namespace u3v_host
