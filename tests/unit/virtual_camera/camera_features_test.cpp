// The features that the project's programs use by address lie where the camera has them.

#include <camera_features.h>
#include <camera_layout.h>
#include <gtest/gtest.h>

namespace {

TEST(CameraFeatures, Addresses_AreTheCamerasOwn)
{
    EXPECT_EQ(camera_features::kWidth, vcam::cam::kWidth.address);
    EXPECT_EQ(camera_features::kPayloadSize, vcam::cam::kPayloadSize.address);
    EXPECT_EQ(camera_features::kAcquisition, vcam::cam::kAcquisition.address);
    EXPECT_EQ(camera_features::kTriggerMode, vcam::cam::kTriggerMode.address);
    EXPECT_EQ(camera_features::kTriggerSoftware, vcam::cam::kTriggerSoftware.address);
}

} // namespace
