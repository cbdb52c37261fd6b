#include "tool_camera_control.h"

#include <algorithm>

#include "tool_acquisition.h"
#include "tool_console.h"
#include "tool_error.h"
#include "tool_producer.h"

namespace {

constexpr const char* kStart = "AcquisitionStart";
constexpr const char* kStop = "AcquisitionStop";
constexpr const char* kLock = "TLParamsLocked";
constexpr const char* kTrigger = "TriggerSoftware";

// Sets what the camera lets be chosen; one that has no choice has made it.
void Choose(const NodeMap& features, const char* name, const char* entry)
{
    if (features.Has(name) && features.Get(name) != entry) {
        features.Set(name, entry);
    }
}

} // namespace

std::pair<std::string, std::string> SplitSetting(const std::string& setting)
{
    const size_t sign = setting.find('=');
    if (sign == std::string::npos || sign == 0) {
        throw ToolError(ExitCode::Usage, "\"" + setting + "\" is not NAME=VALUE");
    }
    return {setting.substr(0, sign), setting.substr(sign + 1)};
}

CameraWishes WishesOf(const Options& options)
{
    return {options.settings, options.trigger == "software"};
}

Acquisition Announce(const DataStream& stream, const CameraControl& control, const Options& options)
{
    return Acquisition(stream, BufferSize(ReadStreamNeeds(stream.Owner())), options.buffers,
                       consumer::BufferMemory::OfProducer, control.Switch());
}

CameraControl::CameraControl(const Camera& camera, const CameraWishes& wishes)
    : m_stopsLate(IsExactProducer(camera.Api()))
{
    const bool isWanted = !wishes.settings.empty() || wishes.softwareTrigger;
    try {
        m_features = std::make_unique<NodeMap>(camera.Api(), camera.Port());
    } catch (const std::runtime_error& failure) {
        if (isWanted) {
            throw;
        }
        Warn(std::string(failure.what()) + ": the camera is started without its features");
        return;
    }
    _apply(wishes);
    m_isTriggered = wishes.softwareTrigger;
    m_isLocked = _lock("1");
}

CameraControl::~CameraControl()
{
    if (m_features != nullptr && m_stopsLate) {
        _stop();
    }
    if (m_isLocked) {
        _lock("0");
    }
}

void CameraControl::_apply(const CameraWishes& wishes) const
{
    for (const std::string& setting : wishes.settings) {
        const auto [name, value] = SplitSetting(setting);
        m_features->Set(name, value);
    }
    if (wishes.softwareTrigger) {
        _prepareTrigger();
    }
}

void CameraControl::_prepareTrigger() const
{
    if (!m_features->Has(kTrigger)) {
        throw ToolError(ExitCode::Failure, "this camera has no software trigger");
    }
    Choose(*m_features, "TriggerSelector", "FrameStart");
    Choose(*m_features, "TriggerSource", "Software");
    m_features->Set("TriggerMode", "On");
}

// A camera that has gone cannot be told any more, and needs not be.
bool CameraControl::_lock(const char* value) const
{
    try {
        if (m_features->Has(kLock)) {
            m_features->Set(kLock, value);
            return true;
        }
    } catch (const ToolError&) {
    }
    return false;
}

consumer::CameraSwitch CameraControl::Switch() const
{
    if (m_features == nullptr) {
        return {};
    }
    if (!m_features->Has(kStart)) {
        Warn("the camera has no AcquisitionStart: it is started by the stream alone");
        return {};
    }
    consumer::CameraSwitch camera;
    camera.start = [this] { m_features->Execute(kStart); };
    if (!m_stopsLate) {
        camera.stop = [this] { _stop(); };
    }
    return camera;
}

// The images have come: that the camera cannot be stopped, or has gone, is no failure of theirs.
void CameraControl::_stop() const
{
    try {
        if (m_features->Has(kStop)) {
            m_features->Execute(kStop);
        }
    } catch (const ToolError& failure) {
        Warn(failure.what());
    }
}

void CameraControl::Trigger() const
{
    if (m_isTriggered) {
        m_features->Execute(kTrigger);
    }
}
