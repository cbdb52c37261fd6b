#include "descriptors.h"

#include <gtest/gtest.h>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

// GenCP 1.2, USB3 Vision 1.1, strings 1 to 8, high speed and SuperSpeed.
const Bytes kDescriptor = {0x14, 0x24, 0x01, 0x02, 0x00, 0x01, 0x00, 0x01, 0x00, 0x01,
                           0x00, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, 0x0C};

Bytes operator+(Bytes left, const Bytes& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

TEST(FindDeviceInformation, WholeDescriptor_IsParsed)
{
    const auto info = FindDeviceInformation(kDescriptor);
    ASSERT_TRUE(info.has_value());
    EXPECT_EQ(info->genCPVersion, 0x00010002U);
    EXPECT_EQ(info->u3vVersion, 0x00010001U);
    EXPECT_EQ(info->deviceGUID, 1);
    EXPECT_EQ(info->vendorName, 2);
    EXPECT_EQ(info->modelName, 3);
    EXPECT_EQ(info->familyName, 4);
    EXPECT_EQ(info->deviceVersion, 5);
    EXPECT_EQ(info->manufacturerInfo, 6);
    EXPECT_EQ(info->serialNumber, 7);
    EXPECT_EQ(info->userDefinedName, 8);
    EXPECT_EQ(info->speedSupport, device_info_wire::kHighSpeed | device_info_wire::kSuperSpeed);
}

TEST(FindDeviceInformation, AmongOtherDescriptors_IsFound)
{
    const Bytes endpointCompanion = {0x06, 0x30, 0x00, 0x00, 0x00, 0x00};
    const Bytes otherSubtype = {0x03, 0x24, 0x02};
    EXPECT_TRUE(FindDeviceInformation(endpointCompanion + otherSubtype + kDescriptor));
    EXPECT_TRUE(FindDeviceInformation(kDescriptor + Bytes{0x00}));
    Bytes longer = kDescriptor; // a later version of the standard may add to it
    longer[0] = 0x16;
    EXPECT_TRUE(FindDeviceInformation(longer + Bytes{0xFF, 0xFF}));
}

TEST(FindDeviceInformation, WrongTypeOrSubtype_IsNone)
{
    Bytes type = kDescriptor;
    type[1] = 0x25;
    Bytes subtype = kDescriptor;
    subtype[2] = 0x02;
    EXPECT_FALSE(FindDeviceInformation(type));
    EXPECT_FALSE(FindDeviceInformation(subtype));
}

TEST(FindDeviceInformation, CutAnywhere_IsNoneAndNothingIsReadBeyond)
{
    for (size_t size = 0; size < kDescriptor.size(); ++size) {
        const Bytes cut(kDescriptor.begin(), kDescriptor.begin() + static_cast<ptrdiff_t>(size));
        EXPECT_FALSE(FindDeviceInformation(cut)) << size;
    }
}

TEST(FindDeviceInformation, LengthByteThatCannotBe_EndsTheSearch)
{
    EXPECT_FALSE(FindDeviceInformation(Bytes{0x00, 0x30} + kDescriptor));
    EXPECT_FALSE(FindDeviceInformation(Bytes{0x01, 0x30} + kDescriptor));
    EXPECT_FALSE(FindDeviceInformation(Bytes{0xFF, 0x30} + kDescriptor));
    Bytes shorter = kDescriptor;
    shorter[0] = 0x13;
    EXPECT_FALSE(FindDeviceInformation(shorter));
}

TEST(UsbIdentity, Triples_AreTheStandards)
{
    EXPECT_EQ(usb_identity::kDeviceClass, 0xEF);
    EXPECT_EQ(usb_identity::kDeviceSubClass, 0x02);
    EXPECT_EQ(usb_identity::kDeviceProtocol, 0x01);
    EXPECT_EQ(usb_identity::kVisionClass, 0xEF);
    EXPECT_EQ(usb_identity::kVisionSubClass, 0x05);
    EXPECT_EQ(usb_identity::kControlProtocol, 0x00);
    EXPECT_EQ(usb_identity::kEventProtocol, 0x01);
    EXPECT_EQ(usb_identity::kStreamProtocol, 0x02);
}

} // namespace
