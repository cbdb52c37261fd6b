// Whole images of all kinds of cameras, what their buffers tell, start and stop.

#include <chrono>
#include <thread>
#include <time.h>

#include <description_url.h>

#include "standard_camera.h"

namespace standard_tests {
namespace {

using Images = StandardProducer;

struct CameraRow
{
    const char* name;
    const char* options;
};

class WholeImages : public StandardProducer, public ::testing::WithParamInterface<CameraRow>
{
protected:
    void ExpectStream(BufferMemory memory)
    {
        Open(GetParam().options);
        Announce(4, memory);
        images->Start();
        ExpectWhole(0, 20);
        images->Stop();
        EXPECT_EQ(Lost(), 0U);
        EXPECT_EQ(vusb_camera_errors(camera->Id(), "locked-register"), 0U);
    }
};

TEST_P(WholeImages, OfProducersMemory_AreExactAndInOrder)
{
    ExpectStream(BufferMemory::OfProducer);
}

TEST_P(WholeImages, OfConsumersMemory_AreExactAndInOrder)
{
    ExpectStream(BufferMemory::OfConsumer);
}

INSTANTIATE_TEST_SUITE_P(
    Standard, WholeImages,
    ::testing::Values(
        CameraRow{"Plain", "width=640,height=480"},
        CameraRow{"SmallerThanAPacket", "width=16,height=16"},
        CameraRow{"OneTransfer", "width=1024,height=1024"},
        CameraRow{"OneTransferAndAByte", "width=1024,height=1024,payload-extra=1,alignment=0"},
        CameraRow{"ManyTransfers", "width=2048,height=1537"},
        CameraRow{"Alignment1", "width=333,height=101,alignment=0"},
        CameraRow{"Alignment2", "width=333,height=101,alignment=1"},
        CameraRow{"Alignment64", "width=640,height=481,alignment=6"},
        CameraRow{"Alignment512", "width=320,height=243,alignment=9"},
        CameraRow{"Alignment1024", "width=320,height=243,alignment=10"},
        CameraRow{"Alignment4096", "width=320,height=243,alignment=12"},
        CameraRow{"BelowTheAlignment", "width=16,height=4,alignment=10"},
        CameraRow{"OwnLeaders", "width=320,height=243,alignment=6,padding=own"},
        CameraRow{"PaddedLeaders", "width=320,height=243,alignment=9,padding=alignment"},
        CameraRow{"PaddedAll", "width=320,height=243,alignment=10,padding=all"},
        CameraRow{"LeaderAndTrailerOfOneSize", "width=320,height=240,leader=1024,trailer=1024"},
        CameraRow{"FixedRegisters", "width=640,height=480,stream-registers=fixed"},
        CameraRow{"IgnoredRegisters", "width=640,height=480,stream-registers=ignored"},
        CameraRow{"HighSpeed", "width=640,height=480,high-speed=1"},
        CameraRow{"Mono12p", "width=640,height=480,format=Mono12p"},
        CameraRow{"RGB8", "width=640,height=480,format=RGB8"}),
    [](const auto& tested) { return std::string(tested.param.name); });

// ---- what a buffer tells

TEST_F(Images, BufferInfo_IsWhatLeaderAndTrailerSay)
{
    Open("width=64,height=48,format=RGB8,offset-x=8,offset-y=4,sensor-width=128,sensor-height=96,"
         "first-block=7");
    Announce();
    images->Start();
    const auto image = Next();
    ASSERT_TRUE(image);
    EXPECT_EQ(image->frameId, 7U);
    EXPECT_EQ(Lost(), 0U) << "the first image is no gap";
    EXPECT_EQ(Info<size_t>(*image, BUFFER_INFO_WIDTH), 64U);
    EXPECT_EQ(Info<size_t>(*image, BUFFER_INFO_HEIGHT), 48U);
    EXPECT_EQ(Info<size_t>(*image, BUFFER_INFO_XOFFSET), 8U);
    EXPECT_EQ(Info<size_t>(*image, BUFFER_INFO_YOFFSET), 4U);
    EXPECT_EQ(Info<uint64_t>(*image, BUFFER_INFO_PIXELFORMAT), 0x02180014U);
    EXPECT_EQ(Info<size_t>(*image, BUFFER_INFO_PAYLOADTYPE), size_t{PAYLOAD_TYPE_IMAGE});
    EXPECT_EQ(Info<size_t>(*image, BUFFER_INFO_SIZE_FILLED), 64U * 48U * 3U);
    EXPECT_NE(Info<uint64_t>(*image, BUFFER_INFO_TIMESTAMP), 0U);
    EXPECT_TRUE(Info<bool8_t>(*image, BUFFER_INFO_NEW_DATA));
}

TEST_F(Images, Short_SizeFilledIsTheTrailersAndTheNextIsNotTouched)
{
    for (const char* unused : {"empty", "omitted"}) {
        Open(std::string("width=320,height=240,min-height=10,unused=") + unused);
        Announce();
        images->Start();
        for (uint64_t id = 0; id < 20; ++id) {
            const auto image = Next();
            ASSERT_TRUE(image) << unused << " " << id;
            EXPECT_EQ(image->frameId, id);
            EXPECT_FALSE(image->isIncomplete) << unused << " " << id;
            EXPECT_EQ(image->bytes.size(),
                      320U * Info<size_t>(*image, BUFFER_INFO_DELIVERED_IMAGEHEIGHT));
            EXPECT_TRUE(IsExact(*image)) << unused << " " << id;
            Queue(*image);
        }
        images.reset();
        opened.reset();
        session.reset();
        camera->Unplug();
    }
}

TEST_F(Images, LargerThanTheBuffer_FillTheBufferAndNothingBeyond)
{
    Open("width=320,height=240");
    constexpr size_t kSize = 1000;
    std::vector<uint8_t> memory(2 * kSize, 0xA5);
    BUFFER_HANDLE buffer = nullptr;
    images.emplace(opened->Stream(), kSize, 1, BufferMemory::OfProducer,
                   consumer::RegisterSwitch(*opened, camera_features::kAcquisition));
    GENTL_CALL(Gentl(), DSAnnounceBuffer, opened->Stream().Handle(), memory.data(), kSize, nullptr,
               &buffer);
    images->Queue(buffer);
    images->Start();
    for (int i = 0; i < 2; ++i) {
        const auto image = Next();
        ASSERT_TRUE(image);
        EXPECT_TRUE(image->isIncomplete);
        EXPECT_TRUE(Info<bool8_t>(*image, BUFFER_INFO_DATA_LARGER_THAN_BUFFER));
        EXPECT_EQ(image->bytes.size(), kSize);
        EXPECT_EQ(Info<size_t>(*image, BUFFER_INFO_DATA_SIZE), kSize);
        EXPECT_EQ(vusb_compare_image(camera->Id(), image->frameId, image->bytes.data(), kSize), -1);
    }
    EXPECT_EQ(memory[kSize - 1] == 0xA5 && memory[kSize - 2] == 0xA5, false);
    EXPECT_EQ(std::count(memory.begin() + kSize, memory.end(), 0xA5), ptrdiff_t{kSize});
    images->Stop();
    GENTL_CALL(Gentl(), DSFlushQueue, opened->Stream().Handle(), ACQ_QUEUE_ALL_DISCARD);
    GENTL_CALL(Gentl(), DSRevokeBuffer, opened->Stream().Handle(), buffer, nullptr, nullptr);
}

TEST_F(Images, Chunks_AreFoundBehindTheImage)
{
    Open("width=64,height=32,chunks=1,chunk-bytes=16");
    Announce();
    images->Start();
    const auto image = Next();
    ASSERT_TRUE(image);
    EXPECT_FALSE(image->isIncomplete);
    EXPECT_TRUE(Info<bool8_t>(*image, BUFFER_INFO_CONTAINS_CHUNKDATA));
    EXPECT_EQ(Info<size_t>(*image, BUFFER_INFO_PAYLOADTYPE), size_t{PAYLOAD_TYPE_IMAGE});
    SINGLE_CHUNK_DATA chunks[16] = {};
    size_t count = std::size(chunks);
    ASSERT_EQ(
        Gentl().DSGetBufferChunkData(opened->Stream().Handle(), image->buffer, chunks, &count),
        GC_ERR_SUCCESS);
    ASSERT_GE(count, 2U);
    EXPECT_EQ(uint64_t{chunks[0].ChunkID}, 0x1000U) << "the image comes first";
    EXPECT_EQ(ptrdiff_t{chunks[0].ChunkOffset}, 0);
    EXPECT_EQ(size_t{chunks[0].ChunkLength}, 64U * 32U);
}

TEST_F(Images, OtherPayloads_AreWhatTheyAre)
{
    const std::pair<const char*, size_t> rows[] = {{"payload=gendc", PAYLOAD_TYPE_GENDC},
                                                   {"payload=chunk", PAYLOAD_TYPE_CHUNK_ONLY},
                                                   {"payload=5", PAYLOAD_TYPE_RAW_DATA}};
    for (const auto& [options, type] : rows) {
        Open(std::string("width=64,height=32,") + options);
        Announce();
        images->Start();
        const auto image = Next();
        ASSERT_TRUE(image) << options;
        EXPECT_FALSE(image->isIncomplete) << options;
        EXPECT_EQ(Info<size_t>(*image, BUFFER_INFO_PAYLOADTYPE), type) << options;
        EXPECT_FALSE(Info<bool8_t>(*image, BUFFER_INFO_IMAGEPRESENT)) << options;
        images.reset();
        opened.reset();
        session.reset();
        camera->Unplug();
    }
}

// ---- start and stop

TEST_F(Images, Restart_ManyTimes_EachGivesImagesAtOnce)
{
    Open("width=320,height=240");
    Announce();
    for (int i = 0; i < 50; ++i) {
        images->Rewind();
        images->Start();
        const auto image = Next();
        ASSERT_TRUE(image) << i;
        EXPECT_TRUE(IsExact(*image)) << i;
        images->Stop(i % 2 == 0 ? ACQ_STOP_FLAGS_DEFAULT : ACQ_STOP_FLAGS_KILL);
        EXPECT_FALSE(IsGrabbing());
    }
}

TEST_F(Images, NumberOfImages_Reached_EndsByItself)
{
    Open("width=320,height=240");
    Announce();
    for (const uint64_t count : {1U, 3U}) {
        images->Rewind();
        images->Start(count);
        for (uint64_t i = 0; i < count; ++i) {
            EXPECT_TRUE(Next());
        }
        EXPECT_TRUE(Eventually([this] { return !IsGrabbing(); }));
        images->Stop();
    }
}

TEST_F(Images, Stop_SilentCamera_IsQuick)
{
    Open("faults=stream-silent@0*0");
    Announce();
    for (const ACQ_STOP_FLAGS flags : {ACQ_STOP_FLAGS_DEFAULT, ACQ_STOP_FLAGS_KILL}) {
        // A busy machine may be late once, not each time.
        EXPECT_TRUE(Eventually([&] {
            images->Start();
            const auto begin = std::chrono::steady_clock::now();
            images->Stop(flags);
            return std::chrono::steady_clock::now() - begin < std::chrono::milliseconds(500);
        }));
    }
}

double CpuSeconds()
{
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

TEST_F(Images, SilentCamera_WaitingCostsNoProcessor)
{
    Open("faults=stream-silent@0*0");
    Announce();
    images->Start();
    EXPECT_TRUE(Eventually([this] {
        const double before = CpuSeconds();
        EXPECT_FALSE(images->Next(500));
        return CpuSeconds() - before < 0.02;
    }));
}

TEST_F(Images, Kill_SomebodyWaits_EndsTheWait)
{
    Open("faults=stream-silent@0*0");
    Announce();
    images->Start();
    std::thread waiter([this] { EXPECT_EQ(images->NextBuffer(GENTL_INFINITE), nullptr); });
    images->Kill();
    waiter.join();
}

// ---- handling modes

class HandlingModes : public StandardProducer
{
protected:
    // By the register behind the feature; its place follows from the document.
    void SetMode(uint64_t mode)
    {
        const auto url = consumer::FirstUrl(Gentl(), opened->Stream().Handle());
        const auto file = consumer::ParseDescriptionUrl(url);
        std::string text(file.length, '\0');
        size_t size = text.size();
        GENTL_CALL(Gentl(), GCReadPort, opened->Stream().Handle(), file.address, text.data(),
                   &size);
        const size_t node = text.find("Name=\"StreamBufferHandlingModeReg\"");
        const size_t address = text.find("<Address>", node) + 9;
        size = sizeof(mode);
        GENTL_CALL(Gentl(), GCWritePort, opened->Stream().Handle(),
                   strtoull(text.c_str() + address, nullptr, 0), &mode, &size);
    }
};

TEST_F(HandlingModes, OldestFirst_SlowConsumer_LosesNothing)
{
    Open("width=64,height=64");
    Announce(2);
    images->Start();
    zr_test::LetPass(std::chrono::milliseconds(50), "the camera runs out of buffers");
    ExpectWhole(0, 20);
    EXPECT_EQ(Lost(), 0U);
}

TEST_F(HandlingModes, NewestOnly_SlowConsumer_GetsANewImageAndTheOthersAreCounted)
{
    Open("width=64,height=64,fps=200");
    SetMode(2);
    Announce(4);
    images->Start();
    ASSERT_TRUE(Eventually([this] { return Lost() >= 20; }));
    const auto image = Next();
    ASSERT_TRUE(image);
    EXPECT_GE(image->frameId, 20U);
    EXPECT_TRUE(IsExact(*image));
}

TEST_F(HandlingModes, Overwrite_SlowConsumer_KeepsTheLastOnes)
{
    Open("width=64,height=64,fps=200");
    SetMode(1);
    Announce(4);
    images->Start();
    ASSERT_TRUE(Eventually([this] { return Lost() >= 20; }));
    auto image = Next();
    ASSERT_TRUE(image);
    EXPECT_GE(image->frameId, 18U);
    EXPECT_TRUE(IsExact(*image));
}

// In both modes that do not let the camera wait.
TEST_F(HandlingModes, AllWithTheConsumer_ImagesAreCountedAndItGoesOnWhenOneIsQueued)
{
    for (const uint64_t mode : {1U, 2U}) {
        Open("width=64,height=64,fps=200");
        SetMode(mode);
        Announce(2);
        images->Start();
        const auto first = Next();
        const auto second = Next();
        ASSERT_TRUE(first && second) << mode;
        const uint64_t before = Lost();
        ASSERT_TRUE(Eventually([&] { return Lost() >= before + 10; })) << mode;
        Queue(*first);
        const auto third = Next();
        ASSERT_TRUE(third) << mode;
        EXPECT_GT(third->frameId, second->frameId + 10) << mode;
        EXPECT_TRUE(IsExact(*third)) << mode;
        images.reset();
        opened.reset();
        session.reset();
        camera->Unplug();
    }
}

// ---- several

TEST_F(Images, TwoCamerasAtOnce_BothAreExact)
{
    const vusb::Camera second("guid=120900000002,width=320,height=240,seed=9");
    camera.emplace("width=640,height=480");
    session.emplace(Gentl(), consumer::Search{.update_ms = 1000});
    ASSERT_EQ(session->CameraIds().size(), 2U);
    const OpenCamera left(*session, 0);
    const OpenCamera right(*session, 1);
    const auto stream = [](const OpenCamera& device, int id, size_t size) {
        consumer::Acquisition taken(
            device.Stream(), size, 3, BufferMemory::OfProducer,
            consumer::RegisterSwitch(device, camera_features::kAcquisition));
        taken.Start();
        for (int i = 0; i < 100; ++i) {
            const auto image = taken.Next(kImageTimeout);
            ASSERT_TRUE(image);
            EXPECT_EQ(
                vusb_compare_image(id, image->frameId, image->bytes.data(), image->bytes.size()),
                -1);
            taken.Queue(image->buffer);
        }
    };
    std::thread other([&] { stream(left, second.Id(), second.PayloadSize()); });
    stream(right, camera->Id(), camera->PayloadSize());
    other.join();
}

} // namespace
} // namespace standard_tests
