#include "camera_memory.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "description_file.h"
#include "sha1.h"
#include "zip_writer.h"

namespace vcam {

namespace {

constexpr std::uint32_t kVersion10 = 0x00010000; // major << 16 | minor
constexpr std::uint32_t kSuperSpeed = 1U << 3;
constexpr std::uint32_t kHighSpeed = 1U << 2;

std::uint64_t Capability(const CameraConfig& config)
{
    constexpr std::uint64_t kUserName = 1U << 0;
    constexpr std::uint64_t kPrivilege = 1U << 1;
    constexpr std::uint64_t kTimestamp = 1U << 3;
    constexpr std::uint64_t kFamily = 1U << 8;
    constexpr std::uint64_t kSbrm = 1U << 9;
    constexpr std::uint64_t kEndianness = 1U << 10;
    constexpr std::uint64_t kWrittenLength = 1U << 11;
    return kUserName | kPrivilege | kTimestamp | kFamily | kSbrm | kEndianness |
           (config.writtenLength ? kWrittenLength : 0);
}

// The value that a register will have when the bytes at address have been written.
template <typename T>
T Overlay(Register<T> reg, T present, std::uint64_t address, const std::uint8_t* data,
          std::size_t size)
{
    std::uint8_t bytes[sizeof(T)];
    StoreLe<T>(bytes, present);
    for (std::size_t i = 0; i < sizeof(T); ++i) {
        const std::uint64_t place = reg.address + i;
        if (place >= address && place - address < size) {
            bytes[i] = data[place - address];
        }
    }
    return LoadLe<T>(bytes);
}

} // namespace

CameraMemory::CameraMemory(const CameraConfig& config, const FaultPlan& faults)
    : m_payloadExtra(config.payloadExtra), m_start(Clock::now())
{
    const bool hasSirm = faults.Find("no-sirm") == nullptr;
    _AddBootstrap(config);
    _AddU3V(config, hasSirm);
    _AddStream(config);
    _AddManifest(config, faults);
    _AddCameraRegisters(config);
    m_blocks.push_back({kUserMemoryBase,
                        std::vector<std::uint8_t>(kUserMemorySize),
                        {{kUserMemoryBase, kUserMemorySize}}});
    _RefreshPayload();
}

void CameraMemory::_SetString(std::uint64_t address, const std::string& text)
{
    Block* block = _Find(address, abrm::kStringSize);
    const std::size_t length = std::min(text.size(), abrm::kStringSize - 1);
    std::copy_n(text.begin(), length, block->bytes.data() + (address - block->base));
}

void CameraMemory::_AddBootstrap(const CameraConfig& config)
{
    m_blocks.push_back({abrm::kBase,
                        std::vector<std::uint8_t>(abrm::kSize),
                        {{abrm::kUserDefinedName, abrm::kStringSize},
                         {abrm::kDeviceConfiguration.address, 8},
                         {abrm::kHeartbeatTimeout.address, 4},
                         {abrm::kTimestampLatch.address, 4},
                         {abrm::kAccessPrivilege.address, 4}}});
    Set(abrm::kGenCPVersion, kVersion10);
    _SetString(abrm::kManufacturer, config.vendor);
    _SetString(abrm::kModel, config.model);
    _SetString(abrm::kFamily, config.family);
    _SetString(abrm::kDeviceVersion, config.version);
    _SetString(abrm::kManufacturerInfo, config.info);
    _SetString(abrm::kSerialNumber, config.serial);
    _SetString(abrm::kUserDefinedName, config.user);
    Set(abrm::kDeviceCapability, Capability(config));
    Set(abrm::kMaxResponseTime, config.responseMs);
    Set(abrm::kManifestAddress, manifest::kBase);
    Set(abrm::kSbrmAddress, sbrm::kBase);
    Set(abrm::kHeartbeatTimeout, std::uint32_t{3000});
    Set(abrm::kTimestampIncrement, std::uint64_t{1});
    Set(abrm::kAccessPrivilege, config.privilege);
}

void CameraMemory::_AddU3V(const CameraConfig& config, bool hasSirm)
{
    m_blocks.push_back({sbrm::kBase, std::vector<std::uint8_t>(sbrm::kSize), {}});
    Set(sbrm::kU3VVersion, kVersion10);
    Set(sbrm::kMaxCommand, config.maxCommand);
    Set(sbrm::kMaxAcknowledge, config.maxAcknowledge);
    Set(sbrm::kCurrentSpeed, config.highSpeed ? kHighSpeed : kSuperSpeed);
    if (hasSirm) {
        Set(sbrm::kCapability, std::uint64_t{1});
        Set(sbrm::kStreamChannels, std::uint32_t{1});
        Set(sbrm::kSirmAddress, sirm::kBase);
        Set(sbrm::kSirmLength, sirm::kLength);
    }
}

void CameraMemory::_AddStream(const CameraConfig& config)
{
    m_blocks.push_back(
        {sirm::kBase,
         std::vector<std::uint8_t>(0x1000),
         {{sirm::kControl.address, 4},
          {sirm::kMaxLeader.address, sirm::kBase + sirm::kLength - sirm::kMaxLeader.address}}});
    Set(sirm::kInfo, config.alignment << sirm::kAlignmentShift);
    Set(sirm::kRequiredLeader, config.leaderSize);
    Set(sirm::kRequiredTrailer, config.trailerSize);
}

void CameraMemory::_AddManifest(const CameraConfig& config, const FaultPlan& faults)
{
    std::string text = DescriptionXml(config);
    text.resize(std::max<std::size_t>(text.size(), config.descriptionSize), '\n');
    std::vector<std::uint8_t> file(text.begin(), text.end());
    if (config.zip) {
        file = ZipArchive(DescriptionName(config), file);
    }
    m_blocks.push_back({kDescriptionBase, std::move(file), {}});

    const Fault* entries = faults.Find("manifest-entries");
    const std::int64_t count = entries == nullptr ? 1 : entries->Value(0);
    const std::size_t present = static_cast<std::size_t>(std::clamp<std::int64_t>(count, 1, 60));
    m_blocks.push_back({manifest::kBase, std::vector<std::uint8_t>(0x1000), {}});
    Set(Register<std::uint64_t>{manifest::kBase}, static_cast<std::uint64_t>(count));
    const bool empty = faults.Find("manifest-size-zero") != nullptr;
    for (std::size_t i = 0; i < present; ++i) {
        _PutManifestEntry(i, config, empty ? 0 : DescriptionFile().size());
    }
}

void CameraMemory::_PutManifestEntry(std::size_t index, const CameraConfig& config,
                                     std::uint64_t fileSize)
{
    Block* block =
        _Find(manifest::kFirstEntry + index * manifest::kEntrySize, manifest::kEntrySize);
    std::uint8_t* entry = block->bytes.data() + 8 + index * manifest::kEntrySize;
    constexpr std::uint32_t kFile100 = 0x01000000;  // 1.0.0
    constexpr std::uint32_t kSchema11 = 0x01010000; // 1.1, device description
    manifest::kFileVersion.Store(entry, kFile100);
    manifest::kFormat.Store(entry, kSchema11 | (config.zip ? manifest::kZipBit : 0));
    manifest::kAddress.Store(entry, kDescriptionBase);
    manifest::kFileSize.Store(entry, fileSize);
    const auto digest = Sha1(DescriptionFile());
    std::copy(digest.begin(), digest.end(), entry + manifest::kSha1);
}

void CameraMemory::_AddCameraRegisters(const CameraConfig& config)
{
    // Everything is writable but the payload size and the sensor's own size.
    m_blocks.push_back({cam::kBase,
                        std::vector<std::uint8_t>(cam::kSize),
                        {{cam::kWidth.address, 12},
                         {cam::kAcquisitionMode.address,
                          cam::kSensorWidth.address - cam::kAcquisitionMode.address},
                         {cam::kFrameCount.address, 12},
                         {cam::kTriggerMode.address, 12}}});
    Set(cam::kWidth, config.width);
    Set(cam::kHeight, config.height);
    Set(cam::kPixelFormat, FindPixelFormat(config.format)->code);
    Set(cam::kTestPattern, static_cast<std::uint32_t>(config.pattern));
    Set(cam::kSensorWidth, config.width);
    Set(cam::kSensorHeight, config.height);
    Set(cam::kFrameCount, std::uint32_t{1});
    Set(cam::kExposureTime, std::bit_cast<std::uint32_t>(5000.0F));
    SetFrameRate(static_cast<float>(config.fps));
}

const CameraMemory::Block* CameraMemory::_Find(std::uint64_t address, std::size_t size) const
{
    const auto holds = [address, size](const Block& block) {
        return address >= block.base && address - block.base <= block.bytes.size() &&
               size <= block.bytes.size() - (address - block.base);
    };
    const auto found = std::find_if(m_blocks.begin(), m_blocks.end(), holds);
    return found == m_blocks.end() ? nullptr : &*found;
}

CameraMemory::Block* CameraMemory::_Find(std::uint64_t address, std::size_t size)
{
    return const_cast<Block*>(std::as_const(*this)._Find(address, size));
}

const std::vector<std::uint8_t>& CameraMemory::DescriptionFile() const
{
    return _Find(kDescriptionBase, 1)->bytes;
}

std::uint16_t CameraMemory::Read(std::uint64_t address, std::uint8_t* data, std::size_t size)
{
    return Peek(address, data, size) ? gencp::kSuccess : gencp::kInvalidAddress;
}

bool CameraMemory::Peek(std::uint64_t address, std::uint8_t* data, std::size_t size)
{
    const Block* block = _Find(address, size);
    if (block == nullptr) {
        return false;
    }
    std::copy_n(block->bytes.data() + (address - block->base), size, data);
    return true;
}

std::uint16_t CameraMemory::Write(std::uint64_t address, const std::uint8_t* data, std::size_t size,
                                  WriteEffects& effects)
{
    const std::uint16_t status = _CheckWrite(address, data, size);
    if (status == gencp::kSuccess) {
        Poke(address, data, size, effects);
    }
    return status;
}

bool CameraMemory::Poke(std::uint64_t address, const std::uint8_t* data, std::size_t size,
                        WriteEffects& effects)
{
    Block* block = _Find(address, size);
    if (block == nullptr) {
        return false;
    }
    std::copy_n(data, size, block->bytes.data() + (address - block->base));
    _React(address, size, effects);
    return true;
}

std::uint16_t CameraMemory::_CheckWrite(std::uint64_t address, const std::uint8_t* data,
                                        std::size_t size) const
{
    const Block* block = _Find(address, size);
    if (block == nullptr) {
        return gencp::kInvalidAddress;
    }
    const bool writable = std::any_of(
        block->writable.begin(), block->writable.end(), [address, size](const Range& range) {
            return address >= range.from && address + size <= range.from + range.size;
        });
    if (!writable) {
        return gencp::kWriteProtect;
    }
    if (block->base == sirm::kBase) {
        return _CheckStreamWrite(address, data, size);
    }
    return block->base == cam::kBase ? _CheckFeatureWrite(address, data, size)
                                     : std::uint16_t{gencp::kSuccess};
}

// The stream's registers are locked while it is enabled, and must fit together to enable it.
std::uint16_t CameraMemory::_CheckStreamWrite(std::uint64_t address, const std::uint8_t* data,
                                              std::size_t size) const
{
    if (address >= sirm::kMaxLeader.address) {
        return StreamEnabled() ? gencp::kWriteProtect : gencp::kSuccess;
    }
    const std::uint32_t control = Overlay(sirm::kControl, Get(sirm::kControl), address, data, size);
    const bool enabling = (control & sirm::kStreamEnable) != 0 && !StreamEnabled();
    return enabling ? _CheckPlan() : std::uint16_t{gencp::kSuccess};
}

std::uint16_t CameraMemory::_CheckPlan() const
{
    const std::uint64_t alignment = Alignment();
    const std::uint64_t transfer = Get(sirm::kTransferSize);
    const std::uint64_t count = Get(sirm::kTransferCount);
    const std::uint64_t final1 = Get(sirm::kFinal1);
    const std::uint64_t final2 = Get(sirm::kFinal2);
    if ((count != 0 && transfer % alignment != 0) || final1 % alignment != 0 ||
        final2 % alignment != 0) {
        return gencp::kPayloadNotAligned;
    }
    const bool fits = transfer * count + final1 + final2 >= Get(sirm::kRequiredPayload) &&
                      Get(sirm::kMaxLeader) >= Get(sirm::kRequiredLeader) &&
                      Get(sirm::kMaxTrailer) >= Get(sirm::kRequiredTrailer);
    return fits ? gencp::kSuccess : gencp::kStreamInconsistent;
}

// The image stays as it is while the stream is enabled, and never becomes one that cannot be made.
std::uint16_t CameraMemory::_CheckFeatureWrite(std::uint64_t address, const std::uint8_t* data,
                                               std::size_t size) const
{
    constexpr Register<std::uint32_t> kLocked[] = {
        cam::kWidth,   cam::kHeight,      cam::kPixelFormat,    cam::kOffsetX,
        cam::kOffsetY, cam::kTestPattern, cam::kAcquisitionMode};
    const auto next = [&](Register<std::uint32_t> reg) {
        return Overlay(reg, Get(reg), address, data, size);
    };
    const bool changesLocked =
        std::any_of(std::begin(kLocked), std::end(kLocked),
                    [&](Register<std::uint32_t> reg) { return next(reg) != Get(reg); });
    if (changesLocked && StreamEnabled()) {
        return gencp::kAccessDenied;
    }
    const auto sideFits = [&](Register<std::uint32_t> side, Register<std::uint32_t> offset,
                              Register<std::uint32_t> sensor) {
        return next(side) != 0 &&
               std::uint64_t{next(side)} + next(offset) <= std::uint64_t{Get(sensor)};
    };
    const bool valid = sideFits(cam::kWidth, cam::kOffsetX, cam::kSensorWidth) &&
                       sideFits(cam::kHeight, cam::kOffsetY, cam::kSensorHeight) &&
                       FindPixelFormat(next(cam::kPixelFormat)) != nullptr &&
                       next(cam::kTestPattern) <= static_cast<std::uint32_t>(Pattern::None);
    const float rate = std::bit_cast<float>(next(cam::kFrameRate));
    return valid && rate >= 0 && rate <= 100000 ? gencp::kSuccess : gencp::kInvalidParameter;
}

void CameraMemory::_React(std::uint64_t address, std::size_t size, WriteEffects& effects)
{
    const auto touched = [address, size](const auto& reg) { return reg.TouchedBy(address, size); };
    if (touched(abrm::kTimestampLatch)) {
        Set(abrm::kTimestamp, NowNs());
        Set(abrm::kTimestampLatch, std::uint32_t{0});
    }
    if (touched(cam::kReset)) {
        effects.reset = Get(cam::kReset) == cam::kResetMagic;
        Set(cam::kReset, std::uint32_t{0});
    }
    if (touched(cam::kTriggerSoftware)) {
        effects.trigger = Get(cam::kTriggerSoftware) != 0;
        Set(cam::kTriggerSoftware, std::uint32_t{0});
    }
    effects.frameRateChanged = touched(cam::kFrameRate);
    effects.streamChanged = touched(sirm::kControl) || touched(cam::kAcquisition) ||
                            effects.trigger || effects.frameRateChanged ||
                            touched(cam::kTriggerMode);
    if (!StreamEnabled()) {
        _RefreshPayload();
    }
}

void CameraMemory::_RefreshPayload()
{
    const ImageGeometry geometry = Geometry();
    Set(cam::kPayloadSize, static_cast<std::uint32_t>(geometry.Payload()));
    Set(sirm::kRequiredPayload, std::uint64_t{geometry.Payload()});
}

std::size_t CameraMemory::Alignment() const
{
    return std::size_t{1} << std::min(Get(sirm::kInfo) >> sirm::kAlignmentShift, 63U);
}

ImageGeometry CameraMemory::Geometry() const
{
    const PixelFormat* format = FindPixelFormat(Get(cam::kPixelFormat));
    // A poked register may hold anything; the camera itself never runs without a format.
    return {std::clamp(Get(cam::kWidth), 1U, 16384U),
            std::clamp(Get(cam::kHeight), 1U, 16384U),
            Get(cam::kOffsetX),
            Get(cam::kOffsetY),
            format == nullptr ? &PixelFormats().front() : format,
            m_payloadExtra};
}

float CameraMemory::FrameRate() const
{
    const float rate = std::bit_cast<float>(Get(cam::kFrameRate));
    return rate > 0 && rate <= 1e6F ? rate : 0;
}

void CameraMemory::SetFrameRate(float rate)
{
    Set(cam::kFrameRate, std::bit_cast<std::uint32_t>(rate));
}

std::uint64_t CameraMemory::NowNs() const
{
    const auto elapsed =
        std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now() - m_start);
    return static_cast<std::uint64_t>(elapsed.count());
}

} // namespace vcam
