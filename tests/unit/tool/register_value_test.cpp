#include "tool_register_value.h"

#include <gtest/gtest.h>

#include "tool_error.h"

namespace {

using Bytes = std::vector<uint8_t>;

TEST(RegisterValue, Numbers_AreLittleEndian)
{
    EXPECT_EQ(EncodeValue(RegisterType::U32, "0x12345678"), (Bytes{0x78, 0x56, 0x34, 0x12}));
    EXPECT_EQ(EncodeValue(RegisterType::U16, "258"), (Bytes{2, 1}));
    EXPECT_EQ(EncodeValue(RegisterType::U8, "255"), (Bytes{255}));
    EXPECT_EQ(EncodeValue(RegisterType::I32, "-2"), (Bytes{0xFE, 0xFF, 0xFF, 0xFF}));
    EXPECT_EQ(EncodeValue(RegisterType::F32, "1.5"), (Bytes{0, 0, 0xC0, 0x3F}));
    EXPECT_EQ(EncodeValue(RegisterType::F64, "-2"), (Bytes{0, 0, 0, 0, 0, 0, 0, 0xC0}));
}

TEST(RegisterValue, Texts_EndWithZero)
{
    EXPECT_EQ(EncodeValue(RegisterType::String, "ab"), (Bytes{'a', 'b', 0}));
    EXPECT_EQ(DecodeValue(RegisterType::String, {'a', 'b', 0, 'c'}), "ab");
    EXPECT_EQ(DecodeValue(RegisterType::String, {'a', 'b'}), "ab");
}

TEST(RegisterValue, HexBytes_MayHaveSeparators)
{
    EXPECT_EQ(EncodeValue(RegisterType::Hex, "de ad:BEEF"), (Bytes{0xDE, 0xAD, 0xBE, 0xEF}));
    EXPECT_EQ(DecodeValue(RegisterType::Hex, {0xDE, 0x01}), "de 01");
}

TEST(RegisterValue, Decoded_IsWhatWasEncoded)
{
    const struct
    {
        RegisterType type;
        const char* text;
    } values[] = {{RegisterType::U64, "18446744073709551615"},
                  {RegisterType::I64, "-9223372036854775808"},
                  {RegisterType::I32, "-2147483648"},
                  {RegisterType::I32, "2147483647"},
                  {RegisterType::F32, "0.25"},
                  {RegisterType::F64, "1e+300"}};
    for (const auto& value : values) {
        EXPECT_EQ(DecodeValue(value.type, EncodeValue(value.type, value.text)), value.text);
    }
}

TEST(RegisterValue, WhatDoesNotFit_IsRefused)
{
    EXPECT_THROW(EncodeValue(RegisterType::U8, "256"), ToolError);
    EXPECT_THROW(EncodeValue(RegisterType::U32, "-1"), ToolError);
    EXPECT_THROW(EncodeValue(RegisterType::I32, "2147483648"), ToolError);
    EXPECT_THROW(EncodeValue(RegisterType::I32, "-2147483649"), ToolError);
    EXPECT_THROW(EncodeValue(RegisterType::F32, "x"), ToolError);
    EXPECT_THROW(EncodeValue(RegisterType::Hex, "abc"), ToolError);
    EXPECT_THROW(EncodeValue(RegisterType::Hex, "zz"), ToolError);
    EXPECT_THROW(EncodeValue(RegisterType::Hex, ""), ToolError);
}

TEST(RegisterValue, AddressTexts)
{
    EXPECT_EQ(ParseNumber("0x50000"), 0x50000u);
    EXPECT_EQ(ParseNumber("0XfF"), 255u);
    EXPECT_EQ(ParseNumber("12"), 12u);
    for (const char* const text : {"", "0x", "x", "12a", "-1", " 1", "99999999999999999999"}) {
        EXPECT_THROW(ParseNumber(text), ToolError) << text;
    }
}

TEST(RegisterValue, NamedRegisters_AreFoundByTheirName)
{
    const NamedRegister* const name = FindRegister("UserDefinedName");
    ASSERT_NE(name, nullptr);
    EXPECT_EQ(name->address, 0x184u);
    EXPECT_EQ(name->length, 64u);
    EXPECT_EQ(FindRegister("userdefinedNAME"), name);
    EXPECT_EQ(FindRegister("UserDefined"), nullptr);
    EXPECT_EQ(FindRegister("Nonsense"), nullptr);
}

} // namespace
