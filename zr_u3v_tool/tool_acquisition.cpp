#include "tool_acquisition.h"

#include <algorithm>
#include <limits>

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

Acquisition::Acquisition(const DataStream& stream, uint64_t payload, size_t buffers)
    : m_stream(stream), m_api(stream.Api())
{
    if (payload == 0 || payload > kMaximumPayload) {
        throw ToolError(ExitCode::Failure,
                        "the camera names an image of " + std::to_string(payload) + " bytes");
    }
    try {
        _announce(payload, buffers);
    } catch (...) {
        _release();
        throw;
    }
}

Acquisition::~Acquisition()
{
    _release();
}

// The buffers' handles start as null each time: the producer refuses a variable that looks taken.
void Acquisition::_announce(uint64_t payload, size_t buffers)
{
    GENTL_CALL(m_api, GCRegisterEvent, m_stream.Handle(), EVENT_NEW_BUFFER, &m_newBuffer);
    m_memory.assign(buffers, std::vector<uint8_t>(payload));
    for (auto& block : m_memory) {
        BUFFER_HANDLE buffer = nullptr;
        GENTL_CALL(m_api, DSAnnounceBuffer, m_stream.Handle(), block.data(), block.size(), nullptr,
                   &buffer);
        m_buffers.push_back(buffer);
        GENTL_CALL(m_api, DSQueueBuffer, m_stream.Handle(), buffer);
    }
}

// In the order the producer wants: stop, take the buffers out of its queues, revoke, unregister.
// Called also for what was only announced in part; failures have nobody to tell.
void Acquisition::_release()
{
    if (m_isRunning) {
        m_api.DSStopAcquisition(m_stream.Handle(), ACQ_STOP_FLAGS_DEFAULT);
    }
    m_api.DSFlushQueue(m_stream.Handle(), ACQ_QUEUE_ALL_DISCARD);
    for (BUFFER_HANDLE buffer : m_buffers) {
        m_api.DSRevokeBuffer(m_stream.Handle(), buffer, nullptr, nullptr);
    }
    if (m_newBuffer != nullptr) {
        m_api.GCUnregisterEvent(m_stream.Handle(), EVENT_NEW_BUFFER);
    }
}

void Acquisition::Start()
{
    GENTL_CALL(m_api, DSStartAcquisition, m_stream.Handle(), ACQ_START_FLAGS_DEFAULT,
               GENTL_INFINITE);
    m_isRunning = true;
}

void Acquisition::Stop()
{
    m_isRunning = false;
    GENTL_CALL(m_api, DSStopAcquisition, m_stream.Handle(), ACQ_STOP_FLAGS_DEFAULT);
}

// The event may end a wait without an image when another thread has taken it: then it goes on.
std::optional<Image> Acquisition::Next(uint64_t timeout_ms)
{
    const auto end = Clock::now() + std::chrono::milliseconds(timeout_ms);
    do {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
        const uint64_t wait_ms =
            std::min<uint64_t>(static_cast<uint64_t>(std::max<int64_t>(left, 1)), kWaitPiece_ms);
        EVENT_NEW_BUFFER_DATA data{};
        size_t size = sizeof data;
        const GC_ERROR status = m_api.EventGetData(m_newBuffer, &data, &size, wait_ms);
        if (status == GC_ERR_SUCCESS && data.BufferHandle != nullptr) {
            return _describe(data.BufferHandle);
        }
        if (status != GC_ERR_SUCCESS && status != GC_ERR_TIMEOUT) {
            m_api.Check(status, "EventGetData");
        }
    } while (Clock::now() < end && g_isInterrupted == 0);
    return std::nullopt;
}

void Acquisition::GiveBack(const Image& image)
{
    GENTL_CALL(m_api, DSQueueBuffer, m_stream.Handle(), image.buffer);
}

template <class T>
T Acquisition::_info(BUFFER_HANDLE buffer, BUFFER_INFO_CMD command) const
{
    T value{};
    INFO_DATATYPE type = 0;
    size_t size = sizeof value;
    const GC_ERROR status =
        m_api.DSGetBufferInfo(m_stream.Handle(), buffer, command, &type, &value, &size);
    // Width, height and format of an image that has none are "not implemented", and stay 0.
    if (status != GC_ERR_NOT_IMPLEMENTED) {
        m_api.Check(status, "DSGetBufferInfo");
    }
    return value;
}

// What the producer tells of sizes is used as far as the buffer reaches, no further.
Image Acquisition::_describe(BUFFER_HANDLE buffer) const
{
    Image image;
    image.arrival = Clock::now();
    image.buffer = buffer;
    const auto* const base = _info<const uint8_t*>(buffer, BUFFER_INFO_BASE);
    image.raw.bytes = {base, std::min(_info<size_t>(buffer, BUFFER_INFO_SIZE_FILLED),
                                      _info<size_t>(buffer, BUFFER_INFO_SIZE))};
    image.raw.width = _info<size_t>(buffer, BUFFER_INFO_WIDTH);
    image.raw.height = _info<size_t>(buffer, BUFFER_INFO_HEIGHT);
    image.raw.pixelFormat = _info<uint64_t>(buffer, BUFFER_INFO_PIXELFORMAT);
    image.frameId = _info<uint64_t>(buffer, BUFFER_INFO_FRAMEID);
    image.timestamp = _info<uint64_t>(buffer, BUFFER_INFO_TIMESTAMP);
    image.isIncomplete = _info<bool8_t>(buffer, BUFFER_INFO_IS_INCOMPLETE);
    return image;
}
