#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// How the bytes of a register are read: little-endian, as USB3 Vision has them.
enum class RegisterType
{
    U8,
    U16,
    U32,
    U64,
    I32,
    I64,
    F32,
    F64,
    String,
    Hex,
};

std::optional<RegisterType> ParseRegisterType(std::string_view text);
// Bytes of one value; 0 for texts and hexadecimal bytes, which have the length that is asked for.
size_t RegisterSize(RegisterType type);

// A register with a name: those of the standard's bootstrap block, which every camera has.
struct NamedRegister
{
    const char* name;
    uint64_t address;
    size_t length;
    RegisterType type;
};
const std::vector<NamedRegister>& NamedRegisters();
const NamedRegister* FindRegister(std::string_view name);

// "0x50000", "327680"; throws ToolError (Usage).
uint64_t ParseNumber(const std::string& text);
// Both throw ToolError (Usage) for what is no value of the type.
std::vector<uint8_t> EncodeValue(RegisterType type, const std::string& text);
std::string DecodeValue(RegisterType type, const std::vector<uint8_t>& bytes);
