#include "device.h"

#include "data_stream.h"
#include "error.h"
#include "event_data.h"
#include "failure.h"
#include "ids.h"
#include "producer_facts.h"
#include "remote_port.h"

namespace standard_tl {
namespace {

constexpr DocumentIdentity kDocument{"zr_u3v_standard_device", "The camera, seen by the host",
                                     "DevicePort", "6B1C3C52-8D0E-4F0A-9B61-7C2C35C9A103"};

} // namespace

Device::Device(Node& interface, std::unique_ptr<u3v_host::Camera> camera)
    : RegisterModule(&interface, kDocument, _features()), m_id(camera->Info().id),
      m_camera(std::move(camera))
{
    m_camera->OnGone([this] { _tellGone(); });
}

// How it is open here is known; that nobody opens a camera that has left, too.
DeviceFacts Device::Facts() const
{
    using u3v_host::AccessStatus;
    const bool isReadOnly = m_camera->Mode() == u3v_host::OpenMode::ReadOnly;
    const AccessStatus open = isReadOnly ? AccessStatus::OpenReadOnly : AccessStatus::OpenReadWrite;
    return {m_camera->Info(), m_camera->IsGone() ? AccessStatus::NoAccess : open};
}

void* Device::RemotePortHandle()
{
    Locker lock(m_openMutex);
    void* const known = _findChild<RemotePort>([](const RemotePort&) { return true; });
    return known != nullptr ? known : _adopt(std::make_unique<RemotePort>(*this, *m_camera));
}

// ---- data streams

GC_ERROR Device::DataStreamId(uint32_t index, const InfoOut& out) const
{
    if (index >= NumDataStreams()) {
        throw Failure(GC_ERR_INVALID_INDEX,
                      "the camera has " + std::to_string(NumDataStreams()) + " data streams");
    }
    return CopyText(DataStream::IdOf(index), out);
}

void* Device::OpenDataStream(const char* id)
{
    CheckNotNull(id, "sDataStreamID");
    Locker lock(m_openMutex);
    if (NumDataStreams() == 0 || !AreSameIds(id, DataStream::IdOf(0))) {
        throw Failure(GC_ERR_INVALID_ID,
                      "no data stream of the camera has the id \"" + std::string(id) + "\"");
    }
    if (_findChild<DataStream>([](const DataStream&) { return true; }) != nullptr) {
        throw Failure(GC_ERR_RESOURCE_IN_USE, "the data stream is open already");
    }
    return _adopt(std::make_unique<DataStream>(*this, *m_camera));
}

// ---- events

std::unique_ptr<Event> Device::_makeEvent(EVENT_TYPE type)
{
    if (type == EVENT_REMOTE_DEVICE && !m_camera->HasEvents()) {
        throw Failure(GC_ERR_NOT_AVAILABLE, "the camera has no event interface");
    }
    const bool isServed = type == EVENT_REMOTE_DEVICE || type == EVENT_ERROR;
    return isServed ? _makeQueuedEvent(type) : nullptr;
}

void Device::_switchEvent(EVENT_TYPE type, Event& /*event*/, bool on)
{
    if (type == EVENT_REMOTE_DEVICE) {
        _listen(on);
    }
}

void Device::_listen(bool on)
{
    if (on) {
        m_camera->OnEvent(
            [this](const u3v_host::CameraEvent& event) { _post(EVENT_REMOTE_DEVICE, event.data); });
        return;
    }
    try {
        m_camera->OnEvent({});
    } catch (const u3v_host::Error&) {
        // A camera that cannot be told any more has nobody left to listen to it either.
    }
}

// On the thread that serves the bus.
void Device::_tellGone()
{
    void* const open = _findChild<DataStream>([](const DataStream&) { return true; });
    if (const auto stream = Handles().Find<DataStream>(open)) {
        stream->CameraHasLeft();
    }
    _post(EVENT_ERROR, ErrorRecord(GC_ERR_IO, "the camera " + m_id + " has left the bus"));
}

// ---- the port

PortFacts Device::Port()
{
    const u3v_host::CameraInfo info = m_camera->Info();
    return {info.id, info.vendor, info.model, info.version, "TLDevice", kDocument.port, true, true};
}

std::vector<Feature> Device::_features()
{
    constexpr const char* kEnumeration = "StreamEnumeration";
    auto features = DeviceFeatures("DeviceInformation", [this] { return Facts(); });
    features.push_back(NumberFeature("DeviceInformation", "DeviceLinkSpeed",
                                     "Signalling rate of the link",
                                     [this] { return Value(m_camera->Speed()); }));
    features.back().unit = "Bps";
    features.push_back({.category = kEnumeration,
                        .name = "StreamSelector",
                        .kind = FeatureKind::Number,
                        .toolTip = "The data stream that the next feature tells about",
                        .get = [this] { return Value(m_streamSelector.load()); },
                        .set = [this](uint64_t value) { m_streamSelector = value; },
                        .maximum = "StreamSelectorMax",
                        .available = "StreamCount",
                        .selects = {"StreamID"}});
    features.push_back(TextFeature(kEnumeration, "StreamID", "Id of the data stream",
                                   [this] { return _selectedStream(); }));
    features.back().available = "StreamCount";
    features.back().invalidators = {"StreamSelector"};
    features.push_back(NumberFeature(nullptr, "StreamSelectorMax", "The last data stream", [this] {
        return Value(NumDataStreams() != 0 ? NumDataStreams() - 1 : 0);
    }));
    features.push_back(NumberFeature(nullptr, "StreamCount", "How many data streams there are",
                                     [this] { return Value(NumDataStreams()); }));
    return features;
}

Value Device::_selectedStream() const
{
    return NumDataStreams() != 0 ? Value(DataStream::IdOf(static_cast<uint32_t>(m_streamSelector)))
                                 : Value("");
}

} // namespace standard_tl
