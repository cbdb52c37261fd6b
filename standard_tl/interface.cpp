#include "interface.h"

#include <algorithm>

#include "device.h"
#include "error.h"
#include "event_data.h"
#include "failure.h"
#include "ids.h"
#include "producer_facts.h"

namespace standard_tl {
namespace {

constexpr DocumentIdentity kDocument{"zr_u3v_standard_interface", "The USB with its cameras",
                                     "InterfacePort", "6B1C3C52-8D0E-4F0A-9B61-7C2C35C9A102"};

constexpr const char* kEnumeration = "DeviceEnumeration";

struct Nobody
{
};

constexpr InfoTable<Nobody, 3> kInfo{
    "interface",
    {
        {INTERFACE_INFO_ID, INFO_DATATYPE_STRING,
         [](Nobody&) -> Value { return producer::kInterfaceId; }},
        {INTERFACE_INFO_DISPLAYNAME, INFO_DATATYPE_STRING,
         [](Nobody&) -> Value { return producer::kInterfaceDisplayName; }},
        {INTERFACE_INFO_TLTYPE, INFO_DATATYPE_STRING,
         [](Nobody&) -> Value { return producer::kTlType; }},
    }};

u3v_host::OpenMode ModeOf(DEVICE_ACCESS_FLAGS access)
{
    switch (access) {
    case DEVICE_ACCESS_READONLY: return u3v_host::OpenMode::ReadOnly;
    case DEVICE_ACCESS_CONTROL:
    case DEVICE_ACCESS_EXCLUSIVE: return u3v_host::OpenMode::ReadWrite;
    default:
        throw Failure(GC_ERR_INVALID_PARAMETER,
                      "a camera cannot be opened with the access flag " + std::to_string(access));
    }
}

// A camera that says nothing while it is opened is as good as gone.
std::unique_ptr<u3v_host::Camera> Open(u3v_host::CameraList& cameras, const std::string& id,
                                       u3v_host::OpenMode mode)
{
    try {
        return cameras.Open(id, mode);
    } catch (const u3v_host::Error& error) {
        if (error.Kind() == u3v_host::ErrorKind::Timeout) {
            throw Failure(GC_ERR_IO, error.what());
        }
        throw;
    }
}

} // namespace

Interface::Interface(Node& system, Library& library)
    : RegisterModule(&system, kDocument, _features()), m_library(library)
{
    m_library.Tell(this);
}

Interface::~Interface()
{
    m_library.Tell(nullptr);
}

GC_ERROR Interface::Info(int32_t command, const InfoOut& out)
{
    Nobody nobody;
    return kInfo.Answer(nobody, command, out);
}

// ---- cameras

bool Interface::UpdateDeviceList(uint64_t timeout)
{
    const bool changed = m_library.Update(DeadlineAfter(timeout));
    if (changed) {
        TellListChanged();
    }
    return changed;
}

uint32_t Interface::NumDevices() const
{
    return static_cast<uint32_t>(m_library.Seen().size());
}

GC_ERROR Interface::DeviceId(uint32_t index, const InfoOut& out) const
{
    const auto seen = m_library.Seen();
    if (index >= seen.size()) {
        throw Failure(GC_ERR_INVALID_INDEX,
                      "the list has " + std::to_string(seen.size()) + " cameras");
    }
    return CopyText(seen[index]->id, out);
}

// One that is open tells more than its descriptors did.
GC_ERROR Interface::DeviceInfoOf(const char* id, int32_t command, const InfoOut& out)
{
    CheckNotNull(id, "sDeviceID");
    const auto isAsked = [id](const Device& device) { return AreSameIds(device.Id(), id); };
    if (const auto open = Handles().Find<Device>(_findChild<Device>(isAsked))) {
        return DeviceInfo(open->Facts(), command, out);
    }
    const CameraInfoPtr camera = m_library.Find(id);
    return DeviceInfo({*camera, m_library.Cameras().Access(camera->id)}, command, out);
}

void* Interface::OpenDevice(const char* id, DEVICE_ACCESS_FLAGS access)
{
    CheckNotNull(id, "sDeviceID");
    const auto mode = ModeOf(access);
    const CameraInfoPtr camera = m_library.Find(id);
    return _adopt(std::make_unique<Device>(*this, Open(m_library.Cameras(), camera->id, mode)));
}

// ---- events

std::unique_ptr<Event> Interface::_makeEvent(EVENT_TYPE type)
{
    return type == EVENT_FEATURE_INVALIDATE ? _makeQueuedEvent(type) : nullptr;
}

void Interface::TellListChanged()
{
    const Feature& selector = Registers().Find("DeviceSelector");
    _post(EVENT_FEATURE_INVALIDATE, FeatureRecord(selector.name), true);
    for (const char* name : selector.selects) {
        _post(EVENT_FEATURE_INVALIDATE, FeatureRecord(name), true);
    }
}

// ---- the port

PortFacts Interface::Port()
{
    return {producer::kInterfaceId,
            producer::kVendor,
            producer::kModel,
            producer::kVersion,
            "TLInterface",
            kDocument.port,
            true,
            true};
}

uint64_t Interface::_lastDevice() const
{
    const size_t count = m_library.Seen().size();
    return count != 0 ? count - 1 : 0;
}

// All empty when there is no camera.
DeviceFacts Interface::_selected() const
{
    const auto seen = m_library.Seen();
    if (seen.empty()) {
        return {{}, u3v_host::AccessStatus::Unknown};
    }
    const auto& camera = seen[std::min<uint64_t>(m_selector, seen.size() - 1)];
    return {*camera, m_library.Cameras().Access(camera->id)};
}

std::vector<Feature> Interface::_selectedDevice()
{
    auto features = DeviceFeatures(kEnumeration, [this] { return _selected(); });
    for (Feature& feature : features) {
        feature.available = "DeviceCount";
        feature.invalidators = {"DeviceSelector", "DeviceUpdateList"};
    }
    return features;
}

std::vector<Feature> Interface::_enumeration(std::vector<const char*> selected)
{
    return {
        {.category = kEnumeration,
         .name = "DeviceUpdateList",
         .kind = FeatureKind::Command,
         .toolTip = "Looks for cameras, at most for the time of DeviceUpdateTimeout",
         .get = [] { return Value(0); },
         .set =
             [this](uint64_t value) {
                 if (value != 0) {
                     UpdateDeviceList(m_updateTimeout);
                 }
             }},
        {.category = kEnumeration,
         .name = "DeviceUpdateTimeout",
         .kind = FeatureKind::Number,
         .toolTip = "How long DeviceUpdateList may take",
         .get = [this] { return Value(m_updateTimeout.load()); },
         .set = [this](uint64_t value) { m_updateTimeout = value; },
         .unit = "ms"},
        {.category = kEnumeration,
         .name = "DeviceSelector",
         .kind = FeatureKind::Number,
         .toolTip = "The camera that the next features tell about",
         .get = [this] { return Value(std::min(m_selector.load(), _lastDevice())); },
         .set = [this](uint64_t value) { m_selector = value; },
         .changes = true,
         .maximum = "DeviceSelectorMax",
         .available = "DeviceCount",
         .selects = std::move(selected),
         .invalidators = {"DeviceUpdateList"}},
    };
}

std::vector<Feature> Interface::_counts()
{
    std::vector<Feature> counts{
        NumberFeature(nullptr, "DeviceSelectorMax", "The last camera",
                      [this] { return Value(_lastDevice()); }),
        NumberFeature(nullptr, "DeviceCount", "How many cameras there are",
                      [this] { return Value(NumDevices()); }),
    };
    for (Feature& count : counts) {
        count.changes = true;
        count.invalidators = {"DeviceUpdateList"};
    }
    return counts;
}

std::vector<Feature> Interface::_features()
{
    constexpr const char* kInformation = "InterfaceInformation";
    std::vector<Feature> selected = _selectedDevice();
    std::vector<const char*> names;
    std::ranges::transform(selected, std::back_inserter(names), &Feature::name);
    std::vector<Feature> features{
        TextFeature(kInformation, "InterfaceID", "Id of the interface",
                    [] { return Value(producer::kInterfaceId); }),
        TextFeature(kInformation, "InterfaceDisplayName", "Name of the interface to show",
                    [] { return Value(producer::kInterfaceDisplayName); }),
        TypeFeature(kInformation, "InterfaceType", "Technology of the interface"),
    };
    std::ranges::move(_enumeration(std::move(names)), std::back_inserter(features));
    std::ranges::move(selected, std::back_inserter(features));
    std::ranges::move(_counts(), std::back_inserter(features));
    return features;
}

} // namespace standard_tl
