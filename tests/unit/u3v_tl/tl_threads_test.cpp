// Modules that are used and closed on several threads at once. What is looked for here is found by
// the sanitizers; the answers only have to be among the possible ones.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>

#include "tl_fixture.h"
#include "wait.h"

namespace {

using std::chrono::milliseconds;

// Runs `work` on threads of its own until it is told to stop.
class Crowd
{
public:
    template <class Work>
    Crowd(int threads, Work work)
    {
        for (int i = 0; i < threads; ++i) {
            m_threads.emplace_back([this, work] {
                while (!m_stop.load()) {
                    work();
                    m_rounds.fetch_add(1);
                }
            });
        }
    }
    ~Crowd()
    {
        m_stop = true;
        for (std::thread& thread : m_threads) {
            thread.join();
        }
    }
    Crowd(const Crowd&) = delete;
    Crowd& operator=(const Crowd&) = delete;

    // Until every thread has been at work for a while.
    void Warm() const
    {
        zr_test::WaitUntil([this] { return m_rounds.load() >= 20; });
    }

private:
    std::atomic<bool> m_stop{false};
    std::atomic<int> m_rounds{0};
    std::vector<std::thread> m_threads;
};

// Calls `call` on two threads at the same time and returns both answers, the smaller first.
template <class Call>
std::vector<GC_ERROR> Twice(Call call)
{
    std::atomic<int> ready{0};
    std::vector<GC_ERROR> answers(2);
    std::vector<std::thread> threads;
    for (size_t i = 0; i < 2; ++i) {
        threads.emplace_back([&, i] {
            ready.fetch_add(1);
            while (ready.load() < 2) {
            }
            answers[i] = call();
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::sort(answers.begin(), answers.end());
    return answers;
}

void QueryInterface(IF_HANDLE iface)
{
    uint32_t count = 0;
    static_cast<void>(IFGetNumDevices(iface, &count));
    char text[64];
    INFO_DATATYPE type = 0;
    size_t size = sizeof(text);
    static_cast<void>(IFGetDeviceID(iface, 0, text, &size));
    size = sizeof(text);
    static_cast<void>(IFGetDeviceInfo(iface, "GUID-A", DEVICE_INFO_VENDOR, &type, text, &size));
    size = sizeof(text);
    static_cast<void>(GCReadPort(iface, 0x6010C, text, &size));
    size = sizeof(text);
    static_cast<void>(GCGetPortInfo(iface, PORT_INFO_MODULE, &type, text, &size));
}

class Threads : public InterfaceTest
{
protected:
    void SetUp() override
    {
        InterfaceTest::SetUp();
        FakeU3V::Instance().PokeManifest(1, 0x20000, 64, false);
    }
};

TEST_F(Threads, ListUpdates_WhileQueried_QueriesSeeOneListOrTheOther)
{
    std::atomic<int> strange{0};
    Crowd crowd(3, [&] {
        uint32_t count = 99;
        if (IFGetNumDevices(m_iface, &count) != 0 || count > 2) {
            strange.fetch_add(1);
        }
        QueryInterface(m_iface);
    });
    crowd.Warm();
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(UpdateUntilDone(nullptr), 0);
        EXPECT_EQ(TLUpdateInterfaceList(m_tl, nullptr, 0), 0);
    }
    EXPECT_EQ(strange.load(), 0);
}

TEST_F(Threads, ListUpdates_FromTwoThreads_BothDone)
{
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(Twice([&] { return UpdateUntilDone(nullptr); }), (std::vector<GC_ERROR>{0, 0}));
    }
}

TEST_F(Threads, IFClose_WhileOthersAreInside_ClosesOnce)
{
    for (int i = 0; i < 10; ++i) {
        const IF_HANDLE iface = m_iface;
        Crowd crowd(3, [iface] {
            QueryInterface(iface);
            static_cast<void>(IFUpdateDeviceList(iface, nullptr, 5));
        });
        zr_test::LetPass(milliseconds(5), "the others get inside, each time elsewhere");
        EXPECT_EQ(IFClose(iface), 0);
        m_iface = nullptr;
        ASSERT_EQ(TLOpenInterface(m_tl, kInterfaceIdText, &m_iface), 0);
    }
}

TEST_F(Threads, IFClose_OnTwoThreads_OneCloses)
{
    for (int i = 0; i < 30; ++i) {
        EXPECT_EQ(Twice([&] { return IFClose(m_iface); }), (std::vector<GC_ERROR>{-1006, 0}));
        m_iface = nullptr;
        ASSERT_EQ(TLOpenInterface(m_tl, kInterfaceIdText, &m_iface), 0);
    }
}

TEST_F(Threads, TLOpenInterface_OnTwoThreads_OneOpens)
{
    for (int i = 0; i < 30; ++i) {
        ASSERT_EQ(IFClose(m_iface), 0);
        std::atomic<IF_HANDLE> opened{nullptr};
        EXPECT_EQ(Twice([&] {
                      IF_HANDLE iface = nullptr;
                      const GC_ERROR status = TLOpenInterface(m_tl, kInterfaceIdText, &iface);
                      if (status == 0) {
                          opened = iface;
                      }
                      return status;
                  }),
                  (std::vector<GC_ERROR>{-1004, 0}));
        m_iface = opened;
    }
}

TEST_F(Threads, IFOpenDevice_OnTwoThreadsInTwoCases_OneOpens_OneCloses)
{
    UpdateDevices();
    for (int i = 0; i < 20; ++i) {
        std::atomic<DEV_HANDLE> opened{nullptr};
        std::atomic<int> caller{0};
        EXPECT_EQ(Twice([&] {
                      const char* const id = caller.fetch_add(1) == 0 ? "GUID-A" : "guid-a";
                      DEV_HANDLE device = nullptr;
                      const GC_ERROR status =
                          IFOpenDevice(m_iface, id, DEVICE_ACCESS_EXCLUSIVE, &device);
                      if (status == 0) {
                          opened = device;
                      }
                      return status;
                  }),
                  (std::vector<GC_ERROR>{-1004, 0}));
        EXPECT_EQ(Twice([&] { return DevClose(opened); }), (std::vector<GC_ERROR>{-1006, 0}));
    }
    EXPECT_EQ(FakeU3V::Instance().OpenHandles(), 0);
}

TEST_F(Threads, TLClose_WhileOthersAreInside_EverythingGoes)
{
    for (int i = 0; i < 10; ++i) {
        const TL_HANDLE tl = m_tl;
        const IF_HANDLE iface = m_iface;
        Crowd crowd(3, [tl, iface] {
            uint32_t count = 0;
            static_cast<void>(TLGetNumInterfaces(tl, &count));
            INFO_DATATYPE type = 0;
            size_t size = 0;
            static_cast<void>(TLGetInterfaceInfo(tl, kInterfaceIdText, 0, &type, nullptr, &size));
            QueryInterface(iface);
            static_cast<void>(IFUpdateDeviceList(iface, nullptr, 5));
        });
        zr_test::LetPass(milliseconds(5), "the others get inside, each time elsewhere");
        EXPECT_EQ(TLClose(tl), 0);
        m_tl = nullptr;
        m_iface = nullptr;
        ASSERT_EQ(TLOpen(&m_tl), 0);
        ASSERT_EQ(TLOpenInterface(m_tl, kInterfaceIdText, &m_iface), 0);
    }
}

TEST_F(Threads, TLClose_OnTwoThreads_OneCloses)
{
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(Twice([&] { return TLClose(m_tl); }), (std::vector<GC_ERROR>{-1001, 0}));
        m_tl = nullptr;
        ASSERT_EQ(TLOpen(&m_tl), 0);
    }
}

TEST_F(Threads, CloseLib_WhileOthersAreInside_EverythingGoes)
{
    for (int i = 0; i < 10; ++i) {
        const TL_HANDLE tl = m_tl;
        const IF_HANDLE iface = m_iface;
        Crowd crowd(3, [tl, iface] {
            INFO_DATATYPE type = 0;
            char text[64];
            size_t size = sizeof(text);
            static_cast<void>(GCGetInfo(TL_INFO_VENDOR, &type, text, &size));
            IF_HANDLE another = nullptr;
            static_cast<void>(TLOpenInterface(tl, kInterfaceIdText, &another));
            EVENT_HANDLE event = nullptr;
            static_cast<void>(GCRegisterEvent(iface, EVENT_ERROR, &event));
            size = sizeof(text);
            static_cast<void>(EventGetData(event, nullptr, &size, 1));
            QueryInterface(iface);
            static_cast<void>(IFUpdateDeviceList(iface, nullptr, 5));
        });
        zr_test::LetPass(milliseconds(5), "the others get inside, each time elsewhere");
        EXPECT_EQ(GCCloseLib(), 0);
        m_tl = nullptr;
        m_iface = nullptr;
        ASSERT_EQ(GCInitLib(), 0);
        ASSERT_EQ(TLOpen(&m_tl), 0);
        ASSERT_EQ(TLUpdateInterfaceList(m_tl, nullptr, 0), 0);
        // The crowd of this round may still ask with the old addresses; one of them may be
        // the new interface's opener.
        const GC_ERROR opened = TLOpenInterface(m_tl, kInterfaceIdText, &m_iface);
        EXPECT_TRUE(opened == 0 || opened == -1004);
    }
}

TEST_F(Threads, CloseLib_OnTwoThreads_OneCloses)
{
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(Twice([] { return GCCloseLib(); }), (std::vector<GC_ERROR>{-1002, 0}));
        ASSERT_EQ(GCInitLib(), 0);
    }
}

// Holds every call of `function` until it is released.
class Held
{
public:
    explicit Held(const char* function)
    {
        FakeU3V::Instance().OnCall(function, [this] {
            m_entered = true;
            zr_test::WaitUntil([this] { return m_released.load(); });
        });
    }
    ~Held() { Release(); }
    Held(const Held&) = delete;
    Held& operator=(const Held&) = delete;

    void AwaitCall() const
    {
        zr_test::WaitUntil([this] { return m_entered.load(); });
    }
    void Release() { m_released = true; }

private:
    std::atomic<bool> m_entered{false};
    std::atomic<bool> m_released{false};
};

// The calls that ask the library itself; a closing library keeps none of them waiting.
void ExpectNotInitialized(TL_HANDLE tl)
{
    INFO_DATATYPE type = 0;
    size_t size = 0;
    EXPECT_EQ(GCGetInfo(TL_INFO_VENDOR, &type, nullptr, &size), -1002);
    TL_HANDLE another = nullptr;
    EXPECT_EQ(TLOpen(&another), -1002);
    EXPECT_EQ(TLClose(tl), -1002);
    EXPECT_EQ(GCCloseLib(), -1002);
    uint32_t count = 0;
    EXPECT_EQ(TLGetNumInterfaces(tl, &count), -1002);
}

TEST_F(Threads, CloseLib_WhileItRuns_OthersAreAnsweredAtOnce)
{
    Held closing("U3V_DiscoveryClose");
    std::thread closer([] { EXPECT_EQ(GCCloseLib(), 0); });
    closing.AwaitCall();
    ExpectNotInitialized(m_tl);
    closing.Release();
    closer.join();
}

TEST_F(Threads, CloseLib_WaitingForACallInside_OthersAreAnsweredAtOnce)
{
    Held closing("U3V_DiscoveryClose");
    std::thread inside([tl = m_tl] { EXPECT_EQ(TLClose(tl), 0); });
    closing.AwaitCall();
    std::thread closer([] { EXPECT_EQ(GCCloseLib(), 0); });
    INFO_DATATYPE type = 0;
    size_t size = 0;
    EXPECT_TRUE(
        zr_test::WaitUntil([&] { return GCGetInfo(TL_INFO_VENDOR, &type, nullptr, &size) != 0; }));
    ExpectNotInitialized(m_tl);
    closing.Release();
    inside.join();
    closer.join();
}

TEST_F(Threads, InitLib_WhileTheLibraryCloses_ComesAfterIt)
{
    Held closing("U3V_DiscoveryClose");
    std::thread closer([] { EXPECT_EQ(GCCloseLib(), 0); });
    closing.AwaitCall();
    zr_test::WatchedThread opener([] { EXPECT_EQ(GCInitLib(), 0); });
    EXPECT_TRUE(opener.UntilAsleep());
    EXPECT_FALSE(opener.HasEnded());
    ExpectNotInitialized(m_tl); // not yet
    closing.Release();
    closer.join();
    opener.Join();
    TL_HANDLE tl = nullptr;
    EXPECT_EQ(TLOpen(&tl), 0);
}

// ---- an object is closed to its end before its successor is opened

// Holds `function` back for a while, so that another thread comes in between.
void Slow(const char* function)
{
    FakeU3V::Instance().OnCall(function, [] { zr_test::LetPass(milliseconds(30), "it is slow"); });
}

TEST_F(Threads, OpenInterface_WhileTheOldOneCloses_WaitsForItsEnd)
{
    Slow("U3V_CloseDevice"); // the old interface has a device that takes its time
    UpdateDevices();
    DEV_HANDLE device = nullptr;
    ASSERT_EQ(IFOpenDevice(m_iface, "GUID-A", DEVICE_ACCESS_EXCLUSIVE, &device), 0);
    FakeU3V::Instance().ClearJournal();
    std::thread closer([iface = m_iface] { EXPECT_EQ(IFClose(iface), 0); });
    IF_HANDLE next = nullptr;
    EXPECT_TRUE(zr_test::WaitUntil(
        [&] { return TLOpenInterface(m_tl, kInterfaceIdText, &next) != -1004; }));
    closer.join();
    ASSERT_NE(next, nullptr);
    // Discovery is one for the whole library: closed late, it would be the new interface's.
    EXPECT_EQ(FakeU3V::Instance().Journal().back(), "U3V_DiscoveryOpen");
}

TEST_F(Threads, OpenDevice_WhileItsOldHandleCloses_WaitsForItsEnd)
{
    UpdateDevices();
    DEV_HANDLE device = nullptr;
    ASSERT_EQ(IFOpenDevice(m_iface, "GUID-A", DEVICE_ACCESS_EXCLUSIVE, &device), 0);
    FakeU3V::Instance().ClearJournal();
    Slow("U3V_CloseControl");
    std::thread closer([device] { EXPECT_EQ(DevClose(device), 0); });
    DEV_HANDLE next = nullptr;
    EXPECT_TRUE(zr_test::WaitUntil(
        [&] { return IFOpenDevice(m_iface, "GUID-A", DEVICE_ACCESS_EXCLUSIVE, &next) != -1004; }));
    closer.join();
    ASSERT_NE(next, nullptr);
    const auto journal = FakeU3V::Instance().Journal();
    const auto closed = std::find(journal.begin(), journal.end(), "U3V_CloseDevice");
    const auto opened = std::find(journal.begin(), journal.end(), "U3V_OpenDevice GUID-A");
    EXPECT_LT(closed, opened);
}

// ---- several streams end side by side

TEST_F(Threads, CloseLib_TwoAcquiringCameras_BothAreToldBeforeOneIsWaitedFor)
{
    UpdateDevices();
    for (const char* const id : {"GUID-A", "GUID-B"}) {
        DEV_HANDLE device = nullptr;
        ASSERT_EQ(IFOpenDevice(m_iface, id, DEVICE_ACCESS_EXCLUSIVE, &device), 0);
        DS_HANDLE stream = nullptr;
        ASSERT_EQ(DevOpenDataStream(device, "0", &stream), 0);
        BUFFER_HANDLE buffer = nullptr;
        ASSERT_EQ(DSAllocAndAnnounceBuffer(stream, 16, nullptr, &buffer), 0);
        ASSERT_EQ(DSStartAcquisition(stream, 0, GENTL_INFINITE), 0);
    }
    FakeU3V::Instance().ClearJournal();
    EXPECT_EQ(GCCloseLib(), 0);
    std::vector<std::string> stops;
    for (const std::string& call : FakeU3V::Instance().Journal()) {
        if (call.find("Stop") != std::string::npos) {
            stops.push_back(call);
        }
    }
    EXPECT_EQ(stops, (std::vector<std::string>{"U3V_RequestStop", "U3V_RequestStop",
                                               "U3V_AcquisitionStop", "U3V_AcquisitionStop"}));
}

} // namespace
