// Contexts, lists, descriptors, opening, interfaces, hot plug: the bus as libusb shows it.

#include <csignal>
#include <cstring>
#include <sys/wait.h>
#include <unistd.h>

#include "bus_host.h"
#include "wait.h"

namespace {

class BusDevices : public BusTest
{
protected:
    static ssize_t CountDevices()
    {
        libusb_device** list = nullptr;
        const ssize_t count = libusb_get_device_list(nullptr, &list);
        libusb_free_device_list(list, 1);
        return count;
    }

    static std::string String(libusb_device_handle* handle, std::uint8_t index)
    {
        unsigned char text[64] = {};
        EXPECT_LE(0, libusb_get_string_descriptor_ascii(handle, index, text, sizeof text));
        return reinterpret_cast<const char*>(text);
    }

    libusb_config_descriptor* Configuration(int expected = 0)
    {
        libusb_device** list = nullptr;
        libusb_get_device_list(nullptr, &list);
        libusb_config_descriptor* config = nullptr;
        EXPECT_EQ(expected, libusb_get_config_descriptor(list[0], 0, &config));
        libusb_free_device_list(list, 1);
        return config;
    }
};

} // namespace

TEST_F(BusDevices, EmptyBus_EmptyList)
{
    libusb_device** list = nullptr;
    EXPECT_EQ(0, libusb_get_device_list(nullptr, &list));
    ASSERT_NE(nullptr, list);
    EXPECT_EQ(nullptr, list[0]);
    libusb_free_device_list(list, 1);
}

TEST_F(BusDevices, List_KeepsTheSamePointersWhileAttached)
{
    vusb::Camera first;
    vusb_add_device("kind=mouse");
    libusb_device** before = nullptr;
    libusb_device** after = nullptr;
    EXPECT_EQ(2, libusb_get_device_list(nullptr, &before));
    EXPECT_EQ(2, libusb_get_device_list(nullptr, &after));
    EXPECT_EQ(before[0], after[0]);
    EXPECT_EQ(before[1], after[1]);
    libusb_free_device_list(before, 1);
    libusb_free_device_list(after, 1);
}

TEST_F(BusDevices, Descriptors_CameraAndMouse)
{
    vusb::Camera camera;
    vusb_add_device("kind=mouse");
    libusb_device** list = nullptr;
    ASSERT_EQ(2, libusb_get_device_list(nullptr, &list));
    libusb_device_descriptor descriptor{};
    EXPECT_EQ(0, libusb_get_device_descriptor(list[0], &descriptor));
    EXPECT_EQ(0xEF, descriptor.bDeviceClass);
    EXPECT_EQ(0x0300, descriptor.bcdUSB);
    EXPECT_EQ(0x1209, descriptor.idVendor);
    EXPECT_EQ(1, descriptor.bNumConfigurations);
    EXPECT_EQ(int{LIBUSB_SPEED_SUPER}, libusb_get_device_speed(list[0]));
    EXPECT_EQ(1024, libusb_get_max_packet_size(list[0], kStreamIn));
    EXPECT_EQ(0, libusb_get_device_descriptor(list[1], &descriptor));
    EXPECT_EQ(0, descriptor.bDeviceClass);
    EXPECT_EQ(int{LIBUSB_SPEED_HIGH}, libusb_get_device_speed(list[1]));
    EXPECT_NE(libusb_get_device_address(list[0]), libusb_get_device_address(list[1]));
    EXPECT_NE(libusb_get_port_number(list[0]), libusb_get_port_number(list[1]));
    EXPECT_EQ(libusb_get_bus_number(list[0]), libusb_get_bus_number(list[1]));
    libusb_free_device_list(list, 1);
}

TEST_F(BusDevices, Configuration_InterfacesEndpointsExtras)
{
    vusb::Camera camera("events=1");
    libusb_config_descriptor* config = Configuration();
    ASSERT_EQ(3, config->bNumInterfaces);
    EXPECT_EQ(8, config->extra_length); // the association
    const libusb_interface_descriptor& control = config->interface[0].altsetting[0];
    EXPECT_EQ(2, control.bNumEndpoints);
    ASSERT_EQ(20, control.extra_length);
    EXPECT_EQ(0x24, control.extra[1]);
    EXPECT_EQ(kControlOut, control.endpoint[0].bEndpointAddress);
    EXPECT_EQ(kControlIn, control.endpoint[1].bEndpointAddress);
    const libusb_interface_descriptor& stream = config->interface[2].altsetting[0];
    EXPECT_EQ(2, stream.bInterfaceProtocol);
    EXPECT_EQ(kStreamIn, stream.endpoint[0].bEndpointAddress);
    libusb_ss_endpoint_companion_descriptor* companion = nullptr;
    EXPECT_EQ(
        0, libusb_get_ss_endpoint_companion_descriptor(nullptr, &stream.endpoint[0], &companion));
    EXPECT_EQ(15, companion->bMaxBurst);
    libusb_free_ss_endpoint_companion_descriptor(companion);
    libusb_free_config_descriptor(config);
}

TEST_F(BusDevices, Configuration_OtherIndexOrValue_NotFound)
{
    vusb::Camera camera;
    libusb_device** list = nullptr;
    libusb_get_device_list(nullptr, &list);
    libusb_config_descriptor* config = nullptr;
    EXPECT_EQ(LIBUSB_ERROR_NOT_FOUND, libusb_get_config_descriptor(list[0], 1, &config));
    EXPECT_EQ(LIBUSB_ERROR_NOT_FOUND, libusb_get_config_descriptor_by_value(list[0], 2, &config));
    EXPECT_EQ(0, libusb_get_config_descriptor_by_value(list[0], 1, &config));
    libusb_free_config_descriptor(config);
    EXPECT_EQ(0, libusb_get_active_config_descriptor(list[0], &config));
    libusb_free_config_descriptor(config);
    libusb_free_device_list(list, 1);
}

TEST_F(BusDevices, Configuration_SpoiltBytes_AreSurvived)
{
    const std::pair<const char*, int> cases[] = {{"descriptor-cut:3", LIBUSB_ERROR_IO},
                                                 {"descriptor-cut:20", 0},
                                                 {"descriptor-cut:40", 0},
                                                 {"descriptor-total", 0},
                                                 {"descriptor-total:10", 0},
                                                 {"descriptor-interfaces", LIBUSB_ERROR_IO},
                                                 {"descriptor-interfaces:30", 0},
                                                 {"descriptor-endpoints", LIBUSB_ERROR_IO},
                                                 {"descriptor-endpoints:20", 0},
                                                 {"descriptor-zero-length", LIBUSB_ERROR_IO},
                                                 {"config-fails", LIBUSB_ERROR_IO},
                                                 {"info-lies:7", 0},
                                                 {"info-lies:6", LIBUSB_ERROR_IO}};
    for (const auto& [fault, result] : cases) {
        vusb_reset();
        vusb::Camera camera(std::string("faults=") + fault);
        SCOPED_TRACE(fault);
        libusb_config_descriptor* config = Configuration(result);
        if (config != nullptr) {
            libusb_free_config_descriptor(config);
        }
    }
}

TEST_F(BusDevices, Configuration_EveryCut_IsSurvived)
{
    for (int size = 0; size < 80; ++size) {
        vusb_reset();
        vusb::Camera camera("faults=descriptor-cut:" + std::to_string(size));
        libusb_device** list = nullptr;
        libusb_get_device_list(nullptr, &list);
        libusb_config_descriptor* config = nullptr;
        const int result = libusb_get_config_descriptor(list[0], 0, &config);
        EXPECT_EQ(size < 9 ? int{LIBUSB_ERROR_IO} : 0, result) << size;
        if (config != nullptr) {
            libusb_free_config_descriptor(config);
        }
        libusb_free_device_list(list, 1);
    }
}

TEST_F(BusDevices, InfoAtEnd_ExtraIsAsShortAsItIs)
{
    vusb::Camera camera("faults=info-at-end:7");
    libusb_config_descriptor* config = Configuration();
    const libusb_endpoint_descriptor& last = config->interface[1].altsetting[0].endpoint[0];
    EXPECT_EQ(6 + 7, last.extra_length); // companion, then the piece
    EXPECT_EQ(20, last.extra[6]);
    libusb_free_config_descriptor(config);
}

TEST_F(BusDevices, Bos_CapabilitiesReadable)
{
    vusb::Camera camera;
    libusb_bos_descriptor* bos = nullptr;
    ASSERT_EQ(0, libusb_get_bos_descriptor(Open(), &bos));
    ASSERT_EQ(2, bos->bNumDeviceCaps);
    libusb_usb_2_0_extension_descriptor* extension = nullptr;
    EXPECT_EQ(0,
              libusb_get_usb_2_0_extension_descriptor(nullptr, bos->dev_capability[0], &extension));
    EXPECT_EQ(2U, extension->bmAttributes);
    libusb_free_usb_2_0_extension_descriptor(extension);
    libusb_ss_usb_device_capability_descriptor* super = nullptr;
    EXPECT_EQ(
        0, libusb_get_ss_usb_device_capability_descriptor(nullptr, bos->dev_capability[1], &super));
    EXPECT_EQ(0x000E, super->wSpeedSupported);
    EXPECT_EQ(0x0020, super->bU2DevExitLat);
    libusb_free_ss_usb_device_capability_descriptor(super);
    libusb_free_bos_descriptor(bos);
}

TEST_F(BusDevices, Strings_ReadCutAndRefused)
{
    vusb::Camera camera("vendor=Abcdefgh");
    libusb_device_handle* handle = Open();
    EXPECT_EQ("Abcdefgh", String(handle, 1));
    unsigned char small[4] = {};
    EXPECT_EQ(3, libusb_get_string_descriptor_ascii(handle, 1, small, sizeof small));
    EXPECT_STREQ("Abc", reinterpret_cast<const char*>(small));
    EXPECT_EQ(LIBUSB_ERROR_INVALID_PARAM,
              libusb_get_string_descriptor_ascii(handle, 0, small, sizeof small));
    EXPECT_EQ(LIBUSB_ERROR_PIPE,
              libusb_get_string_descriptor_ascii(handle, 99, small, sizeof small));
}

TEST_F(BusDevices, Strings_OddOnes_Fail)
{
    vusb::Camera camera("faults=strings-odd");
    unsigned char text[16];
    EXPECT_EQ(LIBUSB_ERROR_IO, libusb_get_string_descriptor_ascii(Open(), 1, text, sizeof text));
}

TEST_F(BusDevices, Open_ScriptedFaults)
{
    const std::pair<const char*, int> cases[] = {{"open-permission", LIBUSB_ERROR_ACCESS},
                                                 {"open-busy", LIBUSB_ERROR_BUSY},
                                                 {"open-no-device", LIBUSB_ERROR_NO_DEVICE}};
    for (const auto& [fault, result] : cases) {
        vusb_reset();
        vusb::Camera camera(std::string("faults=") + fault + "@0");
        EXPECT_EQ(nullptr, Open());
        EXPECT_EQ(result, m_openResult) << fault;
        EXPECT_NE(nullptr, Open());
    }
}

TEST_F(BusDevices, Open_ByIds)
{
    vusb::Camera camera("vid=4660,pid=22136");
    EXPECT_EQ(nullptr, libusb_open_device_with_vid_pid(nullptr, 1, 2));
    libusb_device_handle* handle = libusb_open_device_with_vid_pid(nullptr, 0x1234, 0x5678);
    ASSERT_NE(nullptr, handle);
    libusb_close(handle);
}

TEST_F(BusDevices, Claim_ByTwoHandles_SecondIsBusy)
{
    vusb::Camera camera;
    libusb_device_handle* first = Open();
    libusb_device_handle* second = Open();
    EXPECT_EQ(0, libusb_claim_interface(first, 0));
    EXPECT_EQ(0, libusb_claim_interface(first, 0));
    EXPECT_EQ(LIBUSB_ERROR_BUSY, libusb_claim_interface(second, 0));
    EXPECT_EQ(0, libusb_claim_interface(second, 1));
    EXPECT_EQ(LIBUSB_ERROR_NOT_FOUND, libusb_claim_interface(second, 5));
    EXPECT_EQ(LIBUSB_ERROR_NOT_FOUND, libusb_release_interface(second, 0));
    Close(first);
    EXPECT_EQ(0, libusb_claim_interface(second, 0));
    EXPECT_EQ(0, libusb_set_interface_alt_setting(second, 0, 0));
    EXPECT_EQ(0, libusb_release_interface(second, 0));
}

// As the kernel: a forked child has the device open as well.
TEST_F(BusDevices, ClosedUnreleasedWithAForkedChild_ClaimIsBusyUntilTheChildEnds)
{
    vusb::Camera camera;
    libusb_device_handle* handle = Open();
    EXPECT_EQ(0, libusb_claim_interface(handle, 0));
    EXPECT_EQ(0, libusb_claim_interface(handle, 1));
    const pid_t child = fork();
    if (child == 0) {
        for (;;) {
            pause();
        }
    }
    ASSERT_GT(child, 0);
    EXPECT_EQ(0, libusb_release_interface(handle, 1));
    Close(handle);
    handle = Open();
    EXPECT_EQ(LIBUSB_ERROR_BUSY, libusb_claim_interface(handle, 0));
    EXPECT_EQ(0, libusb_claim_interface(handle, 1));
    EXPECT_EQ(0, kill(child, SIGKILL));
    EXPECT_EQ(child, waitpid(child, nullptr, 0));
    EXPECT_EQ(0, libusb_claim_interface(handle, 0));
}

TEST_F(BusDevices, Claim_ScriptedFaults)
{
    vusb::Camera camera("faults=claim-busy@0,claim-fails@0");
    libusb_device_handle* handle = Open();
    EXPECT_EQ(LIBUSB_ERROR_BUSY, libusb_claim_interface(handle, 0));
    EXPECT_EQ(LIBUSB_ERROR_IO, libusb_claim_interface(handle, 0));
    EXPECT_EQ(0, libusb_claim_interface(handle, 0));
}

TEST_F(BusDevices, KernelDriver_DetachedByHandOrByItself)
{
    vusb::Camera camera("faults=kernel-driver+detach-fails@0");
    libusb_device_handle* handle = Open();
    EXPECT_EQ(1, libusb_kernel_driver_active(handle, 0));
    EXPECT_EQ(LIBUSB_ERROR_BUSY, libusb_claim_interface(handle, 0));
    EXPECT_EQ(LIBUSB_ERROR_OTHER, libusb_detach_kernel_driver(handle, 0));
    EXPECT_EQ(0, libusb_detach_kernel_driver(handle, 0));
    EXPECT_EQ(LIBUSB_ERROR_NOT_FOUND, libusb_detach_kernel_driver(handle, 0));
    EXPECT_EQ(0, libusb_claim_interface(handle, 0));
    EXPECT_EQ(0, libusb_set_auto_detach_kernel_driver(handle, 1));
    EXPECT_EQ(0, libusb_claim_interface(handle, 1));
    EXPECT_EQ(0, libusb_kernel_driver_active(handle, 1));
}

TEST_F(BusDevices, Unplug_ListShrinks_OldSnapshotStaysValid)
{
    vusb::Camera camera;
    libusb_device** list = nullptr;
    ASSERT_EQ(1, libusb_get_device_list(nullptr, &list));
    camera.Unplug();
    EXPECT_EQ(0, CountDevices());
    libusb_device_descriptor descriptor{};
    EXPECT_EQ(0, libusb_get_device_descriptor(list[0], &descriptor));
    EXPECT_EQ(0xEF, descriptor.bDeviceClass);
    libusb_device_handle* handle = nullptr;
    EXPECT_EQ(LIBUSB_ERROR_NO_DEVICE, libusb_open(list[0], &handle));
    EXPECT_EQ(nullptr, handle);
    libusb_free_device_list(list, 1);
}

TEST_F(BusDevices, Unplug_OpenHandle_AnswersNoDevice)
{
    vusb::Camera camera;
    libusb_device_handle* handle = OpenAndClaim();
    camera.Unplug();
    EXPECT_FALSE(camera.IsPlugged());
    EXPECT_EQ(LIBUSB_ERROR_NO_DEVICE, Send(handle, ReadCommand(0, 4)));
    EXPECT_EQ(LIBUSB_ERROR_NO_DEVICE, libusb_clear_halt(handle, kControlIn));
    EXPECT_EQ(LIBUSB_ERROR_NO_DEVICE, libusb_release_interface(handle, 0));
    camera.Replug();
    EXPECT_TRUE(camera.IsPlugged());
    EXPECT_EQ(LIBUSB_ERROR_NO_DEVICE, Send(handle, ReadCommand(0, 4)));
    EXPECT_NE(nullptr, Open());
}

TEST_F(BusDevices, Replug_KeepsUserNameAndCounters)
{
    vusb::Camera camera;
    libusb_device_handle* handle = OpenAndClaim();
    Write32(handle, 0x184, 0x616263);
    Close(handle);
    camera.Unplug();
    camera.Replug();
    EXPECT_EQ(0x616263U, camera.Peek<std::uint32_t>(0x184));
    EXPECT_EQ(1U, camera.Stats().control_transactions);
}

TEST_F(BusDevices, Reboot_LeavesAndReturns)
{
    vusb::Camera camera("reboot-ms=30");
    libusb_device_handle* handle = OpenAndClaim();
    Write32(handle, 0x50018, 0xAFFE);
    EXPECT_EQ(0, CountDevices());
    EXPECT_TRUE(zr_test::WaitUntil([] { return CountDevices() == 1; }));
    EXPECT_EQ(LIBUSB_ERROR_NO_DEVICE, Send(handle, ReadCommand(0, 4)));
}

TEST_F(BusDevices, Hotplug_ArrivalAndDepartureOnlyInEventHandling)
{
    struct Log
    {
        int arrived = 0;
        int left = 0;
    } log;
    const auto callback = [](libusb_context*, libusb_device*, libusb_hotplug_event event,
                             void* user) {
        auto& seen = *static_cast<Log*>(user);
        (event == LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED ? seen.arrived : seen.left) += 1;
        return 0;
    };
    vusb::Camera present;
    libusb_hotplug_callback_handle id = 0;
    EXPECT_EQ(0,
              libusb_hotplug_register_callback(
                  nullptr, LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED | LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT,
                  LIBUSB_HOTPLUG_ENUMERATE, LIBUSB_HOTPLUG_MATCH_ANY, LIBUSB_HOTPLUG_MATCH_ANY,
                  LIBUSB_HOTPLUG_MATCH_ANY, callback, &log, &id));
    EXPECT_EQ(1, log.arrived);
    vusb::Camera later;
    present.Unplug();
    EXPECT_EQ(1, log.arrived);
    HandleFor(0ms);
    HandleFor(0ms);
    EXPECT_EQ(2, log.arrived);
    EXPECT_EQ(1, log.left);
    libusb_hotplug_deregister_callback(nullptr, id);
    present.Replug();
    HandleFor(0ms);
    EXPECT_EQ(2, log.arrived);
}

TEST_F(BusDevices, ResetDevice_EndsTheStream)
{
    vusb::Camera camera("width=64,height=32");
    libusb_device_handle* handle = OpenAndClaim();
    StartStream(handle, 2048);
    EXPECT_EQ(0, libusb_reset_device(handle));
    EXPECT_EQ(0U, camera.Peek<std::uint32_t>(0x20004));
}

TEST_F(BusDevices, DefaultContext_IsCounted)
{
    EXPECT_EQ(0, libusb_init(nullptr));
    libusb_exit(nullptr);
    EXPECT_EQ(0, CountDevices());
    libusb_context* own = nullptr;
    EXPECT_EQ(0, libusb_init(&own));
    vusb::Camera camera;
    libusb_device** list = nullptr;
    EXPECT_EQ(1, libusb_get_device_list(own, &list));
    libusb_free_device_list(list, 1);
    libusb_exit(own);
}

TEST_F(BusDevices, Texts_AsLibusb)
{
    EXPECT_STREQ("LIBUSB_ERROR_TIMEOUT", libusb_error_name(LIBUSB_ERROR_TIMEOUT));
    EXPECT_STREQ("Access denied (insufficient permissions)", libusb_strerror(LIBUSB_ERROR_ACCESS));
    EXPECT_STREQ("Other error", libusb_strerror(LIBUSB_ERROR_OTHER));
    EXPECT_EQ(1, libusb_has_capability(LIBUSB_CAP_HAS_HOTPLUG));
    EXPECT_EQ(1, libusb_get_version()->major);
}

// --- the bus's own books ---------------------------------------------------------------------

TEST_F(BusDevices, Scripts_SkipCountResult)
{
    vusb::Camera camera;
    EXPECT_EQ(0, vusb_fail_call("libusb_claim_interface", 1, 2, LIBUSB_ERROR_BUSY));
    EXPECT_EQ(-1, vusb_fail_call("libusb_no_such_function", 0, 0, 0));
    EXPECT_EQ(-1, vusb_fail_call("malloc", 0, 0, 0));
    libusb_device_handle* handle = Open();
    const int results[] = {0, LIBUSB_ERROR_BUSY, LIBUSB_ERROR_BUSY, 0};
    for (const int expected : results) {
        EXPECT_EQ(expected, libusb_claim_interface(handle, 0));
    }
    EXPECT_EQ(0, vusb_fail_call("libusb_alloc_transfer", 0, 1, 0));
    EXPECT_EQ(nullptr, libusb_alloc_transfer(0));
    libusb_transfer* transfer = libusb_alloc_transfer(0);
    EXPECT_NE(nullptr, transfer);
    libusb_free_transfer(transfer);
}

TEST_F(BusDevices, Scripts_InitAndListFail)
{
    vusb_fail_call("libusb_init", 0, 1, LIBUSB_ERROR_OTHER);
    EXPECT_EQ(LIBUSB_ERROR_OTHER, libusb_init(nullptr));
    vusb_fail_call("libusb_get_device_list", 0, 0, LIBUSB_ERROR_NO_MEM);
    libusb_device** list = nullptr;
    EXPECT_EQ(LIBUSB_ERROR_NO_MEM, libusb_get_device_list(nullptr, &list));
    EXPECT_EQ(LIBUSB_ERROR_NO_MEM, libusb_get_device_list(nullptr, &list));
    vusb_clear_scripts();
    EXPECT_EQ(0, libusb_get_device_list(nullptr, &list));
    libusb_free_device_list(list, 1);
}

TEST_F(BusDevices, Journal_NamesArgumentsResultThread)
{
    vusb::Camera camera;
    libusb_device_handle* handle = Open();
    vusb_journal_clear();
    EXPECT_EQ(LIBUSB_ERROR_NOT_FOUND, libusb_claim_interface(handle, 9));
    std::thread([handle] { libusb_claim_interface(handle, 0); }).join();
    const std::vector<vusb_call> calls = vusb::Calls();
    ASSERT_EQ(2U, calls.size());
    EXPECT_STREQ("libusb_claim_interface", calls[0].function);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(handle), calls[0].object);
    EXPECT_EQ(9U, calls[0].arguments[0]);
    EXPECT_EQ(int{LIBUSB_ERROR_NOT_FOUND}, calls[0].result);
    EXPECT_EQ(0, calls[1].result);
    EXPECT_NE(calls[0].thread, calls[1].thread);
    EXPECT_EQ(2U, vusb_call_count("libusb_claim_interface"));
    vusb_journal_limit(1);
    EXPECT_EQ(1U, vusb_journal_size());
    vusb_journal_limit(65536);
}

TEST_F(BusDevices, Violations_HandlesAndDevices)
{
    m_expectClean = false;
    vusb::Camera camera;
    libusb_device_handle* handle = Open();
    Close(handle);
    EXPECT_EQ(LIBUSB_ERROR_NO_DEVICE, libusb_claim_interface(handle, 0));
    EXPECT_EQ(1U, vusb_violations("stale-handle"));
    libusb_close(handle);
    EXPECT_EQ(2U, vusb_violations("stale-handle"));
    EXPECT_EQ(LIBUSB_ERROR_INVALID_PARAM, libusb_claim_interface(nullptr, 0));
    EXPECT_EQ(1U, vusb_violations("null-handle"));
    libusb_device** list = nullptr;
    libusb_get_device_list(nullptr, &list);
    libusb_device* device = list[0];
    libusb_free_device_list(list, 1);
    libusb_unref_device(device);
    EXPECT_EQ(1U, vusb_violations("unref-below-zero"));
    camera.Unplug();
    libusb_device_descriptor descriptor{};
    EXPECT_EQ(LIBUSB_ERROR_NO_DEVICE, libusb_get_device_descriptor(device, &descriptor));
    EXPECT_EQ(1U, vusb_violations("stale-device"));
    EXPECT_EQ(5U, vusb_violations(nullptr));
    EXPECT_NE(std::string::npos, vusb::Violations().find("stale-handle 2\n"));
}

TEST_F(BusDevices, Violations_ExitWithHandlesOrTwice)
{
    m_expectClean = false;
    vusb::Camera camera;
    libusb_device_handle* handle = Open();
    libusb_exit(nullptr);
    EXPECT_EQ(1U, vusb_violations("exit-with-handles"));
    EXPECT_EQ(LIBUSB_ERROR_INVALID_PARAM, HandleFor(0ms));
    EXPECT_EQ(1U, vusb_violations("no-context"));
    Close(handle);
    libusb_init(nullptr); // for TearDown
}

TEST_F(BusDevices, Violations_ForeignConfiguration)
{
    m_expectClean = false;
    vusb::Camera camera;
    libusb_config_descriptor* config = Configuration();
    libusb_free_config_descriptor(config);
    libusb_free_config_descriptor(config);
    EXPECT_EQ(1U, vusb_violations("foreign-pointer"));
}

TEST_F(BusDevices, Options_MistakesAreExplained)
{
    EXPECT_EQ(-1, vusb_add_camera("width=0"));
    EXPECT_NE(std::string::npos, std::string(vusb_last_error()).find("width"));
    EXPECT_EQ(-1, vusb_add_device("kind=toaster"));
    EXPECT_EQ(-1, vusb_unplug(0));
    EXPECT_THROW(vusb::Camera("no=1"), std::runtime_error);
    EXPECT_EQ(0, CountDevices());
}

TEST_F(BusDevices, Options_SeveralCamerasCountTheirIdentity)
{
    const int first = vusb_add_camera("count=3,serial=A09");
    EXPECT_EQ(0, first);
    EXPECT_EQ(3, CountDevices());
    EXPECT_EQ("A09", String(Open(0), 3));
    EXPECT_EQ("A11", String(Open(2), 3));
}
