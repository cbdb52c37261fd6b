#include "kernel_records.h"

#include <fstream>
#include <gtest/gtest.h>
#include <unistd.h>

namespace u3v_host {
namespace {

namespace fs = std::filesystem;

class KernelRecordsTest : public ::testing::Test
{
protected:
    KernelRecordsTest()
        : m_root(fs::temp_directory_path() / ("kernel_records_" + std::to_string(getpid()))),
          m_devices(m_root / "sys/bus/usb/devices")
    {
        fs::create_directories(m_devices / "2-1.4");
        fs::create_directories(m_devices / "2-1.4:1.0");
    }
    ~KernelRecordsTest() override { fs::remove_all(m_root); }

    void Write(const char* name, const std::string& text) const
    {
        std::ofstream(m_devices / "2-1.4" / name) << text;
    }

    const fs::path m_root;
    const fs::path m_devices;
    const KernelRecords m_kernel{m_root};
    const UsbPlace m_place{2, {1, 4}, 9};
};

TEST_F(KernelRecordsTest, Texts_Attributes_AreTheTexts)
{
    Write("manufacturer", "Maker\n");
    Write("product", "Eye\n");
    Write("serial", "S1\n");
    const CameraInfo info = m_kernel.Texts(m_place);
    EXPECT_EQ(info.vendor, "Maker");
    EXPECT_EQ(info.model, "Eye");
    EXPECT_EQ(info.serial, "S1");
}

TEST_F(KernelRecordsTest, Texts_ControlCharacters_AreBlanks)
{
    Write("product", "a\x1B[31m\n");
    EXPECT_EQ(m_kernel.Texts(m_place).model, "a [31m");
}

TEST_F(KernelRecordsTest, Texts_NothingThere_AreEmpty)
{
    EXPECT_EQ(m_kernel.Texts(m_place), CameraInfo());
    EXPECT_EQ(m_kernel.Texts({7, {7}, 7}), CameraInfo());
    EXPECT_EQ(KernelRecords("/nonexistent").Texts(m_place), CameraInfo());
}

TEST_F(KernelRecordsTest, IsClaimed_DriverOfProcesses_IsTrue)
{
    EXPECT_FALSE(m_kernel.IsClaimed(m_place, 1, 0));
    fs::create_symlink("../../../bus/usb/drivers/usbfs", m_devices / "2-1.4:1.0/driver");
    EXPECT_TRUE(m_kernel.IsClaimed(m_place, 1, 0));
    EXPECT_FALSE(m_kernel.IsClaimed(m_place, 1, 1));
    EXPECT_FALSE(m_kernel.IsClaimed(m_place, 2, 0));
}

TEST_F(KernelRecordsTest, IsClaimed_DriverOfTheKernel_IsFalse)
{
    fs::create_symlink("../../../bus/usb/drivers/uvcvideo", m_devices / "2-1.4:1.0/driver");
    EXPECT_FALSE(m_kernel.IsClaimed(m_place, 1, 0));
}

} // namespace
} // namespace u3v_host
