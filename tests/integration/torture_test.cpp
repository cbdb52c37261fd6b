// Every state of a consumer's life meets everything that can happen to it: no crash, no leak, no
// wait beyond what is documented, the right status of every call afterwards, and the same process
// starts over.

#include "torture_consumer.h"

#include <algorithm>
#include <functional>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

enum class Incident
{
    Unplug,
    Replug,
    BusError,
    CameraSilent,
    CloseSelf,
    CloseParent,
    CloseSystem,
    CloseLibrary,
    SecondOpen,
    EventKill,
    Unregister
};

const char* const kStateNames[] = {"LibraryClosed", "SystemOpen", "InterfaceOpen",    "Discovering",
                                   "DeviceOpen",    "StreamOpen", "BuffersAnnounced", "Acquiring",
                                   "Delivering",    "Stopping"};
const char* const kIncidentNames[] = {"Unplug",     "Replug",      "BusError",    "CameraSilent",
                                      "CloseSelf",  "CloseParent", "CloseSystem", "CloseLibrary",
                                      "SecondOpen", "EventKill",   "Unregister"};

// A stop waits up to 5 s for the bus and then talks to a camera that answers each of a few
// exchanges after 100 ms at the latest. The rest is for machines with other things to do.
constexpr milliseconds kLongestCall{5000 + 10 * 100 + 4000};

using Pair = std::tuple<State, Incident>;

std::string PairName(const ::testing::TestParamInfo<Pair>& info)
{
    return std::string(kStateNames[static_cast<int>(std::get<0>(info.param))]) + "_" +
           kIncidentNames[static_cast<int>(std::get<1>(info.param))];
}

class Torture : public ::testing::TestWithParam<Pair>
{
protected:
    void SetUp() override
    {
        vusb_reset();
        m_camera.emplace("width=64,height=64,response-ms=100");
        std::thread([] {}).join(); // with a first thread a sanitizer may start one of its own
        m_threads = ThreadCount();
        m_descriptors = DescriptorCount();
    }

    void TearDown() override
    {
        ExpectCleanBus();
        // A thread that was joined may still be listed.
        EXPECT_TRUE(zr_test::WaitUntil([this] { return ThreadCount() <= m_threads; },
                                       std::chrono::seconds(10)));
        EXPECT_LE(DescriptorCount(), m_descriptors);
    }

    static GC_ERROR Timed(const std::function<GC_ERROR()>& call)
    {
        const auto begin = steady_clock::now();
        const GC_ERROR status = call();
        EXPECT_LT(steady_clock::now() - begin, kLongestCall);
        return status;
    }

    void Cause(TortureConsumer& consumer, State state, Incident incident);
    void BusFails() const;
    void StartOver();

    std::optional<vusb::Camera> m_camera;
    size_t m_threads = 0;
    size_t m_descriptors = 0;
};

void Torture::BusFails() const
{
    constexpr int kIoError = -1;
    for (const char* function :
         {"libusb_bulk_transfer", "libusb_submit_transfer", "libusb_get_device_list", "libusb_open",
          "libusb_get_config_descriptor", "libusb_claim_interface", "libusb_clear_halt",
          "libusb_release_interface"}) {
        ASSERT_EQ(vusb_fail_call(function, 0, 0, kIoError), 0) << function;
    }
    // Serving the bus fails for a while: for ever would be a transfer that never comes back.
    ASSERT_EQ(vusb_fail_call("libusb_handle_events_timeout", 0, 20, kIoError), 0);
    m_camera->SetFaults("transfer-error");
}

// What the call itself has to answer where something is called.
void Torture::Cause(TortureConsumer& consumer, State state, Incident incident)
{
    const Level level = LevelOf(state);
    const bool closed = state == State::LibraryClosed;
    const GC_ERROR success = closed ? GC_ERR_NOT_INITIALIZED : GC_ERR_SUCCESS;
    switch (incident) {
    case Incident::Unplug: m_camera->Unplug(); break;
    case Incident::Replug:
        m_camera->Unplug();
        m_camera->Replug();
        break;
    case Incident::BusError: BusFails(); break;
    case Incident::CameraSilent: m_camera->SetFaults("reply-missing+stream-silent"); break;
    case Incident::CloseSelf:
        EXPECT_EQ(Timed([&] { return consumer.Close(level); }), success);
        break;
    case Incident::CloseParent: {
        const auto parent = static_cast<Level>(std::max(0, static_cast<int>(level) - 1));
        EXPECT_EQ(Timed([&] { return consumer.Close(parent); }), success);
        break;
    }
    case Incident::CloseSystem:
        EXPECT_EQ(Timed([&] { return consumer.Close(Level::System); }), success);
        break;
    case Incident::CloseLibrary:
        EXPECT_EQ(Timed([&] { return consumer.Close(Level::Library); }), success);
        break;
    case Incident::SecondOpen:
        EXPECT_EQ(Timed([&] { return consumer.OpenSecond(state); }),
                  closed ? GC_ERR_NOT_INITIALIZED : GC_ERR_RESOURCE_IN_USE);
        break;
    case Incident::EventKill:
        EXPECT_EQ(Timed([&] { return EventKill(consumer.Event()); }),
                  level == Level::System ? GC_ERR_INVALID_HANDLE : success);
        break;
    case Incident::Unregister:
        EXPECT_EQ(Timed([&] { return consumer.UnregisterEvent(); }),
                  level == Level::System ? GC_ERR_NOT_IMPLEMENTED : success);
        break;
    }
}

// In the same process, with the bus in order again: the next life delivers exact images.
void Torture::StartOver()
{
    vusb_clear_scripts();
    m_camera->SetFaults("");
    if (!m_camera->IsPlugged()) {
        m_camera->Replug();
    }
    m_camera->SetFrameRate(100);
    const ProducerUnderTest producer;
    const consumer::Session session(Gentl(), {.update_ms = kUpdateTime, .cameras = 1});
    const OpenCamera opened(session);
    ImageStream stream(opened, m_camera->PayloadSize());
    stream.Start();
    for (int i = 0; i < 3; ++i) {
        // Which image it is depends on the machine's load, what it shows does not.
        const auto image = stream.Next();
        ASSERT_TRUE(image);
        ASSERT_TRUE(IsExact(*image, *m_camera));
        stream.Queue(image->buffer);
    }
}

// Which statuses the camera's memory may answer: the bus is what it is, never anything else.
std::vector<GC_ERROR> PortAnswers(Incident incident)
{
    switch (incident) {
    case Incident::Unplug:
    case Incident::Replug:
    case Incident::BusError:
    case Incident::CameraSilent: return {GC_ERR_IO};
    default: return {GC_ERR_SUCCESS};
    }
}

// Whether the waiter has to come back by itself, and with what.
bool ReleasesWaiter(State state, Incident incident)
{
    switch (incident) {
    case Incident::EventKill:
    case Incident::Unregister:
    case Incident::CloseSystem:
    case Incident::CloseLibrary: return true;
    // DSClose alone leaves the stream's events registered.
    case Incident::CloseSelf: return LevelOf(state) < Level::Stream;
    case Incident::CloseParent: return true;
    default: return false;
    }
}

TEST_P(Torture, NoHarmTheRightAnswersAndANewLife)
{
    const auto [state, incident] = GetParam();
    {
        TortureConsumer consumer(*m_camera);
        consumer.Reach(state);
        if (HasFatalFailure()) {
            return;
        }
        Cause(consumer, state, incident);
        if (consumer.HasWaiter() && ReleasesWaiter(state, incident)) {
            if (state == State::Delivering) {
                // May have been on its way between two waits and found the event gone.
                consumer.StopWaiting();
            }
            const GC_ERROR status = consumer.WaiterStatus();
            if (state == State::Delivering) {
                EXPECT_TRUE(status == GC_ERR_ABORT || status == GC_ERR_INVALID_HANDLE ||
                            status == GC_ERR_NOT_INITIALIZED || status == GC_ERR_SUCCESS)
                    << status;
            } else {
                EXPECT_EQ(status, GC_ERR_ABORT);
            }
        }
        zr_test::LetPass(milliseconds(30), "what was caused goes on meanwhile");
        consumer.UseEverything(PortAnswers(incident));
        Timed([&consumer] {
            consumer.TearDown();
            return GC_ERR_SUCCESS;
        });
    }
    StartOver();
}

INSTANTIATE_TEST_SUITE_P(
    Pairs, Torture,
    ::testing::Combine(::testing::Values(State::LibraryClosed, State::SystemOpen,
                                         State::InterfaceOpen, State::Discovering,
                                         State::DeviceOpen, State::StreamOpen,
                                         State::BuffersAnnounced, State::Acquiring,
                                         State::Delivering, State::Stopping),
                       ::testing::Values(Incident::Unplug, Incident::Replug, Incident::BusError,
                                         Incident::CameraSilent, Incident::CloseSelf,
                                         Incident::CloseParent, Incident::CloseSystem,
                                         Incident::CloseLibrary, Incident::SecondOpen,
                                         Incident::EventKill, Incident::Unregister)),
    PairName);

// Never destroyed, as in a host of this kind; reachable, so that it is no leak.
std::atomic<TortureConsumer*> g_forgotten = nullptr;

// A host that forgets GCCloseLib: the process ends, with threads of ours and of its own inside the
// library, and neither crashes nor hangs.
class ProcessExit : public ::testing::TestWithParam<State>
{
protected:
    // The test's process is started anew for each ending. That threads live on is what it is about,
    // and no finding of ThreadSanitizer; its others count.
    static void SetUpTestSuite()
    {
        const char* const given = std::getenv("TSAN_OPTIONS");
        const std::string options =
            std::string(given != nullptr ? given : "") + " report_thread_leaks=0";
        setenv("TSAN_OPTIONS", options.c_str(), 1);
    }
};

TEST_P(ProcessExit, WithoutClosingTheLibrary_EndsWithItsOwnCode)
{
    ::testing::GTEST_FLAG(death_test_style) = "threadsafe";
    const State state = GetParam();
    EXPECT_EXIT(
        {
            vusb_reset();
            const vusb::Camera camera("width=64,height=64,response-ms=100");
            g_forgotten = new TortureConsumer(camera);
            g_forgotten.load()->Reach(state);
            std::exit(7);
        },
        ::testing::ExitedWithCode(7), "");
}

std::string ExitName(const ::testing::TestParamInfo<State>& info)
{
    return kStateNames[static_cast<int>(info.param)];
}

INSTANTIATE_TEST_SUITE_P(States, ProcessExit,
                         ::testing::Values(State::LibraryClosed, State::SystemOpen,
                                           State::InterfaceOpen, State::Discovering,
                                           State::DeviceOpen, State::BuffersAnnounced,
                                           State::Acquiring, State::Delivering, State::Stopping),
                         ExitName);

[[noreturn]] void EndForkedChild()
{
#if defined(__SANITIZE_ADDRESS__)
    _exit(5); // the leak checker would miss what only the stacks of the parent's threads refer to
#else
    std::exit(5);
#endif
}

// A host that starts a helper in the middle of an acquisition: the child has none of the library's
// threads and a copy of everything else, and ends all the same; the parent does not notice.
TEST(ForkedChild, Exit_WhileTheParentAcquires_EndsAndTheParentGoesOn)
{
    ::testing::GTEST_FLAG(death_test_style) = "threadsafe";
    EXPECT_EXIT(
        {
            vusb_reset();
            const vusb::Camera camera("width=64,height=64,response-ms=100");
            g_forgotten = new TortureConsumer(camera);
            g_forgotten.load()->Reach(State::Delivering);
            const pid_t child = fork();
            if (child == 0) {
                alarm(60); // a child that hangs is ended, and seen
                EndForkedChild();
            }
            int status = 0;
            const bool ended = waitpid(child, &status, 0) == child && WIFEXITED(status) &&
                               WEXITSTATUS(status) == 5;
            const bool closed = GCCloseLib() == GC_ERR_SUCCESS;
            delete g_forgotten.exchange(nullptr); // not forgotten: the parent ends in good order
            std::exit(ended && closed ? 7 : 1);
        },
        ::testing::ExitedWithCode(7), "");
}

} // namespace
