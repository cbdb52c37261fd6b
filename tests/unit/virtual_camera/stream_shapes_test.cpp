// What the standard leaves open, and real cameras do in different ways: padding, alignment, short
// images, block ids. Beside it the faults that spoil such images.

#include "image_reader.h"

using vcam::UsbStatus;

namespace {

std::vector<std::uint64_t> Ids(CameraHost& host, std::size_t count)
{
    std::vector<std::uint64_t> ids;
    for (std::size_t i = 0; i < count; ++i) {
        const ImageParts image = ReadImage(host);
        EXPECT_EQ(image.LeaderId(), image.TrailerId());
        ids.push_back(image.LeaderId());
    }
    return ids;
}

using IdList = std::vector<std::uint64_t>;

} // namespace

// --- padding -------------------------------------------------------------------------------

TEST(StreamShapes, Padding_Own_SendsLeaderAndTrailerUnpadded)
{
    CameraHost host(std::string(kSmall) + "padding=own,leader=1024,trailer=1024,alignment=10");
    host.Start(0, 0, 3072);
    EXPECT_EQ((Sizes{52, 2112, 32}), Lengths(host, 4096, 3));
}

TEST(StreamShapes, Padding_Required_IsTheRule)
{
    CameraHost host(std::string(kSmall) + "leader=100,trailer=72,alignment=10");
    host.Start(0, 0, 3072);
    EXPECT_EQ((Sizes{100, 2112, 72}), Lengths(host, 4096, 3));
}

TEST(StreamShapes, Padding_Alignment_RoundsUpWhatHasRoom)
{
    const std::pair<const char*, Sizes> cases[] = {{"alignment=0", {52, 2112, 32}},
                                                   {"alignment=3", {56, 2112, 32}},
                                                   {"alignment=6", {64, 2112, 64}},
                                                   {"alignment=9", {512, 2112, 512}}};
    for (const auto& [alignment, sizes] : cases) {
        CameraHost host(std::string(kSmall) + "padding=alignment,leader=1024,trailer=1024," +
                        alignment);
        host.Start(0, 0, 4096);
        EXPECT_EQ(sizes, Lengths(host, 8192, 3)) << alignment;
    }
    // What the host has programmed is the limit, whatever the alignment says.
    CameraHost tight(std::string(kSmall) + "padding=alignment,alignment=40");
    EXPECT_EQ(0xA004U, tight.Write32(0x20004, 1));
    EXPECT_EQ(52U, tight.Read32(0x20010));
}

TEST(StreamShapes, Padding_All_PadsThePayloadToo)
{
    CameraHost host(std::string(kSmall) + "padding=all,alignment=6,width=65,height=33");
    host.Start(0, 0, 2176);
    const ImageParts image = ReadImage(host);
    EXPECT_EQ(2176U, image.payload.size()); // 2145 rounded up
    EXPECT_EQ(2145U, image.ValidSize());
    EXPECT_EQ(host.Expected(0), Bytes(image.payload.begin(), image.payload.begin() + 2145));
    EXPECT_EQ(Bytes(31), Bytes(image.payload.begin() + 2145, image.payload.end()));
}

TEST(StreamShapes, Padding_AllTo1024_NoShortPacketAnywhere)
{
    CameraHost host(std::string(kSmall) + "padding=all,alignment=10,leader=1024,trailer=1024");
    host.Start(0, 0, 3072);
    const Read all = host.Stream(3 * 5120); // three images run into one another
    EXPECT_EQ(3U * 5120, all.data.size());
    EXPECT_EQ(2U, Get(all.data, 2 * 5120 + 8, 8));
}

TEST(StreamShapes, Alignment_EveryExponent_GivesTheImage)
{
    for (std::uint32_t exponent = 0; exponent <= 12; ++exponent) {
        CameraHost host(std::string(kSmall) + "width=67,alignment=" + std::to_string(exponent));
        const std::uint32_t payload = 67 * 33;
        const std::uint32_t unit = 1U << exponent;
        const std::uint32_t planned = (payload + unit - 1) / unit * unit;
        EXPECT_EQ(exponent << 24, host.Read32(0x20000));
        EXPECT_EQ(payload, host.Read64(0x20008));
        host.Start(0, 0, planned);
        EXPECT_EQ(host.Expected(0), ReadImage(host).payload) << exponent;
    }
}

// --- short images --------------------------------------------------------------------------

TEST(StreamShapes, ShortImage_SaysSoInTheTrailer)
{
    CameraHost host(std::string(kSmall) + "faults=image-short@1:10");
    host.StartWhole();
    EXPECT_EQ(2112U, ReadImage(host).ValidSize());
    const ImageParts image = ReadImage(host);
    const Bytes expected = host.Expected(1);
    EXPECT_EQ(33U, Get(image.leader, 36, 4)); // the greatest height there can be
    EXPECT_EQ(640U, image.ValidSize());
    EXPECT_EQ(10U, image.Rows());
    EXPECT_EQ(Bytes(expected.begin(), expected.begin() + 640), image.payload);
    EXPECT_EQ(33U, ReadImage(host).Rows());
}

TEST(StreamShapes, ShortImage_UnusedTransfers_EmptyOrOmitted)
{
    const std::pair<const char*, Sizes> cases[] = {{"unused=empty", {52, 512, 128, 0, 0, 0, 0, 32}},
                                                   {"unused=omitted", {52, 512, 128, 32}}};
    for (const auto& [unused, sizes] : cases) {
        CameraHost host(std::string(kSmall) + unused + ",faults=image-short:10");
        host.Start(512, 4, 56, 8);
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(sizes, Lengths(host, 1024, sizes.size())) << unused;
        }
    }
}

TEST(StreamShapes, ShortImage_EndsWithATransfer_NothingMarksIt)
{
    CameraHost host(std::string(kSmall) + "unused=omitted,faults=image-short:16");
    host.Start(1024, 2, 64);
    EXPECT_EQ(52U, host.Stream(1024).data.size());
    EXPECT_EQ(1024U, host.Stream(1024).data.size());
    EXPECT_EQ(32U, host.Stream(1024).data.size()); // the trailer, where the host expects payload
}

TEST(StreamShapes, UnusedTransfers_HugeCount_IsSurvived)
{
    CameraHost host(std::string(kSmall) + "faults=image-short:1");
    host.Start(8, 0xFFFFFFFF, 0);
    EXPECT_EQ(52U, host.Stream(1024).data.size());
    EXPECT_EQ(64U / 8, Lengths(host, 8, 8).size());
    EXPECT_EQ(0U, host.Stream(1024).data.size());
}

TEST(StreamShapes, MinHeight_HeightsVaryAndTheContentIsTheImagesOwn)
{
    CameraHost host(std::string(kSmall) + "min-height=5");
    host.StartWhole();
    std::set<std::uint64_t> heights;
    for (std::uint64_t frame = 0; frame < 40; ++frame) {
        const ImageParts image = ReadImage(host);
        heights.insert(image.Rows());
        EXPECT_EQ(image.Rows() * 64, image.ValidSize());
        EXPECT_EQ(image.ValidSize(), image.payload.size());
        const Bytes expected = host.Expected(frame);
        EXPECT_TRUE(std::equal(image.payload.begin(), image.payload.end(), expected.begin()));
    }
    EXPECT_LT(10U, heights.size());
    EXPECT_LE(5U, *heights.begin());
    EXPECT_GE(33U, *heights.rbegin());
}

// --- pieces missing ------------------------------------------------------------------------

TEST(StreamShapes, PieceLost_TheOthersAreWhole)
{
    CameraHost host(std::string(kSmall) + "faults=payload-piece-lost@0:1");
    host.Start(512, 4, 64);
    EXPECT_EQ(52U, host.Stream(1024).data.size());
    const Bytes expected = host.Expected(0);
    for (const std::size_t offset : {0U, 1024U, 1536U}) {
        EXPECT_EQ(Bytes(expected.begin() + static_cast<std::ptrdiff_t>(offset),
                        expected.begin() + static_cast<std::ptrdiff_t>(offset) + 512),
                  host.Stream(512).data);
    }
    EXPECT_EQ((Sizes{64, 32}), Lengths(host, 1024, 2));
}

TEST(StreamShapes, PacketLost_WhatFollowsMovesUp)
{
    CameraHost host("width=64,height=64,padding=all,alignment=10,leader=1024,trailer=1024,"
                    "faults=payload-packet-lost@0:2");
    host.Start(2048, 1, 2048);
    const Bytes expected = host.Expected(0);
    host.Stream(1024);
    EXPECT_EQ(Bytes(expected.begin(), expected.begin() + 2048), host.Stream(2048).data);
    const Bytes second = host.Stream(2048).data; // its end is the trailer
    EXPECT_EQ(Bytes(expected.begin() + 3072, expected.end()),
              Bytes(second.begin(), second.begin() + 1024));
    EXPECT_EQ(0x54563355U, Get(second, 1024, 4));
    EXPECT_EQ(0x4C563355U, Get(host.Stream(1024).data, 0, 4)); // the next image
}

TEST(StreamShapes, ImageLong_TrailerSaysHowLong)
{
    CameraHost host(std::string(kSmall) + "faults=image-long@0:100");
    host.StartWhole();
    const ImageParts image = ReadImage(host);
    EXPECT_EQ(2212U, image.payload.size());
    EXPECT_EQ(2212U, image.ValidSize());
    EXPECT_EQ(host.Expected(0), Bytes(image.payload.begin(), image.payload.begin() + 2112));
}

TEST(StreamShapes, TrailerFields_EachIsSpoilt)
{
    CameraHost host(std::string(kSmall) +
                    "faults=trailer-magic@0,trailer-id@0,trailer-valid-size@0:99999");
    host.StartWhole();
    const ImageParts image = ReadImage(host);
    EXPECT_NE(0x54563355U, Get(image.trailer, 0, 4));
    EXPECT_EQ(1000U, image.TrailerId());
    EXPECT_EQ(99999U, image.ValidSize());
}

// --- stall and pause within the payload ----------------------------------------------------

TEST(StreamShapes, StallInPayload_HandsOutWhatCameBefore)
{
    CameraHost host("width=64,height=64,faults=stream-stall-in-payload@0");
    host.StartWhole();
    host.Stream(65536);
    const Read first = host.Stream(8192);
    EXPECT_EQ(UsbStatus::Stall, first.status);
    EXPECT_EQ(2048U, first.data.size());
    Bytes none;
    host.camera.Control({0x02, 1, 0, 0x83, 0}, none);
    const Bytes expected = host.Expected(0);
    EXPECT_EQ(Bytes(expected.begin() + 2048, expected.end()), host.Stream(2048).data);
    EXPECT_EQ(32U, host.Stream(65536).data.size());
}

TEST(StreamShapes, StallInPayload_HaltEndsImage_TheNextImageFollows)
{
    CameraHost host("width=64,height=64,halt-ends-image=1,faults=stream-stall-in-payload@0");
    host.StartWhole();
    host.Stream(65536);
    EXPECT_EQ(UsbStatus::Stall, host.Stream(8192).status);
    Bytes none;
    host.camera.Control({0x02, 1, 0, 0x83, 0}, none);
    EXPECT_EQ(1U, Get(host.Stream(65536).data, 8, 8));
    EXPECT_EQ(host.Expected(1), host.Stream(4096).data);
}

TEST(StreamShapes, LateInPayload_TheRestComesAfterTheTime)
{
    CameraHost host("width=64,height=64,faults=stream-late-in-payload@0:40");
    host.StartWhole();
    host.Stream(65536);
    const auto start = vcam::Clock::now();
    Bytes buffer(4096);
    std::size_t filled = 0;
    EXPECT_EQ(UsbStatus::Nak, host.camera.BulkIn(0x83, buffer.data(), 4096, filled).status);
    EXPECT_EQ(2048U, filled);
    const Bytes expected = host.Expected(0);
    EXPECT_EQ(Bytes(expected.begin() + 2048, expected.end()), host.Stream(2048).data);
    EXPECT_LE(std::chrono::milliseconds(40), vcam::Clock::now() - start);
}

// --- block ids -----------------------------------------------------------------------------

TEST(StreamShapes, BlockIds_StartWhereTheyAreTold)
{
    CameraHost host(std::string(kSmall) + "first-block=1");
    host.StartWhole();
    EXPECT_EQ((IdList{1, 2, 3}), Ids(host, 3));
}

TEST(StreamShapes, BlockIds_WrapAt16Bit_ToZeroOrOne)
{
    CameraHost zero(std::string(kSmall) + "first-block=65534,last-block=65535");
    zero.StartWhole();
    EXPECT_EQ((IdList{65534, 65535, 0, 1}), Ids(zero, 4));
    CameraHost one(std::string(kSmall) + "first-block=0xFFFE,last-block=0xFFFF,wrap-block=1");
    one.StartWhole();
    EXPECT_EQ((IdList{65534, 65535, 1, 2}), Ids(one, 4));
}

TEST(StreamShapes, BlockIds_JumpOverLostImages)
{
    CameraHost host(std::string(kSmall) + "faults=block-jump@2:5");
    host.StartWhole();
    EXPECT_EQ((IdList{0, 1, 7, 8}), Ids(host, 4));
    EXPECT_EQ(5U, host.camera.Stats().stream.dropped);
    EXPECT_EQ(4U, host.camera.Stats().stream.sent);
}

TEST(StreamShapes, BlockIds_JumpAcrossTheWrap)
{
    CameraHost host(std::string(kSmall) +
                    "first-block=65534,last-block=65535,faults=block-jump@1:3");
    host.StartWhole();
    EXPECT_EQ((IdList{65534, 2, 3}), Ids(host, 3));
}

TEST(StreamShapes, BlockIds_RestartWithinTheRun_ContentGoesOn)
{
    CameraHost host(std::string(kSmall) + "faults=block-restart@2");
    host.StartWhole();
    EXPECT_EQ((IdList{0, 1}), Ids(host, 2));
    const ImageParts image = ReadImage(host);
    EXPECT_EQ(0U, image.LeaderId());
    EXPECT_EQ(host.Expected(2), image.payload);
    EXPECT_EQ((IdList{1, 2}), Ids(host, 2));
}

TEST(StreamShapes, BlockIds_NewStart_BeginAnewUnlessKept)
{
    for (const bool kept : {false, true}) {
        CameraHost host(std::string(kSmall) + (kept ? "keep-block-ids=1" : "keep-block-ids=0"));
        host.StartWhole();
        Ids(host, 2);
        host.Write32(0x50014, 0);
        host.Write32(0x20004, 0);
        host.StartWhole();
        EXPECT_EQ((IdList{kept ? 2U : 0U}), Ids(host, 1));
    }
}

TEST(StreamShapes, Pattern_None_WritesNothing)
{
    CameraHost host(std::string(kSmall) + "pattern=none,payload-extra=8");
    host.StartWhole();
    const ImageParts image = ReadImage(host);
    EXPECT_EQ(Bytes(2120, 0xEE), image.payload); // as the request was handed in
    EXPECT_EQ(2120U, image.ValidSize());
}
