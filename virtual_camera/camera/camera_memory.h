// The camera's address space: bootstrap registers, manifest, description file, camera registers.
#ifndef VCAM_CAMERA_MEMORY_H
#define VCAM_CAMERA_MEMORY_H

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "camera_config.h"
#include "camera_layout.h"
#include "fault_plan.h"
#include "manifest.h"
#include "payload_form.h"

namespace vcam {

// What a register write has set off; the camera acts on it after the write.
struct WriteEffects
{
    bool streamChanged = false; // enable, acquisition, trigger or frame rate
    bool trigger = false;
    bool frameRateChanged = false;
    bool reset = false;
    bool eventsChanged = false; // switched on or off
    bool testEvent = false;
};

// Not thread-safe: its owner, the camera, locks.
class CameraMemory
{
public:
    using Clock = std::chrono::steady_clock;

    // The configuration is used as long as the memory lives.
    CameraMemory(const CameraConfig& config, const FaultPlan& faults);

    // An access of the host; a GenCP status. A read may end in the reserved part of a block.
    std::uint16_t Read(std::uint64_t address, std::uint8_t* data, std::size_t size);
    std::uint16_t Write(std::uint64_t address, const std::uint8_t* data, std::size_t size,
                        WriteEffects& effects);
    // The same without regard to access rights.
    bool Peek(std::uint64_t address, std::uint8_t* data, std::size_t size);
    bool Poke(std::uint64_t address, const std::uint8_t* data, std::size_t size,
              WriteEffects& effects);

    template <typename T>
    T Get(Register<T> reg) const
    {
        const Block* block = _Find(reg.address, sizeof(T));
        return block == nullptr ? T{}
                                : LoadLe<T>(block->bytes.data() + (reg.address - block->base));
    }
    template <typename T>
    void Set(Register<T> reg, T value)
    {
        Block* block = _Find(reg.address, sizeof(T));
        if (block != nullptr) {
            StoreLe<T>(block->bytes.data() + (reg.address - block->base), value);
        }
    }

    bool EventsEnabled() const { return (Get(eirm::kControl) & eirm::kEventEnable) != 0; }
    bool StreamEnabled() const { return (Get(sirm::kControl) & sirm::kStreamEnable) != 0; }
    std::size_t Alignment() const; // bytes
    ImageGeometry Geometry() const;
    PayloadForm Form() const;
    float FrameRate() const;
    void SetFrameRate(float rate);
    std::uint64_t NowNs() const; // the camera's time stamp counter: since it was plugged in
    const std::vector<std::uint8_t>& DescriptionFile() const;

private:
    struct Range
    {
        std::uint64_t from;
        std::uint64_t size;
    };
    struct Block
    {
        std::uint64_t base;
        std::vector<std::uint8_t> bytes;
        std::vector<Range> writable;
    };

    const Block* _Find(std::uint64_t address, std::size_t size) const;
    Block* _Find(std::uint64_t address, std::size_t size);
    const std::vector<std::uint8_t>& _DescriptionFile(std::size_t index) const;
    void _AddBootstrap(const CameraConfig& config);
    void _AddU3V(const CameraConfig& config, const FaultPlan& faults);
    void _AddStream(const CameraConfig& config);
    void _AddEvents(const CameraConfig& config);
    void _AddManifest(const CameraConfig& config, const FaultPlan& faults);
    void _AddCameraRegisters(const CameraConfig& config);
    void _SetString(std::uint64_t address, const std::string& text);
    void _AddDescription(std::size_t index, const ManifestEntry& entry);
    void _PutManifestEntry(std::size_t place, std::size_t file, const ManifestEntry& entry);
    std::uint16_t _CheckWrite(std::uint64_t address, const std::uint8_t* data,
                              std::size_t size) const;
    std::uint16_t _CheckStreamWrite(std::uint64_t address, const std::uint8_t* data,
                                    std::size_t size) const;
    std::uint16_t _CheckPlan() const;
    std::uint16_t _CheckFeatureWrite(std::uint64_t address, const std::uint8_t* data,
                                     std::size_t size) const;
    void _React(std::uint64_t address, std::size_t size, WriteEffects& effects);
    void _RefreshPayload();
    void _FixStreamRegisters();

    std::vector<Block> m_blocks;
    const CameraConfig& m_config;
    Clock::time_point m_start;
};

} // namespace vcam

#endif
