#include "copy_info.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

// The caller's side of a query: a type, room for a few bytes at an odd address, and a size.
struct Query
{
    INFO_DATATYPE type = -1;
    std::vector<char> bytes = std::vector<char>(17, '\x5A');
    size_t size = 16;

    void* Buffer() { return bytes.data() + 1; }
    std::string Front(size_t count) const { return {bytes.data() + 1, count}; }
    bool Untouched() const { return bytes == std::vector<char>(17, '\x5A'); }
};

TEST(CopyInfo, NullSize_IsInvalidParameterAndNothingIsWritten)
{
    Query q;
    EXPECT_EQ(info::CopyValue(INFO_DATATYPE_UINT32, 7U, &q.type, q.Buffer(), nullptr),
              GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(info::CopyString("U3V", &q.type, q.Buffer(), nullptr), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(q.type, -1);
    EXPECT_TRUE(q.Untouched());
}

TEST(CopyInfo, NullBuffer_AnswersTypeAndSizeWhateverTheSizeHeld)
{
    Query q;
    q.size = SIZE_MAX;
    EXPECT_EQ(info::CopyValue(INFO_DATATYPE_UINT64, uint64_t{7}, &q.type, nullptr, &q.size),
              GC_ERR_SUCCESS);
    EXPECT_EQ(q.type, INFO_DATATYPE_UINT64);
    EXPECT_EQ(q.size, 8U);
    EXPECT_EQ(info::CopyString("U3V", &q.type, nullptr, &q.size), GC_ERR_SUCCESS);
    EXPECT_EQ(q.type, INFO_DATATYPE_STRING);
    EXPECT_EQ(q.size, 4U);
}

TEST(CopyInfo, NullType_IsNotWanted)
{
    Query q;
    EXPECT_EQ(info::CopyBool(true, nullptr, q.Buffer(), &q.size), GC_ERR_SUCCESS);
    EXPECT_EQ(q.Front(2), "\x01\x5A");
    EXPECT_EQ(q.size, 1U);
}

TEST(CopyInfo, OneByteShort_IsTooSmallWithTypeAndSize)
{
    Query number;
    number.size = 7;
    EXPECT_EQ(info::CopyValue(INFO_DATATYPE_SIZET, size_t{7}, &number.type, number.Buffer(),
                              &number.size),
              GC_ERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(number.type, INFO_DATATYPE_SIZET);
    EXPECT_EQ(number.size, 8U);
    EXPECT_TRUE(number.Untouched());

    Query text;
    text.size = 3;
    EXPECT_EQ(info::CopyString("U3V", &text.type, text.Buffer(), &text.size),
              GC_ERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(text.size, 4U);
    EXPECT_TRUE(text.Untouched());
}

// A consumer asks for a number with a size variable that it has never set.
TEST(CopyInfo, AbsurdRoom_WritesTheValueAndNothingElse)
{
    Query q;
    q.size = SIZE_MAX;
    EXPECT_EQ(info::CopyValue(INFO_DATATYPE_INT32, int32_t{-2}, &q.type, q.Buffer(), &q.size),
              GC_ERR_SUCCESS);
    EXPECT_EQ(q.Front(5), "\xFE\xFF\xFF\xFF\x5A");
    EXPECT_EQ(q.size, 4U);
}

TEST(CopyInfo, String_IsEndedWhereverItsCharactersLie)
{
    Query q;
    const std::string_view part = std::string_view("U3V and more").substr(0, 3);
    EXPECT_EQ(info::CopyString(part, &q.type, q.Buffer(), &q.size), GC_ERR_SUCCESS);
    EXPECT_EQ(q.Front(5), std::string("U3V\0\x5A", 5));
    EXPECT_EQ(q.size, 4U);
}

TEST(CopyInfo, BytesOfNoLength_SucceedWithAnyBuffer)
{
    Query q;
    q.size = 0;
    EXPECT_EQ(info::CopyBytes(INFO_DATATYPE_BUFFER, nullptr, 0, &q.type, q.Buffer(), &q.size),
              GC_ERR_SUCCESS);
    EXPECT_EQ(q.type, INFO_DATATYPE_BUFFER);
    EXPECT_TRUE(q.Untouched());
}

} // namespace
