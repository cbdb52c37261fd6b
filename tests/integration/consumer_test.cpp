// The project's own GenTL consumer: what tools and tests rely on, above all when something fails.

#include "producer_fixture.h"

#include <future>
#include <thread>

#include <gmock/gmock.h>

namespace {

using consumer::Acquisition;
using consumer::BufferMemory;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

constexpr uint64_t kUserMemory = 0x60000;    // plain memory of the camera
constexpr uint64_t kStreamControl = 0x20004; // the stream is enabled by its lowest bit
constexpr consumer::Search kSearch{.update_ms = kUpdateTime};

class Consumer : public ::testing::Test
{
protected:
    Consumer()
    {
        vusb_reset();
        m_producer.emplace(ProducerFile());
        m_producer->OnFailedClose(
            [this](const std::exception& failure) { m_failedCloses.push_back(failure.what()); });
    }
    ~Consumer() override
    {
        m_producer.reset();
        ExpectCleanBus();
    }

    std::vector<std::string> m_failedCloses;
    std::optional<consumer::Producer> m_producer;
};

bool IsStreamEnabled(const vusb::Camera& device)
{
    return (device.Peek<uint32_t>(kStreamControl) & 1U) != 0;
}

std::string LoadErrorOf(const std::filesystem::path& file)
{
    try {
        const consumer::Producer producer(file);
        return "";
    } catch (const consumer::LoadError& error) {
        return error.what();
    }
}

TEST_F(Consumer, FileThatIsNotThere_IsNamed)
{
    EXPECT_THAT(LoadErrorOf("/no/such/file.cti"), HasSubstr("/no/such/file.cti"));
}

TEST_F(Consumer, LibraryThatIsNoProducer_IsNamedWithWhatItLacks)
{
    EXPECT_EQ(LoadErrorOf(ZR_OTHER_LIBRARY),
              std::string(ZR_OTHER_LIBRARY) + " is no GenTL producer: it has no GCInitLib");
}

TEST_F(Consumer, FailingCall_TellsCallCodeAndTheProducersText)
{
    const consumer::Session session(*m_producer, kSearch);
    try {
        const consumer::Camera camera(session, "no such camera");
        FAIL() << "it has opened";
    } catch (const consumer::GenTLError& error) {
        EXPECT_NE(error.Status(), GC_ERR_SUCCESS);
        EXPECT_THAT(error.what(),
                    StartsWith("IFOpenDevice failed: " + consumer::GenTLErrorName(error.Status()) +
                               " (" + std::to_string(error.Status()) + "), last error \""));
        EXPECT_THAT(error.what(), Not(HasSubstr("last error \"\"")));
    }
}

TEST_F(Consumer, ProducersText_IsFitForATerminal)
{
    const consumer::GenTLError error("GCReadPort", GC_ERR_IO, "no\tanswer");
    EXPECT_STREQ(error.what(), "GCReadPort failed: GC_ERR_IO (-1010), last error \"no?answer\"");
}

TEST_F(Consumer, ErrorWithoutAName_IsNamedByItsNumber)
{
    EXPECT_EQ(consumer::GenTLErrorName(GC_ERR_IO), "GC_ERR_IO");
    EXPECT_EQ(consumer::GenTLErrorName(GC_ERR_AMBIGUOUS), "GC_ERR_AMBIGUOUS");
    EXPECT_EQ(consumer::GenTLErrorName(-10001), "GC_ERR_-10001");
}

TEST_F(Consumer, CloseThatFails_IsReportedAndTheRestIsClosed)
{
    {
        const consumer::Session session(*m_producer, kSearch);
        ASSERT_EQ(m_producer->IFClose(session.Interface()), GC_ERR_SUCCESS);
    }
    EXPECT_THAT(m_failedCloses, ElementsAre(StartsWith("IFClose failed: ")));
    const consumer::Session again(*m_producer, kSearch);
    EXPECT_NE(again.System(), nullptr);
}

TEST_F(Consumer, SearchForMoreThanThereIs_EndsWithItsPatienceAndTheListAsItIs)
{
    const vusb::Camera device;
    const auto begin = std::chrono::steady_clock::now();
    const consumer::Session session(
        *m_producer, {.update_ms = kUpdateTime, .cameras = 2, .patience = std::chrono::seconds(1)});
    EXPECT_EQ(session.CameraIds().size(), 1u);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(1));
}

TEST_F(Consumer, CameraPluggedInDuringTheSearch_IsFound)
{
    auto plug = std::async(std::launch::async, [] {
        while (vusb_call_count("libusb_get_device_list") < 3) {
            std::this_thread::yield();
        }
        vusb_add_camera("guid=120900000007");
    });
    const consumer::Session session(*m_producer, {.update_ms = kUpdateTime, .cameras = 1});
    plug.get();
    EXPECT_THAT(session.CameraIds(), ElementsAre("120900000007"));
}

TEST_F(Consumer, Kill_EndsAWaitLongBeforeItsTime)
{
    const vusb::Camera device("width=64,height=64");
    const consumer::Session session(*m_producer, kSearch);
    const OpenCamera camera(session);
    const ImageStream images(camera, device.PayloadSize());
    const auto begin = std::chrono::steady_clock::now();
    auto waiter = std::async(std::launch::async, [&] { return images.NextBuffer(60000); });
    // Before the wait it would end the next one: either way there is one wait less.
    images.Kill();
    EXPECT_EQ(waiter.get(), nullptr);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(30));
}

TEST_F(Consumer, CameraSwitch_StartsBehindTheStreamAndStopsBeforeIt)
{
    const vusb::Camera device("width=64,height=64,fps=100");
    const consumer::Session session(*m_producer, kSearch);
    const OpenCamera camera(session);
    std::vector<bool> isEnabled;
    const auto note = [&] { isEnabled.push_back(IsStreamEnabled(device)); };
    Acquisition images(camera.Stream(), device.PayloadSize(), 4, BufferMemory::OfConsumer,
                       {note, note});
    images.Start();
    EXPECT_TRUE(images.Next(kImageTimeout));
    images.Stop();
    EXPECT_THAT(isEnabled, ElementsAre(true, true));
    EXPECT_FALSE(IsStreamEnabled(device));
}

TEST_F(Consumer, RegisterSwitch_WritesItsValues)
{
    const vusb::Camera device("width=64,height=64,fps=100");
    const consumer::Session session(*m_producer, kSearch);
    const OpenCamera camera(session);
    Acquisition images(camera.Stream(), device.PayloadSize(), 4, BufferMemory::OfProducer,
                       consumer::RegisterSwitch(camera, kUserMemory, 5, 6));
    images.Start();
    EXPECT_EQ(device.Peek<uint32_t>(kUserMemory), 5u);
    images.Stop();
    EXPECT_EQ(device.Peek<uint32_t>(kUserMemory), 6u);
}

TEST_F(Consumer, CameraThatRefusesToStop_TheStreamStopsAllTheSame)
{
    const vusb::Camera device("width=64,height=64,fps=100");
    const consumer::Session session(*m_producer, kSearch);
    const OpenCamera camera(session);
    const auto refuse = [] { throw consumer::Error("refused"); };
    {
        Acquisition images(camera.Stream(), device.PayloadSize(), 4, BufferMemory::OfConsumer,
                           {nullptr, refuse});
        images.Start();
        EXPECT_THROW(images.Stop(), consumer::Error);
        EXPECT_FALSE(IsStreamEnabled(device));
        images.Start();
    }
    EXPECT_FALSE(IsStreamEnabled(device));
    EXPECT_THAT(m_failedCloses, ElementsAre("refused"));
}

TEST_F(Consumer, FunctionsOfGenTL16_AreThereIfTheProducerSaysSo)
{
    const auto number = [&](TL_INFO_CMD command) {
        return m_producer->Value<uint32_t>(
            "GCGetInfo", [&](INFO_DATATYPE* type, void* buffer, size_t* size) {
                return m_producer->GCGetInfo(command, type, buffer, size);
            });
    };
    const bool has16 = number(TL_INFO_GENTL_VER_MAJOR) > 1 || number(TL_INFO_GENTL_VER_MINOR) >= 6;
    EXPECT_EQ(m_producer->DSGetBufferInfoStacked != nullptr, has16);
    EXPECT_EQ(m_producer->DSGetNumFlows != nullptr, has16);
}

const consumer::Producer* g_asked = nullptr;
size_t g_stackedCalls = 0;

// What a producer of GenTL 1.6 does, in terms of one that is older.
GC_ERROR StackedByHand(DS_HANDLE stream, BUFFER_HANDLE buffer, DS_BUFFER_INFO_STACKED* infos,
                       size_t count)
{
    g_stackedCalls++;
    for (size_t i = 0; i < count; i++) {
        size_t size = infos[i].iSize;
        INFO_DATATYPE type = 0;
        infos[i].iResult = g_asked->DSGetBufferInfo(stream, buffer, infos[i].iInfoCmd, &type,
                                                    infos[i].pBuffer, &size);
    }
    return GC_ERR_SUCCESS;
}

TEST_F(Consumer, StackedInfo_IsAskedInOneCallAnImageAndTellsTheSame)
{
    const vusb::Camera device("width=64,height=48,fps=100");
    const consumer::Session session(*m_producer, kSearch);
    const OpenCamera camera(session);
    ImageStream images(camera, device.PayloadSize());
    images.Start();
    for (const bool isStacked : {false, true}) {
        g_asked = &*m_producer;
        g_stackedCalls = 0;
        m_producer->DSGetBufferInfoStacked = isStacked ? StackedByHand : nullptr;
        const auto image = images.Next();
        ASSERT_TRUE(image);
        EXPECT_EQ(g_stackedCalls, isStacked ? 1u : 0u);
        EXPECT_EQ(image->width, 64u);
        EXPECT_EQ(image->height, 48u);
        EXPECT_EQ(image->pixelFormat, 0x01080001u);
        EXPECT_NE(image->timestamp, 0u);
        EXPECT_FALSE(image->isIncomplete);
        EXPECT_TRUE(IsExact(*image, device));
    }
}

TEST_F(Consumer, InfoThatFails_IsAnError_InfoWithoutMeaningIsNot)
{
    const vusb::Camera device("width=64,height=48,fps=100");
    const consumer::Session session(*m_producer, kSearch);
    const OpenCamera camera(session);
    ImageStream images(camera, device.PayloadSize());
    images.Start();
    m_producer->DSGetBufferInfoStacked = [](DS_HANDLE, BUFFER_HANDLE, DS_BUFFER_INFO_STACKED* infos,
                                            size_t count) -> GC_ERROR {
        for (size_t i = 0; i < count; i++) {
            const bool isWidth = infos[i].iInfoCmd == BUFFER_INFO_WIDTH;
            infos[i].iResult = isWidth ? GC_ERR_NOT_AVAILABLE : GC_ERR_SUCCESS;
        }
        return GC_ERR_SUCCESS;
    };
    const auto image = images.Next();
    ASSERT_TRUE(image);
    EXPECT_EQ(image->width, 0u);
    m_producer->DSGetBufferInfoStacked = [](DS_HANDLE, BUFFER_HANDLE, DS_BUFFER_INFO_STACKED* infos,
                                            size_t) -> GC_ERROR {
        infos[0].iResult = GC_ERR_NOT_AVAILABLE;
        return GC_ERR_SUCCESS;
    };
    EXPECT_EQ(StatusOf([&] { images.Next(); }), GC_ERR_NOT_AVAILABLE);
}

TEST_F(Consumer, BufferThatIsRefused_LeavesNothingAnnouncedOrRegistered)
{
    const vusb::Camera device("width=64,height=64,fps=100");
    const consumer::Session session(*m_producer, kSearch);
    const OpenCamera camera(session);
    EXPECT_THROW(Acquisition(camera.Stream(), 0, 4), consumer::GenTLError);
    EXPECT_EQ(camera.Stream().Info<size_t>(STREAM_INFO_NUM_ANNOUNCED), 0u);
    ImageStream images(camera, device.PayloadSize());
    images.Start();
    EXPECT_TRUE(images.Next());
    EXPECT_THAT(m_failedCloses, IsEmpty());
}

} // namespace
