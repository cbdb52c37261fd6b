#include "identity.h"

#include <gtest/gtest.h>

namespace u3v_host {
namespace {

TEST(Identity, UsbPlace_Text_IsTheKernelsName)
{
    EXPECT_EQ((UsbPlace{2, {1}, 5}.Text()), "2-1");
    EXPECT_EQ((UsbPlace{10, {1, 4, 12}, 5}.Text()), "10-1.4.12");
}

TEST(Identity, UsbPlace_WithoutPorts_StillHasATextOfItsOwn)
{
    EXPECT_NE((UsbPlace{2, {}, 1}.Text()), (UsbPlace{2, {}, 2}.Text()));
}

TEST(Identity, UsbPlace_Order_IsByBusThenPortPath)
{
    EXPECT_LT((UsbPlace{1, {9}, 9}), (UsbPlace{2, {1}, 1}));
    EXPECT_LT((UsbPlace{2, {1}, 9}), (UsbPlace{2, {1, 1}, 1}));
    EXPECT_LT((UsbPlace{2, {1, 9}, 9}), (UsbPlace{2, {2}, 1}));
    EXPECT_LT((UsbPlace{2, {9}, 9}), (UsbPlace{2, {10}, 1}));
}

TEST(Identity, IsSameId_OnlyCaseDiffers_IsTheSame)
{
    EXPECT_TRUE(IsSameId("2AB0c0de", "2ab0C0DE"));
    EXPECT_FALSE(IsSameId("2AB0", "2AB01"));
    EXPECT_FALSE(IsSameId("2AB0", "2AB1"));
    EXPECT_TRUE(IsSameId("", ""));
}

TEST(Identity, MakeId_Alone_IsTheGuid)
{
    EXPECT_EQ(MakeId("120900000001", "2-1", {}), "120900000001");
}

TEST(Identity, MakeId_GuidIsTaken_NamesThePlaceToo)
{
    const std::vector<std::string> present{"120900000001"};
    EXPECT_EQ(MakeId("120900000001", "2-1.4", present), "120900000001@2-1.4");
}

TEST(Identity, MakeId_GuidIsTakenInOtherCase_NamesThePlaceToo)
{
    const std::vector<std::string> present{"2ab000000001"};
    EXPECT_EQ(MakeId("2AB000000001", "2-1", present), "2AB000000001@2-1");
}

TEST(Identity, MakeId_GuidUnknown_IsThePlace)
{
    EXPECT_EQ(MakeId("", "2-1.4", {}), "usb@2-1.4");
    EXPECT_EQ(MakeId("   ", "2-1.4", {}), "usb@2-1.4");
}

TEST(Identity, MakeId_GuidWithSeparators_HasNone)
{
    EXPECT_EQ(MakeId("a:b;c", "2-1", {}), "a_b_c");
}

TEST(Identity, MakeId_GuidThatImitatesAnotherId_IsUniqueAllTheSame)
{
    const std::vector<std::string> present{"X", "X@2-2"};
    EXPECT_EQ(MakeId("X", "2-2", present), "X@2-2@2-2");
    const std::vector<std::string> places{"usb@2-2"};
    EXPECT_EQ(MakeId("USB@2-2", "2-3", places), "USB@2-2@2-3");
}

} // namespace
} // namespace u3v_host
