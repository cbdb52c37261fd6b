#include "camera_info.h"

#include <gtest/gtest.h>

namespace u3v_host {
namespace {

CameraInfo Info(const std::string& vendor, const std::string& model, const std::string& serial,
                const std::string& userDefinedName)
{
    CameraInfo info;
    info.id = "ID";
    info.vendor = vendor;
    info.model = model;
    info.serial = serial;
    info.userDefinedName = userDefinedName;
    return info;
}

TEST(CameraInfo, DisplayName_EverythingKnown_HasTheUsersNameInsteadOfTheSerial)
{
    EXPECT_EQ(Info("Vendor", "Model", "1", "Left").DisplayName(), "Vendor Model (Left)");
}

TEST(CameraInfo, DisplayName_NoUserDefinedName_HasTheSerial)
{
    EXPECT_EQ(Info("Vendor", "Model", "1", "").DisplayName(), "Vendor Model (1)");
}

TEST(CameraInfo, DisplayName_SomethingUnknown_LeavesNoGapForIt)
{
    EXPECT_EQ(Info("Vendor", "", "", "").DisplayName(), "Vendor");
    EXPECT_EQ(Info("", "Model", "1", "").DisplayName(), "Model (1)");
    EXPECT_EQ(Info("", "", "1", "").DisplayName(), "(1)");
}

TEST(CameraInfo, DisplayName_NothingKnown_IsTheId)
{
    EXPECT_EQ(Info("", "", "", "").DisplayName(), "ID");
}

} // namespace
} // namespace u3v_host
