#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include <zr_u3v_tl/gentl.h>

// The virtual register maps of the modules' ports, as their register-description documents describe
// them. Dispatch is on the exact address: an address inside a register, or inside the document
// other than its first byte, is not served.

// Where every module serves its document.
inline constexpr uint64_t kDocumentAddress = 0x10000;

namespace TLRegister {
inline constexpr uint64_t kTLVendorName = 0x50000;
inline constexpr uint64_t kTLModelName = 0x50100;
inline constexpr uint64_t kTLID = 0x50200;
inline constexpr uint64_t kTLVersion = 0x50300;
inline constexpr uint64_t kTLPath = 0x50400;
inline constexpr uint64_t kGenTLVersionMajor = 0x50504;
inline constexpr uint64_t kGenTLVersionMinor = 0x50508;
inline constexpr uint64_t kInterfaceUpdateList = 0x5050C;
inline constexpr uint64_t kInterfaceSelector = 0x50510;
inline constexpr uint64_t kInterfaceID = 0x50514;
inline constexpr uint64_t kNrInterfaces = 0x50614;
} // namespace TLRegister

namespace InterfaceRegister {
inline constexpr uint64_t kInterfaceID = 0x60000;
inline constexpr uint64_t kDeviceUpdateList = 0x60104;
inline constexpr uint64_t kDeviceSelector = 0x60108;
inline constexpr uint64_t kDeviceID = 0x6010C;
inline constexpr uint64_t kDeviceVendorName = 0x6020C;
inline constexpr uint64_t kDeviceModelName = 0x6030C;
inline constexpr uint64_t kDeviceAccessStatus = 0x6040C;
inline constexpr uint64_t kNrDevices = 0x60410;
} // namespace InterfaceRegister

namespace DeviceRegister {
inline constexpr uint64_t kDeviceID = 0x70000;
inline constexpr uint64_t kDeviceVendorName = 0x70100;
inline constexpr uint64_t kDeviceModelName = 0x70200;
inline constexpr uint64_t kDeviceAccessStatus = 0x70300;
inline constexpr uint64_t kStreamSelector = 0x70304;
inline constexpr uint64_t kStreamID = 0x70308;
inline constexpr uint64_t kNrStreams = 0x70408;
inline constexpr uint64_t kUpdateXMLFile = 0x7041C;
inline constexpr uint64_t kUpdateXML = 0x7052C;
// Bytes of UpdateXMLFile.
inline constexpr size_t kUpdateXMLFileLength = 512;
} // namespace DeviceRegister

namespace StreamRegister {
inline constexpr uint64_t kStreamID = 0x80000;
inline constexpr uint64_t kStreamAnnouncedBufferCount = 0x80100;
inline constexpr uint64_t kStreamBufferHandlingMode = 0x80104;
inline constexpr uint64_t kStreamAnnounceBufferMinimum = 0x80108;
inline constexpr uint64_t kStreamDeliveredFrameCount = 0x8010C;
} // namespace StreamRegister

// How long an update-list register lets an update run, in ms.
inline constexpr uint64_t kRegisterUpdateTimeout = 5000;

// A module's register-description document: its file name, text and the URL that announces it.
class ZrRegisterDocument
{
public:
    ZrRegisterDocument(const std::string& fileName, const std::string& text);

    // "local:" file name ";" address ";" length, both in upper-case hexadecimal.
    const std::string& GetUrl() const { return m_url; }

    // Copies min(*size, document length) bytes from the start; *size stays as it is.
    GC_ERROR Read(void* buffer, const size_t* size) const;

private:
    const std::string m_text;
    const std::string m_url;
};

// Hands a register's value out by the information-copy rule, without a type.
GC_ERROR ReadRegister(std::string_view value, void* buffer, size_t* size);
GC_ERROR ReadRegister(uint32_t value, void* buffer, size_t* size);
GC_ERROR ReadRegister(uint64_t value, void* buffer, size_t* size);

// The first four bytes that a consumer wrote, little-endian. Fewer than four are taken as far as
// they go, the rest reads as zero: nothing beyond the consumer's `size` is touched.
uint32_t WrittenRegister(const void* buffer, const size_t* size);

// Sets a module's update-in-progress flag for a scope, through `set` (which takes the module's lock
// for the change): the update itself runs without the lock, so that a reader of the register sees
// it in progress.
template <class Set>
class UpdateInProgress
{
public:
    explicit UpdateInProgress(Set set) : m_set(set) { m_set(uint8_t{1}); }
    ~UpdateInProgress() { m_set(uint8_t{0}); }
    UpdateInProgress(const UpdateInProgress&) = delete;
    UpdateInProgress& operator=(const UpdateInProgress&) = delete;

private:
    Set m_set;
};
