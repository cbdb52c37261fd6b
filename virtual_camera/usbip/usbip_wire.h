// The records of the USB/IP protocol, version 1.1.1: all fields big-endian.
#ifndef VCAM_USBIP_WIRE_H
#define VCAM_USBIP_WIRE_H

#include <cstddef>
#include <cstdint>

namespace vcam::usbip {

// A field of a record: its offset by value, its width by type.
template <typename T>
struct BigField
{
    std::size_t offset;

    T Load(const std::uint8_t* record) const
    {
        std::uint64_t value = 0;
        for (std::size_t i = 0; i < sizeof(T); ++i) {
            value = value << 8 | record[offset + i];
        }
        return static_cast<T>(value);
    }
    void Store(std::uint8_t* record, T value) const
    {
        for (std::size_t i = 0; i < sizeof(T); ++i) {
            const auto shift = 8 * (sizeof(T) - 1 - i);
            record[offset + i] =
                static_cast<std::uint8_t>(static_cast<std::uint64_t>(value) >> shift);
        }
    }
};

// Requests on a connected device, both directions.
constexpr std::size_t kHeaderSize = 48;
constexpr BigField<std::uint32_t> kCommand{0};
constexpr BigField<std::uint32_t> kSequence{4};
constexpr BigField<std::uint32_t> kDeviceId{8};
constexpr BigField<std::uint32_t> kDirection{12};
constexpr BigField<std::uint32_t> kEndpoint{16};

enum Command : std::uint32_t
{
    kCmdSubmit = 1,
    kCmdUnlink = 2,
    kRetSubmit = 3,
    kRetUnlink = 4,
};
constexpr std::uint32_t kIn = 1;

// Of CMD_SUBMIT.
constexpr BigField<std::uint32_t> kTransferFlags{20};
constexpr BigField<std::uint32_t> kBufferLength{24};
constexpr BigField<std::uint32_t> kPacketCount{32};
constexpr std::size_t kSetup = 40;
constexpr std::uint32_t kShortNotOk = 0x0001; // a flag: a short read is an error

// Of CMD_UNLINK.
constexpr BigField<std::uint32_t> kUnlinkSequence{20};

// Of RET_SUBMIT and RET_UNLINK.
constexpr BigField<std::int32_t> kStatus{20};
constexpr BigField<std::uint32_t> kActualLength{24};

// The opening of a connection to a server.
constexpr std::uint16_t kVersion = 0x0111;
constexpr std::size_t kOperationSize = 8;
constexpr BigField<std::uint16_t> kOpVersion{0};
constexpr BigField<std::uint16_t> kOpCode{2};
constexpr BigField<std::uint32_t> kOpStatus{4};

enum Operation : std::uint16_t
{
    kReqDeviceList = 0x8005,
    kRepDeviceList = 0x0005,
    kReqImport = 0x8003,
    kRepImport = 0x0003,
};

constexpr std::size_t kPathSize = 256;
constexpr std::size_t kBusIdSize = 32;
// What a server says about a device; in the list one record of four bytes per interface follows.
constexpr std::size_t kDeviceSize = 312;
constexpr std::size_t kDevicePath = 0;
constexpr std::size_t kDeviceBusId = 256;
constexpr BigField<std::uint32_t> kBusNumber{288};
constexpr BigField<std::uint32_t> kDeviceNumber{292};
constexpr BigField<std::uint32_t> kSpeed{296};
constexpr BigField<std::uint16_t> kVendorId{300};
constexpr BigField<std::uint16_t> kProductId{302};
constexpr BigField<std::uint16_t> kRelease{304};
constexpr std::size_t kDeviceClass = 306; // class, subclass, protocol: one byte each
constexpr std::size_t kConfigurationValue = 309;
constexpr std::size_t kConfigurationCount = 310;
constexpr std::size_t kInterfaceCount = 311;

// Speeds as the kernel numbers them.
constexpr unsigned kHighSpeed = 3;
constexpr unsigned kSuperSpeed = 5;

} // namespace vcam::usbip

#endif
