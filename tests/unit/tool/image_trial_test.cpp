#include "tool_image_trial.h"

#include <gtest/gtest.h>

namespace {

using Level = Finding::Level;

ImageTrial Started()
{
    ImageTrial trial;
    trial.hasStart = true;
    trial.waited_ms = 5000;
    return trial;
}

TEST(JudgeImages, WholeImage_IsGood)
{
    ImageTrial trial = Started();
    trial.came = 3;
    trial.form = "640x480 Mono8";
    const Finding finding = JudgeImages("C", trial);
    EXPECT_EQ(finding.level, Level::Good);
    EXPECT_EQ(finding.text, "an image came whole: 640x480 Mono8");
    EXPECT_EQ(finding.remedy, "");
}

TEST(JudgeImages, Silence_IsToldApartByItsCause)
{
    ImageTrial trial = Started();
    Finding finding = JudgeImages("C", trial);
    EXPECT_EQ(finding.level, Level::Problem);
    EXPECT_EQ(finding.text, "the camera sends nothing for 5000 ms after it was started");

    trial.hasStart = false;
    finding = JudgeImages("C", trial);
    EXPECT_NE(finding.text.find("it has no AcquisitionStart"), std::string::npos);

    trial.lost = 7;
    finding = JudgeImages("C", trial);
    EXPECT_EQ(finding.text, "the camera sends, but no image arrives: 7 lost");

    trial.trigger = "Line0\x1b";
    finding = JudgeImages("C", trial);
    EXPECT_EQ(finding.text,
              "the camera waits for a trigger (TriggerMode is On, TriggerSource Line0?)");
    EXPECT_NE(finding.remedy.find("TriggerMode=Off"), std::string::npos);
}

TEST(JudgeImages, DamagedImages_AreAProblemWhenNoneIsWhole)
{
    ImageTrial trial = Started();
    trial.came = 3;
    trial.incomplete = 1;
    EXPECT_EQ(JudgeImages("C", trial).level, Level::Warning);
    trial.incomplete = 3;
    EXPECT_EQ(JudgeImages("C", trial).level, Level::Problem);
    EXPECT_EQ(JudgeImages("C", trial).text, "3 of 3 images came damaged");
}

TEST(JudgeImages, Failure_IsToldWithWhatHelpsAgainstIt)
{
    ImageTrial trial = Started();
    trial.failure = "DSStartAcquisition failed";
    EXPECT_EQ(JudgeImages("C", trial).level, Level::Problem);
    EXPECT_EQ(JudgeImages("C", trial).remedy.find("usbfs_memory_mb"), std::string::npos);
    trial.lacksMemory = true;
    EXPECT_NE(JudgeImages("C", trial).remedy.find("usbfs_memory_mb"), std::string::npos);
}

} // namespace
