#include "bus_camera.h"

#include <atomic>
#include <fstream>
#include <unistd.h>

namespace u3v_host {

namespace {

std::filesystem::path NewFolder()
{
    static std::atomic<int> count{0};
    return std::filesystem::temp_directory_path() /
           ("u3v_host_" + std::to_string(getpid()) + "_" + std::to_string(++count));
}

} // namespace

BusTest::BusTest() : m_root(NewFolder())
{
    vusb_reset();
    m_options.systemRoot = m_root.string();
    m_options.stringTime = 100ms;
    m_options.control.defaultTime = 100ms;
    m_options.control.maximumTime = 100ms;
    m_options.control.pendingTime = 1000ms;
    m_options.control.pendingRounds = 20;
    m_options.control.drainTime = 1ms;
    std::filesystem::create_directories(m_root / "sys/bus/usb/devices");
}

BusTest::~BusTest()
{
    CloseList();
    std::filesystem::remove_all(m_root);
    EXPECT_EQ(vusb::Violations(), "");
    vusb_live_objects live{};
    vusb_get_live_objects(&live);
    EXPECT_EQ(live.contexts, 0U);
    EXPECT_EQ(live.handles, 0U);
    EXPECT_EQ(live.transfers, 0U);
    EXPECT_EQ(live.device_references, 0U);
    EXPECT_EQ(live.config_descriptors, 0U);
    EXPECT_EQ(live.dev_mem_blocks, 0U);
}

CameraList& BusTest::List()
{
    if (m_list == nullptr) {
        m_list = std::make_unique<CameraList>(m_options);
    }
    return *m_list;
}

std::unique_ptr<Camera> BusTest::OpenOnly(OpenMode mode)
{
    List().Update(In(kLong));
    const auto cameras = List().Cameras();
    EXPECT_EQ(cameras.size(), 1U);
    return List().Open(cameras.at(0)->id, mode);
}

void BusTest::WriteAttribute(const std::string& device, const std::string& name,
                             const std::string& text) const
{
    const auto folder = m_root / "sys/bus/usb/devices" / device;
    std::filesystem::create_directories(folder);
    std::ofstream(folder / name) << text << '\n';
}

void BusTest::SetDriver(const std::string& interface, const std::string& driver) const
{
    const auto folder = m_root / "sys/bus/usb/devices" / interface;
    std::filesystem::create_directories(folder);
    std::filesystem::remove(folder / "driver");
    std::filesystem::create_symlink("../../../bus/usb/drivers/" + driver, folder / "driver");
}

} // namespace u3v_host
