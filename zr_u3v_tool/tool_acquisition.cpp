#include "tool_acquisition.h"

#include <algorithm>
#include <limits>

#include "tool_error.h"

namespace {

using Clock = std::chrono::steady_clock;

// Bootstrap registers of the USB3 Vision standard.
namespace abrm {
constexpr uint64_t kDeviceCapability = 0x1C4;
constexpr uint64_t kSbrmAddress = 0x1D8;
constexpr uint64_t kTimestamp = 0x1F0;
constexpr uint64_t kTimestampLatch = 0x1F8;
constexpr uint64_t kTimestampIncrement = 0x1FC;
constexpr uint64_t kHasTimestamp = 1U << 3U;
} // namespace abrm
namespace sbrm {
constexpr uint64_t kCapability = 0x04;
constexpr uint64_t kSirmAddress = 0x20;
constexpr uint64_t kCurrentSpeed = 0x40;
constexpr uint64_t kHasSirm = 1U << 0U;
} // namespace sbrm
namespace sirm {
constexpr uint64_t kInfo = 0x00;
constexpr uint64_t kPayloadSize = 0x08;
constexpr uint64_t kLeaderSize = 0x10;
constexpr uint64_t kTrailerSize = 0x14;
} // namespace sirm

// More than any camera sends as one image; guards against a size that no memory holds.
constexpr uint64_t kMaximumPayload = uint64_t{4} << 30U;
// Waits are cut into pieces of this length, so that an interrupt is heeded soon.
constexpr uint64_t kWaitPiece_ms = 100;

int64_t SteadyNs(Clock::time_point time)
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(time.time_since_epoch()).count();
}

void OnInterrupt(int)
{
    g_isInterrupted = 1;
}

} // namespace

volatile std::sig_atomic_t g_isInterrupted = 0;

void WatchInterrupts()
{
    struct sigaction action
    {
    };
    action.sa_handler = OnInterrupt;
    action.sa_flags = static_cast<int>(SA_RESETHAND); // the second one ends the program
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGHUP, &action, nullptr); // the terminal has been closed
}

// From register to register: the first block names the second one's address, that the third's.
StreamNeeds ReadStreamNeeds(const Camera& camera)
{
    const auto bootstrap = camera.Read<uint64_t>(abrm::kSbrmAddress);
    if ((camera.Read<uint64_t>(bootstrap + sbrm::kCapability) & sbrm::kHasSirm) == 0) {
        throw ToolError(ExitCode::Failure, "the camera has no streaming interface registers");
    }
    const auto stream = camera.Read<uint64_t>(bootstrap + sbrm::kSirmAddress);
    StreamNeeds needs;
    needs.payload = camera.Read<uint64_t>(stream + sirm::kPayloadSize);
    needs.leader = camera.Read<uint32_t>(stream + sirm::kLeaderSize);
    needs.trailer = camera.Read<uint32_t>(stream + sirm::kTrailerSize);
    needs.alignmentExponent = camera.Read<uint32_t>(stream + sirm::kInfo) >> 24U;
    needs.speed = camera.Read<uint32_t>(bootstrap + sbrm::kCurrentSpeed);
    return needs;
}

// The latch freezes the camera's clock somewhere between `before` and `after`: the middle is the
// best guess, and the fastest of several rounds the most certain.
std::optional<ClockOffset> MeasureClockOffset(const Camera& camera)
{
    constexpr int kRounds = 5;
    try {
        if ((camera.Read<uint64_t>(abrm::kDeviceCapability) & abrm::kHasTimestamp) == 0) {
            return std::nullopt;
        }
        // Ticks of the latched clock in ns; image time stamps are in ns by the standard.
        const auto increment =
            std::max<uint64_t>(camera.Read<uint64_t>(abrm::kTimestampIncrement), 1);
        ClockOffset best{0, std::numeric_limits<int64_t>::max()};
        for (int i = 0; i < kRounds; i++) {
            const int64_t before = SteadyNs(Clock::now());
            camera.Write<uint32_t>(abrm::kTimestampLatch, 1);
            const int64_t after = SteadyNs(Clock::now());
            const auto ticks = camera.Read<uint64_t>(abrm::kTimestamp);
            if ((after - before) / 2 < best.uncertainty) {
                const auto cameraNs = static_cast<int64_t>(ticks * increment);
                best = {before + (after - before) / 2 - cameraNs, (after - before) / 2};
            }
        }
        return best;
    } catch (const GenTLError&) {
        return std::nullopt;
    }
}

size_t BufferSize(const StreamNeeds& needs)
{
    if (needs.payload == 0 || needs.payload > kMaximumPayload) {
        throw ToolError(ExitCode::Failure,
                        "the camera names an image of " + std::to_string(needs.payload) + " bytes");
    }
    return needs.payload;
}

std::optional<Image> NextImage(const Acquisition& acquisition, uint64_t timeout_ms)
{
    const auto end = Clock::now() + std::chrono::milliseconds(timeout_ms);
    do {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
        const uint64_t wait_ms =
            std::min<uint64_t>(static_cast<uint64_t>(std::max<int64_t>(left, 1)), kWaitPiece_ms);
        if (auto image = acquisition.Next(wait_ms)) {
            return image;
        }
    } while (Clock::now() < end && g_isInterrupted == 0);
    return std::nullopt;
}

RawImage RawOf(const Image& image)
{
    return {image.bytes, image.width, image.height, image.pixelFormat};
}
