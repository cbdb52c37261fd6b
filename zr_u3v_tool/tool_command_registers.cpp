#include <algorithm>
#include <cstdlib>

#include "tool_commands.h"
#include "tool_json.h"
#include "tool_port.h"
#include "tool_register_value.h"

namespace {

// What one argument of read or write means.
struct Register
{
    std::string name; // as it was given
    uint64_t address = 0;
    size_t length = 0;
    RegisterType type = RegisterType::U32;
};

// Far above any register; keeps a slip of the fingers from filling the memory.
constexpr uint64_t kMaximumLength = 64U << 20U;
constexpr size_t kDefaultTextLength = 64;

// The type that is asked for, else what the register is known to be.
RegisterType TypeFor(const Options& options, RegisterType otherwise)
{
    if (options.type.empty()) {
        return otherwise;
    }
    const auto type = ParseRegisterType(options.type);
    if (!type) {
        throw ToolError(ExitCode::Usage, "unknown type \"" + options.type + "\"");
    }
    return *type;
}

// A name brings address, type and length; an address is a u32 unless something else is said.
Register Resolve(const Options& options, const std::string& text)
{
    Register one;
    one.name = text;
    const NamedRegister* const named = FindRegister(text);
    one.address = named != nullptr ? named->address : ParseNumber(text);
    one.type = TypeFor(options, named != nullptr      ? named->type
                                : options.length == 0 ? RegisterType::U32
                                                      : RegisterType::Hex);
    const size_t size = RegisterSize(one.type);
    const size_t otherwise = size != 0          ? size
                             : named != nullptr ? named->length
                                                : kDefaultTextLength;
    one.length = options.length != 0 ? options.length : otherwise;
    if (one.length > kMaximumLength || (size != 0 && one.length != size)) {
        throw ToolError(ExitCode::Usage, "a length of " + std::to_string(one.length) +
                                             " does not go with this type");
    }
    return one;
}

// Numbers are numbers in JSON, everything else is text.
Json JsonOf(const Register& one, const std::string& value)
{
    Json json{{"register", one.name},
              {"address", Format("0x%llX", static_cast<unsigned long long>(one.address))},
              {"length", one.length}};
    switch (one.type) {
    case RegisterType::String:
    case RegisterType::Hex: json["value"] = value; break;
    case RegisterType::F32:
    case RegisterType::F64: json["value"] = std::strtod(value.c_str(), nullptr); break;
    case RegisterType::I32:
    case RegisterType::I64: json["value"] = std::stoll(value); break;
    default: json["value"] = std::stoull(value); break;
    }
    return json;
}

// "0x50000  640  0x280"
std::string LineOf(const Register& one, const std::string& value)
{
    std::string line = Printable(one.name) + "  " + Printable(value);
    const bool isUnsigned = one.type == RegisterType::U8 || one.type == RegisterType::U16 ||
                            one.type == RegisterType::U32 || one.type == RegisterType::U64;
    if (isUnsigned) {
        line += Format("  0x%llX", std::stoull(value));
    }
    return line + "\n";
}

// Long registers are read at once: the producer cuts them into the camera's packets.
std::string ReadValue(const Producer& api, PORT_HANDLE port, const Register& one)
{
    std::vector<uint8_t> bytes(one.length);
    size_t size = bytes.size();
    GENTL_CALL(api, GCReadPort, port, one.address, bytes.data(), &size);
    bytes.resize(std::min(size, bytes.size()));
    return DecodeValue(one.type, bytes);
}

} // namespace

// All names are looked up before the first register is read, all values read in one session.
ExitCode RunRead(const Options& options, Console& console)
{
    std::vector<Register> registers;
    for (const std::string& text : options.addresses) {
        registers.push_back(Resolve(options, text));
    }
    Json json = Json::array();
    WithPort(options, options.port, DEVICE_ACCESS_READONLY,
             [&](const Producer& api, PORT_HANDLE port) {
                 for (const Register& one : registers) {
                     const std::string value = ReadValue(api, port, one);
                     if (options.json) {
                         json.push_back(JsonOf(one, value));
                     } else if (options.quiet) {
                         console.Print(Printable(value) + "\n");
                     } else {
                         console.Print(LineOf(one, value));
                     }
                 }
             });
    if (options.json) {
        PrintJson(console, json);
    }
    return ExitCode::Success;
}

// Encoded before the camera is opened: a value that does not fit never reaches it.
ExitCode RunWrite(const Options& options, Console& console)
{
    const Register one = Resolve(options, options.address);
    std::vector<uint8_t> bytes = EncodeValue(one.type, options.value);
    const NamedRegister* const named = FindRegister(options.address);
    if (named != nullptr && bytes.size() > named->length) {
        throw ToolError(ExitCode::Usage, Format("\"%s\" does not fit the %zu bytes of %s",
                                                options.value.c_str(), named->length, named->name));
    }
    WithPort(options, options.port, DEVICE_ACCESS_CONTROL,
             [&](const Producer& api, PORT_HANDLE port) {
                 size_t size = bytes.size();
                 GENTL_CALL(api, GCWritePort, port, one.address, bytes.data(), &size);
             });
    if (options.json) {
        Json json = JsonOf(one, DecodeValue(one.type, bytes));
        json["length"] = bytes.size();
        PrintJson(console, json);
    }
    return ExitCode::Success;
}
