// Everything about a virtual camera that can be chosen, and its text form "key=value,key=value".
#ifndef VCAM_CAMERA_CONFIG_H
#define VCAM_CAMERA_CONFIG_H

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vcam {

enum class Pattern : std::uint32_t
{
    Bytes = 0,
    Ramp = 1,
    Scene = 2,
    Still = 3,
    None = 4 // the last one
};

// How long leaders and trailers are on the wire.
enum class Padding : std::uint32_t
{
    Own,       // their own size
    Required,  // padded to the required sizes
    Alignment, // padded to a multiple of the alignment
    All        // and the payload as well
};

// What becomes of a write to the registers that the host programs the stream with.
enum class StreamRegisters : std::uint32_t
{
    Free,
    Fixed,  // refused: they hold values of the camera's own
    Ignored // accepted without effect
};

// How the texts in the registers are written.
enum class TextEncoding : std::uint32_t
{
    Ascii = 0,
    Utf8 = 1,
    Utf16 = 2
};

struct CameraConfig
{
    // Strings in UTF-8; the GUID is 12 upper-case hexadecimal digits.
    std::string guid = "120900000001";
    std::string vendor = "ZRK-ORVANE GmbH";
    std::string model = "Virtual U3V";
    std::string family = "Virtual";
    std::string version = "1.0.0";
    std::string info = "simulated camera";
    std::string serial = "VC000001";
    std::string user;
    TextEncoding encoding = TextEncoding::Ascii; // of the registers

    // Image.
    std::uint32_t width = 640;
    std::uint32_t height = 480;
    std::string format = "Mono8";
    double fps = 0; // 0: an image is ready whenever the host reads
    Pattern pattern = Pattern::Bytes;
    std::uint32_t seed = 1;
    bool drop = false;       // frames that find no room are lost instead of waiting
    std::uint32_t depth = 3; // frames that the camera itself can keep

    // Protocol.
    bool zip = false;
    std::string manifest;              // empty: one entry, as "zip" says
    std::uint32_t descriptionSize = 0; // the description file is at least so long
    bool strict = false;               // a read command's length field must be 12
    bool events = false;               // an event interface between control and stream
    bool multiEvent = false;           // several events in one packet
    std::uint32_t eventLength = 1024;  // maximum event transfer length
    bool highSpeed = false;            // USB 2.0 packets of 512 bytes
    bool superSpeedPlus = false;       // says that it is twice as fast
    bool writtenLength = true;         // write acknowledges tell how much was written
    std::uint32_t alignment = 3;       // exponent: sizes are multiples of 2^alignment
    std::uint32_t leaderSize = 52;     // required sizes; larger ones are padded with zeros
    std::uint32_t trailerSize = 32;
    std::uint32_t payloadExtra = 0; // bytes that the required payload exceeds the image by
    std::uint16_t payloadType = 1;  // of an image without chunks; 0x4000: chunks alone
    bool chunks = false;            // chunk mode is active from the start
    std::uint32_t chunkBytes = 0;   // length of the chunk UserBytes
    bool chunkBytesVary = false;    // that is its greatest length
    std::uint16_t paddingX = 0;     // bytes behind every row
    std::uint32_t offsetX = 0;      // where the image lies on the sensor
    std::uint32_t offsetY = 0;
    std::uint32_t sensorWidth = 0; // 0: as large as the image needs
    std::uint32_t sensorHeight = 0;
    Padding padding = Padding::Required;
    StreamRegisters streamRegisters = StreamRegisters::Free;
    std::uint32_t fixedTransfer = 65536; // payload transfer size of registers that are not free
    bool emptyUnused = true;         // transfers that a short image leaves are sent empty, or not
    std::uint32_t minHeight = 0;     // images have from so many rows to all of them; 0: all
    std::uint64_t firstBlock = 0;    // block id of the first image
    std::uint64_t lastBlock = 0;     // ids start again behind this one; 0: never
    std::uint64_t wrapBlock = 0;     // with this id
    bool keepBlockIds = false;       // ids go on over a stop and start
    bool haltEndsImage = false;      // a cleared halt takes the rest of the image with it
    std::uint32_t maxCommand = 2048; // transfer lengths of the control channel
    std::uint32_t maxAcknowledge = 1024;
    std::uint32_t responseMs = 1000;   // maximum device response time
    std::uint32_t pendingMs = 500;     // time-out that a pending acknowledge asks for
    std::uint32_t pendingDelayMs = 0;  // how long the camera waits after a pending acknowledge
    std::uint32_t accessAlignment = 1; // addresses and lengths of accesses are multiples of it
    std::uint32_t privilege = 0;       // access privilege register
    std::uint32_t rebootMs = 200;      // how long a rebooting camera stays away

    // Life on the bus.
    std::uint64_t unplugAfter = 0; // images; 0: never
    std::uint32_t replugMs = 0;    // comes back so long after; 0: never
    std::uint8_t bus = 2;          // where it is plugged in: bus number,
    std::string port;              // ports from the root on, "1.4"; empty: the next free one
    std::string driver;            // kernel driver that holds its interfaces; empty: none
    std::uint16_t vendorId = 0x1209;
    std::uint16_t productId = 0x0001;
    std::string faults;

    // Changes one value. Returns the reason when key or value are not right.
    std::string Set(std::string_view key, std::string_view value);
    // Applies a whole option text. A word without '=' continues the list of faults before it.
    std::string Apply(std::string_view options);
    // The same camera as the n-th of several: GUID, serial number and seed count on.
    CameraConfig Numbered(std::uint32_t n) const;
};

// "1.4.2" as numbers; empty when it is none, or longer than USB allows.
std::vector<std::uint8_t> ParsePortPath(std::string_view text);

struct OptionName
{
    const char* key;
    const char* meaning;
    bool isSwitch = false; // takes 0 or 1
};

// The keys with a line of explanation each.
std::span<const OptionName> OptionNames();

using OptionList = std::vector<std::pair<std::string, std::string>>;

// Splits "key=value,..." as Apply does. Returns the reason when the text is not of this form.
std::string SplitOptions(std::string_view options, OptionList& list);

} // namespace vcam

#endif
