#include "u3v_fixture.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <unistd.h>
#include <zr_u3v_tl/zr_logging.h>

namespace {

// The logger can be switched on once, so all tests of a process share one file.
const std::string& LogFile()
{
    static const std::string path = [] {
        char name[] = "/tmp/zr_u3v_tests_XXXXXX";
        const int file = mkstemp(name);
        if (file >= 0) {
            close(file);
        }
        g_logger.Init(true, name, static_cast<ZrLogLevel>(0xFFFFFFFF));
        static std::string owned;
        owned = name;
        std::atexit([] { std::remove(owned.c_str()); });
        return std::string(name);
    }();
    return path;
}

} // namespace

LogCapture::LogCapture()
{
    std::ifstream file(LogFile(), std::ios::ate);
    m_start = static_cast<long>(file.tellg());
}

std::vector<std::string> LogCapture::Lines() const
{
    std::ifstream file(LogFile());
    file.seekg(m_start);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) {
        lines.push_back(line.substr(line.find('[')));
    }
    return lines;
}

UsbTest::UsbTest()
{
    usb.Reset();
}

void UsbTest::TearDown()
{
    EXPECT_FALSE(usb.nullHandleSeen);
    EXPECT_FALSE(usb.deviceMemoryMisused);
    EXPECT_FALSE(usb.blockedInCompletion);
    if (!expectLeftovers) {
        EXPECT_EQ(usb.liveTransfers.load(), 0);
        EXPECT_EQ(usb.liveLists.load(), 0);
    }
}

Bytes DeviceInfoDescriptor()
{
    return {0x14, 0x24, 0x01, 0x02, 0x00, 0x01, 0x00, 0x00, 0x00, 0x01,
            0x00, 1,    2,    3,    4,    5,    6,    7,    8,    0x08};
}

libusb_device& AddCamera(FakeUsb& usb, const std::string& name, const std::string& guid,
                         const std::string& vendor)
{
    libusb_device& device = usb.AddDevice(name);
    device.descriptor.bDeviceClass = 0xEF;
    device.descriptor.bDeviceSubClass = 0x02;
    device.descriptor.bDeviceProtocol = 0x01;
    device.descriptor.bNumConfigurations = 1;
    device.descriptor.iManufacturer = 2;
    device.descriptor.iProduct = 3;
    device.descriptor.iSerialNumber = 7;
    device.strings = {{1, guid},   {2, vendor}, {3, "Model"}, {4, "Family"},
                      {5, "V1.0"}, {6, "Info"}, {7, "SN-01"}, {8, "Name"}};
    device.configurations = {{
        {{0, 0xEF, 0x05, 0, {0x01, 0x81}, DeviceInfoDescriptor()}},
        {{1, 0xEF, 0x05, 1, {0x82}, {}}},
        {{2, 0xEF, 0x05, 2, {0x83}, {}}},
    }};
    return device;
}

Bytes Little(uint64_t value, size_t size)
{
    Bytes bytes;
    for (size_t i = 0; i < size; ++i) {
        bytes.push_back(static_cast<uint8_t>(value >> (8 * i)));
    }
    return bytes;
}

CameraTest::CameraTest() : camera(AddCamera(usb, "cam", "0123456789AB"))
{
    camera.memory[0x1D8] = Little(kSbrm, 8);
    camera.memory[0x1CC] = Little(0xFFFFFFFF000001F4, 8); // 500 ms
    camera.memory[kSbrm + 0x14] = Little(1024, 4);
    camera.memory[kSbrm + 0x18] = Little(2048, 4);
    camera.memory[kSbrm + 0x1C] = Little(1, 4);
    camera.memory[0x1C4] = Little(0xFFF, 8);
    camera.memory[kSbrm + 0x04] = Little(1, 8);
    camera.memory[kSbrm + 0x20] = Little(kSirm, 8);
    camera.memory[kSbrm + 0x28] = Little(0x40, 4);
    camera.memory[kSirm + 0x00] = Little(0x04000000, 4); // aligned to 16
    camera.memory[kSirm + 0x04] = Little(0, 4);

    auto info = std::make_shared<U3V_DeviceInfo>(nullptr, &camera);
    info->ControlInterface = 3;
    info->EventInterface = 1;
    info->StreamInterface = 2;
    info->ControlOutEndpoint = 0x01;
    info->ControlInEndpoint = 0x81;
    info->EventEndpoint = 0x82;
    info->StreamEndpoint = 0x83;
    EXPECT_EQ(device.OpenDevice(info), 0);
    usb.ClearJournal();
}
