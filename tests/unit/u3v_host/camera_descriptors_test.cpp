#include "camera_descriptors.h"

#include <deque>
#include <gtest/gtest.h>
#include <vector>

namespace u3v_host {
namespace {

using Bytes = std::vector<uint8_t>;

constexpr uint8_t kBulk = 2;
constexpr uint8_t kInterrupt = 3;

const Bytes kInfo{20, 0x24, 0x01, 0, 0, 1, 0, 0, 0, 1, 0, 1, 2, 3, 4, 5, 6, 7, 8, 8};
const Bytes kAssociation{8, 0x0B, 0, 3, 0xEF, 0x05, 0x00, 0};

// A configuration in one piece, exactly sized so that sanitizers see a step beyond.
class Configuration
{
public:
    struct Endpoint
    {
        uint8_t address;
        uint8_t attributes = kBulk;
        uint16_t packetSize = 1024;
        Bytes extra{};
    };

    Configuration& Add(uint8_t number, uint8_t protocol, const std::vector<Endpoint>& endpoints,
                       const Bytes& extra = {}, uint8_t deviceClass = 0xEF, uint8_t subClass = 0x05)
    {
        auto& all = m_endpoints.emplace_back();
        for (const Endpoint& one : endpoints) {
            libusb_endpoint_descriptor endpoint{};
            endpoint.bEndpointAddress = one.address;
            endpoint.bmAttributes = one.attributes;
            endpoint.wMaxPacketSize = one.packetSize;
            endpoint.extra = m_extras.emplace_back(one.extra).data();
            endpoint.extra_length = static_cast<int>(one.extra.size());
            all.push_back(endpoint);
        }
        libusb_interface_descriptor setting{};
        setting.bInterfaceNumber = number;
        setting.bInterfaceClass = deviceClass;
        setting.bInterfaceSubClass = subClass;
        setting.bInterfaceProtocol = protocol;
        setting.bNumEndpoints = static_cast<uint8_t>(all.size());
        setting.endpoint = all.data();
        setting.extra = m_extras.emplace_back(extra).data();
        setting.extra_length = static_cast<int>(extra.size());
        m_settings.push_back({setting});
        m_interfaces.push_back({m_settings.back().data(), 1});
        return *this;
    }
    Configuration& Extra(const Bytes& extra)
    {
        m_extra = extra;
        return *this;
    }
    Configuration& AddWithoutSetting()
    {
        m_interfaces.push_back({nullptr, 0});
        return *this;
    }

    std::optional<CameraDescriptors> Find(const libusb_device_descriptor& device) const
    {
        libusb_config_descriptor configuration{};
        configuration.bConfigurationValue = 3;
        configuration.bNumInterfaces = static_cast<uint8_t>(m_interfaces.size());
        configuration.interface = m_interfaces.empty() ? nullptr : m_interfaces.data();
        configuration.extra = m_extra.empty() ? nullptr : m_extra.data();
        configuration.extra_length = static_cast<int>(m_extra.size());
        return FindCamera(device, configuration);
    }

private:
    std::deque<std::vector<libusb_endpoint_descriptor>> m_endpoints;
    std::deque<Bytes> m_extras;
    std::deque<std::vector<libusb_interface_descriptor>> m_settings;
    std::vector<libusb_interface> m_interfaces;
    Bytes m_extra;
};

libusb_device_descriptor Miscellaneous()
{
    libusb_device_descriptor device{};
    device.bDeviceClass = 0xEF;
    device.bDeviceSubClass = 0x02;
    device.bDeviceProtocol = 0x01;
    return device;
}

Configuration Whole()
{
    Configuration configuration;
    configuration.Add(0, 0x00, {{0x01}, {0x81}}, kInfo);
    configuration.Add(1, 0x01, {{0x82, kBulk, 512}});
    configuration.Add(2, 0x02, {{0x83}});
    return configuration;
}

TEST(CameraDescriptors, Find_WholeCamera_TellsItsInterfacesAndEndpoints)
{
    const auto camera = Whole().Find(Miscellaneous());
    ASSERT_TRUE(camera);
    EXPECT_EQ(camera->configuration, 3);
    EXPECT_EQ(camera->controlInterface, 0);
    ASSERT_TRUE(camera->control);
    EXPECT_EQ(camera->control->out, 0x01);
    EXPECT_EQ(camera->control->in, 0x81);
    EXPECT_EQ(camera->control->maxPacketSize, 1024);
    ASSERT_TRUE(camera->event);
    EXPECT_EQ(camera->event->interfaceNumber, 1);
    EXPECT_EQ(camera->event->address, 0x82);
    EXPECT_EQ(camera->event->maxPacketSize, 512);
    ASSERT_TRUE(camera->stream);
    EXPECT_EQ(camera->stream->interfaceNumber, 2);
    EXPECT_EQ(camera->stream->address, 0x83);
    EXPECT_EQ(camera->info.deviceGUID, 1);
    EXPECT_EQ(camera->info.userDefinedName, 8);
}

TEST(CameraDescriptors, Find_OnlyControl_IsACameraWithoutTheRest)
{
    Configuration configuration;
    configuration.Add(0, 0x00, {{0x01}, {0x81}}, kInfo);
    const auto camera = configuration.Find(Miscellaneous());
    ASSERT_TRUE(camera);
    EXPECT_FALSE(camera->event);
    EXPECT_FALSE(camera->stream);
}

TEST(CameraDescriptors, Find_AssociationInsteadOfTheDeviceClass_IsACamera)
{
    EXPECT_TRUE(Whole().Extra(kAssociation).Find({}));
    Configuration inInterface;
    inInterface.Add(5, 0x01, {}, kAssociation, 0x03);
    inInterface.Add(0, 0x00, {{0x01}, {0x81}}, kInfo);
    EXPECT_TRUE(inInterface.Find({}));
    Configuration inEndpoint;
    inEndpoint.Add(5, 0x01, {{0x84, kInterrupt, 8, kAssociation}}, {}, 0x03);
    inEndpoint.Add(0, 0x00, {{0x01}, {0x81}}, kInfo);
    EXPECT_TRUE(inEndpoint.Find({}));
}

TEST(CameraDescriptors, Find_NeitherAssociationNorClass_IsNoCamera)
{
    EXPECT_FALSE(Whole().Find({}));
    Bytes other = kAssociation;
    other[5] = 0x02;
    EXPECT_FALSE(Whole().Extra(other).Find({}));
}

TEST(CameraDescriptors, Find_NoDeviceInformation_IsNoCamera)
{
    Configuration without;
    without.Add(0, 0x00, {{0x01}, {0x81}});
    EXPECT_FALSE(without.Find(Miscellaneous()));
    for (size_t size = 0; size < kInfo.size(); ++size) {
        Configuration cut;
        cut.Add(0, 0x00, {{0x01}, {0x81}},
                Bytes(kInfo.begin(), kInfo.begin() + static_cast<ptrdiff_t>(size)));
        EXPECT_FALSE(cut.Find(Miscellaneous())) << size;
    }
}

TEST(CameraDescriptors, Find_NoControlInterface_IsNoCamera)
{
    Configuration configuration;
    configuration.Add(0, 0x02, {{0x81}}, kInfo);
    EXPECT_FALSE(configuration.Find(Miscellaneous()));
    EXPECT_FALSE(Configuration().Find(Miscellaneous()));
}

TEST(CameraDescriptors, Find_EndpointsOfOtherKinds_AreNotUsed)
{
    Configuration configuration;
    configuration.Add(0, 0x00, {{0x01, kInterrupt}, {0x81, kInterrupt}}, kInfo);
    configuration.Add(1, 0x01, {{0x82, kBulk, 0}});
    configuration.Add(2, 0x02, {{0x03}});
    const auto camera = configuration.Find(Miscellaneous());
    ASSERT_TRUE(camera);
    EXPECT_FALSE(camera->control);
    EXPECT_FALSE(camera->event);
    EXPECT_FALSE(camera->stream);
}

TEST(CameraDescriptors, Find_InterfacesWithoutASetting_AreSkipped)
{
    Configuration configuration;
    configuration.AddWithoutSetting();
    configuration.Add(0, 0x00, {{0x01}, {0x81}}, kInfo);
    EXPECT_TRUE(configuration.Find(Miscellaneous()));
}

TEST(CameraDescriptors, Find_ExtraBytesOfAnyLength_AreNotReadBeyond)
{
    for (const Bytes& extra : {Bytes{}, Bytes{0}, Bytes{1}, Bytes{2}, Bytes{8}, Bytes{8, 0x0B},
                               Bytes{0, 0x0B, 0}, Bytes{1, 0x0B}, Bytes{255, 0x0B, 0, 3, 0xEF},
                               Bytes{2, 0x0B, 8, 0x0B, 0, 3, 0xEF, 0x05}}) {
        EXPECT_FALSE(Whole().Extra(extra).Find({}));
    }
}

TEST(CameraDescriptors, Find_AssociationBehindOtherDescriptors_IsFound)
{
    Bytes extra{3, 0x30, 1};
    extra.insert(extra.end(), kAssociation.begin(), kAssociation.end());
    EXPECT_TRUE(Whole().Extra(extra).Find({}));
}

} // namespace
} // namespace u3v_host
