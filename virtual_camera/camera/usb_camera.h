// The virtual camera as a USB device: endpoints on the outside, memory and protocols inside.
#ifndef VCAM_USB_CAMERA_H
#define VCAM_USB_CAMERA_H

#include <atomic>
#include <mutex>

#include "control_protocol.h"
#include "endpoint_zero.h"
#include "stream_protocol.h"

namespace vcam {

struct CameraStats
{
    StreamCounts stream;
    std::uint64_t controlTransactions = 0;
    std::uint64_t faultsPlayed = 0;
    std::uint64_t protocolErrors = 0;
};

// One lock guards everything; it is not held while the listener is called.
class UsbCamera final : public UsbDevice
{
public:
    explicit UsbCamera(const CameraConfig& config);

    const UsbDescriptors& Descriptors() const override { return m_descriptors; }
    UsbResult Control(const SetupPacket& setup, std::vector<std::uint8_t>& data) override;
    UsbResult BulkOut(std::uint8_t endpoint, const std::uint8_t* data, std::size_t size) override;
    UsbResult BulkIn(std::uint8_t endpoint, std::uint8_t* buffer, std::size_t capacity,
                     std::size_t& filled) override;
    void BusReset() override;
    void SetListener(std::function<void()> listener) override;
    bool Gone() const override;
    std::chrono::milliseconds ReturnsAfter() const override;

    // For whoever steers the simulation.
    std::string SetFaults(std::string_view faults);
    // An opportunity for a fault of the host's side ("open-busy", ...); true when it happens.
    bool FireFault(std::string_view name, std::int64_t& value);
    bool HasFault(std::string_view name) const;
    void SetFrameRate(double rate);
    // Until it is resumed everything fails with an error.
    void Suspend(bool suspended);
    bool Peek(std::uint64_t address, std::uint8_t* data, std::size_t size);
    bool Poke(std::uint64_t address, const std::uint8_t* data, std::size_t size);
    // False when the host has not switched events on.
    bool SendEvent(std::uint16_t id, std::span<const std::uint8_t> data);
    CameraStats Stats() const;
    ErrorCounts Errors() const;
    ImageGeometry Geometry() const;
    Pattern PresentPattern() const;
    std::uint32_t Seed() const { return m_config.seed; }
    std::vector<std::uint8_t> DescriptionFile() const;
    // The configuration for the next plug: what the camera keeps without power is in it.
    CameraConfig Persistent() const;

private:
    bool _IsSuspended() const;
    std::optional<UsbResult> _StringFault(const SetupPacket& setup);
    void _Apply(const WriteEffects& effects);
    UsbResult _BulkIn(std::uint8_t endpoint, HostRequest request);
    UsbResult _ControlIn(HostRequest request);
    void _Notify();

    const CameraConfig m_config;
    mutable std::mutex m_mutex;
    FaultPlan m_faults;
    const UsbDescriptors m_descriptors;
    ErrorCounts m_errors;
    CameraMemory m_memory;
    ControlProtocol m_control;
    EventProtocol m_events;
    StreamProtocol m_stream;
    EndpointZero m_zero;
    std::function<void()> m_listener;
    std::atomic<bool> m_gone{false}; // read without the lock, which is held while data move
    std::atomic<bool> m_hasFaults;   // the same
    Clock::time_point m_suspendedUntil{};
    bool m_rebooting = false; // goes as soon as the acknowledge has been fetched
};

} // namespace vcam

#endif
