// Where everything lies: the bootstrap registers of the USB3 Vision standard, the camera's own
// registers, and the packets of the control and streaming protocols. All little-endian.
#ifndef VCAM_CAMERA_LAYOUT_H
#define VCAM_CAMERA_LAYOUT_H

#include "little_endian.h"

namespace vcam {

// Technology-independent bootstrap registers. Strings are 64 bytes, zero-padded.
namespace abrm {
constexpr std::uint64_t kBase = 0;
constexpr std::uint64_t kSize = 0x10000; // what is not listed reads as zero
constexpr std::size_t kStringSize = 64;
constexpr Register<std::uint32_t> kGenCPVersion{0x000};
constexpr std::uint64_t kManufacturer = 0x004;
constexpr std::uint64_t kModel = 0x044;
constexpr std::uint64_t kFamily = 0x084;
constexpr std::uint64_t kDeviceVersion = 0x0C4;
constexpr std::uint64_t kManufacturerInfo = 0x104;
constexpr std::uint64_t kSerialNumber = 0x144;
constexpr std::uint64_t kUserDefinedName = 0x184;
constexpr Register<std::uint64_t> kDeviceCapability{0x1C4};
constexpr Register<std::uint32_t> kMaxResponseTime{0x1CC};
constexpr Register<std::uint64_t> kManifestAddress{0x1D0};
constexpr Register<std::uint64_t> kSbrmAddress{0x1D8};
constexpr Register<std::uint64_t> kDeviceConfiguration{0x1E0};
constexpr Register<std::uint32_t> kHeartbeatTimeout{0x1E8};
constexpr Register<std::uint32_t> kMessageChannel{0x1EC};
constexpr Register<std::uint64_t> kTimestamp{0x1F0};
constexpr Register<std::uint32_t> kTimestampLatch{0x1F8};
constexpr Register<std::uint64_t> kTimestampIncrement{0x1FC};
constexpr Register<std::uint32_t> kAccessPrivilege{0x204};
constexpr Register<std::uint32_t> kProtocolEndianness{0x208};
constexpr Register<std::uint32_t> kImplementationEndianness{0x20C};
} // namespace abrm

// USB3 Vision bootstrap registers.
namespace sbrm {
constexpr std::uint64_t kBase = 0x10000;
constexpr std::uint64_t kSize = 0x1000;
constexpr Register<std::uint32_t> kU3VVersion{kBase + 0x00};
constexpr Register<std::uint64_t> kCapability{kBase + 0x04};
constexpr Register<std::uint64_t> kConfiguration{kBase + 0x0C};
constexpr Register<std::uint32_t> kMaxCommand{kBase + 0x14};
constexpr Register<std::uint32_t> kMaxAcknowledge{kBase + 0x18};
constexpr Register<std::uint32_t> kStreamChannels{kBase + 0x1C};
constexpr Register<std::uint64_t> kSirmAddress{kBase + 0x20};
constexpr Register<std::uint32_t> kSirmLength{kBase + 0x28};
constexpr Register<std::uint64_t> kEirmAddress{kBase + 0x2C};
constexpr Register<std::uint32_t> kEirmLength{kBase + 0x34};
constexpr Register<std::uint64_t> kIidc2Address{kBase + 0x38};
constexpr Register<std::uint32_t> kCurrentSpeed{kBase + 0x40};
constexpr std::uint64_t kHasSirm = 1U << 0; // capabilities
constexpr std::uint64_t kHasEirm = 1U << 1;
} // namespace sbrm

// Streaming interface registers.
namespace sirm {
constexpr std::uint64_t kBase = 0x20000;
constexpr std::uint32_t kLength = 0x30;
constexpr Register<std::uint32_t> kInfo{kBase + 0x00};
constexpr Register<std::uint32_t> kControl{kBase + 0x04};
constexpr Register<std::uint64_t> kRequiredPayload{kBase + 0x08};
constexpr Register<std::uint32_t> kRequiredLeader{kBase + 0x10};
constexpr Register<std::uint32_t> kRequiredTrailer{kBase + 0x14};
constexpr Register<std::uint32_t> kMaxLeader{kBase + 0x18};
constexpr Register<std::uint32_t> kTransferSize{kBase + 0x1C};
constexpr Register<std::uint32_t> kTransferCount{kBase + 0x20};
constexpr Register<std::uint32_t> kFinal1{kBase + 0x24};
constexpr Register<std::uint32_t> kFinal2{kBase + 0x28};
constexpr Register<std::uint32_t> kMaxTrailer{kBase + 0x2C};
constexpr std::uint32_t kStreamEnable = 1;
constexpr unsigned kAlignmentShift = 24;
} // namespace sirm

// Event interface registers.
namespace eirm {
constexpr std::uint64_t kBase = 0x28000;
constexpr std::uint32_t kLength = 0x0C;
constexpr Register<std::uint32_t> kControl{kBase + 0x00};
constexpr Register<std::uint32_t> kMaxLength{kBase + 0x04};
constexpr Register<std::uint32_t> kTest{kBase + 0x08};
constexpr std::uint32_t kEventEnable = 1;
} // namespace eirm

// Manifest table: an entry count, then entries of 64 bytes.
namespace manifest {
constexpr std::uint64_t kBase = 0x30000;
constexpr std::uint64_t kFirstEntry = kBase + 8;
constexpr std::size_t kEntrySize = 64;
constexpr Field<std::uint32_t> kFileVersion{0};
constexpr Field<std::uint32_t> kFormat{4};
constexpr Field<std::uint64_t> kAddress{8};
constexpr Field<std::uint64_t> kFileSize{16};
constexpr std::size_t kSha1 = 24;
constexpr std::uint32_t kZipBit = 1U << 10;
constexpr std::uint32_t kNoFormat = 5U << 10;
constexpr std::uint32_t kBufferXml = 1; // a file type that is no device description
} // namespace manifest

// The camera's own registers, which the description file names.
namespace cam {
constexpr std::uint64_t kBase = 0x50000;
constexpr std::uint64_t kSize = 0x1000;
constexpr Register<std::uint32_t> kWidth{kBase + 0x00};
constexpr Register<std::uint32_t> kHeight{kBase + 0x04};
constexpr Register<std::uint32_t> kPixelFormat{kBase + 0x08};
constexpr Register<std::uint32_t> kPayloadSize{kBase + 0x0C};
constexpr Register<std::uint32_t> kAcquisitionMode{kBase + 0x10};
constexpr Register<std::uint32_t> kAcquisition{kBase + 0x14};
constexpr Register<std::uint32_t> kReset{kBase + 0x18};
constexpr Register<std::uint32_t> kOffsetX{kBase + 0x1C};
constexpr Register<std::uint32_t> kOffsetY{kBase + 0x20};
constexpr Register<std::uint32_t> kFrameRate{kBase + 0x24}; // IEEE 754 single
constexpr Register<std::uint32_t> kTestPattern{kBase + 0x28};
constexpr Register<std::uint32_t> kSensorWidth{kBase + 0x2C};
constexpr Register<std::uint32_t> kSensorHeight{kBase + 0x30};
constexpr Register<std::uint32_t> kFrameCount{kBase + 0x34};
constexpr Register<std::uint32_t> kExposureTime{kBase + 0x38}; // IEEE 754 single
constexpr Register<std::uint32_t> kGain{kBase + 0x3C};         // IEEE 754 single
constexpr Register<std::uint32_t> kChunkModeActive{kBase + 0x100};
constexpr Register<std::uint32_t> kChunkSelector{kBase + 0x104};
constexpr Register<std::uint32_t> kChunkUserBytes{kBase + 0x108};
constexpr std::uint32_t kMaxChunkBytes = 65536;
constexpr Register<std::uint32_t> ChunkEnable(std::uint32_t chunk)
{
    return {kBase + 0x110 + 4ULL * chunk};
}
constexpr Register<std::uint32_t> kEventSelector{kBase + 0x140};
constexpr Register<std::uint32_t> EventNotification(std::uint32_t event)
{
    return {kBase + 0x144 + 4ULL * event};
}
constexpr Register<std::uint32_t> kTriggerMode{kBase + 0x1EC};
constexpr Register<std::uint32_t> kTriggerSource{kBase + 0x1F0};
constexpr Register<std::uint32_t> kTriggerSoftware{kBase + 0x1F4};
constexpr std::uint32_t kResetMagic = 0xAFFE;
} // namespace cam

// Plain read/write memory without meaning: room for look-up tables or a user's notes.
constexpr std::uint64_t kUserMemoryBase = 0x60000;
constexpr std::uint64_t kUserMemorySize = 0x2000;
constexpr std::uint64_t kDescriptionBase = 0x100000;
constexpr std::uint64_t kDescriptionStride = 0x2000000; // to the next file

namespace gencp {
constexpr std::uint32_t kPrefix = 0x43563355; // "U3VC"
constexpr Field<std::uint32_t> kPrefixField{0};
constexpr Field<std::uint16_t> kFlags{4};  // of a command
constexpr Field<std::uint16_t> kStatus{4}; // of an acknowledge
constexpr Field<std::uint16_t> kCommand{6};
constexpr Field<std::uint16_t> kLength{8};
constexpr Field<std::uint16_t> kRequestId{10};
constexpr std::size_t kHeaderSize = 12;
constexpr Field<std::uint64_t> kAddress{12};
constexpr Field<std::uint16_t> kReadCount{22};
constexpr std::size_t kReadCommandSize = 24;
constexpr std::size_t kReadLength = 12;
constexpr std::size_t kWriteData = 20;
constexpr Field<std::uint16_t> kWrittenLength{14};
constexpr Field<std::uint16_t> kPendingTimeout{14};
constexpr std::uint16_t kRequestAck = 0x4000;
constexpr std::uint16_t kResend = 0x8000;
constexpr std::uint16_t kReadMem = 0x0800;
constexpr std::uint16_t kWriteMem = 0x0802;
constexpr std::uint16_t kPendingAck = 0x0805;

enum Status : std::uint16_t
{
    kSuccess = 0x0000,
    kNotImplemented = 0x8001,
    kInvalidParameter = 0x8002,
    kInvalidAddress = 0x8003,
    kWriteProtect = 0x8004,
    kBadAlignment = 0x8005,
    kAccessDenied = 0x8006,
    kInvalidHeader = 0x800E,
    kResendNotSupported = 0xA001,
    kPayloadNotAligned = 0xA003,
    kStreamInconsistent = 0xA004,
};
} // namespace gencp

namespace event {
constexpr std::uint32_t kPrefix = 0x45563355; // "U3VE"
constexpr std::uint16_t kCommand = 0x0C00;
// An item behind the header: reserved, or its size where a packet can carry several.
constexpr Field<std::uint16_t> kItemSize{0};
constexpr Field<std::uint16_t> kId{2};
constexpr Field<std::uint64_t> kTimestamp{4};
constexpr std::size_t kItemHeaderSize = 12;
} // namespace event

namespace stream {
constexpr std::uint32_t kLeaderMagic = 0x4C563355;  // "U3VL"
constexpr std::uint32_t kTrailerMagic = 0x54563355; // "U3VT"
constexpr std::uint16_t kImagePayload = 0x0001;
constexpr std::uint16_t kGenDCPayload = 0x000B;
constexpr std::uint16_t kChunkPayload = 0x4000;      // chunks alone
constexpr std::uint16_t kImageChunkPayload = 0x4001; // an image and chunks behind it
constexpr Field<std::uint32_t> kMagic{0};
constexpr Field<std::uint16_t> kSize{6};
constexpr Field<std::uint64_t> kBlockId{8};
constexpr Field<std::uint16_t> kPayloadType{18};
constexpr Field<std::uint64_t> kTimestamp{20};
constexpr Field<std::uint32_t> kPixelFormat{28};
constexpr Field<std::uint32_t> kSizeX{32};
constexpr Field<std::uint32_t> kSizeY{36};
constexpr Field<std::uint32_t> kOffsetX{40};
constexpr Field<std::uint32_t> kOffsetY{44};
constexpr Field<std::uint16_t> kPaddingX{48};
constexpr std::size_t kBareLeaderSize = 28; // ends with the time stamp
constexpr std::size_t kLeaderSize = 52;
constexpr Field<std::uint16_t> kTrailerStatus{16};
constexpr Field<std::uint64_t> kValidPayload{20};
constexpr Field<std::uint32_t> kTrailerSizeY{28};
constexpr std::size_t kBareTrailerSize = 28; // ends with the valid size
constexpr std::size_t kTrailerSize = 32;
constexpr std::size_t kChunkTrailerSize = 36;
constexpr Field<std::uint32_t> kLayoutId{28};      // of chunks alone
constexpr Field<std::uint32_t> kImageLayoutId{32}; // of chunks behind an image
constexpr std::uint16_t kDataDiscarded = 0xA100;
} // namespace stream

// GenDC containers.
namespace gendc {
constexpr std::uint32_t kSignatureValue = 0x43444E47; // "GNDC"
constexpr std::uint32_t kVersion11 = 0x00000101;      // 1.1.0, major first
constexpr std::uint16_t kContainerType = 0x1000;
constexpr std::uint16_t kComponentType = 0x2000;
constexpr std::uint16_t kPart2DType = 0x4200;
constexpr std::uint64_t kIntensity = 1;
// The container's own header.
constexpr Field<std::uint32_t> kSignature{0};
constexpr Field<std::uint32_t> kVersion{4};
constexpr Field<std::uint16_t> kHeaderType{8};
constexpr Field<std::uint32_t> kHeaderSize{12};
constexpr Field<std::uint64_t> kContainerId{16};
constexpr Field<std::uint64_t> kDataSize{32};
constexpr Field<std::uint64_t> kDataStart{40};
constexpr Field<std::uint32_t> kDescriptorSize{48};
constexpr Field<std::uint32_t> kComponentCount{52};
constexpr Field<std::uint64_t> kComponentOffset{56};
constexpr std::size_t kContainerSize = 64; // with one component
// Components and parts.
constexpr Field<std::uint16_t> kType{0};
constexpr Field<std::uint32_t> kSize{4};
constexpr Field<std::uint32_t> kRegionX{16};
constexpr Field<std::uint32_t> kRegionY{20};
constexpr Field<std::uint64_t> kTimestamp{24};
constexpr Field<std::uint64_t> kTypeId{32};
constexpr Field<std::uint32_t> kComponentFormat{40};
constexpr Field<std::uint16_t> kPartCount{46};
constexpr Field<std::uint64_t> kPartOffset{48};
constexpr std::size_t kComponentSize = 56; // with one part
constexpr Field<std::uint32_t> kPartFormat{8};
constexpr Field<std::uint64_t> kPartDataSize{24};
constexpr Field<std::uint64_t> kPartDataOffset{32};
constexpr Field<std::uint32_t> kDimensionX{40};
constexpr Field<std::uint32_t> kDimensionY{44};
constexpr Field<std::uint16_t> kPartPaddingX{48};
constexpr std::size_t kPartSize = 56;
constexpr std::size_t kAllHeaders = kContainerSize + kComponentSize + kPartSize;
constexpr std::size_t kDataOffset = 256; // of the pixels
} // namespace gendc

} // namespace vcam

#endif
