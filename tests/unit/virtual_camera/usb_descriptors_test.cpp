// The descriptors as bytes, against the standard's description of a USB3 Vision device.

#include "camera_host.h"
#include "plain_usb_device.h"

using vcam::UsbStatus;

namespace {

Bytes Descriptor(vcam::UsbDevice& device, unsigned type, unsigned index = 0,
                 std::uint16_t length = 4096)
{
    Bytes bytes;
    const auto value = static_cast<std::uint16_t>(type << 8 | index);
    const auto status = device.Control({0x80, 6, value, 0, length}, bytes).status;
    return status == UsbStatus::Done ? bytes : Bytes();
}

std::string StringOf(vcam::UsbDevice& device, unsigned index)
{
    const Bytes bytes = Descriptor(device, 3, index);
    std::string text;
    for (std::size_t i = 2; i + 1 < bytes.size(); i += 2) {
        text += static_cast<char>(bytes[i]);
    }
    return text;
}

// Offsets of all descriptors; fails when they do not add up to the whole.
std::vector<std::size_t> Walk(const Bytes& configuration)
{
    std::vector<std::size_t> places;
    std::size_t at = 0;
    while (at < configuration.size() && configuration[at] >= 2) {
        places.push_back(at);
        at += configuration[at];
    }
    EXPECT_EQ(configuration.size(), at);
    return places;
}

std::string Types(const Bytes& configuration)
{
    std::string types;
    for (const std::size_t at : Walk(configuration)) {
        switch (configuration[at + 1]) {
        case 2: types += 'C'; break;
        case 4: types += 'I'; break;
        case 5: types += 'E'; break;
        case 11: types += 'A'; break;
        case 0x24: types += 'v'; break;
        case 0x30: types += 's'; break;
        default: types += '?'; break;
        }
    }
    return types;
}

} // namespace

TEST(UsbDescriptors, Device_IsOfTheAssociationClass)
{
    CameraHost host;
    const Bytes device = Descriptor(host.camera, 1);
    ASSERT_EQ(18U, device.size());
    EXPECT_EQ((Bytes{18, 1, 0, 3, 0xEF, 2, 1, 9, 0x09, 0x12, 1, 0, 0, 1, 1, 2, 3, 1}), device);
}

TEST(UsbDescriptors, Configuration_SuperSpeed_HasACompanionBehindEachEndpoint)
{
    CameraHost host;
    const Bytes configuration = Descriptor(host.camera, 2);
    EXPECT_EQ("CAIvEsEsIEs", Types(configuration));
    EXPECT_EQ(configuration.size(), Get(configuration, 2, 2));
    EXPECT_EQ(2, configuration[4]);
    const Bytes association{8, 11, 0, 2, 0xEF, 5, 0};
    EXPECT_EQ(association, Bytes(configuration.begin() + 9, configuration.begin() + 16));
}

TEST(UsbDescriptors, Configuration_WithEvents_ThreeInterfaces)
{
    CameraHost host("events=1");
    const Bytes configuration = Descriptor(host.camera, 2);
    EXPECT_EQ("CAIvEsEsIEsIEs", Types(configuration));
    std::vector<int> protocols;
    for (const std::size_t at : Walk(configuration)) {
        if (configuration[at + 1] == 4) {
            EXPECT_EQ(0xEF, configuration[at + 5]);
            EXPECT_EQ(5, configuration[at + 6]);
            protocols.push_back(configuration[at + 7]);
        }
    }
    EXPECT_EQ((std::vector<int>{0, 1, 2}), protocols);
}

TEST(UsbDescriptors, HighSpeed_PacketsOf512WithoutCompanion)
{
    CameraHost host("high-speed=1");
    const Bytes configuration = Descriptor(host.camera, 2);
    EXPECT_EQ("CAIvEEIE", Types(configuration));
    for (const std::size_t at : Walk(configuration)) {
        if (configuration[at + 1] == 5) {
            EXPECT_EQ(512U, Get(configuration, at + 4, 2));
        }
    }
    EXPECT_EQ(2, Descriptor(host.camera, 1)[3]);
    EXPECT_TRUE(Descriptor(host.camera, 15).empty());
    EXPECT_EQ(10U, Descriptor(host.camera, 6).size());
}

TEST(UsbDescriptors, Bos_ExtensionAndSuperSpeed)
{
    CameraHost host;
    const Bytes bos = Descriptor(host.camera, 15);
    EXPECT_EQ(22U, bos.size());
    EXPECT_EQ(22U, Get(bos, 2, 2));
    EXPECT_EQ(2, bos[4]);
    EXPECT_EQ((Bytes{7, 16, 2}), Bytes(bos.begin() + 5, bos.begin() + 8));
    EXPECT_EQ((Bytes{10, 16, 3}), Bytes(bos.begin() + 12, bos.begin() + 15));
}

TEST(UsbDescriptors, CameraInfo_PointsToTheStrings)
{
    CameraHost host("guid=120900ABCDEF,vendor=Ven,model=Mod,family=Fam,version=9.8,info=Inf,"
                    "serial=Ser,user=Usr");
    const Bytes configuration = Descriptor(host.camera, 2);
    std::size_t info = 0;
    for (const std::size_t at : Walk(configuration)) {
        info = configuration[at + 1] == 0x24 ? at : info;
    }
    ASSERT_NE(0U, info);
    EXPECT_EQ((Bytes{20, 0x24, 1, 0, 0, 1, 0, 0, 0, 1, 0}),
              Bytes(configuration.begin() + static_cast<std::ptrdiff_t>(info),
                    configuration.begin() + static_cast<std::ptrdiff_t>(info) + 11));
    const char* strings[] = {"120900ABCDEF", "Ven", "Mod", "Fam", "9.8", "Inf", "Ser", "Usr"};
    for (std::size_t i = 0; i < 8; ++i) {
        EXPECT_EQ(strings[i], StringOf(host.camera, configuration[info + 11 + i]));
    }
    EXPECT_EQ(0x0C, configuration[info + 19]);
}

TEST(UsbDescriptors, Strings_LanguageTableAndLimits)
{
    CameraHost host;
    EXPECT_EQ((Bytes{4, 3, 9, 4}), Descriptor(host.camera, 3, 0));
    EXPECT_TRUE(Descriptor(host.camera, 3, 200).empty());
    EXPECT_EQ(5U, Descriptor(host.camera, 2, 0, 5).size());
}

TEST(UsbDescriptors, StandardRequests_StatusConfigurationHalt)
{
    CameraHost host;
    Bytes data;
    EXPECT_EQ(UsbStatus::Done, host.camera.Control({0x80, 8, 0, 0, 1}, data).status);
    EXPECT_EQ(Bytes{1}, data);
    EXPECT_EQ(UsbStatus::Stall, host.camera.Control({0x00, 9, 2, 0, 0}, data).status);
    EXPECT_EQ(UsbStatus::Done, host.camera.Control({0x02, 3, 0, 0x83, 0}, data).status);
    EXPECT_EQ(UsbStatus::Done, host.camera.Control({0x82, 0, 0, 0x83, 2}, data).status);
    EXPECT_EQ((Bytes{1, 0}), data);
    EXPECT_EQ(UsbStatus::Stall, host.Stream(64).status);
    EXPECT_EQ(UsbStatus::Done, host.camera.Control({0x02, 1, 0, 0x83, 0}, data).status);
    EXPECT_EQ(UsbStatus::Nak, host.Stream(64).status);
    EXPECT_EQ(UsbStatus::Stall, host.camera.Control({0x02, 1, 0, 0x8A, 0}, data).status);
    EXPECT_EQ(UsbStatus::Stall, host.camera.Control({0xC0, 1, 0, 0, 4}, data).status);
    EXPECT_EQ(UsbStatus::Stall, host.camera.Control({0x81, 0, 0, 7, 2}, data).status);
}

TEST(UsbDescriptors, Faults_MissingInterfaces)
{
    CameraHost noStream("faults=no-stream-interface");
    EXPECT_EQ("CAIvEsEs", Types(Descriptor(noStream.camera, 2)));
    CameraHost noControl("faults=no-control-interface");
    EXPECT_EQ("CAIEs", Types(Descriptor(noControl.camera, 2)));
    CameraHost noInfo("faults=info-missing");
    EXPECT_EQ("CAIEsEsIEs", Types(Descriptor(noInfo.camera, 2)));
}

TEST(UsbDescriptors, Faults_SpoiltBytes)
{
    const auto configuration = [](const std::string& faults) {
        CameraHost host("faults=" + faults);
        return Descriptor(host.camera, 2);
    };
    const std::size_t whole = CameraHost().camera.Descriptors().Configuration().size();
    EXPECT_EQ(20U, configuration("descriptor-cut").size());
    EXPECT_EQ(3U, configuration("descriptor-cut:3").size());
    EXPECT_EQ(0xFFFFU, Get(configuration("descriptor-total"), 2, 2));
    EXPECT_EQ(255, configuration("descriptor-interfaces")[4]);
    EXPECT_EQ(255, configuration("descriptor-endpoints")[17 + 4]);
    EXPECT_EQ(0, configuration("descriptor-zero-length")[17]);
    EXPECT_EQ(whole - 15, configuration("info-short").size());
    EXPECT_EQ(5, configuration("info-short")[26]);
    EXPECT_EQ(whole - 15, configuration("info-lies").size());
    EXPECT_EQ(20, configuration("info-lies")[26]);
    EXPECT_EQ(whole - 15, configuration("info-at-end").size());
    EXPECT_TRUE(configuration("config-fails").empty());
    CameraHost device("faults=device-descriptor-fails");
    EXPECT_TRUE(Descriptor(device.camera, 1).empty());
    CameraHost strings("faults=strings-fail");
    EXPECT_TRUE(Descriptor(strings.camera, 3, 1).empty());
    CameraHost odd("faults=strings-odd");
    EXPECT_EQ((Bytes{3, 7, 'x'}), Descriptor(odd.camera, 3, 1));
}

TEST(PlainDevices, Kinds_DescribeThemselves)
{
    for (const char* kind : {"mouse", "hub", "disk", "iad", "broken"}) {
        const auto device = vcam::MakePlainDevice(kind);
        ASSERT_NE(nullptr, device) << kind;
        EXPECT_EQ(18U, Descriptor(*device, 1).size()) << kind;
        EXPECT_EQ(kind, StringOf(*device, 2)) << kind;
    }
    EXPECT_EQ(nullptr, vcam::MakePlainDevice("toaster"));
}
