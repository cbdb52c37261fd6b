#include "tool_statistics.h"

#include <gtest/gtest.h>

#include "tool_progress.h"

namespace {

using namespace std::chrono_literals;

Image At(uint64_t frame, std::chrono::nanoseconds arrival, uint64_t stamp = 0)
{
    static const std::vector<uint8_t> bytes(1000);
    Image image;
    image.frameId = frame;
    image.timestamp = stamp;
    image.arrival = std::chrono::steady_clock::time_point(arrival);
    image.bytes = bytes;
    return image;
}

TEST(Statistics, NoImages_DivideByNothing)
{
    const Statistics statistics(std::nullopt);
    EXPECT_EQ(statistics.Rate(), 0);
    EXPECT_EQ(statistics.ToJson()["images"], 0);
    EXPECT_FALSE(statistics.ToJson().contains("latency_ms"));
}

TEST(Statistics, RateIsBetweenFirstAndLastArrival)
{
    Statistics statistics(std::nullopt);
    statistics.Add(At(1, 1000ms));
    statistics.Add(At(2, 1100ms));
    statistics.Add(At(3, 1200ms));
    EXPECT_NEAR(statistics.Rate(), 10, 1e-9);
    EXPECT_EQ(statistics.ToJson()["images_per_second"], 10.0);
    EXPECT_EQ(statistics.ToJson()["megabytes_per_second"], 0.01);
    EXPECT_TRUE(statistics.IsPerfect());
}

TEST(Statistics, GapsAndRepeats_AreCounted)
{
    Statistics statistics(std::nullopt);
    for (const uint64_t frame : {5U, 6U, 9U, 9U, 10U}) {
        statistics.Add(At(frame, 1ms));
    }
    EXPECT_EQ(statistics.Lost(), 2u);
    EXPECT_EQ(statistics.Repeated(), 1u);
    EXPECT_FALSE(statistics.IsPerfect());
}

TEST(Statistics, LatencyIsFromTheCamerasClock)
{
    // The camera's clock is 400 ms behind: images stamped 600 ms were made at 1000 ms.
    Statistics statistics(ClockOffset{400'000'000, 0});
    statistics.Add(At(0, 1005ms, 600'000'000));
    statistics.Add(At(1, 1017ms, 610'000'000));
    const Json latency = statistics.ToJson()["latency_ms"];
    EXPECT_EQ(latency["min"], 5.0);
    EXPECT_EQ(latency["max"], 7.0);
    EXPECT_EQ(latency["mean"], 6.0);
    EXPECT_EQ(latency["since"], "camera time stamp");
}

TEST(Statistics, WithoutAClock_LatencyIsSinceTheFastestImage)
{
    Statistics statistics(std::nullopt);
    statistics.Add(At(0, 1005ms, 600'000'000));
    statistics.Add(At(1, 1017ms, 610'000'000));
    const Json latency = statistics.ToJson()["latency_ms"];
    EXPECT_EQ(latency["min"], 0.0);
    EXPECT_EQ(latency["max"], 2.0);
    EXPECT_EQ(latency["since"], "fastest image");
}

TEST(ProgressLine, FitsItsColumns)
{
    EXPECT_EQ(ProgressLine(5, 10, 29.94, 40), "[########        ]  5/10  29.9 images/s");
    for (unsigned columns = 0; columns < 100; columns++) {
        EXPECT_LE(ProgressLine(12345, 99999, 1234.5, columns).size(), std::max(columns, 1U));
    }
    EXPECT_EQ(ProgressLine(20, 10, 1, 40), "[" + std::string(16, '#') + "]  20/10  1.0 images/s");
}

} // namespace
