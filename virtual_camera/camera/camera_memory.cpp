#include "camera_memory.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "camera_events.h"
#include "description_file.h"
#include "sha1.h"
#include "utf16.h"
#include "zip_writer.h"

namespace vcam {

namespace {

constexpr std::uint32_t kVersion10 = 0x00010000; // major << 16 | minor
constexpr std::uint32_t kSuperSpeed = 1U << 3;
constexpr std::uint32_t kSuperSpeedPlus = 1U << 4;
constexpr std::uint32_t kHighSpeed = 1U << 2;

std::uint64_t Capability(const CameraConfig& config)
{
    constexpr std::uint64_t kUserName = 1U << 0;
    constexpr std::uint64_t kPrivilege = 1U << 1;
    constexpr std::uint64_t kTimestamp = 1U << 3;
    constexpr unsigned kEncodingShift = 4;
    constexpr std::uint64_t kFamily = 1U << 8;
    constexpr std::uint64_t kSbrm = 1U << 9;
    constexpr std::uint64_t kEndianness = 1U << 10;
    constexpr std::uint64_t kWrittenLength = 1U << 11;
    constexpr std::uint64_t kMultiEvent = 1U << 12;
    return kUserName | kPrivilege | kTimestamp | kFamily | kSbrm | kEndianness |
           (config.writtenLength ? kWrittenLength : 0) | (config.multiEvent ? kMultiEvent : 0) |
           static_cast<std::uint64_t>(config.encoding) << kEncodingShift;
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
    : m_config(config), m_start(Clock::now())
{
    _AddBootstrap(config);
    _AddU3V(config, faults);
    _AddStream(config);
    _AddEvents(config);
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
    std::uint8_t* at = block->bytes.data() + (address - block->base);
    if (m_config.encoding != TextEncoding::Utf16) {
        std::copy_n(text.begin(), std::min(text.size(), abrm::kStringSize - 1), at);
        return;
    }
    const std::u16string wide = ToUtf16(text).substr(0, abrm::kStringSize / 2 - 1);
    for (std::size_t i = 0; i < wide.size(); ++i) {
        StoreLe(at + 2 * i, static_cast<std::uint16_t>(wide[i]));
    }
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

void CameraMemory::_AddU3V(const CameraConfig& config, const FaultPlan& faults)
{
    m_blocks.push_back({sbrm::kBase, std::vector<std::uint8_t>(sbrm::kSize), {}});
    Set(sbrm::kU3VVersion, kVersion10);
    Set(sbrm::kMaxCommand, config.maxCommand);
    Set(sbrm::kMaxAcknowledge, config.maxAcknowledge);
    const std::uint32_t fast = config.superSpeedPlus ? kSuperSpeedPlus : kSuperSpeed;
    Set(sbrm::kCurrentSpeed, config.highSpeed ? kHighSpeed : fast);
    const bool hasSirm = faults.Find("no-sirm") == nullptr;
    const bool hasEirm = config.events && faults.Find("no-eirm") == nullptr;
    Set(sbrm::kCapability, (hasSirm ? sbrm::kHasSirm : 0) | (hasEirm ? sbrm::kHasEirm : 0));
    if (hasEirm) {
        Set(sbrm::kEirmAddress, eirm::kBase);
        Set(sbrm::kEirmLength, eirm::kLength);
    }
    if (hasSirm) {
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

void CameraMemory::_AddEvents(const CameraConfig& config)
{
    if (!config.events) {
        return;
    }
    m_blocks.push_back({eirm::kBase,
                        std::vector<std::uint8_t>(0x1000),
                        {{eirm::kControl.address, 4}, {eirm::kTest.address, 4}}});
    Set(eirm::kMaxLength, config.eventLength);
}

void CameraMemory::_AddManifest(const CameraConfig& config, const FaultPlan& faults)
{
    ManifestEntry usual;
    usual.zip = config.zip;
    std::vector<ManifestEntry> entries{usual};
    if (!config.manifest.empty()) {
        entries = *ParseManifest(config.manifest); // checked when it was set
    }
    if (entries.empty()) {
        Set(abrm::kManifestAddress, std::uint64_t{0});
        entries.push_back(usual); // nobody is told of it
    }
    const bool sizeZero = faults.Find("manifest-size-zero") != nullptr;
    for (std::size_t i = 0; i < entries.size(); ++i) {
        entries[i].empty = entries[i].empty || sizeZero;
        _AddDescription(i, entries[i]);
    }
    m_blocks.push_back({manifest::kBase, std::vector<std::uint8_t>(0x1000), {}});
    const Fault* fault = faults.Find("manifest-entries");
    const auto usualCount = static_cast<std::int64_t>(entries.size());
    const std::int64_t count = fault == nullptr ? usualCount : fault->Value(0);
    Set(Register<std::uint64_t>{manifest::kBase}, static_cast<std::uint64_t>(count));
    const auto present = static_cast<std::size_t>(std::clamp<std::int64_t>(count, 1, 60));
    for (std::size_t i = 0; i < present; ++i) {
        const std::size_t file = i < entries.size() ? i : 0;
        _PutManifestEntry(i, file, entries[file]);
    }
}

void CameraMemory::_AddDescription(std::size_t index, const ManifestEntry& entry)
{
    std::string text = DescriptionXml(m_config, entry);
    text.resize(std::max<std::size_t>(text.size(), m_config.descriptionSize), '\n');
    std::vector<std::uint8_t> file(text.begin(), text.end());
    if (entry.zip) {
        file = ZipArchive(DescriptionName(m_config), file);
    }
    m_blocks.push_back({kDescriptionBase + index * kDescriptionStride, std::move(file), {}});
}

void CameraMemory::_PutManifestEntry(std::size_t place, std::size_t file,
                                     const ManifestEntry& entry)
{
    Block* block =
        _Find(manifest::kFirstEntry + place * manifest::kEntrySize, manifest::kEntrySize);
    std::uint8_t* at = block->bytes.data() + 8 + place * manifest::kEntrySize;
    const auto version = [](const FileVersion& v) {
        return std::uint32_t{v.major} << 24 | std::uint32_t{v.minor} << 16;
    };
    std::uint32_t format = version(entry.schema) | (entry.zip ? manifest::kZipBit : 0);
    format |= (entry.wrongType ? manifest::kBufferXml : 0) |
              (entry.wrongFormat ? manifest::kNoFormat : 0);
    constexpr std::uint64_t kNowhere = 0xFFFFFFFF00000000ULL;
    constexpr std::uint64_t kHuge = 1ULL << 62;
    const std::vector<std::uint8_t>& bytes = _DescriptionFile(file);
    const std::uint64_t address = kDescriptionBase + file * kDescriptionStride;
    manifest::kFileVersion.Store(at, version(entry.file) | entry.file.subMinor);
    manifest::kFormat.Store(at, format);
    manifest::kAddress.Store(at, entry.nowhere ? kNowhere : address);
    manifest::kFileSize.Store(at, entry.empty ? 0 : entry.huge ? kHuge : bytes.size());
    if (entry.hash) {
        auto digest = Sha1(bytes);
        digest[0] = static_cast<std::uint8_t>(digest[0] ^ (entry.wrongHash ? 1 : 0));
        std::copy(digest.begin(), digest.end(), at + manifest::kSha1);
    }
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
                         {cam::kChunkModeActive.address, 12},
                         {cam::ChunkEnable(1).address, std::uint64_t{4} * (kChunkCount - 1)},
                         {cam::kEventSelector.address, 4 + std::uint64_t{4} * kEventCount},
                         {cam::kTriggerMode.address, 12}}});
    Set(cam::kWidth, config.width);
    Set(cam::kHeight, config.height);
    Set(cam::kPixelFormat, FindPixelFormat(config.format)->code);
    Set(cam::kTestPattern, static_cast<std::uint32_t>(config.pattern));
    Set(cam::kOffsetX, config.offsetX);
    Set(cam::kOffsetY, config.offsetY);
    Set(cam::kSensorWidth, std::max(config.sensorWidth, config.width + config.offsetX));
    Set(cam::kSensorHeight, std::max(config.sensorHeight, config.height + config.offsetY));
    Set(cam::kChunkModeActive, config.chunks ? 1U : 0U);
    Set(cam::kChunkUserBytes, config.chunkBytes);
    for (std::uint32_t i = 0; i < kChunkCount; ++i) {
        const bool isUserBytes = i == static_cast<std::uint32_t>(Chunk::UserBytes);
        Set(cam::ChunkEnable(i), isUserBytes && config.chunkBytes == 0 ? 0U : 1U);
    }
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
    return _DescriptionFile(0);
}

const std::vector<std::uint8_t>& CameraMemory::_DescriptionFile(std::size_t index) const
{
    return _Find(kDescriptionBase + index * kDescriptionStride, 1)->bytes;
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
        const bool isFixed = m_config.streamRegisters == StreamRegisters::Fixed;
        return isFixed || StreamEnabled() ? gencp::kWriteProtect : gencp::kSuccess;
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
        cam::kWidth,           cam::kHeight,          cam::kPixelFormat,
        cam::kOffsetX,         cam::kOffsetY,         cam::kTestPattern,
        cam::kAcquisitionMode, cam::kChunkModeActive, cam::kChunkUserBytes};
    const auto next = [&](Register<std::uint32_t> reg) {
        return Overlay(reg, Get(reg), address, data, size);
    };
    const auto changes = [&](Register<std::uint32_t> reg) { return next(reg) != Get(reg); };
    bool changesLocked = std::any_of(std::begin(kLocked), std::end(kLocked), changes);
    for (std::uint32_t i = 0; i < kChunkCount; ++i) {
        changesLocked = changesLocked || changes(cam::ChunkEnable(i));
    }
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
                       next(cam::kChunkSelector) < kChunkCount &&
                       next(cam::kEventSelector) < kEventCount &&
                       next(cam::kChunkUserBytes) <= cam::kMaxChunkBytes &&
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
    if (touched(eirm::kTest)) {
        effects.testEvent = Get(eirm::kTest) != 0;
        Set(eirm::kTest, std::uint32_t{0});
    }
    effects.eventsChanged = touched(eirm::kControl);
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
    const PayloadForm form = Form();
    const std::size_t payload = form.LargestSize(Geometry());
    const auto atLeast = [](std::uint32_t size, std::size_t least) {
        return std::max(size, static_cast<std::uint32_t>(least));
    };
    Set(cam::kPayloadSize, static_cast<std::uint32_t>(payload));
    Set(sirm::kRequiredPayload, std::uint64_t{payload});
    Set(sirm::kRequiredLeader, atLeast(m_config.leaderSize, form.LeaderSize()));
    Set(sirm::kRequiredTrailer, atLeast(m_config.trailerSize, form.TrailerSize()));
    if (m_config.streamRegisters != StreamRegisters::Free) {
        _FixStreamRegisters();
    }
}

std::size_t CameraMemory::Alignment() const
{
    return std::size_t{1} << std::min(Get(sirm::kInfo) >> sirm::kAlignmentShift, 63U);
}

// A plan of the camera's own for the present payload.
void CameraMemory::_FixStreamRegisters()
{
    const std::uint64_t alignment = Alignment();
    const auto aligned = [alignment](std::uint64_t size) {
        return static_cast<std::uint32_t>((size + alignment - 1) / alignment * alignment);
    };
    const std::uint64_t payload = Get(sirm::kRequiredPayload);
    const std::uint32_t transfer = std::max(aligned(m_config.fixedTransfer), 1U);
    Set(sirm::kMaxLeader, aligned(Get(sirm::kRequiredLeader)));
    Set(sirm::kMaxTrailer, aligned(Get(sirm::kRequiredTrailer)));
    Set(sirm::kTransferSize, transfer);
    Set(sirm::kTransferCount, static_cast<std::uint32_t>(payload / transfer));
    Set(sirm::kFinal1, aligned(payload % transfer));
    Set(sirm::kFinal2, std::uint32_t{0});
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
            m_config.payloadExtra,
            m_config.paddingX};
}

PayloadForm CameraMemory::Form() const
{
    PayloadForm form;
    const bool chunksOn = Get(cam::kChunkModeActive) != 0;
    const bool isImage = m_config.payloadType == stream::kImagePayload;
    form.type = isImage && chunksOn ? stream::kImageChunkPayload : m_config.payloadType;
    for (std::uint32_t i = 0; i < kChunkCount; ++i) {
        const bool enabled = Get(cam::ChunkEnable(i)) != 0;
        form.chunks |= enabled ? 1U << i : 0;
    }
    form.userBytes = std::min(Get(cam::kChunkUserBytes), cam::kMaxChunkBytes);
    form.userBytesVary = m_config.chunkBytesVary;
    form.exposureBits = Get(cam::kExposureTime);
    return form;
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
