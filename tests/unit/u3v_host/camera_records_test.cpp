#include "camera_records.h"

#include <gtest/gtest.h>

namespace u3v_host {
namespace {

class CameraRecordsTest : public ::testing::Test
{
protected:
    static CameraRecordPtr NewRecord(uint8_t port, uint8_t address = 5)
    {
        auto record = std::make_shared<CameraRecord>();
        record->place = {2, {port}, address};
        record->camera.emplace();
        return record;
    }
    static CameraTexts Texts(const std::string& guid, const std::string& model = "M")
    {
        CameraTexts texts{};
        texts.info.id = guid;
        texts.info.model = model;
        texts.complete = !guid.empty();
        return texts;
    }

    CameraRecords m_records;
};

TEST_F(CameraRecordsTest, Replace_AnyOrder_IsByBusAndPortPath)
{
    const auto first = NewRecord(1);
    const auto second = NewRecord(2);
    m_records.Replace({second, first});
    EXPECT_EQ(m_records.All(), (std::vector<CameraRecordPtr>{first, second}));
}

TEST_F(CameraRecordsTest, Replace_OneIsMissing_ReturnsIt)
{
    const auto stays = NewRecord(1);
    const auto goes = NewRecord(2);
    m_records.Replace({stays, goes});
    EXPECT_EQ(m_records.Replace({stays, NewRecord(3)}), (std::vector<CameraRecordPtr>{goes}));
}

TEST_F(CameraRecordsTest, Known_SameBusPortsAndAddress_IsTheRecord)
{
    const auto record = NewRecord(1, 5);
    m_records.Replace({record});
    EXPECT_EQ(m_records.Known({2, {1}, 5}, nullptr), record);
    EXPECT_EQ(m_records.Known({2, {1}, 6}, nullptr), nullptr);
    EXPECT_EQ(m_records.Known({2, {2}, 5}, nullptr), nullptr);
    EXPECT_EQ(m_records.Known({1, {1}, 5}, nullptr), nullptr);
}

TEST_F(CameraRecordsTest, Known_HasLeftAndComeBackAtTheSameAddress_IsAnotherOne)
{
    const auto record = NewRecord(1);
    m_records.Replace({record});
    record->left = true;
    EXPECT_EQ(m_records.Known(record->place, nullptr), nullptr);
}

TEST_F(CameraRecordsTest, Find_OnlyCaseDiffers_FindsIt)
{
    const auto record = NewRecord(1);
    m_records.Replace({record});
    EXPECT_EQ(m_records.Find("2ab000000001"), nullptr);
    m_records.Admit(*record, Texts("2AB000000001"));
    EXPECT_EQ(m_records.Find("2ab000000001"), record);
    EXPECT_EQ(m_records.Find("2ab000000002"), nullptr);
}

TEST_F(CameraRecordsTest, Admit_TwoCamerasWithOneGuid_TheSecondNamesItsPlace)
{
    const auto first = NewRecord(1);
    const auto second = NewRecord(2);
    m_records.Replace({first, second});
    m_records.Admit(*first, Texts("G"));
    m_records.Admit(*second, Texts("G"));
    EXPECT_EQ(first->info->id, "G");
    EXPECT_EQ(second->info->id, "G@2-2");
}

TEST_F(CameraRecordsTest, Admit_OneWithTheSameGuidComesAtALowerPort_TheFirstKeepsItsId)
{
    const auto there = NewRecord(2);
    m_records.Replace({there});
    m_records.Admit(*there, Texts("G"));
    const auto comes = NewRecord(1);
    m_records.Replace({comes, there});
    m_records.Admit(*comes, Texts("G"));
    EXPECT_EQ(there->info->id, "G");
    EXPECT_EQ(comes->info->id, "G@2-1");
}

TEST_F(CameraRecordsTest, Admit_TheOneWithThePlainGuidLeaves_TheOtherKeepsItsId)
{
    const auto first = NewRecord(1);
    const auto second = NewRecord(2);
    m_records.Replace({first, second});
    m_records.Admit(*first, Texts("G"));
    m_records.Admit(*second, Texts("G"));
    m_records.Replace({second});
    m_records.Admit(*second, Texts("G"));
    EXPECT_EQ(second->info->id, "G@2-2");
}

TEST_F(CameraRecordsTest, Admit_GuidCannotBeRead_IsThePlaceUntilItCan)
{
    const auto record = NewRecord(1);
    m_records.Replace({record});
    m_records.Admit(*record, Texts(""));
    EXPECT_EQ(record->info->id, "usb@2-1");
    EXPECT_TRUE(record->NeedsReading());
    m_records.Admit(*record, Texts("G"));
    EXPECT_EQ(record->info->id, "G");
    EXPECT_FALSE(record->NeedsReading());
}

TEST_F(CameraRecordsTest, Admit_GuidOnceReadAndNowNot_KeepsIdAndTexts)
{
    const auto record = NewRecord(1);
    m_records.Replace({record});
    m_records.Admit(*record, Texts("G", "Model"));
    m_records.Admit(*record, Texts("", ""));
    EXPECT_EQ(record->info->id, "G");
    EXPECT_EQ(record->info->model, "Model");
}

TEST_F(CameraRecordsTest, Admit_TextsMissing_AreTheKernels)
{
    const auto record = NewRecord(1);
    record->kernelTexts.vendor = "Kernel's vendor";
    record->kernelTexts.model = "Kernel's model";
    m_records.Replace({record});
    m_records.Admit(*record, Texts("G", "Model"));
    EXPECT_EQ(record->info->vendor, "Kernel's vendor");
    EXPECT_EQ(record->info->model, "Model");
}

TEST_F(CameraRecordsTest, NeedsReading_OpenLeftOrNoCamera_DoesNot)
{
    const auto record = NewRecord(1);
    EXPECT_TRUE(record->NeedsReading());
    record->open = true;
    EXPECT_FALSE(record->NeedsReading());
    record->open = false;
    record->left = true;
    EXPECT_FALSE(record->NeedsReading());
    record->left = false;
    record->camera.reset();
    EXPECT_FALSE(record->NeedsReading());
}

} // namespace
} // namespace u3v_host
