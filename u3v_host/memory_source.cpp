#include "memory_source.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

#include "camera.h"
#include "usb_block.h"

namespace u3v_host {

namespace {

constexpr size_t kReserveBlocks = 4;
constexpr size_t kReserveBlockSize = 0x100000;
constexpr size_t kMeasuredSize = 0x40000;
constexpr int kMeasuredRuns = 5;
constexpr int kSlowerThan = 3; // times ordinary memory: reading costs more than a copy

std::atomic<uint64_t> deviceMemoryInUse{0};

class BlockMemory final : public BufferMemory
{
public:
    explicit BlockMemory(UsbBlock block) : m_block(std::move(block))
    {
        if (m_block.IsDeviceMemory()) {
            deviceMemoryInUse += m_block.Size();
        }
    }
    ~BlockMemory() override
    {
        if (m_block.IsDeviceMemory()) {
            deviceMemoryInUse -= m_block.Size();
        }
    }
    uint8_t* Data() const override { return m_block.Data(); }
    size_t Size() const override { return m_block.Size(); }
    bool IsDeviceMemory() const override { return m_block.IsDeviceMemory(); }

private:
    const UsbBlock m_block;
};

} // namespace

std::chrono::nanoseconds TimeToRead(std::span<const uint8_t> block)
{
    using Clock = std::chrono::steady_clock;
    std::array<uint64_t, 8> words{};
    volatile uint64_t sink = 0;
    auto best = std::chrono::nanoseconds::max();
    for (int run = 0; run < kMeasuredRuns; ++run) {
        const auto begin = Clock::now();
        uint64_t sum = 0;
        for (auto rest = block; rest.size() >= sizeof(words); rest = rest.subspan(sizeof(words))) {
            std::memcpy(words.data(), rest.data(), sizeof(words));
            sum += words[0] ^ words[1] ^ words[2] ^ words[3] ^ words[4] ^ words[5] ^ words[6] ^
                   words[7];
        }
        sink = sum;
        best = std::min<std::chrono::nanoseconds>(best, Clock::now() - begin);
    }
    static_cast<void>(sink);
    return best;
}

DeviceMemorySpeed::DeviceMemorySpeed(Timer timer) : m_timer(std::move(timer))
{
}

DeviceMemorySpeed& DeviceMemorySpeed::OfProcess()
{
    static DeviceMemorySpeed speed(TimeToRead);
    return speed;
}

bool DeviceMemorySpeed::IsGood(const UsbHandle& handle)
{
    if (m_verdict == Verdict::Unknown) {
        m_verdict = _measure(handle);
    }
    return m_verdict == Verdict::Good;
}

DeviceMemorySpeed::Verdict DeviceMemorySpeed::_measure(const UsbHandle& handle) const
{
    const UsbBlock block = UsbBlock::AllocateForDevice(handle, kMeasuredSize);
    if (block.Data() == nullptr) {
        return Verdict::Unknown;
    }
    const UsbBlock ordinary = UsbBlock::AllocatePages(kMeasuredSize);
    std::ranges::fill(ordinary.Bytes(), uint8_t{0}); // pages that are there
    const auto device = m_timer(block.Bytes());
    return device > kSlowerThan * m_timer(ordinary.Bytes()) ? Verdict::Bad : Verdict::Good;
}

MemorySource::MemorySource(UsbHandle handle, DeviceMemorySpeed& speed)
    : m_handle(std::move(handle)), m_speed(speed)
{
}

std::unique_ptr<BufferMemory> MemorySource::Allocate(size_t size)
{
    if (m_speed.IsGood(m_handle)) {
        UsbBlock block = UsbBlock::AllocateForDevice(m_handle, size);
        if (block.Data() != nullptr && _reserveIsFree()) {
            return std::make_unique<BlockMemory>(std::move(block));
        }
    }
    return std::make_unique<BlockMemory>(UsbBlock::AllocatePages(size));
}

// Nobody tells how much is left, so it is taken for a moment.
bool MemorySource::_reserveIsFree() const
{
    std::array<UsbBlock, kReserveBlocks> reserve;
    return std::ranges::all_of(reserve, [this](UsbBlock& block) {
        block = UsbBlock::AllocateForDevice(m_handle, kReserveBlockSize);
        return block.Data() != nullptr;
    });
}

uint64_t MemorySource::DeviceMemoryInUse()
{
    return deviceMemoryInUse;
}

} // namespace u3v_host
