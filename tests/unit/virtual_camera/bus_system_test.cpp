// The surroundings of a host: the kernel's memory limit, permissions, drivers, ports, slow strings,
// suspend, and the kernel's text records.

#include <cstring>
#include <filesystem>
#include <fstream>

#include "bus_async.h"

namespace {

namespace fs = std::filesystem;

class BusSystem : public BusStreaming
{
protected:
    static Bytes Path(libusb_device* device)
    {
        Bytes ports(7);
        const int depth = libusb_get_port_numbers(device, ports.data(), 7);
        ports.resize(static_cast<std::size_t>(std::max(depth, 0)));
        return ports;
    }

    static std::string TextOf(const fs::path& file)
    {
        std::ifstream stream(file);
        std::string text;
        std::getline(stream, text);
        return text;
    }

    // The driver of an interface, "" for none.
    static std::string DriverOf(const fs::path& root, const std::string& interface)
    {
        const fs::path link = root / "bus/usb/devices" / interface / "driver";
        return fs::exists(link) ? fs::canonical(link).filename().string() : std::string();
    }

    struct Folder
    {
        Folder() : path(fs::path(::testing::TempDir()) / ("vusb_" + std::to_string(getpid()))) {}
        ~Folder() { fs::remove_all(path); }
        Folder(const Folder&) = delete;
        Folder& operator=(const Folder&) = delete;
        fs::path path;
    };
};

int GetString(libusb_device_handle* handle, unsigned timeout, unsigned char* data)
{
    return libusb_control_transfer(handle, LIBUSB_ENDPOINT_IN, LIBUSB_REQUEST_GET_DESCRIPTOR,
                                   LIBUSB_DT_STRING << 8 | 1, 0x0409, data, 255, timeout);
}

} // namespace

// --- memory --------------------------------------------------------------------------------

TEST_F(BusSystem, DeviceMemory_WholePagesClearedAndCounted)
{
    vusb::Camera camera;
    libusb_device_handle* handle = Open();
    unsigned char* block = libusb_dev_mem_alloc(handle, 5000);
    ASSERT_NE(nullptr, block);
    EXPECT_EQ(0U, reinterpret_cast<std::uintptr_t>(block) % 4096);
    EXPECT_EQ(0, block[4999]);
    EXPECT_EQ(8192U, vusb_usbfs_used());
    EXPECT_EQ(nullptr, libusb_dev_mem_alloc(handle, 0));
    EXPECT_EQ(0, libusb_dev_mem_free(handle, block, 5000));
    EXPECT_EQ(0U, vusb_usbfs_used());
}

TEST_F(BusSystem, DeviceMemory_OutlivesTheDevice)
{
    vusb::Camera camera;
    libusb_device_handle* handle = Open();
    unsigned char* block = libusb_dev_mem_alloc(handle, 4096);
    camera.Unplug();
    block[4095] = 1;
    EXPECT_EQ(nullptr, libusb_dev_mem_alloc(handle, 4096));
    EXPECT_EQ(0, libusb_dev_mem_free(handle, block, 4096));
}

TEST_F(BusSystem, DeviceMemory_WrongLengthOrPointer_IsAViolation)
{
    m_expectClean = false;
    vusb::Camera camera;
    libusb_device_handle* handle = Open();
    unsigned char* block = libusb_dev_mem_alloc(handle, 4096);
    EXPECT_EQ(LIBUSB_ERROR_INVALID_PARAM, libusb_dev_mem_free(handle, block, 100));
    EXPECT_EQ(LIBUSB_ERROR_INVALID_PARAM, libusb_dev_mem_free(handle, block + 1, 4096));
    EXPECT_EQ(2U, vusb_violations("foreign-pointer"));
    EXPECT_EQ(0, libusb_dev_mem_free(handle, block, 4096));
}

TEST_F(BusSystem, KernelMemory_SubmitBeyondTheLimit_NoMem)
{
    libusb_device_handle* handle = Streaming("faults=stream-silent");
    vusb_set_usbfs_limit(100000);
    Async first(handle, kStreamIn, 60000, 0);
    Async second(handle, kStreamIn, 60000, 0);
    EXPECT_EQ(0, libusb_submit_transfer(first.transfer));
    EXPECT_LE(60000U, vusb_usbfs_used());
    EXPECT_EQ(LIBUSB_ERROR_NO_MEM, libusb_submit_transfer(second.transfer));
    EXPECT_EQ(nullptr, libusb_dev_mem_alloc(handle, 60000));
    libusb_cancel_transfer(first.transfer);
    HandleFor(100ms);
    EXPECT_EQ(0U, vusb_usbfs_used());
    EXPECT_EQ(0, libusb_submit_transfer(second.transfer));
    libusb_cancel_transfer(second.transfer);
    HandleFor(100ms);
}

TEST_F(BusSystem, KernelMemory_TransfersInDeviceMemoryTakeAlmostNothing)
{
    libusb_device_handle* handle = Streaming();
    vusb_set_usbfs_limit(80000);
    unsigned char* block = libusb_dev_mem_alloc(handle, 65536);
    ASSERT_NE(nullptr, block);
    Async read(handle, kStreamIn, 1, 0);
    read.transfer->buffer = block;
    read.transfer->length = 65536;
    EXPECT_EQ(0, libusb_submit_transfer(read.transfer));
    HandleFor(100ms);
    EXPECT_EQ(52, read.transfer->actual_length);
    // Of another handle's device memory the kernel knows nothing.
    Async other(Open(), kStreamIn, 1, 0);
    libusb_claim_interface(other.transfer->dev_handle, 0);
    other.transfer->buffer = block;
    other.transfer->length = 65536;
    EXPECT_EQ(LIBUSB_ERROR_NO_MEM, libusb_submit_transfer(other.transfer));
    m_expectClean = false; // the second handle has not claimed the interface
    EXPECT_EQ(0, libusb_dev_mem_free(handle, block, 65536));
}

// --- ports, speeds -------------------------------------------------------------------------

TEST_F(BusSystem, Ports_AreWhereTheOptionsPlugIt)
{
    vusb::Camera deep("bus=3,port=1.4.2");
    vusb::Camera flat("high-speed=1");
    vusb::Camera fast("super-speed-plus=1,port=9");
    libusb_device** list = nullptr;
    ASSERT_EQ(3, libusb_get_device_list(nullptr, &list));
    EXPECT_EQ(3, libusb_get_bus_number(list[0]));
    EXPECT_EQ((Bytes{1, 4, 2}), Path(list[0]));
    EXPECT_EQ(2, libusb_get_port_number(list[0]));
    unsigned char two[2];
    EXPECT_EQ(LIBUSB_ERROR_OVERFLOW, libusb_get_port_numbers(list[0], two, 2));
    EXPECT_EQ(2, libusb_get_bus_number(list[1]));
    EXPECT_EQ((Bytes{2}), Path(list[1]));
    EXPECT_EQ((Bytes{9}), Path(list[2]));
    EXPECT_EQ(int{LIBUSB_SPEED_SUPER}, libusb_get_device_speed(list[0]));
    EXPECT_EQ(int{LIBUSB_SPEED_HIGH}, libusb_get_device_speed(list[1]));
    EXPECT_EQ(int{LIBUSB_SPEED_SUPER_PLUS}, libusb_get_device_speed(list[2]));
    libusb_free_device_list(list, 1);
}

TEST_F(BusSystem, Ports_ThatAreNone_AreRefused)
{
    for (const char* port : {"port=0", "port=1.", "port=a", "port=1.2.3.4.5.6.7.8", "bus=0"}) {
        EXPECT_EQ(-1, vusb_add_camera(port == std::string("port=1.") ? "port=1..2" : port)) << port;
    }
}

// --- drivers and other processes -----------------------------------------------------------

TEST_F(BusSystem, Driver_HoldsTheInterfacesUntilDetached)
{
    vusb::Camera camera("driver=uvcvideo");
    libusb_device_handle* handle = Open();
    EXPECT_EQ(1, libusb_kernel_driver_active(handle, 0));
    EXPECT_EQ(LIBUSB_ERROR_BUSY, libusb_claim_interface(handle, 0));
    EXPECT_EQ(0, libusb_set_auto_detach_kernel_driver(handle, 1));
    EXPECT_EQ(0, libusb_claim_interface(handle, 0));
    EXPECT_EQ(0, libusb_kernel_driver_active(handle, 0));
    EXPECT_EQ(0, libusb_release_interface(handle, 0));
    EXPECT_EQ(1, libusb_kernel_driver_active(handle, 0));
}

TEST_F(BusSystem, ClaimedElsewhere_BusyAndNoDriverToDetach)
{
    vusb::Camera camera("faults=claimed-elsewhere");
    libusb_device_handle* handle = Open();
    EXPECT_EQ(0, libusb_kernel_driver_active(handle, 0));
    EXPECT_EQ(LIBUSB_ERROR_NOT_FOUND, libusb_detach_kernel_driver(handle, 0));
    EXPECT_EQ(LIBUSB_ERROR_BUSY, libusb_claim_interface(handle, 0));
    camera.SetFaults(""); // the other process has ended
    EXPECT_EQ(0, libusb_claim_interface(handle, 0));
}

// --- strings -------------------------------------------------------------------------------

TEST_F(BusSystem, Strings_ThatHang_TimeOutAndHoldUpNobodyElse)
{
    vusb::Camera silent("faults=strings-hang");
    vusb::Camera other;
    libusb_device_handle* handle = Open(0);
    unsigned char data[255];
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(LIBUSB_ERROR_TIMEOUT, GetString(handle, 50, data));
    EXPECT_LE(50ms, std::chrono::steady_clock::now() - start);
    std::thread waiting([handle] {
        unsigned char text[64];
        EXPECT_EQ(LIBUSB_ERROR_TIMEOUT,
                  libusb_get_string_descriptor_ascii(handle, 1, text, sizeof text));
    });
    libusb_device_handle* good = Open(1);
    EXPECT_LT(0, GetString(good, 50, data));
    waiting.join();
}

TEST_F(BusSystem, Strings_ThatAreLate_ArriveWithinTheTimeout)
{
    vusb::Camera camera("vendor=Abc,faults=strings-late:40");
    libusb_device_handle* handle = Open();
    unsigned char data[255];
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(LIBUSB_ERROR_TIMEOUT, GetString(handle, 10, data));
    EXPECT_EQ(8, GetString(handle, 2000, data));
    EXPECT_LE(40ms, std::chrono::steady_clock::now() - start);
    EXPECT_EQ('A', data[2]);
}

TEST_F(BusSystem, Strings_InOtherScriptsAndWithControlCharacters)
{
    vusb::Camera camera("vendor=Caf\xC3\xA9,model=A%07B%F0%9F%93%B7");
    libusb_device_handle* handle = Open();
    unsigned char data[255];
    EXPECT_EQ(10, GetString(handle, 100, data));
    EXPECT_EQ(0xE9, data[8]);
    unsigned char text[64];
    EXPECT_EQ(4, libusb_get_string_descriptor_ascii(handle, 1, text, sizeof text));
    EXPECT_STREQ("Caf?", reinterpret_cast<char*>(text));
    EXPECT_EQ(5, libusb_get_string_descriptor_ascii(handle, 2, text, sizeof text));
    EXPECT_STREQ("A\aB??", reinterpret_cast<char*>(text)); // a pair of surrogates
}

TEST_F(BusSystem, ControlTransfer_FromWithinACallback_IsAViolation)
{
    m_expectClean = false;
    libusb_device_handle* handle = Streaming();
    int result = 0;
    libusb_transfer* transfer = libusb_alloc_transfer(0);
    unsigned char buffer[1024];
    const auto callback = [](libusb_transfer* done) {
        unsigned char data[255];
        *static_cast<int*>(done->user_data) = GetString(done->dev_handle, 50, data);
    };
    libusb_fill_bulk_transfer(transfer, handle, kStreamIn, buffer, sizeof buffer, callback, &result,
                              0);
    ASSERT_EQ(0, libusb_submit_transfer(transfer));
    HandleFor(500ms);
    EXPECT_EQ(int{LIBUSB_ERROR_BUSY}, result);
    EXPECT_EQ(1U, vusb_violations("sync-in-callback"));
    libusb_free_transfer(transfer);
}

// --- control channel -----------------------------------------------------------------------

TEST_F(BusSystem, CommandNotTaken_TimesOut_TheNextIsTaken)
{
    vusb::Camera camera("faults=command-not-taken@0");
    libusb_device_handle* handle = OpenAndClaim();
    EXPECT_EQ(LIBUSB_ERROR_TIMEOUT, Send(handle, ReadCommand(0, 4), 30));
    EXPECT_EQ((Bytes{0, 0, 1, 0}), ReadMem(handle, 0, 4));
    EXPECT_EQ(1U, camera.Stats().control_transactions);
}

// --- suspend -------------------------------------------------------------------------------

TEST_F(BusSystem, Suspended_EverythingFailsUntilItIsResumed)
{
    libusb_device_handle* handle = Streaming("faults=stream-silent");
    Async read(handle, kStreamIn, 65536, 0);
    ASSERT_EQ(0, libusb_submit_transfer(read.transfer));
    HandleFor(5ms);
    vusb_suspend(m_camera, 1);
    HandleFor(500ms);
    EXPECT_EQ(1, read.completions);
    EXPECT_EQ(LIBUSB_TRANSFER_ERROR, read.transfer->status);
    EXPECT_EQ(LIBUSB_ERROR_IO, Send(handle, ReadCommand(0, 4)));
    unsigned char data[255];
    EXPECT_EQ(LIBUSB_ERROR_IO, GetString(handle, 100, data));
    EXPECT_EQ(LIBUSB_ERROR_OTHER, libusb_clear_halt(handle, kStreamIn));
    vusb_suspend(m_camera, 0);
    EXPECT_EQ((Bytes{0, 0, 1, 0}), ReadMem(handle, 0, 4));
}

TEST_F(BusSystem, SuspendFault_AtAnImageForAWhile)
{
    libusb_device_handle* handle = Streaming("faults=suspend@1:40");
    for (const std::size_t size : {65536U, 2048U, 32U}) {
        Bytes buffer(size);
        EXPECT_EQ(0, ReadStream(handle, buffer));
    }
    Bytes buffer(65536);
    EXPECT_EQ(LIBUSB_ERROR_IO, ReadStream(handle, buffer));
    int result = LIBUSB_ERROR_IO;
    const auto start = std::chrono::steady_clock::now();
    while (result == LIBUSB_ERROR_IO && std::chrono::steady_clock::now() - start < 5s) {
        buffer.resize(65536);
        result = ReadStream(handle, buffer);
    }
    EXPECT_EQ(0, result);
}

// --- the kernel's records ------------------------------------------------------------------

TEST_F(BusSystem, Sysfs_DevicesWithTextsAndInterfacesWithDrivers)
{
    const Folder folder;
    vusb::Camera camera("vendor=Maker,model=Thing,serial=S1,port=1.3,driver=uvcvideo");
    vusb::Camera foreign("serial=,faults=claimed-elsewhere,high-speed=1");
    vusb_add_device("kind=mouse");
    vusb_set_usbfs_limit(16U << 20);
    ASSERT_EQ(0, vusb_write_sysfs(folder.path.c_str())) << vusb_last_error();
    const fs::path device = folder.path / "bus/usb/devices/2-1.3";
    EXPECT_EQ("Maker", TextOf(device / "manufacturer"));
    EXPECT_EQ("Thing", TextOf(device / "product"));
    EXPECT_EQ("S1", TextOf(device / "serial"));
    EXPECT_EQ("1209", TextOf(device / "idVendor"));
    EXPECT_EQ("2", TextOf(device / "busnum"));
    EXPECT_EQ("1.3", TextOf(device / "devpath"));
    EXPECT_EQ("5000", TextOf(device / "speed"));
    EXPECT_EQ("480", TextOf(folder.path / "bus/usb/devices/2-2/speed"));
    EXPECT_FALSE(fs::exists(folder.path / "bus/usb/devices/2-2/serial"));
    EXPECT_EQ("05", TextOf(folder.path / "bus/usb/devices/2-1.3:1.0/bInterfaceSubClass"));
    EXPECT_EQ("uvcvideo", DriverOf(folder.path, "2-1.3:1.0"));
    EXPECT_EQ("uvcvideo", DriverOf(folder.path, "2-1.3/2-1.3:1.1"));
    EXPECT_EQ("usbfs", DriverOf(folder.path, "2-2:1.0"));
    EXPECT_EQ("", DriverOf(folder.path, "2-3:1.0"));
    EXPECT_EQ("16", TextOf(folder.path / "module/usbcore/parameters/usbfs_memory_mb"));
}

TEST_F(BusSystem, Sysfs_WrittenAgain_ShowsWhatHasChanged)
{
    const Folder folder;
    vusb::Camera camera;
    vusb::Camera other;
    ASSERT_EQ(0, vusb_write_sysfs(folder.path.c_str()));
    EXPECT_EQ("", DriverOf(folder.path, "2-1:1.0"));
    libusb_device_handle* handle = Open();
    EXPECT_EQ(0, libusb_claim_interface(handle, 0));
    other.Unplug();
    ASSERT_EQ(0, vusb_write_sysfs(folder.path.c_str()));
    EXPECT_EQ("usbfs", DriverOf(folder.path, "2-1:1.0"));
    EXPECT_EQ("", DriverOf(folder.path, "2-1:1.1"));
    EXPECT_FALSE(fs::exists(folder.path / "bus/usb/devices/2-2"));
    EXPECT_EQ(-1, vusb_write_sysfs(""));
    EXPECT_EQ(-1, vusb_write_sysfs("/proc/nowhere"));
}

// --- what nobody copies --------------------------------------------------------------------

TEST_F(BusSystem, PatternNone_LeavesTheBufferAlone)
{
    libusb_device_handle* handle = Streaming("pattern=none");
    Bytes buffer(65536);
    EXPECT_EQ(0, ReadStream(handle, buffer));
    buffer.assign(2048, 0x5A);
    EXPECT_EQ(0, ReadStream(handle, buffer));
    EXPECT_EQ(Bytes(2048, 0x5A), buffer);
}
