#include "usb_camera.h"

#include <numeric>

namespace vcam {

namespace {

using Lock = std::lock_guard<std::mutex>;

FaultPlan PlanOf(const CameraConfig& config)
{
    FaultPlan plan;
    plan.Parse(config.faults); // the configuration has been checked when it was set
    return plan;
}

} // namespace

UsbCamera::UsbCamera(const CameraConfig& config)
    : m_config(config), m_faults(PlanOf(config)), m_descriptors(m_config, m_faults),
      m_memory(m_config, m_faults), m_control(m_config, m_memory, m_faults, m_errors),
      m_events(m_config, m_memory, m_faults), m_stream(m_config, m_memory, m_faults, m_events),
      m_zero(m_descriptors), m_hasFaults(!m_faults.Empty())
{
}

UsbResult UsbCamera::Control(const SetupPacket& setup, std::vector<std::uint8_t>& data)
{
    UsbResult result;
    {
        const Lock lock(m_mutex);
        if (m_gone) {
            return {UsbStatus::NoDevice};
        }
        if (_IsSuspended()) {
            return {UsbStatus::Error};
        }
        if (const auto fault = _StringFault(setup)) {
            result = *fault;
        }
        const ControlOutcome outcome = m_zero.Handle(setup, data);
        if (outcome.haltCleared == usb::kControlIn || outcome.restarted) {
            m_control.Drop();
        }
        if (outcome.haltCleared == usb::kStreamIn) {
            m_stream.HaltCleared();
        }
        result.status = outcome.refused ? UsbStatus::Stall : result.status;
    }
    _Notify();
    return result;
}

UsbResult UsbCamera::BulkOut(std::uint8_t endpoint, const std::uint8_t* data, std::size_t size)
{
    UsbResult result;
    {
        const Lock lock(m_mutex);
        if (m_gone) {
            return {UsbStatus::NoDevice};
        }
        if (_IsSuspended()) {
            return {UsbStatus::Error};
        }
        if (endpoint != usb::kControlOut || m_zero.IsHalted(endpoint)) {
            return {UsbStatus::Stall};
        }
        if (size == 0) {
            return result; // the empty packet behind a command of whole packets
        }
        const CommandOutcome outcome = m_control.Command({data, size});
        if (outcome.refused) {
            return {UsbStatus::Nak};
        }
        if (outcome.haltOut) {
            m_zero.Halt(endpoint);
            result.status = UsbStatus::Stall;
        }
        m_gone = outcome.unplug;
        result.status = m_gone ? UsbStatus::NoDevice : result.status;
        _Apply(outcome.effects);
    }
    _Notify();
    return result;
}

void UsbCamera::_Apply(const WriteEffects& effects)
{
    m_events.Update(effects);
    m_stream.Update(effects);
    m_rebooting = m_rebooting || effects.reset;
}

UsbResult UsbCamera::BulkIn(std::uint8_t endpoint, std::uint8_t* buffer, std::size_t capacity,
                            std::size_t& filled)
{
    bool newEvents = false;
    UsbResult result;
    {
        const Lock lock(m_mutex);
        const bool hadEvents = m_events.HasSomething();
        result = _BulkIn(endpoint, {buffer, capacity, filled});
        const std::chrono::milliseconds suspension = m_stream.TakeSuspension();
        if (suspension.count() != 0) {
            m_suspendedUntil = Clock::now() + suspension;
            result = {UsbStatus::Error};
        }
        newEvents = suspension.count() != 0 || (!hadEvents && m_events.HasSomething());
    }
    if (newEvents) {
        _Notify(); // a request that waits on another endpoint can go on
    }
    return result;
}

UsbResult UsbCamera::_BulkIn(std::uint8_t endpoint, HostRequest request)
{
    if (m_gone) {
        return {UsbStatus::NoDevice};
    }
    if (_IsSuspended()) {
        return {UsbStatus::Error};
    }
    if (!m_descriptors.HasEndpoint(endpoint) || m_zero.IsHalted(endpoint)) {
        return {UsbStatus::Stall};
    }
    UsbResult result{UsbStatus::Nak};
    if (endpoint == usb::kControlIn) {
        result = _ControlIn(request);
    } else if (endpoint == usb::kStreamIn) {
        result = m_stream.BulkIn(request, m_descriptors.PacketSize());
    } else if (endpoint == usb::kEventIn) {
        result = m_events.BulkIn(request, m_descriptors.PacketSize());
    }
    if (result.status == UsbStatus::Stall) {
        m_zero.Halt(endpoint);
    }
    m_gone = m_gone || result.status == UsbStatus::NoDevice;
    return result;
}

UsbResult UsbCamera::_ControlIn(HostRequest request)
{
    const UsbResult result = m_control.BulkIn(request, m_descriptors.PacketSize());
    m_gone = m_rebooting && result.status == UsbStatus::Done;
    return result;
}

void UsbCamera::BusReset()
{
    {
        const Lock lock(m_mutex);
        m_zero.Reset();
        m_control.Drop();
        WriteEffects effects;
        const std::uint8_t zeros[4] = {};
        m_memory.Poke(sirm::kControl.address, zeros, sizeof zeros, effects);
        m_memory.Poke(cam::kAcquisition.address, zeros, sizeof zeros, effects);
        m_memory.Poke(eirm::kControl.address, zeros, sizeof zeros, effects);
        m_stream.Drop();
        m_events.Drop();
    }
    _Notify();
}

void UsbCamera::SetListener(std::function<void()> listener)
{
    const Lock lock(m_mutex);
    m_listener = std::move(listener);
}

void UsbCamera::_Notify()
{
    std::function<void()> listener;
    {
        const Lock lock(m_mutex);
        listener = m_listener;
    }
    if (listener) {
        listener();
    }
}

bool UsbCamera::Gone() const
{
    return m_gone;
}

void UsbCamera::Suspend(bool suspended)
{
    {
        const Lock lock(m_mutex);
        m_suspendedUntil = suspended ? Clock::time_point::max() : Clock::time_point();
    }
    _Notify();
}

bool UsbCamera::_IsSuspended() const
{
    return m_suspendedUntil != Clock::time_point() && Clock::now() < m_suspendedUntil;
}

// What a request for a string becomes: never answered, or answered late.
std::optional<UsbResult> UsbCamera::_StringFault(const SetupPacket& setup)
{
    constexpr std::uint8_t kGetDescriptor = 6;
    const bool isString = setup.requestType == 0x80 && setup.request == kGetDescriptor &&
                          setup.value >> 8 == usb::kStringType;
    if (!isString || m_faults.Empty()) {
        return std::nullopt;
    }
    if (m_faults.Fire("strings-hang") != nullptr) {
        return UsbResult{UsbStatus::Nak};
    }
    if (const Fault* fault = m_faults.Fire("strings-late")) {
        return UsbResult{UsbStatus::Done,
                         Clock::now() + std::chrono::milliseconds(FaultSize(*fault, 500))};
    }
    return std::nullopt;
}

std::chrono::milliseconds UsbCamera::ReturnsAfter() const
{
    const Lock lock(m_mutex);
    if (m_rebooting) {
        return std::chrono::milliseconds(m_config.rebootMs);
    }
    return std::chrono::milliseconds(m_config.replugMs == 0 ? -1 : std::int64_t{m_config.replugMs});
}

std::string UsbCamera::SetFaults(std::string_view faults)
{
    const Lock lock(m_mutex);
    std::string error = m_faults.Parse(faults);
    m_hasFaults = !m_faults.Empty();
    return error;
}

bool UsbCamera::FireFault(std::string_view name, std::int64_t& value)
{
    if (!m_hasFaults) {
        return false;
    }
    const Lock lock(m_mutex);
    const Fault* fault = m_faults.Fire(name);
    if (fault != nullptr) {
        value = fault->Value(value);
    }
    return fault != nullptr;
}

bool UsbCamera::HasFault(std::string_view name) const
{
    if (!m_hasFaults) {
        return false;
    }
    const Lock lock(m_mutex);
    return m_faults.Find(name) != nullptr;
}

void UsbCamera::SetFrameRate(double rate)
{
    {
        const Lock lock(m_mutex);
        m_memory.SetFrameRate(static_cast<float>(rate));
        WriteEffects effects;
        effects.streamChanged = true;
        effects.frameRateChanged = true;
        m_stream.Update(effects);
    }
    _Notify();
}

bool UsbCamera::Peek(std::uint64_t address, std::uint8_t* data, std::size_t size)
{
    const Lock lock(m_mutex);
    return m_memory.Peek(address, data, size);
}

bool UsbCamera::Poke(std::uint64_t address, const std::uint8_t* data, std::size_t size)
{
    bool found = false;
    {
        const Lock lock(m_mutex);
        WriteEffects effects;
        found = m_memory.Poke(address, data, size, effects);
        _Apply(effects);
    }
    _Notify();
    return found;
}

bool UsbCamera::SendEvent(std::uint16_t id, std::span<const std::uint8_t> data)
{
    bool sent = false;
    {
        const Lock lock(m_mutex);
        sent = m_events.Send(id, m_memory.NowNs(), data);
    }
    _Notify();
    return sent;
}

CameraStats UsbCamera::Stats() const
{
    const Lock lock(m_mutex);
    const auto add = [](std::uint64_t sum, const auto& entry) { return sum + entry.second; };
    return {m_stream.Counts(), m_control.Transactions(), m_faults.Played(),
            std::accumulate(m_errors.begin(), m_errors.end(), std::uint64_t{0}, add)};
}

ErrorCounts UsbCamera::Errors() const
{
    const Lock lock(m_mutex);
    return m_errors;
}

ImageGeometry UsbCamera::Geometry() const
{
    const Lock lock(m_mutex);
    return m_memory.Geometry();
}

Pattern UsbCamera::PresentPattern() const
{
    const Lock lock(m_mutex);
    return static_cast<Pattern>(m_memory.Get(cam::kTestPattern));
}

std::vector<std::uint8_t> UsbCamera::DescriptionFile() const
{
    const Lock lock(m_mutex);
    return m_memory.DescriptionFile();
}

CameraConfig UsbCamera::Persistent() const
{
    const Lock lock(m_mutex);
    CameraConfig config = m_config;
    config.user.clear();
    for (std::uint64_t i = 0; i + 1 < abrm::kStringSize; ++i) {
        const auto c =
            static_cast<char>(m_memory.Get(Register<std::uint8_t>{abrm::kUserDefinedName + i}));
        if (c == '\0') {
            break;
        }
        config.user += c;
    }
    return config;
}

} // namespace vcam
