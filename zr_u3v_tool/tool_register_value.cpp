#include "tool_register_value.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <strings.h>

#include "tool_console.h"
#include "tool_error.h"

namespace {

// The names that --type takes. Texts and bytes have no size of their own.
struct TypeEntry
{
    const char* name;
    RegisterType type;
    size_t size;
};

constexpr TypeEntry kTypes[] = {
    {"u8", RegisterType::U8, 1},         {"u16", RegisterType::U16, 2},
    {"u32", RegisterType::U32, 4},       {"u64", RegisterType::U64, 8},
    {"i32", RegisterType::I32, 4},       {"i64", RegisterType::I64, 8},
    {"f32", RegisterType::F32, 4},       {"f64", RegisterType::F64, 8},
    {"string", RegisterType::String, 0}, {"hex", RegisterType::Hex, 0},
};

// `text` comes from the command line: the message repeats it as it was typed.
[[noreturn]] void Refuse(const std::string& text, const char* kind)
{
    throw ToolError(ExitCode::Usage, "\"" + text + "\" is no " + kind);
}

// The low `size` bytes of a number, the lowest first, whatever this machine's own order is.
std::vector<uint8_t> LittleEndian(uint64_t bits, size_t size)
{
    std::vector<uint8_t> bytes(size);
    for (uint8_t& byte : bytes) {
        byte = static_cast<uint8_t>(bits & 0xFFU);
        bits >>= 8U;
    }
    return bytes;
}

// The reverse. A camera may send more than asked for: what is beyond 64 bits is left out.
uint64_t Bits(const std::vector<uint8_t>& bytes)
{
    uint64_t bits = 0;
    for (size_t i = std::min<size_t>(bytes.size(), 8); i > 0; i--) {
        bits = bits << 8U | bytes[i - 1];
    }
    return bits;
}

// The bits of a floating-point number as an integer of its size, and back; `Integer` has to be as
// wide.
template <class Float, class Integer>
uint64_t FloatBits(double value)
{
    const auto narrow = static_cast<Float>(value);
    Integer bits = 0;
    std::memcpy(&bits, &narrow, sizeof bits);
    return bits;
}

template <class Float, class Integer>
std::string FloatText(uint64_t bits)
{
    const auto narrow = static_cast<Integer>(bits);
    Float value = 0;
    std::memcpy(&value, &narrow, sizeof value);
    // The shortest text that means this very number.
    std::array<char, 64> text{};
    const auto result = std::to_chars(text.data(), text.data() + text.size(), value);
    return {text.data(), result.ptr};
}

// Two's complement; its upper bits are cut off when it is stored in `size` bytes. The lowest value
// has one more than the highest: -128 is an i8, 128 is none.
uint64_t ParseSigned(const std::string& text, size_t size)
{
    const bool isNegative = text.starts_with('-');
    const uint64_t magnitude = ParseNumber(isNegative ? text.substr(1) : text);
    const uint64_t limit = uint64_t{1} << (8 * size - 1);
    if (magnitude > limit - (isNegative ? 0 : 1)) {
        Refuse(text, "value of this type");
    }
    return isNegative ? ~magnitude + 1 : magnitude;
}

// from_chars and not strtod: the decimal point does not depend on the user's language.
double ParseFloat(const std::string& text)
{
    double value = 0;
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value);
    if (text.empty() || result.ec != std::errc() || result.ptr != end) {
        Refuse(text, "number");
    }
    return value;
}

// "DE AD", "de:ad" and "dead" are the same two bytes.
std::vector<uint8_t> ParseHexBytes(const std::string& text)
{
    std::string digits;
    std::copy_if(text.begin(), text.end(), std::back_inserter(digits),
                 [](char c) { return c != ' ' && c != ':'; });
    std::vector<uint8_t> bytes(digits.size() / 2);
    for (size_t i = 0; i < bytes.size(); i++) {
        const char* const from = digits.data() + 2 * i;
        if (std::from_chars(from, from + 2, bytes[i], 16).ptr != from + 2) {
            Refuse(text, "list of hexadecimal bytes");
        }
    }
    if (bytes.empty() || digits.size() % 2 != 0) {
        Refuse(text, "list of hexadecimal bytes");
    }
    return bytes;
}

std::string HexText(const std::vector<uint8_t>& bytes)
{
    std::string text;
    for (const uint8_t byte : bytes) {
        text += Format(text.empty() ? "%02x" : " %02x", byte);
    }
    return text;
}

// Spreads the sign bit of a value of `size` bytes over all 64.
int64_t SignedOf(uint64_t bits, size_t size)
{
    const unsigned shift = static_cast<unsigned>(64 - 8 * size);
    return static_cast<int64_t>(bits << shift) >> shift;
}

} // namespace

std::optional<RegisterType> ParseRegisterType(std::string_view text)
{
    for (const TypeEntry& entry : kTypes) {
        if (entry.name == text) {
            return entry.type;
        }
    }
    return std::nullopt;
}

size_t RegisterSize(RegisterType type)
{
    const auto* const found = std::find_if(std::begin(kTypes), std::end(kTypes),
                                           [type](const auto& one) { return one.type == type; });
    return found->size;
}

// The bootstrap registers of the USB3 Vision standard that stand at fixed addresses.
const std::vector<NamedRegister>& NamedRegisters()
{
    static const std::vector<NamedRegister> registers{
        {"GenCPVersion", 0x000, 4, RegisterType::U32},
        {"ManufacturerName", 0x004, 64, RegisterType::String},
        {"ModelName", 0x044, 64, RegisterType::String},
        {"FamilyName", 0x084, 64, RegisterType::String},
        {"DeviceVersion", 0x0C4, 64, RegisterType::String},
        {"ManufacturerInfo", 0x104, 64, RegisterType::String},
        {"SerialNumber", 0x144, 64, RegisterType::String},
        {"UserDefinedName", 0x184, 64, RegisterType::String},
        {"DeviceCapability", 0x1C4, 8, RegisterType::U64},
        {"MaximumDeviceResponseTime", 0x1CC, 4, RegisterType::U32},
        {"ManifestTableAddress", 0x1D0, 8, RegisterType::U64},
        {"SbrmAddress", 0x1D8, 8, RegisterType::U64},
        {"DeviceConfiguration", 0x1E0, 8, RegisterType::U64},
        {"Timestamp", 0x1F0, 8, RegisterType::U64},
        {"TimestampLatch", 0x1F8, 4, RegisterType::U32},
        {"TimestampIncrement", 0x1FC, 8, RegisterType::U64},
        {"AccessPrivilege", 0x204, 4, RegisterType::U32},
    };
    return registers;
}

const NamedRegister* FindRegister(std::string_view name)
{
    const auto& registers = NamedRegisters();
    const auto found = std::find_if(registers.begin(), registers.end(), [name](const auto& one) {
        return name.size() == std::string_view(one.name).size() &&
               strncasecmp(one.name, name.data(), name.size()) == 0;
    });
    return found == registers.end() ? nullptr : &*found;
}

uint64_t ParseNumber(const std::string& text)
{
    const bool isHex = text.starts_with("0x") || text.starts_with("0X");
    const char* const begin = text.data() + (isHex ? 2 : 0);
    const char* const end = text.data() + text.size();
    uint64_t value = 0;
    const auto result = std::from_chars(begin, end, value, isHex ? 16 : 10);
    if (begin == end || result.ec != std::errc() || result.ptr != end) {
        Refuse(text, "number");
    }
    return value;
}

std::vector<uint8_t> EncodeValue(RegisterType type, const std::string& text)
{
    const size_t size = RegisterSize(type);
    switch (type) {
    case RegisterType::String: {
        std::vector<uint8_t> bytes(text.begin(), text.end());
        bytes.push_back(0);
        return bytes;
    }
    case RegisterType::Hex: return ParseHexBytes(text);
    case RegisterType::F32: return LittleEndian(FloatBits<float, uint32_t>(ParseFloat(text)), size);
    case RegisterType::F64:
        return LittleEndian(FloatBits<double, uint64_t>(ParseFloat(text)), size);
    case RegisterType::I32:
    case RegisterType::I64: return LittleEndian(ParseSigned(text, size), size);
    default: break;
    }
    const uint64_t value = ParseNumber(text);
    if (size < 8 && value >> (8 * size) != 0) {
        Refuse(text, "value of this type");
    }
    return LittleEndian(value, size);
}

std::string DecodeValue(RegisterType type, const std::vector<uint8_t>& bytes)
{
    const uint64_t bits = Bits(bytes);
    switch (type) {
    case RegisterType::String:
        return {bytes.begin(), std::find(bytes.begin(), bytes.end(), uint8_t{0})};
    case RegisterType::Hex: return HexText(bytes);
    case RegisterType::F32: return FloatText<float, uint32_t>(bits);
    case RegisterType::F64: return FloatText<double, uint64_t>(bits);
    case RegisterType::I32:
    case RegisterType::I64: return std::to_string(SignedOf(bits, bytes.size()));
    default: return std::to_string(bits);
    }
}
