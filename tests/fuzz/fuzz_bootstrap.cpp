// Bootstrap registers and manifest: everything a camera's memory says while it is opened, up to the
// description file's address and the stream channel's registers.

#include "fuzz_camera.h"
#include "fuzz_input.h"

#include <stdexcept>
#include <zr_u3v_tl/gentl.h>
#include <zr_u3v_tl/u3v_lib.h>

#include "zr_u3v_remote_device.h"

namespace {

constexpr const char* kGuid = "120900000001";

Bytes InformationDescriptor()
{
    return {0x14, 0x24, 0x01, 0x02, 0x00, 0x01, 0x00, 0x00, 0x00, 0x01,
            0x00, 1,    2,    3,    4,    5,    6,    7,    8,    0x08};
}

libusb_device& AddCamera(FuzzInput& input)
{
    FakeUsb::Instance().Reset();
    libusb_device& device = FakeUsb::Instance().AddDevice("fuzz");
    device.descriptor.bDeviceClass = 0xEF;
    device.descriptor.bDeviceSubClass = 0x02;
    device.descriptor.bDeviceProtocol = 0x01;
    device.descriptor.bNumConfigurations = 1;
    for (uint8_t index = 2; index <= 8; ++index) {
        device.strings[index] = input.Text(input.Below(80));
    }
    device.strings[1] = kGuid;
    device.configurations = {{
        {{0, 0xEF, 0x05, 0, {0x01, 0x81}, InformationDescriptor()}},
        {{1, 0xEF, 0x05, 1, {0x82}, {}}},
        {{2, 0xEF, 0x05, 2, {0x83}, {}}},
    }};
    return device;
}

// Registers keep their orderly value or take one of the input's; some answer a status instead.
void TakeMemory(FuzzInput& input, libusb_device& camera)
{
    fuzz::FillMemory(camera);
    camera.memory[0x1D0] = fuzz::Little(0x30000, 8);
    Bytes manifest = fuzz::Little(1, 8);
    for (const uint64_t word : {0x10001ULL, 0x40000ULL, 4096ULL}) {
        const Bytes bytes = fuzz::Little(word, 8);
        manifest.insert(manifest.end(), bytes.begin(), bytes.end());
    }
    camera.memory[0x30000] = manifest;
    constexpr uint64_t kAddresses[] = {
        0x1D0,   0x1D8,   0x1CC,   0x1C4,   0x1C8,   0x10000, 0x10004, 0x10014, 0x10018, 0x1001C,
        0x10020, 0x10028, 0x20000, 0x20004, 0x30000, 0x30008, 0x0,     0x134,   0x174};
    for (unsigned changes = input.Below(12); changes > 0; --changes) {
        const uint64_t address = input.Below(8) == 0
                                     ? input.Take<uint64_t>()
                                     : kAddresses[input.Below(std::size(kAddresses))];
        if (input.Below(6) == 0) {
            camera.refusal[address] = input.Take<uint16_t>();
        } else {
            camera.memory[address] = input.Bytes(input.Below(80));
        }
    }
}

void UsePort(FuzzInput& input, ZrU3VRemoteDevice& remote)
{
    char url[2048];
    size_t size = input.Take<uint16_t>() % sizeof(url);
    int32_t type = 0;
    remote.GetPortURLInfo(0, URL_INFO_URL, &type, url, &size);
    std::vector<uint8_t> bytes(input.Take<uint16_t>() % 2048);
    size = bytes.size();
    remote.ReadPort(input.Take<uint64_t>(), bytes.data(), &size);
    size = bytes.size();
    remote.WritePort(input.Take<uint64_t>(), bytes.data(), &size);
    remote.GetAccessStatus();
    try {
        remote.GetUserDefinedName();
    } catch (const std::logic_error&) {
        return; // how an unreadable name is told
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzQuietStdout();
    FuzzInput input(data, size);
    libusb_device& camera = AddCamera(input);
    U3V_DiscoveryOpen();
    uint16_t count = 0;
    U3V_DiscoveryDevices(&count);
    TakeMemory(input, camera);
    {
        _ZR_U3V_DEVICE_INFO info;
        info.id = kGuid;
        info.model = input.Text(input.Byte());
        info.version = input.Text(input.Byte());
        ZrU3VRemoteDevice remote(info, nullptr);
        if (remote.Open(DEVICE_ACCESS_CONTROL) == GC_ERR_SUCCESS) {
            UsePort(input, remote);
            if (remote.OpenStream() == GC_ERR_SUCCESS) {
                remote.CloseStream();
            }
            FuzzDemand(remote.Close() == GC_ERR_SUCCESS, "an open camera closes");
        }
    }
    U3V_DiscoveryClose();
    FuzzDemand(fuzz::NothingLeft(), "nothing of libusb is left");
    return 0;
}
