#include "zr_client.h"
#include "zr_client_input.h"
#include "zr_client_register.h"
#include "zr_client_text.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <initializer_list>

namespace {

constexpr uint64_t kInterfaceUpdateMs = 1000;
constexpr uint64_t kDeviceUpdateMs = 5000;
constexpr uint64_t kRebootRegister = 0x50018;
constexpr uint32_t kRebootKey = 0xAFFE;

using DeviceList = std::vector<_ZRK_DEV_INFO>;

// The functions below are steps of EnumDevices and carry its name in their texts.
constexpr char kEnumDevices[] = "EnumDevices";

void AppendDevice(IF_HANDLE hIface, uint32_t index, DeviceList& devices)
{
    char id[kZrClientTextSize] = {};
    size_t size = sizeof(id);
    const GC_ERROR status = IFGetDeviceID(hIface, index, id, &size);
    if (status != GC_ERR_SUCCESS) {
        std::printf(":%s IFGetDeviceID Failed!:%d\n", kEnumDevices, status);
        return;
    }
    id[sizeof(id) - 1] = '\0';
    std::printf("\t[%d] device Id:%s\n", static_cast<int>(index), Printable(id).c_str());
    _ZRK_DEV_INFO device{};
    GetDEVInfo(hIface, id, device); // a field that cannot be read stays empty
    std::memcpy(device.id, id, sizeof(id));
    devices.push_back(device);
}

void ListDevices(IF_HANDLE hIface, DeviceList& devices)
{
    bool8_t changed = 0;
    GC_ERROR status = IFUpdateDeviceList(hIface, &changed, kDeviceUpdateMs);
    if (status != GC_ERR_SUCCESS) {
        std::printf(":%s IFUpdateDeviceList failed!:%d\n", kEnumDevices, status);
        return;
    }
    uint32_t count = 0;
    status = IFGetNumDevices(hIface, &count);
    if (status != GC_ERR_SUCCESS) {
        std::printf(":%s IFGetNumDevices failed!:%d\n", kEnumDevices, status);
        return;
    }
    if (count == 0) {
        std::printf(":%s No Device Connected:%d\n", kEnumDevices, static_cast<int>(count));
    }
    for (uint32_t index = 0; index < count; ++index) {
        AppendDevice(hIface, index, devices);
    }
}

void ListInterface(TL_HANDLE hTL, uint32_t index, DeviceList& devices)
{
    char id[kZrClientTextSize] = {};
    size_t size = sizeof(id);
    GC_ERROR status = TLGetInterfaceID(hTL, index, id, &size);
    if (status != GC_ERR_SUCCESS) {
        std::printf(":%s TLGetInterfaceID failed!:%d\n", kEnumDevices, status);
        return;
    }
    id[sizeof(id) - 1] = '\0';
    std::printf("[%d] Interface Id:%s\n", static_cast<int>(index), Printable(id).c_str());
    IF_HANDLE hIface = nullptr;
    status = TLOpenInterface(hTL, id, &hIface);
    if (status != GC_ERR_SUCCESS) {
        std::printf(":%s TLOpenInterface Failed! id:%s :%d\n", kEnumDevices, Printable(id).c_str(),
                    status);
        return;
    }
    const size_t before = devices.size();
    ListDevices(hIface, devices);
    if (devices.size() == before) {
        IFClose(hIface);
    }
}

// Prints numbered entries and answers the choice; the last entry, being the exit, and the end of
// input both come back as kEndOfInput.
int AskMenu(std::initializer_list<const char*> entries)
{
    for (const char* entry : entries) {
        std::puts(entry);
    }
    const int choice = ReadMenuChoice(entries.size());
    return choice == static_cast<int>(entries.size()) ? kEndOfInput : choice;
}

// What the main menu calls a device: a camera without a name is still told from others by its id.
std::string MenuName(const _ZRK_DEV_INFO& device)
{
    return Printable(device.displayName[0] != '\0' ? device.displayName : device.id);
}

void UseRemotePort(DEV_HANDLE hDevice)
{
    PORT_HANDLE hRemotePort = nullptr;
    const GC_ERROR status = DevGetPort(hDevice, &hRemotePort);
    if (status != GC_ERR_SUCCESS) {
        std::printf(":%s DevGetPort Failed!:%d\n", "DeviceMenu", status);
        return;
    }
    OpenDeviceMenu(hDevice, hRemotePort);
}

void UseDevice(const _ZRK_DEV_INFO& device)
{
    DEV_HANDLE hDevice = nullptr;
    const GC_ERROR status = IFOpenDevice(device.hIface, device.id, DEVICE_ACCESS_CONTROL, &hDevice);
    if (status != GC_ERR_SUCCESS) {
        std::printf(":%s IFOpenDevice Failed!:%d\n", "DeviceMenu", status);
        return;
    }
    UseRemotePort(hDevice);
    DevClose(hDevice);
    ReleaseAcquisitionBuffers();
}

void UseDataStream(DEV_HANDLE hDevice, PORT_HANDLE hRemotePort)
{
    char id[kZrClientTextSize] = {};
    size_t size = sizeof(id);
    GC_ERROR status = DevGetDataStreamID(hDevice, 0, id, &size);
    if (status != GC_ERR_SUCCESS) {
        std::printf(":%s DevGetDataStreamID Failed!:%d\n", "OpenDeviceMenu", status);
        return;
    }
    id[sizeof(id) - 1] = '\0';
    DS_HANDLE hDataStream = nullptr;
    status = DevOpenDataStream(hDevice, id, &hDataStream);
    if (status != GC_ERR_SUCCESS) {
        std::printf(":%s DevOpenDataStream Failed!:%d\n", "OpenDeviceMenu", status);
        return;
    }
    OpenDataStreamMenu(hDataStream, hRemotePort);
    DSClose(hDataStream);
}

} // namespace

TL_HANDLE OpenSystem()
{
    std::puts("Opening System...");
    TL_HANDLE hTL = nullptr;
    const GC_ERROR status = TLOpen(&hTL);
    if (status != GC_ERR_SUCCESS) {
        std::printf(":%s TLOpen failed!:%d\n", __func__, status);
        return nullptr;
    }
    // Quirk Q92: %p writes a prefix of its own, so handles and pointers read 0x0x...
    std::printf("Opening System Successful! hTL:0x%p\n", hTL);
    return hTL;
}

void CloseSystem(TL_HANDLE hTL)
{
    const GC_ERROR status = TLClose(hTL);
    if (status != GC_ERR_SUCCESS) {
        std::printf(":%s TLClose failed!:%d\n", __func__, status);
    }
}

std::vector<_ZRK_DEV_INFO> EnumDevices(TL_HANDLE hTL)
{
    DeviceList devices;
    std::puts("*************Enumerate Interface****************");
    bool8_t changed = 0;
    GC_ERROR status = TLUpdateInterfaceList(hTL, &changed, kInterfaceUpdateMs);
    if (status != GC_ERR_SUCCESS) {
        std::printf(":%s TLUpdateInterfaceList failed!:%d\n", __func__, status);
        return devices;
    }
    uint32_t count = 0;
    status = TLGetNumInterfaces(hTL, &count);
    if (status != GC_ERR_SUCCESS) {
        std::printf(":%s TLGetNumInterfaces failed!:%d\n", __func__, status);
        return devices;
    }
    if (count == 0) {
        std::printf(":%s No Interface Available!\n", __func__);
    }
    for (uint32_t index = 0; index < count; ++index) {
        ListInterface(hTL, index, devices);
    }
    return devices;
}

void CloseInterfaces(const std::vector<_ZRK_DEV_INFO>& devices)
{
    std::vector<IF_HANDLE> interfaces;
    for (const _ZRK_DEV_INFO& device : devices) {
        if (std::find(interfaces.begin(), interfaces.end(), device.hIface) == interfaces.end()) {
            interfaces.push_back(device.hIface);
        }
    }
    for (IF_HANDLE hIface : interfaces) {
        IFClose(hIface);
    }
}

void MainMenu(const std::vector<_ZRK_DEV_INFO>& devices)
{
    const int exitEntry = static_cast<int>(devices.size()) + 1;
    for (int choice = kNoChoice; choice != exitEntry && choice != kEndOfInput;) {
        std::puts("Please Select Device..");
        for (size_t i = 0; i < devices.size(); ++i) {
            std::printf("%d.%s\n", static_cast<int>(i) + 1, MenuName(devices[i]).c_str());
        }
        std::printf("%d.Exit\n", exitEntry);
        choice = ReadMenuChoice(devices.size() + 1);
        if (choice > 0 && choice < exitEntry) {
            DeviceMenu(devices[static_cast<size_t>(choice) - 1]);
        }
    }
}

void DeviceMenu(const _ZRK_DEV_INFO& device)
{
    for (int choice = kNoChoice; choice != kEndOfInput;) {
        choice = AskMenu({"1.Print Info", "2.Open Device", "3.Exit"});
        if (choice == 1) {
            PrintDevInfo(device);
        } else if (choice == 2) {
            UseDevice(device);
        }
    }
}

void OpenDeviceMenu(DEV_HANDLE hDevice, PORT_HANDLE hRemotePort)
{
    for (int choice = kNoChoice; choice != kEndOfInput;) {
        choice = AskMenu(
            {"1.Print Device xml", "2.Open Data Stream Module", "3.Reboot Camera", "4.Exit"});
        if (choice == 1) {
            PrintPortXml(hRemotePort);
        } else if (choice == 2) {
            UseDataStream(hDevice, hRemotePort);
        } else if (choice == 3) {
            RebootCamera(hRemotePort);
        }
    }
}

void OpenDataStreamMenu(DS_HANDLE hDataStream, PORT_HANDLE hRemotePort)
{
    for (int choice = kNoChoice; choice != kEndOfInput;) {
        choice = AskMenu({"1.Start Acquisition", "2.Stop Acquisition", "3.Exit"});
        if (choice == 1) {
            ImageAcquisitionStart(hDataStream, hRemotePort);
        } else if (choice == 2) {
            ImageAcquisitionStop(hDataStream, hRemotePort);
        }
    }
    if (ImageAcquisitionIsStarted()) {
        ImageAcquisitionStop(hDataStream, hRemotePort);
    }
}

void RebootCamera(PORT_HANDLE hRemotePort)
{
    WriteRegister32(hRemotePort, kRebootRegister, kRebootKey);
}
