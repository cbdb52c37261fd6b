#include "camera_config.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <limits>

#include "camera_layout.h"
#include "fault_plan.h"
#include "manifest.h"
#include "pixel_format.h"

namespace vcam {

namespace {

constexpr std::uint32_t kMaxSide = 16384;
constexpr std::size_t kMaxString = 63; // register strings end with a zero

template <typename T>
bool ToNumber(std::string_view text, T& number)
{
    const bool hexadecimal = text.starts_with("0x");
    text.remove_prefix(hexadecimal ? 2 : 0);
    T value{};
    const auto [end, error] =
        std::from_chars(text.data(), text.data() + text.size(), value, hexadecimal ? 16 : 10);
    if (error != std::errc() || end != text.data() + text.size()) {
        return false;
    }
    number = value;
    return true;
}

template <typename T>
bool InRange(std::string_view text, T& number, T low, T high)
{
    T value{};
    if (!ToNumber(text, value) || value < low || value > high) {
        return false;
    }
    number = value;
    return true;
}

bool ToFlag(std::string_view text, bool& flag)
{
    const bool yes = text == "1" || text == "yes" || text == "on";
    const bool no = text == "0" || text == "no" || text == "off";
    flag = yes;
    return yes || no;
}

bool ToRate(std::string_view text, double& rate)
{
    const std::string copy(text);
    char* end = nullptr;
    const double value = std::strtod(copy.c_str(), &end);
    if (copy.empty() || *end != '\0' || !(value >= 0 && value <= 100000)) {
        return false;
    }
    rate = value;
    return true;
}

int HexDigit(char c)
{
    const std::string_view digits = "0123456789abcdef";
    const std::size_t at =
        digits.find(static_cast<char>(std::tolower(static_cast<unsigned char>(c))));
    return at == std::string_view::npos ? -1 : static_cast<int>(at);
}

// "%41" is 'A': any byte can be written, also what a camera ought not to have in a text.
bool ToString(std::string_view text, std::string& target)
{
    std::string plain;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool isCode = text[i] == '%' && i + 2 < text.size() && HexDigit(text[i + 1]) >= 0 &&
                            HexDigit(text[i + 2]) >= 0;
        if (isCode) {
            plain += static_cast<char>(HexDigit(text[i + 1]) * 16 + HexDigit(text[i + 2]));
            i += 2;
        } else if (static_cast<unsigned char>(text[i]) < ' ' || text[i] == 0x7F) {
            return false;
        } else {
            plain += text[i];
        }
    }
    target = plain;
    return plain.size() <= kMaxString;
}

bool ToPort(std::string_view text, std::string& port)
{
    port = text;
    return text.empty() || !ParsePortPath(text).empty();
}

bool ToFormat(std::string_view text, std::string& format)
{
    format = text;
    return FindPixelFormat(text) != nullptr;
}

template <typename T>
using Choices = std::span<const std::pair<std::string_view, T>>;

template <typename T>
bool Choose(std::string_view text, T& target, Choices<T> choices)
{
    const auto found = std::find_if(choices.begin(), choices.end(),
                                    [text](const auto& choice) { return choice.first == text; });
    if (found != choices.end()) {
        target = found->second;
    }
    return found != choices.end();
}

bool ToPattern(std::string_view text, Pattern& pattern)
{
    constexpr std::pair<std::string_view, Pattern> kPatterns[] = {{"bytes", Pattern::Bytes},
                                                                  {"ramp", Pattern::Ramp},
                                                                  {"scene", Pattern::Scene},
                                                                  {"still", Pattern::Still},
                                                                  {"none", Pattern::None}};
    return Choose<Pattern>(text, pattern, kPatterns);
}

bool ToPadding(std::string_view text, Padding& padding)
{
    constexpr std::pair<std::string_view, Padding> kPaddings[] = {{"own", Padding::Own},
                                                                  {"required", Padding::Required},
                                                                  {"alignment", Padding::Alignment},
                                                                  {"all", Padding::All}};
    return Choose<Padding>(text, padding, kPaddings);
}

bool ToPayloadType(std::string_view text, std::uint16_t& type)
{
    constexpr std::pair<std::string_view, std::uint16_t> kTypes[] = {
        {"image", stream::kImagePayload},
        {"chunk", stream::kChunkPayload},
        {"gendc", stream::kGenDCPayload}};
    return Choose<std::uint16_t>(text, type, kTypes) || ToNumber(text, type);
}

bool ToStreamRegisters(std::string_view text, StreamRegisters& registers)
{
    constexpr std::pair<std::string_view, StreamRegisters> kKinds[] = {
        {"free", StreamRegisters::Free},
        {"fixed", StreamRegisters::Fixed},
        {"ignored", StreamRegisters::Ignored}};
    return Choose<StreamRegisters>(text, registers, kKinds);
}

bool ToManifest(std::string_view text, std::string& manifest)
{
    manifest = text;
    return text.empty() || ParseManifest(text).has_value();
}

bool ToEncoding(std::string_view text, TextEncoding& encoding)
{
    constexpr std::pair<std::string_view, TextEncoding> kEncodings[] = {
        {"ascii", TextEncoding::Ascii},
        {"utf8", TextEncoding::Utf8},
        {"utf16", TextEncoding::Utf16}};
    return Choose<TextEncoding>(text, encoding, kEncodings);
}

bool ToUnused(std::string_view text, bool& empty)
{
    constexpr std::pair<std::string_view, bool> kWays[] = {{"empty", true}, {"omitted", false}};
    return Choose<bool>(text, empty, kWays);
}

bool ToFaults(std::string_view text, std::string& faults)
{
    faults = text;
    return FaultPlan().Parse(text).empty();
}

using Config = CameraConfig;
using Text = std::string_view;

template <auto Member>
bool SetString(Config& c, Text v)
{
    return ToString(v, c.*Member);
}

template <auto Member>
bool SetFlag(Config& c, Text v)
{
    return ToFlag(v, c.*Member);
}

template <auto Member, std::uint64_t Low, std::uint64_t High>
bool SetNumber(Config& c, Text v)
{
    using T = std::remove_reference_t<decltype(c.*Member)>;
    return InRange<T>(v, c.*Member, static_cast<T>(Low), static_cast<T>(High));
}

constexpr std::uint64_t kMaxU32 = std::numeric_limits<std::uint32_t>::max();
constexpr std::uint64_t kMaxU64 = std::numeric_limits<std::uint64_t>::max();
constexpr bool kSwitch = true;

struct Option
{
    OptionName name;
    bool (*set)(Config&, Text);
};

constexpr Option kOptions[] = {
    {{"guid", "device GUID, 12 upper-case hexadecimal digits"}, SetString<&Config::guid>},
    {{"vendor", "vendor name"}, SetString<&Config::vendor>},
    {{"model", "model name"}, SetString<&Config::model>},
    {{"family", "family name"}, SetString<&Config::family>},
    {{"version", "device version"}, SetString<&Config::version>},
    {{"info", "manufacturer info"}, SetString<&Config::info>},
    {{"serial", "serial number"}, SetString<&Config::serial>},
    {{"user", "user-defined name"}, SetString<&Config::user>},
    {{"encoding", "of the texts in the registers: ascii, utf8, or utf16"},
     [](Config& c, Text v) { return ToEncoding(v, c.encoding); }},
    {{"width", "image width in pixels"}, SetNumber<&Config::width, 1, kMaxSide>},
    {{"height", "image height in pixels"}, SetNumber<&Config::height, 1, kMaxSide>},
    {{"format", "pixel format by name"}, [](Config& c, Text v) { return ToFormat(v, c.format); }},
    {{"fps", "images per second; 0: as fast as the host reads"},
     [](Config& c, Text v) { return ToRate(v, c.fps); }},
    {{"pattern", "bytes (checkable), ramp, scene, still (always the same, nearly free), none "
                 "(writes nothing)"},
     [](Config& c, Text v) { return ToPattern(v, c.pattern); }},
    {{"seed", "makes the bytes of this camera's images its own"},
     SetNumber<&Config::seed, 0, kMaxU32>},
    {{"drop", "1: images that find no room are lost; 0: the camera waits", kSwitch},
     SetFlag<&Config::drop>},
    {{"depth", "images that the camera itself can keep"}, SetNumber<&Config::depth, 1, 1000>},
    {{"zip", "1: the description file is zipped", kSwitch}, SetFlag<&Config::zip>},
    {{"manifest", "description files: SCHEMA[/FILE][/zip|no-hash|...] joined by +, or none"},
     [](Config& c, Text v) { return ToManifest(v, c.manifest); }},
    {{"description-size", "the description file is padded to so many bytes"},
     SetNumber<&Config::descriptionSize, 0, 1U << 24>},
    {{"strict", "1: a read command must carry length 12", kSwitch}, SetFlag<&Config::strict>},
    {{"events", "1: with an event interface", kSwitch}, SetFlag<&Config::events>},
    {{"multi-event", "1: several events in one packet", kSwitch}, SetFlag<&Config::multiEvent>},
    {{"event-length", "maximum event transfer length"}, SetNumber<&Config::eventLength, 24, 65535>},
    {{"high-speed", "1: a USB 2.0 camera", kSwitch}, SetFlag<&Config::highSpeed>},
    {{"super-speed-plus", "1: a camera of twice that speed", kSwitch},
     SetFlag<&Config::superSpeedPlus>},
    {{"written-length", "0: write acknowledges without the written length", kSwitch},
     SetFlag<&Config::writtenLength>},
    {{"alignment", "exponent of the alignment of payload sizes"},
     SetNumber<&Config::alignment, 0, 255>},
    {{"leader", "required leader size"}, SetNumber<&Config::leaderSize, 52, 65535>},
    {{"trailer", "required trailer size"}, SetNumber<&Config::trailerSize, 32, 65535>},
    {{"payload-extra", "bytes that the payload exceeds the image by"},
     SetNumber<&Config::payloadExtra, 0, 1U << 24>},
    {{"payload", "type of the payload: image, chunk, gendc, or a number that nobody knows"},
     [](Config& c, Text v) { return ToPayloadType(v, c.payloadType); }},
    {{"chunks", "1: images carry chunks from the start", kSwitch}, SetFlag<&Config::chunks>},
    {{"chunk-bytes", "length of the chunk UserBytes; 0: it is not enabled"},
     SetNumber<&Config::chunkBytes, 0, 65536>},
    {{"chunk-bytes-vary", "1: it has another length in each image", kSwitch},
     SetFlag<&Config::chunkBytesVary>},
    {{"padding-x", "bytes behind every row"}, SetNumber<&Config::paddingX, 0, 4096>},
    {{"offset-x", "first column of the image on the sensor"},
     SetNumber<&Config::offsetX, 0, kMaxSide>},
    {{"offset-y", "first row of the image on the sensor"},
     SetNumber<&Config::offsetY, 0, kMaxSide>},
    {{"sensor-width", "columns of the sensor; 0: as many as needed"},
     SetNumber<&Config::sensorWidth, 0, 2 * kMaxSide>},
    {{"sensor-height", "rows of the sensor; 0: as many as needed"},
     SetNumber<&Config::sensorHeight, 0, 2 * kMaxSide>},
    {{"padding", "leaders and trailers: own (size), required, alignment, or all (payload as well)"},
     [](Config& c, Text v) { return ToPadding(v, c.padding); }},
    {{"stream-registers", "those that the host programs: free, fixed (refused), or ignored"},
     [](Config& c, Text v) { return ToStreamRegisters(v, c.streamRegisters); }},
    {{"fixed-transfer", "payload transfer size of stream registers that are not free"},
     SetNumber<&Config::fixedTransfer, 1, kMaxU32>},
    {{"unused", "transfers that a short image does not need: empty, or omitted"},
     [](Config& c, Text v) { return ToUnused(v, c.emptyUnused); }},
    {{"min-height", "images have from so many rows to all of them; 0: always all"},
     SetNumber<&Config::minHeight, 0, kMaxSide>},
    {{"first-block", "block id of the first image"}, SetNumber<&Config::firstBlock, 0, kMaxU64>},
    {{"last-block", "behind this block id the ids start again; 0: never"},
     SetNumber<&Config::lastBlock, 0, kMaxU64>},
    {{"wrap-block", "with this one"}, SetNumber<&Config::wrapBlock, 0, kMaxU64>},
    {{"keep-block-ids", "1: block ids go on over stop and start", kSwitch},
     SetFlag<&Config::keepBlockIds>},
    {{"halt-ends-image", "1: what was under way when the stream halted is never sent", kSwitch},
     SetFlag<&Config::haltEndsImage>},
    {{"max-command", "maximum command transfer length"}, SetNumber<&Config::maxCommand, 24, 65535>},
    {{"max-acknowledge", "maximum acknowledge transfer length"},
     SetNumber<&Config::maxAcknowledge, 16, 65535>},
    {{"response-ms", "maximum device response time"}, SetNumber<&Config::responseMs, 0, kMaxU32>},
    {{"pending-ms", "time-out in a pending acknowledge"}, SetNumber<&Config::pendingMs, 0, 65535>},
    {{"pending-delay-ms", "pause after a pending acknowledge"},
     SetNumber<&Config::pendingDelayMs, 0, 600000>},
    {{"access-alignment", "addresses and lengths of register accesses are multiples of it"},
     SetNumber<&Config::accessAlignment, 1, 64>},
    {{"privilege", "value of the access privilege register"},
     SetNumber<&Config::privilege, 0, kMaxU32>},
    {{"reboot-ms", "how long a rebooting camera stays away"},
     SetNumber<&Config::rebootMs, 0, 600000>},
    {{"unplug-after", "goes away after so many images; 0: never"},
     SetNumber<&Config::unplugAfter, 0, kMaxU64>},
    {{"replug-ms", "comes back so long after it has gone away; 0: never"},
     SetNumber<&Config::replugMs, 0, 600000>},
    {{"bus", "bus number (virtual bus only)"}, SetNumber<&Config::bus, 1, 255>},
    {{"port", "ports from the root on, as 1.4 (virtual bus only)"},
     [](Config& c, Text v) { return ToPort(v, c.port); }},
    {{"driver", "kernel driver that holds the interfaces (virtual bus only)"},
     SetString<&Config::driver>},
    {{"vid", "USB vendor id"}, SetNumber<&Config::vendorId, 0, 65535>},
    {{"pid", "USB product id"}, SetNumber<&Config::productId, 0, 65535>},
    {{"faults", "what goes wrong: name@image:value,..."},
     [](Config& c, Text v) { return ToFaults(v, c.faults); }},
};

} // namespace

std::vector<std::uint8_t> ParsePortPath(std::string_view text)
{
    constexpr std::size_t kDeepest = 7;
    std::vector<std::uint8_t> ports;
    while (!text.empty() && ports.size() <= kDeepest) {
        const std::size_t end = std::min(text.find('.'), text.size());
        std::uint8_t port = 0;
        if (!ToNumber(text.substr(0, end), port) || port == 0) {
            return {};
        }
        ports.push_back(port);
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return ports.size() <= kDeepest ? ports : std::vector<std::uint8_t>();
}

std::span<const OptionName> OptionNames()
{
    static const std::vector<OptionName> names = [] {
        std::vector<OptionName> list;
        for (const Option& option : kOptions) {
            list.push_back(option.name);
        }
        return list;
    }();
    return names;
}

std::string CameraConfig::Set(std::string_view key, std::string_view value)
{
    const auto* option = std::find_if(std::begin(kOptions), std::end(kOptions),
                                      [key](const Option& o) { return key == o.name.key; });
    if (option == std::end(kOptions)) {
        return "unknown option \"" + std::string(key) + "\"";
    }
    CameraConfig changed = *this;
    if (!option->set(changed, value)) {
        return "wrong value for \"" + std::string(key) + "\": \"" + std::string(value) + "\" (" +
               option->name.meaning + ")";
    }
    *this = std::move(changed);
    return {};
}

std::string CameraConfig::Apply(std::string_view options)
{
    OptionList list;
    std::string error = SplitOptions(options, list);
    CameraConfig changed = *this;
    for (const auto& [key, value] : list) {
        error = error.empty() ? changed.Set(key, value) : error;
    }
    if (error.empty()) {
        *this = std::move(changed);
    }
    return error;
}

CameraConfig CameraConfig::Numbered(std::uint32_t n) const
{
    CameraConfig other = *this;
    std::uint32_t id = 0;
    if (guid.size() == 12 && ToNumber<std::uint32_t>("0x" + guid.substr(4), id)) {
        char digits[9];
        std::snprintf(digits, sizeof digits, "%08X", id + n);
        other.guid = guid.substr(0, 4) + digits;
    }
    std::size_t digit = serial.find_last_not_of("0123456789");
    digit = digit == std::string::npos ? 0 : digit + 1;
    std::uint32_t number = 0;
    if (digit < serial.size() && ToNumber<std::uint32_t>(serial.substr(digit), number)) {
        std::string text = std::to_string(number + n);
        const std::size_t digits = serial.size() - digit;
        text.insert(0, digits > text.size() ? digits - text.size() : 0, '0');
        other.serial = serial.substr(0, digit) + text;
    }
    other.seed = seed + n;
    return other;
}

std::string SplitOptions(std::string_view options, OptionList& list)
{
    while (!options.empty()) {
        const std::size_t end = std::min(options.find(','), options.size());
        const std::string_view word = options.substr(0, end);
        options.remove_prefix(std::min(end + 1, options.size()));
        const std::size_t equals = word.find('=');
        if (word.empty()) {
            continue;
        }
        if (equals != std::string_view::npos) {
            list.emplace_back(word.substr(0, equals), word.substr(equals + 1));
        } else if (!list.empty() && list.back().first == "faults") {
            list.back().second.append(",").append(word);
        } else {
            return "not of the form key=value: \"" + std::string(word) + "\"";
        }
    }
    return {};
}

} // namespace vcam
