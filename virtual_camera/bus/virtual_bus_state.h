// The bus: ports with devices, the contexts and handles of the host, and the lock over all of them.
#ifndef VBUS_VIRTUAL_BUS_STATE_H
#define VBUS_VIRTUAL_BUS_STATE_H

#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>

#include "bus_objects.h"
#include "call_journal.h"
#include "pattern_generator.h"

namespace vbus {

using BusLock = std::unique_lock<std::mutex>;

// A port that has, or has had, a device.
struct Slot
{
    std::string plainKind;     // empty: a camera
    vcam::CameraConfig config; // for the next plug
    std::shared_ptr<Attachment> present;
    std::optional<Clock::time_point> replugAt;
    vcam::CameraStats past; // of earlier stays
    vcam::ErrorCounts pastErrors;
    vcam::PatternGenerator reference; // what the camera's images ought to be
};

// One per process, never destroyed. Locks: bus lock before a camera's own lock and the journal's;
// neither calls back with its lock held. No lock is held while a callback of the host runs, nor
// while image data moves.
class VirtualBus
{
public:
    static VirtualBus& Instance();

    BusLock Guard() { return BusLock(m_mutex); }

    // --- steering ---
    void Reset();
    int AddCamera(const std::string& options, std::string& error);
    int AddDevice(const std::string& options, std::string& error);
    bool Unplug(int id, std::string& error);
    bool Replug(int id, std::string& error);
    // Cameras of the environment, unless the bus has been steered before. Bus lock held.
    void LoadEnvironment();
    Slot* FindSlot(int id); // bus lock held; null for an unknown id
    // Wakes everybody who handles events: something may have happened on the bus.
    void Kick();
    void KickLocked();

    // --- devices; bus lock held ---
    // Devices that have gone by themselves leave, those whose time has come return.
    void Tick();
    std::optional<Clock::time_point> NextReplug() const;
    void Detach(const std::shared_ptr<Attachment>& attachment);
    std::vector<libusb_device*> Devices(libusb_context* context);
    bool IsLive(const libusb_device* device) const;
    bool IsLive(const libusb_device_handle* handle) const;
    void Reference(libusb_device* device) { ++device->references; }
    void Unreference(libusb_device* device);
    void QueueHotplug(libusb_context* context, libusb_device* device, libusb_hotplug_event event);

    // --- contexts and handles; bus lock held ---
    libusb_context* OpenContext(bool isDefault);
    void CloseContext(libusb_context* context);
    // Null means the default context; null when there is none (noted as a violation).
    libusb_context* Resolve(libusb_context* context);
    libusb_context* DefaultContext() const { return m_defaultContext; }
    libusb_device_handle* OpenHandle(libusb_device* device);
    void CloseHandle(libusb_device_handle* handle);
    vusb_live_objects Live() const;

    // --- memory that the kernel counts against usbfs_memory_mb; bus lock held ---
    void SetKernelMemoryLimit(std::uint64_t bytes) { m_kernelMemoryLimit = bytes; } // 0: none
    std::uint64_t KernelMemoryLimit() const { return m_kernelMemoryLimit; }
    std::uint64_t KernelMemoryUsed() const { return m_kernelMemoryUsed; }
    bool TakeKernelMemory(std::uint64_t bytes);
    void GiveKernelMemory(std::uint64_t bytes) { m_kernelMemoryUsed -= bytes; }
    // What a transfer under way takes: its data too, unless they lie in device memory.
    std::size_t KernelBytes(const libusb_transfer& transfer) const;
    unsigned char* AllocateDeviceMemory(const libusb_device_handle* handle, std::size_t size);
    bool FreeDeviceMemory(unsigned char* block, std::size_t size);

    // Configuration descriptors handed out; bus lock held.
    std::unordered_map<const void*, std::unique_ptr<ParsedConfiguration>> configurations;

private:
    VirtualBus() = default;
    int _AddSlot(const std::string& plainKind, const vcam::CameraConfig& config);
    int _AddCameras(const std::string& options, std::string& error);
    void _Attach(int id);
    libusb_device* _DeviceOf(libusb_context* context,
                             const std::shared_ptr<Attachment>& attachment);
    void _Destroy(libusb_device* device);

    struct MemoryBlock
    {
        std::size_t size;
        std::size_t mapped; // whole pages
        const libusb_device_handle* owner;
    };

    std::mutex m_mutex;
    std::uint64_t m_kernelMemoryLimit = 0;
    std::uint64_t m_kernelMemoryUsed = 0;
    std::map<const unsigned char*, MemoryBlock> m_memoryBlocks;
    bool m_steered = false;
    bool m_environmentLoaded = false;
    std::vector<std::unique_ptr<Slot>> m_slots;
    std::uint8_t m_lastAddress = 1;
    libusb_context* m_defaultContext = nullptr;
    std::map<const libusb_context*, std::unique_ptr<libusb_context>> m_contexts;
    std::map<const libusb_device*, std::unique_ptr<libusb_device>> m_devices;
    std::map<const libusb_device_handle*, std::unique_ptr<libusb_device_handle>> m_handles;
    // The latest dead objects stay allocated: a stale pointer must not become valid by chance.
    std::deque<std::unique_ptr<libusb_device>> m_deadDevices;
    std::deque<std::unique_ptr<libusb_device_handle>> m_deadHandles;
    std::deque<std::unique_ptr<libusb_context>> m_deadContexts;
};

// Bus lock held.
inline void WakeHandler(libusb_context& context)
{
    ++context.generation;
    context.handlerWake.notify_all();
}

inline void WakeWaiters(libusb_context& context)
{
    ++context.completions;
    context.waiterWake.notify_all();
}

inline VirtualBus& Bus()
{
    return VirtualBus::Instance();
}

} // namespace vbus

#endif
