#include "descriptor_parser.h"

#include <algorithm>
#include <cstring>

namespace vbus {

namespace {

constexpr int kMaxInterfaces = 32;
constexpr int kMaxEndpoints = 32;

std::uint16_t Word(ByteSpan bytes, std::size_t at)
{
    return static_cast<std::uint16_t>(bytes[at] | bytes[at + 1] << 8);
}

bool IsStructural(std::uint8_t type)
{
    return type == LIBUSB_DT_DEVICE || type == LIBUSB_DT_CONFIG || type == LIBUSB_DT_INTERFACE ||
           type == LIBUSB_DT_ENDPOINT;
}

libusb_interface_descriptor InterfaceFrom(ByteSpan bytes)
{
    libusb_interface_descriptor setting{};
    setting.bLength = bytes[0];
    setting.bDescriptorType = bytes[1];
    setting.bInterfaceNumber = bytes[2];
    setting.bAlternateSetting = bytes[3];
    setting.bNumEndpoints = bytes[4];
    setting.bInterfaceClass = bytes[5];
    setting.bInterfaceSubClass = bytes[6];
    setting.bInterfaceProtocol = bytes[7];
    setting.iInterface = bytes[8];
    return setting;
}

} // namespace

int ParseDevice(ByteSpan bytes, libusb_device_descriptor& descriptor)
{
    if (bytes.size() < LIBUSB_DT_DEVICE_SIZE) {
        return LIBUSB_ERROR_IO;
    }
    std::memcpy(&descriptor, bytes.data(), LIBUSB_DT_DEVICE_SIZE); // a little-endian host
    return LIBUSB_SUCCESS;
}

int ParsedConfiguration::Parse(ByteSpan bytes)
{
    if (bytes.size() < LIBUSB_DT_CONFIG_SIZE || bytes[1] != LIBUSB_DT_CONFIG ||
        bytes[0] < LIBUSB_DT_CONFIG_SIZE || bytes[0] > bytes.size() || bytes[4] > kMaxInterfaces) {
        return LIBUSB_ERROR_IO;
    }
    m_config.bLength = bytes[0];
    m_config.bDescriptorType = bytes[1];
    m_config.wTotalLength = Word(bytes, 2);
    m_config.bNumInterfaces = bytes[4];
    m_config.bConfigurationValue = bytes[5];
    m_config.iConfiguration = bytes[6];
    m_config.bmAttributes = bytes[7];
    m_config.MaxPower = bytes[8];
    const std::size_t size = std::min<std::size_t>(bytes.size(), m_config.wTotalLength);
    const std::size_t head = m_config.bLength;
    return _ParseInterfaces(size > head ? bytes.subspan(head, size - head) : ByteSpan());
}

int ParsedConfiguration::_ParseInterfaces(ByteSpan bytes)
{
    m_interfaces.resize(m_config.bNumInterfaces);
    std::size_t count = 0;
    int error = _TakeExtra(bytes, m_config.extra, m_config.extra_length);
    while (error == 0 && count < m_interfaces.size() && !bytes.empty()) {
        const std::size_t before = bytes.size();
        error = _ParseInterface(bytes, m_interfaces[count]);
        if (m_interfaces[count].num_altsetting == 0 || bytes.size() == before) {
            break;
        }
        ++count;
    }
    m_config.interface = m_interfaces.data();
    m_config.bNumInterfaces = static_cast<std::uint8_t>(count);
    return error;
}

// All alternate settings of one interface: as long as the next one has the same number.
int ParsedConfiguration::_ParseInterface(ByteSpan& bytes, libusb_interface& interface)
{
    std::vector<libusb_interface_descriptor>& settings = m_settings.emplace_back();
    int error = 0;
    while (error == 0 && bytes.size() >= LIBUSB_DT_INTERFACE_SIZE &&
           bytes[1] == LIBUSB_DT_INTERFACE) {
        if (!settings.empty() && bytes[2] != settings.front().bInterfaceNumber) {
            break;
        }
        if (bytes[0] > bytes.size()) {
            break;
        }
        if (bytes[0] < LIBUSB_DT_INTERFACE_SIZE || bytes[4] > kMaxEndpoints) {
            return LIBUSB_ERROR_IO;
        }
        libusb_interface_descriptor setting = InterfaceFrom(bytes);
        bytes = bytes.subspan(bytes[0]);
        error = _ParseSetting(bytes, setting);
        settings.push_back(setting);
    }
    interface.altsetting = settings.data();
    interface.num_altsetting = static_cast<int>(settings.size());
    return error;
}

int ParsedConfiguration::_ParseSetting(ByteSpan& bytes, libusb_interface_descriptor& setting)
{
    int error = _TakeExtra(bytes, setting.extra, setting.extra_length);
    std::vector<libusb_endpoint_descriptor>& endpoints = m_endpoints.emplace_back();
    while (error == 0 && endpoints.size() < setting.bNumEndpoints) {
        const std::size_t before = bytes.size();
        libusb_endpoint_descriptor endpoint{};
        error = _ParseEndpoint(bytes, endpoint);
        if (error != 0 || bytes.size() == before) {
            break;
        }
        endpoints.push_back(endpoint);
    }
    setting.bNumEndpoints = static_cast<std::uint8_t>(endpoints.size());
    setting.endpoint = endpoints.data();
    return error;
}

// Leaves the bytes alone when there is no whole endpoint descriptor at their front.
int ParsedConfiguration::_ParseEndpoint(ByteSpan& bytes, libusb_endpoint_descriptor& endpoint)
{
    if (bytes.size() < 2 || bytes[1] != LIBUSB_DT_ENDPOINT || bytes[0] > bytes.size()) {
        return LIBUSB_SUCCESS;
    }
    if (bytes[0] < LIBUSB_DT_ENDPOINT_SIZE) {
        return LIBUSB_ERROR_IO;
    }
    endpoint.bLength = bytes[0];
    endpoint.bDescriptorType = bytes[1];
    endpoint.bEndpointAddress = bytes[2];
    endpoint.bmAttributes = bytes[3];
    endpoint.wMaxPacketSize = Word(bytes, 4);
    endpoint.bInterval = bytes[6];
    bytes = bytes.subspan(bytes[0]);
    return _TakeExtra(bytes, endpoint.extra, endpoint.extra_length);
}

// Everything up to the next structural descriptor. A descriptor that is longer than what is left
// ends the whole: its bytes still belong to the extra ones.
int ParsedConfiguration::_TakeExtra(ByteSpan& bytes, const unsigned char*& extra, int& length)
{
    std::size_t size = 0;
    while (bytes.size() - size >= 2 && !IsStructural(bytes[size + 1])) {
        const std::size_t one = bytes[size];
        if (one < 2) {
            return LIBUSB_ERROR_IO;
        }
        size += std::min(one, bytes.size() - size);
    }
    if (size != 0) {
        auto& block = m_extras.emplace_back(std::make_unique<std::uint8_t[]>(size));
        std::copy_n(bytes.begin(), size, block.get());
        extra = block.get();
        length = static_cast<int>(size);
    }
    bytes = bytes.subspan(size);
    if (bytes.size() == 1) {
        bytes = {}; // a single byte is no descriptor
    }
    return LIBUSB_SUCCESS;
}

template <typename Visit>
const libusb_endpoint_descriptor* ParsedConfiguration::_FindEndpoint(std::uint8_t address,
                                                                     Visit visit) const
{
    for (const auto& settings : m_settings) {
        for (const libusb_interface_descriptor& setting : settings) {
            for (int i = 0; i < setting.bNumEndpoints; ++i) {
                if (setting.endpoint[i].bEndpointAddress == address) {
                    visit(setting);
                    return &setting.endpoint[i];
                }
            }
        }
    }
    return nullptr;
}

int ParsedConfiguration::InterfaceOf(std::uint8_t endpoint) const
{
    int number = -1;
    _FindEndpoint(endpoint, [&number](const libusb_interface_descriptor& setting) {
        number = setting.bInterfaceNumber;
    });
    return number;
}

int ParsedConfiguration::PacketSizeOf(std::uint8_t endpoint) const
{
    const auto* found = _FindEndpoint(endpoint, [](const libusb_interface_descriptor&) {});
    return found == nullptr ? int{LIBUSB_ERROR_NOT_FOUND} : int{found->wMaxPacketSize};
}

bool ParsedConfiguration::HasInterface(int number) const
{
    return std::any_of(m_settings.begin(), m_settings.end(), [number](const auto& settings) {
        return !settings.empty() && settings.front().bInterfaceNumber == number;
    });
}

} // namespace vbus
