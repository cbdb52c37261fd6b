// Images on the wire: the plan of the host, packet by packet, and every way to spoil it.

#include "image_reader.h"
#include "wait.h"

using vcam::UsbStatus;

namespace {

// Reads one image with requests of the planned sizes; checks ids and content.
void ExpectImage(CameraHost& host, std::uint64_t id)
{
    const Read leader = host.Stream(65536);
    ASSERT_EQ(52U, leader.data.size());
    EXPECT_EQ(id, Get(leader.data, 8, 8));
    const Bytes expected = host.Expected(id);
    EXPECT_EQ(expected, host.Stream(expected.size()).data);
    const Read trailer = host.Stream(32);
    ASSERT_EQ(32U, trailer.data.size());
    EXPECT_EQ(id, Get(trailer.data, 8, 8));
}

} // namespace

TEST(Stream, Leader_Bytes)
{
    CameraHost host(std::string(kSmall) + "format=BayerRG8");
    host.Write32(0x50000, 32);
    host.Write32(0x5001C, 16);
    host.Write32(0x50020, 0);
    host.StartWhole();
    const Bytes leader = host.Stream(65536).data;
    ASSERT_EQ(52U, leader.size());
    const Bytes head{0x55, 0x33, 0x56, 0x4C, 0, 0, 0x34, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x01, 0};
    EXPECT_EQ(head, Bytes(leader.begin(), leader.begin() + 20));
    EXPECT_LT(0U, Get(leader, 20, 8));
    const Bytes tail{0x09, 0, 0x08, 0x01, 32, 0, 0, 0, 33, 0, 0, 0,
                     16,   0, 0,    0,    0,  0, 0, 0, 0,  0, 0, 0};
    EXPECT_EQ(tail, Bytes(leader.begin() + 28, leader.end()));
}

TEST(Stream, Trailer_Bytes)
{
    CameraHost host(kSmall);
    host.StartWhole();
    host.Stream(65536);
    host.Stream(2112);
    const Bytes trailer{0x55, 0x33, 0x56, 0x54, 0,    0,    0x20, 0, 0, 0, 0, 0, 0,  0, 0, 0,
                        0,    0,    0,    0,    0x40, 0x08, 0,    0, 0, 0, 0, 0, 33, 0, 0, 0};
    EXPECT_EQ(trailer, host.Stream(32).data);
}

TEST(Stream, Images_ComeInOrderWithTheirContent)
{
    CameraHost host(kSmall);
    host.StartWhole();
    for (std::uint64_t id = 0; id < 20; ++id) {
        ExpectImage(host, id);
    }
    EXPECT_EQ(20U, host.camera.Stats().stream.sent);
    EXPECT_EQ(20U * (52 + 2112 + 32), host.camera.Stats().stream.bytes);
    EXPECT_EQ(0U, host.camera.Stats().protocolErrors);
}

TEST(Stream, Plan_PiecesAndTwoFinals_EachIsATransfer)
{
    CameraHost host(kSmall);
    host.Start(1024, 1, 1080, 8);
    EXPECT_EQ(52U, host.Stream(65536).data.size());
    Bytes image;
    for (const std::size_t size : {1024U, 1080U, 8U}) {
        const Bytes piece = host.Stream(size).data;
        EXPECT_EQ(size, piece.size());
        image.insert(image.end(), piece.begin(), piece.end());
    }
    EXPECT_EQ(host.Expected(0), image);
    EXPECT_EQ(32U, host.Stream(32).data.size());
}

TEST(Stream, Plan_LastFinalLargerThanWhatIsLeft_EndsShort)
{
    CameraHost host(std::string(kSmall) + "alignment=4,width=65"); // 2145 = 2144 + 1
    host.Start(0, 0, 2144, 16);
    EXPECT_EQ((Sizes{52, 2144, 1, 32}), Lengths(host, 4096, 4));
}

TEST(Stream, Plan_FinalOfWholePacketsButLessThanPlanned_EndsWithEmptyPacket)
{
    CameraHost host("width=64,height=32"); // 2048 bytes
    host.Start(0, 0, 4096);
    EXPECT_EQ(52U, host.Stream(65536).data.size());
    EXPECT_EQ(2048U, host.Stream(8192).data.size());
    EXPECT_EQ(32U, host.Stream(32).data.size());
}

TEST(Stream, Transfer_ExactlyFilled_SendsNoEmptyPacket)
{
    CameraHost host("width=64,height=32");
    host.StartWhole();
    host.Stream(65536);
    EXPECT_EQ(2048U, host.Stream(2048).data.size());
    EXPECT_EQ(32U, host.Stream(32).data.size());
}

TEST(Stream, Transfer_WholePacketsInLargerRequest_RunsOnIntoTheTrailer)
{
    CameraHost host("width=64,height=32");
    host.StartWhole();
    host.Stream(65536);
    EXPECT_EQ(2048U + 32, host.Stream(4096).data.size()); // nothing marks the end of the payload
}

TEST(Stream, Transfer_SmallerRequests_ContinueWhereTheyEnded)
{
    CameraHost host(kSmall);
    host.StartWhole();
    host.Stream(65536);
    Bytes image;
    for (const std::size_t size : {1024U, 1024U, 64U}) {
        const Bytes piece = host.Stream(size).data;
        EXPECT_EQ(size, piece.size());
        image.insert(image.end(), piece.begin(), piece.end());
    }
    EXPECT_EQ(host.Expected(0), image);
}

TEST(Stream, Request_WithoutRoomForThePacket_OverflowsAndLosesIt)
{
    CameraHost host(kSmall);
    host.StartWhole();
    EXPECT_EQ(UsbStatus::Overflow, host.Stream(51).status);
    const Read partial = host.Stream(1500);
    EXPECT_EQ(UsbStatus::Overflow, partial.status);
    EXPECT_EQ(1024U, partial.data.size());
    EXPECT_EQ(64U, host.Stream(64).data.size());
    EXPECT_EQ(32U, host.Stream(32).data.size());
    EXPECT_EQ(2U, host.camera.Stats().stream.overflows);
}

TEST(Stream, NotStarted_NothingComes)
{
    CameraHost host(kSmall);
    EXPECT_EQ(UsbStatus::Nak, host.Stream(65536).status);
    host.Start(0, 0, 2112);
    host.Write32(0x50014, 0);
    EXPECT_EQ(UsbStatus::Nak, host.Stream(65536).status);
}

TEST(Stream, Stop_InTheMiddle_FinishesTheImage)
{
    CameraHost host(kSmall);
    host.StartWhole();
    host.Stream(65536);
    host.Write32(0x50014, 0);
    EXPECT_EQ((Sizes{2112, 32}),
              (Sizes{host.Stream(2112).data.size(), host.Stream(32).data.size()}));
    EXPECT_EQ(UsbStatus::Nak, host.Stream(65536).status);
}

TEST(Stream, Disable_InTheMiddle_DropsTheImage_AndStartsAtZeroAgain)
{
    CameraHost host(kSmall);
    host.StartWhole();
    ExpectImage(host, 0);
    host.Stream(65536);
    host.Write32(0x50014, 0);
    host.Write32(0x20004, 0);
    EXPECT_EQ(UsbStatus::Nak, host.Stream(65536).status);
    host.StartWhole();
    ExpectImage(host, 0);
}

TEST(Stream, Start_WrittenTwice_GoesOn)
{
    CameraHost host(kSmall);
    host.StartWhole();
    ExpectImage(host, 0);
    host.Write32(0x50014, 1);
    ExpectImage(host, 1);
}

TEST(Stream, Modes_SingleAndMultiFrame_EndByThemselves)
{
    CameraHost host(kSmall);
    host.Write32(0x50010, 2);
    host.Write32(0x50034, 2);
    host.StartWhole();
    ExpectImage(host, 0);
    ExpectImage(host, 1);
    EXPECT_EQ(UsbStatus::Nak, host.Stream(65536).status);
    EXPECT_EQ(0U, host.Read32(0x50014));
}

TEST(Stream, Trigger_OneImageEach)
{
    CameraHost host(kSmall);
    host.Write32(0x501EC, 1);
    host.StartWhole();
    EXPECT_EQ(UsbStatus::Nak, host.Stream(65536).status);
    host.Write32(0x501F4, 1);
    ExpectImage(host, 0);
    EXPECT_EQ(UsbStatus::Nak, host.Stream(65536).status);
}

TEST(Stream, FrameRate_PacesTheImages)
{
    CameraHost host(std::string(kSmall) + "fps=100");
    host.StartWhole();
    const auto start = vcam::Clock::now();
    for (std::uint64_t id = 0; id < 10; ++id) {
        ExpectImage(host, id);
    }
    EXPECT_LE(std::chrono::milliseconds(99), vcam::Clock::now() - start);
}

TEST(Stream, SlowHost_WithoutDrop_MissesNothing)
{
    CameraHost host(std::string(kSmall) + "fps=1000,depth=2");
    host.StartWhole();
    for (std::uint64_t id = 0; id < 5; ++id) {
        zr_test::LetPass(std::chrono::milliseconds(8), "the host is slower than the camera");
        ExpectImage(host, id);
    }
    EXPECT_EQ(0U, host.camera.Stats().stream.dropped);
}

TEST(Stream, SlowHost_WithDrop_IdsJump)
{
    CameraHost host(std::string(kSmall) + "fps=1000,depth=2,drop=1");
    host.StartWhole();
    zr_test::LetPass(std::chrono::milliseconds(30), "the camera goes on without its host");
    const std::uint64_t id = Get(host.Stream(65536).data, 8, 8);
    EXPECT_LE(27U, id);
    EXPECT_EQ(id, host.camera.Stats().stream.dropped);
    EXPECT_EQ(host.Expected(id), host.Stream(2112).data);
}

TEST(Stream, FrameRate_ChangedLive_TakesEffect)
{
    CameraHost host(std::string(kSmall) + "fps=0.01");
    host.StartWhole();
    std::size_t filled = 0;
    std::uint8_t byte[64];
    EXPECT_EQ(UsbStatus::Nak, host.camera.BulkIn(0x83, byte, 64, filled).status);
    host.camera.SetFrameRate(0);
    ExpectImage(host, 0);
}

TEST(Stream, LargerLeaderAndTrailer_ArePaddedToTheirSizes)
{
    CameraHost host(std::string(kSmall) + "leader=100,trailer=1024");
    host.StartWhole();
    EXPECT_EQ((Sizes{100, 2112, 1024}),
              (Sizes{host.Stream(65536).data.size(), host.Stream(2112).data.size(),
                     host.Stream(1024).data.size()}));
}

TEST(Stream, HighSpeed_PacketsOf512)
{
    CameraHost host("width=64,height=33,high-speed=1");
    host.StartWhole();
    host.Stream(65536);
    const Read partial = host.Stream(1000);
    EXPECT_EQ(UsbStatus::Overflow, partial.status);
    EXPECT_EQ(512U, partial.data.size());
}

// --- scripted faults -----------------------------------------------------------------------

struct FaultCase
{
    const char* faults;
    Sizes lengths; // of requests of 4096 bytes, from image 1 on
};

class StreamFault : public ::testing::TestWithParam<FaultCase>
{
};

TEST_P(StreamFault, Lengths_OfTheSpoiltImageAndTheNext)
{
    CameraHost host(std::string(kSmall) + "faults=" + GetParam().faults);
    host.StartWhole();
    ExpectImage(host, 0);
    Sizes expected = GetParam().lengths;
    expected.insert(expected.end(), {52, 2112, 32});
    EXPECT_EQ(expected, Lengths(host, 4096, expected.size())) << GetParam().faults;
    EXPECT_LE(1U, host.camera.Stats().faultsPlayed);
}

INSTANTIATE_TEST_SUITE_P(
    All, StreamFault,
    ::testing::Values(
        FaultCase{"leader-lost@1", {2112, 32}}, FaultCase{"leader-short@1", {20, 2112, 32}},
        FaultCase{"leader-long@1", {100, 2112, 32}},
        FaultCase{"leader-doubled@1", {52, 52, 2112, 32}}, FaultCase{"payload-lost@1", {52, 32}},
        FaultCase{"payload-short@1", {52, 2096, 32}},
        FaultCase{"payload-short@1:64", {52, 2048, 32}},
        FaultCase{"payload-long@1:8", {52, 2120, 32}},
        FaultCase{"payload-doubled@1", {52, 2112, 2112, 32}},
        FaultCase{"payload-piece-lost@1", {52, 32}},
        FaultCase{"payload-packet-lost@1:1", {52, 1088, 32}},
        FaultCase{"payload-packet-lost@1:2", {52, 2048 + 32}}, // nothing marks its end
        FaultCase{"payload-packet-lost@1:3", {52, 2112, 32}},  // there is no such packet
        FaultCase{"image-short@1", {52, 1024, 32}}, FaultCase{"image-short@1:1", {52, 64, 32}},
        FaultCase{"image-short@1:0", {52, 0, 32}}, FaultCase{"image-long@1:100", {52, 2212, 32}},
        FaultCase{"trailer-lost@1", {52, 2112}}, FaultCase{"trailer-short@1", {52, 2112, 12}},
        FaultCase{"trailer-long@1", {52, 2112, 100}},
        FaultCase{"trailer-doubled@1", {52, 2112, 32, 32}},
        FaultCase{"zero-length-leader@1", {0, 52, 2112, 32}},
        FaultCase{"zero-length-payload@1", {52, 0, 2112, 32}},
        FaultCase{"zero-length-trailer@1", {52, 2112, 0, 32}},
        FaultCase{"leader-lost@1,payload-lost@1,trailer-lost@1", {}},
        FaultCase{"leader-lost@1*2,payload-lost@1*2,trailer-lost@1*2", {}}));

TEST(StreamFaults, Fields_MagicIdStatus)
{
    CameraHost host(std::string(kSmall) + "faults=leader-magic@0,leader-id@0,trailer-status@0");
    host.StartWhole();
    const Bytes leader = host.Stream(4096).data;
    EXPECT_NE(0x4C563355U, Get(leader, 0, 4));
    EXPECT_EQ(1000U, Get(leader, 8, 8));
    host.Stream(2112);
    EXPECT_EQ(0xA100U, Get(host.Stream(32).data, 16, 2));
    ExpectImage(host, 1);
}

TEST(StreamFaults, Corrupt_OneByteDiffers)
{
    CameraHost host(std::string(kSmall) + "faults=payload-corrupt@0:1500");
    host.StartWhole();
    host.Stream(4096);
    Bytes image = host.Stream(2112).data;
    const Bytes expected = host.Expected(0);
    EXPECT_NE(expected, image);
    image[1500] = static_cast<std::uint8_t>(~image[1500]);
    EXPECT_EQ(expected, image);
}

TEST(StreamFaults, Stall_HaltsAtItsPlaceAndGoesOnWhenCleared)
{
    const std::pair<const char*, std::size_t> places[] = {
        {"stream-stall@0", 0}, {"stream-stall-payload@0", 1}, {"stream-stall-trailer@0", 2}};
    const Sizes sizes{52, 2112, 32};
    for (const auto& [fault, place] : places) {
        CameraHost host(std::string(kSmall) + "faults=" + fault);
        host.StartWhole();
        for (std::size_t i = 0; i < 3; ++i) {
            if (i == place) {
                EXPECT_EQ(UsbStatus::Stall, host.Stream(4096).status) << fault;
                EXPECT_EQ(UsbStatus::Stall, host.Stream(4096).status) << fault;
                Bytes none;
                host.camera.Control({0x02, 1, 0, 0x83, 0}, none);
            }
            EXPECT_EQ(sizes[i], host.Stream(4096).data.size()) << fault;
        }
    }
}

TEST(StreamFaults, Late_WaitsAtItsPlace)
{
    for (const char* fault :
         {"stream-late@0:40", "stream-late-payload@0:40", "stream-late-trailer@0:40"}) {
        CameraHost host(std::string(kSmall) + "faults=" + fault);
        host.StartWhole();
        const auto start = vcam::Clock::now();
        ExpectImage(host, 0);
        EXPECT_LE(std::chrono::milliseconds(40), vcam::Clock::now() - start) << fault;
    }
}

TEST(StreamFaults, Silent_FromTheImageOn)
{
    CameraHost host(std::string(kSmall) + "faults=stream-silent@1");
    host.StartWhole();
    ExpectImage(host, 0);
    EXPECT_EQ(UsbStatus::Nak, host.Stream(4096).status);
}

TEST(StreamFaults, Unplug_AtEachPlace)
{
    const std::pair<const char*, Sizes> places[] = {{"unplug-at-leader@0", {}},
                                                    {"unplug-at-payload@0", {52}},
                                                    {"unplug-in-payload@0", {52}},
                                                    {"unplug-at-trailer@0", {52, 2112}}};
    for (const auto& [fault, before] : places) {
        CameraHost host(std::string(kSmall) + "faults=" + fault);
        host.StartWhole();
        EXPECT_EQ(before, Lengths(host, 4096, before.size())) << fault;
        vcam::UsbStatus status = UsbStatus::Done;
        for (int i = 0; i < 2 && status == UsbStatus::Done; ++i) {
            status = host.Stream(4096).status;
        }
        EXPECT_EQ(UsbStatus::NoDevice, status) << fault;
        EXPECT_TRUE(host.camera.Gone()) << fault;
    }
}

TEST(StreamFaults, UnplugAfter_SoManyImages)
{
    CameraHost host(std::string(kSmall) + "unplug-after=2,replug-ms=30");
    host.StartWhole();
    ExpectImage(host, 0);
    ExpectImage(host, 1);
    EXPECT_EQ(UsbStatus::NoDevice, host.Stream(4096).status);
    EXPECT_EQ(std::chrono::milliseconds(30), host.camera.ReturnsAfter());
}

TEST(StreamFaults, AllLostForEver_DoesNotHang)
{
    CameraHost host(std::string(kSmall) + "faults=leader-lost,payload-lost,trailer-lost");
    host.StartWhole();
    std::uint8_t byte = 0;
    std::size_t filled = 0;
    const vcam::UsbResult result = host.camera.BulkIn(0x83, &byte, 1, filled);
    EXPECT_EQ(UsbStatus::Nak, result.status);
    EXPECT_NE(vcam::Clock::time_point::max(), result.retryAt);
}

TEST(Stream, BusReset_StopsEverything)
{
    CameraHost host(kSmall);
    host.StartWhole();
    host.Stream(65536);
    host.camera.BusReset();
    EXPECT_EQ(UsbStatus::Nak, host.Stream(65536).status);
    EXPECT_EQ(0U, host.Read32(0x20004));
    host.StartWhole();
    ExpectImage(host, 0);
}
