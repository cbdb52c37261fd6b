#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "camera.h"
#include "camera_descriptors.h"
#include "control_channel.h"
#include "event_channel.h"
#include "gone_notice.h"
#include "memory_source.h"
#include "stream_link.h"
#include "usb_context.h"
#include "zr_sync.h"

namespace u3v_host {

class EventLoop;

// Interfaces that were claimed, released in reverse order; a kernel driver that had one gets it
// back.
class ClaimedInterfaces
{
public:
    ClaimedInterfaces(UsbHandle handle, const EventLoop& loop);
    ~ClaimedInterfaces();
    ClaimedInterfaces(const ClaimedInterfaces&) = delete;
    ClaimedInterfaces& operator=(const ClaimedInterfaces&) = delete;

    // Throws Error.
    void Claim(uint8_t number);

private:
    const UsbHandle m_handle;
    const EventLoop& m_loop;
    std::vector<uint8_t> m_numbers;
};

// A camera from its opening to its closing.
class OpenedCamera final : public Camera, private StreamLink
{
public:
    struct Parts
    {
        EventLoop& loop;
        UsbHandle handle;
        CameraDescriptors descriptors;
        CameraInfo info; // as far as it is known from outside
        OpenMode mode;
        ControlLimits limits;
    };

    // Brings the camera into a known state, whatever it was left in, and reads what it says of
    // itself. Throws Error; everything is undone then, and `onClose` is not called. Else it is the
    // first thing that closing does.
    OpenedCamera(const Parts& parts, std::function<void()> onClose);
    ~OpenedCamera() override;
    OpenedCamera(const OpenedCamera&) = delete;
    OpenedCamera& operator=(const OpenedCamera&) = delete;

    GoneNotice& Notice() { return m_gone; }

    CameraInfo Info() const override;
    OpenMode Mode() const override { return m_mode; }
    LinkSpeed Speed() const override;
    bool IsGone() const override { return m_gone.IsGone(); }
    void Read(uint64_t address, std::span<uint8_t> destination, size_t& done) override;
    void Write(uint64_t address, std::span<const uint8_t> source, size_t& done) override;
    const std::vector<DescriptionFile>& DescriptionFiles() const override { return m_files; }
    uint32_t NumStreams() const override { return m_sirm != 0 ? 1 : 0; }
    uint64_t PayloadSize() override;
    std::unique_ptr<BufferMemory> AllocateBuffer(size_t size) override;
    uint64_t DeviceMemoryInUse() const override { return MemorySource::DeviceMemoryInUse(); }
    std::unique_ptr<StreamReceiver> OpenStream(ImageSink& sink) override;
    std::unique_ptr<Wakeup> MakeWakeup() override;
    bool HasEvents() const override { return m_events != nullptr; }
    void OnEvent(std::function<void(const CameraEvent&)> listener) override;
    void OnGone(std::function<void()> listener) override { m_gone.Listen(std::move(listener)); }

private:
    // StreamLink
    UsbHandle Handle() override { return m_handle; }
    uint8_t Endpoint() override { return m_descriptors.stream->address; }
    size_t PacketSize() override { return m_descriptors.stream->maxPacketSize; }
    uint64_t SirmAddress() override { return m_sirm; }
    void ReadRegisters(uint64_t address, std::span<uint8_t> bytes) override;
    void WriteRegisters(uint64_t address, std::span<const uint8_t> bytes) override;
    void Defer(std::chrono::milliseconds delay, std::function<void()> job) override;
    void HasLeft() override { m_gone.Set(); }

    void _claim();
    void _clearHalts();
    void _bootstrap();
    void _readInterfaces(uint64_t sbrm);
    void _readManifest();
    void _readTexts();
    std::string _lastName() const;
    void _readText(TextRegister reg, std::string& text) const;
    void _switchOff(Register<uint32_t> control, uint32_t bit);
    void _requireStream() const;

    EventLoop& m_loop;
    const std::function<void()> m_onClose;
    const UsbHandle m_handle;
    const CameraDescriptors m_descriptors;
    const OpenMode m_mode;
    ClaimedInterfaces m_claimed;
    GoneNotice m_gone;
    mutable ControlChannel m_control; // reading a text leaves the camera as it is
    MemorySource m_memory;

    // Fixed once the camera is open.
    uint64_t m_capability = 0;
    uint64_t m_sirm = 0; // 0: no stream
    std::vector<DescriptionFile> m_files;
    std::unique_ptr<EventChannel> m_events;

    // A name may have changed since it was read.
    mutable std::atomic<bool> m_written{false};
    mutable Mutex m_infoMutex;
    mutable CameraInfo m_info ZR_GUARDED_BY(m_infoMutex);
};

} // namespace u3v_host
