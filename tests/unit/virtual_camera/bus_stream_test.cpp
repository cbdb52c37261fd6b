// Streams over the bus: content, speed, two cameras, unplugging while images run.

#include <atomic>

#include "bus_host.h"
#include "wait.h"

namespace {

class BusStream : public BusTest
{
protected:
    // Reads whole images with synchronous transfers; returns how many came with the right content.
    static int ReadImages(libusb_device_handle* handle, int camera, int count)
    {
        const std::size_t payload = vusb_payload_size(camera);
        int good = 0;
        for (int i = 0; i < count; ++i) {
            Bytes leader(65536);
            Bytes image(payload);
            Bytes trailer(32);
            if (ReadStream(handle, leader) != 0 || ReadStream(handle, image) != 0 ||
                ReadStream(handle, trailer) != 0) {
                break;
            }
            const auto id = static_cast<std::uint64_t>(leader[8]) | std::uint64_t{leader[9]} << 8;
            const bool right = id == static_cast<std::uint64_t>(i) && image.size() == payload &&
                               vusb_compare_image(camera, id, image.data(), image.size()) == -1;
            good += right ? 1 : 0;
        }
        return good;
    }
};

} // namespace

TEST_F(BusStream, Images_EveryFormat)
{
    for (const char* format : {"Mono8", "Mono10", "Mono12", "Mono12p", "Mono16", "BayerRG8",
                               "BayerGB8", "BayerGR8", "BayerBG8", "RGB8", "BGR8", "YUV422_8"}) {
        vusb_reset();
        vusb::Camera camera(std::string("width=64,height=48,pattern=scene,format=") + format);
        libusb_device_handle* handle = OpenAndClaim();
        StartStream(handle, static_cast<std::uint32_t>(camera.PayloadSize()));
        EXPECT_EQ(3, ReadImages(handle, camera.Id(), 3)) << format;
        Close(handle);
    }
}

TEST_F(BusStream, TwoCameras_EachItsOwnImages)
{
    vusb::Camera first("width=320,height=240");
    vusb::Camera second("width=128,height=64,seed=2,guid=120900000002");
    libusb_device_handle* handles[] = {OpenAndClaim(0), OpenAndClaim(1)};
    StartStream(handles[0], 320 * 240);
    StartStream(handles[1], 128 * 64);
    int good[2] = {};
    std::thread other([&] { good[1] = ReadImages(handles[1], second.Id(), 100); });
    good[0] = ReadImages(handles[0], first.Id(), 100);
    other.join();
    EXPECT_EQ(100, good[0]);
    EXPECT_EQ(100, good[1]);
    EXPECT_EQ(100U, first.Stats().images_sent);
}

TEST_F(BusStream, SameIdentityTwice_BothAreThere)
{
    vusb::Camera first;
    vusb::Camera second;
    unsigned char serials[2][16] = {};
    libusb_get_string_descriptor_ascii(Open(0), 3, serials[0], 16);
    libusb_get_string_descriptor_ascii(Open(1), 3, serials[1], 16);
    EXPECT_STREQ(reinterpret_cast<char*>(serials[0]), reinterpret_cast<char*>(serials[1]));
}

TEST_F(BusStream, Unplug_WhileStreaming_EndsWithNoDevice)
{
    vusb::Camera camera("width=64,height=32,unplug-after=3,replug-ms=20");
    libusb_device_handle* handle = OpenAndClaim();
    StartStream(handle, 2048);
    EXPECT_EQ(3, ReadImages(handle, camera.Id(), 3));
    Bytes buffer(64);
    EXPECT_EQ(LIBUSB_ERROR_NO_DEVICE, ReadStream(handle, buffer));
    EXPECT_FALSE(camera.IsPlugged());
    EXPECT_TRUE(zr_test::WaitUntil([&camera] { return camera.IsPlugged(); }));
    EXPECT_EQ(3U, camera.Stats().images_sent);
}

TEST_F(BusStream, FrameRate_LiveChange)
{
    vusb::Camera camera("width=64,height=32,fps=0.001");
    libusb_device_handle* handle = OpenAndClaim();
    StartStream(handle, 2048);
    // The first image would take a quarter of an hour.
    int images = 0;
    zr_test::WatchedThread reader([&] { images = ReadImages(handle, camera.Id(), 5); });
    EXPECT_TRUE(reader.UntilAsleep());
    camera.SetFrameRate(500);
    reader.Join();
    EXPECT_EQ(5, images);
}

TEST_F(BusStream, ManyImages_AreFast)
{
    vusb::Camera camera;
    libusb_device_handle* handle = OpenAndClaim();
    StartStream(handle, 640 * 480);
    vusb_journal_limit(100);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(500, ReadImages(handle, camera.Id(), 500));
    EXPECT_GT(10s, std::chrono::steady_clock::now() - start);
    vusb_journal_limit(65536);
    EXPECT_EQ(0U, vusb_camera_errors(camera.Id(), nullptr));
}

TEST_F(BusStream, Expected_ByteAndImageAgree)
{
    vusb::Camera camera("width=64,height=32");
    const Bytes image = camera.Expected(7);
    for (std::size_t offset = 0; offset < image.size(); offset += 97) {
        EXPECT_EQ(image[offset], vusb_expected_byte(camera.Id(), 7, offset));
    }
    EXPECT_EQ(-1, vusb_expected_byte(camera.Id(), 7, image.size()));
    Bytes spoilt = image;
    spoilt[100] ^= 1;
    EXPECT_EQ(100, vusb_compare_image(camera.Id(), 7, spoilt.data(), spoilt.size()));
    EXPECT_EQ(-2, vusb_compare_image(99, 7, spoilt.data(), spoilt.size()));
}

TEST_F(BusStream, Events_WakeTheTransferThatWaits)
{
    vusb::Camera camera("width=64,height=32,events=1");
    EXPECT_FALSE(camera.SendEvent(0x1234)); // not switched on
    libusb_device_handle* handle = OpenAndClaim();
    EXPECT_EQ(0, libusb_claim_interface(handle, 2));
    Write32(handle, 0x28000, 1);
    unsigned char packet[1024];
    int received = 0;
    zr_test::WatchedThread reader([&] {
        EXPECT_EQ(0, libusb_bulk_transfer(handle, 0x82, packet, sizeof packet, &received, 60000));
    });
    EXPECT_TRUE(reader.UntilAsleep());
    EXPECT_TRUE(camera.SendEvent(0x1234, {7, 8, 9}));
    reader.Join();
    ASSERT_EQ(27, received);
    EXPECT_EQ(0x34, packet[14]);
    EXPECT_EQ(9, packet[26]);
}

TEST_F(BusStream, Events_OfImagesComeWhileTheStreamIsRead)
{
    vusb::Camera camera("width=64,height=32,events=1");
    libusb_device_handle* handle = Open();
    for (const int interface : {0, 1, 2}) {
        EXPECT_EQ(0, libusb_claim_interface(handle, interface));
    }
    Write32(handle, 0x28000, 1);
    Write32(handle, 0x50148, 1);
    StartStream(handle, 2048);
    std::thread stream([&] { EXPECT_EQ(3, ReadImages(handle, camera.Id(), 3)); });
    for (unsigned char image = 0; image < 3; ++image) {
        unsigned char packet[1024] = {};
        int received = 0;
        EXPECT_EQ(0, libusb_bulk_transfer(handle, 0x82, packet, sizeof packet, &received, 5000));
        EXPECT_EQ(32, received);
        EXPECT_EQ(image, packet[24]);
    }
    stream.join();
}

TEST_F(BusStream, HandlersAndPluggersTogether_NobodyIsHurt)
{
    vusb::Camera camera("width=64,height=32");
    std::atomic<bool> stop{false};
    std::thread events([&stop] {
        while (!stop) {
            HandleFor(5ms);
        }
    });
    std::thread plug([&] {
        for (int i = 0; i < 30; ++i) {
            camera.Unplug();
            zr_test::LetPass(1ms, "the others meet a bus without it");
            camera.Replug();
            zr_test::LetPass(2ms, "and one with it");
        }
        stop = true;
    });
    while (!stop) {
        libusb_device** list = nullptr;
        const ssize_t count = libusb_get_device_list(nullptr, &list);
        libusb_device_handle* handle = nullptr;
        if (count == 1 && libusb_open(list[0], &handle) == 0) {
            libusb_claim_interface(handle, 0);
            libusb_claim_interface(handle, 1);
            for (int i = 0; i < 5; ++i) {
                unsigned char byte[16];
                int received = 0;
                Bytes command = ReadCommand(0, 4);
                libusb_bulk_transfer(handle, kControlOut, command.data(), 24, &received, 50);
                libusb_bulk_transfer(handle, kControlIn, byte, 16, &received, 50);
            }
            libusb_close(handle);
        }
        libusb_free_device_list(list, 1);
    }
    plug.join();
    events.join();
    // A claim can have failed because the device went: that alone is no mistake of the host.
    EXPECT_EQ(vusb_violations("not-claimed"), vusb_violations(nullptr));
    m_expectClean = vusb_violations(nullptr) == 0;
}
