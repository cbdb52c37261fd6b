#include <algorithm>
#include <iterator>

#include "data_stream.h"

namespace standard_tl {
namespace {

constexpr unsigned kPolling = 1000; // ms: what counts images changes all the time

constexpr const char* kHandling = "BufferHandlingControl";
constexpr const char* kDiagnostics = "StreamDiagnostics";

Feature Changing(const char* category, const char* name, const char* toolTip,
                 std::function<Value()> get)
{
    Feature feature = NumberFeature(category, name, toolTip, std::move(get));
    feature.changes = true;
    feature.polling = kPolling;
    return feature;
}

Feature Ours(const char* name, const char* toolTip, std::function<Value()> get)
{
    Feature feature = Changing(kDiagnostics, name, toolTip, std::move(get));
    feature.visibility = "Guru";
    feature.isOurs = true;
    return feature;
}

} // namespace

std::vector<Feature> DataStream::_features()
{
    constexpr const char* kInformation = "StreamInformation";
    std::vector<Feature> features{
        TextFeature(kInformation, "StreamID", "Id of the data stream",
                    [] { return Value(IdOf(0)); }),
        TypeFeature(kInformation, "StreamType", "Technology of the data stream"),
    };
    std::ranges::move(_handling(), std::back_inserter(features));
    std::ranges::move(_counts(), std::back_inserter(features));
    std::ranges::move(_diagnostics(), std::back_inserter(features));
    return features;
}

std::vector<Feature> DataStream::_handling()
{
    return {
        {.category = kHandling,
         .name = "StreamBufferHandlingMode",
         .kind = FeatureKind::Choice,
         .toolTip = "Which images are dropped when the application is too slow",
         .get = [this] { return _mode(); },
         .set = [this](uint64_t mode) { _setMode(mode); },
         .locked = "StreamIsGrabbing",
         .choices = {{"OldestFirst", static_cast<uint64_t>(Mode::OldestFirst)},
                     {"OldestFirstOverwrite", static_cast<uint64_t>(Mode::OldestFirstOverwrite)},
                     {"NewestOnly", static_cast<uint64_t>(Mode::NewestOnly)}}},
        NumberFeature(kHandling, "StreamAnnounceBufferMinimum",
                      "How many buffers an acquisition needs at least",
                      [] { return Value(kLeastBuffers); }),
        {.category = kHandling,
         .name = "StreamIsGrabbing",
         .kind = FeatureKind::Flag,
         .toolTip = "Whether images are being acquired",
         .get = [this] { return Value(Count().isGrabbing); },
         .changes = true,
         .polling = kPolling},
        Changing(kHandling, "PayloadSize", "Bytes that a buffer has to have",
                 [this] { return Value(PayloadSize()); }),
    };
}

std::vector<Feature> DataStream::_counts()
{
    return {
        Changing(kHandling, "StreamAnnouncedBufferCount", "Announced buffers",
                 [this] { return Value(Count().announced); }),
        Changing(kHandling, "StreamInputBufferCount", "Buffers that are queued and not yet filled",
                 [this] { return Value(Count().queued); }),
        Changing(kHandling, "StreamOutputBufferCount", "Buffers that wait for the application",
                 [this] { return Value(Count().awaiting); }),
        Changing(kHandling, "StreamStartedFrameCount",
                 "Images that have begun to come since the start",
                 [this] { return Value(Statistics().started); }),
        Changing(kHandling, "StreamDeliveredFrameCount",
                 "Images that the application has taken since the start",
                 [this] { return Value(Count().delivered); }),
        Changing(kHandling, "StreamLostFrameCount",
                 "Images that were lost or dropped since the start",
                 [this] { return Value(Count().lost); }),
        Changing(kHandling, "StreamIncompleteFrameCount",
                 "Images that came incomplete since the start",
                 [this] { return Value(Count().incomplete); }),
    };
}

std::vector<Feature> DataStream::_diagnostics()
{
    return {
        Ours("ZrTransferSize", "Bytes of one transfer of image data",
             [this] { return Value(Statistics().transferSize); }),
        Ours("ZrImagesInFlight", "Images whose transfers are submitted",
             [this] { return Value(Statistics().imagesInFlight); }),
        Ours("ZrTransfersInFlight", "Transfers that are submitted",
             [this] { return Value(Statistics().transfersInFlight); }),
        Ours("ZrDeviceMemoryInUse", "Bytes of device memory that buffers have",
             [this] { return Value(m_camera.DeviceMemoryInUse()); }),
        Ours("ZrResynchronisationCount",
             "How often packets came other than planned since the start",
             [this] { return Value(Statistics().resynchronisations); }),
        Ours("ZrReducedDepthCount", "How often the system refused a transfer since the start",
             [this] { return Value(Statistics().droppedTransferDepth); }),
    };
}

Value DataStream::_mode() const
{
    Locker lock(m_mutex);
    return static_cast<uint32_t>(m_mode);
}

void DataStream::_setMode(uint64_t mode)
{
    Locker lock(m_mutex);
    m_mode = static_cast<Mode>(mode);
}

} // namespace standard_tl
