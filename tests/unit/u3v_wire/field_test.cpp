#include "field.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

TEST(Load, EachWidth_IsLittleEndian)
{
    const uint8_t bytes[] = {0xAA, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08};
    EXPECT_EQ(Load(bytes, Field<uint8_t>{1}), 0x01);
    EXPECT_EQ(Load(bytes, Field<uint16_t>{1}), 0x0201);
    EXPECT_EQ(Load(bytes, Field<uint32_t>{1}), 0x04030201U);
    EXPECT_EQ(Load(bytes, Field<uint64_t>{1}), 0x0807060504030201U);
}

TEST(Load, FieldBeyondTheEnd_IsZero)
{
    const uint8_t bytes[] = {1, 2, 3};
    EXPECT_EQ(Load(bytes, Field<uint16_t>{1}), 0x0302);
    EXPECT_EQ(Load(bytes, Field<uint16_t>{2}), 0);
    EXPECT_EQ(Load(bytes, Field<uint32_t>{0}), 0U);
}

TEST(Store, EachWidth_IsLittleEndianAndStaysInside)
{
    uint8_t bytes[8] = {};
    Store(bytes, Field<uint16_t>{0}, uint16_t{0x0201});
    Store(bytes, Field<uint32_t>{2}, uint32_t{0x06050403});
    Store(bytes, Field<uint32_t>{6}, uint32_t{0xFFFFFFFF});
    EXPECT_THAT(bytes, testing::ElementsAre(1, 2, 3, 4, 5, 6, 0, 0));
}

} // namespace
