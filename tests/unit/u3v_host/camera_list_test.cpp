#include <atomic>

#include "bus_camera.h"

namespace u3v_host {
namespace {

using ::testing::Test;

class CameraListTest : public BusTest
{
};

TEST_F(CameraListTest, Update_EmptyBus_ListsNothing)
{
    List().Update(In(kLong));
    EXPECT_TRUE(List().Cameras().empty());
    EXPECT_EQ(List().Find("120900000001"), nullptr);
}

TEST_F(CameraListTest, Update_OneCamera_TellsItsTexts)
{
    const vusb::Camera camera("vendor=Maker,model=Eye,family=Eyes,version=1.2,info=of glass,"
                              "serial=S1,user=Left");
    List().Update(In(kLong));
    ASSERT_EQ(List().Cameras().size(), 1U);
    const CameraInfo info = *List().Cameras()[0];
    EXPECT_EQ(info.id, "120900000001");
    EXPECT_EQ(info.vendor, "Maker");
    EXPECT_EQ(info.model, "Eye");
    EXPECT_EQ(info.family, "Eyes");
    EXPECT_EQ(info.version, "1.2");
    EXPECT_EQ(info.manufacturerInfo, "of glass");
    EXPECT_EQ(info.serial, "S1");
    EXPECT_EQ(info.userDefinedName, "Left");
}

} // namespace
} // namespace u3v_host
