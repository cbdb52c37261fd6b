#include "u3v_deviceinfo.h"

#include "u3v_common.h"

#include "descriptors.h"

#include <atomic>
#include <cstring>

namespace {

// A string of the descriptor: which byte names it and which field it fills.
struct StringField
{
    Field<uint8_t> index;
    char* target;
    int width;
};

// Reads one string into its field and keeps the field terminated whatever libusb leaves there.
// `last` is passed through when there is nothing to read from or no index.
int ReadString(libusb_device_handle* handle, std::span<const uint8_t> descriptor,
               const StringField& field, int last)
{
    if (handle == nullptr || descriptor.size() < field.index.End()) {
        return last;
    }
    auto* target = reinterpret_cast<unsigned char*>(field.target);
    const int result = libusb_get_string_descriptor_ascii(handle, Load(descriptor, field.index),
                                                          target, field.width);
    field.target[field.width - 1] = '\0';
    return result;
}

template <size_t Width>
StringField Into(Field<uint8_t> index, char (&target)[Width])
{
    return {index, target, static_cast<int>(Width)};
}

} // namespace

U3V_DeviceInfo::U3V_DeviceInfo(std::shared_ptr<UsbContext> context, libusb_device* device)
    : U3V_DEVICE_INFO{}, m_context(std::move(context)), m_pDevice(device)
{
}

U3V_DeviceInfo::~U3V_DeviceInfo()
{
    m_config.reset();
    if (m_retained) {
        libusb_unref_device(m_pDevice);
    }
}

void U3V_DeviceInfo::Retain()
{
    if (!m_retained) {
        libusb_ref_device(m_pDevice);
        m_retained = true;
    }
}

// Consumers copy the record while a camera is opened or closed. The rest of it no longer changes,
// so this one byte is all that needs care.
void U3V_DeviceInfo::SetInUse(bool inUse)
{
    std::atomic_ref<uint8_t>(InUse).store(inUse ? 1 : 0);
}

U3V_DEVICE_INFO U3V_DeviceInfo::Record()
{
    U3V_DEVICE_INFO copy{};
    std::memcpy(&copy, static_cast<const U3V_DEVICE_INFO*>(this), offsetof(U3V_DEVICE_INFO, InUse));
    copy.InUse = std::atomic_ref<uint8_t>(InUse).load();
    return copy;
}

int U3V_DeviceInfo::GetDeviceInfo(libusb_device_handle* handle, uint8_t configurationIndex)
{
    libusb_config_descriptor* config = nullptr;
    int result = libusb_get_config_descriptor(m_pDevice, configurationIndex, &config);
    if (result < 0) {
        U3V_LogUsbError("GetDeviceInfo", result);
        config = nullptr;
    }
    m_config.reset(config); // an earlier configuration's descriptor goes here
    if (config == nullptr || config->interface == nullptr) {
        return result;
    }
    for (int i = 0; i < config->bNumInterfaces; ++i) {
        result = _parseInterface(handle, config->interface[i], result);
    }
    return result;
}

int U3V_DeviceInfo::_parseInterface(libusb_device_handle* handle, const libusb_interface& group,
                                    int last)
{
    for (int i = 0; group.altsetting != nullptr && i < group.num_altsetting; ++i) {
        last = _parseAlternate(handle, group.altsetting[i], last);
    }
    return last;
}

int U3V_DeviceInfo::_parseAlternate(libusb_device_handle* handle,
                                    const libusb_interface_descriptor& setting, int last)
{
    if (setting.bInterfaceClass == usb_identity::kVisionClass &&
        setting.bInterfaceSubClass == usb_identity::kVisionSubClass) {
        switch (setting.bInterfaceProtocol) {
        case usb_identity::kControlProtocol: ControlInterface = setting.bInterfaceNumber; break;
        case usb_identity::kEventProtocol: EventInterface = setting.bInterfaceNumber; break;
        case usb_identity::kStreamProtocol: StreamInterface = setting.bInterfaceNumber; break;
        default: break;
        }
    }

    // Quirk Q50: the descriptor is taken from any interface, USB3 Vision or not.
    const size_t extra = setting.extra == nullptr || setting.extra_length < 0
                             ? 0
                             : static_cast<size_t>(setting.extra_length);
    const std::span<const uint8_t> bytes(setting.extra, extra);
    if (Load(bytes, device_info_wire::kDescriptorType) == device_info_wire::kType) {
        last = get_class_specific_descriptor(handle, bytes, *this);
    }

    // Quirk Q51: endpoints are told by the protocol byte alone, whatever class the interface has.
    for (int i = 0; setting.endpoint != nullptr && i < setting.bNumEndpoints; ++i) {
        _storeEndpoint(setting.bInterfaceProtocol, setting.endpoint[i].bEndpointAddress);
    }
    return last;
}

void U3V_DeviceInfo::_storeEndpoint(uint8_t protocol, uint8_t address)
{
    switch (protocol) {
    case usb_identity::kControlProtocol:
        ((address & usb_identity::kEndpointIn) != 0 ? ControlInEndpoint : ControlOutEndpoint) =
            address;
        break;
    case usb_identity::kEventProtocol: EventEndpoint = address; break;
    case usb_identity::kStreamProtocol: StreamEndpoint = address; break;
    default: break;
    }
}

int U3V_DeviceInfo::get_class_specific_descriptor(libusb_device_handle* handle,
                                                  std::span<const uint8_t> descriptor,
                                                  U3V_DEVICE_INFO& record)
{
    namespace wire = device_info_wire;
    if (descriptor.size() >= wire::kGenCPVersion.End()) {
        record.GenCPVersion = Load(descriptor, wire::kGenCPVersion);
    }
    if (descriptor.size() >= wire::kU3VVersion.End()) {
        record.U3VVersion = Load(descriptor, wire::kU3VVersion);
    }
    // In the descriptor's order. A field whose string is missing stays empty.
    const StringField fields[] = {
        Into(wire::kDeviceGUID, record.DeviceGUID),
        Into(wire::kVendorName, record.VendorName),
        Into(wire::kModelName, record.ModelName),
        Into(wire::kFamilyName, record.FamilyName),
        Into(wire::kDeviceVersion, record.DeviceVersion),
        Into(wire::kManufacturerInfo, record.ManufacturerInfo),
        Into(wire::kSerialNumber, record.SerialNumber),
        Into(wire::kUserDefinedName, record.UserDefinedName),
    };
    // Quirk Q52: only the last string's result is reported, the others are read as they come.
    int last = 0;
    for (const StringField& field : fields) {
        last = ReadString(handle, descriptor, field, last);
    }
    if (descriptor.size() >= wire::kSpeedSupport.End()) {
        record.SpeedSupport = Load(descriptor, wire::kSpeedSupport);
    }
    return last;
}
