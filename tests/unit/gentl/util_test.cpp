#include "zr_gentl_util.h"

#include <cstring>
#include <functional>
#include <gtest/gtest.h>

namespace {

using Copy = std::function<GC_ERROR(int*, void*, size_t*)>;

struct CopyRow
{
    const char* name;
    Copy copy;
    int type;
    std::string bytes;
};

template <class T>
std::string BytesOf(T value)
{
    return std::string(reinterpret_cast<const char*>(&value), sizeof value);
}

class CopyInfoTest : public testing::TestWithParam<CopyRow>
{
protected:
    const CopyRow& row = GetParam();
    int type = -1;
    size_t size = 0;
    // At an odd address: the caller's buffer may lie anywhere.
    char storage[65];
    char* const buffer = storage + 1;

    CopyInfoTest() { memset(storage, 0x5A, sizeof storage); }
    bool Untouched() const
    {
        return std::string(storage, sizeof storage) == std::string(sizeof storage, 0x5A);
    }
};

TEST_P(CopyInfoTest, NullSize_IsInvalidParameterAndTypeStays)
{
    EXPECT_EQ(row.copy(&type, buffer, nullptr), -1009);
    EXPECT_EQ(type, -1);
    EXPECT_TRUE(Untouched());
}

TEST_P(CopyInfoTest, NullBuffer_IsSizeQuery)
{
    EXPECT_EQ(row.copy(&type, nullptr, &size), 0);
    EXPECT_EQ(type, row.type);
    EXPECT_EQ(size, row.bytes.size());
}

TEST_P(CopyInfoTest, NullType_IsAllowed)
{
    size = row.bytes.size();
    EXPECT_EQ(row.copy(nullptr, buffer, &size), 0);
    EXPECT_EQ(std::string(buffer, size), row.bytes);
}

TEST_P(CopyInfoTest, OneByteShort_IsTooSmallWithTypeAndSize)
{
    size = row.bytes.size() - 1;
    EXPECT_EQ(row.copy(&type, buffer, &size), -1016);
    EXPECT_EQ(type, row.type);
    EXPECT_EQ(size, row.bytes.size());
    EXPECT_TRUE(Untouched());
}

TEST_P(CopyInfoTest, ExactRoom_CopiesTheValueAndNothingElse)
{
    size = row.bytes.size();
    EXPECT_EQ(row.copy(&type, buffer, &size), 0);
    EXPECT_EQ(std::string(buffer, row.bytes.size()), row.bytes);
    EXPECT_EQ(buffer[row.bytes.size()], 0x5A);
}

TEST_P(CopyInfoTest, MoreRoom_ReportsTheRequiredSize)
{
    size = 64;
    EXPECT_EQ(row.copy(&type, buffer, &size), 0);
    EXPECT_EQ(size, row.bytes.size());
    EXPECT_EQ(buffer[row.bytes.size()], 0x5A);
}

using U = ZrGenTLUtil;
int g_target = 0;

INSTANTIATE_TEST_SUITE_P(
    Types, CopyInfoTest,
    testing::Values(
        CopyRow{"String", [](auto... a) { return U::CopyInfoString("U3V", a...); }, 1,
                std::string("U3V\0", 4)},
        CopyRow{"EmptyString", [](auto... a) { return U::CopyInfoString("", a...); }, 1,
                std::string("\0", 1)},
        CopyRow{"Int16", [](auto... a) { return U::CopyInfoInt16(-2, a...); }, 3, "\xFE\xFF"},
        CopyRow{"Uint16", [](auto... a) { return U::CopyInfoUint16(0x1234, a...); }, 4, "\x34\x12"},
        CopyRow{"Int32", [](auto... a) { return U::CopyInfoInt32(-2, a...); }, 5,
                "\xFE\xFF\xFF\xFF"},
        CopyRow{"Uint32", [](auto... a) { return U::CopyInfoUint32(0x89ABCDEF, a...); }, 6,
                "\xEF\xCD\xAB\x89"},
        CopyRow{"Int64", [](auto... a) { return U::CopyInfoInt64(-2, a...); }, 7,
                "\xFE\xFF\xFF\xFF\xFF\xFF\xFF\xFF"},
        CopyRow{"Uint64", [](auto... a) { return U::CopyInfoUint64(0x1122334455667788, a...); }, 8,
                "\x88\x77\x66\x55\x44\x33\x22\x11"},
        CopyRow{"Float64", [](auto... a) { return U::CopyInfoFloat64(1.5, a...); }, 9,
                std::string("\0\0\0\0\0\0\xF8\x3F", 8)},
        CopyRow{"Ptr", [](auto... a) { return U::CopyInfoPtr(&g_target, a...); }, 10,
                BytesOf(&g_target)},
        CopyRow{"BoolTrue", [](auto... a) { return U::CopyInfoBool(true, a...); }, 11, "\x01"},
        CopyRow{"BoolFalse", [](auto... a) { return U::CopyInfoBool(false, a...); }, 11,
                std::string("\0", 1)},
        CopyRow{"SizeT", [](auto... a) { return U::CopyInfoSizeT(0x0102030405060708, a...); }, 12,
                "\x08\x07\x06\x05\x04\x03\x02\x01"},
        CopyRow{"Buffer", [](auto... a) { return U::CopyInfoBuffer("ab\0cd", 5, a...); }, 13,
                std::string("ab\0cd", 5)}),
    [](const auto& row) { return row.param.name; });

TEST(CopyInfoBuffer, LengthZero_SucceedsWithAnyBuffer)
{
    char buffer = 'x';
    size_t size = 0;
    EXPECT_EQ(ZrGenTLUtil::CopyInfoBuffer(nullptr, 0, nullptr, &buffer, &size), 0);
    EXPECT_EQ(buffer, 'x');
}

TEST(ClearInfoBuffer, ZeroesExactlyTheSize)
{
    char buffer[4] = {'a', 'b', 'c', 'd'};
    size_t size = 3;
    ZrGenTLUtil::ClearInfoBuffer(buffer, &size);
    EXPECT_EQ(std::string(buffer, 4), std::string("\0\0\0d", 4));
    ZrGenTLUtil::ClearInfoBuffer(nullptr, &size);
    ZrGenTLUtil::ClearInfoBuffer(buffer, nullptr);
}

TEST(UriEncode, BlanksBecomePercent20_OtherBytesStay)
{
    EXPECT_EQ(ZrGenTLUtil::UriEncode("a b"), "a%20b");
    EXPECT_EQ(ZrGenTLUtil::UriEncode("  "), "%20%20");
    EXPECT_EQ(ZrGenTLUtil::UriEncode(""), "");
    EXPECT_EQ(ZrGenTLUtil::UriEncode("a%b/c?d\t\xFF"), "a%b/c?d\t\xFF");
    EXPECT_EQ(ZrGenTLUtil::UriEncode(std::string("a\0 b", 4)), std::string("a\0%20b", 6));
}

TEST(UriDecode, Escapes_BecomeTheirBytes)
{
    EXPECT_EQ(ZrGenTLUtil::UriDecode("a%20b"), "a b");
    EXPECT_EQ(ZrGenTLUtil::UriDecode("%41%42"), "AB");
    EXPECT_EQ(ZrGenTLUtil::UriDecode("%fF"), "\xFF");
    EXPECT_EQ(ZrGenTLUtil::UriDecode("%Af%aF"), "\xAF\xAF");
    EXPECT_EQ(ZrGenTLUtil::UriDecode("x%00y"), std::string("x\0y", 3));
}

TEST(UriDecode, NoEscape_IsCopied)
{
    EXPECT_EQ(ZrGenTLUtil::UriDecode(""), "");
    EXPECT_EQ(ZrGenTLUtil::UriDecode("%"), "%");
    EXPECT_EQ(ZrGenTLUtil::UriDecode("%4"), "%4");
    EXPECT_EQ(ZrGenTLUtil::UriDecode("ab%4"), "ab%4");
    EXPECT_EQ(ZrGenTLUtil::UriDecode("%G0%0G%-1"), "%G0%0G%-1");
    EXPECT_EQ(ZrGenTLUtil::UriDecode("%%41"), "%A");
    EXPECT_EQ(ZrGenTLUtil::UriDecode("%2041"), " 41");
    EXPECT_EQ(ZrGenTLUtil::UriDecode("%2%30"), "%20"); // decoded once, from left to right
}

TEST(ConvertMacAddress, SixHexadecimalParts_GiveTheAddress)
{
    EXPECT_EQ(ZrGenTLUtil::ConvertMacAddress("00-11-22-33-44-55"), 0x1122334455u);
    EXPECT_EQ(ZrGenTLUtil::ConvertMacAddress("aB-cD-eF-01-23-45"), 0xABCDEF012345u);
    EXPECT_EQ(ZrGenTLUtil::ConvertMacAddress("0x1-2-3-4-5-6"), 0x010203040506u);
    EXPECT_EQ(ZrGenTLUtil::ConvertMacAddress("1-2-3-4-5-6 and more"), 0x010203040506u);
}

TEST(ConvertMacAddress, WideParts_AreNotMasked)
{
    EXPECT_EQ(ZrGenTLUtil::ConvertMacAddress("0-0-0-0-1-123"), 0x123u);
    EXPECT_EQ(ZrGenTLUtil::ConvertMacAddress("0-0-0-0-2-123"), 0x323u);
    EXPECT_EQ(ZrGenTLUtil::ConvertMacAddress("FFFFFFFF-0-0-0-0-0"), 0xFFFFFF0000000000u);
    EXPECT_EQ(ZrGenTLUtil::ConvertMacAddress("0-FFFFFFFF-0-0-0-0"), 0xFFFFFFFF00000000u);
}

TEST(ConvertMacAddress, FewerThanSixNumbers_GiveZero)
{
    for (const char* text : {"", "00:11:22:33:44:55", "00-11-22-33-44", "00-11-22-33-44-",
                             "00-11-22-33-44-xx", "-", "x"}) {
        EXPECT_EQ(ZrGenTLUtil::ConvertMacAddress(text), 0u) << text;
    }
}

} // namespace
