#include <algorithm>
#include <functional>
#include <gtest/gtest.h>
#include <random>

#include "error.h"
#include "stream_bench.h"

namespace stream_bench {
namespace {

using namespace std::chrono_literals;

uint64_t Complete(const Bench& bench)
{
    return static_cast<uint64_t>(
        std::count_if(bench.sink.images.begin(), bench.sink.images.end(),
                      [](const Delivered& d) { return d.image.complete; }));
}

// ---- cameras that keep to the plan

// Every alignment and way of padding, with payloads around the borders of both.
void ForEachStyle(uint64_t leastPayload, const std::function<void(const CameraStyle&)>& check)
{
    for (uint8_t exponent = 0; exponent <= 12; ++exponent) {
        for (const uint64_t payload :
             {1U, 100U, 1024U, 4096U, 5000U, 10001U, 12288U, 20480U, 65536U}) {
            for (const int padding : {0, 1, 2, 3}) {
                if (payload >= leastPayload) {
                    SCOPED_TRACE(testing::Message() << "exponent " << int{exponent} << " payload "
                                                    << payload << " padding " << padding);
                    check({.alignmentExponent = exponent,
                           .payload = payload,
                           .padsBorders = (padding & 1) != 0,
                           .padsPayload = (padding & 2) != 0});
                }
            }
        }
    }
}

TEST(StreamStyles, Images_OfEveryAlignmentPaddingAndPayload_AreWholeAndNothingIsResynchronised)
{
    ForEachStyle(0, [](const CameraStyle& style) {
        Bench bench(style);
        bench.Send(1, 10);
        EXPECT_EQ(bench.sink.images.size(), 10U);
        for (uint64_t id = 1; id <= 10; ++id) {
            EXPECT_TRUE(bench.IsWhole(id));
        }
        EXPECT_EQ(bench.session->Statistics().resynchronisations, 0U);
        EXPECT_EQ(bench.sink.lost, 0U);
    });
}

// A leader lost: the next image is whole where short packets mark the ends; else the one after it.
TEST(StreamStyles, LeaderMissing_ImageIsLostAndCountedAndTheNextIsWhole)
{
    ForEachStyle(0, [](const CameraStyle& style) {
        Bench bench(style);
        bench.Send(1, 2);
        bench.camera.Send({.id = 3, .noLeader = true});
        bench.Send(4, 6);
        EXPECT_EQ(bench.Find(3), nullptr);
        EXPECT_EQ(bench.sink.lost, 1U);
        EXPECT_TRUE(bench.IsWhole(2));
        for (uint64_t id = 4; id <= 9; ++id) {
            EXPECT_TRUE(bench.IsWhole(id));
        }
    });
}

TEST(StreamStyles, TrailerMissing_ImageIsIncompleteAndTheNextIsWhole)
{
    ForEachStyle(0, [](const CameraStyle& style) {
        Bench bench(style);
        bench.Send(1, 2);
        bench.camera.Send({.id = 3, .noTrailer = true});
        bench.Send(4, 6);
        EXPECT_TRUE(bench.IsIncomplete(3));
        EXPECT_EQ(bench.sink.lost, 0U);
        for (uint64_t id = 4; id <= 9; ++id) {
            EXPECT_TRUE(bench.IsWhole(id));
        }
    });
}

TEST(StreamStyles, PieceMissing_ImageIsIncompleteAndAtMostOneFurtherSuffers)
{
    ForEachStyle(10001, [](const CameraStyle& style) {
        Bench bench(style);
        bench.Send(1, 2);
        bench.camera.Send({.id = 3, .missingPiece = 1});
        bench.Send(4, 8);
        EXPECT_TRUE(bench.IsIncomplete(3));
        for (uint64_t id = 5; id <= 10; ++id) {
            EXPECT_TRUE(bench.IsWhole(id));
        }
        EXPECT_GE(Complete(bench), 9U);
    });
}

TEST(StreamStyles, StallWithinAnImage_HaltIsClearedImageIsIncompleteAndTheRestIsWhole)
{
    ForEachStyle(0, [](const CameraStyle& style) {
        Bench bench(style);
        bench.Send(1, 2);
        bench.camera.Send({.id = 3, .stallBeforePiece = 0});
        bench.Send(4, 6);
        EXPECT_TRUE(bench.IsIncomplete(3));
        EXPECT_GE(bench.endpoint.haltsCleared, 1U);
        for (uint64_t id = 4; id <= 9; ++id) {
            EXPECT_TRUE(bench.IsWhole(id));
        }
    });
}

// ---- images shorter than the payload

void ForEachShortImage(const std::function<void(const CameraStyle&, uint64_t valid)>& check)
{
    for (const uint8_t exponent : {uint8_t{0}, uint8_t{3}, uint8_t{6}}) {
        for (const uint64_t valid : {1U, 500U, 4095U, 5001U, 9000U, 16385U}) {
            for (const int way : {0, 1, 2, 3}) {
                SCOPED_TRACE(testing::Message() << "exponent " << int{exponent} << " valid "
                                                << valid << " way " << way);
                check({.alignmentExponent = exponent,
                       .payload = 20000,
                       .padsBorders = (way & 1) != 0,
                       .sendsEmpty = (way & 2) != 0},
                      valid);
            }
        }
    }
}

TEST(StreamShort, OneShortImage_IsCompleteWithTheTrailersSizeAndTheNextIsNotTouched)
{
    ForEachShortImage([](const CameraStyle& style, uint64_t valid) {
        Bench bench(style);
        bench.Send(1, 3);
        bench.camera.Send({.id = 4, .valid = valid});
        bench.Send(5, 6);
        EXPECT_TRUE(bench.IsWhole(4, valid));
        for (const uint64_t id : {1U, 2U, 3U, 5U, 6U, 7U, 8U, 9U, 10U}) {
            EXPECT_TRUE(bench.IsWhole(id));
        }
        EXPECT_EQ(bench.sink.lost, 0U);
    });
}

TEST(StreamShort, EveryImageShort_AllAreComplete)
{
    ForEachShortImage([](const CameraStyle& style, uint64_t valid) {
        Bench bench(style);
        for (uint64_t id = 1; id <= 20; ++id) {
            bench.camera.Send({.id = id, .valid = valid + id % 3});
        }
        bench.Run();
        for (uint64_t id = 1; id <= 20; ++id) {
            EXPECT_TRUE(bench.IsWhole(id, valid + id % 3));
        }
        EXPECT_EQ(bench.sink.lost, 0U);
    });
}

TEST(StreamShort, ShortImageArrivesWhileTheBusRunsAhead_NothingIsLost)
{
    ForEachShortImage([](const CameraStyle& style, uint64_t valid) {
        for (size_t packets = 0; packets < 30; packets += 3) {
            Bench bench(style);
            bench.endpoint.packetsBeforeCancel = packets;
            for (uint64_t id = 1; id <= 8; ++id) {
                bench.camera.Send({.id = id, .valid = id == 2 ? valid : 20000});
            }
            bench.Run();
            for (uint64_t id = 1; id <= 8; ++id) {
                ASSERT_TRUE(bench.IsWhole(id, id == 2 ? valid : 20000)) << packets;
            }
        }
    });
}

TEST(StreamSession, EveryImageShortWithEmptyTransfers_IsLearnedAndNotResynchronisedForEver)
{
    Bench bench({.payload = 20000, .sendsEmpty = true});
    for (uint64_t id = 1; id <= 30; ++id) {
        bench.camera.Send({.id = id, .valid = 5000});
    }
    bench.Run();
    EXPECT_EQ(Complete(bench), 30U);
    EXPECT_LE(bench.session->Statistics().resynchronisations, 6U);
}

// ---- what the trailer says

TEST(StreamSession, TrailerStatusOverrunOrDiscarded_ImageIsIncomplete)
{
    Bench bench;
    bench.camera.Send({.id = 1, .status = 0xA100});
    bench.camera.Send({.id = 2, .status = 0xA101});
    bench.Send(3, 1);
    EXPECT_TRUE(bench.IsIncomplete(1));
    EXPECT_TRUE(bench.IsIncomplete(2));
    EXPECT_TRUE(bench.IsWhole(3));
}

TEST(StreamSession, LeaderFields_AreTheCameras)
{
    Bench bench;
    bench.Send(7, 1);
    const Image& image = bench.Find(7)->image;
    EXPECT_EQ(image.timestamp, 7000U);
    EXPECT_EQ(image.width, 640U);
    EXPECT_EQ(image.height, 480U);
    EXPECT_EQ(image.payloadType, 1U);
    EXPECT_EQ(image.deliveredHeight, 480U);
    EXPECT_TRUE(image.hasTrailer);
}

// ---- block ids

TEST(StreamSession, BlockIdJumps_TheGapIsCountedOnce)
{
    Bench bench;
    bench.Send(5, 1); // the first is no gap
    bench.Send(6, 1);
    bench.Send(10, 2);
    EXPECT_EQ(bench.sink.lost, 3U);
    EXPECT_EQ(Complete(bench), 4U);
}

TEST(StreamSession, BlockIdsStartAgainOrWrap_IsNoGap)
{
    Bench bench;
    bench.Send(65534, 2);
    bench.Send(0, 2);
    bench.Send(65535, 1);
    EXPECT_EQ(bench.sink.lost, 65535U - 2);
    bench.Send(1, 2);
    EXPECT_EQ(bench.sink.lost, 65535U - 2);
}

TEST(StreamSession, LostLeaderAndItsGap_CountOnce)
{
    Bench bench;
    bench.Send(1, 1);
    bench.camera.Send({.id = 2, .noLeader = true, .noTrailer = true});
    bench.Send(3, 2);
    EXPECT_EQ(bench.sink.lost, 1U);
}

// ---- buffers

TEST(StreamSession, ImageLargerThanTheTarget_FillsItAndNothingBeyond)
{
    Bench bench({.payload = 20001}, 4, 9999);
    bench.Send(1, 5);
    ASSERT_EQ(bench.sink.images.size(), 5U);
    for (const Delivered& one : bench.sink.images) {
        EXPECT_TRUE(one.image.largerThanTarget);
        EXPECT_FALSE(one.image.complete);
        EXPECT_EQ(one.image.filled, 9999U);
        EXPECT_EQ(one.image.dataSize, 9999U);
        for (uint64_t i = 0; i < 9999; ++i) {
            ASSERT_EQ(one.bytes[i], ByteAt(one.image.blockId, i)) << i;
        }
    }
}

TEST(StreamSession, NoTargets_TheCameraWaitsAndNothingIsLost)
{
    Bench bench({.payload = 10000}, 2);
    bench.sink.keeps = true;
    bench.Send(1, 6);
    EXPECT_EQ(bench.sink.images.size(), 2U);
    EXPECT_NE(bench.endpoint.Waiting(), 0U);
    for (int i = 0; i < 3; ++i) {
        bench.sink.Requeue();
        bench.session->TargetsAvailable();
        bench.Run();
    }
    for (uint64_t id = 1; id <= 6; ++id) {
        EXPECT_TRUE(bench.IsWhole(id));
    }
    EXPECT_EQ(bench.sink.lost, 0U);
}

// The leader of the next image is received before there is a buffer for it.
TEST(StreamSession, ShortImageInTheOnlyTarget_TheNextImageWaitsForABufferAndIsWhole)
{
    for (const bool sendsEmpty : {false, true}) {
        Bench bench({.payload = 20000, .sendsEmpty = sendsEmpty}, 1);
        bench.sink.keeps = true;
        bench.endpoint.packetsBeforeCancel = 30;
        bench.camera.Send({.id = 1, .valid = 3000});
        bench.Send(2, 3);
        for (int i = 0; i < 4; ++i) {
            bench.sink.Requeue();
            bench.session->TargetsAvailable();
            bench.Run();
        }
        EXPECT_TRUE(bench.IsWhole(1, 3000));
        EXPECT_TRUE(bench.IsWhole(2));
        EXPECT_TRUE(bench.IsWhole(3));
        EXPECT_TRUE(bench.IsWhole(4));
    }
}

TEST(StreamSession, UnwantedImages_AreReceivedIntoSpareMemoryAndCountAsLost)
{
    Bench bench({.payload = 10000}, 2);
    bench.sink.keeps = true;
    bench.sink.discards = true;
    bench.Send(1, 8);
    EXPECT_EQ(bench.endpoint.Waiting(), 0U);
    EXPECT_EQ(bench.sink.images.size(), 2U);
    EXPECT_EQ(bench.sink.lost, 6U);
}

TEST(StreamSession, WholeTransfers_GoStraightIntoTheTarget)
{
    Bench bench({.alignmentExponent = 0, .payload = 12288});
    const auto buffers = bench.endpoint.BuffersOfLength(Bench::kTransferSize);
    EXPECT_GE(buffers.size(), 6U); // of two images
    for (const uint8_t* buffer : buffers) {
        EXPECT_TRUE(bench.sink.Holds(buffer));
    }
    bench.Send(1, 3);
    EXPECT_TRUE(bench.IsWhole(3));
}

TEST(StreamSession, SinkWantsNoMore_EndsByItselfAndGivesTheRestBack)
{
    Bench bench;
    bench.sink.limit = 3;
    bench.Send(1, 6);
    EXPECT_EQ(bench.sink.images.size(), 3U);
    EXPECT_EQ(bench.sink.ended, 1U);
    EXPECT_FALSE(bench.session->IsRunning());
    EXPECT_EQ(bench.endpoint.Pending(), 0U);
    EXPECT_EQ(bench.sink.Free(), 4U);
}

// Six images have come whole before the host can do anything about it.
TEST(StreamSession, ImagesBehindTheLastThatIsWanted_AreNotDelivered)
{
    Bench bench({.payload = 10000}, 8);
    bench.sink.limit = 3;
    bench.endpoint.packetsBeforeCancel = 1000;
    bench.Send(1, 6);
    EXPECT_EQ(bench.sink.images.size(), 3U);
    EXPECT_EQ(bench.sink.ended, 1U);
    EXPECT_FALSE(bench.session->IsRunning());
    EXPECT_EQ(bench.sink.Free(), 8U);
}

TEST(StreamSession, TheLastWantedImageWaitsForATarget_EndsByItself)
{
    Bench bench({.payload = 20000}, 1);
    bench.sink.keeps = true;
    bench.sink.limit = 2;
    bench.endpoint.packetsBeforeCancel = 60;
    bench.camera.Send({.id = 1, .valid = 3000});
    bench.Send(2, 2);
    for (int i = 0; i < 4; ++i) {
        bench.sink.Requeue();
        bench.session->TargetsAvailable();
        bench.Run();
    }
    EXPECT_EQ(bench.sink.images.size(), 2U);
    EXPECT_EQ(bench.sink.ended, 1U);
    EXPECT_FALSE(bench.session->IsRunning());
}

// A hostile descriptor: whole packets of this size end behind what is expected.
TEST(StreamSession, PacketSizeThatDividesNoTransfer_NoTransferReachesBeyondTheTarget)
{
    for (const size_t packet : {1000U, 768U, 2047U}) {
        const Bench bench({.alignmentExponent = 0, .payload = 12288, .hostPacket = packet});
        const auto length = static_cast<int>(u3v_host::WholePackets(Bench::kTransferSize, packet));
        const auto buffers = bench.endpoint.BuffersOfLength(length);
        EXPECT_FALSE(buffers.empty());
        for (const uint8_t* buffer : buffers) {
            EXPECT_FALSE(bench.sink.Holds(buffer));
        }
    }
}

// ---- depth

TEST(StreamSession, InFlight_AtLeastTwoWholeImages)
{
    Bench bench({.payload = 200000});
    EXPECT_EQ(bench.session->Statistics().imagesInFlight, 2U);
}

TEST(StreamSession, InFlight_AtMostTheDepth)
{
    Bench bench({.payload = 100}, 20);
    EXPECT_EQ(bench.session->Statistics().imagesInFlight, 4U);
}

// ---- a system that refuses

TEST(StreamSession, SystemRefusesFurtherTransfers_GoesOnWithFewer)
{
    Bench bench({.payload = 20000});
    bench.endpoint.refuseAbove = 3;
    bench.Send(1, 10);
    for (uint64_t id = 1; id <= 10; ++id) {
        EXPECT_TRUE(bench.IsWhole(id));
    }
    EXPECT_TRUE(bench.sink.failures.empty());
}

TEST(StreamSession, SystemRefusesEveryTransfer_IsToldOnceAndGoesOnWhenItCan)
{
    Bench bench({.payload = 20000}, 2);
    bench.sink.keeps = true;
    bench.Send(1, 2);
    bench.endpoint.refuse = LIBUSB_ERROR_NO_MEM;
    bench.sink.Requeue();
    bench.session->TargetsAvailable();
    ASSERT_TRUE(bench.link.RunJob());
    ASSERT_TRUE(bench.link.RunJob());
    ASSERT_EQ(bench.sink.failures.size(), 1U);
    EXPECT_NE(bench.sink.failures[0].find("usbfs_memory_mb"), std::string::npos);
    bench.endpoint.refuse = 0;
    bench.Send(3, 2);
    EXPECT_TRUE(bench.IsWhole(3));
    EXPECT_TRUE(bench.IsWhole(4));
}

TEST(StreamSession, Begin_SystemRefusesEveryTransfer_Throws)
{
    Bench bench;
    bench.endpoint.refuse = LIBUSB_ERROR_NO_MEM;
    const auto session = std::make_shared<u3v_host::StreamSession>(
        bench.link, bench.sink, bench.plan,
        u3v_host::StreamDepth{.images = 4, .bytes = 65536, .transfers = 64});
    bench.End(true);
    try {
        session->Begin();
        FAIL() << "it has begun";
    } catch (const u3v_host::Error& error) {
        EXPECT_EQ(error.Kind(), u3v_host::ErrorKind::ResourceExhausted);
        EXPECT_NE(std::string(error.what()).find("usbfs_memory_mb"), std::string::npos);
    }
    EXPECT_FALSE(session->IsRunning());
    EXPECT_EQ(bench.sink.Free(), 4U);
}

// ---- failures

TEST(StreamSession, EndpointStallsForEver_IsTriedAgainWithGrowingDelaysUpTo50Ms)
{
    Bench bench;
    for (int i = 0; i < 12; ++i) {
        bench.endpoint.SendFailure(LIBUSB_TRANSFER_STALL);
    }
    bench.Run();
    ASSERT_EQ(bench.link.delays.size(), 12U);
    EXPECT_EQ(bench.link.delays.front().count(), 0);
    EXPECT_TRUE(std::is_sorted(bench.link.delays.begin(), bench.link.delays.end()));
    EXPECT_EQ(bench.link.delays.back().count(), 50);
    bench.Send(1, 3);
    EXPECT_EQ(Complete(bench), 3U);
}

TEST(StreamSession, EveryTransferFailsForAWhile_GoesOnAfterwards)
{
    Bench bench;
    bench.Send(1, 2);
    for (int i = 0; i < 20; ++i) {
        bench.endpoint.SendFailure(LIBUSB_TRANSFER_ERROR);
    }
    bench.Send(3, 4);
    for (uint64_t id = 1; id <= 6; ++id) {
        EXPECT_TRUE(bench.IsWhole(id));
    }
}

TEST(StreamSession, Unplugged_FilledImagesAreDeliveredTheRestGivenBackAndItEndsOnce)
{
    Bench bench;
    bench.Send(1, 3);
    bench.endpoint.gone = true;
    bench.Run();
    EXPECT_EQ(Complete(bench), 3U);
    EXPECT_EQ(bench.sink.Free(), 4U);
    EXPECT_EQ(bench.sink.ended, 1U);
    EXPECT_EQ(bench.link.left, 1U);
    EXPECT_FALSE(bench.session->IsRunning());
    EXPECT_TRUE(bench.End(false));
    EXPECT_EQ(bench.sink.ended, 1U);
}

// All targets are with the consumer: no transfer tells that the camera has left.
TEST(StreamSession, CameraHasLeft_NothingUnderWay_EndsAtOnceAndOnce)
{
    Bench bench;
    bench.sink.keeps = true;
    bench.Send(1, 4);
    ASSERT_EQ(bench.endpoint.Pending(), 0U);
    EXPECT_TRUE(bench.session->IsRunning());
    bench.session->CameraHasLeft();
    bench.session->CameraHasLeft();
    EXPECT_FALSE(bench.session->IsRunning());
    EXPECT_EQ(bench.sink.ended, 1U);
    EXPECT_EQ(Complete(bench), 4U);
}

TEST(StreamSession, CameraHasLeft_TransfersUnderWay_EndsWithTheLastOfThem)
{
    Bench bench;
    bench.Send(1, 3);
    bench.session->CameraHasLeft();
    EXPECT_EQ(bench.sink.ended, 0U);
    bench.endpoint.gone = true;
    bench.Run();
    EXPECT_EQ(bench.sink.ended, 1U);
    EXPECT_EQ(bench.sink.Free(), 4U);
}

// ---- ends

TEST(StreamSession, End_SilentCamera_GivesEveryTargetBackInOrder)
{
    Bench bench;
    EXPECT_TRUE(bench.End(false));
    EXPECT_EQ(bench.endpoint.Pending(), 0U);
    EXPECT_EQ(bench.sink.Free(), 4U);
    EXPECT_EQ(bench.sink.ended, 0U);
}

TEST(StreamSession, End_Default_WaitsForTheImageUnderWay)
{
    Bench bench({.payload = 20000});
    bench.camera.Send({.id = 1});
    for (int i = 0; i < 5; ++i) {
        bench.endpoint.Step();
    }
    EXPECT_TRUE(bench.End(false));
    EXPECT_TRUE(bench.IsWhole(1));
}

TEST(StreamSession, End_ImagesReceivedBeforeTheCancel_AreDeliveredInOrder)
{
    Bench bench({.payload = 20000});
    bench.endpoint.packetsBeforeCancel = 1000;
    for (uint64_t id = 1; id <= 2; ++id) {
        bench.camera.Send({.id = id});
    }
    EXPECT_TRUE(bench.End(true));
    EXPECT_TRUE(std::is_sorted(
        bench.sink.images.begin(), bench.sink.images.end(),
        [](const Delivered& a, const Delivered& b) { return a.image.blockId < b.image.blockId; }));
    EXPECT_EQ(bench.sink.Free(), 4U);
}

TEST(StreamSession, End_CameraIsSilentWithinAnImage_ReapsEverythingAndSubmitsNothing)
{
    for (const bool kill : {true, false}) {
        Bench bench({.payload = 20000});
        bench.camera.Send({.id = 1, .noTrailer = true});
        bench.Run();
        const auto begin = std::chrono::steady_clock::now();
        EXPECT_TRUE(bench.End(kill));
        EXPECT_LT(std::chrono::steady_clock::now() - begin, 2500ms) << "as long as a lost transfer";
        EXPECT_EQ(bench.endpoint.Pending(), 0U);
        EXPECT_EQ(bench.sink.Free(), 4U);
        EXPECT_EQ(bench.sink.ended, 0U);
    }
}

// The leader of the next image waits for a target when the stream ends.
TEST(StreamSession, TargetsAvailable_AfterTheEnd_NoneIsTaken)
{
    Bench bench({.payload = 20000}, 1);
    bench.sink.keeps = true;
    bench.endpoint.packetsBeforeCancel = 30;
    bench.camera.Send({.id = 1, .valid = 3000});
    bench.Send(2, 3);
    EXPECT_TRUE(bench.End(true));
    bench.sink.Requeue();
    const size_t images = bench.sink.images.size();
    bench.session->TargetsAvailable();
    EXPECT_EQ(bench.sink.Free(), 1U);
    EXPECT_EQ(bench.sink.images.size(), images);
}

TEST(StreamSession, End_SystemKeepsTheTransfers_ReturnsAndSaysSo)
{
    Bench bench;
    bench.endpoint.keepsTransfers = true;
    EXPECT_FALSE(bench.End(true));
    EXPECT_EQ(bench.sink.Free(), 4U);
    bench.endpoint.keepsTransfers = false;
    bench.endpoint.Run(); // they come after all: nobody is touched
    EXPECT_EQ(bench.sink.Free(), 4U);
}

// ---- any sequence

Shot RandomShot(std::mt19937& random, const CameraStyle& style, uint64_t id)
{
    const auto chance = [&random](unsigned of) { return random() % of == 0; };
    Shot shot{.id = id};
    if (chance(6)) {
        shot.valid = 1 + random() % style.payload;
    }
    shot.noLeader = chance(15);
    shot.noTrailer = chance(15);
    shot.status = chance(15) ? 0xA101 : 0;
    if (chance(15)) {
        shot.missingPiece = random() % 4;
    }
    if (chance(15)) {
        shot.missingPacket = random() % 16;
    }
    if (chance(20)) {
        shot.stallBeforePiece = random() % 3;
    }
    return shot;
}

bool IsDamaged(const Shot& shot)
{
    return shot.noLeader || shot.noTrailer || shot.status != 0 || shot.missingPiece ||
           shot.missingPacket || shot.stallBeforePiece;
}

// No image is called whole that is not; every undamaged one behind an undamaged one is.
TEST(StreamSession, RandomCamerasAndDamages_WholeImagesAreWholeAndNoOtherIsCalledSo)
{
    for (unsigned seed = 1; seed <= 60; ++seed) {
        std::mt19937 random(seed);
        const CameraStyle style{.alignmentExponent = static_cast<uint8_t>(random() % 10),
                                .payload = 1 + random() % 20000,
                                .padsBorders = random() % 2 == 0,
                                .sendsEmpty = random() % 2 == 0};
        Bench bench(style, 1 + random() % 5);
        std::vector<Shot> shots;
        for (uint64_t id = 1; id <= 40; ++id) {
            shots.push_back(RandomShot(random, style, id));
            bench.endpoint.packetsBeforeCancel = random() % 30;
            bench.camera.Send(shots.back());
            if (random() % 3 == 0) {
                bench.Run();
            }
        }
        bench.Run();
        SCOPED_TRACE(seed);
        for (size_t i = 0; i < shots.size(); ++i) {
            const uint64_t valid = shots[i].valid.value_or(style.payload);
            const Delivered* const found = bench.Find(shots[i].id);
            if (found != nullptr && found->image.complete) {
                ASSERT_TRUE(bench.IsWhole(shots[i].id, valid));
            }
            const bool follows = i > 1 && !IsDamaged(shots[i - 1]) && !IsDamaged(shots[i - 2]);
            if (follows && !IsDamaged(shots[i])) {
                ASSERT_TRUE(bench.IsWhole(shots[i].id, valid));
            }
        }
    }
}

} // namespace
} // namespace stream_bench
