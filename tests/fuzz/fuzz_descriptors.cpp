// Descriptors and strings: what a device says about itself before anybody has opened it.

#include "fuzz_camera.h"
#include "fuzz_input.h"

#include <zr_u3v_tl/u3v_lib.h>

namespace {

FakeAlternate TakeAlternate(FuzzInput& input)
{
    FakeAlternate alternate;
    alternate.number = input.Byte();
    const bool vision = input.Below(4) != 0; // mostly a USB3 Vision interface
    alternate.classCode = vision ? uint8_t{0xEF} : input.Byte();
    alternate.subClass = vision ? uint8_t{0x05} : input.Byte();
    alternate.protocol = static_cast<uint8_t>(input.Below(5));
    alternate.endpoints = input.Bytes(input.Below(4));
    alternate.extra = input.Bytes(input.Below(48));
    if (alternate.extra.size() > 1 && input.Flag()) {
        alternate.extra[1] = 0x24; // a device information descriptor
    }
    return alternate;
}

FakeConfiguration TakeConfiguration(FuzzInput& input)
{
    FakeConfiguration configuration;
    for (unsigned groups = input.Below(5); groups > 0; --groups) {
        FakeInterface group;
        for (unsigned alternates = input.Below(4); alternates > 0; --alternates) {
            group.push_back(TakeAlternate(input));
        }
        configuration.push_back(group);
    }
    return configuration;
}

void TakeDevice(FuzzInput& input, libusb_device& device)
{
    device.descriptor.bDeviceClass = input.Below(8) != 0 ? uint8_t{0xEF} : input.Byte();
    device.descriptor.bDeviceSubClass = 0x02;
    device.descriptor.bDeviceProtocol = 0x01;
    device.descriptor.iManufacturer = input.Byte();
    device.descriptor.iProduct = input.Byte();
    device.descriptor.iSerialNumber = input.Byte();
    device.descriptor.bNumConfigurations = static_cast<uint8_t>(input.Below(6));
    device.descriptorResult = input.Below(16) == 0 ? LIBUSB_ERROR_IO : 0;
    device.configurationResult = input.Below(16) == 0 ? LIBUSB_ERROR_IO : 0;
    device.openResult = input.Below(8) == 0 ? LIBUSB_ERROR_ACCESS : 0;
    device.openGivesHandle = device.openResult == 0;
    device.unterminatedStrings = input.Below(8) == 0;
    for (unsigned strings = input.Below(10); strings > 0; --strings) {
        const uint8_t index = input.Byte();
        device.strings[index] = input.Text(input.Byte());
    }
    for (unsigned configurations = input.Below(4); configurations > 0; --configurations) {
        device.configurations.push_back(TakeConfiguration(input));
    }
}

template <size_t Width>
bool IsTerminated(const char (&field)[Width])
{
    return std::memchr(field, 0, Width) != nullptr;
}

void CheckRecord(uint16_t index)
{
    U3V_DEVICE_INFO info;
    FuzzDemand(U3V_GetDeviceInfo(index, &info) == U3V_STATUS_SUCCESS,
               "a listed camera has a record");
    FuzzDemand(IsTerminated(info.DeviceGUID) && IsTerminated(info.VendorName) &&
                   IsTerminated(info.ModelName) && IsTerminated(info.FamilyName) &&
                   IsTerminated(info.DeviceVersion) && IsTerminated(info.ManufacturerInfo) &&
                   IsTerminated(info.SerialNumber) && IsTerminated(info.UserDefinedName),
               "every string of a record ends");
    U3V_DEVICE_HANDLE device = nullptr;
    U3V_OpenDevice(info.DeviceGUID, &device);
    U3V_CONTROL_HANDLE control = nullptr;
    U3V_OpenControl(device, &control);
    U3V_STREAM_HANDLE stream = nullptr;
    U3V_OpenStream(device, control, &stream, 0);
    U3V_CloseStream(stream);
    U3V_CloseControl(control);
    U3V_CloseDevice(device);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzQuietStdout();
    FuzzInput input(data, size);
    FakeUsb::Instance().Reset();
    for (unsigned devices = 1 + input.Below(4); devices > 0; --devices) {
        TakeDevice(input, FakeUsb::Instance().AddDevice("fuzz"));
    }
    U3V_DiscoveryOpen();
    uint16_t count = 0;
    for (int pass = 0; pass < 2; ++pass) {
        U3V_DiscoveryDevices(&count);
    }
    for (uint16_t index = 1; index <= count; ++index) {
        CheckRecord(index);
    }
    U3V_DiscoveryClose();
    FuzzDemand(fuzz::NothingLeft(), "nothing of libusb is left");
    return 0;
}
